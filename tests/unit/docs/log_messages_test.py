#!/usr/bin/python3
"""log_messages_test SOURCE_TREE: docs/log-messages.md has every log text of the daemon, and no other.

A log text is a string literal of the rooms below that holds a space and is not given to a function
that logs nothing. Its level is known where it stands in the call that logs it, or is put by name into
a member that such a call takes. Numbered failures are told apart on the page by their numbers.
"""
import pathlib
import re
import sys

ROOMS = ("daemon", "files", "agent", "supervisor")
NO_LOG = ("static_assert", "fprintf", "snprintf", "fputs")
NO_TEXTS = ("collection_types.cpp",)  # names of the types
COMMENT = re.compile(r'("(?:\\.|[^"\\])*")|//[^\n]*')
LITERAL = re.compile(r'"((?:\\.|[^"\\])*)"(?:\s*"((?:\\.|[^"\\])*)")*')
CALL = re.compile(r"\b(\w+)\(")


def strings(code, begin=0, end=None):
    """The literals of a piece of code, adjacent ones put together, line ends left out."""
    for found in LITERAL.finditer(code, begin, len(code) if end is None else end):
        yield found.start(), "".join(re.findall(r'"((?:\\.|[^"\\])*)"', found[0])).replace("\\n", "")


def calls(code):
    """(function, begin and end of its arguments) of everything that looks like a call."""
    blank = LITERAL.sub(lambda found: '"' + "." * (len(found[0]) - 2) + '"', code)
    for call in CALL.finditer(blank):
        depth, end = 1, call.end()
        while depth and end < len(blank):
            depth += {"(": 1, ")": -1}.get(blank[end], 0)
            end += 1
        yield call[1], call.end(), end - 1


def read_sources(tree):
    """({text: known levels}, {text with %d: its numbers})."""
    levels, numbers, member_levels, named = {}, {}, {}, []
    for path in sorted(file for room in ROOMS for file in (tree / "src" / room).glob("*.*")):
        if path.name in NO_TEXTS:
            continue
        code = COMMENT.sub(lambda found: found[1] or "", path.read_text())
        code = re.sub(r"^\s*#.*$", "", code, flags=re.M)
        found_calls = list(calls(code))
        silent = [(begin, end) for name, begin, end in found_calls if name in NO_LOG]
        here = {}
        for position, text in strings(code):
            if " " in text and not any(begin <= position < end for begin, end in silent):
                here.setdefault(text, set())
        for name, begin, end in found_calls:
            if not name.startswith("log_"):
                continue
            level = name.removeprefix("log_")
            for _, text in strings(code, begin, end):
                if text in here:
                    here[text].add(level)
            for member in re.findall(r"\.(\w+)", LITERAL.sub("", code[begin:end])):
                member_levels.setdefault(member, set()).add(level)
        named += re.findall(r'\.(\w+) = "([^"]*)"', code)
        counted = {int(number) for name, begin, end in found_calls if name == "fail"
                   for number in re.findall(r"\b\d+\b", LITERAL.sub("", code[begin:end]))}
        for text, known in here.items():
            levels.setdefault(text, set()).update(known)
            if "Error %d" in text:
                numbers[text] = counted
    for member, text in named:
        if text in levels:
            levels[text] |= member_levels.get(member, set())
    return levels, numbers


def read_page(path):
    """{text: (levels, meaning)} of the tables of the page; a text may stand in two rooms."""
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
