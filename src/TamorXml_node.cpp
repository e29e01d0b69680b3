#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <new>

#include "internal/text.h"
#include "internal/xml.h"

namespace {

constexpr int kNotAnElement = -6;
constexpr int kMaxSearch = 256; // nodes that are looked at to see where one belongs

XMLNODE* AsNode(void* node)
{
    return static_cast<XMLNODE*>(node);
}

bool IsEmpty(const char* text)
{
    return text == nullptr || *text == '\0';
}

/// The next element from a node on for which `matches` holds.
template <class Matches>
XMLNODE* NextElement(XMLNODE* node, Matches matches)
{
    while (node != nullptr && !(IsElement(node) && matches(node)))
        node = node->Next;
    return node;
}

bool Any(const XMLNODE*)
{
    return true;
}

auto NameIs(const char* name)
{
    return [name](const XMLNODE* node) { return EqualNoCase(TextOf(node->Value), TextOf(name)); };
}

/// The node that follows in a walk over the tree below `top`'s parent, elements entered.
XMLNODE* NextInTree(XMLNODE* node, const XMLNODE* above)
{
    if (IsElement(node) && node->Child != nullptr)
        return node->Child;
    while (node != nullptr && node->Next == nullptr) {
        node = node->parent;
        if (node == above)
            return nullptr;
    }
    return node == nullptr ? nullptr : node->Next;
}

/// The first element of a name, in the order of the text; without a name the first of the chain.
XMLNODE* FindElement(void* xml, const char* name)
{
    XMLNODE* node = AsNode(xml);
    if (node == nullptr || name == nullptr)
        return ElementFrom(node);
    const XMLNODE* const above = node->parent;
    const auto matches = NameIs(name);
    while (node != nullptr && !(IsElement(node) && matches(node)))
        node = NextInTree(node, above);
    return node;
}

/// Walks to the `index`-th match, from where the last walk had come if that is not too far.
template <class Matches>
XMLNODE* WalkTo(XMLNODE* first, int index, XMLCURSOR::Place* place, Matches matches)
{
    if (index < 0)
        return nullptr;
    const bool goOn = place != nullptr && place->node != nullptr && place->index <= index;
    XMLNODE* node = goOn ? place->node : NextElement(first, matches);
    for (int i = goOn ? place->index : 0; node != nullptr && i < index; ++i)
        node = NextElement(node->Next, matches);
    if (place != nullptr && node != nullptr)
        *place = {node, index};
    return node;
}

/// The remembered places of a parent; null if it has none and `index` is not worth making them.
XMLCURSOR* CursorOf(XMLNODE* parent, int index)
{
    constexpr int kFew = 16;
    if (parent == nullptr)
        return nullptr;
    if (parent->cursor == nullptr && index >= kFew) {
        parent->cursor = static_cast<XMLCURSOR*>(calloc(1, sizeof(XMLCURSOR)));
        NoteForeign(parent, parent->place);
    }
    return parent->cursor;
}

/// What was remembered about the children of a node no longer holds.
void ForgetPlaces(XMLNODE* parent)
{
    if (parent != nullptr && parent->cursor != nullptr)
        *parent->cursor = {};
}

void LinkFirst(XMLNODE* parent, XMLNODE* node)
{
    node->parent = parent;
    node->Next = parent->Child;
    node->previous = node;
    if (parent->Child != nullptr) {
        node->previous = parent->Child->previous;
        parent->Child->previous = node;
    }
    parent->Child = node;
    NoteForeign(parent, parent->place);
    ForgetPlaces(parent);
}

/// Takes a node out of the chain that begins at `*first`.
void Unlink(XMLNODE** first, XMLNODE* node)
{
    if (*first == node)
        *first = node->Next;
    else
        node->previous->Next = node->Next;
    if (node->Next != nullptr)
        node->Next->previous = node->previous;
    else if (*first != nullptr)
        (*first)->previous = node->previous;
    ForgetPlaces(node->parent);
    node->Next = nullptr;
    node->previous = node;
    node->parent = nullptr;
}

void ReleaseExtensions(EXTENSION* extension)
{
    while (extension != nullptr) {
        EXTENSION* const next = extension->Next;
        ReleaseText(extension, extension->place, extension->Name);
        ReleaseText(extension, extension->place, extension->Value);
        ReleasePoolObject(extension, extension->place);
        extension = next;
    }
}

/// Releases a chain with all below it. Children are put in front of what follows, so that no depth is too deep.
void ReleaseChain(XMLNODE* node)
{
    while (node != nullptr) {
        XMLNODE* next = node->Next;
        if (node->Child != nullptr) {
            node->Child->previous->Next = next;
            next = node->Child;
        }
        ReleaseExtensions(node->Extension);
        ReleaseText(node, node->place, node->Value);
        free(node->cursor);
        ReleasePoolObject(node, node->place);
        node = next;
    }
}

/// A node is in a chain, from the given one on, or below it, below elements only. Of one that lies very deep or far behind
/// this is taken on trust: deleting costs a constant.
bool IsIn(const XMLNODE* first, const XMLNODE* node)
{
    int looked = 0;
    while (node->parent != first->parent && ++looked < kMaxSearch) {
        node = node->parent;
        if (node == nullptr || !IsElement(node))
            return false;
    }
    while (node != first && node->previous->Next != nullptr && ++looked < kMaxSearch)
        node = node->previous;
    return node == first || looked >= kMaxSearch;
}

bool IsFirst(const XMLNODE* node)
{
    return node->previous->Next == nullptr;
}

/// What Unlink() needs for the first node of a chain. Which that is matters at the chain's ends only, and there it is mostly
/// known.
XMLNODE* FirstForUnlink(XMLNODE* document, XMLNODE* node)
{
    if (IsFirst(node))
        return node;
    if (node->Next != nullptr)
        return node->previous;
    return document->previous == node ? document : FirstOf(node);
}

/// Adds an element behind the others of a chain that a node is in, and an element from there on.
int AddToChain(XMLNODE* document, XMLNODE* node)
{
    if (ElementFrom(document) == nullptr) {
        ReleaseChain(node);
        return ENOENT;
    }
    XMLNODE* first = FirstOf(document);
    LinkLast(document->parent == nullptr ? &first : &document->parent->Child, document->parent, node);
    return 0;
}

int AddChildItem(XMLNODE** document, const char* ParentName, const char* Name, const char* Value, void** Node)
{
    const bool isTopLevel = *document == nullptr || IsEmpty(ParentName);
    XMLNODE* const node = NewElement(Name, isTopLevel ? nullptr : Value);
    if (node == nullptr)
        return ENOMEM;
    if (Node != nullptr)
        *Node = node;
    if (*document == nullptr) {
        *document = node;
        return 0;
    }
    if (isTopLevel)
        return AddToChain(*document, node);
    XMLNODE* const parent = FindElement(*document, ParentName);
    if (parent == nullptr) {
        ReleaseChain(node);
        return ENOENT;
    }
    LinkNodeChild(parent, node);
    return 0;
}

/// The first text among the children of a node, or null.
char* FirstText(const XMLNODE* node)
{
    const XMLNODE* child = node->Child;
    while (child != nullptr && child->Type != TEXT)
        child = child->Next;
    return child == nullptr ? nullptr : child->Value;
}

XMLNODE* RootAt(void* xml, int index)
{
    return WalkTo(AsNode(xml), index, nullptr, Any);
}

/// The child text that is the value of an element, or null.
XMLNODE* ValueNode(void* Node)
{
    XMLNODE* const child = Node == nullptr ? nullptr : AsNode(Node)->Child;
    return child == nullptr || child->Type != TEXT ? nullptr : child;
}

/// A copy of an element with its text and attributes, but without its elements; null without memory.
XMLNODE* CopyOne(const XMLNODE* source)
{
    const XMLNODE* const first = source->Child;
    XMLNODE* const copy =
        NewElement(TextOf(source->Value), first != nullptr && first->Type == TEXT ? first->Value : nullptr);
    if (copy == nullptr)
        return nullptr;
    for (const EXTENSION* extension = source->Extension; extension != nullptr; extension = extension->Next) {
        if (AddExtensionToNode(copy, extension->Name, extension->Value) != 0) {
            ReleaseChain(copy);
            return nullptr;
        }
    }
    return copy;
}

/// Copies the elements below one node to below another; 0, EINVAL at an element without a name, or ENOMEM.
int CopyBelow(const XMLNODE* source, XMLNODE* copy)
{
    const XMLNODE* const top = source;
    for (;;) {
        const XMLNODE* next = ElementFrom(static_cast<const XMLNODE*>(source->Child));
        while (next == nullptr && source != top) { // up, until something follows
            next = ElementFrom(static_cast<const XMLNODE*>(source->Next));
            source = source->parent;
            copy = copy->parent;
            if (copy == nullptr)
                __builtin_unreachable(); // it has as many levels as the source
        }
        if (next == nullptr)
            return 0;
        if (IsEmpty(next->Value))
            return EINVAL;
        XMLNODE* const below = CopyOne(next);
        if (below == nullptr)
            return ENOMEM;
        LinkNodeChild(copy, below);
        source = next;
        copy = below;
    }
}

} // namespace

