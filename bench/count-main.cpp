// Counts the instructions of every case, or of those whose name contains the argument. See count.h.
#include "bench/count.h"

int main(int argument_count, char **arguments)
{
    quintral::count_cases(quintral::all_cases(), argument_count > 1 ? arguments[1] : "");
}
