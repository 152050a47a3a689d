"""Relays: proof of identity, TLS from the first byte, and certificates that are worth nothing."""
import unittest

import environment
from environment import PASSWORD, USER
from remote_world import RemoteWorld, stored_once
from world import mail


def setUpModule():
    environment.start()


class SmartHosts(unittest.TestCase):
    def send(self, entry, subject, **config):
        world = RemoteWorld(smarthosts=f"anywhere.example: {entry}\n", **config)
        self.addCleanup(world.__exit__)
        world.start()
        world.post("1", mail("eve@anywhere.example", subject=subject))
        return world

    def test_each_mechanism_opens_the_relay(self):
        for port, mechanism in (("587", "CRAM-MD5"), ("588", "PLAIN"), ("589", "LOGIN"), ("465s", "PLAIN"), ("587t", "CRAM-MD5")):
            with self.subTest(port=port):
                world = self.send(f"{USER}:{PASSWORD}@smart.example:{port}", f"relay {port}")
                world.wait_until_sent("1")
                stored = stored_once(self, "postfix", f"relay {port}")
                self.assertIn(f"Authenticated sender: {USER}".encode(), stored)
                self.assertIn(b"(using TLSv1.3", stored)
                self.assertEqual(world.stop(), 0)
                self.assertNotIn(PASSWORD, world.log())
                self.assertIn(mechanism if mechanism == "CRAM-MD5" else f"AUTH {mechanism}", world.log())

    def test_settings_decide_on_tls(self):
        for setting, value, mark in (("UseTLS", 0, b"with ESMTPA id"), ("CipherProtocols", "TLS1_2", b"(using TLSv1.2")):
            with self.subTest(setting):
                world = self.send(f"{USER}:{PASSWORD}@smart.example:588", f"set {setting}", **{setting: value})
                world.wait_until_sent("1")
                self.assertIn(mark, stored_once(self, "postfix", f"set {setting}"))

    def test_a_worthless_certificate_stops_who_insists_on_tls_and_nobody_else(self):
        for host in ("mx.untrusted.example:25t", "mx.untrusted.example:465s", "192.0.2.11:587t"):  # a name that it does not hold
            with self.subTest(host):
                world = self.send(f"{USER}:{PASSWORD}@{host}", f"insist {host}", AutoTransRetry=60)
                world.wait_for_log('1.eml" temporarily failed with error 8. I will retry later!')
                self.assertIn("security error", "".join(world.outcome(f"insist {host}")))
        with RemoteWorld().start() as world:
            world.post("1", mail("ann@untrusted.example", subject="fall back"))
            world.wait_until_sent("1")
            self.assertNotIn(b"(using TLS", stored_once(self, "postfix", "fall back"))
            self.assertIn("security error", "".join(world.outcome("fall back")))
