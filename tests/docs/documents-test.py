"""Runs the commands of the documents and compares what they print with what is shown there.
Usage: documents-test.py SOURCE-FOLDER UTILITY EXAMPLES-FOLDER [TEST...]

A block of a document, indented by four or between fences, is one of these:
- a session: lines that begin with "$ " are run by sh in a scratch folder in which a sample service
  answers, and the lines up to the next are compared with the output of both streams;
- commands: each line that begins with "quintral " is run and must succeed;
- a block of the table BLOCKS, which is compared in another way or not run, and why.
Any other block fails the test, and so does a row of the table without a block."""

import glob
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT, UTILITY, EXAMPLES = [os.path.abspath(path) for path in sys.argv[1:4]]
PAGES = ["README.md", "CONTRIBUTING.md", *sorted(glob.glob("docs/*.md", root_dir=ROOT))]

# The address that the documents show for a service on this machine.
SHOWN_ADDRESS = "127.0.0.1:40080"

LIMIT = 30  # seconds for one command


def read(name):
    with open(os.path.join(ROOT, name), encoding="utf-8") as stream:
        return stream.read()


# Blocks

def blocks(page):
    """Yields the blocks of a page as texts without their indentation."""
    fenced, current = False, []
    for line in [*read(page).split("\n"), "the end"]:
        if line.startswith("```"):
            fenced = not fenced
            if not fenced:
                yield block_of(current)
            current = []
        elif fenced or line.startswith("    "):
            current.append(line if fenced else line[4:])
        elif current and line == "":
            current.append("")
        elif current:
            yield block_of(current)
            current = []


def block_of(lines):
    return "\n".join(lines).rstrip("\n") + "\n"


def first_line(block):
    return block.split("\n")[0]


def is_session(block):
    return block.startswith("$ ")


def is_commands(block):
    return block.startswith("quintral ")


def session_steps(block):
    """The commands of a session, each with the output that is shown."""
    joined = block.replace("\\\n", "\\\n\0")
    steps = []
    for line in joined.split("\n")[:-1]:
        if line.startswith("$ "):
            steps.append([line[2:], ""])
        elif line.startswith("\0"):
            steps[-1][0] += "\n" + line[1:]
        else:
            steps[-1][1] += line + "\n"
    return steps


# Blocks that are neither sessions nor commands. Each is compared by a function of Documents, or not
# run for the reason given.

def not_run(reason):
    return None, reason


BLOCKS = {
    ("README.md", "./demo     builds the utility, starts a sample update service on a free port of "
     "this machine,"): ("programs", "builds the project"),
    ("README.md", "find_package(quintral 1 REQUIRED)"): ("consumer", "tests/install builds one"),
    ("CONTRIBUTING.md", "cmake --workflow --preset dev      configure, build, test (warnings are "
     "errors)"): ("programs", "builds and tests the project"),
    ("docs/building.md", "cmake -S . -B build/mac -DCMAKE_BUILD_TYPE=Release "
     "-DQUINTRAL_BUILD_TESTS=OFF"): ("programs", "needs a Mac"),
    ("docs/performance.md", "bench/run                measures everything and writes this page"):
        ("programs", "takes minutes on a quiet machine"),
    ("docs/quintral.md", '{"status":"answered","exit_status":0,"newer":true,"version":"5.2",'
     '"url":"http://…",'): ("json_keys", "shortened"),
    ("docs/diagnostics.md", "#include <quintral/support/error.h>"): not_run("part of a plug-in"),
    ("docs/diagnostics.md", "set_message_handler(test_message_handler);"):
        ("diagnostics_source", "part of examples/diagnostics.cpp"),
    ("docs/diagnostics.md", "QUINTRALTESTWarning: low disk^G"):
        ("diagnostics_output", "part of the output of examples/diagnostics"),
    ("docs/diagnostics.md", "Error: A Quintral internal error has occurred. Please save your work "
     "soon and restart.^G"): ("assertion_output", "the output of a failed assertion"),
    ("docs/diagnostics.md", "int entry_point(int width)   // called by the host"):
        not_run("part of a plug-in"),
    ("docs/diagnostics.md", "[host] Note: The layer is now 640 pixels wide."):
        ("diagnostics_output", "the output of examples/diagnostics"),
    ("docs/diagnostics.md", "Error: Close file failed.^G"):
        ("diagnostics_errors", "the errors of examples/diagnostics"),
}


