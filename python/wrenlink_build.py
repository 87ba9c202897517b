"""Builds the wrenlink wheel (and an sdist, and an editable wheel) with the standard library
alone, so that installing the module needs nothing from the network. The wheel holds the
package directory `wrenlink/` as it is: the module has no compiled parts."""

from __future__ import annotations

import base64
import hashlib
import io
import tarfile
import zipfile
from pathlib import Path

try:
    import tomllib
except ImportError:  # Python before 3.11
    tomllib = None  # type: ignore[assignment]

HERE = Path(__file__).resolve().parent
PACKAGE = "wrenlink"
# A fixed time for every member, so that the same tree builds the same bytes.
EPOCH = (2024, 1, 1, 0, 0, 0)


def _project() -> dict:
    text = (HERE / "pyproject.toml").read_text(encoding="utf-8")
    if tomllib is not None:
        return tomllib.loads(text)["project"]
    # The few plain `key = "value"` lines this backend needs.
    values = {}
    for line in text.split("[project]", 1)[1].splitlines():
        key, _, value = line.partition("=")
        if value.strip().startswith('"'):
            values[key.strip()] = value.strip().strip('"')
    values["license"] = {"text": "Apache-2.0"}
    return values


def _metadata(project: dict) -> str:
    readme = (HERE / "README.md").read_text(encoding="utf-8")
    return (f"Metadata-Version: 2.1\nName: {project['name']}\nVersion: {project['version']}\n"
            f"Summary: {project['description']}\nLicense: {project['license']['text']}\n"
            f"Requires-Python: {project['requires-python']}\n"
            f"Description-Content-Type: text/markdown\n\n{readme}")


def _package_files() -> list[Path]:
    return sorted(p for p in (HERE / PACKAGE).rglob("*")
                  if p.is_file() and "__pycache__" not in p.parts and p.suffix in (".py", ".typed"))


def _record_line(name: str, data: bytes) -> str:
    digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
    return f"{name},sha256={digest},{len(data)}"


def _write_wheel(directory: str, members: list[tuple[str, bytes]]) -> str:
    project = _project()
    stem = f"{project['name']}-{project['version']}"
    info = f"{stem}.dist-info"
    members = members + [
        (f"{info}/METADATA", _metadata(project).encode()),
        (f"{info}/WHEEL", b"Wheel-Version: 1.0\nGenerator: wrenlink_build\nRoot-Is-Purelib: true\nTag: py3-none-any\n"),
        (f"{info}/top_level.txt", f"{PACKAGE}\n".encode()),
    ]
    record = "".join(_record_line(name, data) + "\n" for name, data in members) + f"{info}/RECORD,,\n"
    members.append((f"{info}/RECORD", record.encode()))
    filename = f"{stem}-py3-none-any.whl"
    with zipfile.ZipFile(Path(directory) / filename, "w", zipfile.ZIP_DEFLATED) as wheel:
        for name, data in members:
            entry = zipfile.ZipInfo(name, EPOCH)
            entry.external_attr = 0o644 << 16
            wheel.writestr(entry, data, zipfile.ZIP_DEFLATED)
    return filename


def build_wheel(wheel_directory: str, config_settings: dict | None = None,
                metadata_directory: str | None = None) -> str:
    return _write_wheel(wheel_directory, [(p.relative_to(HERE).as_posix(), p.read_bytes())
                                          for p in _package_files()])


def build_editable(wheel_directory: str, config_settings: dict | None = None,
                   metadata_directory: str | None = None) -> str:
    # A path file that puts this directory on sys.path: the tree's module is the one imported.
    return _write_wheel(wheel_directory, [(f"{PACKAGE}.pth", f"{HERE}\n".encode())])


def build_sdist(sdist_directory: str, config_settings: dict | None = None) -> str:
    project = _project()
    stem = f"{project['name']}-{project['version']}"
    files = [HERE / "pyproject.toml", HERE / "README.md", Path(__file__).resolve()] + _package_files()
    members = [(f"{stem}/{p.relative_to(HERE).as_posix()}", p.read_bytes()) for p in files]
    members.append((f"{stem}/PKG-INFO", _metadata(project).encode()))
    filename = f"{stem}.tar.gz"
    with tarfile.open(Path(sdist_directory) / filename, "w:gz", format=tarfile.PAX_FORMAT) as sdist:
        for name, data in members:
            entry = tarfile.TarInfo(name)
            entry.size, entry.mode, entry.mtime = len(data), 0o644, 1704067200
            sdist.addfile(entry, io.BytesIO(data))
    return filename


def get_requires_for_build_wheel(config_settings: dict | None = None) -> list[str]:
    return []


def get_requires_for_build_editable(config_settings: dict | None = None) -> list[str]:
    return []


def get_requires_for_build_sdist(config_settings: dict | None = None) -> list[str]:
    return []
