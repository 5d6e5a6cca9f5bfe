// The request that the utility sends.
#include "tool/options.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/harness/test-main.h"
#include "tests/tool/json-line.h"
#include "tests/tool/query.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

TEST(ToolRequest, NamesTheUtilityAndTheSystemAndNothingThatIdentifiesTheMachine)
{
    const Exchange exchange = ask(sending(reply_of("Message: Hello\n")));
    EXPECT_EQ(exchange.request, request_of({exchange.address, default_values()}));
    expect_ended(exchange.result, 0, "Hello\n", no_version_note);
}

// Every option that a run sends or that changes its output, except -service.
Strings all_options(const std::string &dash)
{
    const std::vector<Strings> options = {
        {"product", "Velours & Co"},
        {"productline", "a=b"},
        {"product-version", "5.25"},
        {"version-name", "5.2 \"beta\""},
        {"machine-id", "m-1.2_3~4"},
        {"os", "Hurd+"},
        {"os-version", "-0.9"},
        {"processor-arch", "x\xC3\xA4\xFF%"},
        {"max-time", "30"},
        {"proxy", ":1"},
        {"proxy-user", "user1"},
        {"proxy-pass", "pw1"},
        {"json"},
        {"quiet"},
        {"exit-code"},
        {"open"},
    };
    Strings arguments;
    for (const Strings &option : options) {
        arguments.push_back(dash + option[0]);
        arguments.insert(arguments.end(), option.begin() + 1, option.end());
    }
    return arguments;
}

TEST(ToolRequest, OptionsCanBeTypedWithOneDashTwoDashesOrAPlus)
{
    const Strings values = {"Velours & Co", "a=b",  "5.250",     "5.2 \"beta\"",
                            "Hurd+",        "-0.9", "m-1.2_3~4", "x\xC3\xA4\xFF%"};
    for (const std::string dash : {"-", "--", "+"}) {
        const LoopbackPeer peer({sending(reply_of("Version: 5.3\nMessage: New\n"))});
        const ChildResult result =
            run_tool(joined({dash + "service", peer.address()}, all_options(dash)));
        EXPECT_EQ(peer.received(0), request_of({peer.address(), values, "dXNlcjE6cHcx"})) << dash;
        const std::string object =
            json_line("answered", 10, "true", {"\"5.3\"", "null", "null", "\"New\\n\""}, "null",
                      {"", 200, peer.address()});
        expect_ended(result, 10, object, "", dash);
    }
}

TEST(ToolRequest, TheVersionIsSentWithADecimalPointAndThreeDigitsInEveryLocale)
{
    const struct {
        const char *typed;
        const char *sent;
    } rows[] = {
        {"5", "5.000"},           {"5.2", "5.200"},
        {"5.25", "5.250"},        {"0005.125", "5.125"},
        {"0", "0.000"},           {"16777216", "16777216.000"},
        {"8192.001", "8192.001"}, {"123456.789", "123456.789"},
    };
    for (const auto &row : rows) {
        ChildOptions options;
        options.environment = {{"LC_ALL", comma_locale}};
        Strings values = default_values();
        values[Version] = row.sent;
        const Exchange exchange =
            ask(sending(reply_of("Message: ")), {"-product-version", row.typed}, options);
        EXPECT_EQ(exchange.request, request_of({exchange.address, values})) << row.typed;
        expect_ended(exchange.result, 0, "", no_version_note, row.typed);
    }
}

TEST(ToolRequest, ANameMayBeAbbreviatedToAnUnambiguousPrefix)
{
    const struct {
        const char *typed;
        Field field;
    } rows[] = {
        {"-productl", ProductLine}, {"--productl", ProductLine}, {"-version-", VersionName},
        {"-mac", MachineId},        {"-os-", OsVersion},         {"-proc", ProcessorArch},
    };
    for (const auto &row : rows) {
        Strings values = default_values();
        values[Version] = "5.000";
        values[row.field] = "short";
        const Exchange exchange =
            ask(sending(reply_of("Message: ")), {"-product-version", "5", row.typed, "short"});
        EXPECT_EQ(exchange.request, request_of({exchange.address, values})) << row.typed;
    }
}

TEST(ToolRequest, GoesToTheServiceSetAtBuildTimeByDefault)
{
    const LoopbackPeer proxy({sending(reply_of("Message: Hello\n"))});
    const ChildResult result = run_tool({"-proxy", proxy.address()});
    EXPECT_EQ(proxy.received(0), request_of({QUINTRAL_SERVICE_HOST, default_values()}));
    expect_ended(result, 0, "Hello\n", no_version_note);
}

TEST(ToolRequest, TheLaunchArgumentOfTheDesktopIsDropped)
{
    const LoopbackPeer peer({sending(reply_of("Message: Hello\n"))});
    expect_ended(run_tool({"-psn_0_12345", "-service", peer.address()}), 0, "Hello\n",
                 no_version_note);
    expect_ended(run_tool({"-psn_0_12345", "-product"}), 2, "",
                 missing_argument("product") + usage_text());
    expect_ended(run_tool({"-json", "-psn_0_12345"}), 2, "",
                 error_line("Unknown option -psn_0_12345") + usage_text());
    expect_ended(run_tool({"-psn"}), 2, "", error_line("Unknown option -psn") + usage_text());
}

TEST(ToolRequest, TwoDashesEndTheOptions)
{
    const LoopbackPeer peer({sending(reply_of("Message: Hello\n"))});
    expect_ended(run_tool({"-service", peer.address(), "--"}), 0, "Hello\n", no_version_note);
    expect_ended(run_tool({"-service", peer.address(), "--", "-json"}), 2, "",
                 error_line("Unexpected argument; an option starts with a dash") + usage_text());
}

} // namespace
} // namespace quintral::tests::tool
