"""The rules that scripts/check-style checks. Run from the root of the repository."""

import fnmatch
import json
import os
import re
import subprocess
import sys
from collections import namedtuple
from concurrent.futures import ThreadPoolExecutor

# A finding is shown as "FILE:LINE: FINDS (detail), ADVICE [NAME]". The function find_NAME below
# yields file, line and detail for each finding in the files of a kind (see KINDS).
Rule = namedtuple("Rule", "name kind finds advice")

RULES = (
    Rule("system-switch", "code", "conditional on the operating system",
         "move the code to NAME-linux.cpp and NAME-macos.cpp"),
    Rule("documented", "public header", "no comment directly above a declaration",
         "describe it there, or add it to a group that is described"),
    Rule("header-guard", "header", "wrong header guard", "name it after the path"),
    Rule("test-length", "test", "long test file", "split it by subject"),
    Rule("width", "text", "long line", "wrap it"),
    Rule("whitespace", "text", "white space", "follow .editorconfig"),
    Rule("words", "text", "unusual English", "say it in the usual words"),
    Rule("named-tests", "page", "no such test", "name the test that holds the claim"),
    Rule("spelling", "text", "misspelled word", "correct it, or justify it in KNOWN_WORDS"),
    Rule("shell", "shell script", "shellcheck", "fix it, or justify it in ACCEPTED_SHELL"),
    Rule("layout", "code", "not as clang-format lays it out", "run clang-format -i"),
    Rule("tidy", "source", "clang-tidy", "fix it, or justify a NOLINT"),
)

LIBRARIES = ("support", "cmdline", "web", "platform", "tool")

KINDS = {
    "text": lambda path: True,
    "page": lambda path: path.endswith(".md"),
    "code": lambda path: path.endswith((".cpp", ".h")),
    "source": lambda path: path.endswith(".cpp"),
    "header": lambda path: path.endswith(".h"),
    "public header": lambda path: path.endswith(".h") and path.split("/")[0] in LIBRARIES,
    "test": lambda path: path.endswith((".cpp", ".h")) and path.startswith("tests/"),
    "shell script": lambda path: path.endswith(".sh") or has_shell_shebang(path),
}

# No rule applies to these.
DATA = (
    "fuzz/corpus/*",           # any bytes
    "*package-lock.json",      # written by npm
    "docs/performance-*.svg",  # written by gnuplot
)

SYSTEM_MACROS = re.compile(
    r"__APPLE__|__MACH__|__linux__|\b_*linux\b|__gnu_linux__|__unix__|\bunix\b|__ANDROID__"
    r"|__\w+BSD__|\b_*WIN(32|64)\b|__CYGWIN__|\bTARGET_OS_\w+|\w*MAC_OS_X_VERSION\w*"
    r"|\bQUINTRAL_PLATFORM_(MACOS|LINUX)\b")

# These files may ask for the operating system.
SYSTEM_FILES = (
    "*-linux.*", "*-macos.*",  # each is named for its system
    "platform/file-ref.h",     # includes the file of the system
)

# The stand-ins for frameworks repeat the frameworks' own file names.
GUARDS_OF_FRAMEWORKS = "tests/macos-frameworks/*/*.h"

LONGEST_TEST_FILE = 700  # lines: what one reads in one sitting

# Lines of these may be longer than max_line_length in .editorconfig.
WIDE_FILES = (
    "*.json",                        # a string cannot be wrapped
    "examples/sample-products.txt",  # a product is one line
    "tests/install/symbols/*.txt",   # a symbol is one line
)

# Tabs begin the commands of a makefile.
MAKEFILES = ("packaging/debian/rules",)

