// zkq der: records in their DER-shaped form.
#include <stdio.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "charset.h"
#include "commands.h"
#include "failure.h"
#include "input.h"
#include "output.h"
#include "shown.h"

namespace {

constexpr unsigned kTagBits = 0x1F; // what the library looks at
constexpr unsigned kRecordTag = 0x10;
constexpr unsigned kArrayByte = 0x40;
constexpr size_t kArrayHeader = 6;
constexpr unsigned kMostLengthBytes = 4;
constexpr size_t kMostLength = 0xFFFFFF;
constexpr size_t kShownBytes = 16;
constexpr size_t kShownNumbers = 8;
constexpr size_t kShownText = 60;
constexpr size_t kMostIndented = 24; // levels

enum Kind { kInt32 = 1, kInt64, kPtr, kString, kStringPtr, kByteArray, kByteArrayPtr, kIntArray, kIntArrayPtr };
constexpr const char* kKinds[] = {"",          "INT32",     "INT64",        "PTR",      "STRING",
                                  "STRINGPTR", "BYTEARRAY", "BYTEARRAYPTR", "INTARRAY", "INTARRAYPTR"};

uint64_t BigEndian(std::string_view bytes)
{
    uint64_t number = 0;
    for (const char byte : bytes)
        number = number << 8 | static_cast<unsigned char>(byte);
    return number;
}

std::string Numbers(std::string_view content)
{
    std::string text;
    for (size_t i = 0; i < std::min(content.size() / 4, kShownNumbers); ++i)
        text.append(i == 0 ? "" : " ")
            .append(std::to_string(static_cast<int32_t>(BigEndian(content.substr(4 * i, 4)))));
    return content.size() / 4 > kShownNumbers ? text + " ..." : text;
}

std::string Pointer(uint64_t value)
{
    char text[24];
    snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
    return text;
}

/// A text with its NUL; without one it is shown as bytes.
std::string Text(std::string_view content)
{
    const size_t nul = content.find('\0');
    if (nul == std::string_view::npos)
        return ShownBytes(content, kShownBytes) + " (no NUL)";
    const std::string text = WithoutControls(ToTerminal(std::string(content.substr(0, nul))));
    return "\"" + text.substr(0, kShownText) + (text.size() > kShownText ? "\"..." : "\"") +
           (nul + 1 < content.size() ? " (" + Counted(content.size() - nul - 1, "byte") + " behind the NUL)" : "");
}

/// The content of a simple value.
std::string Value(unsigned kind, std::string_view content)
{
    const auto sized = [content](size_t size, const std::string& value) {
        return content.size() == size ? value
                                      : ShownBytes(content, kShownBytes) + " (not " + Counted(size, "byte") + ")";
    };
    switch (kind) {
    case kInt32:
        return sized(4, std::to_string(static_cast<int32_t>(BigEndian(content))));
    case kInt64:
        return sized(8, std::to_string(static_cast<int64_t>(BigEndian(content))));
    case kPtr:
        return sized(8, Pointer(BigEndian(content)));
    case kString:
    case kStringPtr:
        return content.empty() ? "" : Text(content);
    case kIntArray:
    case kIntArrayPtr:
        return Numbers(content) + (content.size() % 4 == 0 ? "" : " (not whole integers)");
    default:
        return ShownBytes(content, kShownBytes);
    }
}

/// Walks through all elements; how deep they are nested costs no stack, and counts are only counted down.
class Dump {
public:
    Dump(std::string_view bytes, const std::string& file) : bytes_(bytes), file_(file) {}

    void Run()
    {
        if (bytes_.empty())
            throw Failure(file_, "Not a record: it is empty");
        PrintLine("    OFFSET  TAG     LENGTH  KIND");
        Element(bytes_.size());
        while (!levels_.empty())
            Step();
        if (at_ < bytes_.size())
            PrintLine(Counted(bytes_.size() - at_, "byte") + (bytes_.size() - at_ == 1 ? " follows" : " follow") +
                      ", which decoding passes over");
    }

private:
    /// A record, or the elements of an array.
    struct Level {
        size_t end;
        std::optional<uint64_t> left; ///< elements of an array that are still to come
    };

