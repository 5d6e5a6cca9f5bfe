// The page docs/strings-dates-clocks.md against the routines themselves: every row of its tables is
// an example, which is run, and every routine that the headers declare has one. What the page says
// in a form that can't be read here is a failure, so that nothing on it goes stale unseen.
#include "support/c-utils/transforms.h"
#include "support/clocks.h"
#include "support/dates.h"
#include "support/time-source.h"

#include "tests/harness/captured-output.h"
#include "tests/harness/child-process.h"
#include "tests/harness/each-locale.h"

#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include <sys/time.h>

#include <gtest/gtest.h>

namespace quintral {
namespace {

// Values, as the page writes them and as the routines give them

enum class Kind { Text, Integer, Float, Double, NullPointer, Abort };

struct Value {
    Kind kind = Kind::NullPointer;
    std::string text;
    std::int64_t integer = 0;
    double number = 0; // of a Float too, which it holds exactly
};

using Values = std::vector<Value>;

Value value_of(const std::string &text)
{
    return {Kind::Text, text, 0, 0};
}

Value value_of(std::int64_t integer)
{
    return {Kind::Integer, "", integer, 0};
}

Value value_of(float number)
{
    return {Kind::Float, "", 0, static_cast<double>(number)};
}

Value value_of(double number)
{
    return {Kind::Double, "", 0, number};
}

bool same_number(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b));
}

bool operator==(const Value &a, const Value &b)
{
    return a.kind == b.kind && a.text == b.text && a.integer == b.integer &&
           same_number(a.number, b.number);
}

std::string shown(const Value &value)
{
    char text[40];
    switch (value.kind) {
    case Kind::Text:
        return testing::PrintToString(value.text);
    case Kind::Integer:
        return std::to_string(value.integer);
    case Kind::Float:
        std::snprintf(text, sizeof text, "%.9gf", value.number);
        return text;
    case Kind::Double:
        std::snprintf(text, sizeof text, "%.17g", value.number);
        return text;
    case Kind::NullPointer:
        return "nullptr";
    case Kind::Abort:
        break;
    }
    return "SIGABRT";
}

std::string shown(const Values &values)
{
    std::string list;
    for (const Value &value : values)
        list += (list.empty() ? "" : ", ") + shown(value);
    return list;
}

// Reading values. Each reader takes its part off the front of the cell and returns false, with
// nothing promised about its outputs, where that is not what it reads.

bool take(std::string *cell, const std::string &word)
{
    if (cell->compare(0, word.size(), word) != 0)
        return false;
    cell->erase(0, word.size());
    return true;
}

int digit_value(char c, int base)
{
    const std::string all = "0123456789abcdef";
    const std::size_t value = all.find(c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c);
    return value < static_cast<std::size_t>(base) ? static_cast<int>(value) : -1;
}

// What stands behind the backslash: a letter, or up to three octal digits.
bool take_escape(std::string *cell, char *c)
{
    static const std::string letters = "ntvfr\\\"'", bytes = "\n\t\v\f\r\\\"'";
    if (cell->empty())
        return false;
    const std::size_t letter = letters.find(cell->front());
    if (letter != std::string::npos) {
        *c = bytes[letter];
        cell->erase(0, 1);
        return true;
    }
    int byte = 0, count = 0;
    for (; count < 3 && !cell->empty() && digit_value(cell->front(), 8) >= 0; ++count) {
        byte = byte * 8 + digit_value(cell->front(), 8);
        cell->erase(0, 1);
    }
    *c = static_cast<char>(byte);
    return count > 0 && byte < 256;
}

bool take_text(std::string *cell, Value *value)
{
    *value = value_of(std::string());
    if (!take(cell, "\""))
        return false;
    while (!cell->empty()) {
        if (take(cell, "\""))
            return true;
        char c = cell->front();
        cell->erase(0, 1);
        if (c == '\\' && !take_escape(cell, &c))
            return false;
        value->text += c;
    }
    return false; // no closing quotation mark
}

// std::string(count, 'c')
bool take_repetition(std::string *cell, Value *value)
{
    int count = 0, end = 0;
    char c = 0;
    if (std::sscanf(cell->c_str(), "std::string(%d, '%c')%n", &count, &c, &end) != 2 || end == 0)
        return false;
    *value = value_of(std::string(static_cast<std::size_t>(count), c));
    cell->erase(0, static_cast<std::size_t>(end));
    return true;
}

