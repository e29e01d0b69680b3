// The error text, the texts of errno values, and the release of buffers.
#include <ZKQ_general/error.h>
#include <ZKQ_general/file.h>
#include <ZKQ_general/string.h>
#include <ZKQ_general/system.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "support/buffer.h"
#include "support/error_text.h"
#include "support/heap.h"
#include "support/temp_dir.h"

namespace {

// Taken while the program is loaded, so before any test can have failed a call.
const std::string InitialText = ZKQGeneral_GetGeneralErrorInfo();

bool FailWith(int number)
{
    switch (number) {
    case ENOENT:
        return ZKQGeneral_IsFileExist("/no such directory/file") == FALSE;
    case EISDIR:
        return ZKQGeneral_GetFileLength("/", nullptr) == FALSE;
    case EINVAL:
        return ZKQGeneral_CreateMultiLevelDirectory("name") == FALSE;
    default:
        return false;
    }
}

std::string SystemText(int number)
{
    return strerror(number);
}

// What the buffer must hold: the system's text if it fits with its NUL, else the fallback, cut.
std::string ExpectedText(int number, size_t size)
{
    if (SystemText(number).size() + 1 <= size)
        return SystemText(number);
    std::string fallback = "Unkown Error! ErrorCode = " + std::to_string(number);
    return size == 0 ? "" : fallback.substr(0, size - 1);
}

TEST(ErrorText, BeforeAnyFailureSaysSuccess)
{
    EXPECT_EQ(InitialText, "Function call successed!");
}

TEST(ErrorText, IsTheTextItselfAndNotACopy)
{
    char* text = ZKQGeneral_GetGeneralErrorInfo();
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(ZKQGeneral_GetGeneralErrorInfo(), text);
    ASSERT_TRUE(FailWith(ENOENT));
    EXPECT_EQ(ZKQGeneral_GetGeneralErrorInfo(), text);
    EXPECT_STREQ(text, strerror(ENOENT));
}

TEST(ErrorText, HoldsTwoHundredFiftySixBytes)
{
    char* text = ZKQGeneral_GetGeneralErrorInfo();
    memset(text, 'x', 255);
    text[255] = '\0';
    EXPECT_EQ(support::ErrorText(), std::string(255, 'x'));
    ASSERT_TRUE(FailWith(EINVAL));
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(ErrorText, EachFailureReplacesIt)
{
    for (int number : {ENOENT, EINVAL, EISDIR, ENOENT}) {
        ASSERT_TRUE(FailWith(number)) << number;
        EXPECT_SYSTEM_ERROR(number);
    }
}

TEST(ErrorText, SuccessLeavesTheFormerText)
{
    support::TempDir dir;
    support::WriteFile(dir.File("f"), "content");
    ASSERT_TRUE(FailWith(EISDIR));

    char path[16];
    DWORD length = 0;
    BOOL directory = TRUE;
    int count = 0;
    EXPECT_EQ(ZKQGeneral_IsFileExist(dir.File("f").c_str()), TRUE);
    EXPECT_SYSTEM_ERROR(EISDIR);
    EXPECT_EQ(ZKQGeneral_GetFileLength(dir.File("f").c_str(), &length), TRUE);
    EXPECT_SYSTEM_ERROR(EISDIR);
    EXPECT_EQ(ZKQGeneral_IsDirectoryName(dir.File("f").c_str(), &directory), TRUE);
    EXPECT_SYSTEM_ERROR(EISDIR);
    EXPECT_EQ(ZKQGeneral_GetTempPath(sizeof path, path), 5U);
    EXPECT_SYSTEM_ERROR(EISDIR);
    ZKQGeneral_FreeParseLineInfoBuffer(ZKQGeneral_ParseLineInfo("a b", " ", &count), 2);
    EXPECT_EQ(count, 2);
    EXPECT_SYSTEM_ERROR(EISDIR);
}

TEST(SystemErrorText, EveryNumberAndSize)
{
    for (int number = 0; number <= 140; ++number) {
        const size_t length = SystemText(number).size();
        for (size_t size : {size_t{0}, size_t{1}, size_t{2}, size_t{5}, length - 1, length, length + 1, size_t{200}}) {
            SCOPED_TRACE(std::to_string(number) + " into " + std::to_string(size));
            support::Buffer buffer(size);
            EXPECT_EQ(ZKQGeneral_GetSystemErrorInfoString(number, buffer.Data(), size), TRUE);
            EXPECT_TRUE(buffer.GuardIntact());
            EXPECT_EQ(buffer.Text(), ExpectedText(number, size));
        }
    }
}

struct TextRow {
    const char* name;
    int number;
    DWORD size;
    const char* expected;
};

TEST(SystemErrorText, Table)
{
    const TextRow rows[] = {
        {"cut to five bytes", ENOENT, 5, "Unko"},
        {"one byte holds the NUL alone", ENOENT, 1, ""},
        {"system text needs one byte more", ENOENT, 25, "Unkown Error! ErrorCode "},
        {"system text just fits", ENOENT, 26, "No such file or directory"},
        {"fallback whole", EILSEQ, 30, "Unkown Error! ErrorCode = 84"},
        {"fallback with its last digit cut", EILSEQ, 28, "Unkown Error! ErrorCode = 8"},
        {"number unknown to the system", 99999, 100, "Unknown error 99999"},
        {"unknown number that does not fit", 99999, 10, "Unkown Er"},
        {"negative number", -1, 100, "Unknown error -1"},
        {"negative number that does not fit", -1, 8, "Unkown "},
        {"no error", 0, 100, "Success"},
    };
    for (const TextRow& row : rows) {
        SCOPED_TRACE(row.name);
        support::Buffer buffer(row.size);
        EXPECT_EQ(ZKQGeneral_GetSystemErrorInfoString(row.number, buffer.Data(), row.size), TRUE);
        // The table's system texts are those of the C locale; strerror() decides.
        const bool fallback = ExpectedText(row.number, row.size) != SystemText(row.number);
        EXPECT_EQ(buffer.Text(), fallback ? row.expected : SystemText(row.number));
        EXPECT_TRUE(buffer.GuardIntact());
    }
}

TEST(SystemErrorText, SizeZeroWritesNothing)
{
    support::Buffer buffer(0);
    EXPECT_EQ(ZKQGeneral_GetSystemErrorInfoString(EINVAL, buffer.Data(), 0), TRUE);
    EXPECT_TRUE(buffer.Untouched());
    EXPECT_EQ(ZKQGeneral_GetSystemErrorInfoString(EINVAL, nullptr, 0), TRUE);
}

TEST(SystemErrorText, NullBufferIsSurvived)
{
    EXPECT_EQ(ZKQGeneral_GetSystemErrorInfoString(EINVAL, nullptr, 100), TRUE);
}

TEST(SystemErrorText, SizesAreComparedInSixtyFourBits)
{
    for (DWORD size : {DWORD{1} << 31, DWORD{1} << 32, (DWORD{1} << 32) + 3, ULONG_MAX}) {
        SCOPED_TRACE(size);
        support::Buffer buffer(SystemText(ENOENT).size() + 1);
        EXPECT_EQ(ZKQGeneral_GetSystemErrorInfoString(ENOENT, buffer.Data(), size), TRUE);
        EXPECT_EQ(buffer.Text(), SystemText(ENOENT));
        EXPECT_TRUE(buffer.GuardIntact());
    }
}

TEST(SystemErrorText, LeavesTheErrorText)
{
    char buffer[100];
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetSystemErrorInfoString(EINVAL, buffer, sizeof buffer), TRUE);
    EXPECT_EQ(ZKQGeneral_GetSystemErrorInfoString(EINVAL, buffer, 3), TRUE);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(FreeMallocBuffer, IgnoresNull)
{
    support::MarkErrorText();
    ZKQGeneral_FreeMallocBuffer(nullptr);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(FreeMallocBuffer, ReleasesWhatTheLibraryHandsOut)
{
    support::TempDir dir;
    support::WriteFile(dir.File("f"), "content");
    unsigned char* content = nullptr;
    ASSERT_EQ(ZKQGeneral_GetFileContent(dir.File("f").c_str(), &content, nullptr), TRUE);
    ZKQGeneral_FreeMallocBuffer(content);
}

TEST(FreeMallocBuffer, IsTheHeapsFree)
{
    support::ExpectNothingLeaks([] { ZKQGeneral_FreeMallocBuffer(malloc(10)); });
}

} // namespace
