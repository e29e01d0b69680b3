// Splitting lines and the growable memory object.
#include <ZKQ_general/error.h>
#include <ZKQ_general/string.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/resource.h>

#include <string>
#include <thread>
#include <vector>

#include "support/buffer.h"
#include "support/child.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/paths.h"
#include "support/sanitizer.h"

namespace {

using Tokens = std::vector<std::string>;

// Splits and checks the form of the array.
Tokens Split(const std::string& text, const std::string& separators)
{
    int count = -1;
    char** array = ZKQGeneral_ParseLineInfo(text.c_str(), separators.c_str(), &count);
    if (array == nullptr) {
        ADD_FAILURE() << support::ErrorText();
        return {};
    }
    Tokens tokens;
    for (int i = 0; i < count; ++i)
        tokens.emplace_back(array[i]);
    EXPECT_EQ(array[count], nullptr);
    ZKQGeneral_FreeParseLineInfoBuffer(array, count);
    return tokens;
}

TEST(ParseLineInfo, Table)
{
    struct Row {
        const char* name;
        std::string text;
        std::string separators;
        Tokens expected;
    };
    const Row rows[] = {
        {"runs count as one", "a,,b;", ",;", {"a", "b"}},
        {"mixed runs", "a,;,;b", ";,", {"a", "b"}},
        {"separators at the ends", ",,a b,", ",", {"a b"}},
        {"no separator in the text", "abc", ",", {"abc"}},
        {"no separators at all", "a,b", "", {"a,b"}},
        {"empty text", "", ",", {}},
        {"empty text and separators", "", "", {}},
        {"separators only", ",;,;", ",;", {}},
        {"one byte", "a", "a", {}},
        {"no quoting", "\"a b\" 'c d'", " ", {"\"a", "b\"", "'c", "d'"}},
        {"no escape", "a\\ b", " ", {"a\\", "b"}},
        {"bytes above 127", "\xD6\xD0\xA3\xAC\xCE\xC4", "\xA3\xAC", {"\xD6\xD0", "\xCE\xC4"}},
        {"each byte of the set stands alone", "1\xFE\x32\xFF\x33", "\xFF\xFE", {"1", "2", "3"}},
        {"blanks, tabs and line ends", " a\tb\r\nc ", " \t\r\n", {"a", "b", "c"}},
        {"tokens are not trimmed", " a , b ", ",", {" a ", " b "}},
        {"a separator twice in the set", "a,b", ",,", {"a", "b"}},
        {"single letters", "abcabc", "b", {"a", "ca", "c"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        support::MarkErrorText();
        EXPECT_EQ(Split(row.text, row.separators), row.expected);
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }
}

TEST(ParseLineInfo, NullArguments)
{
    int count = 7;
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_ParseLineInfo(nullptr, ",", &count), nullptr);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_ParseLineInfo("a", nullptr, &count), nullptr);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(count, 7) << "the arguments are checked first";
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_ParseLineInfo("a", ",", nullptr), nullptr);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(Split("a,b", ","), (Tokens{"a", "b"})) << "the lock is free after a failure";
}

TEST(ParseLineInfo, TheTextIsNotChanged)
{
    const std::string text = ",a,,b,";
    char copy[10] = ",a,,b,";
    int count = 0;
    ZKQGeneral_FreeParseLineInfoBuffer(ZKQGeneral_ParseLineInfo(copy, ",", &count), 2);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(copy, text);
}

TEST(ParseLineInfo, TokensAreTextsOfTheirOwn)
{
    int count = 0;
    char** array = ZKQGeneral_ParseLineInfo("abc,def", ",", &count);
    ASSERT_NE(array, nullptr);
    ASSERT_EQ(count, 2);
    memset(array[0], 'x', 3);
    EXPECT_STREQ(array[1], "def");
    ZKQGeneral_FreeMallocBuffer(array[0]);
    array[0] = nullptr;
    EXPECT_STREQ(array[1], "def");
    ZKQGeneral_FreeParseLineInfoBuffer(array, count);
}

TEST(ParseLineInfo, FreeingReleasesTokensAndArray)
{
    support::ExpectNothingLeaks([] {
        int count = 0;
        char** array = ZKQGeneral_ParseLineInfo("abc,def", ",", &count);
        ZKQGeneral_FreeParseLineInfoBuffer(array, count);
    });
}

