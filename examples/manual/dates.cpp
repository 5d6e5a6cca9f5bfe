#include <quintral/support/dates.h>

#include <cstdio>

using namespace quintral;

int main()
{
    char text[date_text_size];
    const std::int32_t start = date_to_day_number(2024, 2, 1);
    std::printf("%s\n", format_date_long(start + 30, text));
    std::int32_t day = 0;
    if (parse_date_compact("5mar24", &day) > 0)
        std::printf("%s is %d days later\n", format_date_compact(day, text), day - start);
    return 0;
}
