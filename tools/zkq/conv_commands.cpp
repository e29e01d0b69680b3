// zkq conv: a text from one charset to another.
#include <ZKQ_general/error.h>
#include <ZKQ_general/iconv.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "charset.h"
#include "commands.h"
#include "failure.h"
#include "input.h"
#include "output.h"

namespace {

enum Charset { kGbk, kUtf8, kUcs2 };
constexpr const char* kTitles[] = {"GBK", "UTF-8", "UCS-2LE"};

struct CharsetName {
    const char* name; // in lower case
    Charset charset;
};
constexpr CharsetName kNames[] = {
    {"gbk", kGbk},      {"cp936", kGbk},    {"ms936", kGbk},    {"utf-8", kUtf8},
    {"utf8", kUtf8},    {"ucs-2le", kUcs2}, {"ucs2le", kUcs2},  {"utf-16le", kUcs2},
    {"utf16le", kUcs2}, {"ucs-2", kUcs2},   {"unicode", kUcs2}, {"unicodelittle", kUcs2},
};

const CharsetName* FindCharset(std::string name)
{
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
    const CharsetName* const found = std::find_if(std::begin(kNames), std::end(kNames),
                                                  [&name](const CharsetName& each) { return name == each.name; });
    return found == std::end(kNames) ? nullptr : found;
}

std::string CheckCharset(const std::string& name)
{
    return FindCharset(name) != nullptr ? ""
                                        : "\"" + name + "\" is none of GBK, UTF-8 and UCS-2LE, or their other names";
}

using Function = BOOL (*)(const char* In, char* Out, int InLength, int* nMaxChar);

/// The library's conversion between two charsets, of which one is GBK.
Function FindFunction(Charset from, Charset to)
{
    if (from == kUtf8)
        return [](const char* In, char* Out, int InLength, int* nMaxChar) {
            return ZKQGeneral_UTF8ToAnsi(In, Out, InLength, nMaxChar);
        };
    if (from == kUcs2)
        return [](const char* In, char* Out, int InLength, int* nMaxChar) {
            return ZKQGeneral_UnicodeToAnsi(reinterpret_cast<const unsigned short*>(In), Out, InLength, nMaxChar);
        };
    if (to == kUtf8)
        return [](const char* In, char* Out, int InLength, int* nMaxChar) {
            return ZKQGeneral_AnsiToUTF8(In, Out, InLength, nMaxChar);
        };
    return [](const char* In, char* Out, int InLength, int* nMaxChar) {
        return ZKQGeneral_AnsiToUnicode(In, reinterpret_cast<unsigned short*>(Out), InLength, nMaxChar);
    };
}

bool LastErrorIs(int number)
{
    return strcmp(ZKQGeneral_GetGeneralErrorInfo(), strerror(number)) == 0;
}

/// The shortest beginning of a text, in units of a charset, that fails because of a character in it.
size_t FindBadUnit(Function convert, const std::string& text, size_t unit)
{
    size_t good = 0;
    size_t bad = text.size() / unit;
    while (bad - good > 1) {
        const size_t middle = good + (bad - good) / 2;
        int length = 0;
        const bool fails =
            !convert(text.data(), nullptr, static_cast<int>(middle * unit), &length) && LastErrorIs(EILSEQ);
        (fails ? bad : good) = middle;
    }
    return bad;
}

size_t CountLines(const std::string& text, size_t end, size_t unit)
{
    const std::string lineFeed = unit == 1 ? "\n" : std::string("\n\0", 2);
    size_t lines = 1;
    for (size_t i = 0; i + unit < end; i += unit)
        lines += text.compare(i, unit, lineFeed) == 0;
    return lines;
}

std::string Reason(Function convert, const std::string& text, Charset from)
{
    if (LastErrorIs(EINVAL))
        return "The text ends within a character";
    if (!LastErrorIs(EILSEQ))
        return ToTerminal(ZKQGeneral_GetGeneralErrorInfo());
    const size_t unit = from == kUcs2 ? 2 : 1;
    const size_t end = FindBadUnit(convert, text, unit) * unit;
    return "The character that ends at byte " + std::to_string(end) + ", in line " +
           std::to_string(CountLines(text, end, unit)) + ", is malformed" + (from == kGbk ? "" : " or not in GBK");
}

std::string Convert(const std::string& text, Charset from, Charset to, const std::string& name)
{
    const std::string what = std::string("cannot convert ") + name + " from " + kTitles[from] + " to " + kTitles[to];
    const Function convert = FindFunction(from, to);
    const int size = static_cast<int>(text.size());
    int length = 0;
    if (!convert(text.data(), nullptr, size, &length))
        throw Failure(what, Reason(convert, text, from));
    std::string result(static_cast<size_t>(length), '\0');
    if (!convert(text.data(), result.data(), size, &length))
        throw LibraryFailure(what);
    return result;
}

void WriteOutput(const std::string& file, const std::string& text)
{
    const std::string what = "cannot write " + file;
    FILE* const stream = fopen(file.c_str(), "wbe");
    if (stream == nullptr)
        throw SystemFailure(what, errno);
    const bool written = fwrite(text.data(), 1, text.size(), stream) == text.size();
    const int reason = errno;
    if (fclose(stream) != 0 || !written)
        throw SystemFailure(what, written ? errno : reason);
}

struct Options {
    std::string from;
    std::string to;
    std::string file;
    std::string output;
};

void Run(const Options& options)
{
    const Charset from = FindCharset(options.from)->charset;
    const Charset to = FindCharset(options.to)->charset;
    if (from == to)
        throw CLI::ValidationError("--to", "the charset that the text is in already");
    std::string text = ReadInput(options.file);
    const std::string name = InputName(options.file);
    if (from != kGbk && to != kGbk) // the library has no way past GBK
        text = Convert(Convert(text, from, kGbk, name), kGbk, to, name);
    else
        text = Convert(text, from, to, name);
    if (options.output.empty())
        Print(text);
    else
        WriteOutput(options.output, text);
}

} // namespace

void AddConvCommand(CLI::App& app)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("conv", "Convert a text between GBK, UTF-8 and UCS-2LE");
    command->add_option("--from", options->from, "The charset of the text")
        ->required()
        ->type_name("CHARSET")
        ->check(CheckCharset);
    command->add_option("--to", options->to, "The charset of the result")
        ->required()
        ->type_name("CHARSET")
        ->check(CheckCharset);
    command->add_option("FILE", options->file, "The text; standard input by default")->type_name("");
    command->add_option("-o,--output", options->output, "Where the result goes; standard output by default")
        ->type_name("FILE");
    command->callback([options] { Run(*options); });
}
