// Records. The text of a run is read back as the values of the run, and a file that is read as a
// record is the same record after its values have been written and read again. Credentials have no
// effect on a masked request.
//
// An input: a byte that chooses the case from the table at the end, then what that takes.
#include "fuzz/fuzz.h"
#include "tool/record.h"

#include <algorithm>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

// Reads the bytes as a file: standard input is a temporary file.
int read_bytes(const std::string &bytes, Record *record, std::string *error)
{
    static std::FILE *const file = std::tmpfile();
    static const bool is_input = file != nullptr && dup2(fileno(file), STDIN_FILENO) == 0;
    FUZZ_CHECK(is_input);
    FUZZ_CHECK(ftruncate(STDIN_FILENO, 0) == 0);
    FUZZ_CHECK(pwrite(STDIN_FILENO, bytes.data(), bytes.size(), 0) ==
               static_cast<ssize_t>(bytes.size()));
    FUZZ_CHECK(lseek(STDIN_FILENO, 0, SEEK_SET) == 0);
    return read_record("-", record, error);
}

std::string up_to_nul(const std::string &text)
{
    return text.c_str();
}

void remove_empty(std::vector<std::string> *texts)
{
    texts->erase(std::remove(texts->begin(), texts->end(), ""), texts->end());
}

const char *null_if_empty(const std::string &text)
{
    return text.empty() ? nullptr : text.c_str();
}

// The text of a run with the values of a record.
std::string text_of(Record *record, const std::string &request)
{
    WebUpdateReply reply; // its strings are the record's and are not released
    web_update_reply_init(&reply);
    reply.header = record->has_header ? record->header.data() : nullptr;
    reply.body = record->has_body ? record->body.data() : nullptr;
    const RunOutcome outcome = {
        record->status.c_str(),       record->exit_status,           nullptr,
        null_if_empty(record->error), null_if_empty(record->reason), record->http_status};
    const RunTarget target = {record->service, record->proxy, record->proxy_origin};
    return record_text(
        {outcome, target, record->version, record->notes, record->interrupted, request, reply});
}

void check_same(const Record &one, const Record &other)
{
    FUZZ_CHECK(!one.is_bare_reply && !other.is_bare_reply);
    FUZZ_CHECK(one.version == other.version && one.service == other.service);
    FUZZ_CHECK(one.proxy == other.proxy && one.proxy_origin == other.proxy_origin);
    FUZZ_CHECK(one.notes == other.notes);
    FUZZ_CHECK(one.status == other.status && one.exit_status == other.exit_status);
    FUZZ_CHECK(one.interrupted == other.interrupted && one.http_status == other.http_status);
    FUZZ_CHECK(one.reason == other.reason && one.error == other.error);
    FUZZ_CHECK(one.has_header == other.has_header && one.header == other.header);
    FUZZ_CHECK(one.has_body == other.has_body && one.body == other.body);
}

// Writes and reads a record whose strings have no NUL and whose notes are not empty.
void check_round_trip(Record *record, const std::string &request)
{
    Record read;
    std::string error;
    const std::string text = text_of(record, request);
    FUZZ_CHECK(read_bytes(text, &read, &error) == 0);
    check_same(read, *record);
    FUZZ_CHECK(text_of(&read, request) == text);
}

void fuzz_file(Input *input)
{
    const std::string bytes = take_bytes(input, input->left);
    Record record;
    std::string error;
    const int result = read_bytes(bytes, &record, &error);
    const bool is_bare = bytes.compare(0, 15, "Quintral record") != 0;
    if (is_bare) {
        FUZZ_CHECK(result == 0 && record.is_bare_reply && record.header == bytes);
        FUZZ_CHECK(record.exit_status == -1 && !record.has_header && !record.has_body);
        return;
    }
    if (result != 0) {
        FUZZ_CHECK(result == -1 && error == "The record '-' is damaged");
        return;
    }
    FUZZ_CHECK(bytes.compare(0, 18, "Quintral record 1\n") == 0);
    record.header = up_to_nul(record.header); // both are strings
    record.body = up_to_nul(record.body);
    remove_empty(&record.notes); // a run has none
    check_round_trip(&record, "");
}