TEST(ParseLineInfo, ManyAndLongTokens)
{
    std::string text;
    Tokens expected;
    for (size_t i = 0; i < 20000; ++i) {
        expected.push_back(std::to_string(i));
        text += (i % 3 == 0 ? ",;" : ",") + expected.back();
    }
    EXPECT_EQ(Split(text, ",;"), expected);
    EXPECT_EQ(Split(std::string(5000000, 'x') + "," + std::string(10, 'y'), ","),
              (Tokens{std::string(5000000, 'x'), std::string(10, 'y')}));
    EXPECT_EQ(Split(std::string(1000000, ','), ","), Tokens{});
}

TEST(ParseLineInfo, ReleaseIgnoresNull)
{
    ZKQGeneral_FreeParseLineInfoBuffer(nullptr, 0);
    ZKQGeneral_FreeParseLineInfoBuffer(nullptr, 5);
}

TEST(ParseLineInfo, ManyThreads)
{
    const auto work = [](const std::string& mark) {
        const Tokens expected = {mark + "1", mark + "22", mark + "333"};
        for (int i = 0; i < 2000; ++i)
            ASSERT_EQ(Split(mark + "1," + mark + "22;;" + mark + "333", ",;"), expected);
    };
    std::vector<std::thread> threads;
    for (const char* mark : {"a", "b", "c", "d"})
        threads.emplace_back(work, mark);
    for (std::thread& thread : threads)
        thread.join();
}

// --- the memory object ---

constexpr int kMagic = 0x12345678;

// The object's fields as they are laid out.
struct Fields {
    int magic;
    int max;
    int size;
    int read_pos;
    int write_pos;
    unsigned char* buf;
};
static_assert(offsetof(Fields, max) == 4 && offsetof(Fields, size) == 8 && offsetof(Fields, read_pos) == 12 &&
              offsetof(Fields, write_pos) == 16 && offsetof(Fields, buf) == 24);

class Memory {
public:
    explicit Memory(int size) : object_(ZKQGeneral_MEM_malloc(size)) { EXPECT_NE(object_, nullptr); }
    ~Memory() { ZKQGeneral_MEM_free(object_); }
    Memory(const Memory&) = delete;
    Memory& operator=(const Memory&) = delete;

    Fields& Field() const { return *static_cast<Fields*>(object_); }
    void* Object() const { return object_; }

    int Write(std::string bytes) const
    {
        return ZKQGeneral_MEM_Write(object_, reinterpret_cast<unsigned char*>(bytes.data()),
                                    static_cast<int>(bytes.size()));
    }
    // Asks for `size` bytes and gives those that came.
    std::string Read(int size) const
    {
        support::Buffer buffer(static_cast<size_t>(std::max(size, 0)));
        const int count = ZKQGeneral_MEM_Read(object_, reinterpret_cast<unsigned char*>(buffer.Data()), size);
        EXPECT_TRUE(buffer.GuardIntact());
        EXPECT_GE(count, 0);
        EXPECT_LE(count, std::max(size, 0));
        return buffer.Bytes().substr(0, static_cast<size_t>(std::max(count, 0)));
    }
    std::string Data() const { return {reinterpret_cast<const char*>(Field().buf), static_cast<size_t>(Field().size)}; }
    void ExpectPositions(int size, int read_pos, int write_pos) const
    {
        EXPECT_EQ(Field().size, size);
        EXPECT_EQ(Field().read_pos, read_pos);
        EXPECT_EQ(Field().write_pos, write_pos);
    }

private:
    void* object_;
};

TEST(MemoryObject, InitialSizes)
{
    const std::pair<int, int> rows[] = {{0, 4096}, {-5, 4096},   {INT_MIN, 4096}, {1, 1},
                                        {10, 10},  {4096, 4096}, {5000, 5000}};
    for (const auto& [size, max] : rows) {
        SCOPED_TRACE(size);
        const Memory memory(size);
        EXPECT_EQ(memory.Field().magic, kMagic);
        EXPECT_EQ(memory.Field().max, max);
        EXPECT_NE(memory.Field().buf, nullptr);
        memory.ExpectPositions(0, 0, 0);
    }
}

