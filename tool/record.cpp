#include "tool/record.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/ascii.h"
#include "tool/read-file.h"
#include "tool/streams.h"
#include "web/transaction.h"
#include "web/update-check.h"

namespace quintral {

namespace {

const char first_word[] = "Quintral record";
const char first_line[] = "Quintral record 1\n";

// Global because signal handlers remove the file. The path is that of the caller's RecordFile.
const char *unfinished_path = nullptr;
volatile std::sig_atomic_t is_unfinished = 0;

int system_error(const char *operation, const std::string &path, std::string *error)
{
    *error = std::string("Can't ") + operation + " '" + path + "', " + web_errno_text();
    return -1;
}

// Unlike safe_line, this can be undone.
std::string escaped(const std::string &value)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : value) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7F && c != '\\')
            text += c;
        else
            text += std::string("\\x") + digits[byte >> 4] + digits[byte & 15];
    }
    return text;
}

// Returns the value of an upper-case hexadecimal digit, or -1.
int digit_value(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Undoes `escaped`. False if the text cannot come from it. Strings end at a NUL, so there is none.
bool unescape(const std::string &text, std::string *value)
{
    value->clear();
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            *value += text[i];
            continue;
        }
        if (text.size() - i < 4 || text[i + 1] != 'x')
            return false;
        const int high = digit_value(text[i + 2]);
        const int low = digit_value(text[i + 3]);
        if (high < 0 || low < 0 || high + low == 0)
            return false;
        *value += static_cast<char>(high * 16 + low);
        i += 3;
    }
    return value->find('\0') == std::string::npos;
}

void add_line(const char *key, const std::string &value, std::string *text)
{
    if (!value.empty())
        *text += std::string(key) + ": " + escaped(value) + "\n";
}

void add_block(const char *key, const std::string &bytes, std::string *text)
{
    *text += std::string(key) + ": " + std::to_string(bytes.size()) + "\n" + bytes + "\n";
}

// What is left of a record to read.
struct Cursor {
    const std::string *text;
    std::size_t position;
};

// Reads a line "key: value". False at the end, or if it is not such a line.
bool read_line(Cursor *cursor, std::string *key, std::string *value)
{
    const std::size_t end = cursor->text->find('\n', cursor->position);
    if (end == std::string::npos)
        return false;
    const std::string line = cursor->text->substr(cursor->position, end - cursor->position);
    const std::size_t colon = line.find(": ");
    if (colon == std::string::npos)
        return false;
    *key = line.substr(0, colon);
    *value = line.substr(colon + 2);
    cursor->position = end + 1;
    return true;
}

// Reads the bytes of a block whose size is given, and the line feed after them.
bool read_block(Cursor *cursor, const std::string &size, std::string *bytes)
{
    constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
    const std::int32_t count = ascii_read_digits(size.c_str(), largest);
    const std::size_t left = cursor->text->size() - cursor->position;
    if (count < 0 || static_cast<std::size_t>(count) >= left)
        return false;
    *bytes = cursor->text->substr(cursor->position, static_cast<std::size_t>(count));
    cursor->position += static_cast<std::size_t>(count) + 1;
    return (*cursor->text)[cursor->position - 1] == '\n';
}

std::string *string_of(const std::string &key, Record *record)
{
    if (key == "version")
        return &record->version;
    if (key == "service")
        return &record->service;
    if (key == "proxy")
        return &record->proxy;
    if (key == "proxy-origin")
        return &record->proxy_origin;
    if (key == "status")
        return &record->status;
    if (key == "reason")
        return &record->reason;
    return key == "error" ? &record->error : nullptr;
}

// Reads a number that std::to_string wrote.
bool read_number(const std::string &text, int *number)
{
    std::int64_t value = 0;
    const char *end = ascii_scan_wide_int(text.c_str(), &value);
    *number = nearest_int32(value);
    return end != nullptr && std::to_string(*number) == text;
}

// Reads a line that is not a block's. Unknown keys are skipped, so that a later release can add
// some.
bool read_value(const std::string &key, const std::string &text, Record *record)
{
    std::string value;
    if (!unescape(text, &value))
        return false;
    if (std::string *string = string_of(key, record))
        *string = value;
    else if (key == "note")
        record->notes.push_back(value);
    else if (key == "interrupted")
        record->interrupted = value == "yes";
    else if (key == "exit-status")
        return read_number(value, &record->exit_status);
    else if (key == "http-status")
        return read_number(value, &record->http_status);
    return true;
}

bool read_entry(Cursor *cursor, Record *record)
{
    std::string key;
    std::string value;
    if (!read_line(cursor, &key, &value))
        return false;
    std::string request;
    if (key == "request")
        return read_block(cursor, value, &request);
    if (key == "header") {
        record->has_header = true;
        return read_block(cursor, value, &record->header);
    }
    if (key == "body") {
        record->has_body = true;
        return read_block(cursor, value, &record->body);
    }
    return read_value(key, value, record);
}

bool is_one_of(const std::string &word, std::initializer_list<const char *> words)
{
    return std::find(words.begin(), words.end(), word) != words.end();
}

bool is_reason(const std::string &word)
{
    return failure_named(word) != WebNoFailure || is_one_of(word, {"open", "file"});
}

bool is_signal_status(int status)
{
    return status == 128 + SIGHUP || status == 128 + SIGINT || status == 128 + SIGTERM;
}

