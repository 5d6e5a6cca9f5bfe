"""The completions in the shells themselves. Usage: completions-test.py UTILITY FOLDER [TEST...]"""

import os
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

LIMIT = 60  # seconds for one shell
UNNAMED_ARGUMENTS = ("proxy-user", "proxy-pass")  # the usage text names no argument of these
PACKAGE = "/usr/share/bash-completion/bash_completion"

UTILITY, FOLDER = [os.path.abspath(path) for path in sys.argv[1:3]]


def options():
    """Each option of the usage text with the name of its argument, "" for none."""
    usage = subprocess.run([UTILITY, "-help"], check=True, capture_output=True, text=True).stdout
    found = dict(re.findall(r"^  -(\S+)(?: (\S+))?\t", usage, re.MULTILINE))
    found.update((name, "text") for name in UNNAMED_ARGUMENTS)
    return found


OPTIONS = options()
FILES = ["rab.txt", "run one.txt", "sub"]


def names(dashes, prefix=""):
    return sorted(dashes + name for name in OPTIONS if name.startswith(prefix))


def cases():
    """Command lines, and what completes their last word."""
    yield "quintral -", names("-")
    yield "quintral --", names("--")
    yield "quintral -pro", names("-", "pro")
    yield "quintral --pro", names("--", "pro")
    yield "quintral -json -op", ["-open"]
    yield "quintral -product x --js", ["--json"]
    yield "quintral --record x -js", ["-json"]
    yield "quintral -x", []
    yield "quintral -parse ru", ["run one.txt"]
    yield "quintral --record=ru", ["run one.txt"]
    yield "quintral -json --password-file ra", ["rab.txt"]
    for name, argument in OPTIONS.items():
        if argument == "":
            yield f"quintral -{name}=", []
            continue
        expected = FILES if argument == "file" else []
        for form in ("-%s ", "--%s ", "-%s=", "--%s="):
            yield "quintral " + form % name, expected


def require(program):
    if shutil.which(program) is None:
        sys.exit(f"{program} is missing; ./check installs it")


def environment(home):
    return {"PATH": os.environ["PATH"], "HOME": home, "XDG_CONFIG_HOME": home, "TERM": "dumb",
            "LANG": "C.UTF-8", "INPUTRC": "/dev/null", "HISTFILE": "/dev/null"}


def without_noise(line, candidates):
    """The candidates, without the option before '=', quotes, and the slash of folders."""
    option = line.split()[-1].split("=")[0] + "=" if "=" in line else ""
    found = {text[len(option):] if text.startswith(option) else text for text in candidates}
    return sorted({text.rstrip("/").replace("\\", "") for text in found if text.strip()})


# Terminals

PROMPT = "@>"


def read_until(descriptor, mark, deadline):
    """Reads up to the next prompt after a text. Only when the prompt is there has the shell set
    the terminal up for its line editor: keys that come earlier are the kernel's."""
    output = b""
    while not re.search(re.escape(mark) + rb"\r*\n.*" + PROMPT.encode(), output, re.DOTALL):
        if not select.select([descriptor], [], [], max(0, deadline - time.monotonic()))[0]:
            raise AssertionError(f"the shell did not write {mark!r}, only {output!r}")
        try:
            output += os.read(descriptor, 4096)
        except OSError as error:
            raise AssertionError(f"the shell ended after {output!r}") from error
    return output


def type_into(shell, home, folder, steps):
    """Types into a shell on a terminal, and waits after each step for a line that ends with a
    text, and the prompt. Returns the output."""
    process, descriptor = pty.fork()
    if process == 0:
        os.chdir(folder)
        os.execvpe(shell[0], shell, environment(home))
    deadline = time.monotonic() + LIMIT
    try:
        output = b""
        for keys, mark in steps:
            os.write(descriptor, keys.encode())
            output += read_until(descriptor, mark.encode(), deadline)
        return output.decode(errors="replace")
    finally:
        os.kill(process, signal.SIGKILL)
        os.waitpid(process, 0)
        os.close(descriptor)


class Shell(unittest.TestCase):
    """A folder with two files and a folder, and a script that writes "== LINE" and then each
    candidate on a line, for every case."""

    def setUp(self):
        self.temporary = tempfile.TemporaryDirectory()
        self.addCleanup(self.temporary.cleanup)
        self.home = os.path.realpath(self.temporary.name)
        self.folder = os.path.join(self.home, "files")
        os.makedirs(os.path.join(self.folder, FILES[2]))
        for name in FILES[:2]:
            with open(os.path.join(self.folder, name), "w", encoding="utf-8"):
                pass

    def run_script(self, shell, script):
        result = subprocess.run([*shell, script], cwd=self.folder, env=environment(self.home),
                                capture_output=True, text=True, timeout=LIMIT)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout

    def type_into(self, shell, steps):
        return type_into(shell, self.home, self.folder, steps)

    def expect_cases(self, output):
        found = {}
        for block in output.split("== ")[1:]:
            line, *candidates = block.rstrip("\n").split("\n")
            found[line] = without_noise(line, candidates)
        for line, expected in cases():
            with self.subTest(line=line):
                self.assertEqual(found.get(line), expected)

    def expect_typed(self, output, typed):
        for word in typed:
            self.assertIn(f"<{word}>", output)


