// The pages that describe the utility's options, held equal to the table of options.
#include "tool/options.h"

#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

std::string page(const std::string &name)
{
    std::ifstream stream(QUINTRAL_SOURCE_DIR "/" + name);
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    EXPECT_FALSE(text.empty()) << "cannot read " << name;
    return text;
}

std::string line_of(const OptionRow &row)
{
    const std::string argument = row.argument != nullptr ? row.argument : "";
    return std::string("| `-") + row.name + (argument.empty() ? "" : " ") + argument + "` | " +
           row.help + " |\n";
}

// In the order of the usage text.
std::string table_of_options()
{
    std::string table = "\n| option | meaning |\n|---|---|\n";
    for (const OptionGroup group :
         {OptionGroup::Query, OptionGroup::Connection, OptionGroup::Answer, OptionGroup::Inspection,
          OptionGroup::Program}) {
        for (std::size_t i = 0; i < option_count; ++i) {
            if (option_rows[i].group == group)
                table += line_of(option_rows[i]);
        }
    }
    return table + "\n";
}

std::set<std::string> names_of_options()
{
    std::set<std::string> names;
    for (std::size_t i = 0; i < option_count; ++i)
        names.insert(option_rows[i].name);
    return names;
}

// Words such as `-json` and `-proxy :1` in backticks.
std::set<std::string> options_named_in(const std::string &text)
{
    const std::regex option("`-([A-Za-z][a-z-]*)");
    std::set<std::string> names;
    for (std::sregex_iterator at(text.begin(), text.end(), option), end; at != end; ++at)
        names.insert((*at)[1]);
    return names;
}

TEST(Readme, HasTheTableOfOptions)
{
    const std::string expected = table_of_options();
    EXPECT_NE(page("README.md").find(expected), std::string::npos) << "README.md needs" << expected;
}

TEST(ToolPage, NamesEveryOptionAndNoOther)
{
    EXPECT_EQ(options_named_in(page("docs/quintral.md")), names_of_options());
}

} // namespace
} // namespace quintral
