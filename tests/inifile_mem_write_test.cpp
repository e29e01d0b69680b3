// Writing into and deleting from profile texts in memory: dropped blank lines, the capacity of the new text, and what a
// failure leaves.
#include <ZKQ_general/error.h>
#include <ZKQ_general/inifile.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>

#include "support/error_text.h"
#include "support/profile_rows.h"

namespace {

constexpr size_t kMaxLine = 4095;
constexpr int kUnset = -12345;

// What an operation hands out.
struct Output {
    BOOL result = FALSE;
    bool has_text = false;
    std::string text;
    int length = kUnset;

    void Take(char* buffer)
    {
        has_text = buffer != nullptr;
        if (has_text)
            text = buffer;
        ZKQGeneral_FreeMallocBuffer(buffer);
    }
};

Output Write(const std::string& text, const char* section, const char* key, const char* value)
{
    Output output;
    char* buffer = nullptr;
    const std::string input = text;
    output.result =
        ZKQGeneral_WritePrivateProfileString_Mem(input.c_str(), section, key, value, &buffer, &output.length);
    EXPECT_EQ(input, text) << "the input text is never changed";
    output.Take(buffer);
    return output;
}

Output Delete(const std::string& text, const char* section)
{
    Output output;
    char* buffer = nullptr;
    const std::string input = text;
    output.result = ZKQGeneral_DeletePrivateProfileSection_Mem(section, input.c_str(), &buffer, &output.length);
    EXPECT_EQ(input, text) << "the input text is never changed";
    output.Take(buffer);
    return output;
}

void ExpectSuccess(const Output& output, const std::string& text)
{
    EXPECT_EQ(output.result, TRUE) << support::ErrorText();
    EXPECT_TRUE(output.has_text);
    EXPECT_EQ(output.text, text);
    EXPECT_EQ(output.length, static_cast<int>(text.size()) + 1) << "the NUL is counted";
}

void ExpectFailure(const Output& output, int error, const std::string& partial)
{
    EXPECT_EQ(output.result, FALSE);
    EXPECT_SYSTEM_ERROR(error);
    EXPECT_TRUE(output.has_text);
    EXPECT_EQ(output.text, partial);
    EXPECT_EQ(output.length, kUnset) << "the length is not set after a failure";
}

const support::WriteRow kWriteRows[] = {
    {"blank lines are dropped", "\n[S]\n\nk=1\n\n\n[T]\nx=2\n\n", "S", "k", "9", "[S]\nk = 9\n[T]\nx=2\n"},
    {"lines of carriage returns alone too", "[S]\r\n\r\nk=1\r\n", "S", "k", "9", "[S]\nk = 9\n"},
    {"lines of blanks are kept", "[S]\n  \nk=1\n", "S", "k", "9", "[S]\n  \nk = 9\n"},
    {"new key before the next header", "[S]\nk=1\n\n[T]\nx=2\n", "S", "n", "5", "[S]\nk=1\nn = 5\n[T]\nx=2\n"},
    {"new key at the end", "[S]\nk=1", "S", "n", "5", "[S]\nk=1\nn = 5\n"},
    {"new section", "[S]\nk=1\n", "T", "n", "5", "[S]\nk=1\n[T]\nn = 5\n"},
    {"new section in an empty text", "", "A", "k", "v", "[A]\nk = v\n"},
    {"section without a name in an empty text", "", "", "k", "v", "k = v\n"},
    {"null section is the one without a name", "a=1\n[S]\n", nullptr, "k", "v", "a=1\nk = v\n[S]\n"},
    {"null section in an empty text", "", nullptr, "k", "v", "k = v\n"},
    {"null section, key there", "k=1\n[S]\nk=2\n", nullptr, "k", "v", "k = v\n[S]\nk=2\n"},
    {"key as the text spells it", "[S]\n Key =1\n", "s", "KEY", "9", "[S]\nKey = 9\n"},
    {"duplicates stay", "[S]\nk=1\nk=2\n", "S", "k", "9", "[S]\nk = 9\nk=2\n"},
    {"a later section of that name is rewritten again", "[S]\nk=1\n[S]\nk=2\n", "S", "k", "9",
     "[S]\nk = 9\n[S]\nk = 9\n"},
    {"comments are copied", ";a\n[S]\n#b\n;k=1\n", "S", "k", "9", ";a\n[S]\n#b\n;k=1\nk = 9\n"},
    {"a blank line replaced", "[S]\n\na=1\n", "S", "", "9", "[S]\n = 9\na=1\n"},
    {"deleted", "[S]\nk=1\nx=2\n", "S", "k", nullptr, "[S]\nx=2\n"},
    {"deleted with null section", "k=1\nx=2\n", nullptr, "k", nullptr, "x=2\n"},
    {"deletion of a key that is not there drops blank lines", "[S]\n\nx=2\n", "S", "k", nullptr, "[S]\nx=2\n"},
    {"deletion from an empty text", "", "S", "k", nullptr, ""},
    {"deletion of all there is", "k=1\n", "", "k", nullptr, ""},
};

TEST(ProfileTextWrite, Table)
{
    for (const support::WriteRow& row : kWriteRows) {
        SCOPED_TRACE(row.name);
        support::MarkErrorText();
        ExpectSuccess(Write(row.before, row.section, row.key, row.value), row.after);
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }
}

TEST(ProfileTextWrite, AHeaderWithoutItsEndFailsWithWhatWasWritten)
{
    support::MarkErrorText();
    ExpectFailure(Write("[S]\nk=1\n[bad\nx=1\n", "S", "k", "9"), EINVAL, "[S]\nk = 9\n");
    support::MarkErrorText();
    ExpectFailure(Write("[", "S", "k", "9"), EINVAL, "");
    support::MarkErrorText();
    ExpectFailure(Write("[S]\nk=1\n[bad\r]\n", "S", "k", nullptr), EINVAL, "[S]\n");
    support::MarkErrorText();
    ExpectFailure(Delete("[S]\nk=1\n[T]\nx=1\n[bad\n", "S"), EINVAL, "[T]\nx=1\n");
}

// The new text may grow by the names, the value and 64 bytes, and three bytes more than a line's must be free. Each
// section of the same name makes the text grow by the value.
TEST(ProfileTextWrite, CapacityOfManyReplacements)
{
    const std::string section = "[S]\nk\n";
    const std::string replaced_by = "[S]\nk = ";
    for (size_t value_length : {0U, 1U, 10U, 20U, 30U, 33U, 64U, 100U, 1000U}) {
        for (size_t count = 1; count <= 24; ++count) {
            SCOPED_TRACE(std::to_string(count) + " sections, value of " + std::to_string(value_length));
            const std::string value(value_length, 'v');
            std::string text;
            std::string expected;
            for (size_t i = 0; i < count; ++i)
                text += section;
            const size_t capacity = text.size() + 1 + 1 + value_length + 64;
            bool room = true;
            for (size_t i = 0; i < count && room; ++i) {
                const std::string lines[] = {"[S]", "k = " + value};
                for (const std::string& line : lines) {
                    room = room && expected.size() + line.size() + 3 <= capacity;
                    expected += room ? line + "\n" : "";
                }
            }
            support::MarkErrorText();
            const Output output = Write(text, "S", "k", value.c_str());
            if (room)
                ExpectSuccess(output, expected);
            else
                ExpectFailure(output, ENOMEM, expected);
        }
    }
}

TEST(ProfileTextWrite, CapacityToTheByte)
{
    // Two replacements of a one-byte entry: 2 * ("k = " + value + "\n") against 4 + 2 + value + 64.
    for (size_t value_length : {55U, 56U, 57U, 58U, 59U, 60U, 61U, 62U}) {
        SCOPED_TRACE(value_length);
        const std::string line = "k = " + std::string(value_length, 'v');
        const bool fits = line.size() + 1 + line.size() + 3 <= 4 + 0 + 1 + value_length + 64;
        support::MarkErrorText();
        const Output output = Write("k\nk\n", "", "k", line.substr(4).c_str());
        if (fits)
            ExpectSuccess(output, line + "\n" + line + "\n");
        else
            ExpectFailure(output, ENOMEM, line + "\n");
    }
}

TEST(ProfileTextWrite, LongLines)
{
    const std::string fits = "[S]\nk=" + std::string(kMaxLine - 2, 'v') + "\n";
    ExpectSuccess(Write(fits, "S", "n", "1"), fits + "n = 1\n");
    for (const char* value : {static_cast<const char*>("9"), static_cast<const char*>(nullptr)}) {
        support::MarkErrorText();
        const Output output = Write("[S]\nk=v" + fits.substr(6), "S", "n", value);
        EXPECT_EQ(output.result, FALSE);
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_EQ(output.length, kUnset);
    }
    support::MarkErrorText();
    const Output output = Delete("[S]\nk=v" + fits.substr(6), "T");
    EXPECT_EQ(output.result, FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(output.length, kUnset);
}

TEST(ProfileTextWrite, NullArguments)
{
    const auto expect_einval = [](const Output& output) {
        EXPECT_EQ(output.result, FALSE);
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_FALSE(output.has_text);
        EXPECT_EQ(output.length, kUnset);
        support::MarkErrorText();
    };
    support::MarkErrorText();
    expect_einval(Write("[S]\n", "S", nullptr, "v"));
    expect_einval(Write("[S]\n", "S", nullptr, nullptr));
    char* buffer = nullptr;
    int length = 0;
    const auto expect_false = [](BOOL result) {
        EXPECT_EQ(result, FALSE);
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
    };
    expect_false(ZKQGeneral_WritePrivateProfileString_Mem(nullptr, "S", "k", "v", &buffer, &length));
    expect_false(ZKQGeneral_WritePrivateProfileString_Mem("", "S", "k", "v", nullptr, &length));
    expect_false(ZKQGeneral_DeletePrivateProfileSection_Mem("S", nullptr, &buffer, &length));
    expect_false(ZKQGeneral_DeletePrivateProfileSection_Mem("S", "", nullptr, &length));
    EXPECT_EQ(buffer, nullptr);
}

// --- deleting sections ---

struct DeleteRow {
    const char* name;
    const char* before;
    const char* section;
    int error;
    const char* after; // after a failure: what had been written
};

const DeleteRow kDeleteRows[] = {
    {"header and entries go", "[S]\nk=1\n[T]\nx=2\n", "s", 0, "[T]\nx=2\n"},
    {"all there is", "[S]\nk=1\n", "S", 0, ""},
    {"empty text", "", "S", 0, ""},
    {"comments inside stay", "[S]\n#b\nk=1\n;c\n[T]\n", "S", 0, "#b\n;c\n[T]\n"},
    {"blank lines are dropped", "\n[S]\nk=1\n\n[T]\n\nx=2\n", "S", 0, "[T]\nx=2\n"},
    {"every section of that name", "[S]\na=1\n[T]\nb=2\n[s]\nc=3\n", "S", 0, "[T]\nb=2\n"},
    {"the lines before the first header", "k=1\nx=2\n[S]\na=1\n", "", 0, "[S]\na=1\n"},
    {"null means the same", "k=1\nx=2\n[S]\na=1\n", nullptr, 0, "[S]\na=1\n"},
    {"a header with an empty name goes as well", "k=1\n[S]\na=1\n[]\nb=1\n", "", 0, "[S]\na=1\n"},
    {"no such section, no room for the last line", "[S]\nk=1\n", "T", ENOMEM, "[S]\n"},
    {"one line, no room", "k=1\n", "S", ENOMEM, ""},
    {"one byte less makes the room", "[S]\n\nk=1\n", "T", 0, "[S]\nk=1\n"},
    {"so does a carriage return", "[S]\r\nk=1\n", "T", 0, "[S]\nk=1\n"},
    {"a missing last line feed takes room", "[S]\n\nk=1", "T", ENOMEM, "[S]\n"},
    {"two blank lines pay for it", "[S]\n\n\nk=1", "T", 0, "[S]\nk=1\n"},
    {"what failed is behind what was kept", "[S]\na\n[T]\nlonger=1", "U", ENOMEM, "[S]\na\n[T]\n"},
    {"a section deleted makes the room", "[S]\n[T]\n", "T", 0, "[S]\n"},
    {"an empty section name", "[]\nk=1\n[S]\n", "", 0, "[S]\n"},
    {"an empty header at the end", "[S]\nk=1\n[]", "", 0, "[S]\nk=1\n"},
    {"the shortest entry deleted", "a\n[S]\n", nullptr, 0, "[S]\n"},
};

TEST(ProfileTextDelete, Table)
{
    for (const DeleteRow& row : kDeleteRows) {
        SCOPED_TRACE(row.name);
        support::MarkErrorText();
        const Output output = Delete(row.before, row.section);
        if (row.error == 0) {
            ExpectSuccess(output, row.after);
            EXPECT_TRUE(support::ErrorTextIsMarked());
        } else {
            ExpectFailure(output, row.error, row.after);
        }
    }
}

} // namespace
