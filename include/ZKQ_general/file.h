/**
 * @file file.h
 * @brief Existence, length and kind of paths; temporary files; directory trees; copying; whole files in one call.
 *
 * Kinds and lengths are those of the path itself: a symbolic link is not followed, and its length is that of its own
 * text. CopyFile and GetFileContent take their length from there too, so through a link they see only that many
 * bytes.
 */
#ifndef ZKQ_GENERAL_FILE_H
#define ZKQ_GENERAL_FILE_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Tells whether a path exists, whatever its kind (a dangling link exists).
 * @param FileName  The path.
 * @return `TRUE` if it exists. `FALSE` leaves the system's reason as the error text.
 */
ZKQ_API BOOL ZKQGeneral_IsFileExist(LPCTSTR FileName);

/**
 * @brief Returns the length of a file, or of a symbolic link's own text.
 * @param FileName    The path. A directory fails with `EISDIR`.
 * @param FileLength  Receives the length in bytes; may be null, which tests only.
 * @return `TRUE`, or `FALSE` with the system's reason or `EISDIR`.
 */
ZKQ_API BOOL ZKQGeneral_GetFileLength(LPCTSTR FileName, DWORD* FileLength);

/**
 * @brief Tells whether a path is a directory (a link to one is not).
 * @param Name  The path.
 * @param bDir  Receives the answer; set to `FALSE` when the path cannot be examined.
 * @return `TRUE` if the path exists, whatever the answer; `FALSE` with the system's reason otherwise.
 */
ZKQ_API BOOL ZKQGeneral_IsDirectoryName(LPCTSTR Name, BOOL* bDir);

/**
 * @brief Creates an empty file with a unique name in /tmp.
 *
 * The name is "/tmp/", the prefix and six letters or digits; the mode is 0644 before the umask.
 *
 * @param FileName    Receives the name.
 * @param prefix      Start of the name; at most 288 bytes.
 * @param BuffLength  Size of `FileName` in bytes. Too small fails with `ENOBUFS` and leaves the created file in
 *                    place.
 * @return `TRUE`, or `FALSE` with "Cann't create a unique tmpfile!", `ENOBUFS`, or `ENAMETOOLONG` for a prefix that
 *         is too long.
 */
ZKQ_API BOOL ZKQGeneral_MyCreateTempFile(LPTSTR FileName, LPCTSTR prefix, int BuffLength);

/**
 * @brief Creates every missing directory of a path, the last component included.
 *
 * What exists is taken for a directory, whatever it is: a plain file in the last place is a success. A success may leave
 * an error text.
 *
 * @param FullPathFolder  The path: it must hold a "/" and no "//" (`EINVAL`) and be shorter than 300 bytes
 *                        (`ENAMETOOLONG`). New directories get mode 0777 before the umask.
 * @return `TRUE`, also when everything existed already. `FALSE` leaves the directories made so far.
 */
ZKQ_API BOOL ZKQGeneral_CreateMultiLevelDirectory(LPCTSTR FullPathFolder);

/**
 * @brief Makes a symbolic link, replacing a file or link of that name.
 * @param ExefullPath       What the link points to.
 * @param filedescription   Ignored; may be null.
 * @param shortcutfullpath  The link.
 * @return `TRUE`, or `FALSE` with the system's reason.
 */
ZKQ_API BOOL ZKQGeneral_CreateShortCut(LPCTSTR ExefullPath, LPCTSTR filedescription, LPCTSTR shortcutfullpath);

/**
 * @brief Deletes a directory with all it holds.
 *
 * Links inside are removed and never followed, not even when something is swapped in while the function runs. The
 * root directory is never deleted: other names of it fail with `EBUSY`, and "/" without its slash does not exist.
 *
 * @param DirectoryName  The directory, shorter than 300 bytes (`ENAMETOOLONG`). A path that does not exist is
 *                       success; a plain file or a link to a directory fails with `ENOTDIR` and stays.
 * @return `TRUE`, or `FALSE` with the reason; what was deleted before a failure stays deleted.
 */
ZKQ_API BOOL ZKQGeneral_MyDeleteDirectory(const char* DirectoryName);

/**
 * @brief Copies a file with its mode bits.
 * @param lpExistingFileName  The source. A directory fails with `EISDIR`; through a symbolic link as many bytes are
 *                            copied as the link's own text is long.
 * @param lpNewFileName       The destination, created or overwritten; only a regular file gets the mode. The source
 *                            itself is refused with `EINVAL`.
 * @param bFailIfExists       Non-zero: an existing destination fails with `EEXIST`.
 * @return `TRUE`, or `FALSE` with the reason. A source that ends early or a destination that fills up returns `FALSE`
 *         without a new error text and leaves a partial destination.
 */
ZKQ_API BOOL ZKQGeneral_CopyFile(LPCTSTR lpExistingFileName, LPCTSTR lpNewFileName, BOOL bFailIfExists);

/**
 * @brief Reads a whole file into a buffer of the library's making.
 * @param FileName  The file. A directory fails with `EISDIR`, a file above 2147483647 bytes with `EFBIG`. Files that
 *                  claim no length (/proc, FIFOs, devices) read as empty and are not opened.
 * @param Buffer    Receives the content, followed by 100 zero bytes so that a text may be used as a string; the
 *                  caller releases it with ZKQGeneral_FreeMallocBuffer(). Null asks for the size alone; null after a
 *                  failed read.
 * @param Size      Receives the length of the content in bytes; may be null.
 * @return `TRUE`, or `FALSE` with the reason.
 */
ZKQ_API BOOL ZKQGeneral_GetFileContent(const char* FileName, unsigned char** Buffer, int* Size);

/**
 * @brief Creates or overwrites a file with the given bytes, in place and not atomically.
 *
 * What the C library still holds buffered when the file is closed is not checked: a few bytes written to a full
 * device may go unnoticed.
 *
 * @param FileName  The file.
 * @param Buffer    The bytes; may be null if `Size` is 0.
 * @param Size      Their number. 0 creates the empty file but returns `FALSE`; a negative number fails with `EINVAL`.
 * @return `TRUE`, or `FALSE` with the reason.
 */
ZKQ_API BOOL ZKQGeneral_SetFileContent(const char* FileName, const unsigned char* Buffer, int Size);

#ifdef __cplusplus
}
#endif

#endif
