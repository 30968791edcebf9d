"""The results of the benchmarks: a row for each service."""
import glob
import json
import os
from statistics import median

STANDARD = set("name family_index per_family_instance_index run_name run_type repetitions "
               "repetition_index threads iterations real_time cpu_time time_unit aggregate_name "
               "aggregate_unit items_per_second error_occurred error_message".split())


class Row:
    """The times of a service: those of each peer, one for each process."""

    def __init__(self, family, service):
        self.family, self.service, self.skipped = family, service, None
        self.times = {"peer": {}, "other": {}, "limit": {}}
        self.nivur = []

    def put(self, name, time):
        kind, _, rest = name.partition(":")
        if name == "nivur":
            self.nivur.append(time)
        elif kind in self.times and rest:
            self.times[kind].setdefault(rest, []).append(time)
        else:
            self.times["peer"].setdefault(name, []).append(time)

    def medians(self, kind):
        times = {name: median(times) for name, times in self.times[kind].items()}
        return dict(sorted(times.items(), key=lambda item: item[1]))

    def ratios(self, kind):
        """For each process, nivur's time divided by that of the best of this kind: the one with the lowest median."""
        best = next(iter(self.medians(kind)), None)
        return [own / other for own, other in zip(self.nivur, self.times[kind].get(best, []))]

    @property
    def verdict(self):
        """The verdict, or None without a peer."""
        ratios = self.ratios("peer")
        return ratios and ("ahead" if max(ratios) < 1 else "behind" if min(ratios) > 1 else "level") or None


def figures(run):
    """The values of a benchmark: its counters, or else the time of one item."""
    counters = {key: value for key, value in run.items() if key not in STANDARD}
    if counters:
        return {"" if name == "time" else ": " + name: value for name, value in counters.items()}
    rate = run.get("items_per_second")
    return {"": 1e9 / rate if rate else run["real_time" if "/real_time" in run["run_name"] else "cpu_time"]}


def read(results):
    """The rows, in the order in which they were measured, and the context of the last process."""
    rows, context = {}, {}
    for path in sorted(glob.glob(os.path.join(results, "*.json"))):
        with open(path) as file:
            result = json.load(file)
        context = result["context"]
        for run in sorted(result["benchmarks"], key=lambda run: run["family_index"]):
            family, service, peer = run["run_name"].split("/")[:3]
            if run.get("error_occurred"):
                rows.setdefault((family, service), Row(family, service)).skipped = run["error_message"]
            elif run.get("aggregate_name") == "median":
                for suffix, value in figures(run).items():
                    key = (family, service + suffix)
                    rows.setdefault(key, Row(*key)).put(peer, value)
    return list(rows.values()), context


def short(ratio):
    return f"{ratio:.2f}" if ratio < 10 else f"{ratio:.0f}"


def span(ratios):
    low, high = (short(ratio) for ratio in (min(ratios, default=0), max(ratios, default=0)))
    return "" if not ratios else low if low == high else f"{low} to {high}"
