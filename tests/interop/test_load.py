"""Many mails to one fast receiver: each arrives, once, and a crash repeats no more than what was under way."""
import collections
import pathlib
import re
import signal
import tempfile
import time
import unittest

import environment
from remote_world import RemoteWorld
from world import mail, wait_for

COUNT = 1000
THREADS = 4


def setUpModule():
    environment.start()


class Load(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(dir=environment.RUN)
        self.addCleanup(directory.cleanup)
        self.dumps = pathlib.Path(directory.name)
        self.dumps.chmod(0o777)

    def start_sink(self, *options):
        sink = environment.serve("/usr/sbin/smtp-sink", "-u", "vmail", "-d", f"{self.dumps}/%M.", *options, "192.0.2.15:25", "100")
        self.addCleanup(sink.wait)
        self.addCleanup(sink.terminate)
        environment.wait_for_port("192.0.2.15", 25)

    def arrived(self):
        """How often each mail came through to its end, which the sink marks with an empty line of its own."""
        texts = (p.read_bytes() for p in self.dumps.iterdir())
        return collections.Counter(re.search(rb"\nMessage-ID: <load\.(\d+)@", text)[1] for text in texts
                                   if text.endswith(b"\n\n\n"))

    def test_each_mail_arrives_once(self):
        self.start_sink()
        with RemoteWorld().start() as world:
            for number in range(COUNT):
                world.post(f"{number:04d}", mail("x@sink.example", subject=f"load {number}", body="line\r\n" * 500))
            wait_for("an empty outgoing directory", lambda: not list(world.outgoing.iterdir()))
        self.assertEqual(set(self.arrived().values()), {1})
        self.assertEqual(len(self.arrived()), COUNT)

    def test_crashes_and_a_restart_lose_nothing_and_repeat_little(self):
        self.start_sink()
        with RemoteWorld() as world:
            for number in range(COUNT):
                world.post(f"{number:04d}", mail("x@sink.example", subject=f"load {number}"))
            for left in (800, 600):
                world.start()
                wait_for("some mail to leave", lambda: len(list(world.outgoing.iterdir())) < left)
                world.kill()
            world.start()
            wait_for("some mail to leave", lambda: len(list(world.outgoing.iterdir())) < 400)
            world.process.send_signal(signal.SIGHUP)
            world.wait_for_log("restarted and fully operational")
            wait_for("an empty outgoing directory", lambda: not list(world.outgoing.iterdir()))
        arrived = self.arrived()
        self.assertEqual(len(arrived), COUNT)
        self.assertLessEqual(sum(arrived.values()), COUNT + 3 * THREADS)

    def test_a_silent_receiver_holds_up_neither_the_others_nor_the_end(self):
        self.start_sink("-w", "50")
        with RemoteWorld().start() as world:
            for number in range(THREADS - 1):
                world.post(f"silent {number}", mail("x@sink.example", subject=f"load {number}"))
            world.wait_for_log("connection to mx.sink.example established", THREADS - 1)
            world.post("lively", mail("x@exim.example", subject="lively"))
            world.wait_until_sent("lively")
            begin = time.monotonic()
            self.assertEqual(world.stop(), 0)
            self.assertLess(time.monotonic() - begin, 20)
            self.assertEqual(len(list(world.outgoing.glob("*.eml"))), THREADS - 1)
