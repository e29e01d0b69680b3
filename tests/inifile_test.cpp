// Profile files: what the variants on files do with the file.
#include <ZKQ_general/inifile.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "support/buffer.h"
#include "support/child.h"
#include "support/error_text.h"
#include "support/paths.h"
#include "support/profile_rows.h"
#include "support/temp_dir.h"
#include "support/working_dir.h"

namespace {

using support::Exists;
using support::ReadFile;
using support::WriteFile;
using namespace std::string_literals;

constexpr size_t kMaxLine = 4095;
constexpr const char* kMissing = "missing";

class ProfileFile : public testing::Test {
protected:
    void Put(const std::string& text) const { WriteFile(path_, text); }
    std::string Text() const { return ReadFile(path_); }

    std::string Get(const char* section, const char* key, size_t size = 5000) const
    {
        support::Buffer buffer(size);
        const DWORD length =
            ZKQGeneral_GetPrivateProfileString(section, key, kMissing, buffer.Data(), size, path_.c_str());
        EXPECT_TRUE(buffer.GuardIntact());
        EXPECT_EQ(length, buffer.Text().size());
        return buffer.Text();
    }
    UINT GetInt(const char* section, const char* key, INT default_value) const
    {
        return ZKQGeneral_GetPrivateProfileInt(section, key, default_value, path_.c_str());
    }
    BOOL Write(const char* section, const char* key, const char* value) const
    {
        return ZKQGeneral_WritePrivateProfileString(section, key, value, path_.c_str());
    }
    BOOL Delete(const char* section) const { return ZKQGeneral_DeletePrivateProfileSection(section, path_.c_str()); }
    // The list as it stands in the buffer, the final NUL included.
    std::string Sections(size_t size = 1000) const
    {
        support::Buffer buffer(size);
        const DWORD used = ZKQGeneral_GetPrivateProfileSectionNames(buffer.Data(), size, path_.c_str());
        EXPECT_TRUE(buffer.GuardIntact());
        return buffer.Bytes().substr(0, used + 1);
    }
    std::string Items(const char* section, size_t size = 1000) const
    {
        support::Buffer buffer(size);
        const DWORD used = ZKQGeneral_GetPrivateProfileItemNames(section, buffer.Data(), size, path_.c_str());
        EXPECT_TRUE(buffer.GuardIntact());
        return buffer.Bytes().substr(0, used + 1);
    }

    support::TempDir dir_;
    const std::string path_ = dir_.File("profile.ini");
};

// --- reading ---

TEST_F(ProfileFile, Reads)
{
    Put("first=0\n[S]\nk=1\nK = 2\n\n[T]\nx = a b \n");
    support::MarkErrorText();
    EXPECT_EQ(Get("s", "k"), "1");
    EXPECT_EQ(Get("S", "K"), "1");
    EXPECT_EQ(Get("", "first"), "0");
    EXPECT_EQ(Get("T", "x"), "a b");
    EXPECT_EQ(Get("T", "k"), kMissing);
    EXPECT_EQ(Get("U", "k"), kMissing);
    EXPECT_EQ(Get("T", "x", 3), "a ");
    EXPECT_EQ(Get("T", "k", 3), "mi");
    EXPECT_EQ(Sections(), "S\0T\0\0"s);
    EXPECT_EQ(Items("S"), "k\0K\0\0"s);
    EXPECT_EQ(Items("U"), "\0"s);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST_F(ProfileFile, ReadsIntegers)
{
    Put("[S]\na=12\nb=-1\nc=  \nd=12abc\n");
    EXPECT_EQ(GetInt("S", "a", 7), 12U);
    EXPECT_EQ(GetInt("S", "b", 7), 4294967295U);
    EXPECT_EQ(GetInt("S", "c", 7), 7U);
    EXPECT_EQ(GetInt("S", "d", 7), 12U);
    EXPECT_EQ(GetInt("S", "e", -7), 4294967289U);
}

TEST_F(ProfileFile, AFileThatCannotBeReadGivesTheDefault)
{
    const std::pair<std::string, int> rows[] = {{path_, ENOENT}, {dir_.Path(), EISDIR}, {"", ENOENT}};
    for (const auto& [path, error] : rows) {
        SCOPED_TRACE(path);
        for (size_t size : {20U, 8U, 7U, 1U}) {
            support::Buffer buffer(size);
            support::MarkErrorText();
            const DWORD length =
                ZKQGeneral_GetPrivateProfileString("S", "k", "default", buffer.Data(), size, path.c_str());
            EXPECT_EQ(buffer.Text(), "default"s.substr(0, size - 1));
            EXPECT_EQ(length, buffer.Text().size());
            EXPECT_TRUE(buffer.GuardIntact());
            EXPECT_SYSTEM_ERROR(error);
        }
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileInt("S", "k", 42, path.c_str()), 42U);
    }
}

TEST_F(ProfileFile, ListsOfAFileThatCannotBeRead)
{
    support::Buffer buffer(10);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileItemNames("S", buffer.Data(), 10, path_.c_str()), 0U);
    EXPECT_SYSTEM_ERROR(ENOENT);
    EXPECT_TRUE(buffer.Untouched()) << "the keys' list is left alone";
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileSectionNames(buffer.Data(), 10, path_.c_str()), 0U);
    EXPECT_SYSTEM_ERROR(ENOENT);
    EXPECT_EQ(buffer.Bytes(), "\0"s + std::string(9, support::Buffer::kFill)) << "the sections' list is empty";
    support::Buffer none(0);
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileSectionNames(none.Data(), 0, path_.c_str()), 0U);
    EXPECT_TRUE(none.Untouched());
}

