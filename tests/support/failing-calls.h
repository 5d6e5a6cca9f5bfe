// Stands between the file helpers and the C library. The functions that the helpers call are defined
// here: they record each call that a helper makes, and one of them fails where a test says so.
//
//     watch the calls of a helper, the third of them failing with EIO:
//     const int result = with_failing_call(3, EIO, [&] { return remove_path(path); });
//     EXPECT_EQ(calls.size(), 3u);
//
// A program that uses this header compiles failing-calls.cpp and links CMAKE_DL_LIBS.
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
    std::string function; // without the size of its file offsets: "stat" for stat64 too
    std::string name;     // of the file, empty if the call takes none
};

// The calls of the helper that ran last, or runs.
extern std::vector<Call> calls;

// What happens in the helper that runs next. All of it is reset when the helper returns.
extern std::size_t failing_call;                          // counted from 1; 0 for none
extern std::function<void(const Call &call)> before_call; // runs unwatched
extern bool type_bits_hidden;                             // examined files have no type
extern std::string forged_name; // read from a directory instead of "forged"; empty for none

void watch_calls(std::size_t call_to_fail, int error);
void stop_watching();

// Runs a helper, with the call of that number failing with that errno. A number of 0 fails none.
// Returns the helper's result; errno is what the helper left.
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

// The errors that tests make a call fail with.
constexpr int call_errors[] = {EIO, EACCES, ENOMEM, EINTR, EMFILE};

// A loop over failing calls ends here at the latest: no helper makes that many.
constexpr std::size_t call_limit = 100000;

} // namespace quintral::tests

#endif
