// Path computation apart from the running process.
#include <errno.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>

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

} // namespace
