// Rows of the tables that tests of profile texts go through.
#pragma once

namespace support {

/// A text, what is asked of it, and the answer.
struct ReadRow {
    const char* name;
    const char* text;
    const char* section;
    const char* key;
    const char* expected;
};

/// A text before and after a value was written.
struct WriteRow {
    const char* name;
    const char* before;
    const char* section;
    const char* key;
    const char* value;
    const char* after;
};

} // namespace support
