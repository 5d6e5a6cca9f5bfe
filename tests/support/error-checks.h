// What the tests of support/error.h share: one row for each level, comparisons of long strings, and
// checks of what a child process wrote.
#ifndef QUINTRAL_TESTS_SUPPORT_ERROR_CHECKS_H
#define QUINTRAL_TESTS_SUPPORT_ERROR_CHECKS_H

#include "support/error.h"
#include "tests/harness/child-process.h"

#include <climits>
#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace quintral::tests {

// A wide character that no test locale can convert to bytes, so that formatting it fails.
inline const wchar_t unprintable[] = {static_cast<wchar_t>(0x7ffffff0), 0};

inline const std::string assertion_line =
    "Error: A Quintral internal error has occurred. Please save your work soon and restart.\a\n";

struct LevelRow {
    MessageLevel level;
    std::string before; // the text
    std::string after;
};

inline const LevelRow level_rows[] = {
    {Log, "Log: ", ""},
    {Plain, "", ""},
    {Info, "Info: ", ""},
    {Note, "Note: ", ""},
    {InfoBell, "Info: ", "\a"},
    {NoteBell, "Note: ", "\a"},
    {PlainBell, "\a", ""},
    {Alert, "Alert: ", "\a"},
    {Warning, "Warning: ", "\a"},
    {Error, "Error: ", "\a"},
    {FatalError, "Fatal Error: ", "\a"},
    // outside 0 to 10
    {11, "Warning: ", "\a"},
    {-1, "Warning: ", "\a"},
    {INT_MAX, "Warning: ", "\a"},
    {INT_MIN, "Warning: ", "\a"},
};

inline std::string rule_of(const LevelRow &row)
{
    return "level " + std::to_string(row.level);
}

// A string for a failure message: its length, and only the ends of a long one.
inline std::string shown(const std::string &text)
{
    const std::string counted = " (" + std::to_string(text.size()) + " bytes)";
    if (text.size() <= 200)
        return testing::PrintToString(text) + counted;
    return testing::PrintToString(text.substr(0, 80)) + " ... " +
           testing::PrintToString(text.substr(text.size() - 80)) + counted;
}

inline void expect_bytes(const std::string &actual, const std::string &expected,
                         const std::string &rule)
{
    EXPECT_TRUE(actual == expected)
        << rule << "\nexpected " << shown(expected) << "\nactual   " << shown(actual);
}

// Compares all that a child wrote, and its status. A signal must not have ended it.
inline void expect_child(const ChildResult &result, const std::string &output,
                         const std::string &error, int exit_status, const std::string &rule)
{
    expect_bytes(result.output, output, rule + ", standard output");
    expect_bytes(result.error, error, rule + ", standard error");
    EXPECT_EQ(result.exit_status, exit_status) << rule;
    EXPECT_EQ(result.signal, 0) << rule;
}

// Runs body in a child that then exits with status 0.
inline ChildResult run_in_child(const std::function<void()> &body, const ChildOptions &options = {})
{
    return run_child_function(
        [&] {
            body();
            return 0;
        },
        options);
}

} // namespace quintral::tests

#endif
