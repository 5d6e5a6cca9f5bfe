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

// Runs the arguments alone and after -json, since a usage error prints no object.
void expect_usage_error(const UsageRow &row, const ChildOptions &options = {})
{
    for (const Strings &start : {Strings{}, Strings{"-json"}})
        expect_ended(run_tool(joined(start, row.arguments), options), 2, "",
                     row.line + usage_text(), testing::PrintToString(row.arguments));
}

TEST(ToolUsage, AnUnknownWordIsNamedUpToItsEqualsSign)
{
    const UsageRow rows[] = {
        {{"-nonsense"}, error_line("Unknown option -nonsense")},
        {{"--nonsense"}, error_line("Unknown option --nonsense")},
        {{"+nonsense"}, error_line("Unknown option +nonsense")},
        {{"-nonsense=secret"}, error_line("Unknown option -nonsense")},
        {{"--nonsense=secret=x"}, error_line("Unknown option --nonsense")},
        {{"+proxypass=secret"}, error_line("Unknown option +proxypass")},
        {{"-jsonx"}, error_line("Unknown option -jsonx")},
        {{"-Json"}, error_line("Unknown option -Json")},
        {{"-5x"}, error_line("Unknown option -5x")},
        {{"---json"}, error_line("Unknown option ---json")},
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

TEST(ToolUsage, AnOperandIsNamedUpToItsEqualsSign)
{
    const UsageRow rows[] = {
        {{"operand"}, error_line("Unexpected argument operand")},
        {{"one", "two"}, error_line("Unexpected argument one")},
        {{"password=secret"}, error_line("Unexpected argument password")},
        {{"=secret"}, error_line("Unexpected argument ")},
        {{""}, error_line("Unexpected argument ")},
        {{"-"}, error_line("Unexpected argument -")},
        {{"-5"}, error_line("Unexpected argument -5")},
        {{"-0.25"}, error_line("Unexpected argument -0.25")},
        {{"-inf"}, error_line("Unexpected argument -inf")},
        {{"operand", "-quiet"}, error_line("Unexpected argument operand")},
        {{"-help", "operand"}, error_line("Unexpected argument operand")},
        {{"--", "-help"}, error_line("Unexpected argument -help")},
        {{"bad\nline\x07"}, error_line("Unexpected argument bad\\x0Aline\\x07")},
    };
    for (const UsageRow &row : rows)
        expect_usage_error(row);
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
        {{"--=x"}, ambiguous("--=x", "product", "productline")},
        {{"operand", "-p"}, ambiguous("-p", "product", "productline")},
    };
    for (const UsageRow &row : rows)
        expect_usage_error(row);
}

TEST(ToolUsage, AMissingArgumentIsReportedByTheParser)
{
    const char *const names[] = {"product",    "productline", "product-version", "version-name",
                                 "machine-id", "os",          "os-version",      "processor-arch",
                                 "service",    "proxy",       "proxy-user",      "proxy-pass",
                                 "max-time"};
    for (const std::string name : names) {
        expect_usage_error({{"-" + name}, missing_argument(name)});
        expect_usage_error({{"-quiet", "--" + name + "="}, missing_argument(name)});
    }
    expect_usage_error({{"+mac"}, missing_argument("machine-id")});
}

void expect_rejected(const char *option, const Strings &values, const char *error)
{
    expect_usage_error({{option, values[0]}, error_line(error)});
    for (const std::string &value : values)
        expect_ended(run_tool({"-json", option, value}), 2, "", error_line(error) + usage_text(),
                     value);
}

TEST(ToolUsage, ABadProductVersionIsRejected)
{
    expect_rejected("-product-version",
                    {"", "5.", ".5", "5.1234", "5.2.1", "-5", "+5", " 5", "5 ", "1e3", "nan", "inf",
                     "0x5", "5,2", "secret", "16777217", "16384.001", std::string(40, '9')},
                    "-product-version takes a number with at most three decimal places that a "
                    "float represents exactly");
}

const char bad_service[] = "-service takes a host name, or host:port with a port from 1 to 65535";

TEST(ToolUsage, AServiceWithABadHostIsRejected)
{
    expect_rejected("-service",
                    {"", ":", ":80", "ho st", "ho_st", "host/", "http://host", "user@host", "[::1]",
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
        {"", "cache", "cache:", "cache:0", "cache:http", "cache:secret", ":", ":0", "http://cache"},
        "-proxy takes host:port with a port that is not 0");
}

TEST(ToolUsage, OnlyTheFirstErrorIsReported)
{
    const UsageRow rows[] = {
        {{"-max-time", "0", "-service", "", "-nonsense", "operand"}, error_line(bad_time_limit)},
        {{"-proxy", "cache", "operand"}, error_line("Unexpected argument operand")},
        {{"-proxy-pass=a", "-bogus", "-proxy-pass", "b"}, error_line("Unknown option -bogus")},
    };
    for (const UsageRow &row : rows)
        expect_usage_error(row);
}

TEST(ToolUsage, PosixlyCorrectStopsTheParserAtTheFirstOperand)
{
    ChildOptions options;
    options.environment = {{"POSIXLY_CORRECT", ""}};
    expect_usage_error({{"operand", "-nonsense"}, error_line("Unexpected argument operand")},
                       options);
    expect_usage_error({{"-quiet", "-nonsense"}, error_line("Unknown option -nonsense")}, options);
}

TEST(ToolUsage, AUsageErrorSendsNothing)
{
    const LoopbackPeer peer({sending(reply_of("Message: Hello\n"))});
    EXPECT_EQ(run_tool({"-service", peer.address(), "-nonsense"}).exit_status, 2);
    EXPECT_EQ(run_tool({"-service", peer.address(), "-proxy", "cache"}).exit_status, 2);
    EXPECT_EQ(run_tool({"-service", "a:1", "-proxy", peer.address(), "x"}).exit_status, 2);
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
        {{"-help=ignored"}, usage_text()},
        {{"-psn_0_1", "-help"}, usage_text()},
        {{"-version"}, version},
        {{"--version"}, version},
        {{"+version"}, version},
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
