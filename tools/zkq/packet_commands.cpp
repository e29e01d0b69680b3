// zkq packet: what a message packet holds.
#include <ZKQ_general/error.h>
#include <ZKQ_general/msgpacket.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include <memory>
#include <string_view>
#include <vector>

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

} // namespace

void AddPacketCommands(CLI::App& app)
{
    CLI::App* packet = app.add_subcommand("packet", "Show message packets");
    packet->require_subcommand(1);
    AddDump(*packet);
}
