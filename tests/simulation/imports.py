#!/usr/bin/env python3
"""No image of a daemon reaches a call of the real kernel: what it imports is simulated, or is on the list of what is
harmless. Usage: imports.py IMAGE..."""
import pathlib
import re
import subprocess
import sys

HERE = pathlib.Path(__file__).parent

# What stands in for calls, the compiler's and the sanitizers' own names.
SIMULATED = re.compile(r"__wrap_|sim_")
COMPILERS = re.compile(r"__cxa_|_Unwind_|_ITM_|__gxx_|__once_proxy|__asan_|__ubsan_|__sanitizer_|__gcov|__llvm|__stack_chk"
                       r"|__\w+_chk$|__popcount")
# Of the C++ library what asks the kernel for something; the rest is memory and text.
KERNELS = re.compile(r"random_device|system_clock|high_resolution|condition_variable|this_thread|thread.*_M_start|"
                     r"futex|filebuf.*open|filesystem.*(status|exists|remove|create|canonical|current)")
# Linked, because files that hold more than daemons need here have them: starting services, and options in files.
NOT_REACHED = {
    "_ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE",
    "_ZNSt28__atomic_futex_unsigned_base19_M_futex_notify_allEPj",
    "_ZNSt28__atomic_futex_unsigned_base19_M_futex_wait_untilEPjjbNSt6chrono8durationIlSt5ratioILl1ELl1EEEE"
    "NS2_IlS3_ILl1ELl1000000000EEEE",
    "_ZNSt13basic_filebufIcSt11char_traitsIcEE4openEPKcSt13_Ios_Openmode",
    "_ZNSt10filesystem6statusERKNS_7__cxx114pathERSt10error_code",
}


def harmless() -> set[str]:
    lines = (HERE / "harmless_imports.txt").read_text().splitlines()
    return {name for line in lines if not line.startswith("#") for name in line.split()}


def imports(image: str) -> list[str]:
    listing = subprocess.run(["nm", "-D", "--undefined-only", image], check=True, capture_output=True, text=True)
    return [line.split()[-1].split("@")[0] for line in listing.stdout.splitlines()]


def is_allowed(name: str, listed: set[str]) -> bool:
    if SIMULATED.match(name) or COMPILERS.match(name) or name in listed or name in NOT_REACHED:
        return True
    return name.startswith("_Z") and not KERNELS.search(name)


def main() -> int:
    listed = harmless()
    strangers = {(pathlib.Path(image).name, name) for image in sys.argv[1:] for name in imports(image)
                 if not is_allowed(name, listed)}
    for image, name in sorted(strangers):
        print(f"{image} imports {name}, which is neither simulated nor known to be harmless")
    return 1 if strangers or len(sys.argv) < 2 else 0


if __name__ == "__main__":
    sys.exit(main())
