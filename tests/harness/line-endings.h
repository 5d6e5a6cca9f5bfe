// Texts without the carriage returns of their line endings.
#ifndef QUINTRAL_TESTS_HARNESS_LINE_ENDINGS_H
#define QUINTRAL_TESTS_HARNESS_LINE_ENDINGS_H

#include <string>

namespace quintral::tests {

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