# What this project does not say in prose, comments, messages or names such as TheLineBehindIt, and
# the usual words for it. Phrases may occur in names.
WORDS = (
    (r"behind", "after"),
    (r"blanks?(?![ -]lines?\b)", "space"),
    (r"apart(?! from\b)", "separate, distinguish"),
)
PHRASES = (
    (r"so many", "that many"),
    (r"one['’]s own", "your own, custom"),
    (r"full stops?", "period"),
    (r"sign of life", "progress indicator"),
    (r"as said", "see"),
    (r"(go|goes|went) out(?! of\b)", "is sent, is written"),
    (r"in front", "before, leading"),
    (r"what stands", "the text, the value"),
    (r"(tells?|told) of", "reports"),
)

# Lines in which such a word is the natural one, as (file, part of the line). At most two dozen.
NATURAL_WORDS = (
    ("examples/sample-update-service.cpp", "Run a real service behind a web server"),
)

# These name the words that are not to be used.
RULE_FILES = ("scripts/check-style.py", "scripts/check-style-test")

TEST_MACRO = re.compile(r"^TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", re.MULTILINE)
NAMED_TEST = re.compile(r"`([A-Z]\w*[a-z]\w*\.[A-Z]\w+)`")

# What codespell takes for misspelled and is right.
KNOWN_WORDS = {
    "fo": "the first two letters of a test vector of base64",
    "nd": "a macro of manual pages",
    "shttp": "a scheme of URLs that is not http",
    "te": "the word text, cut short",
    "unknow": "the word unknown, cut short",
    "versio": "a key that lacks its last letter",
}

# What shellcheck reports and is meant.
ACCEPTED_SHELL = {
    "SC1007": "CDPATH= before cd is an empty value for that command",
}

# Sources that clang-tidy cannot read here: the build for Linux does not compile them.
UNTIDIED = (
    "*-macos.cpp",                     # except those that tests compile too
    "tests/macos-frameworks/probe/*",  # for a system that lacks a call
    "tests/install/*",                 # against an installed copy
    "bench/*",                         # against the peers
    "tests/harness/coverage-dump.cpp", # in the preset coverage
    "tests/support/dates-fortified-test.cpp", "tests/test-headers.cpp",  # by GCC
    "tool/runtime-linux.cpp",          # in optimised builds
)


# Files

def tracked_files():
    listed = subprocess.run(["git", "ls-files", "-z"], check=True, capture_output=True, text=True)
    paths = [path for path in listed.stdout.split("\0") if path and os.path.isfile(path)]
    return [path for path in paths if not matches(path, DATA)]


def matches(path, patterns):
    return any(fnmatch.fnmatchcase(path, pattern) for pattern in patterns)


def read_lines(path):
    """The lines of a file without their line feeds; the last is empty if the file ends in one."""
    with open(path, encoding="utf-8", errors="replace", newline="") as stream:
        return stream.read().split("\n")


def has_shell_shebang(path):
    return re.match(r"#!.*\b(sh|bash|dash)\b", read_lines(path)[0]) is not None


def numbered_lines(files):
    for path in files:
        for number, line in enumerate(read_lines(path), 1):
            yield path, number, line


# Rules on lines

def find_system_switch(files):
    for path in files:
        if matches(path, SYSTEM_FILES):
            continue
        for first, _, directive in directives(read_lines(path)):
            macro = SYSTEM_MACROS.search(directive)
            if macro and re.match(r"\s*#\s*(el)?if", directive):
                yield path, first + 1, macro.group()


def directives(lines):
    """Yields (first, last, text) of each preprocessor directive, lines from 0, without comments."""
    text = ""
    for number, line in enumerate(lines):
        first = first if text else number
        text += line
        if not text.endswith("\\"):
            if text.lstrip().startswith("#"):
                yield first, number, text.split("//")[0].rstrip()
            text = ""


def find_header_guard(files):
    for path in files:
        if matches(path, [GUARDS_OF_FRAMEWORKS]):
            continue
        expected = "QUINTRAL_" + re.sub(r"\W", "_", path.upper())
        found = list(directives(read_lines(path)))[:2]
        texts = [text for _, _, text in found]
        if texts != ["#ifndef " + expected, "#define " + expected]:
            yield path, found[0][0] + 1 if found else 1, "not " + expected


