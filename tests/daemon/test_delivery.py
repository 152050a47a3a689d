"""One mail's way through the running daemon, as an administrator sees it."""
import fcntl
import os
import signal
import time
import unittest

from world import World, mail, wait_for


class Delivery(unittest.TestCase):
    def test_one_mail_for_three_recipients_becomes_three_copies(self):
        with World() as world:
            world.start()
            with (world.etc / "Tobix.pid").open() as pid_file:
                self.assertEqual(pid_file.read(), str(world.process.pid))
                with self.assertRaises(BlockingIOError):  # a second daemon would leave it alone
                    fcntl.flock(pid_file, fcntl.LOCK_SH | fcntl.LOCK_NB)
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

    def test_account_settings_number_format_and_programs(self):
        with World(users=()) as world:
            world.add_user("ann", NextUID=7, SaveEnvelope=1)
            (world.spool / "ann" / "7.eml").write_text("taken")
            script = world.spool / "ann" / "newmail.cmd"
            script.write_text('#!/bin/sh\necho "$1 in $(pwd)" > ran\n')
            script.chmod(0o755)
            world.add_user("carl", RunReply=1, RunAntiSpam=1)  # without a template no responder runs
            world.start()
            world.deliver("1.eml", mail("ann@example.org,carl@example.org"))
            wait_for("the hook script", lambda: (world.spool / "ann" / "ran").exists() and (world.spool / "ann" / "ran").read_text())
            self.assertEqual(world.stop(), 0)
            self.assertEqual((world.spool / "ann" / "7.eml").read_text(), "taken")
            self.assertTrue((world.spool / "ann" / "8.eml").read_bytes().startswith(b"X-Envelope-From: "))
            self.assertEqual((world.spool / "ann" / "config").read_text(), "NextUID: 9\nSaveEnvelope: 1\n")
            self.assertEqual((world.spool / "ann" / "ran").read_text(),
                             f"{world.spool}/ann/8.eml in {world.spool}/ann\n")
            self.assertIn('postprocessing-script for "', world.log())
            self.assertTrue((world.spool / "carl" / "1.eml").read_bytes().startswith(b"X-Envelope-From: "))
            self.assertIn(f'CreateProcess in Common/MailHlpr:100 for "{world.etc}/spamscan.exe" failed, error = 2', world.log())

    def test_tables_are_taken_up_while_the_daemon_runs(self):
        with World() as world:
            world.start()
            world.add_user("dora")
            (world.spool / "dora" / "password").write_text("x")
            world.wait_for_log("preresolving aliases...", 2)
            world.deliver("1.eml", mail("dora@example.org"))
            os.utime(world.etc / "domains", (0, 0))  # an older time is no change
            (world.etc / "domains").write_text("example.org\nexample.net\n")
            world.wait_for_log("preresolving aliases...", 3)
            world.deliver("2.eml", mail("ann@example.net"))
            self.assertEqual((len(world.mailbox("dora")), len(world.mailbox("ann"))), (1, 1))
            self.assertEqual(world.stop(), 0)

    def test_controls_pause_continue_and_restart(self):
        with World() as world:
            world.start()
            world.process.send_signal(signal.SIGHUP)
            world.wait_for_log("restarted and fully operational")
            time.sleep(0.2)  # a control that comes while another one is handled is ignored
            world.process.send_signal(signal.SIGUSR1)
            time.sleep(1.2)  # longer than the agent waits for work before it asks
            world.drop("1.eml", mail())
            time.sleep(0.5)
            self.assertEqual(world.waiting(), ["1.eml"])
            world.process.send_signal(signal.SIGUSR2)
            world.wait_until_empty()
            self.assertEqual(len(world.mailbox("ann")), 1)
            self.assertEqual(world.stop(), 0)
            self.assertEqual(world.log().count("local delivery agent (id"), 8)  # started and stopped, each told twice


if __name__ == "__main__":
    unittest.main()
