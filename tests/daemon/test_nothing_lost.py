"""What an administrator trusts the daemon with: kills and the odd mail of the real world lose nothing."""
import os
import pathlib
import random
import re
import unittest

from world import World, mail, wait_for

MAILS = 1000
MOST_TWICE = 64


class Kills(unittest.TestCase):
    def test_a_kill_loses_no_mail_and_repeats_few(self):
        rounds = int(os.environ.get("TOBIX_KILLS", "4"))
        users = [f"user{n}" for n in range(10)]
        with World(users=users) as world:
            for n in range(MAILS):
                recipients = f"{users[n % 10]}@example.org" + (",far@far.example" if n % 3 == 0 else "")
                world.drop(f"{n:04}.eml", mail(recipients, subject=f"number {n}"))
            for _ in range(rounds):
                before = len(world.waiting())
                target = before - random.randint(1, max(1, before // 2))
                world.start()
                wait_for("some deliveries", lambda: len(world.waiting()) <= target)
                world.kill()
            world.start()
            world.wait_until_empty()
            self.assertEqual(world.stop(), 0)
            for directory, expected in ((world.spool, MAILS), (world.outgoing, (MAILS + 2) // 3)):
                numbers = [int(re.search(rb"Subject: number (\d+)", p.read_bytes())[1]) for p in directory.rglob("*.eml")]
                self.assertEqual(len(set(numbers)), expected)
                self.assertLessEqual(len(numbers) - expected, MOST_TWICE * rounds)
            self.assertEqual(list(world.error.iterdir()), [])
            hidden = [p for p in world.leftovers() if p.parent.parent != world.spool]  # in a mailbox the next mail reuses it
            self.assertEqual(hidden, [])


class RealMail(unittest.TestCase):
    @unittest.skipUnless(os.environ.get("TOBIX_MAIL_CORPUS"), "TOBIX_MAIL_CORPUS names no directory of .eml files")
    def test_every_real_mail_is_stored_or_stands_in_the_error_directory(self):
        corpus = sorted(pathlib.Path(os.environ["TOBIX_MAIL_CORPUS"]).rglob("*.eml"))
        self.assertTrue(corpus)
        with World(users=("ann", "carl", "dora"), filters="a phrase that is nowhere\n") as world:
            for n, path in enumerate(corpus):
                for kind, to in (("one", "ann@example.org"), ("three", "ann@example.org,carl@example.org,dora@example.org")):
                    world.drop(f"{n:04}-{kind}.eml", b"X-Envelope-From: bob@far.example\r\nX-Envelope-To: " + to.encode() +
                               f"\r\nMessage-ID: <{n}-{kind}@real>\r\n".encode() +
                               re.sub(rb"(?im)^((x-)?envelope-to):", rb"Was-\1:", path.read_bytes()))
            world.start()
            world.wait_until_empty()
            self.assertEqual(world.stop(), 0, world.log()[-3000:])
            failed = {p.name for p in world.error.iterdir()}
            for name in failed:
                self.assertIn(f"delivering mail '{name}' failed, placing in error", world.log())
            stored = sum(len(world.mailbox(user)) for user in ("ann", "carl", "dora"))
            failed_copies = sum(3 if "three" in name else 1 for name in failed)
            self.assertEqual(stored + failed_copies, 4 * len(corpus))
            self.assertLess(len(failed), len(corpus) // 10)
            self.assertEqual(world.leftovers(), [])


if __name__ == "__main__":
    unittest.main()
