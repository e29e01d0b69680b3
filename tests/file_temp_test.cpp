// Temporary files. They are made in /tmp whatever the test wants, so each test removes what it made.
#include <ZKQ_general/file.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/time.h>
#include <unistd.h>

#include <set>
#include <string>

#include "support/buffer.h"
#include "support/error_text.h"
#include "support/paths.h"
#include "support/temp_dir.h"
#include "support/working_dir.h"

namespace {

constexpr const char* kAlphabet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr size_t kRandomPart = 6;

// Gives each test a prefix of its own and removes all files with it.
class TempFile : public testing::Test {
protected:
    void TearDown() override
    {
        for (const std::string& path : Made())
            unlink(path.c_str());
    }
    std::vector<std::string> Made() const { return support::FilesWithPrefix("/tmp", prefix_); }

    // Makes a file with a buffer of `size` bytes; empty after a failure.
    std::string Make(const std::string& prefix, int size = 300)
    {
        support::Buffer buffer(static_cast<size_t>(size));
        const BOOL made = ZKQGeneral_MyCreateTempFile(buffer.Data(), prefix.c_str(), size);
        EXPECT_TRUE(buffer.GuardIntact());
        return made == TRUE ? buffer.Text() : "";
    }

    const std::string prefix_ = "zkqtest" + std::to_string(getpid()) + "_" + std::to_string(time(nullptr)) + "_";
};

TEST_F(TempFile, NameIsPrefixAndSixCharactersOfTheAlphabet)
{
    const std::string name = Make(prefix_);
    const std::string start = "/tmp/" + prefix_;
    ASSERT_EQ(name.size(), start.size() + kRandomPart);
    EXPECT_EQ(name.substr(0, start.size()), start);
    EXPECT_EQ(name.find_first_not_of(kAlphabet, start.size()), std::string::npos) << name;
}

TEST_F(TempFile, FileIsEmptyRegularAndHasTheStatedMode)
{
    for (mode_t mask : {0U, 022U, 077U}) {
        SCOPED_TRACE(mask);
        support::Umask guard(mask);
        const std::string name = Make(prefix_);
        struct stat info = {};
        ASSERT_EQ(lstat(name.c_str(), &info), 0) << name;
        EXPECT_TRUE(S_ISREG(info.st_mode));
        EXPECT_EQ(info.st_size, 0);
        EXPECT_EQ(info.st_mode & 07777U, 0644U & ~mask);
    }
}

TEST_F(TempFile, DescriptorIsClosed)
{
    const int before = dup(0);
    close(before);
    for (int i = 0; i < 20; ++i)
        Make(prefix_);
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

TEST_F(TempFile, NamesAreUnique)
{
    std::set<std::string> names;
    for (int i = 0; i < 500; ++i)
        names.insert(Make(prefix_));
    EXPECT_EQ(names.size(), 500U);
    EXPECT_EQ(names.count(""), 0U);
    EXPECT_EQ(Made().size(), 500U);
}

TEST_F(TempFile, SuccessLeavesTheErrorText)
{
    support::MarkErrorText();
    EXPECT_NE(Make(prefix_), "");
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

TEST_F(TempFile, PrefixIsNoFormat)
{
    const std::string name = Make(prefix_ + "%s%n%d");
    EXPECT_TRUE(name.starts_with("/tmp/" + prefix_ + "%s%n%d")) << name;
    EXPECT_TRUE(support::Exists(name));
}

TEST_F(TempFile, EmptyPrefix)
{
    const std::string name = Make("");
    EXPECT_EQ(name.size(), strlen("/tmp/") + kRandomPart);
    EXPECT_EQ(unlink(name.c_str()), 0);
}

TEST_F(TempFile, BufferSizes)
{
    const int needed = static_cast<int>(strlen("/tmp/") + prefix_.size() + kRandomPart) + 1;
    for (int size : {needed + 1, needed}) {
        SCOPED_TRACE(size);
        EXPECT_TRUE(support::Exists(Make(prefix_, size)));
    }
    for (int size : {needed - 1, 5, 1, 0, -1, INT_MIN}) {
        SCOPED_TRACE(size);
        const size_t before = Made().size();
        support::Buffer buffer(static_cast<size_t>(std::max(size, 0)));
        support::MarkErrorText();
        EXPECT_EQ(ZKQGeneral_MyCreateTempFile(buffer.Data(), prefix_.c_str(), size), FALSE);
        EXPECT_SYSTEM_ERROR(ENOBUFS);
        EXPECT_TRUE(buffer.Untouched());
        EXPECT_EQ(Made().size(), before + 1) << "the file that was made stays";
    }
}

TEST_F(TempFile, AMissingDirectoryInThePrefix)
{
    support::MarkErrorText();
    EXPECT_EQ(Make(prefix_ + "/missing/x"), "");
    EXPECT_EQ(support::ErrorText(), "Cann't create a unique tmpfile!");
    EXPECT_TRUE(Made().empty());
}

TEST_F(TempFile, ANameTooLongForTheSystem)
{
    support::MarkErrorText();
    EXPECT_EQ(Make(std::string(260, 'n')), "");
    EXPECT_EQ(support::ErrorText(), "Cann't create a unique tmpfile!");
}

TEST_F(TempFile, PrefixLengthsAroundTheTemplate)
{
    for (size_t length : {287U, 288U, 289U, 290U, 500U, 5000U}) {
        SCOPED_TRACE(length);
        std::string prefix;
        while (prefix.size() + prefix_.size() + 1 < length)
            prefix += "./";
        prefix.resize(length - prefix_.size(), '/');
        prefix += prefix_;
        const size_t before = Made().size();
        support::MarkErrorText();
        const std::string name = Make(prefix);
        EXPECT_EQ(support::Exists(name), length <= 288);
        EXPECT_EQ(Made().size() - before, length <= 288 ? 1U : 0U);
        if (length > 288) {
            EXPECT_TRUE(support::ErrorText() == strerror(ENAMETOOLONG) || support::ErrorText() == strerror(EINVAL));
        }
    }
}

TEST_F(TempFile, NullArguments)
{
    char name[300];
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_MyCreateTempFile(nullptr, prefix_.c_str(), 300), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
    EXPECT_TRUE(Made().empty());
    support::MarkErrorText();
    EXPECT_EQ(ZKQGeneral_MyCreateTempFile(name, nullptr, 300), FALSE);
    EXPECT_SYSTEM_ERROR(EINVAL);
}

// The counter's low part, as the six characters show it.
uint64_t NameNumber(const std::string& name)
{
    uint64_t number = 0;
    for (size_t i = 0; i < kRandomPart; ++i) {
        const char* place = strchr(kAlphabet, name[name.size() - 1 - i]);
        number = number * 62 + static_cast<uint64_t>(place - kAlphabet);
    }
    return number;
}

uint64_t Microseconds()
{
    timeval now = {};
    gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000000 + static_cast<uint64_t>(now.tv_usec);
}

// Whether a call between two moments may have moved the counter by `step`.
bool StepIsStated(uint64_t step, uint64_t from, uint64_t to)
{
    constexpr uint64_t kNames = 62ULL * 62 * 62 * 62 * 62 * 62;
    for (uint64_t moment = from; moment <= to; ++moment) {
        const uint64_t time_bits = (moment % 1000000) << 16 ^ moment / 1000000;
        if ((time_bits ^ static_cast<uint64_t>(getpid())) % kNames == step % kNames)
            return true;
    }
    return false;
}

TEST_F(TempFile, NamesFollowFromTimeProcessAndCounter)
{
    constexpr uint64_t kNames = 62ULL * 62 * 62 * 62 * 62 * 62;
    std::string former = Make(prefix_);
    for (int i = 0; i < 20; ++i) {
        const uint64_t from = Microseconds();
        const std::string name = Make(prefix_);
        const uint64_t to = Microseconds();
        ASSERT_FALSE(name.empty());
        const uint64_t step = (NameNumber(name) + kNames - NameNumber(former)) % kNames;
        EXPECT_TRUE(StepIsStated(step, from, to)) << former << " -> " << name;
        former = name;
    }
}

} // namespace
