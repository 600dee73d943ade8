#!/usr/bin/python3
"""log_messages_test SOURCE_TREE: docs/log-messages.md has every log text of the daemon, and no other.

A log text is a string literal in the rooms below that contains a space and is not passed to a function
that logs nothing. Its level is known if the call that logs it contains it, or logs a member that is
initialised with it by name. The page lists numbered failures by their numbers.
"""
import pathlib
import re
import sys

ROOMS = ("daemon", "daemon/base", "files", "agent", "supervisor")
NO_TEXTS = ("collection_types.cpp",)  # names of the types
NO_CODE = re.compile(r'("(?:\\.|[^"\\])*")|//[^\n]*|^\s*#.*$', re.M)  # comments, directives
NO_LOG = re.compile(r"\b(?:static_assert|fprintf|snprintf|fputs)\([^;]*;")
LOG = re.compile(r"\blog_(debug|warning)\(([^;]*);")
LITERAL = re.compile(r'"((?:\\.|[^"\\])*)"(?:\s*"((?:\\.|[^"\\])*)")*')


def texts(code):
    """The literals of a piece of code, adjacent ones joined, without line ends."""
    for found in LITERAL.finditer(code):
        text = "".join(re.findall(r'"((?:\\.|[^"\\])*)"', found[0])).replace("\\n", "")
        if " " in text and re.search("[a-z]", text):
            yield text


def read_sources(tree):
    """({text: known levels}, {text with %d: its numbers})."""
    levels, numbers, member_levels, named = {}, {}, {}, []
    for path in sorted(file for room in ROOMS for file in (tree / "src" / room).glob("*.*")):
        if path.name in NO_TEXTS:
            continue
        code = NO_LOG.sub("", NO_CODE.sub(lambda found: found[1] or "", path.read_text()))
        for text in texts(code):
            levels.setdefault(text, set())
            if "Error %d" in text:
                numbers[text] = {int(number) for call in re.findall(r"\bfail\(([^;]*);", code)
                                 for number in re.findall(r"\b\d+\b", LITERAL.sub("", call))}
        for level, arguments in LOG.findall(code):
            for text in texts(arguments):
                levels[text].add(level)
            for member in re.findall(r"\.(\w+)", LITERAL.sub("", arguments)):
                member_levels.setdefault(member, set()).add(level)
        named += re.findall(r'\.(\w+) = "([^"]*)"', code)
    for member, text in named:
        if text in levels:
            levels[text] |= member_levels.get(member, set())
    return levels, numbers


def read_page(path):
    """{text: (levels, meaning)} from the tables of the page; two rooms may share a text."""
    rows = {}
    for line in path.read_text().splitlines():
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if line.startswith("| `") and len(cells) == 4:
            for text in re.findall(r"`([^`]*)`", cells[0]):
                levels, meaning = rows.get(text, (set(), ""))
                rows[text] = (levels | set(cells[1].split(", ")), meaning + cells[2])
    return rows


def main():
    tree = pathlib.Path(sys.argv[1])
    levels, numbers = read_sources(tree)
    page = read_page(tree / "docs/log-messages.md")
    faults = [f"not on the page: {text}" for text in levels.keys() - page.keys()]
    faults += [f"not in the sources: {text}" for text in page.keys() - levels.keys()]
    for text in levels.keys() & page.keys():
        told, meaning = page[text]
        if not told <= {"debug", "warning"} or (levels[text] and levels[text] != told):
            faults.append(f"level is {levels[text]}, page says {told}: {text}")
        told_numbers = {int(number) for number in re.findall(r"\b(\d+):", meaning)}
        if numbers.get(text, told_numbers) != told_numbers:
            faults.append(f"numbers are {numbers[text]}, page says {told_numbers}: {text}")
    print("\n".join(sorted(faults)) or f"{len(page)} texts")
    return 1 if faults or len(levels) < 100 else 0


if __name__ == "__main__":
    sys.exit(main())