TEST_F(ProfileFile, AnEmptyFile)
{
    Put("");
    EXPECT_EQ(Get("", "k"), kMissing);
    EXPECT_EQ(Sections(), "\0"s);
    EXPECT_EQ(Items(""), "\0"s);
    EXPECT_EQ(Write("A", "k", "v"), TRUE);
    EXPECT_EQ(Text(), "[A]\nk = v\n");
}

TEST_F(ProfileFile, TextEndsAtAZeroByte)
{
    Put("[S]\nk=1\n\0\nk2=2\n"s);
    EXPECT_EQ(Get("S", "k"), "1");
    EXPECT_EQ(Get("S", "k2"), kMissing);
    EXPECT_EQ(Items("S"), "k\0\0"s);
}

TEST_F(ProfileFile, ReadersDoNotWrite)
{
    const std::string text = "[S]\r\nk=1\r\n\n[bad\n";
    Put(text);
    ASSERT_EQ(chmod(path_.c_str(), 0444), 0);
    Get("S", "none");
    GetInt("S", "none", 0);
    Sections();
    Items("S");
    EXPECT_EQ(Text(), text);
}

// --- writing ---

const support::WriteRow kWriteRows[] = {
    {"replaced, blank lines stay", "[S]\nk=1\n\n[T]\nx=2\n", "S", "k", "9", "[S]\nk = 9\n\n[T]\nx=2\n"},
    {"new key behind the blank lines", "[S]\nk=1\n\n[T]\nx=2\n", "S", "n", "5", "[S]\nk=1\n\nn = 5\n[T]\nx=2\n"},
    {"new key behind the comments", "[S]\nk=1\n#c\n;d\n[T]\n", "S", "n", "5", "[S]\nk=1\n#c\n;d\nn = 5\n[T]\n"},
    {"new key in the last section", "[S]\nk=1\n\n", "S", "n", "5", "[S]\nk=1\n\nn = 5\n"},
    {"new section without a blank line before it", "[S]\nk=1\n", "T", "n", "5", "[S]\nk=1\n[T]\nn = 5\n"},
    {"new section in an empty text", "", "A", "k", "v", "[A]\nk = v\n"},
    {"section without a name in an empty text", "", "", "k", "v", "k = v\n"},
    {"section without a name before the first header", "a=1\n[S]\nk=1\n", "", "k", "v", "a=1\nk = v\n[S]\nk=1\n"},
    {"section without a name, nothing before the header", "[S]\nk=1\n", "", "k", "v", "k = v\n[S]\nk=1\n"},
    {"key as the file spells it", "[S]\n  Key  =1\n", "s", "kEY", "9", "[S]\nKey = 9\n"},
    {"section as the file spells it", "[Some] rest\nk=1\n", "sOME", "k", "9", "[Some] rest\nk = 9\n"},
    {"an entry without a sign gets one", "[S]\nk\n", "S", "k", "9", "[S]\nk = 9\n"},
    {"empty value", "[S]\nk=1\n", "S", "k", "", "[S]\nk = \n"},
    {"value is written as it is", "[S]\n", "S", "k", "  a = ;b#  ", "[S]\nk =   a = ;b#  \n"},
    {"key is written as it is", "[S]\n", "S", " k ", "v", "[S]\n k  = v\n"},
    {"value with a format", "[S]\nk=%d%s%n\n", "S", "%s%n", "%n%s", "[S]\nk=%d%s%n\n%s%n = %n%s\n"},
    {"other entries are not touched", "[S]\n a=1 \nb\n k=1\nc =  2\n", "S", "k", "9", "[S]\n a=1 \nb\nk = 9\nc =  2\n"},
    {"a later duplicate of the key stays", "[S]\nk=1\nk=2\n", "S", "k", "9", "[S]\nk = 9\nk=2\n"},
    {"a later section of that name is rewritten again", "[S]\nk=1\n[S]\nk=2\nk=3\n", "S", "k", "9",
     "[S]\nk = 9\n[S]\nk = 9\nk=3\n"},
    {"written at the end of the first, replaced in the second", "[S]\n[T]\n[S]\nk=2\n", "S", "k", "9",
     "[S]\nk = 9\n[T]\n[S]\nk = 9\n"},
    {"two sections together are one", "[S]\na=1\n[s]\nb=1\n[T]\n", "S", "k", "9", "[S]\na=1\n[s]\nb=1\nk = 9\n[T]\n"},
    {"only the first of separated sections gets a new key", "[S]\n[T]\n[S]\n", "S", "k", "9", "[S]\nk = 9\n[T]\n[S]\n"},
    {"duplicates in the section without a name", "k=1\nk=2\n", "", "k", "9", "k = 9\nk = 9\n"},
    {"blank lines are entries without a key", "[S]\n\na=1\n", "S", "", "9", "[S]\n = 9\na=1\n"},
    {"comments are never entries", "[S]\n#k=1\n;k=1\n", "S", "#k", "9", "[S]\n#k=1\n;k=1\n#k = 9\n"},
    {"a comment in front of a blank is an entry", "[S]\n #k=1\n", "S", "#k", "9", "[S]\n#k = 9\n"},
    {"a header behind a blank is an entry", "[S]\n [T]\nk=1\n", "S", "k", "9", "[S]\n [T]\nk = 9\n"},
    {"carriage returns go", "[S]\r\nk=1\r\nx=2\r\n\r\n", "S", "k", "9", "[S]\nk = 9\nx=2\n\n"},
    {"a line ends at its first carriage return", "[S]\na=1\rb=2\n;c\rd\n", "S", "k", "9", "[S]\na=1\n;c\nk = 9\n"},
    {"a missing last line feed is added", "[S]\nk=1\n[T]\nx=2", "S", "k", "9", "[S]\nk = 9\n[T]\nx=2\n"},
    {"names of sections are not trimmed", "[ S ]\nk=1\n", "S", "k", "9", "[ S ]\nk=1\n[S]\nk = 9\n"},
    {"the name ends at the first bracket", "[a]b]\nk=1\n", "a", "k", "9", "[a]b]\nk = 9\n"},
    {"only 0x20 is a blank", "[S]\n\tk\t=1\n", "S", "k", "9", "[S]\n\tk\t=1\nk = 9\n"},
    {"bytes above 127 compare exactly", "[S]\n\xC0=1\n", "S", "\xE0", "9", "[S]\n\xC0=1\n\xE0 = 9\n"},
    {"deleted", "[S]\nk=1\nx=2\n", "S", "k", nullptr, "[S]\nx=2\n"},
    {"the last entry deleted", "[S]\nk=1\n", "S", "k", nullptr, "[S]\n"},
    {"deletion stops at the first in a section", "[S]\nk=1\nk=2\n[S]\nk=3\n", "S", "k", nullptr, "[S]\nk=2\n[S]\n"},
    {"deletion of a key that is not there", "[S]\n\nx=2\n", "S", "k", nullptr, "[S]\n\nx=2\n"},
    {"deletion from a section that is not there", "[S]\nk=2\n", "T", "k", nullptr, "[S]\nk=2\n"},
    {"deletion from an empty text", "", "T", "k", nullptr, ""},
};

