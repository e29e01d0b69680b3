// JSON trees as their sources share them.
#pragma once

#include <ZKQ_general/json.h>
#include <stddef.h>

#include <string_view>

#include "node_pool.h"

inline constexpr int kJsonBadData = -8;
inline constexpr int kJsonNoMemory = -9;
inline constexpr char kJsonSource[] = "json"; ///< what the log's records name as their source

enum JsonType { kJsonFalse, kJsonTrue, kJsonNull, kJsonNumber, kJsonString, kJsonArray, kJsonObject };
inline constexpr int kJsonTypeMask = 0xFF;
inline constexpr int kJsonNotOwned = 256; ///< what the node has below it and its text belong to somebody else

/// A value.
struct cJSON {
    cJSON* next; ///< while a container is being read: the one around it
    cJSON* prev;
    cJSON* child;
    int type;
    PoolPlace place; ///< names without capitals that the others do not have are this library's own
    char* valuestring;
    int valueint;
    double valuedouble;
    char* string; ///< the member's name
    int bArray;
    cJSON* last; ///< child
};
static_assert(offsetof(cJSON, child) == 16 && offsetof(cJSON, type) == 24 && offsetof(cJSON, valuestring) == 32 &&
              offsetof(cJSON, valueint) == 40 && offsetof(cJSON, valuedouble) == 48 && offsetof(cJSON, string) == 56 &&
              offsetof(cJSON, bArray) == 64);

inline int TypeOf(const cJSON* node)
{
    return node->type & kJsonTypeMask;
}

/// Appends a node to what another has below it.
inline void LinkLast(cJSON* parent, cJSON* node)
{
    node->prev = parent->last;
    (parent->last == nullptr ? parent->child : parent->last->next) = node;
    parent->last = node;
}

/// Parses the first value of a text; 0, kJsonBadData or kJsonNoMemory.
int cJSON_Misc_Parse(const char* value, cJSON** JSon);
/// The text of a node and all below it, or null.
char* cJSON_Misc_Print(const cJSON* item);
/// Releases a node with all below it, and every sibling behind it.
void cJSON_Misc_Delete(cJSON* c);
/// A new node; 0 or kJsonNoMemory, which is logged.
int cJSON_Misc_CreateNode(int Type, cJSON** Node);
/// The integer of a number: cut toward zero, INT_MIN if it does not fit.
int JsonInteger(double value);
