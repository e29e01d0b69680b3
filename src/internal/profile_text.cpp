#include "profile_text.h"

#include <limits.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "text.h"

namespace {

constexpr std::string_view kAssign = " = ";

const char* FindOrEnd(const char* begin, const char* end, char c)
{
    const void* found = begin == end ? nullptr : memchr(begin, c, static_cast<size_t>(end - begin));
    return found == nullptr ? end : static_cast<const char*>(found);
}

void Classify(ProfileLine* line)
{
    line->kind = ProfileLine::kEntry;
    if (line->text.empty())
        return;
    switch (line->text.front()) {
    case ';':
    case '#':
        line->kind = ProfileLine::kComment;
        break;
    case '[': {
        const size_t bracket = line->text.find(']');
        line->kind = bracket == std::string_view::npos ? ProfileLine::kBadHeader : ProfileLine::kHeader;
        if (line->kind == ProfileLine::kHeader)
            line->name = After(line->text.substr(0, bracket), 1);
        break;
    }
    default:
        break;
    }
}

size_t LengthOf(const ProfileEntry& entry)
{
    return entry.key.size() + kAssign.size() + entry.value.size();
}

} // namespace

ProfileEntry ParseINIFileLine(std::string_view line)
{
    const size_t assign = line.find('=');
    if (assign == std::string_view::npos)
        return {TrimBlanks(line), {}};
    return {TrimBlanks(line.substr(0, assign)), TrimBlanks(After(line, assign + 1))};
}

ProfileReader::ProfileReader(std::string_view text)
    : next_(text.data()), end_(text.data() + text.size()), carriageReturn_(FindOrEnd(next_, end_, '\r'))
{}

bool ProfileReader::Next(ProfileLine* line)
{
    if (next_ == end_)
        return false;
    const char* const begin = next_;
    const char* lineEnd = FindOrEnd(begin, end_, '\n');
    const bool terminated = lineEnd != end_;
    next_ = lineEnd + terminated;
    const bool tooLong = lineEnd - begin > static_cast<ptrdiff_t>(kProfileLineMax);
    if (!terminated && lineEnd - begin == static_cast<ptrdiff_t>(kProfileLineMax))
        --lineEnd;
    line->isWhole = terminated;
    if (carriageReturn_ < next_) {
        line->isWhole = false;
        lineEnd = std::min(lineEnd, carriageReturn_);
        carriageReturn_ = FindOrEnd(next_, end_, '\r');
    }
    line->text = {begin, static_cast<size_t>(lineEnd - begin)};
    if (tooLong)
        line->kind = ProfileLine::kTooLong;
    else
        Classify(line);
    return true;
}

int FindProfileValue(std::string_view text, std::string_view section, std::string_view key, std::string_view* value)
{
    ProfileReader reader(text);
    ProfileLine line;
    bool inSection = section.empty();
    while (reader.Next(&line)) {
        if (line.kind == ProfileLine::kBadHeader || line.kind == ProfileLine::kTooLong)
            return EINVAL;
        if (line.kind == ProfileLine::kHeader) {
            inSection = EqualNoCase(line.name, section);
        } else if (inSection) {
            const ProfileEntry entry = ParseINIFileLine(line.text);
            if (EqualNoCase(entry.key, key)) {
                *value = entry.value;
                return 0;
            }
        }
    }
    return ENOENT;
}

unsigned ProfileInteger(std::string_view value, int fallback)
{
    if (value.empty())
        return static_cast<unsigned>(fallback);
    char digits[kProfileLineMax + 1];
    GeneralMisc_OutputString(value, digits, sizeof digits, 1);
    return static_cast<unsigned>(strtol(digits, nullptr, 10));
}

bool HasTooLongLine(std::string_view text)
{
    ProfileReader reader(text);
    ProfileLine line;
    while (reader.Next(&line))
        if (line.kind == ProfileLine::kTooLong)
            return true;
    return false;
}

ProfileOutput::ProfileOutput(size_t capacity, bool inMemory)
    : block_(static_cast<char*>(malloc(capacity))), capacity_(capacity), inMemory_(inMemory)
{}

/// Makes room for `length` more bytes and the final NUL. In memory the margin has seen to that.
int ProfileOutput::Reserve(size_t length)
{
    const size_t needed = size_ + length + 1;
    if (needed <= capacity_)
        return 0;
    const size_t capacity = needed + needed / 2;
    char* grown = static_cast<char*>(realloc(block_.get(), capacity));
    if (grown == nullptr)
        return ENOMEM;
    static_cast<void>(block_.release()); // realloc() has taken it
    block_.reset(grown);
    capacity_ = capacity;
    return 0;
}

