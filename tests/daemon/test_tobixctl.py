"""The administrator's command, on a mail tree with and without a daemon."""
import json
import os
import pathlib
import pwd
import socket
import subprocess
import threading
import unittest

from world import World, mail, wait_for


ME = pwd.getpwuid(os.geteuid()).pw_name


def ctl(world, *arguments, cwd=None, **environment):
    """Exit code, standard output and standard error of tobixctl."""
    (world.root / "authorities").mkdir(exist_ok=True)
    (world.root / "authorities" / "0123abcd.0").touch()
    done = subprocess.run([os.environ["TOBIXCTL"], *arguments], capture_output=True, text=True, timeout=60, cwd=cwd,
                          env={**os.environ, "MAILCONFIGDIR": str(world.etc), "SSL_CERT_FILE": "/none",
                               "SSL_CERT_DIR": str(world.root / "authorities"), **environment})
    return done.returncode, done.stdout, done.stderr


class CommandLine(unittest.TestCase):
    def test_tells_what_it_cannot_understand(self):
        with World() as world:
            for arguments, code, text in (([], 2, "subcommand is required"), (["mailbox"], 2, "subcommand is required"),
                                          (["mailbox", "list", "\x1b[2Jx"], 2, "?[2Jx"), (["mailbox", "list", "--nonsense"], 2, "--nonsense"),
                                          (["mailbox", "list", "x" * 100_000], 2, "..."),
                                          (["-c", "none.cfg", "mailbox", "list"], 1, "none.cfg: no such file")):
                exit_code, output, error = ctl(world, *arguments)
                self.assertEqual((exit_code, output), (code, ""), arguments)
                self.assertIn(text, error)
                self.assertEqual(error.count("\n"), 1)
                self.assertLess(len(error), 3000)
                self.assertNotIn("\x1b", error)
            self.assertIn("Examples:", ctl(world, "--help")[1])
            with open("/dev/full", "w") as full:
                done = subprocess.run([os.environ["TOBIXCTL"], "-c", str(world.etc / "tobix.cfg"), "mailbox", "list"],
                                      stdout=full, stderr=subprocess.DEVNULL)
                self.assertEqual(done.returncode, 1)


