// What the fuzz targets share.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// Ends the program when a property does not hold, so that the input is kept.
#define REQUIRE(condition)                                                                                             \
    do {                                                                                                               \
        if (!(condition)) {                                                                                            \
            fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);                             \
            abort();                                                                                                   \
        }                                                                                                              \
    } while (0)

/// Splits an input at its NUL bytes into `count` texts; the last takes the rest, up to its first NUL.
inline std::vector<std::string> Texts(const uint8_t* data, size_t size, size_t count)
{
    std::vector<std::string> texts(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] != 0)
            texts.back() += static_cast<char>(data[i]);
        else if (texts.size() < count)
            texts.emplace_back();
        else
            break;
    }
    texts.resize(count);
    return texts;
}

/// A block of exactly the size asked for, so that the sanitizer sees one byte too many.
template <class T>
class Exact {
public:
    explicit Exact(size_t size) : data_(static_cast<T*>(malloc(size == 0 ? 1 : size))) {}
    Exact(const Exact&) = delete;
    Exact& operator=(const Exact&) = delete;
    ~Exact() { free(data_); }
    T* Get() const { return data_; }

private:
    T* data_;
};
