#include "bench/cases.h"

namespace quintral {

void add_files_cases(BenchCases *)
{
}

} // namespace quintral