// The same after the first line and the lines that every record has.
void fuzz_rest_of_file(Input *input)
{
    static const std::string start = "Quintral record 1\nversion: 5.1\nservice: a\n"
                                     "status: failed\nexit-status: 1\nreason: lookup\nerror: E\n";
    const std::string bytes = start + take_bytes(input, input->left);
    Input whole = {reinterpret_cast<const std::uint8_t *>(bytes.data()), bytes.size()};
    fuzz_file(&whole);
}

struct Outcome {
    const char *status;
    int exit_status;
    const char *reason; // "" for none
};

constexpr Outcome outcomes[] = {
    {"answered", 0, ""},
    {"answered", 10, ""},
    {"answered", 11, ""},
    {"answered", 1, "open"},
    {"answered", 1, "file"},
    {"answered", 143, ""},
    {"failed", 1, "lookup"},
    {"failed", 1, "connect"},
    {"failed", 1, "receive"},
    {"failed", 1, "too-long"},
    {"failed", 1, "not-http"},
    {"failed", 1, "http-status"},
    {"failed", 1, "not-an-update"},
    {"timeout", 3, "timeout"},
    {"cancelled", 130, "cancelled"},
    {"cancelled", 129, "cancelled"},
};

std::string take_some_text(Input *input)
{
    const std::string text = take_text(input);
    return text.empty() ? "?" : text;
}

void fuzz_run(Input *input)
{
    const Outcome &outcome = outcomes[take_byte(input) % std::size(outcomes)];
    const unsigned given = take_byte(input);
    Record record = {};
    record.version = "5.2";
    record.status = outcome.status;
    record.exit_status = outcome.exit_status;
    record.reason = outcome.reason;
    record.http_status = take_int16(input);
    record.service = take_some_text(input);
    if ((given & 1U) != 0) {
        record.proxy = take_some_text(input);
        record.proxy_origin = take_some_text(input);
    }
    record.error = record.reason.empty() ? "" : take_some_text(input);
    record.interrupted = (given & 2U) != 0;
    const bool is_answered = record.status == "answered";
    record.has_header = is_answered || (given & 4U) != 0;
    record.has_body = is_answered || (given & 8U) != 0;
    record.header = record.has_header ? take_text(input) : "";
    record.body = record.has_body ? take_text(input) : "";
    const std::string request = take_text(input);
    while (input->left > 0)
        record.notes.push_back(take_some_text(input));
    check_round_trip(&record, request);
}

// A request as the client composes it, masked: the same for any credentials.
void fuzz_mask(Input *input)
{
    std::string values[6];
    for (std::string &value : values)
        value = take_text(input).substr(0, 255);
    std::string masked[2];
    for (std::size_t i = 0; i < 2; ++i) {
        ProxySettings proxy = {};
        std::strcpy(proxy.user, ("u" + values[2 * i].substr(0, 254)).c_str());
        std::strcpy(proxy.password, ("p" + values[2 * i + 1].substr(0, 254)).c_str());
        WebUpdateQuery query;
        web_update_query_init(&query);
        query.version = "1";
        query.product = values[4].c_str();
        query.machine_id = values[5].c_str();
        query.proxy = &proxy;
        std::string request;
        web_compose_update_request(&query, request);
        masked[i] = mask_credentials(request);
        query.proxy = nullptr;
        web_compose_update_request(&query, request);
        FUZZ_CHECK(mask_credentials(request) == request);
    }
    FUZZ_CHECK(masked[0] == masked[1]);
    FUZZ_CHECK(masked[0].find("\r\nAuthorization: Basic ***\r\n") != std::string::npos);
    FUZZ_CHECK(mask_credentials(masked[0]) == masked[0]);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static constexpr Case cases[] = {
        fuzz_file,         // '0'
        fuzz_rest_of_file, // '1'
        fuzz_run,          // '2'
        fuzz_mask,         // '3'
    };
    Input input = {bytes, size};
    cases[(take_byte(&input) - '0') % 4](&input);
    return 0;
}
