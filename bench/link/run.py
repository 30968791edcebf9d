#!/usr/bin/env python3
"""run.py RESULTS [--who NAME,...] [--repetitions N] [--seconds N] [ROW...]: measures the rows, or all of them, and
appends a line of JSON for each measurement to RESULTS. The contenders take turns within a row."""
import argparse
import json
import os
import subprocess
import sys
import tempfile

import files
import live
from link import REPOSITORY

LIVE = ["mirror", "srt", "rist"]


def tools(work):
    """The programs, a directory for files, and a key for both ends of mirror."""
    build = f"{REPOSITORY}/build/release"
    found = {"work": work, "mirror": os.environ.get("MIRROR", f"{build}/examples/mirror"), "key": f"{work}/key",
             "stream": os.environ.get("NIVUR_STREAM", f"{build}/bench/link/nivur_stream")}
    with open(found["key"], "w", encoding="utf-8") as file:
        subprocess.run([found["mirror"], "key"], stdout=file, check=True)
    return found


def busy():
    """The processor time of all processes so far, in seconds."""
    with open("/proc/stat", encoding="utf-8") as file:
        user, nice, system = (int(field) for field in file.readline().split()[1:4])
    return (user + nice + system) / os.sysconf("SC_CLK_TCK")


def plans(wanted):
    """(kind, row, contenders, measure) of the rows."""
    kinds = [("live", live.ROWS, LIVE, live.measure),
             ("files", files.ROWS, list(files.CONTENDERS), files.measure),
             ("shared", files.SHARED_ROWS, ["mirror", "cubic", "bbr"], files.measure_shared)]
    for kind, rows, contenders, measure in kinds:
        for row in rows:
            if not wanted or row in wanted or f"{kind}/{row}" in wanted or kind in wanted:
                yield kind, row, contenders, measure


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("results")
    parser.add_argument("rows", nargs="*")
    parser.add_argument("--who", default="")
    parser.add_argument("--repetitions", type=int, default=1)
    parser.add_argument("--seconds", type=float, default=20)
    given = parser.parse_intermixed_args()
    os.nice(-15)  # what else runs on the machine should not be in the figures
    with tempfile.TemporaryDirectory(dir="/dev/shm") as work, open(given.results, "a", encoding="utf-8") as results:
        found = tools(work)
        for kind, row, contenders, measure in plans(given.rows):
            options = {"seconds": given.seconds} if kind == "live" else {}
            for repetition in range(given.repetitions):
                found["seed"] = repetition + 1
                for who in contenders:
                    if given.who and who not in given.who.split(","):
                        continue
                    before = busy()
                    try:
                        result = measure(row, who, found, **options)
                    except (RuntimeError, OSError, ValueError, IndexError, subprocess.SubprocessError) as error:
                        result = {"failed": str(error)}
                    line = json.dumps({"kind": kind, "row": row, "who": who, **result, "busy": busy() - before})
                    print(line, file=results, flush=True)
                    print(line, file=sys.stderr)


if __name__ == "__main__":
    main()
