"""A small world for the daemon: a mail tree of its own, users, tables, and the daemon running on it.

The environment variable TOBIX names the daemon's executable.
"""
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import time

DEADLINE = 120  # seconds for anything the daemon is waited for; sanitizers are slow


def mail(recipients="ann@example.org", sender="bob@far.example", subject="Hello", body="Hi.\r\n", extra=""):
    return (f"X-Envelope-From: {sender}\r\nX-Envelope-To: {recipients}\r\n"
            f"Message-ID: <{subject.replace(' ', '.')}@far.example>\r\nFrom: Bob <{sender}>\r\nTo: all <all@example.org>\r\n"
            f"Subject: {subject}\r\nDate: Tue, 3 Mar 2026 10:00:00 +0100\r\n{extra}\r\n{body}").encode()


def wait_for(what, condition, seconds=DEADLINE):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"waited {seconds} s in vain for {what}")
        time.sleep(0.005)


def reports_up_to(text, reports):
    """What the service manager was told, but for what there is to do."""
    seen = []
    while not seen or seen[-1] != text:
        report = reports.recv(4096).decode().split("\nMONOTONIC")[0]
        if not report.startswith("STATUS=queue "):
            seen.append(report)
    return seen


def as_text(settings):
    return "".join(f"{key}: {value}\n" for key, value in settings.items())


class World:
    def __init__(self, users=("ann", "carl"), domains="example.org\n", aliases="", filters="", intercept="", **config):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="tobix-"))
        self.process = None
        self.executable = os.environ["TOBIX"]
        self.starts = 0
        self.log_path = self.root / "log"
        for name in ("etc", "queue", "spool", "error", "outgoing", "filtered", "intercepted"):
            (self.root / name).mkdir()
            setattr(self, name, self.root / name)
        settings = {"QueueDir": self.queue, "SpoolDir": self.spool, "ErrorDir": self.error, "OutgoingDir": self.outgoing,
                    "FilterDir": self.filtered, "InterceptDir": self.intercepted, "AutoTransport": 0, **config}
        for name, text in (("domains", domains), ("aliases", aliases), ("filters", filters),
                           ("intercept_addresses", intercept), ("tobix.cfg", as_text(settings))):
            (self.etc / name).write_text(text)
        for user in users:
            self.add_user(user)

    def __enter__(self):
        return self

    def __exit__(self, failure=None, *_):
        """Ends what was not ended: in order, unless the test has failed."""
        try:
            if self.process and self.process.returncode is None and failure is None and self.stop() != 0:
                raise AssertionError(f"the daemon ended with {self.process.returncode}:\n{self.log()}")
        finally:
            if self.process and self.process.poll() is None:
                self.kill()
            shutil.rmtree(self.root)

    def add_user(self, name, **settings):
        (self.spool / name).mkdir()
        (self.spool / name / "config").write_text(as_text(settings))

    def open_control(self):
        with open(self.etc / "tobix.cfg", "a") as configuration:
            configuration.write(f"Control.Socket: {self.root}/control\n")

    def start_service(self, **environment):
        """Starts it as the service manager does; the socket that its reports come to."""
        reports = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        reports.bind(str(self.root / "notify"))
        reports.settimeout(DEADLINE)
        self.run(NOTIFY_SOCKET=str(self.root / "notify"), **environment)
        return reports

    def run(self, *arguments, **environment):
        self.log_file = open(self.log_path, "ab")
        self.process = subprocess.Popen([self.executable, *arguments], stdin=subprocess.DEVNULL, stdout=self.log_file,
                                        stderr=self.log_file, env={**os.environ, **environment})

    def start(self, wait=True, **environment):
        self.run("-debug", **{"MAILCONFIGDIR": str(self.etc), **environment})
        if wait:
            self.starts += 1
            self.wait_for_log("launched and fully operational", self.starts)
        return self

    def stop(self):
        """Ends the daemon in order; its exit code."""
        self.process.send_signal(signal.SIGTERM)
        code = self.process.wait(DEADLINE)
        self.log_file.close()
        return code

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.log_file.close()

    def log(self):
        return self.log_path.read_text("utf-8", "replace")

    def wait_for_log(self, text, count=1):
        def there():
            if self.process.poll() is not None and self.log().count(text) < count:
                raise AssertionError(f"the daemon ended with {self.process.returncode}:\n{self.log()}")
            return self.log().count(text) >= count
        wait_for(f"\"{text}\" in the log", there)

    def drop(self, name, content, directory=None):
        """Puts a file in place, in the queue unless told otherwise, as a mail program does: complete at once."""
        temporary = (directory or self.queue) / (name + ".new")
        temporary.write_bytes(content)
        temporary.rename(temporary.with_suffix(""))

    def waiting(self):
        return sorted(p.name for p in self.queue.iterdir() if p.name.endswith(".eml"))

    def wait_until_empty(self):
        wait_for("an empty queue directory", lambda: not self.waiting())

    def deliver(self, name, content):
        self.drop(name, content)
        self.wait_until_empty()

    def mailbox(self, user):
        return sorted((p for p in (self.spool / user).glob("*.eml")), key=lambda p: int(p.stem))

    def leftovers(self):
        """Temporary files of unfinished writes, anywhere in the tree."""
        return [p for p in self.root.rglob("*") if p.name.endswith(".tmp") or p.name.endswith(".new")]