    [[noreturn]] void Fail(const std::string& why) const
    {
        FlushOutput(); // what was good comes before it
        throw Failure(file_, "At offset " + std::to_string(at_) + ": " + why);
    }

    void Line(size_t offset, std::string_view rest) const
    {
        char columns[64];
        snprintf(columns, sizeof columns, "%10zu   %02x  ", offset,
                 static_cast<unsigned>(static_cast<unsigned char>(bytes_[offset])));
        const size_t depth = levels_.size();
        std::string line =
            columns + std::string(rest.substr(0, kLengthColumn)) + std::string(2 * std::min(depth, kMostIndented), ' ');
        if (depth > kMostIndented)
            line += "[level " + std::to_string(depth) + "] ";
        line += rest.substr(kLengthColumn);
        PrintLine(line.substr(0, line.find_last_not_of(' ') + 1));
    }
    void Line(size_t offset, size_t length, const std::string& text) const
    {
        char column[32];
        snprintf(column, sizeof column, "%9zu  ", length);
        Line(offset, std::string(column).append(text));
    }

    void Step()
    {
        Level& level = levels_.back();
        if (level.left == uint64_t{0} || (at_ == level.end && !level.left)) {
            levels_.pop_back();
            return;
        }
        if (at_ == level.end)
            Fail(std::to_string(*level.left) + " more of an array should be here");
        if (level.left)
            --*level.left;
        Element(level.end);
    }

    void Element(size_t end)
    {
        const size_t begin = at_;
        const auto first = static_cast<unsigned char>(bytes_[at_]);
        const unsigned tag = first & kTagBits;
        if (first == kArrayByte && !levels_.empty() && !levels_.back().left) // no array of arrays
            return Array(end);
        if (tag != kRecordTag && (tag < kInt32 || tag > kIntArrayPtr))
            Fail("No kind has the tag " + ShownBytes(bytes_.substr(at_, 1), 1));
        ++at_;
        const size_t length = Length(end);
        if (tag == kRecordTag) {
            Line(begin, length, "record");
            levels_.push_back({at_ + length, std::nullopt});
            return;
        }
        const std::string value = Value(tag, bytes_.substr(at_, length));
        Line(begin, length, std::string(kKinds[tag]) + (value.empty() ? "" : "  " + value));
        at_ += length;
    }

    void Array(size_t end)
    {
        if (end - at_ < kArrayHeader)
            Fail("The header of an array runs past the end");
        if (bytes_[at_ + 1] != kArrayHeader - 2)
            Fail("The header of an array has another length than 4");
        const uint64_t count = BigEndian(bytes_.substr(at_ + 2, 4));
        Line(at_, kArrayHeader - 2, "array of " + std::to_string(count));
        at_ += kArrayHeader;
        levels_.push_back({end, count});
    }

    /// Reads a length, of which so much content is there.
    size_t Length(size_t end)
    {
        if (at_ == end)
            Fail("A length is missing");
        const auto first = static_cast<unsigned char>(bytes_[at_]);
        size_t length = first;
        size_t count = 0;
        if (first >= 0x80) {
            count = first & 0x7F;
            if (count > kMostLengthBytes)
                Fail("A length of " + std::to_string(count) + " bytes");
            if (count > end - at_ - 1)
                Fail("A length runs past the end");
            length = BigEndian(bytes_.substr(at_ + 1, count));
        }
        if (length > kMostLength)
            Fail("The length " + std::to_string(length) + " is above 16777215");
        if (length > end - at_ - 1 - count)
            Fail("The length " + std::to_string(length) + " leads past the end");
        at_ += 1 + count;
        return length;
    }

    static constexpr size_t kLengthColumn = 11;

    std::string_view bytes_;
    std::string file_;
    size_t at_ = 0;
    std::vector<Level> levels_;
};

} // namespace

void AddDerCommands(CLI::App& app)
{
    CLI::App* const der = app.add_subcommand("der", "Show records in their DER-shaped form");
    der->require_subcommand(1);
    CLI::App* const dump = der->add_subcommand("dump", "Show the elements of an encoded record");
    const auto file = std::make_shared<std::string>();
    dump->add_option("FILE", *file, "The encoded record")->required()->type_name("");
    dump->callback([file] {
        const std::string bytes = ReadInput(*file);
        Dump(bytes, *file).Run();
    });
}
