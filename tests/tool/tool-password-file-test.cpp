// -password-file: the password from a file, from standard input and from a terminal.
#include <csignal>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include "tests/harness/temp-folder.h"
#include "tests/tool/query.h"
#include "tests/tool/tool-run.h"
#include "web/base64.h"

namespace quintral::tests::tool {
namespace {

const std::string hello = reply_of("Version: 9\nMessage: Hello\n");
const char answer[] = "Version: 9\nHello\n";

std::string base64_of(const std::string &text)
{
    std::string encoded(text.size() / 3 * 4 + 5, '\0');
    base64_encode(text.data(), static_cast<int>(text.size()), encoded.data());
    return encoded.c_str();
}

Strings with_proxy(const LoopbackPeer &proxy, const Strings &arguments)
{
    return joined({"-service", "a.example", "-proxy", proxy.address(), "-proxy-user", "me"},
                  arguments);
}

// What the proxy receives if the password is sent.
std::string request_with(const std::string &password)
{
    return request_of({"a.example", default_values(), base64_of("me:" + password)});
}

const struct {
    std::string content;
    std::string password;
} rows[] = {
    {"secret", "secret"},
    {"secret\n", "secret"},
    {"secret\r\n", "secret"},
    {"secret\r", "secret"},
    {"secret\r\r\n", "secret\r"},
    {" se cret \nsecond\n", " se cret "},
    {"\xC3\xA9\n", "\xC3\xA9"},
    {std::string("sec\0ret\n", 8), "sec"}, // a password is a string
    {std::string(255, 'p') + "\n", std::string(255, 'p')},
    {std::string(300, 'p') + "\n", std::string(255, 'p')},
    {std::string(10000, 'p') + "\n", std::string(255, 'p')},
};

TEST(ToolPasswordFile, GivesItsFirstLineToTheProxy)
{
    for (const auto &row : rows) {
        const TempFolder folder;
        make_file(folder.path("p"), row.content);
        const LoopbackPeer proxy({sending(hello)});
        expect_ended(run_tool(with_proxy(proxy, {"-password-file", folder.path("p")})), 0, answer,
                     "", row.content);
        EXPECT_EQ(proxy.received(0), request_with(row.password));
    }
}

TEST(ToolPasswordFile, OfADashIsStandardInput)
{
    for (const auto &row : rows) {
        const LoopbackPeer proxy({sending(hello)});
        ChildOptions options;
        options.input = ChildInput::Text;
        options.input_text = row.content;
        expect_ended(run_tool(with_proxy(proxy, {"-password-file", "-"}), options), 0, answer, "",
                     row.content);
        EXPECT_EQ(proxy.received(0), request_with(row.password));
    }
}

TEST(ToolPasswordFile, ThatIsEmptyGivesNoPassword)
{
    for (const char *content : {"", "\n", "\r\n", "\nsecret\n"}) {
        const TempFolder folder;
        make_file(folder.path("p"), content);
        const LoopbackPeer proxy({sending(hello)});
        expect_ended(run_tool(with_proxy(proxy, {"-password-file", folder.path("p")})), 0, answer,
                     "Note: -proxy-user is ignored: there is no password\n");
        EXPECT_EQ(proxy.received(0), request_of({"a.example", default_values()}));
    }
}

TEST(ToolPasswordFile, ThatCannotBeReadEndsTheRunBeforeItConnects)
{
    const TempFolder folder;
    const struct {
        std::string path;
        std::string error;
    } files[] = {
        {folder.path("none"),
         "Can't read '" + folder.path("none") + "', code 2: No such file or directory"},
        {folder.path(), "Can't read '" + folder.path() + "', code 21: Is a directory"},
        {"", "Can't read '', code 2: No such file or directory"},
        {"/dev/zero", "Can't read '/dev/zero', code 90: Message too long"},
    };
    for (const auto &file : files) {
        const LoopbackPeer proxy({sending(hello)});
        const Strings all = with_proxy(proxy, {"-password-file", file.path});
        expect_ended(run_tool(all), 1, "", error_line(file.error));
        expect_ended(run_tool(joined(all, {"-json"})), 1,
                     "{\"status\":\"failed\",\"exit_status\":1,\"newer\":null,\"version\":null,"
                     "\"url\":null,\"button\":null,\"message\":null,\"error\":\"" +
                         file.error +
                         "\",\"reason\":\"file\",\"http_status\":null,\"service\":\"a.example\","
                         "\"proxy\":\"" +
                         proxy.address() + "\"}\n",
                     error_line(file.error));
        EXPECT_EQ(proxy.connection_count(), 0);
    }
}

TEST(ToolPasswordFile, IsAUsageErrorTogetherWithAPassword)
{
    const std::string message = "Error: -proxy-pass and -password-file exclude each other\a\n";
    for (const Strings &arguments : {Strings{"-proxy-pass", "secret", "-password-file", "-"},
                                     Strings{"-password-file", "none", "-proxy-pass=secret"}}) {
        const ChildResult result = run_tool(joined({"-proxy", "127.0.0.1:1"}, arguments));
        EXPECT_EQ(result.exit_status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.error.substr(0, message.size()), message);
        EXPECT_EQ(result.error.find("secret"), std::string::npos);
    }
}

TEST(ToolPasswordFile, WithoutAProxyIsIgnored)
{
    const TempFolder folder;
    make_file(folder.path("p"), "secret\n");
    const Exchange exchange = ask(sending(hello), {"-password-file", folder.path("p")});
    expect_ended(exchange.result, 0, answer, "Note: -password-file is ignored: it needs -proxy\n");
    EXPECT_EQ(exchange.request, request_of({exchange.address, default_values()}));
}

TEST(ToolPasswordFile, IsNotReadByParseWhichSendsNothing)
{
    const TempFolder folder;
    make_file(folder.path("reply"), hello);
    expect_ended(run_tool({"-parse", folder.path("reply"), "-proxy", "a:1", "-password-file",
                           folder.path("none")}),
                 0, answer, "");
}

TEST(ToolPasswordFile, IsNotShownByTheProcessList)
{
    const TempFolder folder;
    make_file(folder.path("p"), "secret\n");
    const LoopbackPeer proxy({holding()});
    Child child = start_tool(with_proxy(proxy, {"-password-file", folder.path("p")}));
    ASSERT_TRUE(proxy.wait_for_text(0, request_end(), patience));
    const std::string process = "/proc/" + std::to_string(child.process_id);
    const std::string line = file_content(process + "/cmdline");
    EXPECT_NE(line.find("-password-file"), std::string::npos);
    EXPECT_EQ(line.find("secret"), std::string::npos);
    EXPECT_EQ(file_content(process + "/environ").find("secret"), std::string::npos);
    child_signal(child, SIGTERM);
    child_wait(child);
}

// On a terminal

// The utility with a terminal as its standard input, while it asks for the password. The test keeps
// the terminal open, so that its settings can be looked at after the end of the utility.
struct Asking {
    LoopbackPeer proxy{{sending(hello)}};
    Child child;
    int terminal = -1;

