// Calls of the option parser for its tests. A row holds an argument vector and the expected state
// after each call, in a short notation:
//
//     {"an unknown option at the end", "-xq|a", "x", {"x 1.2", "?! 2", "end 2"}, invalid("-q")}
//
// parses "prog -xq a" with the short options "x". Each call is shown as its result ("end" for -1, a
// printable character for a short option or an error, otherwise a number) and option_index, with
//
//     !          after the result if a message was printed; the row ends with all messages
//     .2         option_position, unless it is 1
//     #1         the index of a long option
//     flag 104   the value stored through a flag
//     =file      option_argument, unless it is null
//     [-x|a]     the elements after the program name, if their order changed
//     code 63    option_code, if it is wrong: a long option and -1 leave it unchanged, any other
//                result is stored there
#ifndef QUINTRAL_TESTS_CMDLINE_LONG_OPTIONS_CALLS_H
#define QUINTRAL_TESTS_CMDLINE_LONG_OPTIONS_CALLS_H

#include "cmdline/long-options.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/harness/captured-output.h"

namespace quintral::tests {

// Put into the long index and the flag before each call, to see which calls write them.
constexpr int untouched = -77;

inline std::int32_t stored = untouched;

const LongOption kinds[] = {
    {"none", NoArgument, nullptr, 101},        {"need", RequiredArgument, nullptr, 102},
    {"maybe", OptionalArgument, nullptr, 103}, {"store", NoArgument, &stored, 104},
    {"keep", RequiredArgument, &stored, 105},  {nullptr, NoArgument, nullptr, 0}, // the end
};
const LongOption single[] = {
    {"only", NoArgument, nullptr, 401},
    {nullptr, NoArgument, nullptr, 0},
};
const LongOption no_entries[] = {
    {nullptr, NoArgument, nullptr, 0},
};

// The lists and the mode of a call.
struct Mode {
    const char *short_options;
    const LongOption *long_options;
    int long_only;