TEST(MemoryObject, GrowthTable)
{
    struct Row {
        int initial;
        std::vector<int> writes;
        int max;
    };
    const Row rows[] = {
        {0, {4096}, 4096},        {0, {4097}, 12288},
        {0, {4000, 96}, 4096},    {0, {4000, 97}, 8192},
        {0, {4096, 1}, 8192},     {0, {4096, 4096}, 8192},
        {0, {4096, 4097}, 12288}, {0, {1, 4096}, 8192},
        {0, {0}, 4096},           {1, {1}, 1},
        {1, {2}, 4096},           {1, {1, 1}, 4096},
        {100, {100}, 100},        {100, {101}, 4096},
        {100, {3997}, 8192},      {100, {3996}, 4096},
        {5000, {5000}, 5000},     {5000, {5000, 1}, 8192},
        {5000, {3193}, 5000},     {5000, {5001}, 12288},
        {0, {4097, 8191}, 12288}, {0, {4097, 8192}, 20480},
        {0, {1000000}, 1007616},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.initial) + " " + testing::PrintToString(row.writes));
        const Memory memory(row.initial);
        std::string expected;
        for (int length : row.writes) {
            const std::string bytes =
                support::Pattern(static_cast<size_t>(length) + expected.size()).substr(expected.size());
            EXPECT_EQ(memory.Write(bytes), length);
            expected += bytes;
            EXPECT_EQ(memory.Data(), expected);
            const int size = static_cast<int>(expected.size());
            memory.ExpectPositions(size, 0, size);
        }
        EXPECT_EQ(memory.Field().max, row.max);
    }
}

TEST(MemoryObject, AGrownAreaIsZeroBehindItsData)
{
    const Memory memory(4096);
    ASSERT_EQ(memory.Write(std::string(4096, 'x')), 4096);
    ASSERT_EQ(memory.Write("y"), 1);
    ASSERT_EQ(memory.Field().max, 8192);
    for (int i = memory.Field().size; i < memory.Field().max; ++i)
        ASSERT_EQ(memory.Field().buf[i], 0) << i;
}

TEST(MemoryObject, ManySmallWrites)
{
    const Memory memory(1);
    std::string expected;
    for (size_t i = 0; i < 20000; ++i) {
        const std::string bytes = std::to_string(i);
        ASSERT_EQ(memory.Write(bytes), static_cast<int>(bytes.size()));
        expected += bytes;
    }
    EXPECT_EQ(memory.Data(), expected);
    EXPECT_EQ(memory.Read(static_cast<int>(expected.size()) + 1), expected);
}

TEST(MemoryObject, WritesOfNothing)
{
    const Memory memory(10);
    unsigned char bytes[] = "abc";
    ASSERT_EQ(memory.Write("12"), 2);
    for (int size : {0, -1, -5, INT_MIN}) {
        EXPECT_EQ(ZKQGeneral_MEM_Write(memory.Object(), bytes, size), size);
        memory.ExpectPositions(2, 0, 2);
        EXPECT_EQ(memory.Field().max, 10);
    }
    EXPECT_EQ(memory.Data(), "12");
}

TEST(MemoryObject, WritesBeforeTheEndOverwrite)
{
    struct Row {
        int position;
        const char* bytes;
        const char* data;
        int write_pos;
    };
    const Row rows[] = {
        {0, "AB", "AB3456", 2},         {2, "AB", "12AB56", 4},
        {4, "AB", "1234AB", 6},         {0, "ABCDEF", "ABCDEF", 6},
        {4, "ABC", "1234ABC", 7},       {5, "ABC", "12345ABC", 8},
        {0, "ABCDEFGH", "ABCDEFGH", 8}, {6, "AB", "123456AB", 8},
        {0, "", "123456", 0},           {5, "ABCDEFGHIJ", "12345ABCDEFGHIJ", 15},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.data);
        const Memory memory(8);
        ASSERT_EQ(memory.Write("123456"), 6);
        memory.Field().write_pos = row.position;
        EXPECT_EQ(memory.Write(row.bytes), static_cast<int>(strlen(row.bytes)));
        EXPECT_EQ(memory.Data(), row.data);
        EXPECT_EQ(memory.Field().write_pos, row.write_pos);
        EXPECT_EQ(memory.Field().max, strlen(row.data) > 8 ? 4096 : 8);
    }
}

TEST(MemoryObject, Reads)
{
    const Memory memory(10);
    EXPECT_EQ(memory.Read(5), "") << "of an object without data";
    ASSERT_EQ(memory.Write("123456"), 6);
    EXPECT_EQ(memory.Read(2), "12");
    memory.ExpectPositions(6, 2, 6);
    EXPECT_EQ(memory.Read(0), "");
    EXPECT_EQ(memory.Read(-3), "");
    EXPECT_EQ(memory.Read(INT_MIN), "");
    memory.ExpectPositions(6, 2, 6);
    EXPECT_EQ(memory.Read(4), "3456");
    EXPECT_EQ(memory.Read(1), "");
    memory.ExpectPositions(6, 6, 6);
    EXPECT_EQ(memory.Data(), "123456") << "reading consumes nothing";
    ASSERT_EQ(memory.Write("78"), 2);
    EXPECT_EQ(memory.Read(10), "78") << "reading goes on where it stood";
    EXPECT_EQ(memory.Read(10), "");
}

