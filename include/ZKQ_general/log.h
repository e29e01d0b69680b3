/**
 * @file log.h
 * @brief Log contexts with switches that an operator edits while programs run, and the records written through them.
 *
 * A context writes to up to three files in its log directory: the program's own log "<project>.log", and two logs
 * named after the executable and its process, "<program>[<pid>].log" and "<program>[<pid>]_2.log". Which are on, and
 * for which levels, stands in the profile file "tamor.ini" of that directory, section "applog": the keys are the
 * project name, "allapp" and "allapp2", the values sums of levels. It is read again when a record is attempted more
 * than 60 seconds after it was last read. The directory is `TempPath`, or the directory "log" beside the working
 * directory; it is never created. Where sizes are limited the shared logs are deleted above 100 MiB.
 *
 * Every record opens its file, locks it with flock(), appends and closes it, so that processes may share a log and a
 * log may be removed at any time. Records never fail loudly: a log that cannot be written loses them. Logging does
 * not change the error text, except for the failures named below.
 */
#ifndef ZKQ_GENERAL_LOG_H
#define ZKQ_GENERAL_LOG_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Levels of records; switches are sums of them. */
enum {
    ZKQ_LOG_DEBUG = 1, /**< Tag "[Debug] ". */
    ZKQ_LOG_INFO = 2,  /**< Tag "[Info ] ". */
    ZKQ_LOG_WARN = 4,  /**< Tag "[Warn ] ". */
    ZKQ_LOG_ERROR = 8, /**< Tag "[Error] ". */
    ZKQ_LOG_ALL = -1   /**< Reaches every log that is on; no tag. */
};

/** Describes a program that logs. Set everything to zero first; fields above `Version` are not read. */
typedef struct APPLOGINFO {
    int Version;             /**< 0 to 3: which of the later fields are read; above 1 also exact level switches. */
    const char* ProjectName; /**< The program's name, at most 31 bytes. */
    int RecordTime;          /**< Non-zero: records of the own log carry the time. */
    int MaxBinaryLength;     /**< Most bytes a dump shows; 0 means 4096, otherwise held within 16..4096. */
    int MaxFileLength;       /**< Bytes above which the own log is deleted; 0: no log is deleted for its size. */
    int hWnd; /**< Non-zero: records go to a window, which on this platform discards them, and not to files. */
    int Msg;  /**< Kept with the context; not used on this platform. */
    const char* TempPath; /**< Version 1: log directory, at most 95 bytes with its "/"; null: beside the working one. */
    int RecordProcessID;  /**< Version 2: non-zero: records of the own log carry "[PID: n]". */
    int RecordThreadID;   /**< Version 2: non-zero: records of the own log carry "[TID: X]". */
    const char* SubName;  /**< Version 3: a second name shown in records, at most 15 bytes; may be null. */
    int bAlwaysLog;       /**< Version 3: non-zero: the own log's levels, and no switch is ever read again. */
} APPLOGINFO;

/**
 * @brief Makes a log context and creates the files that are switched on.
 *
 * With `Version` 0 or 1 a switch that is not zero means all levels and stays on; above that the switch is the sum of
 * the levels wanted, and the second shared log takes the own log's levels while "allapp2" is not zero.
 *
 * @param AppInfo  Describes the program; read only during the call.
 * @param LogCtx   Receives the context, released with ZKQGeneral_FreeLogCtx(). Left alone if an argument is refused,
 *                 null after a later failure.
 * @return `TRUE`, or `FALSE` with `EINVAL` for names that are missing or too long, or with the system's reason. A log
 *         directory that does not exist is no failure.
 */
ZKQ_API BOOL ZKQGeneral_IsNeedLogFile(APPLOGINFO* AppInfo, void** LogCtx);

/**
 * @brief Releases a log context. No other thread may still use it.
 * @param LogCtx  The context; null is ignored.
 */
ZKQ_API void ZKQGeneral_FreeLogCtx(void* LogCtx);

/**
 * @brief Returns the path of the own log.
 * @param LogCtx       The context.
 * @param LogFileName  Receives the path; a buffer of 128 bytes.
 * @return `TRUE`, or `FALSE` with `EINVAL` for a null argument.
 */
ZKQ_API BOOL ZKQGeneral_GetAppLogFile(void* LogCtx, char* LogFileName);

