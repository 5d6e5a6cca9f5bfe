// Opening in the desktop on Linux with the real xdg-open; a recorder is the application that it
// finds.
#include "platform/platform.h"
#include "tests/harness/fake-desktop.h"
#include "tests/harness/temp-folder.h"
#include "tests/platform/desktop-host.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

// A generic desktop with all its settings in one folder. The recorder opens text files, folders and
// web addresses.
class RealDesktop {
public:
    RealDesktop() : root_(std::filesystem::canonical(folder_.path()).string())
    {
        for (const char *name : {"data", "data/applications", "config", "documents", "empty"})
            make_directory(path(name));
        make_link(QUINTRAL_RECORDER, path("recorder"));
        make_file(path("data/applications/recorder.desktop"),
                  "[Desktop Entry]\nType=Application\nName=Recorder\nExec=" + path("recorder") +
                      " %u\nMimeType=text/plain;inode/directory;x-scheme-handler/http;\n");
        make_file(path("config/mimeapps.list"), "[Default Applications]\n"
                                                "text/plain=recorder.desktop\n"
                                                "inode/directory=recorder.desktop\n"
                                                "x-scheme-handler/http=recorder.desktop\n");
    }

    std::string path(const std::string &name) const
    {
        return root_ + "/" + name;
    }

    std::string record() const
    {
        return wait_for_record(path("record"));
    }

    // A display is set, whether or not anything answers there. `more` takes precedence.
    Settings environment(const Settings &more = {}) const
    {
        Settings settings = {
            {"PATH", "/usr/local/bin:/usr/bin:/bin"},
            {"HOME", root_},
            {"XDG_CURRENT_DESKTOP", "X-Generic"},
            {"XDG_DATA_HOME", path("data")},
            {"XDG_CONFIG_HOME", path("config")},
            {"XDG_DATA_DIRS", path("empty")},
            {"XDG_CONFIG_DIRS", path("empty")},
            {"XDG_RUNTIME_DIR", path("empty")},
            {"XDG_UTILS_DEBUG_LEVEL", ""},
            {"XDG_MENU_PREFIX", ""},
            {"DISPLAY", ":99"},
            {"WAYLAND_DISPLAY", ""},
            {"BROWSER", ""},
            {"FAKE_RECORD", path("record")},
        };
        settings.insert(settings.end(), more.begin(), more.end());
        return settings;
    }

private:
    TempFolder folder_;
    std::string root_;
};

