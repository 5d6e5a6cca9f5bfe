// The bundle queries on Linux. The program bundle-paths makes them; the tests copy it into
// installed trees.
#include "platform/platform.h"

#include "tests/harness/child-process.h"
#include "tests/harness/temp-folder.h"
#include "tests/platform/deep-folder.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

namespace quintral {
namespace {

using namespace tests;

using Answers = std::map<std::string, std::string>;

Answers parse_answers(const std::string &output)
{
    Answers answers;
    for (std::size_t start = 0; start < output.size();) {
        const std::size_t end = output.find('\n', start);
        const std::string line = output.substr(start, end - start);
        const std::size_t space = line.find(' ');
        answers[line.substr(0, space)] = line.substr(space + 1);
        start = end + 1;
    }
    return answers;
}

struct Query {
    std::string resource = "missing";
    std::string capacity = "8192";
    std::vector<std::string> more = {}; // arguments of bundle-paths
    std::string folder = {};            // working folder; empty for the test's own
};

Answers run_program(const std::string &program, const Query &query = {})
{
    std::vector<std::string> arguments = {program, query.capacity, query.resource};
    arguments.insert(arguments.end(), query.more.begin(), query.more.end());
    ChildOptions options;
    options.prepare = [&query] {
        if (!query.folder.empty() && chdir(query.folder.c_str()) != 0)
            _exit(9);
    };
    const ChildResult result = run_child(arguments, options);
    EXPECT_EQ(result.exit_status, 0) << program << result.error;
    return parse_answers(result.output);
}

const char *const suite_bundle = "PlugIns/" QUINTRAL_PLUGIN_IDENTIFIER ".bundle";
const char *const second_bundle = "PlugIns/" QUINTRAL_SECOND_PLUGIN_IDENTIFIER ".bundle";

// All answers for a program whose main bundle has neither plug-in bundles nor the resource.
Answers plain_answers(const std::string &program, const std::string &bundle)
{
    Answers answers;
    for (const char *location : {"0", "2", "3", "8", "9", "4294967295"})
        answers[location] = bundle;
    answers["1"] = program;
    answers["4"] = bundle + "/PlugIns";
    answers["7"] = QUINTRAL_CONFIG_FOLDER;
    for (const char *key : {"5", "6", "plugin", "resource"})
        answers[key] = "-";
    return answers;
}

// The canonical path of a temporary folder, whose path may contain a link.
std::string real_path(const std::string &path)
{
    return std::filesystem::canonical(path).string();
}

void make_folders(const std::string &path)
{
    std::error_code error;
    std::filesystem::create_directories(path, error);
    EXPECT_FALSE(error) << path << ": " << error.message();
}

// Copies the program; returns its path.
std::string install_program(const std::string &path)
{
    make_folders(std::filesystem::path(path).parent_path().string());
    std::error_code error;
    std::filesystem::copy_file(QUINTRAL_BUNDLE_PATHS, path, error);
    EXPECT_FALSE(error) << path << ": " << error.message();
    return path;
}

// A temporary folder with PREFIX/bin/NAME and PREFIX/share/NAME.resources.
class InstalledTree {
public:
    explicit InstalledTree(const std::string &prefix = "prefix", const std::string &name = "shapes")
        : root_(real_path(folder_.path())), prefix_(root_ + "/" + prefix),
          program_(install_program(prefix_ + "/bin/" + name)),
          bundle_(prefix_ + "/share/" + name + ".resources")
    {
        make_folders(bundle_);
    }

    const std::string &root() const
    {
        return root_;
    }

    const std::string &prefix() const
    {
        return prefix_;
    }

    const std::string &program() const
    {
        return program_;
    }

    const std::string &bundle() const
    {
        return bundle_;
    }