// A whole word as a decimal or hexadecimal integer.
bool read_integer(std::string word, Value *value)
{
    const bool negative = take(&word, "-");
    const int base = take(&word, "0x") ? 16 : 10;
    constexpr std::size_t most_digits = 15; // of either base: more than any routine here takes
    if (word.empty() || word.size() > most_digits)
        return false;
    std::int64_t integer = 0;
    for (const char c : word) {
        const int digit = digit_value(c, base);
        if (digit < 0)
            return false;
        integer = integer * base + digit;
    }
    *value = value_of(negative ? -integer : integer);
    return true;
}

// A whole word as a number, to its nearest value in Number whatever the locale.
template <typename Number> bool read_number(const std::string &word, Value *value)
{
    std::istringstream stream(word);
    stream.imbue(std::locale::classic());
    Number number = 0;
    stream >> number;
    *value = value_of(number);
    return !stream.fail() && stream.peek() == std::char_traits<char>::eof();
}

bool read_word(const std::string &word, Value *value)
{
    constexpr float infinity = std::numeric_limits<float>::infinity();
    if (word == "nullptr")
        *value = {};
    else if (word == "SIGABRT")
        *value = {Kind::Abort, "", 0, 0};
    else if (word == "NAN")
        *value = value_of(std::numeric_limits<float>::quiet_NaN());
    else if (word == "INFINITY" || word == "-INFINITY")
        *value = value_of(word[0] == '-' ? -infinity : infinity);
    else if (word.find('.') == std::string::npos)
        return read_integer(word, value);
    else if (word.back() == 'f')
        return read_number<float>(word.substr(0, word.size() - 1), value);
    else
        return read_number<double>(word, value);
    return true;
}

bool take_value(std::string *cell, Value *value)
{
    if (cell->compare(0, 1, "\"") == 0)
        return take_text(cell, value);
    if (take_repetition(cell, value))
        return true;
    const std::string word = cell->substr(0, cell->find(','));
    cell->erase(0, word.size());
    return !word.empty() && read_word(word, value);
}

// A cell with values apart by ", " between backquotes.
bool read_values(std::string cell, Values *values)
{
    if (!take(&cell, "`") || cell.empty() || cell.back() != '`')
        return false;
    cell.pop_back();
    do {
        Value value;
        if (!take_value(&cell, &value))
            return false;
        values->push_back(value);
    } while (take(&cell, ", "));
    return cell.empty();
}

// The page

struct Example {
    int line = 0;
    std::string routine;
    Values input;
    Values result;
};

struct Page {
    std::vector<Example> examples;
    std::vector<std::string> problems;
};

std::string trimmed(const std::string &text)
{
    const std::size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos)
        return "";
    return text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

// The cells of a table's line, which begins and ends in '|'.
std::vector<std::string> cells_of(const std::string &line)
{
    std::vector<std::string> cells;
    std::size_t begin = 1;
    for (std::size_t end = line.find('|', 1); end != std::string::npos;
         end = line.find('|', begin)) {
        cells.push_back(trimmed(line.substr(begin, end - begin)));
        begin = end + 1;
    }
    return cells;
}

bool read_routine(const std::string &cell, std::string *routine)
{
    if (cell.size() < 3 || cell.front() != '`' || cell.back() != '`')
        return false;
    *routine = cell.substr(1, cell.size() - 2);
    return true;
}

bool read_example(const std::vector<std::string> &cells, Example *example)
{
    return cells.size() == 4 && read_routine(cells[0], &example->routine) &&
           read_values(cells[1], &example->input) && read_values(cells[2], &example->result);
}

// A row about an epoch is the example that the clock is at 0 then.
bool read_epoch(const std::vector<std::string> &cells, Example *example)
{
    if (cells.size() != 3 || !read_routine(cells[0], &example->routine))
        return false;
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, end = 0;
    std::sscanf(cells[2].c_str(), "%d-%d-%d %d:%d:%d UTC%n", &year, &month, &day, &hour, &minute,
                &second, &end);
    constexpr std::int32_t day_1970 = 2440588;
    const std::int64_t days = date_to_day_number(year, month, day) - day_1970;
    example->input = {value_of(days * 86400 + hour * 3600 + minute * 60 + second),
                      value_of(std::int64_t{0})};
    const bool is_double = cells[1].find("double") != std::string::npos;
    example->result = {is_double ? value_of(0.0) : value_of(std::int64_t{0})};
    return end > 0 && static_cast<std::size_t>(end) == cells[2].size();
}

