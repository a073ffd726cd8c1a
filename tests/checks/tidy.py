#!/usr/bin/env python3
"""clang-tidy over src/, host/ and daemons/, each with the .clang-tidy above it: tidy.py BUILD_FOLDER [--all]

Most of clang-tidy's time goes into the headers of the C++ library, which it parses and searches anew for every source.
So the sources of a folder are checked in bundles (cmake/bundles.py). A bundle that does not compile after all is taken
apart and its sources are checked one by one.

A clean bundle leaves a stamp named after all that it depends on. As long as nothing of that changes it is not checked
again; --all checks it regardless.
"""
import concurrent.futures
import hashlib
import json
import os
import re
import shlex
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "cmake"))
from bundles import bundles_of  # noqa: E402

FOLDERS = ("src", "host", "daemons")
TIDY = "clang-tidy-14"
BUNDLE_SIZE = 16
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)


def compiled_sources(build):
    """Every source of FOLDERS with the flags that matter to a parser, as the build folder records them."""
    found = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        path = Path(entry["file"])
        bundled = INCLUDE.findall(path.read_text()) if path.is_relative_to(build) and path.exists() else [path]
        for source in map(Path, bundled):
            if source.is_relative_to(ROOT) and source.relative_to(ROOT).parts[0] in FOLDERS:
                words = shlex.split(entry["command"])
                found[source] = tuple(word for word in words if re.match(r"-[DI]|-std|-fno-", word)) + tuple(
                    part for at, word in enumerate(words) if word == "-isystem" for part in words[at : at + 2])
    return found


def with_headers(paths, flags):
    """The files and the headers of this tree that they include, directly or not."""
    folders = [Path(flag[2:]) for flag in flags if flag.startswith("-I")]
    seen, waiting = set(), list(paths)
    while waiting:
        path = waiting.pop()
        if path in seen:
            continue
        seen.add(path)
        for name in INCLUDE.findall(path.read_text()):
            waiting += [folder / name for folder in [path.parent, *folders] if (folder / name).is_file()][:1]
    return seen


def configurations(folder):
    while folder != ROOT.parent:
        if (folder / ".clang-tidy").exists():
            yield folder / ".clang-tidy"
        folder = folder.parent


def stamp_of(paths, flags, version):
    everything = sorted(with_headers(paths, flags)) + sorted(ROOT.rglob(".clang-tidy")) + [Path(__file__)]
    digest = hashlib.sha256(repr((version, flags, paths)).encode())
    for path in everything:
        digest.update(f"{path}\n".encode() + path.read_bytes())
    return digest.hexdigest()


def tidy(paths, flags, place):
    """What clang-tidy says of the sources; None if they do not compile as one file."""
    if len(paths) == 1:
        subject, config = paths[0], []
    else:
        subject = place.with_suffix(".cpp")
        subject.write_text("".join(f'#include "{path}"\n' for path in paths))
        config = ["--config-file", str(next(configurations(paths[0].parent)))]
    headers = "^" + re.escape(str(ROOT)) + "/(" + "|".join(FOLDERS) + ")/"
    done = subprocess.run([TIDY, "--quiet", "--warnings-as-errors=*", f"--header-filter={headers}", *config, subject,
                           "--", *flags, "-w"], capture_output=True, text=True)
    if "clang-diagnostic-error" in done.stdout and len(paths) > 1:
        return None
    return done.stdout + (done.stderr if done.returncode and not done.stdout else "")


def check(number, paths, flags, version, folder, again):
    stamp = folder / stamp_of(paths, flags, version)
    if stamp.exists() and not again:
        return ""
    said = tidy(paths, flags, folder / f"bundle_{number}")
    if said is None:
        print("taken apart: " + " ".join(str(path.relative_to(ROOT)) for path in paths))
        said = "".join(tidy([path], flags, folder) for path in paths)
    if not said:
        stamp.touch()
    return said


def main():
    build = Path(sys.argv[1]).resolve()
    found = compiled_sources(build)
    folder = build / "tidy"
    folder.mkdir(exist_ok=True)
    version = subprocess.run([TIDY, "--version"], check=True, capture_output=True, text=True).stdout
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        answers = [pool.submit(check, number, paths, found[paths[0]], version, folder, "--all" in sys.argv)
                   for number, paths in enumerate(bundles_of(sorted(found), BUNDLE_SIZE, lambda path: (path.parent, found[path])))]
    said = [answer.result() for answer in answers]
    for line in dict.fromkeys(line for text in said for line in text.split("\n")):
        print(line.removeprefix(f"{ROOT}/"))
    return 1 if any(said) else 0


if __name__ == "__main__":
    sys.exit(main())
