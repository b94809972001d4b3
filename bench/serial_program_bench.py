#!/usr/bin/env python3
"""`ostrel serial --raw` against the plain programs a user would otherwise use on the same
pseudo-terminal: standard input to the port against `dd` writing the slave, and the port to
standard output against `cat` reading it. The same bytes are moved and checked in order on the
far side every time; each pair runs ROUNDS times, taking turns at going first. Two ratios,
raw / ostrel of the medians (1.0: ostrel costs what the plain program costs): the wall time of
the transfer, which on a small or busy machine swings with the scheduling of this script (it
feeds and checks both ends), and the processor time the program itself took (user + system,
from the kernel's accounting of the child), which does not.

usage: serial_program_bench.py OSTREL [MEGABYTES (100)] [ROUNDS (3)] [in|out|both (both)]
  in: standard input to the port only; out: the port to standard output only
"""
import os
import statistics
import pty
import select
import subprocess
import sys
import tempfile
import time

ostrel = sys.argv[1]
size = int(sys.argv[2] if len(sys.argv) > 2 else 100) << 20
rounds = int(sys.argv[3] if len(sys.argv) > 3 else 3)
direction = sys.argv[4] if len(sys.argv) > 4 else "both"
if direction not in ("in", "out", "both"):
    raise SystemExit("the direction is in, out or both")

block = os.urandom(65521)  # a prime period, so that no read lines up with it
data = (block * (size // len(block) + 1))[:size]


def opened_pty():
    # The slave stays open here too, as a device that is always there: a master whose slave is
    # closed reads as hung up.
    master, slave = pty.openpty()
    return master, os.ttyname(slave), slave


def reap(proc):
    """Waits for the program; the processor seconds (user + system) it used."""
    _, status, usage = os.wait4(proc.pid, 0)
    proc.returncode = os.waitstatus_to_exitcode(status)
    return usage.ru_utime + usage.ru_stime


def wait_raw(master, proc):
    import termios
    while proc.poll() is None and termios.tcgetattr(master)[3] & termios.ECHO:
        time.sleep(0.005)


def drain_master(master, proc):
    """Reads size bytes from the master, checking them; the seconds taken from the start."""
    got = 0
    view = memoryview(data)
    while got < size:
        ready, _, _ = select.select([master], [], [], 10)
        if not ready:
            raise SystemExit(f"stalled after {got} bytes")
        chunk = os.read(master, 1 << 16)
        if view[got:got + len(chunk)] != chunk:
            raise SystemExit(f"bytes changed after {got}")
        got += len(chunk)


def to_port(raw, path_file):
    master, path, slave = opened_pty()
    if raw:
        subprocess.run(["stty", "-F", path, "raw", "-echo"], check=True)
        cmd = ["dd", f"if={path_file}", f"of={path}", "bs=64K", "status=none"]
    else:
        cmd = [ostrel, "serial", path, "--raw"]
    start = time.perf_counter()
    with open(path_file, "rb") as src:
        proc = subprocess.Popen(cmd, stdin=src if not raw else subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        drain_master(master, proc)
        seconds = time.perf_counter() - start
    cpu = reap(proc)
    os.close(master)
    os.close(slave)
    return seconds, cpu


def from_port(raw):
    master, path, slave = opened_pty()
    if raw:
        subprocess.run(["stty", "-F", path, "raw", "-echo"], check=True)
        cmd = ["cat", path]
    else:
        cmd = [ostrel, "serial", path, "--raw"]
    proc = subprocess.Popen(cmd, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    wait_raw(master, proc) if not raw else time.sleep(0.2)
    # Not blocking: a master blocked in a write while the program waits for its output to be
    # read would never finish.
    os.set_blocking(master, False)
    start = time.perf_counter()
    view = memoryview(data)
    sent = 0
    got = 0
    out = proc.stdout.fileno()
    while got < size:
        wants = [out]
        writers = [master] if sent < size else []
        readable, writable, _ = select.select(wants, writers, [], 10)
        if not readable and not writable:
            raise SystemExit(f"stalled after {got} bytes")
        if writable:
            try:
                sent += os.write(master, view[sent:sent + (1 << 16)])
            except BlockingIOError:
                pass
        if readable:
            chunk = os.read(out, 1 << 16)
            if not chunk or view[got:got + len(chunk)] != chunk:
                raise SystemExit(f"bytes lost or changed after {got}")
            got += len(chunk)
    seconds = time.perf_counter() - start
    proc.kill()
    cpu = reap(proc)
    os.close(master)
    os.close(slave)
    return seconds, cpu


with tempfile.NamedTemporaryFile() as f:
    f.write(data)
    f.flush()
    runs = (("in", "stdin to port", lambda raw: to_port(raw, f.name)), ("out", "port to stdout", from_port))
    for key, name, run in runs:
        if direction not in (key, "both"):
            continue
        times = {True: [], False: []}
        cpus = {True: [], False: []}
        for i in range(rounds):
            order = (True, False) if i % 2 == 0 else (False, True)
            for raw in order:
                seconds, cpu = run(raw)
                times[raw].append(seconds)
                cpus[raw].append(cpu)
        wall = {k: statistics.median(v) for k, v in times.items()}
        cpu = {k: statistics.median(v) for k, v in cpus.items()}
        mb = size / 1e6
        print(f"{name}: raw {mb / wall[True]:.0f} MB/s, ostrel {mb / wall[False]:.0f} MB/s, "
              f"wall ratio {wall[True] / wall[False]:.2f}; processor time raw {cpu[True]:.2f} s, "
              f"ostrel {cpu[False]:.2f} s, ratio {cpu[True] / cpu[False]:.2f} "
              f"(medians of {rounds}, {size >> 20} MB each, every byte checked)")
