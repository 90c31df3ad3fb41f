"""The fields of a request: what may be in them, and a check of what is."""

from collections.abc import Mapping, Sequence
from dataclasses import dataclass
from typing import Any

from simulation.console.errors import BadRequest

# What a form shows for each kind of field, and what a request may have there:
#   text      a string
#   number    an integer between least and most
#   seconds   a number between least and most, with or without a fraction
#   flag      true or false
#   choice    one of the choices, strings
#   units     a list of {"name": string, "color": number}; docs/protocol.md has the colors
KINDS = ("text", "number", "seconds", "flag", "choice", "units")


@dataclass(frozen=True)
class Field:
    """Without a default it has to be there. A default of None may stay away."""

    name: str
    kind: str
    words: str  # for people
    default: Any = ...
    choices: tuple[str, ...] = ()
    least: int = 0
    most: int = 65535

    def describe(self) -> dict[str, Any]:
        """As plain values, for a form."""
        described: dict[str, Any] = {"name": self.name, "kind": self.kind, "words": self.words}
        if self.default is not ...:
            described["default"] = self.default
        if self.kind == "choice":
            described["choices"] = list(self.choices)
        if self.kind in ("number", "seconds"):
            described.update(least=self.least, most=self.most)
        return described


def read_fields(fields: Sequence[Field], body: Mapping[str, Any]) -> dict[str, Any]:
    """The value of each field. Refuses what is not a field, or not of its kind."""
    names = [field.name for field in fields]
    for name in body:
        if name not in names:
            known = f"There are {', '.join(names)}." if names else "There are none."
            raise BadRequest(f'There is no field "{name}". {known}')
    return {field.name: _read(field, body) for field in fields}


def _read(field: Field, body: Mapping[str, Any]) -> Any:
    value = body.get(field.name)
    if value is None:
        if field.default is ...:
            raise BadRequest(f'The field "{field.name}" is missing: {field.words}.')
        return field.default
    if not _fits(field, value):
        raise BadRequest(f'The field "{field.name}" has to be {_expected(field)}.')
    return value


def _fits(field: Field, value: Any) -> bool:
    is_number = isinstance(value, int | float) and not isinstance(value, bool)
    if field.kind == "text":
        return isinstance(value, str)
    if field.kind == "number":
        return is_number and isinstance(value, int) and field.least <= value <= field.most
    if field.kind == "seconds":
        return is_number and field.least <= value <= field.most
    if field.kind == "flag":
        return isinstance(value, bool)
    if field.kind == "choice":
        return value in field.choices
    return isinstance(value, list) and all(map(_is_unit, value))


def _is_unit(value: Any) -> bool:
    return (
        isinstance(value, dict)
        and set(value) == {"name", "color"}
        and isinstance(value["name"], str)
        and type(value["color"]) is int
        and 0 <= value["color"] <= 255
    )


def _expected(field: Field) -> str:
    return {
        "text": "a text",
        "number": f"a whole number from {field.least} to {field.most}",
        "seconds": f"a number from {field.least} to {field.most}",
        "flag": "true or false",
        "choice": "one of " + ", ".join(f'"{choice}"' for choice in field.choices),
        "units": 'a list of units like {"name": "E1", "color": 2}, with colors from 0 to 255',
    }[field.kind]
