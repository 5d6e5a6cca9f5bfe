// All string transforms. Each is compared with a second implementation, with a destination of
// exactly the size that the header asks for. A transform that may run in place also does so.
//
// An input: cases, each a byte that chooses a transform from the table at the end, then its strings
// and numbers.
#include "fuzz/fuzz.h"
#include "support/c-utils/transforms.h"
#include "tests/support/reference-transforms.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

constexpr std::size_t longest_split_text = 2047; // of nth_word

std::string without(std::string text, const std::string &dropped)
{
    text.erase(std::remove_if(text.begin(), text.end(),
                              [&](char c) { return dropped.find(c) != std::string::npos; }),
               text.end());
    return text;
}

std::string with(std::string text, char old, char replacement)
{
    std::replace(text.begin(), text.end(), old, replacement);
    return text;
}

// Replaces one string by another until it no longer occurs.
std::string reduced(std::string text, const std::string &from, const std::string &to)
{
    for (std::size_t at; (at = text.find(from)) != std::string::npos;)
        text.replace(at, from.size(), to);
    return text;
}

// Copies of n bytes into n + 1

using Copy = char *(*)(const char *source, char *destination);

void check_copy(Copy copy, const std::string &text, const std::string &expected)
{
    const ExactBlock source(text);
    const ExactBlock destination(text.size() + 1);
    FUZZ_CHECK(copy(source.data, destination.data) == destination.data);
    FUZZ_CHECK(holds_text(destination, expected));
    FUZZ_CHECK(holds_text(source, text));
    FUZZ_CHECK(copy(source.data, source.data) == source.data);
    FUZZ_CHECK(holds_text(source, expected));
}

// The lower-case copy with the signature of the others.
char *copy_lower_case_checked(const char *source, char *destination)
{
    FUZZ_CHECK(copy_lower_case(source, destination) == 0);
    return destination;
}

void fuzz_lower_case(Input *input)
{
    const std::string text = take_text(input);
    check_copy(copy_lower_case_checked, text, lower_case(text));
}

void fuzz_upper_case(Input *input)
{
    const std::string text = take_text(input);
    check_copy(copy_upper_case, text, upper_case(text));
}

void fuzz_dropping(Input *input)
{
    const std::string text = take_text(input);
    check_copy(copy_without_spaces_and_underscores, text, without(text, " _"));
    check_copy(copy_without_full_stops, text, without(text, "."));
    check_copy(copy_without_spaces, text, without(text, " "));
}

void fuzz_replacing(Input *input)
{
    const std::string text = take_text(input);
    check_copy(line_breaks_to_spaces, text, with(with(text, '\n', ' '), '\r', ' '));
    check_copy(underscores_to_spaces, text, with(text, '_', ' '));
    check_copy(spaces_to_underscores, text, with(text, ' ', '_'));
}

void fuzz_collapse(Input *input)
{
    const std::string text = take_text(input);
    std::string expected = reduced(text, "  ", " ");
    if (!expected.empty() && expected[0] == ' ')
        expected.erase(0, 1);
    check_copy(collapse_spaces, text, expected);
}

void fuzz_camel(Input *input)
{
    const std::string text = take_text(input);
    std::string expected;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool begins_word = i == 0 || text[i - 1] == '_';
        if (text[i] != '_')
            expected += begins_word ? upper_case(text[i]) : text[i];
    }
    check_copy(snake_to_camel, text, expected);
}

void fuzz_identifier(Input *input)
{
    const std::string text = take_text(input);
    std::string expected;
    std::copy_if(text.begin(), text.end(), std::back_inserter(expected),
                 [](char c) { return c == '_' || is_letter_or_digit(c); });
    check_copy(copy_identifier_chars, text, expected);
}

void fuzz_cut(Input *input)
{
    const std::string text = take_text(input);
    const std::size_t end = text.find_first_of("_ ABCDEFGHIJKLMNOPQRSTUVWXYZ", 1);
    check_copy(cut_at_word_break, text, text.substr(0, end));
}

// Copies that grow

