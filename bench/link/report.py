#!/usr/bin/env python3
"""report.py RESULTS REMARKS.json DOCS: writes DOCS/links.md and DOCS/links/*.svg, from the medians of the results
of run.py."""
import json
import math
import os
import statistics
import sys
from xml.sax.saxutils import escape

import files
import live

COLOURS = {"mirror": "#2e7d32", "srt": "#1565c0", "rist": "#6a1b9a", "cubic": "#c77700", "bbr": "#1565c0",
           "rsync": "#6a1b9a", "uftp": "#757575"}


def read(path):
    """Returns {(kind, row, who): [result]}. A figure that one of the results lacks has no median."""
    runs = {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            run = json.loads(line)
            runs.setdefault((run["kind"], run["row"], run["who"]), []).append(run)
    return runs


def median(runs, key, name):
    values = [run.get(name) for run in runs.get(key, [])]
    return statistics.median(values) if values and None not in values else None


def shown(value, form):
    return "" if value is None else form.format(value)


def percent(value):
    """Shows enough digits to tell the share from 100 %."""
    if value is None:
        return ""
    return "100 %" if value == 1 else f"{100 * value:.2f} %" if value > 0.99 else f"{100 * value:.1f} %"


def given_up(runs, key):
    return "failed" if any("failed" in run for run in runs[key]) else f"over {files.LIMIT}"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|---|---|" + "---:|" * (len(head) - 2)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def contenders(runs, kind, row):
    return [who for who in COLOURS if (kind, row, who) in runs]


def live_rows(runs):
    for row, (_, latency) in live.ROWS.items():
        for who in contenders(runs, "live", row):
            key = "live", row, who
            delay = (shown(median(runs, key, name), "{:.1f}") for name in ("p01", "p50", "p99"))
            yield [f"{row}, latency {latency} ms", who, percent(median(runs, key, "in time")),
                   percent(median(runs, key, "handed out")), *delay, shown(median(runs, key, "bytes a byte"), "{:.3f}"),
                   shown(median(runs, key, "processor"), "{:.3f}")]


def file_rows(runs):
    for row in files.ROWS:
        for who in contenders(runs, "files", row):
            key = "files", row, who
            seconds = median(runs, key, "seconds")
            yield [row, who, shown(seconds, "{:.2f}") or given_up(runs, key), percent(median(runs, key, "share of link")),
                   shown(median(runs, key, "sent a byte"), "{:.3f}"), shown(median(runs, key, "arrived a byte"), "{:.3f}"),
                   shown(median(runs, key, "back a byte"), "{:.3f}")]


def shared_rows(runs):
    for row in files.SHARED_ROWS:
        for who in contenders(runs, "shared", row):
            key = "shared", row, who
            yield [row, who, shown(median(runs, key, "seconds"), "{:.2f}") or given_up(runs, key),
                   percent(median(runs, key, "share of link")), percent(median(runs, key, "share of the flow"))]


class Picture:
    """An SVG of rows with a few bars each."""
    left, unit, bar = 200, 400, 13

    def __init__(self, note):
        self.note, self.y, self.parts = note, 10, []

    def text(self, x, y, text, anchor="start"):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}">{escape(text)}</text>')

    def rectangle(self, start, end, who, inset=0):
        """`start` and `end` are shares of the width."""
        self.parts.append(f'<rect x="{self.left + start * self.unit:.1f}" y="{self.y + 2 + inset}" '
                          f'width="{max(1.5, (end - start) * self.unit):.1f}" height="{self.bar - 3 - 2 * inset}" '
                          f'fill="{COLOURS[who]}"/>')

    def label(self, who, end, text):
        self.text(self.left + end * self.unit + 5, self.y + self.bar - 2, f"{who} {text}")
        self.y += self.bar

    def row(self, name):
        self.y += 7
        self.text(self.left - 8, self.y + self.bar - 2, name, "end")

    def write(self, path):
        width, height = self.left + self.unit + 230, self.y + 28
        self.text(self.left, height - 8, self.note)
        with open(path, "w", encoding="utf-8") as file:
            file.write(f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
                       f'viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="11">\n'
                       f'<rect width="{width}" height="{height}" fill="white"/>\n' + "\n".join(self.parts) + "\n</svg>\n")


