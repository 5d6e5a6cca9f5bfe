#include "bench/cases.h"

namespace quintral {

void add_tool_cases(BenchCases *)
{
}

} // namespace quintral
