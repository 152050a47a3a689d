"""The demonstration: demo.py EXECUTABLE. Lays out demo/var/, runs the daemon on it and prints what arrived where.

Mail for other hosts goes to a receiving end of the demonstration's own, on loopback: it takes one mail, refuses one and
puts one off, so that there is a bounce and a second try.
"""
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

from sink import Sink

DEADLINE = 60
SENT = 3  # of the demonstration's mails, to other hosts
TOBIX = pathlib.Path(sys.argv[1]).resolve()
DEMO = pathlib.Path(__file__).resolve().parent.parent / "demo"
VAR = DEMO / "var"
DIRECTORIES = ("queue", "spool", "error", "outgoing", "filtered", "intercepted")
USERS = {"anna": "", "bert": "SaveEnvelope: 1\n", "carla": ""}
TABLES = {
    "domains": "marlune.example\nold-name.example\n",
    "aliases": "info: bert                     # a bare name, at every local domain\n*@old-name.example: carla      # whoever is written to there\n",
    "filters": "bank details\n",
    "intercept_addresses": "bert@marlune.example\n",
}


def lay_out(port):
    shutil.rmtree(VAR, ignore_errors=True)
    (VAR / "etc").mkdir(parents=True)
    for name in DIRECTORIES:
        (VAR / name).mkdir()
    keys = ("QueueDir", "SpoolDir", "ErrorDir", "OutgoingDir", "FilterDir", "InterceptDir")
    settings = "".join(f"{key}: {VAR / name}\n" for key, name in zip(keys, DIRECTORIES))
    (VAR / "etc" / "tobix.cfg").write_text(settings + "FQDN: mail.marlune.example\nAutoTransRetryMin: 0\nAutoTransRetryMax: 0\n")
    (VAR / "etc" / "smarthosts").write_text(f"*: 127.0.0.1:{port}\n")
    for name, content in TABLES.items():
        (VAR / "etc" / name).write_text(content)
    for user, settings in USERS.items():
        (VAR / "spool" / user).mkdir()
        (VAR / "spool" / user / "config").write_text(settings)


def wait_for(what, condition):
    end = time.monotonic() + DEADLINE
    while not condition():
        if time.monotonic() > end:
            sys.exit(f"waited in vain for {what}; see {VAR / 'log'}")
        time.sleep(0.01)


def log_lines():
    plain = re.sub(r"\x1b\[[0-9;]*m", "", (VAR / "log").read_text("utf-8", "replace"))
    return [line for line in plain.splitlines() if re.match(r"\d\d\.\d\d\.\d{4} ", line)]  # without the sessions


def drop_mails():
    for mail in sorted((DEMO / "mail").glob("*.eml")):
        shutil.copy(mail, VAR / "queue" / (mail.name + ".new"))
        (VAR / "queue" / (mail.name + ".new")).rename(VAR / "queue" / mail.name)


def subject(mail):
    match = re.search(r"^Subject: (.*)$", mail.decode("utf-8", "replace"), re.M)
    return match[1].strip() if match else "(no header block)"


def print_table(sink):
    rows = []
    for name in DIRECTORIES:
        for path in sorted((VAR / name).rglob("*.eml")):
            rows.append((str(path.parent.relative_to(VAR)), path.name, subject(path.read_bytes())))
    for _, recipient, text in sink.mails:
        rows.append(("another host", recipient, subject(text)))
    widths = [max(len(row[column]) for row in rows) for column in (0, 1)]
    print("\nWhat arrived where (below demo/var/):\n")
    for row in rows:
        print(f"  {row[0]:<{widths[0]}}  {row[1]:<{widths[1]}}  {row[2]}")


def is_quiet():
    """Whether nothing is on its way any more; the bounce comes back into the queue."""
    return not any((VAR / "queue").iterdir()) and not list((VAR / "outgoing").glob("*.eml"))


def main():
    sink = Sink()
    lay_out(sink.port)
    with open(VAR / "log", "wb") as log:
        daemon = subprocess.Popen([TOBIX, "-debug"], stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                  env={**os.environ, "MAILCONFIGDIR": str(VAR / "etc"), "TOBIX_CONNECTIVITY": "4"})
        try:
            wait_for("the daemon", lambda: daemon.poll() is not None or any("fully operational" in l for l in log_lines()))
            drop_mails()
            wait_for("the mails", lambda: len(sink.mails) == SENT and is_quiet())
        finally:
            daemon.send_signal(signal.SIGTERM)
            code = daemon.wait(DEADLINE)
    print("The daemon's log:\n")
    for line in log_lines():
        print("  " + line)
    print_table(sink)
    print(f"\nThe daemon ended with exit code {code}. The tree is left in demo/var/ to look at.")
    return code


if __name__ == "__main__":
    sys.exit(main())
