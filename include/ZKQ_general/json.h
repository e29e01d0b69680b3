/**
 * @file json.h
 * @brief JSON documents, with their values addressed by paths.
 *
 * A document is opened from a text or empty, read and changed through paths, and closed into a text again. A path is a
 * list of member names joined by "/", such as "Cert/Subject/CN", compared with case; a null or empty path is the node
 * itself. Functions that set something make the members that are missing on the way, as objects. Functions that read
 * something **pass over names that are not there** and never fail for it: of "a/b/c", where there is no "b", they read
 * "a/c", or "a" if there is no such member either.
 *
 * Any node can stand in for the document; nodes belong to it and live until it is closed. A document is used by one
 * thread at a time.
 *
 * Results are 0, `EINVAL` (22), -8 for a text that is not JSON, or -9 without memory. Each failure is told in the
 * library's own log, "general.log", if that is switched on; the library's error text is left alone.
 */
#ifndef ZKQ_GENERAL_JSON_H
#define ZKQ_GENERAL_JSON_H

#include <ZKQ_general/types.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Opens a document.
 * @param JSON  The text; what follows its first value is not looked at. Null opens an empty object.
 * @param Ctx   Receives the document, closed with JSON_Misc_FiniJSON(); left alone on failure.
 * @return 0, `EINVAL`, -8 or -9.
 */
ZKQ_API int JSON_Misc_InitJSON(const char* JSON, void** Ctx);

/**
 * @brief Closes a document, and hands it out as a text.
 * @param Ctx   The document, as it was opened. A node of one would be released with those behind it, but not taken out.
 * @param JSON  Receives the text, indented by tabs, released with ZKQGeneral_FreeMallocBuffer(); null if memory ran out
 *              or it would be over 2 GiB. Null is allowed.
 * @return 0, or `EINVAL` for null.
 */
ZKQ_API int JSON_Misc_FiniJSON(void* Ctx, char** JSON);

/**
 * @brief Finds a node.
 * @param RootCtx   Where the path begins.
 * @param Path      The path; names that are not there are passed over.
 * @param ChildCtx  Receives the node.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int JSON_Misc_GetChildNode(void* RootCtx, const char* Path, void** ChildCtx);

/**
 * @brief Finds a node, and makes what is missing on the way, as objects.
 * @param RootCtx   Where the path begins.
 * @param Path      The path.
 * @param ChildCtx  Receives the node.
 * @return 0, `EINVAL` or -9; what was made before a failure stays.
 */
ZKQ_API int JSON_Misc_GetChildNode_AutoAdd(void* RootCtx, const char* Path, void** ChildCtx);

/**
 * @brief Makes a node a string.
 * @param Ctx    Where the path begins.
 * @param Path   The node. What it had below it is kept, but no longer written.
 * @param Value  The text, copied; null means "".
 * @return 0, `EINVAL` or -9.
 */
ZKQ_API int JSON_Misc_SetString(void* Ctx, const char* Path, const char* Value);

/**
 * @brief Makes a node an integer.
 * @param Ctx    Where the path begins.
 * @param Path   The node.
 * @param Value  The integer.
 * @return 0, `EINVAL` or -9.
 */
ZKQ_API int JSON_Misc_SetInt(void* Ctx, const char* Path, int Value);

/**
 * @brief The text of a string.
 * @param Ctx    Where the path begins.
 * @param Path   The node; names that are not there are passed over.
 * @param Value  Receives the text, which belongs to the document; null for a node that is no string.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int JSON_Misc_GetString(void* Ctx, const char* Path, char** Value);

/**
 * @brief The value of a number, cut to an integer; of true, 1; of anything else, 0.
 * @param Ctx    Where the path begins.
 * @param Path   The node; names that are not there are passed over.
 * @param Value  Receives the integer; -2147483648 for a number that does not fit.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int JSON_Misc_GetInt(void* Ctx, const char* Path, int* Value);

/**
 * @brief Makes a node a string of two hexadecimal digits for each byte.
 * @param Ctx     Where the path begins.
 * @param Path    The node.
 * @param Value   The bytes; null only if there are none.
 * @param Length  Their number.
 * @return 0, `EINVAL` or -9.
 */
ZKQ_API int JSON_Misc_SetHexData(void* Ctx, const char* Path, const unsigned char* Value, int Length);

