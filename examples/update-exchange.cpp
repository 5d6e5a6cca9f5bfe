#include "update-exchange.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <strings.h>

namespace sample {
namespace {

constexpr const char *update_path = "/version-update.php";
// The client cuts each of the eight values to about 3070 bytes, so its longest form is below this.
constexpr std::size_t body_limit = 32768;
constexpr std::size_t field_limit = 64;

// ---- Strings ----------------------------------------------------------------------------------

bool all_digits(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == text.npos;
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

// ---- The product list -------------------------------------------------------------------------

// Digits, optionally followed by a point and more digits.
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

// Compares decimal numbers of any length. Floating point would work for most versions, and then
// offer somebody the version they already have.
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

std::string with_line_feeds(std::string_view message)
{
    std::string text(message);
    for (std::size_t at = text.find("\\n"); at != text.npos; at = text.find("\\n", at + 1))
        text.replace(at, 2, "\n");
    return text;
}

// Adds the product in one line of the list. Returns null, or what is wrong with the line.
const char *add_product(std::string_view line, std::vector<Product> *products)
{
    for (const char c : line) {
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7F')
            return "a control character in the line";
    }
    const std::vector<std::string_view> fields = split(line, '|');
    if (fields.size() != 6)
        return "expected six fields separated by '|'";
    const Product product{std::string(trim(fields[0])), std::string(trim(fields[1])),
                          std::string(trim(fields[2])), std::string(trim(fields[3])),
                          std::string(trim(fields[4])), with_line_feeds(trim(fields[5]))};
    if (product.name.empty())
        return "no product name";
    if (!is_version(product.version) || fraction(product.version).size() > 3)
        return "the version is not a number with at most three decimal places";
    if (product.message.empty())
        return "no message";
    for (const Product &other : *products) {
        if (other.name == product.name && other.line == product.line)
            return "duplicate product and product line";
    }
    products->push_back(product);
    return nullptr;
}

// ---- The request ------------------------------------------------------------------------------

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

// The path of "http://host:port/path?query" or "/path?query"; empty if there is none. The client
// sends the whole URL, even if it does not go through a proxy.
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

// Reads the lines after the request line. *length becomes the value of Content-Length; without one
// it is unchanged.
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

// ---- The form ---------------------------------------------------------------------------------

const char *const field_names[] = {"product", "productline", "version",    "version_name",
                                   "os",      "os_version",  "machine_id", "processor_arch"};

int hexadecimal_digit(char c)
{
    constexpr std::string_view digits = "0123456789abcdef0123456789ABCDEF";
    const std::size_t at = digits.find(c);
    return at == digits.npos ? -1 : static_cast<int>(at % 16);
}

// Decodes the form's escapes: %2e, and the '+' that other clients send for a space. Returns 0, or
// -1 for a '%' without two hexadecimal digits.
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

// Makes an answer that refuses the request. Returns -1.
int refuse(Answer *answer, const char *status, const std::string &why)
{
    answer->status = status;
    answer->body = why + "\n";
    return -1;
}

// A line of the answer. It ends with a line feed only: the client takes everything before the line
// feed for the value, so a carriage return would become part of it. Many services send CR LF
// anyway, and a careful client drops the carriage return.
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

int answer_fields(const std::vector<Product> &products, const std::vector<Field> &fields,
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

// ---- The log ----------------------------------------------------------------------------------

// The backslash is escaped too, so that input that looks like an escape is not mistaken for one.
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

} // namespace

// ---- What the service calls -------------------------------------------------------------------

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

std::size_t find_header_end(std::string_view input, std::size_t searched, std::size_t *size)
{
    for (std::size_t at = input.find('\n', searched > 2 ? searched - 2 : 0); at != input.npos;
         at = input.find('\n', at + 1)) {
        const std::string_view rest = input.substr(at + 1);
        *size = rest.substr(0, 1) == "\n" ? 1 : 2;
        if (*size == 1 || rest.substr(0, 2) == "\r\n")
            return at;
    }
    return input.npos;
}

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

int bad_request(Answer *answer, const std::string &why)
{
    return refuse(answer, "400 Bad Request", why);
}

void answer_form(const std::vector<Product> &products, std::string_view body,
                 std::vector<Field> *fields, Answer *answer)
{
    const char *wrong = read_form(body, fields);
    if (wrong != nullptr)
        bad_request(answer, wrong);
    else
        answer_fields(products, *fields, answer);
}

std::string answer_bytes(const Request &request, const Answer &answer)
{
    std::string bytes =
        std::string("HTTP/1.0 ") + answer.status + "\r\n" + "Content-Type: text/plain\r\n" +
        "Content-Length: " + std::to_string(answer.body.size()) + "\r\n" + "Connection: close\r\n";
    if (std::strncmp(answer.status, "405", 3) == 0)
        bytes += "Allow: POST\r\n";
    bytes += "\r\n";
    if (request.method != "HEAD")
        bytes += answer.body;
    return bytes;
}

std::string log_text(const Request &request, const std::vector<Field> &fields, const Answer &answer)
{
    std::string log = "Request: " + safe_text(request.line) + "\n";
    for (const Field &field : fields)
        log += "  " + safe_text(field.name) + " = " + safe_text(field.value) + "\n";
    log += std::string("Answer: ") + answer.status + "\n";
    std::string_view body = answer.body;
    body.remove_suffix(1); // every body ends with a line feed
    for (const std::string_view line : split(body, '\n'))
        log += "  " + safe_text(line) + "\n";
    return log;
}

} // namespace sample
