"""The administrator's commands on waiting mail, on files and with a daemon's answers made up here."""
import contextlib
import fcntl
import json
import os
import pathlib
import pty
import socket
import subprocess
import sys
import threading
import unittest

from test_tobixctl import ctl
from world import World, mail, wait_for
sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "scripts"))
from sink import Sink  # noqa: E402

REPORT = ("X-Envelope-From: <>\r\nSubject: Returned mail\r\n\r\n\t----- The following addresses had continuous fatal errors -----\r\n"
          "x@far.example\r\n{reason}\r\n\t----- Transcript of session follows -----\r\n{transcript}")
REFUSED = REPORT.format(reason="", transcript=">>> RCPT TO:<x@far.example>\r\n<<< 450-busy\r\n<<< 450 4.2.0 gr\x1b[31mey\r\n")
BROKEN = REPORT.format(reason="\t(reason: connection timed out)", transcript="connection timed out\r\n")


def names(directory, pattern="*"):
    return sorted(p.name for p in directory.glob(pattern))


@contextlib.contextmanager
def journal(world):
    """Keeps what the daemon, in the environment that this gives, tells the journal; a journalctl finds it there."""
    def keep():
        with open(world.root / "entries", "w", buffering=1) as entries:
            while entry := receiver.recv(65536).decode():
                fields = {}
                for name, _, value in (line.partition("=") for line in entry.splitlines()):
                    fields[name] = [*fields.get(name, []), value] if name.startswith("TOBIX") else value
                entries.write(json.dumps(fields) + "\n")
    (world.root / "journalctl").write_text(f"#!/bin/sh\nfor word; do case $last$word in *TOBIX_MAIL=*) names=\"$names -e ${{word#*=}}\";; -nall) n=+1;; -n*) n=$word;; esac; last=$word; done\n"
                                              f"grep -F $names {world.root}/entries | tail -n $n\n")
    (world.root / "journalctl").chmod(0o755)
    (world.root / "log").touch()
    log = os.stat(world.root / "log")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as receiver, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as end:
        receiver.bind(str(world.root / "journal"))
        thread = threading.Thread(target=keep)
        thread.start()
        try:
            yield {"TOBIX_JOURNAL_SOCKET": str(world.root / "journal"), "JOURNAL_STREAM": f"{log.st_dev}:{log.st_ino}"}
        finally:
            end.sendto(b"", str(world.root / "journal"))
            thread.join()


def fill(world):
    """One mail of each kind; their names in the order of the list."""
    (world.queue / "a.eml").write_bytes(mail("ann@example.org,x@far.example"))
    (world.queue / "B.EML.held").write_bytes(mail(subject="\x1b[2J"))
    (world.queue / "c.eml.failed").write_bytes(mail())
    (world.queue / "empty.eml").touch()
    (world.queue / "many.eml").write_bytes(mail(",".join(f"u{n}@example.org" for n in range(1000))))
    (world.outgoing / "a.eml").write_bytes(mail("x@far.example", sender=""))
    (world.outgoing / "a.eml.err").write_text(REFUSED)
    (world.outgoing / "d\x1b.eml").write_bytes(mail("y@Far.example").replace(b"\r\n", b"\n"))
    (world.outgoing / "d\x1b.eml.err").write_text(BROKEN)
    for name in ("x.eml.tmp", "notes", "a.eml.new"):
        (world.queue / name).write_text("no mail")
    (world.outgoing / "pipe.eml").symlink_to("/dev/zero")
    (world.queue / "directory.eml").mkdir()


