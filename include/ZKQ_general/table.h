/**
 * @file table.h
 * @brief Hash tables from texts to the caller's values.
 *
 * A table is used by one thread at a time. Results are 0 or an errno value; each failure other than `ENOENT` is told in
 * the library's own log, and the library's error text is left alone.
 */
#ifndef ZKQ_GENERAL_TABLE_H
#define ZKQ_GENERAL_TABLE_H

#include <ZKQ_general/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * @brief Makes a table.
 * @param phTable     Receives the table, destroyed with General_Table_Destroy().
 * @param uiRange     Buckets to begin with, and by which it grows: 1 to 8192, which is also the most it will have.
 * @param iStoreFlag  0: the table keeps the pointers to the values; 1: it keeps copies of their bytes.
 * @return 0, `EINVAL` or `ENOMEM`.
 */
ZKQ_API int General_Table_Create(void** phTable, unsigned int uiRange, int iStoreFlag);

/**
 * @brief Destroys a table with its entries. Values kept by pointer are the caller's.
 * @param hTable  The table.
 * @return 0, or `EINVAL` for what is no table.
 */
ZKQ_API int General_Table_Destroy(void* hTable);

/**
 * @brief Adds an entry.
 * @param hTable    The table.
 * @param szKey     The key, copied.
 * @param pValue    The value; null is allowed.
 * @param uiLength  Its length in bytes.
 * @return 0, `EEXIST` for a key that is there, which keeps its value, `EINVAL` or `ENOMEM`.
 */
ZKQ_API int General_Table_String_AddNode(void* hTable, const char* szKey, void* pValue, unsigned int uiLength);

/**
 * @brief Finds an entry.
 * @param hTable     The table.
 * @param szKey      The key.
 * @param ppValue    Receives the value, or the table's copy of it, which lives as long as the entry; null is allowed.
 * @param puiLength  Receives its length as it was given; null is allowed.
 * @return 0, `ENOENT` or `EINVAL`.
 */
ZKQ_API int General_Table_String_GetNode(void* hTable, const char* szKey, void** ppValue, unsigned int* puiLength);

/**
 * @brief Removes an entry.
 * @param hTable  The table.
 * @param szKey   The key.
 * @return 0, `ENOENT` or `EINVAL`.
 */
ZKQ_API int General_Table_String_DelNode(void* hTable, const char* szKey);

#ifdef __cplusplus
}
#endif

#endif
