"""Mail to real receivers: what arrives, byte by byte, and what becomes of mail that they refuse or put off."""
import email
import pathlib
import unittest

import environment
from remote_world import RemoteWorld, is_unchanged, stored_once
from world import mail, wait_for

BODIES = {
    "text": "Hi.\r\n",
    "no line end": "Hi.",
    "nothing": "",
    "dots": ".\r\n.hidden\r\n..\r\n...\r\nend\r\n.\r\nbehind the dot\r\n",
    "octets": "Gr\u00fc\u00dfe, \u65e5\u672c\r\n\tx \r\n \r\n\r\n",
    "long lines": "".join(f"{number:04d}" + "x" * 990 + "\r\n" for number in range(300)),
    "chunk edges": ".\r\n" + "y" * 8000 + "\r\n" + ".\r\n" * 100 + "MAIL From:<x>\r\nQUIT\r\n",
}


def setUpModule():
    environment.start()


class Receivers(unittest.TestCase):
    def test_mail_arrives_byte_by_byte(self):
        self.arrives_byte_by_byte("")

    def test_mail_that_shares_connections_arrives_byte_by_byte(self):
        log = self.arrives_byte_by_byte("shared ", **{"Connection.Mails": 5, "Connection.Pipelining": 1, "Connection.Wait": 2})
        for server in ("postfix", "exim"):
            self.assertLess(log.count(f"connection to mx.{server}.example secured"), len(BODIES))

    def arrives_byte_by_byte(self, way, **settings):
        with RemoteWorld(**settings).start() as world:
            sent = {}
            for server in ("postfix", "exim", "opensmtpd"):
                for kind, body in BODIES.items():
                    subject = f"{way}{kind} {server}"
                    content = mail(f"ann@{server}.example", subject=subject, body=body,
                                   extra="X-Folded: one\r\n\ttwo\r\n\tthree\r\n").replace(b"Bob", b'"Bob"')
                    sent[server, subject] = content.split(b"\r\n", 2)[2] + b"\r\n"  # without the envelope
                    world.post(subject, content)
            for (server, subject), plain in sent.items():
                with self.subTest(subject):
                    stored = stored_once(self, server, subject)
                    self.assertTrue(is_unchanged(stored, plain), f"sent\n{plain[:2000]!r}\nstored\n{stored[:2000]!r}")
                    if server != "opensmtpd":  # whose TLS breaks off, so that its mail comes by the second try, without
                        self.assertRegex(stored, rb"TLS_?v?1\.3")
            wait_for("an empty outgoing directory", lambda: not list(world.outgoing.iterdir()))
            self.assertIn("connection to mx.postfix.example secured", world.log())
            self.assertIn("security error", world.log())
            return world.log()

    def test_every_shape_of_a_domain_leads_to_its_exchanger(self):
        shapes = ("several", "bare", "alias", "indirect", "halfnull", "six", "onlysix")
        with RemoteWorld().start() as world:
            for shape in shapes:
                world.post(shape, mail(f"ann@{shape}.example", subject=f"shape {shape}"))
            world.wait_until_sent(*shapes)
            for shape in shapes:
                with self.subTest(shape):
                    stored_once(self, "exim", f"shape {shape}")

    def test_refused_mail_comes_back_to_its_sender(self):
        with RemoteWorld().start() as world:
            for server in ("postfix", "exim", "opensmtpd"):
                world.post(server, mail(f"refused@{server}.example", sender="ann@example.org", subject=f"to {server}"))
            world.wait_until_sent("postfix", "exim", "opensmtpd")
            wait_for("the notifications", lambda: len(world.mailbox("ann")) == 3, 60)
            self.assertEqual(world.stop(), 0)
            returned = [email.message_from_bytes(p.read_bytes()).get_payload(0).get_payload(decode=True)
                        for p in world.mailbox("ann")]
            for server in ("postfix", "exim", "opensmtpd"):
                told, = (text for text in returned if f"while talking to mx.{server}.example:".encode() in text)
                self.assertRegex(told, rf">>> RCPT To:<refused@{server}.example>\r\n<<< 550.* no mail for this one".encode())
            self.assertEqual(list(world.outgoing.iterdir()), [])

    def test_mail_that_an_alias_sends_on_respects_the_policy_of_its_author(self):
        with RemoteWorld() as world:
            (world.etc / "aliases").write_text("out@example.org: far@exim.example\n")
            world.start()
            for domain in ("strict", "exim"):
                world.drop(f"{domain}.eml", mail("out@example.org", sender=f"bob@{domain}.example", subject=f"by {domain}"))
            strict, other = (stored_once(self, "exim", f"by {domain}") for domain in ("strict", "exim"))
            self.assertIn(b"\nSender: ", strict)
            self.assertNotIn(b"\nSender: ", other)
