"""Live streams over the emulated link: the share handed out in time, the delay, and the cost."""
import os
import signal
import subprocess
import time

from link import Link

RATE, WARM_UP = 8.0, 2.0  # Mbit/s; the first seconds, which are not counted
CHUNK = 1316
IN_TIME = 5.0  # ms beyond the latency
HEARD, TAKEN, GIVEN = 7000, 5000, 5001  # ports: of the receiver, of the sender's input, of the sink
SECRET = "a-secret-of-32-characters-in-all"

# name: (conditions besides rate and queue, latency in ms)
ROWS = {
    "no loss": ({"rtt": 20}, 120),
    "1 % loss": ({"rtt": 20, "loss": 1}, 120),
    "5 % loss": ({"rtt": 20, "loss": 5}, 120),
    "10 % loss": ({"rtt": 20, "loss": 10}, 120),
    "bursts of 20": ({"rtt": 20, "loss": "2,0", "burst": 20}, 120),
    "jitter 10 ms": ({"rtt": 20, "jitter": 10}, 120),
    "5 % loss, RTT 100 ms": ({"rtt": 100, "loss": 5}, 400),
    "no loss, RTT 120 ms": ({"rtt": 120}, 480),
    "1 % loss, RTT 120 ms": ({"rtt": 120, "loss": 1}, 480),
    "5 % loss, RTT 120 ms": ({"rtt": 120, "loss": 5}, 480),
    "10 % loss, RTT 120 ms": ({"rtt": 120, "loss": 10}, 480),
    "5 % loss, RTT 400 ms": ({"rtt": 400, "loss": 5}, 1600),
}


def mirror_commands(program, latency, key):
    locked = ["--key", key]
    return {"receive": [program, "receive", "-", "--live", "--listen", f"10.77.0.2:{HEARD}", *locked],
            "send": [program, "send", "-", "--live", "--latency", str(latency), "--to", f"10.77.0.2:{HEARD}", *locked]}


def srt_commands(latency):
    options = f"latency={latency}&passphrase={SECRET}&pbkeylen=16"
    common = ["srt-live-transmit", "-q", f"-chunk:{CHUNK}"]
    return {"receive": [*common, f"srt://10.77.0.2:{HEARD}?mode=listener&{options}", f"udp://127.0.0.1:{GIVEN}"],
            "send": [*common, f"udp://:{TAKEN}", f"srt://10.77.0.2:{HEARD}?mode=caller&{options}"],
            "udp": True}  # with pipes its delay is some ms longer


def rist_commands(latency):
    options = f"buffer={latency}&secret={SECRET}&aes-type=128"
    return {"receive": ["ristreceiver", "-v", "-1", "-i", f"rist://@10.77.0.2:{HEARD}?{options}", "-o", f"udp://127.0.0.1:{GIVEN}"],
            "send": ["ristsender", "-v", "-1", "-i", f"udp://@127.0.0.1:{TAKEN}", "-o", f"rist://10.77.0.2:{HEARD}?{options}"],
            "udp": True}


def commands(who, latency, one_way, tools):
    """Peers count their latency from arrival: theirs is set lower by the mean one-way delay, so that all promise the same."""
    if who == "mirror":
        return mirror_commands(tools["mirror"], latency, tools["key"])
    return {"srt": srt_commands, "rist": rist_commands}[who](int(latency - one_way))


def processor_seconds(process):
    """Ends the process if it has not ended with its input, and returns its processor time."""
    deadline = time.monotonic() + 2
    ended, status, usage = os.wait4(process.pid, os.WNOHANG)
    while not ended:
        os.killpg(process.pid, signal.SIGKILL if time.monotonic() > deadline else signal.SIGINT)
        time.sleep(0.1)
        ended, status, usage = os.wait4(process.pid, os.WNOHANG)
    process.returncode = os.waitstatus_to_exitcode(status)
    return usage.ru_utime + usage.ru_stime