/**
 * @brief Sets the path of the own log.
 * @param LogCtx       The context.
 * @param LogFileName  A path with a "/", or a name that is placed in the log directory; at most 127 bytes in all.
 * @return `TRUE`, or `FALSE` with `EINVAL`.
 */
ZKQ_API BOOL ZKQGeneral_SetAppLogFile(void* LogCtx, const char* LogFileName);

/**
 * @brief Sends the records of a context to a window, or back to its files.
 * @param LogCtx  The context.
 * @param hWnd    The window; 0 for the files.
 * @return `TRUE`, or `FALSE` with `EINVAL` for a null context.
 */
ZKQ_API BOOL ZKQGeneral_SetLogWnd(void* LogCtx, HWND hWnd);

/**
 * @brief Tells whether a switch in a profile file in /tmp is not zero.
 * @param IniFileName  The file's name; ".ini" is appended unless it ends so.
 * @param Section      The section.
 * @param AppName      The key.
 * @return `TRUE` if the integer is not zero; `FALSE` if it is, if it is missing, or with `EINVAL` for a null
 *         argument.
 */
ZKQ_API BOOL ZKQGeneral_IsNeedRecordAppLog(LPCTSTR IniFileName, LPCTSTR Section, LPCTSTR AppName);

/**
 * @brief Tells whether a switch in a profile file is not zero.
 * @param IniFileName  The file's name; ".ini" is appended unless it ends so.
 * @param Section      The section.
 * @param AppName      The key.
 * @param TempPath     The directory; null means /tmp. The whole path stays below 300 bytes (`ENAMETOOLONG`).
 * @return As ZKQGeneral_IsNeedRecordAppLog().
 */
ZKQ_API BOOL ZKQGeneral_IsNeedRecordAppLogEx(LPCTSTR IniFileName, LPCTSTR Section, LPCTSTR AppName,
                                             const char* TempPath);

/**
 * @brief Writes a text at ZKQ_LOG_ALL; see ZKQGeneral_RecordLogInfoEx().
 * @param LogCtx    The context.
 * @param FileName  Source file, as __FILE__ gives it.
 * @param Line      Source line.
 * @param LogInfo   The text.
 * @return As ZKQGeneral_RecordLogInfoEx().
 */
ZKQ_API BOOL ZKQGeneral_RecordLogInfo(void* LogCtx, const char* FileName, int Line, const char* LogInfo);

/**
 * @brief Writes the record "text - file,line" to every log of the context whose levels match.
 *
 * A level that only the second shared log has switched on writes nothing.
 *
 * @param LogCtx    The context.
 * @param Level     ZKQ_LOG_DEBUG to ZKQ_LOG_ERROR, a sum of them (tag "[Unkow] "), or ZKQ_LOG_ALL.
 * @param FileName  Source file, shown without its directories; null counts as "".
 * @param Line      Source line.
 * @param LogInfo   The text, of any length; null counts as "".
 * @return `FALSE` with `EINVAL` for a null context; `FALSE` without a new error text if the second shared log is on
 *         but cannot be written; otherwise `TRUE`, also when nothing was to be written or another log could not be.
 */
ZKQ_API BOOL ZKQGeneral_RecordLogInfoEx(void* LogCtx, int Level, const char* FileName, int Line, const char* LogInfo);

/**
 * @brief Writes the system's text for an errno value at ZKQ_LOG_ALL; see ZKQGeneral_RecordSystemErrorEx().
 * @param LogCtx     The context.
 * @param FileName   Source file.
 * @param Line       Source line.
 * @param ErrorCode  The errno value.
 * @return As ZKQGeneral_RecordLogInfoEx().
 */
ZKQ_API BOOL ZKQGeneral_RecordSystemError(void* LogCtx, const char* FileName, int Line, int ErrorCode);

/**
 * @brief Writes the record "System Call Error: <system's text> - file,line".
 * @param LogCtx     The context.
 * @param Level      The level.
 * @param FileName   Source file; null counts as "".
 * @param Line       Source line.
 * @param ErrorCode  The errno value.
 * @return As ZKQGeneral_RecordLogInfoEx().
 */
ZKQ_API BOOL ZKQGeneral_RecordSystemErrorEx(void* LogCtx, int Level, const char* FileName, int Line, int ErrorCode);