TEST_F(ProfileFile, WriteTable)
{
    for (const support::WriteRow& row : kWriteRows) {
        SCOPED_TRACE(row.name);
        Put(row.before);
        support::MarkErrorText();
        EXPECT_EQ(Write(row.section, row.key, row.value), TRUE);
        EXPECT_TRUE(support::ErrorTextIsMarked()) << support::ErrorText();
        EXPECT_EQ(Text(), row.after);
    }
}

TEST_F(ProfileFile, WhatWasWrittenIsRead)
{
    for (const char* value : {"v", "", "two words", "a=b", "\xD6\xD0\xCE\xC4", "[x]", ";"}) {
        EXPECT_EQ(Write("Some section", "some key", value), TRUE);
        EXPECT_EQ(Get("some SECTION", "SOME key"), value);
    }
    EXPECT_EQ(Text(), "[Some section]\nsome key = ;\n");
}

TEST_F(ProfileFile, AMissingFileIsMade)
{
    EXPECT_EQ(Write("A", "k", "v"), TRUE);
    EXPECT_EQ(Text(), "[A]\nk = v\n");
    for (const char* name : {"deleted key", "deleted section"}) {
        const std::string path = dir_.File(name);
        if (name == "deleted key"s) {
            EXPECT_EQ(ZKQGeneral_WritePrivateProfileString("A", "k", nullptr, path.c_str()), TRUE);
        } else {
            EXPECT_EQ(ZKQGeneral_DeletePrivateProfileSection("A", path.c_str()), TRUE);
        }
        EXPECT_TRUE(Exists(path)) << name;
        EXPECT_EQ(ReadFile(path), "");
    }
}

