#include "support/error.h"

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

#include "support/time-source.h"

namespace quintral {

namespace {

constexpr std::size_t message_size = 1024;
constexpr std::size_t log_line_size = 4096;
constexpr std::size_t assertion_text_size = 4096;
constexpr std::size_t output_size = 65536;

// Bytes that format_message reserves beside the body: the longest level name, ": ", BEL and the
// terminator need 15 of them.
constexpr int line_reserve = 20;

// Deliberately one less than format_message allows in message_size bytes: existing captured output
// was cut here.
constexpr int handler_body_limit = 1003;

// Together they fill a log line. A date has 24 characters up to the year 9999, and at most 31.
constexpr std::size_t log_date_limit = 36;
constexpr std::size_t log_body_limit = 4056;
constexpr std::string_view date_end = ": ";
static_assert(log_date_limit + date_end.size() + log_body_limit + sizeof "\n" == log_line_size);

// A longer pause ends a burst of messages, for a log attached to the hook.
constexpr double burst_pause_seconds = 60.0;

// What a message line has before and after its text.
struct LineFrame {
    std::string_view before;
    std::string_view after;
};

// Indexed by the level.
constexpr LineFrame line_frames[] = {
    {"Log: ", ""},           // Log
    {"", ""},                // Plain
    {"Info: ", ""},          // Info
    {"Note: ", ""},          // Note
    {"Info: ", "\a"},        // InfoBell
    {"Note: ", "\a"},        // NoteBell
    {"\a", ""},              // PlainBell
    {"Alert: ", "\a"},       // Alert
    {"Warning: ", "\a"},     // Warning
    {"Error: ", "\a"},       // Error
    {"Fatal Error: ", "\a"}, // FatalError
};

// Never null: the setters turn null into the default.
MessageHandler message_handler = default_message_handler;
PrintHandler print_handler = default_print_handler;
LogHandler log_handler = nullptr;

// Unsigned, so that overflow is defined.
std::uint32_t reported_messages = 0;

double last_log_time = 0.0;
std::uint32_t burst_messages = 0;

std::FILE *stream_of_output = nullptr;
int output_indent = 0;

MessageLevel shown_level(MessageLevel level)
{
    return level < Log || level > FatalError ? Warning : level;
}

// Returns the length of a text without its trailing newlines and `other` characters, at most limit.
std::size_t body_length(const char *text, char other, std::size_t limit)
{
    std::size_t length = std::strlen(text);
    while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == other))
        --length;
    return std::min(length, limit);
}

// Appends what fits of the bytes to the `used` bytes in out, up to `limit`. Returns the new number
// of bytes.
std::size_t append(char *out, std::size_t used, std::size_t limit, std::string_view bytes)
{
    const std::size_t added = std::min(bytes.size(), limit - used);
    std::memcpy(out + used, bytes.data(), added);
    return used + added;
}

// Builds the line of a message. Requires: out_size is above 0.
int build_line(MessageLevel level, const char *text, int body_limit, char *out, int out_size)
{
    const LineFrame &frame = line_frames[shown_level(level)];
    const std::size_t length = body_length(text, '\n', static_cast<std::size_t>(body_limit));
    const std::size_t limit = static_cast<std::size_t>(out_size) - 1;
    std::size_t used = append(out, 0, limit, frame.before);
    used = append(out, used, limit, {text, length});
    used = append(out, used, limit, frame.after);
    out[used] = '\0';
    return static_cast<int>(used);
}

