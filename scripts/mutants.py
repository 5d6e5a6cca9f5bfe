#!/usr/bin/env python3
"""Changes the code in small ways, one at a time, and sees whether a test fails.

Usage: scripts/mutants.py N [SEED]

Picks N of all possible changes at random, builds what each affects in a copy of the tree below
build/mutants, and runs the tests of the changed file's folder. A test that does not end in time
counts as failing. Prints a line for each change that no test noticed. Changes that cannot be
noticed are listed in scripts/mutants-equivalent.txt, with the reason.

SEED repeats a choice. The place of a change depends on its line and the one above it alone. So
after an edit elsewhere the choice is nearly the same, and the list of equivalent changes still
covers it.

A change may make the code remove or kill anything. So builds, which run the test programs to list
their tests, and tests run inside scripts/fence.py: nothing but build/mutants can be written, and no
other process be seen.

Ends with 0 if at least 95 % of the others were noticed.
"""
import filecmp
import hashlib
import os
import random
import re
import shutil
import subprocess
import sys

FOLDERS = ('support', 'cmdline', 'web', 'platform', 'tool')
COPY = 'build/mutants/source'
BUILD = 'build/mutants/build'
EQUIVALENT = 'scripts/mutants-equivalent.txt'
TEST_TIMEOUT = 30  # seconds for one test
ENOUGH = 0.95
FENCE = ['scripts/fence.py', 'build/mutants']

# (name, pattern, replacements). The layout puts spaces around binary operators and none around
# template brackets and unary operators.
OPERATORS = [
    ('flip a comparison', r' < ', (' <= ', ' >= ')),
    ('flip a comparison', r' <= ', (' < ', ' > ')),
    ('flip a comparison', r' > ', (' >= ', ' <= ')),
    ('flip a comparison', r' >= ', (' > ', ' < ')),
    ('flip a comparison', r' == ', (' != ',)),
    ('flip a comparison', r' != ', (' == ',)),
    ('flip a condition', r' && ', (' || ',)),
    ('flip a condition', r' \|\| ', (' && ',)),
    ('off by one', r' \+ 1\b', ('', ' + 2')),
    ('off by one', r' - 1\b', ('', ' - 2')),
    ('flip arithmetic', r' \+ ', (' - ',)),
    ('flip arithmetic', r' - ', (' + ',)),
    ('flip a step', r'\+\+(?=\w)', ('--',)),
    ('flip a step', r'(?<=\w)\+\+', ('--',)),
    ('change a constant', r'\btrue\b', ('false',)),
    ('change a constant', r'\bfalse\b', ('true',)),
    ('change a constant', r'(?<![\w.\'])\d+(?![\w.\'])', (lambda text: str(int(text) + 1),)),
    ('change a constant', r"'[ -&(-\[\]-~]'", ("'@'",)),
]
CONDITION = re.compile(r'^(\s*(?:\} else )?(?:if|while) \()(.*)(\)(?: \{)?)$')
CALL = re.compile(r'^\s+(?!return\b|case\b|goto\b|delete\b)[\w:.>\-\[\]*]+\(.*\);$')
ASSIGNMENT = re.compile(r'^\s+[*]?[\w.>\-\[\]:]+(?:\[.*\])? (?:[-+*/|&^]|<<|>>)?= .*;$')


def sources():
    """The sources that are built on this system, and the headers with code."""
    listed = subprocess.run(['git', 'ls-files', *FOLDERS], check=True, capture_output=True,
                            text=True).stdout.split('\n')
    return [name for name in listed
            if name.endswith(('.cpp', '/ascii.h')) and '-macos' not in name]


def mask_text(text):
    """The same text with comments, literals and directives as spaces, so that positions stay.

    Character literals stay: they are constants that may change."""
    def spaces(match):
        return re.sub(r'[^\n]', ' ', match.group())
    pattern = r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|^[ \t]*#[^\n]*|^static_assert[^;]*;'
    return re.sub(pattern, spaces, text, flags=re.M | re.S)


