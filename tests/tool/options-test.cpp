// Reading the options, and the usage text.
#include "platform/platform.h"
#include "tool/command-line.h"
#include "tool/query.h"

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
    UsageError error;
    int result;

    explicit OptionsRead(const Strings &words)
        : line(with_program_name(words)),
          result(read_options(static_cast<int>(words.size() + 1), line.arguments.data(), &options,
                              &error))
    {
    }
};

TEST(Options, AreUnsetByDefaultExceptTheTimeLimit)
{
    const OptionsRead read({});
    ASSERT_EQ(read.result, 0);
    for (const char *string :
         {read.options.product, read.options.product_line, read.options.product_version,
          read.options.version_name, read.options.machine_id, read.options.os,
          read.options.os_version, read.options.processor_arch, read.options.service,
          read.options.proxy, read.options.proxy_user, read.options.proxy_password,
          read.options.password_file, read.options.record, read.options.parse})
        EXPECT_EQ(string, nullptr);
    EXPECT_EQ(read.options.max_time, 60);
    EXPECT_FALSE(read.options.json || read.options.quiet || read.options.exit_code);
    EXPECT_FALSE(read.options.open || read.options.help || read.options.show_version);
    EXPECT_FALSE(read.options.show_request || read.options.explain_proxy);
}

// A value of a query, with its origin.
struct ExpectedValue {
    const char *name;
    std::string value;
    const char *origin;
};

void expect_query(const Strings &words, const std::vector<ExpectedValue> &expected,
                  const std::string &service)
{
    const OptionsRead read(words);
    ASSERT_EQ(read.result, 0) << read.error.message;
    ToolQuery query;
    fill_query(read.options, &query);
    ASSERT_EQ(expected.size(), query.values.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_STREQ(query.values[i].name, expected[i].name);
        EXPECT_EQ(query.values[i].value, expected[i].value) << expected[i].name;
        EXPECT_STREQ(query.values[i].origin, expected[i].origin) << expected[i].name;
        EXPECT_EQ(describe_value(query.values[i]), std::string(expected[i].name) + ": " +
                                                       expected[i].value + " (" +
                                                       expected[i].origin + ")");
    }
    EXPECT_STREQ(own_version(query), expected[2].value.c_str());
    EXPECT_EQ(query.service, service);
}

TEST(Query, DefaultsToTheUtilityAndTheSystem)
{
    utsname system;
    ASSERT_EQ(uname(&system), 0);
    char os_name[9];
    char os_version[sizeof system.release];
    platform_os_name(os_name);
    platform_os_version(os_version, sizeof os_version);
    expect_query({},
                 {{"product", "Quintral", "default"},
                  {"productline", "Quintral", "default"},
                  {"version", QUINTRAL_VERSION, "default"},
                  {"version_name", QUINTRAL_VERSION_NAME, "default"},
                  {"os", os_name, "detected"},
                  {"os_version", os_version, "detected"},
                  {"machine_id", "", "default"},
                  {"processor_arch", system.machine, "detected"}},
                 QUINTRAL_SERVICE_HOST);
}

