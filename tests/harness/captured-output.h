// The bytes that a call prints on this process's standard output.
#ifndef QUINTRAL_TESTS_HARNESS_CAPTURED_OUTPUT_H
#define QUINTRAL_TESTS_HARNESS_CAPTURED_OUTPUT_H

#include <cstdio>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace quintral::tests {

// Puts a file in place of the descriptor while the call runs, so that whatever way of printing it
// uses is seen. The call itself must not end the test.
template <typename Call> std::string captured_output(const Call &call)
{
    std::FILE *file = std::tmpfile();
    const int standard_output = dup(STDOUT_FILENO);
    if (file == nullptr || standard_output < 0) {
        ADD_FAILURE() << "can't put a file in place of standard output";
        return "";
    }
    std::fflush(stdout);
    dup2(fileno(file), STDOUT_FILENO);
    call();
    std::fflush(stdout);
    dup2(standard_output, STDOUT_FILENO);
    close(standard_output);

    std::string text;
    std::rewind(file);
    for (int c = std::getc(file); c != EOF; c = std::getc(file))
        text += static_cast<char>(c);
    std::fclose(file);
    return text;
}

} // namespace quintral::tests

#endif