TEST_F(ProfileFile, FilesAreRewrittenInPlace)
{
    Put("[S]\nk=1\n" + std::string(3000, ';') + "\n");
    ASSERT_EQ(chmod(path_.c_str(), 0604), 0);
    ASSERT_EQ(link(path_.c_str(), dir_.File("second name").c_str()), 0);
    const ino_t inode = support::Inode(path_);
    EXPECT_EQ(Write("S", "k", "9"), TRUE);
    EXPECT_EQ(Delete("none"), TRUE);
    EXPECT_EQ(support::Inode(path_), inode);
    EXPECT_EQ(support::Mode(path_), 0604U);
    EXPECT_EQ(ReadFile(dir_.File("second name")), "[S]\nk = 9\n" + std::string(3000, ';') + "\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.Path()), {}), 2) << "no file is left beside it";
}

TEST_F(ProfileFile, AHeaderWithoutItsEndLosesTheRestOfTheFile)
{
    Put("[S]\nk=1\n\n[bad\nx=2\n[T]\n");
    support::MarkErrorText();
    EXPECT_EQ(Write("S", "k", "9"), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(Text(), "[S]\nk = 9\n\n");
    Put("[S]\nk=1\n[T]\nx=1\n[bad\rk]\ny=2\n");
    support::MarkErrorText();
    EXPECT_EQ(Delete("S"), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(Text(), "[T]\nx=1\n");
    Put("[");
    EXPECT_EQ(Write("S", "k", nullptr), FALSE);
    EXPECT_EQ(Text(), "");
}

TEST_F(ProfileFile, ReadersStopAtAHeaderWithoutItsEnd)
{
    Put("[S]\nk=1\n[bad\n[S]\nx=2\n");
    support::MarkErrorText();
    EXPECT_EQ(Get("S", "k"), "1") << "what stands before it is found";
    EXPECT_TRUE(support::ErrorTextIsMarked());
    EXPECT_EQ(Get("S", "x"), kMissing);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(GetInt("S", "x", 42), 42U);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::Buffer buffer(10);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileSectionNames(buffer.Data(), 10, path_.c_str()), 0U);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileItemNames("S", buffer.Data(), 10, path_.c_str()), 0U);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_TRUE(buffer.GuardIntact());
}

TEST_F(ProfileFile, FilesThatCannotBeReadOrWritten)
{
    ASSERT_EQ(symlink("nowhere", dir_.File("dangling").c_str()), 0);
    const std::pair<std::string, int> rows[] = {
        {dir_.Path(), EISDIR},
        {dir_.File("missing/profile.ini"), ENOENT},
        {dir_.File("dangling"), ENOENT},
        {dir_.File(std::string(300, 'n')), ENAMETOOLONG},
    };
    for (const auto& [path, error] : rows) {
        SCOPED_TRACE(path);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_WritePrivateProfileString("S", "k", "v", path.c_str()), FALSE);
        EXPECT_SYSTEM_ERROR(error);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_DeletePrivateProfileSection("S", path.c_str()), FALSE);
        EXPECT_SYSTEM_ERROR(error);
    }
    EXPECT_FALSE(Exists(dir_.File("nowhere")));
}

