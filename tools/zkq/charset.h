// Between GBK, in which the library speaks Chinese, and the charset of the terminal.
#pragma once

#include <iconv.h>

#include <string>
#include <string_view>

/// Turns GBK text that arrives in pieces into the charset of the locale. Bytes that cannot be turned become "?".
class GbkReader {
public:
    GbkReader();
    ~GbkReader();
    GbkReader(const GbkReader&) = delete;
    GbkReader& operator=(const GbkReader&) = delete;

    std::string Convert(std::string_view bytes);
    /// What is left of a character that was cut off at the end.
    std::string Finish();

private:
    iconv_t converter_;
    std::string pending_;
};

/// An error text, which may be the library's (GBK) or the system's (in the charset of the locale), for the terminal.
std::string ToTerminal(const std::string& text);
