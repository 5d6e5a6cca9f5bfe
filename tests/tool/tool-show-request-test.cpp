// -show-request, and that the modes that send nothing open no socket.
#include <string>

#include <gtest/gtest.h>

#include "tests/harness/temp-folder.h"
#include "tests/tool/query.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

std::string value_line(const std::string &name, const std::string &value, const std::string &origin)
{
    return name + ": " + value + " (" + origin + ")\n";
}

// The lines on standard error for a run without options about the query.
std::string default_lines()
{
    const Strings values = default_values();
    return value_line("product", "Quintral", "default") +
           value_line("productline", "Quintral", "default") +
           value_line("version", QUINTRAL_VERSION, "default") +
           value_line("version_name", QUINTRAL_VERSION_NAME, "default") +
           value_line("os", values[Os], "detected") +
           value_line("os_version", values[OsVersion], "detected") +
           value_line("machine_id", "", "default") +
           value_line("processor_arch", values[ProcessorArch], "detected");
}

const Strings all_values = {
    "-product", "A B",   "-productline", "C", "-product-version", "5.2", "-version-name",      "v",
    "-os",      "O\x1B", "-os-version",  "7", "-machine-id",      "",    "-processor-arch=p=q"};
const Strings sent_values = {"A B", "C", "5.200", "v", "O\x1B", "7", "", "p=q"};

TEST(ToolShowRequest, PrintsTheDefaults)
{
    expect_ended(run_tool({"-show-request"}), 0,
                 request_of({QUINTRAL_SERVICE_HOST, default_values()}),
                 default_lines() + "proxy: none (no setting names one)\n");
}

TEST(ToolShowRequest, SaysWhichValuesWereGiven)
{
    expect_ended(run_tool(joined({"-show-request", "-service", "a.example:81"}, all_values)), 0,
                 request_of({"a.example:81", sent_values}),
                 "product: A B (command line)\n"
                 "productline: C (command line)\n"
                 "version: 5.2 (command line)\n"
                 "version_name: v (command line)\n"
                 "os: O\\x1B (command line)\n"
                 "os_version: 7 (command line)\n"
                 "machine_id:  (command line)\n"
                 "processor_arch: p=q (command line)\n"
                 "proxy: none (no setting names one)\n");
}

TEST(ToolShowRequest, PrintsTheBytesThatTheServiceReceives)
{
    for (const Strings &arguments : {Strings{}, all_values}) {
        const LoopbackPeer peer({sending(reply_of("Version: 9\nMessage: Hi\n"))});
        const Strings all = joined({"-service", peer.address()}, arguments);
        const ChildResult shown = run_tool(joined({"-show-request"}, all));
        EXPECT_EQ(peer.connection_count(), 0);
        EXPECT_EQ(shown.exit_status, 0);
        EXPECT_EQ(run_tool(all).exit_status, 0);
        EXPECT_EQ(peer.received(0), shown.output);
    }
}

TEST(ToolShowRequest, MasksTheCredentials)
{
    const LoopbackPeer proxy({sending(reply_of("Version: 9\nMessage: Hi\n"))});
    const Strings all = {"-service",    "a.example", "-proxy",      proxy.address(),
                         "-proxy-user", "me",        "-proxy-pass", "secret"};
    const ChildResult shown = run_tool(joined({"-show-request"}, all));
    expect_ended(shown, 0, request_of({"a.example", default_values(), "***"}),
                 default_lines() + "proxy: " + proxy.address() + " (from -proxy)\n");
    EXPECT_EQ(proxy.connection_count(), 0);
    EXPECT_EQ(run_tool(all).exit_status, 0);
    std::string sent = proxy.received(0);
    const std::string credentials = "bWU6c2VjcmV0";
    ASSERT_NE(sent.find(credentials), std::string::npos);
    EXPECT_EQ(sent.replace(sent.find(credentials), credentials.size(), "***"), shown.output);
}

TEST(ToolShowRequest, MasksTheLongestCredentials)
{
    const std::string longest(255, 'x');
    const ChildResult shown =
        run_tool({"-show-request", "-service", "a.example", "-proxy", "b.example:80", "-proxy-user",
                  longest, "-proxy-pass", longest});
    EXPECT_EQ(shown.output, request_of({"a.example", default_values(), "***"}));
}

TEST(ToolShowRequest, SaysWhereTheProxyCameFrom)
{
    const struct {
        Strings arguments;
        std::vector<std::pair<std::string, std::string>> environment;
        std::string line;
    } rows[] = {
        {{}, {{"http_proxy", "http://b.example:81/"}}, "b.example:81 (from http_proxy)"},
        {{"-proxy", "c.example:82"},
         {{"http_proxy", "http://b.example:81/"}},
         "c.example:82 (from -proxy)"},
        {{"-proxy", ":1"},
         {{"http_proxy", "http://b.example:81/"}},
         "none (-proxy forces a direct connection)"},
        {{"-service", "a.example"},
         {{"http_proxy", "http://b.example:81/"}, {"no_proxy", "example"}},
         "none (no_proxy lists a.example)"},
    };
    for (const auto &row : rows) {
        ChildOptions options;
        options.environment = row.environment;
        const ChildResult shown = run_tool(joined({"-show-request"}, row.arguments), options);
        EXPECT_EQ(shown.exit_status, 0);
        EXPECT_EQ(shown.error, default_lines() + "proxy: " + row.line + "\n");
    }
}

TEST(ToolShowRequest, FailsIfItCannotBePrinted)
{
    const ChildResult shown = run_tool({"-show-request"}, with_output(ChildStream::FullDisk));
    EXPECT_EQ(shown.exit_status, 1);
    EXPECT_EQ(shown.error,
              default_lines() + "proxy: none (no setting names one)\n" +
                  error_line("Can't write standard output, code 28: No space left on device"));
}

// System calls

// The calls of socket and connect that strace records while the utility runs.
std::string socket_calls(const Strings &arguments, int exit_status)
{
    const TempFolder folder;
    const Strings trace = {"strace",
                           "-f",
                           "-qq",
                           "-e",
                           "trace=socket,connect",
                           "-e",
                           "signal=none",
                           "-o",
                           folder.path("trace"),
                           QUINTRAL_TOOL};
    ChildOptions options;
    options.environment = {{"http_proxy", "http://localhost:1/"},
                           {"ASAN_OPTIONS", "detect_leaks=0"}}; // it cannot be traced
    EXPECT_EQ(run_child(joined(trace, arguments), options).exit_status, exit_status);
    return file_content(folder.path("trace"));
}

TEST(ToolTrace, TheModesThatSendNothingOpenNoSocket)
{
    const TempFolder folder;
    make_file(folder.path("reply"), reply_of("Version: 9\nURL: http://a/\nMessage: Hi\n"));
    const std::string proxy = "127.0.0.1:" + std::to_string(refused_port());
    const Strings target = {"-service", "localhost", "-proxy", proxy};
    for (const Strings &mode : {Strings{"-show-request"}, Strings{"-explain-proxy"},
                                Strings{"-parse", folder.path("reply"), "-open"}}) {
        EXPECT_EQ(socket_calls(mode, 0), "") << mode[0];
        EXPECT_EQ(socket_calls(joined(mode, target), 0), "") << mode[0];
    }
    // so that a trace that records nothing is noticed
    EXPECT_NE(socket_calls({"-service", proxy, "-proxy", ":1"}, 1).find("connect("),
              std::string::npos);
}

} // namespace
} // namespace quintral::tests::tool
