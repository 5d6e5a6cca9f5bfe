// The addresses that -open passes on: is_web_address against a second reading of an address, from
// its end, and open_web_address against that and against the platform's own check. No desktop is
// started: PATH names no folder, so for an address that the platform accepts its status is -1.
//
// An input: a byte, then the address. From '1' on the byte appends 65530 bytes and as many more as
// it is after '1', which reaches the length at which an address may be truncated.
#include "fuzz/fuzz.h"
#include "platform/platform.h"
#include "tool/answer.h"
#include "tool/open-address.h"

#include <algorithm>
#include <string>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

bool is_visible(char c)
{
    return c >= '!' && c <= '~';
}

// What RFC 3986 has in no place of a URL.
bool is_refused_by_platform(char c)
{
    return !is_visible(c) || std::string("\"<>\\^`{|}").find(c) != std::string::npos;
}

// A name without the characters around it, or at least two bytes in brackets.
bool is_host(const std::string &text)
{
    if (text.size() >= 4 && text.front() == '[' && text.back() == ']')
        return text.find(']') == text.size() - 1;
    return !text.empty() && text.find_first_of(":[]") == std::string::npos;
}

// Reads from the end: digits of a port, a ':', the host.
bool is_host_and_port(const std::string &text)
{
    const std::size_t last = text.find_last_not_of("0123456789");
    const bool has_port = last != std::string::npos && text[last] == ':';
    return is_host(text) || (has_port && is_host(text.substr(0, last)));
}

bool is_accepted(const std::string &address)
{
    const std::string scheme = lower_case(address.substr(0, address.find("://")));
    if ((scheme != "http" && scheme != "https") || scheme.size() == address.size() ||
        !std::all_of(address.begin(), address.end(), is_visible))
        return false;
    std::string rest = address.substr(scheme.size() + 3);
    rest.erase(std::min(rest.find_first_of("/?#\\"), rest.size()));
    const std::size_t at = rest.rfind('@');
    return is_host_and_port(at == std::string::npos ? rest : rest.substr(at + 1));
}

std::string expected_error(const std::string &address)
{
    if (address.size() >= longest_value - 1)
        return "Not opening the web address: it may be truncated";
    if (!is_accepted(address))
        return "Not opening the web address: not an http or https URL";
    const bool refused = std::any_of(address.begin(), address.end(), is_refused_by_platform);
    return "The desktop did not open the web address: code " +
           std::to_string(refused ? PlatformNoAddress : -1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    static const bool has_no_desktop = setenv("PATH", "no-folder", 1) == 0;
    FUZZ_CHECK(has_no_desktop);
    Input input = {bytes, size};
    const unsigned choice = take_byte(&input);
    std::string address = take_text(&input);
    if (choice > '0' && choice <= '9' && address.size() < longest_value)
        address.resize(longest_value - 5 + (choice - '1'), 'x');
    const ExactBlock block(address);
    FUZZ_CHECK(is_web_address(block.data) == is_accepted(address));
    std::string error;
    FUZZ_CHECK(open_web_address(block.data, &error) == -1);
    FUZZ_CHECK(error == expected_error(address));
    return 0;
}
