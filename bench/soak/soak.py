"""The soak: soak.py MINUTES SEED BUILD...; scripts/soak calls it, in namespaces of its own.

Rounds alternate between the builds, and every other pair of them has its volumes on a file system that does not order data
before names. In each the daemon gets mail while the events of Soak.EVENTS happen at random; then everything is mended, the
daemon has to empty its directories, and the ledger says where each mail went. The seed decides the events, their order and
the pauses between them; when the processes get there is the machine's. TOBIX_SOAK_EVENTS names the events to try (all by
default), to narrow down what a seed has found.
"""
import contextlib
import copy
import mmap
import operator
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "daemon"))
from ledger import Ledger  # noqa: E402
from network import Network  # noqa: E402
from world import World, as_text, wait_for  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent
ROUND, WITHOUT_PROGRESS, WITHOUT_END = 90, 90, 900  # seconds
VOLUMES, VOLUME = ("queue", "outgoing", "error", "spool"), 128 << 20  # bytes
KINDS = ("tmpfs", "ext4 without a journal")
USERS = {"ann": {}, "carl": {}, "slow": {}, "reply": {"RunReply": 1, "RunReplyTemplate": "template"}, "bounces": {},
         "maildir": {"Maildir": 1}}
RECIPIENTS = ("ann+{}@local.soak", "carl+{}@local.soak", "slow+{}@local.soak", "reply+{}@local.soak", "maildir+{}@local.soak",
              "away{}@local.soak", *("{}@d%d.soak" % number for number in range(9)), "{}@d3.soak", "{}@d4.soak",
              "{}@missing.soak")
NOBODY = ("nobody+{}@local.soak", "{}@not/valid..soak", "{} blank@d1.soak")
TABLES = {"domains": "local.soak\nbounce.soak\n", "filters": "never there\n", "intercept_addresses": "carl\n",
          "aliases": "*@bounce.soak: bounces\naway*@local.soak: forwarded@d0.soak\n", "backupdomains": "d7.soak\n"}
FIRST = operator.itemgetter(0)  # of what can be chosen: what a round begins and ends with
ALLOWED_GROWTH = 1 << 10  # KiB of allocated memory: what the caches may have learned


def run(*command):
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL)


