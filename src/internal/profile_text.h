// The one reading of profile texts: lines, entries, and the filters that rewrite a text.
#pragma once

#include <stddef.h>

#include <string_view>

#include "guards.h"

/// Longest line; one more byte is an error. A last line without its line feed holds one less: it is cut.
inline constexpr size_t kProfileLineMax = 4095;

struct ProfileLine {
    enum Kind {
        kEntry,
        kComment,   ///< ";" or "#" first
        kHeader,    ///< "[name]", `name` is set
        kBadHeader, ///< "[" without "]"
        kTooLong
    };
    Kind kind;
    std::string_view text; ///< the line, cut at its first carriage return
    std::string_view name; ///< of the section
    bool isWhole;          ///< the source holds the text directly followed by its line feed
};

struct ProfileEntry {
    std::string_view key;
    std::string_view value;
};

/// "key = value" taken apart and trimmed; a line without "=" is a key.
ProfileEntry ParseINIFileLine(std::string_view line);

/// Walks over the lines of a text.
class ProfileReader {
public:
    explicit ProfileReader(std::string_view text);
    /// The next line; false at the end of the text.
    bool Next(ProfileLine* line);

private:
    const char* next_;
    const char* end_;
    const char* carriageReturn_; ///< the first one not before next_, or end_
};

/// Finds the first entry of a key in a section. 0, ENOENT, or EINVAL if a bad line comes first.
int FindProfileValue(std::string_view text, std::string_view section, std::string_view key, std::string_view* value);

/// The integer of a value as strtol() reads it, cut to 32 bits; `fallback` for an empty one.
unsigned ProfileInteger(std::string_view value, int fallback);

/// Some line of the text is longer than kProfileLineMax.
bool HasTooLongLine(std::string_view text);

/// Where the writers put a text. To a file, blank lines are kept; to memory they are dropped, and a line for which the
/// stated room does not suffice fails. Both are built in memory; stretches of unchanged lines are copied in one piece.
class ProfileOutput {
public:
    /// A text for a file, expected to need about `size` bytes.
    static ProfileOutput ToFile(size_t size) { return {size, false}; }
    /// A text in memory with room for `capacity` bytes.
    static ProfileOutput ToMemory(size_t capacity) { return {capacity, true}; }

    /// The first block could be had.
    bool IsReady() const { return block_ != nullptr; }
    /// Appends a line of the source as it is; 0 or ENOMEM. Nearly all lines follow the one before, and only lengthen what is
    /// pending.
    int Copy(const ProfileLine& line)
    {
        const size_t length = line.text.size() + 1; // the line feed stands behind the text
        const bool isKept = length > 1 || !inMemory_;
        if (!line.isWhole || !isKept || line.text.data() != pendingEnd_ ||
            length + kMemoryMargin - 1 > capacity_ - size_)
            return CopyApart(line);
        pendingEnd_ += length;
        size_ += length;
        return 0;
    }
    /// Appends "key = value"; 0 or ENOMEM.
    int Add(const ProfileEntry& entry);
    /// Appends "[section]" and "key = value"; 0 or ENOMEM.
    int AddSection(std::string_view section, const ProfileEntry& entry);

    /// Ends the text with zeros up to its capacity. Call it once, last.
    void Finish();
    std::string_view Text() const { return {block_.get(), size_}; }
    char* Release() { return block_.release(); }

private:
    static constexpr size_t kMemoryMargin = 3; ///< what a line in memory must leave free, its line feed included

    ProfileOutput(size_t capacity, bool inMemory);
    int Reserve(size_t length);
    int Start(size_t length);
    int CopyApart(const ProfileLine& line);
    void Append(std::string_view text);
    void FlushPending();

    MallocPtr<char> block_;
    size_t capacity_;
    size_t size_ = 0;
    const char* pendingBegin_ = nullptr; ///< unchanged source text, counted in size_ but not copied yet
    const char* pendingEnd_ = nullptr;
    bool inMemory_;
};

/// What a writer does to a text.
struct ProfileEdit {
    std::string_view section;
    std::string_view key; ///< unless the section is deleted
    const char* value;    ///< null deletes the key
};

/// Sets or deletes a key; 0, EINVAL after a bad line, or ENOMEM. The output then holds what came before.
int WritePrivateProfileString_R(std::string_view text, const ProfileEdit& edit, ProfileOutput* output);
/// Deletes a section; results as above.
int DeletePrivateProfileSection_R(std::string_view text, const ProfileEdit& edit, ProfileOutput* output);
