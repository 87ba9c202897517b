# The adb half through Debian's adb, on a private server, against a simulated phone.
import pytest

import wrenlink
from conftest import free_port, profile_values


def test_the_phone_is_listed_with_its_profile(phone):
    p, _ = phone
    listed = [i for i in wrenlink.phones() if i.serial == p.serial]
    expected = wrenlink.PhoneInfo(p.serial, *profile_values("ro.product.model"),
                                  *profile_values("ro.product.manufacturer"),
                                  *profile_values("ro.build.version.release"), True, True)
    assert listed == [expected]
    assert p.refresh() == expected
    assert wrenlink.devices()[p.serial] == "device"
    assert wrenlink.Phone("127.0.0.1:1").refresh().present is False


def test_shell_and_properties(phone):
    p, _ = phone
    assert p.shell("getprop ro.product.manufacturer").strip() == profile_values("ro.product.manufacturer")[0]
    assert p.shell('"echo one; echo two"').splitlines() == ["one", "two"]
    assert p.model() == profile_values("ro.product.model")[0]
    assert not p.is_root()
    assert p.sdcard_path() == "/sdcard"


def test_push_and_pull_move_exact_bytes(phone, tmp_path):
    p, sandbox = phone
    data = bytes((i * 13 + i // 509) & 0xFF for i in range(200_003))
    (tmp_path / "up.bin").write_bytes(data)
    p.push(tmp_path / "up.bin", "/sdcard/Download/up.bin")
    assert (sandbox / "sdcard/Download/up.bin").read_bytes() == data
    p.pull("/sdcard/Download/up.bin", tmp_path / "down.bin", via_root=False)
    assert (tmp_path / "down.bin").read_bytes() == data
    with pytest.raises(wrenlink.AdbError) as raised:
        p.push(tmp_path / "up.bin", "/system/up.bin")
    assert (raised.value.function, raised.value.result) == ("AdbPushFile", 2)
    with pytest.raises(wrenlink.AdbError) as raised:
        p.push(tmp_path / ("x" * 600), "/sdcard/x")
    assert raised.value.result == -1, "a line over 511 bytes runs nothing"


def test_packages(phone):
    p, _ = phone
    declared = {v.split()[0]: v.split()[1] for v in profile_values("phone.package")}
    assert p.packages() == sorted(n for n, kind in declared.items() if kind == "user")
    assert p.packages(system=True) == sorted(n for n, kind in declared.items() if kind == "system")
    user = p.packages()[0]
    assert p.is_installed(user) and p.has_apk(user) and not p.has_apk("org.example.none")
    version = [v.split()[3] for v in profile_values("phone.package") if v.startswith(user + " ")]
    assert [p.package_property(user, "versionName="), p.package_property(user, "none=")] == version + [None]


def test_activities(phone):
    p, _ = phone
    home = p.top_activity()
    p.start_activity("com.android.settings/.Settings")
    assert p.top_activity() == "com.android.settings/.Settings"
    p.force_stop("com.android.settings")
    assert p.top_activity() == home == profile_values("phone.home")[0]


def test_an_agent_behind_a_forward(phone, agent_port):
    p, _ = phone
    local = free_port()
    p.forward(local, agent_port)
    with wrenlink.Agent("127.0.0.1", local) as a:
        a.ping()
        assert a.images()