/// Begins a line of `length` bytes; 0 or ENOMEM.
int ProfileOutput::Start(size_t length)
{
    if (size_ + length + kMemoryMargin <= capacity_)
        return 0;
    return inMemory_ ? ENOMEM : Reserve(length + 1);
}

void ProfileOutput::Append(std::string_view text)
{
    FlushPending();
    size_ += text.copy(block_.get() + size_, text.size());
}

void ProfileOutput::FlushPending()
{
    const std::string_view pending(pendingBegin_, static_cast<size_t>(pendingEnd_ - pendingBegin_));
    pending.copy(block_.get() + size_ - pending.size(), pending.size());
    pendingBegin_ = pendingEnd_ = nullptr;
}

/// A line that does not lengthen what is pending.
int ProfileOutput::CopyApart(const ProfileLine& line)
{
    if (line.text.empty() && inMemory_)
        return 0;
    if (const int error = Start(line.text.size()))
        return error;
    if (!line.isWhole) {
        Append(line.text);
        Append("\n");
        return 0;
    }
    if (line.text.data() != pendingEnd_) {
        FlushPending();
        pendingBegin_ = pendingEnd_ = line.text.data();
    }
    pendingEnd_ += line.text.size() + 1;
    size_ += line.text.size() + 1;
    return 0;
}

int ProfileOutput::Add(const ProfileEntry& entry)
{
    if (const int error = Start(LengthOf(entry)))
        return error;
    for (const std::string_view piece : {entry.key, kAssign, entry.value, std::string_view("\n")})
        Append(piece);
    return 0;
}

int ProfileOutput::AddSection(std::string_view section, const ProfileEntry& entry)
{
    constexpr size_t kFrame = 3; // "[", "]" and the line feed
    if (const int error = Start(section.size() + kFrame + LengthOf(entry)))
        return error;
    for (const std::string_view piece : {std::string_view("["), section, std::string_view("]\n")})
        Append(piece);
    return Add(entry);
}

void ProfileOutput::Finish()
{
    FlushPending();
    memset(block_.get() + size_, 0, capacity_ - size_);
}

int WritePrivateProfileString_R(std::string_view text, const ProfileEdit& edit, ProfileOutput* output)
{
    ProfileReader reader(text);
    ProfileLine line;
    const ProfileEntry added = {edit.key, OrEmpty(edit.value)};
    bool inSection = edit.section.empty();
    bool finished = false;
    int error = 0;
    while (error == 0 && reader.Next(&line)) {
        if (line.kind == ProfileLine::kBadHeader || line.kind == ProfileLine::kTooLong)
            return EINVAL;
        if (line.kind == ProfileLine::kHeader) {
            const bool entering = EqualNoCase(line.name, edit.section);
            if (inSection && !entering && !finished && edit.value != nullptr) {
                error = output->Add(added);
                finished = true;
            }
            inSection = entering;
        } else if (line.kind == ProfileLine::kEntry && inSection) {
            const ProfileEntry entry = ParseINIFileLine(line.text);
            if (EqualNoCase(entry.key, edit.key)) {
                if (edit.value != nullptr)
                    error = output->Add({entry.key, added.value});
                finished = true;
                inSection = edit.section.empty(); // the rest counts as the section "", so later duplicates stay
                continue;
            }
        }
        if (error == 0)
            error = output->Copy(line);
    }
    if (error != 0 || finished || edit.value == nullptr)
        return error;
    return inSection ? output->Add(added) : output->AddSection(edit.section, added);
}

int DeletePrivateProfileSection_R(std::string_view text, const ProfileEdit& edit, ProfileOutput* output)
{
    ProfileReader reader(text);
    ProfileLine line;
    bool inSection = edit.section.empty();
    int error = 0;
    while (error == 0 && reader.Next(&line)) {
        if (line.kind == ProfileLine::kBadHeader || line.kind == ProfileLine::kTooLong)
            return EINVAL;
        if (line.kind == ProfileLine::kHeader)
            inSection = EqualNoCase(line.name, edit.section);
        if (!inSection || line.kind == ProfileLine::kComment)
            error = output->Copy(line);
    }
    return error;
}
