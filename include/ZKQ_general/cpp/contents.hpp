/**
 * @file contents.hpp
 * @brief Free functions: Base64, MD5, charsets, compression, files, profiles, splitting.
 *
 * Those with a parameter `Out` hand their result out as a `std::string`, or, where it is large, without a copy:
 * `ReadFile<zkq::Buffer>(path)`. A `std::vector<unsigned char>` will do as well.
 */
#ifndef ZKQ_GENERAL_CPP_CONTENTS_HPP
#define ZKQ_GENERAL_CPP_CONTENTS_HPP

#include <ZKQ_general/base64.h>
#include <ZKQ_general/cpp/basics.hpp>
#include <ZKQ_general/file.h>
#include <ZKQ_general/iconv.h>
#include <ZKQ_general/inifile.h>
#include <ZKQ_general/md5.h>
#include <ZKQ_general/string.h>
#include <ZKQ_general/zlib.h>
#include <errno.h>

#include <array>
#include <vector>

namespace zkq {

/**
 * @brief Encodes bytes; see ZKQGeneral_ConvertToBase64Ex().
 * @param bytes         The bytes.
 * @param charsPerLine  Characters after which a line breaks; 0 for no line breaks.
 * @return The text.
 */
template <class Out = std::string>
Result<Out> Base64Encode(Bytes bytes, int charsPerLine = 0)
{
    char* text = nullptr;
    if (!ZKQGeneral_ConvertToBase64Ex(bytes.data(), detail::Length(bytes.size()), &text, charsPerLine))
        return LastError();
    const std::size_t length = charsPerLine == 0 ? (bytes.size() + 2) / 3 * 4 : std::strlen(text);
    return detail::Give<Out>(Buffer(text, length));
}

/**
 * @brief Decodes a text; see ZKQGeneral_ConvertFromBase64Ex().
 * @param text  The text; line breaks and blanks between its groups are passed over.
 * @return The bytes; none after a failure.
 */
template <class Out = std::string>
Result<Out> Base64Decode(const Text& text)
{
    unsigned char* bytes = nullptr;
    int length = 0;
    const bool good = ZKQGeneral_ConvertFromBase64Ex(text.c_str(), &bytes, &length) != FALSE;
    Buffer buffer(bytes, good ? static_cast<std::size_t>(length) : 0); // handed out also after a failure
    if (!good)
        return LastError();
    return detail::Give<Out>(std::move(buffer));
}

/** An MD5 digest. */
using Digest = std::array<unsigned char, 16>;

/**
 * @brief Digests bytes; see ZKQGeneral_DigestBuffer().
 * @param bytes  The bytes.
 * @return The digest, or `EMSGSIZE` for more bytes than that function can be told of.
 */
inline Result<Digest> Md5(Bytes bytes)
{
    if (bytes.size() > UINT_MAX)
        return detail::SystemError(EMSGSIZE);
    Digest digest;
    ZKQGeneral_DigestBuffer(bytes.data(), static_cast<unsigned>(bytes.size()), digest.data());
    return digest;
}

/** @brief Digests a file; see ZKQGeneral_DigestFile(). @param file  The file. @return The digest. */
inline Result<Digest> Md5File(const Text& file)
{
    Digest digest;
    if (!ZKQGeneral_DigestFile(file.c_str(), digest.data()))
        return LastError();
    return digest;
}

/** @brief Writes bytes as hexadecimal digits. @param bytes  The bytes. @return Two lower-case digits for each. */
inline std::string Hex(Bytes bytes)
{
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

namespace detail {

/** @brief A function that converts a text. @tparam In  Units of the input. @tparam Out  Units of the output. */
template <class In, class Out>
using Converter = BOOL (*)(const In*, Out*, int, int*);

/**
 * @brief Converts a text between charsets.
 * @tparam String   What holds the result.
 * @tparam In       Units of the input, as the function has them.
 * @tparam Out      Units of the output.
 * @param convert   The function.
 * @param bytes     The text.
 * @param growth    Bytes that come out for one at most.
 * @return The result.
 */
template <class String, class In, class Out>
Result<String> Convert(Converter<In, Out> convert, Bytes bytes, int growth)
{
    if (bytes.size() > static_cast<std::size_t>(INT_MAX / growth))
        return SystemError(EMSGSIZE);
    int length = static_cast<int>(bytes.size()) * growth;
    String text(static_cast<std::size_t>(length) / sizeof(Out), 0);
    const void* const in = bytes.data();
    void* const out = text.data();
    if (!convert(static_cast<const In*>(in), static_cast<Out*>(out), static_cast<int>(bytes.size()), &length))
        return LastError();
    text.resize(static_cast<std::size_t>(length) / sizeof(Out));
    return text;
}

} // namespace detail

/** @brief Converts GBK to UTF-8; see ZKQGeneral_AnsiToUTF8(). @param text  The text. @return The result. */
inline Result<std::string> GbkToUtf8(std::string_view text)
{
    return detail::Convert<std::string>(&ZKQGeneral_AnsiToUTF8, text, 3);
}

/** @brief Converts UTF-8 to GBK; see ZKQGeneral_UTF8ToAnsi(). @param text  The text. @return The result. */
inline Result<std::string> Utf8ToGbk(std::string_view text)
{
    return detail::Convert<std::string>(&ZKQGeneral_UTF8ToAnsi, text, 1);
}

/** @brief Converts GBK to UCS-2; see ZKQGeneral_AnsiToUnicode(). @param text  The text. @return The result. */
inline Result<std::u16string> GbkToUcs2(std::string_view text)
{
    return detail::Convert<std::u16string>(&ZKQGeneral_AnsiToUnicode, text, 2);
}

/** @brief Converts UCS-2 to GBK; see ZKQGeneral_UnicodeToAnsi(). @param text  The text. @return The result. */
inline Result<std::string> Ucs2ToGbk(std::u16string_view text)
{
    return detail::Convert<std::string>(&ZKQGeneral_UnicodeToAnsi, Bytes(text.data(), text.size() * 2), 1);
}

/** @brief Compresses bytes; see ZKQGeneral_Zlib_CompressBufferEx(). @param bytes  The bytes. @return The stream. */
template <class Out = std::string>
Result<Out> Compress(Bytes bytes)
{
    unsigned char* stream = nullptr;
    long length = 0;
    const int code = ZKQGeneral_Zlib_CompressBufferEx(bytes.data(), static_cast<long>(bytes.size()), &stream, &length);
    if (code != 0)
        return Error{code, LastError().text};
    return detail::Give<Out>(Buffer(stream, static_cast<std::size_t>(length)));
}

/**
 * @brief Decompresses a stream whose plain length is known; see ZKQGeneral_Zlib_UnCompressBuffer().
 * @param stream       The stream.
 * @param plainLength  The exact plain length. A stranger's word for it is refused with `EMSGSIZE` if no stream of this
 *                     length can yield so many bytes, before memory is taken for them.
 * @return The plain bytes.
 */
inline Result<std::string> Decompress(Bytes stream, std::size_t plainLength)
{
    constexpr std::size_t mostFromOneByte = 1032;
    if (plainLength / mostFromOneByte > stream.size())
        return detail::SystemError(EMSGSIZE);
    std::string plain(plainLength, '\0');
    unsigned char* const out = reinterpret_cast<unsigned char*>(plain.data());
    if (!ZKQGeneral_Zlib_UnCompressBuffer(stream.data(), static_cast<long>(stream.size()), out,
                                          static_cast<long>(plainLength)))
        return LastError();
    return plain;
}

/**
 * @brief Decompresses a stream, however much it yields; see ZKQGeneral_Zlib_UnCompressBufferEx().
 * @param stream  The stream, not of a stranger's: a few bytes can yield a thousand times their number.
 * @return The plain bytes.
 */
template <class Out = std::string>
Result<Out> DecompressAll(Bytes stream)
{
    unsigned char* plain = nullptr;
    long length = 0;
    const int code =
        ZKQGeneral_Zlib_UnCompressBufferEx(stream.data(), static_cast<long>(stream.size()), &plain, &length);
    if (code != 0)
        return Error{code, LastError().text};
    return detail::Give<Out>(Buffer(plain, static_cast<std::size_t>(length)));
}

/** @brief Reads a whole file; see ZKQGeneral_GetFileContent(). @param file  The file. @return Its content. */
template <class Out = std::string>
Result<Out> ReadFile(const Text& file)
{
    unsigned char* content = nullptr;
    int size = 0;
    if (!ZKQGeneral_GetFileContent(file.c_str(), &content, &size))
        return LastError();
    return detail::Give<Out>(Buffer(content, static_cast<std::size_t>(size)));
}

/**
 * @brief Creates or overwrites a file; see ZKQGeneral_SetFileContent().
 * @param file   The file.
 * @param bytes  Its content. None make an empty file, which is a success here.
 * @return Success, or the reason.
 */
inline Result<> WriteFile(const Text& file, Bytes bytes)
{
    DWORD length = 0;
    if (ZKQGeneral_SetFileContent(file.c_str(), bytes.data(), detail::Length(bytes.size())))
        return {};
    Error error = LastError();
    if (bytes.empty() && ZKQGeneral_GetFileLength(file.c_str(), &length) && length == 0)
        return {};
    return error;
}

/**
 * @brief Reads a value of a profile file; see ZKQGeneral_GetPrivateProfileString().
 * @param file      The file.
 * @param section   The section.
 * @param key       The key.
 * @param fallback  Given when there is no such key, or no such file.
 * @return The value, whole.
 */
inline std::string ProfileGet(const Text& file, const Text& section, const Text& key, const Text& fallback = "")
{
    char room[4096]; // no value is longer; a fallback may be
    const std::size_t length = ZKQGeneral_GetPrivateProfileString(section.c_str(), key.c_str(), fallback.c_str(), room,
                                                                  sizeof room, file.c_str());
    return length < sizeof room - 1 ? std::string(room, length) : std::string(fallback.c_str());
}

/**
 * @brief Reads a number of a profile file; see ZKQGeneral_GetPrivateProfileInt().
 * @param file      The file.
 * @param section   The section.
 * @param key       The key.
 * @param fallback  Given when there is no value.
 * @return The number.
 */
inline int ProfileInt(const Text& file, const Text& section, const Text& key, int fallback = 0)
{
    return static_cast<int>(ZKQGeneral_GetPrivateProfileInt(section.c_str(), key.c_str(), fallback, file.c_str()));
}

/**
 * @brief Sets a value of a profile file; see ZKQGeneral_WritePrivateProfileString().
 * @param file     The file, made if it does not exist.
 * @param section  The section.
 * @param key      The key.
 * @param value    The value; null deletes the key.
 * @return Success, or the reason.
 */
inline Result<> ProfileSet(const Text& file, const Text& section, const Text& key, const Text& value)
{
    return detail::Done(
        ZKQGeneral_WritePrivateProfileString(section.c_str(), key.c_str(), value.c_str(), file.c_str()));
}

namespace detail {

/**
 * @brief Takes a list of names from a function that cuts it to the room it is given.
 * @param list  Called with the room and its size; returns the bytes used.
 * @return The names.
 */
template <class List>
std::vector<std::string> Names(List list)
{
    std::string room(4096, '\0');
    DWORD used = list(room.data(), room.size());
    while (used + 2 >= room.size()) { // perhaps cut
        room.resize(room.size() * 4);
        used = list(room.data(), room.size());
    }
    std::vector<std::string> names;
    for (std::size_t at = 0; at < used; at += names.back().size() + 1)
        names.emplace_back(room.data() + at, strnlen(room.data() + at, used - at));
    return names;
}

} // namespace detail

/**
 * @brief Lists the sections of a profile file; see ZKQGeneral_GetPrivateProfileSectionNames().
 * @param file  The file.
 * @return Their names; none of a file that cannot be read.
 */
inline std::vector<std::string> ProfileSections(const Text& file)
{
    return detail::Names(
        [&file](char* room, DWORD size) { return ZKQGeneral_GetPrivateProfileSectionNames(room, size, file.c_str()); });
}

/**
 * @brief Lists the keys of a section of a profile file; see ZKQGeneral_GetPrivateProfileItemNames().
 * @param file     The file.
 * @param section  The section.
 * @return Their names; none of a file that cannot be read.
 */
inline std::vector<std::string> ProfileKeys(const Text& file, const Text& section)
{
    return detail::Names([&file, &section](char* room, DWORD size) {
        return ZKQGeneral_GetPrivateProfileItemNames(section.c_str(), room, size, file.c_str());
    });
}

/**
 * @brief Splits a text; see ZKQGeneral_ParseLineInfo().
 * @param text        The text.
 * @param separators  The separators, each byte one of them.
 * @return The tokens.
 */
inline Result<std::vector<std::string>> Split(const Text& text, const Text& separators)
{
    int count = 0;
    char** const tokens = ZKQGeneral_ParseLineInfo(text.c_str(), separators.c_str(), &count);
    if (tokens == nullptr)
        return LastError();
    std::vector<std::string> result;
    bool whole = true;
    for (int i = 0; i < count; ++i) {
        whole = whole && tokens[i] != nullptr;
        result.emplace_back(tokens[i] == nullptr ? "" : tokens[i]);
    }
    ZKQGeneral_FreeParseLineInfoBuffer(tokens, count);
    if (!whole)
        return detail::SystemError(ENOMEM);
    return result;
}

} // namespace zkq

#endif
