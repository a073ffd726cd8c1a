"""Compares the binary interface of the built libraries with the one that is written down.

abi.py BUILD [--write]: tests/abi/LIBRARY.abi holds the exported names of a library and the layout of every record and
type that its public headers show; abidiff compares it with what the compiler made. packaging/debian/PACKAGE.symbols
holds the names with the version in which each appeared; dpkg-gensymbols compares it. --write brings both up to date:
docs/abi.md says when that is right.
"""

import pathlib
import platform
import re
import shutil
import subprocess
import sys
import tempfile

TOP = pathlib.Path(__file__).resolve().parents[2]
SKIPPED = 77

# Records that these folders do not declare are private, and may change.
HEADERS = {
    "mcastcommon": ("include/mcast", "platform"),
    "mcasthost": ("host/include/mcasthost", "include/mcast", "platform"),
}


def run(words, **more):
    return subprocess.run([str(word) for word in words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          **more)


def stored_abi(library):
    return TOP / f"tests/abi/lib{library}.abi"


def symbols_file(library):
    return TOP / f"packaging/debian/lib{library}1.symbols"


def version():
    numbers = re.findall(r"^#define MCAST_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)$", (TOP / "include/mcast/common.h").read_text(), re.M)
    return ".".join(numbers)


def write_abi(library, binary, out):
    headers = [word for folder in HEADERS[library] for word in ("--headers-dir", TOP / folder)]
    made = run(["abidw", "--no-show-locs", "--no-corpus-path", "--no-comp-dir-path", "--no-parameter-names",
                "--exported-interfaces-only", "--drop-private-types", "--type-id-style", "hash",
                *headers, "--out-file", out, binary])
    if made.returncode:
        sys.exit(made.stdout)


def abi_differences(library, binary, folder):
    write_abi(library, binary, folder / "abi")
    compared = run(["abidiff", "--no-show-locs", "--suppressions", TOP / "tests/abi/suppressions.ini",
                    stored_abi(library), folder / "abi"])
    return compared.stdout if compared.returncode else ""


def make_symbols(library, binary, folder):
    """The file as it would be, and what dpkg-gensymbols finds wrong with the one that there is."""
    # A missing name is one only in a version after that in which it appeared.
    later = f"{version()}-1"
    made = run(["dpkg-gensymbols", "-c4", f"-p{symbols_file(library).stem}", f"-v{later}", f"-e{binary}",
                f"-I{symbols_file(library)}", f"-O{folder}/symbols"], cwd=folder)
    lines = (folder / "symbols").read_text().replace(f" {later}\n", f" {version()}\n").splitlines(keepends=True)
    return "".join(line for line in lines if not line.startswith("#MISSING")), made.stdout if made.returncode else ""


def write(library, binary, folder):
    symbols_file(library).parent.mkdir(parents=True, exist_ok=True)
    symbols_file(library).touch()
    symbols_file(library).write_text(make_symbols(library, binary, folder)[0])
    # The same interface can be written in many orders: the file stays as it is where nothing differs.
    if not stored_abi(library).exists() or abi_differences(library, binary, folder):
        write_abi(library, binary, stored_abi(library))


def has_debug_information(binary):
    return ".debug_info" in run(["readelf", "-SW", binary]).stdout


def main(build, writes):
    if platform.machine() != "x86_64":
        print("skipped: what is written down is the interface on x86-64")
        return SKIPPED
    for tool in ("abidw", "abidiff", "dpkg-gensymbols"):
        if shutil.which(tool) is None:
            print(f"skipped: there is no {tool}")
            return SKIPPED
    differences = []
    for library in HEADERS:
        binary = pathlib.Path(build).resolve() / f"lib/lib{library}.so.1"
        if not has_debug_information(binary):
            print(f"skipped: {binary} was made without debug information")
            return SKIPPED
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            if writes:
                write(library, binary, folder)
            differences += [abi_differences(library, binary, folder), make_symbols(library, binary, folder)[1]]
    for difference in filter(None, differences):
        print(difference)
    return 1 if any(differences) else 0


sys.exit(main(sys.argv[1], "--write" in sys.argv[2:]))