def find_test_length(files):
    for path in files:
        length = len(read_lines(path)) - 1
        if length > LONGEST_TEST_FILE:
            yield path, LONGEST_TEST_FILE + 1, f"{length} lines, {LONGEST_TEST_FILE} at most"


def find_width(files):
    limit = int(re.search(r"max_line_length = (\d+)", "\n".join(read_lines(".editorconfig")))[1])
    for path, number, line in numbered_lines(files):
        is_table_row = path.endswith(".md") and line.startswith("|")  # cannot be wrapped
        if len(line) > limit and not is_table_row and not matches(path, WIDE_FILES):
            yield path, number, f"{len(line)} characters, {limit} at most"


def find_whitespace(files):
    for path, number, line in numbered_lines(files):
        if "\t" in line.removeprefix("\t") or line[:1] == "\t" and not matches(path, MAKEFILES):
            yield path, number, "a tab"
        if line != line.rstrip():
            yield path, number, "at the end of the line"
    for path in files:
        lines = read_lines(path)
        if lines[-1] != "":
            yield path, len(lines), "no line feed at the end"
        elif len(lines) > 1 and lines[-2].strip() == "":
            yield path, len(lines) - 1, "empty line at the end"


def find_words(files):
    unused = list(NATURAL_WORDS)
    for path, number, line in numbered_lines(files):
        natural = [entry for entry in NATURAL_WORDS if path == entry[0] and entry[1] in line]
        unused = [entry for entry in unused if entry not in natural]
        if natural or path in RULE_FILES:
            continue
        for found, usual in unusual_words(line):
            yield path, number, f"'{found}': {usual}"
    for path, part in unused:
        yield path, 1, f"NATURAL_WORDS names a line that is gone: {part}"


def unusual_words(line):
    for text, table in ((split_names(line), WORDS), (line, PHRASES)):
        for pattern, usual in table:
            found = re.search(rf"\b({pattern})\b", text, re.IGNORECASE)
            if found:
                yield found.group(), usual


def split_names(line):
    """Puts spaces between the words of names: "TheLineBehind_it" becomes "The Line Behind it"."""
    return re.sub(r"(?<=[a-z0-9])(?=[A-Z])|(?<=[A-Z])(?=[A-Z][a-z])|_", " ", line)


# Declarations

def find_documented(files):
    for path in files:
        lines = read_lines(path)
        group_end = None  # last line of a group of documented prototypes
        for first, last, text in declarations(lines):
            grouped = group_end == first - 1 and "{" not in text
            documented = grouped or lines[first - 1].lstrip().startswith("//")
            group_end = last if documented and "{" not in text else None
            if not documented and not is_forward_declaration(text):
                yield path, first + 1, text[:60]


def is_forward_declaration(text):
    return re.fullmatch(r"(struct|class|enum class) \w+;", text) is not None


def declarations(lines):
    """Yields (first, last, text) of each declaration at the level of a namespace, lines from 0."""
    skipped = {number for first, last, _ in directives(lines) for number in range(first, last + 1)}
    text, depth = "", 0
    for number, line in enumerate(lines):
        code = without_comments_and_strings(line)
        if number in skipped or (not text and is_between_declarations(code)):
            continue
        first = first if text else number
        text = (text + " " + code).strip()
        depth += code.count("{") - code.count("}")
        if depth == 0 and code.endswith((";", "}")):
            yield first, number, text
            text = ""


def is_between_declarations(code):
    return code in ("", "}") or re.match(r'(inline )?namespace\b.*{$|extern "" {$', code)


def without_comments_and_strings(line):
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    line = re.sub(r"'(\\.|[^'\\])'", "''", line)
    return re.sub(r"//.*|/\*.*?\*/", "", line).strip()


