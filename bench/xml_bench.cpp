// XML documents against two parsers, and how the work grows.
#include <ZKQ_general/TamorXml.h>
#include <benchmark/benchmark.h>

#include <libxml/parser.h>
#include <pugixml.hpp>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

// What stands before the root element, a document type among it, is nothing that the library reads.
std::string FromRoot(const char* path, const char* root)
{
    std::ifstream in(path, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    const std::size_t begin = text.find(root);
    return begin == std::string::npos ? std::string() : text.substr(begin);
}

std::string Generate(std::size_t size)
{
    std::string text = "<catalogue>\n";
    for (int i = 0; text.size() < size; ++i) {
        const std::string number = std::to_string(i);
        text += "  <item id=\"" + number + "\" kind=\"article\">\n    <name>Item number " + number +
                "</name>\n    <price currency=\"EUR\">" + std::to_string(i % 997) +
                ".50</price>\n    <description>Some words about the item, as catalogues have them; nothing more than "
                "that.</description>\n    <stock/>\n  </item>\n";
    }
    return text + "</catalogue>\n";
}

const std::string& Document(const std::string& name)
{
    static const std::string mime = FromRoot("/usr/share/mime/packages/freedesktop.org.xml", "<mime-info");
    static const std::string iso = FromRoot("/usr/share/xml/iso-codes/iso_639-3.xml", "<iso_639_3_entries");
    static const std::string generated = Generate(50'000'000);
    return name == "mime" ? mime : name == "iso" ? iso : generated;
}

bool HasText(benchmark::State& state, const std::string& text)
{
    if (text.empty())
        state.SkipWithError("the document is not installed");
    return !text.empty();
}

void CountBytes(benchmark::State& state, std::size_t size)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
}

class Ours {
public:
    explicit Ours(const std::string& text) { WQXXML_LoadFromString(text.c_str(), &xml); }
    Ours(const Ours&) = delete;
    Ours& operator=(const Ours&) = delete;
    ~Ours() { WQXXML_ReleaseObject(xml); }

    void* Root() const
    {
        void* root = nullptr;
        return WQXXML_GetRootNode(xml, 0, &root) == 0 ? root : nullptr;
    }
    bool IsRead() const
    {
        int children = 0;
        return Root() != nullptr && WQXXML_GetChildNode(Root(), &children, nullptr) == 0 && children > 100;
    }

    void* xml = nullptr;
};

void Load(benchmark::State& state, const char* name)
{
    const std::string& text = Document(name);
    if (!HasText(state, text))
        return;
    if (!Ours(text).IsRead()) {
        state.SkipWithError("not read");
        return;
    }
    for (auto _ : state) {
        const Ours document(text);
        benchmark::DoNotOptimize(document.xml);
    }
    CountBytes(state, text.size());
}

void LoadPugixml(benchmark::State& state, const char* name)
{
    const std::string& text = Document(name);
    if (!HasText(state, text))
        return;
    for (auto _ : state) {
        pugi::xml_document document;
        if (!document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8)) {
            state.SkipWithError("not read");
            break;
        }
    }
    CountBytes(state, text.size());
}

void LoadLibxml2(benchmark::State& state, const char* name)
{
    const std::string& text = Document(name);
    if (!HasText(state, text))
        return;
    for (auto _ : state) {
        xmlDoc* const document = xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                                               XML_PARSE_NONET | XML_PARSE_HUGE | XML_PARSE_NOBLANKS);
        if (document == nullptr) {
            state.SkipWithError("not read");
            break;
        }
        xmlFreeDoc(document);
    }
    CountBytes(state, text.size());
}

void Write(benchmark::State& state, const char* name)
{
    const std::string& text = Document(name);
    if (!HasText(state, text))
        return;
    const Ours document(text);
    std::size_t size = 0;
    for (auto _ : state) {
        char* output = nullptr;
        if (WQXXML_OutputString(document.xml, &output) != 0) {
            state.SkipWithError("not written");
            break;
        }
        size = std::strlen(output);
        WQXXML_FreeString(output);
    }
    CountBytes(state, size);
}

// The peer's text grows in memory as ours does.
class MemoryWriter : public pugi::xml_writer {
public:
    void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }

    std::string text;
};

void WritePugixml(benchmark::State& state, const char* name)
{
    const std::string& text = Document(name);
    if (!HasText(state, text))
        return;
    pugi::xml_document document;
    document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    std::size_t size = 0;
    for (auto _ : state) {
        MemoryWriter writer;
        document.save(writer, "  ", pugi::format_default | pugi::format_no_declaration, pugi::encoding_utf8);
        size = writer.text.size();
        benchmark::DoNotOptimize(writer.text.data());
    }
    CountBytes(state, size);
}

