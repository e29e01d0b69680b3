// zkq b64: Base64 texts.
#include <ZKQ_general/base64.h>
#include <ZKQ_general/error.h>
#include <unistd.h>

#include <algorithm>
#include <memory>

#include "arguments.h"
#include "bytes.h"
#include "commands.h"
#include "failure.h"

namespace {

constexpr size_t kPieceLines = 16384;
constexpr size_t kLineBytesWithoutBreaks = 48;

struct Options {
    std::string file = "-";
    std::string output;
    unsigned columns = 72;
};

std::string Encoded(const std::string& bytes, int columns)
{
    char* out = nullptr;
    if (!ZKQGeneral_ConvertToBase64Ex(reinterpret_cast<const unsigned char*>(bytes.data()),
                                      static_cast<int>(bytes.size()), &out, columns))
        throw LibraryFailure("cannot encode");
    const std::unique_ptr<char, decltype(&ZKQGeneral_FreeMallocBuffer)> text(out, &ZKQGeneral_FreeMallocBuffer);
    return out;
}

/// Whole lines at a time, so that the pieces together are the text that the library makes of the whole.
void Encode(const Options& options)
{
    ByteSource source(options.file);
    if (!options.output.empty())
        source.RequireOtherThan(options.output);
    ByteSink sink(options.output);
    const size_t lineBytes = options.columns == 0 ? kLineBytesWithoutBreaks : options.columns / 4 * 3;
    const size_t pieceBytes = std::max<size_t>(kPieceLines * kLineBytesWithoutBreaks / lineBytes, 1) * lineBytes;
    bool endsInLine = false;
    for (std::string bytes = source.Read(pieceBytes); !bytes.empty(); bytes = source.Read(pieceBytes)) {
        const std::string text = Encoded(bytes, static_cast<int>(options.columns));
        endsInLine = !text.ends_with('\n');
        sink.Write(text);
    }
    if (endsInLine && options.output.empty() && isatty(STDOUT_FILENO))
        sink.Write("\n");
    sink.Finish();
}

void Decode(const Options& options)
{
    const std::string text = ByteSource(options.file).ReadAll();
    const std::string what = "cannot decode " + (options.file == "-" ? "standard input" : options.file);
    if (text.find('\0') != std::string::npos)
        throw Failure(what, "A NUL is no character of Base64");
    std::string bytes(text.size(), '\0');
    unsigned length = 0;
    if (!ZKQGeneral_ConvertFromBase64(text.c_str(), reinterpret_cast<unsigned char*>(bytes.data()), &length))
        throw LibraryFailure(what);
    ByteSink sink(options.output);
    sink.Write({bytes.data(), length});
    sink.Finish();
}

void AddFiles(CLI::App* command, Options& options)
{
    command->add_option("FILE", options.file, "Any file; \"-\" or nothing for standard input")->type_name("");
    command->add_option("-o,--output", options.output, "Write there instead of to standard output")->type_name("FILE");
}

void AddEncode(CLI::App& b64)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = b64.add_subcommand("encode", "Make a Base64 text of bytes");
    AddFiles(command, *options);
    const CLI::Validator multiple(
        [](const std::string& number) {
            unsigned columns = 0;
            const bool isNumber = CLI::detail::lexical_cast(Unguarded(number), columns);
            return isNumber && columns % 4 == 0 && columns <= 1'000'000 ? ""
                                                                        : "must be a multiple of 4, at most 1000000";
        },
        "");
    command->add_option("--columns", options->columns, "Characters in a line, a multiple of 4; 0 for one line (72)")
        ->type_name("N")
        ->check(multiple);
    command->callback([options] { Encode(*options); });
}

void AddDecode(CLI::App& b64)
{
    const auto options = std::make_shared<Options>();
    CLI::App* command = b64.add_subcommand("decode", "Make bytes of a Base64 text");
    AddFiles(command, *options);
    command->callback([options] { Decode(*options); });
}

} // namespace

void AddBase64Commands(CLI::App& app)
{
    CLI::App* b64 = app.add_subcommand("b64", "Encode and decode Base64 texts");
    b64->require_subcommand(1);
    AddEncode(*b64);
    AddDecode(*b64);
}
