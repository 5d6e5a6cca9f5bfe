// Long options: which words are read as one, abbreviation, and what a match returns.
#include "cmdline/long-options.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/cmdline/long-options-calls.h"

namespace quintral::tests {
namespace {

const LongOption alphas[] = {
    {"alpha", NoArgument, nullptr, 201},
    {"alpha-one", NoArgument, nullptr, 202},
    {"alpha-two", NoArgument, nullptr, 203},
    {nullptr, NoArgument, nullptr, 0},
};
const LongOption exact_after_one[] = {
    {"abc", NoArgument, nullptr, 301},
    {"ab", NoArgument, nullptr, 303},
    {nullptr, NoArgument, nullptr, 0},
};
const LongOption exact_after_two[] = {
    {"abc", NoArgument, nullptr, 301},
    {"abd", NoArgument, nullptr, 302},
    {"ab", NoArgument, nullptr, 303},
    {nullptr, NoArgument, nullptr, 0},
};

const Mode alphas_only = {nullptr, alphas, 1};
const Mode after_one = {nullptr, exact_after_one};
const Mode after_two = {nullptr, exact_after_two};

TEST(LongOptionsLong, NeedTwoDashesOutsideLongOnlyMode)
{
    const std::string o_and_e = invalid("-o") + invalid("-e");
    const std::vector<std::string> cluster = {"n 1.2", "?! 1.3", "n 1.4", "?! 2"};
    const std::vector<std::string> x_and_dash = {"x 1.2", "x 2", "?! 2.2", "x 3"};
    run_rows({
        {"two dashes", "--none", {"n", kinds}, {"101 2 #0"}},
        {"one dash is a cluster", "-none", {"n", kinds}, cluster, o_and_e},
        {"plus is an operand", "+none", {"n", kinds}, {"end 1"}},
        {"long-only, two dashes", "--none", {"n", kinds, 1}, {"101 2 #0"}},
        {"long-only, one dash", "-none", {"n", kinds, 1}, {"101 2 #0"}},
        {"long-only, plus", "+none", {"n", kinds, 1}, {"101 2 #0"}},
        {"long-only, a second plus belongs to the name", "++none", longs_only, {"? 2"}},
        {"long-only, a dash after plus belongs to the name", "+-none", longs_only, {"? 2"}},
        {"long-only, no table", "-xx|--x", {"x", nullptr, 1}, x_and_dash, invalid("--")},
        {"never inside a cluster", "-x-only", {"x-onl", single}, {"x 1.2", "- 1.3"}},
    });
}

TEST(LongOptionsLong, ExactNameWinsOverOnePrefixMatchAndAUniquePrefixMatches)
{
    const std::vector<std::string> three = {"401 2 #0", "401 3 #0", "401 4 #0"};
    run_rows({
        {"an exact name before longer ones", "-alpha", alphas_only, {"201 2 #0"}},
        {"a unique abbreviation", "-alpha-o", alphas_only, {"202 2 #1"}},
        {"an exact name after one prefix match", "--ab", after_one, {"303 2 #1"}},
        {"up to the '='", "--ab=c", after_one, {"303 2 #1"}},
        {"an abbreviation up to the '='", "--m=v", longs, {"103 2 #2 =v"}},
        {"letter case matters", "-NONE", longs_only, {"? 2"}},
        {"longer than the entry's name", "-nonesuch", longs_only, {"? 2"}},
        {"an empty name and one entry", "--=x|-=|+", {nullptr, single, 1}, three},
    });
}

TEST(LongOptionsLong, SecondPrefixMatchIsAmbiguousAndNotSkipped)
{
    const std::string alpha = ambiguous("-alpha-", "--alpha-one", "--alpha-two");
    const std::string ab = ambiguous("--ab", "--abc", "--abd");
    const auto none_or_need = [](const char *word) { return ambiguous(word, "--none", "--need"); };
    const Mode with_shorts = {"ab", exact_after_two};
    run_rows({
        {"one dash: reported again", "-alpha-", alphas_only, {"?! 1", "?! 1"}, alpha + alpha},
        {"an exact name after two prefix matches", "--ab", after_two, {"?! 1.2"}, ab},
        {"then short options", "--ab", with_shorts, {"?! 1.2", "a 1.3", "b 2", "end 2"}, ab},
        {"then the code without them", "--ab", after_two, {"?! 1.2", "? 1.2", "? 1.2"}, ab},
        {"shown as typed", "+n=1=2", longs_only, {"?! 1"}, none_or_need("+n=1=2")},
        {"an empty name after two dashes", "--=x", longs, {"?! 1.2"}, none_or_need("--=x")},
        {"a lone plus", "+", longs_only, {"?! 1"}, none_or_need("+")},
        {"even with short options", "-n", {"n", kinds, 1}, {"?! 1"}, none_or_need("-n")},
    });
}

TEST(LongOptionsLong, UnmatchedWordIsReadAsShortOptions)
{
    run_rows({
        {"two dashes: from the third character", "--xy", {"xy", kinds}, {"x 1.3", "y 2", "end 2"}},
        {"two dashes and one character", "--x|a", {"x", kinds}, {"x 2"}},
        {"one dash: from the second character", "-xy", {"xy", kinds, 1}, {"x 1.2", "y 2"}},
        {"plus: from the second character", "+xy", {"xy", kinds, 1}, {"x 1.2", "y 2"}},
        {"an argument attached after two dashes", "--ofile", {"o:", kinds}, {"o 2 =file"}},
        {"unknown both ways", "--zx", {"x", kinds}, {"?! 1.3", "x 2"}, invalid("-z")},
    });
}

TEST(LongOptionsLong, UnmatchedWordWithoutShortOptionsReturnsTheCodeSilently)
{
    run_rows({
        {"one dash: skipped", "-zzz|-none", longs_only, {"? 2", "101 3 #0"}},
        {"plus: skipped", "+zzz=1|-none", longs_only, {"? 2"}},
        {"two dashes: not skipped, position 2", "--zzz|--none", longs_only, {"? 1.2", "? 1.2"}},
        {"one dash outside long-only mode: skipped", "-zzz|--none", longs, {"? 2", "101 3 #0"}},
        {"an empty table, a lone plus", "+", {nullptr, no_entries, 1}, {"? 2"}},
    });
}

TEST(LongOptionsLong, UnmatchedWordReturnsThePresetCode)
{
    const std::vector<std::string> calls = {"z 2", "101 3 #0", "z 4", "end 4"};
    reset_parser();
    option_code = 'z';
    continue_row({"set by the caller", "-zzz|-none|-zzz", longs_only, calls});
}

TEST(LongOptionsLong, MatchStoresItsValueThroughTheFlagOrReturnsIt)
{
    run_rows({
        {"with a flag: 0, and the value is stored", "--store", longs, {"0 2 #3 flag 104"}},
        {"with a flag and an argument", "--keep=v", longs, {"0 2 #4 flag 105 =v"}},
        {"without a flag: the value", "--none", longs, {"101 2 #0"}},
        {"nothing is stored without an argument", "--keep", longs, {":! 2.2"}, missing("--keep")},
        {"the code of the last short option stays", "-x|--none", {"x", kinds}, {"x 2", "101 3 #0"}},
    });
}

TEST(LongOptionsLong, IndexMayBeNull)
{
    const Arguments arguments = make_arguments("prog|--store");
    reset_parser();
    stored = untouched;
    EXPECT_EQ(0, parse_options(2, arguments.vector.get(), nullptr, kinds, nullptr, 0));
    EXPECT_EQ(104, stored);
}

} // namespace
} // namespace quintral::tests
