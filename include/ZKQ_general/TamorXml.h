/**
 * @file TamorXml.h
 * @brief XML documents as trees of nodes: reading, looking up, changing, writing.
 *
 * A document is a pointer to its first top-level node, null for an empty one; a node is a pointer as well. A tree is used
 * by one thread at a time. What a getter hands out points into the tree: it is never released or written by the caller,
 * and lives until that node is changed or released. Texts are stored and written as they are, without escaping.
 *
 * Functions that return `int` return 0 for success, a positive errno value, or a negative code;
 * WQXXML_GetErrorString() has texts for all of them. They leave the library's error text alone.
 *
 * Below, the element that a name stands for is the first of that name in the document, in the order of the text and
 * without regard to case; null stands for the first top-level element. Attribute names have no case, either.
 */
#ifndef ZKQ_GENERAL_TAMORXML_H
#define ZKQ_GENERAL_TAMORXML_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Reads a document.
 *
 * The reader knows an XML declaration, elements, attributes, character data, CDATA sections and comments. It stops
 * without a word at whatever else it meets, and behind the first element or comment that is not empty; what it has read
 * until then is the document. Nesting may be of any depth.
 *
 * @param String  The text.
 * @param xml     Receives the document, released with WQXXML_ReleaseObject(); null if there was nothing in the text.
 * @return 0, or `EINVAL` for an empty text or a null argument, which leaves `*xml` alone.
 */
ZKQ_API int WQXXML_LoadFromString(const char* String, void** xml);

/**
 * @brief Releases a node with all below it, and every node after it in its chain.
 * @param xml  A document or an unlinked node; null is ignored.
 */
ZKQ_API void WQXXML_ReleaseObject(void* xml);

/**
 * @brief Sets an option of the reader for the whole process. Set it before threads begin to read.
 * @param index  1: whether character data is taken as it is written (1, as after loading), or with entities decoded and
 *               white space joined (0). There is no other option.
 * @param Value  An `int`.
 * @param Size   Not looked at.
 * @return 0, or `EINVAL` for another index or null.
 */
ZKQ_API int WQXXML_SetOption(int index, const void* Value, int Size);

/**
 * @brief Has no effect; kept for programs that call it.
 * @param Level  Any number.
 */
ZKQ_API void WQXXML_SetOneLineLevel(int Level);

/**
 * @brief Releases a text of WQXXML_OutputString() or WQXXML_OutputStringEx().
 * @param String  The text; null is ignored.
 */
ZKQ_API void WQXXML_FreeString(char* String);

/**
 * @brief The text of a result code.
 * @param Ret          The code: an errno value, or a negative one of this library's. -2 stands for the text of
 *                     WQXXMLH_Misc_SetExternalError().
 * @param ErrorString  Receives the text, at most 256 bytes; null for a buffer that all threads share, the one that holds
 *                     the text for -2.
 * @return The buffer that was written.
 */
ZKQ_API char* WQXXML_GetErrorString(int Ret, char* ErrorString);

/**
 * @brief Adds an element below the element that a name stands for.
 *
 * In an empty document it becomes the document, without its value; without a parent name it becomes a top-level element
 * behind the others, also without its value.
 *
 * @param xml         The document; changed if it was empty. Or a node of it, whose chain then gets the new element.
 * @param ParentName  The parent; null or empty for none.
 * @param Name        The new element's name, not empty.
 * @param Value       Its text; null for an element without any.
 * @return 0, `EINVAL` without a name, `ENOENT` without a parent, or `ENOMEM`.
 */
ZKQ_API int WQXXML_AddChildItem(void** xml, const char* ParentName, const char* Name, const char* Value);

/**
 * @brief As WQXXML_AddChildItem(), and hands out the new node.
 * @param xml         The document.
 * @param ParentName  The parent.
 * @param Name        The new element's name.
 * @param Value       Its text.
 * @param Node        Receives the new node; null is allowed. Of no use after a failure.
 * @return As WQXXML_AddChildItem().
 */
ZKQ_API int WQXXML_AddChildItemAndGetNode(void** xml, const char* ParentName, const char* Name, const char* Value,
                                          void** Node);

/**
 * @brief Adds an element as the last child of another.
 * @param Node        The parent, an element.
 * @param Name        The new element's name, not empty.
 * @param Value       Its text; null for an element without any.
 * @param NewAddNode  Receives the new node; null is allowed.
 * @return 0, `EINVAL` or `ENOMEM`.
 */
ZKQ_API int WQXXML_AddNodeChildItem(void* Node, const char* Name, const char* Value, void** NewAddNode);

