#!/usr/bin/env python3
"""`ostrel serial` and `ostrel scan` with a misbehaving device on the other end of a
pseudo-terminal: a device that stops reading for a while, one that goes away while the program
is idle or sending, a signal in the middle of a transfer, and the bytes of a file passed through
unchanged both ways.

usage: serial_cli_check.py OSTREL
"""
import os
import pty
import select
import signal
import subprocess
import sys
import termios
import threading
import time

ostrel = sys.argv[1]
failures = []


def fail(what):
    failures.append(what)


class Device:
    """The master side of a fresh pseudo-terminal; the program opens the slave by its path."""

    def __init__(self):
        self.master, slave = pty.openpty()
        self.path = os.ttyname(slave)
        os.close(slave)
        self.found = termios.tcgetattr(self.master)

    def wait_open(self, proc, seconds=30):
        # The port is open once the line turns raw (no more echo).
        end = time.time() + seconds
        while time.time() < end and proc.poll() is None:
            if not termios.tcgetattr(self.master)[3] & termios.ECHO:
                return True
            time.sleep(0.02)
        return False

    def read_all(self, size, seconds=30):
        got = bytearray()
        end = time.time() + seconds
        while len(got) < size and time.time() < end:
            ready, _, _ = select.select([self.master], [], [], 0.5)
            if ready:
                try:
                    got += os.read(self.master, 65536)
                except OSError:
                    break
        return bytes(got)

    def hang_up(self):
        os.close(self.master)
        self.master = -1


def start(*args, stdin=subprocess.PIPE):
    return subprocess.Popen([ostrel, *args], stdin=stdin, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE)


def finish(proc, seconds=10):
    # Standard input belongs to the feeder (or is held open on purpose, as a person who types
    # nothing).
    proc.stdin = None
    try:
        out, err = proc.communicate(timeout=seconds)
        return proc.returncode, out, err.decode("utf-8", "replace")
    except subprocess.TimeoutExpired:
        proc.kill()
        out, err = proc.communicate()
        return None, out, err.decode("utf-8", "replace")


def feed(proc, data):
    def run():
        try:
            proc.stdin.write(data)
            proc.stdin.close()
        except (BrokenPipeError, ValueError):
            pass
    t = threading.Thread(target=run, daemon=True)
    t.start()
    return t


def pattern(size):
    block = bytes(range(256)) * 4
    return (block * (size // len(block) + 1))[:size]


GONE = "отключено"


def opened(name, *args, **kw):
    """A fresh device and the program started on it, once the port is open; None (and a
    failure) if it never opens."""
    dev = Device()
    proc = start(*args, dev.path, **kw)
    if dev.wait_open(proc):
        return dev, proc
    fail(f"{name}: the port never opened: " + finish(proc)[2])
    return None, None

# A device that stops reading for two seconds in the middle: everything still arrives, in
# order, and the program ends normally.
data = pattern(1_060_000)
dev, proc = opened("stalled device", "serial")
if dev:
    feeder = feed(proc, data)
    got = dev.read_all(100_000)
    time.sleep(2)
    got += dev.read_all(len(data) - len(got))
    status, _, err = finish(proc)
    if got != data:
        fail(f"stalled device: {len(got)} of {len(data)} bytes arrived intact")
    if status != 0:
        fail(f"stalled device: status {status}: {err}")

# Bytes both ways unchanged: stdin to the port, the port to stdout.
dev, proc = opened("raw", "serial", "--raw")
if dev:
    os.write(dev.master, bytes(range(256)))
    time.sleep(0.5)
    feed(proc, bytes(range(255, -1, -1)))
    got = dev.read_all(256)
    status, out, err = finish(proc)
    if got != bytes(range(255, -1, -1)):
        fail(f"--raw sent {got!r}")
    if out != bytes(range(256)):
        fail(f"--raw printed {out!r}")

# Lines: each one ends with CR LF on the line, whatever ended it on input.
dev, proc = opened("lines", "serial", "--lines")
if dev:
    feed(proc, b"first\nsecond\r\nlast")
    got = dev.read_all(len(b"first\r\nsecond\r\nlast\r\n"))
    finish(proc)
    if got != b"first\r\nsecond\r\nlast\r\n":
        fail(f"--lines sent {got!r}")


# The device goes away while the program waits for input, and while it sends.
def hang_up_case(name, command, sending):
    dev, proc = opened(name, *command)
    if not dev:
        return
    if sending:
        feed(proc, pattern(50_000_000))
        dev.read_all(10_000)
    dev.hang_up()
    gone = time.time()
    status, _, err = finish(proc, 20)
    if status != 1 or GONE not in err:
        fail(f"{name}: status {status}, message {err!r}")
    elif time.time() - gone > 5:  # generous: a loaded machine is slow to schedule
        fail(f"{name}: noticed only after {time.time() - gone:.1f} s")


hang_up_case("serial idle", ["serial"], False)
hang_up_case("serial sending", ["serial"], True)
hang_up_case("scan idle", ["scan"], False)


# A signal in the middle of a transfer to a device that takes nothing: the program ends as the
# signal ends a program, and the line has the settings it had before.
for signum in (signal.SIGINT, signal.SIGTERM):
    for command in (["serial"], ["scan"]):
        name = f"{command[0]} on {signal.Signals(signum).name}"
        dev, proc = opened(name, *command,
                           stdin=subprocess.PIPE if command == ["serial"] else subprocess.DEVNULL)
        if not dev:
            continue
        if command == ["serial"]:
            feed(proc, pattern(50_000_000))
        time.sleep(0.5)
        if proc.poll() is not None:
            fail(f"{name}: ended before the signal (status {proc.returncode}, {finish(proc)[2]!r})")
            continue
        proc.send_signal(signum)
        status, _, err = finish(proc, 20)
        if status != -signum:
            fail(f"{name}: status {status}, not killed by the signal: {err!r}")
        if termios.tcgetattr(dev.master) != dev.found:
            fail(f"{name}: the line's settings were not restored")

for f in failures:
    print("FAIL:", f, file=sys.stderr)
print("serial cli check:", "failed" if failures else "passed")
sys.exit(1 if failures else 0)
