"""What an administrator's commands see of the running daemon and do to it, as they come over its socket."""
import json
import socket
import unittest

from world import World, mail, wait_for


class Control(unittest.TestCase):
    def ask(self, request, world):
        with socket.socket(socket.AF_UNIX) as client:
            client.connect(str(world.root / "control"))
            client.sendall(request if isinstance(request, bytes) else json.dumps(request).encode() + b"\n")
            return json.loads(b"".join(iter(lambda: client.recv(65536), b"")))

    def test_waiting_mail_is_seen_tried_held_returned_and_removed(self):
        with World(AutoTransport=1, **{"Bounce.Disable": 1}) as world:
            world.open_control()
            (world.etc / "smarthosts").write_text("*: 127.0.0.1:1\n")
            names = [f"{n}.eml" for n in range(4)]
            for name in names:
                world.drop(name, mail("eve@far.example"), world.outgoing)
            world.start(TOBIX_CONNECTIVITY="4")

            def states():
                return {m["name"]: (m["state"], m["attempts"]) for m in self.ask({"command": "queue", "names": names}, world)["outgoing"]}
            wait_for("the attempts", lambda: states() == dict.fromkeys(names, ("waiting", 1)))
            self.assertEqual(self.ask({"command": "retry", "names": names[:1] + ["../x.eml", "none.eml"]}, world),
                             {"done": names[:1], "refused": {"../x.eml": "is no name of a mail", "none.eml": "unknown"}})
            wait_for("the second attempt", lambda: states()[names[0]] == ("waiting", 2))
            for command, name in (("hold", names[1]), ("remove", names[2]), ("bounce", names[3])):
                answer = self.ask({"command": command, "directory": "outgoing", "names": [name]}, world)
                self.assertEqual(answer, {"done": [name], "refused": {}})
            wait_for("the return", lambda: list(states()) == names[:1])
            self.assertEqual(sorted(p.name for p in world.outgoing.iterdir()), ["0.eml", "0.eml.err", "1.eml.err", "1.eml.held"])
            status = self.ask({"command": "status"}, world)
            self.assertEqual((status["counters"]["remote_deferred"], status["counters"]["bounced_5xx"]), (5, 1))
            self.assertIn("local delivery agent", [thread["name"] for thread in status["threads"]])
            self.assertEqual(sum(status["histograms"]["attempt_seconds"]["counts"]), 5)
            self.assertEqual(self.ask({"command": "retry", "waiting": True, "names": names}, world)["done"], names[:1])
            for odd in (b"{\n", b"[]\n", b"\n", b'{"command":"hold","names":[1]}\n', b'{"command":"\xff"}\n',
                        json.dumps({"command": "queue", "names": ["x.eml"] * 1001}).encode() + b"\n"):
                self.assertIn("error", self.ask(odd, world))
            for n in range(300):  # each change has the tables looked at, just when the command comes
                (world.etc / "aliases").write_text(f"info: {'ann' if n % 2 else 'carl'}\n")
                self.assertNotIn("error", self.ask({"command": "status"}, world))
            with socket.socket(socket.AF_UNIX) as silent:  # costs the others two seconds, and a stop nothing
                silent.connect(str(world.root / "control"))
                world.add_user("dora")
                (world.spool / "dora" / "password").write_text("x")
                self.assertEqual(self.ask({"command": "rebuild-users"}, world), {"done": True})
            self.assertEqual(world.stop(), 0)
            self.assertFalse((world.root / "control").exists())


if __name__ == "__main__":
    unittest.main()
