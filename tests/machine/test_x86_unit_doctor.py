"""hdtv-doctor on a real kernel, with the package's service: what no simulated station can break."""

import re

from x86_support import JOURNAL, ON_ONE_MACHINE, examine, main_process, start_television, state
from x86_unit import X86Unit

pytest_plugins = ["console_report", "x86_fixtures"]

pytestmark = ON_ONE_MACHINE


def test_doctor_asks_the_television_beside_the_service(unit: X86Unit) -> None:
    seen = examine(unit)
    assert seen["link"] == ("ok", "physical address 1.0.0.0")
    assert seen["logical address"] == ("ok", str(unit.logical_address()))
    assert seen["power status"] == ("ok", "on")
    assert seen["service's adapter"] == ("ok", "the service has /dev/cec0 open")
    assert seen["watchdog timeout"] == ("ok", "i6300ESB timer, 15 s")
    assert seen["TCP port 4000"][0] == seen["UDP port 4000"][0] == "ok"
    assert seen["headers"][0] == seen["document served"][0] == "ok"
    assert seen["audio control"][0] == "ok"
    # The service is still the same.
    assert main_process(unit) == int(re.findall(r"process (\d+)", seen["service"][1])[0])


def test_doctor_asks_the_television_in_the_services_place(unit: X86Unit) -> None:
    first = main_process(unit)
    seen = examine(unit, "--stop-service")
    assert seen["power status"] == ("ok", "on")
    assert seen["television answers"][0] == "ok"
    assert state(unit, "hdtv") == "active"
    assert main_process(unit) not in (0, first)
    unit.wait_for_output(JOURNAL, "TV is NOT in standby mode.")


def failed(seen: dict[str, tuple[str, str]]) -> dict[str, str]:
    return {link: evidence for link, (grade, evidence) in seen.items() if grade == "fail"}


def test_television_gone_sound_control_gone_and_root_read_only(unit: X86Unit) -> None:
    unit.run("pkill cec-follower; cec-ctl -d /dev/cec-television --clear")
    unit.run("alsactl clean 0; mount -o remount,ro /")
    seen = failed(examine(unit))
    unit.run("mount -o remount,rw /; aplay -q -f cd -d 1 /dev/zero")
    start_television(unit)
    assert seen["television answers"] == "no device acknowledges messages to the television"
    assert seen["audio control"] == "the sound card has no control named PCM"
    assert seen["root file system"].startswith("read-only, and mount does not remount it")
    seen = failed(examine(unit))
    assert not {"television answers", "audio control", "root file system"} & {*seen}


def test_another_device_in_the_adapters_place(unit: X86Unit) -> None:
    unit.run("mv /dev/cec0 /dev/cec-aside; ln -s null /dev/cec0")
    seen = failed(examine(unit))
    unit.run("mv /dev/cec-aside /dev/cec0")
    assert seen["adapter"] == "/dev/cec0 is not a CEC adapter that can play"
    assert seen["service's adapter"] == "the service does not have /dev/cec0 open"


def test_adapter_that_even_root_may_not_open(unit: X86Unit) -> None:
    unit.run("chmod 0 /dev/cec0")
    seen = failed(examine(unit, starter="setpriv --bounding-set=-dac_override,-dac_read_search"))
    unit.run("chmod 600 /dev/cec0")
    assert seen["permission"] == "/dev/cec0 may not be opened, even by root"


def test_others_than_root_are_told_of_no_fault_that_is_none(unit: X86Unit) -> None:
    seen = examine(unit, starter="setpriv --reuid=65534 --regid=65534 --clear-groups")
    assert not {"permission", "audio control", "configuration"} & {*failed(seen)}
    assert seen["permission"] == ("cannot tell", "only root may open /dev/cec0")
    assert seen["audio control"][0] == "cannot tell"
