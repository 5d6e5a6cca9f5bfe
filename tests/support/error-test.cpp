// Diagnostics: every level's line, cut and count; the handlers by the bytes on both streams of a
// child process; indented output and what it costs; each way in which a process ends.
#include "support/error.h"

#include "tests/harness/child-process.h"
#include "tests/harness/test-main.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <clocale>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

// The log hook writes nothing; that it asks for the time is how a test sees that it was reached.
int log_hook_calls = 0;
bool date_unknown = false;
std::time_t fixed_time = 0; // 0: the system's

} // namespace

// These stand in front of the C library's in this program.
extern "C" std::time_t time(std::time_t *result)
{
    ++log_hook_calls;
    const std::time_t system_time =
        std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    const std::time_t now = fixed_time != 0 ? fixed_time : system_time;
    if (result != nullptr)
        *result = now;
    return now;
}

extern "C" char *ctime_r(const std::time_t *moment, char *buffer)
{
    std::tm parts = {};
    if (date_unknown || localtime_r(moment, &parts) == nullptr)
        return nullptr;
    return asctime_r(&parts, buffer);
}

namespace quintral {
namespace {

using tests::ChildOptions;
using tests::ChildResult;
using tests::ChildStream;
using tests::run_child_function;

using namespace std::string_literals;

constexpr int date_length = 24;

const std::int32_t count_at_start = message_count();

// A wide character that no locale of the tests can turn into bytes.
const wchar_t unprintable[] = {static_cast<wchar_t>(0x7ffffff0), 0};

const std::string assertion_line = "Error: A Quintral internal error has occurred. Please save "
                                   "your work soon and restart.\a\n";

std::string repeated(std::size_t count, char c = 'x')
{
    return std::string(count, c);
}

// Long texts are shown by their ends only.
std::string shown(const std::string &text)
{
    const std::string counted = " (" + std::to_string(text.size()) + " bytes)";
    if (text.size() <= 200)
        return testing::PrintToString(text) + counted;
    return testing::PrintToString(text.substr(0, 80)) + " ... " +
           testing::PrintToString(text.substr(text.size() - 80)) + counted;
}

void expect_bytes(const std::string &actual, const std::string &expected, const std::string &rule)
{
    EXPECT_TRUE(actual == expected)
        << rule << "\nexpected " << shown(expected) << "\nactual   " << shown(actual);
}

// The whole of what a child wrote, and its status.
void expect_child(const ChildResult &result, const std::string &output, const std::string &error,
                  int exit_status, const std::string &rule)
{
    expect_bytes(result.output, output, rule + ", standard output");
    expect_bytes(result.error, error, rule + ", standard error");
    EXPECT_EQ(result.exit_status, exit_status) << rule;
    EXPECT_EQ(result.signal, 0) << rule;
}

ChildResult run_in_child(const std::function<void()> &body, const ChildOptions &options = {})
{
    return run_child_function(
        [&] {
            body();
            return 0;
        },
        options);
}

// Handlers that record, and put back what was installed.

struct Recorded {
    int first; // the level, or -1 for text
    std::string text;
    std::string tag;
    std::int32_t count_seen; // message_count() while the handler ran
    int log_calls_seen;
};

std::vector<Recorded> records;

void record_message(MessageLevel level, const char *text)
{
    records.push_back({level, text, "", message_count(), log_hook_calls});
}

void record_text(const char *text, const char *tag)
{
    records.push_back({-1, text, tag, message_count(), log_hook_calls});
}

class Recording : public testing::Test {
protected:
    void SetUp() override
    {
        records.clear();
        log_hook_calls = 0;
        date_unknown = false;
        fixed_time = 0;
        ASSERT_EQ(set_message_handler(record_message), default_message_handler);
        ASSERT_EQ(set_print_handler(record_text), default_print_handler);
    }

