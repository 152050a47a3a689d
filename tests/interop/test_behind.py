"""Mail systems that hand in what they receive, by the very lines of docs/behind.md."""
import os
import pathlib
import shutil
import smtplib
import unittest

import environment
from remote_world import stored_once
from world import World, mail, wait_for

SERVERS = (("postfix", "192.0.2.11", "postfix.log", "status=deferred", "postqueue -f"),
           ("exim", "192.0.2.12", "exim-mainlog", " defer (", "exim4 -qff"))
INJECT = pathlib.Path("/usr/bin/tobix-inject")
SETTINGS = pathlib.Path("/etc/tobix/tobix.cfg")
BODY = "Grüße\r\n.\r\n..\r\nFrom here\r\n\r\nend\r\n"


def setUpModule():
    environment.start()


class Behind(unittest.TestCase):
    def arrives(self, world, subject, sender, *users, flush="true"):
        for user in users:
            def found():
                return [text for text in (p.read_bytes() for p in world.mailbox(user)) if f"<{subject}@".encode() in text]
            wait_for(subject, lambda: environment.run(*flush.split()) or found(), 60)
            stored, = found()
            self.assertEqual(stored.split(b"\r\n")[0], f"Return-Path: <{sender}>".encode())
            self.assertEqual(stored.split(b"\r\n\r\n", 1)[1], BODY.encode())

    def test_what_they_receive_arrives_once_or_waits_there_or_goes_back(self):
        with World(AutoTransport=0) as world:
            world.executable = environment.as_vmail(world.root)
            world.root.chmod(0o711)
            shutil.copy(pathlib.Path(os.environ["TOBIX"]).with_name(INJECT.name), INJECT)
            for path, mode in ((INJECT, 0o2755), (world.queue, 0o1730)):
                shutil.chown(path, group="tobix-inject")
                path.chmod(mode)
            SETTINGS.write_text(f"{SETTINGS.read_text()}\nQueueDir: {world.queue}\n")
            world.start()
            for server, host, log, deferred, flush in SERVERS:
                bob = f"bob@{server}.example"
                with self.subTest(server), smtplib.SMTP(host) as client:
                    for name, sender in (("plain", bob), ("null", ""), ("odd", f"x`id`$HOME.{bob}")):
                        client.sendmail(sender, ["ann@example.org", "carl@example.org"],
                                        mail(subject=server + name, body=BODY, extra="X-Envelope-To: eve@example.org\r\n"))
                        self.arrives(world, server + name, sender, "ann", "carl")
                    client.sendmail(bob, ["o'brien@example.org"], mail(subject=f"{server} back"))
                    stored_once(self, server, f"{server} back")
                    for number, missing in enumerate((INJECT, world.queue), 1):
                        missing.rename(missing.with_suffix(".away"))
                        client.sendmail(bob, ["ann@example.org"], mail(subject=f"{server}{number}", body=BODY))
                        wait_for("the delay", lambda: (environment.RUN / "log" / log).read_text().count(deferred) == number, 60)
                        missing.with_suffix(".away").rename(missing)
                        self.arrives(world, f"{server}{number}", bob, "ann", flush=flush)
