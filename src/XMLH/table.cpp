#include "../internal/table.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <bit>
#include <new>
#include <string_view>
#include <utility>

#include "../internal/guards.h"
#include "../internal/log.h"

namespace {

constexpr unsigned int kTableMark = 0xC47F8609;
constexpr unsigned int kMaxBuckets = 8192;
constexpr unsigned int kMaxLoad = 75; // per cent
constexpr int kNoKeyYet = 0;
constexpr int kTextKeys = 1;
constexpr int kStoreCopies = 1;
constexpr uint32_t kPolynomial = 0xEDB88320;
constexpr size_t kSlices = 8;

using CrcTables = std::array<std::array<uint32_t, 256>, kSlices>;

/// Table 0 takes a byte; table n what that byte does to the n bytes behind it.
constexpr CrcTables MakeCrcTables()
{
    CrcTables tables = {};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) != 0 ? kPolynomial : 0);
        tables[0][byte] = crc;
    }
    for (size_t slice = 1; slice < kSlices; ++slice)
        for (size_t byte = 0; byte < 256; ++byte)
            tables[slice][byte] = (tables[slice - 1][byte] >> 8) ^ tables[0][tables[slice - 1][byte] & 0xFF];
    return tables;
}
constexpr CrcTables kCrc = MakeCrcTables();

unsigned int Table_GetStringIndex(void* pKey, int iKeyLen)
{
    return Table_CalculateCRC32(pKey, static_cast<size_t>(iKeyLen) - 1);
}

/// Every new entry comes before those that are there.
int NewestFirst(void*, size_t, void*, size_t)
{
    return 1;
}

/// 0, or EINVAL for what is no table.
int Table_VerifyTableHandle(const TABLE* table)
{
    if (table == nullptr || table->uiMagicNumber != kTableMark || table->pCmpFunc == nullptr ||
        table->pIndexFunc == nullptr)
        return EINVAL;
    if (table->iKeyType == kNoKeyYet || table->iKeyType == kTextKeys)
        return 0;
    General_LibraryLogF(ZKQ_LOG_ERROR, "Invalid table handle with unknown key mode: %d", table->iKeyType);
    return EINVAL;
}

/// The arguments of an operation on an entry; 0 or EINVAL, which is logged.
int CheckArguments(const TABLE* table, const char* szKey)
{
    if (Table_VerifyTableHandle(table) != 0) {
        General_LibraryLogF(ZKQ_LOG_ERROR, "Invalid table handle: %p.", static_cast<const void*>(table));
        return EINVAL;
    }
    if (szKey != nullptr)
        return 0;
    General_LibraryLog(ZKQ_LOG_ERROR, "Invalid parameter.");
    return EINVAL;
}

/// A key with its hash.
struct HashedKey {
    std::string_view text;
    uint32_t hash;
};

HashedKey Hash(std::string_view text)
{
    return {text, Table_CalculateCRC32(text.data(), text.size())};
}

/// The key lies behind the entry. Looking there, and at nothing else of the entry, waits for memory once.
bool HasKey(const TABLE_NODE* node, const HashedKey& key)
{
    return strcmp(reinterpret_cast<const char*>(node + 1), key.text.data()) == 0;
}

/// The place in the index where an entry is, or the empty one where the search for it ends.
template <class IsIt>
size_t PlaceOf(const TABLE* table, uint32_t hash, IsIt isIt)
{
    const size_t mask = table->indexed - 1;
    size_t place = hash & mask;
    while (table->index[place].node != nullptr && (table->index[place].hash != hash || !isIt(table->index[place].node)))
        place = (place + 1) & mask;
    return place;
}

void PutInIndex(TABLE* table, TABLE_NODE* node)
{
    table->index[PlaceOf(table, node->hash, [](const TABLE_NODE*) { return false; })] = {node->hash, node};
}

