"""Run by gdb: stops the test program and compares what its source says that gdb shows."""

import os
import re

import gdb

gdb.execute("break stopHere", to_string=True)
gdb.execute("run", to_string=True)
gdb.execute("up", to_string=True)
source = os.path.join(os.path.dirname(os.path.abspath(__file__)), "main.cpp")
cases = re.findall(r"^ *// \$ (.*?) => (.*)$", open(source).read(), re.M)
wrong = not cases
for expression, expected in cases:
    shown = gdb.execute("output " + expression, to_string=True)
    if not re.fullmatch(expected, shown):
        print(f"{expression} is shown as\n  {shown}\nnot as\n  {expected}")
        wrong = True
print("shown wrongly" if wrong else "all shown as expected")
gdb.execute("kill")
