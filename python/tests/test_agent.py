# The agent half against the reference agent serving the sample phone.
import concurrent.futures
import io
import os
import shutil
import struct

import pytest


MOVIE = "/Movies/VID_20240614_181200.avi"
KINDS = {
    "images": {".jpg", ".jpeg", ".png"},
    "music": {".wav"},
    "videos": {".avi"},
}


def test_copy_through_the_file_object_is_exact(agent, phone_root):
    expected = (phone_root / MOVIE.lstrip("/")).read_bytes()
    copy = io.BytesIO()
    with agent.open(MOVIE, "rb") as remote:
        shutil.copyfileobj(remote, copy, 4000)  # many reads, the last one short
        assert remote.tell() == len(expected)
        assert remote.read(10) == b""
        # Backwards through the file with seeks, in pieces that straddle each other.
        for start in range(len(expected) - 777, -1, -5000):
            assert remote.seek(start) == start
            assert remote.read(777) == expected[start:start + 777]
        assert remote.seek(-100, os.SEEK_END) == len(expected) - 100
        assert remote.seek(40, os.SEEK_CUR) == len(expected) - 60
        assert remote.readall() == expected[-60:]
    assert copy.getvalue() == expected
    with io.BufferedReader(agent.open(MOVIE)) as buffered:
        assert buffered.read(5) + buffered.read() == expected


def test_write_read_back_and_path_operations(agent, phone_root):
    data = bytes((i * 7 + i // 251) & 0xFF for i in range(300_000))
    agent.mkdir("/Download/py")
    with agent.open("/Download/py/out.bin", "w+b") as f:
        assert f.write(memoryview(data)[:100_000]) == 100_000
        assert f.write(bytearray(data[100_000:])) == 200_000
        assert f.seek(0) == 0
        assert f.read() == data
        with agent.open(MOVIE, "r") as read_only, pytest.raises(io.UnsupportedOperation):
            read_only.write(b"x")
    assert (phone_root / "Download/py/out.bin").read_bytes() == data
    with agent.open("/Download/py/out.bin", "a") as f:
        f.write(b"tail")
        assert f.tell() == len(data) + 4
    assert agent.exists("/Download/py/out.bin")
    agent.erase("/Download/py/out.bin")
    assert not agent.exists("/Download/py/out.bin")
    agent.delete("/Download/py")
    assert not agent.exists("/Download/py")


@pytest.mark.parametrize("kind", KINDS)
def test_media_lists_match_the_tree(agent, phone_root, kind):
    files = sorted(p for p in phone_root.rglob("*") if p.suffix.lower() in KINDS[kind])
    items = getattr(agent, kind)()
    assert [(i.path, i.size, i.name) for i in items] == [
        ("/" + str(p.relative_to(phone_root)), p.stat().st_size, p.name) for p in files]
    assert all(i.mtime == int(phone_root.joinpath(i.path[1:]).stat().st_mtime) for i in items)
    assert len({i.id for i in items}) == len(items)


def test_media_add_and_delete(agent):
    assert "/Download/notes.txt" not in [i.path for i in agent.images()]
    agent.add_image("/Download/notes.txt")
    assert "/Download/notes.txt" in [i.path for i in agent.images()]
    with pytest.raises(FileExistsError):
        agent.add_image("/Download/notes.txt")
    agent.delete_image("/Download/notes.txt")
    assert "/Download/notes.txt" not in [i.path for i in agent.images()]


def test_ping_and_raw_transfers(agent):
    agent.ping()
    agent.send(struct.pack("<5I", 0xF0CF9CFC, 0, 0, 0, 0))  # a ping by hand
    assert agent.recv(4) == b"\0\0\0\1"


def test_threads_share_the_agent(agent, phone_root):
    # File exchanges lock inside the library, the media list and ping under the Agent's own lock.
    expected, images = (phone_root / MOVIE.lstrip("/")).read_bytes(), agent.images()
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        reads = [pool.submit(lambda: agent.open(MOVIE).readall()) for _ in range(20)]
        lists = [pool.submit(lambda: agent.ping() or agent.images()) for _ in range(20)]
        assert all(f.result() == expected for f in reads) and all(f.result() == images for f in lists)
