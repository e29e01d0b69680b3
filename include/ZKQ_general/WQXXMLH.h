/**
 * @file WQXXMLH.h
 * @brief XML documents behind handles, bound to a file or a text, with their elements addressed by paths.
 *
 * A path is "/" and a segment for each level, such as "/root/item[id=3&kind=a]/name". The first names the root element,
 * without regard to case; each further one a child, with case, and with conditions on its attributes in brackets, which
 * the first such child in the document must meet. "\x2f" in a segment stands for a "/". Where elements are added, those
 * missing on the way are made, with the attributes that the conditions ask for.
 *
 * Wherever a function takes a path it also takes an element in place of the document's handle: the path then begins
 * with that element's own name.
 *
 * Functions that return `int` return 0, or: 9 for a bad handle, 20 for a bad path or a child that is missing, `ENOENT`
 * (2), `EINVAL` (22), `ENOMEM` (12), another errno value, -9 for memory or a text that is too long, -2 for the text of
 * WQXXMLH_Misc_GetExternalError(). WQXXMLH_GetErrorInfo() has texts for all of them. Each failure is told in the
 * library's own log, "general.log", if that is switched on. Handles are used by one thread at a time.
 */
#ifndef ZKQ_GENERAL_WQXXMLH_H
#define ZKQ_GENERAL_WQXXMLH_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Opens a document in a file.
 *
 * With Mode 0 the file must be there and hold something. Otherwise a file that is missing, empty, or cannot be read is
 * made anew, empty, at once. A file that is missing or cannot be read sets the library's error text in both cases.
 *
 * @param Filename  The file, at most 299 bytes.
 * @param Mode      0 to read only; it does not keep the document from being changed and written.
 * @param Handle    Receives the handle, closed with WQXXMLH_Close(); left alone on failure.
 * @return 0, `EINVAL`, `ENOMEM` (also for a name that is too long), -2, or an errno value.
 */
ZKQ_API int WQXXMLH_Open(const char* Filename, int Mode, void** Handle);

/**
 * @brief Opens a document in a text. No file is bound to the handle.
 * @param XML     The text; with Mode other than 0 null or empty means an empty document.
 * @param Mode    0 to read only.
 * @param Handle  Receives the handle; left alone on failure.
 * @return 0, `EINVAL` or an errno value.
 */
ZKQ_API int WQXXMLH_Open2(const char* XML, int Mode, void** Handle);

/**
 * @brief Sets what the XML declaration says when the document is written.
 * @param Handle      The handle.
 * @param Version     At most 31 bytes, as the others; null leaves what is set.
 * @param Encodeing   Nothing is converted.
 * @param Standalone  "yes" or "no".
 * @return 0, 9, or -9 for a text that is too long; those before it are set.
 */
ZKQ_API int WQXXMLH_SetDeclaration(void* Handle, const char* Version, const char* Encodeing, const char* Standalone);

/**
 * @brief Writes a changed document to its file, and releases it.
 * @param Handle  The handle; a bad one is ignored. A failure to write is only told in the log.
 */
ZKQ_API void WQXXMLH_Close(void* Handle);

/**
 * @brief As WQXXMLH_Close(), and hands out the document as a text.
 * @param Handle  The handle.
 * @param XML     Receives the text, released with WQXXMLH_FreeString(), or null after a failure; null is allowed.
 */
ZKQ_API void WQXXMLH_Close2(void* Handle, char** XML);

/**
 * @brief Releases a text of WQXXMLH_Close2().
 * @param XML  The text; null is ignored.
 */
ZKQ_API void WQXXMLH_FreeString(char* XML);

/**
 * @brief Writes the document to its file now, changed or not, with a declaration of version "1.0", "UTF-8" and "yes".
 * @param Handle  The handle; without a file nothing is done.
 */
ZKQ_API void WQXXMLH_RecordTempFile(void* Handle);

/**
 * @brief How texts are read, for the whole process; see WQXXML_SetOption().
 * @param XMLOptionMode  0: entities are decoded and white space is joined; otherwise texts are taken as written.
 * @return Always 0.
 */
