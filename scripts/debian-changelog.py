#!/usr/bin/env python3
"""Prints CHANGELOG.md as the changelog of the Debian packages.

Usage: scripts/debian-changelog.py VERSION TIME

VERSION is the version that is built, and must be the newest of CHANGELOG.md. TIME, in seconds since
1970, stands for its date there while that is "not yet released".
"""
import datetime
import re
import sys
import textwrap

MAINTAINER = "Quintral maintainers <maintainers@quintral.example>"
HEADING = re.compile(r"## (\S+), (not yet released|\d{4}-\d\d-\d\d)")


def entries(text):
    """Yields version, date and changes of each heading, newest first."""
    for part in re.split(r"^(?=## )", text, flags=re.MULTILINE)[1:]:
        heading, _, body = part.partition("\n")
        found = HEADING.fullmatch(heading)
        if not found:
            sys.exit(f"CHANGELOG.md: '{heading}' is not '## VERSION, DATE'")
        yield found[1], found[2], list(paragraphs(body))


def paragraphs(body):
    """Yields each item of a list and each other paragraph, on one line."""
    for part in re.split(r"^- |\n\n", body, flags=re.MULTILINE):
        if part.strip():
            yield " ".join(part.split())


def date_line(date, time):
    if date == "not yet released":
        moment = datetime.datetime.fromtimestamp(time, datetime.timezone.utc)
    else:
        moment = datetime.datetime.fromisoformat(date + "T00:00:00+00:00")
    days = ("Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun")
    months = ("Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec")
    return (f"{days[moment.weekday()]}, {moment.day:02} {months[moment.month - 1]} {moment.year} "
            f"{moment:%H:%M:%S} +0000")


def main():
    version, time = sys.argv[1], int(sys.argv[2])
    with open("CHANGELOG.md", encoding="utf-8") as stream:
        listed = list(entries(stream.read()))
    if not listed or listed[0][0] != version:
        sys.exit(f"CHANGELOG.md does not begin with the version {version}")
    for number, date, changes in listed:
        print(f"quintral ({number}) unstable; urgency=medium\n")
        for change in changes:
            print(textwrap.fill(change, 79, initial_indent="  * ", subsequent_indent="    ",
                                break_long_words=False, break_on_hyphens=False))
        print(f"\n -- {MAINTAINER}  {date_line(date, time)}\n")


main()
