"""The image builder's packages in a real tree: what ./scripts/image-check runs, see its --help."""

import sys
import time
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor

import board_check
import build_check
import checker_check
import options_check
from buildroot import Failure, NoTree, Tree, open_tree

STEPS: dict[str, Callable[[Tree], None]] = {
    "checker": checker_check.check,
    "board": board_check.check,
    "options": options_check.check,
    "build": build_check.check,
}


def timed(step: Callable[[Tree], None], tree: Tree) -> float:
    start = time.monotonic()
    step(tree)
    return time.monotonic() - start


def check(tree: Tree, names: list[str]) -> int:
    """Side by side: each of Buildroot's commands begins with seconds of one processor."""
    print(f"Buildroot {tree.version}", flush=True)
    with ThreadPoolExecutor(2) as pool:
        steps = {name: pool.submit(timed, STEPS[name], tree) for name in names}
        for name, step in steps.items():
            try:
                print(f"{name}: as it should be ({step.result():.0f} s)", flush=True)
            except Failure as failure:
                print(f"image-check: {name}: {failure}", file=sys.stderr)
                pool.shutdown(cancel_futures=True)
                return 1
    return 0


def main(source: str, names: list[str]) -> int:
    for name in names:
        if name not in STEPS:
            print(f"image-check: there is no step {name}, only {', '.join(STEPS)}", file=sys.stderr)
            return 2
    try:
        return check(open_tree(source), names or list(STEPS))
    except NoTree as reason:
        print(f"image-check: {source}: {reason}", file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2:]))
