"""What goes wrong while the console looks at the station, on the timeline."""

from simulation.events import EventLog


class Problems:
    """Says each once: what the console looks at again and again may go wrong as often."""

    def __init__(self, events: EventLog) -> None:
        self._events = events
        self._told: set[str] = set()

    def tell(self, words: str, error: Exception) -> None:
        text = f"console: {words}: {error!r}"
        if text not in self._told:
            self._told.add(text)
            self._events.add("problem", text)
