// The abort exception and assertions: what is thrown, reported and counted, and how a process ends.
#include "support/error.h"

#include "tests/support/error-checks.h"
#include "tests/support/recorded-messages.h"

#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using tests::assertion_line;
using tests::ChildResult;
using tests::expect_bytes;
using tests::expect_child;
using tests::log_hook_calls;
using tests::records;
using tests::run_in_child;

using Abort = tests::RecordedMessages;
using Assertion = tests::RecordedMessages;

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

TEST_F(Abort, ThrowAbortThrowsItsArgumentsByValueAndAReservedWordOf0)
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
        } catch (QuintralAbortException abort) { // by value, to check a copy
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

// Returns the abort exception that body throws; its file is null if nothing was thrown.
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

TEST_F(Assertion, AFailureIsLoggedReportedOnceCountedAndThrown)
{
    const std::int32_t before = message_count();
    expect_assertion_abort(
        thrown_by([] { report_assertion_failure("width > 0", "layers.cpp", 12); }));
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].level, Error);
    EXPECT_EQ(records[0].text, "A Quintral internal error has occurred. Please save your work soon "
                               "and restart.\n");
    EXPECT_EQ(records[0].log_calls_seen, 2); // the location, then the message
    EXPECT_EQ(log_hook_calls, 2);
    EXPECT_EQ(message_count(), before + 1);
}

TEST_F(Assertion, LongStringsAreCut)
{
    const std::string text(100000, 'x');
    expect_assertion_abort(
        thrown_by([&] { report_assertion_failure(text.c_str(), "layers.cpp", INT_MIN); }));
    expect_assertion_abort(
        thrown_by([&] { report_assertion_failure("width", text.c_str(), INT_MAX); }));
    expect_assertion_abort(thrown_by([] { report_assertion_failure("%s%n", "%s", 0); }));
    EXPECT_EQ(records.size(), 3u);
}

TEST_F(Assertion, ATrueConditionDoesNothingAndIsEvaluatedOnce)
{
    const std::int32_t before = message_count();
    int evaluated = 0;
    QUINTRAL_ASSERT(++evaluated == 1);
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(message_count(), before);
    EXPECT_EQ(log_hook_calls, 0);
}

TEST_F(Assertion, AFalseConditionIsEvaluatedOnceAndThrows)
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

TEST_F(Assertion, AcceptsWhateverAnIfAccepts)
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

// Returns the branch that is taken with an assertion before else.
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

TEST_F(Assertion, PassesItsConditionAsWrittenWithFileAndLine)
{
    const std::string expansion = EXPANDED_TEXT_OF(QUINTRAL_ASSERT(EOF < 0));
    const std::string line = std::to_string(__LINE__ - 1);
    EXPECT_NE(expansion.find("\"EOF < 0\", \"" __FILE__ "\", " + line), std::string::npos)
        << expansion;
}

TEST(FailedAssertion, PrintsOneLineOnStandardErrorAndCanBeCaught)
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

TEST(FailedAssertion, EndsTheProcessByAbortIfNobodyCatchesIt)
{
    const ChildResult result = run_in_child([] {
        QUINTRAL_ASSERT(1 > 2);
        std::fputs("went on", stdout);
    });
    EXPECT_EQ(result.signal, SIGABRT);
    EXPECT_EQ(result.exit_status, -1);
    EXPECT_EQ(result.output, "");
    // The language's runtime adds its own message.
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

} // namespace
} // namespace quintral
