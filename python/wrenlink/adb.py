"""The adb half: the phones that the adb tool sees, and what can be done with each.

The library runs the tool found at ``<folder of the running executable>/../Resources/adb``, and
for Python the running executable is the interpreter, with links resolved (``/proc/self/exe``):
``/usr/bin/python3`` is ``/usr/bin/python3.11``, so Debian's Python looks for
``/usr/Resources/adb``. A virtual environment made with ``python3 -m venv --copies ENV`` has an
interpreter of its own, and looks for ``ENV/Resources/adb`` (a link to ``/usr/bin/adb`` will
do); one made without ``--copies`` links to the system's interpreter and looks where it does.
``adb_path()`` says where the tool is looked for. A missing tool fails no call: it shows only
as empty texts and "not found" results.

Every call runs the tool once or more and waits for it, with no time limit; tool runs are one at
a time in the whole process. A command line is formed within 512 bytes: a longer one (a long
serial or path) runs nothing. Which results raise ``AdbError`` is said beside each function.
"""

from __future__ import annotations

import ctypes
import os
from dataclasses import dataclass
from typing import Optional, Union

from . import _blocks
from ._abi import PhoneInfoRecord, lib
from .errors import AdbError

PathArg = Union[str, bytes, "os.PathLike[str]"]
TEXT_SIZE = 2048  # the output buffers of the adb half
_NULL_OR_LONG = "a NULL argument or a command line over 511 bytes (nothing run)"
_STATES = {"author": "device", "offline": "offline", "unauthor": "unauthorized"}


@dataclass(frozen=True)
class PhoneInfo:
    """One phone as adb lists it. The texts are empty for an unauthorised phone."""

    serial: str
    model: str
    manufacturer: str
    android_version: str
    authorized: bool
    present: bool

    @classmethod
    def from_record(cls, record: PhoneInfoRecord) -> PhoneInfo:
        return cls(_field(record.serial), _field(record.productModel), _field(record.manufacturer),
                   _field(record.softVersion), record.authorized == 1, record.present == 1)


def adb_path() -> str:
    """Where the library looks for the adb tool (AndGetAdbFullpath)."""
    return os.fsdecode(lib.AndGetAdbFullpath())


def adb_command(command_line: str, wait: bool = True, output_size: int = TEXT_SIZE) -> str:
    """Runs the tool with the arguments of ``command_line`` (AdbCommand) and returns its stdout
    then stderr, at most ``output_size - 1`` bytes. With ``wait`` False the tool gets a second
    and is then stopped, and the text is empty. Never raises."""
    output = ctypes.create_string_buffer(output_size + 1)  # the extra byte keeps a terminator
    lib.AdbCommand(command_line.encode(), output, output_size, wait)
    return _decode(output)


def restart_adb() -> None:
    """``adb kill-server``, then ``adb start-server`` (AdbRestartAdb). Never raises."""
    lib.AdbRestartAdb()


def kill_other_adb() -> None:
    """Kills (signal 9) every process whose ``ps -ax`` line holds the letters "adb", this one
    excepted (AdbKillOtherADB). Raises ``AdbError`` (1) when the process list cannot be had."""
    _judge("AdbKillOtherADB", lib.AdbKillOtherADB(), {1: "the process list cannot be had"})


def root_shell(command_line: str) -> str:
    """Runs one line in a root shell on the phone that the tool picks by itself (AdbRootShell;
    with several phones attached the tool refuses). "\\r\\n" is added when the line has no line
    end. Returns the text that came after the line. Never raises."""
    if not command_line.endswith("\n"):
        command_line += "\r\n"
    output = _text_buffer()
    lib.AdbRootShell(None, command_line.encode(), output)
    return _decode(output)


def devices() -> dict[str, str]:
    """``adb devices`` (AdbGetDevicesList): each serial with its state, "device", "offline" or
    "unauthorized". Raises ``AdbError`` (-1) when the tool's text says "error" or "fail"."""
    output = _text_buffer()
    _judge("AdbGetDevicesList", lib.AdbGetDevicesList(output), {-1: "the tool's text holds 'error' or 'fail'"})
    states = {}
    for record in filter(None, _decode(output).split(";")):
        serial, _, state = record.rpartition("-")
        states[serial] = _STATES.get(state, state)
    return states


