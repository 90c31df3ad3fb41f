"""The tree's own checker of packages, on the external tree."""

from buildroot import EXTERNAL, PLACE, Tree, run


def check(tree: Tree) -> None:
    # The Debian packages are none of Buildroot's.
    files = [
        str(path)
        for path in sorted(EXTERNAL.rglob("*"))
        if path.is_file() and EXTERNAL / "debian" not in path.parents
    ]
    checker = ["python3", "utils/check-package", "--br2-external", *files]
    run(checker, tree.path, PLACE / "check-package.log")