ZKQ_API int WQXXMLH_SetXMLOption(int XMLOptionMode);

/**
 * @brief Finds an element.
 * @param Handle         The document or an element.
 * @param Path           The path.
 * @param ElementHandle  Receives the element, which belongs to the document.
 * @return 0 or a code.
 */
ZKQ_API int WQXXMLH_GetNodeFromPath(void* Handle, const char* Path, void** ElementHandle);

/**
 * @brief Finds an element, and makes what is missing on the way to it.
 * @param Handle         The document or an element.
 * @param Path           The path.
 * @param ElementHandle  Receives the element.
 * @return 0 or a code; what was made before a failure stays.
 */
ZKQ_API int WQXXMLH_Misc_GetNodeFromPath_AutoAdd(void* Handle, const char* Path, void** ElementHandle);

/**
 * @brief The text that an element begins with.
 * @param Handle  The document or an element.
 * @param Path    The element.
 * @param Value   Receives the text, which belongs to the document.
 * @return 0 or a code; `EINVAL` if the element does not begin with a text.
 */
ZKQ_API int WQXXMLH_GetElementValue(void* Handle, const char* Path, char** Value);

/**
 * @brief The value of an attribute.
 * @param Handle          The document or an element.
 * @param Path            The element.
 * @param AttributeName   The attribute, without regard to case.
 * @param AttributeValue  Receives the value, which belongs to the document.
 * @return 0 or a code; `ENOENT` if there is no such attribute.
 */
ZKQ_API int WQXXMLH_GetElementAttribute(void* Handle, const char* Path, const char* AttributeName,
                                        char** AttributeValue);

/**
 * @brief Adds an element as the last child of another, making what is missing on the way.
 * @param Handle    The document or an element.
 * @param Path      The parent.
 * @param NodeName  The new element's name, without blanks, "<", ">" and "@".
 * @param Value     Its text; null means "".
 * @return 0 or a code.
 */
ZKQ_API int WQXXMLH_AddElementValue(void* Handle, const char* Path, const char* NodeName, const char* Value);

/**
 * @brief Adds an attribute or replaces its value, making what is missing on the way to the element.
 * @param Handle          The document or an element.
 * @param Path            The element.
 * @param AttributeName   The attribute; its name is checked as a new element's.
 * @param AttributeValue  Its value; null means "".
 * @return 0 or a code.
 */
ZKQ_API int WQXXMLH_AddElementAttribute(void* Handle, const char* Path, const char* AttributeName,
                                        const char* AttributeValue);

/**
 * @brief Replaces the text that an element begins with.
 * @param Handle  The document or an element.
 * @param Path    The element; this path may not contain blanks, "<", ">" and "@".
 * @param Value   The new text; null means "".
 * @return 0 or a code; `EINVAL` if the element does not begin with a text.
 */
ZKQ_API int WQXXMLH_ChangeElementValue(void* Handle, const char* Path, const char* Value);

/**
 * @brief Renames an element.
 * @param Handle  The document or an element.
 * @param Path    The element.
 * @param Value   Its new name, checked as a new element's.
 * @return 0 or a code.
 */
ZKQ_API int WQXXMLH_ChangeElementName(void* Handle, const char* Path, const char* Value);

/**
 * @brief Replaces the value of an attribute that is there.
 * @param Handle          The document or an element.
 * @param Path            The element.
 * @param AttributeName   The attribute.
 * @param AttributeValue  Its new value; null means "".
 * @return 0 or a code; `ENOENT` if there is no such attribute.
 */
ZKQ_API int WQXXMLH_ChangeElementAttribute(void* Handle, const char* Path, const char* AttributeName,
                                           const char* AttributeValue);

/**
 * @brief Deletes an element with all below it.
 * @param Handle  The document or an element, which may be the one to be deleted unless it is the first of its document.
 * @param Path    The element.
 * @return 0 or a code.
 */
ZKQ_API int WQXXMLH_DeleteElement(void* Handle, const char* Path);

/**
 * @brief Copies an element with its attributes, its first text and its elements, to be the last child of another.
 * @param xmlSrc    The document or an element to copy from.
 * @param srcPath   The element to be copied.
 * @param xmlDest   The document or an element to copy to; it may be the same.
 * @param destPath  The new parent.
 * @return 0 or a code.
 */
