#include "bench/cases.h"

namespace quintral {

void add_dates_cases(BenchCases *)
{
}

} // namespace quintral
