// Sources and destinations of exact sizes: a memory checker reports one byte read or written too
// many. Without one, guard bytes around a destination show what is written outside it.
#ifndef QUINTRAL_TESTS_HARNESS_EXACT_BUFFER_H
#define QUINTRAL_TESTS_HARNESS_EXACT_BUFFER_H

#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral::tests {

// Fills a destination before the call.
constexpr char unwritten = '#';

inline std::string with_terminator(const std::string &text)
{
    return text + '\0';
}

// A destination before the call: unwritten, or beginning with a string to be changed in place.
inline std::string room_for(std::size_t capacity, const std::string &text = "")
{
    std::string before(capacity, unwritten);
    before.replace(0, text.size(), text);
    return before;
}

// A string and its terminator in a block of exactly that size.
inline std::vector<char> exact_copy(const std::string &text)
{
    std::vector<char> block(text.begin(), text.end());
    block.push_back('\0');
    block.shrink_to_fit();
    return block;
}

// Returns all bytes of a destination after the call; `before` are those before it. The call is made
// twice: on a block of exactly that size, and on one between guard bytes, which must not change.
template <typename Call> std::string written(const std::string &before, const Call &call)
{
    constexpr std::size_t guard_size = 64;
    const std::string guard(guard_size, '~');
    std::string guarded = guard + before + guard;
    call(guarded.data() + guard_size);
    EXPECT_EQ(guarded.substr(0, guard_size), guard) << "written before the destination";
    EXPECT_EQ(guarded.substr(guard_size + before.size()), guard) << "written after the destination";

    std::vector<char> block(before.begin(), before.end());
    block.shrink_to_fit();
    call(block.data());
    const std::string result(block.begin(), block.end());
    EXPECT_EQ(guarded.substr(guard_size, before.size()), result) << "the second call differs";
    return result;
}

} // namespace quintral::tests

#endif
