#include "cabinet.h"

#include <ZKQ_general/zlib.h>
#include <errno.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <sstream>

#include "failure.h"
#include "paths.h"

namespace {

constexpr long kHeaderSize = 128;
constexpr long kMostExpanded = 1032; // no stream yields more bytes for one of its own
constexpr size_t kNameSize = 300;    // of the library's buffers, the NULs counted
constexpr size_t kNumberSize = 100;

using Keys = std::map<std::string, std::string>;
using Sections = std::map<std::string, Keys>;

long WordAt(const std::string& bytes, size_t at)
{
    unsigned long value = 0;
    for (size_t i = 8; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    return static_cast<long>(value);
}

std::optional<std::string> Decompressed(const std::string& stream, long size)
{
    if (size < 0 || size / kMostExpanded > static_cast<long>(stream.size()))
        return std::nullopt;
    std::string plain(static_cast<size_t>(size), '\0');
    if (!ZKQGeneral_Zlib_UnCompressBuffer(reinterpret_cast<const unsigned char*>(stream.data()),
                                          static_cast<long>(stream.size()),
                                          reinterpret_cast<unsigned char*>(plain.data()), size))
        return std::nullopt;
    return plain;
}

std::string Lower(std::string text)
{
    for (char& byte : text)
        if (byte >= 'A' && byte <= 'Z')
            byte = static_cast<char>(byte - 'A' + 'a');
    return text;
}

std::string Trimmed(const std::string& text)
{
    const size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

/// Reads the directory once, by the rules of profile texts: the first of equal keys counts, and nothing behind a broken
/// header.
Sections ReadSections(const std::string& text)
{
    Sections sections;
    Keys* keys = &sections[""];
    std::istringstream lines(text.c_str()); // as a text, up to its NUL
    for (std::string line; std::getline(lines, line);) {
        line.resize(std::min(line.find('\r'), line.size()));
        if (line.starts_with('[')) {
            const size_t end = line.find(']');
            if (end == std::string::npos)
                break;
            keys = &sections[Lower(line.substr(1, end - 1))];
        } else {
            const size_t equals = line.find('=');
            keys->emplace(Lower(Trimmed(line.substr(0, equals))),
                          equals == std::string::npos ? "" : Trimmed(line.substr(equals + 1)));
        }
    }
    return sections;
}

std::string Value(const Keys& keys, const std::string& name)
{
    const auto found = keys.find(name);
    return found == keys.end() ? "" : found->second;
}

long Number(const Keys& keys, const std::string& name)
{
    return strtol(Value(keys, name).substr(0, kNumberSize - 1).c_str(), nullptr, 10);
}

std::optional<CabinetMember> ReadMember(const Sections& sections, long number)
{
    const auto found = sections.find("file" + std::to_string(number));
    if (found == sections.end())
        return std::nullopt;
    const Keys& keys = found->second;
    CabinetMember member = {Value(keys, "name").substr(0, kNameSize - 1),
                            Number(keys, "startpos"),
                            Number(keys, "compactsize"),
                            Number(keys, "size"),
                            Number(keys, "time"),
                            Number(keys, "accessflag")};
    if (member.name.empty() || member.start == 0 || member.packed == 0 || member.size == 0)
        return std::nullopt;
    return member;
}

} // namespace

Cabinet::Cabinet(const std::string& file) : file_(file)
{
    RequireRegular(file);
    errno = 0;
    in_.open(file, std::ios::binary | std::ios::ate);
    if (!in_)
        throw SystemFailure("cannot read " + file, errno);
    length_ = in_.tellg();
    const std::string header = Bytes(0, kHeaderSize);
    if (header.empty())
        throw Failure(file, "Not a cabinet");
    const std::string stream = Bytes(WordAt(header, 8), WordAt(header, 16));
    const std::optional<std::string> text = Decompressed(stream, WordAt(header, 24));
    if (!text)
        throw Failure(file, "Not a cabinet, or its directory is damaged");
    const Sections sections = ReadSections(*text);
    const long count = WordAt(header, 0);
    for (long i = 0; i < count; ++i) {
        const std::optional<CabinetMember> member = ReadMember(sections, i);
        if (!member)
            throw Failure(file, "The entry of file " + std::to_string(i) + " is damaged");
        members_.push_back(*member);
    }
}

/// A piece of the file; nothing if it does not lie in it.
std::string Cabinet::Bytes(long offset, long length)
{
    if (offset < 0 || length <= 0 || offset > length_ || length > length_ - offset)
        return {};
    std::string bytes(static_cast<size_t>(length), '\0');
    in_.seekg(offset);
    if (!in_.read(bytes.data(), length))
        throw Failure("cannot read " + file_, "Short read");
    return bytes;
}

bool Cabinet::IsWhole(const CabinetMember& member)
{
    const std::string stream = Bytes(member.start, member.packed);
    return !stream.empty() && Decompressed(stream, member.size);
}