TEST(Query, HasWhatTheCommandLineGivesEvenIfItIsEmpty)
{
    expect_query({"-product", "a", "-productline=b", "-product-version", "05.20", "-version-name",
                  "", "-os", "", "-os-version", "c", "-machine-id", "d=", "-processor-arch", "",
                  "-service", "e:1"},
                 {{"product", "a", "command line"},
                  {"productline", "b", "command line"},
                  {"version", "05.20", "command line"},
                  {"version_name", "", "command line"},
                  {"os", "", "command line"},
                  {"os_version", "c", "command line"},
                  {"machine_id", "d=", "command line"},
                  {"processor_arch", "", "command line"}},
                 "e:1");
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
        {"record", &ToolOptions::record},
        {"parse", &ToolOptions::parse},
        {"password-file", &ToolOptions::password_file},
    };
    const std::string version = "-product-version=5"; // -product needs it
    for (const auto &row : rows) {
        for (const char *dash : {"-", "--", "+"}) {
            const std::string word = dash + std::string(row.name);
            const OptionsRead next_word({version, word, "-x"});
            ASSERT_EQ(next_word.result, 0) << word;
            EXPECT_STREQ(next_word.options.*row.field, "-x") << word;
            const OptionsRead same_word({version, word + "=a", "-json"});
            ASSERT_EQ(same_word.result, 0) << word;
            EXPECT_STREQ(same_word.options.*row.field, "a") << word;
            EXPECT_TRUE(same_word.options.json) << word;
            const OptionsRead twice({version, word, "a", word + "=b"});
            ASSERT_EQ(twice.result, 0) << word;
            EXPECT_STREQ(twice.options.*row.field, "b") << "the last " << word << " counts";
            if (row.field == &ToolOptions::service) // which needs a host
                continue;
            const OptionsRead empty({version, word, "", "-json"});
            ASSERT_EQ(empty.result, 0) << word;
            EXPECT_STREQ(empty.options.*row.field, "") << word;
            EXPECT_TRUE(empty.options.json) << word;
            const OptionsRead with_sign({version, word, "a="});
            ASSERT_EQ(with_sign.result, 0) << word;
            EXPECT_STREQ(with_sign.options.*row.field, "a=") << word;
        }
    }
}

