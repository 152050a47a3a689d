"""Bounces and automatic replies of the companion program, whose executable the environment variable RESPONDER names."""
import email
import os
import pathlib
import shutil
import subprocess
import tempfile
import threading
import time
import unittest
from email import policy

from world import mail

REPORT = (b'X-Envelope-From: <>\r\nFrom: "Mail Delivery Subsystem" <postmaster@example.org>\r\n'
          b"Subject: Returned mail: see transcript for details\r\nContent-Type: text/plain\r\n\r\n"
          b"\t----- The following addresses had permanent fatal errors -----\r\neve@far.example\r\n\r\n"
          b"\t----- Transcript of session follows -----\r\n.... while talking to mx.far.example:\r\n\r\n"
          b">>> MAIL FROM:<bob@far.example>\r\n<<< 250 ok\n>>> RCPT TO:<eve@far.example>\r\n"
          b"<<< 550-5.1.1 no\n<<< 550 such one \xe4\n")
BOTH = ["x y.eml", "x y.eml.err"]


class Responder(unittest.TestCase):
    def setUp(self):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="tobix-"))
        self.addCleanup(shutil.rmtree, self.root)
        self.queue, self.mail = self.root / "queue", self.root / "out" / "x y.eml"
        self.report, self.template = self.root / "out" / "x y.eml.err", self.root / "away.txt"
        self.error = self.root / "error"
        for name in ("queue", "out", "etc", "error"):
            (self.root / name).mkdir()
        (self.root / "etc" / "tobix.cfg").write_text(f"QueueDir: {self.queue}\nPostmaster: pm@example.org\n")
        self.put()

    def put(self, content=mail("eve@far.example"), report=REPORT):
        self.mail.write_bytes(content)
        self.report.write_bytes(report)

    def run_it(self, *arguments, code=0, **environment):
        done = subprocess.run([os.environ["RESPONDER"], self.mail, *arguments], capture_output=True, timeout=60, check=False,
                              env={**os.environ, "MAILCONFIGDIR": str(self.root / "etc"), **environment})
        self.assertEqual(done.returncode, code, done)
        self.assertEqual(len(done.stderr.splitlines()) > 0, code != 0, done)
        self.assertTrue("-s" not in arguments or done.stdout == b"")

    def queued(self):
        """Takes the mails out of the queue directory."""
        paths = list(self.queue.iterdir())
        texts = [path.read_bytes() for path in paths]
        for path, raw in zip(paths, texts):
            self.assertEqual((path.suffix, raw.count(b"\n")), (".eml", raw.count(b"\r\n")))
            self.assertTrue(all(len(line) <= 998 for line in raw.splitlines()))
            path.unlink()
        return [email.message_from_bytes(raw, policy=policy.default) for raw in texts]

    def only(self):
        (note,) = self.queued()
        self.assertEqual((note["X-Envelope-From"], note["Auto-Submitted"]), ("<>", "auto-replied"))
        return note

    def left(self):
        return sorted(p.name for p in self.mail.parent.iterdir())

    def bounce(self, *arguments, code=0):
        self.run_it("-t", self.report, "-s", *arguments, "-o", code=code)

    def reply(self, content=mail(), code=0, output="r_1.eml"):
        self.put(content.replace(b"To: all <all@", b"To: Ann <Ann@"))
        self.run_it("-t", self.template, "-o", self.queue / output, "-k", "-s", code=code)

    def check(self, part, fields):
        self.assertEqual({name: part[name] for name in fields}, fields)


