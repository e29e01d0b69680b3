// zkq z: compression as zlib streams.
#include <ZKQ_general/error.h>
#include <ZKQ_general/zlib.h>
#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "bytes.h"
#include "commands.h"
#include "failure.h"
#include "output.h"

namespace {

struct Options {
    std::string input;
    std::string output;
};

using Convert = int (*)(const unsigned char*, long, unsigned char**, long*);

struct Close {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, Close>;

struct Release {
    void operator()(unsigned char* buffer) const { ZKQGeneral_FreeMallocBuffer(buffer); }
};

bool IsStandard(const std::string& name)
{
    return name.empty() || name == "-";
}

void WriteAll(const std::string& name, std::string_view bytes)
{
    if (IsStandard(name)) {
        Print(bytes);
        return;
    }
    File file(fopen(name.c_str(), "wb"));
    if (file == nullptr)
        throw SystemFailure("cannot write " + name, errno);
    struct stat status;
    const bool isRegular = fstat(fileno(file.get()), &status) == 0 && S_ISREG(status.st_mode);
    const bool written = fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size() && fflush(file.get()) == 0;
    if (!written) {
        const int reason = errno;
        file.reset();
        if (isRegular) // and no device, which is not ours to delete
            unlink(name.c_str());
        throw SystemFailure("cannot write " + name, reason);
    }
}

std::string Described(const std::string& name)
{
    return IsStandard(name) ? "standard input" : name;
}

void Run(const Options& options, Convert convert, const char* verb)
{
    const std::string what = std::string("cannot ") + verb + " " + Described(options.input);
    const std::string source = ByteSource(IsStandard(options.input) ? "-" : options.input).ReadAll();
    unsigned char* result = nullptr;
    long length = 0;
    const ErrorMark mark;
    if (convert(reinterpret_cast<const unsigned char*>(source.data()), static_cast<long>(source.size()), &result,
                &length) != 0)
        // The library leaves no reason when memory runs out.
        throw mark.Changed() ? LibraryFailure(what) : SystemFailure(what, ENOMEM);
    const std::unique_ptr<unsigned char, Release> owner(result);
    WriteAll(options.output, {reinterpret_cast<char*>(result), static_cast<size_t>(length)});
}

void Compress(const Options& options)
{
    if (IsStandard(options.output) && isatty(STDOUT_FILENO))
        throw Failure("not compressed", "The result would go to the terminal; name a file with -o");
    Run(options, ZKQGeneral_Zlib_CompressBufferEx, "compress");
}

CLI::App* AddCommand(CLI::App& z, const char* name, const char* help, const std::shared_ptr<Options>& options)
{
    CLI::App* command = z.add_subcommand(name, help);
    command->add_option("FILE", options->input, "What to read; standard input by default")->type_name("");
    command->add_option("-o,--output", options->output, "What to write; standard output by default")->type_name("FILE");
    return command;
}

} // namespace

void AddZCommands(CLI::App& app)
{
    CLI::App* z = app.add_subcommand("z", "Compress and decompress zlib streams");
    z->require_subcommand(1);
    const auto options = std::make_shared<Options>();
    AddCommand(*z, "compress", "Compress a file", options)->callback([options] { Compress(*options); });
    AddCommand(*z, "decompress", "Decompress a file", options)->callback([options] {
        Run(*options, ZKQGeneral_Zlib_UnCompressBufferEx, "decompress");
    });
}