void fuzz_length_prefixed(Input *input)
{
    const std::size_t length = take_byte(input);
    const std::string bytes = take_bytes(input, length);
    const ExactBlock source(length + 1);
    source.data[0] = static_cast<char>(length);
    std::memcpy(source.data + 1, bytes.data(), bytes.size());
    const ExactBlock destination(length + 1);
    FUZZ_CHECK(copy_length_prefixed(destination.data, source.data) == destination.data);
    FUZZ_CHECK(std::memcmp(destination.data, source.data, source.size) == 0);
}

// The first of the two characters after a percent sign.
char high_character(unsigned byte)
{
    static const char characters[] = "01234567.+!*(),"; // and the terminator for 0xF
    return characters[byte >> 4];
}

void fuzz_url_escape(Input *input)
{
    const std::string text = take_text(input);
    std::string expected;
    bool is_ascii = true;
    for (char c : text) {
        const unsigned byte = static_cast<unsigned char>(c);
        is_ascii = is_ascii && byte < 0x80;
        if (is_letter_or_digit(c) || std::string("$-_.+!*(),").find(c) != std::string::npos)
            expected += c;
        else
            expected += {'%', high_character(byte), "0123456789ABCDEF"[byte & 15]};
    }
    const ExactBlock source(text);
    const ExactBlock destination(3 * text.size() + 1);
    FUZZ_CHECK(url_escape(source.data, destination.data) == destination.data);
    FUZZ_CHECK(holds_text(destination, expected));
    if (is_ascii) // below 0x80 the escapes are the usual ones
        FUZZ_CHECK(without_escapes(destination.data, "%", "0123456789ABCDEF") == text);
}

void fuzz_double_percents(Input *input)
{
    const std::string text = take_text(input);
    const ExactBlock source(text);
    const ExactBlock destination(2 * text.size() + 1);
    FUZZ_CHECK(double_percents(source.data, destination.data) == destination.data);
    const std::string doubled = destination.data;
    const auto percents = static_cast<std::size_t>(std::count(text.begin(), text.end(), '%'));
    FUZZ_CHECK(doubled.size() == text.size() + percents);
    std::string halved;
    for (std::size_t i = 0; i < doubled.size(); ++i) {
        halved += doubled[i];
        if (doubled[i] == '%')
            FUZZ_CHECK(doubled[++i] == '%');
    }
    FUZZ_CHECK(halved == text);
}

// Changes in place, and replacements

// A run of white space becomes one space, or up to two after a period. It is removed at the start.
void fuzz_normalise(Input *input)
{
    const std::string text = take_text(input);
    std::string expected;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t end = std::min(text.find_first_not_of(white_space, i), text.size());
        const std::size_t kept = expected.empty() ? 0 : expected.back() == '.' ? 2 : 1;
        expected.append(std::min(end - i, kept), ' ');
        if (end < text.size())
            expected += text[end++];
        i = end;
    }
    const ExactBlock block(text);
    normalise_spaces(block.data);
    FUZZ_CHECK(holds_text(block, expected));
}

void fuzz_insert(Input *input)
{
    static const bool is_silent = std::freopen("/dev/null", "w", stdout) != nullptr;
    FUZZ_CHECK(is_silent);
    const std::int32_t location = take_int16(input);
    const std::string insert = take_text(input);
    const std::string into = take_text(input);
    const ExactBlock inserted(insert);
    const ExactBlock block(into.size() + insert.size() + 1);
    std::memcpy(block.data, into.c_str(), into.size() + 1);
    const std::int32_t result = insert_string_into_string(inserted.data, block.data, location);

    std::string expected = into;
    std::string line = "insert_string_into_string: bad location " + std::to_string(location) +
                       ", into_string length " + std::to_string(into.size()) + " \n";
    if (location >= 0 && static_cast<std::size_t>(location) <= into.size()) {
        expected.insert(static_cast<std::size_t>(location), insert);
        line = "insert_string_into_string: " + expected + " \n";
    }
    FUZZ_CHECK(holds_text(block, expected));
    FUZZ_CHECK(is_untouched_from(block, expected.size() + 1));
    FUZZ_CHECK(result == static_cast<std::int32_t>(line.size()));
}

// Joins the pieces between the occurrences.
std::string replaced(const std::string &find, const std::string &replacement,
                     const std::string &source)
{
    std::string result;
    std::size_t start = 0;
    while (!find.empty()) {
        const std::size_t hit = source.find(find, start);
        if (hit == std::string::npos)
            break;
        result += source.substr(start, hit - start) + replacement;
        start = hit + find.size();
    }
    return result + source.substr(start);
}

