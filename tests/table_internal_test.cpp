// Tables as they lie in memory: buckets, chains, the list of all entries.
#include <ZKQ_general/table.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "../src/internal/table.h"

namespace {

/// The check value of the common CRC-32, byte by byte.
uint32_t SlowCrc(const std::string& text)
{
    uint32_t crc = 0xFFFFFFFF;
    for (const char c : text) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320 : crc >> 1;
    }
    return crc;
}

TEST(TableHash, IsACrcWithoutTheFinalInversion)
{
    EXPECT_EQ(Table_CalculateCRC32("", 0), 0xFFFFFFFF);
    EXPECT_EQ(Table_CalculateCRC32("123456789", 9), ~0xCBF43926U);
    std::mt19937 random(1);
    for (size_t length = 0; length < 300; ++length) {
        std::string text(length, '\0');
        std::generate(text.begin(), text.end(), [&] { return static_cast<char>(random()); });
        const std::vector<char> exact(text.begin(), text.end());
        EXPECT_EQ(Table_CalculateCRC32(exact.data(), length), SlowCrc(text));
    }
}

class TableLayout : public testing::Test {
protected:
    void Make(unsigned range, int store = 0)
    {
        void* handle = nullptr;
        ASSERT_EQ(General_Table_Create(&handle, range, store), 0);
        table_ = static_cast<TABLE*>(handle);
    }
    void TearDown() override
    {
        if (table_ != nullptr) {
            EXPECT_EQ(General_Table_Destroy(table_), 0);
        }
    }
    int Add(const std::string& key) { return General_Table_String_AddNode(table_, key.c_str(), nullptr, 0); }
    int Delete(const std::string& key) { return General_Table_String_DelNode(table_, key.c_str()); }
    static std::string Key(const TABLE_NODE* node) { return static_cast<const char*>(node->pKey); }

    std::vector<std::string> List() const
    {
        std::vector<std::string> keys;
        for (const TABLE_NODE* node = table_->pLinkHead; node != nullptr; node = node->pSortNext)
            keys.push_back(Key(node));
        return keys;
    }
    std::vector<std::string> Chain(unsigned bucket) const
    {
        std::vector<std::string> keys;
        for (const TABLE_NODE* node = table_->ppList[bucket]; node != nullptr; node = node->pNext)
            keys.push_back(Key(node));
        return keys;
    }
    /// Every link points back, every entry is in its bucket and in the list.
    void Check() const
    {
        unsigned count = 0;
        for (unsigned bucket = 0; bucket < table_->uiHashRange; ++bucket) {
            const TABLE_NODE* previous = nullptr;
            for (const TABLE_NODE* node = table_->ppList[bucket]; node != nullptr; node = node->pNext, ++count) {
                ASSERT_EQ(node->pPrev, previous);
                ASSERT_EQ(node->ppIndex, previous == nullptr ? &table_->ppList[bucket] : nullptr);
                ASSERT_EQ(SlowCrc(Key(node)) % table_->uiHashRange, bucket);
                ASSERT_EQ(static_cast<size_t>(node->iKeyLen), Key(node).size() + 1);
                previous = node;
            }
        }
        ASSERT_EQ(count, table_->uiCount);
        const TABLE_NODE* previous = nullptr;
        for (const TABLE_NODE* node = table_->pLinkHead; node != nullptr; node = node->pSortNext, --count) {
            ASSERT_EQ(node->pSortPrev, previous);
            previous = node;
        }
        ASSERT_EQ(table_->pLinkTail, previous);
        ASSERT_EQ(count, 0U);
    }

    TABLE* table_ = nullptr;
};

