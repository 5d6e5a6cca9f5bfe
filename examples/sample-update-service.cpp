// A sample update service: what stands at the other end of the version-update query.
//
//     sample-update-service [--port N] PRODUCTS-FILE
//
// It listens on 127.0.0.1 (a free port, unless --port names one), writes the one line "Listening on
// 127.0.0.1:PORT" on standard output so that a script can read the port, and serves until SIGTERM
// or SIGINT ends it with status 0. Standard error tells what came in and what was answered. A wrong
// command line or product list ends it at once with status 2, a failure of the system with 1.
//
// The exchange: a client sends one HTTP/1.0 request, a form of eight fields,
//
//     POST http://HOST/version-update.php HTTP/1.0
//     Content-Type: application/x-www-form-urlencoded
//     Content-Length: 147
//
//     product=Quintral&productline=Quintral&version=1%2e000&version_name=...
//
// and reads a status line, header lines, an empty line and, up to the close, 'Key: value' lines:
//
//     Version: 1.5
//     URL: http://www.quintral.example/download
//     Button: Download
//     Message: Version 1.5 is here.
//
// Version, URL and Button may be missing and come in any order. Message must be there and comes
// last, for everything behind it belongs to it. The client accepts any status from 200 to 299 and
// takes everything else for a failure, so "you have the newest version" is a 200 too.
//
// One loop over poll serves all connections; nothing in it waits for a single client. The limits
// below bound what any of them can use. Only the log is written without such care: who reads it
// through a pipe has to keep reading. This is a sample to read: it speaks plain HTTP to this
// machine alone, and a real service would sit behind a web server.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char *update_path = "/version-update.php";
constexpr std::size_t header_limit = 8192;
// The client cuts each of the eight values to about 3070 bytes, so its longest form is below this.
constexpr std::size_t body_limit = 32768;
constexpr std::size_t field_limit = 64;
constexpr std::size_t connection_limit = 128;
// From accept to close, whatever the client does meanwhile.
constexpr std::chrono::seconds connection_time(10);

// ---- The product list -------------------------------------------------------------------------

struct Product {
    std::string name;
    std::string line; // empty: any
    std::string version;
    std::string url;
    std::string button;
    std::string message;
};

bool all_digits(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
}

// Digits, optionally a point and more digits.
bool is_version(std::string_view text)
{
    const std::size_t point = text.find('.');
    if (point == text.npos)
        return all_digits(text);
    return all_digits(text.substr(0, point)) && all_digits(text.substr(point + 1));
}

std::string_view whole_part(std::string_view version)
{
    const std::string_view whole = version.substr(0, version.find('.'));
    return whole.substr(std::min(whole.find_first_not_of('0'), whole.size()));
}

std::string_view fraction(std::string_view version)
{
    const std::size_t point = version.find('.');
    const std::string_view digits = point == version.npos ? "" : version.substr(point + 1);
    return digits.substr(0, digits.find_last_not_of('0') + 1);
}

// Compares as decimal numbers of any length. Binary floating point would do for most versions and
// then offer somebody the version that he has.
bool is_newer(std::string_view version, std::string_view than)
{
    const std::string_view first = whole_part(version);
    const std::string_view second = whole_part(than);
    if (first.size() != second.size())
        return first.size() > second.size();
    if (first != second)
        return first > second;
    return fraction(version) > fraction(than);
}

std::string_view trim(std::string_view text)
{
    text = text.substr(0, text.find_last_not_of(' ') + 1);
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (;;) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == text.npos)
            return parts;
        text.remove_prefix(end + 1);
    }
}

std::string with_line_feeds(std::string_view message)
{
    std::string text(message);
    for (std::size_t at = text.find("\\n"); at != text.npos; at = text.find("\\n", at + 1))
        text.replace(at, 2, "\n");
    return text;
}

