// Every outcome of the utility with -json is an object that docs/outcome.schema.json accepts.
//
// QUINTRAL_SCHEMA is the path of the schema, QUINTRAL_VALIDATOR that of validate-json.py.
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "tests/harness/fake-desktop.h"
#include "tests/harness/temp-folder.h"
#include "tests/tool/hanging-server.h"
#include "tests/tool/interrupts.h"
#include "tests/tool/json-line.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {
namespace {

constexpr int not_installed = 77;

// Runs the validator on the objects, one a line.
ChildResult validate(const std::string &objects)
{
    const TempFolder folder;
    const std::string file = folder.path("objects");
    make_file(file, objects);
    const std::string command =
        "python3 '" QUINTRAL_VALIDATOR "' '" QUINTRAL_SCHEMA "' < '" + file + "'";
    return run_child({"sh", "-c", command});
}

// Collects objects; at the end of a test, the schema must accept all of them.
class OutcomeSchema : public testing::Test {
protected:
    void SetUp() override
    {
        if (validate("").exit_status == not_installed)
            GTEST_SKIP() << "the package python3-jsonschema is not installed";
    }

    void TearDown() override
    {
        if (objects_.empty())
            return;
        const ChildResult result = validate(objects_);
        EXPECT_EQ(result.exit_status, 0) << result.output << result.error;
    }

    void add(const std::string &object)
    {
        EXPECT_EQ(object.find('\n'), object.size() - 1) << object;
        objects_ += object;
    }

    // Adds the object of a run, which has these values.
    void add(const ChildResult &result, const std::string &status, const std::string &reason);

private:
    std::string objects_;
};

std::string text_after(const std::string &object, const std::string &key)
{
    const std::size_t found = object.find("\"" + key + "\":");
    return found == std::string::npos ? "" : object.substr(found + key.size() + 3);
}

void OutcomeSchema::add(const ChildResult &result, const std::string &status,
                        const std::string &reason)
{
    EXPECT_EQ(text_after(result.output, "status").find("\"" + status + "\","), 0U) << result.output;
    const std::string word = reason.empty() ? "null" : "\"" + reason + "\"";
    EXPECT_EQ(text_after(result.output, "reason").find(word + ","), 0U) << result.output;
    const int stated = std::atoi(text_after(result.output, "exit_status").c_str());
    EXPECT_EQ(stated, result.signal != 0 ? 128 + result.signal : result.exit_status)
        << result.output;
    add(result.output);
}

ChildResult answered(const std::string &version, const Strings &arguments,
                     const ChildOptions &options = {})
{
    const std::string line = version.empty() ? "" : "Version: " + version + "\n";
    return ask(sending(reply_of(line + "URL: file:///x\nMessage: Hello\n")),
               joined({"-json", "-product-version", "5"}, arguments), options)
        .result;
}

TEST_F(OutcomeSchema, AcceptsEveryAnswer)
{
    for (const char *version : {"6", "5", "", "x"}) {
        add(answered(version, {}), "answered", "");
        add(answered(version, {"-exit-code"}), "answered", "");
    }
    EXPECT_EQ(answered("6", {"-exit-code"}).exit_status, 10);
    EXPECT_EQ(answered("5", {"-exit-code"}).exit_status, 0);
    EXPECT_EQ(answered("", {"-exit-code"}).exit_status, 11);
    add(ask(sending(reply_of("Version: 6\nURL: http://a/\nButton: b\nMessage: ")), {"-json"})
            .result,
        "answered", "");
}

TEST_F(OutcomeSchema, AcceptsAnAnswerWithAnErrorOfThisMachine)
{
    const FakeDesktop desktop;
    ChildOptions options;
    options.environment = desktop.environment();
    add(answered("6", {"-open"}, options), "answered", "open");
    EXPECT_EQ(desktop.record(), "");
}

TEST_F(OutcomeSchema, AcceptsEveryFailedExchange)
{
    const std::string refused = "127.0.0.1:" + std::to_string(refused_port());
    const auto failing = [](const PeerScript &script, const Strings &arguments = {}) {
        return ask(script, joined({"-json"}, arguments)).result;
    };
    add(run_tool({"-json", "-service", "a..b"}), "failed", "lookup");
    add(run_tool({"-json", "-service", refused}), "failed", "connect");
    add(run_tool({"-json", "-service", "a:80", "-proxy", refused}), "failed", "connect");
    add(failing({{PeerAct::ReadRequest}, {PeerAct::Reset}}), "failed", "receive");
    add(failing({{PeerAct::ReadRequest}, {PeerAct::SendForever, repeated(1000, "a: b\r\n")}}),
        "failed", "too-long");
    add(failing({{PeerAct::ReadRequest},
                 {PeerAct::Send, reply_of("")},
                 {PeerAct::SendForever, std::string(65536, 'm')}}),
        "failed", "too-long");
    add(failing(sending("")), "failed", "not-http");
    add(failing(sending("garbage\n\n")), "failed", "not-http");
    for (const char *status : {"199", "300", "404", "-1", "0", "99999999999"})
        add(failing(sending(std::string("HTTP/1.0 ") + status + " No\r\n\r\n")).output);
    add(failing(sending("HTTP/1.0 404 No\r\n\r\n")), "failed", "http-status");
    add(failing(sending(reply_of("Hello"))), "failed", "not-an-update");
    add(run_tool({"-json", "-record", "/dev/null/x"}), "failed", "file");
    add(run_tool({"-json", "-parse", "/dev/null/x"}), "failed", "file");
    add(run_tool({"-json", "-password-file", "/dev/null/x"}), "failed", "file");
}

TEST_F(OutcomeSchema, AcceptsTheTimeLimits)
{
    const HangingServer server;
    add(ask(holding(), {"-json", "-max-time", "1"}).result, "timeout", "timeout");
    add(ask(holding(reply_of("")), {"-json", "-max-time", "1"}).result, "timeout", "timeout");
    add(run_tool({"-json", "-service", server.address(), "-max-time", "1"}), "timeout", "timeout");
    add(ask(holding(), {"-json"}).result, "timeout", "timeout");
}

TEST_F(OutcomeSchema, AcceptsEveryInterrupt)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        add(interrupt_exchange(holding(), number, {"-json"}).result, "cancelled", "cancelled");
        add(interrupt_exchange(holding(reply_of("")), number, {"-json"}, {}, 200).result,
            "cancelled", "cancelled");
    }
}

