// The examples of docs/strings-dates-clocks.md. The build turns each row of the page into an
// EXAMPLE macro (examples-of-page.sed). It calls the show_ function of its routine below, which
// returns the result as a string such as `0, "hello world"`.
#include "support/c-utils/transforms.h"
#include "support/clocks.h"
#include "support/dates.h"
#include "support/time-source.h"

#include "tests/harness/each-locale.h"
#include "tests/harness/exact-buffer.h"
#include "tests/support/transform-calls.h"

#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <sys/time.h>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

// Values as strings. Different values give different strings: 9 digits identify a float, 17 a
// double, and only integers have no point.

std::string shown_number(double number, const char *format)
{
    char text[40];
    std::snprintf(text, sizeof text, format, number);
    return std::isnan(number) ? "NAN" : text;
}

template <typename Value> std::string shown(const Value &value)
{
    if constexpr (std::is_null_pointer_v<Value>)
        return "nullptr";
    else if constexpr (std::is_integral_v<Value>)
        return std::to_string(value);
    else if constexpr (std::is_same_v<Value, float>)
        return shown_number(static_cast<double>(value), "%#.9gf");
    else if constexpr (std::is_same_v<Value, double>)
        return shown_number(value, "%#.17g");
    else
        return testing::PrintToString(std::string(value));
}

template <typename First, typename... Others>
std::string shown(const First &first, const Others &...others)
{
    return shown(first) + ", " + shown(others...);
}

// Strings

std::string show_copy(Copy copy, const std::string &source)
{
    const std::string result = copied(copy, source);
    EXPECT_EQ(copied_in_place(copy, source), result) << "in place";
    return shown(result);
}

template <Copy copy> std::string show_copy(const std::string &source)
{
    return show_copy(copy, source);
}

const auto show_copy_upper_case = show_copy<copy_upper_case>;
const auto show_copy_without_spaces_and_underscores =
    show_copy<copy_without_spaces_and_underscores>;
const auto show_copy_without_full_stops = show_copy<copy_without_full_stops>;
const auto show_copy_without_spaces = show_copy<copy_without_spaces>;
const auto show_line_breaks_to_spaces = show_copy<line_breaks_to_spaces>;
const auto show_collapse_spaces = show_copy<collapse_spaces>;
const auto show_underscores_to_spaces = show_copy<underscores_to_spaces>;
const auto show_spaces_to_underscores = show_copy<spaces_to_underscores>;
const auto show_snake_to_camel = show_copy<snake_to_camel>;
const auto show_copy_identifier_chars = show_copy<copy_identifier_chars>;
const auto show_cut_at_word_break = show_copy<cut_at_word_break>;

std::string show_copy_lower_case(const std::string &source)
{
    return shown(0) + ", " + show_copy(copy_lower_case_returning_0, source);
}

std::string show_double_percents(const std::string &source)
{
    return shown(copied(double_percents, source, 2));
}

// A reader sees the result up to its first NUL.
std::string show_url_escape(const std::string &source)
{
    return shown(copied(url_escape, source, 3).c_str());
}

std::string show_copy_length_prefixed(const std::string &source)
{
    const std::size_t size = 1 + std::size_t{static_cast<unsigned char>(source.at(0))};
    const std::vector<char> block(source.begin(), source.begin() + static_cast<long>(size));
    const std::string result = written(room_for(size + 1), [&](char *destination) {
        copy_length_prefixed(destination, block.data());
    });
    EXPECT_EQ(result.back(), unwritten) << "no terminator is written";
    return shown(result.substr(0, size));
}

std::string show_normalise_spaces(const std::string &text)
{
    return shown(normalised(text));
}

std::string show_insert_string_into_string(const std::string &insert, const std::string &into,
                                           std::int32_t location)
{
    const Insertion result = inserted(insert, into, location);
    return shown(result.returned, result.text, result.printed);
}

std::string show_replace_all(const std::string &find, const std::string &replacement,
                             const std::string &source)
{
    const std::string result = replaced(find, replacement, source, 1000);
    EXPECT_EQ(replaced(find, replacement, source, result.size() + 1), result);
    if (replacement.size() <= find.size()) {
        EXPECT_EQ(replaced_in_place(find, replacement, source), result) << "in place";
    }
    return shown(result);
}

