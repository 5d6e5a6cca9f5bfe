"""The declarations of the public headers, as the manual pages show them."""

import os
import re

LIBRARIES = ("support", "cmdline", "web", "platform")


def public_headers(root):
    """The headers that the libraries install, such as "support/error.h"."""
    found = []
    for library in LIBRARIES:
        with open(os.path.join(root, library, "CMakeLists.txt"), encoding="utf-8") as stream:
            listed = re.search(r"\n  HEADERS\s+(.*?)(?=\n  [A-Z_]+\b|\))", stream.read(), re.DOTALL)
        found += [f"{library}/{name}" for name in listed[1].split() if name.endswith(".h")]
    return found


def without_comments(text):
    text = re.sub(r"//[^\n]*", "", text)
    return re.sub(r"^#(?:[^\n]*\\\n)*[^\n]*", "", text, flags=re.MULTILINE)


def declarations(path):
    """The declarations of a header's namespace, each on one line with single spaces."""
    with open(path, encoding="utf-8") as stream:
        text = without_comments(stream.read())
    if "namespace quintral {" not in text:
        return []
    body = text.split("namespace quintral {", 1)[1].rsplit("}", 1)[0]
    found, current, depth = [], "", 0
    for character in body:
        current += character
        depth += {"{": 1, "}": -1}.get(character, 0)
        if character == ";" and depth == 0:
            found.append(plain(current))
            current = ""
    return found


def plain(declaration):
    """One declaration without attributes, which the pages do not show."""
    declaration = re.sub(r"\[\[\w+\]\]|QUINTRAL_PRINTF\(\d, \d\)", "", declaration)
    declaration = " ".join(declaration.split())
    return declaration.replace(" ;", ";").replace("( ", "(")


def is_function(declaration):
    return re.match(r"(struct|class|enum|using)\b", declaration) is None and "(" in declaration


def function_name(declaration):
    return re.search(r"(\w+)\(", declaration)[1]