class Check(unittest.TestCase):
    def findings(self, world, *arguments):
        code, output, _ = ctl(world, "check", "--json", "--user", ME, *arguments)
        found = [(pathlib.Path(f["file"]).name, f.get("line", 0), f["severity"][0], f["text"])
                 for f in json.loads(output)["findings"]]
        self.assertEqual(code, 1 if found else 0, found)
        return found

    def expect(self, found, expected):
        """Each finding is the expected one, in order: file, line, first letter of the severity, a part of the text."""
        self.assertEqual([f[:3] for f in found], [e[:3] for e in expected], found)
        for (*_, text), (*_, part) in zip(found, expected):
            self.assertIn(part, text)

    def test_tells_what_is_wrong(self):
        aliases = ("info@example.org: ann\n# a comment\nsales@example.org: Ann\nx@far.example: ann\n@example.org: ann\n"
                   "ann: ann\nteam@example.org: ann, carl\nnonsense\na@example.org: b@example.org\n"
                   "b@example.org: a@example.org\nc@example.org: nobody@example.org\nINFO@example.org: carl\n"
                   "info@example.org: carl\nout@example.org: x@far.example\n")
        hosts = ("example.com: mail.example.com, backup.example.com\n*.example.com: u:secret@mail.example.com:465S\n"
                 "<example.net: mail.example.net:465s\n.example.edu: mail:0\nExample.info: u:secret@2001:db8::1\n"
                 "a@example.biz: u@mail:25x\n*: u:secret@[2001:db8::1]:587t,relay.example\n")
        with World(aliases=aliases, domains="example.org\n*.example.org\n", filters="viagra\n \n",
                   intercept="Ann@example.org\n", UseTls=0, TimeOut="5 s", LogFacility="post", ErrorDir="/none/x",
                   MaskFile="masks", Interface="eth0", **{"SRS.Domain": "example.org"}) as world:
            (world.etc / "smarthosts").write_text(hosts)
            (world.etc / "masks").write_text("Ann@Example.ORG: ann\n")
            (world.spool / "bare").mkdir()
            (world.spool / "carl" / "config").write_text("RunReply: yes\nnextuid: 3\n")
            found = self.findings(world)
            self.assertNotIn("secret", str(found))
            self.expect(found, [
                ("tobix.cfg", 3, "e", "is missing"), ("tobix.cfg", 8, "w", "is UseTLS meant?"),
                ("tobix.cfg", 9, "w", "counts as 5"), ("tobix.cfg", 9, "w", "60 to 1200"),
                ("tobix.cfg", 10, "w", "no syslog facility"), ("tobix.cfg", 12, "w", "no IPv4"),
                ("tobix.cfg", 13, "w", "both SRS"),
                ("config", 0, "e", "mail for bare fails"), ("config", 1, "w", "counts as 0"), ("config", 2, "w", "is NextUID meant?"),
                ("domains", 2, "w", "sub-domain"),
                ("aliases", 1, "w", "stands in line 12"), ("aliases", 3, "e", "lower case"), ("aliases", 4, "e", "not local"), ("aliases", 5, "e", "catch-all"),
                ("aliases", 6, "e", "to itself"), ("aliases", 7, "e", "one target"), ("aliases", 8, "w", "no effect"),
                ("aliases", 9, "e", "circle, a@example.org -> b@example.org -> a@example.org"),
                ("aliases", 10, "e", "circle"), ("aliases", 11, "e", "-> nowhere"), ("aliases", 13, "w", "earlier line"),
                ("smarthosts", 1, "e", "blank"), ("smarthosts", 2, "e", "capital"), ("smarthosts", 2, "w", "in clear"),
                ("smarthosts", 3, "w", "only with user"), ("smarthosts", 4, "e", "sub-domains"),
                ("smarthosts", 4, "e", "none of 1 to"), ("smarthosts", 5, "w", "capitals"), ("smarthosts", 5, "e", "brackets"),
                ("smarthosts", 5, "w", "in clear"), ("smarthosts", 6, "e", "domain alone"), ("smarthosts", 6, "e", "none of \"s\""),
                ("smarthosts", 6, "w", "both a user"),
                ("filters", 2, "w", "nearly all"), ("intercept_addresses", 1, "w", "lower case"),
                ("masks", 1, "w", "\"Ann@example.org\" would")])
            self.assertRegex(ctl(world, "check", "--user", ME)[1], r"(?m)^.*/tobix.cfg:3: error: ErrorDir: .*\n(.*\n)+\d+ errors, \d+ warnings in ")

    def test_finds_nothing_where_all_is_well(self):
        with World(aliases="info@example.org: ann\n*@example.org: carl\n") as world:
            self.assertEqual(self.findings(world), [])
            self.assertIn("nothing is wrong", ctl(world, "-c", str(world.etc / "tobix.cfg"), "check", "--user", ME, MAILCONFIGDIR="")[1])
            self.assertIn("no certificate authority", ctl(world, "check", "--user", ME, SSL_CERT_DIR="/none")[1])

    @unittest.skipIf(os.geteuid() != 0, "needs root")
    def test_looks_with_the_eyes_of_the_user_whom_the_daemon_runs_as(self):
        with World(users=["ann"]) as world:
            world.root.chmod(0o755)
            (world.etc / "aliases").chmod(0o600)
            code, output, error = ctl(world, "check", "--user", "nobody")
            self.assertEqual(code, 1, error)
            for text in ("QueueDir: ", "is not writable: permission denied", "aliases: error: the table cannot be read"):
                self.assertIn(text, output)
            self.assertIn("none of that name", ctl(world, "check", "--user", "no\x1bone")[2])