XMLNODE* FirstOf(XMLNODE* node)
{
    while (!IsFirst(node))
        node = node->previous;
    return node;
}

XMLNODE* ElementFrom(XMLNODE* node)
{
    return NextElement(node, Any);
}

XMLNODE* ElementChild(XMLNODE* node, int index)
{
    XMLCURSOR* const cursor = CursorOf(node, index);
    return WalkTo(node->Child, index, cursor == nullptr ? nullptr : &cursor->child, Any);
}

int CountElements(const XMLNODE* first)
{
    int count = 0;
    for (; first != nullptr; first = first->Next)
        count += IsElement(first);
    return count;
}

XMLNODE* GenerateNewNode(int Type, std::string_view value)
{
    void* const room = calloc(1, sizeof(XMLNODE));
    if (room == nullptr)
        return nullptr;
    auto* const node = new (room) XMLNODE{Type, 0, {}, {}, {}, {}, {}, {}, {}};
    node->previous = node;
    if (ReplaceText(node, 0, &node->Value, value) != 0) {
        free(node);
        return nullptr;
    }
    return node;
}

XMLNODE* NewElement(std::string_view name, const char* Value)
{
    XMLNODE* const node = GenerateNewNode(ELEMENT, name);
    if (node == nullptr || Value == nullptr)
        return node;
    XMLNODE* const text = GenerateNewNode(TEXT, Value);
    if (text == nullptr) {
        ReleaseChain(node);
        return nullptr;
    }
    LinkNodeChild(node, text);
    return node;
}