def draw_delays(runs, path):
    before, span = 5.0, 40.0
    picture = Picture(f"delay beyond the latency, from p01 to p99 with the median, from {-before:.0f} to {span - before:.0f} ms; "
                      "share handed out in time")

    def place(value, latency):
        return min(1, max(0, (value - latency + before) / span))

    for row, (_, latency) in live.ROWS.items():
        there = contenders(runs, "live", row)
        if there:
            picture.row(row)
        for who in there:
            low, middle, high = (median(runs, ("live", row, who), name) for name in ("p01", "p50", "p99"))
            if low is None:
                continue
            low, middle, high = (place(value, latency) for value in (low, middle, high))
            picture.rectangle(low, high, who, inset=3)
            picture.rectangle(middle, middle, who)
            picture.label(who, high, percent(median(runs, ("live", row, who), "in time")))
    for moment in (0, live.IN_TIME):
        x = picture.left + picture.unit * (moment + before) / span
        picture.parts.append(f'<line x1="{x}" y1="8" x2="{x}" y2="{picture.y}" stroke="black" stroke-dasharray="3 3"/>')
    picture.write(path)


def draw_shares(runs, path):
    picture = Picture("the file's share of the link's rate, from the start until the copy is complete")
    for row in files.ROWS:
        there = contenders(runs, "files", row)
        if there:
            picture.row(row)
        for who in there:
            share = median(runs, ("files", row, who), "share of link")
            if share is not None:
                picture.rectangle(0, share, who)
                picture.label(who, share, percent(share))
    picture.write(path)


def best(runs, key, who, name, choose):
    """The median of the best of these contenders; None if there is none."""
    values = [median(runs, (*key, one), name) for one in who]
    return choose((value for value in values if value is not None), default=None)


def spread(runs, rows, kind, who, name, form):
    """The range of the medians of all rows, as text."""
    values = [value for row in rows if (value := median(runs, (kind, row, who), name)) is not None]
    return f"{form.format(min(values))} to {form.format(max(values))}" if values else "nothing"


def ranking(runs, kind, rows, peers, name, choose, tolerance, worth=lambda value: value):
    """The rows in which mirror is ahead of the best peer, level with it, and behind, as text."""
    places = {"ahead": [], "level": [], "behind": []}
    for row in rows:
        own, other = median(runs, (kind, row, "mirror"), name), best(runs, (kind, row), peers, name, choose)
        if own is None or other is None:
            continue
        gain = worth(own) - worth(other)
        places["level" if abs(gain) <= tolerance else "ahead" if gain > 0 else "behind"].append(row)
    return "; ".join(f"{place}: {' / '.join(found)}" for place, found in places.items() if found)


def against(runs, peers, rows):
    """The range of mirror's speed as a multiple of that of the best peer, as text. A peer that exceeded
    the time limit counts with that limit; a row without a figure of mirror's is left out."""
    ratios = []
    for row in rows:
        own, other = median(runs, ("files", row, "mirror"), "seconds"), best(runs, ("files", row), peers, "seconds", min)
        ran = [who for who in contenders(runs, "files", row) if who in peers and given_up(runs, ("files", row, who)) != "failed"]
        if own and (other or ran):
            ratios.append(((other or files.LIMIT) / own, "" if other else "more than ", row))
    ends = sorted({min(ratios), max(ratios)}) if ratios else []
    return " to ".join(f"{more}{ratio:.2f} ({row})" for ratio, more, row in ends) or "nothing"