// Adds the product of one line of the list. Returns null, or what is wrong with the line.
const char *add_product(std::string_view line, std::vector<Product> *products)
{
    for (const char c : line) {
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7F')
            return "a control character in the line";
    }
    const std::vector<std::string_view> texts = split(line, '|');
    if (texts.size() != 6)
        return "not six texts with '|' between them";
    const Product product{std::string(trim(texts[0])), std::string(trim(texts[1])),
                          std::string(trim(texts[2])), std::string(trim(texts[3])),
                          std::string(trim(texts[4])), with_line_feeds(trim(texts[5]))};
    if (product.name.empty())
        return "no product name";
    if (!is_version(product.version) || fraction(product.version).size() > 3)
        return "the version is not a number with at most three digits behind the point";
    if (product.message.empty())
        return "no message";
    for (const Product &other : *products) {
        if (other.name == product.name && other.line == product.line)
            return "this product and product line stand above already";
    }
    products->push_back(product);
    return nullptr;
}

// Returns 0, or -1 after saying what is wrong.
int read_products(const char *path, std::vector<Product> *products)
{
    std::ifstream file(path);
    if (!file) {
        std::fprintf(stderr, "Can't open the product list %s: %s\n", path, std::strerror(errno));
        return -1;
    }
    std::string line;
    for (int number = 1; std::getline(file, line); ++number) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (trim(line).empty() || line.front() == '#')
            continue;
        const char *wrong = add_product(line, products);
        if (wrong != nullptr) {
            std::fprintf(stderr, "%s:%d: %s\n", path, number, wrong);
            return -1;
        }
    }
    if (file.bad() || products->empty()) {
        std::fprintf(stderr, "%s: %s\n", path, file.bad() ? "can't be read" : "holds no product");
        return -1;
    }
    return 0;
}

// ---- The form ---------------------------------------------------------------------------------

struct Field {
    std::string name;
    std::string value;
};

const char *const field_names[] = {"product", "productline", "version",    "version_name",
                                   "os",      "os_version",  "machine_id", "processor_arch"};

int hexadecimal_digit(char c)
{
    constexpr std::string_view digits = "0123456789abcdef0123456789ABCDEF";
    const std::size_t at = digits.find(c);
    return at == digits.npos ? -1 : static_cast<int>(at % 16);
}

// Undoes the form's escapes: %2e, and the '+' that other clients write for a blank. Returns -1 for
// a '%' without two hexadecimal digits.
int decode(std::string_view escaped, std::string *text)
{
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] != '%') {
            text->push_back(escaped[i] == '+' ? ' ' : escaped[i]);
            continue;
        }
        if (escaped.size() - i < 3)
            return -1;
        const int high = hexadecimal_digit(escaped[i + 1]);
        const int low = hexadecimal_digit(escaped[i + 2]);
        if (high < 0 || low < 0)
            return -1;
        text->push_back(static_cast<char>(high * 16 + low));
        i += 2;
    }
    return 0;
}

// Returns null, or what is wrong with the form.
const char *read_form(std::string_view body, std::vector<Field> *fields)
{
    for (const std::string_view pair : split(body, '&')) {
        if (pair.empty())
            continue;
        if (fields->size() == field_limit)
            return "The form has too many fields.";
        const std::size_t equals = pair.find('=');
        Field field;
        if (decode(pair.substr(0, equals), &field.name) != 0)
            return "The form has a malformed escape.";
        if (equals != pair.npos && decode(pair.substr(equals + 1), &field.value) != 0)
            return "The form has a malformed escape.";
        fields->push_back(field);
    }
    return nullptr;
}

const Field *find_field(const std::vector<Field> &fields, const char *name)
{
    for (const Field &field : fields) {
        if (field.name == name)
            return &field;
    }
    return nullptr;
}

// ---- The answer -------------------------------------------------------------------------------

struct Answer {
    const char *status = "200 OK";
    std::string body;
};

// For `return refuse(...)`: fills the answer and gives -1.
int refuse(Answer *answer, const char *status, const std::string &why)
{
    answer->status = status;
    answer->body = why + "\n";
    return -1;
}

int bad_request(Answer *answer, const std::string &why)
{
    return refuse(answer, "400 Bad Request", why);
}

// A line of the answer. It ends in a line feed alone: the client's value runs up to the line feed,
// so the carriage return of a CR LF would become part of it. Many services write CR LF all the
// same, and a careful client drops the carriage return.
std::string answer_line(const char *key, const std::string &value)
{
    return value.empty() ? "" : std::string(key) + ": " + value + "\n";
}

