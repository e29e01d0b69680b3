// Profile texts in memory: values, integers and lists with every size of buffer, writing with its capacity.
#include <ZKQ_general/error.h>
#include <ZKQ_general/inifile.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <locale.h>

#include <algorithm>
#include <string>

#include "support/buffer.h"
#include "support/error_text.h"
#include "support/profile_rows.h"

namespace {

using namespace std::string_literals;

constexpr size_t kMaxLine = 4095;
constexpr const char* kMissing = "missing";

std::string Get(const char* text, const char* section, const char* key, size_t size = 5000)
{
    support::Buffer buffer(size);
    const DWORD length = ZKQGeneral_GetPrivateProfileString_Mem(section, key, kMissing, buffer.Data(), size, text);
    EXPECT_TRUE(buffer.GuardIntact());
    EXPECT_EQ(length, size == 0 ? 0 : buffer.Text().size());
    return buffer.Text();
}

// --- reading values ---

const support::ReadRow kReadRows[] = {
    {"names without regard to case, first match wins", "[S]\nk=1\nK = 2\n", "s", "k", "1"},
    {"section in other case", "[abC]\nk=1\n", "ABc", "k", "1"},
    {"trimmed at both ends", "[S]\n  k  =  a b  \n", "S", "k", "a b"},
    {"tabs are kept", "[S]\nk=\ta\t\n", "S", "k", "\ta\t"},
    {"tabs belong to the key", "[S]\n\tk=1\n", "S", "k", kMissing},
    {"the first sign divides", "[S]\nk=a=b=\n", "S", "k", "a=b="},
    {"no sign: empty value", "[S]\nk\n", "S", "k", ""},
    {"empty value", "[S]\nk=\n", "S", "k", ""},
    {"blank value", "[S]\nk=   \n", "S", "k", ""},
    {"empty key", "[S]\n= v\n", "S", "", "v"},
    {"a blank line is an entry without a key", "[S]\n\n=v\n", "S", "", ""},
    {"no quoting", "[S]\nk=\"a b\"\n", "S", "k", "\"a b\""},
    {"no escape", "[S]\nk=a\\nb\n", "S", "k", "a\\nb"},
    {"no comment within a line", "[S]\nk=a ;b #c\n", "S", "k", "a ;b #c"},
    {"no continuation", "[S]\nk=a\\\nb=c\n", "S", "k", "a\\"},
    {"comments are not skipped", "[S]\n#k=1\n", "S", "#k", "1"},
    {"nor those with a semicolon", "[S]\n;k=1\n", "S", ";k", "1"},
    {"a comment is not the key behind it", "[S]\n#k=1\n", "S", "k", kMissing},
    {"section of the lines before the first header", "k=1\n[S]\nk=2\n", "", "k", "1"},
    {"a header with an empty name", "[S]\nk=1\n[]\nk=2\n", "", "k", "2"},
    {"not in this section", "[S]\nk=1\n[T]\nx=2\n", "T", "k", kMissing},
    {"no such section", "[S]\nk=1\n", "T", "k", kMissing},
    {"an earlier section of that name without the key", "[S]\na=1\n[T]\nk=2\n[s]\nk=3\n", "S", "k", "3"},
    {"the name is not trimmed", "[ a ]\nk=1\n", "a", "k", kMissing},
    {"the name is what stands between the brackets", "[ a ]\nk=1\n", " a ", "k", "1"},
    {"the name ends at the first bracket", "[a]b]\nk=1\n", "a", "k", "1"},
    {"brackets open once", "[[a]\nk=1\n", "[a", "k", "1"},
    {"what follows the bracket is ignored", "[a] rest = x\nk=1\n", "a", "k", "1"},
    {"a header starts in the first column", "[S]\n [T]\nk=1\n", "S", "k", "1"},
    {"a header behind a blank is an entry", "[S]\n [T]=x\n", "S", "[T]", "x"},
    {"a line is cut at its carriage return", "[S]\r\nk=1\r\n", "S", "k", "1"},
    {"wherever it stands", "[S]\nk=1\r2\n", "S", "k", "1"},
    {"even in front", "[S]\n\rk=1\n", "S", "k", kMissing},
    {"last line without line feed", "[S]\nk=1", "S", "k", "1"},
    {"empty text", "", "S", "k", kMissing},
    {"only line feeds", "\n\n\n", "", "k", kMissing},
    {"the asked key is not trimmed", "[S]\nk=1\n", "S", "k ", kMissing},
    {"the asked section is not trimmed", "[S]\nk=1\n", " S", "k", kMissing},
    {"a key is compared whole", "[S]\nkey=1\n", "S", "k", kMissing},
    {"and not beyond", "[S]\nk=1\n", "S", "key", kMissing},
    {"values as stored", "[S]\nk=VaLuE \xD6\xD0\n", "S", "k", "VaLuE \xD6\xD0"},
    {"case of letters alone", "[S]\n@[`=1\n", "S", "`{`", kMissing},
    {"case of ASCII alone", "[S]\n\xC4=1\n", "S", "\xE4", kMissing},
    {"null section is the one without a name", "k=1\n[S]\nk=2\n", nullptr, "k", "1"},
};

TEST(ProfileText, ReadTable)
{
    for (const support::ReadRow& row : kReadRows) {
        SCOPED_TRACE(row.name);
        support::MarkErrorText();
        EXPECT_EQ(Get(row.text, row.section, row.key), row.expected);
        EXPECT_TRUE(support::ErrorTextIsMarked());
    }
}

TEST(ProfileText, ReadTableInOtherLocales)
{
    for (const char* locale : {"C.UTF-8", "tr_TR.UTF-8", "tr_TR.ISO-8859-9", "de_DE.ISO-8859-1", "en_US.ISO-8859-1"}) {
        if (setlocale(LC_ALL, locale) == nullptr)
            continue;
        SCOPED_TRACE(locale);
        EXPECT_EQ(Get("[TITLE]\nIi=1\n", "title", "iI"), "1");
        EXPECT_EQ(Get("[S]\n\xC4=1\n", "S", "\xE4"), kMissing);
    }
    setlocale(LC_ALL, "C");
}

TEST(ProfileText, BufferSizesOfValueAndDefault)
{
    for (size_t size = 0; size <= 9; ++size) {
        SCOPED_TRACE(size);
        const size_t room = size == 0 ? 0 : size - 1;
        EXPECT_EQ(Get("[S]\nk=value\n", "S", "k", size), "value"s.substr(0, room));
        EXPECT_EQ(Get("[S]\nk=\n", "S", "k", size), "");
        EXPECT_EQ(Get("[S]\nk=value\n", "S", "x", size), "missing"s.substr(0, room));
        EXPECT_EQ(Get("[S\nk=value\n", "S", "k", size), "missing"s.substr(0, room));
    }
}

TEST(ProfileText, SizeZeroWritesNothing)
{
    support::Buffer buffer(0);
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileString_Mem("S", "k", "d", buffer.Data(), 0, "[S]\nk=1\n"), 0U);
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileString_Mem("S", "x", "d", buffer.Data(), 0, "[S]\nk=1\n"), 0U);
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileSectionNames_Mem(buffer.Data(), 0, "[S]\nk=1\n"), 0U);
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileItemNames_Mem("S", buffer.Data(), 0, "[S]\nk=1\n"), 0U);
    EXPECT_TRUE(buffer.Untouched());
}