    std::string in_bundle(const std::string &name) const
    {
        return bundle_ + "/" + name;
    }

private:
    TempFolder folder_;
    std::string root_;
    std::string prefix_;
    std::string program_;
    std::string bundle_;
};

TEST(PlatformBundle, OfAProgramInBinIsItsResourcesFolderInShare)
{
    const struct {
        const char *prefix;
        const char *name;
    } rows[] = {
        {"prefix", "shapes"},
        {"with space", "Quintral Shapes"},
        {"a/b/c", "shapes.bin"},
        {"bin", "bin"},
        {"bin/share", "share"},
        {"\xC3\x9Cml\xC3\xA4ut \xE2\x82\xAC", "\xC3\xB6"},
        {"\xFF not UTF-8 %s%n", "100% #1"},
    };
    for (const auto &row : rows) {
        const InstalledTree tree(row.prefix, row.name);
        EXPECT_EQ(run_program(tree.program()), plain_answers(tree.program(), tree.bundle()));
    }
}

TEST(PlatformBundle, OfAnyOtherProgramIsItsOwnFolder)
{
    const struct {
        const char *program;
        const char *resources; // a folder to make, or empty
        const char *file;      // a file to make, or empty
    } rows[] = {
        {"prefix/bin/shapes", "", ""},
        {"prefix/bin/shapes", "prefix/share/other.resources", ""},
        {"prefix/bin/shapes", "prefix/share/shapes", ""},
        {"prefix/bin/shapes", "prefix/bin/share/shapes.resources", ""},
        {"prefix/bin/shapes", "share/shapes.resources", ""},
        {"prefix/bin/shapes", "prefix/share", "prefix/share/shapes.resources"},
        {"prefix/libexec/shapes", "prefix/share/shapes.resources", ""},
        {"prefix/bin/sub/shapes", "prefix/share/shapes.resources", ""},
        {"prefix/xbin/shapes", "prefix/share/shapes.resources", ""},
        {"prefix/bin2/shapes", "prefix/share/shapes.resources", ""},
        {"prefix/Bin/shapes", "prefix/share/shapes.resources", ""},
    };
    for (const auto &row : rows) {
        const TempFolder folder;
        const std::string root = real_path(folder.path()) + "/";
        const std::string program = install_program(root + row.program);
        if (*row.resources != '\0')
            make_folders(root + row.resources);
        if (*row.file != '\0')
            make_file(root + row.file);
        const std::string own = program.substr(0, program.rfind('/'));
        EXPECT_EQ(run_program(program), plain_answers(program, own))
            << row.program << ", " << row.resources << ", " << row.file;
    }
}

TEST(PlatformBundle, MayBeALinkToAFolder)
{
    const InstalledTree tree;
    ASSERT_EQ(rmdir(tree.bundle().c_str()), 0);
    make_folders(tree.root() + "/elsewhere");
    make_link(tree.root() + "/elsewhere", tree.bundle());
    EXPECT_EQ(run_program(tree.program()), plain_answers(tree.program(), tree.bundle()));
}

TEST(PlatformBundle, OfALinkIsThatOfItsTarget)
{
    const InstalledTree tree;
    make_folders(tree.root() + "/usr/bin");
    make_folders(tree.root() + "/usr/share/short.resources");
    const std::string link = tree.root() + "/usr/bin/short";
    make_link("../../prefix/bin/shapes", link);
    EXPECT_EQ(run_program(link), plain_answers(tree.program(), tree.bundle()));
}

TEST(PlatformBundle, IsAbsoluteHoweverTheProgramIsStarted)
{
    const InstalledTree tree;
    const Answers expected = plain_answers(tree.program(), tree.bundle());
    Query query;
    query.folder = tree.prefix();
    EXPECT_EQ(run_program("bin/shapes", query), expected);
    query.folder = tree.prefix() + "/bin";
    EXPECT_EQ(run_program("./shapes", query), expected);
    query.folder = tree.bundle();
    EXPECT_EQ(run_program("../../bin/../bin/shapes", query), expected);
}

TEST(PlatformBundle, StaysTheSameWhenTheProgramIsRemovedOrReplaced)
{
    const InstalledTree removed;
    Query query;
    query.more = {removed.program()};
    EXPECT_EQ(run_program(removed.program(), query),
              plain_answers(removed.program(), removed.bundle()));
    const InstalledTree replaced;
    query.more = {replaced.program(), install_program(replaced.root() + "/new")};
    EXPECT_EQ(run_program(replaced.program(), query),
              plain_answers(replaced.program(), replaced.bundle()));
}

TEST(PlatformBundle, OfAProgramNamedLikeARemovedOneIsItsOwn)
{
    const InstalledTree tree("prefix", "shapes (deleted)");
    EXPECT_EQ(run_program(tree.program()), plain_answers(tree.program(), tree.bundle()));
    Query query;
    query.more = {tree.program()};
    EXPECT_EQ(run_program(tree.program(), query), plain_answers(tree.program(), tree.bundle()));
}

TEST(PlatformBundle, FollowsAProgramThatIsMoved)
{
    const InstalledTree tree;
    Query query;
    const std::string moved = tree.root() + "/moved";
    query.more = {moved, tree.program()};
    EXPECT_EQ(run_program(tree.program(), query), plain_answers(moved, tree.root()));
}

TEST(PlatformBundle, PathIsCutToTheCapacityAndTerminated)
{
    const InstalledTree tree;
    make_file(tree.in_bundle("welcome.txt"));
    make_folders(tree.in_bundle(suite_bundle));
    make_folders(tree.in_bundle(second_bundle));
    make_file(tree.in_bundle(std::string(suite_bundle) + "/welcome.txt"));
    Query query;
    query.resource = "welcome.txt";
    const Answers whole = run_program(tree.program(), query);
    const std::size_t length = tree.bundle().size();
    for (const std::size_t capacity : {std::size_t{1}, std::size_t{2}, std::size_t{10}, length,
                                       length + 1, length + 2, std::size_t{4096}}) {
        query.capacity = std::to_string(capacity);
        Answers expected = whole;
        for (auto &[key, path] : expected)
            path.resize(std::min(path.size(), capacity - 1));
        EXPECT_EQ(run_program(tree.program(), query), expected) << "capacity " << capacity;
    }
}

TEST(PlatformBundle, ResourceIsTheEntryOfThatNameInTheFolder)
{
    const InstalledTree tree;
    const std::string suite = tree.in_bundle(suite_bundle);
    for (const std::string &folder : {tree.bundle(), suite}) {
        make_folders(folder + "/sub/deep");
        make_folders(folder + "/..sub");
        for (const char *name : {"welcome.txt", "with space #1 100%", "..hidden", "trailing..",
                                 "...", "-option", "sub/deep/file", "..sub/file", "NULL.txt"})
            make_file(folder + "/" + name);
        make_link("welcome.txt", folder + "/link");
    }
    for (const char *name : {"welcome.txt", "with space #1 100%", "..hidden", "trailing..", "...",
                             "-option", "sub/deep/file", "..sub/file", "sub", "sub/deep", "link"}) {
        Query query;
        query.resource = name;
        Answers expected = plain_answers(tree.program(), tree.bundle());
        expected["5"] = tree.in_bundle(name);
        expected["plugin"] = suite;
        expected["resource"] = suite + "/" + name;
        EXPECT_EQ(run_program(tree.program(), query), expected) << name;
    }
}

TEST(PlatformBundle, HasNoResourceForANameThatLeadsOutsideOrNowhere)
{
    const InstalledTree tree;
    const std::string suite = tree.in_bundle(suite_bundle);
    for (const std::string &folder : {tree.bundle(), suite}) {
        make_folders(folder + "/sub");
        make_file(folder + "/welcome.txt");
        make_link("missing", folder + "/dangling");
    }
    Answers expected = plain_answers(tree.program(), tree.bundle());
    expected["plugin"] = suite;
    for (const std::string &name : {std::string("missing"),
                                    std::string("Welcome.txt"),
                                    std::string("welcome.txt/"),
                                    std::string("welcome.txt/x"),
                                    std::string("dangling"),
                                    std::string("NULL"),
                                    std::string(),
                                    std::string(".."),
                                    std::string("../"),
                                    std::string("/"),
                                    std::string("/etc/passwd"),
                                    tree.in_bundle("welcome.txt"),
                                    "/" + tree.program(),
                                    std::string("../shapes.resources/welcome.txt"),
                                    std::string("sub/../welcome.txt"),
                                    std::string("sub/.."),
                                    std::string("sub/../../shapes.resources"),
                                    std::string("./../shapes.resources"),
                                    std::string(300, 'n'),
                                    std::string(5000, 'n')}) {
        Query query;
        query.resource = name;
        EXPECT_EQ(run_program(tree.program(), query), expected) << name.substr(0, 80);
    }
}

TEST(PlatformBundle, FindsEachPlugInBundleByItsIdentifier)
{
    const struct {
        const char *folder;
        const char *key;
    } rows[] = {{suite_bundle, "plugin"}, {second_bundle, "6"}};
    for (const auto &row : rows) {
        const InstalledTree tree;
        make_folders(tree.in_bundle(row.folder));
        Answers expected = plain_answers(tree.program(), tree.bundle());
        expected[row.key] = tree.in_bundle(row.folder);
        EXPECT_EQ(run_program(tree.program()), expected) << row.folder;
    }
}

TEST(PlatformBundle, FindsPlugInBundlesNextToAProgramThatIsNotInstalled)
{
    const TempFolder folder;
    const std::string root = real_path(folder.path());
    const std::string program = install_program(root + "/shapes");
    make_folders(root + "/" + suite_bundle);
    make_folders(root + "/" + second_bundle);
    make_file(root + "/" + suite_bundle + "/welcome.txt");
    Query query;
    query.resource = "welcome.txt";
    Answers expected = plain_answers(program, root);
    expected["6"] = root + "/" + second_bundle;
    expected["plugin"] = root + "/" + suite_bundle;
    expected["resource"] = root + "/" + suite_bundle + "/welcome.txt";
    EXPECT_EQ(run_program(program, query), expected);
}

TEST(PlatformBundle, APlugInBundleIsNeverAFile)
{
    const InstalledTree tree;
    make_folders(tree.in_bundle("PlugIns"));
    make_file(tree.in_bundle(suite_bundle));
    make_file(tree.in_bundle(second_bundle));
    EXPECT_EQ(run_program(tree.program()), plain_answers(tree.program(), tree.bundle()));
}

// Makes a folder below `start` whose path is exactly `length` bytes long.
std::string folder_of_length(std::string start, std::size_t length)
{
    while (start.size() + 1 < length)
        start += "/" + std::string(std::min<std::size_t>(200, length - start.size() - 1), 'd');
    make_folders(start);
    return start;
}

TEST(PlatformBundle, OfAProgramWithTheLongestPathIsItsOwnFolder)
{
    const TempFolder folder;
    const std::string own = folder_of_length(real_path(folder.path()), 4088);
    ASSERT_EQ(own.size(), 4088U);
    const std::string program = install_program(own + "/shapes");
    ASSERT_EQ(program.size(), 4095U);
    Answers expected = plain_answers(program, own);
    expected["4"] = "-"; // the path would be too long
    EXPECT_EQ(run_program(program), expected);
}

TEST(PlatformBundle, IsNotLookedForIfItsPathWouldBeTooLong)
{
    const TempFolder folder;
    const std::string prefix = folder_of_length(real_path(folder.path()), 4080);
    ASSERT_EQ(prefix.size(), 4080U);
    const std::string program = install_program(prefix + "/bin/shapes");
    make_folders(prefix + "/share/shapes.r"); // the path of the bundle, cut
    EXPECT_EQ(run_program(program), plain_answers(program, prefix + "/bin"));
}

TEST(PlatformBundle, IsNotAvailableIfTheProgramsPathIsTooLong)
{
    const TempFolder folder;
    Query query;
    query.folder = real_path(folder.path());
    const std::string program = query.folder + "/shapes";
    install_program(program);
    const ChildResult result = run_child_function([&] {
        if (chdir(query.folder.c_str()) != 0)
            return 7;
        descend(5000);
        if (link(program.c_str(), "shapes") != 0)
            return 6;
        execl("./shapes", "./shapes", "8192", "missing", static_cast<char *>(nullptr));
        return 5;
    });
    ASSERT_EQ(result.exit_status, 0) << result.error;
    for (const auto &[key, path] : parse_answers(result.output))
        EXPECT_EQ(path, "-") << key;
}

} // namespace
} // namespace quintral
