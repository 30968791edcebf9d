"""mirror_link_test.py MIRROR: runs the example over emulated links. A congestion collapse would show in the bytes sent.
Needs root and /dev/net/tun."""

import glob
import os
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "bench", "link"))
from link import Link

MIRROR = sys.argv[1]
CHUNK = 1316


def start(link, side, *arguments, **options):
    return link.start(side, [MIRROR, *arguments, "--key", "key"], stderr=subprocess.PIPE, **options)


def listen(link, *arguments, **options):
    """Starts a receiver and waits until it listens."""
    receiver = start(link, "b", "receive", *arguments, "--listen", "10.77.0.2:7000", **options)
    line = (receiver.stderr if "--live" in arguments else receiver.stdout).readline()
    assert b"listening" in line, line
    return receiver


def datagrams(link, way="a_to_b", what="in"):
    return link.counters[way]["udp"][what]["bytes"]


def stall(after, *processes):
    """Stops each process for a second, `after` seconds after the one before, and returns whether all ran until then. While the
    emulator is stopped, packets wait, and then all arrive at once. A stopped sender or receiver sees its clock jump."""
    ran = True
    for process in processes:
        time.sleep(after)
        ran = ran and process.poll() is None
        process.send_signal(signal.SIGSTOP)
        time.sleep(1)
        process.send_signal(signal.SIGCONT)
    return ran


def send_file(size, conditions, sent_limit, lost_limit, seconds, stalls=False):
    """The file arrives; little more is sent than its bytes and the lost ones; the time limit allows for a slow
    machine."""
    with open("source", "wb") as file:
        file.write(os.urandom(size))
    with Link(conditions) as link:
        receiver = listen(link, "copy", stdout=subprocess.PIPE)
        began = time.monotonic()
        sender = start(link, "a", "send", "source", "--to", "10.77.0.2:7000", stdout=subprocess.DEVNULL)
        if stalls:
            assert stall(0.5, link.process, receiver, sender), "an end or the link ended before it was stopped"
        assert sender.wait(60) == 0, sender.stderr.read()
        assert receiver.wait(20) == 0, receiver.stderr.read()
        took = time.monotonic() - began
    with open("source", "rb") as source, open("copy", "rb") as copy:
        assert source.read() == copy.read()
    lost = sum(datagrams(link, what=cause) for cause in ("lost", "overflowed"))
    figures = f"{conditions}: {took:.2f} s, {datagrams(link)} bytes sent, {lost} lost"
    print(figures, flush=True)
    assert datagrams(link) - lost <= sent_limit * size and lost <= lost_limit * size and took <= seconds, figures


def blocked():
    """If UDP is blocked, little is sent, and the reason is reported."""
    with Link({"rtt": 20, "block-udp": 1}) as link:
        receiver = listen(link, "copy", stdout=subprocess.PIPE)
        sender = start(link, "a", "send", "source", "--to", "10.77.0.2:7000", stdout=subprocess.DEVNULL)
        assert sender.wait(30) == 1 and b"block UDP" in sender.stderr.read()
        assert receiver.wait(20) == 1
    assert datagrams(link) < 40_000, link.counters
    assert not os.path.exists("copy.part")


def wakes(process):
    """How often the run loops of a process have gone to sleep. Other threads, such as a sanitizer's, are not counted."""
    total = 0
    for task in glob.glob(f"/proc/{process.pid}/task/*/status"):
        with open(task, encoding="ascii") as status:
            text = status.read()
        if text.startswith("Name:\tmirror-"):
            total += int(re.search(r"\nvoluntary_ctxt_switches:\s*(\d+)", text).group(1))
    assert total > 0, "no run loop was found"
    return total


def stream(conditions, latency, chunks, least_share, most_sent, stalls=False):
    """A stream of 8 Mbit/s arrives within its latency and not early. With stalls, only the last quarter, which begins a
    second after them, and half of all chunks must be in time. Then both ends are idle and do not wake up."""
    times, counted = [], range(chunks * 3 // 4 if stalls else 0, chunks)
    with Link(conditions) as link:
        receiver = listen(link, "-", "--live", stdout=subprocess.PIPE)
        sender = start(link, "a", "send", "-", "--live", "--latency", str(latency), "--to", "10.77.0.2:7000",
                       stdin=subprocess.PIPE)

        def write():
            begin = time.monotonic() + 0.5
            for number in range(chunks):
                time.sleep(max(0.0, begin + number * CHUNK / 1e6 - time.monotonic()))
                try:
                    os.write(sender.stdin.fileno(), f"{number} {time.monotonic()!r}".encode().ljust(CHUNK))
                except BrokenPipeError:
                    receiver.terminate()
                    return
            time.sleep(1 + latency / 1000)
            times.append([wakes(process) for process in (sender, receiver)])
            time.sleep(2)
            times.append([wakes(process) for process in (sender, receiver)])
            sender.stdin.close()

        writer = threading.Thread(target=write)
        writer.start()
        stalled = [link.process, receiver, sender] if stalls else []
        ran = []
        staller = threading.Thread(target=lambda: ran.append(stall(1.3, *stalled)))
        staller.start()
        delays = {}
        while chunk := receiver.stdout.read(CHUNK):
            number, written = chunk.split()
            delays[int(number)] = (time.monotonic() - float(written)) * 1000
        staller.join()
        assert ran == [True], "an end or the link ended before it was stopped"
        writer.join()
        assert sender.wait(20) == 0 and receiver.wait(20) == 0, sender.stderr.read()
    in_time = [number for number, delay in delays.items() if delay < latency + 500]  # the machine may be slow
    share = sum(number in counted for number in in_time) / len(counted)
    sent = datagrams(link) / (CHUNK * chunks)
    woken = [after - before for before, after in zip(*times)]
    figures = f"{conditions}: {share:.4f} of {len(counted)} and {len(in_time)} of all in time, from " \
              f"{min(delays.values()):.1f} ms on, {sent:.3f} sent, woken {woken} times"
    print(figures, flush=True)
    assert share >= least_share and len(in_time) >= chunks / 2 and min(delays.values()) >= latency - 1 \
           and sent <= most_sent and max(woken) == 0, figures


if os.geteuid() != 0 or not os.path.exists("/dev/net/tun"):
    print("Emulated links need root and /dev/net/tun.")
    sys.exit(77)
with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    with open("key", "wb") as key_file:
        key_file.write(subprocess.run([MIRROR, "key"], capture_output=True, check=True).stdout)
    send_file(600_000, {"rtt": 20, "rate": 1, "queue": 30}, 1.08, 0.04, 25)
    send_file(4_000_000, {"rtt": 20, "rate": 10, "queue": 50}, 1.08, 0.04, 20)
    send_file(4_000_000, {"rtt": 40, "rate": 50, "queue": 200, "loss": "5", "reorder": 20, "reorder-by": 2}, 1.08, 0.15, 20)
    send_file(4_000_000, {"rtt": 20, "rate": 10, "queue": 50}, 1.1, 0.1, 25, stalls=True)
    blocked()
    stream({"rtt": 20, "rate": 100, "queue": 200, "loss": 10, "jitter": 10}, 400, 3000, 0.9, 1.2)
    stream({"rtt": 20, "rate": 100, "queue": 200, "loss": 1}, 400, 8000, 0.98, 1.2, stalls=True)
