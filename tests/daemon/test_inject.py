"""Mail that is handed in by tobix-inject, as programs call sendmail for it."""
import os
import pathlib
import shutil
import signal
import subprocess
import unittest

from world import World

INJECT = os.environ["INJECT"]
HEAD = b"From: Bob <bob@far.example>\nSubject: Hello\n"


def inject(world, *arguments, text=HEAD + b"\nHi.\n", program=INJECT, before=(), **options):
    return subprocess.run([*before, program, *arguments], input=text, capture_output=True,
                          env={**os.environ, "MAILCONFIGDIR": str(world.etc)}, **options)


class InjectTest(unittest.TestCase):
    def queued(self, world):
        """What is in the queue, taken out of it."""
        texts = []
        for path in sorted(world.queue.iterdir()):
            self.assertEqual((path.suffix, path.stat().st_mode & 0o7777), (".eml", 0o640))
            texts.append(path.read_bytes())
            path.unlink()
        return texts

    def test_every_form_of_the_command_line(self):
        everybody = b"To: \"B, A\" <a@x.example>, team: b@x.example (c, d), \"e\"@x.example;\nBcc: f@x.example\n"
        cases = (  # arguments, input, exit code, recipients, what the mail holds, what it does not
            (["ann@x.example"], HEAD + b"\nHi.\n.\nno\n", 0, b"ann@x.example", b"\nHi.\n", b"no\n"),
            (["-oi", "ann@x.example"], HEAD + b"\nHi.\n.\nyes\n", 0, b"ann@x.example", b"\n.\nyes\n", b"\0"),
            (["-i", "ann@x.example"], HEAD + b"\nHi.\n.\n", 0, b"ann@x.example", b"\n.\n\r\n", b"\0"),
            (["ann@x.example,<b@x.example>", "c", "c"], b"hello \xe4\0\n", 0, b"ann@x.example,b@x.example,c",
             b"\r\n\r\nhello \xe4\0\n", b"\nTo: <ann"),
            (["-ti", "-N", "never", "-odb", "-v"], HEAD + everybody + b"\nHi.\n", 0,
             b"a@x.example,b@x.example,e@x.example,f@x.example", b"Hi.", b"Bcc"),
            (["-t"], HEAD + everybody + b"Resent-To: g@x.example\n\n", 0, b"g@x.example", b"Hello", b"f@x"),
            (["-bm", "-F", "J\u00f6rg", "-fjoe@x.example", "--", "-x@x.example"], b"\n", 0, b"-x@x.example",
             b"From: =?utf-8?B?SsO2cmc=?=\r\n\t<joe@x.example>", b"<root"),
            (["-f", "<>", "a@x.example"], HEAD + b"\n", 0, b"a@x.example", b"X-Envelope-From: <>\r\n", b"Return-Path"),
            (["a@x.example"], HEAD + b"X-Authenticated-As : admin\nx-envelope-TO: eve@x.example\n more\nReturn-Path: <e@x>\n\n",
             0, b"a@x.example", b"Hello", b"eve@x.example"),
            (["-q15m"], b"", 0, None, b"", b""),
            ([], HEAD, 64, None, b"no recipient", b""),
            (["a@x.example"], b"", 65, None, b"no mail", b""),
            (["-bs"], HEAD, 64, None, b"standard input", b""),
            (["-bp"], HEAD, 64, None, b"tobixctl queue", b""),
            (["-y", "a@x.example"], HEAD, 64, None, b"option -y", b""),
            (["a@x.example", "-f"], HEAD, 64, None, b"needs a value", b""),
            (["o'brien@x.example"], HEAD, 64, None, b"no address", b""),
            (["a@x.example\nb@x.example"], HEAD, 64, None, b"no address", b""),
            (["a@x.example:25,<@g.example,@h.example:b@x.example>"], HEAD, 64, None, b"a@x.example:25", b""),
            (["-t"], HEAD + b"To: undisclosed-recipients:;\n\n", 65, None, b"names no recipient", b""),
            (["-t"], HEAD + b"To: Ann Example\n\n", 65, None, b"no address", b""),
            (["-t"], b"To: " + b",".join(b"u%d" % n for n in range(100_001)) + b"\n\n", 65, None, b"too many", b""),
            (["a@x.example"], b"Subject: a\0b\n\n", 65, None, b"NUL", b""),
            (["a@x.example"], b"Subject: a\n" + b" b\n" * 100_000, 65, None, b"too big", b""),
        )
        with World(FQDN="far.example") as world:
            for arguments, text, code, recipients, held, lacking in cases:
                with self.subTest(arguments=arguments, text=text[:200]):
                    done = inject(world, *arguments, text=text)
                    self.assertEqual(done.returncode, code, done.stderr)
                    mails = self.queued(world)
                    self.assertEqual(len(mails), 1 if recipients else 0)
                    if recipients:
                        self.assertIn(b"X-Envelope-To: <" + recipients + b">\r\n", mails[0])
                        self.assertNotIn(lacking, mails[0])
                    self.assertIn(held, mails[0] if recipients else done.stderr)

    def test_a_mail_is_there_whole_or_not_at_all(self):
        with World() as world:
            world.queue.rmdir()
            self.assertEqual(inject(world, "ann@example.org").returncode, 75)
            world.queue.mkdir()
            large = HEAD + b"\n" + b"x" * 99_999 + b"\n"
            limited = inject(world, "ann@example.org", text=large, before=("prlimit", "--fsize=65536"))
            self.assertEqual((limited.returncode, list(world.queue.iterdir())), (75, []))
            if os.getuid() == 0:
                full = inject(world, "--mount", "sh", "-c", f"mount -t tmpfs -o size=64k none {world.queue} && {INJECT} ann@example.org; "
                              f"code=$?; ls -A {world.queue}; exit $code", text=large, program="unshare")
                self.assertEqual((full.returncode, full.stdout, b"the disk is full" in full.stderr), (75, b"", True), full.stderr)
            with subprocess.Popen([INJECT, "ann@example.org"], stdin=subprocess.PIPE,
                                  env={**os.environ, "MAILCONFIGDIR": str(world.etc)}) as killed:
                killed.stdin.write(large)
                killed.stdin.flush()
                killed.send_signal(signal.SIGKILL)
            self.assertEqual(list(world.queue.iterdir()), [])

    def test_real_mail_comes_as_it_was(self):
        corpus = os.environ.get("TOBIX_MAIL_CORPUS")
        paths = [p for p in pathlib.Path(corpus).rglob("*.eml") if p.stat().st_size > 2] if corpus else []
        bodies = [p.read_bytes() for p in paths][:200] + [b"x" * 70 + b"\r\n"] + [b"y" * 70 + b"\r\n"] * 1_000_000
        bodies[len(paths[:200]) + 1:] = [b"".join(bodies[len(paths[:200]) + 1:])]
        with World() as world:
            for body in bodies:
                self.assertEqual(inject(world, "-i", "ann", text=b"Subject: a\n\n" + body).returncode, 0)
            world.start()
            world.wait_until_empty()
            stored = [p.read_bytes().partition(b"\r\n\r\n")[2] for p in world.mailbox("ann")]
        normal = [b.replace(b"\0", b"").replace(b"\r\n", b"\n").replace(b"\r", b"\n").replace(b"\n", b"\r\n") for b in bodies]
        self.assertEqual(sorted(stored), sorted(normal))


