"""Bad input and faults: each has its line in the log, nothing is lost, and the next mail is delivered."""
import os
import pathlib
import resource
import unittest

from world import World, mail, wait_for


class BadInput(unittest.TestCase):
    def run_with(self, files, **settings):
        """Drops the files, then a good mail; the world after the daemon has ended."""
        world = World(**settings)
        self.addCleanup(world.__exit__)
        for name, content in files.items():
            world.drop(name, content)
        world.start()
        world.drop("zz-good.eml", mail("carl@example.org"))
        wait_for("the good mail", lambda: world.mailbox("carl"))
        wait_for("its removal", lambda: "zz-good.eml" not in world.waiting())
        self.assertEqual(world.stop(), 0, world.log())
        self.assertEqual(world.leftovers(), [])
        return world

    def test_files_that_are_no_mail(self):
        world = self.run_with({
            "a-empty.eml": b"", "b-two.eml": b"X\n", "c-nul.eml": b"\0" * 5000, "d-nobody.eml": b"Subject: x\r\n\r\nbody",
            "e-endless.eml": b"X-Envelope-To: ann@example.org\r\n" + b"X: " + b"y" * (17 << 20),
            "f-lines.eml": b"X-Envelope-To: ann@example.org\r\n" + b"X: y\r\n" * 100001 + b"\r\nbody",
        })
        self.assertEqual(world.waiting(), ["a-empty.eml", "b-two.eml"])  # not complete yet, as far as one can tell
        self.assertIn(f'Looks like lock on file "{world.queue}/b-two.eml" failed, retrying later!', world.log())
        self.assertEqual(sorted(p.name for p in world.error.iterdir()),
                         ["c-nul.eml", "d-nobody.eml", "e-endless.eml", "f-lines.eml"])
        self.assertIn("no receivers found in mail", world.log())
        self.assertIn("delivering mail 'd-nobody.eml' failed, placing in error", world.log())
        self.assertEqual(world.mailbox("ann"), [])

    def test_odd_names_and_recipients(self):
        names = ['quo"te\'.eml', "sp ace.eml", "new\nline.eml", "..eml", "c:drive.eml", "ünï.eml", "UPPER.EML", "*?.eml"]
        world = self.run_with({name: mail(subject=str(n)) for n, name in enumerate(names)} | {
            "y1.eml": mail("../carl"), "y2.eml": mail("bad address@far.example"), "y3.eml": mail("nobody@example.org"),
            "y4.eml": mail("dot.@far.example")})
        self.assertEqual(len(world.mailbox("ann")), len(names), world.log())
        self.assertEqual(sorted(p.name for p in world.error.iterdir()), ["y1.eml", "y2.eml", "y3.eml", "y4.eml"])
        self.assertIn("recipient in mail <Hello@far.example> from <bob@far.example> to <nobody@example.org> not valid", world.log())

    def test_large_mail_many_recipients_and_deep_nesting(self):
        deep = "".join(f"Content-Type: multipart/mixed; boundary=b{n}\r\n\r\n--b{n}\r\n" for n in range(10000))
        wide = "--b\r\nContent-Type: text/plain\r\n\r\ncheap\r\n" * 100000 + "--b--\r\n"
        world = self.run_with({
            "1.eml": mail(body="x" * 71 + "\r\n" * 1 + "y" * (64 << 20)),
            "2.eml": mail(",".join(f"user{n}@far.example" for n in range(10000)), subject="many"),
            "3.eml": mail(extra=deep.split("\r\n", 1)[0] + "\r\n", body=deep, subject="deep"),
            "4.eml": mail(extra="Content-Type: multipart/mixed; boundary=b\r\n", body=wide, subject="wide"),
        }, filters="never there\n")
        self.assertEqual(len(world.mailbox("ann")), 3, world.log()[-2000:])
        self.assertEqual(len(list(world.outgoing.iterdir())), 10000)
        self.assertGreater(world.mailbox("ann")[0].stat().st_size, 64 << 20)

    def test_wildcards_that_explode_a_naive_matcher(self):
        stars = "*a" * 60
        world = self.run_with({"1.eml": mail("a" * 1000 + "b@example.org")}, aliases=f"carl@example.org: carl\n{stars}b*z@example.org: ann\n*@example.org: ann\n")
        self.assertEqual(len(world.mailbox("ann")), 1)

    def test_symbolic_links_and_directories_in_the_queue(self):
        world = World()
        self.addCleanup(world.__exit__)
        secret = world.root / "secret"
        secret.write_bytes(mail())
        (world.queue / "link.eml").symlink_to(secret)
        (world.queue / "directory.eml").mkdir()
        os.mkfifo(world.queue / "pipe.eml")
        (world.spool / "ann" / "1.eml").symlink_to(secret)
        (world.spool / "elsewhere").symlink_to(world.spool / "carl")
        world.start()
        world.drop("1.eml", mail("ann@example.org", subject="one"))
        world.drop("2.eml", mail("elsewhere@example.org", subject="two"))
        wait_for("both", lambda: "1.eml" not in world.waiting() and "2.eml" not in world.waiting())
        self.assertEqual(world.stop(), 0)
        self.assertEqual(secret.read_bytes(), mail())
        self.assertTrue((world.error / "link.eml").is_symlink())
        self.assertIn(b"Subject: one", (world.spool / "ann" / "2.eml").read_bytes())
        self.assertEqual(world.mailbox("carl"), [])
        self.assertTrue((world.queue / "directory.eml").is_dir())

    def test_what_is_planted_is_neither_written_through_nor_followed(self):
        with World(intercept="ann\ncarl\n") as world:
            theirs = world.root / "theirs"
            theirs.mkdir()
            (theirs / "mail").write_bytes(b"theirs")
            (world.intercepted / "ann").symlink_to(theirs)
            (world.intercepted / "carl").mkdir()
            for path in (world.etc / "Tobix.pid", world.spool / "ann" / ".1.eml.tmp", world.spool / "ann" / "config.tmp",
                         world.queue / ".i_1.eml.tmp", world.error / ".1.eml.tmp", world.intercepted / "carl" / ".1.eml.tmp"):
                os.link(theirs / "mail", path)
            os.utime(theirs / "mail", (0, 0))
            world.start()
            world.deliver("1.eml", mail())
            self.assertEqual((world.leftovers(), os.listdir(theirs), (theirs / "mail").read_bytes()), ([], ["mail"], b"theirs"))
            self.assertEqual((theirs / "mail").stat().st_nlink, 1)

    def test_a_file_that_is_still_being_written_waits_for_its_writer(self):
        with World() as world:
            world.start()
            with open(world.queue / "1.eml", "wb") as slow:
                slow.write(mail()[:150])
                slow.flush()
                world.drop("2.eml", mail("carl@example.org"))
                wait_for("the other mail", lambda: world.mailbox("carl"))
                world.wait_for_log("retrying later!")
                self.assertEqual(world.mailbox("ann"), [])
                slow.write(mail()[150:])
            world.wait_until_empty()
            self.assertIn(b"Hi.\r\n", world.mailbox("ann")[0].read_bytes())

    def test_message_id_full_of_slashes_stays_inside_the_interception_directory(self):
        text = mail().replace(b"<Hello@far.example>", b"<../../../etc/" + b"x/" * 300 + b">")
        world = self.run_with({"1.eml": text}, intercept="ann\n")
        copies = list((world.intercepted / "ann").iterdir())
        self.assertEqual(len(copies), 1)
        self.assertEqual(list(world.intercepted.iterdir()), [world.intercepted / "ann"])