def changes_of_line(line, masked):
    """All (name, changed line) of one line. Two can give the same line."""
    for name, pattern, replacements in OPERATORS:
        for match in re.finditer(pattern, masked):
            for replacement in replacements:
                new = replacement(match.group()) if callable(replacement) else replacement
                yield name, line[:match.start()] + new + line[match.end():]
    condition = CONDITION.match(masked)
    if condition and condition.group(2).count('(') == condition.group(2).count(')'):
        start, end = condition.span(2)
        yield 'negate a condition', line[:start] + '!(' + line[start:end] + ')' + line[end:]
    if CALL.match(masked) or ASSIGNMENT.match(masked):
        yield 'drop a statement', re.match(r'\s*', line).group() + ';'


def changes_of_file(name):
    with open(name, encoding='utf-8') as file:
        text = file.read()
    lines = text.split('\n')
    for number, masked in enumerate(mask_text(text).split('\n')):
        seen = {lines[number]}
        for operator, changed in changes_of_line(lines[number], masked):
            if changed not in seen:
                seen.add(changed)
                yield {'file': name, 'line': number + 1, 'operator': operator,
                       'above': lines[number - 1].strip() if number > 0 else '',
                       'before': lines[number].strip(), 'after': changed.strip(),
                       'text': '\n'.join(lines[:number] + [changed] + lines[number + 1:])}


def place_in_order(change, seed):
    words = (str(seed), change['file'], change['above'], change['before'], change['after'])
    return hashlib.sha256('\n'.join(words).encode()).digest()


def equivalent_changes():
    """Blocks of four lines, see the file."""
    if not os.path.exists(EQUIVALENT):
        return set()
    with open(EQUIVALENT, encoding='utf-8') as file:
        blocks = [block.split('\n') for block in file.read().strip().split('\n\n')]
    return {tuple(block[:3]) for block in blocks if not block[0].startswith('#')}


def names_of(change):
    """The first three lines of a block that lists the change."""
    lines = (change['before'], change['after'])
    return {(change['file'], *lines), (f"{change['file']} below {change['above']}", *lines)}


def run(command, log):
    """Runs the command inside the fence, with a ccache of its own if the build uses one."""
    environment = dict(os.environ, CCACHE_DIR=os.path.abspath('build/mutants/ccache'))
    status = subprocess.run(FENCE + command, stdout=log, stderr=log, stdin=subprocess.DEVNULL,
                            env=environment, check=False).returncode
    if status == 99:
        sys.exit('mutants: the fence cannot be put up, see build/mutants/log')
    return status


def copy_tree():
    """Brings the copy up to date. What is the same keeps its time, which is later than that of the
    object that the last change of an earlier run left."""
    listed = subprocess.run(['git', 'ls-files', '-z', '--cached', '--others',
                             '--exclude-standard'], check=True, capture_output=True, text=True)
    names = {name for name in listed.stdout.split('\0') if name and os.path.exists(name)}
    for folder, _, files in os.walk(COPY):
        for file in files:
            path = os.path.join(folder, file)
            if os.path.relpath(path, COPY) not in names:
                os.remove(path)
    for name in names:
        copied = os.path.join(COPY, name)
        if not os.path.exists(copied) or not filecmp.cmp(name, copied, shallow=False):
            os.makedirs(os.path.dirname(copied), exist_ok=True)
            shutil.copy(name, copied)


def build(log, *targets):
    return run(['cmake', '--build', BUILD, '--target', *targets], log)


def prepare(log):
    copy_tree()
    configured = run(['cmake', '-G', 'Ninja', '-S', COPY, '-B', BUILD, '-DCMAKE_BUILD_TYPE=Debug',
                      # no symbols, to build faster; the C++ library checks indices
                      '-DCMAKE_CXX_FLAGS_DEBUG=-D_GLIBCXX_ASSERTIONS',
                      '-DQUINTRAL_BUILD_TESTS=ON', f'-DQUINTRAL_TEST_TIMEOUT={TEST_TIMEOUT}'], log)
    if configured != 0 or build(log, *(f'tests/{folder}/all' for folder in FOLDERS)) != 0:
        sys.exit('mutants: the unchanged tree does not build, see build/mutants/log')
    for folder in FOLDERS:
        if not tests_pass(folder, None, log):
            sys.exit(f'mutants: tests of the unchanged {folder} fail, see build/mutants/log')


