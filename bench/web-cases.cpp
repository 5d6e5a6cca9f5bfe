#include "bench/cases.h"

namespace quintral {

void add_web_cases(BenchCases *)
{
}

} // namespace quintral