class Queue(unittest.TestCase):
    def names(self, world, *arguments):
        code, output, _ = ctl(world, "queue", "--json", *arguments)
        self.assertEqual(code, 0)
        return [f"{m['directory'][0]}/{m['name']}" for m in json.loads(output) if m["name"] != "pipe.eml"]

    def test_lists_what_waits_without_a_daemon(self):
        with World() as world:
            fill(world)
            for name in ("a.eml", "c.eml.failed"):
                os.utime(world.queue / name, (0, 0))
            with open(world.queue / "a.eml", "r+b") as claimed:
                fcntl.lockf(claimed, fcntl.LOCK_EX)
                code, output, error = ctl(world, "queue")
            self.assertEqual((code, error.count("\n")), (0, 1))
            self.assertIn("names no Control.Socket", error)
            self.assertNotIn("\x1b", output)
            for line in (r"queue/B.EML.held +\d+s +2\d\d B +held +- +- +bob@far.example +ann@example.org",
                         r"queue/a.eml .* waiting .* ann@example.org and 1 more", "queue/c.eml.failed .* failed ",
                         "queue/empty.eml .* 0 B +empty ", r"queue/many.eml .* u0@example.org and \d+ more at least",
                         r"outgoing/a.eml .* <> +x@far.example +450 4.2.0 gr\?\[31mey",
                         r"outgoing/d\?.eml .* y@far.example +connection timed out"):
                self.assertRegex(output, f"(?m)^{line}")
            for arguments, expected in ((["--to", "*@FAR.*"], ["q/a.eml", "o/a.eml", "o/d\x1b.eml"]),
                                        (["--to", "u999@example.org"], ["q/many.eml"]), (["--limit", "2"], ["q/B.EML", "q/a.eml"]),
                                        (["--from", "nobody"], []), (["--older", "1w"], []),
                                        (["--limit", "0", "--from", "bob@*", "--to", "ann@*"], ["q/B.EML", "q/a.eml", "q/c.eml"])):
                self.assertEqual(self.names(world, *arguments), expected, arguments)
            self.assertIn("--limit 0 shows all", ctl(world, "queue", "--limit", "1")[2])
            for arguments in (["--older", "soon"], ["--older", "-1s"], ["--older", "9" * 30], ["--limit", "x"], ["nonsense"]):
                self.assertEqual(ctl(world, "queue", *arguments)[:2], (2, ""), arguments)

    def test_shows_one(self):
        with World() as world:
            fill(world)
            tools = world.root / "tools"
            tools.mkdir()
            (tools / "journalctl").write_text("#!/bin/sh\nfor argument; do last=$argument; done\necho \"2026-11-25 $last\"\n")
            (tools / "journalctl").chmod(0o755)
            shown = json.loads(ctl(world, "queue", "show", "d\x1b.eml", "--json", PATH=f"{tools}:/bin")[1])
            self.assertEqual((shown["journal"], shown["report"][-1]), (["2026-11-25 TOBIX_MAIL=d\x1b.eml"], "connection timed out"))
            self.assertIn("Subject: Hello", shown["headers"])
            code, output, _ = ctl(world, "queue", "show", "B.EML", PATH="/none")
            self.assertEqual((code, "\x1b" in output), (0, False))
            for text in ("state: +held", r"Subject: \?\[2J", "there is no journal"):
                self.assertRegex(output, text)
            (tools / "journalctl").write_text("#!/bin/sh\nexec cat /dev/zero\n")
            self.assertEqual(ctl(world, "queue", "show", "queue/a.eml", PATH=f"{tools}:/bin")[0], 0)


