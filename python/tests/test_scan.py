# The scan against the reference agent: every file of the sample phone reported once, in both
# forms, and a scan stopped early (a closed generator, a callback that raised) really ends.
import errno

import pytest

import wrenlink
from conftest import TOOLS, serving


def tree_paths(root):
    return sorted("/" + str(p.relative_to(root)) for p in root.rglob("*") if p.is_file())


@pytest.fixture
def slow_agent(phone_root):
    """An agent whose scan takes a while: 20 ms after each found file."""
    with serving(TOOLS / "wrenlink-agent", "--port", "0", "--scan-delay-us", "20000", phone_root) as port:
        with wrenlink.Agent("127.0.0.1", port) as a:
            yield a


def test_callbacks_see_every_file(agent, phone_root):
    items, progress, codes = [], [], []
    assert agent.scan(on_item=items.append, on_progress=progress.append, on_code=codes.append) == 0
    files = tree_paths(phone_root)
    assert sorted(i.fields[-1] for i in items) == files
    assert progress[-1] == wrenlink.ScanProgress(len(files), len(files))
    assert codes == [wrenlink.ScanCode(0)]


def test_generator_yields_every_event_and_control_calls_work_meanwhile(slow_agent, phone_root):
    events = slow_agent.scan_events(max_queued=2)
    items = []
    for event in events:
        if isinstance(event, wrenlink.ScanItem):
            items.append(event.fields[-1])
            if len(items) == 1:  # the connection is free while the scan runs
                slow_agent.pause_scan()
                slow_agent.ping()
                slow_agent.resume_scan()
    assert sorted(items) == tree_paths(phone_root)
    assert isinstance(event, wrenlink.ScanCode) and event.code == 0


def test_closing_the_generator_early_stops_the_scan(slow_agent, phone_root):
    events = slow_agent.scan_events(max_queued=1)
    assert isinstance(next(events), (wrenlink.ScanItem, wrenlink.ScanProgress))
    events.close()
    # The stopped scan is over: a new one may start at once, and none runs to be stopped.
    with pytest.raises(wrenlink.AgentError) as raised:
        slow_agent.stop_scan()
    assert raised.value.name == "ESRCH"
    assert sum(isinstance(e, wrenlink.ScanItem) for e in slow_agent.scan_events()) == len(tree_paths(phone_root))


def test_a_raising_callback_stops_the_scan_and_is_raised(slow_agent):
    seen = []

    def on_item(item):
        seen.append(item)
        raise KeyError("from the callback")

    codes = []
    with pytest.raises(KeyError, match="from the callback"):
        slow_agent.scan(on_item=on_item, on_code=codes.append)
    assert len(seen) == 1 and codes == [], "no callback after the one that raised"
    with pytest.raises(wrenlink.AgentError) as raised:
        slow_agent.stop_scan()
    assert raised.value.status == errno.ESRCH
