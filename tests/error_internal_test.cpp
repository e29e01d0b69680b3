// The setters of the error text.
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <string>

#include "../src/internal/error.h"
#include "support/error_text.h"

namespace {

TEST(ErrorSetters, TheTextIsTheArrayItself)
{
    EXPECT_EQ(ZKQGeneral_GetGeneralErrorInfo(), g_General_ErrorInfo);
    EXPECT_EQ(sizeof g_General_ErrorInfo, 256U);
}

TEST(ErrorSetters, MessagesAreStoredAsGiven)
{
    for (const char* message : {"", "a", "Cann't create a unique tmpfile!", "%s%n", "\xD6\xD0"}) {
        GeneralMisc_SetErrorString(message);
        EXPECT_EQ(support::ErrorText(), message);
    }
}

TEST(ErrorSetters, LongMessagesAreCut)
{
    for (size_t length : {254U, 255U, 256U, 257U, 100000U}) {
        SCOPED_TRACE(length);
        GeneralMisc_SetErrorString(std::string(length, 'x').c_str());
        EXPECT_EQ(support::ErrorText(), std::string(std::min(length, size_t{255}), 'x'));
    }
}

TEST(ErrorSetters, ChosenNumbers)
{
    for (int number : {0, EINVAL, ENOMEM, EBADMSG, ETIME, EMSGSIZE, ENOBUFS, ENOMEDIUM, ENOSYS, ERANGE, ENOENT, EEXIST,
                       EISDIR, ECONNRESET, 99999, INT_MAX}) {
        SCOPED_TRACE(number);
        GeneralMisc_SetSystemError(number);
        EXPECT_SYSTEM_ERROR(number);
    }
    for (int number : {-1, -22, INT_MIN}) {
        GeneralMisc_SetSystemError(number);
        EXPECT_EQ(support::ErrorText(), "Error is unhandled.") << number;
    }
}

TEST(ErrorSetters, TheLastErrno)
{
    for (int number : {0, EINVAL, ENOENT, 99999}) {
        errno = number;
        GetSystemLastErrorText();
        EXPECT_SYSTEM_ERROR(number);
    }
    errno = -1;
    GetSystemLastErrorText();
    EXPECT_EQ(support::ErrorText(), "Error is unhandled.");
}

} // namespace
