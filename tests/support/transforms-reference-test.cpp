// The transforms that work on eight bytes at a time, against the simple loops: every byte at every
// place in a word, every short length, and random texts with the patterns that are hardest to find.
#include "support/c-utils/transforms.h"

#include "tests/support/reference-transforms.h"
#include "tests/support/transform-calls.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

using Random = std::mt19937; // its numbers are the same on every system

std::size_t below(Random *random, std::size_t limit)
{
    return (*random)() % limit;
}

std::string random_text(Random *random, std::size_t length, const std::string &bytes)
{
    std::string text(length, '\0');
    for (char &c : text)
        c = bytes[below(random, bytes.size())];
    return text;
}

// Copies

const struct {
    Copy copy;
    Copy expected;
} case_copies[] = {
    {copy_lower_case_returning_0, reference::copy_lower_case},
    {copy_upper_case, reference::copy_upper_case},
};

void expect_case_copies(const std::string &text)
{
    for (const auto &row : case_copies) {
        std::string expected(text.size(), '\0');
        row.expected(text.c_str(), expected.data());
        ASSERT_EQ(copied(row.copy, text), expected);
        ASSERT_EQ(copied_in_place(row.copy, text), expected) << "in place";
    }
}

TEST(CaseCopies, MapEveryByteAtEveryPlaceOfAWord)
{
    for (const char c : every_byte()) {
        for (std::size_t place = 0; place < 9; ++place) {
            std::string text = "aZ@[`{\x7f\x80\xff"; // 9 bytes: a word, and one that overlaps it
            text[place] = c;
            expect_case_copies(text);
        }
    }
}

TEST(CaseCopies, AreRightForEveryLengthAndForRandomBytes)
{
    Random random(1);
    for (std::size_t length = 0; length <= 64; ++length) {
        for (int i = 0; i < 20; ++i)
            expect_case_copies(random_text(&random, length, every_byte()));
    }
}

TEST(CaseCopies, NeedNoAlignment)
{
    const std::string text = "The Quick Brown Fox JUMPS";
    for (std::size_t from = 0; from < 8; ++from) {
        for (std::size_t to = 0; to < 8; ++to) {
            const std::string source = std::string(from, '-') + text;
            std::string destination(to + text.size() + 1, '-');
            copy_lower_case(source.c_str() + from, destination.data() + to);
            EXPECT_STREQ(destination.c_str() + to, "the quick brown fox jumps");
        }
    }
}

// Searches

constexpr std::ptrdiff_t nowhere = -1;

std::ptrdiff_t offset_of(const char *found, const char *text)
{
    return found == nullptr ? nowhere : found - text;
}

// In blocks of exactly the right size, so that a memory checker reports a byte read after the end.
void expect_found(const std::string &text, const std::string &pattern)
{
    const std::vector<char> text_block = exact_copy(text);
    const std::vector<char> pattern_block = exact_copy(pattern);
    const char *start = text_block.data();
    ASSERT_EQ(offset_of(find_ignoring_case(start, pattern_block.data()), start),
              offset_of(reference::find_ignoring_case(start, pattern_block.data()), start))
        << '"' << pattern << "\" in \"" << text << '"';
}

TEST(FindIgnoringCase, FoldsAsciiLettersOnlyInEveryPairOfBytesOfAWord)
{
    for (const char in_text : every_byte()) {
        const std::string text = std::string(9, '-') + in_text + "x--------";
        for (const char in_pattern : every_byte()) {
            expect_found(text, std::string(1, in_pattern) + "X");
            expect_found(text, std::string("-") + in_pattern);
        }
    }
}

// A match at every offset, so also in the last word of a text and across the end of a window of the
// search.
TEST(FindIgnoringCase, FindsAPatternAtEveryOffset)
{
    const std::string patterns[] = {"K", "Ki", "kIWi", "kiwi" + std::string(30, 'z'),
                                    "K" + std::string(400, 'q') + "i"};
    for (const std::string &pattern : patterns) {
        for (std::size_t offset = 0; offset < 1100; ++offset) {
            for (const std::size_t after : {0U, 1U, 7U, 300U}) {
                const std::string text =
                    std::string(offset, '-') + pattern + std::string(after, '-');
                const std::vector<char> block = exact_copy(text);
                ASSERT_EQ(find_ignoring_case(block.data(), pattern.c_str()), block.data() + offset)
                    << pattern << " before " << after;
            }
        }
    }
}

TEST(FindIgnoringCase, ReturnsTheFirstOfSeveralMatches)
{
    for (std::size_t gap = 0; gap < 600; ++gap) {
        const std::string text = "-" + std::string("Kiwi") + std::string(gap, '-') + "kiwi";
        ASSERT_EQ(find_ignoring_case(text.c_str(), "KIWI"), text.c_str() + 1);
        ASSERT_EQ(find_ignoring_case(text.c_str() + 2, "KIWI"), text.c_str() + 5 + gap);
    }
}