TEST_F(ProfileFile, WithoutRights)
{
    Put("[S]\nk=1\n");
    ASSERT_EQ(chmod(path_.c_str(), 0444), 0);
    ASSERT_EQ(chmod(dir_.Path().c_str(), 0755), 0);
    RUN_IN_CHILD([&] {
        support::WorkingDir here(dir_.Path());
        support::BecomeNobody();
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_WritePrivateProfileString("S", "k", "v", "profile.ini"), FALSE);
        EXPECT_SYSTEM_ERROR(EACCES);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_DeletePrivateProfileSection("S", "profile.ini"), FALSE);
        EXPECT_SYSTEM_ERROR(EACCES);
    });
    EXPECT_EQ(Text(), "[S]\nk=1\n");
}

// --- deleting sections ---

struct DeleteRow {
    const char* name;
    const char* before;
    const char* section;
    const char* after;
};

const DeleteRow kDeleteRows[] = {
    {"header and entries go", "[S]\nk=1\n[T]\nx=2\n", "S", "[T]\nx=2\n"},
    {"the last section", "[S]\nk=1\n[T]\nx=2\n", "t", "[S]\nk=1\n"},
    {"the only section", "[S]\nk=1\n", "S", ""},
    {"comments stay, those inside too", ";a\n[S]\n#b\nk=1\n;c\n[T]\n", "S", ";a\n#b\n;c\n[T]\n"},
    {"blank lines inside go, others stay", "\n[S]\n\nk=1\n\n[T]\n\n", "S", "\n[T]\n\n"},
    {"every section of that name goes", "[S]\na=1\n[T]\nb=2\n[s]\nc=3\n", "S", "[T]\nb=2\n"},
    {"sections of other names stay", "[SS]\na=1\n[ S]\nb=1\n", "S", "[SS]\na=1\n[ S]\nb=1\n"},
    {"no such section", "[S]\nk=1\n", "T", "[S]\nk=1\n"},
    {"entries before the first header stay", "k=1\n[S]\nk=2\n", "S", "k=1\n"},
    {"carriage returns go, a last line feed comes", "[T]\r\nx=1\r\n[S]\r\n[U]\r\ny", "S", "[T]\nx=1\n[U]\ny\n"},
};

TEST_F(ProfileFile, DeleteTable)
{
    for (const DeleteRow& row : kDeleteRows) {
        SCOPED_TRACE(row.name);
        Put(row.before);
        support::MarkErrorText();
        EXPECT_EQ(Delete(row.section), TRUE);
        EXPECT_TRUE(support::ErrorTextIsMarked());
        EXPECT_EQ(Text(), row.after);
    }
}

