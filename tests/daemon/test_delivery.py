"""One mail's way through the running daemon, as an administrator sees it."""
import fcntl
import os
import re
import shutil
import signal
import struct
import time
import unittest

from world import World, mail, wait_for

OFD_GETLK = 36  # asks for locks that belong to open files


class Delivery(unittest.TestCase):
    def test_one_mail_for_three_recipients_becomes_three_copies(self):
        with World() as world:
            (world.etc / "Tobix.pid").write_text("the rest of a daemon that has crashed")
            world.start(MAILCONFIGDIR=os.path.relpath(world.etc))
            with (world.etc / "Tobix.pid").open() as pid_file:
                self.assertEqual(pid_file.read(), str(world.process.pid))
                everything = struct.pack("hhxxxxqqixxxx", fcntl.F_WRLCK, os.SEEK_SET, 0, 0, 0)
                self.assertNotEqual(fcntl.fcntl(pid_file, OFD_GETLK, everything), everything)  # a second daemon sees it
            world.deliver("1.eml", mail("Ann@Example.ORG,carl@example.org,Eve@far.example"))
            self.assertEqual(world.stop(), 0)
            stored = world.mailbox("ann")[0].read_bytes()
            self.assertTrue(stored.startswith(b"Return-Path: <bob@far.example>\r\nReceived: by "), stored)
            self.assertIn(b"\r\n\twith DMTP for <Ann@example.org>; ", stored)
            self.assertEqual([p.name for p in world.mailbox("carl")], ["1.eml"])
            outgoing = list(world.outgoing.iterdir())
            self.assertEqual(len(outgoing), 1)
            self.assertRegex(outgoing[0].name, r"^\d{14}\d{5,}\d{4}\.eml$")
            self.assertTrue(outgoing[0].read_bytes().startswith(
                b"X-Envelope-From: bob@far.example\r\nX-Envelope-To: eve@far.example\r\n"), outgoing[0].read_bytes())
            self.assertIn("mail <Hello@far.example> from <bob@far.example> to <Ann@example.org> saved in <ann>", world.log())
            self.assertEqual((world.spool / "ann" / "config").read_text(), "NextUID: 2\n")
            self.assertFalse((world.etc / "Tobix.pid").exists())
            for line in ("launching...", "launched and fully operational", "shutting down...", "shut down",
                         "local delivery agent (id"):
                self.assertIn(line, world.log())
            self.assertEqual(world.leftovers(), [])

    def test_aliases_catch_all_filter_and_interception(self):
        with World(aliases="info@example.org: ann\nann@example.org: ann\n*@example.org: carl\nout@example.org: Far@Away.example\n",
                   filters="cheap watches\n", intercept="carl\nspy@far.example\n") as world:
            world.start()
            world.deliver("1.eml", mail("info@example.org", subject="alias"))
            world.deliver("2.eml", mail("nobody@example.org", subject="catch all"))
            world.deliver("3.eml", mail("ann@example.org", subject="Buy CHEAP Watches"))
            world.deliver("4.eml", mail("out@example.org", sender="spy@far.example", subject="forward"))
            self.assertEqual(world.stop(), 0)
            self.assertEqual(len(world.mailbox("ann")), 1)
            self.assertEqual(len(world.mailbox("carl")), 1)
            self.assertEqual(len(list(world.filtered.iterdir())), 1)
            self.assertIn('to <ann@example.org> has been filtered due to "cheap watches"', world.log())
            forwarded = next(world.outgoing.iterdir()).read_bytes()
            self.assertIn(b"X-Envelope-To: Far@Away.example\r\n", forwarded)
            self.assertIn(b"X-Resent-For: out@example.org\r\n", forwarded)
            self.assertRegex(next((world.intercepted / "carl").iterdir()).name, r"^\d{14}_catch\.all@far\.example_received\.eml$")
            self.assertRegex(next((world.intercepted / "spy@far.example").iterdir()).name, r"_sent\.eml$")

    def test_account_settings_and_number(self):
        with World(users=()) as world:
            world.add_user("ann", NextUID=7, SaveEnvelope=1)
            (world.spool / "ann" / "7.eml").write_text("taken")
            world.add_user("carl", RunReply=1, RunAntiSpam=1)  # without a template no responder runs
            world.start()
            world.deliver("1.eml", mail("ann@example.org,carl@example.org"))
            self.assertEqual(world.stop(), 0)
            self.assertEqual((world.spool / "ann" / "7.eml").read_text(), "taken")
            self.assertTrue((world.spool / "ann" / "8.eml").read_bytes().startswith(b"X-Envelope-From: "))
            self.assertEqual((world.spool / "ann" / "config").read_text(), "NextUID: 9\nSaveEnvelope: 1\n")
            self.assertTrue((world.spool / "carl" / "1.eml").read_bytes().startswith(b"X-Envelope-From: "))
            self.assertIn(f'CreateProcess in Common/MailHlpr:100 for "{world.etc}/spamscan.exe" failed, error = 2', world.log())

    def test_tables_are_taken_up_while_the_daemon_runs(self):
        with World(queuedir="misspelled", HourlyCleanup=1, AutoTransport=1) as world:  # which rules out the cleanup
            world.start()
            world.add_user("dora")
            (world.spool / "dora" / "password").write_text("x")
            world.wait_for_log("preresolving aliases...", 2)
            world.deliver("1.eml", mail("dora@example.org"))
            os.utime(world.etc / "domains", (0, 0))  # an older time is no change
            (world.etc / "new").write_text("example.org\nexample.net\n")
            (world.etc / "new").rename(world.etc / "domains")  # never seen half written
            world.wait_for_log("preresolving aliases...", 3)
            world.deliver("2.eml", mail("ann@example.net"))
            self.assertEqual((len(world.mailbox("dora")), len(world.mailbox("ann"))), (1, 1))
            self.assertEqual(world.stop(), 0)
            self.assertEqual(world.log().count(f'unknown key "queuedir" at {world.etc}/tobix.cfg:8\n'), 1)


