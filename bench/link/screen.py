"""Mirrors a screen over an emulated link that loses packets, with a round trip of 20 ms, and measures the delay from
one screen to the other with a clock that both show. Needs root, for the link."""
import argparse
import contextlib
import os
import statistics
import struct
import subprocess
import sys
import tempfile
import time
import zlib

import screen_clock
from link import REPOSITORY, Link, stop

SIZE, FRAMES = (640, 360), 60
CONDITIONS = {"rtt": 20, "rate": 100, "queue": 200}
LATENCY = 120  # ms, of the transport
ENCODE = ["-c:v", "libx264", "-preset", "ultrafast", "-tune", "zerolatency", "-g", str(FRAMES), "-b:v", "4M",
          "-pix_fmt", "yuv420p", "-f", "mpegts", "-muxdelay", "0", "-flush_packets", "1", "pipe:1"]
PLAY = ["-fflags", "nobuffer", "-flags", "low_delay", "-probesize", "32768", "-analyzeduration", "0", "-framedrop",
        "-sync", "ext", "-an", "-noborder", "-left", "0", "-top", "0"]


class Stage:
    """Starts programs, which end with this object."""

    def __init__(self, stack):
        self.stack = stack

    def start(self, command, environment=(), **options):
        process = subprocess.Popen(command, env={**os.environ, **dict(environment)}, start_new_session=True,
                                   stderr=subprocess.DEVNULL, **options)
        self.stack.callback(stop, process, 2)
        return process

    def screen(self):
        """Starts an X server, which chooses a free display number."""
        out, into = os.pipe()
        self.start(["Xvfb", "-displayfd", str(into), "-screen", "0", f"{SIZE[0]}x{SIZE[1]}x24", "-nolisten", "tcp"],
                   pass_fds=[into])
        os.close(into)
        with os.fdopen(out) as numbers:
            return ":" + numbers.readline().strip()


def transport(tcp, work):
    """Returns the commands of the sender and the receiver."""
    if tcp:
        return (["socat", "-u", "-", "TCP:10.77.0.2:7000,nodelay"], ["socat", "-u", "TCP-LISTEN:7000", "-"])
    mirror, key = os.environ.get("MIRROR", f"{REPOSITORY}/build/release/examples/mirror"), f"{work}/key"
    with open(key, "w", encoding="utf-8") as file:
        subprocess.run([mirror, "key"], stdout=file, check=True)
    live = ["-", "--live", "--key", key]
    return ([mirror, "send", *live, "--latency", str(LATENCY), "--to", "10.77.0.2:7000"],
            [mirror, "receive", *live, "--listen", "10.77.0.2:7000"])


