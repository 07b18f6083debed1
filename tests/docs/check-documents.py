#!/usr/bin/env python3
"""Compares the documents with the sources, so that they do not go stale unnoticed.

check-documents.py COMPILER PROGRAM...      the cross compiler, and the file names of what is built in build/bin

Prints a line per complaint; the exit status is 1 if there is one.
"""
import pathlib
import re
import subprocess
import sys
import textwrap
import xml.etree.ElementTree

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
SOURCE_FOLDERS = ["bench", "board", "host", "include", "packaging", "service", "tests", "tsp"]
LITERAL = r'"((?:[^"\\]|\\.)*)"'
complaints = []


def complain(document, text):
    complaints.append(f"{document}: {text}")


def read(path):
    return (ROOT / path).read_text(encoding="utf-8")


def files(*patterns):
    return sorted(path for folder in SOURCE_FOLDERS for pattern in patterns for path in (ROOT / folder).rglob(pattern))


def documents():
    return {path.relative_to(ROOT).as_posix(): path.read_text(encoding="utf-8")
            for folder in [ROOT, *(ROOT / name for name in ["docs", *SOURCE_FOLDERS])]
            for path in (folder.glob("*.md") if folder == ROOT else folder.rglob("*.md"))}


def section(text, title):
    """What stands under a heading, up to the next one of the same or a higher rank."""
    rank, rest = re.search(rf"^(#+) {re.escape(title)}\n(.*)", text, re.M | re.S).groups()
    return re.split(rf"^#{{1,{len(rank)}}} ", rest, maxsplit=1, flags=re.M)[0]


def rows(text):
    """The cells of the rows of all tables, headings left out."""
    lines = [line for line in text.splitlines() if line.startswith("|") and not line.startswith("|---")]
    return [[cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]] for line in lines]


def code(text, language):
    """The blocks of code in a language, also those inside a list."""
    blocks = re.findall(rf"^( *)```{language}\n(.*?)^\1```", text, re.M | re.S)
    return [textwrap.dedent(block) for _, block in blocks]


def check_links(name, text):
    for target in re.findall(r"!?\[[^\]]*\]\(([^)#\s]+)[^)]*\)", text):
        path = (ROOT / name).parent / target
        if re.match(r"\w+:", target):
            continue
        if not path.exists():
            complain(name, f"there is no {target}")
        elif path.suffix == ".svg":
            xml.etree.ElementTree.parse(path)


def check_names(name, text, programs, targets, sources):
    """Scripts, programs, build targets and source files that a document names."""
    for script in re.findall(r"\bscripts/[\w.-]*\w", text):
        if not (ROOT / script).exists():
            complain(name, f"there is no {script}")
    for program in re.findall(r"\bbuild(?:-debug)?/bin/([\w.-]*\w)", text):
        if program not in programs:
            complain(name, f"nothing builds {program}")
    for wanted in re.findall(r"--target((?: \w+)+)", text) + re.findall(r"wine \./(\w+)\.exe", text):
        for target in wanted.split():
            if target not in targets:
                complain(name, f"there is no target {target}")
    for source in re.findall(r"`([\w/-]+\.(?:cpp|h|py))`", text):
        if not any(path.endswith("/" + source) for path in sources):
            complain(name, f"there is no source file {source}")


def as_quoted(literal):
    """A literal as a document quotes it, with an ellipsis for what varies."""
    return re.sub(r"%[0-9.]*(?:[hl]?[sdxXuS]|lX|p)", "…", literal.replace('\\"', '"'))


def check_messages(name, text, literals):
    """Every quoted message is in the sources, every trace line of levels 1 and 2 among the messages."""
    quoted = [cell[0].strip("`") for cell in rows(section(text, "By message")) if cell[0].startswith("`")]
    for message in quoted:
        for part in message.split("…"):
            if part.strip() and part not in literals:
                complain(name, f'nothing says "{part}" of "{message}"')
    for path in files("*.cpp", "*.h"):
        if path.relative_to(ROOT).parts[0] != "tsp":
            continue
        for literal in re.findall(r"TRACE_(?:PANIC|ERROR),\s*" + LITERAL, joined(path)):
            message = as_quoted(literal).strip()
            if message != "…" and message not in quoted:
                complain(name, f'the trace line "{message}" is missing')


