#include "charset.h"

#include <errno.h>
#include <langinfo.h>
#include <stdlib.h>

#include "failure.h"

namespace {

const iconv_t kNoConverter = reinterpret_cast<iconv_t>(-1);
constexpr size_t kIconvFailed = static_cast<size_t>(-1);

/// Converts as far as it goes: the result of the last iconv() call is returned, `in` is cut to what remains.
size_t ConvertRun(iconv_t converter, std::string& in, std::string& out)
{
    char* next = in.data();
    size_t left = in.size();
    size_t result = 0;
    do {
        char buffer[4096];
        char* end = buffer;
        size_t room = sizeof(buffer);
        result = iconv(converter, &next, &left, &end, &room);
        out.append(buffer, end);
    } while (result == kIconvFailed && errno == E2BIG);
    const int reason = errno;
    in.erase(0, in.size() - left);
    errno = reason;
    return result;
}

bool FitsLocale(const std::string& text)
{
    return mbstowcs(nullptr, text.c_str(), 0) != static_cast<size_t>(-1);
}

} // namespace

GbkReader::GbkReader() : converter_(iconv_open((std::string(nl_langinfo(CODESET)) + "//TRANSLIT").c_str(), "GBK"))
{
    if (converter_ == kNoConverter)
        throw SystemFailure("cannot convert from GBK", errno);
}

GbkReader::~GbkReader()
{
    iconv_close(converter_);
}

std::string GbkReader::Convert(std::string_view bytes)
{
    std::string out;
    pending_ += bytes;
    while (ConvertRun(converter_, pending_, out) == kIconvFailed && errno == EILSEQ) {
        out += '?';
        pending_.erase(0, 1);
    }
    return out;
}

std::string GbkReader::Finish()
{
    std::string out(pending_.empty() ? "" : "?");
    pending_.clear();
    return out;
}

std::string ToTerminal(const std::string& text)
{
    // The system's texts follow the locale already; read as GBK they would turn into nonsense.
    if (FitsLocale(text))
        return text;
    const iconv_t converter = iconv_open(nl_langinfo(CODESET), "GBK");
    if (converter == kNoConverter)
        return text;
    std::string in = text;
    std::string out;
    const bool converted = ConvertRun(converter, in, out) != kIconvFailed;
    iconv_close(converter);
    return converted ? out : text;
}
