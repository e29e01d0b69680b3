// Paths of the program, of loaded modules and of the temporary directory.
#include <ZKQ_general/system.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/buffer.h"
#include "support/child.h"
#include "support/error_text.h"
#include "support/paths.h"
#include "support/temp_dir.h"
#include "support/working_dir.h"

namespace {

constexpr size_t kPathBuffer = 300;

std::string OwnPath()
{
    return std::filesystem::read_symlink("/proc/self/exe");
}

// A module loaded from a copy of its own, so that every test has it under the name it wants.
class Module {
public:
    explicit Module(const std::string& name, const char* source = ZKQ_TEST_MODULE_WITH_INIT) : name_(name)
    {
        const std::filesystem::path folder = std::filesystem::path(name).parent_path();
        if (!folder.empty())
            std::filesystem::create_directories(folder);
        std::filesystem::copy_file(source, name);
        handle_ = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
        EXPECT_NE(handle_, nullptr) << dlerror();
    }
    ~Module()
    {
        if (handle_ != nullptr)
            dlclose(handle_);
    }
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    void* Handle() const { return handle_; }

private:
    std::string name_;
    void* handle_ = nullptr;
};

std::string Path(void* module, size_t size = 1000)
{
    support::Buffer buffer(size);
    const DWORD length = ZKQGeneral_GetModuleFileName(module, buffer.Data(), size);
    EXPECT_TRUE(buffer.GuardIntact());
    return length == 0 ? "" : buffer.Bytes().substr(0, length);
}

// --- temporary directory ---

TEST(GetTempPath, Table)
{
    struct Row {
        DWORD size;
        DWORD result;
        const char* text;
    };
    const Row rows[] = {{1, 0, ""},     {2, 1, "/"},     {3, 2, "/t"},     {4, 3, "/tm"},
                        {5, 4, "/tmp"}, {6, 5, "/tmp/"}, {100, 5, "/tmp/"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.size);
        support::Buffer buffer(row.size);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_GetTempPath(row.size, buffer.Data()), row.result);
        EXPECT_EQ(buffer.Bytes().substr(0, row.result + 1), std::string(row.text) + '\0');
        EXPECT_TRUE(buffer.GuardIntact());
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }
}

TEST(GetTempPath, SizeZeroWritesNothing)
{
    support::Buffer buffer(0);
    EXPECT_EQ(ZKQGeneral_GetTempPath(0, buffer.Data()), 0U);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(ZKQGeneral_GetTempPath(0, nullptr), 0U);
}

TEST(GetTempPath, SizesAboveTheRangeOfInt)
{
    for (DWORD size :
         {DWORD{INT_MAX}, DWORD{1} << 31, DWORD{UINT_MAX}, DWORD{1} << 32, (DWORD{1} << 32) + 2, ULONG_MAX}) {
        SCOPED_TRACE(size);
        support::Buffer buffer(6);
        EXPECT_EQ(ZKQGeneral_GetTempPath(size, buffer.Data()), 5U);
        EXPECT_EQ(buffer.Text(), "/tmp/");
        EXPECT_TRUE(buffer.GuardIntact());
    }
}

TEST(GetTempPath, TheEnvironmentDoesNotMatter)
{
    setenv("TMPDIR", "/elsewhere", 1);
    char buffer[20];
    EXPECT_EQ(ZKQGeneral_GetTempPath(sizeof buffer, buffer), 5U);
    EXPECT_STREQ(buffer, "/tmp/");
    unsetenv("TMPDIR");
}

TEST(GetTempPath, Null)
{
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetTempPath(10, nullptr), 0U);
    EXPECT_SYSTEM_ERROR(EINVAL);
}

// --- the program ---

TEST(GetModuleFileName, OfTheProgram)
{
    support::Buffer buffer(1000);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetModuleFileName(nullptr, buffer.Data(), 1000), OwnPath().size());
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_EQ(buffer.Text(), OwnPath());
    EXPECT_EQ(buffer.Bytes().substr(OwnPath().size()), std::string(1000 - OwnPath().size(), '\0'))
        << "the buffer is filled with zeros";
    EXPECT_TRUE(buffer.GuardIntact());
}

