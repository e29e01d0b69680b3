#include "failure.h"

#include <ZKQ_general/error.h>
#include <string.h>

#include "charset.h"

Failure LibraryFailure(const std::string& what)
{
    return {what, ToTerminal(ZKQGeneral_GetGeneralErrorInfo())};
}

Failure SystemFailure(const std::string& what, int number)
{
    return {what, strerror(number)};
}

ErrorMark::ErrorMark() : before_(ZKQGeneral_GetGeneralErrorInfo()) {}

bool ErrorMark::Changed() const
{
    return before_ != ZKQGeneral_GetGeneralErrorInfo();
}
