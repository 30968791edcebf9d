#!/usr/bin/env python3
"""report.py RESULT.json REMARKS.json DOCS: prints the table of a benchmark run, writes
DOCS/performance.md with it and DOCS/performance/FAMILY.svg, a picture of each family."""
import json
import os
import sys
from xml.sax.saxutils import escape

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
STANDARD = set("name family_index per_family_instance_index run_name run_type repetitions "
               "repetition_index threads iterations real_time cpu_time time_unit aggregate_name "
               "aggregate_unit items_per_second error_occurred error_message".split())


class Row:
    def __init__(self, family, service):
        self.family, self.service = family, service
        self.peers, self.others, self.limits, self.skipped = {}, {}, {}, None

    def put(self, peer, value):
        kind, _, name = peer.partition(":")
        kinds = {"other": self.others, "limit": self.limits}
        if kind in kinds:
            kinds[kind][name] = value
        else:
            self.peers[peer] = value

    @property
    def nivur(self):
        return self.peers.get("nivur")

    def ratio(self, candidates):
        values = [value for name, value in candidates.items() if name != "nivur"]
        return self.nivur / min(values) if self.nivur and values else None


def read(result):
    rows = {}
    for run in sorted(result["benchmarks"], key=lambda run: run["family_index"]):
        family, service, peer = run["run_name"].split("/")[:3]
        row = rows.setdefault((family, service), Row(family, service))
        if run.get("error_occurred"):
            row.skipped = run["error_message"]
        elif run.get("aggregate_name") == "median":
            counters = {key: value for key, value in run.items() if key not in STANDARD}
            for name, value in counters.items():
                key = (family, service if name == "time" else f"{service}: {name}")
                rows.setdefault(key, Row(*key)).put(peer, value)
            if not counters:
                rate = run.get("items_per_second")
                row.put(peer, 1e9 / rate if rate else run["real_time" if "/real_time" in run["run_name"] else "cpu_time"])
    return [row for row in rows.values() if row.peers or row.skipped]


def duration(value):
    for unit in ("ns", "µs", "ms"):
        if abs(value) < 1000 or unit == "ms":
            return f"{value:.3g} {unit}" if abs(value) < 1000 else f"{value:.0f} {unit}"
        value /= 1000


def ratio(value):
    return "" if value is None else f"{value:.2f}"


def cells(row):
    if row.skipped:
        return [row.service, "", "not measured: " + row.skipped, "", ""]
    def best_first(times):
        return ", ".join(f"{name} {duration(value)}"
                         for name, value in sorted(times.items(), key=lambda item: item[1])
                         if name != "nivur")
    shown = [best_first(row.peers)]
    if row.others:
        shown.append(f"({best_first(row.others)})")
    if row.limits:
        shown.append(f"limit: {best_first(row.limits)}")
    return [row.service, duration(row.nivur), "; ".join(filter(None, shown)),
            ratio(row.ratio(row.peers)), ratio(row.ratio(row.limits))]


def table(rows, remarks):
    lines = ["| Service | nivur | Peers | To the best peer | To the limit | Remark |",
             "|---|---:|---|---:|---:|---|"]
    for row in rows:
        remark = remarks.get(f"{row.family}/{row.service}", "")
        lines.append("| " + " | ".join(cells(row) + [remark]) + " |")
    return "\n".join(lines)


def bars(rows):
    """A bar for each row: nivur's time as a share of the best peer's, or else of the limit's."""
    shown = [(row, row.ratio(row.peers) or row.ratio(row.limits)) for row in rows if row.nivur]
    shown = [(row, value) for row, value in shown if value]
    left, unit, end, height = 330, 160, 3.0, 22
    width, bottom = left + int(unit * end) + 70, 26 + height * len(shown)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{bottom + 24}" '
             f'viewBox="0 0 {width} {bottom + 24}" font-family="sans-serif" font-size="12">',
             f'<rect width="{width}" height="{bottom + 24}" fill="white"/>']
    for number, (row, value) in enumerate(shown):
        y = 22 + number * height
        colour = "#2e7d32" if value <= 1.03 else "#c77700" if value <= 1.5 else "#b3261e"
        length = unit * min(value, end)
        parts.append(f'<text x="{left - 8}" y="{y + 14}" text-anchor="end">{escape(row.service)}</text>'
                     f'<rect x="{left}" y="{y + 3}" width="{length:.1f}" height="{height - 6}" fill="{colour}"/>'
                     f'<text x="{left + length + 6:.1f}" y="{y + 14}">{ratio(value)}</text>')
    parts.append(f'<line x1="{left + unit}" y1="16" x2="{left + unit}" y2="{bottom}" stroke="black" '
                 f'stroke-dasharray="3 3"/><text x="{left + unit}" y="12" text-anchor="middle">best peer</text>'
                 f'<text x="{left}" y="{bottom + 16}">nivur\'s time, the best peer\'s (or else the limit\'s) '
                 f'being 1: shorter is faster; cut off at {end:.0f}</text></svg>')
    return "\n".join(parts) + "\n"


def machine(context):
    with open("/proc/cpuinfo") as cpuinfo:
        models = {line.split(":")[1].strip() for line in cpuinfo if line.startswith("model name")}
    return f"{context['num_cpus']} CPUs ({', '.join(sorted(models))}), {os.environ.get('BENCH_COMPILER', '')}"


def main():
    result_path, remarks_path, docs = sys.argv[1:4]
    with open(result_path) as file:
        result = json.load(file)
    with open(remarks_path) as file:
        remarks = json.load(file)
    rows = read(result)
    for row in rows:
        print("{:52} {:>9}  {:>5} {:>5}  {}".format(*(cells(row)[i] for i in (0, 1, 3, 4, 2))))

    os.makedirs(os.path.join(docs, "performance"), exist_ok=True)
    page = [remarks["head"], f"Measured on {machine(result['context'])}; medians of repeated runs."]
    for family, title in FAMILIES.items():
        members = [row for row in rows if row.family == family]
        if members:
            page += [f"## {title}", f"![{title}](performance/{family}.svg)", remarks.get(family, ""),
                     table(members, remarks)]
            with open(os.path.join(docs, "performance", family + ".svg"), "w") as file:
                file.write(bars(members))
    with open(os.path.join(docs, "performance.md"), "w") as file:
        file.write("\n\n".join(filter(None, page)) + "\n")


if __name__ == "__main__":
    main()
