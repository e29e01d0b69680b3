#include "converter.h"

#include <atomic>

namespace {

struct CharsetPair {
    const char* to;
    const char* from;
};
constexpr CharsetPair kPairs[kTextConversions] = {
    {"UNICODELITTLE", "GBK"}, {"GBK", "UNICODELITTLE"}, {"UTF-8", "GBK"}, {"GBK", "UTF-8"}};

const iconv_t kNotOpened = reinterpret_cast<iconv_t>(-1);
constexpr size_t kNotConverted = static_cast<size_t>(-1);

/// One of each, or null while a thread has it; a second thread meanwhile opens one of its own.
constinit std::atomic<iconv_t> g_Kept[kTextConversions] = {};
constinit std::atomic<bool> g_WasOpened[kTextConversions] = {};

void Close(iconv_t descriptor)
{
    if (descriptor != nullptr)
        iconv_close(descriptor);
}

__attribute__((destructor)) void UnloadConverters()
{
    CloseConverters();
}

} // namespace

Converter::Converter(TextConversion conversion)
    : conversion_(conversion), descriptor_(g_Kept[conversion].exchange(nullptr, std::memory_order_acquire))
{
    if (descriptor_ != nullptr)
        return;
    descriptor_ = iconv_open(kPairs[conversion].to, kPairs[conversion].from);
    if (descriptor_ == kNotOpened) {
        error_ = errno;
        descriptor_ = nullptr;
        return;
    }
    g_WasOpened[conversion].store(true, std::memory_order_relaxed);
}

Converter::~Converter()
{
    iconv_t expected = nullptr;
    if (descriptor_ != nullptr && !g_Kept[conversion_].compare_exchange_strong(
                                      expected, descriptor_, std::memory_order_release, std::memory_order_relaxed))
        Close(descriptor_);
}

int Converter::Run(const unsigned char** in, size_t inLeft, unsigned char** out, size_t outLeft)
{
    // The C library's prototype, older than const, takes what it does not write.
    char* from = const_cast<char*>(reinterpret_cast<const char*>(*in));
    char* to = reinterpret_cast<char*>(*out);
    iconv(descriptor_, nullptr, nullptr, nullptr, nullptr);
    const int error = iconv(descriptor_, &from, &inLeft, &to, &outLeft) == kNotConverted ? errno : 0;
    *in = reinterpret_cast<unsigned char*>(from);
    *out = reinterpret_cast<unsigned char*>(to);
    return error;
}

int RequireConverter(TextConversion conversion)
{
    return g_WasOpened[conversion].load(std::memory_order_relaxed) ? 0 : Converter(conversion).Error();
}

void CloseConverters()
{
    for (std::atomic<iconv_t>& kept : g_Kept)
        Close(kept.exchange(nullptr));
    for (std::atomic<bool>& wasOpened : g_WasOpened)
        wasOpened.store(false);
}