class Soak:
    EVENTS = {"drop": 40, "burst": 4, "slow_writer": 6, "touch": 4, "restart": 2, "reload": 3, "kill": 1, "stop": 1, "full": 3,
              "descriptors": 3, "jump": 2, "names": 3, "strangers": 3, "pause": 1, "unmount": 1, "second": 2}

    def __init__(self, seed, builds):
        self.random, self.builds, self.ledger = random.Random(seed), builds, Ledger()
        wanted = os.environ.get("TOBIX_SOAK_EVENTS", " ".join(self.EVENTS)).split()
        self.events = {name: self.EVENTS[name] for name in wanted}
        corpus = pathlib.Path(os.environ.get("TOBIX_MAIL_CORPUS") or HERE.parents[1] / "demo" / "mail")
        self.corpus = [re.sub(rb"(?i)envelope-", b"Was-", path.read_bytes()) for path in sorted(corpus.rglob("*.eml"))]
        self.due, self.findings, self.baseline, self.killed, self.starts = [], [], {}, False, 0
        os.environ["TOBIX"] = str(builds[0] / "tobix")
        self.world = World(users=())
        self.world.volumes = self.world.root / "volumes"
        self.worlds = [self.world]  # and at times one with a second daemon on the same directories
        self.kinds = [kind for kind in KINDS if self.can_have(kind)]
        for name, text in TABLES.items():
            (self.world.etc / name).write_text(text)
        self.network = Network(seed, self.world.etc)
        self.prepare_environment()

    def can_have(self, kind):
        try:
            for name in VOLUMES:
                self.mount(name, kind)
        except (OSError, subprocess.CalledProcessError) as error:
            print(f"NOT TRIED: volumes of {kind}: {error}", flush=True)
            return False
        return True

    def mount(self, name, kind):
        """Gives the directory a new, empty volume."""
        world, volume = self.world, self.world.volumes / name
        volume.mkdir(parents=True, exist_ok=True)
        for place in (world.root / name, volume):
            if os.path.ismount(place):
                run("umount", place)
        if kind == "tmpfs":
            run("mount", "-t", "tmpfs", "-o", f"size={VOLUME}", "soak", volume)
        else:
            image = world.root / "image"
            image.write_bytes(b"")
            os.truncate(image, VOLUME)
            run("mkfs.ext4", "-q", "-F", "-m", "0", "-O", "^has_journal", image)
            run("mount", "-o", "loop", image, volume)
            image.unlink()  # the device has it until the volume goes
            (volume / "lost+found").rmdir()
        run("mount", "--bind", volume, world.root / name)

    def prepare_volumes(self, kind):
        for name in VOLUMES:
            self.mount(name, kind)
        spool = self.world.spool
        for user, settings in USERS.items():
            self.world.add_user(user, SaveEnvelope=1, **settings)
        (spool / "reply" / "template").write_text("Subject: away\n\nI am away.\n")
        (spool / "slow" / "newmail.cmd").write_text("#!/bin/sh\nsleep 0.1\n")
        (spool / "slow" / "newmail.cmd").chmod(0o755)

    def write_settings(self, choose):
        world = self.world
        (world.etc / "tobix.cfg").write_text(as_text({
            "QueueDir": world.queue, "SpoolDir": world.spool, "ErrorDir": world.error, "OutgoingDir": world.outgoing,
            "FilterDir": world.filtered, "InterceptDir": world.intercepted, "AutoTransport.Threads": choose((10, 1, 4)),
            "AutoTransport.ThreadsPerDomain": choose((3, 0, 1)), "Connection.Mails": choose((20, 1, 2)),
            "Connection.Pipelining": choose((1, 0)), "Connection.Wait": choose((0, 1, 5)),
            "AutoTransRetry": 0, "AutoTransTime": choose((2, 1)), "TimeOut": 60, "FQDN": "client.soak",
            "Postmaster": "postmaster@local.soak", "Postmaster.To": "", "Bounce.Attachment": 1,
            "Scripts.Execution.Parallel": choose((1, 0)), "DebugLogging": choose((2, 0, 0, 1)), "SRS.Domain": "",
            "UseTLS": choose((1, 0, 1))}))

    def prepare_environment(self):
        root = self.world.root
        run("g++", "-std=c++20", "-shared", "-fPIC", "-O1", "-o", root / "preloaded.so", HERE / "preloaded.cpp")
        (root / "resolv.conf").write_text("nameserver 127.0.0.1\n")
        with open(root / "page", "w+b") as file:
            file.write(bytes(24))
            file.flush()
            self.page = memoryview(mmap.mmap(file.fileno(), 24)).cast("q")  # seconds ahead, who is to tell, allocated bytes
        report = f"log_path={root}/sanitizer:"
        self.environment = {
            "TOBIX_CONNECTIVITY": "4", "TOBIX_RESOLV_CONF": str(root / "resolv.conf"), "SOAK_PAGE": str(root / "page"),
            "LD_PRELOAD": str(root / "preloaded.so"), "UBSAN_OPTIONS": report + "print_stacktrace=1",
            "ASAN_OPTIONS": report + "verify_asan_link_order=0:quarantine_size_mb=4:thread_local_quarantine_size_kb=16",
            "TSAN_OPTIONS": report + f"intercept_memmem=0:suppressions={HERE.parents[1]}/tests/tsan.supp"}

    # The daemon

    def start(self, world):
        self.starts += 1
        world.log_path, world.starts = world.root / f"log.{self.starts:03}", 0
        world.start(**self.environment)

    def end_in_order(self, world):
        try:
            if (code := world.stop()) != 0:
                self.find(f"the daemon ended with {code}")
        except subprocess.TimeoutExpired:
            self.find("the daemon does not end")
            self.give_up(world)

    def give_up(self, world):
        world.kill()
        self.ledger.may_be_repeated((self.world.queue, self.world.outgoing))
        self.killed = True

    def replace(self, world):
        """Goes on after the end of one; a second daemon does not come back."""
        if world is self.world:
            self.start(world)
        else:
            self.worlds.remove(world)

    def any_world(self):
        return self.random.choice(self.worlds)

    def find(self, what):
        """Notes a finding, and keeps the round's logs: the daemon's, one for each start, and the events."""
        self.findings.append(what)
        print(f"FOUND in {self.where}: {what}", flush=True)
        kept = self.builds[0] / ("soak-" + self.where.replace(" ", "-"))
        kept.mkdir(exist_ok=True)
        for log in self.world.root.glob("log*"):
            shutil.copy(log, kept)
        (kept / "events").write_text("\n".join(self.history))

    def count_descriptors(self, world):
        return len(os.listdir(f"/proc/{world.process.pid}/fd"))

    def usage(self):
        """Allocated memory and resident memory in KiB, descriptors, threads."""
        process = self.world.process
        self.page[1] = process.pid
        process.send_signal(signal.SIGUSR2)  # so that it looks at its clock
        wait_for("how much memory it has", lambda: self.page[1] == 0, 20)
        status = pathlib.Path(f"/proc/{process.pid}/status").read_text()
        resident, threads = (int(re.search(key + r":\s+(\d+)", status)[1]) for key in ("VmRSS", "Threads"))
        return self.page[2] >> 10, resident, self.count_descriptors(self.world), threads

    def others(self):
        """Programs that the daemon has started, also one that is dead by now."""
        mine = {1, os.getpid(), *(world.process.pid for world in self.worlds)}
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
        head += b"X-Soak: %d\r\n" % number  # which the content may continue
        body = re.split(rb"\r?\n\r?\n", content, maxsplit=1)[1:] if not is_changed else []  # or there is none
        return number, head + content + ending, names, b"".join(part for part in body if len(part) < 20000) + ending

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
        self.any_world().process.send_signal(signal.SIGHUP)

    def reload(self):
        name = self.random.choice(list(TABLES))
        self.world.drop(name + ".x", TABLES[name].encode() + b"# %d\n" % self.random.randrange(1 << 30), self.world.etc)
        (self.world.etc / (name + ".x")).rename(self.world.etc / name)
        with contextlib.suppress(OSError):  # the mailboxes are away, or there is no room
            (self.world.spool / "ann" / "password").touch()

    def kill(self):
        world = self.any_world()
        survivors = [other.process for other in self.worlds if other is not world]
        for process in survivors:  # until it is clear what may be repeated
            process.send_signal(signal.SIGSTOP)
            os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WNOWAIT)
        world.kill()
        self.ledger.may_be_repeated((self.world.queue, self.world.outgoing))
        for process in survivors:
            process.send_signal(signal.SIGCONT)
        self.ledger.totals["kills"] += 1
        self.killed = True
        self.mend()
        self.replace(world)

    def stop(self):
        self.mend()
        world = self.any_world()
        self.end_in_order(world)
        self.replace(world)

    def second(self):
        """A second daemon comes, and stays until a stop or a kill meets it."""
        if len(self.worlds) == 1:
            self.mend()
            self.worlds.append(copy.copy(self.world))
            self.start(self.worlds[1])

    def full(self):
        volume = self.world.volumes / self.random.choice(VOLUMES)
        room = os.statvfs(volume)
        with contextlib.suppress(OSError), open(volume / ".filler", "wb") as file:
            os.posix_fallocate(file.fileno(), 0, max(1, room.f_bavail - self.random.randrange(3)) * room.f_bsize)
        self.later(self.random.random() * 4, lambda: (volume / ".filler").unlink(missing_ok=True))

    def descriptors(self):
        world = self.any_world()
        pid, used = world.process.pid, self.count_descriptors(world)
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
        self.page[0] = seconds

    def names(self):
        self.network.names.mood = self.random.choice(("good", "good", "odd", "dead", "failing"))

    def strangers(self):
        self.network.unsettle(self.random)

    def pause(self):
        process = self.any_world().process
        process.send_signal(signal.SIGUSR1)
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
            for world in [world for world in self.worlds if world.process.poll() is not None]:
                self.find(f"the daemon ended by itself with {world.process.returncode}")
                self.mend()
                self.replace(world)

    def settle(self):
        """Waits until nothing is on its way; false when that takes too long. By then no mail is young enough to be kept."""
        self.set_clock(3600)
        last, since, quiet = None, time.monotonic(), 0
        end = since + WITHOUT_END
        while quiet < 5:
            self.world.process.send_signal(signal.SIGUSR2)  # the one that was due may have met another control
            names = sorted(p.name for d in (self.world.queue, self.world.outgoing) for p in d.glob("*.eml"))
            state = (names, self.others())
            if state != last:
                last, since = state, time.monotonic()
            if time.monotonic() > min(since + WITHOUT_PROGRESS, end) and state != ([], []):
                self.find(f"stuck: {len(names)} mails {names[:5]}, programs {[self.describe(pid) for pid in state[1]]}")
                return False
            quiet = quiet + 1 if state == ([], []) else 0
            time.sleep(0.2)
        self.set_clock(0)
        return True

    def round(self, number, seconds):
        build, kind = self.builds[number % len(self.builds)], self.kinds[number // len(self.builds) % len(self.kinds)]
        self.where, self.world.executable, self.killed = f"round {number} of {build.name}", str(build / "tobix"), False
        before, self.history = len(self.findings), [f"volumes of {kind}"]
        for log in self.world.root.glob("log*"):
            log.unlink()
        self.prepare_volumes(kind)
        self.write_settings(FIRST)
        self.start(self.world)
        if build not in self.baseline:
            self.burst()
            self.settle()
            self.baseline[build] = self.usage()
        self.unrest(seconds)
        self.mend()
        while len(self.worlds) > 1:
            self.end_in_order(self.worlds.pop())
        self.restart(FIRST)  # with the settings of the beginning
        first = usage = self.baseline[build]
        if self.settle():
            with contextlib.suppress(AssertionError):
                wait_for("the restart", lambda: not self.growth(first), 20)
            usage = self.usage()
            if growth := self.growth(first):
                self.find(growth)
            self.end_in_order(self.world)
        else:
            self.give_up(self.world)
        self.inspect()
        print(f"{self.where} on {kind}: {self.ledger.totals['mails']} mails by now; allocated {first[0]} -> {usage[0]} KiB, resident "
              f"{first[1]} -> {usage[1]}; descriptors {first[2]} -> {usage[2]}, threads {first[3]} -> {usage[3]}; "
              f"{len(self.findings) - before} findings", flush=True)

    def growth(self, first):
        last = self.usage()
        names = ("allocated KiB", "", "descriptors", "threads")
        return ", ".join(f"{name} grew from {first[n]} to {last[n]}" for n, name in enumerate(names)
                         if name and last[n] > first[n] + (ALLOWED_GROWTH if n == 0 else 0))

    def inspect(self):
        for finding in self.ledger.judge(self.world, self.network.take_receipts()):
            self.find(finding)
        for report in self.world.root.glob("sanitizer*"):
            self.find(report.read_text("utf-8", "replace")[:6000])
            report.unlink()
        left = [p for d in (self.world.queue, self.world.outgoing, self.world.error) for p in d.iterdir()]
        left += self.world.leftovers()
        if left and not self.killed:  # the next start removes what a kill has left
            self.find(f"left behind: {[p.name for p in left[:10]]}")
        for path in left:
            path.unlink(missing_ok=True)


def main(minutes, seed, *builds):
    print(f"soak for {minutes} minutes with seed {seed}", flush=True)
    soak = Soak(seed, [pathlib.Path(build).resolve() for build in builds])
    seconds = float(minutes) * 60
    rounds = max(2 * len(builds), round(seconds / ROUND))
    try:
        for number in range(rounds):
            soak.round(number, seconds / rounds)
            counted = ", ".join(f"{name} {count}" for name, count in sorted(soak.ledger.totals.items()))
            print(f"counted by now: {counted}", flush=True)
    finally:
        for world in soak.worlds:
            if world.process.poll() is None:
                world.kill()
    print(f"findings: {len(soak.findings)}")
    return 1 if soak.findings else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
