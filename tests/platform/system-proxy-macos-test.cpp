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

// The system's proxy

struct ProxyRow {
    const char *rule;
    Entries entries;
    const char *answer;
};

TEST(SystemProxyMacos, NeedsEachOfTheThreeEntries)
{
    const ProxyEntry on = number_entry(1);
    const ProxyEntry host = text_entry("cache");
    const ProxyEntry port = number_entry(3128);
    const char *none = "false $ 0";
    const char *emptied = "false $ache$ 0"; // the host had been copied
    const ProxyRow rows[] = {
        {"complete",
         {{"HTTPEnable", on}, {"HTTPProxy", host}, {"HTTPPort", port}},
         "true cache$ 3128"},
        {"enabled by any number but 0",
         {{"HTTPEnable", number_entry(-2)}, {"HTTPProxy", host}, {"HTTPPort", port}},
         "true cache$ 3128"},
        {"empty", {}, none},
        {"enable missing", {{"HTTPProxy", host}, {"HTTPPort", port}}, none},
        {"enable a text",
         {{"HTTPEnable", text_entry("1")}, {"HTTPProxy", host}, {"HTTPPort", port}},
         none},
        {"enable unreadable",
         {{"HTTPEnable", unreadable_entry(1)}, {"HTTPProxy", host}, {"HTTPPort", port}},
         none},
        {"disabled",
         {{"HTTPEnable", number_entry(0)}, {"HTTPProxy", host}, {"HTTPPort", port}},
         none},
        {"host missing", {{"HTTPEnable", on}, {"HTTPPort", port}}, none},
        {"host a number",
         {{"HTTPEnable", on}, {"HTTPProxy", number_entry(1)}, {"HTTPPort", port}},
         none},
        {"host not ASCII",
         {{"HTTPEnable", on}, {"HTTPProxy", text_entry("caf\xc3\xa9")}, {"HTTPPort", port}},
         none},
        {"port missing", {{"HTTPEnable", on}, {"HTTPProxy", host}}, emptied},
        {"port a text",
         {{"HTTPEnable", on}, {"HTTPProxy", host}, {"HTTPPort", text_entry("3128")}},
         emptied},
        {"port unreadable",
         {{"HTTPEnable", on}, {"HTTPProxy", host}, {"HTTPPort", unreadable_entry(3128)}},
         emptied},
        {"other protocols alone",
         {{"HTTPSEnable", on}, {"HTTPSProxy", host}, {"HTTPSPort", port}, {"SOCKSEnable", on}},
         none},
    };
    for (const ProxyRow &row : rows) {
        set_up_machine();
        frameworks.proxies = row.entries;
        EXPECT_EQ(http_proxy(), row.answer) << row.rule;
        EXPECT_EQ(frameworks_objects_made(), 1) << row.rule;
        expect_all_released();
    }
}

TEST(SystemProxyMacos, IsNoneWithoutADictionary)
{
    set_up_machine();
    frameworks.has_proxies = false;
    EXPECT_EQ(http_proxy(), "false $ 0");
    EXPECT_EQ(joined(frameworks.calls), "SCDynamicStoreCopyProxies");
    expect_all_released();
}

TEST(SystemProxyMacos, TakesTheLowSixteenBitsOfThePort)
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

TEST(SystemProxyMacos, TakesAHostThatFitsWithItsTerminator)
{
    const struct {
        const char *host;
        std::size_t size;
        const char *answer;
    } rows[] = {
        {"cache", 6, "true cache$ 3128"},
        {"cache", 5, "false $ 0"},
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

TEST(SystemProxyMacos, TakesAHostOf255BytesIntoTheSettingsAndNoneOf256)
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
