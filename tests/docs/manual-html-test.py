"""The HTML version of the manual: every link leads somewhere, in light and dark it is readable.
Usage: manual-html-test.py MANUAL-FOLDER [TEST...]"""

import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from html.parser import HTMLParser

FOLDER = os.path.abspath(sys.argv[1])


class Links(HTMLParser):
    """Collects the links, the anchors and the text of a page."""

    def __init__(self):
        super().__init__()
        self.links, self.anchors, self.text = [], set(), ""

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        if "href" in attributes:
            self.links.append(attributes["href"])
        if "id" in attributes:
            self.anchors.add(attributes["id"])

    def handle_data(self, data):
        self.text += data


def brightness(colour):
    """The relative luminance of #rrggbb as the accessibility guidelines of the web define it."""
    values = [int(colour[at:at + 2], 16) / 255 for at in (1, 3, 5)]
    linear = [value / 12.92 if value <= 0.04045 else ((value + 0.055) / 1.055) ** 2.4
              for value in values]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


def contrast(one, other):
    high, low = sorted((brightness(one), brightness(other)), reverse=True)
    return (high + 0.05) / (low + 0.05)


class ManualHtml(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if shutil.which("mandoc") is None:
            sys.exit("mandoc is missing; ./check installs it")
        cls.temporary = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.temporary.cleanup)
        cls.sources = sorted(glob.glob(FOLDER + "/*.[1-9]"))
        subprocess.run([sys.executable, FOLDER + "/manual-html.py", cls.temporary.name,
                        FOLDER + "/manual.css", *cls.sources], check=True, timeout=60)
        cls.pages = {}
        for path in glob.glob(cls.temporary.name + "/*.html"):
            cls.pages[os.path.basename(path)] = Links()
            with open(path, encoding="utf-8") as stream:
                cls.pages[os.path.basename(path)].feed(stream.read())

    def test_there_is_a_page_for_each_source_and_an_index_of_them(self):
        expected = {os.path.basename(path) + ".html" for path in self.sources}
        self.assertEqual(set(self.pages), expected | {"index.html"})
        self.assertEqual(set(self.pages["index.html"].links), expected | {"manual.css"})

    def test_every_link_leads_to_a_page_and_an_anchor(self):
        for name, page in self.pages.items():
            for link in page.links:
                target, _, anchor = link.partition("#")
                if target == "manual.css":
                    continue
                self.assertIn(target or name, self.pages, f"{link} in {name}")
                if anchor:
                    self.assertIn(anchor, self.pages[target or name].anchors, f"{link} in {name}")

    def test_pages_refer_to_each_other(self):
        self.assertIn("quintral-update-check.3.html", self.pages["quintral.1.html"].links)
        self.assertIn("quintral.1.html", self.pages["quintral-update-check.3.html"].links)

    def test_references_to_pages_of_the_system_are_text(self):
        self.assertIn("fopen(3)", self.pages["quintral-files.3.html"].text)

    def test_colours_are_readable_in_light_and_dark(self):
        with open(FOLDER + "/manual.css", encoding="utf-8") as stream:
            rules = re.findall(r":root \{(.*?)\}", stream.read(), re.DOTALL)
        self.assertEqual(len(rules), 2)
        for rule in rules:
            colours = dict(re.findall(r"--(\w+): (#[0-9a-f]{6});", rule))
            for text in ("text", "faint", "link"):
                for paper in ("paper", "shade"):
                    self.assertGreater(contrast(colours[text], colours[paper]), 4.5)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]], verbosity=2)
