#include "internal/base64.h"

#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <numeric>

#include "internal/base64_codec.h"
#include "internal/error.h"
#include "internal/guards.h"
#include "messages_gbk.h"

namespace {

constexpr int kDefaultLine = 72;
constexpr size_t kGroupBytes = 3;
constexpr size_t kGroupChars = 4;
constexpr size_t kBreakChars = 2;

constinit std::atomic<int> CharPerLine{kDefaultLine};

/// Groups in a line: its length, which grows by 4, is then first a multiple of `MaxCharPerLine`. 0 for no line breaks.
size_t GroupsPerLine(int MaxCharPerLine)
{
    const auto length = static_cast<size_t>(std::abs(int64_t{MaxCharPerLine}));
    return length / std::gcd(length, kGroupChars);
}

/// Encodes the 1 or 2 bytes that are left over.
void EncodeLast(const unsigned char* in, size_t count, char* out)
{
    const unsigned bits = unsigned{in[0]} << 16 | (count > 1 ? unsigned{in[1]} << 8 : 0);
    out[0] = kBase64Alphabet[bits >> 18];
    out[1] = kBase64Alphabet[bits >> 12 & 63];
    out[2] = count > 1 ? kBase64Alphabet[bits >> 6 & 63] : '=';
    out[3] = '=';
}

enum class Step { kNext, kEnd, kFault };

/// Decodes a group that has passed the filter.
Step DecodeGroup(Base64Position* at)
{
    unsigned bits = 0;
    for (size_t i = 0; i < kGroupChars; ++i)
        bits = bits << 6 | (Base64Value(at->text[i]) & 63);
    *at->out++ = static_cast<unsigned char>(bits >> 16);
    if (at->text[2] == '=')
        return Step::kEnd;
    *at->out++ = static_cast<unsigned char>(bits >> 8);
    if (at->text[3] == '=')
        return Step::kEnd;
    *at->out++ = static_cast<unsigned char>(bits);
    at->text += kGroupChars;
    return Step::kNext;
}

/// Whatever the inner loops leave over: padding, breaks inside a group, faults.
Step DecodeStep(Base64Position* at, const char* end)
{
    if (IsBase64Break(*at->text)) {
        ++at->text;
        return Step::kNext;
    }
    if (static_cast<size_t>(end - at->text) < kGroupChars)
        return Step::kFault;
    const char* const group = at->text;
    const auto isBad = [](char c) { return Base64Value(c) == kBase64Bad; };
    if ((Base64Value(group[0]) | Base64Value(group[1]) | Base64Value(group[2]) | Base64Value(group[3])) < kBase64Break)
        return DecodeGroup(at);
    if (std::any_of(group, group + kGroupChars, isBad))
        return Step::kFault;
    ++at->text; // a break inside the group
    return Step::kNext;
}

/// A text of which the end is known.
class MeasuredText {
public:
    explicit MeasuredText(std::string_view text) : end_(text.data() + text.size()) {}
    const char* EndFrom(const char* /*at*/) const { return end_; }

private:
    const char* end_;
};

/// A text that ends with a NUL. It is measured piece by piece, so that what is decoded is still in the cache.
class TerminatedText {
public:
    explicit TerminatedText(const char* text) : end_(text) {}

    /// As far as the text is known: to its end, or a group behind `at` at least.
    const char* EndFrom(const char* at)
    {
        if (!isWhole_ && static_cast<size_t>(end_ - at) < kGroupChars) {
            const size_t length = strnlen(end_, kPiece);
            isWhole_ = length < kPiece;
            end_ += length;
        }
        return end_;
    }

private:
    static constexpr size_t kPiece = 16 * 1024;

    const char* end_;
    bool isWhole_ = false;
};

template <class Text>
int DecodeText(const Base64Codec& codec, Text text, Base64Position at, size_t* len)
{
    const unsigned char* const begin = at.out;
    Step step = Step::kNext;
    while (step == Step::kNext) {
        at = codec.DecodeGroups(at, text.EndFrom(at.text));
        const char* const end = text.EndFrom(at.text);
        step = at.text == end ? Step::kEnd : DecodeStep(&at, end);
    }
    *len = static_cast<size_t>(at.out - begin);
    return step == Step::kEnd ? 0 : EBADMSG;
}

/// Decodes into `out` and stores the number of bytes; the result of an exported function.
template <class Text, class Count>
BOOL Decode(Text text, unsigned char* out, Count* len)
{
    size_t count = 0;
    const int error = ConvertFromBase64_R(text, out, &count);
    constexpr size_t most = std::numeric_limits<Count>::max();
    *len = static_cast<Count>(std::min(count, most));
    if (error != 0) {
        GeneralMisc_SetErrorString(Message::Base64BadText);
        return FALSE;
    }
    return count <= most ? TRUE : Fail(EMSGSIZE);
}

} // namespace

