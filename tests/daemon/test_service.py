"""What the service manager and the installing administrator see of the daemon."""
import os
import signal
import socket
import subprocess
import unittest

from world import DEADLINE, World


def reports_up_to(text, reports):
    seen = []
    while not seen or seen[-1] != text:
        seen.append(reports.recv(4096).decode().split("\nMONOTONIC")[0])
    return seen


class Service(unittest.TestCase):
    def test_a_restart_leaves_the_service_running(self):
        receiver = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        receiver.bind(("127.0.0.1", 0))
        receiver.settimeout(DEADLINE)
        with receiver, World(LogPort=receiver.getsockname()[1], other="another program's key") as world:
            directory = "c:" + str(world.etc).replace("/", "\\")  # as on the system the settings were brought from
            with world.start_service(MAILCONFIGDIR=directory) as reports:
                start = reports_up_to("READY=1\nSTATUS=Running", reports)
                self.assertEqual(start[:-1], ["STATUS=Starting\nEXTEND_TIMEOUT_USEC=1000000"] * 13)
                world.process.send_signal(signal.SIGHUP)
                self.assertEqual(reports_up_to("READY=1\nSTATUS=Running", reports)[:-1],
                                 ["RELOADING=1"])
                log = []
                while not log or not log[-1].endswith(b"restarted and fully operational"):
                    log.append(receiver.recv(1024))
                self.assertTrue(log[0].startswith(b"<22> ["), log[0])  # facility mail, info
                self.assertFalse([line for line in log if b"unknown key" in line])
                self.assertEqual(world.stop(), 0)

    def test_a_second_installation_may_write_where_its_own_configuration_says(self):
        with World() as world:
            (world.etc / "tobix2.cfg").write_text("QueueDir: /second/queue\n")
            subprocess.run([os.environ["TOBIX"], "-install", "Tobix2", "Second", "-c tobix2.cfg"], check=True,
                           env={**os.environ, "MAILCONFIGDIR": str(world.etc), "TOBIX_UNIT_DIR": str(world.root)})
            unit = (world.root / "tobix2.service").read_text()
            self.assertIn("\nReadWritePaths=-/second/queue\n", unit)
            self.assertNotIn(str(world.queue), unit)


if __name__ == "__main__":
    unittest.main()