void LinkLast(XMLNODE** first, XMLNODE* parent, XMLNODE* node)
{
    node->parent = parent;
    const XMLNODE* const neighbour = parent != nullptr ? parent : *first;
    if (neighbour != nullptr)
        NoteForeign(neighbour, neighbour->place);
    if (*first == nullptr) {
        *first = node;
    } else {
        node->previous = (*first)->previous;
        node->previous->Next = node;
    }
    (*first)->previous = node;
}

void LinkNodeChild(XMLNODE* parent, XMLNODE* node)
{
    LinkLast(&parent->Child, parent, node);
}

int ReplaceText(const void* owner, PoolPlace place, char** text, std::string_view Value)
{
    char* const copy = static_cast<char*>(malloc(Value.size() + 1));
    if (copy == nullptr)
        return ENOMEM;
    copy[Value.copy(copy, Value.size())] = '\0';
    NoteForeign(owner, place);
    ReleaseText(owner, place, *text);
    *text = copy;
    return 0;
}

EXTENSION* FindExtension(const XMLNODE* node, std::string_view name)
{
    EXTENSION* extension = node->Extension;
    while (extension != nullptr && !EqualNoCase(extension->Name, name))
        extension = extension->Next;
    return extension;
}

int AddExtensionToNode(XMLNODE* node, std::string_view name, std::string_view value)
{
    EXTENSION** end = &node->Extension;
    for (; *end != nullptr; end = &(*end)->Next)
        if (EqualNoCase((*end)->Name, name))
            return ReplaceText(*end, (*end)->place, &(*end)->Value, value);
    auto* const extension = static_cast<EXTENSION*>(calloc(1, sizeof(EXTENSION)));
    if (extension == nullptr)
        return ENOMEM;
    if (ReplaceText(extension, 0, &extension->Name, name) != 0 ||
        ReplaceText(extension, 0, &extension->Value, value) != 0) {
        ReleaseExtensions(extension);
        return ENOMEM;
    }
    NoteForeign(node, node->place);
    *end = extension;
    return 0;
}