void expect_opened(const RealDesktop &desktop, const Settings &more, const Open &open,
                   const std::string &argument)
{
    const SharedFindings findings;
    call_in_host(desktop.environment(more), prepare_nothing, open, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_EQ(record_argument(desktop.record()), argument);
}

TEST(RealXdgOpen, IsInstalled)
{
    EXPECT_EQ(access("/usr/bin/xdg-open", X_OK), 0) << "the package xdg-utils";
    EXPECT_EQ(access("/usr/bin/file", X_OK), 0) << "the package file, which recognises file types";
}

TEST(RealXdgOpen, OpensAFileOfAnyName)
{
    for (const char *name : {"plain.txt", "with two  spaces.txt", "#1.txt", "100% #2.txt",
                             "a%20b%25.txt", "it's \"quoted\" & $(exit 3); `exit 3` *?.txt",
                             "http:a.txt", "\xC3\xBCml\xC3\xA4ut.txt", "-option"}) {
        const RealDesktop desktop;
        const std::string path = desktop.path("documents/" + std::string(name));
        make_file(path);
        expect_opened(
            desktop, {}, [&path] { return platform_open_path(path.c_str()); }, path);
    }
}

TEST(RealXdgOpen, OpensAFolder)
{
    for (const char *name : {"folder", "with space #1 100%"}) {
        const RealDesktop desktop;
        const std::string path = desktop.path("documents/" + std::string(name));
        make_directory(path);
        expect_opened(
            desktop, {}, [&path] { return platform_open_document(path.c_str()); }, path);
    }
}

TEST(RealXdgOpen, OpensAUrl)
{
    for (const char *url :
         {"http://www.quintral.example/", "http://a.example/b?c=d&e=%20f;g=$(exit)*#h"}) {
        const RealDesktop desktop;
        expect_opened(
            desktop, {}, [url] { return open_url(url); }, url);
    }
}

TEST(RealXdgOpen, UsesTheBrowserWithoutADisplay)
{
    for (const char *url : {"http://www.quintral.example/a?b=c%20d#e", "other:url"}) {
        const RealDesktop desktop;
        const Settings settings = {{"DISPLAY", ""}, {"BROWSER", desktop.path("recorder")}};
        expect_opened(
            desktop, settings, [url] { return open_url(url); }, url);
    }
    const RealDesktop desktop;
    const std::string path = desktop.path("documents/file #1 100%.txt");
    make_file(path);
    // For files, mailcap takes precedence over the browser.
    make_directory(desktop.path("bin"));
    make_link("/bin/false", desktop.path("bin/run-mailcap"));
    const Settings settings = {{"DISPLAY", ""},
                               {"BROWSER", desktop.path("recorder")},
                               {"PATH", desktop.path("bin") + ":/usr/local/bin:/usr/bin:/bin"}};
    expect_opened(
        desktop, settings, [&path] { return platform_open_path(path.c_str()); }, path);
}

TEST(RealXdgOpen, IsFoundInTheDefaultFoldersWithoutPath)
{
    const RealDesktop desktop;
    const Settings settings = {{"DISPLAY", ""}, {"BROWSER", desktop.path("recorder")}};
    const SharedFindings findings;
    call_in_host(
        desktop.environment(settings), [] { unsetenv("PATH"); },
        [] { return open_url("http://a.example/"); }, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_EQ(record_argument(desktop.record()), "http://a.example/");
}

std::int32_t real_status(const RealDesktop &desktop, const Settings &more, const std::string &url)
{
    const SharedFindings findings;
    call_in_host(desktop.environment(more), prepare_nothing, url_opener(url), &*findings);
    return findings->status;
}

// The exit status of the installed xdg-open itself.
std::int32_t status_of_program(const RealDesktop &desktop, const Settings &more,
                               const std::string &url)
{
    const SharedFindings findings;
    call_in_host(
        desktop.environment(more), prepare_nothing,
        [&url] { return WEXITSTATUS(std::system(("xdg-open " + url).c_str())); }, &*findings);
    return findings->status;
}

TEST(RealXdgOpen, ReportsWhatItSaysIfTheApplicationFailed)
{
    const RealDesktop desktop;
    const Settings settings = {{"FAKE_STATUS", "9"}};
    const std::int32_t expected = status_of_program(desktop, settings, "http://a.example/");
    // 1.1.3 (Debian 12) ends with 4; 1.2.1 (Debian 13) ignores how the application ended.
    EXPECT_TRUE(expected == 4 || expected == 0) << expected;
    EXPECT_EQ(real_status(desktop, settings, "http://a.example/"), expected);
}

TEST(RealXdgOpen, ReportsThatNothingOpensTheUrl)
{
    const RealDesktop desktop;
    EXPECT_EQ(real_status(desktop, {{"DISPLAY", ""}, {"BROWSER", "/bin/false"}}, "other:a"), 3);
}

TEST(RealXdgOpen, IsNotWaitedForWhileTheApplicationRuns)
{
    const RealDesktop desktop;
    const SharedFindings findings;
    call_in_host(
        desktop.environment({{"FAKE_SLEEP", "yes"}}), prepare_nothing,
        [] { return open_url("http://a.example/"); }, &*findings);
    EXPECT_EQ(findings->status, 0);
    EXPECT_LT(findings->milliseconds, 4000);
    EXPECT_TRUE(end_recorder(desktop));
}

TEST(RealXdgOpen, ReturnsMinus1IfItIsNotInstalled)
{
    const RealDesktop desktop;
    EXPECT_EQ(real_status(desktop, {{"PATH", desktop.path("empty")}}, "http://a.example/"), -1);
    EXPECT_NE(access(desktop.path("record").c_str(), F_OK), 0);
}

} // namespace
} // namespace quintral
