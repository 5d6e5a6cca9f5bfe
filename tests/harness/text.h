// Strings that tests build and compare.
#ifndef QUINTRAL_TESTS_HARNESS_TEXT_H
#define QUINTRAL_TESTS_HARNESS_TEXT_H

#include <cstddef>
#include <string>

namespace quintral::tests {

// The string repeated `count` times. For one character use std::string(count, c).
inline std::string repeated(std::size_t count, const std::string &text)
{
    std::string all;
    all.reserve(count * text.size());
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

inline std::string without_carriage_returns(const std::string &text)
{
    std::string rest;
    for (const char c : text) {
        if (c != '\r')
            rest += c;
    }
    return rest;
}

} // namespace quintral::tests

#endif