TEST(GetModuleFileName, OfTheProgramCutWithoutNul)
{
    const size_t length = OwnPath().size();
    for (size_t size : {length + 1, length, length - 1, size_t{5}, size_t{1}}) {
        SCOPED_TRACE(size);
        support::Buffer buffer(size);
        const size_t expected = std::min(size, length);
        EXPECT_EQ(ZKQGeneral_GetModuleFileName(nullptr, buffer.Data(), size), expected);
        EXPECT_EQ(buffer.Bytes().substr(0, expected), OwnPath().substr(0, expected));
        EXPECT_TRUE(buffer.GuardIntact());
        EXPECT_EQ(buffer.Text().size(), expected);
    }
}

TEST(GetModuleFileName, SizeZeroWritesNothing)
{
    support::TempDir dir;
    const Module module(dir.File("module"));
    support::Buffer buffer(0);
    EXPECT_EQ(ZKQGeneral_GetModuleFileName(nullptr, buffer.Data(), 0), 0U);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(ZKQGeneral_GetModuleFileName(module.Handle(), buffer.Data(), 0), 0U);
    EXPECT_TRUE(buffer.Untouched());
}

TEST(GetModuleFileName, NullBuffer)
{
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetModuleFileName(nullptr, nullptr, 100), 0U);
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(GetModuleFileName, WithoutProc)
{
    support::TempDir dir;
    std::filesystem::create_directory(dir.File("root"));
    RUN_IN_CHILD([&] {
        support::EnterRoot(dir.File("root"));
        support::Buffer buffer(kPathBuffer);
        EXPECT_EQ(ZKQGeneral_GetModuleFileName(nullptr, buffer.Data(), kPathBuffer), 0U);
        EXPECT_SYSTEM_ERROR(ENOENT);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_GetModuleFileName2("x", buffer.Data()), FALSE);
        EXPECT_SYSTEM_ERROR(ENOENT);
    });
}

// --- modules ---

TEST(GetModuleFileName, OfAModuleLoadedByItsAbsolutePath)
{
    support::TempDir dir;
    const std::string path = dir.File("module.so");
    const Module module(path);
    support::Buffer buffer(1000);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetModuleFileName(module.Handle(), buffer.Data(), 1000), path.size());
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_EQ(buffer.Text(), path);
    EXPECT_EQ(buffer.Bytes().substr(path.size()), std::string(1000 - path.size(), '\0'));
    EXPECT_TRUE(buffer.GuardIntact());
}

TEST(GetModuleFileName, OfAModuleCutWithNul)
{
    support::TempDir dir;
    const std::string path = dir.File("module.so");
    const Module module(path);
    for (size_t size : {path.size() + 1, path.size(), path.size() - 1, size_t{2}, size_t{1}}) {
        SCOPED_TRACE(size);
        support::Buffer buffer(size);
        const size_t expected = std::min(size - 1, path.size());
        EXPECT_EQ(ZKQGeneral_GetModuleFileName(module.Handle(), buffer.Data(), size), expected);
        EXPECT_EQ(buffer.Text(), path.substr(0, expected));
        EXPECT_TRUE(buffer.GuardIntact());
    }
}

// The text leaves open whether a path of 300 bytes and more is returned or refused, but not that it is cut.
TEST(GetModuleFileName, LongPathsOfModules)
{
    for (size_t length : {290U, 298U, 299U, 300U, 301U, 900U}) {
        SCOPED_TRACE(length);
        support::TempDir dir;
        const std::string path = dir.File(support::NestedPath(length - dir.Path().size() - 12)) + "/module.so.";
        ASSERT_EQ(path.size(), length);
        const Module module(path);
        const std::string answer = Path(module.Handle());
        if (length < 300 || !answer.empty()) {
            EXPECT_EQ(answer, path);
        }
    }
}