using RowReader = bool (*)(const std::vector<std::string> &cells, Example *example);

const char example_header[] = "| routine | input | result | what surprises |";
const char epoch_header[] = "| routine | unit | counts from |";

RowReader reader_of_table(const std::string &header)
{
    if (header == example_header)
        return read_example;
    return header == epoch_header ? read_epoch : nullptr;
}

bool is_rule(const std::string &line)
{
    return line.find_first_not_of("|-") == std::string::npos;
}

void add_problem(Page *page, int line, const std::string &text)
{
    page->problems.push_back("line " + std::to_string(line) + ": " + text);
}

// Every line that begins in '|' belongs to a table, and every line of a table is its header, the
// rule below that, or an example.
Page read_page(std::istream &stream)
{
    Page page;
    std::string line;
    RowReader reader = nullptr;
    bool in_table = false;
    for (int number = 1; std::getline(stream, line); ++number) {
        const bool begins = !in_table;
        in_table = line.compare(0, 1, "|") == 0;
        const std::size_t start = line.find_first_not_of(" \t>");
        if (start != 0 && start != std::string::npos && line[start] == '|')
            add_problem(&page, number, "a table must not be indented: " + line);
        if (!in_table || (is_rule(line) && !begins))
            continue;
        Example example;
        example.line = number;
        if (begins) {
            reader = reader_of_table(line);
            if (reader == nullptr)
                add_problem(&page, number, "no table that can be read: " + line);
        } else if (reader != nullptr && reader(cells_of(line), &example)) {
            page.examples.push_back(example);
        } else {
            add_problem(&page, number, "can't be read: " + line);
        }
    }
    return page;
}

Page the_page()
{
    std::ifstream stream(QUINTRAL_DOCS_PAGE);
    EXPECT_TRUE(stream.is_open()) << QUINTRAL_DOCS_PAGE;
    return read_page(stream);
}

// Running the routines. Each runner gets input of the kinds that its row of the table tells, and
// gives back what the routine returned and wrote, as the page shows it.

// The room for a result; every routine here needs far less.
std::vector<char> room(const Values &input)
{
    std::size_t size = 64;
    for (const Value &value : input)
        size += 8 * value.text.size();
    return std::vector<char>(size, '#');
}

const char *text_of(const Value &value)
{
    return value.text.c_str();
}

std::int32_t int_of(const Value &value)
{
    return static_cast<std::int32_t>(value.integer);
}

float float_of(const Value &value)
{
    return static_cast<float>(value.number);
}

template <char *(*copy)(const char *source, char *destination)> Values run_copy(const Values &input)
{
    std::vector<char> destination = room(input);
    EXPECT_EQ(static_cast<void *>(copy(text_of(input[0]), destination.data())),
              static_cast<void *>(destination.data()))
        << "the result is the destination";
    return {value_of(std::string(destination.data()))};
}

Values run_copy_lower_case(const Values &input)
{
    std::vector<char> destination = room(input);
    const int returned = copy_lower_case(text_of(input[0]), destination.data());
    return {value_of(std::int64_t{returned}), value_of(std::string(destination.data()))};
}

// What was written is shown up to the room that was not.
Values run_copy_length_prefixed(const Values &input)
{
    std::vector<char> destination = room(input);
    if (static_cast<unsigned char>(text_of(input[0])[0]) >= input[0].text.size())
        return {}; // the source is too short
    copy_length_prefixed(destination.data(), text_of(input[0]));
    const std::string all(destination.begin(), destination.end());
    return {value_of(all.substr(0, all.find('#')))};
}

Values run_normalise_spaces(const Values &input)
{
    std::string text = input[0].text;
    normalise_spaces(text.data());
    return {value_of(std::string(text.c_str()))};
}