TEST(MemoryObject, AReadOfMoreThanThereIs)
{
    const Memory memory(10);
    ASSERT_EQ(memory.Write("123456"), 6);
    EXPECT_EQ(memory.Read(10), "123456");
    EXPECT_EQ(memory.Read(10), "");
    memory.ExpectPositions(6, 6, 6);
}

TEST(MemoryObject, ReadsGoOnThroughGrowth)
{
    const Memory memory(8);
    ASSERT_EQ(memory.Write("12345678"), 8);
    EXPECT_EQ(memory.Read(3), "123");
    ASSERT_EQ(memory.Write(std::string(9000, 'x')), 9000);
    EXPECT_EQ(memory.Field().read_pos, 3);
    EXPECT_EQ(memory.Read(9005), "45678" + std::string(9000, 'x'));
}

TEST(MemoryObject, Detach)
{
    const Memory memory(100);
    ASSERT_EQ(memory.Write("123456"), 6);
    ASSERT_EQ(memory.Read(2), "12");
    unsigned char* bytes = nullptr;
    int size = -1;
    EXPECT_EQ(ZKQGeneral_MEM_Detach(memory.Object(), &bytes, &size), 0);
    EXPECT_EQ(size, 6) << "all data, whatever was read";
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(bytes), 6), "123456");
    ZKQGeneral_FreeMallocBuffer(bytes);

    EXPECT_EQ(memory.Field().magic, kMagic) << "the object stays alive";
    EXPECT_EQ(memory.Field().buf, nullptr);
    EXPECT_EQ(memory.Field().max, 0);
    memory.ExpectPositions(0, 0, 0);
    EXPECT_EQ(memory.Read(10), "");
}

TEST(MemoryObject, WritingAfterDetachGrowsFromNothing)
{
    for (const auto& [length, max] : {std::pair{1, 4096}, {4096, 4096}, {4097, 8192}}) {
        SCOPED_TRACE(length);
        const Memory memory(100);
        ASSERT_EQ(memory.Write("123456"), 6);
        unsigned char* bytes = nullptr;
        int size = -1;
        EXPECT_EQ(ZKQGeneral_MEM_Detach(memory.Object(), &bytes, &size), 0);
        ZKQGeneral_FreeMallocBuffer(bytes);
        EXPECT_EQ(memory.Write(std::string(static_cast<size_t>(length), 'y')), length);
        EXPECT_EQ(memory.Field().max, max);
        memory.ExpectPositions(length, 0, length);
        EXPECT_EQ(memory.Read(length), std::string(static_cast<size_t>(length), 'y'));
    }
}

TEST(MemoryObject, FreeingReleasesObjectAndData)
{
    support::ExpectNothingLeaks([] {
        const Memory memory(100);
        memory.Write(std::string(5000, 'x'));
    });
}

TEST(MemoryObject, DetachTwiceAndWithoutData)
{
    const Memory memory(100);
    for (int i = 0; i < 2; ++i) {
        unsigned char* bytes = nullptr;
        int size = -1;
        EXPECT_EQ(ZKQGeneral_MEM_Detach(memory.Object(), &bytes, &size), 0);
        EXPECT_EQ(size, 0);
        EXPECT_EQ(bytes == nullptr, i == 1) << "the room itself goes with the first";
        ZKQGeneral_FreeMallocBuffer(bytes);
    }
}

void ExpectDead(void* object)
{
    unsigned char bytes[4] = {'a', 'b', 'c', 'd'};
    unsigned char* out = bytes;
    int size = 77;
    EXPECT_EQ(ZKQGeneral_MEM_Write(object, bytes, 4), 0);
    EXPECT_EQ(ZKQGeneral_MEM_Write(object, bytes, -4), 0);
    EXPECT_EQ(ZKQGeneral_MEM_Read(object, bytes, 4), 0);
    EXPECT_EQ(memcmp(bytes, "abcd", 4), 0);
    EXPECT_EQ(ZKQGeneral_MEM_Detach(object, &out, &size), 0);
    EXPECT_EQ(out, bytes) << "the outputs are left alone";
    EXPECT_EQ(size, 77);
    ZKQGeneral_MEM_free(object);
}