TEST(ProfileText, SizesAboveTheRangeOfInt)
{
    for (DWORD size : {DWORD{INT_MAX}, DWORD{1} << 31, DWORD{1} << 32, (DWORD{1} << 32) + 2, ULONG_MAX}) {
        SCOPED_TRACE(size);
        support::Buffer value(6);
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileString_Mem("S", "k", "d", value.Data(), size, "[S]\nk=value\n"), 5U);
        EXPECT_EQ(value.Text(), "value");
        support::Buffer list(4);
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileSectionNames_Mem(list.Data(), size, "[ab]\n"), 3U);
        EXPECT_EQ(list.Bytes(), "ab\0\0"s);
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileItemNames_Mem("ab", list.Data(), size, "[ab]\nxy=1\n"), 3U);
        EXPECT_EQ(list.Bytes(), "xy\0\0"s);
        EXPECT_TRUE(value.GuardIntact() && list.GuardIntact());
    }
}

TEST(ProfileText, AHeaderWithoutItsEndGivesTheDefault)
{
    support::MarkErrorText();
    EXPECT_EQ(Get("[S]\nk=1\n[T\nx=2\n", "S", "k"), "1") << "what stands before it is found";
    EXPECT_TRUE(support::ErrorTextIsMarked());
    for (const char* text : {"[S\nk=1\n", "[S\r]\nk=1\n", "[S]\n[\nk=1\n", "[", "[S]\nx=1\n[T\n[S]\nk=1\n"}) {
        SCOPED_TRACE(text);
        support::MarkErrorText();
        EXPECT_EQ(Get(text, "S", "k"), kMissing);
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
}

// --- integers ---

TEST(ProfileText, IntegerTable)
{
    struct Row {
        const char* value;
        UINT expected;
    };
    const Row rows[] = {
        {"12", 12},
        {" 12 ", 12},
        {"12abc", 12},
        {"abc", 0},
        {"0x10", 0},
        {"010", 10},
        {"-1", 4294967295U},
        {"- 1", 0},
        {"+7", 7},
        {"", 4242},
        {"   ", 4242},
        {"\t", 0},
        {"\t5", 5},
        {"1 2", 1},
        {"2147483647", 2147483647U},
        {"2147483648", 2147483648U},
        {"4294967295", 4294967295U},
        {"4294967296", 0},
        {"4294967301", 5},
        {"-2147483648", 2147483648U},
        {"-2147483649", 2147483647U},
        {"99999999999999999999", 4294967295U},
        {"-99999999999999999999", 0},
        {"1.9", 1},
        {"=5", 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        const std::string text = "[S]\nk=" + std::string(row.value) + "\n";
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileInt_Mem("S", "k", 4242, text.c_str()), row.expected);
    }
}

TEST(ProfileText, IntegerDefaults)
{
    for (INT number : {0, 5, -1, INT_MAX, INT_MIN}) {
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileInt_Mem("S", "x", number, "[S]\nk=1\n"), static_cast<UINT>(number));
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileInt_Mem("S", "k", number, "[S]\nk\n"), static_cast<UINT>(number));
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileInt_Mem("S", "k", number, "[S\nk=1\n"), static_cast<UINT>(number));
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileInt_Mem(nullptr, "k", 0, "k=6\n"), 6U);
}