void answer_query(const std::vector<Product> &products, const std::string &name,
                  const std::string &line, const std::string &version, Answer *answer)
{
    for (const Product &product : products) {
        if (product.name != name || (!product.line.empty() && product.line != line))
            continue;
        answer->body = answer_line("Version", product.version);
        if (is_newer(product.version, version)) {
            answer->body += answer_line("URL", product.url);
            answer->body += answer_line("Button", product.button);
            answer->body += answer_line("Message", product.message);
        } else {
            answer->body += answer_line("Message", "You have the newest version.");
        }
        return;
    }
    answer->body = answer_line("Message", "This service does not know the product.");
}

int answer_form(const std::vector<Product> &products, const std::vector<Field> &fields,
                Answer *answer)
{
    for (const char *name : field_names) {
        if (find_field(fields, name) == nullptr)
            return bad_request(answer, std::string("The field ") + name + " is missing.");
    }
    const std::string &version = find_field(fields, "version")->value;
    if (!is_version(version))
        return bad_request(answer, "The field version is not a number.");
    answer_query(products, find_field(fields, "product")->value,
                 find_field(fields, "productline")->value, version, answer);
    return 0;
}

// ---- The request ------------------------------------------------------------------------------

struct Request {
    std::string line; // the request line, for the log
    std::string method;
    std::string path; // without scheme, host and query
    std::size_t body_start = 0;
    std::size_t body_length = 0;
};

bool is_name(std::string_view text)
{
    constexpr std::string_view name_bytes = "!#$%&'*+-.^_`|~0123456789abcdefghijklmnopqrstuvwxyz"
                                            "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    return !text.empty() && text.find_first_not_of(name_bytes) == text.npos;
}

bool same_ignoring_case(std::string_view text, std::string_view other)
{
    return text.size() == other.size() && strncasecmp(text.data(), other.data(), text.size()) == 0;
}

// The path of "http://host:port/path?query" or "/path?query"; empty where there is none. The client
// sends the whole address, to a server as to a proxy.
std::string_view path_of(std::string_view target)
{
    target = target.substr(0, target.find('?'));
    constexpr std::string_view scheme = "http://";
    if (!same_ignoring_case(target.substr(0, scheme.size()), scheme))
        return target.substr(0, 1) == "/" ? target : "";
    const std::size_t slash = target.find('/', scheme.size());
    return slash == target.npos ? "/" : target.substr(slash);
}

int read_request_line(std::string_view line, Request *request, Answer *answer)
{
    request->line = line;
    const std::vector<std::string_view> words = split(line, ' ');
    if (words.size() != 3 || !is_name(words[0]))
        return bad_request(answer, "The request line is malformed.");
    request->method = words[0];
    request->path = path_of(words[1]);
    const std::string_view version = words[2];
    if (request->path.empty() || version.size() != 8 || version.substr(0, 7) != "HTTP/1." ||
        !all_digits(version.substr(7)))
        return bad_request(answer, "The request line is malformed.");
    return 0;
}

// Reads the lines behind the request line; *length views Content-Length's text, null without one.
int read_header_lines(const std::vector<std::string_view> &lines, std::string_view *length,
                      Answer *answer)
{
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::size_t colon = lines[i].find(':');
        if (colon == lines[i].npos || !is_name(lines[i].substr(0, colon)))
            return bad_request(answer, "A header line is malformed.");
        if (!same_ignoring_case(lines[i].substr(0, colon), "Content-Length"))
            continue;
        if (length->data() != nullptr)
            return bad_request(answer, "Content-Length is given twice.");
        *length = trim(lines[i].substr(colon + 1));
    }
    return 0;
}

int read_length(std::string_view text, Request *request, Answer *answer)
{
    if (!all_digits(text))
        return bad_request(answer, "Content-Length is not a number.");
    for (const char digit : text) {
        request->body_length = request->body_length * 10 + static_cast<std::size_t>(digit - '0');
        if (request->body_length > body_limit)
            return bad_request(answer, "The form is too long.");
    }
    return 0;
}