    void TearDown() override
    {
        EXPECT_EQ(set_message_handler(nullptr), record_message);
        EXPECT_EQ(set_print_handler(nullptr), record_text);
    }
};

using ReportMessage = Recording;
using PrintText = Recording;
using LogMessage = Recording;
using Assertion = Recording;
using Abort = Recording;

// Levels

TEST(MessageLevels, AreTheIntegers0To10)
{
    static_assert(std::is_same_v<MessageLevel, int>);
    const MessageLevel levels[] = {Log,       Plain, Info,    Note,  InfoBell,  NoteBell,
                                   PlainBell, Alert, Warning, Error, FatalError};
    for (int i = 0; i <= 10; ++i)
        EXPECT_EQ(levels[i], i);
}

struct LevelRow {
    MessageLevel level;
    std::string before; // the text
    std::string behind;
};

const LevelRow level_rows[] = {
    {Log, "Log: ", ""},
    {Plain, "", ""},
    {Info, "Info: ", ""},
    {Note, "Note: ", ""},
    {InfoBell, "Info: ", "\x07"},
    {NoteBell, "Note: ", "\x07"},
    {PlainBell, "\x07", ""},
    {Alert, "Alert: ", "\x07"},
    {Warning, "Warning: ", "\x07"},
    {Error, "Error: ", "\x07"},
    {FatalError, "Fatal Error: ", "\x07"},
    // outside 0 to 10
    {11, "Warning: ", "\x07"},
    {-1, "Warning: ", "\x07"},
    {INT_MAX, "Warning: ", "\x07"},
    {INT_MIN, "Warning: ", "\x07"},
};

std::string rule_of(const LevelRow &row)
{
    return "level " + std::to_string(row.level);
}

// format_message

// The line in a buffer of out_size bytes that is followed by bytes nobody may touch. The result
// and the terminator are checked.
std::string formatted(MessageLevel level, const std::string &text, int out_size)
{
    const auto size = static_cast<std::size_t>(out_size);
    std::vector<char> out(size + 64, '#');
    std::string given = text;
    const int length = format_message(level, given.c_str(), out.data(), out_size);
    EXPECT_EQ(given, text) << "the caller's text was written to";
    EXPECT_TRUE(std::all_of(out.begin() + out_size, out.end(), [](char c) { return c == '#'; }))
        << "written past out_size " << out_size;
    EXPECT_TRUE(length >= 0 && length < out_size) << "result " << length;
    EXPECT_EQ(std::memchr(out.data(), '\0', size), out.data() + length) << "result " << length;
    return std::string(out.data());
}

TEST(FormatMessage, MakesTheLineOfEachLevelWithoutALineFeed)
{
    for (const LevelRow &row : level_rows) {
        for (const std::string body : {"text", "", "a\nb", "100%s%n", "\x80\xe4\xff"}) {
            expect_bytes(formatted(row.level, body, 1024), row.before + body + row.behind,
                         rule_of(row));
        }
    }
}

struct TextRow {
    std::string text;
    std::string body;
};

// What of a text's end is dropped.
const TextRow ending_rows[] = {
    {"text\n", "text"},       {"text\n\n", "text"},
    {"text\n\n\n\n", "text"}, {"\n", ""},
    {"\n\n\n", ""},           {"a\nb\n", "a\nb"},
    {"\ntext", "\ntext"},     {"text\r\n", "text\r"},
    {"text\n\r", "text\n\r"}, {"text \n", "text "},
    {"text\t", "text\t"},     {"\r", "\r"},
    {"a\n\nb\n\n", "a\n\nb"},
};

TEST(FormatMessage, DropsAllLineFeedsAtTheEndAndNothingElse)
{
    for (const TextRow &row : ending_rows) {
        expect_bytes(formatted(Plain, row.text, 1024), row.body, shown(row.text));
        expect_bytes(formatted(Error, row.text, 1024), "Error: " + row.body + "\a",
                     shown(row.text));
        expect_bytes(formatted(PlainBell, row.text, 1024), "\a" + row.body, shown(row.text));
    }
}

struct CutRow {
    int out_size;
    std::string text;
    std::string body;
};

TEST(FormatMessage, CutsTheBodyToOutSizeLess20)
{
    const CutRow rows[] = {
        {100, repeated(79), repeated(79)},
        {100, repeated(80), repeated(80)},
        {100, repeated(81), repeated(80)},
        {100, repeated(5000), repeated(80)},
        {1024, repeated(1003), repeated(1003)},
        {1024, repeated(1004), repeated(1004)}, // one more than the handlers show
        {1024, repeated(1005), repeated(1004)},
        {20, "text", ""},
        {21, "text", "t"},
        {22, "text", "te"},
        {24, "text", "text"},
        {70000, repeated(69000), repeated(69000)},
        // the line feeds go first
        {100, repeated(80) + "\n\n", repeated(80)},
        {100, repeated(79) + "\n\n", repeated(79)},
        {100, repeated(79) + "\ny", repeated(79) + "\n"},
    };
    for (const CutRow &row : rows) {
        for (const LevelRow &level : level_rows) {
            expect_bytes(formatted(level.level, row.text, row.out_size),
                         level.before + row.body + level.behind,
                         rule_of(level) + ", out_size " + std::to_string(row.out_size));
        }
    }
}

TEST(FormatMessage, BelowASizeOf20CutsALineWithoutTextToWhatFits)
{
    for (const LevelRow &row : level_rows) {
        const std::string line = row.before + row.behind;
        for (int out_size = 1; out_size < 20; ++out_size) {
            const auto room = static_cast<std::size_t>(out_size - 1);
            expect_bytes(formatted(row.level, "text", out_size), line.substr(0, room),
                         rule_of(row) + ", out_size " + std::to_string(out_size));
        }
    }
}

TEST(FormatMessage, WritesNothingAndGives0WithoutRoom)
{
    for (const int out_size : {0, -1, -20, INT_MIN}) {
        char out[] = "####";
        EXPECT_EQ(format_message(Error, "text", out, out_size), 0) << "out_size " << out_size;
        EXPECT_STREQ(out, "####") << "out_size " << out_size;
        EXPECT_EQ(format_message(Error, "text", nullptr, out_size), 0) << "out_size " << out_size;
    }
}

TEST(FormatMessage, TakesTextsAsBytesUnderALatin1Locale)
{
    ASSERT_NE(std::setlocale(LC_ALL, tests::comma_locale), nullptr);
    expect_bytes(formatted(Error, "\xc4\xe4\xff\xa0\n", 100), "Error: \xc4\xe4\xff\xa0\a",
                 "Latin-1");
    std::setlocale(LC_ALL, "C");
}

// report_message

TEST_F(ReportMessage, HandsEveryLevelAboveLogToTheHandlerAndOthersAsWarning)
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
        EXPECT_EQ(records[0].first, known ? row.level : Warning) << rule_of(row);
        EXPECT_EQ(records[0].text, "text-7\n\n") << rule_of(row);
    }
}

TEST_F(ReportMessage, CountsEveryLevelBehindItsHandler)
{
    for (const LevelRow &row : level_rows) {
        records.clear();
        const std::int32_t before = message_count();
        report_message(row.level, "text");
        EXPECT_EQ(message_count(), before + 1) << rule_of(row);
        for (const Recorded &record : records)
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
        for (const Recorded &record : records)
            EXPECT_EQ(record.log_calls_seen, before + 1) << rule_of(row);
    }
}

