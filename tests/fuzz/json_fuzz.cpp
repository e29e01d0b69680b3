// Reads a text, writes it, reads that again: as a slow reader and writer of the same rules do. Input: the text.
#include <string.h>

#include "../../src/internal/json.h"
#include "../support/json_model.h"
#include "fuzz.h"

namespace {

/// Reads an exact copy of a text and writes it; nothing if it is no JSON.
std::optional<std::string> Rewritten(const std::string& text)
{
    const Exact<char> copy(text.size() + 1);
    memcpy(copy.Get(), text.c_str(), text.size() + 1);
    cJSON* root = nullptr;
    const int code = cJSON_Misc_Parse(copy.Get(), &root);
    REQUIRE(code == 0 || code == -8);
    REQUIRE((root != nullptr) == (code == 0));
    if (code != 0)
        return std::nullopt;
    char* const printed = cJSON_Misc_Print(root);
    REQUIRE(printed != nullptr);
    std::string written = printed;
    free(printed);
    cJSON_Misc_Delete(root);
    return written;
}

/// Names, texts and kinds, without what numbers lose; false where a number's form is none.
bool Shape(const support::json::Value& value, std::string* shape)
{
    *shape += static_cast<char>('0' + static_cast<int>(value.kind));
    *shape += support::json::WriteString(value.name) + support::json::WriteString(value.text);
    bool is_writable = value.kind != support::json::Kind::kNumber || std::isfinite(value.number);
    for (const support::json::Value& below : value.below)
        is_writable = Shape(below, shape) && is_writable;
    *shape += '.';
    return is_writable;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text = Texts(data, size, 1)[0];
    const std::optional<std::string> written = Rewritten(text);
    const std::optional<support::json::Value> model = support::json::Read(text);
    REQUIRE(written.has_value() == model.has_value());
    if (!written)
        return 0;
    REQUIRE(*written == support::json::Write(*model));
    std::string shape;
    if (!Shape(*model, &shape))
        return 0;
    const std::optional<support::json::Value> again = support::json::Read(*written);
    REQUIRE(again.has_value());
    std::string shape_again;
    Shape(*again, &shape_again);
    REQUIRE(shape == shape_again);
    REQUIRE(Rewritten(*written) == support::json::Write(*again));
    return 0;
}
