# What the tests run against: the reference agent serving a sample phone, a simulated phone behind
# a private adb server, and a scripted agent for replies no real agent sends. The programs come
# from the release build (WRENLINK_TOOLS, by default build/release/bin of this tree); the library
# from WRENLINK_LIBRARY or where it is installed.
import contextlib
import os
import socket
import socketserver
import struct
import subprocess
import threading
import time
from pathlib import Path

import pytest

import wrenlink
from wrenlink import _blocks

TREE = Path(__file__).resolve().parents[2]
TOOLS = Path(os.environ.get("WRENLINK_TOOLS", TREE / "build/release/bin"))
PROFILE = TREE / "tools/wrenlink-phone/profiles/wren-one.prop"


@pytest.fixture(autouse=True)
def no_block_leaked():
    before = _blocks.counts()
    yield
    taken, freed = (now - then for now, then in zip(_blocks.counts(), before))
    assert taken == freed, f"{taken} blocks handed over, {freed} given back"


@contextlib.contextmanager
def serving(*argv):
    """Runs a program that prints "<words> 127.0.0.1:PORT" once it listens; yields the port."""
    with subprocess.Popen([str(a) for a in argv], stdout=subprocess.PIPE, text=True) as process:
        try:
            line = process.stdout.readline()
            assert "127.0.0.1:" in line, f"{argv[0]} did not come up: {line!r}"
            yield int(line.rsplit(":", 1)[1])
        finally:
            process.terminate()


@pytest.fixture(scope="session")
def phone_root(tmp_path_factory):
    root = tmp_path_factory.mktemp("sample-phone")
    subprocess.run([TOOLS / "make-sample-phone", root], check=True, stdout=subprocess.DEVNULL)
    return root


@pytest.fixture(scope="session")
def agent_port(phone_root):
    with serving(TOOLS / "wrenlink-agent", "--port", "0", phone_root) as port:
        yield port


@pytest.fixture
def agent(agent_port):
    with wrenlink.Agent("127.0.0.1", agent_port) as a:
        yield a


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def profile_values(key):
    return [line.split("=", 1)[1] for line in PROFILE.read_text().splitlines() if line.startswith(key + "=")]


@pytest.fixture(scope="session")
def phone(tmp_path_factory):
    """(Phone, its sandbox): a simulated phone that a private adb server has connected."""
    if not os.access("/usr/bin/adb", os.X_OK):
        pytest.skip("/usr/bin/adb is not installed")
    if not os.path.exists(wrenlink.adb_path()):
        pytest.skip(f"no adb at {wrenlink.adb_path()}, where the library looks for it beside this "
                    f"interpreter (scripts/test-python.sh runs the tests in a venv that has one)")
    home = tmp_path_factory.mktemp("adb-home")
    with pytest.MonkeyPatch.context() as env:
        env.setenv("ANDROID_ADB_SERVER_PORT", str(free_port()))
        env.setenv("HOME", str(home))  # the server keeps its key in $HOME/.android
        env.delenv("ANDROID_SERIAL", raising=False)
        with serving(TOOLS / "wrenlink-phone", "--phone", f"port=0,profile={PROFILE},sandbox={home}/s") as port:
            serial = f"127.0.0.1:{port}"
            try:
                wrenlink.adb_command(f" connect {serial}")
                for _ in range(300):  # the server lists the phone a moment after the connect
                    if wrenlink.devices().get(serial) == "device":
                        break
                    time.sleep(0.05)
                yield wrenlink.Phone(serial), home / "s"
            finally:
                wrenlink.adb_command(" kill-server")


class ScriptedAgent(socketserver.ThreadingTCPServer):
    """Answers each request by its opcode: `replies[opcode]` is the bytes to send back; an opcode
    it has no reply for closes the connection."""

    daemon_threads = True

    def __init__(self, replies):
        super().__init__(("127.0.0.1", 0), ScriptedExchange)
        self.replies = replies
        threading.Thread(target=self.serve_forever, args=(0.02,), daemon=True).start()


class ScriptedExchange(socketserver.BaseRequestHandler):
    def handle(self):
        while len(head := self.request.recv(20, socket.MSG_WAITALL)) == 20:
            _magic, length, opcode, _crc, _status = struct.unpack("<5I", head)
            self.request.recv(length, socket.MSG_WAITALL) if length else None
            if opcode not in self.server.replies:
                return
            self.request.sendall(self.server.replies[opcode])


def reply(opcode, payload=b"", magic=0xF0CF9CFC, crc=0, status=0):
    return struct.pack("<5I", magic, len(payload), opcode, crc, status) + payload


@pytest.fixture
def scripted_agent():
    servers = []
    yield lambda replies: servers.append(ScriptedAgent(replies)) or servers[-1].server_address[1]
    for server in servers:
        server.shutdown()
        server.server_close()
