// Tables from texts to values, as callers see them.
#include <ZKQ_general/table.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "support/error_text.h"
#include "support/heap.h"

namespace {

class Table {
public:
    explicit Table(unsigned range = 4, int store = 0) { EXPECT_EQ(General_Table_Create(&handle_, range, store), 0); }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;
    ~Table() { EXPECT_EQ(General_Table_Destroy(handle_), 0); }

    void* Get() const { return handle_; }
    int Add(const std::string& key, void* value = nullptr, unsigned length = 0) const
    {
        return General_Table_String_AddNode(handle_, key.c_str(), value, length);
    }
    int Find(const std::string& key, void** value = nullptr, unsigned* length = nullptr) const
    {
        return General_Table_String_GetNode(handle_, key.c_str(), value, length);
    }
    int Delete(const std::string& key) const { return General_Table_String_DelNode(handle_, key.c_str()); }

private:
    void* handle_ = nullptr;
};

/// A value that differs for each number.
void* Value(uintptr_t number)
{
    static char base[100001];
    return base + number;
}

TEST(TableCreate, Arguments)
{
    char mark;
    void* table = &mark;
    EXPECT_EQ(General_Table_Create(nullptr, 4, 0), EINVAL);
    for (const unsigned range : {0U, 8193U, 0xFFFFFFFFU})
        EXPECT_EQ(General_Table_Create(&table, range, 0), EINVAL) << range;
    for (const int flag : {-1, 2, 1000})
        EXPECT_EQ(General_Table_Create(&table, 4, flag), EINVAL) << flag;
    EXPECT_EQ(table, &mark);
    for (const unsigned range : {1U, 2U, 8191U, 8192U}) {
        EXPECT_EQ(General_Table_Create(&table, range, 1), 0) << range;
        EXPECT_EQ(General_Table_Destroy(table), 0);
    }
}

TEST(TableArguments, BadHandlesAndKeys)
{
    alignas(16) char zeros[256] = {};
    alignas(16) char noise[256];
    memset(noise, 0x5A, sizeof noise);
    for (void* const bad : {static_cast<void*>(nullptr), static_cast<void*>(zeros), static_cast<void*>(noise)}) {
        EXPECT_EQ(General_Table_String_AddNode(bad, "k", nullptr, 0), EINVAL);
        EXPECT_EQ(General_Table_String_GetNode(bad, "k", nullptr, nullptr), EINVAL);
        EXPECT_EQ(General_Table_String_DelNode(bad, "k"), EINVAL);
        EXPECT_EQ(General_Table_Destroy(bad), EINVAL);
    }
    const Table table;
    for (const bool isEmpty : {true, false}) {
        if (!isEmpty) {
            EXPECT_EQ(table.Add("k"), 0);
        }
        EXPECT_EQ(General_Table_String_AddNode(table.Get(), nullptr, nullptr, 0), EINVAL);
        EXPECT_EQ(General_Table_String_GetNode(table.Get(), nullptr, nullptr, nullptr), EINVAL);
        EXPECT_EQ(General_Table_String_DelNode(table.Get(), nullptr), EINVAL);
    }
}

TEST(TableArguments, TheErrorTextIsLeftAlone)
{
    support::MarkErrorText();
    const Table table;
    EXPECT_EQ(table.Find("k"), ENOENT);
    EXPECT_EQ(General_Table_String_GetNode(nullptr, "k", nullptr, nullptr), EINVAL);
    EXPECT_EQ(General_Table_Create(nullptr, 1, 0), EINVAL);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(TableEntries, AddFindDelete)
{
    const Table table;
    void* value = Value(9);
    unsigned length = 9;
    EXPECT_EQ(table.Find("k", &value, &length), ENOENT);
    EXPECT_EQ(table.Delete("k"), ENOENT);
    EXPECT_EQ(value, Value(9));
    EXPECT_EQ(length, 9U);
    EXPECT_EQ(table.Add("k", Value(1), 77), 0);
    EXPECT_EQ(table.Add("k", Value(2), 78), EEXIST);
    EXPECT_EQ(table.Find("k", &value, &length), 0);
    EXPECT_EQ(value, Value(1)) << "the first value stays";
    EXPECT_EQ(length, 77U);
    EXPECT_EQ(table.Find("k"), 0) << "each output is optional";
    EXPECT_EQ(table.Find("k", &value), 0);
    EXPECT_EQ(table.Find("k", nullptr, &length), 0);
    EXPECT_EQ(table.Find("K"), ENOENT) << "keys have case";
    EXPECT_EQ(table.Find("k "), ENOENT);
    EXPECT_EQ(table.Find(""), ENOENT);
    EXPECT_EQ(table.Delete("x"), ENOENT);
    EXPECT_EQ(table.Delete("k"), 0);
    EXPECT_EQ(table.Delete("k"), ENOENT);
    EXPECT_EQ(table.Find("k"), ENOENT);
    EXPECT_EQ(table.Add("k", Value(3), 0), 0);
    EXPECT_EQ(table.Find("k", &value, &length), 0);
    EXPECT_EQ(value, Value(3));
    EXPECT_EQ(length, 0U);
}

TEST(TableEntries, OddKeys)
{
    const Table table;
    const std::string keys[] = {"", " ", "%s%n", std::string(100000, 'k'), "\xFF\x80\x01", "a", "A"};
    for (size_t i = 0; i < std::size(keys); ++i)
        EXPECT_EQ(table.Add(keys[i], Value(i), 0), 0);
    for (size_t i = 0; i < std::size(keys); ++i) {
        void* value = nullptr;
        EXPECT_EQ(table.Find(keys[i], &value), 0);
        EXPECT_EQ(value, Value(i));
    }
}

TEST(TableEntries, KeysAreCopied)
{
    const Table table;
    char key[] = "key";
    EXPECT_EQ(General_Table_String_AddNode(table.Get(), key, nullptr, 0), 0);
    key[0] = 'x';
    EXPECT_EQ(table.Find("key"), 0);
    EXPECT_EQ(table.Find(key), ENOENT);
}

/// Two different keys with the same CRC-32.
TEST(TableEntries, KeysOfTheSameHash)
{
    const Table table;
    EXPECT_EQ(table.Add("plumless", Value(1)), 0);
    EXPECT_EQ(table.Add("buckeroo", Value(2)), 0);
    void* value = nullptr;
    EXPECT_EQ(table.Find("plumless", &value), 0);
    EXPECT_EQ(value, Value(1));
    EXPECT_EQ(table.Find("buckeroo", &value), 0);
    EXPECT_EQ(value, Value(2));
    EXPECT_EQ(table.Delete("plumless"), 0);
    EXPECT_EQ(table.Find("plumless"), ENOENT);
    EXPECT_EQ(table.Find("buckeroo"), 0);
}

TEST(TableValues, CopiesOrPointers)
{
    for (const int store : {0, 1}) {
        const Table table(4, store);
        char bytes[] = {'a', '\0', 'b', '\0'};
        EXPECT_EQ(table.Add("bytes", bytes, sizeof bytes), 0);
        EXPECT_EQ(table.Add("none", bytes, 0), 0);
        EXPECT_EQ(table.Add("null", nullptr, 100), 0);
        void* value = nullptr;
        unsigned length = 0;
        EXPECT_EQ(table.Find("bytes", &value, &length), 0);
        EXPECT_EQ(length, sizeof bytes);
        EXPECT_EQ(value == bytes, store == 0);
        bytes[0] = 'x';
        EXPECT_EQ(*static_cast<char*>(value), store == 0 ? 'x' : 'a');
        EXPECT_EQ(memcmp(static_cast<char*>(value) + 1, "\0b", 3), 0);
        EXPECT_EQ(table.Find("none", &value, &length), 0);
        EXPECT_EQ(value, bytes) << "nothing to copy";
        EXPECT_EQ(length, 0U);
        EXPECT_EQ(table.Find("null", &value, &length), 0);
        EXPECT_EQ(value, nullptr);
        EXPECT_EQ(length, 100U);
    }
}

TEST(TableValues, OfEachLength)
{
    const Table table(1, 1);
    for (unsigned length = 1; length < 300; ++length) {
        const std::unique_ptr<char[]> exact(new char[length]);
        memset(exact.get(), static_cast<int>(length), length);
        EXPECT_EQ(table.Add(std::string(length, 'k'), exact.get(), length), 0);
    }
    for (unsigned length = 1; length < 300; ++length) {
        void* value = nullptr;
        ASSERT_EQ(table.Find(std::string(length, 'k'), &value), 0);
        const std::string expected(length, static_cast<char>(length));
        EXPECT_EQ(memcmp(value, expected.data(), length), 0);
    }
}

TEST(TableModel, RandomOperations)
{
    for (const unsigned range : {1U, 3U, 4U, 100U, 8192U}) {
        const Table table(range);
        std::map<std::string, void*> model;
        std::mt19937 random(range);
        // Of many keys a table keeps more than it has buckets.
        const unsigned keys = range < 4 ? 40000 : 3000;
        for (int i = 0; i < 100000; ++i) {
            const std::string key = std::to_string(random() % keys);
            const auto entry = model.find(key);
            const bool isThere = entry != model.end();
            switch (random() % 4) {
            case 0:
            case 1:
                ASSERT_EQ(table.Add(key, Value(static_cast<uintptr_t>(i)), 5), isThere ? EEXIST : 0);
                model.emplace(key, Value(static_cast<uintptr_t>(i)));
                break;
            case 2:
                ASSERT_EQ(table.Delete(key), isThere ? 0 : ENOENT);
                model.erase(key);
                break;
            default: {
                void* value = nullptr;
                ASSERT_EQ(table.Find(key, &value), isThere ? 0 : ENOENT);
                ASSERT_EQ(value, isThere ? entry->second : nullptr);
            }
            }
        }
        for (const auto& [key, value] : model)
            ASSERT_EQ(table.Delete(key), 0);
        ASSERT_EQ(table.Find("1"), ENOENT);
    }
}

TEST(TableLarge, HundredThousandKeys)
{
    constexpr uintptr_t count = 100000;
    const Table table(1);
    for (uintptr_t i = 0; i < count; ++i)
        ASSERT_EQ(table.Add(std::to_string(i), Value(i)), 0);
    for (uintptr_t i = 0; i < count; ++i) {
        void* value = nullptr;
        ASSERT_EQ(table.Find(std::to_string(i), &value), 0);
        ASSERT_EQ(value, Value(i));
    }
    for (uintptr_t i = 0; i < count; i += 2)
        ASSERT_EQ(table.Delete(std::to_string(i)), 0);
    for (uintptr_t i = 0; i < count; ++i)
        ASSERT_EQ(table.Find(std::to_string(i)), i % 2 == 0 ? ENOENT : 0);
}

TEST(TableThreads, TablesOfTheirOwn)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([] {
            const Table table(2, 1);
            for (int k = 0; k < 5000; ++k) {
                int number = k;
                EXPECT_EQ(table.Add(std::to_string(k), &number, sizeof number), 0);
            }
            for (int k = 0; k < 5000; ++k) {
                void* value = nullptr;
                EXPECT_EQ(table.Find(std::to_string(k), &value), 0);
                int number;
                memcpy(&number, value, sizeof number);
                EXPECT_EQ(number, k);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

TEST(TableMemory, NothingLeaks)
{
    const auto useOne = [] {
        const Table table(1, 1);
        char bytes[100] = {};
        for (int i = 0; i < 20; ++i)
            EXPECT_EQ(table.Add(std::to_string(i), bytes, sizeof bytes), 0);
        EXPECT_EQ(table.Add("1", bytes, 5), EEXIST);
        EXPECT_EQ(table.Delete("1"), 0);
    };
    for (int i = 0; i < 20; ++i) // the C library keeps some blocks of each size
        useOne();
    support::ExpectNothingLeaks(useOne);
}

} // namespace
