#!/usr/bin/env python3
"""What the documentation promises about itself: links lead somewhere, and the porting guide names every service."""

import pathlib
import re
import subprocess
import sys

TOP = pathlib.Path(__file__).resolve().parents[2]


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
    for name in (TOP / "scripts/platform-names.txt").read_text().split():
        if f"`{name}`" not in guide:
            yield f"docs/porting.md: {name} is not in the table"


def main():
    wrong = [*dead_links(), *unnamed_services()]
    for line in wrong:
        print(line)
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