TEST_F(TableLayout, ANewTable)
{
    Make(5, 1);
    EXPECT_EQ(table_->uiHashRange, 5U);
    EXPECT_EQ(table_->uiCount, 0U);
    EXPECT_EQ(table_->pLinkHead, nullptr);
    EXPECT_EQ(table_->pLinkTail, nullptr);
    EXPECT_EQ(table_->iKeyType, 0);
    EXPECT_EQ(table_->iStoreMode, 1);
    EXPECT_EQ(table_->uiRefreshThreshold, 75U);
    EXPECT_EQ(table_->uiRefreshStep, 5U);
    EXPECT_EQ(table_->iIterateCount, 0);
    EXPECT_EQ(table_->uiMagicNumber, 0xC47F8609U);
    EXPECT_EQ(table_->pCmpFunc(nullptr, 0, nullptr, 0), 1);
    char key[] = "123456789";
    EXPECT_EQ(table_->pIndexFunc(key, sizeof key), ~0xCBF43926U);
    for (unsigned i = 0; i < 5; ++i)
        EXPECT_EQ(table_->ppList[i], nullptr);
    EXPECT_EQ(General_Table_String_GetNode(table_, "k", nullptr, nullptr), ENOENT);
    EXPECT_EQ(table_->iKeyType, 0) << "looking does not settle the kind of the keys";
    EXPECT_EQ(Add("k"), 0);
    EXPECT_EQ(table_->iKeyType, 1);
    EXPECT_EQ(Delete("k"), 0);
    EXPECT_EQ(table_->iKeyType, 1);
}

TEST_F(TableLayout, GrowsAbove75PerCent)
{
    for (const unsigned range : {1U, 2U, 3U, 4U, 10U, 33U, 100U}) {
        Make(range);
        unsigned expected = range;
        for (unsigned count = 1; count <= 1000; ++count) {
            ASSERT_EQ(Add(std::to_string(count)), 0);
            if (count * 100 / expected > 75)
                expected += range;
            ASSERT_EQ(table_->uiHashRange, expected) << range << " with " << count;
        }
        Check();
        EXPECT_EQ(General_Table_Destroy(table_), 0);
        table_ = nullptr;
    }
    Make(4);
    for (const unsigned expected : {4U, 4U, 4U, 8U, 8U, 8U, 12U, 12U, 12U, 16U})
        EXPECT_TRUE(Add(std::to_string(table_->uiCount)) == 0 && table_->uiHashRange == expected) << expected;
}

TEST_F(TableLayout, NeverHasMoreThan8192Buckets)
{
    for (const unsigned range : {5000U, 8191U, 8192U, 1U}) {
        Make(range);
        for (unsigned i = 0; i < 20000; ++i)
            ASSERT_EQ(Add(std::to_string(i)), 0);
        EXPECT_EQ(table_->uiHashRange, 8192U);
        Check();
        EXPECT_EQ(General_Table_Destroy(table_), 0);
        table_ = nullptr;
    }
}

TEST_F(TableLayout, DoesNotShrink)
{
    Make(2);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(Add(std::to_string(i)), 0);
    const unsigned range = table_->uiHashRange;
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(Delete(std::to_string(i)), 0);
    EXPECT_EQ(table_->uiHashRange, range);
    EXPECT_EQ(table_->uiCount, 0U);
    EXPECT_EQ(table_->pLinkHead, nullptr);
    EXPECT_EQ(table_->pLinkTail, nullptr);
    Check();
}

TEST_F(TableLayout, TheListRunsFromNewestToOldest)
{
    Make(3);
    std::vector<std::string> expected;
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(Add(std::to_string(i)), 0);
        expected.insert(expected.begin(), std::to_string(i));
        EXPECT_EQ(List(), expected);
    }
    for (const int i : {49, 0, 25, 48, 1}) {
        EXPECT_EQ(Delete(std::to_string(i)), 0);
        expected.erase(std::find(expected.begin(), expected.end(), std::to_string(i)));
        EXPECT_EQ(List(), expected);
        Check();
    }
}

