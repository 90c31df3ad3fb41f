"""The service when configured for the board's own libraries. The installation as documented, for the
kernel's CEC device, is in test_docs.py."""

import re
import subprocess
from pathlib import Path

import pytest
from support import StationMaker
from symbols import throwing_symbols, undefined_symbols

from simulation import gateway
from simulation.gateway import deliver
from simulation.places import build_directory

pytestmark = pytest.mark.once

TOP = Path(__file__).resolve().parents[2]

# What each of the board's libraries supplies: the port's twelve operations and the setup that they
# need.
OPERATIONS: dict[str, list[str]] = {
    "bcm_host": [],
    "vcos": ["int vcos_init(void)"],
    "vchiq_arm": ["int vchi_initialise(void **)", "int vchi_connect(void *, unsigned, void *)"],
    "vchostif": [
        "void vc_vchi_cec_init(void *, void *, unsigned)",
        "void vc_cec_register_callback(void *, void *)",
        "int vc_cec_deregister_all(void)",
        "int vc_cec_register_command(unsigned)",
        "int vc_cec_get_logical_address(unsigned *)",
        "int vc_cec_set_vendor_id(unsigned)",
        "int vc_cec_set_osd_name(char *)",
        "int vc_cec_get_physical_address(unsigned short *)",
        "int vc_cec_send_message(unsigned, unsigned char *, unsigned, int)",
        "int vc_cec_send_ActiveSource(unsigned short, int)",
    ],
}


def name_of(prototype: str) -> str:
    return prototype.partition("(")[0].split()[-1]


def stand_in_libraries(directory: Path) -> dict[str, Path]:
    """Shared libraries with the board's names, whose operations print their own names."""
    libraries = {}
    for library, prototypes in OPERATIONS.items():
        source = directory / f"{library}.c"
        lines = ["#include <stdio.h>"]
        for text in prototypes:
            result = "" if text.startswith("void ") else "return 0; "
            lines.append(f'{text} {{ puts("board: {name_of(text)}"); {result}}}')
        source.write_text("\n".join(lines) + "\n")
        target = directory / f"lib{library}.so"
        command = ["gcc", "-std=gnu2x", "-shared", "-fPIC", "-w", f"-Wl,-soname,{target.name}"]
        subprocess.run([*command, "-o", target, source], check=True)
        libraries[target.name] = target
    return libraries


def build(directory: Path, port: str) -> Path:
    places = ["-S", str(TOP), "-B", str(directory)]
    configure = ["cmake", *places, "-G", "Ninja", f"-DCEC_PORT={port}"]
    options = ["-DHDTV_WERROR=ON", "-DHDTV_TESTS=OFF", "-DHDTV_STATION=OFF"]
    libraries = f"-DCMAKE_LIBRARY_PATH={directory.parent}"
    subprocess.run([*configure, *options, libraries], check=True, capture_output=True)
    make = ["cmake", "--build", str(directory), "--target", "hdtv", "hdtv-doctor"]
    subprocess.run(make, check=True, capture_output=True)
    return directory / "hdtv" / "hdtv"


def test_nothing_in_the_service_can_throw() -> None:
    assert throwing_symbols(build_directory() / "hdtv" / "hdtv") == set()


def needed_libraries(program: Path) -> set[str]:
    listing = subprocess.run(
        ["readelf", "--dynamic", program], check=True, capture_output=True, text=True
    ).stdout
    return set(re.findall(r"\(NEEDED\) +Shared library: \[(.*?)\.so", listing))


def test_service_needs_no_runtime_library() -> None:
    """The runtime library of C++ would take more memory than the rest of the service."""
    needed = needed_libraries(build_directory() / "hdtv" / "hdtv")
    assert "libc" in needed
    assert needed & {"libstdc++", "libgcc_s"} == set()


@pytest.mark.slow
@pytest.mark.timeout(1200)  # it builds
def test_board_executable_needs_exactly_the_ports_operations(
    tmp_path: Path, make_station: StationMaker
) -> None:
    libraries = stand_in_libraries(tmp_path)
    program = build(tmp_path / "build", "videocore")

    supplied = {name_of(text) for prototypes in OPERATIONS.values() for text in prototypes}
    assert len(supplied) == 13
    of_the_board = {x for x in undefined_symbols(program) if x.startswith(("vc", "bcm"))}
    assert of_the_board == supplied

    dynamic = subprocess.run(["readelf", "-d", program], capture_output=True, text=True).stdout
    for library in libraries:
        assert f"Shared library: [{library}]" in dynamic

    station = make_station(programs={"hdtv": program, **libraries})
    service = station.start_service(environment={"LD_LIBRARY_PATH": "/run/station/bin"})
    station.wait_for_calls("qt-webkit-kiosk")
    called = [line[7:] for line in service.output.splitlines() if line.startswith("board: ")]
    assert called[:4] == ["vcos_init", "vchi_initialise", "vchi_connect", "vc_vchi_cec_init"]
    assert called[-2:] == ["vc_cec_send_message", "vc_cec_send_ActiveSource"]
    deliver(station, gateway.display_alert("FIRE"))
    assert station.document()["alert_area"] == "FIRE"


def test_unknown_port_is_refused(tmp_path: Path) -> None:
    places = ["-S", str(TOP), "-B", str(tmp_path)]
    result = subprocess.run(
        ["cmake", *places, "-G", "Ninja", "-DCEC_PORT=other"], capture_output=True, text=True
    )
    assert result.returncode != 0
    assert "CEC_PORT is bus, videocore or linux, not 'other'" in result.stderr
