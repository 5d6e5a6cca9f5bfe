// Usage errors, -help and -version.
#include "tool/options.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

struct UsageRow {
    Strings arguments;
    std::string line; // on standard error, before the usage text
};

// Runs the arguments alone and after -json, since a usage error prints no object; and with a
// terminal, where the line is repeated.
void expect_usage_error(const UsageRow &row, ChildOptions options = {})
{
    const std::string what = testing::PrintToString(row.arguments);
    for (const Strings &start : {Strings{}, Strings{"-json"}})
        expect_ended(run_tool(joined(start, row.arguments), options), 2, "",
                     row.line + usage_text(), what);
    options.error = ChildStream::Terminal;
    expect_ended(run_tool(row.arguments, options), 2, "", row.line + usage_text() + row.line, what);
}

TEST(ToolUsage, TheLineIsRepeatedOnlyIfStandardErrorIsATerminal)
{
    const std::string line = error_line("-json takes no value");
    expect_ended(run_tool({"-json=no"}, with_output(ChildStream::Terminal)), 2, "",
                 line + usage_text());
    expect_ended(run_tool({"-json=no", "-quiet"}, with_error(ChildStream::Terminal)), 2, "",
                 line + usage_text() + line);
}

TEST(ToolUsage, AnUnknownWordIsNamedUpToItsEqualsSign)
{
    const UsageRow rows[] = {
        {{"-nonsense"}, error_line("Unknown option -nonsense")},
        {{"--nonsense"}, error_line("Unknown option --nonsense")},
        {{"+nonsense"}, error_line("Unknown option +nonsense")},
        {{"-nonsense=secret"}, error_line("Unknown option -nonsense")},
        {{"--nonsense=secret=x"}, error_line("Unknown option --nonsense")},
        {{"+proxypass=secret"}, error_line("Unknown option +proxypass; did you mean -proxy-pass?")},
        {{"-prodct"}, error_line("Unknown option -prodct; did you mean -product?")},
        {{"--prodct=secret"}, error_line("Unknown option --prodct; did you mean -product?")},
        {{"-jsonx"}, error_line("Unknown option -jsonx; did you mean -json?")},
        {{"-Json"}, error_line("Unknown option -Json; did you mean -json?")},
        {{"-5x"}, error_line("Unknown option -5x")},
        {{"---json"}, error_line("Unknown option ---json; did you mean -json?")},
        {{"+5"}, error_line("Unknown option +5")},
        {{"-quiet", "-nonsense", "-help"}, error_line("Unknown option -nonsense")},
        {{"-help", "--nonsense"}, error_line("Unknown option --nonsense")},
        {{"operand", "-nonsense"}, error_line("Unknown option -nonsense")},
        {{"operand", "--nonsense"}, error_line("Unknown option --nonsense")},
        {{"operand", "other", "-nonsense=secret"}, error_line("Unknown option -nonsense")},
        {{"-\x1B[2J\r\n"}, error_line("Unknown option -\\x1B[2J\\x0D\\x0A")},
        {{"-\xFFx"}, error_line("Unknown option -\\xFFx")},
        {{"-x" + std::string(2000, 'y')}, error_line("Unknown option -x" + std::string(986, 'y'))},
    };
    for (const UsageRow &row : rows)
        expect_usage_error(row);
}

TEST(ToolUsage, AnOperandIsNotShown)
{
    const Strings rows[] = {
        {"operand"},
        {"one", "two"},
        {"password=secret"},
        {"=secret"},
        {""},
        {"-"},
        {"-5"},
        {"-0.25"},
        {"-inf"},
        {"operand", "-quiet"},
        {"-help", "operand"},
        {"--", "-help"},
        {"bad\nline\x07"},
    };
    for (const Strings &row : rows)
        expect_usage_error({row, error_line("Unexpected argument; an option starts with a dash")});
}

std::string ambiguous(const std::string &typed, const char *first, const char *second)
{
    return std::string(QUINTRAL_TOOL) + ": option `" + typed + "' is ambiguous (could be `--" +
           first + "' or `--" + second + "')\n";
}