class Actions(unittest.TestCase):
    def check(self, world, *rows):
        """Each row: a command's arguments, its exit code, what it tells."""
        for arguments, code, *texts in rows:
            exit_code, output, error = ctl(world, *arguments)
            self.assertEqual((exit_code, "\x1b" in output + error), (code, False), (arguments, output, error))
            for text in texts:
                self.assertRegex(output + error, text, arguments)

    def test_steers_the_daemon(self):
        sink = Sink()
        self.addCleanup(sink.close)
        with World(AutoTransport=1, **{"Queue.MinFree": 100}) as world:
            world.open_control()
            (world.etc / "smarthosts").write_text(f"silent.example: 127.0.0.1:{sink.port}\n*: 127.0.0.1:1\n")
            fill(world)
            (world.outgoing / "silent.eml").write_bytes(mail("silent@silent.example"))
            for name in ("\udcff.EML", "\ufffd.EML"):
                (world.queue / name).write_bytes(mail())
            for n in range(250):
                (world.outgoing / f"n{n}.eml").write_bytes(mail("z@z.example", sender="ann@example.org"))
            world.start(TOBIX_CONNECTIVITY="4")

            def known(name="outgoing/"):
                listed = json.loads(ctl(world, "queue", "--json", "--limit", "0")[1])
                return {m["name"]: (m["state"], m.get("attempts"), "next_try" in m) for m in listed
                        if f"{m['directory']}/{m['name']}".startswith(name)}
            wait_for("the attempts", lambda: list(known().values()).count(("waiting", 1, True)) == 252)
            wait_for("the session", lambda: known("outgoing/silent") == {"silent.eml": ("sending", 0, False)})
            self.check(
                world, (["queue", "--from", "bob@*"], 0, r"(?m)^outgoing/d\?.eml .* waiting +1 +2.* the attempt to connect was rejected$"),
                (["queue", "show", "outgoing/a.eml"], 0, r"attempts: +1 since the daemon's start", r"next try: +2\d{3}-"),
                *(([*command, "silent.eml"], 3, "^tobixctl: outgoing/silent.eml: in delivery\n$") for command in (["retry"], ["hold"], ["bounce"], ["remove", "--yes"])),
                (["retry", "n0.eml"], 0, "^tries now outgoing/n0.eml\n$"), (["retry", "--to", "Y@far.*"], 0, r"^tries now outgoing/d\?.eml\n$"),
                (["bounce", "n1.eml"], 0, "^bounces outgoing/n1.eml\n$"), (["remove", "--yes", "n2.eml"], 0, "^removed outgoing/n2.eml\n$"),
                (["hold", "queue/a.eml", "many.eml", "none.eml", "queue/a.eml"], 1, "(?s)^holds queue/a.eml\nholds queue/many.eml\n.*none.eml: no such"),
                (["release", "queue/a.eml", "many.eml"], 0), (["remove", "--yes", "many.eml"], 0),
                (["hold", "a.eml"], 1, "is in both"), (["remove", "queue/a.eml"], 3, "say --yes"), (["retry"], 2, "which mail?"),
                (["hold", "--to", "x", "many.eml"], 2, "which mail?"), (["retry", "--all", "a.eml"], 2, "which mail?"),
                (["retry", "queue/a.eml"], 1, "no such mail"), (["hold", "../etc/tobix.cfg"], 2, "no mail's name"),
                (["hold", "\udcff.EML"], 1, "not UTF-8"), (["hold", "\ufffd.EML"], 0),
                (["hold", "queue/../a.eml"], 2, "no mail's name"), (["hold", "\n\x1b[2J.eml"], 1, r"\?\?\[2J.eml: no such"),
                (["hold", "x" * 300 + ".eml"], 2, "no mail's name"), (["status"], 1, "low space", "remote deferred +25[3-5]", "sends silent.eml"),
                (["metrics"], 0, "tobix_low_space 1", "tobix_attempt_seconds_bucket", r'tobix_bounced_total{class="4xx"} 0'))
            wait_for("the second attempts", lambda: [known(f"outgoing/{n}").popitem()[1] for n in ("n0.", "d")] == [("waiting", 2, True)] * 2)
            wait_for("the bounce", lambda: len(names(world.queue, "*.eml")) == 4)
            with open(world.queue / "a.eml", "r+b") as claimed:
                fcntl.lockf(claimed, fcntl.LOCK_EX)
                self.check(world, (["hold", "queue/a.eml"], 3, "in delivery"))
            self.check(world, (["hold", "--from", "ann@*"], 0, "(holds outgoing/n.*\n){248}"), (["retry", "n3.eml"], 1, "no such mail"),
                       (["release", "n3.eml"], 0))
            self.assertEqual(names(world.outgoing, "n[12].*") + names(world.outgoing, "*.eml"), ["a.eml", "d\x1b.eml", "n3.eml", "silent.eml"])
            wait_for("its attempt", lambda: known("outgoing/n3.") == {"n3.eml": ("waiting", 1, True)})
            world.error.rename(world.root / "away")  # where the responder works
            self.check(world, (["bounce", "outgoing/a.eml"], 0))
            wait_for("its failure", lambda: known("outgoing/a.eml")["a.eml"][0] == "bounce failed")
            world.error.mkdir()
            self.check(world, (["retry", "--all"], 0, "outgoing/a.eml\n(.*\n)*tries now outgoing/n3.eml\n"))
            wait_for("its end", lambda: names(world.outgoing, "a.*") == [])

    def test_does_what_needs_no_daemon(self):
        with World() as world:
            fill(world)
            held = world.queue / "B.EML.held"
            content = held.read_bytes()
            (world.queue / "B.EML").write_text("another")
            self.assertEqual(ctl(world, "release", "B.EML")[0], 3)
            (world.queue / "B.EML").unlink()
            self.assertEqual(ctl(world, "release", "--all")[:2], (0, "released queue/B.EML\n"))
            self.assertEqual((world.queue / "B.EML").read_bytes(), content)
            self.assertEqual(ctl(world, "release", "--all")[:2], (0, "no such mail waits\n"))
            self.assertEqual(ctl(world, "hold", "many.eml")[:2], (0, "holds queue/many.eml\n"))
            self.assertEqual(ctl(world, "remove", "--yes", "many.eml")[0], 0)
            with subprocess.Popen(("flock", "-s", world.outgoing, "cat"), stdin=subprocess.PIPE) as other:
                number = str(world.outgoing.stat().st_ino)
                wait_for("its claim", lambda: number in pathlib.Path("/proc/locks").read_text())
                code, _, complaint = ctl(world, "hold", "outgoing/a.eml")
                other.stdin.close()
            self.assertEqual((code, f"process {other.pid} runs" in complaint), (3, True), complaint)
            self.assertEqual(list(world.queue.glob("many.*")), [])
            for command in (["bounce", "outgoing/a.eml"], ["retry", "--all"], ["status"]):
                self.assertEqual(ctl(world, *command)[0], 4, command)
            (world.outgoing / "a.eml").rename(world.outgoing / "a.eml.held")
            self.assertEqual(ctl(world, "remove", "--yes", "outgoing/a.eml", "c.eml")[0], 0)
            self.assertEqual([p.name for p in (*world.outgoing.glob("a.*"), *world.queue.glob("c.*"))], [])

    def test_asks_before_it_removes(self):
        for answer, left in ((b"n\n", 1), (b"\n", 1), (b"y\n", 0)):
            with World() as world:
                fill(world)
                us, them = pty.openpty()
                os.write(us, answer)
                done = subprocess.run([os.environ["TOBIXCTL"], "remove", "c.eml.failed"], stdin=them, capture_output=True,
                                      timeout=60, env={**os.environ, "MAILCONFIGDIR": str(world.etc)})
                os.close(us)
                os.close(them)
                self.assertEqual((done.returncode, len(list(world.queue.glob("c.*")))), (3 if left else 0, left))
                self.assertIn(b"Remove queue/c.eml.failed for good?", done.stdout)