std::string show_nth_word(const std::string &text, std::int32_t n)
{
    const FoundWord found = found_word(text, n, text.size() + 1);
    EXPECT_EQ(found_word(text, n, found.word.size() + 1).word, found.word);
    const FoundWord in_place = found_word_in_place(text, n);
    EXPECT_EQ(shown(in_place.offset, in_place.word), shown(found.offset, found.word)) << "in place";
    return shown(found.offset, found.word);
}

std::string show_word_length(const std::string &text)
{
    return shown(word_length(exact_copy(text).data()));
}

std::string show_find_ignoring_case(const std::string &text, const std::string &pattern)
{
    const std::vector<char> block = exact_copy(text);
    const char *found = find_ignoring_case(block.data(), exact_copy(pattern).data());
    return found == nullptr ? shown(nullptr) : shown(found);
}

std::string show_compare_words(const std::string &first, const std::string &second)
{
    return shown(compare_words(exact_copy(first).data(), exact_copy(second).data()));
}

std::string show_looks_like_email(const std::string &text)
{
    return shown(looks_like_email(exact_copy(text).data()));
}

// Numbers and colours

std::string show_parse_float(const std::string &text)
{
    const float untouched = -77.25F;
    float number = untouched;
    const int returned = parse_float(exact_copy(text).data(), &number);
    return number == untouched ? shown(returned) : shown(returned, number);
}

std::string show_pack_rgb(float red, float green, float blue)
{
    return shown(pack_rgb(red, green, blue));
}

std::string show_unpack_rgb(std::uint32_t value)
{
    float red = -1, green = -1, blue = -1;
    unpack_rgb(value, &red, &green, &blue);
    return shown(red, green, blue);
}

std::string show_map_clamped(float x, float from_low, float from_high, float to_low, float to_high)
{
    return shown(map_clamped(x, from_low, from_high, to_low, to_high));
}

// Dates

std::string show_month_names(std::size_t index)
{
    return shown(month_names[index]);
}

std::string show_date_to_day_number(std::int32_t year, std::int32_t month, std::int32_t day)
{
    return shown(date_to_day_number(year, month, day));
}

std::string show_day_number_to_date(std::int32_t day_number)
{
    std::int32_t year = 0, month = 0, day = 0;
    day_number_to_date(day_number, &year, &month, &day);
    return shown(year, month, day);
}

using DateFormat = char *(*)(std::int32_t day_number, char *buffer);

template <DateFormat format> std::string show_date(std::int32_t day_number)
{
    return shown(string_in(written(room_for(date_text_size), [&](char *buffer) {
        EXPECT_EQ(static_cast<void *>(format(day_number, buffer)), static_cast<void *>(buffer))
            << "the result is the buffer";
    })));
}

const auto show_format_date_long = show_date<format_date_long>;
const auto show_format_date_compact = show_date<format_date_compact>;

std::string show_parse_date_compact(const std::string &text)
{
    const std::int32_t untouched = -77;
    std::int32_t day_number = untouched;
    const int returned = parse_date_compact(exact_copy(text).data(), &day_number);
    return day_number == untouched ? shown(returned) : shown(returned, day_number);
}

std::string show_month_from_name(const std::string &name)
{
    int month = 0;
    const std::string left =
        written(with_terminator(name), [&](char *text) { month = month_from_name(text); });
    return shown(month, left.c_str());
}

// Clocks, with the time frozen

std::vector<std::time_t> coming_times; // results of the next calls of time(); the last one repeats
timeval time_of_day;
std::vector<timespec> sleeps; // requested

std::time_t next_time()
{
    const std::time_t now = coming_times.front();
    if (coming_times.size() > 1)
        coming_times.erase(coming_times.begin());
    return now;
}

timeval frozen_time_of_day()
{
    return time_of_day;
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
        time_source = {next_time, frozen_time_of_day, record_sleep};
        sleeps.clear();
    }

    ~FrozenTime()
    {
        time_source = saved_;
    }

    FrozenTime(const FrozenTime &) = delete;
    FrozenTime &operator=(const FrozenTime &) = delete;

private:
    TimeSource saved_ = time_source;
};