/**
 * @brief As WQXXML_AddNodeChildItem(), but as the first child, and of a node of any type.
 * @param Node        The parent.
 * @param Name        The new element's name.
 * @param Value       Its text.
 * @param NewAddNode  Receives the new node; null is allowed.
 * @return 0, `EINVAL` or `ENOMEM`.
 */
ZKQ_API int WQXXML_AddNodeChildItem_Reverse(void* Node, const char* Name, const char* Value, void** NewAddNode);

/**
 * @brief Adds an attribute, or replaces its value, on the element that a name stands for.
 * @param xml          The document.
 * @param ElementName  The element.
 * @param Name         The attribute.
 * @param Value        Its value; null means "".
 * @return 0, `ENOENT` without the element, `EINVAL` without a name, or `ENOMEM`.
 */
ZKQ_API int WQXXML_AddAttribute(void* xml, const char* ElementName, const char* Name, const char* Value);

/**
 * @brief Adds an attribute to an element, or replaces its value.
 * @param Node   The element.
 * @param Name   The attribute.
 * @param Value  Its value; null means "".
 * @return 0, `EINVAL` or `ENOMEM`.
 */
ZKQ_API int WQXXML_AddNodeAttribute(void* Node, const char* Name, const char* Value);

/**
 * @brief The value of an attribute.
 * @param Node   The element.
 * @param Name   The attribute.
 * @param Value  Receives the value; with null nothing is done.
 * @return 0, `ENOENT` if there is none, or `EINVAL`.
 */
ZKQ_API int WQXXML_GetAttribute(void* Node, const char* Name, char** Value);

/**
 * @brief Replaces the value of an attribute that is there.
 * @param Node   The element.
 * @param Name   The attribute.
 * @param Value  Its new value; null means "".
 * @return 0, `ENOENT` if there is none, `EINVAL` or `ENOMEM`.
 */
ZKQ_API int WQXXML_ChangeAttribute(void* Node, const char* Name, const char* Value);

/**
 * @brief The name of a top-level element.
 * @param xml       The document.
 * @param index     Its number among the top-level elements, from 0.
 * @param RootName  Receives the name.
 * @return 0, `ENOENT` if there is no such element, or `EINVAL`.
 */
ZKQ_API int WQXXML_GetRootItem(void* xml, int index, char** RootName);

/**
 * @brief A top-level element.
 * @param xml    The document.
 * @param index  Its number among the top-level elements, from 0.
 * @param Node   Receives the node.
 * @return 0, `ENOENT` if there is no such element, or `EINVAL`.
 */
ZKQ_API int WQXXML_GetRootNode(void* xml, int index, void** Node);

/**
 * @brief A node's own text: the name of an element, the text of a text or comment.
 * @param Node   The node.
 * @param Value  Receives the text, null if the node has none.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int WQXXML_GetNodeValue(void* Node, const char** Value);

/**
 * @brief Replaces a node's own text; renames an element.
 * @param Node   The node.
 * @param Value  The new text.
 * @return 0, `EINVAL` or `ENOMEM`.
 */
ZKQ_API int WQXXML_ChangeNodeValue(void* Node, const char* Value);

/**
 * @brief The text that an element begins with.
 * @param Node   The element.
 * @param Value  Receives the text; with null nothing is done.
 * @return 0, or `EINVAL` if the first child is not a text.
 */
ZKQ_API int WQXXML_GetElementValue(void* Node, char** Value);

/**
 * @brief Replaces the text that an element begins with.
 * @param Node   The element.
 * @param Value  The new text; null means "".
 * @return 0, `EINVAL` if the first child is not a text, or `ENOMEM`.
 */
ZKQ_API int WQXXML_ChangeElementValue(void* Node, const char* Value);

