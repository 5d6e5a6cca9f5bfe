// Calls of the string transforms with sources and destinations of exactly the required size. Each
// call fails the test if it changes a byte outside its result.
#ifndef QUINTRAL_TESTS_SUPPORT_TRANSFORM_CALLS_H
#define QUINTRAL_TESTS_SUPPORT_TRANSFORM_CALLS_H

#include "support/c-utils/transforms.h"

#include "tests/harness/captured-output.h"
#include "tests/harness/exact-buffer.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral::tests {

// Bytes

const std::string lowers = "abcdefghijklmnopqrstuvwxyz";
const std::string uppers = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
const std::string white_space = " \t\n\v\f\r";

inline char byte_char(int byte)
{
    return static_cast<char>(byte);
}

// Every byte that a string can hold, in order.
inline std::string every_byte()
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        bytes += byte_char(byte);
    return bytes;
}

inline bool holds(const std::string &set, char c)
{
    return set.find(c) != std::string::npos;
}

// The byte of `to` at the position that c has in `from`; c itself if it is not there.
inline char mapped(char c, const std::string &from, const std::string &to)
{
    const std::size_t position = from.find(c);
    return position == std::string::npos ? c : to[position];
}

inline char to_upper(char c)
{
    return mapped(c, lowers, uppers);
}

inline std::uint32_t float_bits(float number)
{
    std::uint32_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

// Calls

using Copy = char *(*)(const char *source, char *destination);

// The string written to a destination that came from room_for. A NUL before the terminator is part
// of it.
inline std::string string_in(const std::string &destination)
{
    const std::size_t terminator = destination.find_last_not_of(unwritten);
    if (terminator == std::string::npos || destination[terminator] != '\0') {
        ADD_FAILURE() << "no terminator in \"" << destination << '"';
        return destination;
    }
    return destination.substr(0, terminator);
}

// Each byte of the source may become up to `growth` bytes.
inline std::string copied(Copy copy, const std::string &source, std::size_t growth = 1)
{
    const std::vector<char> block = exact_copy(source);
    return string_in(written(room_for(growth * source.size() + 1), [&](char *destination) {
        EXPECT_EQ(static_cast<void *>(copy(block.data(), destination)),
                  static_cast<void *>(destination))
            << "the result is the destination";
    }));
}

inline std::string copied_in_place(Copy copy, const std::string &source)
{
    return written(with_terminator(source), [&](char *text) { copy(text, text); }).c_str();
}

// copy_lower_case as a Copy.
inline char *copy_lower_case_returning_0(const char *source, char *destination)
{
    EXPECT_EQ(copy_lower_case(source, destination), 0);
    return destination;
}

inline std::string normalised(const std::string &text)
{
    return written(with_terminator(text), normalise_spaces).c_str();
}

struct Insertion {
    std::int32_t returned = 0;
    std::string text;    // the changed string
    std::string printed; // on standard output
};

inline Insertion inserted(const std::string &insert, const std::string &into, std::int32_t location)
{
    Insertion result;
    const std::vector<char> block = exact_copy(insert);
    const std::size_t size = into.size() + insert.size() + 1;
    result.text = string_in(written(room_for(size, with_terminator(into)), [&](char *text) {
        result.printed = captured_output(
            [&] { result.returned = insert_string_into_string(block.data(), text, location); });
    }));
    return result;
}

// With a destination of `size` bytes.
inline std::string replaced(const std::string &find, const std::string &replacement,
                            const std::string &source, std::size_t size)
{
    const std::vector<char> find_block = exact_copy(find);
    const std::vector<char> replacement_block = exact_copy(replacement);
    const std::vector<char> source_block = exact_copy(source);
    return string_in(written(room_for(size), [&](char *destination) {
        replace_all(find_block.data(), replacement_block.data(), source_block.data(), destination);
    }));
}

inline std::string replaced_in_place(const std::string &find, const std::string &replacement,
                                     const std::string &source)
{
    const std::vector<char> find_block = exact_copy(find);
    const std::vector<char> replacement_block = exact_copy(replacement);
    return written(with_terminator(source),
                   [&](char *text) {
                       replace_all(find_block.data(), replacement_block.data(), text, text);
                   })
        .c_str();
}

struct FoundWord {
    std::int32_t offset = 0;
    std::string word;
};

// With a destination of `size` bytes.
inline FoundWord found_word(const std::string &text, std::int32_t n, std::size_t size)
{
    FoundWord found;
    const std::vector<char> block = exact_copy(text);
    found.word = string_in(written(room_for(size), [&](char *destination) {
        found.offset = nth_word(block.data(), n, destination);
    }));
    return found;
}

inline FoundWord found_word_in_place(const std::string &text, std::int32_t n)
{
    FoundWord found;
    found.word = written(with_terminator(text), [&](char *destination) {
                     found.offset = nth_word(destination, n, destination);
                 }).c_str();
    return found;
}

} // namespace quintral::tests

#endif
