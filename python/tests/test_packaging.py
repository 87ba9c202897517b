# The wheel that `pip install ./python` builds: the module's files, a RECORD that pip accepts, and
# one version everywhere.
import base64
import hashlib
import re
import runpy
import zipfile

import wrenlink
from conftest import TREE


def test_the_wheel_holds_the_package_and_a_true_record(tmp_path):
    build_wheel = runpy.run_path(str(TREE / "python/wrenlink_build.py"))["build_wheel"]
    version = re.search(r"project\(Wrenlink VERSION (\S+)", (TREE / "CMakeLists.txt").read_text()).group(1)
    name = build_wheel(str(tmp_path))
    assert (name, wrenlink.__version__) == (f"wrenlink-{version}-py3-none-any.whl", version)
    package = sorted(f"wrenlink/{p.name}" for p in (TREE / "python/wrenlink").glob("*.py")) + ["wrenlink/py.typed"]
    with zipfile.ZipFile(tmp_path / name) as wheel:
        assert sorted(n for n in wheel.namelist() if not n.startswith("wrenlink-")) == sorted(package)
        info = f"wrenlink-{version}.dist-info"
        assert f"\nVersion: {version}\n" in wheel.read(f"{info}/METADATA").decode()
        record = wheel.read(f"{info}/RECORD").decode().splitlines()
        assert [line.split(",")[0] for line in record] == wheel.namelist()
        data = wheel.read("wrenlink/__init__.py")
        digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
        assert f"wrenlink/__init__.py,sha256={digest},{len(data)}" in record