TEST(ProfileText, IntegerBehindManyZeros)
{
    const std::string text = "[S]\nk=" + std::string(4000, '0') + "17\n";
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileInt_Mem("S", "k", 1, text.c_str()), 17U);
}

// --- lists ---

struct ListRow {
    const char* name;
    const char* text;
    const char* section; // null: lists the sections
    size_t size;
    std::string expected; // without the final NUL
};

const ListRow kListRows[] = {
    {"sections in a buffer with a byte to spare", "[a]\n[b]\n", nullptr, 6, "a\0b\0"s},
    {"sections in a buffer that just holds them", "[a]\n[b]\n", nullptr, 5, "a\0b\0"s},
    {"the second name is cut to nothing", "[a]\n[b]\n", nullptr, 4, "a\0\0"s},
    {"no room for the second name's NUL", "[a]\n[b]\n", nullptr, 3, "a\0"s},
    {"the first name is cut to nothing", "[a]\n[b]\n", nullptr, 2, "\0"s},
    {"room for the final NUL alone", "[a]\n[b]\n", nullptr, 1, ""s},
    {"a name is cut", "[abcdef]\n[b]\n", nullptr, 6, "abcd\0"s},
    {"a cut name ends the list", "[ab]\n[cdefgh]\n[i]\n", nullptr, 8, "ab\0cde\0"s},
    {"duplicates as often as they occur", "[a]\n[b]\n[A]\n[a]\n", nullptr, 100, "a\0b\0A\0a\0"s},
    {"names are not trimmed", "[ a ] x\n[b]c]\n [d]\n;[e]\n#[f]\n", nullptr, 100, " a \0b\0"s},
    {"an empty name", "[a]\n[]\n[b]\n", nullptr, 100, "a\0\0b\0"s},
    {"an empty name needs its NUL", "[a]\n[]\n", nullptr, 4, "a\0\0"s},
    {"no sections", "k=1\n", nullptr, 100, ""s},
    {"carriage returns", "[a]\r\n[b]\r\n", nullptr, 100, "a\0b\0"s},
    {"keys", "[S]\na=1\n b =2\nc\n[T]\nd=4\n", "s", 100, "a\0b\0c\0"s},
    {"keys of all sections of that name", "[S]\na=1\n[T]\nb=1\n[s]\nc=1\n", "S", 100, "a\0c\0"s},
    {"keys before the first header", "a=1\n[S]\nb=1\n", "", 100, "a\0"s},
    {"comments and blank lines are no keys", "[S]\n#a=1\n;b=1\n\n\r\nc=1\n", "S", 100, "c\0"s},
    {"a comment behind a blank is a key", "[S]\n #a=1\n", "S", 100, "#a\0"s},
    {"empty keys are listed", "[S]\n=1\n   \na\n", "S", 100, "\0\0a\0"s},
    {"duplicate keys", "[S]\na=1\nA=2\na=3\n", "S", 100, "a\0A\0a\0"s},
    {"keys in a buffer that just holds them", "[S]\na=1\nb=1\n", "S", 5, "a\0b\0"s},
    {"a key is cut", "[S]\nabc=1\nb=1\n", "S", 4, "ab\0"s},
    {"keys: no room for the second", "[S]\na=1\nb=1\n", "S", 3, "a\0"s},
    {"no such section", "[S]\na=1\n", "T", 100, ""s},
};

