// Trimming and bounded copying of texts.
#include <ZKQ_general/inifile.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <string>

#include "support/buffer.h"
#include "support/error_text.h"

namespace {

std::string Trimmed(const std::string& text, int flag)
{
    // Blanks in front of the text are none of the function's business.
    constexpr size_t kFront = 8;
    support::Buffer buffer(kFront + text.size() + 1);
    memset(buffer.Data(), ' ', kFront);
    memcpy(buffer.Data() + kFront, text.c_str(), text.size() + 1);
    ZKQGeneral_TrimString(buffer.Data() + kFront, flag);
    EXPECT_TRUE(buffer.GuardIntact());
    EXPECT_EQ(buffer.Bytes().substr(0, kFront), std::string(kFront, ' '));
    return buffer.Data() + kFront;
}

struct TrimRow {
    const char* text;
    const char* leading;  // flag 1
    const char* trailing; // flag 2
    const char* all;      // flag 0
};

TEST(TrimString, Table)
{
    const TrimRow rows[] = {
        {"", "", "", ""},
        {" ", "", "", ""},
        {"     ", "", "", ""},
        {"a", "a", "a", "a"},
        {" a", "a", " a", "a"},
        {"a ", "a ", "a", "a"},
        {"   a   ", "a   ", "   a", "a"},
        {" a b  c ", "a b  c ", " a b  c", "abc"},
        {"a b", "a b", "a b", "ab"},
        {"\ta\t", "\ta\t", "\ta\t", "\ta\t"},
        {" \t a \n ", "\t a \n ", " \t a \n", "\ta\n"},
        {"\xA0 x \xA0", "\xA0 x \xA0", "\xA0 x \xA0", "\xA0x\xA0"},
    };
    for (const TrimRow& row : rows) {
        SCOPED_TRACE('"' + std::string(row.text) + '"');
        EXPECT_EQ(Trimmed(row.text, 1), row.leading);
        EXPECT_EQ(Trimmed(row.text, 2), row.trailing);
        EXPECT_EQ(Trimmed(row.text, 0), row.all);
    }
}

TEST(TrimString, OtherFlagsDoNothing)
{
    for (int flag : {-1, 3, 4, 100, INT_MAX, INT_MIN})
        EXPECT_EQ(Trimmed("  a b  ", flag), "  a b  ") << flag;
}

TEST(TrimString, NullIsIgnored)
{
    support::MarkErrorText();
    for (int flag : {0, 1, 2, 3})
        ZKQGeneral_TrimString(nullptr, flag);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST(TrimString, LongTexts)
{
    const std::string blanks(100000, ' ');
    const std::string letters(100000, 'x');
    EXPECT_EQ(Trimmed(blanks + letters + blanks, 1), letters + blanks);
    EXPECT_EQ(Trimmed(blanks + letters + blanks, 2), blanks + letters);
    EXPECT_EQ(Trimmed(blanks + letters + blanks + letters, 0), letters + letters);
}

TEST(BoundedCopy, Table)
{
    for (size_t length : {0U, 1U, 4U, 5U, 6U, 100U}) {
        for (int size : {1, 2, 4, 5, 6, 7, 101}) {
            SCOPED_TRACE(std::to_string(length) + " into " + std::to_string(size));
            const std::string text(length, 'x');
            support::Buffer buffer(static_cast<size_t>(size));
            strncpy_WQX(buffer.Data(), text.c_str(), size);
            EXPECT_TRUE(buffer.GuardIntact());
            EXPECT_EQ(buffer.Text(), text.substr(0, static_cast<size_t>(size) - 1));
        }
    }
}

TEST(BoundedCopy, NothingBehindTheNulIsWritten)
{
    support::Buffer buffer(10);
    strncpy_WQX(buffer.Data(), "ab", 10);
    EXPECT_EQ(buffer.Bytes(), std::string("ab\0", 3) + std::string(7, support::Buffer::kFill));
}

TEST(BoundedCopy, NoRoomWritesNothing)
{
    for (int size : {0, -1, INT_MIN}) {
        support::Buffer buffer(0);
        strncpy_WQX(buffer.Data(), "text", size);
        EXPECT_TRUE(buffer.Untouched()) << size;
    }
}

TEST(BoundedCopy, NullTexts)
{
    support::Buffer buffer(5);
    strncpy_WQX(buffer.Data(), nullptr, 5);
    EXPECT_EQ(buffer.Text(), "");
    strncpy_WQX(nullptr, "text", 5);
    strncpy_WQX(nullptr, nullptr, 5);
}

TEST(BoundedCopy, ASourceWithoutNulIsReadNoFurtherThanTheSize)
{
    const std::string source(8, 'x');
    char exact[8];
    memcpy(exact, source.data(), sizeof exact);
    support::Buffer buffer(8);
    strncpy_WQX(buffer.Data(), exact, 8);
    EXPECT_EQ(buffer.Text(), "xxxxxxx");
}

} // namespace
