/**
 * @file inifile.h
 * @brief Reading and writing profile ("INI") texts, in files and in memory.
 *
 * A text is a sequence of lines, each cut at its first carriage return. "[name]" in the first column starts a
 * section; ";" and "#" in the first column start a comment; any other line is an entry "key = value", with blanks
 * trimmed from both ends of key and value. Lines before the first header belong to the section "". Section and key
 * names compare without regard to ASCII case, and the first match in the text wins. A line holds at most 4095 bytes
 * (a last line without its line feed 4094: it is cut); a longer line fails with `EINVAL`, and so does a "[" without
 * "]".
 *
 * Every operation exists twice: on a file, and as `_Mem` on a text. The file variants read the whole file as
 * ZKQGeneral_GetFileContent() does and rewrite it in place, without a lock and not atomically. They keep blank lines;
 * the `_Mem` variants drop them. A null section name counts as "" in the `_Mem` variants and fails in the file
 * variants.
 */
#ifndef ZKQ_GENERAL_INIFILE_H
#define ZKQ_GENERAL_INIFILE_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Reads the value of a key from a profile file.
 * @param lpAppName         The section.
 * @param lpKeyName         The key. Comments are not skipped: "#k" finds the line "#k=1".
 * @param lpDefault         Not null; used when the key is not found, the file cannot be read, or a bad line comes
 *                          first.
 * @param lpReturnedString  Receives the value or the default, cut to the buffer.
 * @param nSize             Size of `lpReturnedString` in bytes; 0 writes nothing.
 * @param lpFileName        The file.
 * @return The length of the text placed in `lpReturnedString`.
 */
ZKQ_API DWORD ZKQGeneral_GetPrivateProfileString(LPCTSTR lpAppName, LPCTSTR lpKeyName, LPCTSTR lpDefault,
                                                 LPTSTR lpReturnedString, DWORD nSize, LPCTSTR lpFileName);

/**
 * @brief Reads the value of a key from a profile text; see ZKQGeneral_GetPrivateProfileString().
 * @param lpAppName         The section; null counts as "".
 * @param lpKeyName         The key.
 * @param lpDefault         Not null; used when the key is not found or a bad line comes first.
 * @param lpReturnedString  Receives the value or the default, cut to the buffer.
 * @param nSize             Size of `lpReturnedString` in bytes; 0 writes nothing.
 * @param IniBuffer         The text.
 * @return The length of the text placed in `lpReturnedString`.
 */
ZKQ_API DWORD ZKQGeneral_GetPrivateProfileString_Mem(LPCTSTR lpAppName, LPCTSTR lpKeyName, LPCTSTR lpDefault,
                                                     LPTSTR lpReturnedString, DWORD nSize, const char* IniBuffer);

/**
 * @brief Reads the value of a key as a decimal integer from a profile file.
 * @param lpAppName   The section.
 * @param lpKeyName   The key.
 * @param nDefault    Returned when there is no value or an empty one.
 * @param lpFileName  The file.
 * @return The leading decimal number of the value as strtol() reads it (0 if there is none, so "0x10" gives 0), cut
 *         to 32 bits; a negative number comes back as its unsigned pattern.
 */
ZKQ_API UINT ZKQGeneral_GetPrivateProfileInt(LPCTSTR lpAppName, LPCTSTR lpKeyName, INT nDefault, LPCTSTR lpFileName);

/**
 * @brief Reads the value of a key as a decimal integer from a profile text; see ZKQGeneral_GetPrivateProfileInt().
 * @param lpAppName  The section; null counts as "".
 * @param lpKeyName  The key.
 * @param nDefault   Returned when there is no value or an empty one.
 * @param IniBuffer  The text.
 * @return The number.
 */
ZKQ_API UINT ZKQGeneral_GetPrivateProfileInt_Mem(LPCTSTR lpAppName, LPCTSTR lpKeyName, INT nDefault,
                                                 const char* IniBuffer);

/**
 * @brief Sets or deletes a key of a profile file, which is created if it does not exist.
 *
 * The entry is written as "key = value": in place of the first match of the section (and of each later section of
 * that name), else at the end of the section, else in a new section at the end of the file. When a header without "]"
 * is met the file holds only what came before it.
 *
 * @param lpAppName   The section.
 * @param lpKeyName   The key.
 * @param lpString    The value; null deletes the key.
 * @param lpFileName  The file.
 * @return `TRUE`, also when a key to delete does not exist; `FALSE` with the reason.
 */
ZKQ_API BOOL ZKQGeneral_WritePrivateProfileString(LPCTSTR lpAppName, LPCTSTR lpKeyName, LPCTSTR lpString,
                                                  LPCTSTR lpFileName);

/**
 * @brief Sets or deletes a key of a profile text; see ZKQGeneral_WritePrivateProfileString(). Mind the argument
 * order.
 * @param IniBuffer  The text; not changed.
 * @param lpAppName  The section; null counts as "".
 * @param lpKeyName  The key.
 * @param lpString   The value; null deletes the key.
 * @param OutBuffer  Receives the new text, released with ZKQGeneral_FreeMallocBuffer(). After a failure it holds what
 *                   had been written so far, to be released all the same, or null.
 * @param OutLength  Receives the length of the new text with its NUL; not set after a failure.
 * @return `TRUE`, or `FALSE` with `EINVAL`, or with `ENOMEM` when memory, or the room allowed for the new text (the
 *         old text, the names, the value and 64 bytes), ran out.
 */
