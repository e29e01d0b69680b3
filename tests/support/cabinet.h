// Cabinets written and read by hand, from their format alone: the judge of those that the library makes, and the source
// of those that it never would.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "deflate.h"
#include "temp_dir.h"

namespace support {

constexpr size_t kCabinetHeader = 128;
constexpr int64_t kSomeTime = 1234567890;
constexpr long kPlainFile = 0100644;

/// Eight bytes, the lowest first.
inline std::string Word(int64_t value)
{
    std::string bytes;
    for (int shift = 0; shift < 64; shift += 8)
        bytes += static_cast<char>(static_cast<uint64_t>(value) >> shift & 0xFF);
    return bytes;
}

inline int64_t WordAt(const std::string& bytes, size_t at)
{
    uint64_t value = 0;
    for (size_t i = 0; i < 8; ++i)
        value |= static_cast<uint64_t>(static_cast<unsigned char>(bytes.at(at + i))) << (8 * i);
    return static_cast<int64_t>(value);
}

/// A file in a cabinet to be written. Its texts replace what would be right.
struct Entry {
    std::string name = {};
    std::string content = {};
    std::string time = std::to_string(kSomeTime);
    std::string accessFlag = std::to_string(kPlainFile);
    std::optional<std::string> startPos = {};
    std::optional<std::string> compactSize = {};
    std::optional<std::string> size = {};
    std::optional<std::string> stream = {};
};

/// A cabinet to be written. What is set replaces what would be right.
struct Cabinet {
    std::vector<Entry> entries = {};
    std::optional<std::string> directory = {};
    std::optional<std::string> directoryStream = {};
    std::optional<int64_t> count = {};
    std::optional<int64_t> offset = {};
    std::optional<int64_t> compact = {};
    std::optional<int64_t> plain = {};
    std::string tail = {}; // behind the directory

    std::string Directory() const
    {
        std::string text;
        size_t position = kCabinetHeader;
        for (size_t i = 0; i < entries.size(); ++i) {
            const Entry& entry = entries[i];
            const size_t length = StreamOf(entry).size();
            text += "[File" + std::to_string(i) + "]\nName = " + entry.name;
            text += "\nStartPos = " + entry.startPos.value_or(std::to_string(position));
            text += "\nCompactSize = " + entry.compactSize.value_or(std::to_string(length));
            text += "\nSize = " + entry.size.value_or(std::to_string(entry.content.size()));
            text += "\nTime = " + entry.time + "\nAccessFlag = " + entry.accessFlag + "\n";
            position += length;
        }
        return text;
    }

    std::string Bytes() const
    {
        std::string members;
        for (const Entry& entry : entries)
            members += StreamOf(entry);
        const std::string text = directory.value_or(Directory());
        const std::string stream = directoryStream.value_or(Deflated(text));
        std::string bytes = Word(count.value_or(static_cast<int64_t>(entries.size())));
        bytes += Word(offset.value_or(static_cast<int64_t>(kCabinetHeader + members.size())));
        bytes += Word(compact.value_or(static_cast<int64_t>(stream.size())));
        bytes += Word(plain.value_or(static_cast<int64_t>(text.size())));
        bytes.resize(kCabinetHeader, '\0');
        return bytes + members + stream + tail;
    }

    static std::string StreamOf(const Entry& entry) { return entry.stream.value_or(Deflated(entry.content)); }
};

/// A file as a cabinet holds it.
struct Member {
    std::string name;
    std::string content;
    long startPos = 0;
    long compactSize = 0;
    long size = 0;
    long time = 0;
    long accessFlag = 0;
};

/// A cabinet taken apart. Every deviation from the format fails the test: gaps, fields out of order, bytes to spare.
class CabinetReader {
public:
    explicit CabinetReader(const std::string& bytes) : bytes_(bytes)
    {
        if (bytes.size() <= kCabinetHeader) {
            ADD_FAILURE() << "no cabinet, " << bytes.size() << " bytes";
            return;
        }
        const int64_t offset = WordAt(bytes, 8);
        const int64_t compact = WordAt(bytes, 16);
        EXPECT_EQ(bytes.substr(32, 96), std::string(96, '\0')) << "reserved";
        EXPECT_EQ(offset + compact, static_cast<int64_t>(bytes.size())) << "the directory comes last";
        directory_ = StreamAt(offset, compact);
        EXPECT_EQ(WordAt(bytes, 24), static_cast<int64_t>(directory_.size())) << "the directory's plain size";
        ReadMembers(offset);
        EXPECT_EQ(WordAt(bytes, 0), static_cast<int64_t>(members_.size())) << "the number of members";
    }