/// Takes an entry out of the index; those behind it that would no longer be found move up.
void TakeFromIndex(TABLE* table, const TABLE_NODE* node)
{
    const size_t mask = table->indexed - 1;
    size_t hole = PlaceOf(table, node->hash, [node](const TABLE_NODE* other) { return other == node; });
    for (size_t next = (hole + 1) & mask; table->index[next].node != nullptr; next = (next + 1) & mask) {
        const size_t home = table->index[next].hash & mask;
        if (((next - home) & mask) >= ((next - hole) & mask)) {
            table->index[hole] = table->index[next];
            hole = next;
        }
    }
    table->index[hole] = {};
}

/// Gives a table that may have no more buckets an index with room for its entries and one more. Without memory its chains
/// are walked.
void Table_RefreshIndex(TABLE* table)
{
    const size_t count = table->uiCount;
    if (count < kMaxBuckets || (table->index != nullptr && count < table->indexed / 2))
        return;
    free(table->index);
    table->indexed = 4 * std::bit_ceil(count);
    table->index = static_cast<TABLE_INDEX*>(calloc(table->indexed, sizeof(TABLE_INDEX)));
    for (TABLE_NODE* node = table->pLinkHead; node != nullptr && table->index != nullptr; node = node->pSortNext)
        PutInIndex(table, node);
}

TABLE_NODE* Find(const TABLE* table, const HashedKey& key)
{
    if (table->index != nullptr)
        return table->index[PlaceOf(table, key.hash, [&](const TABLE_NODE* node) { return HasKey(node, key); })].node;
    TABLE_NODE* node = table->ppList[key.hash % table->uiHashRange];
    while (node != nullptr && !(node->hash == key.hash && HasKey(node, key)))
        node = node->pNext;
    return node;
}

/// Makes an entry; null without memory.
TABLE_NODE* Table_CreateNode(const TABLE* table, const HashedKey& key, void* pValue, unsigned int uiLength)
{
    const size_t keySize = key.text.size() + 1;
    if (keySize > INT_MAX) {
        General_LibraryLogF(ZKQ_LOG_ERROR, "The string key length was too long: %p.",
                            static_cast<const void*>(key.text.data()));
        return nullptr;
    }
    const bool isCopied = table->iStoreMode == kStoreCopies && pValue != nullptr && uiLength > 0;
    const size_t size = sizeof(TABLE_NODE) + keySize + (isCopied ? uiLength : 0);
    void* const room = malloc(size);
    if (room == nullptr) {
        General_LibraryLogF(ZKQ_LOG_ERROR, "Alloc memory (size=%d) failed.", static_cast<int>(size));
        return nullptr;
    }
    char* const text = static_cast<char*>(room) + sizeof(TABLE_NODE);
    memcpy(text, key.text.data(), keySize);
    void* value = pValue;
    if (isCopied)
        value = memcpy(text + keySize, pValue, uiLength);
    return new (room) TABLE_NODE{text, static_cast<int>(keySize), key.hash, value, uiLength, {}, {}, {}, {}, {}};
}

void LinkAtEnd(TABLE* table, TABLE_NODE* node)
{
    const unsigned int bucket = node->hash % table->uiHashRange;
    TABLE_NODE* const last = std::exchange(table->tails[bucket], node);
    if (table->ppList[bucket] == nullptr) {
        table->ppList[bucket] = node;
        node->ppIndex = &table->ppList[bucket];
        return;
    }
    last->pNext = node;
    node->pPrev = last;
}

void LinkAtHead(TABLE* table, TABLE_NODE* node)
{
    const unsigned int bucket = node->hash % table->uiHashRange;
    TABLE_NODE** const slot = &table->ppList[bucket];
    node->pPrev = nullptr;
    node->pNext = *slot;
    node->ppIndex = slot;
    if (*slot != nullptr) {
        (*slot)->pPrev = node;
        (*slot)->ppIndex = nullptr;
    } else {
        table->tails[bucket] = node;
    }
    *slot = node;
}

/// Gives a table other buckets, empty ones, in one block with their tails; 0 or ENOMEM.
int SetBuckets(TABLE* table, unsigned int range)
{
    auto** const buckets = static_cast<TABLE_NODE**>(calloc(2 * size_t{range}, sizeof(void*)));
    if (buckets == nullptr)
        return ENOMEM;
    free(table->ppList);
    table->ppList = buckets;
    table->tails = buckets + range;
    table->uiHashRange = range;
    return 0;
}