def mirror_screen(stage, link, source, target, ends):
    """Starts the programs that capture, encode, send, receive, decode and show the screen."""
    send, receive = ends
    said = {"stderr": sys.stderr}
    receiver = link.start("b", receive, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, **said)
    stage.start(["ffplay", "-loglevel", "error", *PLAY, "-i", "pipe:0"],
                {"DISPLAY": target, "SDL_VIDEODRIVER": "x11", "SDL_AUDIODRIVER": "dummy", "SDL_RENDER_DRIVER": "software"},
                stdin=receiver.stdout)
    time.sleep(0.5)
    encoder = stage.start(["ffmpeg", "-loglevel", "error", "-f", "x11grab", "-draw_mouse", "0", "-framerate", str(FRAMES),
                           "-video_size", f"{SIZE[0]}x{SIZE[1]}", "-i", source, *ENCODE],
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
    sender = link.start("a", send, stdin=encoder.stdout, stdout=subprocess.DEVNULL, **said)
    return {"receiver": receiver, "encoder": encoder, "sender": sender}


def wait_for_picture(screen, processes):
    deadline = time.monotonic() + 20
    while screen.clock() is None:
        for name, process in processes.items():
            if process.poll() is not None:
                sys.exit(f"screen: the {name} ended with {process.returncode}")
        if time.monotonic() > deadline:
            sys.exit("screen: no picture has come within 20 s")
        time.sleep(0.05)


def later(one, other):
    """The milliseconds from one clock to the other. Clocks wrap around."""
    return (one - other) % (1 << screen_clock.BITS)


def measure(source, target, seconds):
    """Returns the observed delays, and how often a clock was unreadable."""
    delays, unreadable = [], 0
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        shown, mirrored = source.clock(), target.clock()
        if shown is None or mirrored is None:
            unreadable += 1
        else:
            delays.append(later(shown, mirrored))
        time.sleep(0.0371)  # not a multiple of the frame interval
    return sorted(delays), unreadable


def beside(left, right, width):
    """Yields the rows of two pictures side by side, as red, green and blue bytes."""
    for at in range(0, len(left), width * 4):
        row = left[at:at + width * 4] + bytes(16) + right[at:at + width * 4]
        rgb = bytearray(len(row) // 4 * 3)
        for colour in range(3):
            rgb[colour::3] = row[2 - colour::4]
        yield bytes(rgb)


def write_png(path, rows):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
    head = struct.pack(">IIBBBBB", len(rows[0]) // 3, len(rows), 8, 2, 0, 0, 0)
    body = zlib.compress(b"".join(b"\0" + row for row in rows), 9)
    with open(path, "wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", body) + chunk(b"IEND", b""))


def take_picture(source, target, path):
    """Both screens at one moment, side by side, with the difference of their clocks above."""
    for _ in range(100):
        left, right = source.pixels(), target.pixels()
        clocks = source.clock(left), target.clock(right)
        if None not in clocks:
            break
        time.sleep(0.05)
    else:
        sys.exit("screen: the clocks cannot be read")
    texts = f"the screen, at {clocks[0]} ms", f"mirrored, at {clocks[1]} ms: {later(*clocks)} ms later"
    width = SIZE[0]
    rows = list(beside(*(source.caption(text, width, 24) for text in texts), width)) + list(beside(left, right, width))
    write_png(path, rows)


def run(stack, given):
    stage, work = Stage(stack), stack.enter_context(tempfile.TemporaryDirectory())
    source_name, target_name = stage.screen(), stage.screen()
    at = {"DISPLAY": source_name}
    stage.start([sys.executable, "-c", f"import screen_clock; screen_clock.show('{source_name}')"],
                cwd=os.path.dirname(os.path.abspath(__file__)))
    stage.start(["ico", "-bg", "navy", "-lw", "3", "-sleep", "0.015", "-geometry", "400x300+8+8"], at)
    stage.start(["xclock", "-update", "1", "-geometry", "200x200+424+8"], at)
    link = stack.enter_context(Link({**CONDITIONS, "loss": given.loss}))
    processes = mirror_screen(stage, link, source_name, target_name, transport(given.tcp, work))
    source, target = screen_clock.Screen(source_name), screen_clock.Screen(target_name)
    wait_for_picture(target, processes)
    time.sleep(2)
    delays, unreadable = measure(source, target, given.seconds)
    take_picture(source, target, given.picture)
    stop(processes["encoder"], 2)
    with contextlib.suppress(subprocess.TimeoutExpired):
        processes["sender"].wait(3)  # it ends with its input
        processes["receiver"].wait(3)
    return delays, unreadable, link


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--tcp", action="store_true", help="send the stream by TCP instead, for comparison")
    parser.add_argument("--loss", type=float, default=5, help="percent of the packets, 5 by default")
    parser.add_argument("--seconds", type=float, default=10, help="how long to measure, 10 by default")
    parser.add_argument("--picture", default="screen.png")
    given = parser.parse_args()
    with contextlib.ExitStack() as stack:
        delays, unreadable, link = run(stack, given)
    udp = link.counters["a_to_b"]["tcp" if given.tcp else "udp"]
    print(f"Delay from screen to screen, {len(delays)} samples: median {statistics.median(delays):.0f} ms, "
          f"from {delays[0]} to {delays[-1]} ms, p99 {delays[int(len(delays) * 0.99)]} ms; {unreadable} samples without a clock.")
    print(f"The link carried {udp['in']['packets']} packets and lost {udp['lost']['packets']} of them.")
    print(f"{given.picture}: both screens at the same moment.")


if __name__ == "__main__":
    main()