class Programs(unittest.TestCase):
    """What the daemon starts: in which order, with what arguments, where, and whether it waits for the end."""

    def world(self, **config):
        world = World(users=(), filters="cheap\n", **config)
        world.executable = shutil.copy(os.environ["TOBIX"], world.root)  # beside the built one lies a real responder
        self.record = world.root / "record"
        (world.root / "hold").touch()
        for path in (world.etc / "spamscan.exe", world.etc / "responder.exe", world.spool / "newmail.cmd",
                     world.outgoing / "newmail.cmd", world.filtered / "newmail.cmd"):
            path.write_text(f"""#!/bin/sh
                [ "$TOBIX_CONFIG" = {world.etc}/tobix.cfg ] || exit 1
                echo "${{0##*/}} in $(pwd):$(printf ' [%s]' "$@") $#" >>{self.record}
                while [ -e {world.root}/hold ]; do sleep 0.02; done
                echo "${{0##*/}} ended" >>{self.record}\n""")
            path.chmod(0o755)
        return world

    def lines(self):
        return self.record.read_text().splitlines() if self.record.exists() else []

    def test_a_stored_mail_starts_tagger_responder_and_hook_scripts(self):
        for config, waits, template in (({}, False, "away.txt"), ({"AsyncScripts": 0}, True, "/x/a b.txt"),
                                        ({"AsyncScripts": 0, "Scripts.Execution.Parallel": 1}, False, "away.txt"),
                                        ({"Scripts.Execution.Parallel": 0}, True, "away.txt")):
            with self.subTest(config), self.world(**config) as world:
                world.add_user("ann", RunAntiSpam=1, RunReply=1, RunReplyTemplate=template)
                home = world.spool / "ann"
                (world.spool / "newmail.cmd").rename(home / "newmail.cmd")
                world.start()
                world.drop("1.eml", mail("ann@example.org,eve@far.example"))
                wait_for("the programs", lambda: len(self.lines()) == (1 if waits else 4))
                if not waits:
                    world.wait_until_empty()  # while they still run
                (world.root / "hold").unlink()
                wait_for("their end", lambda: len(self.lines()) == 8)
                world.wait_until_empty()
                out = next(world.outgoing.glob("*.eml"))
                starts = [f"spamscan.exe in {home}: [{home}/1.eml] [-tag] [-s] 3",
                          f"responder.exe in {home}: [{home}/1.eml] [-t] [{home / template}] [-o] [{world.queue}/r_N.eml] [-k] [-s] 7",
                          f"newmail.cmd in {home}: [{home}/1.eml] 1",
                          f"newmail.cmd in {world.outgoing}: [{out}] 1"]
                seen = [re.sub(r"r_\d+\.eml", "r_N.eml", line) for line in self.lines()]
                if waits:
                    self.assertEqual(seen, [line for start in starts for line in (start, start.split()[0] + " ended")])
                else:
                    self.assertCountEqual(seen[:4], starts)

    def test_the_hourly_script_gets_no_file_and_the_filters_the_filtered_one(self):
        for parallel in (0, 1):
            with self.subTest(parallel), self.world(HourlyCleanup=1, AllowConfigRestart=0,
                                                            **{"Scripts.Execution.Parallel": parallel}) as world:
                world.add_user("ann")
                world.start()
                world.wait_for_log('postprocessing-script for "" started')
                (world.etc / "domains").write_text("example.net\n")  # nobody looks for changes now
                world.process.send_signal(signal.SIGHUP)
                (world.root / "hold").unlink()
                world.deliver("1.eml", mail(subject="cheap"))
                wait_for("the scripts", lambda: len(self.lines()) == 4)
                path = next(world.filtered.glob("*.eml"))
                self.assertCountEqual(self.lines(), [f"newmail.cmd in {world.outgoing}: [] 1",
                                                     f"newmail.cmd in {world.filtered}: [{path}] 1"] + 2 * ["newmail.cmd ended"])
                self.assertEqual(world.stop(), 0)
                self.assertEqual(world.log().count('postprocessing-script for "" finished'), 1 - parallel)
                self.assertEqual((world.log().count("preresolving"), world.log().count("restarting")), (1, 0))
