#include "tool/proxy-exceptions.h"

#include <string>

#include "support/ascii.h"

namespace quintral {

namespace {

std::string lower_case(const char *text)
{
    std::string result = text;
    for (char &c : result)
        c = ascii_to_lower(c);
    return result;
}

bool host_is_in(const std::string &host, const std::string &name)
{
    const std::string domain = name[0] == '.' ? name.substr(1) : name;
    if (domain.empty() || host.size() < domain.size())
        return false;
    const std::size_t start = host.size() - domain.size();
    return host.compare(start, domain.size(), domain) == 0 &&
           (start == 0 || host[start - 1] == '.');
}

} // namespace

bool list_names_host(const char *list, const char *host)
{
    static const char separators[] = ", \t";
    const std::string names = lower_case(list);
    const std::string wanted = lower_case(host);
    if (names == "*")
        return true;
    std::size_t start = names.find_first_not_of(separators);
    while (start != std::string::npos) {
        const std::size_t end = names.find_first_of(separators, start);
        if (host_is_in(wanted, names.substr(start, end - start)))
            return true;
        start = names.find_first_not_of(separators, end);
    }
    return false;
}

} // namespace quintral