TEST(GetModuleFileName, RelativeNamesAreMadeAbsolute)
{
    struct Row {
        const char* loaded; // from the directory "a/b"
        const char* expected;
    };
    const Row rows[] = {
        {"./m1", "/a/b/m1"},
        {"././m2", "/a/b/m2"},
        {"../m3", "/a/m3"},
        {"../../m4", "/m4"},
        {"./../m5", "/a/m5"},
        {".././m6", "/a/m6"},
        {"sub/m7", "/a/b/sub/m7"},
        {"./sub/m8", "/a/b/sub/m8"},
        {"../sub/m9", "/a/sub/m9"},
        {".hidden/m10", "/a/b/.hidden/m10"},
        {"..dots/m11", "/a/b/..dots/m11"},
        {".../m12", "/a/b/.../m12"},
        {"sub/../m13", "/a/b/sub/../m13"},
        {"sub/./m14", "/a/b/sub/./m14"},
        {"../.hidden/m15", "/a/.hidden/m15"},
        {"./sub/../m16", "/a/b/sub/../m16"},
    };
    support::TempDir dir;
    std::filesystem::create_directories(dir.File("a/b/sub"));
    support::WorkingDir here(dir.File("a/b"));
    for (const Row& row : rows) {
        SCOPED_TRACE(row.loaded);
        const Module module(row.loaded);
        EXPECT_EQ(Path(module.Handle()), dir.Path() + row.expected) << support::ErrorText();
    }
}

TEST(GetModuleFileName, RelativeToTheRootDirectory)
{
    support::TempDir dir;
    const std::string path = dir.File("module.so");
    support::WorkingDir here("/");
    const Module module("." + path);
    EXPECT_EQ(Path(module.Handle()), path);
}