TEST_F(ProfileFile, DeletingTheSectionWithoutANameIsRefused)
{
    Put("k=1\n[S]\n");
    support::MarkErrorText();
    EXPECT_EQ(Delete(""), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(Text(), "k=1\n[S]\n");
}

// --- long lines ---

TEST_F(ProfileFile, LinesOfTheGreatestLengthSurvive)
{
    const std::string entry = "k=" + std::string(kMaxLine - 2, 'v');
    const std::string header = "[" + std::string(kMaxLine - 2, 's') + "]";
    const std::string comment = ";" + std::string(kMaxLine - 1, 'c');
    const std::string text = comment + "\n[S]\n" + entry + "\n" + header + "\n" + entry + "\n";
    Put(text);
    EXPECT_EQ(Get("S", "k"), std::string(kMaxLine - 2, 'v'));
    EXPECT_EQ(Get(header.substr(1, kMaxLine - 2).c_str(), "k"), std::string(kMaxLine - 2, 'v'));
    EXPECT_EQ(Sections(9000), "S\0"s + std::string(kMaxLine - 2, 's') + "\0\0"s);
    EXPECT_EQ(Write("S", "new", "1"), TRUE);
    EXPECT_EQ(Text(), comment + "\n[S]\n" + entry + "\nnew = 1\n" + header + "\n" + entry + "\n");
    EXPECT_EQ(Delete("S"), TRUE);
    EXPECT_EQ(Text(), comment + "\n" + header + "\n" + entry + "\n");
}

TEST_F(ProfileFile, LongerLinesAreRefusedBeforeTheFileIsTruncated)
{
    const std::string longs[] = {
        "k=" + std::string(kMaxLine - 1, 'v'),
        "[" + std::string(kMaxLine - 1, 's') + "]",
        ";" + std::string(kMaxLine, 'c'),
        std::string(100000, 'x'),
    };
    for (const std::string& line : longs) {
        SCOPED_TRACE(line.substr(0, 5) + " " + std::to_string(line.size()));
        const std::string text = "[S]\na=1\n" + line + "\nb=1\n[T]\n";
        Put(text);
        EXPECT_EQ(Get("S", "a"), "1") << "what stands before it is found";
        support::MarkErrorText();
        EXPECT_EQ(Get("S", "b"), kMissing);
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
        EXPECT_EQ(GetInt("S", "b", 42), 42U);
        EXPECT_SYSTEM_ERROR(EINVAL);
        for (const char* value : {static_cast<const char*>("v"), static_cast<const char*>(nullptr)}) {
            support::MarkErrorText();
            EXPECT_EQ(Write("S", "a", value), FALSE);
            EXPECT_SYSTEM_ERROR(EINVAL);
        }
        support::MarkErrorText();
        EXPECT_EQ(Delete("S"), FALSE);
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_EQ(Text(), text);
    }
}

TEST_F(ProfileFile, ListsRefuseLongerLines)
{
    Put("[S]\na=1\nk=" + std::string(kMaxLine - 1, 'v') + "\nb=1\n[T]\n");
    support::Buffer buffer(100);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileSectionNames(buffer.Data(), 100, path_.c_str()), 0U);
    EXPECT_SYSTEM_ERROR(EINVAL);
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_GetPrivateProfileItemNames("S", buffer.Data(), 100, path_.c_str()), 0U);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_TRUE(buffer.GuardIntact());
}

TEST_F(ProfileFile, ALastLineWithoutItsLineFeedIsCut)
{
    for (size_t length : {4093U, 4094U, 4095U}) {
        SCOPED_TRACE(length);
        Put("[S]\nk=" + std::string(length - 2, 'v'));
        const std::string value(std::min(length, size_t{4094}) - 2, 'v');
        EXPECT_EQ(Get("S", "k"), value);
        EXPECT_EQ(Write("S", "n", "1"), TRUE);
        EXPECT_EQ(Text(), "[S]\nk=" + value + "\nn = 1\n");
    }
}

