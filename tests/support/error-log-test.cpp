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

} // namespace

// Replaces the C library's function, so that a test can make the date unavailable.
extern "C" char *ctime_r(const std::time_t *moment, char *buffer)
{
    std::tm parts = {};
    if (date_unknown || localtime_r(moment, &parts) == nullptr)
        return nullptr;
    return asctime_r(&parts, buffer);
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

class LogMessage : public tests::RecordedMessages {
protected:
    void SetUp() override
    {
        RecordedMessages::SetUp();
        date_unknown = false;
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

// The C library writes such a year as a longer date, or fails.
TEST_F(LogMessage, AcceptsTheLongestTextInAYearOfTenDigitsToo)
{
    for (const long long moment : {253402400000LL, 67767976200000000LL}) {
        fixed_time = static_cast<std::time_t>(moment); // another year if time_t has 32 bits
        const int length = log_message(std::string(5000, 'x').c_str());
        EXPECT_GE(length, 2 + 4056);
        EXPECT_LE(length, 4094);
    }
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