# The environment in which commands run

class Service:
    """The sample update service, until it is closed. Its address is as long as the one shown,
    because a record states the length of a request that contains it."""

    def __init__(self):
        for _ in range(50):
            self.start()
            if len(self.address) == len(SHOWN_ADDRESS):
                return
            self.close()
        sys.exit(f"no free port gives an address as long as {SHOWN_ADDRESS}")

    def start(self):
        products = os.path.join(ROOT, "examples", "sample-products.txt")
        program = os.path.join(EXAMPLES, "sample-update-service")
        self.process = subprocess.Popen([program, products], stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
        self.address = self.process.stdout.readline().split()[-1]

    def close(self):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()


class Scratch:
    """A folder to run commands in, with the utility in its PATH. The default service is reached
    through the sample service as a proxy, so that commands need no -service."""

    def __init__(self, service):
        self.temporary = tempfile.TemporaryDirectory()
        self.service = service
        self.folder = os.path.join(self.temporary.name, "work")
        programs = os.path.join(self.temporary.name, "bin")
        os.mkdir(self.folder)
        os.mkdir(programs)
        os.symlink(UTILITY, os.path.join(programs, "quintral"))
        self.environment = {"PATH": programs + ":" + os.environ["PATH"], "HOME": self.folder,
                            "LC_ALL": "C.UTF-8", "http_proxy": service.address,
                            "no_proxy": "127.0.0.1"}

    def run(self, command):
        """Returns the status and the output, which has the address that the documents show."""
        real = command.replace(SHOWN_ADDRESS, self.service.address)
        result = subprocess.run(["sh", "-c", real], cwd=self.folder, env=self.environment,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, timeout=LIMIT)
        return result.returncode, result.stdout.replace(self.service.address, SHOWN_ADDRESS)


def run_example(name):
    result = subprocess.run([os.path.join(EXAMPLES, name)], capture_output=True, text=True,
                            timeout=LIMIT)
    return [text.replace("\a", "^G") for text in (result.stdout, result.stderr)]


class Documents(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.service = Service()
        cls.addClassCleanup(cls.service.close)

    def scratch(self):
        made = Scratch(self.service)
        self.addCleanup(made.temporary.cleanup)
        return made

    def test_sessions_print_what_is_shown(self):
        count = 0
        for page in PAGES:
            scratch = self.scratch()
            for block in filter(is_session, blocks(page)):
                for command, shown in session_steps(block):
                    with self.subTest(page=page, command=command):
                        count += 1
                        output = scratch.run(command)[1]
                        # An empty line at the end of a block cannot be seen.
                        self.assertEqual(output.rstrip("\n"), shown.rstrip("\n"))
        self.assertGreater(count, 2)

    def test_commands_succeed(self):
        count = 0
        for page in PAGES:
            scratch = self.scratch()
            for block in filter(is_commands, blocks(page)):
                for command in block.rstrip("\n").split("\n"):
                    with self.subTest(page=page, command=command):
                        self.assertTrue(command.startswith("quintral "), command)
                        status, output = scratch.run(command)
                        self.assertEqual(status, 0, output)
                        count += 1
        self.assertGreater(count, 0)

    def test_every_other_block_is_in_the_table(self):
        left = set(BLOCKS)
        for page in PAGES:
            for block in blocks(page):
                if is_session(block) or is_commands(block):
                    continue
                key = (page, first_line(block))
                self.assertIn(key, BLOCKS, "neither run nor compared nor in the table BLOCKS")
                left.discard(key)
        self.assertEqual(left, set(), "rows of the table BLOCKS without a block")

    def test_blocks_of_the_table_are_as_shown(self):
        for page in PAGES:
            for block in blocks(page):
                compare, reason = BLOCKS.get((page, first_line(block)), (None, ""))
                if compare is not None:
                    with self.subTest(page=page, block=first_line(block), reason=reason):
                        getattr(self, "compare_" + compare)(block)

    # Comparisons of the table

    def compare_programs(self, block):
        """Commands that are not run: each is a program of the project or of the build, and a
        preset that is named exists."""
        for line in block.strip("\n").split("\n"):
            if line.startswith(" "):
                continue  # goes on
            program = line.split()[0]
            known = program in ("cmake", "clang-format") or os.access(os.path.join(ROOT, program),
                                                                      os.X_OK)
            self.assertTrue(known, program)
            for preset in re.findall(r"--preset (\S+)", line):
                self.assertIn(f'"name": "{preset}"', read("CMakePresets.json"))

    def compare_consumer(self, block):
        consumer = read("tests/install/consumer/CMakeLists.txt")
        self.assertIn(first_line(block), consumer)
        for header in re.findall(r"#include <quintral/(.*)>", block):
            self.assertTrue(os.path.exists(os.path.join(ROOT, header)), header)
        for target in re.findall(r"quintral::\w+", block):
            self.assertIn(target, consumer)

    def compare_json_keys(self, block):
        shown = json.loads(block)
        status, output = self.scratch().run("quintral -json -service " + SHOWN_ADDRESS +
                                            " -product 'Quintral Shapes' -product-version 5.1")
        real = json.loads(output)
        self.assertEqual(status, 0)
        self.assertEqual(list(shown), list(real))
        shortened = ("url", "button", "service")
        for key in set(real) - set(shortened):
            self.assertEqual(shown[key], real[key], key)

    def compare_diagnostics_source(self, block):
        source = re.sub(r"\s+", " ", read("examples/diagnostics.cpp"))
        self.assertIn(re.sub(r"\s+", " ", block).strip(), source)

    def compare_diagnostics_output(self, block):
        self.assertIn(block, run_example("diagnostics")[0])

    def compare_diagnostics_errors(self, block):
        self.assertEqual(block, run_example("diagnostics")[1])

    def compare_assertion_output(self, block):
        self.assertEqual(block, run_example("manual/error")[1])


class ManualPage(unittest.TestCase):
    """The examples of quintral.1, with the sample service as the proxy that they name."""

    def setUp(self):
        if shutil.which("jq") is None:
            sys.exit("jq is missing; ./check installs it")
        service = Service()
        self.addCleanup(service.close)
        self.scratch = Scratch(service)
        self.addCleanup(self.scratch.temporary.cleanup)
        with open(os.path.join(self.scratch.folder, "secret.txt"), "w", encoding="utf-8") as stream:
            stream.write("secret\n")
        text = read("docs/man/quintral.1").split(".Sh EXAMPLES\n")[1].split("\n.Sh ")[0]
        self.examples = text.replace("\\(dq", '"').replace("\\(aq", "'")

    def test_commands_succeed(self):
        commands = re.findall(r"^(?:\.Dl )?\$ (.*)$", self.examples, re.MULTILINE)
        self.assertGreater(len(commands), 5)
        for command in commands:
            with self.subTest(command=command):
                status, output = self.scratch.run(command.replace("cache:3128", SHOWN_ADDRESS))
                self.assertEqual(status, 0, output)
                self.assertNotEqual(output, "")

    def test_the_script_finds_an_update(self):
        script = re.search(r"\n(quintral -quiet.*?)\.Ed", self.examples, re.DOTALL)[1]
        self.assertEqual(self.scratch.run(script), (0, "update\n"))


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