# Rules that other programs check

def run(command, finding="(?!)"):
    """The groups of each line of the command's output that is a finding. Ends on other failures."""
    result = subprocess.run(command, capture_output=True, text=True)
    output = result.stdout + result.stderr
    found = re.findall(finding, output, re.MULTILINE)
    if result.returncode != 0 and not found:
        sys.exit(f"{command[0]} failed:\n{output}")
    return found


def find_named_tests(files):
    """Pages that name tests, as `Suite.Case`, to show that something holds."""
    known = set()
    for path in tracked_files():
        if path.startswith("tests/") and path.endswith(".cpp"):
            tests = TEST_MACRO.findall("\n".join(read_lines(path)))
            known.update(".".join(names) for names in tests)
    for path, number, line in numbered_lines(files):
        for name in NAMED_TEST.findall(line):
            if name not in known:
                yield path, number, name


def find_spelling(files):
    command = ["codespell", "--check-hidden", "--ignore-words-list", ",".join(KNOWN_WORDS)]
    command += ["--ignore-regex", r"\\[nrt]"]  # the n in "\n" belongs to no word
    prose = [path for path in files if path not in RULE_FILES]
    for path, line, message in run(command + prose, r"^(.+?):(\d+): (.+)$"):
        yield path, int(line), message


def find_shell(files):
    command = ["shellcheck", "--shell=sh", "--format=gcc"]
    command += ["--exclude", ",".join(ACCEPTED_SHELL)]
    for path, line, message in run(command + files, r"^(.+?):(\d+):\d+: \w+: (.+)$"):
        yield path, int(line), message


def find_layout(files):
    command = ["clang-format", "--dry-run", "-Werror"]
    for path, line in run(command + files, r"^(.+?):(\d+):\d+: error: "):
        yield path, int(line), ""


def find_tidy(files):
    run(["cmake", "--preset", "clang"])
    build_generated_files()
    with open("build/clang/compile_commands.json", encoding="utf-8") as stream:
        compiled = {os.path.relpath(entry["file"]) for entry in json.load(stream)}
    for path in files:
        if path not in compiled and not matches(path, UNTIDIED):
            yield path, 1, "no build compiles it"
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        for found in pool.map(tidy, compiled.intersection(files)):
            yield from found


def build_generated_files():
    generated = run(["ninja", "-C", "build/clang", "-t", "targets", "all"],
                    r"^(.+\.(?:inc|h)): CUSTOM_COMMAND$")
    if generated:
        run(["cmake", "--build", "build/clang", "--target", *generated])


def tidy(source):
    command = ["clang-tidy", "--quiet", "-p", "build/clang", source]
    found = run(command, r"^(/.+?):(\d+):\d+: (?:warning|error): (.+)$")
    return [(os.path.relpath(path), int(line), message) for path, line, message in found]


# The run

def show(rule, finding):
    path, line, detail = finding
    shown = f" ({detail})" if detail else ""
    print(f"{path}:{line}: {rule.finds}{shown}, {rule.advice} [{rule.name}]")


def passes(rule, tracked):
    files = [path for path in tracked if KINDS[rule.kind](path)]
    if not files:
        print(f"{rule.name}: no {rule.kind} to check")
        return False
    find = globals()["find_" + rule.name.replace("-", "_")]
    findings = sorted(set(find(files)))
    for finding in findings:
        show(rule, finding)
    return not findings


def main(names):
    unknown = set(names) - {rule.name for rule in RULES}
    if unknown:
        known = " ".join(rule.name for rule in RULES)
        sys.exit(f"check-style: no rule {' '.join(unknown)}; the rules are: {known}")
    tracked = tracked_files()
    results = [passes(rule, tracked) for rule in RULES if not names or rule.name in names]
    print(f"{results.count(True)} passed, {results.count(False)} failed")
    return 0 if all(results) else 1


sys.exit(main(sys.argv[1:]))