#define PEERS(name)                                                                                                    \
    BENCHMARK_CAPTURE(Load, name, #name)->Name("xml/load/ours/" #name);                                                \
    BENCHMARK_CAPTURE(LoadPugixml, name, #name)->Name("xml/load/pugixml/" #name);                                      \
    BENCHMARK_CAPTURE(LoadLibxml2, name, #name)->Name("xml/load/libxml2/" #name);                                      \
    BENCHMARK_CAPTURE(Write, name, #name)->Name("xml/write/ours/" #name);                                              \
    BENCHMARK_CAPTURE(WritePugixml, name, #name)->Name("xml/write/pugixml/" #name)
PEERS(mime);
PEERS(iso);
PEERS(generated);
#undef PEERS

// Growth: everything takes time in proportion to its input.

std::size_t Count(const benchmark::State& state)
{
    return static_cast<std::size_t>(state.range(0));
}

std::string Repeated(std::size_t count, const std::string& piece)
{
    std::string text;
    text.reserve(count * piece.size());
    for (std::size_t i = 0; i < count; ++i)
        text += piece;
    return text;
}

void AppendChildren(void* root, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        WQXXML_AddNodeChildItem(root, "child", "text", nullptr);
}

void Append(benchmark::State& state)
{
    for (auto _ : state) {
        const Ours document("<r/>");
        AppendChildren(document.Root(), Count(state));
    }
}

void Read(benchmark::State& state, const std::string& text)
{
    for (auto _ : state) {
        const Ours document(text);
        benchmark::DoNotOptimize(document.xml);
    }
}

void Attributes(benchmark::State& state)
{
    Read(state, "<r>" +
                    Repeated(Count(state) / 10, "<e a='1' b='2' c='3' d='4' e='5' f='6' g='7' h='8' i='9' j='0'/>") +
                    "</r>");
}

void AttributesOfOne(benchmark::State& state)
{
    std::string text = "<r";
    for (std::size_t i = 0; i < Count(state); ++i)
        text += " name" + std::to_string(i) + "='value'";
    Read(state, text + "/>");
}

void Section(benchmark::State& state)
{
    Read(state, "<r><![CDATA[" + std::string(Count(state), ']') + "]]></r>");
}

void Pieces(benchmark::State& state)
{
    Read(state, "<r>" + Repeated(Count(state), "text<!---->") + "</r>");
}

void Levels(benchmark::State& state)
{
    Read(state, Repeated(Count(state), "<a>") + Repeated(Count(state), "</a>"));
}

void Delete(benchmark::State& state)
{
    const std::string text = "<r>" + Repeated(Count(state), "<a>x</a>") + "</r>";
    std::vector<void*> nodes(Count(state));
    for (auto _ : state) {
        state.PauseTiming();
        Ours document(text);
        WQXXML_GetChildNodeList(document.Root(), static_cast<int>(nodes.size()), "a", nodes.data());
        state.ResumeTiming();
        for (std::size_t i = nodes.size(); i-- > 0;)
            WQXXML_DelNode(&document.xml, nodes[i]);
    }
}

void WriteNodes(benchmark::State& state)
{
    const Ours document("<r>" + Repeated(Count(state), "<a>x</a>") + "</r>");
    for (auto _ : state) {
        char* output = nullptr;
        WQXXML_OutputString(document.xml, &output);
        benchmark::DoNotOptimize(output);
        WQXXML_FreeString(output);
    }
}

void Walk(benchmark::State& state)
{
    const Ours document("<r>" + Repeated(Count(state), "<a/>") + "</r>");
    for (auto _ : state) {
        void* node = nullptr;
        for (int i = 0; WQXXML_GetChildNode(document.Root(), &i, &node) == 0; ++i)
            benchmark::DoNotOptimize(node);
    }
}

void Sizes(benchmark::internal::Benchmark* bench)
{
    bench->RangeMultiplier(10)->Range(1'000, 1'000'000);
}

BENCHMARK(Append)->Name("xml/grow/append")->Apply(Sizes);
BENCHMARK(Attributes)->Name("xml/grow/attributes")->Apply(Sizes);
BENCHMARK(AttributesOfOne)->Name("xml/grow/attributes_of_one")->Apply(Sizes);
BENCHMARK(Section)->Name("xml/grow/section")->Apply(Sizes);
BENCHMARK(Pieces)->Name("xml/grow/pieces")->Apply(Sizes);
BENCHMARK(Levels)->Name("xml/grow/levels")->Apply(Sizes);
BENCHMARK(Delete)->Name("xml/grow/delete")->Apply(Sizes)->UseRealTime();
BENCHMARK(WriteNodes)->Name("xml/grow/write")->Apply(Sizes);
BENCHMARK(Walk)->Name("xml/grow/walk")->Apply(Sizes);

} // namespace
