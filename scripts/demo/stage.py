"""What the chapters of the demo print, and the router's own words about itself."""

import os
import sys

from lab import PROGRAMS

MCASTCTL = os.path.join(PROGRAMS, "mcastctl")


def title(text):
    print(f"\n== {text}", flush=True)


def show(name, text):
    print(f"-- {name}")
    for line in text.splitlines():
        print(f"   {line}")
    sys.stdout.flush()


def show_table(router, *words):
    show(f"mcastctl show {' '.join(words)}", router.run(MCASTCTL, "show", *words))


def show_receivers(receivers):
    print("-- the receivers got")
    for name, receiver in receivers.items():
        print(f"   {name:<28} {receiver.counts()}")
    sys.stdout.flush()