TEST_F(ReportMessage, CutsATextOf1024CharactersOrMoreTo1023)
{
    for (const std::size_t length : {0u, 1u, 1022u, 1023u, 1024u, 1025u, 5000u, 1000000u}) {
        records.clear();
        report_message(Error, "%s", repeated(length).c_str());
        ASSERT_EQ(records.size(), 1u);
        expect_bytes(records[0].text, repeated(std::min<std::size_t>(length, 1023)),
                     "length " + std::to_string(length));
    }
}

TEST_F(ReportMessage, ATextThatCanNotBeFormattedIsEmptyAndCounts)
{
    const std::int32_t before = message_count();
    report_message(Error, "%ls", unprintable);
    report_message(Error, "before %ls behind", unprintable);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].text, "");
    EXPECT_EQ(records[1].text, "");
    EXPECT_EQ(message_count(), before + 2);
}

TEST_F(ReportMessage, ATextEndsAtANulOfItsOwn)
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
    records.push_back({level, text, "behind", 0, 0});
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

// Setters

TEST_F(ReportMessage, SetMessageHandlerReturnsTheOneBeforeAndNullMeansTheDefault)
{
    EXPECT_EQ(set_message_handler(test_message_handler), record_message);
    EXPECT_EQ(set_message_handler(nullptr), test_message_handler);
    EXPECT_EQ(set_message_handler(nullptr), default_message_handler);
    EXPECT_EQ(set_message_handler(record_message), default_message_handler);
}

TEST_F(PrintText, SetPrintHandlerReturnsTheOneBeforeAndNullMeansTheDefault)
{
    EXPECT_EQ(set_print_handler(test_print_handler), record_text);
    EXPECT_EQ(set_print_handler(nullptr), test_print_handler);
    EXPECT_EQ(set_print_handler(nullptr), default_print_handler);
    EXPECT_EQ(set_print_handler(record_text), default_print_handler);
}

// Message handlers

struct HandlerRow {
    std::string rule;
    std::string text;
    std::string body;
};

const HandlerRow handler_rows[] = {
    {"a plain text", "low disk", "low disk"},
    {"an empty text", "", ""},
    {"line feeds at the end", "low disk\n\n", "low disk"},
    {"line feeds inside", "a\n\nb\n", "a\n\nb"},
    {"a carriage return", "a\r\n", "a\r"},
    {"a format", "%s %n", "%s %n"},
    {"bytes above 0x7F", "\x80\xe4\xff", "\x80\xe4\xff"},
    {"1002 characters", repeated(1002), repeated(1002)},
    {"1003 characters", repeated(1003), repeated(1003)},
    {"1004 characters", repeated(1004), repeated(1003)},
    {"100000 characters", repeated(100000), repeated(1003)},
    {"1003 characters and line feeds", repeated(1003) + "\n\n", repeated(1003)},
    {"a line feed at the cut", repeated(1002) + "\nyyy", repeated(1002) + "\n"},
};

TEST(DefaultMessageHandler, WritesTheLineAndALineFeedToStandardError)
{
    for (const HandlerRow &row : handler_rows) {
        const ChildResult result =
            run_in_child([&] { default_message_handler(Error, row.text.c_str()); });
        expect_child(result, "", "Error: " + row.body + "\a\n", 0, row.rule);
    }
}

TEST(DefaultMessageHandler, ShowsEachLevelAndEndsTheProcessAtFatalErrorAlone)
{
    for (const LevelRow &row : level_rows) {
        const ChildResult result = run_in_child([&] {
            default_message_handler(row.level, "text");
            std::fputs("went on", stdout);
        });
        const bool fatal = row.level == FatalError;
        expect_child(result, fatal ? "" : "went on", row.before + "text" + row.behind + "\n",
                     fatal ? 1 : 0, rule_of(row));
    }
}

TEST(DefaultMessageHandler, EndsAsExitDoes)
{
    const ChildResult result = run_in_child([] {
        std::atexit([] { std::fputs("at exit", stdout); });
        report_message(FatalError, "no way on");
        std::fputs("went on", stdout);
    });
    expect_child(result, "at exit", "Fatal Error: no way on\a\n", 1, "FatalError");
}

// Ends the process as nothing flushes: what a handler left in the stream's buffer is lost.
void end_without_flush()
{
    std::raise(SIGKILL);
}

TEST(DefaultMessageHandler, FlushesStandardError)
{
    const ChildResult result = run_in_child([] {
        static char buffer[4096];
        std::setvbuf(stderr, buffer, _IOFBF, sizeof buffer);
        default_message_handler(Note, "text");
        end_without_flush();
    });
    EXPECT_EQ(result.error, "Note: text\n");
    EXPECT_EQ(result.signal, SIGKILL);
}

TEST(DefaultMessageHandler, PassesOverAStandardErrorThatCanNotBeWritten)
{
    for (const ChildStream stream : {ChildStream::FullDisk, ChildStream::Closed}) {
        ChildOptions options;
        options.error = stream;
        const auto body = [] {
            report_message(Error, "text");
            print_text("text", "tag");
            std::fputs("went on", stdout);
            report_message(FatalError, "text");
        };
        expect_child(run_in_child(body, options), "went on", "", 1, "no standard error");
    }
}

std::string captured(const std::string &content)
{
    return "QUINTRALTEST" + content + "\nENDQUINTRALTEST\n";
}

TEST(TestMessageHandler, WritesTheLineBetweenTheMarkersToStandardOutput)
{
    for (const HandlerRow &row : handler_rows) {
        const ChildResult result =
            run_in_child([&] { test_message_handler(Error, row.text.c_str()); });
        expect_child(result, captured("Error: " + row.body + "\a"), "", 0, row.rule);
    }
}

