#include "web/last-error.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "support/c-utils.h"
#include "web/transaction.h"

namespace quintral {

WebUpdateFailure web_last_failure = WebNoFailure;

namespace {

char *last_error = nullptr;

} // namespace

const char *web_set_error(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    char *text = alloc_vprintf(format, arguments);
    va_end(arguments);
    web_take_error(text); // not before: the arguments may point into the old one
    return last_error;
}

void web_take_error(char *text)
{
    checked_free(last_error);
    last_error = text;
}

const char *web_last_error()
{
    return last_error != nullptr ? last_error : "";
}

void web_clear_error()
{
    web_take_error(nullptr);
    web_last_failure = WebNoFailure;
}

const char *web_errno_text()
{
    const int error = errno;
    static char text[1024];
    std::snprintf(text, sizeof text, "code %d: %s", error, std::strerror(error));
    return text;
}

} // namespace quintral