TEST(GetModuleFileName, AboveTheRootDirectoryThereIsNothing)
{
    support::TempDir dir;
    support::WorkingDir here("/");
    const Module module(".." + dir.File("module.so"));
    support::MarkErrorText();
    EXPECT_EQ(Path(module.Handle()), "");
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(GetModuleFileName, UpToTheRootDirectory)
{
    support::TempDir dir;
    std::string up;
    for (const char c : dir.Path())
        up += c == '/' ? "../" : "";
    support::WorkingDir here(dir.Path());
    const Module module(up + dir.File("module.so").substr(1));
    EXPECT_EQ(Path(module.Handle()), dir.File("module.so"));
}

TEST(GetModuleFileName, AModuleWithoutInitFailsWithTheLoadersText)
{
    support::TempDir dir;
    const Module module(dir.File("short"), ZKQ_TEST_MODULE_WITHOUT_INIT);
    dlerror();
    ASSERT_EQ(dlsym(module.Handle(), "_init"), nullptr);
    const std::string expected = dlerror();
    support::MarkErrorText();
    support::Buffer buffer(kPathBuffer);
    EXPECT_EQ(ZKQGeneral_GetModuleFileName(module.Handle(), buffer.Data(), kPathBuffer), 0U);
    EXPECT_EQ(support::ErrorText(), expected.substr(0, 255));
    EXPECT_EQ(buffer.Bytes(), std::string(kPathBuffer, '\0'));
    EXPECT_TRUE(buffer.GuardIntact());
}

TEST(GetModuleFileName, ALongLoadersTextIsCut)
{
    support::TempDir dir;
    const std::string path = dir.File(std::string(200, 'a') + "/" + std::string(200, 'b'));
    const Module module(path, ZKQ_TEST_MODULE_WITHOUT_INIT);
    EXPECT_EQ(Path(module.Handle()), "");
    EXPECT_EQ(support::ErrorText(), path.substr(0, 255));
}

// --- the memory map ---

struct MapAnswer {
    BOOL found = FALSE;
    std::string path;
};

MapAnswer FindInMap(const std::string& name)
{
    support::Buffer buffer(kPathBuffer);
    MapAnswer answer;
    support::MarkErrorText();
    answer.found = ZKQGeneral_GetModuleFileName2(name.c_str(), buffer.Data());
    EXPECT_TRUE(buffer.GuardIntact());
    if (answer.found == TRUE)
        answer.path = buffer.Text();
    return answer;
}

TEST(GetModuleFileName2, OfTheProgramAndOfAModule)
{
    support::TempDir dir;
    const std::string path = dir.File("some_module.so");
    const Module module(path);
    EXPECT_EQ(FindInMap(OwnPath().substr(OwnPath().rfind('/') + 1)).path, OwnPath());
    EXPECT_EQ(FindInMap("some_module.so").path, path);
    EXPECT_EQ(FindInMap("some_mod").path, path) << "a part of the name";
    EXPECT_EQ(FindInMap(path).path, path) << "the whole path";
    EXPECT_EQ(FindInMap(dir.Path().substr(dir.Path().rfind('/'))).path, path) << "a part of the folder";
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(GetModuleFileName2, NotFoundLeavesTheErrorText)
{
    EXPECT_EQ(FindInMap("no such module anywhere").found, FALSE);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(GetModuleFileName2, APathWithABlankIsReturnedFromBehindIt)
{
    support::TempDir dir;
    const Module module(dir.File("a folder/first second third.so"));
    EXPECT_EQ(FindInMap("third.so").path, "third.so");
    EXPECT_EQ(FindInMap("cond third").path, "second third.so");
    EXPECT_EQ(FindInMap("older/first").path, "folder/first second third.so");
}

TEST(GetModuleFileName2, TheLineIsCutAtItsEndOnly)
{
    support::TempDir dir;
    const std::string path = dir.File("removed_module.so");
    const Module module(path);
    ASSERT_EQ(unlink(path.c_str()), 0);
    EXPECT_EQ(FindInMap("removed_module").path, path + " (deleted)");
}

TEST(GetModuleFileName2, WhatHasNoPathIsFoundByItsName)
{
    EXPECT_EQ(FindInMap("[stack").path, "[stack]");
}

TEST(GetModuleFileName2, PathsAroundThreeHundredBytes)
{
    for (size_t length : {290U, 298U, 299U, 300U, 301U, 900U}) {
        SCOPED_TRACE(length);
        support::TempDir dir;
        const std::string path = dir.File(support::NestedPath(length - dir.Path().size() - 12)) + "/module.so.";
        ASSERT_EQ(path.size(), length);
        const Module module(path);
        const MapAnswer answer = FindInMap("module.so.");
        EXPECT_EQ(answer.path, length < 300 ? path : "");
        if (length >= 300) {
            EXPECT_SYSTEM_ERROR(ENAMETOOLONG);
        }
    }
}

TEST(GetModuleFileName2, TheWalkBackEndsAtTheStartOfTheMap)
{
    std::ifstream map("/proc/self/maps");
    std::string line;
    ASSERT_TRUE(std::getline(map, line));
    const std::string address = line.substr(0, line.find(' '));
    EXPECT_EQ(FindInMap(address).path, line);
    EXPECT_EQ(FindInMap(address.substr(1)).path, line);
}

// Fills the start of the map with lines of its own, below everything else.
bool MapManyLines(const std::string& path, int lines)
{
    const int fd = open(path.c_str(), O_RDWR | O_CREAT, 0600);
    const auto page = static_cast<off_t>(sysconf(_SC_PAGESIZE));
    bool mapped = fd >= 0 && ftruncate(fd, page * lines * 2) == 0;
    for (int i = 0; i < lines && mapped; ++i) {
        const auto address = static_cast<uintptr_t>(0x10000000 + i * 2 * page);
        void* place = mmap(reinterpret_cast<void*>(address), static_cast<size_t>(page), PROT_READ,
                           MAP_PRIVATE | MAP_FIXED_NOREPLACE, fd, i * 2 * page);
        mapped = place == reinterpret_cast<void*>(address);
    }
    close(fd);
    return mapped;
}

TEST(GetModuleFileName2, OnlyTheFirst64KiBOfTheMapAreSearched)
{
    support::TempDir dir;
    const std::string path = dir.File("late_module.so");
    const Module module(path);
    EXPECT_EQ(FindInMap("late_module.so").path, path);
    RUN_IN_CHILD([&] {
        if (!MapManyLines(dir.File("early_file"), 1000))
            support::SkipChild("mmap below the program");
        EXPECT_EQ(FindInMap("early_file").path, dir.File("early_file"));
        EXPECT_EQ(FindInMap("late_module.so").found, FALSE);
        EXPECT_TRUE(support::ErrorTextIsMarked());
    });
}

TEST(GetModuleFileName2, NullArguments)
{
    char buffer[kPathBuffer];
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetModuleFileName2(nullptr, buffer), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetModuleFileName2("x", nullptr), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
}

} // namespace