TEST(ProfileText, ListTable)
{
    for (const ListRow& row : kListRows) {
        SCOPED_TRACE(row.name);
        support::Buffer buffer(row.size);
        support::MarkErrorText();
        const DWORD used =
            row.section == nullptr
                ? ZKQGeneral_GetPrivateProfileSectionNames_Mem(buffer.Data(), row.size, row.text)
                : ZKQGeneral_GetPrivateProfileItemNames_Mem(row.section, buffer.Data(), row.size, row.text);
        EXPECT_TRUE(support::ErrorTextIsMarked());
        EXPECT_EQ(used, row.expected.size());
        EXPECT_EQ(buffer.Bytes().substr(0, used + 1), row.expected + '\0');
        EXPECT_TRUE(buffer.GuardIntact());
    }
}

TEST(ProfileText, ListsEndUnterminatedAtAHeaderWithoutItsEnd)
{
    support::Buffer buffer(20);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileSectionNames_Mem(buffer.Data(), 20, "[ab]\n[c]\n[d\n[e]\n"), 0U);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(buffer.Bytes().substr(0, 6), "ab\0c\0"s + support::Buffer::kFill);
    support::Buffer items(20);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileItemNames_Mem("S", items.Data(), 20, "[S]\nab=1\n[d\nc=1\n"), 0U);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(items.Bytes().substr(0, 4), "ab\0"s + support::Buffer::kFill);
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileItemNames_Mem("T", items.Data(), 20, "[S]\nab=1\n[d\nc=1\n"), 0U);
}

TEST(ProfileText, AListThatIsFullDoesNotReachTheBadHeader)
{
    support::Buffer buffer(4);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileSectionNames_Mem(buffer.Data(), 4, "[abcd]\n[d\n"), 3U);
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_EQ(buffer.Bytes(), "ab\0\0"s);
}

