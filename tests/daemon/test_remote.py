"""Outgoing mail's way through the running daemon to a mail server on loopback."""
import contextlib
import itertools
import pathlib
import signal
import sys
import time
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from sink import Sink  # noqa: E402
from world import World, mail, reports_up_to, wait_for  # noqa: E402


class Remote(unittest.TestCase):
    def setUp(self):
        self.sink = Sink()
        self.addCleanup(self.sink.close)

    def world(self, **settings):
        settings = {"AutoTransport": 1, "AutoTransRetryMin": 0, "AutoTransRetryMax": 0, "FQDN": "client.example", **settings}
        world = World(aliases="out@example.org: Far@away.example\n", **settings)
        self.addCleanup(world.__exit__)
        (world.etc / "smarthosts").write_text(f"*: 127.0.0.1:{self.sink.port}\n")
        return world.start(TOBIX_CONNECTIVITY="4")

    def test_mail_leaves_whole_and_is_removed(self):
        world = self.world()
        body = "first\r\n.\r\n..second\r\n" + "x" * 20000 + "\r\n"
        world.deliver("1.eml", mail("Eve@Far.example", body=body))
        world.deliver("2.eml", mail("out@example.org", subject="forwarded"))
        wait_for("the mails", lambda: len(self.sink.mails) == 2)
        wait_for("an empty outgoing directory", lambda: not list(world.outgoing.iterdir()))
        world.wait_for_log("successfully delivered mail from", 2)
        self.assertEqual(world.stop(), 0)
        sender, recipient, text = next(m for m in self.sink.mails if b"Subject: Hello" in m[2])
        self.assertTrue(sender.startswith("MAIL From:<bob@far.example> SIZE="), sender)
        self.assertEqual(recipient, "Eve@far.example")
        self.assertTrue(text.startswith(b"Received: by ") and text.endswith(body.replace("..", ".").encode() + b"\r\n"), text[-100:])
        self.assertNotIn(b"X-Envelope", text)
        self.assertIn("Traffic: L, out@example.org, R, Far@away.example, ", world.log())
        for line in ("remote agent thread (id ", "remote delivery thread 2 (id ", "remote delivery threads started",
                     "remote delivery threads stopped", "remote delivery agent (id "):
            self.assertIn(line, world.log())

    def test_refused_mail_comes_back_to_its_sender_and_deferred_mail_is_tried_again(self):
        world = self.world(Postmaster="post@example.org", TrafficLogging=0)
        world.deliver("1.eml", mail("refuse@far.example", sender="ann@example.org", subject="refused"))
        world.deliver("2.eml", mail("later@far.example"))
        wait_for("the notification", lambda: world.mailbox("ann"))
        wait_for("an empty outgoing directory", lambda: not list(world.outgoing.iterdir()))
        self.assertEqual(world.stop(), 0)
        text = world.mailbox("ann")[0].read_bytes()
        self.assertIn(b"550 5.1.1 no such user here", text)
        self.assertIn(b"----- The following addresses had permanent fatal errors -----", text)
        self.assertEqual(self.sink.recipients(), ["later@far.example"])
        for line in ("permanently failed with error 19. I am giving up!", "temporarily failed with error 9. I will retry later!"):
            self.assertIn(line, world.log())
        self.assertNotIn("Traffic: ", world.log())

    def test_a_silent_server_holds_up_neither_other_mail_nor_the_end(self):
        world = self.world(**{"AutoTransport.Threads": 2})
        world.deliver("1.eml", mail("silent@far.example"))
        world.wait_for_log("connection to 127.0.0.1 established")
        world.deliver("2.eml", mail("lively@far.example"))
        wait_for("the other mail", lambda: self.sink.recipients() == ["lively@far.example"])
        begin = time.monotonic()
        self.assertEqual(world.stop(), 0)
        self.assertLess(time.monotonic() - begin, 20)
        self.assertIn("aborted, thread has been shut down.", world.log())
        self.assertEqual(len(list(world.outgoing.glob("*.eml"))), 1)

    def test_a_stop_waits_for_the_answer_to_a_whole_mail(self):
        world = self.world()
        world.deliver("1.eml", mail("slow@far.example"))
        wait_for("the mail", lambda: self.sink.recipients())
        self.assertEqual((world.stop(), list(world.outgoing.iterdir())), (0, []))

    def test_many_mails_share_few_connections_and_each_arrives_once(self):
        world = self.world(**{"Connection.Mails": 50, "Connection.Pipelining": 1, "Connection.Wait": 60, "Bounce.Disable": 1})
        for n in range(100):
            body = "x" * 990 + "\r\n"
            name = "refuse" if n % 10 == 3 else "later" if n % 10 == 7 else "user"
            world.drop(f"{n}.eml", mail(f"{name}{n}@far.example", body=body * (67000 if n == 50 else 1)), world.outgoing)
        wait_for("all mails", lambda: len(self.sink.mails) == 90)
        wait_for("an empty outgoing directory", lambda: not list(world.outgoing.iterdir()))
        self.assertEqual(len(set(self.sink.recipients())), 90)
        self.assertEqual(max(len(text) for _, _, text in self.sink.mails) // (992 * 67000), 1)
        self.assertLessEqual(self.sink.connections, 6)
        world.process.send_signal(signal.SIGUSR1)
        wait_for("the end of the connections", lambda: self.sink.connections == self.sink.parted)
        self.assertEqual(world.stop(), 0)

    def test_a_pause_ends_the_sharing_of_a_connection_before_its_next_mail(self):
        for together, wait in itertools.product((0, 1), (0, 60)):
            sink = Sink()
            with self.subTest(together=together, wait=wait), contextlib.closing(sink), \
                    World(AutoTransport=1, FQDN="client.example", **{"AutoTransport.Threads": 1, "Connection.Mails": 50,
                                              "Connection.Pipelining": together, "Connection.Wait": wait}) as world:
                (world.etc / "smarthosts").write_text(f"*: 127.0.0.1:{sink.port}\n")
                for n in range(3):
                    world.drop(f"{n}.eml", mail(f"silent{n}@far.example"), world.outgoing)
                with world.start_service(MAILCONFIGDIR=str(world.etc), TOBIX_CONNECTIVITY="4") as reports:
                    reports_up_to("READY=1\nSTATUS=Running", reports)
                    wait_for("the first mail", lambda: sink.connections == 1)
                    world.process.send_signal(signal.SIGUSR1)
                    reports_up_to("READY=1\nSTATUS=Paused", reports)
                    sink.silence.set()
                    wait_for("QUIT", lambda: sink.parted == 1)
                    self.assertEqual((len(sink.mails), sink.connections, len(list(world.outgoing.iterdir()))), (1, 1, 2))
                    world.process.send_signal(signal.SIGUSR2)
                    wait_for("an empty outgoing directory", lambda: not list(world.outgoing.iterdir()))
                    self.assertEqual(world.stop(), 0)
                    wait_for("QUIT", lambda: sink.parted == 2)
                    self.assertEqual((len(set(sink.recipients())), len(sink.mails), sink.connections), (3, 3, 2))

    def test_kills_and_a_restart_lose_nothing_and_repeat_little(self):
        count, threads = 400, 4
        world = self.world(**{"AutoTransport.Threads": threads})
        for n in range(count):
            world.drop(f"{n}.eml", mail(f"user{n}@far.example"))
        for sent in (count // 4, count // 2):
            wait_for("some mails", lambda: len(self.sink.mails) > sent)
            world.kill()
            with open(world.etc / "tobix.cfg", "a") as config:  # the same holds where mails share connections
                config.write("Connection.Mails: 20\nConnection.Pipelining: 1\n")
            world.start(TOBIX_CONNECTIVITY="4")
        world.process.send_signal(signal.SIGHUP)
        wait_for("all mails", lambda: len(set(self.sink.recipients())) == count)
        wait_for("an empty outgoing directory", lambda: not list(world.outgoing.iterdir()))
        self.assertEqual(world.stop(), 0)
        self.assertNotIn("could not determine file state", world.log())  # of mail that went while it was being listed
        self.assertLessEqual(len(self.sink.mails) - count, 2 * 64 + 3 * threads)
