"""The strangers of the soak: receivers that misbehave and name servers that lie or die, as their moods have it.

Domain dN.soak has the exchangers hN and h(N+1), hN is 127.0.1.N; the last one's address leads nowhere.
"""
import pathlib
import random
import socket
import ssl
import struct
import subprocess
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from sink import Session, Sink  # noqa: E402

HOSTS = 9
MOODS = {"good": 0, "odd": 0.05, "bad": 0.3, "hopeless": 1}  # how likely a reply is not what it should be
A, MX = 1, 15


class HostileSession(Session):
    """One that knows whether the client has seen that its mail was taken."""

    def setup(self):
        super().setup()
        self.random, self.secure, self.unconfirmed = self.server.sink.new_random(), False, None
        self.connection.settimeout(90)

    def handle(self):
        try:
            super().handle()
        except (OSError, ValueError):  # one of the two broke off
            pass
        finally:
            self.record(False)

    def lines(self):
        for line in super().lines():
            # An envelope may have been sent ahead of the reply; what follows it comes after that.
            if not line.upper().startswith((b"MAIL", b"RCPT", b"DATA")):
                self.record(True)
            if line.strip().upper() == b"STARTTLS":
                self.start_tls()
            else:
                yield line

    def record(self, confirmed):
        if self.unconfirmed:
            self.server.sink.receipts.append((*self.unconfirmed, confirmed))
            self.unconfirmed = None

    def start_tls(self):
        if self.reply("220 go"):
            self.connection = self.request = self.server.sink.tls.wrap_socket(self.connection, server_side=True)
            self.rfile, self.wfile, self.secure = self.connection.makefile("rb"), self.connection.makefile("wb", 0), True

    def accept(self, text):
        if self.reply("250 accepted"):
            self.unconfirmed = (self.recipient.encode(), text)

    def reply(self, text):
        """Whether it was given as it is."""
        if text.startswith("250-"):
            offers = ("STARTTLS", "PIPELINING")[self.secure:]
            text = "".join(f"250-{offer}\r\n" for offer in offers if self.random.random() < 0.5) + text
        mood = self.server.sink.moods.get(self.connection.getsockname()[0], "good")  # a lie can lead to any address
        if self.random.random() >= MOODS[mood]:
            super().reply(text)
            return True
        misdeed = self.random.choice((self.drop, self.fall_silent, self.drip, self.babble, self.flood, self.say_other, self.say_other))
        return bool(misdeed(text))

    def drop(self, text):
        self.wfile.write(text[:self.random.randrange(len(text))].encode())
        raise ConnectionError

    def fall_silent(self, text):
        self.server.sink.calm.wait()
        self.drop(text)

    def drip(self, text):
        for letter in text + "\r\n":
            self.wfile.write(letter.encode())
            time.sleep(0.02)
        return True

    def babble(self, _):
        self.wfile.write(self.random.randbytes(self.random.randrange(3000)) + b"\r\n")

    def flood(self, text):
        piece = (text[:3] + "-" + "x" * self.random.choice((1, 70, 100000)) + "\r\n").encode()
        for _ in range(1 + 20000000 // len(piece)):
            self.wfile.write(piece)
        raise ConnectionError

    def say_other(self, _):
        super().reply(self.random.choice(("451 4.3.0 later", "421 bye", "550 5.7.1 no", "552 5.2.2 full", "354 go on", "334 ", "999", "-")))


class NameServer(threading.Thread):
    """Answers on port 53 of loopback."""

    def __init__(self, seed):
        super().__init__(daemon=True)
        self.random, self.mood = random.Random(seed), "good"
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.bind(("127.0.0.1", 53))
        self.start()

    def run(self):
        while True:
            query, client = self.socket.recvfrom(4096)
            mood = self.random.choice(("good", "dead", "failing", "lying", "babbling")) if self.mood == "odd" else self.mood
            if mood != "dead":
                self.socket.sendto(self.answer(query, mood), client)

    def answer(self, query, mood):
        name, end = [], 12
        while query[end]:
            name.append(query[end + 1:end + 1 + query[end]].decode("latin-1").lower())
            end += query[end] + 1
        kind, end = struct.unpack(">H", query[end + 1:end + 3])[0], end + 5
        known, records = self.records(".".join(name), kind)
        code = {"failing": 2, "lying": self.random.randrange(16)}.get(mood, 0 if known else 3)
        body = b"".join(b"\xc0\x0c" + struct.pack(">HHIH", kind, 1, 2, len(data)) + data for data in records)
        reply = query[:2] + struct.pack(">HHHHH", 0x8180 | code, 1, len(records), 0, 0) + query[12:end] + body
        if mood == "babbling":
            reply = reply[:2] + bytes(b ^ (self.random.random() < 0.1) * self.random.randrange(256) for b in reply[2:])
        return reply

    def records(self, name, kind):
        number = int(name[1]) if name[1:2].isdigit() and name[2:] == ".soak" and name[0] in "dh" else HOSTS
        if number >= HOSTS:
            return False, []
        if name[0] == "d" and kind == MX:
            return True, [struct.pack(">H", 10 * n) + b"\x02h%d\x04soak\x00" % ((number + n) % HOSTS) for n in range(2)]
        if name[0] == "h" and kind == A:
            return True, [bytes((127, 0, 1, number) if number < HOSTS - 1 else (198, 51, 100, 1))]
        return True, []


class Network(Sink):
    def __init__(self, seed, directory):
        super().__init__(("0.0.0.0", 25), HostileSession)
        self.seed, self.sessions, self.receipts, self.calm = seed, 0, [], threading.Event()
        self.moods = {f"127.0.1.{number}": "good" for number in range(HOSTS)}
        self.names = NameServer(seed)
        self.tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        subprocess.run(("openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj", "/CN=h0.soak",
                        "-keyout", directory / "key", "-out", directory / "cert"), check=True, capture_output=True)
        self.tls.load_cert_chain(directory / "cert", directory / "key")

    def new_random(self):
        with self.lock:
            self.sessions += 1
            return random.Random(f"{self.seed} {self.sessions}")

    def settle(self):
        """Everybody behaves, and who kept silent hangs up."""
        self.names.mood = "good"
        self.moods = dict.fromkeys(self.moods, "good")
        self.calm.set()

    def unsettle(self, rng):
        self.calm.clear()
        self.moods = {host: rng.choice(list(MOODS)) for host in self.moods}

    def take_receipts(self):
        receipts, self.receipts = self.receipts, []
        return receipts
