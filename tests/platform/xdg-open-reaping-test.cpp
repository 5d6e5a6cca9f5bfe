// Opening in the desktop on Linux, when the host's wait for the watcher is interrupted by signals.
// This program replaces the C library's waitpid.
#include "tests/harness/fake-desktop.h"
#include "tests/platform/desktop-host.h"

#include <cerrno>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

using Waitpid = pid_t (*)(pid_t process, int *status, int options);

// Set in the host only. The processes forked from it have copies.
pid_t interrupted_host = -1;
int interruptions_left = 0;

pid_t scripted_waitpid(pid_t process, int *status, int options)
{
    static const auto system_waitpid = reinterpret_cast<Waitpid>(dlsym(RTLD_NEXT, "waitpid"));
    if (getpid() != interrupted_host || interruptions_left == 0)
        return system_waitpid(process, status, options);
    --interruptions_left;
    errno = EINTR;
    return -1;
}

// Besides the status, checks that all the interruptions happened and that no child is left.
TEST(XdgOpenReaping, IsRepeatedAfterEachInterruption)
{
    const FakeDesktop desktop;
    for (const int count : {1, 2, 10}) {
        const auto interrupt_waits = [count] {
            interrupted_host = getpid();
            interruptions_left = count;
        };
        const Open open = [] {
            const std::int32_t status = open_url("exit:3");
            exit_unless(interruptions_left == 0, 90);
            return status;
        };
        const std::int32_t status = status_in_host(desktop, open, interrupt_waits);
        EXPECT_TRUE(status == 3 || status == 0) << status; // 0: too slow on a busy machine
    }
}

} // namespace
} // namespace quintral

// Takes precedence over the C library's.
extern "C" pid_t waitpid(pid_t process, int *status, int options)
{
    return quintral::scripted_waitpid(process, status, options);
}
