// Responses that go into files and directories, and the names that servers give them.
#include <ZKQ_general/http.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/error_text.h"
#include "support/http_client.h"
#include "support/temp_dir.h"

namespace {

using namespace support::http; // NOLINT: the tests are written in it
using support::LengthHeader;
using support::ReadFile;
using support::Response;
using support::ScriptedServer;
using support::TempDir;
using support::WriteFile;

// --- Files

TEST(HttpFile, TakesTheBody)
{
    const TempDir dir;
    const std::string path = dir.File("out");
    for (const size_t size : {5, 8192, 131072, 131073, 1000000}) {
        const std::string body = Noise(size);
        for (const bool hasLength : {true, false}) {
            const ScriptedServer server(Response(body, hasLength ? LengthHeader(size) : ""));
            ASSERT_TRUE(Network_SendHttpRequest(server.Url().c_str(), nullptr, path.c_str()));
            EXPECT_EQ(ReadFile(path), body);
        }
        const ScriptedServer chunked(Chunks({body, body}));
        ASSERT_TRUE(Network_SendHttpRequest(chunked.Url().c_str(), nullptr, path.c_str()));
        EXPECT_EQ(ReadFile(path), body + body);
    }
}

TEST(HttpFile, LeavesTheMemoryResultNull)
{
    const TempDir dir;
    char byte = 0;
    char* data = &byte;
    int length = 7;
    const ScriptedServer server(Response("body"));
    ASSERT_TRUE(Network_SendHttpRequestEx4(server.Url().c_str(), nullptr, nullptr, dir.File("out").c_str(), &data,
                                           &length, nullptr, 0, nullptr, 0));
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 7);
    EXPECT_EQ(ReadFile(dir.File("out")), "body");
}

TEST(HttpFile, AnEmptyBodyLeavesIt)
{
    const TempDir dir;
    const ScriptedServer server({ScriptedServer::Reply(Response("")), ScriptedServer::Reply(Response(""))});
    ASSERT_TRUE(Network_SendHttpRequest(server.Url().c_str(), nullptr, dir.File("out").c_str()));
    EXPECT_FALSE(std::filesystem::exists(dir.File("out")));
    WriteFile(dir.File("out"), "old");
    ASSERT_TRUE(Network_SendHttpRequest(server.Url().c_str(), nullptr, dir.File("out").c_str()));
    EXPECT_EQ(ReadFile(dir.File("out")), "old");
}