// Reads a whole header, without its empty line. Returns 0, or -1 with the answer that refuses it.
int read_header(std::string_view header, Request *request, Answer *answer)
{
    std::vector<std::string_view> lines = split(header, '\n');
    for (std::string_view &line : lines) {
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
    }
    std::string_view length;
    if (read_request_line(lines[0], request, answer) != 0 ||
        read_header_lines(lines, &length, answer) != 0)
        return -1;
    if (request->path != update_path)
        return refuse(answer, "404 Not Found", "There is no such page here.");
    if (request->method != "POST")
        return refuse(answer, "405 Method Not Allowed", "This page takes POST only.");
    if (length.data() == nullptr)
        return refuse(answer, "411 Length Required", "Content-Length is missing.");
    return read_length(length, request, answer);
}

// ---- The log ----------------------------------------------------------------------------------

// What a client sends is shown in printable ASCII only: a raw control byte could move the cursor,
// rename the window or forge a line of the log. The backslash is escaped too, so that a text that
// looks like an escape is not taken for one.
std::string safe_text(std::string_view text)
{
    std::string safe;
    for (const char c : text) {
        if (c >= ' ' && c <= '~' && c != '\\') {
            safe.push_back(c);
            continue;
        }
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(c) & 0xFFU);
        safe += escape;
    }
    return safe;
}

void log_exchange(const Request &request, const std::vector<Field> &fields, const Answer &answer)
{
    std::string log = "Request: " + safe_text(request.line) + "\n";
    for (const Field &field : fields)
        log += "  " + safe_text(field.name) + " = " + safe_text(field.value) + "\n";
    log += std::string("Answer: ") + answer.status + "\n";
    std::string_view body = answer.body;
    body.remove_suffix(1); // every body ends in a line feed
    for (const std::string_view line : split(body, '\n'))
        log += "  " + safe_text(line) + "\n";
    std::fwrite(log.data(), 1, log.size(), stderr);
}

// ---- One connection ---------------------------------------------------------------------------

enum class Phase { Receiving, Sending, Draining };

struct Connection {
    int descriptor;
    Clock::time_point deadline;
    Phase phase = Phase::Receiving;
    std::string input;
    bool header_read = false;
    Request request;
    std::string output;
    std::size_t sent = 0;
};

void start_answer(Connection *connection, const Answer &answer, const std::vector<Field> &fields)
{
    log_exchange(connection->request, fields, answer);
    connection->output =
        std::string("HTTP/1.0 ") + answer.status + "\r\n" + "Content-Type: text/plain\r\n" +
        "Content-Length: " + std::to_string(answer.body.size()) + "\r\n" + "Connection: close\r\n";
    if (std::strncmp(answer.status, "405", 3) == 0)
        connection->output += "Allow: POST\r\n";
    connection->output += "\r\n";
    if (connection->request.method != "HEAD")
        connection->output += answer.body;
    connection->input = std::string();
    connection->phase = Phase::Sending;
}

void start_refusal(Connection *connection, const char *why)
{
    Answer answer;
    bad_request(&answer, why);
    start_answer(connection, answer, {});
}

// The line feed that ends the last header line, or npos. *size is that of the empty line behind it.
// An earlier call has looked as far as `from`.
std::size_t find_header_end(std::string_view input, std::size_t from, std::size_t *size)
{
    for (std::size_t at = input.find('\n', from > 2 ? from - 2 : 0); at != input.npos;
         at = input.find('\n', at + 1)) {
        const std::string_view rest = input.substr(at + 1);
        *size = rest.substr(0, 1) == "\n" ? 1 : 2;
        if (*size == 1 || rest.substr(0, 2) == "\r\n")
            return at;
    }
    return input.npos;
}

// Looks at the header once it is whole. Answers it where it is refused.
void take_header(Connection *connection, std::size_t from)
{
    const std::string_view input = connection->input;
    std::size_t size = 0;
    const std::size_t end = find_header_end(input, from, &size);
    if (end > header_limit) {
        if (input.size() > header_limit)
            start_refusal(connection, "The header is too long.");
        return;
    }
    Answer answer;
    if (read_header(input.substr(0, end), &connection->request, &answer) != 0)
        return start_answer(connection, answer, {});
    connection->request.body_start = end + 1 + size;
    connection->header_read = true;
}

void take_body(Connection *connection, const std::vector<Product> &products)
{
    const Request &request = connection->request;
    const std::string_view input = connection->input;
    if (input.size() - request.body_start < request.body_length)
        return;
    Answer answer;
    std::vector<Field> fields;
    const char *wrong = read_form(input.substr(request.body_start, request.body_length), &fields);
    if (wrong != nullptr)
        bad_request(&answer, wrong);
    else
        answer_form(products, fields, &answer);
    start_answer(connection, answer, fields);
}

