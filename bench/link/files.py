"""Files over the emulated link: the time until the copy is complete, and the bytes sent for it."""
import filecmp
import os
import subprocess
import threading
import time

from link import Link, stop

MIB = 1 << 20
LIMIT = 40  # seconds, after which a copy is given up
COMMON = {"rate": 100, "rtt": 20, "queue": 200}

# name: (conditions that differ from the common ones, MTU, version of IP, size in MiB)
ROWS = {
    "100 Mbit/s": ({}, 1500, 4, 16),
    "1 % loss": ({"loss": 1}, 1500, 4, 16),
    "5 % loss": ({"loss": 5}, 1500, 4, 16),
    "1 Gbit/s, 1 ms": ({"rate": 1000, "rtt": 1}, 1500, 4, 16),
    "20 Mbit/s, 200 ms": ({"rate": 20, "rtt": 200}, 1500, 4, 16),
    "10 Mbit/s, queue 50": ({"rate": 10, "queue": 50}, 1500, 4, 16),
    "1 Mbit/s, queue 30": ({"rate": 1, "queue": 30}, 1500, 4, 2),
    "jitter 10 ms": ({"jitter": 10}, 1500, 4, 16),
    "reordering 20 %": ({"reorder": 20}, 1500, 4, 16),
    "IPv6": ({}, 1500, 6, 16),
    "MTU 1,280": ({}, 1280, 4, 16),
    "MTU 1,280, IPv6": ({}, 1280, 6, 16),
    "MTU 600": ({}, 600, 4, 16),
}
# Rows beside a TCP flow: (conditions that differ, size in MiB).
SHARED_ROWS = {
    "100 Mbit/s, shared": ({}, 64),
    "10 Mbit/s, queue 50, shared": ({"rate": 10, "queue": 50}, 8),
}


class Copy:
    """One copy of `source` to `destination` over a link: `receive` and `send` start the ends."""

    def __init__(self, link, conditions, mtu, version, tools):
        self.link, self.conditions, self.mtu, self.version, self.tools = link, conditions, mtu, version, tools
        self.source, self.destination = f"{tools['work']}/source", f"{tools['work']}/copy/source"
        self.host = "10.77.0.2" if version == 4 else "[fd77::2]"

    def start(self, side, command):
        return self.link.start(side, command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)

    def run(self):
        """Returns the seconds that the copy took, or None if it was given up, and the number of bytes copied. A copy
        that is complete but differs is an error."""
        receiver = self.start("b", self.receive())
        time.sleep(0.5)
        begin = time.monotonic()
        sender = self.start("a", self.send())
        overdue = threading.Timer(LIMIT, lambda: [process.kill() for process in (sender, receiver)])
        overdue.start()
        sender.wait()  # with a timeout it would poll, every 50 ms
        if self.receiver_ends:
            receiver.wait()
        seconds = time.monotonic() - begin
        overdue.cancel()
        stop(sender, 1)
        stop(receiver, 1)
        seconds = seconds if seconds < LIMIT else None
        if seconds and not (os.path.exists(self.destination) and filecmp.cmp(self.source, self.destination, shallow=False)):
            raise RuntimeError("no copy, or a wrong one")
        return seconds, os.path.getsize(self.destination) if os.path.exists(self.destination) else 0

    receiver_ends = True


class Tcp(Copy):
    control = "cubic"

    def receive(self):
        return ["socat", "-u", f"TCP{self.version}-LISTEN:7000,reuseaddr", f"CREATE:{self.destination}"]

    def send(self):
        return ["socat", "-u", f"FILE:{self.source}", f"TCP{self.version}:{self.host}:7000,{with_control(self.control)}"]


class Bbr(Tcp):
    control = "bbr"


class Rsync(Copy):
    """Over TCP with the system's congestion control."""
    receiver_ends = False

    def receive(self):
        configuration = f"{self.tools['work']}/rsyncd.conf"
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(f"use chroot = no\nuid = root\ngid = root\n[copy]\npath = {os.path.dirname(self.destination)}\nread only = no\n")
        return ["rsync", "--daemon", "--no-detach", "--port", "7000", "--config", configuration]

    def send(self):
        return ["rsync", "--whole-file", self.source, f"rsync://{self.host}:7000/copy/"]


