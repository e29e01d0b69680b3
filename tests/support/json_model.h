// A second, slow and obvious reading of the JSON rules. It knows nothing of the library and shares no code with it.
#pragma once

#include <limits.h>
#include <math.h>
#include <stdio.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

namespace support::json {

enum class Kind { kFalse, kTrue, kNull, kNumber, kString, kArray, kObject };

struct Value {
    Kind kind = Kind::kFalse;
    double number = 0;
    std::optional<std::string> text = {};
    std::optional<std::string> name = {};
    std::vector<Value> below = {};

    int Integer() const
    {
        if (kind == Kind::kTrue)
            return 1;
        return number > -2147483649.0 && number < 2147483648.0 ? static_cast<int>(number) : INT_MIN;
    }
};

/// Reads the first value of a text. Bytes behind the end read as NUL.
class Reader {
public:
    explicit Reader(const std::string& text) : text_(text.substr(0, text.find('\0'))) {}

    std::optional<Value> Read()
    {
        Skip();
        return ReadValue();
    }

private:
    char At(size_t place) const { return place < text_.size() ? text_[place] : '\0'; }
    char Here() const { return At(place_); }
    bool DigitHere() const { return Here() >= '0' && Here() <= '9'; }
    void Skip()
    {
        while (Here() >= 1 && Here() <= 32)
            ++place_;
    }
    bool Take(const std::string& word)
    {
        const bool is_there = text_.compare(place_, word.size(), word) == 0;
        place_ += is_there ? word.size() : 0;
        return is_there;
    }

    std::optional<Value> ReadValue()
    {
        Value value;
        if (Take("null")) {
            value.kind = Kind::kNull;
        } else if (Take("false")) {
            value.kind = Kind::kFalse;
        } else if (Take("true")) {
            value.kind = Kind::kTrue;
        } else if (Here() == '"') {
            value.kind = Kind::kString;
            value.text = ReadString();
        } else if (Here() == '-' || DigitHere()) {
            value.kind = Kind::kNumber;
            value.number = ReadNumber();
        } else if (Here() == '[') {
            return ReadContainer(Kind::kArray, ']');
        } else if (Here() == '{') {
            return ReadContainer(Kind::kObject, '}');
        } else {
            return std::nullopt;
        }
        return value;
    }

    double ReadNumber()
    {
        double sign = 1;
        if (Take("-"))
            sign = -1;
        double mantissa = 0;
        double scale = 0;
        Take("0");
        if (Here() >= '1' && Here() <= '9')
            for (; DigitHere(); ++place_)
                mantissa = mantissa * 10.0 + (Here() - '0');
        if (Here() == '.' && At(place_ + 1) >= '0' && At(place_ + 1) <= '9')
            for (++place_; DigitHere(); ++place_, --scale)
                mantissa = mantissa * 10.0 + (Here() - '0');
        double exponent = 0;
        if (Take("e") || Take("E")) {
            const bool is_negative = Here() == '-';
            if (Here() == '-' || Here() == '+')
                ++place_;
            for (; DigitHere(); ++place_)
                exponent = std::min(exponent * 10 + (Here() - '0'), 1e9);
            exponent = is_negative ? -exponent : exponent;
        }
        volatile double power = exponent + scale; // asks the C library, not the compiler
        return sign * mantissa * pow(10.0, power);
    }

    unsigned Hex4(size_t place) const
    {
        unsigned value = 0;
        for (size_t i = 0; i < 4; ++i) {
            const char c = At(place + i);
            const std::string digits = "0123456789abcdef";
            const char lower = c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c;
            if (digits.find(lower) == std::string::npos)
                return 0;
            value = value * 16 + static_cast<unsigned>(digits.find(lower));
        }
        return value;
    }

    static std::string Utf8(unsigned code)
    {
        std::string bytes;
        const auto add = [&](unsigned byte) { bytes += static_cast<char>(byte); };
        if (code < 0x80) {
            add(code);
        } else if (code < 0x800) {
            add(0xC0 | code >> 6);
            add(0x80 | (code & 63));
        } else if (code < 0x10000) {
            add(0xE0 | code >> 12);
            add(0x80 | (code >> 6 & 63));
            add(0x80 | (code & 63));
        } else {
            add(0xF0 | code >> 18);
            add(0x80 | (code >> 12 & 63));
            add(0x80 | (code >> 6 & 63));
            add(0x80 | (code & 63));
        }
        return bytes;
    }