class Bounces(Responder):
    def test_a_bounce_tells_the_sender_and_programs_why(self):
        self.bounce("-b", "full", "-ib")
        self.assertEqual(self.left(), [])
        note = self.only()
        self.check(note, {"X-Envelope-To": "bob@far.example", "In-Reply-To": "<Hello@far.example>",
                          "From": "Mail Delivery Subsystem <postmaster@example.org>",
                          "Subject": "Returned mail: see transcript for details"})
        self.assertEqual((note.get_content_type(), note.get_param("report-type")), ("multipart/report", "delivery-status"))
        text, status, returned = note.iter_parts()
        self.assertIn(b"\n.... while talking to mx.far.example:", text.get_payload(decode=True).replace(b"\r", b""))
        whole, one = status.get_payload()
        self.assertIn("dns; ", whole["Reporting-MTA"])
        self.check(one, {"Final-Recipient": "rfc822; eve@far.example", "Action": "failed", "Status": "5.1.1",
                         "Remote-MTA": "dns; mx.far.example", "Diagnostic-Code": "smtp; 550-5.1.1 no 550 such one ?"})
        inner = returned.get_payload(0)
        self.assertEqual((inner["Subject"], inner.get_payload().strip()), ("Hello", "Hi."))
        self.assertNotIn("X-Envelope-To", inner)

    def test_what_is_returned_and_what_a_missing_report_says(self):
        for options, report, kinds in (([], b"", []), (["-b", "header"], REPORT, ["text/rfc822-headers"])):
            self.put(report=report)
            self.bounce(*options)
            _, status, *returned = self.only().iter_parts()
            self.assertEqual([p.get_content_type() for p in returned], kinds)
            self.check(status.get_payload(1), {"Final-Recipient": "rfc822; eve@far.example"})
        self.mail.write_bytes(mail("eve@far.example"))
        self.bounce()  # without a report
        self.assertIn("pm@example.org", self.only()["From"])

    def test_the_postmaster_gets_a_second_one_and_only_then_the_mail_goes(self):
        for options, to, left in ((["-b", "full", "-k"], "bob@far.example", BOTH),
                                  (["-b", "header", "-to", "pm@example.org"], "pm@example.org", [])):
            self.bounce(*options)
            self.assertEqual((self.left()[-2:], self.only()["X-Envelope-To"]), (left, to))

    def test_what_the_sender_was_not_told_about_stays(self):
        self.queue.rename(self.root / "gone")
        self.bounce("-k", code=1)
        (self.root / "gone").rename(self.queue)
        for notes in (1, 0):  # the postmaster once only
            self.bounce("-to", "pm@example.org", code=1)
            self.assertEqual((self.left()[-2:], [note["X-Envelope-To"] for note in self.queued()]),
                             (BOTH, ["pm@example.org"] * notes))
        self.bounce("-k")
        self.bounce("-k")
        self.assertEqual(self.only()["X-Envelope-To"], "bob@far.example")
        self.bounce("-to", "pm@example.org")
        self.assertEqual((self.left(), self.queued()), ([], []))
        for spoil in (self.mail.unlink, (self.root / "etc" / "tobix.cfg").unlink):
            self.put()
            spoil()
            before = self.left()
            self.bounce(code=1)
            self.assertEqual((self.left(), self.queued()), (before, []))
        self.put()
        self.run_it("-t", self.report, code=2)  # means nothing
        self.assertEqual(self.left(), BOTH)

    def test_null_and_bounce_senders_and_bulk_without_ib_are_only_disposed_of(self):
        for content in (mail(sender="<>"), mail(sender="MAILER-DAEMON@far.example"), mail(extra="Precedence: bulk\r\n")):
            self.put(content)
            for options, left in ((["-k"], BOTH), (["-to", "pm@example.org"], [])):
                self.bounce(*options)
                self.assertEqual((self.left()[-2:], self.queued()), (left, []))
        self.put(content)
        self.bounce("-ib")
        self.only()

    def test_what_nobody_can_be_told_goes_to_the_postmaster_else_aside(self):
        notice = mail("pm@example.org", sender="<>", extra="Content-Type: multipart/report; boundary=x\r\n")
        unusable = mail(sender='"john doe"@x')
        for content, to, told in ((unusable, "", []), (notice, "pm@example.org", []), (unusable, "pm@example.org", ["pm@example.org"])):
            config = self.root / "other.cfg"
            config.write_text(f"QueueDir: queue\nErrorDir: error\nPostmaster:\nPostmaster.To: {to}\n")
            self.put(content, report=b"")
            self.run_it("-t", self.report, "-s", "-o", TOBIX_CONFIG=str(config))
            notes = self.queued()
            self.assertEqual((self.left(), [note["X-Envelope-To"] for note in notes]), ([], told))
            self.assertEqual([path.read_bytes() for path in self.error.iterdir()], [] if told else [content])
            for path in self.error.iterdir():
                path.unlink()
        self.assertIn("postmaster@", notes[0]["From"])  # an empty one is no address

    def test_a_mail_is_waited_for_and_its_name_and_report_may_be_odd(self):
        self.report.unlink()
        self.report.mkdir()
        with open(self.mail, "rb+") as writer:
            timer = threading.Timer(0.5, writer.close)
            timer.start()
            self.bounce()
            timer.join()
        self.mail, self.report = (self.mail.parent / ("n" * 251 + end) for end in (".eml", ".eml.err"))
        self.mail.write_bytes(mail())
        self.bounce("-k")
        self.bounce("-to", "pm@example.org")
        self.assertEqual((self.left(), len(self.queued())), (["x y.eml.err"], 3))

    def test_hostile_mail_stays_inside_its_part(self):
        self.put(mail("eve@far.example", body="--=_1x\r\n.\r\n..x\r\nContent-Type: evil\r\n@\r\n.\r\n",
                      extra="References: " + ("<" + "r" * 300 + "@x>\r\n\t") * 50 + "\r\n").replace(b"\n@", b"\n" + b"\xe4" * 600))
        self.bounce("-b", "full")
        note = self.only()
        text, _, returned = note.iter_parts()
        self.assertEqual((note["Content-Transfer-Encoding"], text.get_content_charset()), ("8bit", "unknown-8bit"))
        self.assertIn(b"Content-Type: evil", returned.get_payload(0).get_payload(decode=True))
        self.put(mail(body="x" * 999 + "\r\n", extra="X-Long: " + "y" * 2000 + "\r\n"))
        self.bounce("-b", "full")  # queued() looks at the lengths
        _, _, returned = self.only().iter_parts()
        self.assertEqual((returned.get_content_type(), returned["Content-Transfer-Encoding"]),
                         ("text/rfc822-headers", "quoted-printable"))


