// The macOS source of the system's proxy over the recording frameworks, on every machine.
#include "tests/macos-frameworks/recording.h"
#include "tests/platform/macos-operations.h"
#include "web/proxy-settings.h"

#include <cstddef>
#include <map>
#include <string>

#include <gtest/gtest.h>

namespace quintral {
namespace {

using namespace tests;

using Entries = std::map<std::string, ProxyEntry>;

const Entries complete_entries = {{"HTTPEnable", number_entry(1)},
                                  {"HTTPProxy", text_entry("cache")},
                                  {"HTTPPort", number_entry(3128)}};

// The complete entries, with one replaced or removed.
Entries with(const std::string &key, const ProxyEntry &entry)
{
    Entries entries = complete_entries;
    entries[key] = entry;
    return entries;
}

Entries without(const std::string &key)
{
    Entries entries = complete_entries;
    entries.erase(key);
    return entries;
}

TEST(SystemProxyMacos, NeedsEachOfTheThreeEntries)
{
    const char *const no_proxy = "false $ 0";
    const char *const refused = "false $! 0";     // the copy of the host failed
    const char *const emptied = "false $ache$ 0"; // the host had been copied and was then emptied
    Entries other_protocols = {{"SOCKSEnable", number_entry(1)}};
    for (const auto &[key, entry] : complete_entries)
        other_protocols["HTTPS" + key.substr(4)] = entry;
    const struct {
        const char *rule;
        Entries entries;
        const char *answer;
    } rows[] = {
        {"complete", complete_entries, "true cache$ 3128"},
        {"enabled by any number but 0", with("HTTPEnable", number_entry(-2)), "true cache$ 3128"},
        {"empty", {}, no_proxy},
        {"enable missing", without("HTTPEnable"), no_proxy},
        {"enable a text", with("HTTPEnable", text_entry("1")), no_proxy},
        {"enable unreadable", with("HTTPEnable", unreadable_entry(1)), no_proxy},
        {"disabled", with("HTTPEnable", number_entry(0)), no_proxy},
        {"host missing", without("HTTPProxy"), no_proxy},
        {"host a number", with("HTTPProxy", number_entry(1)), no_proxy},
        {"host not ASCII", with("HTTPProxy", text_entry("caf\u00e9")), refused},
        {"port missing", without("HTTPPort"), emptied},
        {"port a text", with("HTTPPort", text_entry("3128")), emptied},
        {"port unreadable", with("HTTPPort", unreadable_entry(3128)), emptied},
        {"only other protocols", other_protocols, no_proxy},
    };
    for (const auto &row : rows) {
        set_up_machine();
        frameworks.proxies = row.entries;
        EXPECT_EQ(http_proxy(), row.answer) << row.rule;
        EXPECT_EQ(frameworks_objects_made(), 1) << row.rule;
        expect_all_released();
    }
}

TEST(SystemProxyMacos, IsNotFoundWithoutADictionary)
{
    set_up_machine();
    frameworks.has_proxies = false;
    EXPECT_EQ(http_proxy(), "false $ 0");
    EXPECT_EQ(joined(frameworks.calls), "SCDynamicStoreCopyProxies");
    expect_all_released();
}

TEST(SystemProxyMacos, UsesTheLowSixteenBitsOfThePort)
{
    const struct {
        int number;
        const char *answer;
    } rows[] = {
        {1, "true cache$ 1"},         {65535, "true cache$ 65535"}, {65536, "true cache$ 0"},
        {0, "true cache$ 0"},         {70000, "true cache$ 4464"},  {-1, "true cache$ 65535"},
        {-3128, "true cache$ 62408"},
    };
    for (const auto &row : rows) {
        set_up_machine();
        frameworks.proxies["HTTPPort"] = number_entry(row.number);
        EXPECT_EQ(http_proxy(), row.answer) << row.number;
        expect_all_released();
    }
}

TEST(SystemProxyMacos, AcceptsAHostThatFitsWithItsTerminator)
{
    const struct {
        const char *host;
        std::size_t size;
        const char *answer;
    } rows[] = {
        {"cache", 6, "true cache$ 3128"},
        {"cache", 5, "false $! 0"},
        {"cache", 1, "false $ 0"},
        {"", 1, "true $ 3128"},
    };
    for (const auto &row : rows) {
        set_up_machine();
        frameworks.proxies["HTTPProxy"] = text_entry(row.host);
        EXPECT_EQ(http_proxy(row.size), row.answer) << row.size;
        expect_all_released();
    }
}

TEST(SystemProxyMacos, AcceptsAHostOf255BytesButNotOf256)
{
    set_up_machine();
    frameworks.proxies["HTTPProxy"] = text_entry(std::string(255, 'h'));
    ProxySettings settings = {};
    EXPECT_TRUE(system_http_proxy(settings.host, sizeof settings.host, &settings.port));
    EXPECT_EQ(settings.host, std::string(255, 'h'));
    EXPECT_EQ(settings.port, 3128);

    frameworks.proxies["HTTPProxy"] = text_entry(std::string(256, 'h'));
    EXPECT_FALSE(system_http_proxy(settings.host, sizeof settings.host, &settings.port));
    EXPECT_STREQ(settings.host, "");
    EXPECT_EQ(settings.port, 0);
    expect_all_released();
}

} // namespace
} // namespace quintral