void fuzz_replace_all(Input *input)
{
    const std::string find = take_text(input);
    const std::string replacement = take_text(input).substr(0, 64);
    const std::string source = take_text(input);
    const std::string expected = replaced(find, replacement, source);
    const ExactBlock find_block(find);
    const ExactBlock replacement_block(replacement);
    const ExactBlock source_block(source);
    const ExactBlock destination(expected.size() + 1);
    replace_all(find_block.data, replacement_block.data, source_block.data, destination.data);
    FUZZ_CHECK(holds_text(destination, expected));
    if (replacement.size() > find.size())
        return;
    replace_all(find_block.data, replacement_block.data, source_block.data, source_block.data);
    FUZZ_CHECK(holds_text(source_block, expected));
}

// Words

void fuzz_nth_word(Input *input)
{
    static const char separators[] = " \t\n\\";
    const int n = take_int16(input) % 32;
    const std::string text = take_text(input).substr(0, longest_split_text);
    std::size_t start = text.find_first_not_of(separators);
    for (int i = 0; i < n && start != std::string::npos; ++i)
        start = text.find_first_not_of(separators, text.find_first_of(separators, start));
    const bool found = start != std::string::npos;
    const std::string word =
        found ? text.substr(start, text.find_first_of(separators, start) - start) : "";

    const ExactBlock block(text);
    const ExactBlock destination(word.size() + 1);
    FUZZ_CHECK(nth_word(block.data, n, destination.data) ==
               (found ? static_cast<std::int32_t>(start) : -1));
    FUZZ_CHECK(holds_text(destination, word));
    FUZZ_CHECK(holds_text(block, text));
    nth_word(block.data, n, block.data);
    FUZZ_CHECK(holds_text(block, word));
}

std::string first_word(const std::string &text)
{
    return text.substr(0, text.find_first_of(white_space));
}

void fuzz_words(Input *input)
{
    const std::string texts[] = {take_text(input), take_text(input)};
    const ExactBlock first(texts[0]);
    const ExactBlock second(texts[1]);
    const std::string words[] = {first_word(texts[0]), first_word(texts[1])};
    FUZZ_CHECK(word_length(first.data) == words[0].size());

    const std::size_t common = std::min(words[0].size(), words[1].size());
    const auto difference = std::mismatch(
        words[0].begin(), words[0].begin() + static_cast<std::ptrdiff_t>(common), words[1].begin());
    const std::size_t at = static_cast<std::size_t>(difference.first - words[0].begin());
    int expected = static_cast<int>(words[0].size() < words[1].size()) -
                   static_cast<int>(words[0].size() > words[1].size());
    if (at < common)
        expected = static_cast<signed char>(words[1][at]) - static_cast<signed char>(words[0][at]);
    FUZZ_CHECK(compare_words(first.data, second.data) == expected);
}

void fuzz_find(Input *input)
{
    const std::string pattern = take_text(input);
    const std::string text = take_text(input);
    const ExactBlock text_block(text);
    const ExactBlock pattern_block(pattern);
    const char *found = find_ignoring_case(text_block.data, pattern_block.data);
    const std::size_t at =
        pattern.empty() ? std::string::npos : lower_case(text).find(lower_case(pattern));
    FUZZ_CHECK(found == (at == std::string::npos ? nullptr : text_block.data + at));
}

// A piece repeated up to 255 times, with one byte changed, and a part of it. These make the search
// compare the most.
void fuzz_find_repeated(Input *input)
{
    const std::size_t times = take_byte(input);
    const std::size_t change = take_byte(input);
    const char changed_to = static_cast<char>(take_byte(input));
    const std::size_t start = take_byte(input);
    const std::size_t length = take_byte(input);
    const std::string end = take_text(input);
    const std::string piece = take_text(input).substr(0, 64);
    std::string text;
    for (std::size_t i = 0; i < times; ++i)
        text += piece;
    const std::string pattern = text.substr(std::min(start, text.size()), length) + end;
    if (change < text.size() && changed_to != '\0')
        text[change] = changed_to;
    const ExactBlock text_block(text);
    const ExactBlock pattern_block(pattern);
    FUZZ_CHECK(find_ignoring_case(text_block.data, pattern_block.data) ==
               reference::find_ignoring_case(text_block.data, pattern_block.data));
}

