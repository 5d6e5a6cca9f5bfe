// A fixture for tests of support/error.h: it records what reaches the handlers, and counts how
// often the log hook is called.
#ifndef QUINTRAL_TESTS_SUPPORT_RECORDED_MESSAGES_H
#define QUINTRAL_TESTS_SUPPORT_RECORDED_MESSAGES_H

#include "support/error.h"
#include "support/time-source.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral::tests {

struct RecordedMessage {
    int level; // -1 for print_text
    std::string text;
    std::string tag;
    std::int32_t count_seen; // message_count() while the handler ran
    int log_calls_seen;      // log_hook_calls then
};

inline std::vector<RecordedMessage> records;

// The log hook writes nothing. It asks for the time once, which is how a test sees its calls.
inline int log_hook_calls = 0;
inline std::time_t fixed_time = 0; // 0: the system's time

inline void record_message(MessageLevel level, const char *text)
{
    records.push_back({level, text, "", message_count(), log_hook_calls});
}

inline void record_text(const char *text, const char *tag)
{
    records.push_back({-1, text, tag, message_count(), log_hook_calls});
}

// Installs the handlers for the length of a test and restores the defaults.
class RecordedMessages : public testing::Test {
protected:
    void SetUp() override
    {
        records.clear();
        log_hook_calls = 0;
        fixed_time = 0;
        ASSERT_EQ(set_message_handler(record_message), default_message_handler);
        ASSERT_EQ(set_print_handler(record_text), default_print_handler);
        time_source.time = [] {
            ++log_hook_calls;
            return fixed_time != 0 ? fixed_time : std::time(nullptr);
        };
    }

    void TearDown() override
    {
        time_source = saved_time_source_;
        EXPECT_EQ(set_message_handler(nullptr), record_message);
        EXPECT_EQ(set_print_handler(nullptr), record_text);
    }

private:
    TimeSource saved_time_source_ = time_source;
};

} // namespace quintral::tests

#endif
