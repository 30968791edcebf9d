#!/usr/bin/env python3
"""link [OPTION VALUE]... -- COMMAND-A --- COMMAND-B: runs two commands, each in a network namespace of
its own, with an emulated link between them. Needs root.

A has the addresses 10.77.0.1 and fd77::1, B has 10.77.0.2 and fd77::2. B starts first. If B has not ended by
itself within the grace period after A, it gets SIGTERM. Standard input goes to A. Everything is removed at the end,
after a failure or a signal as well. The exit code is A's, or B's if A's is 0 and B ended by itself.

  --rtt MS, --delay MS, --jitter MS, --jitter-order 0|1, --loss PERCENT, --burst PACKETS, --gilbert 0|1,
  --rate MBIT, --queue PACKETS, --reorder PERCENT, --reorder-by MS, --block-udp 0|1, --seed NUMBER
                   for both directions, or X,Y for A to B and B to A; see link.cpp
  --mtu BYTES      1500 by default; there is no IPv6 below 1280
  --head-start S   how long B runs before A starts: 0.5 by default
  --grace S        10 by default
  --counters FILE  writes the counters of the link there, as JSON; a summary goes to standard error
"""
import json
import os
import signal
import subprocess
import sys
import time

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
ADDRESSES = {"a": ("10.77.0.1", "fd77::1"), "b": ("10.77.0.2", "fd77::2")}
OWN = {"mtu": "1500", "head-start": "0.5", "grace": "10", "counters": ""}


def emulator():
    """The path of the program: $NIVUR_LINK, or built here."""
    named = os.environ.get("NIVUR_LINK")
    if named:
        return named
    subprocess.run([f"{REPOSITORY}/scripts/build", "release", "nivur_link"], check=True, stdout=subprocess.DEVNULL)
    return f"{REPOSITORY}/build/release/bench/link/nivur_link"


class Link:
    """Two network namespaces and the link between them: `with Link({"rtt": 20, "loss": "5,0"}) as link`.
    After the block, `counters` has the emulator's counters."""

    def __init__(self, conditions, mtu=1500):
        self.conditions, self.mtu = conditions, mtu
        self.names = {side: f"link-{os.getpid()}-{id(self):x}-{side}" for side in "ab"}
        self.running, self.process, self.ready, self.counters = [], None, False, {}

    def __enter__(self):
        try:
            self._start()
        except BaseException:
            self._remove()
            raise
        return self

    def __exit__(self, *_):
        self._remove()

    def _start(self):
        for name in self.names.values():
            subprocess.run(["ip", "netns", "add", name], check=True)
        arguments = [emulator(), *self.names.values()]
        for name, value in self.conditions.items():
            if name == "rtt":
                name, value = "delay", ",".join(str(float(part) / 2) for part in str(value).split(","))
            arguments += [name, str(value)]
        self.process = subprocess.Popen(arguments, stdout=subprocess.PIPE, text=True, start_new_session=True)
        self.ready = self.process.stdout.readline() == "ready\n"
        if not self.ready:
            raise RuntimeError("the emulator did not start")
        for side, name in self.names.items():
            self._configure(name, *ADDRESSES[side])

    def _configure(self, name, v4, v6):
        # The device queue is long, so that packets are lost only in the emulator, which counts them.
        lines = ["link set lo up", f"link set link0 mtu {self.mtu} txqueuelen 20000 up", f"addr add {v4}/24 dev link0"]
        if self.mtu >= 1280:
            lines.append(f"addr add {v6}/64 dev link0 nodad")
        subprocess.run(["ip", "-n", name, "-batch", "-"], input="\n".join(lines), text=True, check=True)

    def start(self, side, command, **options):
        """Starts a command on side "a" or "b", in a process group of its own, which is ended with the link."""
        process = subprocess.Popen(["ip", "netns", "exec", self.names[side], *command],
                                   start_new_session=True, **options)
        self.running.append(process)
        return process

    def device_drops(self):
        """The number of packets lost before the emulator; there should be none."""
        drops = 0
        for name in self.names.values():
            shown = subprocess.run(["ip", "-n", name, "-s", "-j", "link", "show", "link0"], capture_output=True, text=True)
            drops += json.loads(shown.stdout)[0]["stats64"]["tx"]["dropped"]
        return drops

    def _remove(self):
        try:
            for process in self.running:
                stop(process, 2)
            if self.ready:
                self.counters = {"device_drops": self.device_drops()}
                self.process.terminate()
                self.counters.update(json.loads(self.process.communicate()[0]))
        finally:
            if self.process:
                self.process.kill()
                self.process.wait()
            for name in self.names.values():
                subprocess.run(["ip", "netns", "del", name], stderr=subprocess.DEVNULL, check=False)


def stop(process, grace):
    """Ends a command's process group: SIGTERM, and SIGKILL after `grace` seconds."""
    for number in (signal.SIGTERM, signal.SIGKILL):
        try:
            os.killpg(process.pid, number)
        except ProcessLookupError:
            break
        try:
            process.wait(grace)
        except subprocess.TimeoutExpired:
            pass
    process.wait()


def summary(counters):
    lines = ["               protocol      in packets, bytes     out packets, bytes     lost  overflowed  blocked"]
    for direction, protocols in counters.items():
        if direction == "device_drops":
            continue
        for protocol, count in protocols.items():
            if count["in"]["packets"]:
                lines.append(f"{direction:>14} {protocol:>8} {count['in']['packets']:>9} {count['in']['bytes']:>12} "
                             f"{count['out']['packets']:>9} {count['out']['bytes']:>12} {count['lost']['packets']:>8} "
                             f"{count['overflowed']['packets']:>11} {count['blocked']['packets']:>8}")
    return "\n".join(lines)


def parse(arguments):
    """Returns the options and the two commands."""
    own, conditions = dict(OWN), {}
    while arguments and arguments[0] != "--":
        name = arguments[0].removeprefix("--")
        if len(arguments) < 2 or name == arguments[0]:
            sys.exit(__doc__)
        (own if name in OWN else conditions)[name] = arguments[1]
        arguments = arguments[2:]
    if "---" not in arguments:
        sys.exit(__doc__)
    split = arguments.index("---")
    return own, conditions, arguments[1:split], arguments[split + 1:]


def run(link, own, command_a, command_b):
    b = link.start("b", command_b, stdin=subprocess.DEVNULL)
    time.sleep(float(own["head-start"]))
    a = link.start("a", command_a)
    code = a.wait()
    try:
        return code or b.wait(float(own["grace"]))
    except subprocess.TimeoutExpired:
        return code


def main():
    signal.signal(signal.SIGINT, signal.default_int_handler)  # in the background of a shell it may be ignored
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    own, conditions, command_a, command_b = parse(sys.argv[1:])
    if os.geteuid() != 0:
        sys.exit("link: needs root")
    link = Link(conditions, int(own["mtu"]))
    try:
        with link:
            code = run(link, own, command_a, command_b)
    except KeyboardInterrupt:
        code = 130
    except RuntimeError as error:
        sys.exit(f"link: {error}")
    if own["counters"]:
        with open(own["counters"], "w", encoding="utf-8") as file:
            json.dump(link.counters, file)
    print(summary(link.counters), file=sys.stderr)
    if link.counters.get("device_drops"):
        print(f"{link.counters['device_drops']} packets were lost before the link", file=sys.stderr)
    sys.exit(code)


if __name__ == "__main__":
    main()
