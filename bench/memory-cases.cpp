#include "bench/cases.h"

namespace quintral {

void add_memory_cases(BenchCases *)
{
}

} // namespace quintral
