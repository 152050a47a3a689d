"""The soak: soak.py MINUTES SEED BUILD...; scripts/soak calls it, in namespaces of its own.

Rounds alternate between the builds. In each the daemon gets mail while the events of Soak.EVENTS happen at random; then
everything is mended, the daemon has to empty its directories, and the ledger says where each mail went. The seed decides
the events, their order and the pauses between them; when the processes get there is the machine's. TOBIX_SOAK_EVENTS
names the events to try (all by default), to narrow down what a seed has found.
"""
import contextlib
import mmap
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import struct
import subprocess
import sys
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "daemon"))
from ledger import Ledger  # noqa: E402
from network import Network  # noqa: E402
from world import World, as_text, wait_for  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent
ROUND, WITHOUT_PROGRESS = 45, 90  # seconds
VOLUME = 128 << 20  # bytes
USERS = {"ann": {}, "carl": {}, "slow": {}, "reply": {"RunReply": 1, "RunReplyTemplate": "template"}, "bounces": {}}
RECIPIENTS = ("ann+{}@local.soak", "carl+{}@local.soak", "slow+{}@local.soak", "reply+{}@local.soak", "away{}@local.soak",
              *("{}@d%d.soak" % number for number in range(9)), "{}@d3.soak", "{}@d4.soak", "{}@missing.soak")
NOBODY = ("nobody+{}@local.soak", "{}@not/valid..soak", "{} blank@d1.soak")
TABLES = {"domains": "local.soak\nbounce.soak\n", "filters": "never there\n", "intercept_addresses": "carl\n",
          "aliases": "*@bounce.soak: bounces\naway*@local.soak: forwarded@d0.soak\n", "backupdomains": "d7.soak\n"}
ALLOWED_GROWTH = 64 << 10  # KiB of resident memory


def run(*command):
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL)


