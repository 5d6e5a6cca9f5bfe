#include "bench/cases.h"

namespace quintral {

void add_transforms_cases(BenchCases *)
{
}

} // namespace quintral