// True if status, exit status and reason belong together.
bool is_outcome(const Record &record)
{
    const bool local = is_one_of(record.reason, {"open", "file"});
    const int status = record.exit_status;
    if (record.status == "answered") {
        const bool stated = local ? status == 1 : status == 0 || status == 10 || status == 11;
        return record.has_header && record.has_body && (local || record.reason.empty()) &&
               (stated || is_signal_status(status));
    }
    if (record.status == "cancelled")
        return record.reason == "cancelled" && is_signal_status(status);
    if (record.status == "timeout")
        return record.reason == "timeout" && status == 3;
    return record.status == "failed" && status == 1 && !record.reason.empty() &&
           !is_one_of(record.reason, {"cancelled", "timeout", "open"});
}

// True for what a run can have written.
bool is_complete(const Record &record)
{
    float version = 0;
    if (web_read_product_version(record.version.c_str(), &version) != 0 || record.service.empty())
        return false;
    if (record.proxy.empty() != record.proxy_origin.empty())
        return false;
    if (record.error.empty() != record.reason.empty())
        return false;
    if (!record.reason.empty() && !is_reason(record.reason))
        return false;
    return is_outcome(record);
}

bool read_entries(const std::string &text, Record *record)
{
    if (text.compare(0, sizeof first_line - 1, first_line) != 0)
        return false;
    Cursor cursor = {&text, sizeof first_line - 1};
    while (cursor.position < text.size()) {
        if (!read_entry(&cursor, record))
            return false;
    }
    return is_complete(*record);
}

// True if the final rename can replace what is at the path.
bool can_be_replaced(const std::string &path)
{
    struct stat status = {};
    return lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode);
}

} // namespace

int create_record(const char *path, RecordFile *file, std::string *error)
{
    file->path = path;
    file->temporary_path = file->path + ".XXXXXX";
    file->descriptor = -1;
    if (!can_be_replaced(file->path)) {
        *error = "Can't create '" + file->path + "', it exists and is not a regular file";
        return -1;
    }
    file->descriptor = path[0] != '\0' ? mkstemp(file->temporary_path.data()) : -1;
    if (file->descriptor < 0)
        return system_error("create", file->path, error);
    fcntl(file->descriptor, F_SETFD, FD_CLOEXEC);
    fchmod(file->descriptor, 0600); // whatever the umask
    unfinished_path = file->temporary_path.c_str();
    is_unfinished = 1;
    return 0;
}

int finish_record(RecordFile *file, const std::string &text, std::string *error)
{
    int failed = write_all(file->descriptor, text.data(), text.size());
    const int write_error = errno;
    if (close(file->descriptor) != 0 && failed == 0)
        failed = -1;
    else
        errno = write_error;
    file->descriptor = -1;
    if (failed == 0)
        failed = rename(file->temporary_path.c_str(), file->path.c_str());
    if (failed != 0) {
        system_error("write", file->path, error);
        discard_record();
        return -1;
    }
    is_unfinished = 0;
    return 0;
}

void discard_record()
{
    if (is_unfinished == 0)
        return;
    is_unfinished = 0;
    unlink(unfinished_path);
}

std::string record_text(const RecordContent &content)
{
    const RunOutcome &outcome = content.outcome;
    const RunTarget &target = content.target;
    std::string text = first_line;
    add_line("version", content.version, &text);
    add_line("service", target.service, &text);
    add_line("proxy", target.proxy, &text);
    add_line("proxy-origin", target.proxy.empty() ? "" : target.proxy_origin, &text);
    for (const std::string &note : content.notes)
        add_line("note", note, &text);
    add_line("status", outcome.status, &text);
    add_line("exit-status", std::to_string(outcome.exit_status), &text);
    add_line("interrupted", content.interrupted ? "yes" : "", &text);
    if (outcome.http_status != 0)
        add_line("http-status", std::to_string(outcome.http_status), &text);
    add_line("reason", outcome.reason != nullptr ? outcome.reason : "", &text);
    add_line("error", outcome.error != nullptr ? outcome.error : "", &text);
    add_block("request", content.request, &text);
    if (content.reply.header != nullptr)
        add_block("header", content.reply.header, &text);
    if (content.reply.body != nullptr)
        add_block("body", content.reply.body, &text);
    return text;
}

int read_record(const char *path, Record *record, std::string *error)
{
    std::string text;
    if (read_whole_file(path, &text, error) != 0)
        return -1;
    *record = {};
    record->exit_status = -1;
    record->is_bare_reply = text.compare(0, sizeof first_word - 1, first_word) != 0;
    if (record->is_bare_reply) {
        record->header = text;
        return 0;
    }
    if (read_entries(text, record))
        return 0;
    *error = std::string("The record '") + path + "' is damaged";
    return -1;
}

WebUpdateFailure failure_named(const std::string &name)
{
    for (int failure = WebBadQuery; failure <= WebNotAnUpdate; ++failure) {
        const auto known = static_cast<WebUpdateFailure>(failure);
        if (name == web_update_failure_name(known))
            return known;
    }
    return WebNoFailure;
}

std::string mask_credentials(const std::string &request)
{
    static const char mark[] = "\r\nAuthorization: Basic ";
    const std::size_t found = request.find(mark);
    if (found == std::string::npos)
        return request;
    const std::size_t start = found + sizeof mark - 1;
    return request.substr(0, start) + "***" + request.substr(request.find('\r', start));
}

} // namespace quintral
