// Cabinets from strangers: whatever the bytes, nothing is written outside the directory, nor through what was planted in
// it, and nothing is left behind. Input: a byte that tells the kind, then
//   even  the bytes of a cabinet
//   odd   a number of members, a directory text, a NUL, and for each stream its length and its plain bytes: these are
//         put together to a cabinet. In the text "@S", "@C" and "@P" with a digit stand for the start, the packed and the
//         plain length of that stream. A length above 127 makes of its bytes a stream as they are.
#include <ZKQ_general.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "fuzz.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kHeaderSize = 128;
constexpr size_t kPathSize = 300;
constexpr char kSecret[] = "untouched";

void WriteBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::set<std::string> NamesIn(const std::string& directory)
{
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory))
        names.insert(entry.path().filename());
    return names;
}

/// A private directory: a cabinet "c", "box/out" to extract to, and "outside", which nothing may reach.
class Room {
public:
    Room()
    {
        char path[] = "/tmp/fuzz_cabinet.XXXXXX";
        REQUIRE(mkdtemp(path) != nullptr);
        path_ = path;
        fs::create_directory(File("outside"));
        WriteBytes(File("outside/file"), kSecret);
    }
    ~Room()
    {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    Room(const Room&) = delete;
    Room& operator=(const Room&) = delete;

    std::string File(const std::string& name) const { return path_ + "/" + name; }

    /// An empty directory to extract to but for what somebody else has put there.
    void Plant() const
    {
        fs::remove_all(File("box"));
        fs::create_directories(File("box/out/dir"));
        fs::create_directory_symlink("../../outside", File("box/out/link"));
        fs::create_symlink("../../outside/file", File("box/out/f"));
        REQUIRE(mkfifo(File("box/out/p").c_str(), 0666) == 0);
    }

    void RequireNothingOutside() const
    {
        REQUIRE(NamesIn(path_) == (std::set<std::string>{"box", "c", "outside"}));
        REQUIRE(NamesIn(File("box")) == std::set<std::string>{"out"});
        REQUIRE(NamesIn(File("outside")) == std::set<std::string>{"file"});
        REQUIRE(ReadBytes(File("outside/file")) == kSecret);
        REQUIRE(fs::is_symlink(File("box/out/link")));
    }

private:
    std::string path_;
};

/// The temporary files that cabinets could leave. Those of other programs go away by themselves.
void RequireNoTempFiles(const std::set<std::string>& before)
{
    for (const std::string& name : NamesIn("/tmp")) {
        for (int i = 0; name.starts_with("ini") && !before.contains(name) && fs::exists("/tmp/" + name); ++i) {
            REQUIRE(i < 1000);
            usleep(1000);
        }
    }
}

std::string Word(size_t value)
{
    std::string bytes;
    for (int shift = 0; shift < 64; shift += 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

std::string Deflated(const std::string& plain)
{
    uLongf length = compressBound(static_cast<uLong>(plain.size()));
    std::string stream(length, '\0');
    REQUIRE(compress2(reinterpret_cast<Bytef*>(stream.data()), &length, reinterpret_cast<const Bytef*>(plain.data()),
                      static_cast<uLong>(plain.size()), 1) == Z_OK);
    stream.resize(length);
    return stream;
}

struct Stream {
    size_t start;
    size_t packed;
    size_t plain;
};

/// The text with its places filled in.
std::string Filled(const std::string& text, const std::vector<Stream>& streams)
{
    std::string filled;
    for (size_t i = 0; i < text.size(); ++i) {
        const size_t number = i + 2 < text.size() ? static_cast<size_t>(text[i + 2] - '0') : streams.size();
        const char kind = i + 2 < text.size() ? text[i + 1] : '\0';
        if (text[i] != '@' || number >= streams.size() || (kind != 'S' && kind != 'C' && kind != 'P')) {
            filled += text[i];
            continue;
        }
        const Stream& stream = streams[number];
        filled += std::to_string(kind == 'S' ? stream.start : kind == 'C' ? stream.packed : stream.plain);
        i += 2;
    }
    return filled;
}

/// Puts a cabinet together.
std::string Assembled(const std::string& input)
{
    const size_t count = input.empty() ? 0 : static_cast<unsigned char>(input[0]);
    const size_t end = std::min(input.find('\0', 1), input.size());
    const std::string text = input.empty() ? "" : input.substr(1, end - 1);
    std::vector<Stream> streams;
    std::string members;
    for (size_t at = end + 1; at < input.size();) {
        const size_t length = static_cast<unsigned char>(input[at]) & 0x7F;
        const bool isRaw = (input[at] & 0x80) != 0;
        const std::string content = input.substr(at + 1, length);
        const std::string stream = isRaw ? content : Deflated(content);
        streams.push_back({kHeaderSize + members.size(), stream.size(), content.size()});
        members += stream;
        at += 1 + length;
    }
    const std::string directory = Filled(text, streams);
    const std::string stream = Deflated(directory);
    std::string bytes = Word(count) + Word(kHeaderSize + members.size()) + Word(stream.size()) + Word(directory.size());
    bytes.resize(kHeaderSize, '\0');
    return bytes + members + stream;
}

/// Extracts one member; its path is told and is below the directory.
void ExtractOne(const Room& room, long index)
{
    const Exact<char> name(kPathSize);
    const std::string directory = room.File("box/out");
    strcpy(name.Get(), directory.c_str());
    if (!ZKQGeneral_ExtractMyCabOneFile(room.File("c").c_str(), name.Get(), index)) {
        REQUIRE(directory == name.Get());
        return;
    }
    REQUIRE(std::string(name.Get()).starts_with(directory + "/"));
    struct stat status;
    REQUIRE(lstat(name.Get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0);
}

long lastPercentage;

void* Record(void* percentage)
{
    const long now = reinterpret_cast<long>(percentage);
    REQUIRE(now >= lastPercentage && now <= 100);
    lastPercentage = now;
    return nullptr;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const Room room;
    static const std::set<std::string> before = NamesIn("/tmp");
    if (size < 2)
        return 0;
    const std::string input(reinterpret_cast<const char*>(data) + 1, size - 1);
    WriteBytes(room.File("c"), data[0] % 2 == 0 ? input : Assembled(input));
    room.Plant();
    lastPercentage = 0;
    const BOOL done = ZKQGeneral_ExtractMyCabAllFile_P(room.File("c").c_str(), room.File("box/out").c_str(), Record);
    REQUIRE(!done || lastPercentage == 100 || lastPercentage == 0);
    room.RequireNothingOutside();
    room.Plant();
    ExtractOne(room, data[0] / 2 % 4);
    room.RequireNothingOutside();
    RequireNoTempFiles(before);
    return 0;
}
