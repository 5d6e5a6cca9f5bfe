// The platform queries on Linux: the system's name and version, file references, URLs. Bundles are
// in platform-bundle-linux-test.cpp, opening in the desktop in xdg-open-test.cpp.
#include "platform/platform.h"

#include "tests/harness/child-process.h"
#include "tests/harness/temp-folder.h"
#include "tests/platform/deep-folder.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace {

bool uname_fails = false;

} // namespace

// Takes precedence over the C library's uname.
extern "C" int uname(utsname *system) noexcept
{
    if (!uname_fails)
        return static_cast<int>(syscall(SYS_uname, system));
    errno = EFAULT;
    return -1;
}

namespace quintral {
namespace {

using namespace tests;

// Operating system

TEST(PlatformOsName, IsLinux)
{
    std::string buffer(9, '#');
    platform_os_name(buffer.data());
    EXPECT_EQ(buffer, std::string("Linux\0###", 9));
}

// The version is cut to the capacity; it and the last byte of the buffer are terminated. Nothing is
// written past the capacity.
void expect_version(const std::string &version, std::size_t capacity)
{
    std::string buffer(capacity + 4, '#');
    EXPECT_EQ(platform_os_version(buffer.data(), capacity), buffer.data());
    const std::string text = version.substr(0, capacity - 1);
    EXPECT_EQ(buffer.c_str(), text) << "capacity " << capacity;
    EXPECT_EQ(buffer[capacity - 1], '\0') << "capacity " << capacity;
    EXPECT_EQ(buffer.substr(capacity), "####") << "capacity " << capacity;
}

TEST(PlatformOsVersion, IsTheKernelReleaseCutToTheCapacity)
{
    utsname system = {};
    ASSERT_EQ(uname(&system), 0);
    const std::string release = system.release;
    ASSERT_GT(release.size(), 3U);
    for (const std::size_t capacity : {std::size_t{1}, std::size_t{2}, release.size(),
                                       release.size() + 1, release.size() + 2, std::size_t{200}})
        expect_version(release, capacity);
}

TEST(PlatformOsVersion, IsUnknownIfUnameFails)
{
    uname_fails = true;
    for (const std::size_t capacity : {1U, 2U, 7U, 8U, 9U, 200U})
        expect_version("unknown", capacity);
    uname_fails = false;
}

// References

// Changes the working folder until the end of the scope.
class WorkingFolder {
public:
    explicit WorkingFolder(const std::string &path) : before_(std::filesystem::current_path())
    {
        EXPECT_EQ(chdir(path.c_str()), 0) << path;
    }

    ~WorkingFolder()
    {
        std::filesystem::current_path(before_);
    }

    WorkingFolder(const WorkingFolder &) = delete;
    WorkingFolder &operator=(const WorkingFolder &) = delete;

private:
    std::filesystem::path before_;
};

// Fills a folder with files, folders, links and difficult names.
void fill_reference_folder(const TempFolder &folder)
{
    make_file(folder.path("file"));
    make_file(folder.path("with space #1 100%"));
    make_file(folder.path("-option"));
    make_directory(folder.path("sub"));
    make_file(folder.path("sub/deep"));
    make_link("file", folder.path("link"));
    make_link("missing", folder.path("dangling"));
    make_link("loop", folder.path("loop"));
}

PlatformFileRef used_ref()
{
    PlatformFileRef ref;
    std::memset(ref.path, '#', sizeof ref.path);
    return ref;
}

void expect_ref(const std::string &path, const std::string &expected)
{
    PlatformFileRef ref = used_ref();
    EXPECT_EQ(platform_make_ref(path.c_str(), &ref), 0) << path;
    ASSERT_NE(std::memchr(ref.path, '\0', sizeof ref.path), nullptr) << path;
    EXPECT_EQ(ref.path, expected) << path;
}

void expect_no_ref(const std::string &path, std::int32_t status)
{
    PlatformFileRef ref = used_ref();
    EXPECT_EQ(platform_make_ref(path.c_str(), &ref), status) << path.substr(0, 80);
    EXPECT_EQ(ref.path[0], '\0') << path.substr(0, 80);
}

TEST(PlatformMakeRef, KeepsAnAbsolutePath)
{
    const TempFolder folder;
    fill_reference_folder(folder);
    for (const char *name : {"file", "with space #1 100%", "-option", "sub", "sub/", "sub/deep",
                             "link", "sub/../file", "sub//deep"})
        expect_ref(folder.path(name), folder.path(name));
    expect_ref("/", "/");
    expect_ref("/" + folder.path("file"), "/" + folder.path("file"));
}

TEST(PlatformMakeRef, MakesARelativePathAbsolute)
{
    const TempFolder folder;
    fill_reference_folder(folder);
    const WorkingFolder working(folder.path());
    const std::string here = std::filesystem::current_path().string() + "/";
    for (const char *name : {"file", "with space #1 100%", "-option", "sub/deep", ".", "./file",
                             "sub/../file", "link"})
        expect_ref(name, here + name);
}

TEST(PlatformMakeRef, MakesARelativePathAbsoluteInTheRootFolder)
{
    const WorkingFolder working("/");
    expect_ref("proc/self", "/proc/self");
}

TEST(PlatformMakeRef, ReturnsMinus43ForAMissingPath)
{
    const TempFolder folder;
    fill_reference_folder(folder);
    for (const char *name : {"missing", "missing/file", "file/below", "file/", "dangling"})
        expect_no_ref(folder.path(name), -43);
    const WorkingFolder working(folder.path());
    for (const char *name : {"", "missing", "./missing", "~", "file:///etc/passwd"})
        expect_no_ref(name, -43);
}

TEST(PlatformMakeRef, ReturnsMinus1ForAPathThatCannotBeFollowed)
{
    const TempFolder folder;
    fill_reference_folder(folder);
    expect_no_ref(folder.path("loop"), -1);
    expect_no_ref(folder.path(std::string(300, 'n')), -1);
    expect_no_ref("/" + std::string(5000, 'n'), -1);
}

int make_relative_ref(const std::string &name)
{
    const int descriptor = open(name.c_str(), O_CREAT | O_WRONLY, 0644);
    if (descriptor < 0)
        _exit(8);
    close(descriptor);
    PlatformFileRef ref = used_ref();
    const std::int32_t status = platform_make_ref(name.c_str(), &ref);
    std::printf("%d %zu\n", static_cast<int>(status), strnlen(ref.path, sizeof ref.path));
    return 0;
}

TEST(PlatformMakeRef, AcceptsPathsUpToTheSystemsLimit)
{
    const struct {
        std::size_t folder_length;
        std::size_t name_length;
        const char *output;
    } rows[] = {
        {4000, 94, "0 4095\n"},
        {4000, 95, "-1 0\n"},
        {4094, 1, "-1 0\n"},
        {6000, 1, "-1 0\n"},
    };
    for (const auto &row : rows) {
        const TempFolder folder;
        const ChildResult result = run_child_function([&] {
            if (chdir(folder.path().c_str()) != 0)
                return 7;
            descend(row.folder_length);
            return make_relative_ref(std::string(row.name_length, 'n'));
        });
        EXPECT_EQ(result.output, row.output) << row.folder_length;
        EXPECT_EQ(result.exit_status, 0) << result.error;
    }
}

// URLs. No xdg-open is found, so -1 means that the bytes are accepted as a URL.

constexpr std::int32_t no_xdg_open = -1;

class PlatformAddress : public testing::Test {
protected:
    void SetUp() override
    {
        const char *path = std::getenv("PATH");
        path_ = path != nullptr ? path : "";
        setenv("PATH", "", 1);
    }

