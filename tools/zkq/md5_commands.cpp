// zkq md5: digests of files, in the form of md5sum, and lists of them checked.
#include <ZKQ_general/md5.h>
#include <stdio.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "bytes.h"
#include "commands.h"
#include "failure.h"
#include "output.h"

namespace {

constexpr size_t kDigestSize = 16;
constexpr size_t kHexSize = 2 * kDigestSize;
constexpr char kDigits[] = "0123456789abcdef";

struct Options {
    std::vector<std::string> files;
    bool check = false;
    bool quiet = false;
    bool status = false;
};

/// The content as whoever reads the file sees it; the library's own function takes pipes and files in /proc for empty.
std::string Digest(const std::string& file)
{
    const std::string bytes = ByteSource(file).ReadAll();
    unsigned char digest[kDigestSize];
    ZKQGeneral_DigestBuffer(bytes.data(), static_cast<unsigned>(bytes.size()), digest);
    std::string hex;
    for (const unsigned char byte : digest) {
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 15];
    }
    return hex;
}

/// What a list writes behind a backslash.
struct Escape {
    char character;
    char letter;
};
constexpr Escape kEscapes[] = {{'\\', '\\'}, {'\n', 'n'}, {'\r', 'r'}};

std::string Escaped(const std::string& name)
{
    std::string text;
    for (const char character : name) {
        const auto* const escape =
            std::find_if(std::begin(kEscapes), std::end(kEscapes), [=](Escape e) { return e.character == character; });
        if (escape == std::end(kEscapes))
            text += character;
        else
            (text += '\\') += escape->letter;
    }
    return text;
}

std::optional<std::string> Unescaped(const std::string& text)
{
    std::string name;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            name += text[i];
            continue;
        }
        const char letter = ++i < text.size() ? text[i] : '\0';
        const auto* const escape =
            std::find_if(std::begin(kEscapes), std::end(kEscapes), [=](Escape e) { return e.letter == letter; });
        if (escape == std::end(kEscapes))
            return std::nullopt;
        name += escape->character;
    }
    return name;
}

/// A line of a list.
struct Entry {
    std::string digest;
    std::string name;
};

bool IsDigest(const std::string& text)
{
    return text.size() == kHexSize && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

std::string LowerCase(std::string hex)
{
    for (char& digit : hex)
        if (digit >= 'A' && digit <= 'F')
            digit = static_cast<char>(digit - 'A' + 'a');
    return hex;
}

/// "MD5 (name) = digest", as md5sum --tag and BSD write it.
std::optional<Entry> ParseTagged(const std::string& line)
{
    const std::string begin = "MD5 (";
    const size_t end = line.rfind(") = ");
    if (!line.starts_with(begin) || end == std::string::npos || end < begin.size())
        return std::nullopt;
    return Entry{line.substr(end + 4), line.substr(begin.size(), end - begin.size())};
}

/// "digest  name", with "*" before the name, or with one blank as BSD's md5 -r writes it.
std::optional<Entry> ParsePlain(const std::string& line)
{
    if (line.size() < kHexSize + 2 || (line[kHexSize] != ' ' && line[kHexSize] != '\t'))
        return std::nullopt;
    std::string name = line.substr(kHexSize + 1);
    if (name.size() > 1 && (name.front() == ' ' || name.front() == '*'))
        name.erase(0, 1);
    return Entry{line.substr(0, kHexSize), name};
}

std::optional<Entry> ParseLine(std::string line)
{
    line.erase(0, line.find_first_not_of(" \t"));
    const bool isEscaped = line.starts_with('\\');
    if (isEscaped)
        line.erase(0, 1);
    std::optional<Entry> entry = ParseTagged(line);
    if (!entry)
        entry = ParsePlain(line);
    if (!entry || !IsDigest(entry->digest))
        return std::nullopt;
    entry->digest = LowerCase(entry->digest);
    if (isEscaped) {
        const std::optional<std::string> name = Unescaped(entry->name);
        if (!name)
            return std::nullopt;
        entry->name = *name;
    }
    return entry;
}

void Complain(const std::string& text)
{
    FlushOutput(); // what was found before comes before it
    fprintf(stderr, "zkq: %s\n", text.c_str());
}

class Checker {
public:
    explicit Checker(const Options& options) : options_(options) {}

    /// Checks what a list names; false if anything is not as listed.
    bool CheckList(const std::string& list)
    {
        counts_ = {};
        const std::string text = ByteSource(list).ReadAll();
        for (size_t at = 0; at < text.size();) {
            const size_t end = std::min(text.find('\n', at), text.size());
            CheckLine(text.substr(at, end - at));
            at = end + 1;
        }
        if (counts_.good + counts_.wrong + counts_.unread == 0)
            throw Failure(list == "-" ? "standard input" : list, "No checksum line found");
        if (!options_.status) {
            Warn(counts_.malformed, "line is no checksum line", "lines are no checksum lines");
            Warn(counts_.unread, "listed file could not be read", "listed files could not be read");
            Warn(counts_.wrong, "computed checksum did NOT match", "computed checksums did NOT match");
        }
        return counts_.wrong + counts_.unread == 0;
    }

private:
    struct Counts {
        int good;
        int wrong;
        int unread;
        int malformed;
    };

    void CheckLine(std::string line)
    {
        if (line.ends_with('\r'))
            line.pop_back();
        if (line.starts_with('#'))
            return;
        const std::optional<Entry> entry = ParseLine(line);
        if (!entry) {
            ++counts_.malformed;
            return;
        }
        try {
            const bool good = Digest(entry->name) == entry->digest;
            ++(good ? counts_.good : counts_.wrong);
            if (!good || !options_.quiet)
                Tell(entry->name, good ? "OK" : "FAILED");
        } catch (const Failure& failure) {
            ++counts_.unread;
            Complain(failure.what());
            Tell(entry->name, "FAILED open or read");
        }
    }

    void Tell(const std::string& name, const char* result) const
    {
        if (!options_.status)
            PrintLine((name.find('\n') != std::string::npos ? "\\" + Escaped(name) : name) + ": " + result);
    }

    static void Warn(int count, const char* one, const char* several)
    {
        if (count > 0)
            Complain("WARNING: " + std::to_string(count) + " " + (count == 1 ? one : several));
    }

    const Options& options_;
    Counts counts_ = {};
};

void PrintDigest(const std::string& file)
{
    const std::string digest = Digest(file);
    const std::string escaped = Escaped(file);
    PrintLine((escaped == file ? "" : "\\") + digest + "  " + escaped);
}

void Run(const Options& options)
{
    bool good = true;
    Checker checker(options);
    for (const std::string& file : options.files) {
        try {
            if (options.check)
                good &= checker.CheckList(file);
            else
                PrintDigest(file);
        } catch (const Failure& failure) { // the others are still of interest
            Complain(failure.what());
            good = false;
        }
    }
    if (!good)
        throw CLI::RuntimeError(1);
}

} // namespace

void AddMd5Command(CLI::App& app)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("md5", "Print or check MD5 digests of files, as md5sum does");
    command->add_option("FILE", options->files, "Any files; \"-\" or none for standard input")->type_name("");
    CLI::Option* check = command->add_flag("--check", options->check, "The files are lists of digests; check them");
    command->add_flag("--quiet", options->quiet, "Check: print no OK lines")->needs(check);
    command->add_flag("--status", options->status, "Check: print nothing, the exit status tells")->needs(check);
    command->callback([options] {
        if (options->files.empty())
            options->files.emplace_back("-");
        Run(*options);
    });
}
