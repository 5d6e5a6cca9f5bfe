// The bytes that a call prints on this process's standard output or standard error.
#ifndef QUINTRAL_TESTS_HARNESS_CAPTURED_OUTPUT_H
#define QUINTRAL_TESTS_HARNESS_CAPTURED_OUTPUT_H

#include <cstdio>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace quintral::tests {

// Replaces the stream's descriptor by a file while the call runs, so that every way of printing is
// captured. The call must not end the test.
template <typename Call> std::string captured(std::FILE *stream, const Call &call)
{
    std::FILE *file = std::tmpfile();
    const int descriptor = fileno(stream);
    const int saved = dup(descriptor);
    if (file == nullptr || saved < 0) {
        ADD_FAILURE() << "can't redirect descriptor " << descriptor;
        return "";
    }
    std::fflush(stream);
    dup2(fileno(file), descriptor);
    call();
    std::fflush(stream);
    dup2(saved, descriptor);
    close(saved);

    std::string text;
    std::rewind(file);
    for (int c = std::getc(file); c != EOF; c = std::getc(file))
        text += static_cast<char>(c);
    std::fclose(file);
    return text;
}

template <typename Call> std::string captured_output(const Call &call)
{
    return captured(stdout, call);
}

template <typename Call> std::string captured_error(const Call &call)
{
    return captured(stderr, call);
}

} // namespace quintral::tests

#endif
