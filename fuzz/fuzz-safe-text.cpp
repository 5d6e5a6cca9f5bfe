// safe_text, safe_line and json_string beside their simplest form.
//
// An input: the text, up to its first NUL.
#include "fuzz/fuzz.h"
#include "tests/tool/simple-safe-text.h"
#include "tool/safe-text.h"

#include <string>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    Input input = {bytes, size};
    const std::string text = take_text(&input);
    const ExactBlock block(text);
    FUZZ_CHECK(safe_text(block.data) == tests::simple_safe_text(text));
    FUZZ_CHECK(safe_line(block.data) == tests::simple_safe_line(text));
    FUZZ_CHECK(json_string(block.data) == tests::simple_json_string(text));
    return 0;
}
