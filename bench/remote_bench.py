#!/usr/bin/env python3
"""Remote delivery benchmark: remote_bench.py BUILD_DIRECTORY [rates|distance|queue|latency|memory ...] [--quick]

Lets the daemon send to a server on loopback, and compares its rates with those of a minimal client in the same run.
Plain sessions go to Debian's smtp-sink where its package can be had (it is unpacked below the build directory), those
with STARTTLS, and what else must be timed, to a server of our own.
"""
import os
import pathlib
import socket
import statistics
import subprocess
import sys
import time

from daemon_bench import BUILD, PLACE, QUICK, REPEATS, Tree, shutil, text

PACKAGES = BUILD / "bench-packages"
THREADS, SIZES = (2, 20), (4096, 65536)


def packaged_sink():
    """The program of Debian's package, or None."""
    program = PACKAGES / "root/usr/sbin/smtp-sink"
    PACKAGES.mkdir(exist_ok=True)
    if not program.exists():
        subprocess.run(["apt-get", "download", "-q", "postfix"], cwd=PACKAGES, capture_output=True)
        for package in PACKAGES.glob("*.deb"):
            subprocess.run(["dpkg-deb", "-x", package, PACKAGES / "root"], check=True)
    try:
        usage = subprocess.run([program], env=library_path(), capture_output=True, text=True).stderr
    except OSError:
        return None
    return program if "usage" in usage else None


def library_path():
    return {**os.environ, "LD_LIBRARY_PATH": str(PACKAGES / "root/usr/lib/postfix")}


def certificate():
    key, certificate = BUILD / "bench-key.pem", BUILD / "bench-certificate.pem"
    if not certificate.exists():
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                        "-keyout", key, "-out", certificate, "-days", "3650", "-subj", "/CN=sink.example"],
                       check=True, capture_output=True)
    return [certificate, key]


class OwnSink:
    def __init__(self, *key_pair, times="quiet"):
        self.process = subprocess.Popen([BUILD / "bench_smtp_sink", times, *key_pair], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())

    def next_mail(self):
        """When it came, on the monotonic clock."""
        return float(self.process.stdout.readline())

    def stop(self):
        self.process.communicate()


class FarSink:
    """Debian's server or our own, a round trip away."""
    def __init__(self, near, milliseconds):
        self.near = near
        self.process = subprocess.Popen([BUILD / "bench_smtp_far", str(near.port), str(milliseconds)],
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline())

    def connections(self):
        """So many were made so far."""
        self.process.stdin.write("\n")
        self.process.stdin.flush()
        return int(self.process.stdout.readline())

    def stop(self):
        self.process.communicate()
        self.near.stop()


class PackagedSink:
    def __init__(self, program):
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.port = free.getsockname()[1]
        command = [program, "-u", "nobody"] if os.getuid() == 0 else [program]
        self.process = subprocess.Popen([*command, f"127.0.0.1:{self.port}", "100"], env=library_path())
        while socket.socket().connect_ex(("127.0.0.1", self.port)) != 0:
            time.sleep(0.01)

    def stop(self):
        self.process.terminate()
        self.process.wait()


def remote_tree(port, threads, settings=""):
    os.environ["TOBIX_CONNECTIVITY"] = "4"
    tree = Tree(1, settings=f"AutoTransport: 1\nAutoTransport.Threads: {threads}\nFQDN: client.example\n{settings}")
    (tree.etc / "smarthosts").write_text(f"*: 127.0.0.1:{port}\n")
    return tree


def wait_until_sent(tree, first, behind):
    """Mails are taken in the order of their names; the last ones of all threads end in any order."""
    for n in range(first, behind):
        while (tree.outgoing / f"{n:07}.eml").exists():
            time.sleep(0.001)


def daemon_rate(port, mails, threads, size, settings=""):
    tree = remote_tree(port, threads, settings)
    tree.fill_outgoing(mails, size)
    tree.start()
    wait_until_sent(tree, 0, 1)
    start = time.monotonic()
    wait_until_sent(tree, max(1, mails - 3 * threads), mails)
    seconds = time.monotonic() - start
    tree.stop()
    assert not any(tree.outgoing.iterdir())
    return (mails - threads) / seconds  # as many were under way with the first


def loop_rate(port, mails, threads, size, *tls):
    tree = remote_tree(port, threads)
    tree.fill_outgoing(mails, size)
    command = [BUILD / "bench_smtp_loop", tree.outgoing, str(port), str(threads), *tls]
    return float(subprocess.run(command, check=True, capture_output=True, text=True).stdout)


