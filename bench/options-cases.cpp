// The option parser beside getopt and its own simplest form. The size is the number of options in
// the table and on the command line, or of the characters of a cluster.
#include "bench/cases.h"

#include <memory>

#include <getopt.h>

#include "cmdline/long-options.h"
#include "tests/cmdline/simple-long-options.h"

namespace quintral {

namespace {

// A table and a command line that gives each of its options once, by its full name; every second
// option has an argument.
struct Command {
    std::vector<std::string> names;
    std::vector<std::string> words;
    std::vector<LongOption> table;
    std::vector<option> getopt_table;
    std::vector<char *> vector;
};

using CommandPointer = std::shared_ptr<Command>;

void finish_vector(Command *command)
{
    for (std::string &word : command->words)
        command->vector.push_back(word.data());
    command->vector.push_back(nullptr);
}

CommandPointer make_command(std::size_t options)
{
    static const char *const stems[] = {"product", "machine", "service", "proxy", "quiet"};
    auto command = std::make_shared<Command>();
    command->words.push_back("prog");
    for (std::size_t i = 0; i < options; ++i)
        command->names.push_back(stems[i % 5] + ("-" + std::to_string(i)));
    for (std::size_t i = 0; i < options; ++i) {
        const char *name = command->names[i].c_str();
        const int kind = i % 2 == 0 ? NoArgument : RequiredArgument;
        command->table.push_back({name, kind, nullptr, 1000});
        command->getopt_table.push_back({name, kind, nullptr, 1000});
        command->words.push_back('-' + command->names[i]);
        if (kind == RequiredArgument)
            command->words.push_back("value");
    }
    command->table.push_back({nullptr, 0, nullptr, 0});
    command->getopt_table.push_back({nullptr, 0, nullptr, 0});
    finish_vector(command.get());
    return command;
}

CommandPointer make_cluster(std::size_t characters)
{
    auto command = std::make_shared<Command>();
    command->words = {"prog", '-' + std::string(characters, 'v')};
    command->table.push_back({nullptr, 0, nullptr, 0});
    command->getopt_table.push_back({nullptr, 0, nullptr, 0});
    finish_vector(command.get());
    return command;
}

int word_count(const Command &command)
{
    return static_cast<int>(command.words.size());
}

void parse_ours(Command *command)
{
    option_index = 0;
    while (parse_long_only_options(word_count(*command), command->vector.data(), "v",
                                   command->table.data(), nullptr) != -1)
        bench_keep(option_argument);
}

void parse_simply(Command *command)
{
    simple::option_index = 0;
    while (simple::parse_options(word_count(*command), command->vector.data(), "v",
                                 command->table.data(), nullptr, 1) != -1)
        bench_keep(simple::option_argument);
}

void parse_with_getopt(Command *command)
{
    optind = 0;
    while (getopt_long_only(word_count(*command), command->vector.data(), "v",
                            command->getopt_table.data(), nullptr) != -1)
        bench_keep(optarg);
}

void add_sides(BenchCases *cases, const char *routine, std::size_t size,
               const CommandPointer &command)
{
    const int count = size <= 64 ? 100 : 1;
    const auto add = [&](const char *side, void (*parse)(Command *)) {
        cases->push_back({routine, side, size, [count, command, parse] {
                              for (int i = 0; i < count; ++i)
                                  parse(command.get());
                          }});
    };
    add("ours", parse_ours);
    add("getopt", parse_with_getopt);
    add("reference", parse_simply);
}

} // namespace

void add_options_cases(BenchCases *cases)
{
    for (const std::size_t size : {5U, 50U, 500U})
        add_sides(cases, "parse_options/names", size, make_command(size));
    for (std::size_t size = 8; size <= 65536; size *= 2)
        add_sides(cases, "parse_options/cluster", size, make_cluster(size));
}

} // namespace quintral
