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

using Strings = std::vector<std::string>;

Strings with_program_name(Strings words)
{
    words.insert(words.begin(), "prog");
    return words;
}

// A command line and the options that were read from it.
struct OptionsRead {
    CommandLine line;
    ToolOptions options;
    int result;

    explicit OptionsRead(const Strings &words)
        : line(with_program_name(words)),
          result(read_options(static_cast<int>(words.size() + 1), line.arguments.data(), &options))
    {
    }
};

TEST(Options, DefaultToTheUtilityAndTheSystem)
{
    utsname system;
    ASSERT_EQ(uname(&system), 0);
    char os_name[9];
    char os_version[sizeof system.release];
    platform_os_name(os_name);
    platform_os_version(os_version, sizeof os_version);
    const OptionsRead read({});
    ASSERT_EQ(read.result, 0);
    EXPECT_STREQ(read.options.product, "Quintral");
    EXPECT_STREQ(read.options.product_line, "Quintral");
    EXPECT_STREQ(read.options.version_text, QUINTRAL_VERSION);
    EXPECT_EQ(read.options.version, std::strtof(QUINTRAL_VERSION, nullptr));
    EXPECT_STREQ(read.options.version_name, QUINTRAL_VERSION_NAME);
    EXPECT_STREQ(read.options.machine_id, "");
    EXPECT_STREQ(read.options.os, os_name);
    EXPECT_STREQ(read.options.os_version, os_version);
    EXPECT_STREQ(read.options.processor_arch, system.machine);
    EXPECT_EQ(read.options.service, nullptr);
    EXPECT_EQ(read.options.proxy, nullptr);
    EXPECT_EQ(read.options.proxy_user, nullptr);
    EXPECT_EQ(read.options.proxy_password, nullptr);
    EXPECT_EQ(read.options.max_time, 60);
    EXPECT_FALSE(read.options.json || read.options.quiet || read.options.exit_code);
    EXPECT_FALSE(read.options.open || read.options.help || read.options.show_version);
}

TEST(Options, EachStringOptionFillsItsFieldInEverySpelling)
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
            const OptionsRead next_word({word, "-x"});
            ASSERT_EQ(next_word.result, 0) << word;
            EXPECT_STREQ(next_word.options.*row.field, "-x") << word;
            const OptionsRead same_word({word + "=a", "-json"});
            ASSERT_EQ(same_word.result, 0) << word;
            EXPECT_STREQ(same_word.options.*row.field, "a") << word;
            EXPECT_TRUE(same_word.options.json) << word;
            const OptionsRead twice({word, "a", word + "=b"});
            ASSERT_EQ(twice.result, 0) << word;
            EXPECT_STREQ(twice.options.*row.field, "b") << "the last " << word << " counts";
        }
    }
}

TEST(Options, EachSwitchSetsOnlyItsFieldInEverySpelling)
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
            const OptionsRead read({dash + std::string(row.name)});
            ASSERT_EQ(read.result, 0) << row.name;
            for (const auto &other : rows)
                EXPECT_EQ(read.options.*other.field, other.field == row.field)
                    << dash << row.name << " and " << other.name;
        }
    }
}

TEST(Options, TheProductVersionIsKeptAsANumberAndAsTyped)
{
    const OptionsRead read({"-product-version", "0005.25"});
    ASSERT_EQ(read.result, 0);
    EXPECT_STREQ(read.options.version_text, "0005.25");
    EXPECT_EQ(read.options.version, 5.25F);
}

TEST(Options, MaxTimeAccepts1To86400Seconds)
{
    const struct {
        const char *text;
        int seconds;
    } rows[] = {{"1", 1}, {"60", 60}, {"0090", 90}, {"86399", 86399}, {"86400", 86400}};
    for (const auto &row : rows) {
        const OptionsRead read({"-max-time", row.text});
        ASSERT_EQ(read.result, 0) << row.text;
        EXPECT_EQ(read.options.max_time, row.seconds);
    }
}

TEST(Options, AServiceIsAHostWithAnOptionalPort)
{
    for (const char *text : {"a", "9", "Update.Example-2.com", "127.0.0.1", "host:1", "host:65535",
                             "host:00080", "-", ".", "a..b", "-json:80"}) {
        const OptionsRead read({"-service", text});
        ASSERT_EQ(read.result, 0) << text;
        EXPECT_STREQ(read.options.service, text);
    }
}

TEST(Options, EveryPasswordIsOverwrittenInTheArgumentVector)
{
    const struct {
        Strings words;
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
        const std::string what = testing::PrintToString(row.words);
        const OptionsRead read(row.words);
        ASSERT_EQ(read.result, 0) << what;
        EXPECT_STREQ(read.options.proxy_password, row.password) << what;
        for (const std::string &word : read.line.strings)
            EXPECT_EQ(word.find("secret"), std::string::npos) << word << " of " << what;
    }
}

TEST(Options, APasswordIsTruncatedTo255BytesAndOverwrittenInFull)
{
    const OptionsRead read({"-proxy-pass", std::string(300, 'p')});
    ASSERT_EQ(read.result, 0);
    EXPECT_EQ(read.options.proxy_password, std::string(255, 'p'));
    EXPECT_EQ(read.line.strings[2], std::string(300, '\0'));
}

TEST(Options, UsageListsEveryOptionAndHasTheExactProxyLines)
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
             "\n  -open\t",
             "\n  -help\t",
             "\n  -version\t",
         })
        EXPECT_NE(usage.find(line), std::string::npos) << line;
    EXPECT_EQ(usage.back(), '\n');
    EXPECT_STREQ(version_line(), "quintral " QUINTRAL_VERSION_NAME "\n");
}

} // namespace
} // namespace quintral::tests::tool