def phones() -> list[PhoneInfo]:
    """The phones in state "device" (with their properties) or "unauthorized" (AdbGetPhoneList);
    offline ones are left out. Raises ``MemoryError`` when the library had none for the list."""
    array = ctypes.POINTER(PhoneInfoRecord)()
    count = ctypes.c_uint32(0)
    lib.AdbGetPhoneList(ctypes.byref(array), ctypes.byref(count))
    address = ctypes.cast(array, ctypes.c_void_p).value
    if not address:
        raise MemoryError("AdbGetPhoneList: the library could not allocate the phone list")
    _blocks.taken()
    try:
        return [PhoneInfo.from_record(array[i]) for i in range(count.value)]
    finally:
        _blocks.give_back(address)


class Phone:
    """One phone, by its serial as adb prints it (``Phone(info.serial)`` or ``Phone(info)``)."""

    def __init__(self, serial: Union[str, PhoneInfo]) -> None:
        self.serial = serial.serial if isinstance(serial, PhoneInfo) else serial
        self._s = self.serial.encode()

    def __repr__(self) -> str:
        return f"<wrenlink.Phone {self.serial}>"

    # -- the phone's record and properties ---------------------------------------------------

    def refresh(self) -> PhoneInfo:
        """The phone's record read anew (AdbRereshDevInfo); ``present`` is False when adb does
        not list it. Never raises."""
        record = PhoneInfoRecord()
        record.serial = self._s[:32]
        lib.AdbRereshDevInfo(ctypes.byref(record))
        return PhoneInfo.from_record(record)

    def android_version(self) -> str:
        """ro.build.version.release. ``AdbError`` (1) when the phone is not found."""
        return self._property(lib.AdbGetPhoneSoftVersion, "AdbGetPhoneSoftVersion")

    def model(self) -> str:
        """ro.product.model. ``AdbError`` (1) when the phone is not found."""
        return self._property(lib.AdbGetPhoneProductModel, "AdbGetPhoneProductModel")

    def manufacturer(self) -> str:
        """ro.product.manufacturer. ``AdbError`` (1) when the phone is not found."""
        return self._property(lib.AdbGetPhoneManufacture, "AdbGetPhoneManufacture")

    def is_root(self) -> bool:
        """Whether the phone's shell runs as root (AdbIsAdbRoot). ``AdbError``: 1 not found,
        -1 the line too long."""
        flag = ctypes.c_uint8(0)
        _judge("AdbIsAdbRoot", lib.AdbIsAdbRoot(self._s, ctypes.byref(flag)),
               {1: "the phone was not found", -1: _NULL_OR_LONG})
        return flag.value == 1

    # -- shell, forwards ---------------------------------------------------------------------

    def shell(self, command: str, wait: bool = True) -> str:
        """``adb -s SERIAL shell COMMAND`` (AdbShellCommand): the tool's text, at most 2047 bytes,
        whatever the phone said. ``AdbError`` (-1) when the line is too long."""
        output = _text_buffer()
        _judge("AdbShellCommand", lib.AdbShellCommand(self._s, command.encode(), output, wait),
               {-1: _NULL_OR_LONG})
        return _decode(output)

    def forward(self, local_port: int, phone_port: int) -> None:
        """``adb forward tcp:LOCAL tcp:PHONE`` (AdbForward); a refused forward shows only when a
        connection through it fails. Never raises."""
        lib.AdbForward(self._s, local_port, phone_port)

    # -- files -------------------------------------------------------------------------------

    def push(self, local: PathArg, remote: PathArg, checked: bool = True) -> None:
        """Copies a local file to the phone. Checked (AdbPushFile): ``AdbError`` 1 for a failure
        text, 2 for "Permission denied", -1 a line too long. Unchecked (AdbPushFileEx): the
        tool's text is not judged, only -1 raises."""
        if checked:
            self._file_call(lib.AdbPushFile, "AdbPushFile", local, remote)
        else:
            self._file_call(lib.AdbPushFileEx, "AdbPushFileEx", local, remote)

    def pull(self, remote: PathArg, local: PathArg, via_root: bool = True) -> None:
        """Copies a phone file here. Via root (AdbPullFile): a temporary copy made by the root
        shell, pulled and removed; ``AdbError`` 1 when the phone path is not there, 2 for
        "Permission denied", -1 a line too long. Direct (AdbPullFileEx): nothing is judged, only
        -1 raises, and a blank in ``local`` splits it in two."""
        if via_root:
            self._file_call(lib.AdbPullFile, "AdbPullFile", remote, local)
        else:
            self._file_call(lib.AdbPullFileEx, "AdbPullFileEx", remote, local)

    def mkdir(self, path: PathArg) -> None:
        """``mkdir`` and ``chmod 777`` in a root shell (AdbMakeDirectory): ``AdbError`` 1 or 2
        when the chmod's text says it failed."""
        self._file_call(lib.AdbMakeDirectory, "AdbMakeDirectory", path)

    def rename(self, old: PathArg, new: PathArg) -> None:
        """``mv`` in a root shell (AdbRenameFile). The line goes without a line end, so a shell
        on a terminal, as phones have, never runs it."""
        self._file_call(lib.AdbRenameFile, "AdbRenameFile", old, new)

    def remove(self, path: PathArg) -> None:
        """``rm`` in a root shell (AdbRemoveFile); the same caveat as ``rename``."""
        self._file_call(lib.AdbRemoveFile, "AdbRemoveFile", path)

    def remove_directory(self, path: PathArg) -> None:
        """``rmdir -r`` in a root shell (AdbRemoveDirectory); the same caveat as ``rename``."""
        self._file_call(lib.AdbRemoveDirectory, "AdbRemoveDirectory", path)

    # -- packages and activities -------------------------------------------------------------

    def install(self, apk: PathArg) -> None:
        """``adb install -r`` (AdbInstallPackage). ``AdbError``: 0 the phone was not found,
        2 "Permission denied", -1 a line too long. 1 is done, and so are the phone's own
        ``Failure [...]`` words, which the library does not tell apart."""
        self._package_call(lib.AdbInstallPackage, "AdbInstallPackage", os.fsencode(apk))

    def uninstall(self, package: str) -> None:
        """``adb uninstall`` (AdbUninstallPackage); results as for ``install``."""
        self._package_call(lib.AdbUninstallPackage, "AdbUninstallPackage", package.encode())

    def packages(self, system: bool = False) -> list[str]:
        """The names of the third-party (or system) packages, from "package:NAME" lines
        (AdbListPackege3, AdbListPackegeSys). ``AdbError`` when the tool's text holds another
        line (its own words of a failure); ``MemoryError`` when the library had no block."""
        function, name = ((lib.AdbListPackegeSys, "AdbListPackegeSys") if system
                          else (lib.AdbListPackege3, "AdbListPackege3"))
        block = ctypes.c_void_p()
        length = ctypes.c_uint32(0)
        function(self._s, ctypes.byref(block), ctypes.byref(length))
        if not block.value:
            raise MemoryError(f"{name}: the library could not allocate the text")
        _blocks.taken()
        try:
            text = ctypes.string_at(block.value, length.value).decode("utf-8", "replace")
        finally:
            _blocks.give_back(block.value)
        lines = [line.strip() for line in text.splitlines() if line.strip()]
        if any(not line.startswith("package:") for line in lines):
            raise AdbError(name, 0, "the tool did not list packages", text)
        return [line[len("package:"):] for line in lines]

    def has_apk(self, package: str) -> bool:
        """Whether ``pm path PACKAGE`` names an .apk (AdbCheckPackageApkExist)."""
        flag = ctypes.c_uint8(0)
        lib.AdbCheckPackageApkExist(self._s, package.encode(), ctypes.byref(flag))
        return flag.value == 1

    def is_installed(self, package: str) -> bool:
        """Whether ``pm list packages | grep PACKAGE`` gives exactly one line (AdbCheckAppInstalled)."""
        flag = ctypes.c_uint8(0)
        lib.AdbCheckAppInstalled(self._s, package.encode(), ctypes.byref(flag))
        return flag.value == 1

    def package_property(self, package: str, key: str) -> Optional[str]:
        """The text after ``key`` in ``dumpsys package PACKAGE`` up to the line end
        (AdbGetPackageProp); None when the key is not there (-2)."""
        output = _text_buffer()
        if lib.AdbGetPackageProp(self._s, package.encode(), key.encode(), output) == -2:
            return None
        return _decode(output)

    def top_activity(self) -> Optional[str]:
        """The focused activity's component, "pkg/.Name" (AdbGetTopActivity); None when none
        is found (-1)."""
        output = _text_buffer()
        if lib.AdbGetTopActivity(self._s, output) == -1:
            return None
        return _decode(output)

    def start_activity(self, component: str) -> None:
        """``am start -n COMPONENT`` (AdbStartActivity). ``AdbError`` (-1) when the phone did not
        say "Starting: Intent" or the line is too long."""
        _judge("AdbStartActivity", lib.AdbStartActivity(self._s, component.encode()),
               {-1: "the phone did not start it, or the line is too long"})

    def force_stop(self, package: str) -> None:
        """``am force-stop PACKAGE`` (AdbForceStopApp). Never raises."""
        lib.AdbForceStopApp(self._s, package.encode())

    # -- storage -----------------------------------------------------------------------------

    def sdcard_path(self) -> Optional[str]:
        """The first of /sdcard, /sdcard0 ... /sdcard4 that the phone has (AdbGetFirstSDCardPath),
        or None."""
        output = _text_buffer()
        lib.AdbGetFirstSDCardPath(self._s, output)
        return _decode(output) or None

    def free_space(self, path: str) -> int:
        """Free bytes at ``path``, from ``df`` (AdbGetStorageFreespace). ``AdbError`` (-2) when
        df printed fewer than four words."""
        free = ctypes.c_uint64(0)
        _judge("AdbGetStorageFreespace", lib.AdbGetStorageFreespace(self._s, path.encode(), ctypes.byref(free)),
               {-2: "df printed fewer than four words"})
        return free.value

    # -- internals ---------------------------------------------------------------------------

    def _property(self, function: ctypes._CFuncPtr, name: str) -> str:
        field = ctypes.create_string_buffer(33)  # 32 bytes and a terminator of our own
        _judge(name, function(self._s, field), {1: "the phone was not found", -1: _NULL_OR_LONG})
        return _decode(field)

    def _file_call(self, function: ctypes._CFuncPtr, name: str, *paths: PathArg) -> None:
        _judge(name, function(self._s, *(os.fsencode(p) for p in paths)),
               {-1: _NULL_OR_LONG, 1: "the phone's text names a failure",
                2: "the phone's text says 'Permission denied'"})

    def _package_call(self, function: ctypes._CFuncPtr, name: str, argument: bytes) -> None:
        _judge(name, function(self._s, argument),
               {0: "the phone was not found", 2: "the phone's text says 'Permission denied'",
                -1: _NULL_OR_LONG})


def _judge(function: str, result: int, failures: dict[int, str]) -> None:
    if result in failures:
        raise AdbError(function, result, failures[result])


def _text_buffer() -> ctypes.Array[ctypes.c_char]:
    return ctypes.create_string_buffer(TEXT_SIZE)


def _decode(buffer: ctypes.Array[ctypes.c_char]) -> str:
    return buffer.value.decode("utf-8", "replace")


def _field(raw: bytes) -> str:
    # A c_char array's value stops at the first NUL, or at the end of a field with none.
    return raw.decode("utf-8", "replace")
