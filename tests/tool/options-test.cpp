// Reading the options, and the usage text.
#include "platform/platform.h"
#include "tool/options.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include "tests/tool/command-line.h"

namespace quintral::tests::tool {
namespace {

// Reads the options of a command line whose program is called prog.
int read_line(CommandLine *line, ToolOptions *options, std::vector<std::string> texts)
{
    texts.insert(texts.begin(), "prog");
    fill_command_line(line, texts);
    return read_options(static_cast<int>(texts.size()), line->elements.data(), options);
}

TEST(Options, StartFromTheUtilitysOwnAndTheSystemsNames)
{
    utsname system;
    ASSERT_EQ(uname(&system), 0);
    CommandLine line;
    ToolOptions options;
    ASSERT_EQ(read_line(&line, &options, {}), 0);
    EXPECT_STREQ(options.product, "Quintral");
    EXPECT_STREQ(options.product_line, "Quintral");
    EXPECT_STREQ(options.version_text, QUINTRAL_VERSION);
    EXPECT_EQ(options.version, std::strtof(QUINTRAL_VERSION, nullptr));
    EXPECT_STREQ(options.version_name, QUINTRAL_VERSION_NAME);
    EXPECT_STREQ(options.machine_id, "");
    char os_name[9];
    char os_version[sizeof system.release];
    platform_os_name(os_name);
    EXPECT_STREQ(options.os, os_name);
    EXPECT_STREQ(options.os_version, platform_os_version(os_version, sizeof os_version));
    EXPECT_STREQ(options.processor_arch, system.machine);
    EXPECT_EQ(options.service, nullptr);
    EXPECT_EQ(options.proxy, nullptr);
    EXPECT_EQ(options.proxy_user, nullptr);
    EXPECT_EQ(options.proxy_password, nullptr);
    EXPECT_EQ(options.max_time, 60);
    EXPECT_FALSE(options.json || options.quiet || options.exit_code || options.open);
    EXPECT_FALSE(options.help || options.show_version);
}

TEST(Options, EachTextOptionFillsItsFieldInEverySpelling)
{
    const struct {
        const char *name;
        const char *ToolOptions::*field;
    } rows[] = {
        {"product", &ToolOptions::product},
        {"productline", &ToolOptions::product_line},
        {"version-name", &ToolOptions::version_name},
        {"machine-id", &ToolOptions::machine_id},
        {"os", &ToolOptions::os},
        {"os-version", &ToolOptions::os_version},
        {"processor-arch", &ToolOptions::processor_arch},
        {"proxy", &ToolOptions::proxy},
        {"proxy-user", &ToolOptions::proxy_user},
        {"proxy-pass", &ToolOptions::proxy_password},
        {"service", &ToolOptions::service},
    };
    for (const auto &row : rows) {
        for (const char *dash : {"-", "--", "+"}) {
            const std::string word = dash + std::string(row.name);
            CommandLine line;
            ToolOptions options;
            ASSERT_EQ(read_line(&line, &options, {word, "-x"}), 0) << word;
            EXPECT_STREQ(options.*row.field, "-x") << word;
            ASSERT_EQ(read_line(&line, &options, {word + "=a", "-json"}), 0) << word;
            EXPECT_STREQ(options.*row.field, "a") << word;
            EXPECT_TRUE(options.json) << word;
            ASSERT_EQ(read_line(&line, &options, {word, "a", word + "=b"}), 0) << word;
            EXPECT_STREQ(options.*row.field, "b") << "the last " << word << " counts";
        }
    }
}

TEST(Options, EachSwitchSetsItsFieldAloneInEverySpelling)
{
    const struct {
        const char *name;
        bool ToolOptions::*field;
    } rows[] = {
        {"json", &ToolOptions::json},           {"quiet", &ToolOptions::quiet},
        {"exit-code", &ToolOptions::exit_code}, {"open", &ToolOptions::open},
        {"help", &ToolOptions::help},           {"version", &ToolOptions::show_version},
    };
    for (const auto &row : rows) {
        for (const char *dash : {"-", "--", "+"}) {
            CommandLine line;
            ToolOptions options;
            ASSERT_EQ(read_line(&line, &options, {dash + std::string(row.name)}), 0) << row.name;
            for (const auto &other : rows)
                EXPECT_EQ(options.*other.field, other.field == row.field)
                    << dash << row.name << " and " << other.name;
        }
    }
}

TEST(Options, TheProductVersionIsKeptAsNumberAndAsTyped)
{
    CommandLine line;
    ToolOptions options;
    ASSERT_EQ(read_line(&line, &options, {"-product-version", "0005.25"}), 0);
    EXPECT_STREQ(options.version_text, "0005.25");
    EXPECT_EQ(options.version, 5.25F);
}

TEST(Options, MaxTimeTakes1To86400Seconds)
{
    const struct {
        const char *text;
        int seconds;
    } rows[] = {{"1", 1}, {"60", 60}, {"0090", 90}, {"86399", 86399}, {"86400", 86400}};
    for (const auto &row : rows) {
        CommandLine line;
        ToolOptions options;
        ASSERT_EQ(read_line(&line, &options, {"-max-time", row.text}), 0) << row.text;
        EXPECT_EQ(options.max_time, row.seconds);
    }
}

TEST(Options, AServiceIsAHostWithAPortOrWithout)
{
    for (const char *text : {"a", "9", "Update.Example-2.com", "127.0.0.1", "host:1", "host:65535",
                             "host:00080", "-", ".", "a..b", "-json:80"}) {
        CommandLine line;
        ToolOptions options;
        ASSERT_EQ(read_line(&line, &options, {"-service", text}), 0) << text;
        EXPECT_STREQ(options.service, text);
    }
}

TEST(Options, EveryPasswordIsOverwrittenInTheVector)
{
    const struct {
        std::vector<std::string> before;
        const char *password;
    } rows[] = {
        {{"-proxy-pass", "secret"}, "secret"},
        {{"--proxy-pass", "secret"}, "secret"},
        {{"+proxy-pass", "secret"}, "secret"},
        {{"-proxy-pass=secret"}, "secret"},
        {{"--proxy-pass=secret"}, "secret"},
        {{"-proxy-p", "secret"}, "secret"},
        {{"--proxy-p=secret"}, "secret"},
        {{"-proxy-pass", "secret1", "-json", "--proxy-pass=secret2"}, "secret2"},
        {{"-proxy-pass=", "secret"}, "secret"},
        {{"-proxy-pass", "=secret"}, "=secret"},
    };
    for (const auto &row : rows) {
        const std::string what = testing::PrintToString(row.before);
        CommandLine line;
        ToolOptions options;
        ASSERT_EQ(read_line(&line, &options, row.before), 0) << what;
        EXPECT_STREQ(options.proxy_password, row.password) << what;
        for (const std::string &text : line.texts)
            EXPECT_EQ(text.find("secret"), std::string::npos) << text << " of " << what;
    }
}

TEST(Options, APasswordKeeps255Bytes)
{
    CommandLine line;
    ToolOptions options;
    ASSERT_EQ(read_line(&line, &options, {"-proxy-pass", std::string(300, 'p')}), 0);
    EXPECT_EQ(options.proxy_password, std::string(255, 'p'));
    EXPECT_EQ(line.texts[2], std::string(300, '\0'));
}

TEST(Options, UsageNamesEveryOptionAndHasTheProxyLinesWordForWord)
{
    const std::string usage = usage_text();
    for (const char *line : {
             "  -proxy host:port\tUse a proxy server to connect to the internet.\n",
             "  -proxy-user\t\tUsername for proxy authentication.\n",
             "  -proxy-pass\t\tPassword for proxy authentication.\n",
             "\n  -product ",
             "\n  -productline ",
             "\n  -product-version ",
             "\n  -version-name ",
             "\n  -machine-id ",
             "\n  -os ",
             "\n  -os-version ",
             "\n  -processor-arch ",
             "\n  -service host[:port]",
             "\n  -max-time seconds",
             "\n  -json\t",
             "\n  -quiet\t",
             "\n  -exit-code\t",
             "\n  -help\t",
             "\n  -version\t",
         })
        EXPECT_NE(usage.find(line), std::string::npos) << line;
    EXPECT_EQ(usage.back(), '\n');
    EXPECT_STREQ(version_line(), "quintral " QUINTRAL_VERSION_NAME "\n");
}

} // namespace
} // namespace quintral::tests::tool
