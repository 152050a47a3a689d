"""A small receiving mail server for the demonstration and the tests: Sink() listens on loopback.

The recipient decides what happens: "refuse..." is answered with 550, "later..." with 451 the first time; every other one is
accepted, "silent..." once `silence` is set, and the mail of "slow..." after half a second.
"""
import socketserver
import threading
import time


class Session(socketserver.StreamRequestHandler):
    sender = recipient = None

    def reply(self, text):
        self.wfile.write(text.encode() + b"\r\n")

    def lines(self):
        try:
            while line := self.rfile.readline():
                yield line
        except OSError:  # the client broke off
            pass

    def handle(self):
        with self.server.sink.lock:
            self.server.sink.connections += 1
        self.reply("220 sink.example ready")
        for line in self.lines():
            command = line.decode("latin-1").strip()
            verb = command.upper()
            if verb.startswith(("EHLO", "HELO")):
                self.reply("250-sink.example\r\n250-PIPELINING\r\n250 SIZE 100000000")
            elif verb.startswith("RCPT"):
                self.answer_recipient(command[command.index("<") + 1:-1])
            elif verb == "DATA" and not self.recipient:
                self.reply("503 to whom?")
            elif verb == "DATA":
                self.reply("354 go on")
                self.receive()
            elif verb == "QUIT":
                with self.server.sink.lock:
                    self.server.sink.parted += 1
                self.reply("221 bye")
                return
            else:
                self.sender, self.recipient = command, None
                self.reply("250 ok")

    def answer_recipient(self, address):
        sink = self.server.sink
        if address.startswith("silent"):
            sink.silence.wait()
        if address.startswith("refuse"):
            self.reply("550 5.1.1 no such user here")
        elif address.startswith("later") and address not in sink.deferred:
            sink.deferred.add(address)
            self.reply("451 4.7.1 try again later")
        else:
            self.recipient = None if self.reply("250 ok") is False else address  # as the client was told

    def receive(self):
        lines = []
        for line in self.lines():
            if line == b".\r\n":
                break
            lines.append(line[1:] if line.startswith(b".") else line)
        else:  # the client broke off
            return
        self.accept(b"".join(lines))

    def accept(self, text):
        with self.server.sink.lock:
            self.server.sink.mails.append((self.sender, self.recipient, text))
        if self.recipient.startswith("slow"):
            time.sleep(0.5)
        self.reply("250 accepted")


class Server(socketserver.ThreadingTCPServer):
    allow_reuse_address = True
    daemon_threads = True
    request_queue_size = 100


class Sink:
    def __init__(self, address=("127.0.0.1", 0), session=Session):
        self.lock, self.mails, self.deferred, self.silence = threading.Lock(), [], set(), threading.Event()
        self.connections = self.parted = 0
        self.server = Server(address, session)
        self.server.sink = self
        self.port = self.server.server_address[1]
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def recipients(self):
        with self.lock:
            return sorted(recipient for _, recipient, _ in self.mails)

    def close(self):
        self.silence.set()
        self.server.shutdown()
        self.server.server_close()