/**
 * @brief The bytes that a string of hexadecimal digits stands for.
 * @param Ctx     Where the path begins.
 * @param Path    The node; names that are not there are passed over.
 * @param Value   Receives the bytes, released with ZKQGeneral_FreeMallocBuffer(); null if there are none.
 * @param Length  Receives their number.
 * @return 0, `EINVAL` (also for an odd number of digits) or -9. Bytes that are no digits are not refused.
 */
ZKQ_API int JSON_Misc_GetHexData(void* Ctx, const char* Path, unsigned char** Value, int* Length);

/**
 * @brief Makes a node a Base64 string, without line breaks.
 * @param Ctx     Where the path begins.
 * @param Path    The node.
 * @param Value   The bytes; null only if there are none.
 * @param Length  Their number.
 * @return 0, `EINVAL` or -9.
 */
ZKQ_API int JSON_Misc_SetB64Data(void* Ctx, const char* Path, const unsigned char* Value, int Length);

/**
 * @brief The bytes that a Base64 string stands for.
 * @param Ctx     Where the path begins.
 * @param Path    The node; names that are not there are passed over.
 * @param Value   Receives the bytes, released with ZKQGeneral_FreeMallocBuffer(); null for a node that is no string.
 * @param Length  Receives their number.
 * @return 0, `EINVAL` (also for a text that is not Base64, which the error text then tells) or -9.
 */
ZKQ_API int JSON_Misc_GetB64Data(void* Ctx, const char* Path, unsigned char** Value, int* Length);

/**
 * @brief Makes a node an array; what it had below it become its elements.
 * @param Ctx  The node.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int JSON_Misc_SetNodeArrayType(void* Ctx);

/**
 * @brief Whether a node is an array, or a value in one.
 * @param Ctx  The node.
 * @return 1 for an array, and for a node that JSON_Misc_GetArrayInfo() has handed out and that is no object; otherwise 0,
 *         also for null.
 */
ZKQ_API int JSON_Misc_IsNodeArrayType(void* Ctx);

/**
 * @brief Adds an empty object behind what a node has below it: a record to an array.
 * @param Ctx      The array.
 * @param NewNode  Receives the object.
 * @return 0, `EINVAL` or -9.
 */
ZKQ_API int JSON_Misc_CreateObjectNode(void* Ctx, void** NewNode);

/**
 * @brief Adds a string to an array.
 * @param Ctx    The array.
 * @param Value  The text, copied; null means "".
 * @return 0, `EINVAL` or -9.
 */
ZKQ_API int JSON_Misc_SetStringArray(void* Ctx, const unsigned char* Value);

/**
 * @brief Adds bytes to an array, as JSON_Misc_SetHexData() writes them.
 * @param Ctx     The array.
 * @param Value   The bytes; null only if there are none.
 * @param Length  Their number.
 * @return 0, `EINVAL` or -9.
 */
ZKQ_API int JSON_Misc_SetHexArray(void* Ctx, const unsigned char* Value, int Length);

/**
 * @brief Adds bytes to an array, as JSON_Misc_SetB64Data() writes them.
 * @param Ctx     The array.
 * @param Value   The bytes; null only if there are none.
 * @param Length  Their number.
 * @return 0, `EINVAL` or -9.
 */
ZKQ_API int JSON_Misc_SetB64Array(void* Ctx, const unsigned char* Value, int Length);

/**
 * @brief The elements of an array.
 * @param Ctx       Where the path begins.
 * @param Path      The array; names that are not there are passed over.
 * @param Count     Receives the number of elements.
 * @param NodeList  Receives an array of their nodes, each as a number the size of a pointer, released with
 *                  ZKQGeneral_FreeMallocBuffer(); null if there are none.
 * @return 0, `EINVAL` (also for a node that is no array) or -9.
 */
ZKQ_API int JSON_Misc_GetArrayInfo(void* Ctx, const char* Path, int* Count, size_t** NodeList);

/**
 * @brief As JSON_Misc_GetHexData(), of an element itself.
 * @param Ctx     The element.
 * @param Value   Receives the bytes.
 * @param Length  Receives their number.
 * @return 0, `EINVAL` or -9.
 */
ZKQ_API int JSON_Misc_GetHexArray(void* Ctx, unsigned char** Value, int* Length);

/**
 * @brief As JSON_Misc_GetB64Data(), of an element itself.
 * @param Ctx     The element.
 * @param Value   Receives the bytes.
 * @param Length  Receives their number.
 * @return 0, `EINVAL` or -9.
 */
ZKQ_API int JSON_Misc_GetB64Array(void* Ctx, unsigned char** Value, int* Length);

#ifdef __cplusplus
}
#endif

#endif
