#!/usr/bin/env python3
"""The Windows build's serial port under Wine: a pseudo-terminal is made Wine's COM5, then
`ostrel.exe scan 5` must print the codes written to it (CreateFileA on \\\\.\\COM5, the line
settings, WaitCommEvent, overlapped reads, main-thread synchronisation) and `ostrel.exe serial 5`
must pass bytes both ways (overlapped writes, BuildCommDCBA through --mode).

usage: wine_serial_check.py DIR   (DIR holds ostrel.exe, libostrel.dll and the runtime DLLs)
"""
import os
import pty
import select
import subprocess
import sys
import termios
import time

exe_dir = sys.argv[1]
# The 64-bit loader when the caller names it (.ci/wine-env.sh): plain "wine" prefers the
# 32-bit one once 32-bit Wine is installed.
wine = os.environ.get("OSTREL_WINE", "wine")
prefix = os.environ.setdefault("WINEPREFIX", os.path.join(exe_dir, "wineprefix"))
os.environ.setdefault("WINEDEBUG", "-all")
# Creates the prefix (and its dosdevices directory) once.
subprocess.run([wine, os.path.join(exe_dir, "ostrel.exe"), "--version"], check=True,
               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=300)

master, slave = pty.openpty()
link = os.path.join(prefix, "dosdevices", "com5")
if os.path.lexists(link):
    os.remove(link)
os.symlink(os.ttyname(slave), link)
# The slave stays open here as well, as a device that is always there: with no slave open the
# master reads as hung up between two programs.
failures = []


def start(*args, **kw):
    # Echo on again, so that wait_open sees this program make the line raw (Wine does not give
    # the line its settings back when a program closes the port).
    attrs = termios.tcgetattr(master)
    attrs[3] |= termios.ECHO
    termios.tcsetattr(master, termios.TCSANOW, attrs)
    return subprocess.Popen([wine, os.path.join(exe_dir, "ostrel.exe"), *args], cwd=exe_dir,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, **kw)


def wait_open(proc, seconds=60):
    # The device is open once the terminal settings turn raw (no more echo).
    end = time.time() + seconds
    while time.time() < end and proc.poll() is None:
        if not termios.tcgetattr(master)[3] & termios.ECHO:
            return True
        time.sleep(0.2)
    return False


scan = start("scan", "5", "--baud", "9600", "--count", "2")
if wait_open(scan):
    os.write(master, b"4600000000001\r\n46000000000")
    time.sleep(0.3)
    os.write(master, b"02\r")
try:
    out, err = scan.communicate(timeout=60)
    if out.replace(b"\r", b"") != b"4600000000001\n4600000000002\n":
        failures.append(f"scan printed {out!r} {err!r}")
except subprocess.TimeoutExpired:
    scan.kill()
    failures.append("scan: no codes within a minute")

serial = start("serial", "5", "--lines", "--mode", "baud=19200 parity=e data=7 stop=1", stdin=subprocess.PIPE)
if wait_open(serial):
    os.write(master, b"from-device\n")
    time.sleep(0.5)
    serial.stdin.write(b"hello\n")
    serial.stdin.close()
    ready, _, _ = select.select([master], [], [], 10)
    got = os.read(master, 100) if ready else b""
    if got != b"hello\r\n":
        failures.append(f"serial sent {got!r}")
try:
    serial.wait(60)
    out = serial.stdout.read()
    if b"from-device" not in out:
        failures.append(f"serial printed {out!r}")
except subprocess.TimeoutExpired:
    serial.kill()
    failures.append("serial: did not end")

# Piped input goes out unchanged (no line ends added), every byte value.
serial = start("serial", "5", stdin=subprocess.PIPE)
if wait_open(serial):
    serial.stdin.write(bytes(range(256)))
    serial.stdin.close()
    got = b""
    end = time.time() + 20
    while len(got) < 256 and time.time() < end:
        ready, _, _ = select.select([master], [], [], 1)
        if ready:
            got += os.read(master, 512)
    if got != bytes(range(256)):
        failures.append(f"serial sent {len(got)} bytes, not the 256 byte values in order")
try:
    serial.wait(60)
except subprocess.TimeoutExpired:
    serial.kill()
    failures.append("serial with piped input: did not end")

# A device path that is no serial port is named with the reason.
bad = start("serial", "C:\\windows\\win.ini", stdin=subprocess.DEVNULL)
try:
    _, err = bad.communicate(timeout=60)
    text = err.decode("utf-8", "replace")
    if bad.returncode != 1 or "C:\\windows\\win.ini" not in text or "недоступно" not in text:
        failures.append(f"serial on a file: status {bad.returncode}, {text!r}")
except subprocess.TimeoutExpired:
    bad.kill()
    failures.append("serial on a file: did not end")

# The device goes away under a waiting scanner. Whether Wine passes the hang-up of a
# pseudo-terminal on to the program is Wine's business, so what happens is printed, not judged.
scan = start("scan", "5")
if wait_open(scan):
    os.close(master)
    master = -1
    try:
        _, err = scan.communicate(timeout=10)
        print(f"wine: scan after the device went away: status {scan.returncode}, "
              f"{err.decode('utf-8', 'replace').strip()!r}")
    except subprocess.TimeoutExpired:
        scan.kill()
        print("wine: scan did not notice the device going away within 10 s (Wine does not report "
              "the hang-up of a pseudo-terminal to WaitCommEvent)")

for f in failures:
    print("FAIL:", f, file=sys.stderr)
print("wine serial check:", "failed" if failures else "passed")
sys.exit(1 if failures else 0)
