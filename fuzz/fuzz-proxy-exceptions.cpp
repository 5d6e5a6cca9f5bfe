// Lists of hosts without a proxy: list_names_host against a search of a set of names for the host
// and each domain that it is in.
//
// An input: the host, then the list.
#include "fuzz/fuzz.h"
#include "tool/proxy-exceptions.h"

#include <set>
#include <string>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

bool is_separator(char c)
{
    return c == ',' || c == ' ' || c == '\t';
}

// The names of a list in lower case, without one leading dot.
std::set<std::string> names_of(const std::string &list)
{
    std::set<std::string> names;
    std::string name;
    for (char c : list + ",") {
        if (!is_separator(c)) {
            name += c;
            continue;
        }
        names.insert(lower_case(name[0] == '.' ? name.substr(1) : name));
        name.clear();
    }
    names.erase("");
    return names;
}

bool is_named(const std::string &list, const std::string &host)
{
    if (list == "*")
        return true;
    const std::set<std::string> names = names_of(list);
    for (std::string domain = lower_case(host);;) {
        if (names.count(domain) != 0)
            return true;
        const std::size_t dot = domain.find('.');
        if (dot == std::string::npos)
            return false;
        domain.erase(0, dot + 1);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    Input input = {bytes, size};
    const std::string host = take_text(&input);
    const std::string list = take_text(&input);
    const ExactBlock host_block(host);
    const ExactBlock list_block(list);
    const bool expected = is_named(list, host);
    FUZZ_CHECK(list_names_host(list_block.data, host_block.data) == expected);
    FUZZ_CHECK(list_names_host(upper_case(list).c_str(), lower_case(host).c_str()) == expected);
    if (list != "*") // one more name changes nothing else
        FUZZ_CHECK(list_names_host((list + " \t.other.example").c_str(), host_block.data) ==
                   (expected || is_named("other.example", host)));
    if (!host.empty() && names_of(host).size() == 1)
        FUZZ_CHECK(list_names_host((list + "," + host).c_str(), host_block.data) ==
                   is_named(list + "," + host, host));
    return 0;
}
