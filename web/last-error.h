// The client's last error and the kind of its last failure, for the sources of the web client only.
// web_set_error, web_last_error and web_errno_text are declared in web/transaction.h.
#ifndef QUINTRAL_WEB_LAST_ERROR_H
#define QUINTRAL_WEB_LAST_ERROR_H

#include "web/update-check.h"

namespace quintral {

// Why the last exchange failed, set together with its error. WebReceiveFailed after WebOk means
// that receiving failed in the header. Starts as WebNoFailure.
extern WebUpdateFailure web_last_failure;

// Releases the last error; web_last_error then returns an empty string. Resets web_last_failure.
void web_clear_error();

// Replaces the last error with a string from the checked allocation, of which it takes ownership.
void web_take_error(char *text);

} // namespace quintral

#endif