TEST(TestMessageHandler, ShowsEachLevelAndGoesOnAtFatalErrorToo)
{
    for (const LevelRow &row : level_rows) {
        const ChildResult result = run_in_child([&] {
            test_message_handler(row.level, "text");
            std::fputs("went on", stdout);
        });
        expect_child(result, captured(row.before + "text" + row.behind) + "went on", "", 0,
                     rule_of(row));
    }
}

TEST(TestMessageHandler, FlushesStandardOutput)
{
    const ChildResult result = run_in_child([] {
        test_message_handler(Note, "text");
        end_without_flush();
    });
    EXPECT_EQ(result.output, "QUINTRALTESTNote: text\nENDQUINTRALTEST\n");
    EXPECT_EQ(result.signal, SIGKILL);
}

// Messages as programs report them

TEST(Reports, StartWithTheDefaultHandlersAndNoMessageCounted)
{
    EXPECT_EQ(count_at_start, 0);
    const ChildResult result = run_in_child([] {
        report_message(Error, "Close file failed.");
        print_text("text", "tag");
    });
    expect_child(result, "", "Error: Close file failed.\a\ntext", 0, "the defaults");
}

TEST(Reports, PrintNothingAtLevelLogAndWarningOutsideTheLevels)
{
    const std::int32_t before = message_count();
    const ChildResult result = run_in_child([before] {
        report_message(Log, "log");
        report_message(11, "eleven\n\n");
        report_message(-1, "minus %s", "one");
        report_message(Plain, "plain");
        report_message(PlainBell, "plain bell");
        report_message(Note, "note");
        std::printf("%d messages\n", message_count() - before);
    });
    expect_child(result, "6 messages\n",
                 "Warning: eleven\a\nWarning: minus one\a\nplain\n\aplain bell\nNote: note\n", 0,
                 "the defaults");
}

TEST(Reports, AreCutBy1003InTheHandlerAnd1023BeforeIt)
{
    for (const std::size_t length : {1003u, 1004u, 1023u, 1024u, 5000u}) {
        const std::string line = "Note: " + repeated(1003);
        const std::string rule = "length " + std::to_string(length);
        const auto body = [&] { report_message(Note, "%s", repeated(length).c_str()); };
        expect_child(run_in_child(body), "", line + "\n", 0, rule);
        const auto capture = [&] {
            set_message_handler(test_message_handler);
            body();
        };
        expect_child(run_in_child(capture), captured(line), "", 0, rule);
    }
}

TEST(Reports, AreCapturedOnStandardOutputWithTheTestHandlers)
{
    const ChildResult result = run_in_child([] {
        set_message_handler(test_message_handler);
        set_print_handler(test_print_handler);
        report_message(Warning, "low disk");
        print_text("hello", "status");
        report_message(FatalError, "no way on");
        std::fputs("went on", stdout);
    });
    expect_child(result,
                 "QUINTRALTESTWarning: low disk\x07\nENDQUINTRALTEST\n"
                 "QUINTRALTESTstatus: hello\nENDQUINTRALTEST\n"
                 "QUINTRALTESTFatal Error: no way on\x07\nENDQUINTRALTEST\nwent on",
                 "", 0, "capture");
}

TEST(Reports, GoToTheDefaultsAgainBehindNull)
{
    const ChildResult result = run_in_child([] {
        set_message_handler(test_message_handler);
        set_print_handler(test_print_handler);
        set_message_handler(nullptr);
        set_print_handler(nullptr);
        report_message(Note, "note");
        print_text("text", "tag");
    });
    expect_child(result, "", "Note: note\ntext", 0, "null");
}

TEST(Reports, TakeTextsAsBytesUnderALatin1Locale)
{
    const ChildResult result = run_in_child([] {
        if (std::setlocale(LC_ALL, tests::comma_locale) == nullptr)
            std::puts("no test locale");
        report_message(Error, "%s", "\xc4\xe4\xff");
        set_message_handler(test_message_handler);
        set_print_handler(test_print_handler);
        report_message(Error, "%s", "\xc4\xe4\xff");
        print_text("\xc4\xe4\xff", "\xfc");
    });
    expect_child(result, captured("Error: \xc4\xe4\xff\a") + captured("\xfc: \xc4\xe4\xff"),
                 "Error: \xc4\xe4\xff\a\n", 0, "Latin-1");
}

// print_text and the print handlers

TEST_F(PrintText, HandsTextOfAnyLengthAndTagToTheHandlerUnchanged)
{
    for (const std::string &text : {"text"s, "text\n\n"s, "\n"s, "%s%n"s, repeated(100000)}) {
        records.clear();
        print_text(text.c_str(), "status");
        ASSERT_EQ(records.size(), 1u);
        expect_bytes(records[0].text, text, "text");
        EXPECT_EQ(records[0].tag, "status");
    }
}

TEST_F(PrintText, PassesTheLogHookFirstAndDoesNotCountAsAMessage)
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

TEST(DefaultPrintHandler, WritesTheTextAsItIsToStandardErrorWithoutItsTag)
{
    for (const std::string &text :
         {"hello"s, "a\n\n"s, "%s"s, "\x80\xff"s, repeated(100000), ""s}) {
        const auto body = [&] { default_print_handler(text.c_str(), "status"); };
        expect_child(run_in_child(body), "", text, 0, shown(text));
    }
}

TEST(TestPrintHandler, WritesTagAndTextBetweenTheMarkersToStandardOutput)
{
    for (const std::string &text :
         {"hello"s, "a\n\n"s, "%s"s, "\x80\xff"s, repeated(100000), ""s}) {
        const auto body = [&] { test_print_handler(text.c_str(), "status"); };
        expect_child(run_in_child(body), captured("status: " + text), "", 0, shown(text));
    }
}

