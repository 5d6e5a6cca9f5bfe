// Random vectors, lists and starting states: the parser keeps its promises for all of them.
#include "cmdline/long-options.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/cmdline/long-options-calls.h"
#include "tests/cmdline/simple-long-options.h"
#include "tests/harness/captured-output.h"

namespace quintral::tests {
namespace {

std::string random_text(std::mt19937 &random, const char *alphabet, std::size_t longest)
{
    const std::size_t letters = std::strlen(alphabet);
    std::string text;
    for (std::size_t length = random() % (longest + 1); text.size() < length;)
        text += alphabet[random() % letters];
    return text;
}

// The strings own what the pointers point to.
struct RandomCase {
    std::string vector;
    std::vector<std::string> names;
    std::vector<LongOption> table;
    std::string short_options;
    Mode mode = nullptr;
    VectorEnd end = VectorEnd::CountAndNull;
};

void fill_random_table(std::mt19937 &random, RandomCase &random_case)
{
    for (std::size_t count = random() % 5; random_case.names.size() < count;)
        random_case.names.push_back(random_text(random, "abx-=", 3));
    int value = 1000;
    for (const std::string &name : random_case.names)
        random_case.table.push_back({name.c_str(), static_cast<std::int32_t>(random() % 3),
                                     random() % 2 == 0 ? nullptr : &stored, ++value});
    random_case.table.push_back({nullptr, NoArgument, nullptr, 0});
}

void fill_random_case(std::mt19937 &random, RandomCase &random_case)
{
    random_case.vector = random() % 20 == 0 ? "--" : "prog";
    for (std::size_t words = random() % 7; words > 0; --words)
        random_case.vector += "|" + random_text(random, "---++abx=:5.e \xE9", 5);
    fill_random_table(random, random_case);
    random_case.short_options = random_text(random, "+-abx5::", 6);
    random_case.mode = {random() % 4 == 0 ? nullptr : random_case.short_options.c_str(),
                        random() % 3 == 0 ? nullptr : random_case.table.data(),
                        static_cast<int>(random() % 2)};
    random_case.end = static_cast<VectorEnd>(random() % 3);
}

std::string describe(const RandomCase &random_case)
{
    std::string text = "short options ";
    text += random_case.mode.short_options == nullptr ? "null" : random_case.mode.short_options;
    text += random_case.mode.long_only != 0 ? ", long-only" : "";
    text += ", vector " + random_case.vector;
    text += random_case.mode.long_options == nullptr ? ", no table" : ", table";
    for (const LongOption &entry : random_case.table) {
        if (entry.name != nullptr)
            text += " \"" + std::string(entry.name) + "\" " + std::to_string(entry.has_argument);
    }
    return text;
}

void set_random_state(std::mt19937 &random, int count)
{
    reset_parser();
    if (random() % 4 != 0)
        return;
    option_index = static_cast<int>(random() % static_cast<unsigned>(count + 1));
    option_position = static_cast<int>(random() % 12) - 3;
}

// The result must be one that the lists allow, and is stored as the code unless it is a long match.
bool is_possible(const RandomCase &random_case, int result, int long_index)
{
    if (result == -1)
        return long_index == untouched;
    if (long_index == untouched)
        return result == option_code;
    const LongOption &entry = random_case.table[static_cast<std::size_t>(long_index)];
    return entry.flag == nullptr ? result == entry.value : result == 0 && stored == entry.value;
}

std::vector<char *> sorted_elements(const Arguments &arguments)
{
    std::vector<char *> elements(arguments.vector.get(),
                                 arguments.vector.get() + arguments.texts.size());
    std::sort(elements.begin(), elements.end());
    return elements;
}

void check_random_case(const RandomCase &random_case, const Arguments &arguments)
{
    const std::vector<char *> elements = sorted_elements(arguments);
    const int count = static_cast<int>(elements.size());
    for (int call = 0; call < 30; ++call) {
        int long_index = untouched;
        stored = untouched;
        const int result =
            parse_options(arguments.count, arguments.vector.get(), random_case.mode.short_options,
                          random_case.mode.long_options, &long_index, random_case.mode.long_only);
        ASSERT_GE(option_index, 0);
        ASSERT_LE(option_index, count);
        ASSERT_EQ(elements, sorted_elements(arguments)) << "elements were lost";
        ASSERT_EQ(arguments.texts[0].get(), arguments.vector[0]) << "the program name moved";
        ASSERT_TRUE(points_into(arguments, option_argument));
        if (random_case.mode.short_options != nullptr || random_case.mode.long_options != nullptr) {
            ASSERT_TRUE(is_possible(random_case, result, long_index)) << "result " << result;
        }
    }
}

TEST(LongOptionsRandom, AnyVectorKeepsTheIndexInRangeAndTheVectorComplete)
{
    std::mt19937 random(20090417);
    const std::string messages = captured_error([&] {
        for (int i = 0; i < 4000 && !HasFatalFailure(); ++i) {
            RandomCase random_case;
            fill_random_case(random, random_case);
            const Arguments arguments = make_arguments(random_case.vector, random_case.end);
            set_random_state(random, static_cast<int>(arguments.texts.size()));
            SCOPED_TRACE("case " + std::to_string(i) + ": " + describe(random_case));
            check_random_case(random_case, arguments);
        }
    });
    EXPECT_NE(std::string::npos, messages.find("is ambiguous"));
    EXPECT_NE(std::string::npos, messages.find("argument required"));
    EXPECT_NE(std::string::npos, messages.find("invalid option -- `-'"));
    EXPECT_EQ(std::string::npos, messages.find('\0'));
    reset_parser();
}

// A parser with its five variables.
struct Parser {
    decltype(&parse_options) parse;
    int *index;
    int *position;
    char **argument;
    int *errors;
    int *code;
};

const Parser library_parser = {parse_options,    &option_index,  &option_position,
                               &option_argument, &option_errors, &option_code};
const Parser simple_parser = {simple::parse_options,    &simple::option_index,
                              &simple::option_position, &simple::option_argument,
                              &simple::option_errors,   &simple::option_code};

// Makes up to `calls` calls, from the given index and position. Returns everything that each of
// them gives and leaves, and what all of them print.
std::string all_effects(const Parser &parser, const RandomCase &random_case, int index,
                        int position, int calls)
{
    Arguments arguments = make_arguments(random_case.vector, random_case.end);
    std::string effects;
    *parser.index = index;
    *parser.position = position;
    *parser.argument = nullptr;
    *parser.code = '?';
    const std::string messages = captured_error([&] {
        for (int result = 0; calls > 0 && result != -1; --calls) {
            int long_index = untouched;
            stored = untouched;
            result = parser.parse(arguments.count, arguments.vector.get(),
                                  random_case.mode.short_options, random_case.mode.long_options,
                                  &long_index, random_case.mode.long_only);
            for (const int number : {result, long_index, *parser.index, *parser.position,
                                     *parser.errors, *parser.code, static_cast<int>(stored)})
                effects += std::to_string(number) + " ";
            effects += *parser.argument == nullptr ? "null" : "=" + std::string(*parser.argument);
            effects += " [" + join_words(arguments) + "]\n";
        }
    });
    return effects + messages;
}

TEST(LongOptionsRandom, AnyVectorGivesWhatTheSimplestFormGives)
{
    std::mt19937 random(20240119);
    for (int i = 0; i < 4000 && !HasFailure(); ++i) {
        RandomCase random_case;
        fill_random_case(random, random_case);
        const std::size_t words = split(random_case.vector).size();
        const bool begin = random() % 4 != 0;
        const int index = begin ? 0 : static_cast<int>(random() % (words + 1));
        const int position = begin ? 0 : static_cast<int>(random() % 12) - 3;
        if (random() % 8 == 0)
            setenv("POSIXLY_CORRECT", "", 1);
        reset_parser();
        EXPECT_EQ(all_effects(library_parser, random_case, index, position, 30),
                  all_effects(simple_parser, random_case, index, position, 30))
            << "case " << i << ": " << describe(random_case);
        unsetenv("POSIXLY_CORRECT");
    }
    reset_parser();
}

// Words that begin as numbers do, in every length up to the longest that differs.
TEST(LongOptionsRandom, AnyNumberIsAnOperandAsInTheSimplestForm)
{
    std::mt19937 random(20240120);
    static const char *const starts[] = {"",     "inf", "nan", "INF", "NaN", "Infinity",
                                         "nan(", "i",   "n",   "0x",  "1e",  "."};
    for (int i = 0; i < 2000 && !HasFailure(); ++i) {
        RandomCase random_case;
        random_case.vector = "prog|-";
        random_case.vector += starts[random() % std::size(starts)];
        random_case.vector += random_text(random, "iInNaAfFtTyY05.,eExp+-() ", 4);
        random_case.mode = {"in:", kinds, static_cast<int>(random() % 2)};
        reset_parser();
        EXPECT_EQ(all_effects(library_parser, random_case, 0, 0, 12),
                  all_effects(simple_parser, random_case, 0, 0, 12))
            << random_case.vector;
    }
    reset_parser();
}

// A program that reuses the memory of its vector, and one that sets the position itself.
TEST(LongOptionsRandom, ALengthIsNotKeptForOtherStringsOrPositions)
{
    char word[] = "-abcdef";
    char name[] = "prog";
    char *vector[] = {name, word, nullptr};
    reset_parser();
    EXPECT_EQ(parse_options(2, vector, "abcdef", nullptr, nullptr, 0), 'a');
    EXPECT_EQ(parse_options(2, vector, "abcdef", nullptr, nullptr, 0), 'b');
    option_index = 0;
    std::strcpy(word, "-f");
    EXPECT_EQ(parse_options(2, vector, "abcdef", nullptr, nullptr, 0), 'f');
    EXPECT_EQ(option_index, 2);

    std::strcpy(word, "-abcdef");
    option_index = 0;
    EXPECT_EQ(parse_options(2, vector, "abcdef", nullptr, nullptr, 0), 'a');
    option_position = 6;
    EXPECT_EQ(parse_options(2, vector, "abcdef", nullptr, nullptr, 0), 'f');
    EXPECT_EQ(option_index, 2);

    // Without option_index 0, at the start of a word and past the end of another one.
    std::strcpy(word, "-f");
    option_index = 0;
    EXPECT_EQ(parse_options(2, vector, "abcdef", nullptr, nullptr, 0), 'f');
    std::strcpy(word, "-abcdef");
    option_index = 1;
    EXPECT_EQ(parse_options(2, vector, "abcdef", nullptr, nullptr, 0), 'a');
    EXPECT_EQ(parse_options(2, vector, "abcdef", nullptr, nullptr, 0), 'b');
    EXPECT_EQ(option_index, 1);
    std::strcpy(word, "-f");
    word[5] = 'e';
    option_position = 5;
    option_errors = 0;
    EXPECT_EQ(parse_options(2, vector, "abcdef", nullptr, nullptr, 0), '?');
    EXPECT_EQ(option_index, 2);
    reset_parser();
}

} // namespace
} // namespace quintral::tests