TEST_F(TableLayout, ChainsGrowAtTheirEndAndTurnRoundWhenTheTableGrows)
{
    Make(8);
    std::vector<std::string> keys;
    for (int i = 0; keys.size() < 7; ++i)
        if (SlowCrc(std::to_string(i)) % 16 == 5) // 5 in 8 buckets as well
            keys.push_back(std::to_string(i));
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(Add(keys[i]), 0);
    EXPECT_EQ(Chain(5), std::vector<std::string>(keys.begin(), keys.begin() + 6));
    EXPECT_EQ(Add(keys[6]), 0); // 7 of 8: the list, newest first, is pushed onto the heads
    EXPECT_EQ(table_->uiHashRange, 16U);
    EXPECT_EQ(Chain(5), keys);
    EXPECT_EQ(Delete(keys[0]), 0);
    Check();
    EXPECT_EQ(Delete(keys[3]), 0);
    Check();
    EXPECT_EQ(Delete(keys[6]), 0);
    Check();
    EXPECT_EQ(Chain(5), (std::vector<std::string>{keys[1], keys[2], keys[4], keys[5]}));
    EXPECT_EQ(Add(keys[0]), 0);
    EXPECT_EQ(Chain(5).back(), keys[0]);
}

TEST_F(TableLayout, AnEntryIsOneBlock)
{
    Make(4, 1);
    char value[] = "value";
    EXPECT_EQ(General_Table_String_AddNode(table_, "key", value, sizeof value), 0);
    const TABLE_NODE* const node = table_->pLinkHead;
    EXPECT_EQ(node->pKey, static_cast<const void*>(node + 1));
    EXPECT_EQ(node->pValue, static_cast<const char*>(node->pKey) + 4);
    EXPECT_EQ(node->iKeyLen, 4);
    EXPECT_EQ(node->uiLength, sizeof value);
}

TEST_F(TableLayout, RandomOperationsKeepItWhole)
{
    for (const unsigned range : {1U, 7U, 64U}) {
        Make(range);
        std::mt19937 random(range);
        for (int i = 0; i < 3000; ++i) {
            const std::string key = std::to_string(random() % 200);
            if (random() % 2 == 0)
                Add(key);
            else
                Delete(key);
            if (i % 10 == 0)
                Check();
        }
        EXPECT_EQ(General_Table_Destroy(table_), 0);
        table_ = nullptr;
    }
}

TEST_F(TableLayout, BeyondItsBuckets)
{
    Make(8192);
    std::mt19937 random(9);
    for (int i = 0; i < 60000; ++i) {
        const std::string key = std::to_string(random() % 30000);
        if (random() % 4 != 0)
            Add(key);
        else
            Delete(key);
    }
    EXPECT_GT(table_->uiCount, 16384U);
    Check();
    for (const std::string& key : List()) {
        ASSERT_EQ(General_Table_String_GetNode(table_, key.c_str(), nullptr, nullptr), 0);
        ASSERT_EQ(Delete(key), 0);
        ASSERT_EQ(General_Table_String_GetNode(table_, key.c_str(), nullptr, nullptr), ENOENT);
    }
    EXPECT_EQ(table_->uiCount, 0U);
    Check();
}

TEST_F(TableLayout, ADamagedRecordIsRefused)
{
    Make(4);
    EXPECT_EQ(Add("k"), 0);
    const auto refused = [&] {
        return Add("l") == EINVAL && Delete("k") == EINVAL && General_Table_Destroy(table_) == EINVAL &&
               General_Table_String_GetNode(table_, "k", nullptr, nullptr) == EINVAL;
    };
    for (const int type : {2, -1}) {
        table_->iKeyType = type;
        EXPECT_TRUE(refused());
    }
    table_->iKeyType = 1;
    table_->uiMagicNumber ^= 1;
    EXPECT_TRUE(refused());
    table_->uiMagicNumber ^= 1;
    const auto compare = std::exchange(table_->pCmpFunc, nullptr);
    EXPECT_TRUE(refused());
    table_->pCmpFunc = compare;
    const auto hash = std::exchange(table_->pIndexFunc, nullptr);
    EXPECT_TRUE(refused());
    table_->pIndexFunc = hash;
    EXPECT_EQ(General_Table_String_GetNode(table_, "k", nullptr, nullptr), 0);
}

} // namespace
