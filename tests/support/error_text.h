// What the library's error text must be after a failure.
#pragma once

#include <ZKQ_general/error.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>

namespace support {

inline std::string ErrorText()
{
    return ZKQGeneral_GetGeneralErrorInfo();
}

/// Puts a text into the error text that no failure leaves, so that a test sees whether a call has set it.
inline void MarkErrorText()
{
    strcpy(ZKQGeneral_GetGeneralErrorInfo(), "(mark)");
}

inline bool ErrorTextIsMarked()
{
    return ErrorText() == "(mark)";
}

} // namespace support

/// The error text is the system's text for an errno value.
#define EXPECT_SYSTEM_ERROR(number) EXPECT_EQ(support::ErrorText(), strerror(number))
