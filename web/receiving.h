// Waiting for a reply and receiving it, for web/transaction.cpp only. The idle hook, the cancel
// flag and the reply limits that apply here are declared in web/transaction.h.
#ifndef QUINTRAL_WEB_RECEIVING_H
#define QUINTRAL_WEB_RECEIVING_H

namespace quintral {

// Receives a reply from a connected socket: the header up to its empty line, then the body up to
// the server's close. Results and outputs are those of web_exchange.
int web_receive_reply(int descriptor, char **header_out, char **body_out);

} // namespace quintral

#endif