TEST(TestPrintHandler, FlushesStandardOutput)
{
    const ChildResult result = run_in_child([] {
        test_print_handler("hello", "status");
        end_without_flush();
    });
    EXPECT_EQ(result.output, "QUINTRALTESTstatus: hello\nENDQUINTRALTEST\n");
    EXPECT_EQ(result.signal, SIGKILL);
}

// log_message

struct LogRow {
    std::string text;
    int used; // characters of it in the line
};

TEST_F(LogMessage, GivesTheLengthOfDateColonBlankAndTheTextWithoutItsLineEnds)
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
        {repeated(4055), 4055},
        {repeated(4056), 4056},
        {repeated(4057), 4056},
        {repeated(1000000), 4056},
        {repeated(4056) + "\r\n", 4056},
        {repeated(4055) + "\nx", 4056},
    };
    for (const LogRow &row : rows)
        EXPECT_EQ(log_message(row.text.c_str()), date_length + 2 + row.used) << shown(row.text);
}

TEST_F(LogMessage, HasNoDateWhereTheSystemGivesNone)
{
    date_unknown = true;
    EXPECT_EQ(log_message("abc\n"), 2 + 3);
    EXPECT_EQ(log_message(""), 2);
    EXPECT_EQ(log_message(repeated(5000).c_str()), 2 + 4056);
    report_message(Error, "text");
    print_text("text", "tag");
    EXPECT_EQ(records.size(), 2u);
}

// The C library gives such a year no date, or a longer one.
TEST_F(LogMessage, TakesTheLongestTextWithAYearOfTenDigitsToo)
{
    for (const long long moment : {253402400000LL, 67767976200000000LL}) {
        fixed_time = static_cast<std::time_t>(moment); // on 32 bits some other year
        const int length = log_message(repeated(5000).c_str());
        EXPECT_GE(length, 2 + 4056);
        EXPECT_LE(length, 4094);
    }
}

TEST_F(LogMessage, LeavesTheDateThatACallerPrintsAlone)
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

// output_printf

struct OutputRow {
    std::string rule;
    int indent;
    std::string text;
    std::string expected;
};

// The output of a text at an indent, written to standard output by a child.
ChildResult output_of(int indent, const std::string &text)
{
    return run_child_function([&] {
        set_output_stream(stdout);
        set_output_indent(indent);
        return output_printf("%s", text.c_str());
    });
}

TEST(OutputPrintf, WritesTheIndentFirstAndBehindEachLineFeedThatACharacterFollows)
{
    const OutputRow rows[] = {
        {"no indent", 0, "a\nb\n", "a\nb\n"},
        {"no indent, no text", 0, "", ""},
        {"no indent, line feeds", 0, "\n\na\n\n", "\n\na\n\n"},
        {"two lines", 2, "a\nb\n", "..a\n..b\n"},
        {"no line feed at the end", 2, "a\nb", "..a\n..b"},
        {"one word", 1, "a", ".a"},
        {"no text", 3, "", "..."},
        {"a line feed alone", 2, "\n", "..\n"},
        {"two line feeds", 2, "\n\n", "..\n..\n"},
        {"an empty line inside", 2, "a\n\nb", "..a\n..\n..b"},
        {"an empty line in front", 2, "\na", "..\n..a"},
        {"a carriage return is no line feed", 2, "a\rb\r\n", "..a\rb\r\n"},
        {"full stops of the text", 1, ".\n.\n", "..\n..\n"},
        {"bytes above 0x7F", 1, "\x80\n\xff", ".\x80\n.\xff"},
        {"a negative indent", -1, "a\nb", "a\nb"},
        {"the lowest indent", INT_MIN, "a\nb", "a\nb"},
    };
    for (const OutputRow &row : rows)
        expect_child(output_of(row.indent, row.text), row.expected, "", 0, row.rule);
}

TEST(OutputPrintf, Keeps65534CharactersLessTheIndent)
{
    const std::string lines = repeated(10, '\n') + repeated(70000);
    std::string indented;
    for (int i = 0; i < 10; ++i)
        indented += repeated(100, '.') + "\n";
    const OutputRow rows[] = {
        {"one less than the limit", 0, repeated(65533), repeated(65533)},
        {"at the limit", 0, repeated(65534), repeated(65534)},
        {"one above the limit", 0, repeated(65535), repeated(65534)},
        {"far above the limit", 0, repeated(1000000), repeated(65534)},
        {"indent 2", 2, repeated(65533), ".." + repeated(65532)},
        {"indent 65533", 65533, "abc", repeated(65533, '.') + "a"},
        {"indent 65532", 65532, "\n\n\n",
         repeated(65532, '.') + "\n" + repeated(65532, '.') + "\n"},
        {"the limit is on the text", 100, lines,
         indented + repeated(100, '.') + repeated(65534 - 100 - 10)},
        {"a line feed at the limit", 0, repeated(65533) + "\nyyy", repeated(65533) + "\n"},
        {"a line feed at the limit, indent 1", 1, repeated(65532) + "\nyyy",
         "." + repeated(65532) + "\n"},
    };
    for (const OutputRow &row : rows)
        expect_child(output_of(row.indent, row.text), row.expected, "", 0, row.rule);
}

TEST(OutputPrintf, WritesItsFullStopsAloneWhereTheIndentLeavesNoRoom)
{
    for (const int indent : {65534, 65535, 65536, 65537, 131072, 1000000}) {
        const ChildResult result = run_in_child([indent] {
            // A text before it, which must not show again.
            std::FILE *nowhere = std::fopen("/dev/null", "w");
            set_output_stream(nowhere);
            output_printf("%s", repeated(65534).c_str());
            std::fclose(nowhere);
            set_output_stream(stdout);
            set_output_indent(indent);
            output_printf("%s", "a\nb\n");
        });
        expect_child(result, repeated(static_cast<std::size_t>(indent), '.'), "", 0,
                     "indent " + std::to_string(indent));
    }
}

