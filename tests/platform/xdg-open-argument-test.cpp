// Opening in the desktop on Linux: where xdg-open is found and what it is given. A recorder takes
// its place.
#include "platform/platform.h"
#include "tests/harness/fake-desktop.h"
#include "tests/harness/temp-folder.h"
#include "tests/platform/desktop-host.h"

#include <cstdint>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

// The search in PATH

void make_program(const std::string &folder, const std::string &content, mode_t permissions)
{
    make_directory(folder);
    make_file(folder + "/xdg-open", content);
    EXPECT_EQ(chmod((folder + "/xdg-open").c_str(), permissions), 0);
}

// The working folder is bin, which contains the fake xdg-open.
std::int32_t status_with_path(const FakeDesktop &desktop, const std::string &path)
{
    return status_in_host(desktop, url_opener("exit:7"), [&] {
        exit_unless(chdir(desktop.path("bin").c_str()) == 0, 77);
        setenv("PATH", path.c_str(), 1);
    });
}

TEST(XdgOpenSearch, FindsTheFirstProgramInThePath)
{
    const FakeDesktop desktop;
    make_program(desktop.path("plain"), "exit 1\n", 0644);
    make_directory(desktop.path("folder"));
    make_directory(desktop.path("folder/xdg-open"));
    make_program(desktop.path("other"), "#!/bin/sh\nexit 11\n", 0755);
    const std::string bin = desktop.path("bin");
    const struct {
        std::string path;
        int status;
    } rows[] = {
        {bin, 7},
        {bin + "/", 7},
        {"/missing:" + bin, 7},
        {":" + bin, 7},
        {bin + ":", 7},
        {".:" + bin, 7},
        {bin + ":" + desktop.path("other"), 7},
        {desktop.path("other") + ":" + bin, 11},
        {desktop.path("plain") + ":" + bin, 7},
        {desktop.path("folder") + ":" + bin, 7},
        {"/" + std::string(5000, 'n') + ":" + bin, 7},
        {"/" + std::string(4094, 'n') + ":" + bin, 7},
        {"/" + std::string(4085, 'n') + ":" + bin, 7},
    };
    for (const auto &row : rows)
        EXPECT_EQ(status_with_path(desktop, row.path), row.status) << row.path.substr(0, 200);
}

TEST(XdgOpenSearch, NeverLooksInTheCurrentFolder)
{
    const FakeDesktop desktop;
    for (const char *path :
         {"", ":", "::", ".", "./", "../bin", "missing:.", ":/missing", "/missing:"})
        EXPECT_EQ(status_with_path(desktop, path), -1) << path;
    EXPECT_EQ(desktop.record(), "");
}

TEST(XdgOpenSearch, ReturnsMinus1IfThereIsNoneOrItCannotBeStarted)
{
    const FakeDesktop desktop;
    make_directory(desktop.path("empty"));
    make_program(desktop.path("no-interpreter"), "#!/missing/interpreter\n", 0755);
    make_program(desktop.path("no-shebang"), "exit 0\n", 0755);
    for (const char *name : {"missing", "empty", "no-interpreter", "no-shebang"})
        EXPECT_EQ(status_with_path(desktop, desktop.path(name)), -1) << name;
}

// The argument

TEST(XdgOpenArgument, IsTheUrlUnchanged)
{
    for (const char *url :
         {"http://www.quintral.example/a?b=c&d=%20;e#f", "x:-h", "x:", "http://a/$(exit)*'!~[]",
          "mailto:a@b.example,c@d.example?subject=100%25"}) {
        const FakeDesktop desktop;
        EXPECT_EQ(status_in_host(desktop, url_opener(url)), 0);
        EXPECT_EQ(record_argument(desktop.record()), url);
    }
}

TEST(XdgOpenArgument, IsTheUrlUpToTheCount)
{
    const FakeDesktop desktop;
    EXPECT_EQ(status_in_host(desktop, [] { return platform_open_url("http://a/bcd", 10); }), 0);
    EXPECT_EQ(record_argument(desktop.record()), "http://a/b");
}

const char *const difficult_names[] = {
    "file",      "with  two spaces", "#1 100%25 ?a=b&c", "-option", "--help", "$(exit 3) `exit 3`",
    "'quoted\"", "http:a",           "\xC3\xBC \xFF",    "*",
};

TEST(XdgOpenArgument, IsTheAbsolutePathUnchanged)
{
    for (const char *name : difficult_names) {
        const FakeDesktop desktop;
        const std::string path = desktop.path(name);
        make_file(path);
        EXPECT_EQ(status_in_host(desktop, [&] { return platform_open_path(path.c_str()); }), 0);
        EXPECT_EQ(record_argument(desktop.record()), path);
    }
}

TEST(XdgOpenArgument, IsARelativePathMadeAbsolute)
{
    for (const char *name : difficult_names) {
        const FakeDesktop desktop;
        make_file(desktop.path(name));
        EXPECT_EQ(status_in_host(
                      desktop, [name] { return platform_open_path(name); },
                      [&] { exit_unless(chdir(desktop.path("").c_str()) == 0, 78); }),
                  0);
        EXPECT_EQ(record_argument(desktop.record()), desktop.path(name));
    }
}