class Route(unittest.TestCase):
    def test_decides_as_the_daemon_does(self):
        aliases = ("info@example.org: team@example.org\nteam@example.org: Out@Far.example\n*@example.org: carl\n"
                   "ann@example.org: ann\nloop@example.org: x@loop.example\n")
        with World(aliases=aliases, domains="example.org\nloop.example\n", filters="viagra\n", AutoTransport=1, FQDN="h.example",
                   intercept="ann\n", MaskFile="masks", **{"SRS.Domain": "srs.example", "SRS.Challenge": "abcdef",
                                                          "Rcpt.To.DomainPart.ToLower": 1}) as world:
            (world.etc / "smarthosts").write_text("*: relay.invalid\n<srs.example: u:secret@[127.0.0.9]:587t,127.0.0.8\n"
                                                  "far.example: [127.0.0.7]:26\n")
            (world.etc / "masks").write_text("bob@mask.example: robert@far.example\n")
            for name, subject in (("good.eml", "Hello"), ("bad.eml", "VIAGRA")):
                (world.root / name).write_bytes(mail(subject=subject))
            for arguments, code, expected in (
                    (["Ann+x@EXAMPLE.ORG"], 0, {"user": "ann", "aliases": [("ann@example.org", "ann")], "intercepted": "ann"}),
                    (["zoe@example.org"], 0, {"user": "carl", "mailbox": f"{world.spool}/carl"}),
                    (["carl"], 0, {"user": "carl"}), (["zoe@loop.example"], 1, {"failure": "leads to no user"}),
                    (["a b@far.example"], 1, {"failure": "no mail can be sent"}),
                    (["\x1b[2J@" + "x" * 100_000], 1, {"failure": "no mail can be sent"}),
                    (["info@example.org", "--from", "bob@there.example"], None,
                     {"aliases": [("info@example.org", "team@example.org"), ("team@example.org", "Out@Far.example")],
                      "resent_for": "info@example.org", "srs_sender": "=there.example=bob@srs.example",
                      "smart_host_key": "<srs.example", "dmarc": {"domain": "there.example", "policy": "none"}}),
                    (["out@far.example", "--from", "bob@MASK.example"], None,
                     {"masked_sender": "robert@far.example", "smart_host_key": "far.example"}),
                    (["ann@example.org", "--mail", str(world.root / "bad.eml")], 1, {"failure": "for the phrase \"viagra\""}),
                    (["ann@example.org", "--mail", "good.eml"], 0, {"filter": "passed", "from": "bob@far.example"})):
                exit_code, output, error = ctl(world, "route", "--json", *arguments, cwd=world.root)
                self.assertEqual(error, "")
                answer = json.loads(output)
                if "aliases" in answer:
                    answer["aliases"] = [(step["key"], step["target"]) for step in answer["aliases"]]
                self.assertIn(code, (exit_code, None), answer)
                for key, value in expected.items():
                    (self.assertIn if isinstance(value, str) else self.assertEqual)(value, answer[key])
                self.assertNotIn("secret", output)
            self.assertRegex(ctl(world, "route", "info@example.org")[1], r"(?m)^alias: +team@example.org -> Out@Far.example$")