// The next functions return 0 to go on with the connection and -1 to close it.

int after_failure()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? 0 : -1;
}

int receive(Connection *connection, const std::vector<Product> &products)
{
    char chunk[4096];
    const ssize_t count = recv(connection->descriptor, chunk, sizeof chunk, 0);
    if (count < 0)
        return after_failure();
    if (connection->phase == Phase::Draining || (count == 0 && connection->input.empty()))
        return count == 0 ? -1 : 0;
    if (count == 0) {
        start_refusal(connection, connection->header_read ? "The form is shorter than its length."
                                                          : "The header has no end.");
        return 0;
    }
    const std::size_t before = connection->input.size();
    connection->input.append(chunk, static_cast<std::size_t>(count));
    if (!connection->header_read)
        take_header(connection, before);
    if (connection->header_read && connection->phase == Phase::Receiving)
        take_body(connection, products);
    return 0;
}

// The client reads up to the close, so the end of the sending side goes out with the answer. What
// the client may still be sending is then read and dropped: closing over unread bytes would send a
// reset, which can destroy the answer before the client has read it.
int send_answer(Connection *connection)
{
    const std::string &output = connection->output;
    const ssize_t count = send(connection->descriptor, output.data() + connection->sent,
                               output.size() - connection->sent, 0);
    if (count < 0)
        return after_failure();
    connection->sent += static_cast<std::size_t>(count);
    if (connection->sent == output.size()) {
        shutdown(connection->descriptor, SHUT_WR);
        connection->phase = Phase::Draining;
    }
    return 0;
}

int serve(Connection *connection, const std::vector<Product> &products)
{
    if (connection->phase == Phase::Sending)
        return send_answer(connection);
    return receive(connection, products);
}

// ---- All connections --------------------------------------------------------------------------

// In the order in which they were accepted, so the first is the one whose time ends first.
using Connections = std::vector<Connection>;

void close_connection(Connections *connections, std::size_t index, const char *why)
{
    const Connection &connection = (*connections)[index];
    if (why != nullptr && connection.phase != Phase::Draining)
        std::fprintf(stderr, "Closed: %s\n", why);
    close(connection.descriptor);
    connections->erase(connections->begin() + static_cast<std::ptrdiff_t>(index));
}

// Where all places are taken the oldest connection makes room, so clients that only sit there can't
// keep others out. At most a few are accepted in a turn: a crowd that arrives at once can't push
// out a client before its request has been looked at.
void accept_clients(int listener, Connections *connections)
{
    for (int i = 0; i < 16; ++i) {
        const int descriptor = accept(listener, nullptr, nullptr);
        if (descriptor < 0 && (after_failure() == 0 || errno == ECONNABORTED))
            return;
        if (descriptor < 0) { // no descriptors left, most likely: make room, and never spin
            if (connections->empty())
                poll(nullptr, 0, 100);
            else
                close_connection(connections, 0, "the system has no room for another client");
            return;
        }
        if (connections->size() == connection_limit)
            close_connection(connections, 0, "too many clients");
        fcntl(descriptor, F_SETFL, O_NONBLOCK);
        Connection connection{};
        connection.descriptor = descriptor;
        connection.deadline = Clock::now() + connection_time;
        connections->push_back(connection);
    }
}

void close_late(Connections *connections)
{
    while (!connections->empty() && connections->front().deadline <= Clock::now())
        close_connection(connections, 0, "the client took too long");
}

