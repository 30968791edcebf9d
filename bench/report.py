#!/usr/bin/env python3
"""report.py RESULTS REMARKS.json DOCS: prints the table of a benchmark run, whose files are RESULTS/ROW-PROCESS.json,
and writes DOCS/performance.md with it and DOCS/performance/FAMILY.svg, a picture of each family."""
import fnmatch
import json
import os
import sys
from statistics import median

import chart
from rows import read, span

FAMILIES = {
    "run_loop": "Run loop",
    "timers": "Timers of a run loop",
    "watches": "Watches of a run loop",
    "runtime": "Shared pointers, locks and semaphores",
    "pool": "Buffer pool",
    "ring": "Ring buffer",
    "dictionary": "Dictionary",
    "json": "JSON",
    "events": "Events",
    "sockets": "Sockets",
    "interfaces": "Interface enumeration",
    "text": "Dates and strings",
}
VERDICTS = ("ahead", "level", "behind")


def quantity(value, row):
    if "#" in row.service:
        return f"{value:.1f}"
    for unit in ("ns", "µs", "ms"):
        if value < 1000 or unit == "ms":
            return f"{value:.3g} {unit}" if value < 1000 else f"{value:.0f} {unit}"
        value /= 1000


def remark(row, remarks):
    """The reason why nivur is behind."""
    return next((words for pattern, words in remarks["rows"].items()
                 if fnmatch.fnmatchcase(f"{row.family}/{row.service}", pattern)), "")


def cells(row):
    if row.skipped:
        return [row.service, "", "not measured: " + row.skipped, "", "", ""]
    shown = {kind: ", ".join(f"{name} {quantity(time, row)}" for name, time in row.medians(kind).items())
             for kind in row.times}
    peers = [shown["peer"], shown["other"] and f"({shown['other']})", shown["limit"] and "limit: " + shown["limit"]]
    return [row.service, quantity(median(row.nivur), row), "; ".join(filter(None, peers)),
            span(row.ratios("peer")), span(row.ratios("limit")), row.verdict or ""]


def table(rows, remarks):
    lines = ["| Service | nivur | Peers | To the best peer | To the limit | nivur is | Why |",
             "|---|---:|---|---:|---:|---|---|"]
    for row in rows:
        why = remark(row, remarks) if row.verdict == "behind" else ""
        lines.append("| " + " | ".join([*cells(row), why]) + " |")
    return "\n".join(lines)


def count(rows, verdict):
    return sum(row.verdict == verdict for row in rows)


def ranges(rows):
    return span([ratio for row in rows for ratio in row.ratios("peer")])


def behind(rows, remarks):
    """The rows in which nivur is behind, grouped by reason."""
    reasons = {}
    for row in rows:
        reasons.setdefault(remark(row, remarks), []).append(row)
    parts = []
    for words, members in reasons.items():
        name = f'"{members[0].service}"' if len(members) == 1 else f"{len(members)} rows"
        parts.append(f"Behind in {name} ({ranges(members)})" + (f": {words}." if words else "."))
    return " ".join(parts)


def summary(rows, remarks):
    ahead, level, worse = (count(rows, verdict) for verdict in VERDICTS)
    lines = [f"Of {ahead + level + worse} rows, nivur is **ahead** of the best peer in {ahead}, **level** with it in {level} and "
             f"**behind** it in {worse}. The ranges in brackets are nivur's time divided by the best peer's.", "",
             "| | Ahead | Level | Behind | Why |", "|---|---|---|---|---|"]
    for family, title in FAMILIES.items():
        groups = [[row for row in rows if row.family == family and row.verdict == verdict] for verdict in VERDICTS]
        counts = [f"{len(group)} ({ranges(group)})" if group else "" for group in groups]
        why = [remarks["ahead"].get(family, "") if groups[0] else "", behind(groups[2], remarks)]
        anchor = "".join(c for c in title.lower().replace(" ", "-") if c.isalnum() or c == "-")
        lines.append(f"| [{title}](#{anchor}) | " + " | ".join(counts + [" ".join(filter(None, why))]) + " |")
    return "\n".join(lines)


def machine(context):
    with open("/proc/cpuinfo") as cpuinfo:
        models = {line.split(":")[1].strip() for line in cpuinfo if line.startswith("model name")}
    return (f"{context['num_cpus']} processors ({', '.join(sorted(models))}), Linux {os.uname().release.split('-')[0]}, "
            f"{os.environ.get('BENCH_COMPILER', '')}.")


def write(docs, rows, remarks, context):
    os.makedirs(os.path.join(docs, "performance"), exist_ok=True)
    page = [remarks["head"], summary(rows, remarks), remarks["reading"]]
    for family, title in FAMILIES.items():
        members = [row for row in rows if row.family == family]
        page += [f"## {title}", f"![{title}](performance/{family}.svg)", remarks["families"].get(family, ""),
                 table(members, remarks)]
        with open(os.path.join(docs, "performance", family + ".svg"), "w") as file:
            file.write(chart.draw(members))
    page += [remarks["method"].replace("MACHINE", machine(context))]
    processes = str(max(len(row.nivur) for row in rows))
    with open(os.path.join(docs, "performance.md"), "w") as file:
        file.write("\n\n".join(filter(None, page)).replace("PROCESSES", processes) + "\n")


def main():
    results, remarks_path, docs = sys.argv[1:4]
    rows, context = read(results)
    with open(remarks_path) as file:
        remarks = json.load(file)
    for row in rows:
        service, own, peers, ratio, limit, verdict = cells(row)
        print(f"{row.family + '/' + service:64} {own:>9}  {ratio:>14} {limit:>14}  {verdict:6}  {peers}")
    print(", ".join(f"{verdict}: {count(rows, verdict)}" for verdict in VERDICTS))
    if docs != results:
        write(docs, rows, remarks, context)


if __name__ == "__main__":
    main()
