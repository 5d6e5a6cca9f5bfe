#include "bench/cases.h"

namespace quintral {

void add_options_cases(BenchCases *)
{
}

} // namespace quintral