// The shell that runs xdg-open would turn these into other paths or into a URL.
TEST(XdgOpenArgument, IsNeverAPathThatXdgOpenWouldMisread)
{
    for (const char *name :
         {"back\\slash", "f\\c.txt", "a\\nhttp:b", "line\nfeed", "end\n", "\\"}) {
        const FakeDesktop desktop;
        const std::string path = desktop.path(name);
        make_file(path);
        EXPECT_EQ(status_in_host(desktop, [&] { return platform_open_path(path.c_str()); }), -1)
            << name;
        EXPECT_EQ(status_in_host(desktop, [&] { return platform_open_document(path.c_str()); }), -1)
            << name;
        EXPECT_EQ(desktop.record(), "") << name;
    }
}

TEST(XdgOpenArgument, IsThePathOfAReference)
{
    const FakeDesktop desktop;
    PlatformFileRef ref;
    ASSERT_EQ(platform_make_ref(desktop.path("bin").c_str(), &ref), 0);
    EXPECT_EQ(status_in_host(desktop, [&ref] { return platform_open_ref(ref); }), 0);
    EXPECT_EQ(record_argument(desktop.record()), desktop.path("bin"));
}

PlatformFileRef ref_of(const std::string &path)
{
    PlatformFileRef ref = {};
    path.copy(ref.path, sizeof ref.path);
    return ref;
}

TEST(XdgOpenArgument, IsNeverAMissingPathOrAnInvalidUrl)
{
    const FakeDesktop desktop;
    const std::string missing = desktop.path("missing");
    const struct {
        const char *what;
        Open open;
        std::int32_t status;
    } rows[] = {
        {"missing path", [&] { return platform_open_path(missing.c_str()); }, -43},
        {"empty path", [] { return platform_open_path(""); }, -43},
        {"relative path", [] { return platform_open_path("missing"); }, -43},
        {"long path", [] { return platform_open_path(std::string(5000, '/').c_str()); }, -1},
        {"empty reference", [] { return platform_open_ref(PlatformFileRef()); }, -1},
        {"not a path", [] { return platform_open_ref(ref_of("--help")); }, -1},
        {"no terminator", [] { return platform_open_ref(ref_of(std::string(4096, '/'))); }, -1},
        {"not a URL", [] { return open_url("--help"); }, PlatformNoAddress},
        {"no bytes", [] { return platform_open_url(nullptr, 0); }, PlatformNoAddress},
    };
    for (const auto &row : rows)
        EXPECT_EQ(status_in_host(desktop, row.open), row.status) << row.what;
    EXPECT_EQ(desktop.record(), "");
}

TEST(XdgOpenDocument, IsAPathIfItBeginsWithASlashOtherwiseAUrl)
{
    const FakeDesktop folder;
    make_file(folder.path("file"));
    make_file(folder.path("exit:0"));
    const std::string file = folder.path("file");
    const struct {
        std::string text;
        int result;
        std::string argument; // empty if xdg-open is not started
    } rows[] = {
        {file, 0, file},
        {folder.path("exit:0"), 0, folder.path("exit:0")},
        {"exit:0", 0, "exit:0"},
        {"exit:1", -1, "exit:1"},
        {"exit:255", -1, "exit:255"},
        {"signal:9", -1, "signal:9"},
        {"http://www.quintral.example/", 0, "http://www.quintral.example/"},
        {folder.path("missing"), -1, ""},
        {"file", -1, ""},
        {"./file", -1, ""},
        {"", -1, ""},
        {"http://with space/", -1, ""},
    };
    for (const auto &row : rows) {
        const FakeDesktop desktop;
        const Open open = [&row] { return platform_open_document(row.text.c_str()); };
        EXPECT_EQ(status_in_host(
                      desktop, [&open] { return status_without_delay(open); },
                      [&] { exit_unless(chdir(folder.path("").c_str()) == 0, 79); }),
                  row.result)
            << row.text;
        const std::string record = desktop.record();
        EXPECT_EQ(record.empty() ? "" : record_argument(record), row.argument);
    }
}

// The descriptors of the call then have the numbers of the streams.
TEST(XdgOpenDocument, MayBeOpenedByAHostWithoutStandardStreams)
{
    const FakeDesktop folder;
    make_file(folder.path("file"));
    for (const std::string &text : {folder.path("file"), std::string("exit:0")}) {
        const FakeDesktop desktop;
        const Open open = [&text] { return platform_open_document(text.c_str()); };
        EXPECT_EQ(status_in_host(desktop, open,
                                 [] {
                                     for (const int stream : {0, 1, 2})
                                         close(stream);
                                 }),
                  0);
        EXPECT_EQ(record_argument(wait_for_record(desktop.path("record"))), text);
    }
}

} // namespace
} // namespace quintral
