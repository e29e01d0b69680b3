// zkq packet: what a message packet holds.
#include <ZKQ_general/error.h>
#include <ZKQ_general/msgpacket.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <charconv>
#include <memory>
#include <string_view>
#include <vector>

#include "bytes.h"
#include "commands.h"
#include "failure.h"
#include "input.h"
#include "output.h"

namespace {

constexpr size_t kHeaderSize = 4;
constexpr size_t kShown = 16; // bytes of an item

struct Release {
    void operator()(void* packet) const { ZKQGeneral_DestroyMsgPacket(packet); }
};

class Packet {
public:
    explicit Packet(const std::string& file);

    int Count() const;
    size_t Size() const { return size_; }
    std::string_view Item(int index) const;
    /// Where an item begins in the file.
    size_t Offset(std::string_view item) const { return static_cast<size_t>(item.data() - bytes_); }
    /// The integer of an item of 4 bytes as text; nothing for any other.
    std::string Integer(int index) const;
    std::vector<int> Oids() const;

private:
    std::string file_;
    std::unique_ptr<void, Release> packet_;
    const char* bytes_ = nullptr;
    size_t size_ = 0;
};

std::string WhyNoPacket(const std::string& bytes)
{
    if (bytes.size() < kHeaderSize)
        return "it is shorter than a header";
    size_t total = 0;
    for (size_t i = 0; i < kHeaderSize; ++i)
        total = total << CHAR_BIT | static_cast<unsigned char>(bytes[i]);
    if (total != bytes.size())
        return "its header says " + std::to_string(total) + " bytes, and it has " + std::to_string(bytes.size());
    return "an item runs past its end";
}

Packet::Packet(const std::string& file) : file_(file)
{
    const std::string bytes = ReadInput(file);
    void* packet = nullptr;
    if (!ZKQGeneral_InitMsgPacket(bytes.data(), static_cast<int>(bytes.size()), 0, &packet))
        throw std::string_view(ZKQGeneral_GetGeneralErrorInfo()) == strerror(EBADMSG)
            ? Failure(file, "Not a message packet: " + WhyNoPacket(bytes))
            : LibraryFailure(file);
    packet_.reset(packet);
    unsigned char* start = nullptr;
    int size = 0;
    ZKQGeneral_MsgPacket_GetBuffer(packet, &start, &size);
    bytes_ = reinterpret_cast<const char*>(start);
    size_ = static_cast<size_t>(size);
}

int Packet::Count() const
{
    int count = 0;
    ZKQGeneral_MsgPacket_GetCount(packet_.get(), &count);
    return count;
}

std::string_view Packet::Item(int index) const
{
    void* place = nullptr;
    int size = 0;
    if (!ZKQGeneral_MsgPacket_GetDataPtr(packet_.get(), index, &place, &size))
        throw LibraryFailure(file_);
    return {static_cast<const char*>(place), static_cast<size_t>(size)};
}

std::string Packet::Integer(int index) const
{
    int value = 0;
    return ZKQGeneral_MsgPacket_GetIntegerData(packet_.get(), index, &value) ? std::to_string(value) : "";
}

std::vector<int> Packet::Oids() const
{
    int count = 0;
    if (!ZKQGeneral_MsgPacket_OID_EnumOID(packet_.get(), nullptr, &count))
        throw Failure(file_, "Not a tagged packet: it has an odd number of items");
    std::vector<int> oids(static_cast<size_t>(count));
    if (!ZKQGeneral_MsgPacket_OID_EnumOID(packet_.get(), oids.data(), &count))
        throw Failure(file_, "Not a tagged packet: an OID has not 4 bytes");
    return oids;
}

/// The first bytes of an item, as numbers and as text.
std::string Preview(std::string_view item)
{
    const std::string_view shown = item.substr(0, kShown);
    std::string numbers;
    std::string text;
    for (const char byte : shown) {
        char two[4];
        snprintf(two, sizeof two, "%02x ", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        numbers += two;
        text += byte >= ' ' && byte <= '~' ? byte : '.';
    }
    if (shown.empty())
        return "";
    numbers.resize(3 * kShown, ' ');
    return "  " + numbers + " " + text + (item.size() > kShown ? "..." : "");
}

/// A row of the table: what names the item, and the item.
std::string Row(const Packet& packet, const std::string& name, int index)
{
    const std::string_view item = packet.Item(index);
    char columns[64];
    snprintf(columns, sizeof columns, "%11s %10zu %10zu %11s", name.c_str(), packet.Offset(item), item.size(),
             packet.Integer(index).c_str());
    std::string row = columns + Preview(item);
    row.erase(row.find_last_not_of(' ') + 1);
    return row;
}

void PrintHeading(const char* name)
{
    char columns[64];
    snprintf(columns, sizeof columns, "%11s %10s %10s %11s  BYTES", name, "OFFSET", "LENGTH", "INTEGER");
    PrintLine(columns);
}

void DumpItems(const Packet& packet)
{
    PrintLine(std::to_string(packet.Size()) + " bytes, " + std::to_string(packet.Count()) + " items");
    if (packet.Count() > 0)
        PrintHeading("ITEM");
    for (int i = 0; i < packet.Count(); ++i)
        PrintLine(Row(packet, std::to_string(i), i));
}

void DumpPairs(const Packet& packet)
{
    const std::vector<int> oids = packet.Oids();
    PrintLine(std::to_string(packet.Size()) + " bytes, " + std::to_string(oids.size()) + " values");
    if (!oids.empty())
        PrintHeading("OID");
    for (size_t i = 0; i < oids.size(); ++i)
        PrintLine(Row(packet, std::to_string(oids[i]), static_cast<int>(2 * i + 1)));
}

void AddDump(CLI::App& packet)
{
    struct Options {
        std::string file;
        bool oid = false;
    };
    const auto options = std::make_shared<Options>();
    CLI::App* command = packet.add_subcommand("dump", "Show the items of a message packet");
    command->add_option("FILE", options->file, "The packet")->required()->type_name("");
    command->add_flag("--oid", options->oid, "The packet is tagged: show each value with its OID");
    command->callback([options] {
        const Packet packet_in_file(options->file);
        options->oid ? DumpPairs(packet_in_file) : DumpItems(packet_in_file);
    });
}

int ParsedNumber(const std::string& text, const std::string& item)
{
    int number = 0;
    const char* const end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || at != end || text.empty())
        throw CLI::ValidationError("ITEM", "\"" + item + "\" has no integer of 32 bits where one belongs");
    return number;
}

/// The bytes that an item of the command line stands for.
std::string ItemBytes(const std::string& item)
{
    if (item.starts_with("text:"))
        return item.substr(strlen("text:")) + '\0';
    if (item.starts_with("@"))
        return ByteSource(item.substr(1)).ReadAll();
    if (!item.starts_with("int:"))
        throw CLI::ValidationError("ITEM", "\"" + item + "\" begins with none of text: int: @");
    const auto number = static_cast<unsigned>(ParsedNumber(item.substr(strlen("int:")), item));
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= CHAR_BIT) // the highest byte first
        bytes += static_cast<char>(number >> shift & UCHAR_MAX);
    return bytes;
}

