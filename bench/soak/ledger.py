"""Where every mail of the soak went: each of its addresses ends in exactly one place.

An address holds the number of its mail and its own ("soak-000123-2"), so that whatever copy, session or notification is
found tells whose it is. A mail in the error directory stands for those of its addresses that nobody got.
"""
import collections
import contextlib
import re

AUTOMATIC = (b"X-Envelope-From: \r\n", b"X-Envelope-From: <>\r\n")  # how notifications and automatic replies begin
ADDRESS = re.compile(rb"soak-(\d{6}-\d)")
LINE_ENDS_AND_DOTS = b"\r\n."


def addresses(text):
    """Whose copy it is: by its envelope, else (forwarded, or a notification) by whom it was once for."""
    envelope = re.match(rb"(?:X-Envelope-From:.*\n)?X-Envelope-To:(.*\n(?:[ \t].*\n)*)", text)
    start = text.find(b"\nFinal-Recipient:") + 1 if text.startswith(AUTOMATIC) else 0
    found = ADDRESS.findall(envelope[1] if envelope else b"") or ADDRESS.findall(text, start)[:1]
    return {address.decode() for address in found}


class Ledger:
    def __init__(self):
        self.number, self.totals = 0, collections.Counter()
        self.clear()

    def clear(self):
        self.open = {}  # mail -> its addresses and how its body ends
        self.places = collections.defaultdict(list)  # address -> where it was found
        self.traces = collections.defaultdict(list)  # address -> the same with all that tells which copy it is
        self.allowed = collections.Counter()  # address -> how often it may be repeated
        self.findings = []

    def enter(self, number, names, ending):
        self.open[f"{number:06}"] = (names, ending.translate(None, LINE_ENDS_AND_DOTS))
        self.totals["mails"] += 1
        self.totals["addresses"] += len(names)

    def may_be_repeated(self, directories):
        """After a kill: what was still there can be delivered once more."""
        for directory in directories:
            for path in directory.glob("*.eml"):
                with contextlib.suppress(OSError):  # a program that the daemon started can still remove it
                    self.allowed.update(addresses(path.read_bytes()))

    def found(self, place, text, recipient=b"", trace=""):
        found = addresses(b"X-Envelope-To:" + recipient + b"\n") or addresses(text)
        for address in found:
            self.places[address].append(place)
            self.traces[address].append(f"{place} {trace}")
        if place != "bounced":
            for mail in {address[:6] for address in found} & self.open.keys():
                if not text.translate(None, LINE_ENDS_AND_DOTS).endswith(self.open[mail][1]):
                    self.findings.append(f"{place}: mail {mail} is not whole: {text[-200:]!r}")
        return found

    def received(self, recipient, text, confirmed):
        """A receiver has taken it; unless the client went on afterwards it need not know."""
        for address in self.found("received", text, recipient):
            self.allowed[address] += not confirmed

    def collect(self, world, receipts):
        """Takes everything out of the places where mail ends."""
        for receipt in receipts:
            self.received(*receipt)
        returned = []
        for directory, pattern, place in ((world.spool, "*.eml", "mailbox"), (world.spool, "Maildir/new/*", "mailbox"),
                                          (world.filtered, "*.eml", "filtered"), (world.error, "*.eml", "error")):
            for path in directory.rglob(pattern):
                text, trace = path.read_bytes(), f"{path.parent.name}/{path.name} of {path.stat().st_ctime:.3f}"
                path.unlink()
                if not text.startswith(AUTOMATIC):
                    self.found(place, text, trace=trace)
                    if place == "error":
                        returned.append(addresses(text))
                elif b"multipart/report" in text:  # not an automatic reply
                    self.found("bounced", text)
        for path in world.intercepted.glob("*.eml"):  # no part of the promise
            path.unlink()
        return returned

    def judge(self, world, receipts):
        """What went wrong with the mails that were entered since the last time."""
        returned = self.collect(world, receipts)
        for mail, (names, _) in self.open.items():
            for address in names:
                self.judge_address(mail, address)
        for names in returned:
            if all(self.final(address) for address in names) and not any(self.allowed[address] for address in names):
                self.findings.append(f"in the error directory although served: {sorted(names)} {[self.places[a] for a in names]}")
        findings = self.findings
        self.clear()
        return findings

    def final(self, address):
        return [place for place in self.places[address] if place != "error"]

    def judge_address(self, mail, address):
        final = self.final(address)
        self.totals[final[0] if final else "error" if self.places[address] else "lost"] += 1
        if not self.places[address]:
            self.findings.append(f"lost: {address} of {self.open[mail][0]}")
        elif len(final) > 1:
            repeated = len(final) - 1
            self.totals["repeated"] += repeated
            if repeated > self.allowed[address]:
                self.findings.append(f"doubled: {address}: {self.traces[address]}, allowed repeats: {self.allowed[address]}")