class Soak:
    EVENTS = {"drop": 40, "burst": 4, "slow_writer": 6, "touch": 4, "restart": 2, "reload": 3, "kill": 1, "stop": 1, "full": 3,
              "descriptors": 3, "jump": 2, "names": 3, "strangers": 3, "pause": 1, "unmount": 1}

    def __init__(self, seed, builds):
        self.random, self.builds, self.ledger = random.Random(seed), builds, Ledger()
        wanted = os.environ.get("TOBIX_SOAK_EVENTS", " ".join(self.EVENTS)).split()
        self.events = {name: self.EVENTS[name] for name in wanted}
        corpus = pathlib.Path(os.environ["TOBIX_MAIL_CORPUS"])
        self.corpus = [re.sub(rb"(?i)envelope-", b"Was-", path.read_bytes()) for path in sorted(corpus.rglob("*.eml"))]
        self.due, self.findings, self.baseline, self.killed = [], [], {}, False
        os.environ["TOBIX"] = str(builds[0] / "tobix")
        self.world = World(users=())
        self.prepare_tree()
        self.network = Network(seed, self.world.etc)
        self.prepare_environment()

    def prepare_tree(self):
        world = self.world
        world.volumes = world.root / "volumes"
        for name in ("queue", "outgoing", "error", "spool"):
            (world.volumes / name).mkdir(parents=True)
            run("mount", "-t", "tmpfs", "-o", f"size={VOLUME}", "soak", world.volumes / name)
            run("mount", "--bind", world.volumes / name, world.root / name)
        for name, text in TABLES.items():
            (world.etc / name).write_text(text)
        for user, settings in USERS.items():
            world.add_user(user, SaveEnvelope=1, **settings)
        (world.spool / "reply" / "template").write_text("Subject: away\n\nI am away.\n")
        (world.spool / "slow" / "newmail.cmd").write_text("#!/bin/sh\nsleep 0.1\n")
        (world.spool / "slow" / "newmail.cmd").chmod(0o755)

    def write_settings(self, choose):
        world = self.world
        (world.etc / "tobix.cfg").write_text(as_text({
            "QueueDir": world.queue, "SpoolDir": world.spool, "ErrorDir": world.error, "OutgoingDir": world.outgoing,
            "FilterDir": world.filtered, "InterceptDir": world.intercepted, "AutoTransport.Threads": choose((1, 4, 10)),
            "AutoTransRetry": 0, "AutoTransTime": choose((1, 2)), "TimeOut": 60, "FQDN": "client.soak",
            "Postmaster": "postmaster@local.soak", "Postmaster.To": "", "Bounce.Attachment": 1, "Scripts.Execution.Parallel": choose((0, 1)),
            "DebugLogging": choose((0, 0, 1, 2)), "SRS.Domain": "", "UseTLS": choose((0, 1, 1))}))

    def prepare_environment(self):
        root = self.world.root
        run("g++", "-std=c++20", "-shared", "-fPIC", "-O1", "-o", root / "clock.so", HERE / "clock.cpp")
        (root / "resolv.conf").write_text("nameserver 127.0.0.1\n")
        with open(root / "clock", "w+b") as file:
            file.write(bytes(8))
            file.flush()
            self.clock = mmap.mmap(file.fileno(), 8)
        report = f"log_path={root}/sanitizer:"
        self.environment = {
            "TOBIX_CONNECTIVITY": "4", "TOBIX_RESOLV_CONF": str(root / "resolv.conf"), "SOAK_CLOCK": str(root / "clock"),
            "LD_PRELOAD": str(root / "clock.so"), "UBSAN_OPTIONS": report + "print_stacktrace=1",
            "ASAN_OPTIONS": report + "verify_asan_link_order=0:quarantine_size_mb=4:thread_local_quarantine_size_kb=16",
            "TSAN_OPTIONS": report + f"intercept_memmem=0:suppressions={HERE.parents[1]}/tests/tsan.supp"}

    # The daemon

    def start(self):
        if self.world.starts:
            (self.world.root / "log").rename(self.world.root / f"log.{time.monotonic():.3f}")
        self.world.starts = 0
        self.world.start(**self.environment)

    def end_in_order(self):
        if (code := self.world.stop()) != 0:
            self.find(f"the daemon ended with {code}")

    def find(self, what):
        """Notes a finding, and keeps the round's logs: the daemon's, one for each start, and the events."""
        self.findings.append(what)
        print(f"FOUND in {self.where}: {what}", flush=True)
        kept = self.builds[0] / ("soak-" + self.where.replace(" ", "-"))
        kept.mkdir(exist_ok=True)
        for log in self.world.root.glob("log*"):
            shutil.copy(log, kept)
        (kept / "events").write_text("\n".join(self.history))

    def usage(self):
        process = pathlib.Path(f"/proc/{self.world.process.pid}")
        memory = int(re.search(r"VmRSS:\s+(\d+)", (process / "status").read_text())[1])
        return memory, len(list((process / "fd").iterdir()))

    def others(self):
        """Programs that the daemon has started, also one that is dead by now."""
        mine = {1, os.getpid(), self.world.process.pid}
        return [pid for pid in map(int, filter(str.isdigit, os.listdir("/proc"))) if pid not in mine]

    @staticmethod
    def describe(pid):
        with contextlib.suppress(OSError):
            process = pathlib.Path(f"/proc/{pid}")
            return process.joinpath("cmdline").read_bytes().replace(b"\0", b" ")[:200], process.joinpath("stat").read_text().split()[2:4]
        return pid

    # Mail

    def make_mail(self):
        """Number, what a program puts into the queue, its addresses, and how the body has to end."""
        rng, self.ledger.number = self.random, self.ledger.number + 1
        number = self.ledger.number
        content, is_changed = rng.choice(self.corpus), rng.random() < 0.5
        if is_changed:
            content = self.mutate(content)
        templates = rng.choices(RECIPIENTS, k=rng.choice((1, 1, 1, 2, 3, 6))) + [rng.choice(NOBODY)] * (rng.random() < 0.03)
        names = [f"{number:06}-{n}" for n in range(len(templates))]
        recipients = ",".join(t.format("soak-" + n) for t, n in zip(templates, names))
        ending = b"\r\n\r\nwhole %06d\r\n" % number
        head = f"X-Envelope-From: from-{number:06}@bounce.soak\r\nX-Envelope-To: {recipients}\r\n".encode()
        body = re.split(rb"\r?\n\r?\n", content, maxsplit=1)[-1] if not is_changed else b""
        return number, head + content + ending, names, (body if len(body) < 20000 else b"") + ending

    def mutate(self, text):
        rng = self.random
        for _ in range(rng.randrange(1, 6)):
            at, length = rng.randrange(len(text) + 1), rng.randrange(200)
            new = rng.choice((b"", rng.randbytes(length), text[at:at + length] * 2, b"\r\n", b"\0", b"\n.\r\n", b"=?utf-8?q?" * 9,
                              b"x" * 5000, b"Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n" * 20))
            text = text[:at] + new + text[at + rng.choice((0, length)):]
        return text

    def drop(self):
        number, content, names, ending = self.make_mail()
        try:
            self.world.drop(f"{number:06}.eml", content)
            self.ledger.enter(number, names, ending)
        except OSError:  # no room
            (self.world.queue / f"{number:06}.eml.new").unlink(missing_ok=True)

    def burst(self):
        for _ in range(self.random.randrange(20, 200)):
            self.drop()

    def slow_writer(self):
        number, content, names, ending = self.make_mail()
        path = self.world.queue / f"{number:06}.eml"
        half = self.random.randrange(len(content))
        writer = open(path, "wb", 0)

        def finish():
            with writer:
                try:
                    if writer.write(content[half:]) == len(content) - half and os.fstat(writer.fileno()).st_size == len(content):
                        self.ledger.enter(number, names, ending)
                        return
                except OSError:
                    pass
                path.unlink()
        with contextlib.suppress(OSError):
            writer.write(content[:half])
        self.later(self.random.random() * 2, finish)

    def touch(self):
        for path in list(self.world.queue.glob("*.eml"))[:20]:
            with contextlib.suppress(FileNotFoundError):
                os.utime(path)

    # Events

    def restart(self, choose=None):
        self.write_settings(choose or self.random.choice)
        self.world.process.send_signal(signal.SIGHUP)

    def reload(self):
        name = self.random.choice(list(TABLES))
        self.world.drop(name + ".x", TABLES[name].encode() + b"# %d\n" % self.random.randrange(1 << 30), self.world.etc)
        (self.world.etc / (name + ".x")).rename(self.world.etc / name)
        with contextlib.suppress(OSError):  # the mailboxes are away, or there is no room
            (self.world.spool / "ann" / "password").touch()

    def kill(self):
        self.world.kill()
        self.ledger.may_be_repeated((self.world.queue, self.world.outgoing))
        self.ledger.totals["kills"] += 1
        self.killed = True
        self.mend()
        self.start()

    def stop(self):
        self.mend()
        self.end_in_order()
        self.start()

    def full(self):
        volume = self.world.volumes / self.random.choice(("queue", "outgoing", "error", "spool"))
        room = os.statvfs(volume)
        with contextlib.suppress(OSError), open(volume / ".filler", "wb") as file:
            os.posix_fallocate(file.fileno(), 0, max(1, room.f_bavail - self.random.randrange(3)) * room.f_bsize)
        self.later(self.random.random() * 4, lambda: (volume / ".filler").unlink(missing_ok=True))

    def descriptors(self):
        pid = self.world.process.pid
        _, used = self.usage()
        _, usual = resource.prlimit(pid, resource.RLIMIT_NOFILE)  # the daemon has all that it may; less, this came twice
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (used + self.random.randrange(-2, 6), usual))

        def restore():
            with contextlib.suppress(ProcessLookupError):
                resource.prlimit(pid, resource.RLIMIT_NOFILE, (usual, usual))
        self.later(self.random.random() * 4, restore)

    def jump(self):
        self.set_clock(self.random.choice((1, 60, 3600, 86400, 31536000)) * self.random.choice((1, -1)))
        self.later(self.random.random() * 10, lambda: self.set_clock(0))

    def set_clock(self, seconds):
        self.clock[:] = struct.pack("q", seconds)

    def names(self):
        self.network.names.mood = self.random.choice(("good", "good", "odd", "dead", "failing"))

    def strangers(self):
        self.network.unsettle(self.random)

    def pause(self):
        self.world.process.send_signal(signal.SIGUSR1)
        process = self.world.process
        self.later(self.random.random() * 2, lambda: process.send_signal(signal.SIGUSR2))

    def unmount(self):
        if not os.path.ismount(self.world.spool):
            return
        run("umount", "-l", self.world.spool)
        self.later(self.random.random(), lambda: run("mount", "--bind", self.world.volumes / "spool", self.world.spool))

    # Rounds

    def later(self, seconds, what):
        self.due.append((time.monotonic() + seconds, what))

    def do_due(self, until):
        for entry in [entry for entry in self.due if entry[0] <= until]:
            self.due.remove(entry)
            entry[1]()

    def mend(self):
        self.do_due(float("inf"))
        self.network.settle()

    def unrest(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.do_due(time.monotonic())
            event = self.random.choices(list(self.events), self.events.values())[0]
            self.ledger.totals[event] += 1
            self.history.append(f"{time.monotonic():.3f} {event}, mail {self.ledger.number} was the last")
            getattr(self, event)()
            time.sleep(self.random.expovariate(4))
            if self.world.process.poll() is not None:
                self.find(f"the daemon ended by itself with {self.world.process.returncode}")
                self.mend()
                self.start()

    def settle(self):
        """Waits until nothing is on its way; false when that takes too long. By then no mail is young enough to be kept."""
        self.set_clock(3600)
        last, since, quiet = None, time.monotonic(), 0
        while quiet < 5:
            self.world.process.send_signal(signal.SIGUSR2)  # the one that was due may have met another control
            names = sorted(p.name for d in (self.world.queue, self.world.outgoing) for p in d.glob("*.eml"))
            state = (names, self.others())
            if state != last:
                last, since = state, time.monotonic()
            if time.monotonic() > since + WITHOUT_PROGRESS and state != ([], []):
                self.find(f"stuck: {len(names)} mails {names[:5]}, programs {[self.describe(pid) for pid in state[1]]}")
                return False
            quiet = quiet + 1 if state == ([], []) else 0
            time.sleep(0.2)
        self.set_clock(0)
        return True

    def round(self, number, seconds):
        build = self.builds[number % len(self.builds)]
        self.where, self.world.executable, self.killed = f"round {number} of {build.name}", str(build / "tobix"), False
        before, self.history = len(self.findings), []
        for log in self.world.root.glob("log*"):
            log.unlink()
        self.world.starts = 0
        self.write_settings(max)
        self.start()
        if build not in self.baseline:
            self.burst()
            self.settle()
            self.baseline[build] = self.usage()
        self.unrest(seconds)
        self.mend()
        self.restart(max)  # with the settings of the beginning
        is_quiet, first = self.settle(), self.baseline[build]
        with contextlib.suppress(AssertionError):
            wait_for("the restart", lambda: self.usage()[1] <= first[1], 20)
        usage = self.usage()
        self.end_in_order()
        if is_quiet and (usage[0] > first[0] + ALLOWED_GROWTH or usage[1] > first[1]):
            self.find(f"memory and descriptors grew from {first} to {usage}")
        self.inspect()
        print(f"{self.where}: {self.ledger.totals['mails']} mails by now; memory {first[0]} -> {usage[0]} KiB, "
              f"descriptors {first[1]} -> {usage[1]}; {len(self.findings) - before} findings", flush=True)

    def inspect(self):
        for finding in self.ledger.judge(self.world, self.network.take_receipts()):
            self.find(finding)
        for report in self.world.root.glob("sanitizer*"):
            self.find(report.read_text("utf-8", "replace")[:6000])
            report.unlink()
        left = [p for d in (self.world.queue, self.world.outgoing, self.world.error) for p in d.iterdir()]
        if left and not self.killed:  # the next start removes what a kill has left
            self.find(f"left behind: {[p.name for p in left[:10]]}")
        for path in left:
            path.unlink()


def main(minutes, seed, *builds):
    print(f"soak for {minutes} minutes with seed {seed}", flush=True)
    soak = Soak(seed, [pathlib.Path(build).resolve() for build in builds])
    seconds = float(minutes) * 60
    rounds = max(len(builds), round(seconds / ROUND))
    try:
        for number in range(rounds):
            soak.round(number, seconds / rounds)
    finally:
        if soak.world.process.poll() is None:
            soak.world.kill()
    print("counted: " + ", ".join(f"{name} {count}" for name, count in soak.ledger.totals.items()))
    print(f"findings: {len(soak.findings)}")
    return 1 if soak.findings else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