def check_events(name, text, title, text_column):
    """The table of event log entries has every ID that is reported, with the text of the message table."""
    number_and_text = re.findall(r"MessageId=(\w+).*?Language=English\n(.*?)\n\.\n", read("tsp/diag/messages.mc"), re.S)
    texts = {int(number, 16): line for number, line in number_and_text}
    reported = {int(number, 16) & 0xFFFF for number in re.findall(r"EVENT_\w+ = (0x\w{8})", read("tsp/diag/diag.h"))}
    told = {int(row[0]): row for row in rows(section(text, title)) if row[0].isdigit()}
    if set(told) != reported:
        complain(name, f"events {sorted(told)} are told of, {sorted(reported)} are reported")
    for number, row in told.items():
        if row[text_column] != texts[number]:
            complain(name, f'event {number} says "{texts[number]}"')
        if text_column == 2 and row[1] not in texts.values():
            complain(name, f'there is no category "{row[1]}"')


def check_operating(name, text, compiler):
    levels = re.findall(r'^    \{(\d+), "(\w+)", ([01])\},', read("tsp/diag/trace.cpp"), re.M)
    told = [row[:3] for row in rows(section(text, "The trace")) if row[0].isdigit()]
    if told != [[number, f"`{setting}`", "on" if on == "1" else "off"] for number, setting, on in levels]:
        complain(name, "the trace levels are not those of tsp/diag/trace.cpp")

    offsets = dict(re.findall(r"offsetof\(FaxStatusBlock, (\w+)\) == (\d+)", read("service/fax_status.h")))
    told = {row[2].strip("`"): row[0] for row in rows(section(text, "The shared segment")) if len(row) == 4}
    for field, offset in offsets.items():
        if told.get(field) != offset:
            complain(name, f"{field} of the shared segment is at {offset}")

    for program in code(text, "cpp"):
        run = subprocess.run([compiler, "-std=c++17", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", "-x", "c++", "-"],
                             input=program, text=True, capture_output=True, check=False)
        if run.returncode != 0:
            complain(name, "a program does not compile:\n" + run.stderr)


def check_example_tests(name, text):
    tests = [path.read_text(encoding="utf-8") for path in files("*_test.cpp")]
    for example in code(text, "cpp"):
        if not any(example in test for test in tests):
            complain(name, f"no test reads like this:\n{example}")


def joined(path):
    """A source file with the pieces of long literals put together."""
    return re.sub(r'"\s*\n\s*"', "", path.read_text(encoding="utf-8"))


def main(compiler, *programs):
    sources = [path.as_posix() for path in files("*.cpp", "*.h", "*.py")]
    targets = {target for path in [ROOT / "CMakeLists.txt", *files("CMakeLists.txt")]
               for target in re.findall(r"\badd_\w+\((\w+)", path.read_text(encoding="utf-8"))}
    shipped = [path for path in files("*.cpp", "*.h") if path.relative_to(ROOT).parts[0] not in ["bench", "tests"]]
    literals = "\n".join(literal.replace('\\"', '"').replace("\\\\", "\\")
                         for path in shipped for literal in re.findall(LITERAL, joined(path)))
    texts = documents()
    for name, text in texts.items():
        check_links(name, text)
        check_names(name, text, programs, targets, sources)
    check_messages("docs/troubleshooting.md", texts["docs/troubleshooting.md"], literals)
    check_events("docs/troubleshooting.md", texts["docs/troubleshooting.md"], "Event log entries", 1)
    check_events("docs/operating.md", texts["docs/operating.md"], "Event log entries", 2)
    check_operating("docs/operating.md", texts["docs/operating.md"], compiler)
    check_example_tests("docs/developing.md", texts["docs/developing.md"])
    for line in complaints:
        print(line)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