class Uftp(Copy):
    """Sends at a given fixed rate, a little less than the link's, and is given the round trip."""
    receiver_ends = False

    def receive(self):
        return ["uftpd", "-d", "-D", os.path.dirname(self.destination)]

    def send(self):
        kilobits = int(self.conditions["rate"] * 950)
        round_trip = max(0.02, 1.5 * self.conditions["rtt"] / 1000)
        return ["uftp", "-q", "-R", str(kilobits), "-r", str(round_trip), "-b", str(min(1300, self.mtu - 180)),
                "-M", self.host.strip("[]"), self.source]


class Mirror(Copy):
    def receive(self):
        return [self.tools["mirror"], "receive", self.destination, "--listen", f"{self.host}:7000", "--key", self.tools["key"]]

    def send(self):
        return [self.tools["mirror"], "send", self.source, "--to", f"{self.host}:7000", "--key", self.tools["key"]]


CONTENDERS = {"mirror": Mirror, "cubic": Tcp, "bbr": Bbr, "rsync": Rsync, "uftp": Uftp}


def with_control(name):
    """The option of socat that chooses the congestion control: level IPPROTO_TCP, option TCP_CONGESTION."""
    return f"setsockopt-string=6:13:{name}"


def prepare(size, tools):
    os.makedirs(f"{tools['work']}/copy", exist_ok=True)
    for name in os.listdir(f"{tools['work']}/copy"):
        os.remove(f"{tools['work']}/copy/{name}")
    with open(f"{tools['work']}/source", "wb") as file:
        for _ in range(size):
            file.write(os.urandom(MIB))


def sums(counters):
    """The bytes that the sender sent, those of them that were lost, and those sent back."""
    forward, back = counters["a_to_b"].values(), counters["b_to_a"].values()
    return (sum(count["in"]["bytes"] for count in forward),
            sum(count[what]["bytes"] for count in forward for what in ("lost", "overflowed")),
            sum(count["in"]["bytes"] for count in back))


def measure(row, who, tools):
    """Measures time and bytes of a copy that has the link to itself."""
    special, mtu, version, size = ROWS[row]
    conditions = {**COMMON, "seed": tools["seed"], **special}
    prepare(size, tools)
    with Link(conditions, mtu) as link:
        seconds, done = CONTENDERS[who](link, conditions, mtu, version, tools).run()
    sent, lost, back = sums(link.counters)
    return {"seconds": seconds, "share of link": done * 8 / (seconds or LIMIT) / (conditions["rate"] * 1e6),
            "sent a byte": sent / (size * MIB), "arrived a byte": (sent - lost) / (size * MIB), "back a byte": back / (size * MIB),
            "device drops": link.counters["device_drops"]}


def measure_shared(row, who, tools):
    """Measures the share of the link that a copy gets beside a TCP flow (cubic) that started two seconds before."""
    special, size = SHARED_ROWS[row]
    conditions = {**COMMON, "seed": tools["seed"], **special}
    prepare(size, tools)
    flow = f"{tools['work']}/flow"
    with Link(conditions) as link:
        link.start("b", ["socat", "-u", "TCP-LISTEN:7001", f"CREATE:{flow}"])
        time.sleep(0.5)
        link.start("a", ["socat", "-u", "OPEN:/dev/zero", f"TCP:10.77.0.2:7001,{with_control('cubic')}"])
        time.sleep(2)
        before, begin = os.path.getsize(flow), time.monotonic()
        seconds, done = CONTENDERS[who](link, conditions, 1500, 4, tools).run()
        passed = time.monotonic() - begin
        flow_bits = (os.path.getsize(flow) - before) * 8
    os.remove(flow)
    link_bits = conditions["rate"] * 1e6
    return {"seconds": seconds, "share of link": done * 8 / (seconds or LIMIT) / link_bits,
            "share of the flow": flow_bits / passed / link_bits}