Values run_insert(const Values &input)
{
    std::vector<char> into = room(input);
    std::snprintf(into.data(), into.size(), "%s", text_of(input[1]));
    std::int32_t returned = 0;
    const std::string printed = tests::captured_output([&] {
        returned = insert_string_into_string(text_of(input[0]), into.data(), int_of(input[2]));
    });
    return {value_of(std::int64_t{returned}), value_of(std::string(into.data())),
            value_of(printed)};
}

Values run_replace_all(const Values &input)
{
    std::vector<char> destination = room(input);
    replace_all(text_of(input[0]), text_of(input[1]), text_of(input[2]), destination.data());
    return {value_of(std::string(destination.data()))};
}

Values run_nth_word(const Values &input)
{
    std::vector<char> destination = room(input);
    const std::int32_t offset = nth_word(text_of(input[0]), int_of(input[1]), destination.data());
    return {value_of(std::int64_t{offset}), value_of(std::string(destination.data()))};
}

Values run_word_length(const Values &input)
{
    return {value_of(static_cast<std::int64_t>(word_length(text_of(input[0]))))};
}

Values run_find_ignoring_case(const Values &input)
{
    const char *found = find_ignoring_case(text_of(input[0]), text_of(input[1]));
    return {found == nullptr ? Value{} : value_of(std::string(found))};
}

Values run_compare_words(const Values &input)
{
    return {value_of(std::int64_t{compare_words(text_of(input[0]), text_of(input[1]))})};
}

Values run_looks_like_email(const Values &input)
{
    return {value_of(std::int64_t{looks_like_email(text_of(input[0]))})};
}

Values run_parse_float(const Values &input)
{
    float number = -77.25F;
    const int returned = parse_float(text_of(input[0]), &number);
    if (returned == 0 && number == -77.25F) // untouched
        return {value_of(std::int64_t{0})};
    return {value_of(std::int64_t{returned}), value_of(number)};
}

Values run_pack_rgb(const Values &input)
{
    return {value_of(
        std::int64_t{pack_rgb(float_of(input[0]), float_of(input[1]), float_of(input[2]))})};
}

Values run_unpack_rgb(const Values &input)
{
    float red = -1, green = -1, blue = -1;
    unpack_rgb(static_cast<std::uint32_t>(input[0].integer), &red, &green, &blue);
    return {value_of(red), value_of(green), value_of(blue)};
}

Values run_map_clamped(const Values &input)
{
    return {value_of(map_clamped(float_of(input[0]), float_of(input[1]), float_of(input[2]),
                                 float_of(input[3]), float_of(input[4])))};
}

// Dates and clocks, with the time frozen

std::vector<std::int64_t> frozen_times; // what the next looks at the time see; the last one stays
timeval frozen_time_of_day;
std::vector<timespec> sleeps;

std::time_t next_frozen_time()
{
    const std::int64_t now = frozen_times.front();
    if (frozen_times.size() > 1)
        frozen_times.erase(frozen_times.begin());
    return static_cast<std::time_t>(now);
}

timeval time_of_day_frozen()
{
    return frozen_time_of_day;
}

int record_sleep(const timespec *request)
{
    sleeps.push_back(*request);
    return 0;
}

class FrozenTime {
public:
    FrozenTime()
    {
        time_source = {next_frozen_time, time_of_day_frozen, record_sleep};
        sleeps.clear();
    }

    ~FrozenTime()
    {
        time_source = old_;
    }

    FrozenTime(const FrozenTime &) = delete;
    FrozenTime &operator=(const FrozenTime &) = delete;

private:
    TimeSource old_ = time_source;
};

void freeze_time_of_day(const Values &input)
{
    frozen_time_of_day.tv_sec = static_cast<decltype(timeval::tv_sec)>(input[0].integer);
    frozen_time_of_day.tv_usec = static_cast<decltype(timeval::tv_usec)>(input[1].integer);
}

Values run_month_names(const Values &input)
{
    if (input[0].integer < 0 || input[0].integer > 12)
        return {};
    return {value_of(std::string(month_names[input[0].integer]))};
}

Values run_date_to_day_number(const Values &input)
{
    return {value_of(
        std::int64_t{date_to_day_number(int_of(input[0]), int_of(input[1]), int_of(input[2]))})};
}

