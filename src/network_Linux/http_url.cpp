// URLs and keys with values, taken apart.
#include <ZKQ_general/http.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "../internal/error.h"
#include "../internal/http.h"
#include "../internal/text.h"
#include "../internal/tokenizer.h"

namespace {

constexpr char kDefaultProtocol[] = "HTTP";
constexpr int kDecimal = 10;

struct KnownProtocol {
    std::string_view name;
    long port;
};
constexpr KnownProtocol kKnownProtocols[] = {{"http", 80}, {"ftp", 21}, {"https", 443}};

/// What stands before the first occurrence of a text, and behind it; behind is empty if it does not occur.
struct Halves {
    std::string_view before;
    std::string_view behind;
};

Halves CutAt(std::string_view text, std::string_view mark)
{
    const size_t at = std::min(text.find(mark), text.size());
    return {text.substr(0, at), After(text, std::min(at + mark.size(), text.size()))};
}

/// The number that a text begins with. It is part of a longer one that ends with a NUL or at a "/".
long NumberIn(std::string_view text)
{
    return text.empty() ? 0 : strtol(text.data(), nullptr, kDecimal);
}

void SplitServer(UrlParts* parts)
{
    Halves halves = CutAt(parts->server, "[");
    if (halves.before.size() < parts->server.size()) {
        halves = CutAt(halves.behind, "]");
        parts->name = halves.before;
        parts->port = NumberIn(CutAt(halves.behind, ":").behind);
        return;
    }
    halves = CutAt(parts->server, ":");
    parts->name = halves.before;
    parts->port = NumberIn(halves.behind);
}

/// Copies a text into a field of fixed size, where it fits.
template <size_t N>
void CopyField(char (&field)[N], std::string_view text)
{
    TextBuilder(field).Add(text);
}

/// The texts fit into the fields.
bool Fits(const NETWORK_URL& url, const UrlParts& parts, std::string_view server)
{
    return parts.protocol.size() < sizeof url.Protocol && server.size() < sizeof url.ServerName &&
           parts.object.size() < sizeof url.Object;
}

void Store(NETWORK_URL* url, const UrlParts& parts, std::string_view server)
{
    CopyField(url->Protocol, parts.protocol);
    CopyField(url->ServerName, server);
    CopyField(url->Object, parts.object);
}

char* Duplicate(std::string_view text)
{
    return strndup(text.data(), text.size());
}

int SplitIntoBlocks(const char* URL, NETWORK_URL_EX* blocks)
{
    UrlParts parts;
    if (const int error = SplitUrlWithPort(URL, &parts))
        return error;
    blocks->Protocol = Duplicate(parts.protocol);
    blocks->ServerName = Duplicate(parts.name);
    blocks->Object = Duplicate(parts.object);
    blocks->Port = parts.port;
    if (blocks->Protocol != nullptr && blocks->ServerName != nullptr && blocks->Object != nullptr)
        return 0;
    Network_FreeURLEx(blocks);
    return ENOMEM;
}

} // namespace

int SplitUrl(const char* URL, UrlParts* parts)
{
    std::string_view text = OrEmpty(URL);
    text = After(text, std::min(text.find_first_not_of(' '), text.size()));
    if (text.empty())
        return EINVAL;
    const Halves halves = CutAt(text, "://");
    const bool hasProtocol = halves.before.size() < text.size();
    parts->protocol = hasProtocol ? halves.before : kDefaultProtocol;
    text = hasProtocol ? halves.behind : text;
    parts->server = CutAt(text, "/").before;
    parts->object = After(text, parts->server.size());
    if (parts->object.empty())
        parts->object = "/";
    SplitServer(parts);
    return 0;
}

int SplitUrlWithPort(const char* URL, UrlParts* parts)
{
    if (const int error = SplitUrl(URL, parts))
        return error;
    if (parts->port != 0)
        return 0;
    for (const KnownProtocol& known : kKnownProtocols)
        if (EqualNoCase(parts->protocol, known.name))
            parts->port = known.port;
    return parts->port == 0 ? ENOSYS : 0;
}

BOOL Network_SplideURL(LPCTSTR URL, NETWORK_URL* nurl)
{
    UrlParts parts;
    if (nurl == nullptr || SplitUrl(URL, &parts) != 0)
        return Fail(EINVAL);
    if (!Fits(*nurl, parts, parts.server))
        return Fail(ENOMEM);
    Store(nurl, parts, parts.server);
    return TRUE;
}

BOOL Network_SplideURL_Ex(LPCTSTR URL, NETWORK_URL_EX* New_URL)
{
    if (New_URL == nullptr)
        return Fail(EINVAL);
    *New_URL = {};
    return Finish(SplitIntoBlocks(URL, New_URL));
}

BOOL Network_SplideURL_New(LPCTSTR URL, NETWORK_URL_NEW* new_url)
{
    if (new_url == nullptr)
        return Fail(EINVAL);
    UrlParts parts;
    if (const int error = SplitUrlWithPort(URL, &parts))
        return Fail(error);
    if (!Fits(new_url->n_url, parts, parts.name))
        return Fail(ENOMEM);
    Store(&new_url->n_url, parts, parts.name);
    new_url->Port = parts.port;
    return TRUE;
}

void Network_FreeURLEx(NETWORK_URL_EX* URL)
{
    if (URL == nullptr)
        return;
    free(URL->Protocol);
    free(URL->ServerName);
    free(URL->Object);
    *URL = {};
}

void GetKeyValue_Http(const char* src, const char* key, char* value)
{
    if (src == nullptr || key == nullptr || value == nullptr)
        return;
    Tokenizer pieces(src, ";");
    for (std::string_view piece = pieces.Next(); !piece.empty(); piece = pieces.Next()) {
        Tokenizer parts(piece, "=");
        const std::string_view name = parts.Next();
        const std::string_view found = parts.Next();
        if (name == key && !found.empty() && parts.Next().empty()) {
            value[found.copy(value, found.size())] = '\0';
            return;
        }
    }
}