def stream_by_pipes(link, ends, seconds, tools, arrivals):
    """Streams through standard input and output. The ends exit after the source."""
    quiet = {"stderr": subprocess.DEVNULL}
    receiver = link.start("b", ends["receive"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, **quiet)
    sink = link.start("b", [tools["stream"], "sink"], stdin=receiver.stdout, stdout=arrivals)
    time.sleep(0.5)
    into, out = os.pipe()
    sender = link.start("a", ends["send"], stdin=into, stdout=subprocess.DEVNULL, **quiet)
    os.close(into)
    time.sleep(1)
    source = link.start("a", [tools["stream"], "source", str(RATE), str(seconds)], stdout=out)
    os.close(out)
    receiver.stdout.close()
    return source, sender, receiver, sink


def stream_by_datagrams(link, ends, seconds, tools, arrivals):
    """Streams to a UDP port of the sender and from the receiver to another one."""
    quiet = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
    sink = link.start("b", [tools["stream"], "sink", str(GIVEN)], stdout=arrivals)
    receiver = link.start("b", ends["receive"], **quiet)
    time.sleep(0.5)
    sender = link.start("a", ends["send"], **quiet)
    time.sleep(1)
    source = link.start("a", [tools["stream"], "source", str(RATE), str(seconds), str(TAKEN)])
    return source, sender, receiver, sink


def stream_through(link, ends, seconds, latency, tools):
    """Sends a stream; returns the sink's lines and the processor seconds of both ends."""
    stream = stream_by_datagrams if ends.get("udp") else stream_by_pipes
    with open(os.path.join(tools["work"], "arrivals"), "w+", encoding="utf-8") as arrivals:
        source, sender, receiver, sink = stream(link, ends, WARM_UP + seconds, tools, arrivals)
        source.wait()
        time.sleep(1 + latency / 1000)
        used = processor_seconds(sender) + processor_seconds(receiver)
        if ends.get("udp"):
            sink.terminate()
        sink.wait(5)
        arrivals.seek(0)
        return arrivals.read().splitlines(), used


def percentile(values, share):
    return values[min(len(values) - 1, int(len(values) * share))] if values else None


def evaluate(lines, seconds, latency):
    """The figures of the chunks after the warm-up."""
    interval = CHUNK * 8000 / RATE * 1e-9
    first, count = int(WARM_UP / interval), int((WARM_UP + seconds) / interval)
    delays, disorder, last = {}, 0, -1
    for line in lines[:-1]:
        number, delay = (int(part) for part in line.split())
        disorder += number < last
        last = number
        if number >= first:
            delays.setdefault(number, delay / 1000)
    in_order = sorted(delays.values())
    expected = count - first
    return {"in time": sum(delay <= latency + IN_TIME for delay in in_order) / expected,
            "handed out": len(delays) / expected, "disorder": disorder, "wrong": int(lines[-1].split()[1]),
            "p01": percentile(in_order, 0.01), "p50": percentile(in_order, 0.5), "p99": percentile(in_order, 0.99),
            "least": in_order[0] if in_order else None}


def measure(row, who, tools, seconds=20):
    conditions, latency = ROWS[row]
    with Link({"rate": 100, "queue": 200, "seed": tools["seed"], **conditions}) as link:
        ends = commands(who, latency, (conditions["rtt"] + conditions.get("jitter", 0)) / 2, tools)
        lines, used = stream_through(link, ends, seconds, latency, tools)
    sent, back = (sum(protocol["in"]["bytes"] for protocol in link.counters[way].values()) for way in ("a_to_b", "b_to_a"))
    stream = RATE * 1e6 / 8 * (WARM_UP + seconds)
    return {**evaluate(lines, seconds, latency), "latency": latency, "bytes a byte": (sent + back) / stream,
            "back a byte": back / stream, "processor": used / (WARM_UP + seconds),
            "device drops": link.counters["device_drops"]}
