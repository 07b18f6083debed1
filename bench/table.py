#!/usr/bin/env python3
"""Makes one table of what the benchmark programs found out, and the verdict.

table.py make ROWS RESULTS        reads the programs' rows, adds machine and date, writes RESULTS (JSON), prints the
                                  table; the exit status is 1 if a goal is missed
table.py record RESULTS DOCUMENT  puts the table into a document, between its two markers
"""
import datetime
import json
import os
import pathlib
import platform
import re
import subprocess
import sys

BEGIN, END = "<!-- table: scripts/bench.sh --record -->", "<!-- end of the table -->"
COLUMNS = ["", "figure", "floor", "ratio", "goal", "met"]


def first_match(path, pattern):
    found = re.search(pattern, pathlib.Path(path).read_text(encoding="utf-8"), re.M)
    return found.group(1).strip() if found else "unknown"


def machine():
    memory = int(first_match("/proc/meminfo", r"^MemTotal:\s*(\d+)")) / 2**20
    wine = subprocess.run(["wine", "--version"], capture_output=True, text=True, check=True).stdout.strip()
    return {"processor": first_match("/proc/cpuinfo", r"^model name\s*:(.*)"), "cores": os.cpu_count(),
            "memory": f"{memory:.0f} GB", "kernel": f"{platform.system()} {platform.release()}", "wine": wine}


def ratio(row):
    return row["figure"] / row["floor"] if row.get("floor") else None


def met(row):
    """Whether the goal is met; None without a goal."""
    if "goal" not in row:
        return None
    value = ratio(row)
    return (row["figure"] if value is None else value) <= row["goal"]


def number(value):
    """Three digits that count, or all in front of the point."""
    return f"{value:.0f}" if abs(value) >= 100 else f"{value:.3g}"


def with_unit(value, unit):
    for small, large in [("ns", "us"), ("us", "ms"), ("ms", "s")]:
        if unit == small and value >= 1000:
            value, unit = value / 1000, large
    return f"{number(value)} {unit}".strip()


def goal_text(row):
    if "goal" not in row:
        return ""
    return f"{row['goal']:g} times" if "floor" in row else with_unit(row["goal"], row["unit"])


def cells(row):
    value = ratio(row)
    return [row["name"], with_unit(row["figure"], row["unit"]),
            with_unit(row["floor"], row["unit"]) if "floor" in row else "",
            "" if value is None else f"{value:.3f}", goal_text(row),
            {None: "", True: "yes", False: "no"}[met(row)]]


def groups(rows):
    """Names of the groups, in the order of their first rows."""
    return list(dict.fromkeys(row["group"] for row in rows))


def plain_table(rows):
    lines = [(row["group"], cells(row)) for row in rows]
    widths = [max(len(line[column]) for line in [COLUMNS, *(line for _, line in lines)])
              for column in range(len(COLUMNS))]

    def laid_out(line):
        first, *others = line
        return "  ".join([first.ljust(widths[0]), *(text.rjust(width) for text, width in zip(others, widths[1:]))])

    text = [laid_out(COLUMNS)]
    for group in groups(rows):
        text += ["", group, *(laid_out(line) for name, line in lines if name == group)]
    return "\n".join(line.rstrip() for line in text)


def markdown(results):
    about = results["machine"]
    text = [f"{results['date']}, {about['processor']}, {about['cores']} cores, {about['memory']}, {about['kernel']}, "
            f"{about['wine']}:", ""]
    for group in groups(results["rows"]):
        rows = [row for row in results["rows"] if row["group"] == group]
        text += [f"| {group} | figure | floor | ratio | goal | met | |", "|---|---:|---:|---:|---:|---|---|",
                 *("| " + " | ".join([*cells(row), row.get("note", "")]) + " |" for row in rows), ""]
    return "\n".join(text)


def make(rows_file, results_file):
    rows = [json.loads(line) for line in pathlib.Path(rows_file).read_text(encoding="utf-8").splitlines()]
    results = {"date": datetime.date.today().isoformat(), "machine": machine(), "rows": rows}
    pathlib.Path(results_file).write_text(json.dumps(results, indent=1) + "\n", encoding="utf-8")
    print(plain_table(rows))
    missed = [row["name"] for row in rows if met(row) is False]
    for name in missed:
        print(f"goal missed: {name}")
    return 1 if missed else 0


def record(results_file, document):
    results = json.loads(pathlib.Path(results_file).read_text(encoding="utf-8"))
    path = pathlib.Path(document)
    before, rest = path.read_text(encoding="utf-8").split(BEGIN)
    after = rest.split(END)[1]
    path.write_text(f"{before}{BEGIN}\n\n{markdown(results)}\n{END}{after}", encoding="utf-8")
    return 0


if __name__ == "__main__":
    sys.exit({"make": make, "record": record}[sys.argv[1]](*sys.argv[2:]))