TEST(OutputPrintf, EndsTheTextAtANulOfItsOwn)
{
    const ChildResult result = run_in_child([] {
        set_output_stream(stdout);
        output_printf("a\n%cb\n", 0);
        set_output_indent(2);
        output_printf("a\n%cb\n", 0);
        output_printf("%c", 0);
    });
    expect_child(result, "a\n..a\n..", "", 0, "NUL");
}

TEST(OutputPrintf, FormatsAsPrintfDoesAndATextThatCanNotBeFormattedIsEmpty)
{
    const ChildResult result = run_in_child([] {
        set_output_stream(stdout);
        set_output_indent(1);
        output_printf("%s=%d %5.2f%%\n", "x", -3, 1.5);
        output_printf("before %ls behind", unprintable);
    });
    expect_child(result, ".x=-3  1.50%\n.", "", 0, "formats");
}

TEST(OutputPrintf, UsesStandardErrorWhereNoStreamIsSetAndRemembersIt)
{
    const ChildResult result = run_in_child([] {
        std::puts(output_stream() == nullptr ? "none" : "one");
        output_printf("to standard error\n");
        std::puts(output_stream() == stderr ? "stderr" : "another");
        set_output_stream(stdout);
        std::puts(output_stream() == stdout ? "stdout" : "another");
        output_printf("to standard output\n");
        set_output_stream(nullptr);
        std::puts(output_stream() == stderr ? "stderr" : "another");
        output_printf("to standard error again\n");
    });
    expect_child(result, "none\nstderr\nstdout\nto standard output\nstderr\n",
                 "to standard error\nto standard error again\n", 0, "streams");
}

TEST(OutputPrintf, ReturnsTheResultOfTheFlush)
{
    const auto body = [] {
        set_output_stream(stdout);
        const int result = output_printf("text");
        if (result == 0)
            return 40;
        return result == EOF ? 41 : 42;
    };
    EXPECT_EQ(run_child_function(body).exit_status, 40);
    ChildOptions options;
    options.output = ChildStream::FullDisk;
    EXPECT_EQ(run_child_function(body, options).exit_status, 41);
}

// What an output costs. The stream is one end of a socket pair that keeps each write apart, so that
// the other end counts them.

struct Counted {
    std::FILE *stream = nullptr;
    int reading_end = -1;
    char buffer[1 << 18];
};

void open_counted(Counted *counted, int buffering)
{
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0) {
        std::printf("no socket pair: %s\n", std::strerror(errno));
        return;
    }
    counted->reading_end = ends[1];
    counted->stream = fdopen(ends[0], "w");
    std::setvbuf(counted->stream, buffering == _IONBF ? nullptr : counted->buffer, buffering,
                 sizeof counted->buffer);
}

struct Received {
    long writes = 0;
    long long bytes = 0;
    long long unexpected = 0; // bytes that are not full stops and line feeds in their order
};

// Counts what is there to read without waiting (flags MSG_DONTWAIT) or up to the stream's close,
// where lines of `indent` full stops are expected.
Received receive(const Counted &counted, std::size_t indent, int flags)
{
    static char chunk[1 << 18];
    std::string pattern;
    while (pattern.size() < sizeof chunk + indent + 1)
        pattern += repeated(indent, '.') + "\n";
    Received received;
    ssize_t count = 0;
    while ((count = recv(counted.reading_end, chunk, sizeof chunk, flags)) > 0) {
        const auto size = static_cast<std::size_t>(count);
        const auto at = static_cast<std::size_t>(received.bytes) % (indent + 1);
        received.unexpected += std::memcmp(chunk, pattern.data() + at, size) == 0 ? 0 : count;
        received.bytes += count;
        ++received.writes;
    }
    return received;
}

// The second argument of a thread: a text to write, and its stream to close behind it.
struct OutputTask {
    Counted *counted;
    std::string text;
};

void *write_output(void *argument)
{
    const auto *task = static_cast<const OutputTask *>(argument);
    output_printf("%s", task->text.c_str());
    std::fclose(task->counted->stream);
    return nullptr;
}

constexpr std::size_t small_stack = 256 * 1024;

bool start_on_small_stack(pthread_t *thread, OutputTask *task)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, small_stack);
    const int failed = pthread_create(thread, &attributes, write_output, task);
    pthread_attr_destroy(&attributes);
    if (failed != 0)
        std::printf("no thread: %s\n", std::strerror(failed));
    return failed == 0;
}

long peak_memory_kilobytes()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

void print_received(const Received &received)
{
    std::printf("%ld writes, %lld bytes, %lld unexpected\n", received.writes, received.bytes,
                received.unexpected);
}

TEST(OutputPrintf, LineFeedsAtADeepIndentNeedASmallStackBoundedMemoryAndFewWrites)
{
    const ChildResult result = run_in_child([] {
        static Counted counted;
        open_counted(&counted, _IONBF);
        set_output_stream(counted.stream);
        set_output_indent(3000);
        static OutputTask task = {&counted, repeated(70000, '\n')};
        const long memory_before = peak_memory_kilobytes();
        pthread_t thread;
        if (!start_on_small_stack(&thread, &task))
            return;
        const Received received = receive(counted, 3000, 0);
        pthread_join(thread, nullptr);
        const long grown = peak_memory_kilobytes() - memory_before;
        if (grown > 16 * 1024)
            std::printf("memory grew by %ld KiB\n", grown);
        if (received.writes > received.bytes / 32768)
            std::printf("%ld writes\n", received.writes);
        std::printf("%lld bytes, %lld unexpected\n", received.bytes, received.unexpected);
    });
    // 65534 - 3000 lines of 3001 bytes
    expect_child(result, "187664534 bytes, 0 unexpected\n", "", 0, "indent 3000");
}