def summary(runs, remarks):
    """Ten lines that say where mirror is ahead, level and behind, and why."""
    lossy = [row for row, (conditions, *_) in files.ROWS.items() if "loss" in conditions]
    clean = [row for row in files.ROWS if row not in lossy]
    everyone = ("mirror", "srt", "rist")
    costs = {name: ", ".join(f"{who} {spread(runs, live.ROWS, 'live', who, name, '{:.3f}')}" for who in everyone)
             for name in ("bytes a byte", "processor")}
    late = ", ".join(f"{who} {max(delays):.1f} ms" for who in everyone if (delays := [
        value - latency for row, (_, latency) in live.ROWS.items()
        if (value := median(runs, ("live", row, who), "p99")) is not None]))
    shares = ", ".join(f"{percent(median(runs, ('shared', row, 'mirror'), 'share of link'))} and the flow "
                       f"{percent(median(runs, ('shared', row, 'mirror'), 'share of the flow'))} ({row})" for row in files.SHARED_ROWS
                       if ("shared", row, "mirror") in runs)
    lines = ["Live, share in time, compared with the better of srt and rist (level: within 0.1 %): "
             + ranking(runs, "live", live.ROWS, ("srt", "rist"), "in time", max, 0.001) + ".",
             f"Live, worst p99 of the delay beyond the latency: {late}.",
             f"Live, bytes per byte of the stream: {costs['bytes a byte']}.",
             f"Live, processor seconds per second of the stream: {costs['processor']}.",
             "Files, time compared with the better of cubic and bbr (level: within 5 %): "
             + ranking(runs, "files", files.ROWS, ("cubic", "bbr"), "share of link", max, math.log(1.05), math.log) + ".",
             f"Files without loss, speed as a multiple of that of the better of cubic and bbr: {against(runs, ('cubic', 'bbr'), clean)}.",
             f"Files with loss, speed as a multiple of that of bbr: {against(runs, ('bbr',), lossy)}; of cubic: {against(runs, ('cubic',), lossy)}.",
             f"Beside a TCP flow, mirror gets {shares}.", *remarks["why"]]
    return "\n".join(f"- {line}" for line in lines)


def machine(runs):
    with open("/proc/cpuinfo", encoding="utf-8") as cpuinfo:
        models = {line.split(":")[1].strip() for line in cpuinfo if line.startswith("model name")}
    with open("/proc/sys/net/ipv4/tcp_congestion_control", encoding="utf-8") as control:
        used = control.read().strip()
    counts = sorted({len(results) for results in runs.values()})
    times = f"{counts[0]} to {counts[-1]} runs" if len(counts) > 1 else "one run" if counts == [1] else f"{counts[0]} runs"
    return (f"Measured on {os.cpu_count()} CPUs ({', '.join(sorted(models))}), {times} per row; the figures are medians. "
            f"rsync ran over TCP with {used}, the system's default.")


def main():
    results, remarks_path, docs = sys.argv[1:4]
    with open(remarks_path, encoding="utf-8") as file:
        remarks = json.load(file)
    runs = read(results)
    os.makedirs(f"{docs}/links", exist_ok=True)
    draw_delays(runs, f"{docs}/links/live.svg")
    draw_shares(runs, f"{docs}/links/files.svg")
    page = [remarks["title"], summary(runs, remarks), remarks["head"], machine(runs),
            "## Live streams", "![Delays of live streams](links/live.svg)", remarks["live"],
            table(["Link", "", "In time", "Handed out", "p01, ms", "p50, ms", "p99, ms", "Bytes per byte", "Processor"], live_rows(runs)),
            "## Files", "![Shares of the link](links/files.svg)", remarks["files"],
            table(["Link", "", "Seconds", "Of the link", "Sent per byte", "Arrived per byte", "Back per byte"], file_rows(runs)),
            "## Files beside a TCP flow", remarks["shared"],
            table(["Link", "", "Seconds", "Of the link", "The flow's share"], shared_rows(runs))]
    with open(f"{docs}/links.md", "w", encoding="utf-8") as file:
        file.write("\n\n".join(page) + "\n")


if __name__ == "__main__":
    main()
