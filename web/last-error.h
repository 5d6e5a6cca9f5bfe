// Clearing the client's last error, for web/transaction.cpp only. web_set_error, web_last_error and
// web_errno_text are declared in web/transaction.h.
#ifndef QUINTRAL_WEB_LAST_ERROR_H
#define QUINTRAL_WEB_LAST_ERROR_H

namespace quintral {

// Releases the last error; web_last_error then returns an empty string.
void web_clear_error();

} // namespace quintral

#endif