TEST(OutputPrintf, AnOutputOfUpTo64KiBIsOneWriteOnAnUnbufferedStream)
{
    const struct {
        std::string rule;
        int indent;
        std::string text;
        const char *expected;
    } rows[] = {
        {"two short lines", 2, "\n\n", "1 writes, 6 bytes, 0 unexpected\n"},
        {"65534 line feeds", 0, repeated(65534, '\n'), "1 writes, 65534 bytes, 0 unexpected\n"},
        {"64 KiB", 255, repeated(256, '\n'), "1 writes, 65536 bytes, 0 unexpected\n"},
        {"above 64 KiB", 255, repeated(257, '\n'), "2 writes, 65792 bytes, 0 unexpected\n"},
        {"nothing at all", 0, "", "0 writes, 0 bytes, 0 unexpected\n"},
    };
    for (const auto &row : rows) {
        const ChildResult result = run_in_child([&] {
            static Counted counted;
            open_counted(&counted, _IONBF);
            set_output_stream(counted.stream);
            set_output_indent(row.indent);
            output_printf("%s", row.text.c_str());
            print_received(receive(counted, static_cast<std::size_t>(row.indent), MSG_DONTWAIT));
        });
        expect_child(result, row.expected, "", 0, row.rule);
    }
}

TEST(OutputPrintf, ALongOutputIsFlushedOnceAndAtItsEnd)
{
    const ChildResult result = run_in_child([] {
        static Counted counted;
        open_counted(&counted, _IOFBF);
        set_output_stream(counted.stream);
        set_output_indent(99);
        output_printf("%s", repeated(1500, '\n').c_str());
        print_received(receive(counted, 99, MSG_DONTWAIT));
    });
    expect_child(result, "1 writes, 150000 bytes, 0 unexpected\n", "", 0, "one flush");
}

// The abort exception

TEST_F(Abort, ExceptionIsAPlainClassOfFileLineCodeAndReservedWord)
{
    static_assert(!std::is_polymorphic_v<QuintralAbortException>);
    static_assert(std::is_standard_layout_v<QuintralAbortException>);
    static_assert(std::is_copy_constructible_v<QuintralAbortException>);
    static_assert(std::is_same_v<decltype(QuintralAbortException::file), const char *>);
    static_assert(std::is_same_v<decltype(QuintralAbortException::line), std::int32_t>);
    static_assert(std::is_same_v<decltype(QuintralAbortException::code), std::int32_t>);
    static_assert(std::is_same_v<decltype(QuintralAbortException::reserved), std::int32_t>);
    constexpr std::size_t pointer = sizeof(const char *);
    EXPECT_EQ(offsetof(QuintralAbortException, file), 0u);
    EXPECT_EQ(offsetof(QuintralAbortException, line), pointer);
    EXPECT_EQ(offsetof(QuintralAbortException, code), pointer + 4);
    EXPECT_EQ(offsetof(QuintralAbortException, reserved), pointer + 8);
}

TEST_F(Abort, ThrowAbortThrowsByValueWhatItIsGivenAndAReservedWordOf0)
{
    const char *file = "support/c-utils";
    const struct {
        int code;
        int line;
    } rows[] = {{1, 369}, {5, 419}, {0, 0}, {-1, -1}, {INT_MAX, INT_MIN}};
    for (const auto &row : rows) {
        bool caught = false;
        try {
            throw_abort(row.code, file, row.line);
        } catch (QuintralAbortException abort) { // by value: copies are the same
            caught = true;
            EXPECT_EQ(abort.file, file);
            EXPECT_EQ(abort.line, row.line);
            EXPECT_EQ(abort.code, row.code);
            EXPECT_EQ(abort.reserved, 0);
        }
        EXPECT_TRUE(caught) << "code " << row.code;
    }
    EXPECT_TRUE(records.empty());
}

// Assertions

// What a failed assertion throws, whatever it is; file is null where nothing was thrown.
QuintralAbortException thrown_by(const std::function<void()> &body)
{
    try {
        body();
    } catch (const QuintralAbortException &abort) {
        return abort;
    }
    return QuintralAbortException(nullptr, 0, 0);
}

void expect_assertion_abort(const QuintralAbortException &abort)
{
    EXPECT_STREQ(abort.file, "support/error");
    EXPECT_EQ(abort.line, 419);
    EXPECT_EQ(abort.code, 5);
    EXPECT_EQ(abort.reserved, 0);
}

TEST_F(Assertion, AFailureLogsReportsOneErrorCountsItAndThrowsItsOwnPlace)
{
    const std::int32_t before = message_count();
    expect_assertion_abort(
        thrown_by([] { report_assertion_failure("width > 0", "layers.cpp", 12); }));
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].first, Error);
    EXPECT_EQ(records[0].text, "A Quintral internal error has occurred. Please save your work soon "
                               "and restart.\n");
    EXPECT_EQ(records[0].log_calls_seen, 2); // the location, then the message
    EXPECT_EQ(log_hook_calls, 2);
    EXPECT_EQ(message_count(), before + 1);
}