void fuzz_email(Input *input)
{
    const std::string text = take_text(input);
    const ExactBlock block(text);
    const std::size_t start = text.find_first_not_of(white_space);
    bool expected = true;
    if (start != std::string::npos)
        expected = text.size() - start >= 6 && text.find('@') != std::string::npos &&
                   text.find('.') != std::string::npos;
    FUZZ_CHECK(looks_like_email(block.data) == (expected ? 1 : 0));
}

// Colours and ranges

bool is_rounded_channel(std::uint32_t bits, float channel)
{
    if (std::isnan(channel) || channel < 0)
        return bits == 0;
    if (channel > 1)
        return bits == 255;
    return std::fabs(static_cast<double>(channel) * 255 - static_cast<double>(bits)) <= 0.5;
}

void fuzz_colours(Input *input)
{
    const float channels[] = {take_float(input), take_float(input), take_float(input)};
    const std::uint32_t packed = pack_rgb(channels[0], channels[1], channels[2]);
    FUZZ_CHECK(packed <= 0xFFFFFF);
    for (unsigned i = 0; i < 3; ++i)
        FUZZ_CHECK(is_rounded_channel(packed >> (16 - 8 * i) & 0xFF, channels[i]));

    const auto value = static_cast<std::uint32_t>(take_int32(input));
    float red = -1;
    float green = -1;
    float blue = -1;
    unpack_rgb(value, &red, &green, &blue);
    for (float channel : {red, green, blue})
        FUZZ_CHECK(channel >= 0 && channel <= 1);
    FUZZ_CHECK(pack_rgb(red, green, blue) == (value & 0xFFFFFF));
}

// With any floats, the result is in the range or NaN.
void fuzz_map(Input *input)
{
    const float x = take_float(input);
    const float from_low = take_float(input);
    const float from_high = take_float(input);
    const float to_low = take_float(input);
    const float to_high = take_float(input);
    const float result = map_clamped(x, from_low, from_high, to_low, to_high);
    if (!(to_low <= to_high))
        return;
    FUZZ_CHECK(std::isnan(result) || (result >= to_low && result <= to_high));
    if (from_low == from_high)
        FUZZ_CHECK(result == to_low);
}

// With numbers as programs use them, the result is that of double precision, up to rounding.
void fuzz_map_of_eighths(Input *input)
{
    double numbers[5];
    for (double &number : numbers)
        number = take_int16(input) / 8.0;
    const auto [x, from_low, from_high, to_low, to_high] = numbers;
    if (to_low > to_high)
        return;
    const float result = map_clamped(static_cast<float>(x), static_cast<float>(from_low),
                                     static_cast<float>(from_high), static_cast<float>(to_low),
                                     static_cast<float>(to_high));
    double expected = to_low;
    if (from_low != from_high)
        expected = (x - from_low) / (from_high - from_low) * (to_high - to_low) + to_low;
    expected = std::clamp(expected, to_low, to_high);
    FUZZ_CHECK(std::fabs(static_cast<double>(result) - expected) <= 0.01);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static constexpr Case kinds[] = {
        fuzz_lower_case,      // 'A'
        fuzz_upper_case,      // 'B'
        fuzz_dropping,        // 'C'
        fuzz_replacing,       // 'D'
        fuzz_collapse,        // 'E'
        fuzz_camel,           // 'F'
        fuzz_identifier,      // 'G'
        fuzz_cut,             // 'H'
        fuzz_length_prefixed, // 'I'
        fuzz_url_escape,      // 'J'
        fuzz_double_percents, // 'K'
        fuzz_normalise,       // 'L'
        fuzz_insert,          // 'M'
        fuzz_replace_all,     // 'N'
        fuzz_nth_word,        // 'O'
        fuzz_words,           // 'P'
        fuzz_find,            // 'Q'
        fuzz_email,           // 'R'
        fuzz_colours,         // 'S'
        fuzz_map,             // 'T'
        fuzz_map_of_eighths,  // 'U'
        fuzz_find_repeated,   // 'V'
    };
    Input input = {bytes, size};
    run_cases(&input, kinds, 'A');
    return 0;
}