TEST(ToolUsage, AnAmbiguousWordIsReportedByTheParser)
{
    const UsageRow rows[] = {
        {{"-p"}, ambiguous("-p", "product", "productline")},
        {{"--prod"}, ambiguous("--prod", "product", "productline")},
        {{"+"}, ambiguous("+", "product", "productline")},
        {{"-vers"}, ambiguous("-vers", "version", "version-name")},
        {{"-o"}, ambiguous("-o", "os", "os-version")},
        {{"-m"}, ambiguous("-m", "machine-id", "max-time")},
        {{"-proxy-"}, ambiguous("-proxy-", "proxy-user", "proxy-pass")},
        {{"-e"}, ambiguous("-e", "exit-code", "explain-proxy")},
        {{"-s"}, ambiguous("-s", "service", "show-request")},
        {{"-pa"}, ambiguous("-pa", "password-file", "parse")},
        // without its value, which may be a password
        {{"--=secret"}, ambiguous("--", "product", "productline")},
        {{"-=secret"}, ambiguous("-", "product", "productline")},
        {{"+=secret"}, ambiguous("+", "product", "productline")},
        {{"-proxy-=secret"}, ambiguous("-proxy-", "proxy-user", "proxy-pass")},
        {{"--pro=secret=x"}, ambiguous("--pro", "product", "productline")},
        {{"-proxy-", "secret"}, ambiguous("-proxy-", "proxy-user", "proxy-pass")},
        {{"-proxy-="}, ambiguous("-proxy-", "proxy-user", "proxy-pass")},
        {{"operand", "-p"}, ambiguous("-p", "product", "productline")},
    };
    for (const UsageRow &row : rows)
        expect_usage_error(row);
}

Strings names_of_options(bool with_argument)
{
    Strings names;
    for (std::size_t i = 0; i < option_count; ++i) {
        if ((option_rows[i].argument != nullptr) == with_argument)
            names.push_back(option_rows[i].name);
    }
    return names;
}

TEST(ToolUsage, AMissingArgumentIsReportedByTheParser)
{
    const Strings names = names_of_options(true);
    EXPECT_EQ(names.size(), 16U);
    for (const std::string &name : names)
        expect_usage_error({{"-quiet", "--" + name}, missing_argument(name)});
    expect_usage_error({{"+mac"}, missing_argument("machine-id")});
}

TEST(ToolUsage, AnEmptyValueAfterAnEqualsSignIsRejected)
{
    const auto empty = [](const std::string &word) {
        return error_line(word + "= has no value; for an empty one write " + word + " ''");
    };
    for (const std::string &name : names_of_options(true))
        expect_usage_error({{"--" + name + "=", "-json"}, empty("--" + name)});
    const UsageRow rows[] = {
        {{"-machine-id="}, empty("-machine-id")},
        {{"-machine-id=", ""}, empty("-machine-id")},
        {{"-machine-id=", "value"}, empty("-machine-id")},
        {{"-machine-id=", "-bogus"}, empty("-machine-id")},
        {{"operand", "+mac=", "value"}, empty("+mac")},
        {{"-proxy-user=", "-proxy-pass", "secret"}, empty("-proxy-user")},
        {{"-proxy-pass=", "secret"}, empty("-proxy-pass")},
        {{"-proxy-pass="}, empty("-proxy-pass")},
    };
    for (const UsageRow &row : rows)
        expect_usage_error(row);
}

TEST(ToolUsage, AValueOfAnOptionWithoutArgumentIsRejected)
{
    const Strings names = names_of_options(false);
    EXPECT_EQ(names.size(), 9U);
    for (const std::string &name : names)
        expect_usage_error({{"--" + name + "=secret"}, error_line("-" + name + " takes no value")});
    expect_usage_error({{"-json="}, error_line("-json takes no value")});
    expect_usage_error({{"+js=no", "-bogus"}, error_line("-json takes no value")});
    expect_usage_error({{"-help", "operand", "-h=1"}, error_line("-help takes no value")});
}

