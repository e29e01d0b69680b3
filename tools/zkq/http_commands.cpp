// zkq http: requests to HTTP servers.
#include <ZKQ_general/http.h>
#include <ZKQ_general/socket.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>

#include "bytes.h"
#include "charset.h"
#include "commands.h"
#include "download.h"
#include "failure.h"
#include "input.h"
#include "output.h"
#include "paths.h"

namespace {

namespace fs = std::filesystem;

constexpr int kLongestTimeout = 24 * 60 * 60;
constexpr size_t kNameSize = 300; // of a server's file name, the NUL counted

struct Options {
    std::string url;
    std::string output;
    std::string data;
    std::string type;
    int timeout = 20;
    bool is_post = false;
};

/// Where the library is to put the body, and what it tells about it.
struct Response {
    const char* file = nullptr;
    bool is_directory = false;
    char* data = nullptr;
    int length = 0;
    char name[kNameSize] = "";
};

/// The body of a post: a text, or what is in a file. The library sees its end in a NUL.
std::string Body(const Options& options)
{
    if (!options.data.starts_with('@'))
        return options.data;
    const std::string file = options.data == "@-" ? "" : options.data.substr(1);
    if (file.empty() && options.data != "@-")
        throw Failure("cannot read the data", "No file is named behind \"@\"");
    std::string body = ReadInput(file);
    if (body.find('\0') != std::string::npos)
        throw Failure("cannot post " + InputName(file), "It holds NUL bytes and is no text");
    return body;
}

/// A media type makes a whole header line.
std::string HeaderLine(const std::string& type)
{
    return type.empty() || type.find(':') != std::string::npos ? type : "Content-Type: " + type;
}

/// The library has one text for all answers that it does not take.
Failure RequestFailure(const Options& options)
{
    const std::string what = (options.is_post ? "cannot post to " : "cannot get ") + options.url;
    Failure failure = LibraryFailure(what);
    if (failure.what() != what + ": " + strerror(EBADMSG))
        return failure;
    return {failure.what(), fs::is_directory(options.output)
                                ? "The answer is not a good one with the code 200, or names no file"
                                : "The answer is not a good one with the code 200"};
}

/// A server that goes away must not end the program; who reads its output may.
class BrokenPipesAreErrors {
public:
    BrokenPipesAreErrors() { Network_init(); }
    BrokenPipesAreErrors(const BrokenPipesAreErrors&) = delete;
    BrokenPipesAreErrors& operator=(const BrokenPipesAreErrors&) = delete;
    ~BrokenPipesAreErrors() { signal(SIGPIPE, SIG_DFL); }
};

void Request(const Options& options, Response* response)
{
    const std::string body = options.is_post ? Body(options) : "";
    const std::string header = HeaderLine(options.type);
    const BrokenPipesAreErrors guard;
    if (!Network_HttpSendReceiveEx2(options.url.c_str(), options.is_post ? body.c_str() : nullptr,
                                    header.empty() ? nullptr : header.c_str(), response->file, &response->data,
                                    &response->length, options.timeout, response->is_directory ? 1 : 0, response->name,
                                    sizeof response->name))
        throw RequestFailure(options);
}

/// To standard output, or to what is no file: it stays in memory until it is complete.
void ReceiveInMemory(const Options& options)
{
    Response response;
    Request(options, &response);
    const std::unique_ptr<char, decltype(&NetWork_FreeBuffer)> owner(response.data, &NetWork_FreeBuffer);
    ByteSink sink(options.output);
    if (response.data != nullptr)
        sink.Write({response.data, static_cast<size_t>(response.length)});
    sink.Finish();
}

/// The library makes no file for an empty body.
void MakeFile(const std::string& path)
{
    const std::unique_ptr<FILE, StreamCloser> file(fopen(path.c_str(), "ae"));
    if (file == nullptr)
        throw SystemFailure("cannot write " + path, errno);
}

/// The file that is there stays until the new one is complete, and its mode stays, too.
void ReceiveFile(const Options& options)
{
    const std::string target = Resolved(options.output);
    const ArrivalDirectory directory(fs::path(target).parent_path());
    const std::string arrived = directory.Path() + "/body";
    Response response;
    response.file = arrived.c_str();
    Request(options, &response);
    MakeFile(arrived);
    struct stat status;
    if (stat(target.c_str(), &status) == 0)
        chmod(arrived.c_str(), status.st_mode & 07777);
    if (rename(arrived.c_str(), target.c_str()) != 0)
        throw SystemFailure("cannot write " + options.output, errno);
}

/// The server chooses the name, but no file that is there.
void ReceiveNamedFile(const Options& options)
{
    const ArrivalDirectory directory(options.output);
    Response response;
    response.file = directory.Path().c_str();
    response.is_directory = true;
    Request(options, &response);
    if (response.name[0] == '\0') // an empty body needs none
        throw Failure("cannot write into " + options.output, "The server has given the file no name");
    const std::string arrived = directory.Path() + "/" + response.name;
    const std::string target = (fs::path(options.output) / ToTerminal(response.name)).string();
    MakeFile(arrived);
    if (renameat2(AT_FDCWD, arrived.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) != 0)
        throw SystemFailure("cannot write " + target, errno);
    PrintLine(target);
}

void Receive(const Options& options)
{
    std::error_code ignored;
    const fs::file_status status = fs::status(options.output, ignored);
    if (!options.output.empty() && fs::is_directory(status))
        ReceiveNamedFile(options);
    else if (!options.output.empty() && (fs::is_regular_file(status) || !fs::exists(status)))
        ReceiveFile(options);
    else
        ReceiveInMemory(options);
}

std::shared_ptr<Options> AddRequest(CLI::App* command)
{
    auto options = std::make_shared<Options>();
    command->add_option("URL", options->url, "http://HOST:PORT/PATH; protocol, port and path may be missing")
        ->required()
        ->type_name("");
    command
        ->add_option("-o,--output", options->output,
                     "Write to this file, or into this directory under the server's name for it")
        ->type_name("FILE|DIR");
    command->add_option("--type", options->type, "The content type, or a whole header line")->type_name("LINE");
    command->add_option("--timeout", options->timeout, "How long to wait for the server, 0 without limit (20)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0, kLongestTimeout).description(""));
    command->callback([options] { Receive(*options); });
    return options;
}

void ShowParts(const std::string& url)
{
    NETWORK_URL_EX parts = {};
    if (!Network_SplideURL_Ex(url.c_str(), &parts))
        throw LibraryFailure("cannot take apart " + url);
    const std::unique_ptr<NETWORK_URL_EX, decltype(&Network_FreeURLEx)> owner(&parts, Network_FreeURLEx);
    PrintLine(std::string("protocol ") + parts.Protocol);
    PrintLine(std::string("server ") + parts.ServerName);
    PrintLine("port " + std::to_string(parts.Port));
    PrintLine(std::string("path ") + parts.Object);
}

void AddUrl(CLI::App* http)
{
    const auto url = std::make_shared<std::string>();
    CLI::App* command = http->add_subcommand("url", "Show the parts of a URL, as programs take it");
    command->add_option("URL", *url, "Any URL; protocol, port and path may be missing")->required()->type_name("");
    command->callback([url] { ShowParts(*url); });
}

} // namespace

void AddHttpCommands(CLI::App& app)
{
    CLI::App* http = app.add_subcommand("http", "Get from and post to HTTP servers");
    http->require_subcommand(1);
    CLI::App* get = http->add_subcommand("get", "Get what is behind a URL");
    AddRequest(get);
    CLI::App* post = http->add_subcommand("post", "Post a text and print the answer");
    const std::shared_ptr<Options> options = AddRequest(post);
    options->is_post = true;
    post->add_option("--data", options->data, "The text, or @FILE for what is in a file, @- for standard input")
        ->type_name("TEXT|@FILE");
    AddUrl(http);
}