ZKQ_API int WQXXMLH_Copy(void* xmlSrc, const char* srcPath, void* xmlDest, const char* destPath);

/**
 * @brief Begins a walk over the elements below an element.
 *
 * Nodes that are deleted during the walk end its validity.
 *
 * @param Handle     The document or an element.
 * @param Path       The parent.
 * @param ItrHandle  Receives the walk, ended with WQXXMLH_EndIterate(); left alone on failure.
 * @return 0 or a code.
 */
ZKQ_API int WQXXMLH_BeginIterate(void* Handle, const char* Path, void** ItrHandle);

/**
 * @brief As WQXXMLH_BeginIterate(), over the elements below a given element.
 * @param Handle     The element.
 * @param ItrHandle  Receives the walk.
 * @return 0 or a code.
 */
ZKQ_API int WQXXMLH_BeginIterateEx(void* Handle, void** ItrHandle);

/**
 * @brief As WQXXMLH_BeginIterate(), over the elements below the one that another walk has handed out last.
 * @param Handle     The other walk.
 * @param ItrHandle  Receives the walk.
 * @return 0 or a code.
 */
ZKQ_API int WQXXMLH_BeginIterate2(void* Handle, void** ItrHandle);

/**
 * @brief The next element of a walk.
 * @param ItrHandle      The walk.
 * @param ElementHandle  Receives the element, which belongs to the document.
 * @return 0, `ENOENT` at the end, or a code.
 */
ZKQ_API int WQXXMLH_Iterate(void* ItrHandle, void** ElementHandle);

/**
 * @brief Ends a walk.
 * @param ItrHandle  The walk; null is ignored.
 * @return 0 or 9.
 */
ZKQ_API int WQXXMLH_EndIterate(void* ItrHandle);

/**
 * @brief The text that an element begins with.
 * @param NodeHandle  The element.
 * @param Value       Receives the text, which belongs to the document.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int WQXXMLH_Iterate_GetValue(void* NodeHandle, char** Value);

/**
 * @brief The value of an attribute of an element.
 * @param NodeHandle      The element.
 * @param AttributeName   The attribute.
 * @param AttributeValue  Receives the value, which belongs to the document.
 * @return 0, `ENOENT` or `EINVAL`.
 */
ZKQ_API int WQXXMLH_Iterate_GetAttribute(void* NodeHandle, const char* AttributeName, char** AttributeValue);

/**
 * @brief The name of an element.
 * @param NodeHandle  The element.
 * @param Element     Receives the name, which belongs to the document.
 * @return 0 or `EINVAL`.
 */
ZKQ_API int WQXXMLH_Iterate_GetElement(void* NodeHandle, char** Element);

/**
 * @brief The text of a result code; see WQXXML_GetErrorString().
 * @param ErrorCode  The code.
 * @param ErrorInfo  Receives the text, at most 256 bytes; null for a buffer that all threads share.
 * @return The buffer that was written.
 */
ZKQ_API char* WQXXMLH_GetErrorInfo(int ErrorCode, char* ErrorInfo);

/**
 * @brief Sets the text that the code -2 stands for, one for the whole process.
 * @param Info  The text, cut to 255 bytes; null is ignored.
 */
ZKQ_API void WQXXMLH_Misc_SetExternalError(const char* Info);

/**
 * @brief The text that the code -2 stands for.
 * @return The text itself, not a copy.
 */
ZKQ_API char* WQXXMLH_Misc_GetExternalError(void);

/**
 * @brief The calling thread's errno.
 * @return The errno value.
 */
ZKQ_API int WQXXMLH_GetSystemError(void);

/**
 * @brief Tells nothing on this system; kept for programs that call it.
 * @param bRead  Not looked at.
 * @param p      Not looked at.
 * @param Len    Not looked at.
 * @return Always 0.
 */
ZKQ_API int General_Misc_IsBadPtr(int bRead, const void* p, int Len);

#ifdef __cplusplus
}
#endif

#endif
