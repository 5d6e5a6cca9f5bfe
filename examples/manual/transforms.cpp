#include <quintral/support/c-utils/transforms.h>

#include <cstdio>

using namespace quintral;

int main()
{
    const char *text = "soft_light  42.5 %";
    char copy[64], word[64];
    std::printf("%s\n", snake_to_camel("soft_light", copy));
    std::printf("%s\n", collapse_spaces(text, copy));
    for (int n = 0; nth_word(text, n, word) >= 0; ++n)
        std::printf("<%s>", word);
    float number = 0;
    if (parse_float(find_ignoring_case(text, "42"), &number) == 1)
        std::printf(" %.1f\n", static_cast<double>(number));
    std::printf("%06x\n", static_cast<unsigned>(pack_rgb(1, 0.5F, 0)));
    return 0;
}
