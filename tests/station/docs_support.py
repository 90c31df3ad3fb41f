"""The commands of a document: the indented lines that a reader types."""

import re
from collections.abc import Iterator

from simulation.places import top_directory

DOCS = top_directory() / "docs"


def sections(text: str) -> Iterator[tuple[str, str]]:
    """Each heading of the second or third level, and what is below it."""
    parts = re.split(r"^###? (.+)\n", text, flags=re.MULTILINE)
    yield from zip(parts[1::2], parts[2::2], strict=True)


def commands(text: str) -> list[str]:
    """A line that a backslash continues is one with the next. Items of a list are indented, too: what
    follows an empty line in them is a command only if it is indented further. In a transcript, which begins
    with "$ ", all else is output."""
    found: list[str] = []
    is_code, is_continued, is_transcript, item = False, False, False, 0
    for line in text.splitlines():
        depth = len(line) - len(line.lstrip())
        if re.match(r"\d+\. |- ", line):
            item = line.index(" ") + 1
        elif line and depth == 0:
            item = 0
        if not line:
            is_code = True
        elif is_continued:
            found[-1] += " " + line.strip()
        elif is_code and depth >= item + 4:
            is_command = line.strip().startswith("$ ")
            is_transcript = is_command or is_transcript
            if is_command or not is_transcript:
                found.append(line.strip().removeprefix("$ "))
        else:
            is_code, is_transcript = False, False
        is_continued = bool(line) and is_code and line.endswith("\\")
        if is_continued:
            found[-1] = found[-1].removesuffix("\\").rstrip()
    return found


def operations(heading: str) -> list[str]:
    """The commands of one section of the manual of operations."""
    (text,) = [
        body for name, body in sections((DOCS / "operations.md").read_text()) if name == heading
    ]
    return commands(text)