/**
 * @brief A child of a node, by its number among the elements; or how many there are.
 *
 * Walking with growing numbers costs no more than walking once.
 *
 * @param Node       The parent.
 * @param index      The number, from 0; without `ChildNode` receives how many there are.
 * @param ChildNode  Receives the child, or null to ask for the number of children.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int WQXXML_GetChildNode(void* Node, int* index, void** ChildNode);

/**
 * @brief As WQXXML_GetChildNode(), among the elements that follow a node in its chain.
 * @param Node      The node.
 * @param index     The number, from 0; without `NextNode` receives how many there are.
 * @param NextNode  Receives the element, or null to ask for their number.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int WQXXML_GetNextNode(void* Node, int* index, void** NextNode);

/**
 * @brief As WQXXML_GetChildNode(), among the elements of one name, compared with case.
 * @param xml       The parent.
 * @param index     The number, from 0; without `Node` receives how many there are.
 * @param NodeName  The name.
 * @param Node      Receives the child, null if there are not so many, or after a failure; or null to ask for their number.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int WQXXML_GetSpecifiedChildNode(void* xml, int* index, const char* NodeName, void** Node);

/**
 * @brief The first children of a node whose own text equals a name, compared with case.
 * @param xml       The parent.
 * @param Count     Room in the list.
 * @param NodeName  The name.
 * @param Node      An array of `Count` pointers; if fewer are found, a null stands behind the last.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int WQXXML_GetChildNodeList(void* xml, int Count, const char* NodeName, void* Node);

/**
 * @brief Name and text of a child of the element that a name stands for; or how many children it has.
 * @param xml         The document.
 * @param ParentName  The parent.
 * @param index       The number of the child among the elements, from 0; receives how many there are if `Name` is null or
 *                    there is no such parent.
 * @param Name        Receives the child's name, or null.
 * @param Value       Receives the child's first text, null if it has none; null is allowed.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int WQXXML_GetChildItem(void* xml, const char* ParentName, int* index, char** Name, char** Value);

/**
 * @brief The text of a child, by the names of the parent and the child, both without case.
 * @param xml          The document.
 * @param SectionName  The parent.
 * @param KeyName      The child.
 * @param KeyValue     Receives the child's first text, null if there is none.
 * @return 0 whether found or not, -1 if looking failed, or `EINVAL`.
 */
ZKQ_API int WQXXML_GetKeyValue(void* xml, const char* SectionName, const char* KeyName, const char** KeyValue);

/**
 * @brief What the first child of a given name, without case, begins with.
 * @param Node      The parent.
 * @param KeyName   The child.
 * @param KeyValue  Receives the text of that child's first node, null if there is none.
 * @return 0, always.
 */
ZKQ_API int WQXXML_GetChildKeyValue(void* Node, const char* KeyName, const char** KeyValue);

/**
 * @brief The first child of a given name, without case, of the element that a name stands for.
 * @param xml          The document.
 * @param SectionName  The parent; null: the first top-level element itself is looked at.
 * @param KeyName      The child.
 * @param Node         Receives the node.
 * @return 0, `ENOENT` or `EINVAL`.
 */
ZKQ_API int WQXXML_GetKeyNode(void* xml, const char* SectionName, const char* KeyName, void** Node);

/**
 * @brief Takes a node out of a document and releases it with all below it.
 * @param xml   The document, or a node of it: then that node and those behind it are looked through. Changed to what follows if
 *              it is the node itself.
 * @param Node  An element, or the first top-level node of whatever type.
 * @return 0, `EINVAL` for a node that is not in the document or no element, or `ENOENT`.
 */
ZKQ_API int WQXXML_DelNode(void** xml, void* Node);

/**
 * @brief Writes a document to a file: a declaration, then the first top-level element, indented by two blanks a level.
 * @param xml         The document.
 * @param Version     For the declaration; null or empty leaves it out, as with the next two. Without any of the three
 *                    there is no declaration.
 * @param Encodeing   For the declaration. Nothing is converted.
 * @param Standalone  For the declaration.
 * @param FileName    The file; an existing one is overwritten in place.
 * @return 0, `EINVAL`, or the errno value of what failed, which may leave a part of the document in the file.
 */
ZKQ_API int WQXXML_OutputFile(void* xml, const char* Version, const char* Encodeing, const char* Standalone,
                              const char* FileName);

/**
 * @brief As WQXXML_OutputFile(), without comments, to a new text without a declaration.
 * @param xml     The document.
 * @param String  Receives the text, released with WQXXML_FreeString(); left alone on failure.
 * @return 0, `EINVAL`, or `ENOMEM`, also for a text over 2 GiB.
 */
ZKQ_API int WQXXML_OutputString(void* xml, char** String);

/**
 * @brief As WQXXML_OutputString(), with a declaration.
 * @param xml         The document.
 * @param Version     As for WQXXML_OutputFile().
 * @param Encodeing   As for WQXXML_OutputFile().
 * @param Standalone  As for WQXXML_OutputFile().
 * @param String      Receives the text.
 * @return As WQXXML_OutputString().
 */
ZKQ_API int WQXXML_OutputStringEx(void* xml, const char* Version, const char* Encodeing, const char* Standalone,
                                  char** String);

#ifdef __cplusplus
}
#endif

#endif
