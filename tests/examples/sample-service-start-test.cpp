// How the sample update service starts and ends: command line, port, signals and product list.
#include <csignal>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/examples/sample-service.h"

namespace quintral::tests {
namespace {

using namespace std::string_literals;

TEST(SampleUpdateService, EitherSignalEndsItWithStatus0)
{
    for (const int signal_number : {SIGTERM, SIGINT}) {
        Service started = start_service();
        EXPECT_EQ(stop_service(started, signal_number), "");
    }
}

TEST(SampleUpdateService, EndsAtASignalWhateverItsClientsDo)
{
    Service started = start_service();
    const int idle = connect_to(started.port);
    const int half = connect_to(started.port);
    ASSERT_TRUE(send_bytes(half, "POST /version-update.php"));
    EXPECT_EQ(ask(started.port, post(good_form)), shapes_answer);
    stop_service(started);
    close(idle);
    close(half);
}

TEST(SampleUpdateService, ListensOnTheGivenPort)
{
    Service first = start_service();
    const std::string port = std::to_string(first.port);
    const ChildResult taken = run_child({service, "--port", port, products});
    EXPECT_EQ(taken.exit_status, 1);
    EXPECT_EQ(taken.output, "");
    EXPECT_EQ(taken.error, "Can't listen on 127.0.0.1:" + port + ": Address already in use\n");
    stop_service(first);

    Service second;
    second.child = child_start({service, products, "--port", port});
    ASSERT_TRUE(child_wait_for_text(second.child, "\n", 10000));
    second.port = first.port;
    EXPECT_EQ(ask(second.port, post(good_form)), shapes_answer);
    stop_service(second);
}

const std::string usage = "Usage: sample-update-service [--port N] PRODUCTS-FILE\n"
                          "Answers version-update queries on 127.0.0.1 (port N, or a free one).\n";

TEST(SampleUpdateService, HelpGoesToStandardOutput)
{
    const ChildResult result = run_child({service, "--help"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.output, usage);
    EXPECT_EQ(result.error, "");
}

TEST(SampleUpdateService, AUsageErrorEndsItWithStatus2)
{
    const std::string bad_port = "--port takes a number from 0 to 65535";
    const struct {
        std::vector<std::string> arguments;
        std::string message;
    } rows[] = {
        {{}, "no product list is given"},
        {{"--port", "0"}, "no product list is given"},
        {{products, products}, "more than one product list is given"},
        {{"-x", products}, "unknown option"},
        {{"--ports", "1", products}, "unknown option"},
        {{products, "--help"}, "unknown option"},
        {{products, "--port"}, bad_port},
        {{"--port", "", products}, bad_port},
        {{"--port", "x", products}, bad_port},
        {{"--port", "80x", products}, bad_port},
        {{"--port", "-1", products}, bad_port},
        {{"--port", "65536", products}, bad_port},
        {{"--port", "99999999999999999999", products}, bad_port},
    };
    for (const auto &[arguments, message] : rows) {
        std::vector<std::string> command = {service};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const ChildResult result = run_child(command);
        EXPECT_EQ(result.exit_status, 2) << message;
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error, "sample-update-service: " + message + "\n" + usage);
    }
}

TEST(SampleUpdateService, AStandardOutputErrorEndsItWithStatus1)
{
    for (const ChildStream stream : {ChildStream::FullDisk, ChildStream::BrokenPipe}) {
        ChildOptions options;
        options.output = stream;
        const ChildResult result = run_child({service, products}, options);
        EXPECT_EQ(result.exit_status, 1);
        EXPECT_EQ(result.error, "");
    }
}

TEST(SampleUpdateService, ABadListLineIsReportedWithFileAndNumber)
{
    const std::string six = ":1: expected six fields separated by '|'\n";
    const std::string version =
        ":1: the version is not a number with at most three decimal places\n";
    const std::string control = ":1: a control character in the line\n";
    const std::string again = ":2: duplicate product and product line\n";
    const struct {
        std::string list;
        std::string message;
    } rows[] = {
        {"p|l|1|u|b", six},
        {"p|l|1|u|b|m|x", six},
        {"text", six},
        {" # not a comment", six},
        {"|l|1|u|b|m", ":1: no product name\n"},
        {"  |l|1|u|b|m", ":1: no product name\n"},
        {"p|l||u|b|m", version},
        {"p|l|one|u|b|m", version},
        {"p|l|1.|u|b|m", version},
        {"p|l|.1|u|b|m", version},
        {"p|l|1.2.3|u|b|m", version},
        {"p|l|-1|u|b|m", version},
        {"p|l|1.2345|u|b|m", version},
        {"p|l|1|u|b| ", ":1: no message\n"},
        {"p|l|1|u\x1b|b|m", control},
        {"p\tq|l|1|u|b|m", control},
        {"p|l|1|u|b|m\x7f", control},
        {"p|l|1|u|b|\0m"s, control},
        {"# note\n\n  \np|l|1|u|b|m\r\np|l|x|u|b|m\n", ":5" + version.substr(2)},
        {"p|l|1|u|b|m\np| l |2|u|b|m\n", again},
        {"", ": holds no product\n"},
        {"# nothing\n", ": holds no product\n"},
    };
    for (const auto &[list, message] : rows) {
        const ListFile file(list);
        const ChildResult result = run_child({service, file.name});
        EXPECT_EQ(result.exit_status, 2) << list;
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error, file.name + message) << list;
    }
}

TEST(SampleUpdateService, AnUnreadableListIsReported)
{
    const std::string missing = testing::TempDir() + "no-such-list";
    const ChildResult result = run_child({service, missing});
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_EQ(result.error,
              "Can't open the product list " + missing + ": No such file or directory\n");
    const ChildResult folder = run_child({service, testing::TempDir()});
    EXPECT_EQ(folder.exit_status, 2);
    EXPECT_EQ(folder.error, testing::TempDir() + ": can't be read\n");
}

TEST(SampleUpdateService, AcceptsEverySpellingOfAListLine)
{
    const ListFile list("# a comment\r\n\r\n"
                        "first|x|1.250|http://h/?a=b:c|B|one\\n\\ntwo\r\n"
                        "   second  |  | 007 |  |  b b  |  m\\n  \n"
                        "\xC3\xA4|y|2.5000|u||\xC3\xB6");
    Service started = start_service({}, list.name.c_str());
    const auto ask_for = [&](const char *product, const char *line, const char *version) {
        return ask(started.port, post(form(product, line, version)));
    };
    EXPECT_EQ(ask_for("first", "x", "1"),
              answer("200 OK", "Version: 1.250\nURL: http://h/?a=b:c\nButton: B\n"
                               "Message: one\n\ntwo\n"))
        << "without the carriage return";
    EXPECT_EQ(ask_for("second", "any", "6"),
              answer("200 OK", "Version: 007\nButton: b b\nMessage: m\n\n"))
        << "without the spaces around fields";
    EXPECT_EQ(ask_for("%c3%a4", "y", "2"),
              answer("200 OK", "Version: 2.5000\nURL: u\nMessage: \xC3\xB6\n"))
        << "bytes above 127, and no line feed at the end";
    stop_service(started);
}

} // namespace
} // namespace quintral::tests
