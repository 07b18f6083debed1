#!/usr/bin/env python3
"""The small changes by which scripts/mutate.sh tries whether the provider's tests bite.

mutants.py list COUNT SEED      chooses COUNT of all possible changes, one number, file:line, rule, before and after a line, with tabs between
mutants.py apply COUNT SEED N TREE      makes the N-th of them in the sources under TREE
"""
import pathlib
import random
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LEVELS = ["TRACE_PANIC", "TRACE_ERROR", "TRACE_INFO", "TRACE_FUNCTION_ENTER", "TRACE_FUNCTION_EXIT"]
COMPARISONS = {"==": "!=", "!=": "==", "<=": "<", ">=": ">", "&&": "||", "||": "&&"}
# A whole statement on one line that is a call, and no declaration, return or macro of the language.
CALL = re.compile(r"^ +(?!return\b|throw\b|delete\b|else\b|for\b|while\b|if\b)[\w.:>-]+\(.*\);$")
LITERAL = re.compile(r"(?<![\w.\"'])(0x[0-9A-Fa-f]+|\d+)(?![\w.\"'])")


def call_of(line):
    return CALL.match(line) and not line.lstrip().startswith("static_assert") and line.count("(") == line.count(")")


def strings(line):
    return [(m.start(), m.end()) for m in re.finditer(r'"(?:[^"\\]|\\.)*"', line)]


def inside(spans, at):
    return any(start <= at < end for start, end in spans)


def changes_of_line(line, following):
    """(rule, new text of this line, new text of the next one or None)"""
    spans = strings(line)
    if call_of(line):
        yield "drop the call", re.match(r" *", line)[0] + ";", None
        if following is not None and call_of(following) and following.strip() != line.strip():
            yield "swap the calls", following, line
    if re.match(r" +const LineLock lock\(\w+\);$", line):
        yield "drop the lock", re.match(r" *", line)[0] + ";", None
    for m in LITERAL.finditer(line):
        if not inside(spans, m.start()):
            value = int(m[0], 0) + 1
            new = hex(value) if m[0].startswith("0x") else str(value)
            yield "change the constant", line[: m.start()] + new + line[m.end() :], None
    for m in re.finditer("|".join(LEVELS), line):
        other = LEVELS[(LEVELS.index(m[0]) + 1) % len(LEVELS)]
        yield "change the level", line[: m.start()] + other + line[m.end() :], None
    for start, end in spans:
        if line[start:end] == '"C"':
            continue
        letters = [at for at in range(start + 1, end - 1) if line[at].isalpha() and line[at - 1] not in "\\%lhx"]
        if letters:
            at = letters[len(letters) // 2]
            yield "change the text", line[:at] + ("q" if line[at] != "q" else "z") + line[at + 1 :], None
    for m in re.finditer(r" (==|!=|<=|>=|&&|\|\|) ", line):
        if not inside(spans, m.start()):
            yield "change the comparison", line[: m.start(1)] + COMPARISONS[m[1]] + line[m.end(1) :], None
    for m in re.finditer(r"\b(true|false)\b", line):
        if not inside(spans, m.start()):
            yield "change the truth", line[: m.start()] + ("false" if m[1] == "true" else "true") + line[m.end() :], None
    for m in re.finditer(r"\b[A-Z][A-Z]+_\w+ \| [A-Z][A-Z]+_\w+", line):
        yield "drop the flag", line[: m.start()] + m[0].split(" | ")[0] + line[m.end() :], None


def all_changes():
    for path in sorted(ROOT.glob("tsp/**/*.cpp")) + sorted(ROOT.glob("tsp/**/*.h")):
        lines = path.read_text().split("\n")
        for i, line in enumerate(lines):
            code = line.split("//")[0].rstrip() if '"' not in line else line
            if not code.strip() or code.startswith("#") or "static_assert" in code or code.lstrip().startswith("//"):
                continue
            following = lines[i + 1] if i + 1 < len(lines) else None
            for rule, new, new_following in changes_of_line(code, following):
                yield path.relative_to(ROOT), i, rule, line, new, new_following


def choose(count, seed):
    """Rule by rule in turn, so that every rule has its share."""
    by_rule = {}
    for change in all_changes():
        by_rule.setdefault(change[2], []).append(change)
    generator = random.Random(seed)
    for changes in by_rule.values():
        generator.shuffle(changes)
    chosen = []
    while len(chosen) < count and any(by_rule.values()):
        for changes in by_rule.values():
            if changes and len(chosen) < count:
                chosen.append(changes.pop())
    return chosen


def main():
    what, count, seed = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
    chosen = choose(count, seed)
    if what == "list":
        for n, (path, i, rule, old, new, following) in enumerate(chosen):
            print(n, f"{path}:{i + 1}", rule, old.strip(), new.strip(), sep="\t")
        return
    path, i, _, _, new, following = chosen[int(sys.argv[4])]
    target = pathlib.Path(sys.argv[5]) / path
    lines = (ROOT / path).read_text().split("\n")
    lines[i] = new
    if following is not None:
        lines[i + 1] = following
    target.write_text("\n".join(lines))


main()