void UnlinkAndRelease(XMLNODE** first, XMLNODE* node)
{
    const bool isRoot = node->place != 0 && BlockOf(node, node->place)->pool->root == node;
    if (isRoot)
        BlockOf(node, node->place)->pool->root = node->Next;
    Unlink(first, node);
    ReleaseChain(node);
}

int WQXXML_Misc_CopyNode(void* SrcNode, void* DstNode)
{
    if (SrcNode == nullptr)
        return 0;
    if (!IsElement(AsNode(SrcNode)))
        return kNotAnElement;
    if (DstNode == nullptr || !IsElement(AsNode(DstNode)) || IsEmpty(AsNode(SrcNode)->Value))
        return EINVAL;
    XMLNODE* const copy = CopyOne(AsNode(SrcNode));
    if (copy == nullptr)
        return ENOMEM;
    // Linked only now: the destination may lie below the source.
    const int error = CopyBelow(AsNode(SrcNode), copy);
    LinkNodeChild(AsNode(DstNode), copy);
    return error;
}

int IsOneLevelElement(const XMLNODE* Node)
{
    const XMLNODE* const first = Node == nullptr ? nullptr : Node->Child;
    return ElementFrom(first) == nullptr;
}

void WQXXML_ReleaseObject(void* xml)
{
    XMLNODE* const node = AsNode(xml);
    if (node == nullptr)
        return;
    NodePool* const pool = node->place == 0 ? nullptr : BlockOf(node, node->place)->pool;
    if (pool != nullptr && pool->isPure && pool->root == node)
        DestroyPool(pool);
    else
        ReleaseChain(node);
}

void WQXXML_SetOneLineLevel(int /*Level*/) {}

int WQXXML_AddChildItem(void** xml, const char* ParentName, const char* Name, const char* Value)
{
    return WQXXML_AddChildItemAndGetNode(xml, ParentName, Name, Value, nullptr);
}

int WQXXML_AddChildItemAndGetNode(void** xml, const char* ParentName, const char* Name, const char* Value, void** Node)
{
    if (xml == nullptr || IsEmpty(Name))
        return EINVAL;
    XMLNODE* document = AsNode(*xml);
    const int error = AddChildItem(&document, ParentName, Name, Value, Node);
    *xml = document;
    return error;
}

int WQXXML_AddNodeChildItem(void* Node, const char* Name, const char* Value, void** NewAddNode)
{
    if (Node == nullptr || !IsElement(AsNode(Node)) || IsEmpty(Name))
        return EINVAL;
    XMLNODE* const node = NewElement(Name, Value);
    if (node == nullptr)
        return ENOMEM;
    LinkNodeChild(AsNode(Node), node);
    if (NewAddNode != nullptr)
        *NewAddNode = node;
    return 0;
}

int WQXXML_AddNodeChildItem_Reverse(void* Node, const char* Name, const char* Value, void** NewAddNode)
{
    if (Node == nullptr || IsEmpty(Name))
        return EINVAL;
    XMLNODE* const node = NewElement(Name, Value);
    if (node == nullptr)
        return ENOMEM;
    LinkFirst(AsNode(Node), node);
    if (NewAddNode != nullptr)
        *NewAddNode = node;
    return 0;
}

int WQXXML_AddAttribute(void* xml, const char* ElementName, const char* Name, const char* Value)
{
    if (Name == nullptr)
        return EINVAL;
    XMLNODE* const node = FindElement(xml, ElementName);
    return node == nullptr ? ENOENT : AddExtensionToNode(node, Name, TextOf(Value));
}