/**
 * @brief Writes a hex dump at ZKQ_LOG_ALL; see ZKQGeneral_RecordBinaryLogInfoEx().
 * @param LogCtx     The context.
 * @param inData     The bytes.
 * @param inLen      Their number.
 * @param ExtraInfo  Text in front of the length.
 * @return As ZKQGeneral_RecordLogInfoEx().
 */
ZKQ_API BOOL ZKQGeneral_RecordBinaryLogInfo(void* LogCtx, const unsigned char* inData, int inLen,
                                            const char* ExtraInfo);

/**
 * @brief Writes the record "info[Length: n]" and a hex dump of at most the context's `MaxBinaryLength` bytes.
 * @param LogCtx     The context.
 * @param Level      The level.
 * @param inData     The bytes; null shows none.
 * @param inLen      Their number; 0 or less shows none.
 * @param ExtraInfo  Text in front of the length; null counts as "".
 * @return As ZKQGeneral_RecordLogInfoEx().
 */
ZKQ_API BOOL ZKQGeneral_RecordBinaryLogInfoEx(void* LogCtx, int Level, const unsigned char* inData, int inLen,
                                              const char* ExtraInfo);

/**
 * @brief Writes the record "info[Length: n] file -line" and a hex dump; see ZKQGeneral_RecordBinaryLogInfoEx().
 * @param LogCtx    The context.
 * @param Level     The level.
 * @param inData    The bytes; null shows none.
 * @param inLen     Their number; 0 or less shows none.
 * @param FileName  Source file; null leaves file and line out.
 * @param Line      Source line.
 * @param Format    printf format of the text in front of the length, cut to 1023 bytes; null counts as "".
 * @return As ZKQGeneral_RecordLogInfoEx().
 */
ZKQ_API BOOL ZKQGeneral_RecordBinaryLogInfoEx2(void* LogCtx, int Level, const unsigned char* inData, int inLen,
                                               const char* FileName, int Line, const char* Format, ...)
    ZKQ_PRINTF(7, 8);

/**
 * @brief Writes a formatted record at ZKQ_LOG_ALL; see ZKQGeneral_RecordAppLogToFileEx_V().
 * @param LogCtx  The context.
 * @param Format  printf format of the text.
 * @return As ZKQGeneral_RecordLogInfoEx().
 */
ZKQ_API BOOL ZKQGeneral_RecordAppLogToFile_V(void* LogCtx, const char* Format, ...) ZKQ_PRINTF(2, 3);

/**
 * @brief Writes a formatted record, followed by a blank.
 *
 * The three logs are locked one after the other. With a window set, the record's end (the blank and the line feed) is
 * still written to the files.
 *
 * @param LogCtx  The context.
 * @param Level   The level.
 * @param Format  printf format of the text, of any length; null counts as "".
 * @return As ZKQGeneral_RecordLogInfoEx().
 */
ZKQ_API BOOL ZKQGeneral_RecordAppLogToFileEx_V(void* LogCtx, int Level, const char* Format, ...) ZKQ_PRINTF(3, 4);

/**
 * @brief Writes a formatted record, followed by " file -line"; see ZKQGeneral_RecordAppLogToFileEx_V().
 * @param LogCtx    The context.
 * @param Level     The level.
 * @param FileName  Source file, shown without its directories; null leaves file and line out.
 * @param Line      Source line.
 * @param Format    printf format of the text, of any length; null counts as "".
 * @return As ZKQGeneral_RecordLogInfoEx().
 */
ZKQ_API BOOL ZKQGeneral_RecordAppLogToFileEx2_V(void* LogCtx, int Level, const char* FileName, int Line,
                                                const char* Format, ...) ZKQ_PRINTF(5, 6);

/**
 * @brief Appends a formatted line to any file, without a context, a prefix or a lock.
 * @param FileName  The file, created if it does not exist.
 * @param Format    printf format of the line, cut to 10239 bytes; null counts as "".
 * @return `TRUE`, or `FALSE` with the system's reason.
 */
ZKQ_API BOOL ZKQGeneral_RecordLogToFile_V(LPCTSTR FileName, const char* Format, ...) ZKQ_PRINTF(2, 3);

#ifdef __cplusplus
}
#endif

#endif