    const std::string& Directory() const { return directory_; }
    const std::vector<Member>& Members() const { return members_; }
    std::vector<std::string> Names() const
    {
        std::vector<std::string> names;
        for (const Member& member : members_)
            names.push_back(member.name);
        return names;
    }

private:
    std::string StreamAt(int64_t at, int64_t length) const
    {
        if (at < static_cast<int64_t>(kCabinetHeader) || length < 0 || at > static_cast<int64_t>(bytes_.size()) ||
            length > static_cast<int64_t>(bytes_.size()) - at) {
            ADD_FAILURE() << "a stream outside the cabinet: " << length << " bytes at " << at;
            return {};
        }
        const auto plain =
            Inflated(std::string_view(bytes_).substr(static_cast<size_t>(at), static_cast<size_t>(length)));
        EXPECT_TRUE(plain.has_value()) << "no stream of " << length << " bytes at " << at;
        return plain.value_or("");
    }

    /// The value of the line "key = value" that the rest begins with, which is then cut off.
    static std::string Take(std::string_view* rest, const std::string& key)
    {
        const size_t end = rest->find('\n');
        const std::string_view line = rest->substr(0, end);
        rest->remove_prefix(end == std::string_view::npos ? rest->size() : end + 1);
        EXPECT_NE(end, std::string_view::npos) << "a line without an end";
        if (!line.starts_with(key + " = ")) {
            ADD_FAILURE() << "no \"" << key << " = \" but \"" << line << "\"";
            *rest = {};
            return {};
        }
        return std::string(line.substr(key.size() + 3));
    }

    static long Number(const std::string& text)
    {
        const long number = atol(text.c_str());
        EXPECT_EQ(std::to_string(number), text) << "no plain decimal number";
        EXPECT_EQ(number, static_cast<int32_t>(number)) << "more than 32 bits";
        return number;
    }

    void ReadMembers(int64_t end)
    {
        std::string_view rest = directory_;
        int64_t position = kCabinetHeader;
        while (!rest.empty()) {
            const std::string header = "[File" + std::to_string(members_.size()) + "]\n";
            EXPECT_TRUE(rest.starts_with(header)) << rest.substr(0, 40);
            if (!rest.starts_with(header))
                return;
            rest.remove_prefix(header.size());
            Member member;
            member.name = Take(&rest, "Name");
            member.startPos = Number(Take(&rest, "StartPos"));
            member.compactSize = Number(Take(&rest, "CompactSize"));
            member.size = Number(Take(&rest, "Size"));
            member.time = Number(Take(&rest, "Time"));
            member.accessFlag = Number(Take(&rest, "AccessFlag"));
            EXPECT_EQ(member.startPos, position) << "no gaps";
            member.content = StreamAt(member.startPos, member.compactSize);
            EXPECT_EQ(member.size, static_cast<long>(member.content.size()));
            position += member.compactSize;
            members_.push_back(member);
        }
        EXPECT_EQ(position, end) << "no gap before the directory";
    }

    std::string bytes_;
    std::string directory_;
    std::vector<Member> members_;
};

/// Watches over the temporary files of cabinets. Those of other tests that run meanwhile vanish by themselves.
class NoTempFiles {
public:
    NoTempFiles() : before_(Found()) {}
    NoTempFiles(const NoTempFiles&) = delete;
    NoTempFiles& operator=(const NoTempFiles&) = delete;
    ~NoTempFiles()
    {
        for (const std::string& path : Found())
            if (!before_.contains(path) && !Vanishes(path))
                ADD_FAILURE() << path << " is left";
    }

private:
    static std::set<std::string> Found()
    {
        std::set<std::string> found;
        std::error_code error;
        for (std::filesystem::directory_iterator at("/tmp", error), end; at != end && !error; at.increment(error))
            if (at->path().filename().string().starts_with("ini"))
                found.insert(at->path());
        return found;
    }

    static bool Vanishes(const std::string& path)
    {
        for (int i = 0; i < 500; ++i) {
            if (access(path.c_str(), F_OK) != 0)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    std::set<std::string> before_;
};

/// All paths below a directory, sorted, directories with a "/" at their end.
inline std::vector<std::string> TreeOf(const std::string& directory)
{
    std::set<std::string> paths;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        const std::string path = entry.path().string().substr(directory.size() + 1);
        paths.insert(entry.is_directory() && !entry.is_symlink() ? path + "/" : path);
    }
    return {paths.begin(), paths.end()};
}

} // namespace support
