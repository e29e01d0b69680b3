// The profile functions and the line splitter against a second model of their rules, on many small generated cases.
//
// The alphabet is tiny so that rules collide. ZKQ_TEST_SEED and ZKQ_TEST_CASES in the environment change the run.
#include <ZKQ_general/error.h>
#include <ZKQ_general/inifile.h>
#include <ZKQ_general/string.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/buffer.h"
#include "support/error_text.h"
#include "support/profile_model.h"
#include "support/temp_dir.h"

namespace {

namespace model = support::model;
using support::Buffer;

constexpr unsigned kSeed = 20240607;
constexpr int kCases = 20000;
constexpr int kMaxFailures = 3;

unsigned FromEnvironment(const char* name, unsigned otherwise)
{
    const char* text = getenv(name);
    return text == nullptr ? otherwise : static_cast<unsigned>(strtoul(text, nullptr, 10));
}

struct Case {
    std::string text;
    std::string section;
    std::string key;
    std::optional<std::string> value;
    size_t size = 0;

    const char* ValueOrNull() const { return value ? value->c_str() : nullptr; }
};

std::ostream& operator<<(std::ostream& out, const Case& c)
{
    return out << "text " << testing::PrintToString(c.text) << " section " << testing::PrintToString(c.section)
               << " key " << testing::PrintToString(c.key) << " value "
               << (c.value ? testing::PrintToString(*c.value) : std::string("null")) << " size " << c.size;
}

class Generator {
public:
    explicit Generator(unsigned seed) : random_(seed) {}

    unsigned Below(unsigned end) { return static_cast<unsigned>(random_() % end); }

    std::string Text(const std::string& alphabet, unsigned max_length)
    {
        std::string text(Below(max_length + 1), ' ');
        for (char& c : text)
            c = alphabet[Below(static_cast<unsigned>(alphabet.size()))];
        return text;
    }

    // Half of the texts are random bytes, half are made of likely lines.
    std::string Profile()
    {
        if (Below(2) == 0)
            return Text("[]=;# \r\nabAB", 30);
        const std::vector<std::string> pieces = {
            "[a]",  "[A]", "[b]", "[]",    "[ a ]", "[a", "a=1",  " A = 2 ", "b=",   "b",  "",     "  ",     "=x",
            "#a=1", ";b",  "\r",  "[a]\r", "a=b=c", "\n", "a\rb", "[b]a=1",  "ab=1", "-7", "a=-7", "a=+12a", "A= ",
        };
        std::string text;
        for (unsigned lines = Below(9); lines > 0; --lines)
            text += pieces[Below(static_cast<unsigned>(pieces.size()))] + (lines == 1 && Below(3) == 0 ? "" : "\n");
        return text;
    }

    std::string Name()
    {
        const std::vector<std::string> names = {"", "a", "A", "b", "B", "ab", " a ", "#a", ";b", "a]", "c"};
        return Below(6) == 0 ? Text("[]=;# abAB", 4) : names[Below(static_cast<unsigned>(names.size()))];
    }

    std::optional<std::string> Value()
    {
        switch (Below(5)) {
        case 0:
            return std::nullopt;
        case 1:
            return std::string(Below(80), 'v');
        default:
            return Text("[]=;# \r\nabAB", 5);
        }
    }

    Case Next()
    {
        Case c;
        c.text = Profile();
        c.section = Name();
        c.key = Name();
        c.value = Value();
        c.size = Below(4) == 0 ? Below(40) : Below(9);
        return c;
    }

private:
    std::mt19937 random_;
};

// Runs a check on the generated cases until some have failed.
void ForCases(int count, const std::function<void(const Case&)>& check)
{
    const unsigned seed = FromEnvironment("ZKQ_TEST_SEED", kSeed);
    count = static_cast<int>(FromEnvironment("ZKQ_TEST_CASES", static_cast<unsigned>(count)));
    printf("seed %u, %d cases\n", seed, count);
    Generator generator(seed);
    const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < count && result.total_part_count() < kMaxFailures; ++i) {
        const Case c = generator.Next();
        SCOPED_TRACE(testing::Message() << "case " << i << ": " << c);
        check(c);
    }
}

void ExpectError(int error)
{
    if (error == 0) {
        EXPECT_TRUE(support::ErrorTextIsMarked()) << support::ErrorText();
    } else {
        EXPECT_SYSTEM_ERROR(error);
    }
}

