"""The manual pages as mandoc judges them. Usage: manual-lint.py FOLDER"""

import os
import re
import shutil
import subprocess
import sys
import tempfile

FOLDER = sys.argv[1]

# Pages of the system that ours refer to, and that need not be installed.
SYSTEM_PAGES = ("abort.3", "ferror.3", "fopen.3", "free.3", "printf.3", "rmdir.2", "strcmp.3",
                "unlink.2", "vprintf.3")


def copy_pages(root):
    """Copies the pages to where mandoc looks for the ones that others refer to. Returns them."""
    pages = sorted(name for name in os.listdir(FOLDER) if re.search(r"\.[1-9]$", name))
    for name in pages:
        section = os.path.join(root, "man" + name[-1])
        os.makedirs(section, exist_ok=True)
        shutil.copy(os.path.join(FOLDER, name), section)
    for name in SYSTEM_PAGES:
        section = os.path.join(root, "man" + name[-1])
        os.makedirs(section, exist_ok=True)
        with open(os.path.join(section, name), "w", encoding="utf-8"):
            pass
    return pages


def findings(root, pages):
    """What mandoc says, without its remark that there is no index of these folders."""
    environment = dict(os.environ, MANPATH=root, LC_ALL="C.UTF-8")
    paths = [os.path.join(root, "man" + name[-1], name) for name in pages]
    result = subprocess.run(["mandoc", "-T", "lint", "-W", "style", *paths], env=environment,
                            capture_output=True, text=True, timeout=60)
    lines = (result.stdout + result.stderr).splitlines()
    return [line for line in lines if "outdated mandoc.db" not in line]


def main():
    if shutil.which("mandoc") is None:
        sys.exit("mandoc is missing; ./check installs it")
    with tempfile.TemporaryDirectory() as root:
        pages = copy_pages(root)
        found = findings(root, pages)
    print("\n".join(found))
    if not pages:
        sys.exit(f"no page in {FOLDER}")
    return 1 if found else 0


sys.exit(main())
