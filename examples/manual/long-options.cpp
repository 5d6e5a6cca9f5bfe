#include <quintral/cmdline/long-options.h>

#include <cstdio>

using namespace quintral;

int main()
{
    char program[] = "render", input[] = "in.txt", quiet_word[] = "-q", output[] = "--out=x.txt";
    char *arguments[] = {program, input, quiet_word, output, nullptr};
    static std::int32_t quiet = 0;
    static const LongOption table[] = {
        {"output", RequiredArgument, nullptr, 'o'},
        {"quiet", NoArgument, &quiet, 1},
        {nullptr, NoArgument, nullptr, 0},
    };
    for (;;) {
        const int result = parse_options(4, arguments, "o:q", table, nullptr, 0);
        if (result == -1)
            break;
        if (result == 'o')
            std::printf("output %s\n", option_argument);
        else if (result == 'q')
            quiet = 1;
        else if (result != 0)
            return 2; // already reported
    }
    std::printf("quiet %d\n", static_cast<int>(quiet));
    for (int i = option_index; i < 4; ++i)
        std::printf("operand %s\n", arguments[i]);
    return 0;
}
