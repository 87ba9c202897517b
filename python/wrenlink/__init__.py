"""wrenlink: reach Android phones from Python, through libWrenlink's C interface.

Two halves that never call each other:

- the adb half runs the adb tool: ``phones()``, ``devices()``, ``Phone(serial)`` with ``shell``,
  ``push``, ``pull``, ``install``, ``packages`` ... (see ``wrenlink.adb`` for where the tool is
  looked for: beside the interpreter's folder, as ``Resources/adb``);
- the agent half talks to the agent on the phone, through a port that adb forwards:
  ``with Agent("127.0.0.1", 10243) as a:`` then ``a.ping()``, ``a.open(path, mode)``,
  ``a.images()``, ``a.scan(...)`` or ``a.scan_events()`` ...

The shared library is loaded at import (see ``wrenlink._abi``: ``WRENLINK_LIBRARY``, then the
installed ``libWrenlink.so.0.1``); ``LibraryNotFoundError`` says where it was looked for.
Failures raise the exceptions of ``wrenlink.errors``; every block the library hands over is
copied into Python objects and given back at once.

Left out: the functions the library documents as having no effect (NetConnectionSetTimeout,
KillInstallDriver, AdbGetPhoneName, AdbGetFileInfo, AdbStartService, AdbStopService,
AdbSendBroadcast, AdbCaptureScreen), WrenlinkMalloc (for C code that hands blocks around), and
the C++ class ComLog, which logs nothing.
"""

from .errors import (AGENT_BAD_CRC, AGENT_BAD_MAGIC, AGENT_SHORT_PAYLOAD, AdbError, AgentConnectError,
                     AgentConnectionResetError, AgentError, AgentFileExistsError, AgentFileNotFoundError,
                     AgentInterruptedError, AgentIsADirectoryError, AgentNotADirectoryError, AgentPermissionError,
                     AgentProtocolError, LibraryNotFoundError, PingError, WrenlinkError, status_name)
from ._abi import SONAME
from .adb import (Phone, PhoneInfo, adb_command, adb_path, devices, kill_other_adb, phones, restart_adb,
                  root_shell)
from .agent import Agent, MediaItem
from .remote_file import RemoteFile
from .scan import ScanCode, ScanEvent, ScanItem, ScanProgress

__version__ = "0.1.0"

__all__ = [
    "AGENT_BAD_CRC", "AGENT_BAD_MAGIC", "AGENT_SHORT_PAYLOAD", "AdbError", "Agent", "AgentConnectError",
    "AgentConnectionResetError", "AgentError", "AgentFileExistsError", "AgentFileNotFoundError",
    "AgentInterruptedError", "AgentIsADirectoryError", "AgentNotADirectoryError", "AgentPermissionError",
    "AgentProtocolError", "LibraryNotFoundError", "MediaItem", "Phone", "PhoneInfo", "PingError", "RemoteFile",
    "SONAME", "ScanCode", "ScanEvent", "ScanItem", "ScanProgress", "WrenlinkError", "adb_command", "adb_path",
    "devices", "kill_other_adb", "phones", "restart_adb", "root_shell", "status_name",
]