TEST(ToolUsage, OptionsThatExcludeOrNeedEachOtherAreRejected)
{
    const std::string product =
        error_line("-product and -productline need -product-version: the version of this utility "
                   "says nothing about another product");
    const std::string looks =
        error_line("-show-request, -explain-proxy and -parse exclude each other");
    const std::string record = error_line("-record needs a run that sends the request");
    const UsageRow rows[] = {
        {{"-product", "Velours"}, product},
        {{"-productline", "Velours", "-version-name", "5.2"}, product},
        {{"-proxy-pass", "secret", "-password-file", "secret"},
         error_line("-proxy-pass and -password-file exclude each other")},
        {{"-show-request", "-explain-proxy"}, looks},
        {{"-parse", "-", "-show-request"}, looks},
        {{"-record", "/nowhere/a", "-explain-proxy"}, record},
        {{"-record", "/nowhere/a", "-parse", "-"}, record},
    };
    for (const UsageRow &row : rows)
        expect_usage_error(row);
}

void expect_rejected(const char *option, const Strings &values, const char *error)
{
    expect_usage_error({{option, values[0]}, error_line(error)});
    for (const std::string &value : values)
        expect_ended(run_tool({"-json", option, value}), 2, "", error_line(error) + usage_text(),
                     value);
}

TEST(ToolUsage, AProductVersionThatIsNotANumberIsRejected)
{
    expect_rejected("-product-version",
                    {"abc", "", "5.", ".5", "-5", "+5", " 5", "5 ", "1e3", "nan", "inf", "0x5",
                     "5,2", "secret", "5.2.", "5.2.a", "5..2"},
                    "-product-version takes a number such as 5.2");
}

TEST(ToolUsage, AProductVersionWithTwoPointsIsRejected)
{
    expect_rejected("-product-version", {"5.2.1", "5.2.1.0", "0.0.0"},
                    "-product-version takes a number with one decimal point, such as 5.2");
}

TEST(ToolUsage, AProductVersionThatAFloatDoesNotRepresentIsRejected)
{
    expect_rejected("-product-version",
                    {"5.1234", "16777217", "16384.001", "5.0000", std::string(40, '9')},
                    "-product-version takes a number with at most three decimal places that a "
                    "float represents exactly");
}

const char bad_service[] = "-service takes a host name, or host:port with a port from 1 to 65535";

TEST(ToolUsage, AServiceWithABadHostIsRejected)
{
    expect_rejected("-service",
                    {"", ":", ":80", "ho st", "ho_st", "host/", "http:/host", "user@host", "[::1]",
                     "h\xC3\xB6st", "host\n", "host?secret", "*"},
                    bad_service);
}

TEST(ToolUsage, AServiceWithABadPortIsRejected)
{
    expect_rejected("-service",
                    {"host:", "host:0", "host:00", "host:65536", "host:4294967376",
                     "host:" + std::string(40, '9'), "host:80x", "host:x", "host:+80", "host:-80",
                     "host: 80", "host:80:80", "host:80/"},
                    bad_service);
}

TEST(ToolUsage, TheSchemeOfAServiceIsRejectedWithWhatToLeaveOut)
{
    expect_rejected("-service", {"https://h", "http://host:80/", "://", "secret://host"},
                    "-service takes a host name, or host:port; leave out the part up to ://");
}

const char bad_time_limit[] = "-max-time takes a whole number of seconds from 1 to 86400";

TEST(ToolUsage, ABadTimeLimitIsRejected)
{
    expect_rejected("-max-time",
                    {"", "0", "00", "-1", "+1", " 1", "1 ", "1.5", "1s", "86401", "4294967297",
                     "18446744073709551617", std::string(40, '9'), "secret", "1e1", "inf"},
                    bad_time_limit);
}

