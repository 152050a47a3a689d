"""What the service manager and the installing administrator see of the daemon."""
import os
import resource
import select
import signal
import socket
import subprocess
import time
import unittest

from world import DEADLINE, World, mail, reports_up_to, wait_for


class Service(unittest.TestCase):
    def test_a_restart_leaves_the_service_running(self):
        receiver = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        receiver.bind(("127.0.0.1", 0))
        receiver.settimeout(DEADLINE)
        with receiver, World(LogPort=receiver.getsockname()[1], other="another program's key") as world:
            directory = "c:" + str(world.etc).replace("/", "\\")  # as on the system the settings were brought from
            with world.start_service(MAILCONFIGDIR=directory) as reports:
                start = reports_up_to("READY=1\nSTATUS=Running", reports)
                self.assertEqual(start[:-1], ["STATUS=Starting\nEXTEND_TIMEOUT_USEC=1000000"] * 13)
                spent = []
                while not spent or (min(spent) >= 0.8 and len(spent) < 10):  # a busy machine may be slow once
                    begin = time.monotonic()
                    world.process.send_signal(signal.SIGHUP)
                    self.assertEqual(reports_up_to("READY=1\nSTATUS=Running", reports)[:-1], ["RELOADING=1"])
                    spent.append(time.monotonic() - begin)
                self.assertLess(min(spent), 0.8)  # the loop that looks for changes waits for a second at a time
                log = []
                while not log or not log[-1].endswith(b"restarted and fully operational"):
                    log.append(receiver.recv(1024))
                self.assertTrue(log[0].startswith(b"<22> ["), log[0])  # facility mail, info
                self.assertFalse([line for line in log if b"unknown key" in line])
                world.add_user("dora")
                (world.spool / "dora" / "password").write_text("x")
                wait_for("the new user", lambda: world.deliver("1.eml", mail("dora@example.org")) or world.mailbox("dora"))
                self.assertEqual(world.stop(), 0)

    def test_a_restart_that_is_short_of_descriptors_is_completed_when_there_are_some(self):
        receiver = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        receiver.bind(("127.0.0.1", 0))
        receiver.settimeout(DEADLINE)
        with receiver, World(AutoTransport=1, LogPort=receiver.getsockname()[1]) as world, \
                world.start_service(MAILCONFIGDIR=str(world.etc)) as reports:
            reports_up_to("READY=1\nSTATUS=Running", reports)
            limits = resource.prlimit(world.process.pid, resource.RLIMIT_NOFILE)
            for n, few in enumerate((4, len(os.listdir(f"/proc/{world.process.pid}/fd")))):
                with open(world.etc / "tobix.cfg", "a") as settings, open(world.etc / "domains", "a") as domains:
                    settings.write("AutoTransport.Threads: 20\n")
                    domains.write(f"new{n}.example\n")
                resource.prlimit(world.process.pid, resource.RLIMIT_NOFILE, (few, limits[1]))
                world.process.send_signal(signal.SIGHUP)
                while b"restarted without: " not in receiver.recv(1024):
                    pass
                resource.prlimit(world.process.pid, resource.RLIMIT_NOFILE, limits)
                reports_up_to("READY=1\nSTATUS=Running", reports)
                world.deliver("1.eml", mail(f"ann@new{n}.example"))
            self.assertEqual(len(world.mailbox("ann")), 2)
            self.assertEqual(world.stop(), 0)

    def test_a_pause_holds_the_mail_until_it_ends(self):
        count = 500  # in either directory: more than is done when the pause comes
        with World(AutoTransport=1, **{"AutoTransport.Threads": 1}) as world:
            def done():
                return len(world.mailbox("ann")) + len(list(world.outgoing.glob("*.err")))
            (world.etc / "smarthosts").write_text("*: 127.0.0.1:1\n")
            for n in range(count):
                world.drop(f"{n}.eml", mail())
                world.drop(f"{n}.eml", mail("eve@far.example"), world.outgoing)
            with world.start_service(MAILCONFIGDIR=str(world.etc), TOBIX_CONNECTIVITY="4") as reports:
                reports_up_to("READY=1\nSTATUS=Running", reports)
                world.process.send_signal(signal.SIGUSR1)
                reports_up_to("READY=1\nSTATUS=Paused", reports)
                before = done()
                time.sleep(0.5)
                self.assertLess(done(), min(before + 4, 2 * count))
                world.process.send_signal(signal.SIGUSR2)
                wait_for("all", lambda: done() == 2 * count and not world.waiting())
                self.assertEqual(world.stop(), 0)

    def test_the_service_manager_and_its_journal_are_told_what_happens(self):
        journal = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        with journal, World(AutoTransport=1) as world:
            journal.bind(str(world.root / "journal"))
            journal.settimeout(DEADLINE)
            (world.etc / "smarthosts").write_text("*: 127.0.0.1:1\n")
            (world.root / "log").touch()
            stderr = os.stat(world.root / "log")
            environment = {"MAILCONFIGDIR": str(world.etc), "TOBIX_JOURNAL_SOCKET": str(world.root / "journal"),
                           "JOURNAL_STREAM": f"{stderr.st_dev}:{stderr.st_ino}"}

            def entry_with(text):
                while True:
                    entry = journal.recv(8192).decode().splitlines()
                    if text in entry[0]:
                        return entry[1:]

            def forget():  # the socket holds few, and what it cannot hold is lost
                while select.select([journal], [], [], 0.3)[0]:
                    journal.recv(8192)

            def report_with(text, reports):
                while True:
                    report = reports.recv(4096).decode()
                    if text in report:
                        return report
            with world.start_service(TOBIX_CONNECTIVITY="4", WATCHDOG_USEC="300000", **environment) as reports:
                self.assertEqual(report_with("queue", reports), "STATUS=queue 0, outgoing 0")
                self.assertEqual(report_with("WATCHDOG", reports), "WATCHDOG=1")
                forget()
                world.drop("a.eml", mail("eve@far.example"))
                saved = entry_with("saved in outgoing")
                name = [field for field in saved if field.endswith(".eml")][0]
                envelope = ["TOBIX_MAIL=<Hello@far.example>", "TOBIX_FROM=bob@far.example", "TOBIX_TO=eve@far.example"]
                self.assertEqual(saved[:3], ["PRIORITY=6", "SYSLOG_FACILITY=2", "SYSLOG_IDENTIFIER=tobix"])
                self.assertEqual(sorted(saved[4:]), sorted(envelope + ["TOBIX_MAIL=a.eml", name]))
                self.assertEqual(sorted(entry_with("temporarily failed")[4:]), sorted(envelope + ["TOBIX_MAIL=a.eml", name]))
                self.assertRegex(report_with("1 waiting", reports), "^STATUS=queue 0, outgoing 1: 1 waiting until ..:..$")
                self.assertEqual(world.stop(), 0)
                self.assertNotIn("far.example", world.log())  # not twice
            forget()
            os.remove(world.root / "notify")
            world.queue.rmdir()
            with world.start_service(**environment) as reports:
                why = f"Start failed: invalid QueueDir, \"{world.queue}\" is missing or no directory"
                self.assertEqual(report_with("failed", reports), f"STOPPING=1\nSTATUS={why}")
                self.assertEqual(world.process.wait(DEADLINE), 0)
                self.assertEqual(entry_with("invalid QueueDir")[0], "PRIORITY=3")
                self.assertTrue(world.log().endswith(why + "\n"))

    def test_a_second_installation_may_write_where_its_own_configuration_says(self):
        with World() as world:
            (world.etc / "tobix2.cfg").write_text("QueueDir: /second/queue\n")
            subprocess.run([os.environ["TOBIX"], "-install", "Tobix2", "Second", "-c tobix2.cfg"], check=True,
                           env={**os.environ, "MAILCONFIGDIR": str(world.etc), "TOBIX_UNIT_DIR": str(world.root)})
            unit = (world.root / "tobix2.service").read_text()
            self.assertIn("\nReadWritePaths=-/second/queue\n", unit)
            self.assertNotIn(str(world.queue), unit)
