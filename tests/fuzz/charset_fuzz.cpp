// The four conversions against one call of the system's converter. The first byte chooses the direction.
#include <errno.h>
#include <string.h>

#include "../../src/internal/charset.h"
#include "../support/bare_iconv.h"
#include "fuzz.h"

namespace {

struct Direction {
    TextConversion conversion;
    const char* to;
    const char* from;
};
constexpr Direction kDirections[] = {
    {kGbkToUcs2, "UNICODELITTLE", "GBK"},
    {kUcs2ToGbk, "GBK", "UNICODELITTLE"},
    {kGbkToUtf8, "UTF-8", "GBK"},
    {kUtf8ToGbk, "GBK", "UTF-8"},
};

void Compare(const Direction& direction, const std::string& text)
{
    const support::BareIconv bare(direction.to, direction.from);
    const support::Converted expected = bare(text);
    const int size = static_cast<int>(text.size());
    const int needed = static_cast<int>(expected.bytes.size());
    const Exact<char> in(text.size());
    std::copy(text.begin(), text.end(), in.Get());

    int length = -7;
    REQUIRE(ConvertText(direction.conversion, in.Get(), size, nullptr, &length) == expected.error);
    REQUIRE(length == (expected.error == 0 ? needed : -7));
    const Exact<char> out(expected.bytes.size());
    length = needed;
    REQUIRE(ConvertText(direction.conversion, in.Get(), size, out.Get(), &length) == expected.error);
    REQUIRE(length == needed);
    REQUIRE(std::equal(expected.bytes.begin(), expected.bytes.end(), out.Get()));
    length = needed - 1;
    if (expected.error == 0)
        REQUIRE(ConvertText(direction.conversion, in.Get(), size, out.Get(), &length) == EMSGSIZE);
    REQUIRE(length == needed - 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 2)
        return 0;
    const Direction& direction = kDirections[data[0] % 4];
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    if (direction.conversion == kUcs2ToGbk && text.size() % 2 != 0) {
        int length = 7;
        REQUIRE(ConvertText(kUcs2ToGbk, text.data(), static_cast<int>(text.size()), nullptr, &length) == EINVAL);
        text.pop_back();
        if (text.empty())
            return 0;
    }
    Compare(direction, text);
    return 0;
}