char* EncodeBase64With(const Base64Codec& codec, const unsigned char* in, size_t len, char* out, int MaxCharPerLine)
{
    const size_t perLine = GroupsPerLine(MaxCharPerLine);
    size_t groups = len / kGroupBytes;
    if (perLine != 0 && groups >= perLine) {
        const size_t lines = groups / perLine;
        codec.EncodeLines(in, lines, perLine, out);
        in += lines * perLine * kGroupBytes;
        out += lines * (perLine * kGroupChars + kBreakChars);
        groups %= perLine;
    }
    codec.EncodeGroups(in, groups, out);
    out += groups * kGroupChars;
    if (const size_t rest = len % kGroupBytes) {
        EncodeLast(in + groups * kGroupBytes, rest, out);
        out += kGroupChars;
        if (groups + 1 == perLine) {
            *out++ = '\r';
            *out++ = '\n';
        }
    }
    *out = '\0';
    return out;
}

int DecodeBase64With(const Base64Codec& codec, std::string_view text, unsigned char* out, size_t* len)
{
    return DecodeText(codec, MeasuredText(text), {text.data(), out}, len);
}

int DecodeBase64With(const Base64Codec& codec, const char* text, unsigned char* out, size_t* len)
{
    return DecodeText(codec, TerminatedText(text), {text, out}, len);
}

size_t Base64LengthWithBreaks(size_t len, int MaxCharPerLine)
{
    const size_t perLine = GroupsPerLine(MaxCharPerLine);
    const size_t length = Base64Length(len);
    return perLine == 0 ? length : length + length / (perLine * kGroupChars) * kBreakChars;
}

char* ConvertToBase64_R(const unsigned char* in, size_t len, char* out, int MaxCharPerLine)
{
    return EncodeBase64With(ChooseBase64Codec(), in, len, out, MaxCharPerLine);
}

int ConvertFromBase64_R(std::string_view text, unsigned char* out, size_t* len)
{
    return DecodeBase64With(ChooseBase64Codec(), text, out, len);
}

int ConvertFromBase64_R(const char* text, unsigned char* out, size_t* len)
{
    return DecodeBase64With(ChooseBase64Codec(), text, out, len);
}

void General_Misc_ConvertToBase64(const unsigned char* in, unsigned int len, char* out)
{
    ConvertToBase64_R(in, len, out, 0);
}

BOOL ZKQGeneral_SetBase64LineFeed(int MaxChars)
{
    if (MaxChars % static_cast<int>(kGroupChars) != 0) {
        GeneralMisc_SetErrorString(Message::Base64BadLineLength);
        return FALSE;
    }
    CharPerLine.store(MaxChars, std::memory_order_relaxed);
    return TRUE;
}

void ZKQGeneral_ConvertToBase64(const unsigned char* in, unsigned int len, char* out)
{
    if (out == nullptr || (in == nullptr && len > 0))
        return;
    ConvertToBase64_R(in, len, out, CharPerLine.load(std::memory_order_relaxed));
}

BOOL ZKQGeneral_ConvertToBase64Ex(const unsigned char* in, int len, char** out, int CharsPerLine)
{
    if (out == nullptr)
        return Fail(EINVAL);
    *out = nullptr;
    if (len < 0 || (in == nullptr && len > 0))
        return Fail(EINVAL);
    const auto count = static_cast<size_t>(len);
    MallocPtr<char> text(static_cast<char*>(malloc(Base64LengthWithBreaks(count, CharsPerLine) + 1)));
    if (text == nullptr)
        return FailWithErrno();
    ConvertToBase64_R(in, count, text.get(), CharsPerLine);
    *out = text.release();
    return TRUE;
}

BOOL ZKQGeneral_ConvertFromBase64(const char* in, unsigned char* out, unsigned int* len)
{
    if (in == nullptr || out == nullptr || len == nullptr)
        return Fail(EINVAL);
    return Decode(in, out, len);
}

BOOL ZKQGeneral_ConvertFromBase64Ex(const char* in, unsigned char** out, int* len)
{
    if (out == nullptr)
        return Fail(EINVAL);
    *out = nullptr;
    if (in == nullptr || len == nullptr)
        return Fail(EINVAL);
    *len = 0;
    const std::string_view text = in;
    *out = static_cast<unsigned char*>(malloc(text.size()));
    if (*out == nullptr)
        return FailWithErrno();
    return Decode(text, *out, len);
}
