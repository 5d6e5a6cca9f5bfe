// The formatted dates in buffers of exactly the sizes that the header promises, in a program that
// is optimised as a whole and whose C library checks the sizes that it is given. CMake compiles
// dates.cpp and this file in that way. Each function is called at one place only, so that it
// becomes part of its caller, where the compiler knows the size of the buffer.
#include "support/dates.h"

#include <cstdint>

#include <gtest/gtest.h>

namespace quintral {
namespace {

struct TextRow {
    std::int32_t day_number;
    const char *text;
};

TEST(DatesFortified, TheLongFormNeedsOnlyItsSize)
{
    const TextRow rows[] = {
        {2451545, "1-jan-2000"}, {2451575, "31-jan-2000"}, {5373484, "31-dec-9999"}};
    for (const TextRow &row : rows) {
        char text[12];
        EXPECT_STREQ(format_date_long(row.day_number, text), row.text);
    }
}

TEST(DatesFortified, TheCompactFormNeedsOnlyItsSize)
{
    const TextRow rows[] = {{2451545, "1jan00"}, {2454106, "5jan07"}, {2488069, "31dec99"}};
    for (const TextRow &row : rows) {
        char text[8];
        EXPECT_STREQ(format_date_compact(row.day_number, text), row.text);
    }
}

} // namespace
} // namespace quintral