TEST(ToolUsage, ABadProxyIsRejected)
{
    expect_rejected(
        "-proxy",
        {"", "cache", "cache:", "cache:0", "cache:http", "cache:secret", ":", ":0", "http:/cache"},
        "-proxy takes host:port with a port that is not 0");
}

TEST(ToolUsage, TheSchemeOfAProxyIsRejectedWithWhatToLeaveOut)
{
    expect_rejected("-proxy", {"http://h:80", "http://secret@h", "://", "socks5://h:1080"},
                    "-proxy takes host:port; leave out the part up to ://");
}

TEST(ToolUsage, OnlyTheFirstErrorIsReported)
{
    const UsageRow rows[] = {
        {{"-max-time", "0", "-service", "", "-nonsense", "operand"}, error_line(bad_time_limit)},
        {{"-proxy", "cache", "operand"},
         error_line("Unexpected argument; an option starts with a dash")},
        {{"-product", "a", "-proxy", "cache", "-json=no"}, error_line("-json takes no value")},
        {{"-proxy-pass=a", "-bogus", "-proxy-pass", "b"}, error_line("Unknown option -bogus")},
    };
    for (const UsageRow &row : rows)
        expect_usage_error(row);
}

TEST(ToolUsage, PosixlyCorrectStopsTheParserAtTheFirstOperand)
{
    ChildOptions options;
    options.environment = {{"POSIXLY_CORRECT", ""}};
    expect_usage_error(
        {{"operand", "-nonsense"}, error_line("Unexpected argument; an option starts with a dash")},
        options);
    expect_usage_error({{"-prod"}, ambiguous("-prod", "product", "productline")}, options);
    expect_usage_error({{"-product"}, missing_argument("product")}, options);
    expect_usage_error({{"-quiet", "-nonsense"}, error_line("Unknown option -nonsense")}, options);
}

TEST(ToolUsage, AUsageErrorSendsNothing)
{
    const LoopbackPeer peer({sending(reply_of("Message: Hello\n"))});
    EXPECT_EQ(run_tool({"-service", peer.address(), "-nonsense"}).exit_status, 2);
    EXPECT_EQ(run_tool({"-service", peer.address(), "-proxy", "cache"}).exit_status, 2);
    EXPECT_EQ(run_tool({"-service", "a:1", "-proxy", peer.address(), "x"}).exit_status, 2);
    EXPECT_EQ(run_tool({"-service", peer.address(), "-machine-id="}).exit_status, 2);
    EXPECT_EQ(run_tool({"-service", peer.address(), "-json=no"}).exit_status, 2);
    EXPECT_EQ(run_tool({"-service", peer.address(), "-product", "a"}).exit_status, 2);
    EXPECT_EQ(peer.connection_count(), 0);
}

TEST(ToolUsage, HelpAndVersionPrintOnStandardOutputAndSendNothing)
{
    const std::string version = "quintral " QUINTRAL_VERSION_NAME "\n";
    const struct {
        Strings arguments;
        std::string output;
    } rows[] = {
        {{"-help"}, usage_text()},
        {{"--help"}, usage_text()},
        {{"+help"}, usage_text()},
        {{"-h"}, usage_text()},
        {{"-help", "-json", "-quiet"}, usage_text()},
        {{"-help", "-product", "a"}, usage_text()},
        {{"-h", "-V"}, usage_text()},
        {{"-psn_0_1", "-help"}, usage_text()},
        {{"-version"}, version},
        {{"--version"}, version},
        {{"+version"}, version},
        {{"-V"}, version},
        {{"--V"}, version},
        {{"+V"}, version},
        {{"-json", "-version"}, version},
    };
    const LoopbackPeer peer({sending(reply_of("Message: Hello\n"))});
    for (const auto &row : rows) {
        const Strings arguments = joined(row.arguments, {"-service", peer.address()});
        expect_ended(run_tool(arguments), 0, row.output, "", testing::PrintToString(row.arguments));
    }
    EXPECT_EQ(peer.connection_count(), 0);
}

} // namespace
} // namespace quintral::tests::tool
