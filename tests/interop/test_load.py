"""Many mails to one fast receiver: each arrives, once, and a crash repeats no more than what was under way."""
import collections
import pathlib
import re
import tempfile
import unittest

import environment
from remote_world import RemoteWorld
from world import mail, wait_for

COUNT = 400
THREADS = 4


def setUpModule():
    environment.start()


class Load(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(dir=environment.RUN)
        self.addCleanup(directory.cleanup)
        self.dumps = pathlib.Path(directory.name)
        self.dumps.chmod(0o777)
        self.sink = environment.serve("/usr/sbin/smtp-sink", "-u", "vmail", "-d", f"{self.dumps}/%M.", "192.0.2.15:25", "100")
        self.addCleanup(self.sink.wait)
        self.addCleanup(self.sink.terminate)
        environment.wait_for_port("192.0.2.15", 25)

    def arrived(self):
        texts = (p.read_bytes() for p in self.dumps.iterdir())
        return collections.Counter(match[1] for match in (re.search(rb"\nMessage-ID: <load\.(\d+)@.*\n\.\r?\n?", t, re.S) for t in texts)
                                   if match)

    def test_each_mail_arrives_once(self):
        with RemoteWorld().start() as world:
            for number in range(COUNT):
                world.post(f"{number:04d}", mail("x@sink.example", subject=f"load {number}", body="line\r\n" * 500))
            wait_for("an empty outgoing directory", lambda: not list(world.outgoing.iterdir()))
            self.assertEqual(world.stop(), 0)
        self.assertEqual(set(self.arrived().values()), {1})
        self.assertEqual(len(self.arrived()), COUNT)

    def test_a_crash_loses_nothing_and_repeats_little(self):
        with RemoteWorld() as world:
            for number in range(COUNT):
                world.post(f"{number:04d}", mail("x@sink.example", subject=f"load {number}"))
            for left in (300, 200, 100):
                world.start()
                wait_for("some mail to leave", lambda: len(list(world.outgoing.iterdir())) < left)
                world.kill()
            world.start()
            wait_for("an empty outgoing directory", lambda: not list(world.outgoing.iterdir()))
            self.assertEqual(world.stop(), 0)
        arrived = self.arrived()
        self.assertEqual(len(arrived), COUNT)
        self.assertLessEqual(sum(arrived.values()), COUNT + 3 * THREADS)


if __name__ == "__main__":
    unittest.main()
