"""What an administrator trusts the daemon with: kills lose nothing."""
import os
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
