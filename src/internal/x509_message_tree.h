// Messages in documents: what XML and JSON share.
#pragma once

#include <string_view>

#include "x509_message.h"

/// A simple value, and where it goes or comes from below a node.
struct TreeValue {
    const char* name; ///< of the element, attribute or member
    bool isMarked;    ///< there is an '@' in the path
};

/// The elements of an array of records that are being decoded.
struct STRUCTARRAYCTX {
    void* ParentNode;
    int Count;
    void** NodeList; ///< of the C heap
};

/// Where an array's elements are added while encoding.
struct ArrayTarget {
    void* node;
    std::string_view name; ///< of an element
};

/// A kind of document.
struct TreeFormat {
    bool isJson;
    /// Finds a node by a path, or makes what is missing.
    int (*find)(void* node, const char* path, bool canAdd, void** found);
    int (*put)(void* node, const Value& value, const TreeValue& place);
    int (*get)(void* node, const Slot& slot, const Item* item, const TreeValue& place, Allocations* allocations);
    int (*beginPut)(void* node, const char* path, int count, ArrayTarget* array);
    int (*addElement)(const ArrayTarget& array, void** element);
    int (*beginGet)(void* node, const char* path, STRUCTARRAYCTX* array);
};

extern const TreeFormat kXmlFormat;
extern const TreeFormat kJsonFormat;

/// Writes a record into a document; 0 or a code.
int EncodeTree(const char* val, const Item* it, void* document, const TreeFormat& format);
/// Reads a record from a document whose text had so many bytes; 0 or a code.
int DecodeTree(char* val, size_t Size, const Item* it, void* document, size_t length, const TreeFormat& format);

/// Finds the node of a path, which may be the node itself.
int FindNode(const TreeFormat& format, void* node, const char* path, bool canAdd, void** found);
/// Stores a text in a buffer, or as a copy that the field points to.
int StoreText(const Slot& slot, const Item* item, const char* text, Allocations* allocations);
/// Stores a 32-bit integer.
int StoreInt32(const Slot& slot, int32_t value);
/// A text that a value holds, ended by a NUL, with its copy if it had to be made; null without memory.
const char* EndedText(const Value& value, MallocPtr<char>* copy);
