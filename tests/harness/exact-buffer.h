// Sources and destinations of exactly their sizes: a memory checker sees one byte too many that is
// read or written, and without one the bytes around a destination tell.
#ifndef QUINTRAL_TESTS_HARNESS_EXACT_BUFFER_H
#define QUINTRAL_TESTS_HARNESS_EXACT_BUFFER_H

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral::tests {

// What fills the room of a destination before anything is written.
constexpr char unwritten = '#';

inline std::string with_terminator(const std::string &text)
{
    return text + '\0';
}

// A destination as it is before the call: nothing, or a text that is to be changed in place.
inline std::string room_for(std::size_t capacity, const std::string &text = "")
{
    std::string before(capacity, unwritten);
    before.replace(0, text.size(), text);
    return before;
}

// A text with its terminator in a block of exactly their size.
inline std::vector<char> exact_copy(const std::string &text)
{
    std::vector<char> block(text.begin(), text.end());
    block.push_back('\0');
    block.shrink_to_fit();
    return block;
}

// What the call makes of a destination that holds `before`, all of it. The call is made twice: on a
// block of exactly that size, and on one between guards, which it must leave as they are.
template <typename Call> std::string written(const std::string &before, const Call &call)
{
    constexpr std::size_t guard_size = 64;
    const std::string guard(guard_size, '~');
    std::string guarded = guard + before + guard;
    call(guarded.data() + guard_size);
    EXPECT_EQ(guarded.substr(0, guard_size), guard) << "written before the destination";
    EXPECT_EQ(guarded.substr(guard_size + before.size()), guard)
        << "written behind the destination";

    std::vector<char> block(before.begin(), before.end());
    block.shrink_to_fit();
    call(block.data());
    const std::string result(block.begin(), block.end());
    EXPECT_EQ(guarded.substr(guard_size, before.size()), result) << "the same call twice";
    return result;
}

} // namespace quintral::tests

#endif