class Requeue(unittest.TestCase):
    def test_serves_those_who_have_no_copy(self):
        with World(users=("ann", "carl", "eve"), aliases="", AutoTransport=1) as world:
            (world.etc / "smarthosts").write_text("*: 127.0.0.1:1\n")
            content = mail("ann@example.org,carl@example.org,eve@example.org", body="Hi \xe9.\r\n")
            with journal(world) as environment:
                world.run(MAILCONFIGDIR=str(world.etc), TOBIX_CONNECTIVITY="4", **environment)
                world.deliver("o.eml", mail("ann@example.org,x@far.example", subject="road"))
                wait_for("the attempt", lambda: names(world.outgoing, "*.err"))
                world.deliver("a.eml", mail("carl@example.org", subject="another"))
                (world.spool / "carl" / "config").unlink()
                world.deliver("a.eml", content)
                self.assertEqual(world.stop(), 0)
            self.assertEqual([len(world.mailbox(user)) for user in ("ann", "carl", "eve")], [2, 1, 0])
            path = f"{world.root}:/bin"
            with open(world.root / "entries", "a") as entries:  # more than is shown
                entries.write('{"MESSAGE": "noise", "TOBIX_MAIL": ["a.eml"]}\n' * 1000)
            road = [json.loads(line) for line in json.loads(ctl(world, "queue", "show", names(world.outgoing)[0], "--json", PATH=path)[1])["journal"]]
            self.assertRegex(" ".join(line["MESSAGE"] for line in road), "saved in <ann>.*saved in outgoing.*temporarily failed")
            self.assertIn("o.eml", road[-1]["TOBIX_MAIL"])
            failed = world.error / "a.eml"
            for aside in (failed, world.queue / "a.eml.failed"):
                aside.write_bytes(content)
                self.assertEqual(ctl(world, "requeue", "a.eml", PATH=path)[0], 3)
                self.assertEqual(ctl(world, "requeue", "a.eml", "--to", "zoe@example.org", PATH=path)[0], 1)
                self.assertEqual((list(world.queue.glob("*.eml")), aside.read_bytes()), ([], content))
                (world.queue / "a.eml").write_text("another")
                code, output, error = ctl(world, "requeue", "a.eml", "--to", "CARL@example.org", PATH=path)
                self.assertEqual((code, error), (0, ""))
                self.assertRegex(output, r"(?s)has it: +ann@.*left out: +eve@.*gets it: +carl@.*requeued as queue/a-1.eml")
                self.assertIn(b"X-Envelope-To: <carl@example.org>", (world.queue / "a-1.eml").read_bytes())
                self.assertIn(b"X-Envelope-To: <eve@example.org>", aside.read_bytes())
                (world.queue / "a.eml").unlink()
                answer = json.loads(ctl(world, "requeue", "a.eml", "--yes", "--json", PATH=path)[1])
                self.assertEqual((answer["requeued"], answer["to"]), ("queue/a.eml", ["eve@example.org"]))
                self.assertFalse(aside.exists())
                for name in ("a.eml", "a-1.eml"):
                    self.assertTrue((world.queue / name).read_bytes().endswith("Hi \xe9.\r\n".encode()))
                    (world.queue / name).unlink()
            for name in ("../etc/tobix.cfg", "error/../a.eml", "none.eml", "error/none.eml"):
                self.assertIn(ctl(world, "requeue", name, PATH=path)[0], (1, 2))

    def test_knows_an_outgoing_copy(self):
        name = "2026112510150000123" + "0042.eml"
        with World(aliases="info@example.org: x@far.example\n") as world:
            for recipient, place in (("x@far.example", world.outgoing), ("ann@example.org", world.queue), ("info@example.org", world.queue)):
                (world.error / name).write_bytes(mail(recipient))
                code, output, error = ctl(world, "requeue", name, "--yes", PATH="/none")
                self.assertEqual((code, [p.name for p in place.iterdir()]), (0, [name]), error)
                self.assertIn("who has it already is not known", error)
                (place / name).unlink()