    /// At "\u". What is cut short by the end of the text ends the string there.
    std::string ReadCharacter()
    {
        if (place_ + 6 > text_.size()) {
            place_ = text_.size();
            return "";
        }
        const unsigned code = Hex4(place_ + 2);
        place_ += 6;
        if (code == 0 || (code >= 0xDC00 && code <= 0xDFFF))
            return "";
        if (code < 0xD800 || code > 0xDBFF)
            return Utf8(code);
        if (At(place_) != '\\' || At(place_ + 1) != 'u')
            return "";
        if (place_ + 6 > text_.size()) {
            place_ = text_.size();
            return "";
        }
        const unsigned low = Hex4(place_ + 2);
        place_ += 6;
        if (low < 0xDC00 || low > 0xDFFF)
            return "";
        return Utf8(0x10000 + ((code & 0x3FF) << 10 | (low & 0x3FF)));
    }

    std::string ReadString()
    {
        std::string text;
        for (++place_; Here() != '"' && Here() != '\0';) {
            if (Here() != '\\') {
                text += text_[place_++];
            } else if (At(place_ + 1) == '\0') {
                place_ = text_.size();
            } else if (At(place_ + 1) == 'u') {
                text += ReadCharacter();
            } else {
                const std::string letters = "bfnrt";
                const size_t which = letters.find(At(place_ + 1));
                text += which == std::string::npos ? At(place_ + 1) : "\b\f\n\r\t"[which];
                place_ += 2;
            }
        }
        Take("\"");
        return text;
    }

    std::optional<Value> ReadContainer(Kind kind, char end)
    {
        Value container;
        container.kind = kind;
        ++place_;
        Skip();
        if (Take(std::string(1, end)))
            return container;
        for (;;) {
            Skip();
            std::optional<std::string> name;
            if (kind == Kind::kObject) {
                if (Here() != '"')
                    return std::nullopt;
                name = ReadString();
                Skip();
                if (!Take(":"))
                    return std::nullopt;
                Skip();
            }
            std::optional<Value> value = ReadValue();
            if (!value)
                return std::nullopt;
            value->name = name;
            container.below.push_back(std::move(*value));
            Skip();
            if (Take(std::string(1, end)))
                return container;
            if (!Take(","))
                return std::nullopt;
        }
    }

    std::string text_;
    size_t place_ = 0;
};

inline std::optional<Value> Read(const std::string& text)
{
    return Reader(text).Read();
}

/// printf of a double, in the locale of the caller, which the tests leave at "C".
inline std::string Formatted(const char* format, double value)
{
    char text[512];
    snprintf(text, sizeof text, format, value); // NOLINT: the formats are those of the rules
    return text;
}

inline std::string WriteNumber(int integer, double value)
{
    const double epsilon = 2.220446049250313e-16;
    if (fabs(integer - value) <= epsilon && value >= -2147483648.0 && value <= 2147483647.0)
        return std::to_string(integer);
    if (fabs(floor(value) - value) <= epsilon && fabs(value) < 1e60)
        return Formatted("%.0f", value);
    if (fabs(value) < 1e-6 || fabs(value) > 1e9)
        return Formatted("%e", value);
    return Formatted("%f", value);
}

inline std::string WriteString(const std::optional<std::string>& text)
{
    if (!text)
        return "";
    std::string written = "\"";
    for (const char c : *text) {
        const std::string special = "\"\\\b\f\n\r\t";
        const size_t which = special.find(c);
        char code[8] = {};
        if (which != std::string::npos)
            written += std::string("\\") + "\"\\bfnrt"[which];
        else if (static_cast<unsigned char>(c) < 32)
            written += (snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(c)), code);
        else
            written += c;
    }
    return written + "\"";
}

inline std::string Write(const Value& value, size_t depth = 0)
{
    switch (value.kind) {
    case Kind::kFalse:
        return "false";
    case Kind::kTrue:
        return "true";
    case Kind::kNull:
        return "null";
    case Kind::kNumber:
        return WriteNumber(value.Integer(), value.number);
    case Kind::kString:
        return WriteString(value.text);
    default:
        break;
    }
    const bool is_object = value.kind == Kind::kObject;
    if (value.below.empty())
        return is_object ? "{}" : "[]";
    std::string text = is_object ? "{\n" : "[";
    for (size_t i = 0; i < value.below.size(); ++i) {
        const Value& below = value.below[i];
        const bool is_last = i + 1 == value.below.size();
        if (is_object)
            text += std::string(depth + 1, '\t') + WriteString(below.name) + ":";
        text += Write(below, depth + 1);
        text += is_last ? "" : ",";
        text += is_object ? "\n" : is_last ? "" : " ";
    }
    return text + (is_object ? std::string(depth, '\t') + "}" : "]");
}

} // namespace support::json