// Short texts over two letters: all of them.
TEST(FindIgnoringCase, AgreesWithTheSimpleLoopOnAllShortTexts)
{
    const auto text_of = [](unsigned number, std::size_t length) {
        std::string text(length, 'a');
        for (std::size_t i = 0; i < length; ++i)
            text[i] = "aB"[number >> i & 1];
        return text;
    };
    for (std::size_t length = 0; length <= 10; ++length) {
        for (unsigned number = 0; number < 1U << length; ++number) {
            const std::string text = text_of(number, length);
            for (std::size_t size = 0; size <= 4; ++size) {
                for (unsigned pattern = 0; pattern < 1U << size; ++pattern)
                    expect_found(text, text_of(pattern, size));
            }
        }
    }
}

// A text of repeated pieces, and a piece of it with a change or without. These are compared in full
// at many positions.
TEST(FindIgnoringCase, AgreesWithTheSimpleLoopOnPeriodicTexts)
{
    Random random(2);
    for (int i = 0; i < 4000; ++i) {
        const std::string unit = random_text(&random, 1 + below(&random, 9), "aabAB");
        std::string text;
        while (text.size() < 600)
            text += unit;
        for (std::size_t changes = below(&random, 4); changes > 0; --changes)
            text[below(&random, text.size())] = "abAB"[below(&random, 4)];
        text.resize(1 + below(&random, text.size()));
        const std::size_t start = below(&random, text.size());
        std::string pattern = text.substr(start, 1 + below(&random, 120));
        for (std::size_t changes = below(&random, 3); changes > 0; --changes)
            pattern[below(&random, pattern.size())] = "abAB"[below(&random, 4)];
        expect_found(text, pattern);
        expect_found(text + text, pattern + pattern);
    }
}

TEST(FindIgnoringCase, AgreesWithTheSimpleLoopOnFibonacciWords)
{
    std::string shorter = "a", word = "aB";
    std::vector<std::string> words = {shorter, word};
    while (word.size() < 1000) {
        std::swap(shorter, word);
        word = shorter + word;
        words.push_back(word);
    }
    for (const std::string &text : words) {
        for (const std::string &part : words) {
            expect_found(text, part);
            expect_found(text, part + "b");
            expect_found(text, part + part);
            expect_found(text, part + part.substr(0, part.size() / 2));
            expect_found(text, part.substr(part.size() / 2) + part);
        }
    }
}

// Texts of pieces that differ from the pattern in one byte, so that nearly all of it is compared at
// every piece, then a match, which may overlap the last piece.
TEST(FindIgnoringCase, AgreesWithTheSimpleLoopAfterNearMisses)
{
    Random random(3);
    const auto changed = [&random](std::string text) {
        char &c = text[below(&random, text.size())];
        c = c == 'a' ? 'z' : 'a';
        return text;
    };
    for (int i = 0; i < 10000; ++i) {
        const std::string pattern = random_text(&random, 2 + below(&random, 14), "aabAcB");
        const std::string piece = changed(pattern);
        std::string text;
        while (text.size() < 250)
            text += piece;
        text += changed(pattern);
        expect_found(text + pattern, pattern);
        expect_found(text + pattern.substr(below(&random, pattern.size())) + pattern, pattern);
        expect_found(text + pattern.substr(1 + below(&random, pattern.size() - 1)), pattern);
    }
}

// The search takes '{' for '[' at first, so it compares many starts in vain and goes on with the
// algorithm for repetitive texts. No shorter pattern gets there.
TEST(FindIgnoringCase, FindsAPairAfterManyThatOnlySeemToMatch)
{
    std::string text;
    while (text.size() < 192)
        text += "aaaaaaa{";
    text += "x[ and ";
    expect_found(text + "a[", "a[");
}

// With a simple loop, each of these takes minutes. Only ctest's time limit makes the test fail.
TEST(FindIgnoringCase, TakesTimeInProportionToTheLengths)
{
    const std::size_t half = 500000;
    const std::string many(2 * half, 'a');
    const std::string run(half, 'A');
    const std::string start = many.substr(0, half / 2);
    const std::string patterns[] = {run + "b", "b" + run, start + "b" + start,
                                    "a" + run.substr(1) + "ba"};
    for (const std::string &pattern : patterns)
        EXPECT_EQ(find_ignoring_case(many.c_str(), pattern.c_str()), nullptr);
    const std::string text = many + "B" + many;
    EXPECT_EQ(find_ignoring_case(text.c_str(), (run + "ba").c_str()), text.c_str() + half);
}

// A match near the start of a long text must not cost a pass through it: this test would reach
// ctest's time limit.
TEST(FindIgnoringCase, FindsManyMatchesInALongTextInTime)
{
    std::string text;
    while (text.size() < 8000000)
        text += "Apple, ";
    int matches = 0;
    const char *at = text.c_str();
    for (; (at = find_ignoring_case(at, "APPLE")) != nullptr; ++at)
        ++matches;
    EXPECT_EQ(matches, 1142858);
}

} // namespace
} // namespace quintral