TEST(Options, EachSwitchSetsOnlyItsFieldInEverySpelling)
{
    const struct {
        const char *name;
        bool ToolOptions::*field;
    } rows[] = {
        {"json", &ToolOptions::json},
        {"quiet", &ToolOptions::quiet},
        {"exit-code", &ToolOptions::exit_code},
        {"open", &ToolOptions::open},
        {"help", &ToolOptions::help},
        {"version", &ToolOptions::show_version},
        {"V", &ToolOptions::show_version},
        {"show-request", &ToolOptions::show_request},
        {"explain-proxy", &ToolOptions::explain_proxy},
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

TEST(Options, TheProductVersionIsKeptAsTyped)
{
    for (const char *text : {"0005.25", "5", "5.2", "16777216", "8192.001"}) {
        const OptionsRead read({"-product-version", text});
        ASSERT_EQ(read.result, 0) << text;
        EXPECT_STREQ(read.options.product_version, text);
    }
}

// One change is to insert, delete or replace a letter, or to exchange two neighbours.
TEST(Options, AnUnknownWordIsComparedWithEveryName)
{
    const struct {
        const char *word;
        const char *nearest; // null if none is close
    } rows[] = {
        {"-prodct", "product"}, // one change
        {"-prroduct", "product"},
        {"-prodact", "product"},
        {"-rpoduct", "product"},
        {"-products", "product"},
        {"-product-line", "productline"},
        {"-prodcut-verison", "product-version"}, // two changes
        {"-prodt", "product"},
        {"-machineid", "machine-id"},
        {"-machine_id", "machine-id"},
        {"-hlep", "help"},
        {"-jsn", "json"},
        {"-jsonx", "json"},
        {"-Json", "json"},
        {"-JSon", nullptr}, // two changes of four letters
        {"-josnx", "json"},
        {"-ox", nullptr}, // one change of two letters
        {"-oss", "os"},   // of three
        {"-x", nullptr},
        {"-v1", nullptr},
        {"-prdct", "product"},
        {"-rdct", nullptr}, // three changes
        {"-user", nullptr},
        {"-timeout", nullptr},
        {"-verbose", nullptr},
        {"-nonsense", nullptr},
        {"-proxypass", "proxy-pass"},
        {"-proxy-pase", "proxy-pass"},
        {"-proxy-xser", "proxy-user"},
        {"-proxy-uass", "proxy-pass"},
        {"--prodct", "product"}, // whatever its dashes
        {"+prodct", "product"},
        {"---json", "json"},
        {"---", nullptr},
        {"-prodct=secret", "product"},
        {"-a=json", nullptr},
        {"-product-versionxx", "product-version"},
    };
    for (const auto &row : rows) {
        std::string word = row.word;
        word = word.substr(0, word.find('='));
        std::string message = "Unknown option " + word;
        if (row.nearest != nullptr)
            message += std::string("; did you mean -") + row.nearest + "?";
        const OptionsRead read({row.word, "secret"});
        EXPECT_EQ(read.result, -1) << row.word;
        EXPECT_EQ(read.error.message, message);
    }
}

TEST(Options, AVeryLongWordIsComparedWithNone)
{
    const std::string word(1000000, 'p');
    const OptionsRead read({"-" + word});
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.error.message, "Unknown option -" + word);
}

TEST(Options, OnlyThoseThatAreReadTogetherMayBeGivenTogether)
{
    const char product[] =
        "-product and -productline need -product-version: the version of this utility says nothing "
        "about another product";
    const char passwords[] = "-proxy-pass and -password-file exclude each other";
    const char looks[] = "-show-request, -explain-proxy and -parse exclude each other";
    const char record[] = "-record needs a run that sends the request";
    const struct {
        Strings words;
        const char *message;
    } rows[] = {
        {{"-product", "a"}, product},
        {{"-product", ""}, product},
        {{"-productline", "a"}, product},
        {{"-product", "a", "-productline", "a", "-version-name", "5.2"}, product},
        {{"-product", "a", "-show-request"}, product},
        {{"-product", "a", "-record", "f"}, product},
        {{"-product", "a", "-product-version", "5.2"}, ""},
        {{"-product-version", "5.2", "-productline", "a"}, ""},
        {{"-product-version", "5.2"}, ""},
        {{"-product", "a", "-explain-proxy"}, ""}, // which compares no versions
        {{"-product", "a", "-parse", "f"}, ""},    // the record has the version
        {{"-product", "a", "-help"}, ""},
        {{"-product", "a", "-V"}, ""},
        {{"-proxy-pass", "a", "-password-file", "f"}, passwords},
        {{"-password-file", "f", "-proxy-pass", ""}, passwords},
        {{"-password-file", "f"}, ""},
        {{"-show-request", "-explain-proxy"}, looks},
        {{"-show-request", "-parse", "f"}, looks},
        {{"-parse", "f", "-explain-proxy"}, looks},
        {{"-parse", "f", "-explain-proxy", "-help"}, ""},
        {{"-record", "f", "-show-request"}, record},
        {{"-record", "f", "-explain-proxy"}, record},
        {{"-record", "f", "-parse", "f"}, record},
        {{"-record", "f"}, ""},
        {{"-parse", "f", "-parse", "g"}, ""},
    };
    for (const auto &row : rows) {
        const OptionsRead read(row.words);
        const std::string what = testing::PrintToString(row.words);
        EXPECT_EQ(read.result, *row.message != '\0' ? -1 : 0) << what;
        EXPECT_EQ(read.error.message, row.message) << what;
    }
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

// A mistyped name may have been meant for the password.
TEST(Options, AfterAnErrorOnlyNamesStayInTheArgumentVector)
{
    const Strings rows[] = {
        {"-proxy-user=", "-proxy-pass", "secret"},
        {"-proxy-user=", "-proxy-pass=secret"},
        {"-proxy-pass=", "secret"},
        {"-proxy-pass=", "-secret"},
        {"-proxy-pass=", "-proxy-pass", "secret"},
        {"-proxy-pass=", "-proxy-pass", "-secret"},
        {"operand", "-proxy-pass=", "-secret"},
        {"-proxy-=secret"}, // ambiguous
        {"--pro=secret=secret"},
        {"--=secret"},
        {"-=secret"},
        {"-proxy-", "secret"},
        {"-proxy-", "-secret"},
        {"-o", "-secret"}, // ambiguous, and not the beginning of proxy-pass
        {"secret", "--proxy-", "-secret"},
        {"-proxypass", "secret"},             // unknown
        {"operand", "-proxypass", "-secret"}, // moved before the operand
        {"-proxypass=secret"},
        {"-proxypass=", "-secret"},
        {"-proxy-=", "-secret"},
        {"-max-time=0", "-proxy-pass=", "-secret"},
        {"--proxypass=secret", "-proxy-pass", "-secret"},
        {"-json=secret"},
        {"-json=no", "-proxy-pass=secret"},
        {"-max-time=0", "-proxy-pass", "-secret"},
        {"secret"},
        {"-json", "--", "secret"},
    };
    for (const Strings &row : rows) {
        const OptionsRead read(row);
        const std::string what = testing::PrintToString(row);
        ASSERT_EQ(read.result, -1) << what;
        EXPECT_EQ(read.line.strings[0], "prog");
        for (const std::string &word : read.line.strings)
            EXPECT_EQ(word.find("secret"), std::string::npos) << word << " of " << what;
        for (const std::string &shown : {read.error.message, read.error.program, read.error.word})
            EXPECT_EQ(shown.find("secret"), std::string::npos) << shown << " of " << what;
    }
}

TEST(Options, AnAmbiguousWordAtTheEndHasNoValueToOverwrite)
{
    const OptionsRead read({"-json", "-proxy-"});
    EXPECT_EQ(read.result, -1);
    EXPECT_EQ(read.error.word, "-proxy-");
    EXPECT_EQ(read.line.strings, (Strings{"prog", "-json", "-proxy-"}));
}

TEST(Options, APasswordIsTruncatedTo255BytesAndOverwrittenInFull)
{
    const OptionsRead read({"-proxy-pass", std::string(300, 'p')});
    ASSERT_EQ(read.result, 0);
    EXPECT_EQ(read.options.proxy_password, std::string(255, 'p'));
    EXPECT_EQ(read.line.strings[2], std::string(300, '\0'));
}

const char expected_usage[] =
    "Usage: quintral [options]\n"
    "Asks the web service whether a newer version of a product exists.\n"
    "\n"
    "The product and the computer, as they are sent:\n"
    "  -product name\t\tProduct to ask about.\n"
    "  -productline name\tProduct line it belongs to.\n"
    "  -product-version n\tIts version, a number such as 5.2.\n"
    "  -version-name text\tName of that version.\n"
    "  -machine-id text\tIdentifier of this machine (default: empty).\n"
    "  -os name\t\tOperating system (default: detected).\n"
    "  -os-version text\tIts version (default: detected).\n"
    "  -processor-arch name\tProcessor (default: detected).\n"
    "\n"
    "The connection:\n"
    "  -service host[:port]\tAsk this update service.\n"
    "  -proxy host:port\tUse a proxy server to connect to the internet.\n"
    "  -proxy-user\t\tUsername for proxy authentication.\n"
    "  -proxy-pass\t\tPassword for proxy authentication.\n"
    "  -password-file file\tRead the password from a file.\n"
    "  -max-time seconds\tOverall time limit, 1 to 86400 (default: 60).\n"
    "\n"
    "The answer:\n"
    "  -json\t\t\tPrint one JSON object instead of text.\n"
    "  -quiet\t\tSuppress the progress indicator and notes.\n"
    "  -exit-code\t\tExit with status 10 if newer, 11 if unknown.\n"
    "  -open\t\t\tOpen the URL of a newer version in the browser.\n"
    "\n"
    "See before you send:\n"
    "  -show-request\t\tPrint the request instead of sending it.\n"
    "  -explain-proxy\tSay which proxy is used and why; send nothing.\n"
    "  -record file\t\tKeep the request and the reply in a file.\n"
    "  -parse file\t\tRead a recorded or saved reply; send nothing.\n"
    "\n"
    "About this program:\n"
    "  -help\t\t\tPrint this text.\n"
    "  -version\t\tPrint the version of this program.\n"
    "  -V\t\t\tThe same as -version.\n"
    "\n"
    "Exit status: 0 answered, 1 failure, 2 usage error, 3 time limit passed.\n";

TEST(Options, TheUsageTextListsEveryOption)
{
    EXPECT_EQ(usage_text(), expected_usage);
    EXPECT_STREQ(version_line(), "quintral " QUINTRAL_VERSION_NAME "\n");
}

} // namespace
} // namespace quintral::tests::tool
