"""gdb loads this file together with libmcastcommon.so.1: pretty printers for its records, and commands that walk them."""

import os
import sys

import gdb

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import mcastcommon_gdb

mcastcommon_gdb.register(gdb.current_objfile())
