"""The packages' days on a fresh machine, from the installation to the purge. In order: each test begins where the one
before has ended.
"""
import concurrent.futures
import json
import re
import threading
import time
import unittest

from machine import Machine, wait_for

QUEUE = "/var/spool/tobix/queue"
ANN = "/var/lib/tobix/ann"


class Package(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.machine = Machine()
        cls.addClassCleanup(lambda: cls.machine.stop())

    def run_there(self, command, **options):
        return self.machine.run(command, **options)

    def install(self, directory="/root"):
        return self.run_there(f"apt-get install -y -q {directory}/tobix_*.deb")

    def property(self, name):
        return self.run_there(f"systemctl show -P {name} tobix")

    def journal(self):
        return self.run_there("journalctl -u tobix --no-pager -o cat")

    def drop(self, subject, recipient="ann@example.org", sender="bob@example.com"):
        """As a program hands a mail in that knows of nothing but the directory."""
        mail = self.machine[f"{QUEUE}/{subject}.new"]
        mail.write_text(f"X-Envelope-From: {sender}\nX-Envelope-To: {recipient}\nFrom: {sender}\nTo: {recipient}\n"
                        f"Subject: {subject}\n\nhello\n")
        mail.rename(mail.with_suffix(".eml"))

    def subjects(self, mailbox=ANN):
        mails = (path.read_text() for path in self.machine[mailbox].glob("*.eml"))
        return sorted("".join(re.findall("^Subject: (.*)$", mail, re.M)) for mail in mails)

    def wait_for_mail(self, *subjects, mailbox=ANN):
        wait_for(f"{subjects} in {self.subjects(mailbox)}", lambda: set(subjects) <= set(self.subjects(mailbox)))

    def under_load(self, name, disturb):
        """Hands in mail all the while; every one is there once at the end."""
        before, handed_in, over = self.subjects(), [], threading.Event()

        def hand_in():
            while not over.wait(0.005):
                handed_in.append(f"{name}{len(handed_in)}")
                self.drop(handed_in[-1])
        with concurrent.futures.ThreadPoolExecutor() as pool:
            loading = pool.submit(hand_in)
            try:
                disturb()
            finally:
                over.set()
                loading.result()
        expected = sorted(before + handed_in)
        wait_for("all mail", lambda: len(self.subjects()) >= len(expected))
        self.assertEqual(self.subjects(), expected)
        self.assertEqual(list(self.machine["/var/spool/tobix/error"].iterdir()), [])

    def test_1_installed_it_runs_and_delivers(self):
        begin = time.monotonic()
        self.install("/root/before")
        self.run_there("tobixctl check && tobixctl mailbox add ann@example.org")
        self.run_there("echo hello | tobix-inject ann@example.org")
        wait_for("the mail", lambda: list(self.machine[ANN].glob("*.eml")))
        print(f"from a fresh machine to the first mail: {time.monotonic() - begin:.1f} s")
        self.assertEqual(self.run_there("systemctl is-active tobix tobix-metrics.timer; systemctl is-enabled tobix"), "active\ninactive\nenabled")
        self.assertEqual(self.run_there(f"stat -c %U /proc/{self.property('MainPID')}"), "tobix")
        self.assertEqual(self.run_there("cd /etc/tobix; stat -c '%a %U:%G %n' . tobix.cfg domains smarthosts; "
                                        "cd /var; stat -c '%a %U:%G %n' spool/tobix/* lib/tobix lib/tobix-dumps").split("\n"),
                         ["755 root:root .", "640 root:tobix-inject tobix.cfg", "644 root:root domains",
                          "640 root:tobix smarthosts", "700 tobix:tobix spool/tobix/error",
                          "700 tobix:tobix spool/tobix/filtered", "700 tobix:tobix spool/tobix/intercepted",
                          "700 tobix:tobix spool/tobix/outgoing", "1730 tobix:tobix-inject spool/tobix/queue",
                          "750 tobix:tobix lib/tobix", "700 tobix:tobix lib/tobix-dumps"])
        self.assertIn("FQDN: mail.example.net\n", self.machine["/etc/tobix/tobix.cfg"].read_text())
        self.run_there("printf 'Subject: injected\\n\\nhello\\n' | runuser -u nobody -- tobix-inject -f root postmaster")
        self.wait_for_mail("injected", mailbox="/var/lib/tobix/postmaster")
        self.assertIn("denied", self.run_there(f"runuser -u nobody -- ls {QUEUE} 2>&1", check=False))
        self.drop("to-the-postmaster", "root@mail.example.net")
        self.wait_for_mail("to-the-postmaster", mailbox="/var/lib/tobix/postmaster")

    def test_2_programs_run_for_a_mail(self):
        self.machine[f"{ANN}/newmail.cmd"].write_text("#!/bin/sh\nperl -e 'print 6 * 7' >hooked\n")
        self.machine[f"{ANN}/newmail.cmd"].chmod(0o755)
        self.machine[f"{ANN}/config"].write_text("NextUID: 2\nRunReply: 1\nRunReplyTemplate: away\n")
        self.machine[f"{ANN}/away"].write_text("I am away.\n")
        self.drop("hook", sender="postmaster@localhost")
        self.wait_for_mail("Auto: hook", mailbox="/var/lib/tobix/postmaster")
        self.assertEqual(self.machine[f"{ANN}/hooked"].read_text(), "42")
        self.run_there(f"rm {ANN}/newmail.cmd; sed -i /RunReply/d {ANN}/config")

    def test_3_a_start_that_fails_tells_why(self):
        self.run_there("sed -i.good s,^QueueDir.*,QueueDir:/nowhere, /etc/tobix/tobix.cfg; systemctl restart tobix", check=False)
        reason = 'invalid QueueDir, "/nowhere" is missing or no directory'
        self.assertIn(reason, self.run_there("systemctl status tobix", check=False))
        self.assertIn(reason, self.journal())
        self.run_there("mv /etc/tobix/tobix.cfg.good /etc/tobix/tobix.cfg; systemctl reset-failed tobix; systemctl restart tobix")

    def test_4_a_reload_and_restarts_lose_nothing(self):
        process = self.property("MainPID")

        def disturb():
            self.run_there("systemctl reload tobix")
            self.assertEqual(self.property("MainPID"), process)
            for _ in range(3):
                self.run_there("systemctl restart tobix")
        self.under_load("restart", disturb)
        self.assertNotEqual(self.property("MainPID"), process)

    def test_5_it_comes_back_with_the_machine_and_alone_and_a_crash_leaves_its_dump(self):
        self.run_there("mkdir -p /var/lib/prometheus/node-exporter; systemctl enable tobix-metrics.timer")
        self.machine.stop()
        type(self).machine = Machine()
        self.drop("after-boot")
        self.wait_for_mail("after-boot")
        self.assertIn("ann", self.run_there("journalctl TOBIX_MAIL=after-boot.eml --no-pager -o cat"))
        self.run_there("mkdir /etc/systemd/system/tobix.service.d; "
                       "printf '[Service]\nWatchdogSec=3\n' >/etc/systemd/system/tobix.service.d/impatient.conf; "
                       "systemctl daemon-reload; systemctl restart tobix")
        for signal in ("KILL", "SEGV", "STOP"):
            process = self.property("MainPID")
            self.run_there(f"systemctl kill --kill-whom=main -s {signal} tobix")
            wait_for("it to be back", lambda: self.property("ActiveState") == "active" and self.property("MainPID") != process)
            self.drop(f"after-{signal}")
            self.wait_for_mail(f"after-{signal}")
        self.assertEqual(len(list(self.machine["/var/lib/tobix-dumps"].glob("tobix.*.dmp"))), 2)
        self.run_there("rm -r /etc/systemd/system/tobix.service.d; systemctl daemon-reload")

    def waiting(self):
        mails = json.loads(self.run_there("tobixctl queue --json"))
        return {mail["from"]: (mail["state"], mail.get("attempts"), mail["name"]) for mail in mails}

    def wait_for_states(self, **expected):
        wait_for(f"{expected}", lambda: {sender.partition("@")[0]: state[:2] for sender, state in self.waiting().items()} == expected)

    def test_6_an_administrator_sees_and_steers_what_waits(self):
        self.run_there("tobixctl mailbox add ben@example.org && chmod 500 /var/lib/tobix/ben && "
                       "echo 'far.example: 127.0.0.1:1' >>/etc/tobix/smarthosts")
        for sender in ("ann@example.org", "bob@example.com", "eve@example.com"):
            self.drop(sender.partition("@")[0], "far@far.example", sender)
        tried, again = ("waiting", 1), ("waiting", 2)
        self.wait_for_states(ann=tried, bob=tried, eve=tried)
        self.assertRegex(self.run_there("tobixctl status; tobixctl queue"),
                         r"(?s)outgoing: +3, of them 0 sending, 3 waiting.*connect was rejected")
        self.run_there("tobixctl hold --from 'eve@*' && systemctl restart tobix")
        self.wait_for_states(ann=tried, bob=tried, eve=("held", None))
        self.run_there("tobixctl release --all")
        self.wait_for_states(ann=tried, bob=tried, eve=tried)
        self.run_there("tobixctl retry --all")
        self.wait_for_states(ann=again, bob=again, eve=again)
        (*_, ann), (*_, bob), _ = self.waiting().values()
        road = self.run_there(f"tobixctl queue show {bob}; journalctl TOBIX_MAIL={bob} --no-pager; "
                              "journalctl TOBIX_MAIL=bob.eml -o json --no-pager")
        self.assertEqual([road.count(step) for step in ("saved in outgoing", f'{bob}" temporarily failed')], [3, 6], road)
        self.assertIn("code 3", self.run_there(f"tobixctl remove {bob} </dev/null; echo code $?"))
        self.run_there(f"tobixctl remove --yes {bob} && tobixctl bounce {ann}")
        self.wait_for_mail("Returned mail: see transcript for details")
        self.wait_for_states(eve=again)
        self.drop("both", "ann@example.org,ben@example.org")
        wait_for("the failure", self.machine["/var/spool/tobix/error/both.eml"].exists)
        told = wait_for("the daemon to let go of it", lambda: re.search("(?s).*requeued as.*", self.run_there(
            "chmod 700 /var/lib/tobix/ben; tobixctl requeue both.eml --yes", check=False)))[0]
        for line in (r"to <ann@example.org> saved in <ann>", "placing in error", "has it: +ann@example.org", "gets it: +ben@example.org"):
            self.assertRegex(told, line)
        self.wait_for_mail("both", mailbox="/var/lib/tobix/ben")
        self.assertEqual(self.subjects().count("both"), 1)
        metrics = self.machine["/var/lib/prometheus/node-exporter/tobix.prom"]
        wait_for("the timer", lambda: metrics.exists() and "tobix_up 1\n" in metrics.read_text(), 70)
        self.assertEqual(metrics.stat().st_mode & 0o777, 0o644)

    def test_7_the_next_version_takes_over(self):
        process = self.property("MainPID")
        self.run_there("echo '# mine' | tee -a /etc/tobix/aliases /etc/tobix/tobix.cfg")
        self.under_load("upgrade", self.install)
        self.assertEqual(self.property("ActiveState"), "active")
        self.assertNotEqual(self.property("MainPID"), process)
        self.assertNotIn("~", self.run_there("dpkg-query -W -f '${Version}' tobix"))
        self.assertEqual(self.run_there("grep -c '# mine' /etc/tobix/aliases /etc/tobix/tobix.cfg"),
                         "/etc/tobix/aliases:1\n/etc/tobix/tobix.cfg:1")

    def test_8_every_user_hands_in_and_looks_at_nothing(self):
        self.run_there("useradd bob; apt-get install -y -q /root/tobix-sendmail_*.deb")
        self.run_there("printf 'To: ann@example.org\nSubject: by-sendmail\n\nhello\n' | sendmail -t", user="bob")
        self.wait_for_mail("by-sendmail")
        for path in ("/var/spool/tobix/queue", "/etc/tobix/tobix.cfg", "/etc/tobix/smarthosts", ANN):
            self.assertIn("Permission denied", self.run_there(f"ls {path}/; cat {path}", user="bob", check=False))

    def test_9_mail_goes_only_when_it_is_asked_for(self):
        mails = self.subjects()
        self.run_there("apt-get remove -y -q tobix")
        self.assertEqual(self.run_there("find /proc -maxdepth 1 -user tobix; systemctl is-active tobix tobix-metrics.timer", check=False),
                         "inactive\ninactive")
        self.assertIn("# mine", self.machine["/etc/tobix/tobix.cfg"].read_text())
        self.run_there("apt-get purge -y -q tobix")
        self.assertEqual(self.run_there("ls -d /etc/tobix /var/lib/tobix-dumps 2>/dev/null", check=False), "")
        self.assertEqual(self.subjects(), mails)
        self.install()
        self.assertEqual(self.property("ActiveState"), "active")
        self.run_there("echo tobix tobix/purge-mail boolean true | debconf-set-selections; apt-get purge -y -q tobix")
        self.assertEqual(self.run_there("ls -d /var/lib/tobix* /var/spool/tobix* 2>/dev/null", check=False), "")
