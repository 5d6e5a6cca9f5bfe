// The utility when memory runs out.
#include <string>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "tests/tool/is-json-line.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

#if defined(__SANITIZE_ADDRESS__)
#define MEMORY_IS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MEMORY_IS_SANITIZED 1
#endif
#endif

namespace quintral::tests::tool {
namespace {

#if defined(MEMORY_IS_SANITIZED)
constexpr bool memory_is_sanitized = true;
#else
constexpr bool memory_is_sanitized = false;
#endif

ChildOptions with_memory(rlim_t bytes)
{
    ChildOptions options;
    options.prepare = [bytes] { limit_resource(RLIMIT_AS, bytes); };
    return options;
}

// The least memory, in steps, with which the utility starts at all.
rlim_t least_memory(rlim_t step)
{
    rlim_t bytes = step;
    while (bytes < 1024 * step && run_tool({"-version"}, with_memory(bytes)).exit_status != 0)
        bytes += step;
    return bytes;
}

// From there up to where the reply fits: whatever the memory, the run is answered or it fails with
// one line and one object.
TEST(ToolMemory, ExhaustedMemoryIsReportedByOneLineAndOneObject)
{
    if (memory_is_sanitized)
        GTEST_SKIP() << "AddressSanitizer reserves more memory than any limit leaves";
    const rlim_t step = 512 * 1024;
    const LoopbackPeer peer({sending(reply_of("Message: " + std::string(7000000, 'm')))});
    int exhausted = 0;
    ChildResult result;
    rlim_t bytes = least_memory(step);
    for (int tries = 0; result.exit_status != 0 && tries < 200; ++tries, bytes += step) {
        result = run_tool({"-service", peer.address(), "-json", "-quiet"}, with_memory(bytes));
        const std::string what = "with " + std::to_string(bytes) + " bytes";
        EXPECT_EQ(result.signal, 0) << what;
        EXPECT_TRUE(is_json_line(result.output)) << what << ": " << result.output;
        if (result.exit_status == 0 || result.error != error_line("Out of memory"))
            continue;
        ++exhausted;
        expect_ended(result, 1,
                     unanswered_json("failed", 1, "Out of memory", {"internal", 0, peer.address()}),
                     error_line("Out of memory"), what);
    }
    EXPECT_EQ(result.exit_status, 0) << "the reply never fitted";
    EXPECT_GE(exhausted, 1);
}

const Strings words = {"-service", "127.0.0.1:1", "-proxy", ":1", "-json"};

// With too little memory the loader ends with status 127, or crashes, before main.
bool reaches_main(rlim_t bytes)
{
    const ChildResult result = run_tool(joined(words, {"-version"}), with_memory(bytes));
    return result.signal == 0 && result.exit_status != 127;
}

// The same, page by page, where memory runs out before the command line has been read. Once a size
// is enough to reach main, every larger one is: what crashes then is the utility.
TEST(ToolMemory, ExhaustedAtTheStartIsReportedToo)
{
    if (memory_is_sanitized)
        GTEST_SKIP() << "AddressSanitizer reserves more memory than any limit leaves";
    const rlim_t page = 4096;
    rlim_t bytes = least_memory(512 * 1024) - 512 * 1024;
    const std::string line = error_line("Out of memory");
    int compared = 0;
    int exhausted = 0;
    for (int pages = 0; pages < 160; ++pages, bytes += page) {
        if (!reaches_main(bytes)) {
            EXPECT_EQ(compared, 0) << bytes << " bytes no longer reach main";
            continue;
        }
        ++compared;
        const ChildResult result = run_tool(words, with_memory(bytes));
        EXPECT_EQ(result.signal, 0) << bytes;
        EXPECT_EQ(result.exit_status, 1) << bytes;
        EXPECT_TRUE(is_json_line(result.output)) << bytes << ": " << result.output;
        EXPECT_NE(result.error, error_line("Ended by an internal fault")) << bytes;
        exhausted += result.error == line ? 1 : 0;
    }
    EXPECT_GE(compared, 30); // 128 of the pages may not be enough for -version alone
    EXPECT_GE(exhausted, 1);
}

} // namespace
} // namespace quintral::tests::tool