    Mode(const char *shorts, const LongOption *longs = nullptr, int only = 0)
        : short_options(shorts), long_options(longs), long_only(only)
    {
    }
};

const Mode longs = {nullptr, kinds};
const Mode longs_only = {nullptr, kinds, 1};

struct Row {
    std::string rule;
    std::string words; // with '|' between them; empty for none
    Mode mode;
    std::vector<std::string> calls;
    std::string messages = {}; // NOLINT(readability-redundant-string-init): rows may leave it out
    std::string program = "prog";
};

inline std::string invalid(const std::string &option)
{
    return "prog: invalid option -- `" + option + "'\n";
}

inline std::string missing(const std::string &option)
{
    return "prog: argument required for option `" + option + "'\n";
}

inline std::string ambiguous(const std::string &word, const std::string &first,
                             const std::string &second)
{
    return "prog: option `" + word + "' is ambiguous (could be `" + first + "' or `" + second +
           "')\n";
}

// A vector ends by its count, with or without a null after it, or by a null before its count.
enum class VectorEnd { CountAndNull, CountAlone, NullAlone };

// An argument vector in blocks of exactly its size, so that a sanitizer sees any read beyond them.
struct Arguments {
    int count;
    std::vector<std::unique_ptr<char[]>> texts;
    std::unique_ptr<char *[]> vector;
};

inline std::vector<std::string> split(const std::string &joined)
{
    std::vector<std::string> words;
    std::size_t begin = 0;
    for (std::size_t end; (end = joined.find('|', begin)) != std::string::npos; begin = end + 1)
        words.push_back(joined.substr(begin, end - begin));
    words.push_back(joined.substr(begin));
    return words;
}

// `joined` holds the elements with '|' between them, the program name first.
inline Arguments make_arguments(const std::string &joined, VectorEnd end = VectorEnd::CountAndNull)
{
    const std::vector<std::string> elements = split(joined);
    Arguments arguments;
    const std::size_t nulls = end == VectorEnd::CountAlone ? 0 : 1;
    arguments.vector = std::make_unique<char *[]>(elements.size() + nulls);
    for (const std::string &element : elements) {
        arguments.texts.push_back(std::make_unique<char[]>(element.size() + 1));
        std::memcpy(arguments.texts.back().get(), element.c_str(), element.size() + 1);
        arguments.vector[arguments.texts.size() - 1] = arguments.texts.back().get();
    }
    arguments.count = static_cast<int>(elements.size()) + (end == VectorEnd::NullAlone ? 2 : 0);
    return arguments;
}

inline std::string join_words(const Arguments &arguments)
{
    std::string joined;
    for (std::size_t i = 1; i < arguments.texts.size(); ++i)
        joined += (i == 1 ? "" : "|") + std::string(arguments.vector[i]);
    return joined;
}

// True for null and for a pointer to a byte or the terminator of an element.
inline bool points_into(const Arguments &arguments, const char *argument)
{
    return argument == nullptr ||
           std::any_of(arguments.texts.begin(), arguments.texts.end(),
                       [argument](const auto &text) {
                           return argument >= text.get() &&
                                  argument <= text.get() + std::strlen(text.get());
                       });
}

// The parse of nothing makes the parser forget the strings of the one before.
inline void reset_parser()
{
    char name[] = "prog";
    char *nothing[] = {name};
    option_index = 0;
    parse_options(1, nothing, "", nullptr, nullptr, 0);
    option_index = 0;
    option_position = 0;
    option_argument = nullptr;
    option_errors = 1;
    option_code = '?';
}

inline std::string shown_result(int result, bool is_long)
{
    if (result == -1)
        return "end";
    const bool printable = result > ' ' && result <= '~';
    return !is_long && printable ? std::string(1, static_cast<char>(result))
                                 : std::to_string(result);
}

// Makes one call and shows the state after it. What the call printed is appended to *messages.
inline std::string call_parser(const Arguments &arguments, const Mode &mode, std::string *messages)
{
    const std::string words_before = join_words(arguments);
    const int code_before = option_code;
    int result = 0;
    int long_index = untouched;
    stored = untouched;
    const std::string message = captured_error([&] {
        result = parse_options(arguments.count, arguments.vector.get(), mode.short_options,
                               mode.long_options, &long_index, mode.long_only);
    });
    *messages += message;

    const bool is_long = long_index != untouched;
    std::string state = shown_result(result, is_long) + (message.empty() ? " " : "! ") +
                        std::to_string(option_index);
    if (option_position != 1)
        state += "." + std::to_string(option_position);
    if (is_long)
        state += " #" + std::to_string(long_index);
    if (stored != untouched)
        state += " flag " + std::to_string(stored);
    if (option_argument != nullptr)
        state += " =" + std::string(option_argument);
    if (join_words(arguments) != words_before)
        state += " [" + join_words(arguments) + "]";
    if (option_code != (is_long || result == -1 ? code_before : result))
        state += " code " + std::to_string(option_code);
    EXPECT_TRUE(points_into(arguments, option_argument)) << "the argument is not in the vector";
    EXPECT_EQ(arguments.vector[0], arguments.texts[0].get()) << "the program name moved";
    return state;
}

// Makes a row's calls from the parser's current state.
inline void continue_row(const Row &row, const Arguments &arguments)
{
    SCOPED_TRACE(row.rule + ": " + row.words);
    std::vector<std::string> calls;
    std::string messages;
    while (calls.size() < row.calls.size())
        calls.push_back(call_parser(arguments, row.mode, &messages));
    EXPECT_EQ(calls, row.calls);
    EXPECT_EQ(messages, row.messages);
}

inline Arguments make_arguments(const Row &row, VectorEnd end)
{
    return make_arguments(row.program + (row.words.empty() ? "" : "|" + row.words), end);
}

inline void continue_row(const Row &row)
{
    continue_row(row, make_arguments(row, VectorEnd::CountAlone));
}

// Parses each row from the start, for every way in which a vector can end.
inline void run_rows(const std::vector<Row> &rows)
{
    for (const Row &row : rows) {
        for (VectorEnd end :
             {VectorEnd::CountAndNull, VectorEnd::CountAlone, VectorEnd::NullAlone}) {
            reset_parser();
            continue_row(row, make_arguments(row, end));
        }
    }
}

} // namespace quintral::tests

#endif