class Metrics(unittest.TestCase):
    def test_are_text_for_collectors(self):
        with World(**{"Header.Received.Max": 1}) as world:
            world.open_control()
            fill(world)
            (world.queue / "round.eml").write_bytes(mail(extra="Received: x\r\n" * 2))
            self.assertIn("tobix_up 0\n", ctl(world, "metrics")[1])
            os.chmod(world.root, 0o755)
            world.start()
            wait_for("the mail", lambda: names(world.queue, "*.eml") == ["directory.eml", "empty.eml"])
            self.assertEqual(ctl(world, "metrics", "--output", "tobix.prom", cwd=world.root), (0, "", ""))
            text = (world.root / "tobix.prom").read_text()
            self.assertTrue(text.endswith("# EOF\n"))
            for line in text.splitlines()[:-1]:
                self.assertRegex(line, r'^(# (TYPE|UNIT|HELP) tobix_\w+ .+|tobix_\w+({\w+="([^"\\]|\\.)*"})? [-+.e\d]+)$')
            for line in ("tobix_up 1", "tobix_loops_ended_total 1", "tobix_local_mails_total 1", 'tobix_bounced_total{class="5xx"} 0', 'tobix_local_mail_seconds_bucket{le="+Inf"} 1',
                         'tobix_mails{directory="queue"} 1', 'tobix_mails_held{directory="queue"} 1',
                         "# UNIT tobix_attempt_seconds seconds", "# TYPE tobix_bounced counter"):
                self.assertEqual(text.splitlines().count(line), 1, line)
            self.assertEqual((world.root / "tobix.prom").stat().st_mode & 0o777, 0o644)
            self.assertEqual(ctl(world, "metrics", "--output", "/none/x")[0], 1)


class Garbage(unittest.TestCase):
    def test_is_no_answer(self):
        with World() as world, socket.socket(socket.AF_UNIX) as listener:
            fill(world)
            world.open_control()
            listener.bind(str(world.root / "control"))
            listener.listen()
            for answer in (b"", b"\xff" * 1000, b'{"outgoing":' + b"[" * 100_000, b'{"error": "n\\u001bo"}', b'{"tables":1,"done":[3],"outgoing":[{"name":7},[]]}'):
                for arguments, codes, text in ((["queue"], [0], "outgoing/a.eml"), (["status"], [0, 1, 4], ""), (["metrics"], [0], "tobix_mails"),
                                               (["remove", "--yes", "many.eml"], [1, 4], "")):
                    with subprocess.Popen([os.environ["TOBIXCTL"], *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                          env={**os.environ, "MAILCONFIGDIR": str(world.etc)}) as asking:
                        peer, _ = listener.accept()
                        with peer, contextlib.suppress(OSError):
                            peer.makefile().readline()
                            peer.sendall(answer)
                        output, error = asking.communicate(timeout=60)
                    self.assertIn(asking.returncode, codes, (arguments, output, error))
                    self.assertIn(text.encode(), output)
                    self.assertNotIn(b"\x1b", output + error)


if __name__ == "__main__":
    unittest.main()