ZKQ_API BOOL ZKQGeneral_WritePrivateProfileString_Mem(const char* IniBuffer, LPCTSTR lpAppName, LPCTSTR lpKeyName,
                                                      LPCTSTR lpString, char** OutBuffer, int* OutLength);

/**
 * @brief Deletes every section of a name, headers and entries, from a profile file. Comments stay.
 * @param lpAppName   The section; empty fails with `EINVAL`.
 * @param lpFileName  The file.
 * @return `TRUE`, also when there is no such section; `FALSE` with the reason.
 */
ZKQ_API BOOL ZKQGeneral_DeletePrivateProfileSection(LPCTSTR lpAppName, LPCTSTR lpFileName);

/**
 * @brief Deletes every section of a name from a profile text.
 * @param lpAppName  The section; null counts as "", the lines before the first header.
 * @param IniBuffer  The text; not changed.
 * @param OutBuffer  Receives the new text, released with ZKQGeneral_FreeMallocBuffer(); see
 *                   ZKQGeneral_WritePrivateProfileString_Mem() about failures.
 * @param OutLength  Receives the length of the new text with its NUL; not set after a failure.
 * @return `TRUE`, or `FALSE` with `EINVAL`, or with `ENOMEM`: the new text must be shorter than the old one, so a
 *         text from which nothing is deleted fails.
 */
ZKQ_API BOOL ZKQGeneral_DeletePrivateProfileSection_Mem(LPCTSTR lpAppName, const char* IniBuffer, char** OutBuffer,
                                                        int* OutLength);

/**
 * @brief Lists the section names of a profile file, as often as they occur.
 * @param lpszReturnBuffer  Receives NUL-terminated names one after another and a final NUL. A name that does not fit
 *                          is cut and ends the list. After a header without "]" the list has no final NUL.
 * @param nSize             Size of `lpszReturnBuffer` in bytes; 0 writes nothing.
 * @param lpFileName        The file; one that cannot be read gives an empty list.
 * @return The bytes used without the final NUL; 0 with the reason.
 */
ZKQ_API DWORD ZKQGeneral_GetPrivateProfileSectionNames(LPTSTR lpszReturnBuffer, DWORD nSize, LPCTSTR lpFileName);

/**
 * @brief Lists the section names of a profile text; see ZKQGeneral_GetPrivateProfileSectionNames().
 * @param lpszReturnBuffer  Receives the list.
 * @param nSize             Size of `lpszReturnBuffer` in bytes; 0 writes nothing.
 * @param IniBuffer         The text.
 * @return The bytes used without the final NUL; 0 with the reason.
 */
ZKQ_API DWORD ZKQGeneral_GetPrivateProfileSectionNames_Mem(LPTSTR lpszReturnBuffer, DWORD nSize, const char* IniBuffer);

/**
 * @brief Lists the keys of a section of a profile file, as often as they occur. Comments and blank lines are skipped.
 * @param lpAppName         The section.
 * @param lpszReturnBuffer  Receives the list, in the form of ZKQGeneral_GetPrivateProfileSectionNames(); left alone
 *                          when the file cannot be read.
 * @param nSize             Size of `lpszReturnBuffer` in bytes; 0 writes nothing.
 * @param IniFile           The file.
 * @return The bytes used without the final NUL; 0 with the reason.
 */
ZKQ_API DWORD ZKQGeneral_GetPrivateProfileItemNames(LPCTSTR lpAppName, LPTSTR lpszReturnBuffer, DWORD nSize,
                                                    const char* IniFile);

/**
 * @brief Lists the keys of a section of a profile text; see ZKQGeneral_GetPrivateProfileItemNames().
 * @param lpAppName         The section; null counts as "".
 * @param lpszReturnBuffer  Receives the list.
 * @param nSize             Size of `lpszReturnBuffer` in bytes; 0 writes nothing.
 * @param IniBuffer         The text.
 * @return The bytes used without the final NUL; 0 with the reason.
 */
ZKQ_API DWORD ZKQGeneral_GetPrivateProfileItemNames_Mem(LPCTSTR lpAppName, LPTSTR lpszReturnBuffer, DWORD nSize,
                                                        const char* IniBuffer);

/**
 * @brief Removes blanks (0x20 only) from a text, in place.
 * @param String    The text; null is ignored.
 * @param TrimFlag  2: trailing blanks; 1: leading blanks; 0: every blank, those inside included; others do nothing.
 */
ZKQ_API void ZKQGeneral_TrimString(char* String, int TrimFlag);

/**
 * @brief Copies a text, cut to the buffer and always terminated.
 * @param dst  Receives at most `n` - 1 bytes and a NUL; null is ignored.
 * @param src  The text; null counts as "". At most `n` bytes of it are looked at.
 * @param n    Size of `dst` in bytes; 0 or less writes nothing.
 */
ZKQ_API void strncpy_WQX(char* dst, const char* src, int n);

#ifdef __cplusplus
}
#endif

#endif