    void TearDown() override
    {
        setenv("PATH", path_.c_str(), 1);
    }

private:
    std::string path_;
};

// Copies the bytes to a block of exactly their size, so that a sanitizer reports a read past its
// end.
std::int32_t open_bytes(const std::string &bytes)
{
    const std::vector<char> block(bytes.begin(), bytes.end());
    return platform_open_url(block.data(), block.size());
}

TEST_F(PlatformAddress, BeginsWithAScheme)
{
    for (const char *url :
         {"http://www.quintral.example/", "mailto:somebody@quintral.example", "a:", "A:", "z:x",
          "Z:x", "x-a.b+c9:rest", "HTTP://A", "file:///etc/passwd", "urn:isbn:0"})
        EXPECT_EQ(open_bytes(url), no_xdg_open) << url;
}

TEST_F(PlatformAddress, IsRejectedWithoutAScheme)
{
    for (const char *url : {"",
                            ":",
                            "://host",
                            "www.quintral.example",
                            "http",
                            "http//host",
                            "/etc/passwd",
                            "relative/path",
                            "1http://host",
                            "+a:b",
                            "-a:b",
                            ".a:b",
                            "-",
                            "--help",
                            "--help:x",
                            " http://host",
                            "ht tp://host",
                            "ht_tp://host",
                            "h%74tp://host",
                            "http;//host:80"})
        EXPECT_EQ(open_bytes(url), PlatformNoAddress) << url;
    EXPECT_EQ(PlatformNoAddress, -30773);
}

TEST_F(PlatformAddress, ContainsOnlyUrlCharacters)
{
    const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    const std::string allowed = letters + "-._~:/?#[]@!$&'()*+,;=%";
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const bool valid = allowed.find(c) != std::string::npos;
        const std::int32_t expected = valid ? no_xdg_open : PlatformNoAddress;
        EXPECT_EQ(open_bytes(std::string("http://a/") + c + "b"), expected) << "byte " << byte;
        EXPECT_EQ(open_bytes(std::string("http:") + c), expected) << "byte " << byte;
    }
}

TEST_F(PlatformAddress, HasASchemeOfLettersDigitsPlusMinusAndPeriod)
{
    const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    const std::string later = letters + "0123456789+-.:"; // a ':' ends the scheme
    for (int byte = 0; byte < 256; ++byte) {
        const char c = static_cast<char>(byte);
        const bool first = letters.find(c) != std::string::npos;
        const bool second = later.find(c) != std::string::npos;
        EXPECT_EQ(open_bytes(std::string(1, c) + "b:c"), first ? no_xdg_open : PlatformNoAddress)
            << "byte " << byte;
        EXPECT_EQ(open_bytes(std::string("a") + c + ":c"), second ? no_xdg_open : PlatformNoAddress)
            << "byte " << byte;
    }
}

TEST_F(PlatformAddress, IsReadOnlyUpToTheCount)
{
    EXPECT_EQ(platform_open_url("http://host and more", 11), no_xdg_open);
    EXPECT_EQ(platform_open_url("http://host and more", 12), PlatformNoAddress);
    EXPECT_EQ(platform_open_url("http://host", 4), PlatformNoAddress);
    EXPECT_EQ(platform_open_url("http://host", 5), no_xdg_open);
    EXPECT_EQ(platform_open_url("http://host", 0), PlatformNoAddress);
    EXPECT_EQ(platform_open_url("http://host", 12),
              PlatformNoAddress); // with its terminator
}

} // namespace
} // namespace quintral
