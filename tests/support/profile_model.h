// A second, slow and obvious model of the profile rules. It knows nothing of the library and shares no code with it.
#pragma once

#include <errno.h>
#include <stdlib.h>

#include <optional>
#include <string>
#include <vector>

namespace support::model {

/// What a lookup or a filter ends with. `error` is 0 or an errno value.
struct Answer {
    int error = 0;
    std::string text;
};

inline std::string Lower(std::string text)
{
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return text;
}

inline bool SameName(const std::string& a, const std::string& b)
{
    return Lower(a) == Lower(b);
}

inline std::string Trim(std::string text)
{
    while (!text.empty() && text.front() == ' ')
        text.erase(0, 1);
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

/// The lines of a text. What follows the last line feed is a line unless it is empty. A carriage return ends a line's
/// content, wherever it stands.
inline std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::string rest = text;
    while (!rest.empty()) {
        const size_t end = rest.find('\n');
        std::string line = rest.substr(0, end);
        rest = end == std::string::npos ? "" : rest.substr(end + 1);
        lines.push_back(line.substr(0, line.find('\r')));
    }
    return lines;
}

inline bool IsHeader(const std::string& line)
{
    return line.starts_with('[');
}

inline bool IsComment(const std::string& line)
{
    return line.starts_with(';') || line.starts_with('#');
}

/// The name in a header line; none if it has no "]".
inline std::optional<std::string> HeaderName(const std::string& line)
{
    const size_t end = line.find(']');
    if (end == std::string::npos)
        return std::nullopt;
    return line.substr(1, end - 1);
}

inline std::string Key(const std::string& line)
{
    return Trim(line.substr(0, line.find('=')));
}

inline std::string Value(const std::string& line)
{
    const size_t sign = line.find('=');
    return sign == std::string::npos ? "" : Trim(line.substr(sign + 1));
}

/// The value of a key, not yet cut to a buffer.
inline Answer Read(const std::string& text, const std::string& section, const std::string& key,
                   const std::string& default_value)
{
    std::string current;
    for (const std::string& line : Lines(text)) {
        if (IsHeader(line)) {
            if (!HeaderName(line))
                return {EINVAL, default_value};
            current = *HeaderName(line);
        } else if (SameName(current, section) && SameName(Key(line), key)) {
            return {0, Value(line)};
        }
    }
    return {0, default_value};
}

/// What fits into a buffer of `size` bytes with a NUL.
inline std::string Cut(const std::string& text, size_t size)
{
    return size == 0 ? "" : text.substr(0, size - 1);
}

inline unsigned ReadInt(const std::string& text, const std::string& section, const std::string& key, int default_value)
{
    const std::string value = Read(text, section, key, "").text;
    return static_cast<unsigned>(value.empty() ? default_value : strtol(value.c_str(), nullptr, 10));
}

/// Where a writer's lines go: a file keeps everything, memory drops empty lines and has a capacity.
class Sink {
public:
    explicit Sink(std::optional<size_t> capacity) : capacity_(capacity) {}

