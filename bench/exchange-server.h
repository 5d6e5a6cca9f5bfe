// The server of the exchange benchmark: a child process that listens on a free port of 127.0.0.1
// and answers one request at a time. The path of a request is /HEADER/BODY, the sizes of the reply
// in bytes.
#ifndef QUINTRAL_BENCH_EXCHANGE_SERVER_H
#define QUINTRAL_BENCH_EXCHANGE_SERVER_H

#include <cstddef>
#include <cstdint>

#include <sys/types.h>

namespace quintral {

// The form that each request carries. The server takes it as the end of the request.
constexpr char exchange_form[] = "product=Quintral%20Shapes&version=5%2e100";

struct ExchangeServer {
    pid_t process;
    std::uint16_t port;
};

// Starts the server. Ends the program with a message if that fails.
ExchangeServer start_exchange_server();

void stop_exchange_server(const ExchangeServer &server);

} // namespace quintral

#endif
