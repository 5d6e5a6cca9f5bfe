// The sample update service's reader of requests. A header is found and read as a simple reader
// does, in whatever pieces it arrives. A form that the web client composed is read back as the
// client's values, and the client reads back the service's answer. What is logged is printable
// ASCII.
//
// An input: a byte that chooses the case from the table at the end, then what that takes.
#include "examples/update-exchange.h"
#include "fuzz/fuzz.h"
#include "web/form-body.h"
#include "web/update-check.h"

#include <algorithm>
#include <string>
#include <vector>

namespace {

using namespace quintral;
using namespace quintral::fuzz;
using sample::Answer;
using sample::Field;
using sample::Product;
using sample::Request;

constexpr std::size_t longest_body = 32768;
constexpr std::size_t most_fields = 64;
constexpr std::size_t longest_form_value = 300; // three times this is sent whole

bool is_log_byte(char c)
{
    return (c >= ' ' && c <= '~') || c == '\n';
}

// Checks the answer as bytes and as a log.
std::string check_answer(const Request &request, const std::vector<Field> &fields,
                         const Answer &answer)
{
    FUZZ_CHECK(!answer.body.empty() && answer.body.back() == '\n');
    const std::string log = sample::log_text(request, fields, answer);
    FUZZ_CHECK(std::all_of(log.begin(), log.end(), is_log_byte));
    const auto lines = std::count(answer.body.begin(), answer.body.end(), '\n');
    FUZZ_CHECK(std::count(log.begin(), log.end(), '\n') ==
               2 + static_cast<std::ptrdiff_t>(fields.size()) + lines);
    std::string bytes = sample::answer_bytes(request, answer);
    const std::size_t end = bytes.find("\r\n\r\n");
    FUZZ_CHECK(bytes.compare(0, 13, std::string("HTTP/1.0 ") + answer.status, 0, 13) == 0);
    FUZZ_CHECK(bytes.substr(end + 4) == (request.method == "HEAD" ? "" : answer.body));
    FUZZ_CHECK(bytes.find("\r\nContent-Length: " + std::to_string(answer.body.size()) + "\r\n") <
               end);
    return bytes;
}

// The header

// The end of the first line that an empty one follows, in a whole input.
std::size_t header_end(const std::string &text, std::size_t *empty_line)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        for (const char *end : {"\n\n", "\n\r\n"}) {
            *empty_line = std::strlen(end) - 1;
            if (text.compare(i, *empty_line + 1, end) == 0)
                return i;
        }
    }
    return std::string::npos;
}

std::vector<std::string> lines_of(const std::string &header)
{
    std::vector<std::string> lines(1);
    for (char c : header) {
        if (c == '\n')
            lines.emplace_back();
        else
            lines.back() += c;
    }
    for (std::string &line : lines) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
    }
    return lines;
}

bool is_token(const std::string &text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return is_letter_or_digit(c) || (c != '\0' && std::strchr("!#$%&'*+-.^_`|~", c) != nullptr);
    });
}

std::string without_spaces_around(const std::string &text)
{
    const std::size_t start = text.find_first_not_of(' ');
    return start == std::string::npos ? ""
                                      : text.substr(start, text.find_last_not_of(' ') + 1 - start);
}

std::string path_of(const std::string &target)
{
    const std::string path = target.substr(0, target.find('?'));
    if (lower_case(path.substr(0, 7)) != "http://")
        return path[0] == '/' ? path : "";
    const std::size_t slash = path.find('/', 7);
    return slash == std::string::npos ? "/" : path.substr(slash);
}

// "METHOD TARGET HTTP/1.D". Returns false if it is malformed.
bool read_request_line(const std::string &line, std::string *method, std::string *path)
{
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string::npos || first == last || line.find(' ', first + 1) != last)
        return false;
    *method = line.substr(0, first);
    *path = path_of(line.substr(first + 1, last - first - 1));
    const std::string version = line.substr(last + 1);
    return is_token(*method) && !path->empty() && version.size() == 8 &&
           version.compare(0, 7, "HTTP/1.") == 0 && version[7] >= '0' && version[7] <= '9';
}

// Collects the values of Content-Length. Returns false if a line after the first is malformed.
bool read_lengths(const std::vector<std::string> &lines, std::vector<std::string> *lengths)
{
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::size_t colon = lines[i].find(':');
        if (colon == std::string::npos || !is_token(lines[i].substr(0, colon)))
            return false;
        if (lower_case(lines[i].substr(0, colon)) == "content-length")
            lengths->push_back(without_spaces_around(lines[i].substr(colon + 1)));
    }
    return lengths->size() <= 1;
}

