# Each exception class, raised by a real failure: refusals of the reference agent, replies of a
# scripted agent that no well-behaved agent sends, a connection that cannot be made, and a
# library that cannot be found.
import os
import subprocess
import sys

import pytest

import wrenlink
from conftest import reply

AGENT_REFUSALS = [
    # call, exception class, status name
    (lambda a: a.open("/no/such.jpg"), wrenlink.AgentFileNotFoundError, "ENOENT"),
    (lambda a: a.open("/DCIM"), wrenlink.AgentIsADirectoryError, "EISDIR"),
    (lambda a: a.mkdir("/DCIM"), wrenlink.AgentFileExistsError, "EEXIST"),
    (lambda a: a.exists("/../outside"), wrenlink.AgentPermissionError, "EACCES"),
    (lambda a: a.add_music("/Download"), wrenlink.AgentError, "EINVAL"),
    (lambda a: a.resume_scan(), wrenlink.AgentError, "ESRCH"),
    (lambda a: a.open("/Download/notes.txt").seek(0, 7), wrenlink.AgentError, "EINVAL"),
]


@pytest.mark.parametrize("call, cls, name", AGENT_REFUSALS)
def test_agent_refusals(agent, call, cls, name):
    with pytest.raises(cls) as raised:
        call(agent)
    assert (type(raised.value), raised.value.name) == (cls, name)
    assert raised.value.errno == raised.value.status
    agent.ping()  # a refusal leaves the connection usable


SCRIPTED = [
    # replies by opcode, call, exception class, status name
    ({13: reply(13, magic=0x12345678)}, lambda a: a.mkdir("/x"), wrenlink.AgentProtocolError, "AgentBadMagic"),
    ({104: reply(104, b"abc")}, lambda a: a.images(), wrenlink.AgentProtocolError, "AgentShortPayload"),
    ({1: reply(1, b"\1\0\0\0", crc=0)}, lambda a: a.open("/x"), wrenlink.AgentProtocolError, "AgentBadCrc"),
    ({}, lambda a: a.delete("/x"), wrenlink.AgentConnectionResetError, "ECONNRESET"),
    ({0: b"\0\0\0\2"}, lambda a: a.ping(), wrenlink.PingError, None),
]


@pytest.mark.parametrize("replies, call, cls, name", SCRIPTED)
def test_malformed_replies(scripted_agent, replies, call, cls, name):
    with wrenlink.Agent("127.0.0.1", scripted_agent(replies)) as a, pytest.raises(cls) as raised:
        call(a)
    assert type(raised.value) is cls
    assert getattr(raised.value, "name", None) == name


def test_a_closed_or_absent_agent(agent_port, scripted_agent):
    a = wrenlink.Agent("127.0.0.1", agent_port)
    a.close()
    with pytest.raises(wrenlink.AgentError, match="EBADF"):
        a.images()
    with pytest.raises(wrenlink.PingError) as raised:
        a.ping()
    assert raised.value.result == -2
    port = scripted_agent({})
    with pytest.raises(wrenlink.AgentConnectError):
        wrenlink.Agent("127.0.0.1", 1)
    with pytest.raises(ConnectionError):
        wrenlink.Agent("127.0.0.256", port)


def test_a_broken_event_stream_raises_its_code(scripted_agent):
    # The start is accepted, but nothing answers on the event port: onCode(22).
    with wrenlink.Agent("127.0.0.1", scripted_agent({201: reply(201)})) as a:
        with pytest.raises(wrenlink.AgentError) as raised:
            a.scan()
        assert (raised.value.name, raised.value.function) == ("EINVAL", "NDDStartScan (the scan's code)")


@pytest.mark.parametrize("env, status", [
    ({"WRENLINK_LIBRARY": "/nowhere/libWrenlink.so.0.1"}, 1),
    ({"WRENLINK_LIBRARY": os.devnull}, 1),
    ({"WRENLINK_LIBRARY": None, "LD_LIBRARY_PATH": os.path.dirname(wrenlink._abi.lib._name)}, 0),  # by SONAME
])
def test_where_the_library_is_looked_for(env, status):
    env = dict(os.environ, PYTHONPATH=os.path.dirname(os.path.dirname(wrenlink.__file__)), **env)
    run = subprocess.run([sys.executable, "-c", "import wrenlink"], capture_output=True, text=True,
                         env={k: v for k, v in env.items() if v is not None})
    assert run.returncode == status
    if status:
        assert "wrenlink.errors.LibraryNotFoundError" in run.stderr and env["WRENLINK_LIBRARY"] in run.stderr