int WQXXML_AddNodeAttribute(void* Node, const char* Name, const char* Value)
{
    if (Node == nullptr || !IsElement(AsNode(Node)) || Name == nullptr)
        return EINVAL;
    return AddExtensionToNode(AsNode(Node), Name, TextOf(Value));
}

int WQXXML_GetAttribute(void* Node, const char* Name, char** Value)
{
    if (Value == nullptr)
        return 0;
    if (Node == nullptr || Name == nullptr)
        return EINVAL;
    const EXTENSION* const extension = FindExtension(AsNode(Node), Name);
    if (extension == nullptr)
        return ENOENT;
    *Value = extension->Value;
    return 0;
}

int WQXXML_ChangeAttribute(void* Node, const char* Name, const char* Value)
{
    if (Node == nullptr || Name == nullptr)
        return EINVAL;
    EXTENSION* const extension = FindExtension(AsNode(Node), Name);
    if (extension == nullptr)
        return ENOENT;
    return ReplaceText(extension, extension->place, &extension->Value, TextOf(Value));
}

int WQXXML_GetRootItem(void* xml, int index, char** RootName)
{
    if (xml == nullptr || RootName == nullptr)
        return EINVAL;
    const XMLNODE* const node = RootAt(xml, index);
    if (node == nullptr)
        return ENOENT;
    *RootName = node->Value;
    return 0;
}

int WQXXML_GetRootNode(void* xml, int index, void** Node)
{
    if (xml == nullptr || Node == nullptr)
        return EINVAL;
    XMLNODE* const node = RootAt(xml, index);
    if (node == nullptr)
        return ENOENT;
    *Node = node;
    return 0;
}

int WQXXML_GetNodeValue(void* Node, const char** Value)
{
    if (Node == nullptr || Value == nullptr)
        return EINVAL;
    *Value = AsNode(Node)->Value;
    return 0;
}

int WQXXML_ChangeNodeValue(void* Node, const char* Value)
{
    if (Node == nullptr || Value == nullptr)
        return EINVAL;
    XMLNODE* const node = AsNode(Node);
    ForgetPlaces(node->parent);
    return ReplaceText(node, node->place, &node->Value, Value);
}

int WQXXML_GetElementValue(void* Node, char** Value)
{
    if (Value == nullptr)
        return 0;
    const XMLNODE* const text = ValueNode(Node);
    if (text == nullptr)
        return EINVAL;
    *Value = text->Value;
    return 0;
}

int WQXXML_ChangeElementValue(void* Node, const char* Value)
{
    XMLNODE* const text = ValueNode(Node);
    return text == nullptr ? EINVAL : ReplaceText(text, text->place, &text->Value, TextOf(Value));
}

int WQXXML_GetChildNode(void* Node, int* index, void** ChildNode)
{
    if (Node == nullptr || index == nullptr)
        return EINVAL;
    if (ChildNode == nullptr) {
        *index = CountElements(AsNode(Node)->Child);
        return 0;
    }
    XMLNODE* const child = ElementChild(AsNode(Node), *index);
    if (child == nullptr)
        return EINVAL;
    *ChildNode = child;
    return 0;
}

int WQXXML_GetNextNode(void* Node, int* index, void** NextNode)
{
    if (Node == nullptr || index == nullptr)
        return EINVAL;
    XMLNODE* const node = AsNode(Node);
    if (NextNode == nullptr) {
        *index = CountElements(node->Next);
        return 0;
    }
    XMLCURSOR* const cursor = CursorOf(node->parent, *index);
    if (cursor != nullptr && cursor->base != node) {
        cursor->base = node;
        cursor->follower = {};
    }
    XMLNODE* const next = WalkTo(node->Next, *index, cursor == nullptr ? nullptr : &cursor->follower, Any);
    if (next == nullptr)
        return EINVAL;
    *NextNode = next;
    return 0;
}