def tests_pass(folder, only, log):
    """Runs the tests of a folder, or those of it that are named after a file."""
    command = ['ctest', '--test-dir', f'{BUILD}/tests/{folder}', '-j8',
               '--stop-on-failure', '--output-on-failure', '--no-tests=ignore']
    if only:
        command += ['-R', only]
    cost = f'{BUILD}/tests/{folder}/Testing/Temporary/CTestCostData.txt'
    if os.path.exists(cost):
        os.remove(cost)  # it would start with the longest
    return run(command, log) == 0


def named_after(file):
    stem = os.path.basename(file).split('.')[0].replace('-linux', '')
    return r'(^|[-.])' + re.escape(stem) + r'[-.]'


def compiles(name, log):
    """Compiles a source alone, or what includes a header."""
    if name.endswith('.h'):
        return build(log, f"quintral_{name.split('/')[0]}") == 0
    return build(log, os.path.abspath(os.path.join(COPY, name)) + '^') == 0


def judge(change, log):
    """'killed', 'survived' or 'does not build'."""
    path = os.path.join(COPY, change['file'])
    with open(path, encoding='utf-8') as file:
        original = file.read()
    folder = change['file'].split('/')[0]
    try:
        with open(path, 'w', encoding='utf-8') as file:
            file.write(change['text'])
        if not compiles(change['file'], log):
            return 'does not build'
        if build(log, f'tests/{folder}/all') != 0:
            return 'killed'  # by a test program that crashed while its tests were listed
        for only in (named_after(change['file']), None):
            if not tests_pass(folder, only, log):
                return 'killed'
        return 'survived'
    finally:
        with open(path, 'w', encoding='utf-8') as file:
            file.write(original)


def summary(counts):
    judged = counts['killed'] + counts['survived']
    print(f"{counts['equivalent']} equivalent, {counts['does not build']} do not build, "
          f"{100 * counts['killed'] / max(judged, 1):.1f} % of {judged} killed")
    print(f"{counts['killed']} passed, {counts['survived']} failed")
    return 0 if judged > 0 and counts['killed'] >= ENOUGH * judged else 1


def main(arguments):
    if len(arguments) not in (1, 2) or not all(word.isdigit() for word in arguments):
        print('usage: scripts/mutants.py N [SEED]', file=sys.stderr)
        return 2
    wanted = int(arguments[0])
    seed = int(arguments[1]) if len(arguments) > 1 else random.randrange(1000000)
    os.chdir(os.path.join(os.path.dirname(__file__), '..'))
    os.makedirs('build/mutants', exist_ok=True)
    candidates = [change for name in sources() for change in changes_of_file(name)]
    candidates.sort(key=lambda change: place_in_order(change, seed))
    print(f'{len(candidates)} possible changes, seed {seed}', flush=True)
    known = equivalent_changes()
    gone = known.difference(*map(names_of, candidates))
    if gone:
        sys.exit(f'mutants: {EQUIVALENT} lists what is not in the sources: {sorted(gone)[0]}')
    counts = {'killed': 0, 'survived': 0, 'does not build': 0, 'equivalent': 0}
    with open('build/mutants/log', 'w', encoding='utf-8') as log:
        prepare(log)
        for change in candidates:
            if counts['killed'] + counts['survived'] >= wanted:
                break
            if known & names_of(change):
                counts['equivalent'] += 1
                continue
            verdict = judge(change, log)
            counts[verdict] += 1
            text = (f"{change['file']}:{change['line']}: {change['operator']}\n"
                    f"    {change['before']}\n    {change['after']}")
            print(f'== {verdict}: {text}', file=log, flush=True)
            if verdict == 'survived':
                print(text, flush=True)
    return summary(counts)


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))
