"""The demonstration: demo.py EXECUTABLE. Lays out demo/var/, runs the daemon on it and prints what arrived where."""
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

DEADLINE = 60
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


def lay_out():
    shutil.rmtree(VAR, ignore_errors=True)
    (VAR / "etc").mkdir(parents=True)
    for name in DIRECTORIES:
        (VAR / name).mkdir()
    keys = ("QueueDir", "SpoolDir", "ErrorDir", "OutgoingDir", "FilterDir", "InterceptDir")
    settings = "".join(f"{key}: {VAR / name}\n" for key, name in zip(keys, DIRECTORIES))
    (VAR / "etc" / "tobix.cfg").write_text(settings + "AutoTransport: 0   # mail for others stays in outgoing\n")
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
    return [line for line in plain.splitlines() if line.strip()]


def drop_mails():
    for mail in sorted((DEMO / "mail").glob("*.eml")):
        shutil.copy(mail, VAR / "queue" / (mail.name + ".new"))
        (VAR / "queue" / (mail.name + ".new")).rename(VAR / "queue" / mail.name)


def subject(path):
    match = re.search(r"^Subject: (.*)$", path.read_text("utf-8", "replace"), re.M)
    return match[1].strip() if match else "(no header block)"


def print_table():
    rows = []
    for name in DIRECTORIES:
        for path in sorted((VAR / name).rglob("*.eml")):
            rows.append((str(path.parent.relative_to(VAR)), path.name, subject(path)))
    widths = [max(len(row[column]) for row in rows) for column in (0, 1)]
    print("\nWhat arrived where (below demo/var/):\n")
    for row in rows:
        print(f"  {row[0]:<{widths[0]}}  {row[1]:<{widths[1]}}  {row[2]}")


def main():
    lay_out()
    with open(VAR / "log", "wb") as log:
        daemon = subprocess.Popen([TOBIX, "-debug"], stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                  env={**os.environ, "MAILCONFIGDIR": str(VAR / "etc")})
        try:
            wait_for("the daemon", lambda: daemon.poll() is not None or any("fully operational" in l for l in log_lines()))
            drop_mails()
            wait_for("an empty queue", lambda: not any((VAR / "queue").iterdir()))
        finally:
            daemon.send_signal(signal.SIGTERM)
            code = daemon.wait(DEADLINE)
    print("The daemon's log:\n")
    for line in log_lines():
        print("  " + line)
    print_table()
    print(f"\nThe daemon ended with exit code {code}. The tree is left in demo/var/ to look at.")
    return code


if __name__ == "__main__":
    sys.exit(main())