def rates():
    program = packaged_sink()
    for name, tls in (("plain", ()), ("STARTTLS", ("tls",))):
        own = bool(tls) or program is None
        print(f"mails per second, {name}, to {'a sink of our own' if own else 'smtp-sink'}")
        sink = OwnSink(*(certificate() if tls else ())) if own else PackagedSink(program)
        for size in SIZES:
            for threads in THREADS:
                mails = (4000 if size == 4096 else 2000) // (4 if QUICK else 1)
                pairs = [(daemon_rate(sink.port, mails, threads, size), loop_rate(sink.port, mails, threads, size, *tls))
                         for _ in range(REPEATS)]
                daemon, loop = (statistics.median(column) for column in zip(*pairs))
                ratio = statistics.median(d / l for d, l in pairs)
                print(f"  {size // 1024:2} KiB, {threads:2} threads: {daemon:6.0f} of {loop:6.0f}: {ratio:4.0%}", flush=True)
        sink.stop()


def distance():
    """Many mails for one far receiver, each on a connection of its own, and on connections that stay."""
    milliseconds, threads = 50, 20
    stay = "Connection.Mails: 1000\nConnection.Pipelining: 1\n"
    for name, tls in (("plain", ()), ("STARTTLS", certificate())):
        sink = FarSink(OwnSink(*tls), milliseconds)
        pairs, most = [], 0
        for _ in range(REPEATS):
            alone = daemon_rate(sink.port, 200, threads, 4096)
            before = sink.connections()
            pairs.append((daemon_rate(sink.port, 1000, threads, 4096, stay), alone))
            most = max(most, sink.connections() - before)
        together, alone = (statistics.median(column) for column in zip(*pairs))
        print(f"mails per second to a server {milliseconds} ms away, {name}, 4 KiB, {threads} threads: {together:.0f} on "
              f"connections that stay, {alone:.0f} on one each: ratio {statistics.median(t / a for t, a in pairs):.1f}; "
              f"1000 mails on {most} connections", flush=True)
        sink.stop()


def seconds_to_send(port, mails):
    """From the daemon's start to the last mail, with the scan."""
    tree = remote_tree(port, 4)
    tree.fill_outgoing(mails, 2048)
    start = time.monotonic()
    tree.start()
    wait_until_sent(tree, max(0, mails - 12), mails)
    seconds = time.monotonic() - start
    tree.stop()
    return seconds


def queue():
    print("cost of one outgoing mail by the length of the queue")
    sink, cost = OwnSink(), {}
    for mails in (1000, 10000 if QUICK else 100000):
        pairs = [(seconds_to_send(sink.port, mails), seconds_to_send(sink.port, 1)) for _ in range(9 if mails == 1000 else 1)]
        cost[mails] = statistics.median(1e6 * (all - start_up) / (mails - 1) for all, start_up in pairs)
        print(f"  {mails:6} files: {cost[mails]:6.1f} us a mail", flush=True)
    short, long = cost.values()
    print(f"  ratio {long / short:.2f}")
    sink.stop()


def latency():
    sink = OwnSink(times="times")
    tree = remote_tree(sink.port, 2)
    tree.start()
    time.sleep(1)
    for place in (tree.outgoing, tree.queue):
        times = []
        for n in range(50):
            (tree.etc / "new").write_bytes(text("ann@away.example", 4096))
            start = time.monotonic()
            (tree.etc / "new").rename(place / f"{n:07}.eml")
            times.append((sink.next_mail() - start) * 1000)
            while any(tree.queue.iterdir()) or any(tree.outgoing.iterdir()):
                time.sleep(0.01)
            time.sleep(0.05)
        print(f"one mail into the idle {place.name} directory, until MAIL: median {statistics.median(times):.2f} ms, "
              f"slowest {max(times):.2f} ms", flush=True)
    tree.stop()
    sink.stop()


def memory():
    for threads, mails, size in ((20, 200, 1 << 20), (2, 10, 64 << 20)):
        sink = OwnSink()
        tree = remote_tree(sink.port, threads)
        tree.fill_outgoing(mails, size)
        tree.start()
        wait_until_sent(tree, 0, mails)
        in_flight = threads * size >> 20
        print(f"peak memory of {threads} threads each sending {size >> 20} MiB: {tree.peak_memory():.1f} MiB "
              f"(goal {64 + 2 * in_flight})", flush=True)
        tree.stop()
        sink.stop()


if __name__ == "__main__":
    wanted = [name for name in sys.argv[2:] if not name.startswith("-")]
    try:
        for name in wanted or ["rates", "distance", "queue", "latency", "memory"]:
            globals()[name]()
    finally:
        shutil.rmtree(PLACE, ignore_errors=True)