TEST_F(Assertion, TextsOfAnyLengthAreCut)
{
    const std::string text = repeated(100000);
    expect_assertion_abort(
        thrown_by([&] { report_assertion_failure(text.c_str(), "layers.cpp", INT_MIN); }));
    expect_assertion_abort(
        thrown_by([&] { report_assertion_failure("width", text.c_str(), INT_MAX); }));
    expect_assertion_abort(thrown_by([] { report_assertion_failure("%s%n", "%s", 0); }));
    EXPECT_EQ(records.size(), 3u);
}

TEST_F(Assertion, AConditionThatHoldsDoesNothingAndIsEvaluatedOnce)
{
    const std::int32_t before = message_count();
    int evaluated = 0;
    QUINTRAL_ASSERT(++evaluated == 1);
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(message_count(), before);
    EXPECT_EQ(log_hook_calls, 0);
}

TEST_F(Assertion, AConditionThatDoesNotHoldIsEvaluatedOnceAndThrows)
{
    int evaluated = 0;
    expect_assertion_abort(thrown_by([&] { QUINTRAL_ASSERT(++evaluated == 2); }));
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(records.size(), 1u);
}

struct Truth {
    bool value;
    explicit operator bool() const
    {
        return value;
    }
};

TEST_F(Assertion, TakesWhateverAnIfTakes)
{
    const char *none = nullptr;
    const char *text = "text";
    QUINTRAL_ASSERT(text);
    QUINTRAL_ASSERT(text && *text);
    QUINTRAL_ASSERT(Truth{true});
    QUINTRAL_ASSERT(none == nullptr || *none != '\0');
    expect_assertion_abort(thrown_by([&] { QUINTRAL_ASSERT(none); }));
    expect_assertion_abort(thrown_by([] { QUINTRAL_ASSERT(Truth{false}); }));
    expect_assertion_abort(thrown_by([] { QUINTRAL_ASSERT(0 || 0); }));
}

// The branch that an assertion before else leads to.
int branch_of(bool condition)
{
    int branch = 1;
    if (condition)
        QUINTRAL_ASSERT(condition);
    else
        branch = 2;
    return branch;
}

TEST_F(Assertion, IsOneStatementBeforeElseAndAnExpressionOfTypeVoid)
{
    EXPECT_EQ(branch_of(true), 1);
    EXPECT_EQ(branch_of(false), 2);
    EXPECT_EQ((QUINTRAL_ASSERT(true), 3), 3);
    static_assert(std::is_void_v<decltype(QUINTRAL_ASSERT(true))>);
}

#define TEXT_OF(...) #__VA_ARGS__
#define EXPANDED_TEXT_OF(...) TEXT_OF(__VA_ARGS__)

TEST_F(Assertion, PassesItsConditionAsWrittenItsFileAndItsLine)
{
    const std::string expansion = EXPANDED_TEXT_OF(QUINTRAL_ASSERT(EOF < 0));
    const std::string line = std::to_string(__LINE__ - 1);
    EXPECT_NE(expansion.find("\"EOF < 0\", \"" __FILE__ "\", " + line), std::string::npos)
        << expansion;
}

TEST(FailedAssertion, PrintsExactlyOneLineOnStandardErrorAndIsCaughtByItsHost)
{
    const std::int32_t before = message_count();
    const ChildResult result = run_in_child([before] {
        const QuintralAbortException abort = thrown_by([] { QUINTRAL_ASSERT(1 > 2); });
        std::printf("code %d, %s:%d, %d messages", abort.code, abort.file, abort.line,
                    message_count() - before);
    });
    expect_child(result, "code 5, support/error:419, 1 messages", assertion_line, 0, "assertion");
}

TEST(FailedAssertion, IsCapturedWithTheTestHandlerAndStillThrown)
{
    const ChildResult result = run_in_child([] {
        set_message_handler(test_message_handler);
        const QuintralAbortException abort = thrown_by([] { QUINTRAL_ASSERT(1 > 2); });
        std::printf("code %d", abort.code);
    });
    expect_child(result, "QUINTRALTEST" + assertion_line + "ENDQUINTRALTEST\ncode 5", "", 0,
                 "assertion");
}

TEST(FailedAssertion, ThatNobodyCatchesEndsTheProcessByAbort)
{
    const ChildResult result = run_in_child([] {
        QUINTRAL_ASSERT(1 > 2);
        std::fputs("went on", stdout);
    });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.exit_status, -1);
    EXPECT_EQ(result.output, "");
    // What the language's runtime says stands behind it.
    expect_bytes(result.error.substr(0, assertion_line.size()), assertion_line, "standard error");
}

TEST(UncaughtAbort, EndsTheProcessByAbortAndReportsNothing)
{
    const ChildResult result = run_in_child([] {
        std::atexit([] { std::fputs("at exit", stdout); });
        set_message_handler(test_message_handler);
        throw_abort(1, "support/c-utils", 369);
    });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.output, "");
}

// The example

#ifdef QUINTRAL_DIAGNOSTICS_EXAMPLE // where the build has it

TEST(DiagnosticsExample, PrintsWhatItsPageShows)
{
    const ChildResult result = tests::run_child({QUINTRAL_DIAGNOSTICS_EXAMPLE});
    expect_child(result,
                 "[host] Note: The layer is now 640 pixels wide.\n"
                 "[host] " +
                     assertion_line +
                     "[host] abort 5 at support/error:419\n"
                     "Layers:\n"
                     "..background\n"
                     "..title\n"
                     "QUINTRALTESTWarning: low disk\a\n"
                     "ENDQUINTRALTEST\n"
                     "QUINTRALTESTstatus: hello\n"
                     "ENDQUINTRALTEST\n"
                     "4 messages\n",
                 "Error: Close file failed.\a\nSaved.\n", 0, "the example");
}

#endif

} // namespace
} // namespace quintral