Values run_day_number_to_date(const Values &input)
{
    std::int32_t year = 0, month = 0, day = 0;
    day_number_to_date(int_of(input[0]), &year, &month, &day);
    return {value_of(std::int64_t{year}), value_of(std::int64_t{month}),
            value_of(std::int64_t{day})};
}

Values run_today_day_number(const Values &input)
{
    const FrozenTime frozen;
    setenv("TZ", text_of(input[0]), 1);
    frozen_times = {input[1].integer};
    const std::int32_t today = today_day_number();
    unsetenv("TZ");
    return {value_of(std::int64_t{today})};
}

template <char *(*format)(std::int32_t day_number, char *buffer)>
Values run_format_date(const Values &input)
{
    char buffer[date_text_size];
    EXPECT_EQ(static_cast<void *>(format(int_of(input[0]), buffer)), static_cast<void *>(buffer))
        << "the result is the buffer";
    return {value_of(std::string(buffer))};
}

Values run_parse_date_compact(const Values &input)
{
    std::int32_t day_number = -77;
    const int returned = parse_date_compact(text_of(input[0]), &day_number);
    if (returned < 0 && day_number == -77) // untouched
        return {value_of(std::int64_t{returned})};
    return {value_of(std::int64_t{returned}), value_of(std::int64_t{day_number})};
}

Values run_month_from_name(const Values &input)
{
    std::string text = input[0].text;
    const int month = month_from_name(text.data());
    return {value_of(std::int64_t{month}), value_of(text)};
}

Values run_clock_seconds(const Values &input)
{
    const FrozenTime frozen;
    freeze_time_of_day(input);
    return {value_of(clock_seconds())};
}

Values run_clock_stamp(const Values &input)
{
    const FrozenTime frozen;
    freeze_time_of_day(input);
    return {value_of(std::int64_t{clock_stamp()})};
}

Values run_clock_last_stamp(const Values &input)
{
    clock_last_stamp = -77;
    run_clock_stamp(input);
    return {value_of(clock_last_stamp)};
}

Values run_clock_milliseconds(const Values &input)
{
    const FrozenTime frozen;
    freeze_time_of_day(input);
    return {value_of(std::int64_t{clock_milliseconds()})};
}

Values run_sleep_seconds(const Values &input)
{
    const FrozenTime frozen;
    Values result = {value_of(std::int64_t{sleep_seconds(float_of(input[0]))})};
    for (const timespec &sleep : sleeps) {
        result.push_back(value_of(static_cast<std::int64_t>(sleep.tv_sec)));
        result.push_back(value_of(static_cast<std::int64_t>(sleep.tv_nsec)));
    }
    return result;
}

Values run_wait_seconds(const Values &input)
{
    const FrozenTime frozen;
    frozen_times = {input[1].integer, input[2].integer, input[3].integer};
    const std::time_t now = wait_seconds(static_cast<std::uint32_t>(input[0].integer));
    return {value_of(static_cast<std::int64_t>(now))};
}

struct Runner {
    const char *routine;
    const char *kinds; // of the input, a letter for each: text, integer, float
    Values (*run)(const Values &input);
};

