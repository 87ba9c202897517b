"""The C interface of libWrenlink as ctypes sees it: the two records, the callbacks, and every
function's prototype. Loading the library happens here, once, at import.

Where the library is looked for, in order:

1. the file named by the environment variable ``WRENLINK_LIBRARY``; when it is set, nothing
   else is tried (a wrong value is an error, not a reason to pick up another copy);
2. the library under its SONAME (``libWrenlink.so.0.1``), through the system's loader paths,
   as a package or ``cmake --install`` puts it;
3. whatever ``ctypes.util.find_library("Wrenlink")`` finds.
"""

from __future__ import annotations

import ctypes
import ctypes.util
import os
import sys
from typing import Any, Iterator

from .errors import LibraryNotFoundError

SONAME = "libWrenlink.0.1.dylib" if sys.platform == "darwin" else "libWrenlink.so.0.1"


class PhoneInfoRecord(ctypes.Structure):
    """PhoneInfo, byte-packed."""

    _pack_ = 1
    _fields_ = [
        ("reserved", ctypes.c_char * 32),
        ("softVersion", ctypes.c_char * 32),
        ("manufacturer", ctypes.c_char * 32),
        ("productModel", ctypes.c_char * 32),
        ("serial", ctypes.c_char * 32),
        ("authorized", ctypes.c_uint8),
        ("present", ctypes.c_uint8),
    ]


class MediaRecord(ctypes.Structure):
    """__MediaBean, byte-packed. The texts stay plain addresses so that they can be given back."""

    _pack_ = 1


MediaRecord._fields_ = [
    ("value1", ctypes.c_uint32),
    ("text1", ctypes.c_void_p),
    ("value2", ctypes.c_uint64),
    ("text2", ctypes.c_void_p),
    ("value3", ctypes.c_uint64),
    ("text3", ctypes.c_void_p),
    ("next", ctypes.POINTER(MediaRecord)),
]

if ctypes.sizeof(PhoneInfoRecord) != 162 or ctypes.sizeof(MediaRecord) != 52:
    raise ImportError(
        f"wrenlink: the records do not have their C sizes on this platform "
        f"(PhoneInfo {ctypes.sizeof(PhoneInfoRecord)}, expected 162; "
        f"__MediaBean {ctypes.sizeof(MediaRecord)}, expected 52): a 64-bit Python is needed"
    )

FoundItemCallback = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_uint64)
CodeCallback = ctypes.CFUNCTYPE(None, ctypes.c_uint32, ctypes.c_uint64)
ProgressCallback = ctypes.CFUNCTYPE(None, ctypes.c_int64, ctypes.c_int64, ctypes.c_uint64)

_p = ctypes.c_void_p
_s = ctypes.c_char_p
_i32 = ctypes.c_int32
_u32 = ctypes.c_uint32
_pi32 = ctypes.POINTER(ctypes.c_int32)
_pu32 = ctypes.POINTER(ctypes.c_uint32)
_pu8 = ctypes.POINTER(ctypes.c_uint8)
_pmedia = ctypes.POINTER(MediaRecord)
_pphone = ctypes.POINTER(PhoneInfoRecord)

