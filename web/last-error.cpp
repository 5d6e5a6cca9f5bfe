#include "web/last-error.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/c-utils.h"
#include "web/transaction.h"

namespace quintral {

namespace {

char *last_error = nullptr;

} // namespace

const char *web_set_error(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    char *text = alloc_vprintf(format, arguments);
    va_end(arguments);
    checked_free(last_error); // not before: the arguments may point into it
    last_error = text;
    return last_error;
}

const char *web_last_error()
{
    return last_error != nullptr ? last_error : "";
}

void web_clear_error()
{
    checked_free(last_error);
    last_error = nullptr;
}

const char *web_errno_text()
{
    const int error = errno;
    static char text[1024];
    std::snprintf(text, sizeof text, "code %d: %s", error, std::strerror(error));
    return text;
}

} // namespace quintral
