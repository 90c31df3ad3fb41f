"""What a program needs of the libraries that it is linked with."""

import subprocess
from pathlib import Path


def undefined_symbols(program: Path) -> set[str]:
    listing = subprocess.run(
        ["nm", "--dynamic", "--undefined-only", program], check=True, capture_output=True, text=True
    ).stdout
    return {line.split()[-1].partition("@")[0] for line in listing.splitlines()}


def throwing_symbols(program: Path) -> set[str]:
    """The symbols that a program which can throw needs: throws themselves, and the language's
    allocation operators."""
    names = ("__cxa_throw", "__cxa_rethrow", "__cxa_allocate", "_Znw", "_Zna", "__throw_")
    return {x for x in undefined_symbols(program) if any(name in x for name in names)}
