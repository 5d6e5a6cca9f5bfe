// The manual page of the utility and the completions of the shells, held equal to the table of
// options.
#include "tool/options.h"

#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

std::string file(const std::string &name)
{
    std::ifstream stream(QUINTRAL_SOURCE_DIR "/" + name);
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    EXPECT_FALSE(text.empty()) << "cannot read " << name;
    return text;
}

// The name of an option's argument, empty for none. The usage text does not name two of them.
std::string argument_of(const OptionRow &row)
{
    const std::string name = row.name;
    if (row.argument == nullptr)
        return "";
    if (row.argument[0] != '\0')
        return row.argument;
    return name == "proxy-user" ? "user" : "password";
}

std::string replaced(std::string text, const std::string &from, const std::string &to)
{
    for (std::size_t at = text.find(from); at != text.npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

// One line for each option, in the order of the usage text.
std::string lines_of(std::string (*line)(const OptionRow &row))
{
    std::string lines;
    for (const OptionGroup group :
         {OptionGroup::Query, OptionGroup::Connection, OptionGroup::Answer, OptionGroup::Inspection,
          OptionGroup::Program}) {
        for (std::size_t i = 0; i < option_count; ++i) {
            if (option_rows[i].group == group)
                lines += line(option_rows[i]) + "\n";
        }
    }
    return lines;
}

std::string manual_line(const OptionRow &row)
{
    std::string argument = argument_of(row);
    if (argument == "host[:port]")
        argument = "host Ns Op : Ns Ar port";
    if (argument == "host:port")
        argument = "host : Ns Ar port";
    return std::string(".It Fl ") + row.name + (argument.empty() ? "" : " Ar ") + argument;
}

std::string bash_line(const OptionRow &row)
{
    const std::string argument = argument_of(row);
    return row.name + (argument.empty() ? "" : " " + argument);
}

std::string zsh_line(const OptionRow &row)
{
    const std::string argument = argument_of(row);
    const std::string start = std::string("  '") + row.name;
    const std::string help = std::string("[") + row.help + "]";
    if (argument.empty())
        return start + help + "'";
    const std::string action = argument == "file" ? "_files" : " ";
    return start + "=" + help + ":" + replaced(argument, ":", "\\:") + ":" + action + "'";
}

std::string fish_line(const OptionRow &row)
{
    const std::string argument = argument_of(row);
    return std::string("__quintral_option ") + row.name + " " +
           (argument.empty() ? "''" : argument) + " '" + row.help + "'";
}

void expect_part(const std::string &name, const std::string &part)
{
    EXPECT_NE(file(name).find(part), std::string::npos) << name << " needs\n" << part;
}

// All matches of an expression's first group, each followed by a line feed.
std::string matches(const std::string &text, const std::string &expression)
{
    const std::regex pattern(expression);
    std::string found;
    for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at)
        found += (*at)[1].str() + "\n";
    return found;
}

TEST(ManualPage, HasAnEntryForEachOptionAndNoOther)
{
    EXPECT_EQ(matches(file("docs/man/quintral.1"), "(\\.It Fl [^\n]*)"), lines_of(manual_line));
}

TEST(ManualPage, NamesNoOtherOptionInItsText)
{
    std::set<std::string> names;
    for (std::size_t i = 0; i < option_count; ++i)
        names.insert(option_rows[i].name);
    // Dashes and names of one letter also belong to other programs of the examples.
    const std::string text = file("docs/man/quintral.1");
    const std::regex option("(?:Fl |quintral -| -)([a-zA-Z][a-z-]+)");
    const std::regex layout("\\n\\.B[ld] [^\n]*");
    const std::string body = std::regex_replace(text, layout, "");
    for (std::sregex_iterator at(body.begin(), body.end(), option), end; at != end; ++at)
        EXPECT_EQ(names.count((*at)[1]), 1U) << (*at)[1];
}

TEST(Completion, OfBashListsTheOptions)
{
    expect_part("completions/quintral.bash", "_quintral_options='\n" + lines_of(bash_line) + "'\n");
}

TEST(Completion, OfZshListsTheOptions)
{
    expect_part("completions/_quintral", "options=(\n" + lines_of(zsh_line) + ")\n");
}

TEST(Completion, OfFishListsTheOptions)
{
    expect_part("completions/quintral.fish",
                "# options of the program.\n" + lines_of(fish_line) + "\nfunctions -e");
}

} // namespace
} // namespace quintral
