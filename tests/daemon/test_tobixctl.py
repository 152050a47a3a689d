"""The administrator's command, on a mail tree with and without a daemon."""
import json
import os
import subprocess
import unittest

from world import World


def ctl(world, *arguments, **environment):
    """Exit code, standard output and standard error of tobixctl."""
    done = subprocess.run([os.environ["TOBIXCTL"], *arguments], capture_output=True, text=True, timeout=60,
                          env={**os.environ, "MAILCONFIGDIR": str(world.etc), **environment})
    return done.returncode, done.stdout, done.stderr


class CommandLine(unittest.TestCase):
    def test_tells_what_it_cannot_understand(self):
        with World() as world:
            for arguments, code, text in (([], 2, "subcommand is required"), (["mailbox"], 2, "subcommand is required"),
                                          (["mailbox", "list", "\x1b[2Jx"], 2, "?[2Jx"), (["mailbox", "list", "--nonsense"], 2, "--nonsense"),
                                          (["mailbox", "list", "x" * 100_000], 2, "..."),
                                          (["-c", "none.cfg", "mailbox", "list"], 1, "none.cfg: no such file")):
                exit_code, output, error = ctl(world, *arguments)
                self.assertEqual((exit_code, output), (code, ""), arguments)
                self.assertIn(text, error)
                self.assertEqual(error.count("\n"), 1)
                self.assertLess(len(error), 3000)
                self.assertNotIn("\x1b", error)
            self.assertIn("Examples:", ctl(world, "--help")[1])


class Mailboxes(unittest.TestCase):
    def test_lists_what_they_hold(self):
        with World(users=("ann", "b\x1b[31m")) as world:
            (world.spool / "ann" / "1.eml").write_bytes(b"x" * 2048)
            code, output, _ = ctl(world, "mailbox", "list")
            self.assertEqual(code, 0)
            self.assertRegex(output, r"(?m)^ann +1 +2.0 KiB +2\d{3}-")
            self.assertIn("b?[31m", output)
            self.assertEqual([(m["user"], m["mails"], m["bytes"]) for m in
                              json.loads(ctl(world, "mailbox", "list", "--json")[1])],
                             [("ann", 1, 2048), ("b\x1b[31m", 0, 0)])


if __name__ == "__main__":
    unittest.main()
