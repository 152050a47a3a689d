"""Two hosts that store into the same mailboxes on a cluster file system. Run by run.sh."""
import contextlib
import os
import pathlib
import signal
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "daemon"))
from world import World, mail, wait_for  # noqa: E402

VOLUME = {1: pathlib.Path("/run/cluster/1"), 2: pathlib.Path("/run/cluster/2")}
USERS = ("ann", "ben", "carl")
MAILS = 500  # for each host
MOST_REPEATED = 64  # by a kill
OWN_LOCKS = "#!/bin/sh\nexec unshare -m sh -c 'mount -t tmpfs lock /run/lock && exec \"$0\" \"$@\"' {} \"$@\"\n"


class Host(World):
    """One of the two, with a queue and local locks of its own."""

    def __init__(self, number, tree):
        super().__init__(users=(), SpoolDir=VOLUME[number] / tree / "spool", LockDir=VOLUME[number] / tree / "locks")
        self.executable = self.root / "tobix"
        self.executable.write_text(OWN_LOCKS.format(os.environ["TOBIX"]))
        self.executable.chmod(0o755)
        self.number = number

    def fill(self, mails=MAILS):
        for n in range(mails):
            user = USERS[n % len(USERS)]
            self.drop(f"{n:04}.eml", mail(f"{user}@example.org", subject=f"{self.number} {n}", body="Hi.\r\n" * 800))
        return self


class Reader:
    """Takes the mail out of the mailboxes, as soon as it sees it, and remembers it."""

    def __init__(self, spool):
        self.spool, self.numbers, self.stored = spool, [], {}

    def pass_over(self):
        for path in self.spool.glob("*/*.eml"):
            subject = next(line for line in path.read_bytes().splitlines() if line.startswith(b"Message-ID"))
            self.stored[subject] = self.stored.get(subject, 0) + 1
            self.numbers.append((path.parent.name, path.name))
            path.unlink()

    def has(self, mails):
        self.pass_over()
        return len(self.stored) == mails


def add_user(spool, name):
    (spool / name).mkdir(parents=True)
    (spool / name / "config").write_text("NextUID: 1\n")


def edit(config):
    """As an editor does, once it sees the file that is there."""
    copy = config.with_name("edited")

    def is_edited():
        with contextlib.suppress(OSError):
            copy.write_text(config.read_text() + "SaveEnvelope: 0 # edited\n")
            return copy.rename(config)
    wait_for("an edit", is_edited)


class ClusterTest(unittest.TestCase):
    trees = 0

    def make_tree(self):
        """Under a name of which no host knows anything that was."""
        ClusterTest.trees += 1
        tree = f"tree{self.trees}"
        (VOLUME[1] / tree / "locks").mkdir(parents=True)
        for user in USERS:
            add_user(VOLUME[1] / tree / "spool", user)
        return tree

    def deliver(self, hosts, disturb=None, read=lambda: None):
        """Until all queues are empty, with the disturbance in the middle; mails a second."""
        mails = sum(len(host.waiting()) for host in hosts)
        started = time.monotonic()
        for host in hosts:
            host.start()
        while left := sum(len(host.waiting()) for host in hosts):
            read()
            if disturb and left < mails / 2:
                disturb(hosts)
                disturb = None
            self.assertLess(time.monotonic() - started, 900, hosts[-1].log()[-3000:])
            time.sleep(0.02)
        return mails / (time.monotonic() - started)

    def edit_account(self, _):
        edit(VOLUME[2] / f"tree{self.trees}" / "spool" / "ann" / "config")

    def kill_daemon(self, hosts):
        hosts[0].kill()
        hosts[0].start()

    def kill_brick(self, _):
        found = subprocess.run(["pgrep", "-f", "brick-port.*--brick-name|brick-name.*brick-port"], check=True, capture_output=True)
        os.kill(int(found.stdout.split()[-1]), signal.SIGKILL)
        restart = ["gluster", "--mode=script", "volume", "start", "mail", "force"]
        self.addCleanup(subprocess.run, restart, check=True, stdout=subprocess.DEVNULL)

    def check_hosts(self, *hosts):
        for host in hosts:
            self.assertEqual((list(host.error.iterdir()), host.leftovers()), ([], []), host.log()[-3000:])
            self.assertNotIn("error:", host.log())

    def test_hosts_that_begin_at_once_find_an_account_file_that_the_other_replaces(self):
        for _ in range(10):
            tree = self.make_tree()
            with Host(1, tree) as one, Host(2, tree) as two:
                self.deliver([one.fill(18), two.fill(18)])
                self.check_hosts(one, two)
                stored = sorted(p.relative_to(VOLUME[1] / tree) for p in VOLUME[1].glob(f"{tree}/spool/*/*.eml"))
                self.assertEqual(len(stored), 36, stored)

    def test_each_mail_is_stored_once_whatever_fails(self):
        for disturb in (self.edit_account, self.kill_daemon, self.kill_brick):
            tree = self.make_tree()
            with self.subTest(disturb.__name__), Host(1, tree) as one, Host(2, tree) as two:
                reader = Reader(VOLUME[1] / tree / "spool")
                self.deliver([one.fill(), two.fill()], disturb, reader.pass_over)
                with contextlib.suppress(AssertionError):
                    wait_for("what the reader's host does not see yet", lambda: reader.has(2 * MAILS), 60)
                time.sleep(2)
                reader.pass_over()
                self.check_hosts(one, two)
                self.assertEqual(len(reader.stored), 2 * MAILS)
                repeated = sum(reader.stored.values()) - 2 * MAILS
                self.assertLessEqual(repeated, MOST_REPEATED if disturb == self.kill_daemon else 0)
                self.assertEqual(len(reader.numbers), len(set(reader.numbers)))
                config = (VOLUME[1] / tree / "spool" / "ann" / "config").read_text()
                self.assertEqual("# edited" in config, disturb == self.edit_account)
                self.assertEqual([p for p in VOLUME[2].rglob("*") if p.name.endswith(".tmp")], [])

    def test_tells_the_rates(self):
        tree = self.make_tree()
        with Host(1, tree) as alone:
            rate = self.deliver([alone.fill()])
        with Host(1, tree) as one, Host(2, tree) as two:
            both = self.deliver([one.fill(), two.fill()])
        print(f"\none host stores {rate:.0f} mails a second, two hosts {both:.0f}", file=sys.stderr)

    def test_an_account_that_another_host_makes_is_known_within_30_seconds(self):
        tree = self.make_tree()
        spool = VOLUME[1] / tree / "spool"
        with Host(2, tree) as host:
            host.start()
            add_user(spool, "dora")
            for n in (2, 3):
                (spool / "dora" / "password").write_text("x" * n)
                changed = time.monotonic()
                host.wait_for_log("preresolving aliases", n)
                self.assertLess(time.monotonic() - changed, 30)
            host.deliver("1.eml", mail("dora@example.org"))
            wait_for("the mail", lambda: (spool / "dora" / "1.eml").exists(), 10)
