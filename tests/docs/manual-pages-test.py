"""The manual pages of section 3: they declare what the headers declare, describe every function,
and show examples that run.
Usage: manual-pages-test.py SOURCE-FOLDER EXAMPLES-FOLDER SAMPLE-SERVICE [TEST...]"""

import http.server
import os
import re
import subprocess
import sys
import tempfile
import threading
import unittest

import headers

ROOT, EXAMPLES, SERVICE = [os.path.abspath(path) for path in sys.argv[1:4]]
PAGES = os.path.join(ROOT, "docs", "man")

# Headers without functions, and the pages that cover them.
COVERED = {
    "support/c-utils.h": "includes the headers of three pages",
    "support/format-attribute.h": "a macro for declarations",
    "platform/file-ref.h": "the record of quintral-platform.3",
}

# What looks like a function and is a variable or an argument.
OTHER_NAMES = {"web_address", "web_cancel_requested", "web_service_host"}


def read(path):
    with open(path, encoding="utf-8") as stream:
        return stream.read()


def page_names():
    return sorted(name for name in os.listdir(PAGES) if name.endswith(".3"))


def page(name):
    return read(os.path.join(PAGES, name))


def section(text, title):
    found = re.search(rf"^\.Sh {title}\n(.*?)(?=^\.Sh |\Z)", text, re.DOTALL | re.MULTILINE)
    return found[1] if found else ""


def header_of(text):
    return re.search(r"^\.In quintral/(\S+)$", section(text, "SYNOPSIS"), re.MULTILINE)[1]


def escaped(text):
    """Text as a literal block shows it: roff would change these characters."""
    for character, escape in (("\\", "\\e"), ("'", "\\(aq"), ("-", "\\-"), ("`", "\\(ga"),
                              ("^", "\\(ha"), ("~", "\\(ti")):
        text = text.replace(character, escape)
    return re.sub(r"^([.])", r"\\&\1", text, flags=re.MULTILINE)


def unescaped(text):
    text = re.sub(r"^\\&", "", text, flags=re.MULTILINE)
    for character, escape in (("'", "\\(aq"), ("-", "\\-"), ("`", "\\(ga"), ("^", "\\(ha"),
                              ("~", "\\(ti"), ("\\", "\\e")):
        text = text.replace(escape, character)
    return text


def literal_blocks(text):
    return re.findall(r"^\.Bd -literal[^\n]*\n(.*?)^\.Ed$", text, re.DOTALL | re.MULTILINE)


def functions_of_synopsis(text):
    """The declarations that .Ft, .Fo, .Fa and .Fc give."""
    found = []
    for result, name, arguments in re.findall(
            r"^\.Ft (.*)\n\.Fo (\w+)\n((?:\.Fa .*\n)*)\.Fc$", text, re.MULTILINE):
        listed = ", ".join(argument.strip('"') for argument in
                           re.findall(r"^\.Fa (.*)$", arguments, re.MULTILINE))
        result = result.strip('"')
        space = "" if result.endswith("*") else " "
        found.append(f"{result}{space}{name}({listed});")
    return found


def types_of_synopsis(text):
    lines = "".join(unescaped(block) for block in literal_blocks(text)).split("\n")
    if lines[0] != "using namespace quintral;":
        raise AssertionError("a synopsis begins with: using namespace quintral;")
    return " ".join(" ".join(lines[1:]).split())