    explicit Asking(const ChildOptions &given = {})
    {
        ChildOptions options = given;
        options.input = ChildInput::Terminal;
        child = start_tool(with_proxy(proxy, {"-password-file", "-"}), options);
        terminal = open(ptsname(child.input_descriptor), O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_TRUE(child_wait_for_text(child, "Password: ", patience));
    }

    ~Asking()
    {
        close(terminal);
    }

    Asking(const Asking &) = delete;
    Asking &operator=(const Asking &) = delete;

    termios settings() const
    {
        termios now = {};
        EXPECT_EQ(tcgetattr(terminal, &now), 0);
        return now;
    }

    bool echoes() const
    {
        return (settings().c_lflag & static_cast<tcflag_t>(ECHO)) != 0;
    }

    void type(const std::string &text) const
    {
        EXPECT_EQ(write(child.input_descriptor, text.data(), text.size()),
                  static_cast<ssize_t>(text.size()));
    }

    // Everything that the terminal has shown.
    std::string shown() const
    {
        std::string text;
        pollfd polled = {child.input_descriptor, POLLIN, 0};
        char byte = '\0';
        while (poll(&polled, 1, 0) == 1 && read(child.input_descriptor, &byte, 1) == 1)
            text += byte;
        return text;
    }

    // Waits until the utility has ended, with its terminal still open.
    void wait_for_end() const
    {
        for (int i = 0; i < patience && !echoes(); ++i)
            poll(nullptr, 0, 1);
    }
};

TEST(ToolPasswordTerminal, DoesNotEchoAndIsRestored)
{
    Asking asking;
    EXPECT_FALSE(asking.echoes());
    termios expected = asking.settings();
    expected.c_lflag |= static_cast<tcflag_t>(ECHO);
    asking.type("secret\n");
    asking.wait_for_end();
    const termios after = asking.settings();
    EXPECT_EQ(after.c_lflag, expected.c_lflag);
    EXPECT_EQ(after.c_iflag, expected.c_iflag);
    EXPECT_EQ(after.c_oflag, expected.c_oflag);
    EXPECT_EQ(after.c_cflag, expected.c_cflag);
    EXPECT_EQ(asking.proxy.received(0), request_with("secret"));
    EXPECT_EQ(asking.shown(), "");
    expect_ended(child_wait(asking.child), 0, answer, "Password: \n");
}

TEST(ToolPasswordTerminal, NeedNotBeStandardInput)
{
    const LoopbackPeer proxy({sending(hello)});
    ChildOptions options;
    options.input = ChildInput::Terminal;
    options.prepare = [] { dup2(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO); };
    Child child = start_tool(with_proxy(proxy, {"-password-file", "/dev/tty"}), options);
    const int terminal = open(ptsname(child.input_descriptor), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(child_wait_for_text(child, "Password: ", patience));
    termios settings = {};
    EXPECT_EQ(tcgetattr(terminal, &settings), 0);
    EXPECT_EQ(settings.c_lflag & static_cast<tcflag_t>(ECHO), 0U);
    EXPECT_EQ(write(child.input_descriptor, "secret\n", 7), 7);
    EXPECT_EQ(proxy.received(0), request_with("secret"));
    EXPECT_EQ(tcgetattr(terminal, &settings), 0);
    EXPECT_NE(settings.c_lflag & static_cast<tcflag_t>(ECHO), 0U);
    close(terminal);
    expect_ended(child_wait(child), 0, answer, "Password: \n");
}

TEST(ToolPasswordTerminal, CanBeEdited)
{
    Asking asking;
    asking.type("secrex\x7Ft\n");
    EXPECT_EQ(asking.proxy.received(0), request_with("secret"));
    expect_ended(child_wait(asking.child), 0, answer, "Password: \n");
}

TEST(ToolPasswordTerminal, GivesNoPasswordAtItsEnd)
{
    Asking asking;
    asking.type("\x04");
    EXPECT_EQ(asking.proxy.received(0), request_of({"a.example", default_values()}));
    expect_ended(child_wait(asking.child), 0, answer,
                 "Password: \nNote: -proxy-user is ignored: there is no password\n");
}

TEST(ToolPasswordTerminal, IsRestoredAfterCtrlC)
{
    Asking asking;
    asking.type("sec\x03");
    asking.wait_for_end();
    EXPECT_TRUE(asking.echoes());
    EXPECT_EQ(asking.shown().find("sec"), std::string::npos);
    const ChildResult result = child_wait(asking.child);
    EXPECT_EQ(result.signal, SIGINT);
    EXPECT_EQ(result.error, "Password: ");
    EXPECT_EQ(asking.proxy.connection_count(), 0);
}

TEST(ToolPasswordTerminal, IsRestoredAfterASignal)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        Asking asking;
        EXPECT_FALSE(asking.echoes());
        child_signal(asking.child, number);
        asking.wait_for_end();
        EXPECT_TRUE(asking.echoes()) << number;
        EXPECT_EQ(child_wait(asking.child).signal, number);
        EXPECT_EQ(asking.proxy.connection_count(), 0);
    }
}

TEST(ToolPasswordTerminal, KeepsIgnoringAnIgnoredSignal)
{
    ChildOptions options;
    options.ignored_signals = {SIGHUP};
    Asking asking(options);
    child_signal(asking.child, SIGHUP);
    asking.type("secret\n");
    EXPECT_EQ(asking.proxy.received(0), request_with("secret"));
    expect_ended(child_wait(asking.child), 0, answer, "Password: \n");
}

// Signals after the prompt are those of any run again.
TEST(ToolPasswordTerminal, LeavesTheSignalsOfTheRunAlone)
{
    const LoopbackPeer proxy({holding()});
    ChildOptions options;
    options.input = ChildInput::Terminal;
    Child child = start_tool(with_proxy(proxy, {"-password-file", "-"}), options);
    ASSERT_TRUE(child_wait_for_text(child, "Password: ", patience));
    EXPECT_EQ(write(child.input_descriptor, "secret\n", 7), 7);
    ASSERT_TRUE(proxy.wait_for_text(0, request_end(), patience));
    EXPECT_EQ(write(child.input_descriptor, "\x03", 1), 1);
    expect_ended_by(child_wait(child), SIGINT, "", "Password: \n" + error_line(cancelled_text));
}

} // namespace
} // namespace quintral::tests::tool