# What the user gets to see after a TAB, for a name with a space.
TYPED = (("quintral -parse ru", "run one.txt"),
         ("quintral -parse=ru", "-parse=run one.txt"),
         ("quintral --parse=ru", "--parse=run one.txt"),
         ("quintral --js", "--json"),
         ("quintral -proxy ru", "ru"))
SHOW = "quintral() { printf '<%s>' \"$@\"; echo END; }"
PROMPTS = f"PS1='{PROMPT}'"


def typed_steps(start):
    return [(start, "READY")] + [(line + "\t\n", "END") for line, _ in TYPED]


class Bash(Shell):
    LOAD = f". {FOLDER}/quintral.bash\n"

    def case(self, line, words):
        quoted = " ".join(f"'{word}'" for word in words)
        return (f"COMP_WORDS=({quoted}) COMP_CWORD={len(words) - 1}; _quintral\n"
                f"echo '== {line}'; printf '%s\\n' \"${{COMPREPLY[@]}}\"\n")

    def expect_all(self, load):
        """As bash calls the function by default: '=' is a word."""
        require("bash")
        script = load
        for line, _ in cases():
            words = re.sub(r"=$|=(?=\w)", " = ", line).split(" ")
            script += self.case(line, words[:-1] if line.endswith("=") else words)
        self.expect_cases(self.run_script(["bash", "--norc", "-c"], script))

    def test_completes(self):
        self.expect_all(self.LOAD)

    def test_completes_if_the_equals_sign_breaks_no_words(self):
        require("bash")
        script = self.LOAD + "".join(self.case(line, line.split(" ")) for line, _ in cases())
        self.expect_cases(self.run_script(["bash", "--norc", "-c"], script))

    def test_completes_when_the_package_loads_it(self):
        if not os.path.exists(PACKAGE):
            sys.exit("bash-completion is missing; ./check installs it")
        folder = os.path.join(self.home, "user", "completions")
        os.makedirs(folder)
        shutil.copy(os.path.join(FOLDER, "quintral.bash"), os.path.join(folder, "quintral"))
        self.expect_all(f"BASH_COMPLETION_USER_DIR={self.home}/user; . {PACKAGE}\n"
                        "_completion_loader quintral\n"
                        "complete -p quintral >/dev/null || exit 1\n")

    def test_completes_after_a_tab(self):
        require("bash")
        start = self.LOAD.strip() + f"; {PROMPTS}; {SHOW}; echo REA''DY\n"
        output = self.type_into(["bash", "--norc", "--noprofile", "-i"], typed_steps(start))
        self.expect_typed(output, [word for _, word in TYPED])


class Fish(Shell):
    def test_completes(self):
        require("fish")
        script = f"source {FOLDER}/quintral.fish\n"
        for line, _ in cases():
            script += f"echo '== {line}'; complete -C '{line}' | string replace -r '\\t.*' ''\n"
        output = self.run_script(["fish", "--no-config", "-c"], script + "true\n")
        # After one dash fish shows both forms.
        both = re.sub(r"\n--.*", "", output[:output.index("== quintral --")])
        self.expect_cases(self.offered(both + output[output.index("== quintral --"):]))

    def offered(self, output):
        """What fish offers after a TAB. Version 4 lists names that contain the typed letters, too,
        but offers them only if no name begins with the typed word."""
        kept = []
        for text in output.split("\n"):
            if text.startswith("== "):
                word = text.split(" ")[-1]
            if text.startswith(("== ", word)):
                kept.append(text)
        return "\n".join(kept)


class Zsh(Shell):
    START = (f"fpath=({FOLDER} $fpath); autoload -Uz compinit; compinit -u -D; "
             f"unset zle_bracketed_paste; unsetopt auto_menu; LISTMAX=1000; {PROMPTS}; {SHOW}\n")

    # Writes what the completion system is given and matches what was typed.
    CAPTURE = """
compadd() {
  if [[ ${@[1,(i)(-|--)]} != *-(O|A|D)\\ * ]]; then
    local -a matches
    builtin compadd -A matches "$@"
    print -rl -- $matches >>~/found
  fi
  builtin compadd "$@"
}
"""

    def begin(self, text):
        require("zsh")
        with open(os.path.join(self.home, "start"), "w", encoding="utf-8") as stream:
            stream.write(text)
        return ". ~/start; print REA''DY\n"

    def test_completes(self):
        steps = [(self.begin(self.START + self.CAPTURE), "READY")]
        for number, (line, _) in enumerate(cases()):
            steps.append((f"print -r '== {line}' >>~/found; print A''{number}.\n", f"A{number}."))
            steps.append((f"{line}\t\x15print B''{number}.\n", f"B{number}."))
        self.type_into(["zsh", "-f", "-i"], steps)
        with open(os.path.join(self.home, "found"), encoding="utf-8") as stream:
            found = stream.read()
        self.expect_cases(found)

    def test_completes_after_a_tab(self):
        start = self.begin(self.START)
        output = self.type_into(["zsh", "-f", "-i"], typed_steps(start))
        self.expect_typed(output, [word for _, word in TYPED])


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]], verbosity=2)
