// The system's converters, kept open between uses: opening one costs more than converting a short text.
#pragma once

#include <errno.h>
#include <iconv.h>
#include <stddef.h>

#include "charset.h"

/// A converter for the use of one thread. None can be had when the system has none; Error() then says why.
class Converter {
public:
    explicit Converter(TextConversion conversion);
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter();

    int Error() const { return error_; }

    /// Converts in one call, from its initial state, and moves both ends over what it has done; 0 or an errno value.
    int Run(const unsigned char** in, size_t inLeft, unsigned char** out, size_t outLeft);

private:
    TextConversion conversion_;
    iconv_t descriptor_;
    int error_ = 0;
};

/// 0 if there is such a converter, or why it cannot be opened. A system that once had it still has it.
int RequireConverter(TextConversion conversion);

/// Closes what is kept, as happens when the library is unloaded, and forgets that it was ever opened.
void CloseConverters();