TEST(ProfileModel, Values)
{
    const std::string default_value = "default";
    ForCases(kCases, [&](const Case& c) {
        const model::Answer expected = model::Read(c.text, c.section, c.key, default_value);
        Buffer buffer(c.size);
        support::MarkErrorText();
        const DWORD length = ZKQGeneral_GetPrivateProfileString_Mem(
            c.section.c_str(), c.key.c_str(), default_value.c_str(), buffer.Data(), c.size, c.text.c_str());
        EXPECT_EQ(buffer.Text(), model::Cut(expected.text, c.size));
        EXPECT_EQ(length, model::Cut(expected.text, c.size).size());
        EXPECT_TRUE(buffer.GuardIntact());
        ExpectError(expected.error);
    });
}

TEST(ProfileModel, Integers)
{
    ForCases(kCases, [](const Case& c) {
        const int default_value = static_cast<int>(c.size) - 4;
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileInt_Mem(c.section.c_str(), c.key.c_str(), default_value, c.text.c_str()),
                  model::ReadInt(c.text, c.section, c.key, default_value));
        ExpectError(model::Read(c.text, c.section, c.key, "").error);
    });
}

void ExpectList(const model::Answer& expected, DWORD used, const Buffer& buffer)
{
    EXPECT_TRUE(buffer.GuardIntact());
    ExpectError(expected.error);
    EXPECT_EQ(used, expected.error == 0 ? expected.text.size() : 0);
    EXPECT_EQ(buffer.Bytes().substr(0, expected.text.size()), expected.text);
    if (expected.text.size() < buffer.Size()) {
        EXPECT_EQ(buffer.Bytes()[expected.text.size()], expected.error == 0 ? '\0' : Buffer::kFill);
    }
}

TEST(ProfileModel, SectionNames)
{
    ForCases(kCases, [](const Case& c) {
        Buffer buffer(c.size);
        support::MarkErrorText();
        const DWORD used = ZKQGeneral_GetPrivateProfileSectionNames_Mem(buffer.Data(), c.size, c.text.c_str());
        if (c.size > 0)
            ExpectList(model::SectionNames(c.text, c.size), used, buffer);
        else
            EXPECT_TRUE(used == 0 && buffer.Untouched());
    });
}

TEST(ProfileModel, ItemNames)
{
    ForCases(kCases, [](const Case& c) {
        Buffer buffer(c.size);
        support::MarkErrorText();
        const DWORD used =
            ZKQGeneral_GetPrivateProfileItemNames_Mem(c.section.c_str(), buffer.Data(), c.size, c.text.c_str());
        if (c.size > 0)
            ExpectList(model::ItemNames(c.text, c.section, c.size), used, buffer);
        else
            EXPECT_TRUE(used == 0 && buffer.Untouched());
    });
}

void ExpectOutput(const model::Answer& expected, BOOL result, char* out, int length)
{
    EXPECT_EQ(result, expected.error == 0 ? TRUE : FALSE);
    ExpectError(expected.error);
    EXPECT_NE(out, nullptr);
    EXPECT_EQ(std::string(out == nullptr ? "" : out), expected.text);
    EXPECT_EQ(length, expected.error == 0 ? static_cast<int>(expected.text.size()) + 1 : -1);
    ZKQGeneral_FreeMallocBuffer(out);
}

TEST(ProfileModel, WritingInMemory)
{
    int full = 0;
    int bad = 0;
    ForCases(kCases, [&](const Case& c) {
        const model::Answer expected = model::WriteMemory(c.text, c.section, c.key, c.value);
        full += expected.error == ENOMEM;
        bad += expected.error == EINVAL;
        char* out = nullptr;
        int length = -1;
        support::MarkErrorText();
        const BOOL result = ZKQGeneral_WritePrivateProfileString_Mem(c.text.c_str(), c.section.c_str(), c.key.c_str(),
                                                                     c.ValueOrNull(), &out, &length);
        ExpectOutput(expected, result, out, length);
    });
    EXPECT_GT(full, 0) << "the cases never fill the capacity";
    EXPECT_GT(bad, 0);
}

TEST(ProfileModel, DeletingInMemory)
{
    int full = 0;
    ForCases(kCases, [&](const Case& c) {
        const model::Answer expected = model::DeleteSectionMemory(c.text, c.section);
        full += expected.error == ENOMEM;
        char* out = nullptr;
        int length = -1;
        support::MarkErrorText();
        const BOOL result =
            ZKQGeneral_DeletePrivateProfileSection_Mem(c.section.c_str(), c.text.c_str(), &out, &length);
        ExpectOutput(expected, result, out, length);
    });
    EXPECT_GT(full, 0) << "the cases never fill the capacity";
}

