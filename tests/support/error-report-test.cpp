// report_message and print_text: what the handlers receive, in which order, and what is counted.
#include "support/error.h"

#include "tests/support/error-checks.h"
#include "tests/support/recorded-messages.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using tests::expect_bytes;
using tests::level_rows;
using tests::LevelRow;
using tests::log_hook_calls;
using tests::record_message;
using tests::record_text;
using tests::RecordedMessage;
using tests::records;
using tests::rule_of;
using tests::unprintable;

using namespace std::string_literals;

using ReportMessage = tests::RecordedMessages;
using PrintText = tests::RecordedMessages;

// report_message

TEST_F(ReportMessage, PassesEachLevelAboveLogToTheHandlerAndUnknownOnesAsWarning)
{
    for (const LevelRow &row : level_rows) {
        records.clear();
        report_message(row.level, "%s-%d\n\n", "text", 7);
        if (row.level == Log) {
            EXPECT_TRUE(records.empty());
            continue;
        }
        ASSERT_EQ(records.size(), 1u) << rule_of(row);
        const bool known = row.level >= 0 && row.level <= 10;
        EXPECT_EQ(records[0].level, known ? row.level : Warning) << rule_of(row);
        EXPECT_EQ(records[0].text, "text-7\n\n") << rule_of(row);
    }
}

TEST_F(ReportMessage, CountsEveryLevelAfterItsHandler)
{
    for (const LevelRow &row : level_rows) {
        records.clear();
        const std::int32_t before = message_count();
        report_message(row.level, "text");
        EXPECT_EQ(message_count(), before + 1) << rule_of(row);
        for (const RecordedMessage &record : records)
            EXPECT_EQ(record.count_seen, before) << rule_of(row);
    }
}

TEST_F(ReportMessage, PassesEveryLevelThroughTheLogHookBeforeItsHandler)
{
    for (const LevelRow &row : level_rows) {
        records.clear();
        const int before = log_hook_calls;
        report_message(row.level, "text");
        EXPECT_EQ(log_hook_calls, before + 1) << rule_of(row);
        for (const RecordedMessage &record : records)
            EXPECT_EQ(record.log_calls_seen, before + 1) << rule_of(row);
    }
}

TEST_F(ReportMessage, CutsATextOf1024CharactersOrMoreTo1023)
{
    for (const std::size_t length : {0u, 1u, 1022u, 1023u, 1024u, 1025u, 5000u, 1000000u}) {
        records.clear();
        report_message(Error, "%s", std::string(length, 'x').c_str());
        ASSERT_EQ(records.size(), 1u);
        expect_bytes(records[0].text, std::string(std::min<std::size_t>(length, 1023), 'x'),
                     "length " + std::to_string(length));
    }
}

TEST_F(ReportMessage, IsEmptyAndCountedIfFormattingFails)
{
    const std::int32_t before = message_count();
    report_message(Error, "%ls", unprintable);
    report_message(Error, "before %ls after", unprintable);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text, "");
    EXPECT_EQ(records[1].text, "");
    EXPECT_EQ(message_count(), before + 2);
}

TEST_F(ReportMessage, EndsTheTextAtAFormattedNul)
{
    report_message(Error, "a%cb", 0);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "a");
}

void report_from_handler(MessageLevel level, const char *text)
{
    record_message(level, text);
    if (level == Alert)
        report_message(Note, "nested in %s", text);
    records.push_back({level, text, "after", 0, 0});
}

TEST_F(ReportMessage, AHandlerMayReport)
{
    const std::int32_t before = message_count();
    EXPECT_EQ(set_message_handler(report_from_handler), record_message);
    report_message(Alert, "outer");
    EXPECT_EQ(set_message_handler(record_message), report_from_handler);
    ASSERT_EQ(records.size(), 4u);
    EXPECT_EQ(records[1].text, "nested in outer");
    EXPECT_EQ(records[3].text, "outer");
    EXPECT_EQ(message_count(), before + 2);
}

TEST_F(ReportMessage, SetMessageHandlerReturnsThePreviousOneAndNullMeansTheDefault)
{
    EXPECT_EQ(set_message_handler(test_message_handler), record_message);
    EXPECT_EQ(set_message_handler(nullptr), test_message_handler);
    EXPECT_EQ(set_message_handler(nullptr), default_message_handler);
    EXPECT_EQ(set_message_handler(record_message), default_message_handler);
}

// print_text

TEST_F(PrintText, SetPrintHandlerReturnsThePreviousOneAndNullMeansTheDefault)
{
    EXPECT_EQ(set_print_handler(test_print_handler), record_text);
    EXPECT_EQ(set_print_handler(nullptr), test_print_handler);
    EXPECT_EQ(set_print_handler(nullptr), default_print_handler);
    EXPECT_EQ(set_print_handler(record_text), default_print_handler);
}

TEST_F(PrintText, PassesTextOfAnyLengthAndTagToTheHandlerUnchanged)
{
    for (const std::string &text :
         {"text"s, "text\n\n"s, "\n"s, "%s%n"s, std::string(100000, 'x')}) {
        records.clear();
        print_text(text.c_str(), "status");
        ASSERT_EQ(records.size(), 1u);
        expect_bytes(records[0].text, text, "text");
        EXPECT_EQ(records[0].tag, "status");
    }
}

TEST_F(PrintText, GoesThroughTheLogHookFirstAndIsNotCountedAsAMessage)
{
    const std::int32_t before = message_count();
    print_text("text", "tag");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].log_calls_seen, 1);
    EXPECT_EQ(log_hook_calls, 1);
    EXPECT_EQ(message_count(), before);
}

TEST_F(PrintText, AnEmptyTextReachesNeitherHandlerNorLogHook)
{
    print_text("", "tag");
    EXPECT_TRUE(records.empty());
    EXPECT_EQ(log_hook_calls, 0);
}

} // namespace
} // namespace quintral
