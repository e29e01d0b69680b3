// A directory of its own for each test, removed with all it holds when the test ends.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace support {

class TempDir {
public:
    TempDir()
    {
        // Log directories have at most 95 bytes, and the build tree may be deep.
        constexpr size_t longest = 60;
        std::string pattern = sizeof ZKQ_TEST_TMP <= longest ? ZKQ_TEST_TMP : "/tmp";
        pattern += "/test.XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr)
            ADD_FAILURE() << "cannot make " << pattern;
        path_ = pattern;
    }
    ~TempDir()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    /// Path of a file in the directory.
    std::string File(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void WriteFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    ASSERT_TRUE(out.flush().good()) << path;
}

} // namespace support
