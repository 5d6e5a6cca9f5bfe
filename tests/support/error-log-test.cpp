// log_message: the length of its line, and that the line depends on the date and the text only.
#include "support/error.h"

#include "tests/harness/test-main.h"
#include "tests/support/error-checks.h"
#include "tests/support/recorded-messages.h"

#include <clocale>
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

namespace {

bool date_unknown = false;
int dates_broken_down = 0;

} // namespace

// Replaces the C library's, so that a test can make the date unavailable.
extern "C" std::tm *localtime_r(const std::time_t *moment, std::tm *parts) noexcept
{
    ++dates_broken_down;
    if (date_unknown)
        return nullptr;
    *parts = *std::localtime(moment);
    return parts;
}

namespace quintral {
namespace {

using tests::ChildResult;
using tests::expect_child;
using tests::fixed_time;
using tests::records;
using tests::run_in_child;
using tests::shown;

constexpr int date_length = 24;

std::string last_line;

void keep_line(const char *line)
{
    last_line = line;
}

std::string text_of(const std::string &line)
{
    return line.substr(date_length + 2);
}

class LogMessage : public tests::RecordedMessages {
protected:
    void SetUp() override
    {
        RecordedMessages::SetUp();
        date_unknown = false;
        last_line.clear();
        set_log_handler(keep_line);
    }

    void TearDown() override
    {
        set_log_handler(nullptr);
        RecordedMessages::TearDown();
    }
};

struct LogRow {
    std::string text;
    int used; // its characters in the line
};

TEST_F(LogMessage, ReturnsTheLengthOfDateColonSpaceAndTheTextWithoutLineEnds)
{
    const LogRow rows[] = {
        {"", 0},
        {"abc", 3},
        {"abc\n", 3},
        {"abc\r\n", 3},
        {"abc\n\r\r\n\n", 3},
        {"\r\n\r", 0},
        {"a\rb\nc", 5},
        {"\r\nabc", 5},
        {"abc ", 4},
        {"%s%n", 4},
        {std::string(4055, 'x'), 4055},
        {std::string(4056, 'x'), 4056},
        {std::string(4057, 'x'), 4056},
        {std::string(1000000, 'x'), 4056},
        {std::string(4056, 'x') + "\r\n", 4056},
        {std::string(4055, 'x') + "\nx", 4056},
    };
    for (const LogRow &row : rows)
        EXPECT_EQ(log_message(row.text.c_str()), date_length + 2 + row.used) << shown(row.text);
}

TEST_F(LogMessage, HasNoDateIfTheSystemHasNone)
{
    date_unknown = true;
    EXPECT_EQ(log_message("abc\n"), 2 + 3);
    EXPECT_EQ(log_message(""), 2);
    EXPECT_EQ(log_message(std::string(5000, 'x').c_str()), 2 + 4056);
    report_message(Error, "text");
    print_text("text", "tag");
    EXPECT_EQ(records.size(), 2u);
}

TEST_F(LogMessage, HasTheDateThatCtimeGivesInEveryYear)
{
    for (const long long moment :
         {-1LL, 1LL, 1000000000LL, 253402300799LL, 253402400000LL, 67767976200000000LL}) {
        fixed_time = static_cast<std::time_t>(moment); // on 32 bits some other year
        const std::string date = std::ctime(&fixed_time);
        log_message("text\n");
        EXPECT_EQ(last_line, date.substr(0, date.size() - 1) + ": text\n") << moment;
    }
}

TEST_F(LogMessage, TakesTheLongestTextWithAYearOfTenDigitsToo)
{
    fixed_time = static_cast<std::time_t>(67767976200000000LL);
    const std::string date = std::ctime(&fixed_time);
    const int length = static_cast<int>(date.size()) - 1 + 2 + 4056;
    EXPECT_EQ(log_message(std::string(5000, 'x').c_str()), length);
    EXPECT_EQ(last_line.size(), static_cast<std::size_t>(length) + 1);
}

TEST_F(LogMessage, GoesToTheLogHandlerBeforeTheMessageHandlerAndOnlyWhileOneIsInstalled)
{
    report_message(Log, "%s", "silent\n\n");
    EXPECT_EQ(text_of(last_line), "silent\n");
    EXPECT_TRUE(records.empty());
    print_text("printed\r\n", "tag");
    EXPECT_EQ(text_of(last_line), "printed\n");
    print_text("", "tag");
    EXPECT_EQ(text_of(last_line), "printed\n");
    EXPECT_EQ(set_log_handler(nullptr), keep_line);
    log_message("lost");
    EXPECT_EQ(text_of(last_line), "printed\n");
    EXPECT_EQ(set_log_handler(keep_line), nullptr);
}

TEST_F(LogMessage, ReturnsTheSameLengthIfNobodyGetsTheLine)
{
    // Around the times for which every date has the same length, and the last of 32 bits.
    const long long moments[] = {-62135596800LL,  -1LL,           1LL,
                                 31535999LL,      31536000LL,     1000000000LL,
                                 2147483647LL,    252999999999LL, 253000000000LL,
                                 253000000001LL,  253402300799LL, 253402400000LL,
                                 -30610224001LL,  -30610224000LL, 67767976200000000LL,
                                 9999999999999LL, -2147483648LL};
    for (const long long moment : moments) {
        fixed_time = static_cast<std::time_t>(moment);
        for (const std::size_t length : {0U, 1U, 4055U, 4056U, 4057U}) {
            const std::string text = std::string(length, 'x') + "\r\n";
            set_log_handler(keep_line);
            const int with_handler = log_message(text.c_str());
            EXPECT_EQ(last_line.size(), static_cast<std::size_t>(with_handler) + 1);
            set_log_handler(nullptr);
            EXPECT_EQ(log_message(text.c_str()), with_handler) << moment << ", " << length;
        }
    }
}

TEST_F(LogMessage, BreaksDownTheTimeOnlyForALogHandler)
{
    set_log_handler(nullptr);
    dates_broken_down = 0;
    log_message("lost");
    report_message(Note, "lost");
    print_text("lost", "tag");
    EXPECT_EQ(dates_broken_down, 0);
    set_log_handler(keep_line);
    log_message("kept");
    EXPECT_EQ(dates_broken_down, 1);
}

TEST_F(LogMessage, DoesNotChangeTheDateThatACallerPrints)
{
    const std::time_t start = 0;
    const char *shared = std::ctime(&start);
    const std::string date = shared;
    print_text(shared, "date");
    report_message(Note, "%s", shared);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(shared, date);
    EXPECT_EQ(records[0].text, date);
    EXPECT_EQ(records[1].text, date);
}

TEST_F(LogMessage, DoesNotDependOnLocaleTimeZoneOrTheClocksDirection)
{
    ASSERT_NE(std::setlocale(LC_ALL, tests::comma_locale), nullptr);
    for (const char *zone : {"UTC", "XYZ-13:45", "no such zone", ""}) {
        setenv("TZ", zone, 1);
        for (const std::time_t moment : {1000000000, 1000000061, 1000000000, -1, 1}) {
            fixed_time = moment;
            EXPECT_EQ(log_message("abc"), date_length + 2 + 3) << zone << ", " << moment;
        }
    }
    unsetenv("TZ");
    std::setlocale(LC_ALL, "C");
}

TEST(LogHook, WritesNothing)
{
    const ChildResult result = run_in_child([] {
        for (int i = 0; i < 1000; ++i)
            log_message("text\n");
        report_message(Log, "text");
    });
    expect_child(result, "", "", 0, "the hook");
}

} // namespace
} // namespace quintral