class Pages(unittest.TestCase):
    def each_page(self):
        self.assertGreater(len(page_names()), 10)
        for name in page_names():
            yield name, page(name)

    def test_every_public_header_has_one_page(self):
        described = sorted(header_of(text) for _, text in self.each_page())
        expected = [name for name in headers.public_headers(ROOT) if name not in COVERED]
        self.assertEqual(described, sorted(expected))
        for name in COVERED:
            listed = headers.declarations(os.path.join(ROOT, name))
            self.assertEqual([one for one in listed if headers.is_function(one)], [])

    def test_the_synopsis_declares_what_the_header_declares(self):
        for name, text in self.each_page():
            listed = headers.declarations(os.path.join(ROOT, header_of(text)))
            functions = [one for one in listed if headers.is_function(one)]
            types = " ".join(one for one in listed if not headers.is_function(one))
            synopsis = section(text, "SYNOPSIS")
            self.assertEqual(functions_of_synopsis(synopsis), functions, name)
            self.assertEqual(types_of_synopsis(synopsis), types, name)

    def test_each_function_has_one_entry_and_is_named_at_the_top(self):
        for name, text in self.each_page():
            listed = headers.declarations(os.path.join(ROOT, header_of(text)))
            names = [headers.function_name(one) for one in listed if headers.is_function(one)]
            entries = re.findall(r"^\.It Fn (\w+)$", section(text, "DESCRIPTION"), re.MULTILINE)
            self.assertEqual(sorted(entries), sorted(names), name)
            top = re.findall(r"^\.Nm (\w+)", section(text, "NAME"), re.MULTILINE)
            self.assertEqual([one for one in top if one.islower()], names, name)

    def test_no_page_names_a_function_that_is_not_there(self):
        known = {"QUINTRAL_ASSERT"}
        for header in headers.public_headers(ROOT):
            for one in headers.declarations(os.path.join(ROOT, header)):
                if headers.is_function(one):
                    known.add(headers.function_name(one))
        for name, text in self.each_page():
            named = set(re.findall(r"\bF[no] (\w+)", text))
            named |= set(re.findall(r"\b(?:web|platform|string_buffer)_\w+", text))
            self.assertEqual(named - known - OTHER_NAMES, set(), name)

    def test_the_build_lists_every_page(self):
        listed = re.findall(r"^  (quintral\S*\.[13])\b", page("CMakeLists.txt"), re.MULTILINE)
        self.assertEqual(sorted(listed), sorted(["quintral.1", *page_names()]))

    def test_the_sections_are_there(self):
        for name, text in self.each_page():
            for title in ("LIBRARY", "RETURN VALUES", "EXAMPLES"):
                self.assertNotEqual(section(text, title), "", f"{name}: {title}")


class Hello(http.server.BaseHTTPRequestHandler):
    """What the example of a transaction asks."""

    def do_GET(self):
        self.send_response(200)
        self.end_headers()
        self.wfile.write(b"Hello\n")

    def log_message(self, *_):
        pass


class Examples(unittest.TestCase):
    def sources(self):
        folder = os.path.join(ROOT, "examples", "manual")
        return sorted(name[:-4] for name in os.listdir(folder) if name.endswith(".cpp"))

    def start_service(self):
        products = os.path.join(ROOT, "examples", "sample-products.txt")
        process = subprocess.Popen([SERVICE, products], stdout=subprocess.PIPE,
                                   stderr=subprocess.DEVNULL, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.terminate)
        return process.stdout.readline().split()[-1]

    def start_page(self):
        server = http.server.HTTPServer(("127.0.0.1", 0), Hello)
        thread = threading.Thread(target=server.serve_forever)
        thread.start()
        self.addCleanup(thread.join)
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        return f"http://127.0.0.1:{server.server_port}/"

    def test_each_page_shows_its_example_and_what_it_prints(self):
        self.assertEqual(["quintral-" + name + ".3" for name in self.sources()], page_names())
        service = self.start_service()
        arguments = {"transaction": [self.start_page()], "update-check": [service],
                     "version-update": [service]}
        environment = {"PATH": os.environ["PATH"]}
        for name in self.sources():
            with self.subTest(example=name), tempfile.TemporaryDirectory() as folder:
                shown = literal_blocks(section(page(f"quintral-{name}.3"), "EXAMPLES"))
                source = read(os.path.join(ROOT, "examples", "manual", name + ".cpp"))
                self.assertEqual(shown[0], escaped(source))
                run = subprocess.run([os.path.join(EXAMPLES, name), *arguments.get(name, [])],
                                     cwd=folder, env=environment, capture_output=True, text=True,
                                     timeout=30)
                self.assertEqual(run.returncode, 0)
                self.assertEqual(unescaped(shown[1]), run.stdout)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
