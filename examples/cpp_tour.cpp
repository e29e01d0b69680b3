// A tour of the C++ layer: what each part looks like in use. It works in the current directory.
#include <ZKQ_general.hpp>

#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

// [results]
// A result is a value, or the reason why there is none.
zkq::Result<std::string> FirstLine(const zkq::Text& file)
{
    zkq::Result<std::string> content = zkq::ReadFile(file);
    if (!content)
        return content.error(); // the reason goes on to the caller
    return content->substr(0, content->find('\n'));
}

void Results()
{
    const auto missing = FirstLine("missing.txt");
    if (!zkq::WriteFile("tour.txt", "first line\nsecond line\n"))
        return;
    const auto line = FirstLine("tour.txt");
    std::printf("missing.txt: %s\n", missing.text()); // taken when it failed, however much failed since
    std::printf("tour.txt: %s\n", line->c_str());
}
// [results end]

// [contents]
void Contents()
{
    const std::string bytes = "any bytes";
    std::printf("Base64: %s\n", zkq::Base64Encode(bytes)->c_str());
    std::printf("MD5: %s\n", zkq::Hex(*zkq::Md5(bytes)).c_str());
    const std::string gbk = *zkq::Utf8ToGbk("\xE4\xB8\xAD\xE6\x96\x87");
    std::printf("GBK: %s\n", zkq::Hex(gbk).c_str());

    const auto stream = zkq::Compress<zkq::Buffer>(std::string(1000, 'x')); // the library's own buffer, not copied
    std::printf("1000 bytes, back from a stream: %zu\n", zkq::Decompress(*stream, 1000)->size());

    if (!zkq::ProfileSet("tour.ini", "server", "name", "Alpha"))
        return;
    std::printf("name is %s, port is %d\n", zkq::ProfileGet("tour.ini", "server", "name").c_str(),
                zkq::ProfileInt("tour.ini", "server", "port", 8080));
}
// [contents end]

// [packet]
void Packets()
{
    auto packet = zkq::Packet::Make();
    if (!packet || !packet->AddOidText(1, "hello") || !packet->AddOidInt(2, 42))
        return;
    const zkq::Bytes sent = *packet->Whole(); // a view: good until the packet changes

    const auto received = zkq::Packet::From(sent);
    std::printf("a packet of %zu bytes: %s, %d\n", sent.size(), received->OidText(1)->data(), *received->OidInt(2));
    std::printf("OID 3: %s\n", received->OidInt(3).text());
}
// [packet end]

// [memory]
void MemoryObjects()
{
    auto memory = zkq::Memory::Make();
    const auto tokens = zkq::Split("alpha, beta\tgamma", " \t,");
    for (const std::string& token : *tokens) {
        if (!memory->Write(token) || !memory->Write("\n"))
            return;
    }
    const zkq::Buffer text = memory->Take();
    std::printf("%zu tokens in %zu bytes\n", tokens->size(), text.size());
}
// [memory end]

// [documents]
void Documents()
{
    zkq::Json json = *zkq::Json::Make();
    if (!json.SetString("server/name", "Alpha") || !json.SetInt("server/port", 8080))
        return;
    const zkq::JsonNode server = *json.Find("server"); // belongs to the document
    std::printf("port is %d\n", *server.GetInt("port"));
    std::printf("%s\n", json.Close()->c_str());

    const zkq::Xml xml = *zkq::Xml::Parse("<list><item id='1'>one</item><item id='2'>two</item></list>");
    zkq::XmlWalk walk = *xml.Walk("/list");
    while (const zkq::XmlElement item = walk.Next())
        std::printf("item %s\n", std::string(*item.OwnValue()).c_str());
    const auto missing = xml.Value("/list/none");
    std::printf("code %d: %s\n", missing.code(), missing.text());
}
// [documents end]

// [log]
void Logs()
{
    const auto log = zkq::Log::Always("tour", ".", ZKQ_LOG_WARN | ZKQ_LOG_ERROR);
    log->Record(ZKQ_LOG_INFO, __FILE__, 1, "not wanted");
    log->Record(ZKQ_LOG_WARN, __FILE__, 2, "wanted");
    // What the layer does not have is called with get(). So the compiler checks the arguments of a format.
    ZKQGeneral_RecordAppLogToFileEx_V(log->get(), ZKQ_LOG_ERROR, "%d of %d", 1, 2);
    std::printf("%s", zkq::ReadFile("tour.log")->c_str());
}
// [log end]

// [socket]
void Sockets()
{
    auto listener = zkq::Socket::Listen("127.0.0.1", 0);
    if (!listener)
        return;
    auto client = zkq::Socket::Connect("127.0.0.1", listener->Local()->port, 5);
    auto server = listener->Accept();
    if (!client || !server || !client->Send("over the wire"))
        return;
    std::printf("received: %s\n", server->Receive(13, 5)->c_str());
} // all three are closed
// [socket end]

// [lock]
void SharedBlocks()
{
    // Two keys that the processes agree on; these are this one's own.
    const auto key = 0x5A000000 + static_cast<unsigned long>(getpid());
    auto block = zkq::SharedBlock::Create(64, key, key);
    if (!block) {
        std::printf("no shared block: %s\n", block.text());
        return;
    }
    {
        const auto lock = block->Acquire(5);
        if (lock)
            std::printf("%zu bytes under a lock\n", lock->size());
    }                 // unlocked
    block->Destroy(); // without this the block would stay in the system
}
// [lock end]

} // namespace

int main()
{
    Results();
    Contents();
    Packets();
    MemoryObjects();
    Documents();
    Logs();
    Sockets();
    SharedBlocks();
}