TEST_F(ProfileFile, NewLinesThatWouldBeTooLongAreRefused)
{
    Put("[S]\nk=1\n");
    const std::string fits(kMaxLine - strlen("k = "), 'v');
    EXPECT_EQ(Write("S", "k", fits.c_str()), TRUE);
    EXPECT_EQ(Text(), "[S]\nk = " + fits + "\n");
    EXPECT_EQ(Get("S", "k"), fits);
    const std::string before = Text();
    support::MarkErrorText();
    EXPECT_EQ(Write("S", "k", (fits + "v").c_str()), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_EQ(Write("S", "new", fits.c_str()), FALSE);
    EXPECT_EQ(Write("T", "k", (fits + "v").c_str()), FALSE);
    EXPECT_EQ(Write(std::string(kMaxLine - 1, 's').c_str(), "k", "v"), FALSE);
    EXPECT_EQ(Text(), before);
}

// --- null arguments ---

TEST_F(ProfileFile, NullArguments)
{
    Put("[S]\nk=1\n");
    const char* path = path_.c_str();
    support::Buffer buffer(20);
    const auto expect_einval = [](auto result, auto failure) {
        EXPECT_EQ(result, failure);
        EXPECT_SYSTEM_ERROR(EINVAL);
        support::MarkErrorText();
    };
    support::MarkErrorText();
    expect_einval(ZKQGeneral_WritePrivateProfileString(nullptr, "k", "v", path), FALSE);
    expect_einval(ZKQGeneral_WritePrivateProfileString("S", nullptr, "v", path), FALSE);
    expect_einval(ZKQGeneral_WritePrivateProfileString("S", nullptr, nullptr, path), FALSE);
    expect_einval(ZKQGeneral_WritePrivateProfileString("S", "k", "v", nullptr), FALSE);
    expect_einval(ZKQGeneral_DeletePrivateProfileSection(nullptr, path), FALSE);
    expect_einval(ZKQGeneral_DeletePrivateProfileSection("S", nullptr), FALSE);
    expect_einval(ZKQGeneral_GetPrivateProfileSectionNames(nullptr, 20, path), 0U);
    expect_einval(ZKQGeneral_GetPrivateProfileSectionNames(buffer.Data(), 20, nullptr), 0U);
    expect_einval(ZKQGeneral_GetPrivateProfileItemNames(nullptr, buffer.Data(), 20, path), 0U);
    expect_einval(ZKQGeneral_GetPrivateProfileItemNames("S", nullptr, 20, path), 0U);
    expect_einval(ZKQGeneral_GetPrivateProfileItemNames("S", buffer.Data(), 20, nullptr), 0U);
    expect_einval(ZKQGeneral_GetPrivateProfileInt(nullptr, "k", 5, path), 5U);
    expect_einval(ZKQGeneral_GetPrivateProfileInt("S", nullptr, 5, path), 5U);
    expect_einval(ZKQGeneral_GetPrivateProfileInt("S", "k", 5, nullptr), 5U);
    EXPECT_EQ(Text(), "[S]\nk=1\n");
}

TEST_F(ProfileFile, NullArgumentsOfTheReader)
{
    Put("[S]\nk=1\n");
    const char* path = path_.c_str();
    char buffer[20] = "";
    const auto expect_einval = [&](DWORD result) {
        EXPECT_SYSTEM_ERROR(EINVAL);
        EXPECT_TRUE(result == 0 || (result == 1 && buffer[0] == 'd')) << "nothing, or the default";
        support::MarkErrorText();
    };
    support::MarkErrorText();
    expect_einval(ZKQGeneral_GetPrivateProfileString(nullptr, "k", "d", buffer, sizeof buffer, path));
    expect_einval(ZKQGeneral_GetPrivateProfileString("S", nullptr, "d", buffer, sizeof buffer, path));
    expect_einval(ZKQGeneral_GetPrivateProfileString("S", "k", "d", nullptr, sizeof buffer, path));
    expect_einval(ZKQGeneral_GetPrivateProfileString("S", "k", "d", nullptr, sizeof buffer, "no/such/file"));
    expect_einval(ZKQGeneral_GetPrivateProfileString("S", "k", nullptr, buffer, sizeof buffer, "no/such/file"));
    expect_einval(ZKQGeneral_GetPrivateProfileString("S", "k", "d", buffer, sizeof buffer, nullptr));
}

TEST_F(ProfileFile, ANullDefaultIsRefused)
{
    Put("[S]\nk=1\n");
    char buffer[20] = "";
    for (const char* key : {"none", "k"}) {
        SCOPED_TRACE(key);
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_GetPrivateProfileString("S", key, nullptr, buffer, sizeof buffer, path_.c_str()), 0U);
        EXPECT_SYSTEM_ERROR(EINVAL);
    }
}

} // namespace