class Replies(Responder):
    def setUp(self):
        super().setUp()
        self.template.write_bytes("Subject: Ich bin fört\r\n\r\nIt: is\r\n.\r\nlate.\r\n".encode())

    def test_a_reply_answers_once_a_day(self):
        self.reply(mail(extra="References: <a@x>\r\n\t<b@x>\r\n"))
        note = self.only()
        self.check(note, {"X-Envelope-To": "bob@far.example", "Subject": "Ich bin fört", "From": "ann@example.org",
                          "In-Reply-To": "<Hello@far.example>", "X-Loop": "ann@example.org"})
        self.assertEqual(note["References"].split(), ["<a@x>", "<b@x>", "<Hello@far.example>"])
        self.assertEqual(note.get_content().replace("\r", ""), "It: is\n.\nlate.\n")
        self.reply(mail(sender="BOB@far.example"))
        self.assertEqual(self.queued(), [])
        record = self.mail.parent / "responder.replied"
        record.write_text(f"{int(time.time()) - 86401} bob@far.example\njunk\n" + "9" * 40 + " x\n")
        self.reply()
        self.only()
        self.assertEqual(len(record.read_text().splitlines()), 1)
        record.write_text("".join(f"{int(time.time())} u{n}@x\n" for n in range(6000)))
        self.reply(mail(sender="new@far.example"))
        self.assertEqual(self.queued(), [])  # so many in a day are no people
        self.assertTrue(self.mail.exists() and self.template.exists())

    def test_subject_and_author_come_from_the_mail_unless_the_template_tells(self):
        self.template.write_text("Dear all: I am away.\n\nAnn\n")
        self.reply(mail(subject="Re: Hello"))
        self.assertEqual(self.only().get_content().split(), ["Dear", "all:", "I", "am", "away.", "Ann"])
        told = {"From": '"Ann B." <ann.b@example.org>', "Reply-To": "x@example.org"}
        self.template.write_text("".join(f"{name.lower()}: {value}\n" for name, value in told.items()) + "\nAway.\n")
        self.reply(mail(sender="eve@far.example"))
        self.check(self.only(), {"Subject": "Auto: Hello", **told})

    def test_robots_lists_and_itself_get_none(self):
        for content in (mail(sender="no-reply@x"), mail(sender="Ann@example.org"), mail(sender="root"), mail(extra="List-Id: <l.x>\r\n"),
                        mail().replace(b"To: all <all@", b"To: all <joann@")):
            self.reply(content)
            self.assertEqual(self.queued(), [], content)
        self.reply(mail(extra="Auto-Submitted: no\r\nX-Auto-Response-Suppress: None\r\n"))
        self.only()

    def test_a_reply_that_could_not_be_queued_is_tried_again(self):
        self.reply(code=1, output="missing/r.eml")
        (self.queue / "r_1.eml").write_text("taken")
        self.reply(code=1)
        (self.queue / "r_1.eml").unlink()
        self.reply()
        self.only()