TEST(MemoryObject, WhatHasNoMarkIsIgnored)
{
    unsigned char data[16] = "0123456789";
    for (int magic : {0, 1, 0x12345679, 0x78563412, -1}) {
        SCOPED_TRACE(magic);
        Fields foreign = {magic, 16, 10, 0, 5, data};
        const Fields before = foreign;
        support::MarkErrorText();
        ExpectDead(&foreign);
        EXPECT_TRUE(support::ErrorTextIsMarked()) << "memory objects set no error text";
        EXPECT_EQ(memcmp(&foreign, &before, sizeof foreign), 0);
        EXPECT_STREQ(reinterpret_cast<char*>(data), "0123456789");
    }
    support::MarkErrorText();
    ExpectDead(nullptr);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(MemoryObject, NullBuffersAreSurvived)
{
    const Memory memory(10);
    ASSERT_EQ(memory.Write("123"), 3);
    unsigned char* bytes = nullptr;
    int size = 0;
    EXPECT_EQ(ZKQGeneral_MEM_Write(memory.Object(), nullptr, 2), 0);
    EXPECT_EQ(ZKQGeneral_MEM_Read(memory.Object(), nullptr, 2), 0);
    EXPECT_EQ(ZKQGeneral_MEM_Detach(memory.Object(), nullptr, &size), 0);
    EXPECT_EQ(ZKQGeneral_MEM_Detach(memory.Object(), &bytes, nullptr), 0);
    ZKQGeneral_FreeMallocBuffer(bytes);
    EXPECT_EQ(memory.Field().magic, kMagic);
}

// --- without memory ---

void LimitAddressSpace(size_t more)
{
    FILE* statm = fopen("/proc/self/statm", "re");
    unsigned long pages = 0;
    if (statm == nullptr || fscanf(statm, "%lu", &pages) != 1)
        support::SkipChild("statm");
    fclose(statm);
    const rlimit limit = {pages * 4096 + more, pages * 4096 + more};
    if (setrlimit(RLIMIT_AS, &limit) != 0)
        support::SkipChild("setrlimit");
}

TEST(MemoryObject, WithoutRoomToBeginWithTheObjectIsDead)
{
    if (support::kSanitizer)
        GTEST_SKIP() << "a sanitizer does not run within a limit of memory";
    RUN_IN_CHILD([] {
        LimitAddressSpace(32 << 20);
        void* object = ZKQGeneral_MEM_malloc(INT_MAX);
        ASSERT_NE(object, nullptr);
        ExpectDead(object);
        ExpectDead(object);
        const Memory other(100);
        EXPECT_EQ(other.Write("123"), 3);
        EXPECT_EQ(other.Read(3), "123");
    });
}

TEST(MemoryObject, AFailedGrowthLeavesTheObject)
{
    constexpr size_t kLarge = size_t{1} << 30;
    void* large = mmap(nullptr, kLarge, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(large, MAP_FAILED);
    if (support::kSanitizer)
        GTEST_SKIP() << "a sanitizer does not run within a limit of memory";
    RUN_IN_CHILD([&] {
        const Memory memory(10);
        ASSERT_EQ(memory.Write("123456"), 6);
        LimitAddressSpace(32 << 20);
        EXPECT_EQ(ZKQGeneral_MEM_Write(memory.Object(), static_cast<unsigned char*>(large), static_cast<int>(kLarge)),
                  0);
        memory.ExpectPositions(6, 0, 6);
        EXPECT_EQ(memory.Field().max, 10);
        EXPECT_EQ(memory.Data(), "123456");
    });
    munmap(large, kLarge);
}

TEST(MemoryObject, SizesBeyondTheRangeOfIntFail)
{
    void* large = mmap(nullptr, size_t{INT_MAX}, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(large, MAP_FAILED);
    for (int length : {INT_MAX, INT_MAX - 4095, INT_MAX - 8191}) {
        SCOPED_TRACE(length);
        const Memory memory(4097);
        ASSERT_EQ(memory.Write("123456"), 6);
        EXPECT_EQ(ZKQGeneral_MEM_Write(memory.Object(), static_cast<unsigned char*>(large), length), 0);
        memory.ExpectPositions(6, 0, 6);
        EXPECT_EQ(memory.Field().max, 4097);
        EXPECT_EQ(memory.Data(), "123456");
    }
    munmap(large, size_t{INT_MAX});
}

} // namespace
