// The system's converter as it is, to compare with: one iconv() call over a whole text.
#pragma once

#include <errno.h>
#include <iconv.h>

#include <ostream>
#include <string>
#include <vector>

namespace support {

struct Converted {
    int error = 0; ///< errno of the failure
    std::string bytes;

    bool operator==(const Converted&) const = default;
    friend void PrintTo(const Converted& result, std::ostream* out)
    {
        *out << "error " << result.error << ", " << result.bytes.size() << " bytes";
    }
};

class BareIconv {
public:
    BareIconv(const char* to, const char* from) : descriptor_(iconv_open(to, from)) {}
    BareIconv(const BareIconv&) = delete;
    BareIconv& operator=(const BareIconv&) = delete;
    ~BareIconv()
    {
        if (IsOpen())
            iconv_close(descriptor_);
    }

    bool IsOpen() const { return descriptor_ != reinterpret_cast<iconv_t>(-1); }

    Converted operator()(std::string text) const
    {
        std::vector<char> room(4 * text.size() + 16);
        char* in = text.data();
        char* out = room.data();
        size_t left = text.size();
        size_t space = room.size();
        iconv(descriptor_, nullptr, nullptr, nullptr, nullptr);
        if (iconv(descriptor_, &in, &left, &out, &space) == static_cast<size_t>(-1))
            return {errno, ""};
        return {0, std::string(room.data(), out)};
    }

private:
    iconv_t descriptor_;
};

} // namespace support
