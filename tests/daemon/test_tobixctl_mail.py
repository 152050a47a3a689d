"""The administrator's commands on waiting mail, on files and with a daemon's answers made up here."""
import contextlib
import fcntl
import json
import os
import pathlib
import pty
import socket
import subprocess
import threading
import unittest

from test_tobixctl import ctl
from world import World, mail, wait_for

REPORT = ("X-Envelope-From: <>\r\nSubject: Returned mail\r\n\r\n\t----- The following addresses had continuous fatal errors -----\r\n"
          "x@far.example\r\n{reason}\r\n\t----- Transcript of session follows -----\r\n{transcript}")
REFUSED = REPORT.format(reason="", transcript=">>> RCPT TO:<x@far.example>\r\n<<< 450-busy\r\n<<< 450 4.2.0 gr\x1b[31mey\r\n")
BROKEN = REPORT.format(reason="\t(reason: connection timed out)", transcript="connection timed out\r\n")


@contextlib.contextmanager
def daemon(world, answers):
    """Answers each request by its command, an object or bytes; the requests that came."""
    path, requests = world.root / "control", []
    with open(world.etc / "tobix.cfg", "a") as configuration:
        configuration.write(f"Control.Socket: {path}\n")

    def serve():
        with contextlib.suppress(OSError):
            while True:
                peer, _ = listener.accept()
                with peer:
                    requests.append(json.loads(peer.makefile().readline()))
                    answer = answers[requests[-1]["command"]]
                    peer.sendall(answer if isinstance(answer, bytes) else json.dumps(answer).encode())
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(path))
        listener.listen()
        thread = threading.Thread(target=serve)
        thread.start()
        try:
            yield requests
        finally:
            listener.shutdown(socket.SHUT_RDWR)
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

    def test_tells_what_the_daemon_knows(self):
        known = {"outgoing": [{"name": "a.eml", "state": "waiting", "attempts": 3, "seconds": 9}, {"name": 7}, [], "x",
                              {"name": "d\x1b.eml", "state": "bounce failed", "attempts": 1}], "next_release_in": 60}
        with World() as world:
            fill(world)
            with daemon(world, {"queue": known}):
                found = {m["directory"] + m["name"]: m for m in json.loads(ctl(world, "queue", "--json")[1])}
            self.assertEqual([found["outgoing" + n].get("attempts") for n in ("a.eml", "d\x1b.eml")], [3, 1])
            self.assertEqual(found["outgoingd\x1b.eml"]["state"], "bounce failed")
            self.assertTrue("next_try" in found["outgoinga.eml"] and "attempts" not in found["queuea.eml"])
            for garbage in (b"", b"\xff" * 1000, b'{"outgoing":' + b"[" * 100_000, b'{"error": "n\\u001bo"}'):
                (world.root / "control").unlink()
                with daemon(world, {"queue": garbage}):
                    code, output, error = ctl(world, "queue")
                self.assertEqual((code, error.count("\n"), "\x1b" in error), (0, 1, False))
                self.assertIn("outgoing/a.eml", output)

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
    def test_asks_the_daemon(self):
        with World() as world:
            fill(world)
            with daemon(world, {"retry": {"done": ["a.eml"]}, "bounce": {"done": [], "refused": {"a.eml": "in delivery"}},
                                "hold": {"done": ["a.eml"], "refused": {"many.eml": "unknown"}}, "remove": b"{"}) as requests:
                for arguments, code, text, asked in (
                        (["retry", "--all"], 0, "tries now outgoing/a.eml", [{"command": "retry", "all": True}]),
                        (["retry", "--to", "X@far.*"], 0, "outgoing/a.eml",
                         [{"command": "retry", "directory": "outgoing", "names": ["a.eml"]}]),
                        (["bounce", "a.eml"], 3, "in delivery", [{"command": "bounce", "directory": "outgoing", "names": ["a.eml"]}]),
                        (["hold", "queue/a.eml", "many.eml", "none.eml", "queue/a.eml"], 1, "holds queue/a.eml",
                         [{"command": "hold", "directory": "queue", "names": ["a.eml", "many.eml"]}]),
                        (["hold", "--from", "bob@*"], 1, "says nothing of it", None), (["hold", "a.eml"], 1, "is in both", []),
                        (["remove", "queue/a.eml"], 3, "say --yes", []), (["remove", "--yes", "queue/a.eml"], 4, "no daemon of this", None),
                        (["retry"], 2, "which mail?", []), (["hold", "--to", "x", "many.eml"], 2, "which mail?", []),
                        (["retry", "--all", "a.eml"], 2, "which mail?", []), (["retry", "queue/a.eml"], 1, "no such mail", []),
                        (["hold", "../etc/tobix.cfg"], 2, "no mail's name", []), (["hold", "queue/../a.eml"], 2, "no mail's name", []),
                        (["hold", "\n\x1b[2J.eml"], 1, "??[2J.eml: no such", []), (["hold", "x" * 300 + ".eml"], 2, "no mail's name", [])):
                    requests.clear()
                    exit_code, output, error = ctl(world, *arguments)
                    self.assertEqual(exit_code, code, (arguments, output, error))
                    self.assertIn(text, output + error)
                    self.assertNotIn("\x1b", output + error)
                    if asked is not None:
                        self.assertEqual(requests, asked, arguments)
                requests.clear()
                for n in range(250):
                    (world.queue / f"n{n}.eml").write_bytes(mail(sender="z@z.example"))
                ctl(world, "hold", "--from", "z@z.example")
                self.assertEqual([len(r["names"]) for r in requests], [100, 100, 50])

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
            self.assertEqual(ctl(world, "hold", "many.eml")[:2], (0, "holds queue/many.eml.held\n"))
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
    def journal(self, world, **entries):
        """Whose copies the journal tells of: message ids by recipients."""
        tools = world.root / "tools"
        tools.mkdir(exist_ok=True)
        lines = [json.dumps({"MESSAGE": f"mail <{messageID}> from <b> to <t> saved in <x>", "TOBIX_TO": ["t", f"{user}@example.org"]})
                 for user, messageID in entries.items()]
        (tools / "journalctl").write_text("#!/bin/sh\ncat <<'END'\n" + "\n".join(["no json", *lines]) + "\nEND\n")
        (tools / "journalctl").chmod(0o755)
        return f"{tools}:/bin"

    def test_serves_those_who_have_no_copy(self):
        with World(users=("ann", "carl", "eve"), aliases="") as world:
            path = self.journal(world, ann="Hello@far.example", carl="another@far.example")
            content = mail("ann@example.org,carl@example.org,eve@example.org", body="Hi \xe9.\r\n")
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
        status = {"version": "7\"\n", "counters": {"local_mails": 5, "bounced_4xx": 2}, "tables": [{"name": "aliases", "entries": 12}],
                  "histograms": {"attempt_seconds": {"bounds": [0.5, 1], "counts": [1, 2, 4], "sum": 9.5},
                                 "local_mail_seconds": {"bounds": [1], "counts": [1]}}}
        with World() as world:
            fill(world)
            self.assertIn("tobix_up 0\n", ctl(world, "metrics")[1])
            os.chmod(world.root, 0o755)
            for answer in (status, {}, b"garbage"):
                with daemon(world, {"status": answer}):
                    code, text, error = ctl(world, "metrics", "--output", "tobix.prom", cwd=world.root)
                    self.assertEqual((code, text, bool(error)), (0, "", answer == b"garbage"))
                (world.root / "control").unlink()
                text = (world.root / "tobix.prom").read_text()
                self.assertTrue(text.endswith("# EOF\n"))
                for line in text.splitlines()[:-1]:
                    self.assertRegex(line, r'^(# (TYPE|UNIT|HELP) tobix_\w+ .+|tobix_\w+({\w+="([^"\\]|\\.)*"})? [-+.e\d]+)$')
                if answer == status:
                    for line in ("tobix_up 1", 'tobix_build_info{version="7\\"?"} 1', "tobix_local_mails_total 5", 'tobix_bounced_total{class="5xx"} 0',
                                 'tobix_attempt_seconds_bucket{le="1.0"} 3', 'tobix_attempt_seconds_bucket{le="+Inf"} 7',
                                 "tobix_attempt_seconds_sum 9.5", 'tobix_mails{directory="queue"} 3', 'tobix_mails_held{directory="queue"} 1',
                                 "# UNIT tobix_attempt_seconds seconds", "# TYPE tobix_bounced counter"):
                        self.assertEqual(text.splitlines().count(line), 1, line)
                    self.assertNotIn("local_mail_seconds", text)
            self.assertEqual((world.root / "tobix.prom").stat().st_mode & 0o777, 0o644)
            self.assertEqual(ctl(world, "metrics", "--output", "/none/x")[0], 1)


