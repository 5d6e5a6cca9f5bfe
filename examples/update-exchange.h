// The update service's side of the version-update exchange: what the service does with a request
// and what it answers. Nothing here touches a socket; sample-update-service.cpp moves the bytes.
//
// A client sends one HTTP/1.0 request, a form of eight fields:
//
//     POST http://HOST/version-update.php HTTP/1.0
//     Content-Type: application/x-www-form-urlencoded
//     Content-Length: 147
//
//     product=Quintral&productline=Quintral&version=1%2e000&version_name=...
//
// It reads a status line, header lines, an empty line and, until the service closes the connection,
// "Key: value" lines:
//
//     Version: 1.5
//     URL: http://www.quintral.example/download
//     Button: Download
//     Message: Version 1.5 is here.
//
// Version, URL and Button are optional and come in any order. Message is mandatory and comes last,
// because the rest of the body belongs to it. The client accepts any status from 200 to 299 and
// treats everything else as a failure, so "you have the newest version" is a 200 too.
//
// A service calls read_products once. For each request it calls find_header_end whenever bytes have
// arrived, read_header once the header is complete, and answer_form once the body is complete too.
// Then it sends answer_bytes. If read_header fails, it sends them without reading the body.
#ifndef QUINTRAL_EXAMPLES_UPDATE_EXCHANGE_H
#define QUINTRAL_EXAMPLES_UPDATE_EXCHANGE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace sample {

// The longest header a service should accept, up to the empty line.
constexpr std::size_t header_limit = 8192;

// One line of the product list.
struct Product {
    std::string name;
    std::string line; // empty: any
    std::string version;
    std::string url;     // may be empty
    std::string button;  // may be empty
    std::string message; // for users of an older version
};

// Reads a product list in the format of sample-products.txt. Returns 0, or -1 after reporting the
// error on standard error.
int read_products(const char *path, std::vector<Product> *products);

struct Request {
    std::string line; // the request line, for the log
    std::string method;
    std::string path;            // without scheme, host and query
    std::size_t body_length = 0; // the value of Content-Length
};

struct Field {
    std::string name;
    std::string value;
};

struct Answer {
    const char *status = "200 OK";
    std::string body;
};

// Returns the position of the line feed that ends the last header line and sets *size to the size
// of the empty line after it, or returns npos if the header is not complete. `searched` is the size
// of the input in the previous call, 0 in the first.
std::size_t find_header_end(std::string_view input, std::size_t searched, std::size_t *size);

// Reads a complete header, without its empty line. Returns 0, or -1 with the answer that refuses
// the request.
int read_header(std::string_view header, Request *request, Answer *answer);

// Makes an answer that refuses a malformed request. Returns -1.
int bad_request(Answer *answer, const std::string &why);

// Reads the form in a request's body, appends its fields to *fields for the log, and makes the
// answer: the newest version of the product, or a refusal.
void answer_form(const std::vector<Product> &products, std::string_view body,
                 std::vector<Field> *fields, Answer *answer);

// Returns the whole reply, header and body.
std::string answer_bytes(const Request &request, const Answer &answer);

// Returns a description of the exchange, several lines of printable ASCII. All other bytes are
// escaped: a control character could move the cursor, rename the window or forge a line of the log.
std::string log_text(const Request &request, const std::vector<Field> &fields,
                     const Answer &answer);

} // namespace sample

#endif
