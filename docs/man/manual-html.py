"""Writes the manual pages as HTML, with an index.
Usage: manual-html.py FOLDER STYLESHEET PAGE..."""

import html
import os
import re
import shutil
import subprocess
import sys


def file_name(page):
    return os.path.basename(page) + ".html"


def own_links(text, names):
    """Keeps the links between the pages. Those to pages of the system become plain text."""
    def keep(link):
        target = link[1].split("#")[0]
        return link[0] if target == "" or target in names else link[2]
    return re.sub(r'<a class="Xr" href="([^"]*)">(.*?)</a>', keep, text)


def page_as_html(page, style, names):
    output = f"style={style},man=%N.%S.html"
    text = subprocess.run(["mandoc", "-T", "html", "-O", output, page], check=True,
                          capture_output=True, text=True).stdout
    navigation = '<p><a href="index.html">All pages</a></p>\n'
    viewport = '  <meta name="viewport" content="width=device-width, initial-scale=1"/>\n'
    text = text.replace("</head>", viewport + "</head>", 1).replace("<html>", '<html lang="en">', 1)
    return own_links(text, names).replace("<body>\n", "<body>\n" + navigation, 1)


def index_line(page):
    with open(page, encoding="utf-8") as stream:
        subject = re.search(r"^\.Nd (.*)$", stream.read(), re.MULTILINE)[1]
    name, section = os.path.basename(page).rsplit(".", 1)
    link = f'<a href="{file_name(page)}">{name}({section})</a>'
    return f"<dt>{link}</dt><dd>{html.escape(subject)}</dd>\n"


def index(pages, style):
    lines = "".join(index_line(page) for page in pages)
    return ('<!DOCTYPE html>\n<html lang="en">\n<head>\n<meta charset="utf-8"/>\n'
            '<meta name="viewport" content="width=device-width, initial-scale=1"/>\n'
            f'<link rel="stylesheet" href="{style}"/>\n<title>Quintral manual</title>\n</head>\n'
            f"<body>\n<h1>Quintral manual</h1>\n<dl>\n{lines}</dl>\n</body>\n</html>\n")


def write(folder, name, text):
    with open(os.path.join(folder, name), "w", encoding="utf-8") as stream:
        stream.write(text)


def main(folder, stylesheet, *pages):
    if shutil.which("mandoc") is None:
        sys.exit("mandoc is missing: install its package for the HTML version of the manual")
    os.makedirs(folder, exist_ok=True)
    shutil.copy(stylesheet, folder)
    style = os.path.basename(stylesheet)
    names = {file_name(page) for page in pages}
    for page in pages:
        write(folder, file_name(page), page_as_html(page, style, names))
    write(folder, "index.html", index(pages, style))


main(*sys.argv[1:])