struct MakeOptions {
    std::string output;
    std::vector<std::string> items;
    bool isTagged = false;
};

bool AddItem(void* packet, const std::string& item, bool isTagged)
{
    const size_t sign = isTagged ? item.find('=') : 0;
    if (sign == std::string::npos)
        throw CLI::ValidationError("ITEM", "\"" + item + "\" has no OID=");
    const std::string bytes = ItemBytes(isTagged ? item.substr(sign + 1) : item);
    if (bytes.size() > INT_MAX)
        throw SystemFailure("cannot add " + item, EMSGSIZE);
    const int size = static_cast<int>(bytes.size());
    return isTagged ? ZKQGeneral_MsgPacket_OID_AddBuffer(packet, ParsedNumber(item.substr(0, sign), item), bytes.data(),
                                                         size)
                    : ZKQGeneral_MsgPacket_AddBuffer(packet, bytes.data(), size);
}

void Make(const MakeOptions& options)
{
    if (options.output.empty() && isatty(STDOUT_FILENO))
        throw Failure("not made", "The packet would go to the terminal; name a file with -o");
    void* made = nullptr;
    if (!ZKQGeneral_CreateMsgPacket(0, &made))
        throw LibraryFailure("cannot make a packet");
    const std::unique_ptr<void, Release> packet(made);
    for (const std::string& item : options.items)
        if (!AddItem(made, item, options.isTagged))
            throw LibraryFailure("cannot add " + item);
    unsigned char* bytes = nullptr;
    int size = 0;
    if (!ZKQGeneral_MsgPacket_GetBuffer(made, &bytes, &size))
        throw LibraryFailure("cannot make a packet");
    ByteSink sink(options.output);
    sink.Write({reinterpret_cast<const char*>(bytes), static_cast<size_t>(size)});
    sink.Finish();
}

void AddMake(CLI::App& packet)
{
    const auto options = std::make_shared<MakeOptions>();
    CLI::App* command = packet.add_subcommand("make", "Make a message packet");
    command
        ->add_option("ITEM", options->items,
                     "text:TEXT (a NUL follows it), int:NUMBER (4 bytes), or @FILE for its bytes")
        ->required()
        ->type_name("");
    command->add_flag("--oid", options->isTagged, "A tagged packet: each item is OID=ITEM");
    command->add_option("-o,--output", options->output, "Write to this file instead of to standard output")
        ->type_name("FILE");
    command->callback([options] { Make(*options); });
}

} // namespace

void AddPacketCommands(CLI::App& app)
{
    CLI::App* packet = app.add_subcommand("packet", "Show and make message packets");
    packet->require_subcommand(1);
    AddDump(*packet);
    AddMake(*packet);
}
