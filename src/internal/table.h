// A hash table as it lies in memory.
#pragma once

#include <ZKQ_general/table.h>
#include <stddef.h>
#include <stdint.h>

/// An entry, with its key and perhaps a copy of its value behind it in one block.
struct TABLE_NODE {
    void* pKey;
    int iKeyLen; ///< with the NUL
    uint32_t hash;
    void* pValue;
    unsigned int uiLength;
    TABLE_NODE* pPrev; ///< in the chain of its bucket
    TABLE_NODE* pNext;
    TABLE_NODE* pSortPrev; ///< in the list of the whole table, newest first
    TABLE_NODE* pSortNext;
    TABLE_NODE** ppIndex; ///< the bucket, on the first entry of a chain only
};
static_assert(offsetof(TABLE_NODE, pValue) == 16 && offsetof(TABLE_NODE, pPrev) == 32 &&
              offsetof(TABLE_NODE, ppIndex) == 64);

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the names are given
using _TABLE_CMP_FUNC = int (*)(void* pKey1, size_t iKeyLen1, void* pKey2, size_t iKeyLen2);
using _TABLE_HASH_FUNC = unsigned int (*)(void* pKey, int iKeyLen);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

/// A place in the index: empty without a node.
struct TABLE_INDEX {
    uint32_t hash;
    TABLE_NODE* node;
};

struct TABLE {
    unsigned int uiHashRange;
    TABLE_NODE** ppList;
    unsigned int uiCount;
    _TABLE_CMP_FUNC pCmpFunc;
    _TABLE_HASH_FUNC pIndexFunc;
    TABLE_NODE* pLinkHead;
    TABLE_NODE* pLinkTail;
    int iKeyType; ///< 0 until the first entry, then 1 for texts
    int iStoreMode;
    unsigned int uiRefreshThreshold; ///< load in per cent
    unsigned int uiRefreshStep;
    int iIterateCount;
    unsigned int uiMagicNumber;
    TABLE_NODE** tails; ///< the last entry of each bucket's chain, where there is one
    TABLE_INDEX* index; ///< null, or where the entries are, for a table that has outgrown its buckets
    size_t indexed;     ///< places in the index, a power of 2
};
static_assert(offsetof(TABLE, ppList) == 8 && offsetof(TABLE, pCmpFunc) == 24 && offsetof(TABLE, pLinkHead) == 40 &&
              offsetof(TABLE, iKeyType) == 56 && offsetof(TABLE, uiMagicNumber) == 76);

/// The CRC-32 of bytes without its final inversion.
uint32_t Table_CalculateCRC32(const void* bytes, size_t length);