const Runner runners[] = {
    {"copy_length_prefixed", "t", run_copy_length_prefixed},
    {"url_escape", "t", run_copy<url_escape>},
    {"copy_lower_case", "t", run_copy_lower_case},
    {"copy_upper_case", "t", run_copy<copy_upper_case>},
    {"copy_without_spaces_and_underscores", "t", run_copy<copy_without_spaces_and_underscores>},
    {"copy_without_full_stops", "t", run_copy<copy_without_full_stops>},
    {"copy_without_spaces", "t", run_copy<copy_without_spaces>},
    {"line_breaks_to_spaces", "t", run_copy<line_breaks_to_spaces>},
    {"collapse_spaces", "t", run_copy<collapse_spaces>},
    {"underscores_to_spaces", "t", run_copy<underscores_to_spaces>},
    {"spaces_to_underscores", "t", run_copy<spaces_to_underscores>},
    {"double_percents", "t", run_copy<double_percents>},
    {"snake_to_camel", "t", run_copy<snake_to_camel>},
    {"copy_identifier_chars", "t", run_copy<copy_identifier_chars>},
    {"cut_at_word_break", "t", run_copy<cut_at_word_break>},
    {"normalise_spaces", "t", run_normalise_spaces},
    {"insert_string_into_string", "tti", run_insert},
    {"replace_all", "ttt", run_replace_all},
    {"nth_word", "ti", run_nth_word},
    {"word_length", "t", run_word_length},
    {"find_ignoring_case", "tt", run_find_ignoring_case},
    {"compare_words", "tt", run_compare_words},
    {"looks_like_email", "t", run_looks_like_email},
    {"parse_float", "t", run_parse_float},
    {"pack_rgb", "fff", run_pack_rgb},
    {"unpack_rgb", "i", run_unpack_rgb},
    {"map_clamped", "fffff", run_map_clamped},
    {"month_names", "i", run_month_names},
    {"date_to_day_number", "iii", run_date_to_day_number},
    {"day_number_to_date", "i", run_day_number_to_date},
    {"today_day_number", "ti", run_today_day_number},
    {"format_date_long", "i", run_format_date<format_date_long>},
    {"format_date_compact", "i", run_format_date<format_date_compact>},
    {"parse_date_compact", "t", run_parse_date_compact},
    {"month_from_name", "t", run_month_from_name},
    {"clock_seconds", "ii", run_clock_seconds},
    {"clock_stamp", "ii", run_clock_stamp},
    {"clock_last_stamp", "ii", run_clock_last_stamp},
    {"clock_milliseconds", "ii", run_clock_milliseconds},
    {"sleep_seconds", "f", run_sleep_seconds},
    {"wait_seconds", "iiii", run_wait_seconds},
};

std::string kinds_of(const Values &values)
{
    std::string kinds;
    for (const Value &value : values)
        kinds += value.kind == Kind::Text      ? 't'
                 : value.kind == Kind::Integer ? 'i'
                 : value.kind == Kind::Float   ? 'f'
                                               : '?';
    return kinds;
}

bool is_an_abort(const Values &result)
{
    return result.size() == 1 && result[0].kind == Kind::Abort;
}

// In a child, since the program is expected not to come back.
Values run_until_abort(const Runner &runner, const Values &input)
{
    const tests::ChildResult child = tests::run_child_function([&] {
        runner.run(input);
        return 0;
    });
    return child.signal == SIGABRT ? Values{{Kind::Abort, "", 0, 0}} : Values{};
}

// What is wrong with an example; empty when it holds.
std::string problem_of(const Example &example)
{
    const std::string call = example.routine + "(" + shown(example.input) + ")";
    for (const Runner &runner : runners) {
        if (example.routine != runner.routine)
            continue;
        if (kinds_of(example.input) != runner.kinds)
            return call + " has not the arguments that the routine takes";
        const Values result = is_an_abort(example.result) ? run_until_abort(runner, example.input)
                                                          : runner.run(example.input);
        if (result == example.result)
            return "";
        return call + " gives " + shown(result) + " and not " + shown(example.result);
    }
    return call + " is of no routine that this test can run";
}

class DocsPage : public tests::InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, DocsPage, tests::each_locale(), tests::locale_label);

TEST_P(DocsPage, EveryRowOfItsTablesCanBeReadAndHolds)
{
    const Page page = the_page();
    ASSERT_FALSE(page.examples.empty());
    for (const std::string &problem : page.problems)
        ADD_FAILURE() << problem;
    for (const Example &example : page.examples)
        EXPECT_EQ(problem_of(example), "") << "line " << example.line;
}

// The names that a header declares

std::string without_comments(std::istream &stream)
{
    std::string text, line;
    while (std::getline(stream, line)) {
        if (line.compare(0, 1, "#") != 0)
            text += line.substr(0, line.find("//")) + '\n';
    }
    return text;
}

// The last word of a declaration's beginning.
std::string last_word(const std::string &text)
{
    const std::string letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
    const std::size_t end = text.find_last_of(letters);
    if (end == std::string::npos)
        return "";
    const std::size_t begin = text.find_last_not_of(letters, end);
    return text.substr(begin + 1, end - begin);
}

