// Waiting for a reply and receiving it, for web/transaction.cpp only. The idle hook, the cancel
// flag and the reply limits that apply here are declared in web/transaction.h.
#ifndef QUINTRAL_WEB_RECEIVING_H
#define QUINTRAL_WEB_RECEIVING_H

namespace quintral {

// Receives a reply from a connected socket: the header up to its empty line, then the body up to
// the server's close. Results and outputs are those of web_exchange.
int web_receive_reply(int descriptor, char **header_out, char **body_out);

// Turns the limits of an update check on or off: 256 KiB of header and 8 MiB of body. They do not
// apply once the program has called web_set_reply_limits.
void web_apply_default_limits(bool apply);

} // namespace quintral

#endif
