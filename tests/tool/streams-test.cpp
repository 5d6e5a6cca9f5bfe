// How failures and notes are reported.
#include "support/error.h"
#include "tool/streams.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/harness/message-handler-guard.h"

namespace quintral {
namespace {

std::string reported;

void collect_message(MessageLevel level, const char *text)
{
    reported += std::to_string(level) + " " + text + ";";
}

TEST(ShowFailure, ReportsOneSafeLineAtLevelError)
{
    const tests::MessageHandlerGuard guard(collect_message);
    reported.clear();
    show_failure("50% of\n\x1B");
    EXPECT_EQ(reported, "9 50% of\\x0A\\x1B;");
    reported.clear();
    show_failure(std::string(2000, 'x').c_str());
    EXPECT_EQ(reported, "9 " + std::string(1003, 'x') + ";");
}

TEST(ShowNote, ReportsOneSafeLineAtLevelNote)
{
    const tests::MessageHandlerGuard guard(collect_message);
    reported.clear();
    show_note("%s\r");
    EXPECT_EQ(reported, "3 %s\\x0D;");
}

} // namespace
} // namespace quintral
