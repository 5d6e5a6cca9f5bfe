// Replaces the functions of the C library that the file helpers call. The replacements record each
// call that a helper makes, and one of them fails if a test asks for it.
//
//     // The second call of the helper fails with EIO:
//     const int result = with_failing_call(2, EIO, [&] { return remove_path(path); });
//     EXPECT_EQ(calls.size(), 2U);
//
// A program that uses this header links quintral_test_failing_calls.
#ifndef QUINTRAL_TESTS_SUPPORT_FAILING_CALLS_H
#define QUINTRAL_TESTS_SUPPORT_FAILING_CALLS_H

#include <cerrno>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace quintral::tests {

// One system call of a helper.
struct Call {
    std::string function; // its plain name: "stat" for stat64 too
    std::string name;     // of the file; empty if the call takes none
};

// The calls of the helper that is running or ran last.
extern std::vector<Call> calls;

// Settings for the next helper, reset when it returns.
extern std::function<void(const Call &call)> before_call; // its own calls are not recorded
extern bool type_bits_hidden;                             // examined files have no type
extern bool entry_types_hidden;                           // directories list no types
extern std::string forged_name; // read from a directory instead of "forged"; empty for none

// The number of the call to fail, counted from 1; 0 for none. before_call may change it.
extern std::size_t failing_call;

// For with_failing_call.
void watch_calls(std::size_t call_to_fail, int error);
void stop_watching();

// Runs a helper whose call of the given number fails with the given errno; number 0 fails none.
// Returns the helper's result and leaves errno as the helper did.
template <typename Helper>
auto with_failing_call(std::size_t number, int error, const Helper &helper)
{
    watch_calls(number, error);
    const auto result = helper();
    const int left_errno = errno;
    stop_watching();
    errno = left_errno;
    return result;
}

// The values of errno that the tests try.
constexpr int call_errors[] = {EIO, EACCES, ENOMEM, EINTR, EMFILE};

// The end of a loop over failing calls; no helper makes that many.
constexpr std::size_t call_limit = 100000;

} // namespace quintral::tests

#endif