// Of functions, and of variables declared extern.
std::vector<std::string> declared_names(std::istream &header)
{
    std::vector<std::string> names;
    std::istringstream declarations(without_comments(header));
    std::string declaration;
    while (std::getline(declarations, declaration, ';')) {
        declaration.erase(0, declaration.find_last_of("{}") + 1);
        const std::size_t end = declaration.find_first_of("([");
        if (end != std::string::npos || declaration.find("extern ") != std::string::npos)
            names.push_back(last_word(declaration.substr(0, end)));
    }
    return names;
}

bool has_example(const Page &page, const std::string &routine)
{
    for (const Example &example : page.examples) {
        if (example.routine == routine)
            return true;
    }
    return false;
}

TEST(DocsPage, EveryRoutineThatTheHeadersDeclareHasARow)
{
    const Page page = the_page();
    for (const char *header :
         {"support/c-utils/transforms.h", "support/dates.h", "support/clocks.h"}) {
        std::ifstream stream(std::string(QUINTRAL_SOURCE_DIR) + "/" + header);
        const std::vector<std::string> names = declared_names(stream);
        EXPECT_FALSE(names.empty()) << header;
        for (const std::string &name : names)
            EXPECT_TRUE(has_example(page, name)) << name << " of " << header;
    }
}

// This test's own reading: it must not take anything for right that is not.

TEST(DocsReading, NamesOfFunctionsAndOfExternVariablesAreFound)
{
    std::istringstream header("// comment(with) a name;\n"
                              "#define MACRO(x) x;\n"
                              "namespace quintral {\n"
                              "extern const char *const table[13]; // comment(too);\n"
                              "extern double stamp;\n"
                              "constexpr std::size_t size = 24;\n"
                              "char *copy(const char *source,\n"
                              "           char *destination);\n"
                              "std::int32_t count();\n"
                              "} // namespace quintral\n");
    const std::vector<std::string> expected = {"table", "stamp", "copy", "count"};
    EXPECT_EQ(declared_names(header), expected);
}

struct ValueRow {
    const char *cell;
    Values expected;
};

TEST(DocsReading, ValuesAreReadAsCReadsThem)
{
    const ValueRow rows[] = {
        {"`\"\"`", {value_of(std::string())}},
        {"`\"a, b\", 5`", {value_of(std::string("a, b")), value_of(std::int64_t{5})}},
        {R"(`"\n\t\v\f\r\\\"\'"`)", {value_of(std::string("\n\t\v\f\r\\\"'"))}},
        {R"(`"\3\03\0034\351"`)", {value_of(std::string("\3\03\0034\351"))}},
        {"`0`", {value_of(std::int64_t{0})}},
        {"`-2147483648`", {value_of(std::int64_t{-2147483647} - 1)}},
        {"`0xFF8000`", {value_of(std::int64_t{16744448})}},
        {"`1.5f, 1.5`", {value_of(1.5F), value_of(1.5)}},
        {"`0.1f`", {value_of(0.1F)}},
        {"`-0.0f`", {value_of(-0.0F)}},
        {"`NAN`", {value_of(std::nanf(""))}},
        {"`-INFINITY`", {value_of(-std::numeric_limits<float>::infinity())}},
        {"`nullptr`", {Value{}}},
        {"`std::string(3, 'x')`", {value_of(std::string("xxx"))}},
    };
    for (const ValueRow &row : rows) {
        Values values;
        EXPECT_TRUE(read_values(row.cell, &values)) << row.cell;
        EXPECT_EQ(shown(values), shown(row.expected)) << row.cell;
        EXPECT_TRUE(values == row.expected) << row.cell;
    }
}

TEST(DocsReading, CellsThatHoldAnythingElseAreNot)
{
    for (const char *cell : {
             "",
             "5",
             "``",
             "`",
             "`5",
             "5`",
             "`\"a`",
             "`\"a\\\"`",
             "`\"\\q\"`",
             "`\"\\400\"`",
             "`\"a\"b`",
             "`\"a\" \"b\"`",
             "`5,6`",
             "`5, `",
             "`, 5`",
             "`5 6`",
             "`5x`",
             "`0x`",
             "`-`",
             "`0xG`",
             "`1.5g`",
             "`1.5ff`",
             "`1.2.3`",
             "`.`",
             "`five`",
             "`99999999999999999999`",
             "`std::string(3)`",
             "`std::string(3, 'x'`",
         }) {
        Values values;
        EXPECT_FALSE(read_values(cell, &values)) << cell;
    }
}