class Mailboxes(unittest.TestCase):
    def test_lists_what_they_hold(self):
        with World(users=("ann", "b\x1b[31m")) as world:
            (world.spool / "ann" / "1.eml").write_bytes(b"x" * 2048)
            code, output, _ = ctl(world, "mailbox", "list")
            self.assertEqual(code, 0)
            self.assertRegex(output, r"(?m)^ann +1 +2.0 KiB +2\d{3}-")
            self.assertIn("b?[31m", output)
            self.assertEqual([(m["user"], m["mails"], m["bytes"]) for m in
                              json.loads(ctl(world, "mailbox", "list", "--json")[1])],
                             [("ann", 1, 2048), ("b\x1b[31m", 0, 0)])

    def test_shows_one(self):
        with World(aliases="info@example.org: ann\nteam@example.org: info@example.org\n") as world:
            world.spool.joinpath("ann", "config").write_text("NextUID: 7\n")
            with open(world.etc / "tobix.cfg", "a") as configuration:
                configuration.write("Quota: 9\n")
            shown = json.loads(ctl(world, "mailbox", "show", "Team@example.org", "--json")[1])
            self.assertEqual((shown["user"], shown["aliases"], shown["settings"]["NextUID"], shown["settings"]["Quota"]),
                             ("ann", ["info@example.org", "team@example.org"], "7", "9"))
            self.assertEqual(ctl(world, "mailbox", "show", "x@example.org")[0], 1)

    def test_refuses_names_that_no_mailbox_can_have(self):
        with World() as world:
            ctl(world, "mailbox", "list")
            before = sorted(world.root.rglob("*"))
            for name in ("", "../x@example.org", ".x", "x.", "a..b", "-x", "a b", "\x1b[2J", "a\nb", "zo\u00eb", "a/b", "a+b", "x" * 65,
                         "x" * 100_000, "a@b@example.org", "x@", "x@a..b", "x@-a.b", "x@a b", "x@" + "a." * 200 + "b", "ANN",
                         "ann@new.example", "carl@example.org"):
                code, output, error = ctl(world, "mailbox", "add", "--", name)
                self.assertEqual((code, output), (1, ""), name)
                self.assertEqual(error.count("\n"), 1, error)
            self.assertEqual(sorted(world.root.rglob("*")), before)

    def test_makes_one_that_the_daemon_delivers_to(self):
        with World(domains="# ours\nexample.org # here") as world:
            (world.etc / "domains").chmod(0o640)
            world.start()
            self.assertEqual(ctl(world, "mailbox", "add", "Zoe@New.example")[0], 0)
            wait_for("the new user", lambda: world.log().count("preresolving aliases") > 1)
            world.deliver("1.eml", mail("zoe@new.example"))
            self.assertEqual(len(world.mailbox("zoe")), 1)
            self.assertEqual((world.etc / "domains").read_text(), "# ours\nexample.org # here\nnew.example\n")
            self.assertEqual((world.etc / "domains").stat().st_mode & 0o777, 0o640)
            self.assertEqual((world.spool / "zoe").stat().st_mode & 0o777, 0o700)
            self.assertEqual({p.name for p in (world.spool / "zoe").iterdir()}, {"config", "1.eml"})
            adds = [subprocess.Popen([os.environ["TOBIXCTL"], "mailbox", "add", f"u{n}@d{n}.example"], stdout=subprocess.DEVNULL,
                                     env={**os.environ, "MAILCONFIGDIR": str(world.etc)}) for n in range(8)]
            self.assertEqual([add.wait(60) for add in adds], [0] * 8)
            self.assertEqual(sorted((world.etc / "domains").read_text().splitlines()[3:]), [f"d{n}.example" for n in range(8)])
            self.assertEqual(list(world.spool.glob(".*")), [])

    @unittest.skipIf(os.geteuid() != 0, "needs root")
    def test_makes_it_for_the_owner_of_the_mailboxes(self):
        with World() as world:
            nobody = pwd.getpwnam("nobody")
            world.root.chmod(0o755)
            os.chown(world.spool, nobody.pw_uid, nobody.pw_gid)
            self.assertEqual(ctl(world, "mailbox", "add", "zoe")[0], 0)
            for path in (world.spool / "zoe", world.spool / "zoe" / "config"):
                self.assertEqual((path.stat().st_uid, path.stat().st_gid), (nobody.pw_uid, nobody.pw_gid))

    def test_asks_the_daemon_to_take_it_up(self):
        with World() as world:
            path = world.root / "control"
            world.open_control()
            self.assertIn("no daemon runs", ctl(world, "mailbox", "add", "u0")[1])
            with socket.socket(socket.AF_UNIX) as listener:
                listener.bind(str(path))
                listener.listen()
                for n, (answer, code, text) in enumerate((
                        (b'{"users": 3}', 0, "the daemon knows it"), (b'{"error": "n\\u001bo", "exit": 3}', 3, "does not know it: n?o"),
                        (b'{"error": "no"}', 1, "does not know it: no"), (b"\xff[" * 100_000, 4, "no daemon of this system"),
                        (b"", 4, "no daemon of this system")), 1):
                    requests = []
                    thread = threading.Thread(target=self.answer, args=(listener, answer, requests))
                    thread.start()
                    exit_code, output, error = ctl(world, "mailbox", "add", f"u{n}")
                    thread.join()
                    self.assertEqual(requests, [b'{"command":"rebuild-users"}\n'])
                    self.assertEqual(exit_code, code, error)
                    self.assertIn(text, output + error)

    @staticmethod
    def answer(listener, answer, requests):
        connection, _ = listener.accept()
        with connection:
            requests.append(connection.makefile("rb").read())
            connection.sendall(answer)


if __name__ == "__main__":
    unittest.main()