/// Puts an entry before the first one that the table's order does not put before it.
void Table_AddSortNode(TABLE* table, TABLE_NODE* node)
{
    TABLE_NODE* next = table->pLinkHead;
    while (next != nullptr && table->pCmpFunc(next->pKey, static_cast<size_t>(next->iKeyLen), node->pKey,
                                              static_cast<size_t>(node->iKeyLen)) < 0)
        next = next->pSortNext;
    node->pSortNext = next;
    node->pSortPrev = next == nullptr ? table->pLinkTail : next->pSortPrev;
    (node->pSortPrev == nullptr ? table->pLinkHead : node->pSortPrev->pSortNext) = node;
    (next == nullptr ? table->pLinkTail : next->pSortPrev) = node;
}

/// Gives the table more buckets if it is too full, or only new ones if forced to; 0 or ENOMEM.
int Table_RefreshTable(TABLE* table, bool bForceRefresh)
{
    if (!bForceRefresh && (table->uiHashRange >= kMaxBuckets || table->uiRefreshStep == 0))
        return 0;
    unsigned int range = table->uiHashRange;
    if (uint64_t{table->uiCount} * 100 / range > table->uiRefreshThreshold)
        range = std::min(range + table->uiRefreshStep, kMaxBuckets);
    else if (!bForceRefresh)
        return 0;
    if (SetBuckets(table, range) != 0) {
        General_LibraryLog(ZKQ_LOG_ERROR, "Malloc buffer failed.");
        return ENOMEM;
    }
    for (TABLE_NODE* node = table->pLinkHead; node != nullptr; node = node->pSortNext)
        LinkAtHead(table, node);
    return 0;
}

int Table_AddNode(TABLE* table, const HashedKey& key, void* pValue, unsigned int uiLength)
{
    table->iKeyType = kTextKeys;
    if (Find(table, key) != nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, "Node with the same key existed.");
        return EEXIST;
    }
    TABLE_NODE* const node = Table_CreateNode(table, key, pValue, uiLength);
    if (node == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, "Create table node failed.");
        return ENOMEM;
    }
    Table_RefreshIndex(table);
    if (table->index != nullptr)
        PutInIndex(table, node);
    LinkAtEnd(table, node);
    Table_AddSortNode(table, node);
    ++table->uiCount;
    Table_RefreshTable(table, false); // without memory the chains grow longer
    return 0;
}

/// Takes an entry out of its chain and of the list, and releases it.
void Table_RemoveNode(TABLE* table, TABLE_NODE* node)
{
    if (table->index != nullptr)
        TakeFromIndex(table, node);
    if (node->pNext == nullptr)
        table->tails[node->hash % table->uiHashRange] = node->pPrev;
    if (node->pPrev != nullptr)
        node->pPrev->pNext = node->pNext;
    else
        *node->ppIndex = node->pNext;
    if (node->pNext != nullptr) {
        node->pNext->pPrev = node->pPrev;
        node->pNext->ppIndex = node->ppIndex;
    }
    (node->pSortPrev == nullptr ? table->pLinkHead : node->pSortPrev->pSortNext) = node->pSortNext;
    (node->pSortNext == nullptr ? table->pLinkTail : node->pSortNext->pSortPrev) = node->pSortPrev;
    --table->uiCount;
    free(node);
}

} // namespace

