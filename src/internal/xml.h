// The document model as the XML sources share it.
#pragma once

#include <ZKQ_general/TamorXml.h>
#include <stddef.h>

#include <string_view>

#include "node_pool.h"

enum NodeType { DOCUMENT, ELEMENT, COMMENT, UNKNOWN, TEXT, DECLARATION, TYPECOUNT };

/// An attribute.
struct EXTENSION {
    char* Name;
    char* Value; ///< never null
    EXTENSION* Next;
    PoolPlace place;
};

struct XMLNODE;

/// Where the last walks by index over the children of a node have got to, so that the next index is found at once.
struct XMLCURSOR {
    struct Place {
        XMLNODE* node; ///< null: nowhere
        int index;
    };
    Place child;    ///< among the elements
    Place named;    ///< among the elements of one name
    Place follower; ///< among the elements behind `base`
    const XMLNODE* base;
};

struct XMLNODE {
    int Type;
    PoolPlace place; ///< from here on, names without capitals are this library's own
    XMLNODE* Child;
    char* Value;
    EXTENSION* Extension;
    XMLNODE* Next;
    XMLNODE* parent;
    XMLNODE* previous; ///< of the first node of a chain: the last one
    XMLCURSOR* cursor; ///< or null
};
static_assert(offsetof(XMLNODE, Child) == 8 && offsetof(XMLNODE, Value) == 16 && offsetof(XMLNODE, Extension) == 24 &&
              offsetof(XMLNODE, Next) == 32);
static_assert(offsetof(EXTENSION, Value) == 8 && offsetof(EXTENSION, Next) == 16);

/// The text of a node or attribute, or "" for null.
inline std::string_view TextOf(const char* text)
{
    return text == nullptr ? std::string_view() : std::string_view(text);
}

inline bool IsElement(const XMLNODE* node)
{
    return node->Type == ELEMENT;
}

/// The first node of the chain that a node is in.
XMLNODE* FirstOf(XMLNODE* node);
/// The first element from `node` on in its chain, or null.
XMLNODE* ElementFrom(XMLNODE* node);
inline const XMLNODE* ElementFrom(const XMLNODE* node)
{
    while (node != nullptr && !IsElement(node))
        node = node->Next;
    return node;
}
/// The `index`-th element among the children of a node, or null.
XMLNODE* ElementChild(XMLNODE* node, int index);
/// The number of elements from `first` on in its chain.
int CountElements(const XMLNODE* first);

/// A node of the C heap, not linked yet; null without memory.
XMLNODE* GenerateNewNode(int Type, std::string_view value);
/// As the last node of a chain with the given parent, whose first node is `*first`.
void LinkLast(XMLNODE** first, XMLNODE* parent, XMLNODE* node);
/// As the last child.
void LinkNodeChild(XMLNODE* parent, XMLNODE* node);
/// An element with a text child, unless `Value` is null; not linked yet, or null.
XMLNODE* NewElement(std::string_view name, const char* Value);
/// Replaces a text that `owner` has; 0 or ENOMEM. `Value` may lie in the old text.
int ReplaceText(const void* owner, PoolPlace place, char** text, std::string_view Value);
EXTENSION* FindExtension(const XMLNODE* node, std::string_view name);
/// Adds an attribute or replaces its value; 0 or ENOMEM.
int AddExtensionToNode(XMLNODE* node, std::string_view name, std::string_view value);
/// Takes a node out of the chain that begins at `*first` and releases it.
void UnlinkAndRelease(XMLNODE** first, XMLNODE* node);

/// Null, without children, or without a child that is an element.
int IsOneLevelElement(const XMLNODE* Node);
/// Copies an element with its attributes and elements to the end of another's children: 0, -6 if it is no element,
/// EINVAL if it or one below has no name, or ENOMEM; what was copied until then stays.
int WQXXML_Misc_CopyNode(void* SrcNode, void* DstNode);

/// Sets the options as they are after loading.
void General_Misc_XMLInit();
/// Character data is taken as it is written.
bool IsPlainText();