TEST_F(OutcomeSchema, AcceptsAnInternalFault)
{
    add(unanswered_json("failed", 1, "Out of memory", {"internal", 0, "a", "b:1"}));
}

// Without this, a schema that accepts everything would pass.
TEST_F(OutcomeSchema, RefusesEverythingElse)
{
    const std::string answer = answered("6", {}).output;
    const std::string failure = unanswered_json("failed", 1, "a", {"lookup", 0, "a"});
    const auto changed = [](std::string object, const std::string &old_part,
                            const std::string &new_part) {
        const std::size_t found = object.find(old_part);
        EXPECT_NE(found, std::string::npos) << old_part;
        return object.replace(found, old_part.size(), new_part);
    };
    add(answer);
    add(failure);
    const std::string bad_objects[] = {
        "null\n",
        "[]\n",
        "{}\n",
        changed(answer, "\"button\":null,", ""),
        changed(answer, "\"button\":null,", "\"button\":null,\"other\":null,"),
        changed(answer, "\"button\":null,", "\"button\":1,"),
        changed(answer, "\"newer\":true", "\"newer\":\"true\""),
        changed(answer, "\"exit_status\":0", "\"exit_status\":2"),
        changed(answer, "\"exit_status\":0", "\"exit_status\":1"),
        changed(answer, "\"message\":\"Hello\\n\"", "\"message\":null"),
        changed(answer, "\"http_status\":200", "\"http_status\":404"),
        changed(answer, "\"http_status\":200", "\"http_status\":null"),
        changed(answer, "\"error\":null", "\"error\":\"a\""),
        changed(answer, "\"reason\":null", "\"reason\":\"lookup\""),
        changed(answer, "\"proxy\":null", "\"proxy\":\"\""),
        changed(answer, "\"answered\"", "\"failed\""),
        unanswered_json("failed", 0, "a", {"lookup", 0, "a"}),
        unanswered_json("failed", 1, "", {"lookup", 0, "a"}),
        unanswered_json("failed", 1, "a", {"other", 0, "a"}),
        unanswered_json("failed", 1, "a", {"timeout", 0, "a"}),
        unanswered_json("failed", 1, "a", {"lookup", 0, ""}),
        unanswered_json("timeout", 1, "a", {"timeout", 0, "a"}),
        unanswered_json("timeout", 3, "a", {"cancelled", 0, "a"}),
        unanswered_json("cancelled", 1, "a", {"cancelled", 0, "a"}),
        unanswered_json("cancelled", 130, "a", {"lookup", 0, "a"}),
        changed(failure, "\"version\":null", "\"version\":\"5\""),
        changed(failure, "\"reason\":\"lookup\"", "\"reason\":null"),
    };
    std::string objects;
    for (const std::string &object : bad_objects)
        objects += object;
    const ChildResult result = validate(objects);
    EXPECT_EQ(result.exit_status, 1) << result.error;
    const auto refused = std::count(result.output.begin(), result.output.end(), '\n');
    EXPECT_EQ(refused, std::end(bad_objects) - std::begin(bad_objects)) << result.output;
}

} // namespace
} // namespace quintral::tests::tool
