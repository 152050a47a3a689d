"""Mailboxes that an IMAP server reads."""
import imaplib
import unittest

import environment
from world import World, mail, wait_for

BODY = "Grüße, 日本\r\n.\r\nFrom here\r\n \r\nend"


def setUpModule():
    environment.start()


class Mailboxes(unittest.TestCase):
    def test_mail_in_a_maildir_is_read_over_imap(self):
        with World(users=()) as world:
            for user, settings in (("ann", {}), ("carl", {"RunAntiSpam": 1})):  # which changes the size
                world.add_user(user, Maildir=1, **settings)
            world.executable = environment.as_vmail(world.root)
            (environment.RUN / "mailboxes").symlink_to(world.spool)
            world.start()
            for user in ("ann", "carl"):
                with self.subTest(user), imaplib.IMAP4("192.0.2.1") as imap:
                    imap.login(user, "secret")
                    self.assertEqual(imap.select()[1], [b"0"])
                    world.drop(f"{user}.eml", mail(f"{user}@example.org", body=BODY))
                    wait_for("the mail", lambda: imap.noop() and imap.untagged_responses.get("EXISTS", [None])[-1] == b"1")
                    file, = (world.spool / user / "Maildir").glob("[nc]*/*")
                    stored = file.read_bytes()
                    self.assertEqual(f",S={len(stored)}" in file.name, user == "ann")
                    self.assertEqual(imap.search(None, "UNSEEN", "RECENT"), ("OK", [b"1"]))
                    (told, content), _ = imap.fetch("1", "(FLAGS RFC822.SIZE BODY.PEEK[])")[1]
                    self.assertIn(rb"FLAGS (\Recent) RFC822.SIZE %d " % len(stored), told)
                    self.assertEqual(content, stored)
                    self.assertEqual(imap.fetch("1", "(BODY[TEXT])")[1][0][1], BODY.encode())
                    self.assertEqual(imap.search(None, "SEEN"), ("OK", [b"1"]))
                    self.assertTrue(list((world.spool / user / "Maildir" / "cur").glob("*:2,S")))