class Status(unittest.TestCase):
    def test_tells_what_the_daemon_says(self):
        status = {"version": "7", "pid": 42, "running_since": 1, "paused": True, "missing": "", "low_space": False,
                  "tables": [{"name": "aliases", "file": "/e\x1b", "entries": 12, "changed": 0}, 3],
                  "threads": [{"name": "local agent", "id": 255, "step": "delivers x", "seconds": 400, "stuck": True}],
                  "counters": {"local_mails": 5, "x": 1e300}, "queue": {"waiting": 2},
                  "outgoing": {"all": 9, "sending": 1, "waiting": 8, "next_release_in": 90}}
        with World() as world:
            for answer, code, texts in ((status, 1, ("00FF", "delivers x, and does not get on", "/e?", "local mails +5", "8 waiting to be tried again in 1m 30s")),
                                        ({**status, "threads": {}}, 0, ()), ({"tables": 1, "threads": "x", "counters": [1]}, 0, ()),
                                        (b"[]", 4, ()), ({"error": "n\x1b", "exit": 3}, 3, ())):
                with daemon(world, {"status": answer}):
                    exit_code, output, error = ctl(world, "status")
                    self.assertEqual((exit_code, "\x1b" in output + error), (code, False), answer)
                    for text in texts:
                        self.assertRegex(output, text)
                (world.root / "control").unlink()


if __name__ == "__main__":
    unittest.main()
