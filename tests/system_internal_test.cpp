// What the family computes, apart from the running system.
#include <errno.h>
#include <gtest/gtest.h>
#include <locale.h>

#include <string>
#include <string_view>
#include <vector>

#include "../src/internal/system.h"
#include "support/buffer.h"

namespace {

struct PathRow {
    const char* name;
    const char* directory;
    const char* expected; // null: EINVAL
};

TEST(ComputeFullPathName, Table)
{
    const PathRow rows[] = {
        {"/a/b", "/d", "/a/b"},
        {"/./a/../b", "/d", "/./a/../b"},
        {"a", "/d", "/d/a"},
        {"a/../b", "/d", "/d/a/../b"},
        {"./a", "/d", "/d/a"},
        {"././a", "/d", "/d/a"},
        {"../a", "/d/e", "/d/a"},
        {"../../a", "/d/e", "/a"},
        {"../../../a", "/d/e", nullptr},
        {"../a", "", nullptr},
        {"../a", "/d", "/a"},
        {"a", "", "/a"},
        {"./a", "", "/a"},
        {"./.././a", "/d/e", "/d/a"},
        {"..a", "/d", "/d/..a"},
        {".a/../b", "/d", "/d/.a/../b"},
        {"./a/./b", "/d", "/d/a/./b"},
        {"...", "/d", "/d/..."},
        {".", "/d", "/d/."},
        {"..", "/d", "/d/.."},
    };
    for (const PathRow& row : rows) {
        SCOPED_TRACE(row.name);
        support::Buffer buffer(300);
        const int error = ComputeFullPathName(row.name, row.directory, buffer.Data(), 300);
        EXPECT_EQ(error, row.expected == nullptr ? EINVAL : 0);
        if (row.expected != nullptr) {
            EXPECT_EQ(buffer.Text(), row.expected);
        }
    }
}

TEST(ComputeFullPathName, PathsThatDoNotFitAreRefused)
{
    for (const auto& [name, directory] :
         {std::pair{"bcd", "/a"}, {"./bcd", "/a"}, {"../bcd", "/a/x"}, {"/a/bcd", "/x"}}) {
        for (size_t size : {0U, 1U, 5U, 6U, 7U, 8U, 20U}) {
            SCOPED_TRACE(std::string(name) + " into " + std::to_string(size));
            support::Buffer buffer(size);
            const bool fits = strlen("/a/bcd") < size;
            EXPECT_EQ(ComputeFullPathName(name, directory, buffer.Data(), size), fits ? 0 : ENAMETOOLONG);
            EXPECT_TRUE(buffer.GuardIntact());
            if (fits) {
                EXPECT_EQ(buffer.Text(), "/a/bcd");
            }
        }
    }
}

constexpr std::string_view kMap = "1000-2000 r--p 00000000 08:01 77       /opt/a folder/program\n"
                                  "2000-3000 r-xp 00001000 08:01 77       /opt/a folder/program\n"
                                  "3000-4000 rw-p 00000000 00:00 0 \n"
                                  "4000-5000 r--p 00000000 08:01 78       /opt/libone.so\n"
                                  "5000-6000 r--p 00000000 08:01 79       /opt/lib/libone.so.2\n"
                                  "6000-7000 rw-p 00000000 00:00 0        [stack]";

TEST(FindMappedPath, Table)
{
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"libone.so", "/opt/libone.so"},
        {"/opt/libone.so", "/opt/libone.so"},
        {"libone.so.2", "/opt/lib/libone.so.2"},
        {"program", "folder/program"},
        {"stack", "[stack]"},
        {"1000-2000", "1000-2000 r--p 00000000 08:01 77       /opt/a folder/program"},
        {"000-2000", "1000-2000 r--p 00000000 08:01 77       /opt/a folder/program"},
    };
    for (const auto& [name, expected] : rows) {
        SCOPED_TRACE(name);
        std::string_view path;
        EXPECT_EQ(FindMappedPath(kMap, name, &path), 0);
        EXPECT_EQ(path, expected);
    }
    std::string_view path;
    EXPECT_EQ(FindMappedPath(kMap, "libtwo.so", &path), ENOENT);
    EXPECT_EQ(FindMappedPath("", "libtwo.so", &path), ENOENT);
}

TEST(FindMappedPath, LongPathsAreRefused)
{
    for (size_t length : {298U, 299U, 300U, 301U, 5000U}) {
        SCOPED_TRACE(length);
        const std::string map = "1-2 r--p 0 0 0 /" + std::string(length - 2, 'x') + "y\n3-4 r--p 0 0 0 /z\n";
        std::string_view path;
        EXPECT_EQ(FindMappedPath(map, "xy", &path), length < 300 ? 0 : ENAMETOOLONG);
    }
}

TEST(Uptime, Table)
{
    const std::pair<const char*, long> rows[] = {
        {"350735.47 234388.90\n", 350735470},
        {"0.00 0.00", 0},
        {"0.01 0.00", 10},
        {" 12 13 14", 12000},
        {"\t1.2345678\n2", 1234},
        {"1.57 2", 1570},
        {"-2.5 1", -2500},
        {"1e3 1", 1000000},
        {"9000000000000.25 1", 9000000000000250},
        {"1.5", 0},
        {"1.5 x", 0},
        {"1.5x 2", 0},
        {"1,5 2", 0},
        {"x 2", 0},
        {"", 0},
        {"\n", 0},
        {"1e16 1", 0}, // more than there can be
        {"1e400 1", 0},
        {"inf inf", 0},
        {"nan nan", 0},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(MillisecondsOfUptime(text), expected) << text;
        const double number = strtod(text, nullptr);
        EXPECT_TRUE(expected == 0 || expected == static_cast<long>(number * 1000.0)) << text;
    }
}

TEST(Uptime, IsReadWithAPointInEveryLocale)
{
    const std::string before = setlocale(LC_NUMERIC, nullptr);
    const bool found = setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr || setlocale(LC_NUMERIC, "de_DE") != nullptr;
    const long milliseconds = MillisecondsOfUptime("1.5 2.5");
    setlocale(LC_NUMERIC, before.c_str());
    EXPECT_EQ(milliseconds, 1500);
    if (!found)
        GTEST_SKIP() << "no locale here that writes a comma";
}

TEST(JoinArguments, Table)
{
    using namespace std::string_view_literals;
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"a\0b\0"sv, "a b"},
        {"a\0"sv, "a"},
        {"a", "a"},
        {"", ""},
        {"\0"sv, ""},
        {"\0\0"sv, ""},
        {"\0a"sv, " a"},
        {"a b\0c"sv, "a b c"},
        {"a\0\0b"sv, "a\0 b"sv},
        {"a\0\0\0"sv, "a"},
        {"a\0b\0\0"sv, "a b"},
    };
    for (const auto& [bytes, expected] : rows) {
        std::vector<char> buffer(bytes.begin(), bytes.end()); // of exactly this size
        EXPECT_EQ(JoinArguments(buffer.data(), buffer.size()), expected);
    }
}

} // namespace
