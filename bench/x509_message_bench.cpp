// Messages against other encoders of records, and arrays that grow.
#include <ZKQ_general/error.h>
#include <ZKQ_general/x509.h>
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "x509_message_peers.h"

namespace {

#define NUMBER(i) ZKQ_MSG_INT32(Values, numbers[i], "number" #i, "")
#define WIDE(i) ZKQ_MSG_INT64(Values, wides[i], "wide" #i, "")
#define TEXT(i) ZKQ_MSG_STRINGPTR(Values, texts[i], "text" #i, "")
#define BLOB(i) ZKQ_MSG_BYTEARRAYPTR(Values, blobs[i], blobSizes[i], "blob" #i, "")

const GENERAL_MSG_TEMPLATE kValues[] = {NUMBER(0), NUMBER(1), NUMBER(2), NUMBER(3), NUMBER(4), NUMBER(5), NUMBER(6),
                                        NUMBER(7), WIDE(0),   WIDE(1),   WIDE(2),   WIDE(3),   TEXT(0),   TEXT(1),
                                        TEXT(2),   TEXT(3),   TEXT(4),   BLOB(0),   BLOB(1),   BLOB(2)};
ZKQ_MSG_RECORD_ITEM(Values_it, kValues)

constexpr std::size_t kRoom = 4096;

struct Sample {
    Sample()
    {
        for (int i = 0; i < kNumbers; ++i)
            values.numbers[i] = i * i * i * 100 + 1;
        for (int i = 0; i < kWides; ++i)
            values.wides[i] = 0x123456789LL * (i + 1);
        for (int i = 0; i < kTexts; ++i) {
            texts[i] = std::string(static_cast<std::size_t>(8 + 5 * i), static_cast<char>('a' + i));
            values.texts[i] = texts[i].data();
        }
        for (int i = 0; i < kBlobs; ++i) {
            blobs[i].assign(static_cast<std::size_t>(16 << i), static_cast<unsigned char>(i));
            values.blobs[i] = blobs[i].data();
            values.blobSizes[i] = static_cast<int>(blobs[i].size());
        }
    }
    Values values = {};
    std::string texts[kTexts];
    std::vector<unsigned char> blobs[kBlobs];
};

Sample& TheSample()
{
    static Sample sample;
    return sample;
}

/// An encoder: its record, and what it does with it.
struct Peer {
    void* (*make)(const Values*);
    void (*release)(void*);
    std::size_t (*encode)(const void*);
    std::size_t (*encodeInto)(const void*, unsigned char*);
    int (*decode)(const unsigned char*, std::size_t);
};

void* OursMake(const Values* values)
{
    return new Values(*values);
}
void OursFree(void* record)
{
    delete static_cast<Values*>(record);
}
std::size_t OursEncode(const void* record)
{
    unsigned char* out = nullptr;
    const int size = ZKQGeneral_MSG_i2d(record, &out, 0, Values_it(), ZKQ_MSG_DER);
    ZKQGeneral_FreeMallocBuffer(out);
    return size < 0 ? 0 : static_cast<std::size_t>(size);
}
std::size_t OursEncodeInto(const void* record, unsigned char* buffer)
{
    const int size = ZKQGeneral_MSG_i2d(record, &buffer, kRoom, Values_it(), ZKQ_MSG_DER);
    return size < 0 ? 0 : static_cast<std::size_t>(size);
}
int OursDecode(const unsigned char* bytes, std::size_t size)
{
    Values values;
    const int error =
        ZKQGeneral_MSG_d2i(&values, sizeof values, bytes, static_cast<int>(size), Values_it(), ZKQ_MSG_DER);
    benchmark::DoNotOptimize(values);
    ZKQGeneral_MSG_free(&values, Values_it(), 0, ZKQ_MSG_DER);
    return error == 0 ? 1 : 0;
}

void Encode(benchmark::State& state, const Peer& peer)
{
    void* const record = peer.make(&TheSample().values);
    for (auto _ : state)
        if (peer.encode(record) == 0)
            state.SkipWithError("not encoded");
    peer.release(record);
}

void EncodeInto(benchmark::State& state, const Peer& peer)
{
    void* const record = peer.make(&TheSample().values);
    unsigned char buffer[kRoom];
    for (auto _ : state) {
        if (peer.encodeInto(record, buffer) == 0)
            state.SkipWithError("not encoded");
        benchmark::DoNotOptimize(buffer);
    }
    peer.release(record);
}

void Decode(benchmark::State& state, const Peer& peer)
{
    void* const record = peer.make(&TheSample().values);
    unsigned char buffer[kRoom];
    const std::size_t size = peer.encodeInto(record, buffer);
    peer.release(record);
    for (auto _ : state)
        if (peer.decode(buffer, size) == 0)
            state.SkipWithError("not decoded");
}

// Arrays

struct Entry {
    int id;
    char name[16];
    char* note;
};
struct List {
    Entry* entries;
    int count;
};
const GENERAL_MSG_TEMPLATE kEntry[] = {ZKQ_MSG_INT32(Entry, id, "id", ""), ZKQ_MSG_STRING(Entry, name, "name", ""),
                                       ZKQ_MSG_STRINGPTR(Entry, note, "note", "@")};
ZKQ_MSG_RECORD_ITEM(Entry_it, kEntry)
const GENERAL_MSG_TEMPLATE kList[] = {ZKQ_MSG_RECORDSPTR(List, entries, count, Entry_it, "", "/list/entry/count@")};
ZKQ_MSG_RECORD_ITEM(List_it, kList)
const GENERAL_MSG_TEMPLATE kJsonList[] = {ZKQ_MSG_RECORDSPTR(List, entries, count, Entry_it, "", "list")};
ZKQ_MSG_RECORD_ITEM(JsonList_it, kJsonList)
const GENERAL_MSG_TEMPLATE kXmlList[] = {
    ZKQ_MSG_RECORDSPTR(List, entries, count, Entry_it, "", "/r/list/entry/count@")};
ZKQ_MSG_RECORD_ITEM(XmlList_it, kXmlList)

const GENERAL_MSG_ITEM* ListItem(int mode)
{
    return mode == ZKQ_MSG_DER ? List_it() : mode == ZKQ_MSG_XML ? XmlList_it() : JsonList_it();
}

std::string EncodedList(std::int64_t count, int mode)
{
    static char note[] = "some words about it";
    std::vector<Entry> entries(static_cast<std::size_t>(count), Entry{7, "a name", note});
    const List list = {entries.data(), static_cast<int>(count)};
    unsigned char* out = nullptr;
    const int result = ZKQGeneral_MSG_i2d(&list, &out, 0, ListItem(mode), mode);
    if (result < 0 || out == nullptr)
        return {};
    std::string text = mode == ZKQ_MSG_DER ? std::string(reinterpret_cast<char*>(out), static_cast<std::size_t>(result))
                                           : std::string(reinterpret_cast<char*>(out));
    ZKQGeneral_FreeMallocBuffer(out);
    return text;
}

void EncodeArray(benchmark::State& state, int mode)
{
    for (auto _ : state)
        if (EncodedList(state.range(0), mode).empty())
            state.SkipWithError("not encoded");
}

void DecodeArray(benchmark::State& state, int mode)
{
    const std::string text = EncodedList(state.range(0), mode);
    for (auto _ : state) {
        List list;
        if (ZKQGeneral_MSG_d2i(&list, sizeof list, reinterpret_cast<const unsigned char*>(text.c_str()),
                               static_cast<int>(text.size()), ListItem(mode), mode) != 0 ||
            list.count != state.range(0))
            state.SkipWithError("not decoded");
        ZKQGeneral_MSG_free(&list, ListItem(mode), 0, mode);
    }
}

const bool g_registered = [] {
    const struct {
        const char* name;
        Peer peer;
    } peers[] = {{"ours", {OursMake, OursFree, OursEncode, OursEncodeInto, OursDecode}},
                 {"protobuf-c", {ProtobufMake, ProtobufFree, ProtobufEncode, ProtobufEncodeInto, ProtobufDecode}},
                 {"openssl", {OpenSslMake, OpenSslFree, OpenSslEncode, OpenSslEncodeInto, OpenSslDecode}}};
    for (const auto& [name, peer] : peers) {
        const std::string suffix = std::string("/") + name;
        benchmark::RegisterBenchmark(("message/encode" + suffix).c_str(), Encode, peer);
        benchmark::RegisterBenchmark(("message/encode-into" + suffix).c_str(), EncodeInto, peer);
        benchmark::RegisterBenchmark(("message/decode" + suffix).c_str(), Decode, peer);
    }
    const struct {
        const char* name;
        int mode;
    } modes[] = {{"der", ZKQ_MSG_DER}, {"xml", ZKQ_MSG_XML}, {"json", ZKQ_MSG_JSON}};
    for (const auto& [name, mode] : modes) {
        benchmark::RegisterBenchmark((std::string("message/grow-encode/") + name).c_str(), EncodeArray, mode)
            ->RangeMultiplier(10)
            ->Range(1000, 100000);
        benchmark::RegisterBenchmark((std::string("message/grow-decode/") + name).c_str(), DecodeArray, mode)
            ->RangeMultiplier(10)
            ->Range(1000, 100000);
    }
    return true;
}();

} // namespace
