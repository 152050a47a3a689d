"""A machine that boots systemd, out of the directory that the environment variable ROOT names."""
import contextlib
import os
import pathlib
import re
import subprocess
import time
import uuid

ROOT = pathlib.Path(os.environ["ROOT"])
ENVIRONMENT = {"PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LC_ALL": "C.UTF-8",
               "DEBIAN_FRONTEND": "noninteractive"}


def wait_for(what, condition, seconds=60):
    end = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"waited {seconds} s in vain for {what}")
        time.sleep(0.05)
    return result


def control_groups():
    """One of the machine's own in each hierarchy that an init system uses: two machines must not share any."""
    group = f"tobix-machine-{uuid.uuid4().hex}"
    own = dict(line.split(":", 2)[1:] for line in pathlib.Path("/proc/self/cgroup").read_text().splitlines())
    for _, mount, kind, options, *_ in map(str.split, pathlib.Path("/proc/mounts").read_text().splitlines()):
        name = "" if kind == "cgroup2" else "name=systemd"
        if kind == "cgroup2" or kind == "cgroup" and name in options.split(","):
            path = pathlib.Path(mount + own[name]) / group
            path.mkdir()
            yield path


class Machine:
    def __init__(self):
        self.groups = list(control_groups())
        self.boots = subprocess.Popen(["systemd-nspawn", "--quiet", "--boot", f"--directory={ROOT}", "--register=no", "--keep-unit", "--resolv-conf=off", "--console=passive"],
                                      preexec_fn=lambda: [(g / "cgroup.procs").write_text("0") for g in self.groups],
                                      stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.init = wait_for("the machine's first process", self.find_init)
        wait_for("the machine", lambda: self.run("systemctl is-system-running", check=False) in ("running", "degraded"))

    def find_init(self):
        """Not the child that makes it, and is gone a moment later."""
        for child in pathlib.Path(f"/proc/{self.boots.pid}/task/{self.boots.pid}/children").read_text().split():
            with contextlib.suppress(OSError):
                if re.search(r"^NSpid:.*\t1$", pathlib.Path(f"/proc/{child}/status").read_text(), re.M):
                    return child
        return None

    def run(self, command, check=True, user="root", **options):
        """What a shell command prints there, both streams, without the last line's end."""
        done = subprocess.run(["nsenter", "-t", self.init, "-a", "setpriv", f"--reuid={user}", f"--regid={user}",
                               "--init-groups", "bash", "-c", command], env=ENVIRONMENT, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=300, **options)
        if check and done.returncode != 0:
            raise AssertionError(f"{command}: exit code {done.returncode}\n{done.stdout}")
        return done.stdout.rstrip("\n")

    def __getitem__(self, path):
        return ROOT / path.lstrip("/")

    def stop(self):
        self.run("systemctl poweroff", check=False)
        self.boots.wait(60)
        for group in self.groups:
            for directory, *_ in os.walk(group, topdown=False):
                os.rmdir(directory)