TEST(ProfileText, ANullSectionListsTheKeysBeforeTheFirstHeader)
{
    support::Buffer buffer(20);
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileItemNames_Mem(nullptr, buffer.Data(), 20, "a=1\n[S]\nb=1\n"), 2U);
    EXPECT_EQ(buffer.Bytes().substr(0, 3), "a\0\0"s);
}

// --- long lines ---

TEST(ProfileText, LongLines)
{
    const std::string fits = "k=" + std::string(kMaxLine - 2, 'v');
    const std::string text = "[S]\na=1\n" + fits + "v\nb=1\n";
    EXPECT_EQ(Get(("[S]\n" + fits + "\n").c_str(), "S", "k"), fits.substr(2));
    EXPECT_EQ(Get(text.c_str(), "S", "a"), "1");
    support::MarkErrorText();
    EXPECT_EQ(Get(text.c_str(), "S", "b"), kMissing);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(Get(text.c_str(), "S", "k"), kMissing);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::Buffer buffer(100);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileSectionNames_Mem(buffer.Data(), 100, text.c_str()), 0U);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileItemNames_Mem("S", buffer.Data(), 100, text.c_str()), 0U);
    EXPECT_SYSTEM_ERROR(EINVAL);
}

TEST(ProfileText, ALastLineWithoutItsLineFeedIsCut)
{
    for (size_t length : {4093U, 4094U, 4095U}) {
        const std::string text = "[S]\nk=" + std::string(length - 2, 'v');
        EXPECT_EQ(Get(text.c_str(), "S", "k"), std::string(std::min(length, size_t{4094}) - 2, 'v')) << length;
    }
}

// --- null arguments ---

TEST(ProfileText, NullArguments)
{
    support::Buffer buffer(20);
    const auto expect_einval = [](auto result, auto failure) {
        EXPECT_EQ(result, failure);
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
    };
    support::MarkErrorText();
    expect_einval(ZKQGeneral_GetPrivateProfileInt_Mem("S", nullptr, 5, "[S]\n"), 5U);
    expect_einval(ZKQGeneral_GetPrivateProfileInt_Mem("S", "k", 5, nullptr), 5U);
    expect_einval(ZKQGeneral_GetPrivateProfileSectionNames_Mem(buffer.Data(), 20, nullptr), 0U);
    expect_einval(ZKQGeneral_GetPrivateProfileSectionNames_Mem(nullptr, 20, "[S]\n"), 0U);
    expect_einval(ZKQGeneral_GetPrivateProfileItemNames_Mem("S", buffer.Data(), 20, nullptr), 0U);
    expect_einval(ZKQGeneral_GetPrivateProfileItemNames_Mem("S", nullptr, 20, "[S]\n"), 0U);
    EXPECT_TRUE(buffer.GuardIntact());
}

TEST(ProfileText, NullArgumentsOfTheReader)
{
    char buffer[20] = "";
    const auto expect_einval = [&](DWORD result) {
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_TRUE(result == 0 || (result == 1 && buffer[0] == 'd')) << "nothing, or the default";
        support::MarkErrorText();
    };
    support::MarkErrorText();
    expect_einval(ZKQGeneral_GetPrivateProfileString_Mem("S", nullptr, "d", buffer, sizeof buffer, "[S]\nk=1\n"));
    expect_einval(ZKQGeneral_GetPrivateProfileString_Mem("S", "k", "d", nullptr, sizeof buffer, "[S]\nk=1\n"));
    expect_einval(ZKQGeneral_GetPrivateProfileString_Mem("S", "k", "d", buffer, sizeof buffer, nullptr));
}

TEST(ProfileText, ANullDefaultIsRefused)
{
    char buffer[20] = "";
    for (const char* key : {"none", "k"}) {
        SCOPED_TRACE(key);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileString_Mem("S", key, nullptr, buffer, sizeof buffer, "[S]\nk=1\n"), 0U);
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
}

} // namespace