    /// False if there is no more room.
    bool Line(const std::string& line)
    {
        if (capacity_ && line.empty())
            return true;
        if (capacity_ && text_.size() + line.size() + 3 > *capacity_)
            return false;
        text_ += line + "\n";
        return true;
    }
    const std::string& Text() const { return text_; }

private:
    std::optional<size_t> capacity_;
    std::string text_;
};

/// Sets or (without a value) deletes a key.
inline Answer Write(const std::string& text, const std::string& section, const std::string& key,
                    const std::optional<std::string>& value, Sink sink)
{
    std::string current;
    bool finished = false;
    for (const std::string& line : Lines(text)) {
        bool room = true;
        if (IsComment(line)) {
            room = sink.Line(line);
        } else if (IsHeader(line)) {
            const std::optional<std::string> name = HeaderName(line);
            if (!name)
                return {EINVAL, sink.Text()};
            if (!SameName(*name, section) && SameName(current, section) && !finished && value) {
                room = sink.Line(key + " = " + *value);
                finished = true;
            }
            current = *name;
            room = room && sink.Line(line);
        } else if (!SameName(current, section) || !SameName(Key(line), key)) {
            room = sink.Line(line);
        } else {
            if (value)
                room = sink.Line(Key(line) + " = " + *value);
            finished = true;
            current = "";
        }
        if (!room)
            return {ENOMEM, sink.Text()};
    }
    if (finished || !value)
        return {0, sink.Text()};
    const std::string entry = key + " = " + *value;
    if (!sink.Line(SameName(current, section) ? entry : "[" + section + "]\n" + entry))
        return {ENOMEM, sink.Text()};
    return {0, sink.Text()};
}

inline Answer WriteFile(const std::string& text, const std::string& section, const std::string& key,
                        const std::optional<std::string>& value)
{
    return Write(text, section, key, value, Sink(std::nullopt));
}

inline Answer WriteMemory(const std::string& text, const std::string& section, const std::string& key,
                          const std::optional<std::string>& value)
{
    const size_t names = value ? section.size() + key.size() + value->size() : 0;
    return Write(text, section, key, value, Sink(text.size() + names + 64));
}

/// Deletes all sections of a name, but not the comments in them.
inline Answer DeleteSection(const std::string& text, const std::string& section, Sink sink)
{
    std::string current;
    for (const std::string& line : Lines(text)) {
        bool keep = true;
        if (IsComment(line)) {
            keep = true;
        } else if (IsHeader(line)) {
            if (!HeaderName(line))
                return {EINVAL, sink.Text()};
            current = *HeaderName(line);
            keep = !SameName(current, section);
        } else {
            keep = !SameName(current, section);
        }
        if (keep && !sink.Line(line))
            return {ENOMEM, sink.Text()};
    }
    return {0, sink.Text()};
}

inline Answer DeleteSectionFile(const std::string& text, const std::string& section)
{
    if (section.empty())
        return {EINVAL, text};
    return DeleteSection(text, section, Sink(std::nullopt));
}

inline Answer DeleteSectionMemory(const std::string& text, const std::string& section)
{
    return DeleteSection(text, section, Sink(text.size() + 1));
}

/// A list of names in a buffer of `size` bytes: what the buffer begins with, without the final NUL.
class NameList {
public:
    explicit NameList(size_t size) : size_(size) {}

    /// False if the name did not fit, which ends the list.
    bool Add(const std::string& name)
    {
        if (list_.size() + 1 >= size_)
            return false;
        const std::string cut = Cut(name, size_ - list_.size() - 1);
        list_ += cut + '\0';
        return cut == name;
    }
    const std::string& Text() const { return list_; }

private:
    size_t size_;
    std::string list_;
};

inline Answer SectionNames(const std::string& text, size_t size)
{
    NameList list(size);
    for (const std::string& line : Lines(text)) {
        if (!IsHeader(line))
            continue;
        if (!HeaderName(line))
            return {EINVAL, list.Text()};
        if (!list.Add(*HeaderName(line)))
            break;
    }
    return {0, list.Text()};
}

inline Answer ItemNames(const std::string& text, const std::string& section, size_t size)
{
    NameList list(size);
    std::string current;
    for (const std::string& line : Lines(text)) {
        if (IsComment(line) || line.empty())
            continue;
        if (IsHeader(line)) {
            if (!HeaderName(line))
                return {EINVAL, list.Text()};
            current = *HeaderName(line);
        } else if (SameName(current, section) && !list.Add(Key(line))) {
            break;
        }
    }
    return {0, list.Text()};
}

/// The tokens of a text.
inline std::vector<std::string> Split(const std::string& text, const std::string& separators)
{
    std::vector<std::string> tokens;
    std::string token;
    for (const char c : text) {
        if (separators.find(c) == std::string::npos) {
            token += c;
        } else if (!token.empty()) {
            tokens.push_back(token);
            token.clear();
        }
    }
    if (!token.empty())
        tokens.push_back(token);
    return tokens;
}

} // namespace support::model
