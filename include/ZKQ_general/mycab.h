/**
 * @file mycab.h
 * @brief Cabinet archives: many files in one, each compressed on its own.
 *
 * A cabinet holds regular files that are not empty, with their mode and modification time. Numbers in its directory are
 * 32 bits wide, so it stays below 2 GiB.
 */
#ifndef ZKQ_GENERAL_MYCAB_H
#define ZKQ_GENERAL_MYCAB_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Makes a cabinet from files and directories.
 *
 * A file is stored under the last component of its name, a file found below a directory under its path from there, in
 * the order in which the system lists directories. Links are followed, but only as many bytes are taken as the link's own
 * text is long: resolve them first. A link to a directory fails with `EISDIR`.
 *
 * @param CabFile    The cabinet; an existing file is replaced. After a failure it is removed.
 * @param FileNames  The names, each ended by a NUL, and an empty name behind the last. A name has 2 bytes at least.
 * @param Flag       0 leaves out the files that lie directly in a named directory, but takes those further down;
 *                   otherwise all are taken.
 * @return `TRUE`; `FALSE` with `EINVAL` (no names, a name too short, no files, a file that is empty or not a regular one,
 *         a name with a line feed), `ENAMETOOLONG`, `EFBIG` (2 GiB reached), or the reason why a file could not be read or
 *         written.
 */
ZKQ_API BOOL ZKQGeneral_MakeMyCabFile(LPCTSTR CabFile, LPCTSTR FileNames, int Flag);

/**
 * @brief As ZKQGeneral_MakeMyCabFile(), and tells how far it has come.
 *
 * @param CabFile    The cabinet.
 * @param FileNames  The names.
 * @param Flag       What is taken.
 * @param Progress   Called on the calling thread with the percentage of bytes done, 0 to 100, as its argument; its result
 *                   is ignored. Null is allowed. One operation with progress may run at a time in a process.
 * @return As ZKQGeneral_MakeMyCabFile().
 */
ZKQ_API BOOL ZKQGeneral_MakeMyCabFile_P(LPCTSTR CabFile, LPCTSTR FileNames, int Flag, THREADPROC_C Progress);

/**
 * @brief Extracts all files of a cabinet.
 *
 * Missing directories are made, existing files replaced; mode and modification time are those stored. Nothing is written
 * outside the directory, whatever the cabinet says, nor through a link below it.
 *
 * @param CabFile    The cabinet.
 * @param Directory  Where to; empty means the working directory.
 * @return `TRUE`; `FALSE` with `EBADMSG` for a cabinet that is damaged or names a file outside the directory, zlib's
 *         message for a damaged stream, or the reason why a file could not be read or written. Files extracted until then
 *         stay.
 */
ZKQ_API BOOL ZKQGeneral_ExtractMyCabAllFile(LPCTSTR CabFile, LPCTSTR Directory);

/**
 * @brief As ZKQGeneral_ExtractMyCabAllFile(), and tells how far it has come.
 *
 * @param CabFile    The cabinet.
 * @param Directory  Where to.
 * @param Progress   As in ZKQGeneral_MakeMyCabFile_P(), with the percentage of files done.
 * @return As ZKQGeneral_ExtractMyCabAllFile().
 */
ZKQ_API BOOL ZKQGeneral_ExtractMyCabAllFile_P(LPCTSTR CabFile, LPCTSTR Directory, THREADPROC_C Progress);

/**
 * @brief Extracts one file of a cabinet.
 *
 * @param CabFile   The cabinet.
 * @param FileName  On entry the directory to extract to, on return the path of the extracted file; the buffer has room for
 *                  that, at most 300 bytes. After a failure it is as it was.
 * @param index     The number of the file, from 0.
 * @return As ZKQGeneral_ExtractMyCabAllFile(); `FALSE` with `EINVAL` for a number that the cabinet does not have.
 */
ZKQ_API BOOL ZKQGeneral_ExtractMyCabOneFile(LPCTSTR CabFile, LPTSTR FileName, long index);

#ifdef __cplusplus
}
#endif

#endif