struct PageRow {
    std::string page;
    std::size_t examples;
    std::size_t problems;
};

TEST(DocsReading, LinesOfTablesAreExamplesOrProblems)
{
    const std::string begin = std::string(example_header) + "\n|---|---|---|---|\n";
    const std::string epochs = std::string(epoch_header) + "\n|---|---|---|\n";
    const PageRow rows[] = {
        {"prose `5`\n\n", 0, 0},
        {begin, 0, 0},
        {begin + "| `word_length` | `\"a\"` | `1` | |\n", 1, 0},
        {begin + "| `word_length` | `\"a\"` | `1` | text |\n| `x` | `1` | `2` | |\n", 2, 0},
        {begin + "| `word_length` | `\"a\"` | `1` |\n", 0, 1},
        {begin + "| `word_length` | `\"a\"` | `1` | | |\n", 0, 1},
        {begin + "| word_length | `\"a\"` | `1` | |\n", 0, 1},
        {begin + "| `word_length` | `a` | `1` | |\n", 0, 1},
        {begin + "| `word_length` | `\"a\"` | 1 | |\n", 0, 1},
        {begin + "| `word_length` | `\"a\"` | | |\n", 0, 1},
        {"| routine | input |\n|---|---|\n| `word_length` | `\"a\"` |\n", 0, 2},
        {begin + "\n| `word_length` | `\"a\"` | `1` | |\n", 0, 1},
        {"|---|---|---|---|\n", 0, 1},
        {begin + " | `word_length` | `\"a\"` | `1` | |\n", 0, 1},
        {"  " + begin + "> | `word_length` | `\"a\"` | `9` | |\n", 0, 3},
        {"a | b\n", 0, 0},
        {epochs + "| `clock_stamp` | seconds | 1997-01-01 00:00:00 UTC |\n", 1, 0},
        {epochs + "| `clock_stamp` | seconds | 1997-01-01 |\n", 0, 1},
        {epochs + "| `clock_stamp` | seconds | 1997-01-01 00:00:00 UTC+1 |\n", 0, 1},
    };
    for (const PageRow &row : rows) {
        std::istringstream stream(row.page);
        const Page page = read_page(stream);
        EXPECT_EQ(page.examples.size(), row.examples) << row.page;
        EXPECT_EQ(page.problems.size(), row.problems) << row.page;
    }
}

struct ExampleRow {
    const char *line;
    const char *problem;
};

TEST(DocsReading, ExamplesThatDoNotHoldAreProblems)
{
    const ExampleRow rows[] = {
        {"| `word_length` | `\"ab\"` | `2` | |", ""},
        {"| `word_length` | `\"ab\"` | `3` | |", "word_length(\"ab\") gives 2 and not 3"},
        {"| `word_length` | `\"ab\"` | `2, 2` | |", "word_length(\"ab\") gives 2 and not 2, 2"},
        {"| `word_length` | `\"ab\"` | `2.0f` | |", "word_length(\"ab\") gives 2 and not 2f"},
        {"| `word_length` | `\"ab\"` | `SIGABRT` | |",
         "word_length(\"ab\") gives  and not SIGABRT"},
        {"| `word_length` | `5` | `2` | |",
         "word_length(5) has not the arguments that the routine takes"},
        {"| `strlen` | `\"ab\"` | `2` | |",
         "strlen(\"ab\") is of no routine that this test can run"},
        {"| `parse_float` | `\"-0\"` | `1, 0.0f` | |",
         "parse_float(\"-0\") gives 1, -0f and not 1, 0f"},
        {"| `parse_float` | `\"0.9\"` | `1, 0.9f` | |",
         "parse_float(\"0.9\") gives 1, 0.900000036f and not 1, 0.899999976f"},
        {"| `copy_length_prefixed` | `\"2a\"` | `\"2a\"` | |",
         "copy_length_prefixed(\"2a\") gives  and not \"2a\""},
    };
    for (const ExampleRow &row : rows) {
        Example example;
        ASSERT_TRUE(read_example(cells_of(row.line), &example)) << row.line;
        EXPECT_EQ(problem_of(example), row.problem);
    }
}

} // namespace
} // namespace quintral
