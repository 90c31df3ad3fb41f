"""GET /actions: what can be done, so that a page can make its forms and a person can look it up."""

from typing import Any

from simulation.console.actions import ACTIONS
from simulation.console.incidents import INCIDENTS
from simulation.console.messages import FORMS
from simulation.unit_handles import TOOLS


def describe_all() -> dict[str, Any]:
    return {
        "actions": [
            {
                "path": action.path,
                "words": action.words,
                "fields": [field.describe() for field in action.fields],
            }
            for action in ACTIONS
        ],
        "messages": [
            {
                "message": form.name,
                "words": form.words,
                "channels": list(form.channels),
                "fields": [field.describe() for field in form.fields],
            }
            for form in FORMS
        ],
        "incidents": [{"name": incident.name, "words": incident.words} for incident in INCIDENTS],
        "tools": list(TOOLS),
    }
