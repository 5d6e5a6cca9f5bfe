// Hosts that bypass the system proxy.
#include "tool/proxy-environment.h"
#include "tool/proxy-exceptions.h"

#include <cstdlib>

#include <gtest/gtest.h>

#include "tests/harness/test-main.h"

namespace quintral {
namespace {

TEST(ProxyExceptions, AListMatchesAHostByItsNameOrItsDomain)
{
    const struct {
        const char *list;
        const char *host;
        bool matches;
    } rows[] = {
        {"", "example.com", false},
        {" , ,\t", "example.com", false},
        {"*", "example.com", true},
        {"*", "127.0.0.1", true},
        // "*" has no meaning among other names
        {"*,other.org", "example.com", false},
        {"other.org *", "example.com", false},
        {"*.example.com", "www.example.com", false},
        {"example.com", "example.com", true},
        {"example.com", "www.example.com", true},
        {"example.com", "a.b.example.com", true},
        {"com", "example.com", true},
        {"example.com", "badexample.com", false},
        {"example.com", "example.com.org", false},
        {"example.com", "example.co", false},
        {"www.example.com", "example.com", false},
        {"example.com", "example.org", false},
        // a leading dot is ignored
        {".example.com", "example.com", true},
        {".example.com", "www.example.com", true},
        {".example.com", "badexample.com", false},
        {".", "example.com", false},
        // any letter case
        {"EXAMPLE.com", "example.COM", true},
        {"Example.Com", "WWW.EXAMPLE.COM", true},
        // names separated by commas or spaces
        {"other.org,example.com", "www.example.com", true},
        {"other.org example.com", "www.example.com", true},
        {"other.org\texample.com", "www.example.com", true},
        {"other.org, example.com", "example.com", true},
        {",,other.org ,, example.com,", "example.com", true},
        {" example.com ", "example.com", true},
        {"example.com,other.org", "example.com", true},
        {"other.org,third.net", "example.com", false},
        {"other.orgexample.com", "example.com", false},
        // addresses are compared like names
        {"127.0.0.1", "127.0.0.1", true},
        {"127.0.0.1", "127.0.0.11", false},
        {"127.0.0.1", "1127.0.0.1", false},
        {"localhost,127.0.0.1", "127.0.0.1", true},
    };
    for (const auto &row : rows)
        EXPECT_EQ(list_names_host(row.list, row.host), row.matches)
            << "list \"" << row.list << "\", host " << row.host;
}

TEST(ProxyExceptions, OnlyTheLowerCaseVariableIsRead)
{
    EXPECT_FALSE(system_proxy_is_bypassed("example.com"));
    setenv("NO_PROXY", "example.com", 1);
    EXPECT_FALSE(system_proxy_is_bypassed("example.com"));
    setenv("no_proxy", "example.com", 1);
    EXPECT_TRUE(system_proxy_is_bypassed("www.example.com"));
    EXPECT_FALSE(system_proxy_is_bypassed("example.org"));
    setenv("no_proxy", "", 1);
    EXPECT_FALSE(system_proxy_is_bypassed("example.com"));
    tests::clean_environment();
}

} // namespace
} // namespace quintral
