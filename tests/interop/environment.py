"""The mail servers of the interop tests: started once, ended with the tests. See etc/ for what each one is."""
import atexit
import contextlib
import os
import pathlib
import re
import shutil
import socket
import subprocess
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "daemon"))
from world import wait_for  # noqa: E402

GUIDE = pathlib.Path(__file__).resolve().parents[2] / "docs" / "behind.md"
RUN = pathlib.Path("/run/interop")
CA = RUN / "tls" / "ca.pem"
MAIL = RUN / "mail"
USER, PASSWORD = "relay@example", "s e=c+ret:x"
_servers = []


def run(*command, **options):
    done = subprocess.run(command, stdin=options.pop("stdin", subprocess.DEVNULL) if "input" not in options else None,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))} ended with {done.returncode}: {done.stdout!r}")


def serve(*command):
    with open(RUN / "log" / pathlib.Path(command[0]).name, "ab") as log:
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log)


def wait_for_server(host, port=25, greeting=b"220"):
    def answers():
        with contextlib.suppress(OSError), socket.create_connection((host, port), 5) as connection:
            return connection.recv(len(greeting)) == greeting
    try:
        wait_for(f"a mail server at {host}", answers, 30)
    except AssertionError as error:
        logs = "\n".join(f"== {p.name}\n{p.read_text('utf-8', 'replace')[-2000:]}" for p in (RUN / "log").iterdir())
        raise AssertionError(f"{error}\n{logs}") from None


def make_certificates():
    tls = RUN / "tls"
    curve = ("-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2")
    run("openssl", "req", "-x509", *curve, "-subj", "/CN=Interop CA", "-keyout", tls / "ca.key", "-out", CA,
        "-addext", "keyUsage=critical,keyCertSign,cRLSign")
    for name in ("postfix", "exim", "opensmtpd"):
        run("openssl", "req", "-x509", *curve, "-CA", CA, "-CAkey", tls / "ca.key", "-subj", f"/CN=mx.{name}.example",
            "-addext", f"subjectAltName=DNS:mx.{name}.example,DNS:smart.example", "-addext", "basicConstraints=critical,CA:FALSE",
            "-keyout", tls / f"{name}.key", "-out", tls / f"{name}.pem")
    run("openssl", "req", "-x509", *curve, "-subj", "/CN=somebody.example", "-keyout", tls / "untrusted.key",
        "-out", tls / "untrusted.pem")
    shutil.chown(tls / "exim.key", "Debian-exim", "Debian-exim")


def start_postfix():
    shutil.chown(RUN / "postfix", "postfix")
    run("saslpasswd2", "-c", "-p", "-f", RUN / "sasl" / "users", "-u", "example", "relay", input=PASSWORD.encode())
    shutil.chown(RUN / "sasl" / "users", "postfix")
    _servers.append(serve("/usr/sbin/postfix", "start-fg"))


def start_opensmtpd():
    spool = pathlib.Path("/var/spool/smtpd")
    for name, mode, owner, group in (("", 0o711, "root", "root"), ("offline", 0o770, "root", "opensmtpq"),
                                     *((name, 0o700, "opensmtpq", "root") for name in ("purge", "temporary", "incoming", "corrupt", "queue"))):
        (spool / name).mkdir()
        shutil.chown(spool / name, owner, group)
        (spool / name).chmod(mode)
    _servers.append(serve("/usr/sbin/smtpd", "-d", "-f", "/etc/smtpd.conf"))


def follow_guide():
    """Puts each block of docs/behind.md where the line before it tells: into a section, or at the end."""
    for file, section, block in re.findall(r"^In `(/[^`]+)`(?:, section `(\w+)`)?[^\n]*:\n\n((?:(?: {4}.*)?\n)+)", GUIDE.read_text(), re.M):
        path = pathlib.Path(file)
        path.parent.mkdir(exist_ok=True)
        text, block = path.read_text() if path.exists() else "", re.sub("^ {4}", "", block, flags=re.M)
        begin = f"begin {section}\n"
        path.write_text(text.replace(begin, begin + block, 1) if section else text + block)


def start():
    """Idempotent; seconds."""
    if _servers:
        return
    atexit.register(stop)
    (RUN / "log").chmod(0o777)
    follow_guide()
    shutil.chown(RUN / "dns", "nsd")
    _servers.append(serve("/usr/sbin/nsd", "-d", "-c", "/etc/nsd/nsd.conf"))
    make_certificates()
    start_postfix()
    shutil.chown(RUN / "exim", "Debian-exim", "Debian-exim")
    _servers.append(serve("/usr/sbin/exim4", "-bdf", "-q1m"))
    start_opensmtpd()
    _servers.append(serve("/usr/sbin/dovecot", "-F"))
    wait_for_server("192.0.2.1", 143, b"* OK")
    for number in (11, 12, 13):
        wait_for_server(f"192.0.2.{number}")
        wait_for_server(f"2001:db8::{number}")


def stop():
    for server in _servers:
        server.terminate()
    for server in _servers:
        with contextlib.suppress(subprocess.TimeoutExpired):
            server.wait(5)
    _servers.clear()


def as_vmail(root):
    """A command that runs the daemon as the user who reads mailboxes, in a tree that is his from now on."""
    daemon, command = root / "tobix", root / "as-vmail"
    shutil.copy(os.environ["TOBIX"], daemon)
    command.write_text(f'#!/bin/sh\nexec setpriv --reuid vmail --regid vmail --init-groups {daemon} "$@"\n')
    command.chmod(0o755)
    run("chown", "-R", "vmail:", root)
    return command


def received(server, token):
    """The mails that a receiver has stored and that hold the token."""
    return [text for text in (p.read_bytes() for p in (MAIL / server / "new").glob("*")) if token in text]
