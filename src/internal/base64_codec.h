// The inner loops of Base64, one set for each kind of processor. All give the same bytes.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <string_view>

inline constexpr std::string_view kBase64Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// What the decoder makes of a character: 0 to 63, or one of these.
inline constexpr uint8_t kBase64Pad = 127;
inline constexpr uint8_t kBase64Break = 128; ///< CR, LF or blank
inline constexpr uint8_t kBase64Bad = 255;

constexpr std::array<uint8_t, 256> MakeBase64Values()
{
    std::array<uint8_t, 256> values;
    values.fill(kBase64Bad);
    for (size_t i = 0; i < kBase64Alphabet.size(); ++i)
        values[static_cast<uint8_t>(kBase64Alphabet[i])] = static_cast<uint8_t>(i);
    values['='] = kBase64Pad;
    for (const char c : {'\r', '\n', ' '})
        values[static_cast<uint8_t>(c)] = kBase64Break;
    return values;
}

inline constexpr std::array<uint8_t, 256> kBase64Values = MakeBase64Values();

constexpr uint8_t Base64Value(char c)
{
    return kBase64Values[static_cast<uint8_t>(c)];
}

constexpr bool IsBase64Break(char c)
{
    return Base64Value(c) == kBase64Break;
}

/// How far a decoder has come.
struct Base64Position {
    const char* text;
    unsigned char* out;
};

/// Whole groups only: 3 bytes, 4 characters. Nothing is read or written beyond what is named.
struct Base64Codec {
    const char* name;
    bool (*IsSupported)();
    /// Encodes `lines` times `groups` groups, each line followed by CR LF.
    void (*EncodeLines)(const unsigned char* in, size_t lines, size_t groups, char* out);
    /// Encodes groups without a line break.
    void (*EncodeGroups)(const unsigned char* in, size_t groups, char* out);
    /// Decodes groups of the alphabet and passes over breaks between them. It may stop anywhere between two groups, and
    /// does at the end of the text and before a group with anything else in it.
    Base64Position (*DecodeGroups)(Base64Position at, const char* end);
};

extern const Base64Codec kBase64Plain; ///< supported everywhere
#if defined(__x86_64__)
extern const Base64Codec kBase64Avx2;
extern const Base64Codec kBase64Avx512;
#endif

/// From the plainest to the best.
inline constexpr const Base64Codec* kBase64Codecs[] = {
    &kBase64Plain,
#if defined(__x86_64__)
    &kBase64Avx2,
    &kBase64Avx512,
#endif
};

/// What the codecs share: the plain loops, for what is too short for a register.
void EncodeBase64Plain(const unsigned char* in, size_t groups, char* out);
Base64Position DecodeBase64Plain(Base64Position at, const char* end);

/// Passes over breaks; false if there are none.
inline bool PassBase64Breaks(Base64Position* at, const char* end)
{
    const char* const before = at->text;
    while (at->text != end && IsBase64Break(*at->text))
        ++at->text;
    return at->text != before;
}

/// The best that this processor supports.
const Base64Codec& ChooseBase64Codec();

/// The functions of internal/base64.h with a given codec.
char* EncodeBase64With(const Base64Codec& codec, const unsigned char* in, size_t len, char* out, int MaxCharPerLine);
int DecodeBase64With(const Base64Codec& codec, std::string_view text, unsigned char* out, size_t* len);
/// A text that ends with a NUL.
int DecodeBase64With(const Base64Codec& codec, const char* text, unsigned char* out, size_t* len);
