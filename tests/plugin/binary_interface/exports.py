"""Compares what a library offers to be linked against with what is committed.

    exports.py [--update] BASELINE LIBRARY

What is gone breaks whoever was built against it; what is there by mistake somebody will build against.
"""
import re
import subprocess
import sys

import baseline


def run(*command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True, **options).stdout


def list_exports(library):
    lines = run("nm", "--dynamic", "--defined-only", "--format=posix", library).splitlines()
    if any("DCmd" in line for line in lines):
        sys.exit("The library exports a command class; a host knows commands by their base class alone.")
    # The build type decides which inline functions (W) and type descriptions of Qt's are left over, a sanitizer marks
    # what it watches, and coverage brings its runtime along.
    symbols = [name for name, kind, *_ in map(str.split, lines)
               if kind != "W" and not re.match(r"__odr_asan\.|__gcov_|mangle_path$", name)]
    # Constructors and destructors are there more than once.
    names = set(run("c++filt", input="\n".join(symbols)).splitlines())
    # The table of a class stands for what else compiler and moc add to it.
    added = re.compile(r"typeinfo |non-virtual thunk |.*::(metaObject|qt_meta\w+|staticMetaObject)\b")
    return "".join(f"{name}\n" for name in sorted(names) if not added.match(name))


baseline.check(list_exports)