// Reads the length of a body that the service accepts. Returns false for any other.
bool read_length(const std::string &text, std::size_t *length)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
        return false;
    const std::string digits = text.substr(std::min(text.find_first_not_of('0'), text.size()));
    *length = static_cast<std::size_t>(std::atoi(digits.substr(0, 6).c_str()));
    return digits.size() <= 5 && *length <= longest_body;
}

// The status that the service answers a header with, "200" if it reads the body, whose length is
// then set.
std::string status_of(const std::string &header, std::size_t *length)
{
    const std::vector<std::string> lines = lines_of(header);
    std::string method;
    std::string path;
    std::vector<std::string> lengths;
    if (!read_request_line(lines[0], &method, &path) || !read_lengths(lines, &lengths))
        return "400";
    if (path != "/version-update.php")
        return "404";
    if (method != "POST")
        return "405";
    if (lengths.empty())
        return "411";
    return read_length(lengths[0], length) ? "200" : "400";
}

// The end is the same when the input arrives in pieces.
void check_pieces(const std::string &text, std::size_t piece, std::size_t end, std::size_t size)
{
    std::size_t searched = 0;
    for (std::size_t arrived = 0; arrived < text.size();) {
        arrived = std::min(arrived + piece, text.size());
        std::size_t empty_line = 0;
        const std::size_t found =
            sample::find_header_end(text.substr(0, arrived), searched, &empty_line);
        searched = arrived;
        if (found == std::string::npos)
            continue;
        FUZZ_CHECK(found == end && empty_line == size && arrived >= end + 1 + size &&
                   arrived < end + 1 + size + piece);
        return;
    }
    FUZZ_CHECK(end == std::string::npos);
}

void fuzz_header(Input *input)
{
    const std::size_t piece = take_byte(input) % 64 + 1;
    const std::string text = take_bytes(input, std::min(input->left, sample::header_limit));
    std::size_t expected_size = 0;
    std::size_t size = 0;
    const std::size_t end = header_end(text, &expected_size);
    FUZZ_CHECK(sample::find_header_end(text, 0, &size) == end);
    if (end != std::string::npos)
        FUZZ_CHECK(size == expected_size);
    check_pieces(text, piece, end, expected_size);

    const std::string header = text.substr(0, end);
    std::size_t length = 0;
    const std::string status = status_of(header, &length);
    Request request;
    Answer answer;
    const int result = sample::read_header(header, &request, &answer);
    FUZZ_CHECK(result == (status == "200" ? 0 : -1));
    FUZZ_CHECK(std::strncmp(answer.status, status.c_str(), 3) == 0);
    if (result == 0) {
        FUZZ_CHECK(request.method == "POST" && request.path == "/version-update.php");
        FUZZ_CHECK(request.body_length == length);
        return;
    }
    check_answer(request, {}, answer);
}

// The form

std::string without_control_characters(std::string text)
{
    text.erase(std::remove_if(text.begin(), text.end(),
                              [](char c) { return (c >= '\0' && c < ' ') || c == '\x7F'; }),
               text.end());
    return text;
}

// A version of digits that the input chooses.
std::string take_version(Input *input)
{
    const int thousandths = take_int16(input) & 0x7FFF;
    return std::to_string(thousandths / 1000) + "." + std::to_string(thousandths % 1000);
}

Product take_product(Input *input)
{
    Product product;
    product.version = take_version(input);
    product.name = without_control_characters(take_text(input)).substr(0, longest_form_value);
    product.line = without_control_characters(take_text(input)).substr(0, longest_form_value);
    product.url = without_control_characters(take_text(input));
    product.button = without_control_characters(take_text(input));
    product.message = "M" + without_control_characters(take_text(input));
    return product;
}

// The client reads the product's values if it is newer, otherwise its version alone.
void check_reply(const std::string &bytes, const Product *product, bool is_newer,
                 const std::string &own_version)
{
    WebUpdateReply reply;
    web_update_reply_init(&reply);
    FUZZ_CHECK(web_read_update_reply(bytes.data(), bytes.size(), own_version.c_str(), &reply) == 0);
    const std::string values[] = {reply.version != nullptr ? reply.version : "",
                                  reply.url != nullptr ? reply.url : "",
                                  reply.button != nullptr ? reply.button : "", reply.message};
    if (product == nullptr)
        FUZZ_CHECK(values[3] == "This service does not know the product.\n" && values[0].empty());
    else
        FUZZ_CHECK(values[0] == product->version &&
                   reply.newer == (is_newer ? WebNewer : WebNotNewer));
    if (product != nullptr && is_newer)
        FUZZ_CHECK(values[1] == product->url && values[2] == product->button &&
                   values[3] == product->message + "\n");
    else
        FUZZ_CHECK(values[1].empty() && values[2].empty());
    web_update_reply_free(&reply);
}

