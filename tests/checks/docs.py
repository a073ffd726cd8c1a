#!/usr/bin/env python3
"""What the documentation promises about itself: links lead somewhere, the porting guide names every service, the
tests that are said to prove something exist, and the README shows an example as it is."""

import re
import subprocess
import sys

import public_names

TOP = public_names.TOP


def dead_links():
    """Relative links of the Markdown pages whose target does not exist."""
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard", "*.md"], cwd=TOP,
                            capture_output=True, text=True, check=True)
    for name in listed.stdout.split():
        page = TOP / name
        for target in re.findall(r"\]\(([^)#\s]+)[^)]*\)", page.read_text()):
            if "://" not in target and not (page.parent / target).exists():
                yield f"{name}: no such file: {target}"


def unnamed_services():
    """Names of the platform that the porting guide leaves out."""
    guide = (TOP / "docs/porting.md").read_text()
    for name in sorted(public_names.platform()):
        if f"`{name}`" not in guide:
            yield f"docs/porting.md: {name} is not in the table"


def missing_tests():
    """Files and cases in the table of tests that there are not."""
    files = {path.stem for path in (TOP / "tests").rglob("*_test.*")}
    cases = {case for path in (TOP / "tests/system").glob("*_test.py")
             for case in re.findall(r"def (test_\w+)", path.read_text())}
    for name in re.findall(r"`(\w*test\w*)`", (TOP / "docs/testing.md").read_text()):
        if name not in files and name not in cases:
            yield f"docs/testing.md: there is no {name}"


def stale_example():
    """The README's piece of an example, when it is not the example's first twenty lines."""
    name, shown = re.search(r"\(examples/(\w+\.c)\) begins:\n\n```c\n(.*?)```", (TOP / "README.md").read_text(), re.S).groups()
    if shown.splitlines() != (TOP / "examples" / name).read_text().splitlines()[:20]:
        yield f"README.md: not the first twenty lines of examples/{name}"


def main():
    wrong = [*dead_links(), *unnamed_services(), *missing_tests(), *stale_example()]
    for line in wrong:
        print(line)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