# name: (result, arguments)
_PROTOTYPES: dict[str, tuple[Any, list[Any]]] = {
    "NetConnectionOpen": (_p, [_s, _u32]),
    "NetConnectionSend": (_i32, [_p, _p, _i32, _i32]),
    "NetConnectionRecv": (_i32, [_p, _p, _i32, _i32]),
    "NetConnectionClose": (None, [_p]),
    "NetConnectionLock": (None, [_p]),
    "NetConnectionUnlock": (None, [_p]),
    "TestPing": (_i32, [_p]),
    "NDDStartScan": (_u32, [_p, _s, FoundItemCallback, CodeCallback, ProgressCallback, ctypes.c_uint64]),
    "NDDStopScan": (_u32, [_p]),
    "NDDPauseScan": (_u32, [_p]),
    "NDDResumeScan": (_u32, [_p]),
    "NDDEraseFile": (_u32, [_p, _s]),
    "NMCListImages": (_u32, [_p, _pmedia, _pu32]),
    "NMCListMusics": (_u32, [_p, _pmedia, _pu32]),
    "NMCListVideo": (_u32, [_p, _pmedia, _pu32]),
    "NMCAddImage": (_u32, [_p, _s]),
    "NMCDelImage": (_u32, [_p, _s]),
    "NMCAddMusic": (_u32, [_p, _s]),
    "NMCDelMusic": (_u32, [_p, _s]),
    "NMCAddIVideo": (_u32, [_p, _s]),
    "NMCDelIVideo": (_u32, [_p, _s]),
    "NFCFileRefOpen": (_u32, [_p, _s, _s, ctypes.POINTER(_p)]),
    "NFCFileRefRead": (_u32, [_p, _p, _p, _pi32]),
    "NFCFileRefWrite": (_u32, [_p, _p, _p, _i32]),
    "NFCFileRefTell": (_u32, [_p, _p, ctypes.POINTER(ctypes.c_int64)]),
    "NFCFileRefSeek": (_u32, [_p, _p, ctypes.c_int64, _i32]),
    "NFCFileRefClose": (_u32, [_p, _p]),
    "NFCFileRefDelete": (_u32, [_p, _s]),
    "NFCFileRefMkDir": (_u32, [_p, _s]),
    "NFCFileRefAccess": (_u32, [_p, _s]),
    "AdbCommand": (_i32, [_s, _p, _i32, ctypes.c_bool]),
    "AdbShellCommand": (_i32, [_s, _s, _p, ctypes.c_bool]),
    "AdbKillOtherADB": (_i32, []),
    "AdbRestartAdb": (_i32, []),
    "AdbForward": (_i32, [_s, _u32, _u32]),
    "AndGetAdbFullpath": (_s, []),
    "AdbRootShell": (_i32, [_s, _s, _p]),
    "AdbIsAdbRoot": (_i32, [_s, _pu8]),
    "AdbGetDevicesList": (_i32, [_p]),
    "AdbGetPhoneList": (_i32, [ctypes.POINTER(_pphone), _pu32]),
    "AdbRereshDevInfo": (_i32, [_pphone]),
    "AdbGetPhoneSoftVersion": (_i32, [_s, _p]),
    "AdbGetPhoneProductModel": (_i32, [_s, _p]),
    "AdbGetPhoneManufacture": (_i32, [_s, _p]),
    "AdbRenameFile": (_i32, [_s, _s, _s]),
    "AdbRemoveFile": (_i32, [_s, _s]),
    "AdbRemoveDirectory": (_i32, [_s, _s]),
    "AdbMakeDirectory": (_i32, [_s, _s]),
    "AdbPushFile": (_i32, [_s, _s, _s]),
    "AdbPullFile": (_i32, [_s, _s, _s]),
    "AdbPushFileEx": (_i32, [_s, _s, _s]),
    "AdbPullFileEx": (_i32, [_s, _s, _s]),
    "AdbInstallPackage": (_i32, [_s, _s]),
    "AdbUninstallPackage": (_i32, [_s, _s]),
    "AdbListPackege3": (_i32, [_s, ctypes.POINTER(_p), _pu32]),
    "AdbListPackegeSys": (_i32, [_s, ctypes.POINTER(_p), _pu32]),
    "AdbCheckPackageApkExist": (_i32, [_s, _s, _pu8]),
    "AdbCheckAppInstalled": (_i32, [_s, _s, _pu8]),
    "AdbGetPackageProp": (_i32, [_s, _s, _s, _p]),
    "AdbGetTopActivity": (_i32, [_s, _p]),
    "AdbStartActivity": (_i32, [_s, _s]),
    "AdbForceStopApp": (_i32, [_s, _s]),
    "AdbGetFirstSDCardPath": (_i32, [_s, _p]),
    "AdbGetStorageFreespace": (_i32, [_s, _s, ctypes.POINTER(ctypes.c_uint64)]),
    "WrenlinkFree": (None, [_p]),
}


def _candidates() -> Iterator[str]:
    explicit = os.environ.get("WRENLINK_LIBRARY")
    if explicit:
        yield explicit
        return
    yield SONAME
    found = ctypes.util.find_library("Wrenlink")  # runs the system's tools: only when needed
    if found:
        yield found


def _load() -> ctypes.CDLL:
    failures = []
    for name in _candidates():
        try:
            return ctypes.CDLL(name, use_errno=True)
        except OSError as error:
            failures.append(f"{name}: {error}")
    where = "WRENLINK_LIBRARY" if os.environ.get("WRENLINK_LIBRARY") else "the system's library paths"
    raise LibraryNotFoundError(
        f"wrenlink: libWrenlink could not be loaded from {where} ({'; '.join(failures)}). Install the "
        f"library (its SONAME is {SONAME}) or set WRENLINK_LIBRARY to the file, "
        f"e.g. build/release/lib/{SONAME}"
    )


def _declare(library: ctypes.CDLL) -> ctypes.CDLL:
    for name, (result, arguments) in _PROTOTYPES.items():
        try:
            function = getattr(library, name)
        except AttributeError as error:
            raise LibraryNotFoundError(f"wrenlink: {library._name} lacks {name}: not a libWrenlink 0.1") from error
        function.restype = result
        function.argtypes = arguments
    return library


lib = _declare(_load())