// Milliseconds until the first connection's time ends, rounded up; -1 for ever.
int poll_time(const Connections &connections)
{
    if (connections.empty())
        return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(connections.front().deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

int stop_pipe[2];

extern "C" void stop_signal(int)
{
    const int error = errno;
    (void)!write(stop_pipe[1], "", 1);
    errno = error;
}

void run(int listener, const std::vector<Product> &products)
{
    Connections connections;
    for (;;) {
        std::vector<pollfd> waiting = {{stop_pipe[0], POLLIN, 0}, {listener, POLLIN, 0}};
        for (const Connection &connection : connections) {
            const bool sending = connection.phase == Phase::Sending;
            const short events = sending ? POLLOUT : POLLIN;
            waiting.push_back({connection.descriptor, events, 0});
        }
        const auto count = static_cast<nfds_t>(waiting.size());
        if (poll(waiting.data(), count, poll_time(connections)) < 0)
            continue; // interrupted by a signal
        if (waiting[0].revents != 0)
            break;
        // Backwards, since closing one moves those behind it.
        for (std::size_t i = connections.size(); i-- > 0;) {
            if (waiting[i + 2].revents != 0 && serve(&connections[i], products) != 0)
                close_connection(&connections, i, nullptr);
        }
        close_late(&connections);
        if (waiting[1].revents != 0)
            accept_clients(listener, &connections);
    }
    while (!connections.empty())
        close_connection(&connections, connections.size() - 1, "the service ends");
}

// ---- Start ------------------------------------------------------------------------------------

constexpr const char *usage =
    "Usage: sample-update-service [--port N] PRODUCTS-FILE\n"
    "Answers version-update queries on 127.0.0.1 (port N, or a free one).\n";

struct Settings {
    std::uint16_t port = 0;
    const char *products_path = nullptr;
};

// Returns null, or what is wrong.
const char *read_arguments(int count, char **arguments, Settings *settings)
{
    for (int i = 1; i < count; ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--port") {
            const std::string_view text = ++i < count ? arguments[i] : "";
            if (!all_digits(text) || text.size() > 5 || std::atoi(arguments[i]) > 65535)
                return "--port takes a number from 0 to 65535";
            settings->port = static_cast<std::uint16_t>(std::atoi(arguments[i]));
        } else if (argument.substr(0, 1) == "-") {
            return "there is no such option";
        } else if (settings->products_path != nullptr) {
            return "more than one product list is given";
        } else {
            settings->products_path = arguments[i];
        }
    }
    return settings->products_path != nullptr ? nullptr : "no product list is given";
}

// Returns the listening socket with its port in *port, or -1 after saying why not.
int listen_on_loopback(std::uint16_t *port)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(*port);
    socklen_t size = sizeof address;
    if (listener < 0 || setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(listener, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        listen(listener, SOMAXCONN) != 0 || fcntl(listener, F_SETFL, O_NONBLOCK) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        std::fprintf(stderr, "Can't listen on 127.0.0.1:%u: %s\n", static_cast<unsigned>(*port),
                     std::strerror(errno));
        return -1;
    }
    *port = ntohs(address.sin_port);
    return listener;
}

// Descriptors 0 to 2 are taken before any socket is made, so that a log line never goes to a client
// where the service was started with its standard error closed.
void fill_standard_descriptors()
{
    int descriptor = open("/dev/null", O_RDWR);
    while (descriptor >= 0 && descriptor <= 2)
        descriptor = open("/dev/null", O_RDWR);
    if (descriptor >= 0)
        close(descriptor);
}

int catch_signals()
{
    if (pipe(stop_pipe) != 0 || fcntl(stop_pipe[1], F_SETFL, O_NONBLOCK) != 0)
        return -1;
    std::signal(SIGPIPE, SIG_IGN); // a client that is gone shows as a failed send
    std::signal(SIGTERM, stop_signal);
    std::signal(SIGINT, stop_signal);
    return 0;
}

} // namespace

int main(int argument_count, char **arguments)
{
    fill_standard_descriptors();
    if (argument_count == 2 && std::strcmp(arguments[1], "--help") == 0)
        return std::fputs(usage, stdout) < 0 || std::fflush(stdout) != 0 ? 1 : 0;
    Settings settings;
    const char *wrong = read_arguments(argument_count, arguments, &settings);
    if (wrong != nullptr) {
        std::fprintf(stderr, "sample-update-service: %s\n%s", wrong, usage);
        return 2;
    }
    std::vector<Product> products;
    if (read_products(settings.products_path, &products) != 0)
        return 2;
    const int listener = catch_signals() == 0 ? listen_on_loopback(&settings.port) : -1;
    if (listener < 0)
        return 1;
    std::printf("Listening on 127.0.0.1:%u\n", static_cast<unsigned>(settings.port));
    if (std::fflush(stdout) != 0)
        return 1;
    run(listener, products);
    return 0;
}
