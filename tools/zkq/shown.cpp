#include "shown.h"

#include <stdio.h>

std::string ShownBytes(std::string_view bytes, size_t most)
{
    std::string text;
    for (const char byte : bytes.substr(0, most)) {
        char two[4];
        snprintf(two, sizeof two, text.empty() ? "%02x" : " %02x",
                 static_cast<unsigned>(static_cast<unsigned char>(byte)));
        text += two;
    }
    return bytes.size() > most ? text + " ..." : text;
}

std::string WithoutControls(std::string_view text)
{
    constexpr char kDelete = 0x7F;
    std::string shown;
    for (const char c : text) {
        if (c == '\\') {
            shown += "\\\\";
        } else if (c == kDelete || (c >= 0 && c < ' ')) {
            char escape[8];
            snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(c));
            shown += escape;
        } else {
            shown += c;
        }
    }
    return shown;
}

std::string Counted(size_t count, const std::string& word)
{
    return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}