int WQXXML_GetSpecifiedChildNode(void* xml, int* index, const char* NodeName, void** Node)
{
    if (Node != nullptr)
        *Node = nullptr;
    if (xml == nullptr || index == nullptr || NodeName == nullptr)
        return EINVAL;
    XMLNODE* const parent = AsNode(xml);
    const auto matches = [name = std::string_view(NodeName)](const XMLNODE* node) {
        return node->Value != nullptr && node->Value == name;
    };
    if (Node == nullptr) {
        *index = 0;
        for (XMLNODE* node = NextElement(parent->Child, matches); node != nullptr;
             node = NextElement(node->Next, matches))
            ++*index;
        return 0;
    }
    XMLCURSOR* const cursor = CursorOf(parent, *index);
    if (cursor != nullptr && cursor->named.node != nullptr && !matches(cursor->named.node))
        cursor->named = {}; // it was for another name
    *Node = WalkTo(parent->Child, *index, cursor == nullptr ? nullptr : &cursor->named, matches);
    return 0;
}

int WQXXML_GetChildNodeList(void* xml, int Count, const char* NodeName, void* Node)
{
    if (xml == nullptr || NodeName == nullptr || Count < 0 || (Node == nullptr && Count > 0))
        return EINVAL;
    auto** const list = static_cast<void**>(Node);
    int found = 0;
    for (XMLNODE* child = AsNode(xml)->Child; child != nullptr && found < Count; child = child->Next)
        if (child->Value != nullptr && strcmp(child->Value, NodeName) == 0)
            list[found++] = child;
    if (found < Count)
        list[found] = nullptr;
    return 0;
}

int WQXXML_GetChildItem(void* xml, const char* ParentName, int* index, char** Name, char** Value)
{
    if (index == nullptr)
        return EINVAL;
    XMLNODE* const parent = FindElement(xml, ParentName);
    if (Name == nullptr || parent == nullptr) {
        *index = parent == nullptr ? 0 : CountElements(parent->Child);
        return 0;
    }
    const XMLNODE* const child = ElementChild(parent, *index);
    if (child == nullptr)
        return EINVAL;
    *Name = child->Value;
    if (Value != nullptr)
        *Value = FirstText(child);
    return 0;
}

int WQXXML_GetKeyValue(void* xml, const char* SectionName, const char* KeyName, const char** KeyValue)
{
    if (KeyValue == nullptr || KeyName == nullptr)
        return EINVAL;
    *KeyValue = nullptr;
    const XMLNODE* const section = FindElement(xml, SectionName);
    if (section == nullptr)
        return 0;
    const XMLNODE* const child = NextElement(section->Child, NameIs(KeyName));
    *KeyValue = child == nullptr ? nullptr : FirstText(child);
    return 0;
}

int WQXXML_GetChildKeyValue(void* Node, const char* KeyName, const char** KeyValue)
{
    if (KeyValue == nullptr)
        return 0;
    *KeyValue = nullptr;
    if (Node == nullptr || KeyName == nullptr)
        return 0;
    const XMLNODE* const child = NextElement(AsNode(Node)->Child, NameIs(KeyName));
    if (child != nullptr && child->Child != nullptr)
        *KeyValue = child->Child->Value;
    return 0;
}

int WQXXML_GetKeyNode(void* xml, const char* SectionName, const char* KeyName, void** Node)
{
    if (Node == nullptr || KeyName == nullptr)
        return EINVAL;
    XMLNODE* const section = FindElement(xml, SectionName);
    if (section == nullptr)
        return ENOENT;
    const auto matches = NameIs(KeyName);
    XMLNODE* found = nullptr;
    if (SectionName == nullptr)
        found = matches(section) ? section : nullptr;
    else
        found = NextElement(section->Child, matches);
    if (found == nullptr)
        return ENOENT;
    *Node = found;
    return 0;
}

int WQXXML_DelNode(void** xml, void* Node)
{
    if (xml == nullptr || Node == nullptr)
        return EINVAL;
    XMLNODE* const node = AsNode(Node);
    XMLNODE* const document = AsNode(*xml);
    if (node != document && (document == nullptr || !IsElement(node) || !IsIn(document, node)))
        return EINVAL;
    if (node == document)
        *xml = node->Next;
    XMLNODE* first = FirstForUnlink(document, node);
    UnlinkAndRelease(node->parent == nullptr ? &first : &node->parent->Child, node);
    return 0;
}
