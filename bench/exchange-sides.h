// The sides of the exchange benchmark: one exchange with its server by the web client, by libcurl,
// and by a loop of the client's own system calls with nothing around them.
#ifndef QUINTRAL_BENCH_EXCHANGE_SIDES_H
#define QUINTRAL_BENCH_EXCHANGE_SIDES_H

#include <cstddef>
#include <cstdint>
#include <string>

namespace quintral {

// What a side received. libcurl stores into the string, the others into blocks of malloc.
struct ExchangeReply {
    char *header;
    char *body;
    std::string text;
};

// One side. run makes one exchange and returns false if it fails; it leaves the reply in *reply,
// which is empty before. A reply's body has body_size bytes.
struct ExchangeSide {
    const char *name;
    bool (*run)(std::uint16_t port, std::size_t header_size, std::size_t body_size,
                ExchangeReply *reply);
};

constexpr std::size_t exchange_side_count = 3;
extern const ExchangeSide exchange_sides[exchange_side_count];

// Returns the bytes of the body that was received.
std::size_t received_body_size(const ExchangeReply &reply);

void release_exchange_reply(ExchangeReply *reply);

} // namespace quintral

#endif
