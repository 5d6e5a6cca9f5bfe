#include "bench/cases.h"

namespace quintral {

void add_error_cases(BenchCases *)
{
}

} // namespace quintral
