"""The whole state of a station, as plain values for a page or a program."""

import dataclasses
from typing import Any

from simulation.gateway import GATEWAY, describe_record
from simulation.handles import Handles
from simulation.unit_view import FULL_BUDGET, LIVENESS_LIMIT

_LAST_RECORDS = 20


def read_state(handles: Handles) -> dict[str, Any]:
    view = handles.view
    age = view.liveness_age()
    return {
        "tv": handles.tv.state(),
        "gateway": {
            "address": GATEWAY,
            "heard": handles.gateway.is_hearing,
            "received": [
                {"hex": record.hex(" "), "words": describe_record(record)}
                for record in handles.gateway.received()[-_LAST_RECORDS:]
            ],
        },
        "unit": {
            "address": view.address(),
            "running": view.service is not None and view.service.is_running(),
            "document": view.document(),
            "document_text": _printable(view.document_text()),
            "changes": [dataclasses.asdict(change) for change in view.changes_since_mark()],
            "current_gateway": view.current_gateway(),
            "configuration": view.configuration(),
            "kicks": view.kicks(),
            "kicks_left": view.kicks_left(),
            "budget": FULL_BUDGET,
            "liveness_age": None if age is None else int(age),
            "liveness_limit": LIVENESS_LIMIT,
            "processes": [dataclasses.asdict(process) for process in view.processes()],
            "dhcp": handles.unit.is_dhcp_on,
            "broken": handles.unit.broken(),
        },
    }


def _printable(text: str) -> str:
    """Without halves of characters, which JSON cannot carry to every reader."""
    return text.encode(errors="surrogateescape").decode(errors="backslashreplace")