uint32_t Table_CalculateCRC32(const void* bytes, size_t length)
{
    const auto* next = static_cast<const unsigned char*>(bytes);
    uint32_t crc = 0xFFFFFFFF;
    for (; length >= kSlices; length -= kSlices, next += kSlices) {
        crc ^= uint32_t{next[0]} | uint32_t{next[1]} << 8 | uint32_t{next[2]} << 16 | uint32_t{next[3]} << 24;
        crc = kCrc[7][crc & 0xFF] ^ kCrc[6][crc >> 8 & 0xFF] ^ kCrc[5][crc >> 16 & 0xFF] ^ kCrc[4][crc >> 24] ^
              kCrc[3][next[4]] ^ kCrc[2][next[5]] ^ kCrc[1][next[6]] ^ kCrc[0][next[7]];
    }
    if (length >= kSlices / 2) {
        crc ^= uint32_t{next[0]} | uint32_t{next[1]} << 8 | uint32_t{next[2]} << 16 | uint32_t{next[3]} << 24;
        crc = kCrc[3][crc & 0xFF] ^ kCrc[2][crc >> 8 & 0xFF] ^ kCrc[1][crc >> 16 & 0xFF] ^ kCrc[0][crc >> 24];
        length -= kSlices / 2;
        next += kSlices / 2;
    }
    for (; length > 0; --length, ++next)
        crc = (crc >> 8) ^ kCrc[0][(crc ^ *next) & 0xFF];
    return crc;
}

int General_Table_Create(void** phTable, unsigned int uiRange, int iStoreFlag)
{
    if (phTable == nullptr || uiRange == 0 || uiRange > kMaxBuckets || iStoreFlag < 0 || iStoreFlag > kStoreCopies) {
        General_LibraryLog(ZKQ_LOG_ERROR, "Invalid parameter.");
        return EINVAL;
    }
    MallocPtr<TABLE> table(static_cast<TABLE*>(calloc(1, sizeof(TABLE))));
    if (table == nullptr) {
        General_LibraryLog(ZKQ_LOG_ERROR, "Malloc buffer failed.");
        return ENOMEM;
    }
    if (SetBuckets(table.get(), uiRange) != 0)
        return ENOMEM;
    table->pCmpFunc = NewestFirst;
    table->pIndexFunc = Table_GetStringIndex;
    table->iStoreMode = iStoreFlag;
    table->uiRefreshThreshold = kMaxLoad;
    table->uiRefreshStep = uiRange;
    table->uiMagicNumber = kTableMark;
    *phTable = table.release();
    return 0;
}

int General_Table_Destroy(void* hTable)
{
    auto* const table = static_cast<TABLE*>(hTable);
    if (Table_VerifyTableHandle(table) != 0) {
        General_LibraryLogF(ZKQ_LOG_ERROR, "Invalid table handle: %p.", hTable);
        return EINVAL;
    }
    for (TABLE_NODE* node = table->pLinkHead; node != nullptr;) {
        TABLE_NODE* const next = node->pSortNext;
        free(node);
        node = next;
    }
    free(table->index);
    free(table->ppList);
    explicit_bzero(table, sizeof *table); // not to be optimised away
    free(table);
    return 0;
}

int General_Table_String_AddNode(void* hTable, const char* szKey, void* pValue, unsigned int uiLength)
{
    auto* const table = static_cast<TABLE*>(hTable);
    if (const int error = CheckArguments(table, szKey))
        return error;
    return Table_AddNode(table, Hash(szKey), pValue, uiLength);
}

int General_Table_String_GetNode(void* hTable, const char* szKey, void** ppValue, unsigned int* puiLength)
{
    auto* const table = static_cast<TABLE*>(hTable);
    if (const int error = CheckArguments(table, szKey))
        return error;
    const TABLE_NODE* const node = table->uiCount == 0 ? nullptr : Find(table, Hash(szKey));
    if (node == nullptr)
        return ENOENT;
    if (ppValue != nullptr)
        *ppValue = node->pValue;
    if (puiLength != nullptr)
        *puiLength = node->uiLength;
    return 0;
}

int General_Table_String_DelNode(void* hTable, const char* szKey)
{
    auto* const table = static_cast<TABLE*>(hTable);
    if (const int error = CheckArguments(table, szKey))
        return error;
    TABLE_NODE* const node = table->uiCount == 0 ? nullptr : Find(table, Hash(szKey));
    if (node == nullptr)
        return ENOENT;
    Table_RemoveNode(table, node);
    return 0;
}
