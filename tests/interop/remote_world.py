"""A daemon tree that sends to the receivers of the environment."""
import re

import environment
from world import World, wait_for

OWN_LINES = re.compile(rb"(?:(?:Received|Return-Path|Delivered-To|X-Original-To|Envelope-to):[^\n]*\n(?:[ \t][^\n]*\n)*)*")


class RemoteWorld(World):
    def __init__(self, smarthosts="", **config):
        settings = {"AutoTransport": 1, "AutoTransport.Threads": 4, "AutoTransRetry": 0, "FQDN": "client.example", **config}
        super().__init__(users=("ann",), **settings)
        (self.etc / "smarthosts").write_text(smarthosts)

    def start(self, wait=True, **environ):
        return super().start(wait, **{"SSL_CERT_FILE": str(environment.CA), **environ})

    def post(self, name, content):
        self.drop(name + ".eml", content, self.outgoing)

    def wait_until_sent(self, *names):
        waiting = [self.outgoing / (name + ".eml") for name in names]
        try:
            wait_for("the mails to leave", lambda: not any(p.exists() for p in waiting), 60)
        except AssertionError as error:
            raise AssertionError(f"{error}\n{self.log()[-6000:]}") from None

    def outcome(self, subject):
        """The log lines that tell how a mail fared."""
        return [line for line in self.log().splitlines() if f"mail <{subject.replace(' ', '.')}@far.example>" in line]


def stored_once(test, server, subject, seconds=30):
    """The one mail with this subject at the receiver, in transfer line ends."""
    token = f"Message-ID: <{subject.replace(' ', '.')}@far.example>\n".encode()
    wait_for(f"\"{subject}\" at {server}", lambda: environment.received(server, token), seconds)
    found = environment.received(server, token)
    test.assertEqual(len(found), 1)
    return found[0]


def is_unchanged(stored, sent):
    """Nothing but the receiver's own lines on top."""
    sent = sent.replace(b"\r\n", b"\n")
    return stored.endswith(sent) and OWN_LINES.fullmatch(stored[:len(stored) - len(sent)]) is not None
