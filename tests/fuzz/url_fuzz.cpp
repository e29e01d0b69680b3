// The URL splitters against each other and against what they were given, and the reader of keys against a slow one. Input:
// a URL, a text and a key, separated by NULs.
#include <ZKQ_general.h>
#include <string.h>

#include "fuzz.h"

namespace {

std::string WithoutBlanks(const std::string& text)
{
    const size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? "" : text.substr(first);
}

void SplitBoth(const std::string& url)
{
    NETWORK_URL_EX blocks;
    const bool split = Network_SplideURL_Ex(url.c_str(), &blocks);
    NETWORK_URL_NEW fields;
    if (split) {
        const std::string protocol = blocks.Protocol;
        const std::string name = blocks.ServerName;
        const std::string object = blocks.Object;
        REQUIRE(object[0] == '/' && name.find('/') == std::string::npos && protocol.find("://") == std::string::npos);
        REQUIRE(blocks.Port != 0);
        REQUIRE(WithoutBlanks(url).ends_with(object) || object == "/");
        const bool fits = protocol.size() < 100 && name.size() < 300 && object.size() < 300;
        REQUIRE(Network_SplideURL_New(url.c_str(), &fields) == fits);
        if (fits)
            REQUIRE(protocol == fields.n_url.Protocol && name == fields.n_url.ServerName &&
                    object == fields.n_url.Object && blocks.Port == fields.Port);
        Network_FreeURLEx(&blocks);
    } else {
        REQUIRE(blocks.Protocol == nullptr && blocks.ServerName == nullptr && blocks.Object == nullptr);
        REQUIRE(!Network_SplideURL_New(url.c_str(), &fields));
    }
}

/// The parts of the plain form make up the URL again.
void SplitPlain(const std::string& url)
{
    NETWORK_URL parts;
    if (!Network_SplideURL(url.c_str(), &parts))
        return;
    const std::string rest = std::string(parts.ServerName) + parts.Object;
    const std::string given = WithoutBlanks(url);
    const std::string whole =
        given.find("://") == std::string::npos ? rest : std::string(parts.Protocol) + "://" + rest;
    REQUIRE(whole == given || whole == given + "/");
}

std::vector<std::string> Pieces(const std::string& text, char separator)
{
    std::vector<std::string> pieces(1);
    for (const char c : text) {
        if (c != separator)
            pieces.back() += c;
        else if (!pieces.back().empty())
            pieces.emplace_back();
    }
    if (pieces.back().empty())
        pieces.pop_back();
    return pieces;
}

std::string ValueOf(const std::string& text, const std::string& key)
{
    for (const std::string& piece : Pieces(text, ';')) {
        const std::vector<std::string> parts = Pieces(piece, '=');
        if (parts.size() == 2 && parts[0] == key)
            return parts[1];
    }
    return "";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::vector<std::string> texts = Texts(data, size, 3);
    SplitBoth(texts[0]);
    SplitPlain(texts[0]);
    const Exact<char> value(texts[1].size() + 1);
    value.Get()[0] = '\0';
    GetKeyValue_Http(texts[1].c_str(), texts[2].c_str(), value.Get());
    REQUIRE(ValueOf(texts[1], texts[2]) == value.Get());
    return 0;
}
