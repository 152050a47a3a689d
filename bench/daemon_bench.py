#!/usr/bin/env python3
"""Whole-daemon benchmark: daemon_bench.py BUILD_DIRECTORY [rates|queue|latency|inject|listing|journal|accounts|memory ...] [--quick]

Fills a queue, lets the daemon empty it and prints each figure beside what the same disk allows in the same run. Works
in a directory of its own below the build directory; TOBIX_BENCH_DIR names another place.
"""
import contextlib
import multiprocessing
import os
import pathlib
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import threading
import time

BUILD = pathlib.Path(sys.argv[1]).resolve()
QUICK = "--quick" in sys.argv
PLACE = pathlib.Path(os.environ.get("TOBIX_BENCH_DIR", BUILD / "bench-tree"))
REPEATS = 1 if QUICK else 5


def text(to, size):
    head = f"X-Envelope-From: bob@far.example\r\nX-Envelope-To: {to}\r\nMessage-ID: <1@far.example>\r\n" \
           f"From: Bob <bob@far.example>\r\nTo: Ann <ann@example.org>\r\nSubject: bench\r\n" \
           f"Date: Tue, 3 Mar 2026 10:00:00 +0100\r\n\r\n"
    line = "The quick brown fox jumps over the lazy dog, and then it does so again.\r\n"
    return (head + line * ((size - len(head)) // len(line))).encode()


class Tree:
    """A fresh mail tree and the daemon on it."""

    def __init__(self, users, aliases="", settings=""):
        shutil.rmtree(PLACE, ignore_errors=True)
        os.sync()
        for name in ("etc", "queue", "spool", "error", "outgoing", "filtered", "intercepted"):
            (PLACE / name).mkdir(parents=True)
            setattr(self, name, PLACE / name)
        (self.etc / "tobix.cfg").write_text(
            f"QueueDir: {self.queue}\nSpoolDir: {self.spool}\nErrorDir: {self.error}\nOutgoingDir: {self.outgoing}\n"
            f"FilterDir: {self.filtered}\nInterceptDir: {self.intercepted}\nLogPort: 9\n{settings or 'AutoTransport: 0'}\n")
        for name, content in (("domains", "example.org\n"), ("aliases", aliases), ("filters", "")):
            (self.etc / name).write_text(content)
        for n in range(users):
            (self.spool / f"user{n}").mkdir()
            (self.spool / f"user{n}" / "config").write_text("")

    def fill(self, mails, users, recipients, size):
        for n in range(mails):
            to = ",".join(f"user{(n * recipients + i) % users}@example.org" for i in range(recipients))
            (self.queue / f"{n:07}.eml").write_bytes(text(to, size))
        os.sync()

    def fill_outgoing(self, mails, size):
        content = text("ann@away.example", size)
        for n in range(mails):
            (self.outgoing / f"{n:07}.eml").write_bytes(content)
        os.sync()

    def start(self, *arguments, log=subprocess.DEVNULL, **environment):
        self.process = subprocess.Popen([BUILD / "tobix", *arguments], stdout=log, stderr=log,
                                        env={**os.environ, "MAILCONFIGDIR": str(self.etc), **environment})

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        assert self.process.wait(90) == 0
        assert not list(self.error.iterdir()), "mail stands in the error directory"

    def peak_memory(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(next(line.split()[1] for line in status.splitlines() if line.startswith("VmHWM"))) / 1024

    def cpu_ticks(self):
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return int(fields[11]) + int(fields[12])

    def seconds_to_empty(self, mails):
        """From the first mailbox file to the removal of the last queue file."""
        first, last = self.spool / "user0" / "1.eml", self.queue / f"{mails - 1:07}.eml"
        while not first.exists():
            time.sleep(0.0002)
        start = time.monotonic()
        while last.exists():
            time.sleep(0.001)
        return time.monotonic() - start


def daemon_rate(mails, users, recipients, size, beside=contextlib.nullcontext):
    """With what goes on beside it, which gives the daemon its environment."""
    tree = Tree(users)
    tree.fill(mails, users, recipients, size)
    with open(PLACE / "log", "wb") as log, beside(tree) as environment:
        tree.start(log=log, **(environment if isinstance(environment, dict) else {}))
        seconds = tree.seconds_to_empty(mails)
        tree.stop()
    stored = sum(1 for _ in tree.spool.glob("*/*.eml"))
    assert stored == mails * recipients, f"{stored} copies of {mails * recipients}"
    return stored / seconds


def limit_rate(mails, users, recipients, size):
    tree = Tree(users)
    tree.fill(mails, users, recipients, size)
    command = [BUILD / "bench_limit_loop", tree.queue, tree.spool, str(users), str(recipients)]
    return float(subprocess.run(command, check=True, capture_output=True, text=True).stdout)


def rates():
    print("mailbox copies per second, everything durable")
    for size in (4096, 65536):
        for recipients in (1, 10):
            copies = 12800 if size == 4096 else 3200
            if QUICK:
                copies //= 10
            arguments = (copies // recipients, 100, recipients, size)
            pairs = [(daemon_rate(*arguments), limit_rate(*arguments)) for _ in range(REPEATS)]
            daemon, limit = (statistics.median(column) for column in zip(*pairs))
            ratio = statistics.median(d / l for d, l in pairs)
            print(f"  {size // 1024:2} KiB, {recipients:2} recipients: {daemon:6.0f} of {limit:6.0f}: {ratio:4.0%}", flush=True)


def queue():
    print("cost of one mail by the length of the queue")
    cost = {}
    for mails in (1000, 10000 if QUICK else 100000):
        cost[mails] = statistics.median(1e6 / daemon_rate(mails, 100, 1, 2048) for _ in range(REPEATS if mails == 1000 else 1))
        print(f"  {mails:6} files: {cost[mails]:6.1f} us a mail", flush=True)
    short, long = cost.values()
    print(f"  ratio {long / short:.2f}")


def latency():
    tree = Tree(1)
    tree.start()
    time.sleep(1)
    before = tree.cpu_ticks()
    time.sleep(2 if QUICK else 10)
    idle = tree.cpu_ticks() - before
    times = []
    for n in range(1, 51):
        (tree.etc / "new").write_bytes(text("user0@example.org", 4096))
        stored = tree.spool / "user0" / f"{n}.eml"
        start = time.monotonic()
        (tree.etc / "new").rename(tree.queue / f"{n}.eml")
        while not stored.exists():
            pass
        times.append((time.monotonic() - start) * 1000)
        time.sleep(0.05)
    tree.stop()
    print(f"one mail into an idle daemon: median {statistics.median(times):.2f} ms, slowest {max(times):.2f} ms; "
          f"CPU ticks while idle: {idle}")


def inject():
    print("tobix-inject, mails per second, beside a bare program that writes, flushes and renames; each started once a mail:", flush=True)
    tree = Tree(1, settings="FQDN: mx.example.org")
    environment = {**os.environ, "MAILCONFIGDIR": str(tree.etc)}
    count = 40 if QUICK else 200

    def rate(command):
        begin = time.monotonic()
        for n in range(count):
            with open(PLACE / "mail") as mail:
                pid = os.posix_spawn(command[0], [*command, f"{n}.eml"], environment, file_actions=[
                    (os.POSIX_SPAWN_DUP2, mail.fileno(), 0)])
                if os.waitpid(pid, 0)[1] != 0:
                    sys.exit(f"{command[0]} failed")
        elapsed = time.monotonic() - begin
        for path in tree.queue.iterdir():
            path.unlink()
        return count / elapsed

    for size in (4096, 65536):
        (PLACE / "mail").write_bytes(text("", size).split(b"\r\n", 2)[2])
        pairs = [(rate([BUILD / "tobix-inject", "-i"]), rate([BUILD / "bench_inject_loop", tree.queue])) for _ in range(REPEATS)]
        ours, bare = (statistics.median(column) for column in zip(*pairs))
        print(f"  {size // 1024:2} KiB: {ours:6.0f} of {bare:6.0f}: {statistics.median(o / b for o, b in pairs):4.0%}", flush=True)


def cost(what, mails, beside):
    """Told as the part of the rate that is lost, pair by pair; which of a pair comes first changes."""
    parts = []
    for n in range(3 * REPEATS):
        runs = [beside, contextlib.nullcontext]
        rate = {run: daemon_rate(mails, 100, 1, 4096, run) for run in (runs if n % 2 else runs[::-1])}
        parts.append(1 - rate[beside] / rate[contextlib.nullcontext])
    low, middle, high = statistics.quantiles(parts, n=4) if len(parts) > 1 else parts * 3
    print(f"  {what} costs the drain {middle:.1%} (half of {len(parts)} pairs: {low:.1%} to {high:.1%})", flush=True)


@contextlib.contextmanager
def lists_all_the_time(tree):
    """A second after each listing the next one begins."""
    end = threading.Event()

    def run():
        while not end.wait(1):
            subprocess.run([BUILD / "tobixctl", "queue", "--limit", "0"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                           env={**os.environ, "MAILCONFIGDIR": str(tree.etc)})
    thread = threading.Thread(target=run)
    thread.start()
    try:
        yield
    finally:
        end.set()
        thread.join()


def listing():
    mails = 10000 if QUICK else 100000
    print(f"tobixctl queue over {mails} files, beside a bare loop that lists them and reads 4 KiB of each:", flush=True)
    tree = Tree(1)
    tree.fill(mails, 1, 1, 4096)

    def seconds(*command):
        begin = time.monotonic()
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       env={**os.environ, "MAILCONFIGDIR": str(tree.etc)})
        return time.monotonic() - begin

    pairs = [(seconds(BUILD / "tobixctl", "queue", "--limit", "0"), seconds(BUILD / "bench_list_loop", tree.queue))
             for _ in range(REPEATS + 1)][1:]
    ours, bare = (statistics.median(column) for column in zip(*pairs))
    print(f"  {ours:.2f} of {bare:.2f} s: {statistics.median(o / b for o, b in pairs):.2f} times", flush=True)
    cost("listing all of it once a second", 2000 if QUICK else 20000, lists_all_the_time)


def read_journal(receiver):
    buffer = bytearray(65536)
    while receiver.recv_into(buffer):
        pass


@contextlib.contextmanager
def is_copied(tree):
    """To somebody who takes each entry and does nothing with it."""
    log = os.stat(PLACE / "log")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as receiver, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as end:
        receiver.bind(str(PLACE / "journal"))
        reader = multiprocessing.Process(target=read_journal, args=(receiver,))
        reader.start()
        try:
            yield {"TOBIX_JOURNAL_SOCKET": str(PLACE / "journal"), "JOURNAL_STREAM": f"{log.st_dev}:{log.st_ino}"}
        finally:
            end.sendto(b"", str(PLACE / "journal"))
            reader.join()


def journal():
    print("copies of the log for the journal", flush=True)
    cost("one copy of each line", 1000 if QUICK else 10000, is_copied)


def accounts():
    count = 1000 if QUICK else 10000
    aliases = "".join(f"alias{n}: user{n}\n" if n % 2 else f"alias{n}: alias{n + 1}@example.org\n" for n in range(count))
    tree = Tree(count, aliases + "*@example.org: user0\n")
    log = open(PLACE / "log", "wb")
    lines = lambda what: (PLACE / "log").read_bytes().count(what)
    begin = time.monotonic()
    tree.start("-debug", log=log)
    while not lines(b"launched and fully operational"):
        time.sleep(0.002)
    start_up = time.monotonic() - begin
    time.sleep(1)
    begin = time.monotonic()
    with open(tree.etc / "aliases", "a") as file:
        file.write("late: user1\n")
    ticks, end = tree.cpu_ticks(), time.monotonic()
    while time.monotonic() - end < 1:
        if tree.cpu_ticks() != ticks:
            ticks, end = tree.cpu_ticks(), time.monotonic()
    loads = lines(b"preresolving")
    mails = count // 2
    tree.fill(mails, count, 1, 2048)
    while any(tree.queue.iterdir()):
        time.sleep(0.05)
    time.sleep(2)
    print(f"{count} users and aliases: start-up {start_up:.2f} s, reload {end - begin:.2f} s, loads {loads}; "
          f"after a burst of {mails} mails {lines(b'preresolving')}; memory {tree.peak_memory():.1f} MiB")
    tree.stop()


def memory():
    tree = Tree(3)
    tree.start()
    for size in (4096, 64 << 20):
        (tree.etc / "new").write_bytes(text("user0@example.org,user1@example.org,user2@example.org", size))
        (tree.etc / "new").rename(tree.queue / "1.eml")
        while any(tree.queue.iterdir()):
            time.sleep(0.01)
        print(f"peak memory after a mail of {size / (1 << 20):.2f} MiB to 3 recipients: {tree.peak_memory():.1f} MiB")
    tree.stop()


if __name__ == "__main__":
    wanted = [name for name in sys.argv[2:] if not name.startswith("-")]
    try:
        for name in wanted or ["rates", "queue", "latency", "inject", "listing", "journal", "accounts", "memory"]:
            globals()[name]()
    finally:
        shutil.rmtree(PLACE, ignore_errors=True)