@unittest.skipIf(os.getuid() != 0, "only root can be several users")
class UsersTest(unittest.TestCase):
    """As the package lays it out: the program setgid, the queue 1730, its configuration nowhere else than in /etc."""
    DAEMON, GROUP, USER = 64321, 64322, 65534

    def test_a_plain_user_can_hand_in_mail_and_nothing_else(self):
        with open(INJECT, "rb") as program:
            if b"__asan_init" in program.read():
                self.skipTest("the search for leaks may not look into a program that has more rights than its user")
        for trusted, sender, expected in (("", "joe@x.example", b"nobody@far.example"), ("", "<>", b""), ("root, nobody", "joe@x.example", b"joe@x.example")):
            with self.subTest(trusted=trusted, sender=sender), World(FQDN="far.example", **{"Inject.TrustedUsers": trusted}) as world:
                self.hand_in(world, sender, expected)

    def hand_in(self, world, sender, expected):
        os.chmod(world.root, 0o755)
        program = world.root / "inject"
        shutil.copy(INJECT, program)
        os.chown(program, 0, self.GROUP)
        program.chmod(0o2755)
        os.chown(world.queue, self.DAEMON, self.GROUP)
        world.queue.chmod(0o1730)
        (world.root / "script").write_text(
            "set -e\nmount -t tmpfs tmpfs /mnt\nfor name in passwd group nsswitch.conf hosts; do\n"
            "[ ! -e /etc/$name ] || cp -a /etc/$name /mnt\ndone\n"
            f"mkdir /mnt/tobix\ncp {world.etc}/tobix.cfg /mnt/tobix\nchown root:{self.GROUP} /mnt/tobix/tobix.cfg\n"
            f"chmod 640 /mnt/tobix/tobix.cfg\nmount --bind /mnt /etc\nexec setpriv --reuid={self.USER} "
            f"--regid={self.USER} --clear-groups sh -c '! ls {world.queue} && MAILCONFIGDIR=/nowhere {program} "
            f"-f \"{sender}\" ann@example.org'\n")
        done = inject(world, "--mount", "sh", str(world.root / "script"), program="unshare")
        self.assertEqual(done.returncode, 0, done.stderr)
        path, = world.queue.iterdir()
        status = path.stat()
        self.assertEqual((status.st_uid, status.st_gid, status.st_mode & 0o777), (self.USER, self.GROUP, 0o640))
        self.assertIn(b"X-Envelope-From: <" + expected + b">\r\n", path.read_bytes())


if __name__ == "__main__":
    unittest.main()