std::string show_today_day_number(const char *zone, std::time_t now)
{
    const FrozenTime frozen;
    coming_times = {now};
    setenv("TZ", zone, 1);
    const std::int32_t today = today_day_number();
    unsetenv("TZ");
    return shown(today);
}

template <typename Clock>
std::string show_clock(const Clock &clock, std::time_t seconds, int microseconds)
{
    const FrozenTime frozen;
    time_of_day.tv_sec = seconds;
    time_of_day.tv_usec = microseconds;
    return shown(clock());
}

std::string show_clock_seconds(std::time_t seconds, int microseconds)
{
    return show_clock(clock_seconds, seconds, microseconds);
}

std::string show_clock_stamp(std::time_t seconds, int microseconds)
{
    return show_clock(clock_stamp, seconds, microseconds);
}

std::string show_clock_last_stamp(std::time_t seconds, int microseconds)
{
    clock_last_stamp = -77;
    show_clock_stamp(seconds, microseconds);
    return shown(clock_last_stamp);
}

std::string show_clock_milliseconds(std::time_t seconds, int microseconds)
{
    return show_clock(clock_milliseconds, seconds, microseconds);
}

std::string show_sleep_seconds(float seconds)
{
    const FrozenTime frozen;
    std::string result = shown(sleep_seconds(seconds));
    for (const timespec &sleep : sleeps)
        result += ", " + shown(sleep.tv_sec, sleep.tv_nsec);
    return result;
}

std::string show_wait_seconds(std::uint32_t seconds, std::time_t start, std::time_t first_check,
                              std::time_t second_check)
{
    const FrozenTime frozen;
    coming_times = {start, first_check, second_check};
    return shown(wait_seconds(seconds));
}

std::time_t seconds_of_utc(const char *text)
{
    std::tm date = {};
    const char *end = strptime(text, "%Y-%m-%d %H:%M:%S UTC", &date);
    EXPECT_TRUE(end != nullptr && *end == '\0') << text;
    return timegm(&date);
}

// The page

class DocsPage : public InEachLocale {};

INSTANTIATE_TEST_SUITE_P(Locales, DocsPage, each_locale(), locale_label);

TEST_P(DocsPage, EveryExampleHolds)
{
#define EXAMPLE(routine, input, result)                                                            \
    EXPECT_EQ(show_##routine input, shown result) << #routine #input;
#define EXAMPLE_OF_ABORT(routine, input)                                                           \
    EXPECT_EXIT(show_##routine input, testing::KilledBySignal(SIGABRT), "") << #routine #input;
#define EXAMPLE_OF_EPOCH(clock, epoch)                                                             \
    EXPECT_EQ(std::stod(show_##clock(seconds_of_utc(epoch), 0)), 0) << #clock;
#include "examples-of-page.inc"
#undef EXAMPLE
#undef EXAMPLE_OF_ABORT
#undef EXAMPLE_OF_EPOCH
}

const std::set<std::string> routines_of_page = {
#define EXAMPLE(routine, input, result) #routine,
#define EXAMPLE_OF_ABORT(routine, input)
#define EXAMPLE_OF_EPOCH(clock, epoch)
#include "examples-of-page.inc"
};

// The functions and variables: in each line that is not indented, the first name before '(', '[' or
// ';'.
std::set<std::string> declared_names(const std::string &header)
{
    const std::regex declaration("[a-z].*?[ *]([a-z_]+)[(\\[;].*");
    std::ifstream stream(std::string(QUINTRAL_SOURCE_DIR) + "/" + header);
    std::set<std::string> names;
    std::smatch match;
    for (std::string line; std::getline(stream, line);) {
        if (std::regex_match(line, match, declaration))
            names.insert(match[1]);
    }
    return names;
}

TEST(DocsPage, HasAnExampleOfEveryRoutineInTheHeaders)
{
    std::set<std::string> declared;
    for (const char *header :
         {"support/c-utils/transforms.h", "support/dates.h", "support/clocks.h"})
        declared.merge(declared_names(header));
    for (const std::string &name : declared)
        EXPECT_EQ(routines_of_page.count(name), 1U) << "no example of " << name;
    for (const std::string &name : routines_of_page)
        EXPECT_EQ(declared.count(name), 1U) << name << " was not found in the headers";
}

} // namespace
} // namespace quintral