class Faults(unittest.TestCase):
    def test_accounts_that_cannot_take_mail(self):
        with World(users=("ann", "carl", "none", "junk")) as world:
            (world.spool / "none" / "config").unlink()
            (world.spool / "junk" / "config").write_bytes(b"\0\xff" * 3000 + b"\nNextUID")
            world.start()
            for n, user in enumerate(("none", "junk", "ann")):
                world.deliver(f"{n}.eml", mail(f"{user}@example.org"))
            self.assertEqual(world.stop(), 0)
            self.assertIn(f"couldn't load account config: {world.spool}/none/config (error=2)", world.log())
            self.assertEqual([p.name for p in world.error.iterdir()], ["0.eml"])
            self.assertEqual((len(world.mailbox("junk")), len(world.mailbox("ann"))), (1, 1))

    def test_directories_that_vanish(self):
        with World() as world:
            world.start()
            (world.spool / "ann" / "config").unlink()
            (world.spool / "ann").rmdir()
            world.outgoing.rmdir()
            world.deliver("1.eml", mail("ann@example.org"))
            world.deliver("2.eml", mail("eve@far.example"))
            self.assertEqual(len(list(world.error.iterdir())), 2)
            world.queue.rename(world.root / "gone")
            wait_for("the queue directory to be missed", lambda: "FindNextChangeNotification" in world.log())
            world.queue.mkdir()
            world.deliver("3.eml", mail("carl@example.org"))
            self.assertEqual(len(world.mailbox("carl")), 1)

    def test_a_mail_beyond_the_file_size_limit_fails_alone(self):
        with World() as world:
            world.start()
            resource.prlimit(world.process.pid, resource.RLIMIT_FSIZE, (100000, 100000))
            world.drop("1.eml", mail("ann@example.org", body="x" * 200000))
            world.deliver("2.eml", mail("carl@example.org"))
            self.assertEqual(len(world.mailbox("carl")), 1)
            self.assertEqual([p.name for p in world.error.iterdir()], ["1.eml"])
            self.assertEqual(world.stop(), 0)
            self.assertEqual(world.leftovers(), [])

    def test_a_start_without_its_directories_or_tables_fails_with_one_line(self):
        for spoil, line in ((lambda w: w.queue.rmdir(), "invalid QueueDir, "), (lambda w: (w.etc / "domains").unlink(), "could not load 'domains'-file"),
                            (lambda w: (w.etc / "tobix.cfg").unlink(), "could not load configuration")):
            with World() as world:
                spoil(world)
                world.start(wait=False)
                self.assertEqual(world.process.wait(60), 1)
                world.log_file.close()
                self.assertIn(line, world.log())
