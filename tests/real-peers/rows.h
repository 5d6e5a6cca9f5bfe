// What the web client gets from each server, directly and through each proxy. real-peers-test
// compares these rows with the real programs, servers-and-proxies-test with the tables in
// docs/servers-and-proxies.md.
#ifndef QUINTRAL_TESTS_REAL_PEERS_ROWS_H
#define QUINTRAL_TESTS_REAL_PEERS_ROWS_H

namespace quintral::tests {

// The programs, and their versions in Debian 12 and 13, with which the rows have been tested.
struct PeerRow {
    const char *name;
    const char *versions;
    const char *advice; // what to do if it does not work, in Markdown
};

const PeerRow server_rows[] = {
    {"nginx", "1.22.1, 1.26.3", "Nothing."},
    {"apache2", "2.4.71, 2.4.68",
     "Nothing. A page sees the credentials only with `CGIPassAuth On`."},
    {"lighttpd", "1.4.69, 1.4.79",
     "Run it on port 80 and name the service without a port, or put a server or proxy before it."},
    {"php -S", "8.2.36, 8.4.24", "Put a server or proxy before it."},
};

const PeerRow proxy_rows[] = {
    {"squid", "5.7, 6.13",
     "Before the rule that asks for the password, allow the service: `http_access allow service`."},
    {"tinyproxy", "1.11.1, 1.11.2", "Allow clients by address (`Allow`), without `BasicAuth`."},
    {"privoxy", "3.0.34, 4.0.0", "Nothing: it has no passwords."},
    {"mod_proxy", "2.4.71, 2.4.68",
     "After the section that asks for the password, grant the service: `<Proxy "
     "\"http://HOST*\">`, `Require all granted`."},
};

enum class Outcome {
    Answered,
    Refused,   // always 400
    Unreliable // answered, or closed without an answer
};

struct PairRow {
    const char *server;
    const char *proxy; // "": none
    Outcome outcome;
    const char *seen; // what the update page sees of the request, SERVICE being host:port
};

const PairRow pair_rows[] = {
    {"nginx", "", Outcome::Answered, "POST /version-update.php HTTP/1.0, via none"},
    {"apache2", "", Outcome::Answered, "POST http://SERVICE/version-update.php HTTP/1.0, via none"},
    {"lighttpd", "", Outcome::Refused, ""},
    {"php -S", "", Outcome::Unreliable,
     "POST http://SERVICE/version-update.php HTTP/1.0, via none"},
    {"nginx", "squid", Outcome::Answered,
     "POST /version-update.php HTTP/1.1, via 1.0 quintral-test"},
    {"apache2", "squid", Outcome::Answered,
     "POST /version-update.php HTTP/1.1, via 1.0 quintral-test"},
    {"lighttpd", "squid", Outcome::Answered,
     "POST /version-update.php HTTP/1.1, via 1.0 quintral-test"},
    {"php -S", "squid", Outcome::Answered,
     "POST /version-update.php HTTP/1.1, via 1.0 quintral-test"},
    {"nginx", "tinyproxy", Outcome::Answered,
     "POST /version-update.php HTTP/1.0, via 1.0 quintral-test"},
    {"apache2", "tinyproxy", Outcome::Answered,
     "POST /version-update.php HTTP/1.0, via 1.0 quintral-test"},
    {"lighttpd", "tinyproxy", Outcome::Answered,
     "POST /version-update.php HTTP/1.0, via 1.0 quintral-test"},
    {"php -S", "tinyproxy", Outcome::Answered,
     "POST /version-update.php HTTP/1.0, via 1.0 quintral-test"},
    {"nginx", "privoxy", Outcome::Answered, "POST /version-update.php HTTP/1.0, via none"},
    {"apache2", "privoxy", Outcome::Answered, "POST /version-update.php HTTP/1.0, via none"},
    {"lighttpd", "privoxy", Outcome::Answered, "POST /version-update.php HTTP/1.0, via none"},
    {"php -S", "privoxy", Outcome::Answered, "POST /version-update.php HTTP/1.0, via none"},
    {"nginx", "mod_proxy", Outcome::Answered,
     "POST /version-update.php HTTP/1.1, via 1.0 quintral-test"},
    {"apache2", "mod_proxy", Outcome::Answered,
     "POST /version-update.php HTTP/1.1, via 1.0 quintral-test"},
    {"lighttpd", "mod_proxy", Outcome::Answered,
     "POST /version-update.php HTTP/1.1, via 1.0 quintral-test"},
    {"php -S", "mod_proxy", Outcome::Answered,
     "POST /version-update.php HTTP/1.1, via 1.0 quintral-test"},
};

// An answer that the proxy makes itself: its status, "" if the proxy has no such case.
struct ProxyErrorRow {
    const char *proxy;
    const char *password_wanted; // it wants a password, which this client sends in another line
    const char *unreachable;     // the service refuses the connection
    bool may_reset;              // it may reset the connection before the client has read this
};

const ProxyErrorRow proxy_error_rows[] = {
    {"squid", "407 Proxy Authentication Required", "503 Service Unavailable", false},
    {"tinyproxy", "407 Proxy Authentication Required", "500 Unable to connect", true},
    {"privoxy", "", "503 Connect failed", false},
    {"mod_proxy", "407 Proxy Authentication Required", "503 Service Unavailable", false},
};

} // namespace quintral::tests

#endif
