"""The servers themselves, without the daemon: tells a broken environment from a broken delivery."""
import smtplib
import ssl
import unittest

import environment
from world import mail, wait_for


def setUpModule():
    environment.start()


class Environment(unittest.TestCase):
    def test_each_receiver_stores_what_it_is_given_over_trusted_tls(self):
        for name in ("postfix", "exim", "opensmtpd"):
            with self.subTest(name), smtplib.SMTP(f"mx.{name}.example", timeout=20) as client:
                if name != "opensmtpd":  # offers STARTTLS, and breaks off in the handshake: see smtpd.conf
                    client.starttls(context=ssl.create_default_context(cafile=environment.CA))
                client.sendmail("bob@far.example", [f"ann@{name}.example"], mail(subject=f"stand-in {name}"))
                token = f"<stand-in.{name}@far.example>".encode()
                wait_for(f"the mail at {name}", lambda: environment.received(name, token), 20)
                with self.assertRaises(smtplib.SMTPRecipientsRefused) as refusal:
                    client.sendmail("bob@far.example", [f"refused@{name}.example"], b"\r\n")
                self.assertEqual(refusal.exception.recipients[f"refused@{name}.example"][0], 550)
                with self.assertRaises(smtplib.SMTPRecipientsRefused) as refusal:
                    client.sendmail("bob@far.example", [f"later@{name}.example"], b"\r\n")
                self.assertIn(refusal.exception.recipients[f"later@{name}.example"][0], (450, 451))

    def test_smart_hosts_take_mail_for_anywhere_from_who_proves_himself(self):
        for port, mechanism in ((587, "CRAM-MD5"), (588, "PLAIN"), (589, "LOGIN")):
            with self.subTest(mechanism), smtplib.SMTP("smart.example", port, timeout=20) as client:
                client.ehlo()
                self.assertEqual(client.esmtp_features["auth"].split(), [mechanism])
                client.login(environment.USER, environment.PASSWORD)
                client.sendmail("bob@far.example", ["eve@anywhere.example"], b"\r\n")


if __name__ == "__main__":
    unittest.main()