TEST(HttpFile, IsDeletedByAFailure)
{
    const TempDir dir;
    const std::string path = dir.File("out");
    WriteFile(path, "old");
    const ScriptedServer server({ScriptedServer::Reply(Response(Noise(300000), LengthHeader(300001))),
                                 ScriptedServer::Reply(Response("", "", "404 Not Found"))});
    EXPECT_FALSE(Network_SendHttpRequest(server.Url().c_str(), nullptr, path.c_str()));
    EXPECT_FALSE(std::filesystem::exists(path));
    WriteFile(path, "old");
    EXPECT_FALSE(Network_SendHttpRequest(server.Url().c_str(), nullptr, path.c_str()));
    EXPECT_FALSE(std::filesystem::exists(path)) << "whatever the failure";
    WriteFile(path, "old");
    EXPECT_FALSE(Network_SendHttpRequest("gopher://h/", nullptr, path.c_str()));
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(HttpFile, ThatIsNoneIsNotDeleted)
{
    const TempDir dir;
    const std::string pipe = dir.File("pipe");
    const std::string link = dir.File("link");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::filesystem::create_symlink(pipe, link);
    EXPECT_FALSE(Network_SendHttpRequest("gopher://h/", nullptr, pipe.c_str()));
    EXPECT_TRUE(std::filesystem::exists(pipe));
    EXPECT_FALSE(Network_SendHttpRequest("gopher://h/", nullptr, link.c_str()));
    EXPECT_FALSE(std::filesystem::is_symlink(link));
    EXPECT_TRUE(std::filesystem::exists(pipe)) << "a link goes itself";
}

TEST(HttpFile, ThatCannotBeCreatedOrWritten)
{
    const TempDir dir;
    const ScriptedServer server(
        {ScriptedServer::Reply(Response("body")), ScriptedServer::Reply(Response(Noise(300000)))});
    EXPECT_FALSE(Network_SendHttpRequest(server.Url().c_str(), nullptr, dir.File("no/out").c_str()));
    EXPECT_SYSTEM_ERROR(ENOENT);
    if (access("/dev/full", W_OK) == 0) {
        std::filesystem::create_symlink("/dev/full", dir.File("full"));
        EXPECT_FALSE(Network_SendHttpRequest(server.Url().c_str(), nullptr, dir.File("full").c_str()));
        EXPECT_SYSTEM_ERROR(ENOSPC);
        EXPECT_TRUE(std::filesystem::exists("/dev/full"));
    }
}

/// A request into a directory.
struct Saved {
    BOOL succeeded;
    std::string name;
};

Saved SaveInto(const std::string& directory, const std::string& response, int room = 300)
{
    const ScriptedServer server(response);
    std::vector<char> name(static_cast<size_t>(std::max(room, 1)), '?');
    support::MarkErrorText();
    const BOOL succeeded = Network_HttpSendReceiveEx2(server.Url().c_str(), nullptr, nullptr, directory.c_str(),
                                                      nullptr, nullptr, 2, 1, name.data(), room);
    return {succeeded, succeeded ? name.data() : ""};
}

TEST(HttpDirectory, TheServerNamesTheFile)
{
    for (const char* disposition :
         {"attachment; filename=a.txt", "attachment;filename=a.txt", "attachment; filename=\"a.txt\"",
          "attachment; filename = \"a.txt\" ; size=5", "filename=a.txt",
          "attachment; name=\"x; filename=b\"; filename=a.txt", "attachment; filename=a.txt; filename=b.txt"}) {
        const TempDir dir;
        for (const std::string& path : {dir.Path(), dir.Path() + "/"}) {
            const Saved saved = SaveInto(path, Named(disposition));
            EXPECT_TRUE(saved.succeeded) << disposition;
            EXPECT_EQ(saved.name, "a.txt");
            EXPECT_EQ(ReadFile(dir.File("a.txt")), "body");
        }
    }
    const TempDir dir;
    EXPECT_EQ(SaveInto(dir.Path(), Named("attachment; filename=\"a; b.txt\"")).name, "a; b.txt");
    EXPECT_EQ(ReadFile(dir.File("a; b.txt")), "body");
}

TEST(HttpDirectory, NamesThatWouldLeaveItAreNone)
{
    using namespace std::string_literals;
    const TempDir outer;
    const std::string inner = outer.File("inner");
    std::filesystem::create_directory(inner);
    for (const std::string& name : {"../evil"s, "/tmp/evil"s, ".."s, "."s, ""s, "a/b"s, "\"\""s, "\"../evil\""s,
                                    "a\tb"s, "a\x7F"s, "a\0b"s, "\x01"s, std::string(300, 'n')}) {
        const Saved saved = SaveInto(inner, Named("attachment; filename=" + name));
        EXPECT_FALSE(saved.succeeded) << name;
        EXPECT_SYSTEM_ERROR(EBADMSG);
    }
    EXPECT_FALSE(SaveInto(inner, Response("body")).succeeded);
    EXPECT_SYSTEM_ERROR(EBADMSG);
    EXPECT_FALSE(SaveInto(inner, "no head").succeeded);
    EXPECT_SYSTEM_ERROR(EBADMSG);
    EXPECT_TRUE(std::filesystem::is_empty(inner));
    EXPECT_FALSE(std::filesystem::exists(outer.File("evil")));
}

TEST(HttpDirectory, TheLongestNameThatTheSystemTakes)
{
    const TempDir dir;
    const std::string name(255, 'n');
    EXPECT_EQ(SaveInto(dir.Path(), Named("a; filename=" + name)).name, name);
    EXPECT_FALSE(SaveInto(dir.Path(), Named("a; filename=" + name + "n")).succeeded);
    EXPECT_SYSTEM_ERROR(ENAMETOOLONG);
}

TEST(HttpDirectory, LinksAndPipesOfThatNameAreNotFollowed)
{
    const TempDir dir;
    WriteFile(dir.File("secret"), "secret");
    std::filesystem::create_directory(dir.File("in"));
    std::filesystem::create_symlink(dir.File("secret"), dir.File("in/link"));
    EXPECT_FALSE(SaveInto(dir.File("in"), Named("a; filename=link")).succeeded);
    EXPECT_SYSTEM_ERROR(ELOOP);
    EXPECT_EQ(ReadFile(dir.File("secret")), "secret");
    ASSERT_EQ(mkfifo(dir.File("in/pipe").c_str(), 0600), 0);
    EXPECT_FALSE(SaveInto(dir.File("in"), Named("a; filename=pipe")).succeeded);
    EXPECT_SYSTEM_ERROR(ENXIO);
}

constexpr char kUtf8Name[] = "\xE4\xB8\xAD\xE6\x96\x87.txt"; // "中文.txt"
constexpr char kGbkName[] = "\xD6\xD0\xCE\xC4.txt";

TEST(HttpDirectory, AnUtf8NameBecomesLocal)
{
    const std::string type = "Content-Type: text/plain; charset=utf-8\r\n";
    const std::string name = "Content-Disposition: attachment; filename=" + std::string(kUtf8Name) + "\r\n";
    for (const std::string& headers : {type + name, name + type}) {
        const TempDir dir;
        const Saved saved = SaveInto(dir.Path(), Response("body", headers));
        EXPECT_TRUE(saved.succeeded);
        EXPECT_EQ(saved.name, kGbkName);
        EXPECT_EQ(ReadFile(dir.File(kGbkName)), "body");
    }
    for (const char* other : {"Content-Type: text/plain; charset=UTF-8\r\n", "Content-Type: text/plain\r\n",
                              "Content-Type: text/plain; charset=utf-8x\r\n", ""}) {
        const TempDir dir;
        EXPECT_EQ(SaveInto(dir.Path(), Response("body", other + name)).name, kUtf8Name) << other;
    }
    const TempDir dir;
    EXPECT_EQ(SaveInto(dir.Path(), Response("body", "Content-Type: x;charset=\"utf-8\"\r\n" + name)).name, kGbkName);
}

TEST(HttpDirectory, ANameThatIsNoUtf8)
{
    const std::string type = "Content-Type: text/plain; charset=utf-8\r\n";
    const std::string name = "Content-Disposition: attachment; filename=\xFF\xFE.txt\r\n";
    for (const std::string& headers : {type + name, name + type}) {
        const TempDir dir;
        EXPECT_FALSE(SaveInto(dir.Path(), Response("body", headers)).succeeded);
        EXPECT_SYSTEM_ERROR(EBADMSG);
        EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
    }
}

TEST(HttpDirectory, ANameThatDoesNotFitFailsAndKeepsTheFile)
{
    const TempDir dir;
    EXPECT_EQ(SaveInto(dir.Path(), Named("a; filename=a.txt"), 6).name, "a.txt");
    std::filesystem::remove(dir.File("a.txt"));
    for (const int room : {5, 1, 0, -1}) {
        EXPECT_FALSE(SaveInto(dir.Path(), Named("a; filename=a.txt"), room).succeeded) << room;
        EXPECT_SYSTEM_ERROR(ENOMEM);
    }
    EXPECT_EQ(ReadFile(dir.File("a.txt")), "body");
}

TEST(HttpDirectory, AFailureKeepsWhatCameAndTheDirectory)
{
    const TempDir outer;
    const std::string dir = outer.File("in");
    std::filesystem::create_directory(dir);
    const std::string body = Noise(100000);
    const std::string head = Response("", "Content-Disposition: a; filename=f\r\nContent-Length: 100001\r\n");
    const ScriptedServer server(head + body);
    EXPECT_FALSE(Network_SendHttpRequestEx(server.Url().c_str(), nullptr, dir.c_str(), "proxy:1", 1));
    const std::string kept = ReadFile(dir + "/f");
    EXPECT_TRUE(body.starts_with(kept));
    EXPECT_GT(kept.size(), body.size() - 8192);
    std::filesystem::remove(dir + "/f");
    const ScriptedServer gone(Response("", "", "404 Not Found"));
    EXPECT_FALSE(Network_SendHttpRequestEx(gone.Url().c_str(), nullptr, dir.c_str(), nullptr, 1));
    EXPECT_TRUE(std::filesystem::is_directory(dir)) << "though it is empty";
}

TEST(HttpDirectory, OfABodyThatBreaksOffWholePiecesAreKept)
{
    constexpr size_t kPiece = 8192;
    const std::string name = "Content-Disposition: a; filename=f\r\n";
    for (const size_t held : {0, 5, 5000}) // that come with the head
        for (const size_t more : {size_t{0}, kPiece - 1, kPiece, 16 * kPiece + 95, 17 * kPiece - 5, 17 * kPiece - 1}) {
            const TempDir dir;
            const std::string body = Noise(held + more);
            const ScriptedServer server({[&](support::Fd& connection) {
                support::WriteAll(connection.Get(), Response(body.substr(0, held), name + LengthHeader(400000)));
                usleep(100000);
                support::WriteAll(connection.Get(), body.substr(held));
            }});
            EXPECT_FALSE(Network_SendHttpRequestEx(server.Url().c_str(), nullptr, dir.Path().c_str(), nullptr, 1));
            const size_t kept = held + more - more % kPiece;
            EXPECT_EQ(kept == 0 || ReadFile(dir.File("f")) == body.substr(0, kept), true) << held << " + " << more;
        }
}

TEST(HttpDirectory, TheNameOfTheLastResponseCounts)
{
    const TempDir dir;
    const ScriptedServer target(Named("a; filename=last"));
    const ScriptedServer server(
        Response("", "Content-Disposition: a; filename=first\r\nLocation: " + target.Url() + "\r\n", "302 Found"));
    char name[300] = "";
    ASSERT_TRUE(Network_SendHttpRequestEx2(server.Url().c_str(), nullptr, dir.Path().c_str(), nullptr, 1, name, 300));
    EXPECT_STREQ(name, "last");
    EXPECT_EQ(ReadFile(dir.File("last")), "body");
    EXPECT_FALSE(std::filesystem::exists(dir.File("first")));
}

} // namespace