// Formats a time as ctime does, without its newline; an empty string for a year that does not fit
// an int. Not ctime: its buffer is shared, and the caller may be using its content. Not ctime_r: it
// rejects years from 10000 on.
void format_date(std::time_t moment, char *out, std::size_t size)
{
    static const char days[][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char months[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    std::tm parts = {};
    out[0] = '\0';
    if (localtime_r(&moment, &parts) == nullptr)
        return;
    std::snprintf(out, size, "%s %s%3d %.2d:%.2d:%.2d %lld", days[parts.tm_wday],
                  months[parts.tm_mon], parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  1900LL + parts.tm_year);
}

// Returns the length of the date that format_date gives. A time whose UTC year is 1971 to 9986 has
// a four-digit year in every time zone, so the zone need not be read.
std::size_t date_length(std::time_t moment)
{
    constexpr std::size_t common_length = 24;
    constexpr long long first_common = 365LL * 86400; // 1971
    constexpr long long last_common = 253000000000LL; // 9987
    const auto seconds = static_cast<long long>(moment);
    if (seconds >= first_common && seconds <= last_common)
        return common_length;
    char date[log_date_limit + 1];
    format_date(moment, date, sizeof date);
    return std::strlen(date);
}

// Counts one more message of a burst. Returns the time.
std::time_t count_in_burst()
{
    const std::time_t now = time_source.time();
    if (static_cast<double>(now) - last_log_time > burst_pause_seconds)
        burst_messages = 0;
    last_log_time = static_cast<double>(now);
    ++burst_messages;
    return now;
}

std::size_t log_body_length(const char *text)
{
    return body_length(text, '\r', log_body_limit);
}

// Composes the log line and passes it to the log handler. Returns its length without the newline.
std::size_t send_log_line(std::time_t moment, const char *text)
{
    constexpr std::size_t limit = log_line_size - sizeof "\n";
    char line[log_line_size];
    format_date(moment, line, log_date_limit + 1);
    std::size_t used = append(line, std::strlen(line), limit, date_end);
    used = append(line, used, limit, {text, log_body_length(text)});
    line[used] = '\n';
    line[used + 1] = '\0';
    log_handler(line);
    return used;
}

// log_message without its result: a text that nobody gets is not even measured.
void pass_to_log(const char *text)
{
    const std::time_t now = count_in_burst();
    if (log_handler != nullptr)
        send_log_line(now, text);
}

// Formats into out, which is left empty if the C library fails.
QUINTRAL_PRINTF(3, 0)
void format_or_empty(char *out, std::size_t size, const char *format, std::va_list arguments)
{
    if (std::vsnprintf(out, size, format, arguments) < 0)
        out[0] = '\0';
}

// Collects output before it is written: the stream may be unbuffered, as standard error is.
struct OutputPiece {
    std::FILE *stream;
    std::size_t used;
    char bytes[output_size];
};

void write_piece(OutputPiece *piece)
{
    std::fwrite(piece->bytes, 1, piece->used, piece->stream);
    piece->used = 0;
}

// Reserves at least one and at most `wanted` bytes, after writing the piece if it is full. Returns
// their start, with their number in *reserved.
char *reserve_bytes(OutputPiece *piece, std::size_t wanted, std::size_t *reserved)
{
    if (piece->used == sizeof piece->bytes)
        write_piece(piece);
    char *start = piece->bytes + piece->used;
    *reserved = std::min(wanted, sizeof piece->bytes - piece->used);
    piece->used += *reserved;
    return start;
}

void add_periods(OutputPiece *piece, std::size_t count)
{
    std::size_t added = 0;
    for (; count > 0; count -= added) {
        char *start = reserve_bytes(piece, count, &added);
        std::memset(start, '.', added);
    }
}

void add_text(OutputPiece *piece, const char *text, std::size_t length)
{
    std::size_t added = 0;
    for (; length > 0; length -= added, text += added) {
        char *start = reserve_bytes(piece, length, &added);
        std::memcpy(start, text, added);
    }
}

// Returns the length of the first line of a text that is not empty, including its newline.
std::size_t first_line_length(const char *text)
{
    const char *end = std::strchr(text, '\n');
    return end == nullptr ? std::strlen(text) : static_cast<std::size_t>(end - text) + 1;
}

// Expands and writes piece by piece: 64 KiB of newlines at a deep indent expand to gigabytes.
void write_indented(const char *text, std::size_t indent, std::FILE *stream)
{
    OutputPiece piece;
    piece.stream = stream;
    piece.used = 0;
    add_periods(&piece, indent); // before an empty text too
    while (*text != '\0') {
        const std::size_t length = first_line_length(text);
        add_text(&piece, text, length);
        text += length;
        if (*text != '\0')
            add_periods(&piece, indent);
    }
    write_piece(&piece);
}

} // namespace

int format_message(MessageLevel level, const char *text, char *out, int out_size)
{
    if (out_size <= 0)
        return 0;
    return build_line(level, text, std::max(out_size - line_reserve, 0), out, out_size);
}

void report_message(MessageLevel level, const char *format, ...)
{
    const MessageLevel reported = shown_level(level);
    char text[message_size];
    std::va_list arguments;
    va_start(arguments, format);
    format_or_empty(text, sizeof text, format, arguments);
    va_end(arguments);

    pass_to_log(text);
    if (reported > Log)
        message_handler(reported, text);
    ++reported_messages;
}

void default_message_handler(MessageLevel level, const char *text)
{
    char line[message_size];
    const int length = build_line(level, text, handler_body_limit, line, sizeof line);
    line[length] = '\n'; // for one write to the unbuffered stream; the string is not used again
    std::fwrite(line, 1, static_cast<std::size_t>(length) + 1, stderr);
    std::fflush(stderr);
    if (level == FatalError)
        std::exit(1);
}

void test_message_handler(MessageLevel level, const char *text)
{
    char line[message_size];
    build_line(level, text, handler_body_limit, line, sizeof line);
    std::printf("QUINTRALTEST%s\nENDQUINTRALTEST\n", line);
    std::fflush(stdout);
}

MessageHandler set_message_handler(MessageHandler handler)
{
    const MessageHandler previous = message_handler;
    message_handler = handler == nullptr ? default_message_handler : handler;
    return previous;
}

void print_text(const char *text, const char *tag)
{
    if (text[0] == '\0')
        return;
    pass_to_log(text);
    print_handler(text, tag);
}

void default_print_handler(const char *text, const char * /*tag*/)
{
    std::fputs(text, stderr);
}

void test_print_handler(const char *text, const char *tag)
{
    std::printf("QUINTRALTEST%s: %s\nENDQUINTRALTEST\n", tag, text);
    std::fflush(stdout);
}

PrintHandler set_print_handler(PrintHandler handler)
{
    const PrintHandler previous = print_handler;
    print_handler = handler == nullptr ? default_print_handler : handler;
    return previous;
}

std::int32_t message_count()
{
    return static_cast<std::int32_t>(reported_messages);
}

int log_message(const char *text)
{
    const std::time_t now = count_in_burst();
    const std::size_t length = log_handler != nullptr
                                   ? send_log_line(now, text)
                                   : date_length(now) + date_end.size() + log_body_length(text);
    return static_cast<int>(length);
}

LogHandler set_log_handler(LogHandler handler)
{
    const LogHandler previous = log_handler;
    log_handler = handler;
    return previous;
}

int output_printf(const char *format, ...)
{
    char text[output_size];
    text[0] = '\0';
    const int limit = static_cast<int>(output_size) - 1 - output_indent;
    std::va_list arguments;
    va_start(arguments, format);
    if (limit > 0)
        format_or_empty(text, static_cast<std::size_t>(limit), format, arguments);
    va_end(arguments);

    if (stream_of_output == nullptr)
        stream_of_output = stderr;
    write_indented(text, static_cast<std::size_t>(output_indent), stream_of_output);
    return std::fflush(stream_of_output);
}

void set_output_stream(std::FILE *stream)
{
    stream_of_output = stream == nullptr ? stderr : stream;
}

std::FILE *output_stream()
{
    return stream_of_output;
}

void set_output_indent(int n)
{
    output_indent = std::max(n, 0);
}

QuintralAbortException::QuintralAbortException(const char *source_file, std::int32_t source_line,
                                               std::int32_t abort_code)
    : file(source_file), line(source_line), code(abort_code), reserved(0)
{
}

// Deliberately not inline: one definition in the library, shared by plug-ins and host.
QuintralAbortException::~QuintralAbortException()
{
}

void throw_abort(int code, const char *file, int line)
{
    throw QuintralAbortException(file, line, code);
}

void report_assertion_failure(const char *expression, const char *file, int line)
{
    char text[assertion_text_size];
    std::snprintf(text, sizeof text, "%s:%d: assertion failed: %s", file, line, expression);
    pass_to_log(text); // to the log only: a source location does not help the user
    report_message(
        Error, "A Quintral internal error has occurred. Please save your work soon and restart.\n");
    throw_abort(5, "support/error", 419);
}

} // namespace quintral
