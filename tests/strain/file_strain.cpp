// Files, directory trees, digests of files, cabinets.
#include <ZKQ_general/file.h>
#include <ZKQ_general/md5.h>
#include <ZKQ_general/mycab.h>
#include <string.h>
#include <unistd.h>

#include <filesystem>

#include "../fault/fault.h"
#include "strain.h"

namespace strain {
namespace {

void RoundTrip(Worker& worker)
{
    const std::string content = worker.Bytes(1 + worker.Below(20000));
    const std::string file = worker.File("content");
    const Exact bytes(content);
    worker.Must(ZKQGeneral_SetFileContent(file.c_str(), bytes.Data(), bytes.Size()), "SetFileContent");
    worker.Right(ReadWhole(file) == content, "what SetFileContent has written");
    unsigned char* buffer = nullptr;
    int size = -1;
    const BOOL read = ZKQGeneral_GetFileContent(file.c_str(), &buffer, &size);
    const Owned<unsigned char> owned(buffer);
    worker.Must(read, "GetFileContent");
    worker.Right(size == bytes.Size() && memcmp(buffer, content.data(), content.size()) == 0, "GetFileContent's bytes");
    DWORD length = 0;
    worker.Must(ZKQGeneral_GetFileLength(file.c_str(), &length), "GetFileLength");
    worker.Right(length == content.size(), "GetFileLength's length");
}

void Copy(Worker& worker)
{
    const std::string content = worker.Bytes(1 + worker.Below(100000));
    const std::string from = worker.File("from");
    const std::string to = worker.File("to");
    WriteWhole(from, content);
    worker.Must(ZKQGeneral_CopyFile(from.c_str(), to.c_str(), worker.Maybe()), "CopyFile");
    worker.Right(ReadWhole(to) == content, "the copy");
    worker.Must(ZKQGeneral_IsFileExist(to.c_str()), "IsFileExist");
    worker.Right(ZKQGeneral_CopyFile(from.c_str(), to.c_str(), TRUE) == FALSE, "CopyFile onto a file that is there");
}

void Tree(Worker& worker)
{
    const std::string top = worker.File("tree");
    const std::string deep = top + "/" + worker.Word(5) + "/" + worker.Word(5) + "/" + worker.Word(5);
    worker.Must(ZKQGeneral_CreateMultiLevelDirectory(deep.c_str()), "CreateMultiLevelDirectory");
    BOOL isDirectory = FALSE;
    worker.Must(ZKQGeneral_IsDirectoryName(deep.c_str(), &isDirectory), "IsDirectoryName");
    worker.Right(isDirectory, "IsDirectoryName's answer");
    for (size_t i = 0; i < 4; ++i)
        WriteWhole(deep + "/" + std::to_string(i), "x");
    const std::string outside = worker.File("outside");
    WriteWhole(outside, "kept");
    worker.Must(ZKQGeneral_CreateShortCut(outside.c_str(), nullptr, (deep + "/link").c_str()), "CreateShortCut");
    worker.Must(ZKQGeneral_MyDeleteDirectory(top.c_str()), "MyDeleteDirectory");
    worker.Right(!std::filesystem::exists(top), "the deleted tree is gone");
    worker.Right(ReadWhole(outside) == "kept", "a link's target is kept");
}

void Temporary(Worker& worker)
{
    char name[300] = "";
    const BOOL made = ZKQGeneral_MyCreateTempFile(name, worker.process.site.tempPrefix.c_str(), sizeof name);
    const fault::Calm calm;
    worker.Must(made, "MyCreateTempFile");
    worker.Right(unlink(name) == 0, "the temporary file is there");
}

std::string Hex(const unsigned char* digest)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (int i = 0; i < 16; ++i)
        text.append(1, kDigits[digest[i] >> 4]).append(1, kDigits[digest[i] & 15]);
    return text;
}

void Digest(Worker& worker)
{
    unsigned char digest[16];
    ZKQGeneral_DigestBuffer("message digest", 14, digest);
    worker.Right(Hex(digest) == "f96b697d7cb7938d525a2f31aaf161d0", "the digest of a known text");
    const std::string content = worker.Bytes(worker.Below(50000));
    WriteWhole(worker.File("digest"), content);
    const Exact bytes(content);
    ZKQGeneral_DigestBuffer(bytes.Data(), static_cast<unsigned>(bytes.Size()), digest);
    unsigned char ofFile[16];
    worker.Must(ZKQGeneral_DigestFile(worker.File("digest").c_str(), ofFile), "DigestFile");
    worker.Right(memcmp(digest, ofFile, sizeof digest) == 0, "the digest of a file");
}

using Files = std::vector<std::pair<std::string, std::string>>; // name below the directory, content

Files MakeFiles(Worker& worker, const std::string& directory)
{
    const fault::Calm calm;
    std::filesystem::create_directories(directory + "/below");
    Files files;
    const size_t count = 1 + worker.Below(4);
    for (size_t i = 0; i < count; ++i) {
        files.emplace_back((i % 2 == 0 ? "/" : "/below/") + std::to_string(i), worker.Bytes(1 + worker.Below(30000)));
        WriteWhole(directory + files.back().first, files.back().second);
    }
    return files;
}

void Cabinet(Worker& worker)
{
    const std::string from = worker.File("cab");
    const Files files = MakeFiles(worker, from);
    const std::string cabinet = worker.File("a.cab");
    const std::string names = from + '\0'; // and the empty name behind it
    worker.Must(ZKQGeneral_MakeMyCabFile(cabinet.c_str(), names.c_str(), 1), "MakeMyCabFile");
    const std::string to = worker.File("extracted");
    worker.Must(ZKQGeneral_ExtractMyCabAllFile(cabinet.c_str(), to.c_str()), "ExtractMyCabAllFile");
    for (const auto& [name, content] : files)
        worker.Right(ReadWhole(to + name) == content, "an extracted file");
    char one[300] = "";
    worker.File("one").copy(one, sizeof one - 1);
    worker.Must(ZKQGeneral_ExtractMyCabOneFile(cabinet.c_str(), one, 0), "ExtractMyCabOneFile");
    worker.Right(!ReadWhole(one).empty(), "the one file");
}

} // namespace

void AddFile(Operations& operations)
{
    operations.insert(operations.end(), {{"file", "content", RoundTrip, 4},
                                         {"file", "copy", Copy, 4},
                                         {"file", "tree", Tree, 3},
                                         {"file", "temporary file", Temporary, 3},
                                         {"md5", "digests", Digest, 4},
                                         {"mycab", "make and extract", Cabinet, 3}});
}

} // namespace strain