// --- files ---

constexpr int kFileCases = 2000; // rewriting a file in place makes the system write it out, which is slow

class ProfileFileModel : public testing::Test {
protected:
    void Expect(const model::Answer& expected, BOOL result)
    {
        EXPECT_EQ(result, expected.error == 0 ? TRUE : FALSE);
        ExpectError(expected.error);
        EXPECT_EQ(support::ReadFile(path_), expected.text);
    }
    support::TempDir dir_;
    const std::string path_ = dir_.File("profile.ini");
};

TEST_F(ProfileFileModel, Writing)
{
    ForCases(kFileCases, [&](const Case& c) {
        support::WriteFile(path_, c.text);
        support::MarkErrorText();
        const BOOL result =
            ZKQGeneral_WritePrivateProfileString(c.section.c_str(), c.key.c_str(), c.ValueOrNull(), path_.c_str());
        Expect(model::WriteFile(c.text, c.section, c.key, c.value), result);
    });
}

TEST_F(ProfileFileModel, Deleting)
{
    ForCases(kFileCases, [&](const Case& c) {
        support::WriteFile(path_, c.text);
        support::MarkErrorText();
        const BOOL result = ZKQGeneral_DeletePrivateProfileSection(c.section.c_str(), path_.c_str());
        Expect(model::DeleteSectionFile(c.text, c.section), result);
    });
}

TEST_F(ProfileFileModel, Reading)
{
    ForCases(kFileCases, [&](const Case& c) {
        support::WriteFile(path_, c.text);
        const char* section = c.section.c_str();
        const char* path = path_.c_str();
        const model::Answer value = model::Read(c.text, section, c.key, "default");
        Buffer buffer(c.size);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileString(section, c.key.c_str(), "default", buffer.Data(), c.size, path),
                  model::Cut(value.text, c.size).size());
        EXPECT_EQ(buffer.Text(), model::Cut(value.text, c.size));
        ExpectError(value.error);
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileInt(section, c.key.c_str(), 42, path),
                  model::ReadInt(c.text, section, c.key, 42));
        const size_t size = c.size + 1;
        Buffer sections(size);
        support::MarkErrorText();
        DWORD used = ZKQGeneral_GetPrivateProfileSectionNames(sections.Data(), size, path);
        ExpectList(model::SectionNames(c.text, size), used, sections);
        Buffer items(size);
        support::MarkErrorText();
        used = ZKQGeneral_GetPrivateProfileItemNames(section, items.Data(), size, path);
        ExpectList(model::ItemNames(c.text, section, size), used, items);
    });
}

// --- many operations on one text ---

TEST_F(ProfileFileModel, ChainsOfOperations)
{
    std::string text;
    unlink(path_.c_str());
    ForCases(kFileCases, [&](const Case& c) {
        if (text.size() > 400) {
            text = c.text;
            support::WriteFile(path_, text);
        }
        const bool write = c.size % 4 != 0;
        const model::Answer expected =
            write ? model::WriteFile(text, c.section, c.key, c.value) : model::DeleteSectionFile(text, c.section);
        support::MarkErrorText();
        const BOOL result = write ? ZKQGeneral_WritePrivateProfileString(c.section.c_str(), c.key.c_str(),
                                                                         c.ValueOrNull(), path_.c_str())
                                  : ZKQGeneral_DeletePrivateProfileSection(c.section.c_str(), path_.c_str());
        EXPECT_EQ(result, expected.error == 0 ? TRUE : FALSE);
        ExpectError(expected.error);
        text = expected.text;
        EXPECT_EQ(support::ReadFile(path_), text);
    });
}

// --- the splitter ---

TEST(SplitterModel, Tokens)
{
    Generator separators(kSeed);
    ForCases(kCases, [&](const Case& c) {
        const std::string set = separators.Text("[]=;# \r\nabAB", 4);
        const std::vector<std::string> expected = model::Split(c.text, set);
        int count = -1;
        char** array = ZKQGeneral_ParseLineInfo(c.text.c_str(), set.c_str(), &count);
        ASSERT_NE(array, nullptr);
        ASSERT_EQ(count, static_cast<int>(expected.size()));
        for (size_t i = 0; i < expected.size(); ++i)
            EXPECT_EQ(array[i], expected[i]);
        EXPECT_EQ(array[count], nullptr);
        ZKQGeneral_FreeParseLineInfoBuffer(array, count);
    });
}

} // namespace