constexpr std::size_t form_size = 8;
const char *const field_names[form_size] = {
    "product", "productline", "version",    "version_name",
    "os",      "os_version",  "machine_id", "processor_arch"};

// The form of the client for eight values, read by the service.
std::string exchange_form(const std::vector<Product> &products,
                          const std::string (&values)[form_size], std::vector<Field> *fields,
                          Answer *answer)
{
    WebField form[form_size];
    for (std::size_t i = 0; i < form_size; ++i)
        form[i] = {field_names[i], values[i].c_str()};
    std::string header;
    std::string body;
    web_form_body(form_size, form, header, body);
    sample::answer_form(products, body, fields, answer);
    FUZZ_CHECK(fields->size() == form_size);
    for (std::size_t i = 0; i < form_size; ++i)
        FUZZ_CHECK((*fields)[i].name == field_names[i] && (*fields)[i].value == values[i]);
    return body;
}

void fuzz_query(Input *input)
{
    const std::vector<Product> products = {take_product(input), take_product(input)};
    const std::string own_version = take_version(input);
    std::string values[form_size];
    for (std::string &value : values)
        value = take_text(input).substr(0, longest_form_value);
    values[2] = own_version;
    const unsigned same = take_byte(input); // the product that is asked for
    if (same % 4 < 2)
        values[0] = products[same % 4].name;
    if ((same & 8U) != 0)
        values[1] = products[same % 2].line;

    std::vector<Field> fields;
    Answer answer;
    const std::string body = exchange_form(products, values, &fields, &answer);
    const auto found = std::find_if(products.begin(), products.end(), [&](const Product &product) {
        return product.name == values[0] && (product.line.empty() || product.line == values[1]);
    });
    const Product *product = found != products.end() ? &*found : nullptr;
    int order = 0;
    if (product != nullptr)
        FUZZ_CHECK(web_compare_versions(product->version.c_str(), own_version.c_str(), &order) ==
                   0);
    const Request request = {"POST / HTTP/1.0", "POST", "/", body.size()};
    check_reply(check_answer(request, fields, answer), product, order > 0, own_version);
}

// Undoes the escapes. Returns false for a '%' without two hexadecimal digits.
bool decode(const std::string &escaped, std::string *text)
{
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        if (escaped[i] != '%') {
            *text += escaped[i] == '+' ? ' ' : escaped[i];
            continue;
        }
        const std::string digits = escaped.substr(i + 1, 2);
        if (digits.size() < 2 ||
            digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
            return false;
        *text += static_cast<char>(std::strtoul(digits.c_str(), nullptr, 16));
        i += 2;
    }
    return true;
}

// The fields of a form. Returns false if it is malformed or has too many.
bool read_form(const std::string &body, std::vector<Field> *fields)
{
    for (std::size_t start = 0; start < body.size();) {
        const std::size_t end = std::min(body.find('&', start), body.size());
        const std::string pair = body.substr(start, end - start);
        start = end + 1;
        if (pair.empty())
            continue;
        const std::size_t equals = std::min(pair.find('='), pair.size());
        Field field;
        if (fields->size() == most_fields || !decode(pair.substr(0, equals), &field.name) ||
            !decode(pair.substr(std::min(equals + 1, pair.size())), &field.value))
            return false;
        fields->push_back(field);
    }
    return true;
}

void fuzz_form(Input *input)
{
    const std::string body = take_bytes(input, std::min(input->left, longest_body));
    const std::vector<Product> products = {{"A", "", "2", "u", "b", "m"}};
    std::vector<Field> fields;
    std::vector<Field> expected;
    Answer answer;
    sample::answer_form(products, body, &fields, &answer);
    const bool is_form = read_form(body, &expected);
    FUZZ_CHECK(fields.size() == expected.size());
    for (std::size_t i = 0; i < fields.size(); ++i)
        FUZZ_CHECK(fields[i].name == expected[i].name && fields[i].value == expected[i].value);
    const bool is_refused = std::strcmp(answer.status, "400 Bad Request") == 0;
    FUZZ_CHECK(is_refused || std::strcmp(answer.status, "200 OK") == 0);
    if (!is_form || fields.size() < 8)
        FUZZ_CHECK(is_refused);
    check_answer({"", "POST", "/", body.size()}, fields, answer);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static constexpr Case cases[] = {
        fuzz_header, // '0'
        fuzz_query,  // '1'
        fuzz_form,   // '2'
    };
    Input input = {bytes, size};
    cases[(take_byte(&input) - '0') % 3](&input);
    return 0;
}
