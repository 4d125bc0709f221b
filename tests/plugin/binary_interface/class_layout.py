"""Compares the layout that g++ gives to the classes of host framework and plugin with the committed one.

    class_layout.py [--update] BASELINE COMPILER INCLUDE_FOLDER...

Host and plugin call each other through virtual tables by position: a table in another order breaks whatever is already
built, without a word from compiler or linker.

A class stands there with its bases, then the functions of its table that are not its first base's, each at its
position: first those that take the place of another, then those that are added. A destructor has two positions, and
always takes the place of its base's. The tables of further bases follow from the rest and are left out. How many bytes
a class adds to its first base is said of the plugin's classes; those of the framework are the host's business.
"""
import re
import subprocess
import sys
import tempfile
from pathlib import Path

import baseline

FRAMEWORK = ["IPlugin", "DAbstractPlugin", "DAbstractTighteningTool", "ICommand", "DAbstractCommand",
             "DAbstractPluginBackend", "DObject", "DElement", "OneOfTwo"]
PLUGIN = ["PToolVeskZrt", "BeMaintenanceToolZrt", "DZrtToolChannel",
          "__qobjectsqmllist::QObjectListModelBase<DZrtToolChannel>", "OLM_DZrtToolChannel"]

# The compiler tells functions by name alone. Of two with the same name the last class overrides one, and shows where
# that stands.
SOURCE = """
#include "be_maintenance_plugin.h"
#include "command_classes.h"
#include "p_tool_vesk_zrt.h"
#include <plugin_management/d_element.h>

class OneOfTwo : public DAbstractPlugin
{
    QVariant getProperty(QString const& key, bool* ok) const override;
};
"""


class Layout:
    def __init__(self):
        self.bases = []
        self.size = 0
        self.tables = [[]]  # its own, which is also its first base's, and those of further bases


def dump_classes(compiler, folders):
    with tempfile.TemporaryDirectory() as folder:
        file = Path(folder, "dump.txt")
        subprocess.run([compiler, "-std=c++17", "-fPIC", "-fsyntax-only", f"-fdump-lang-class={file}",
                        *(f"-I{folder}" for folder in folders), "-x", "c++", "-"], input=SOURCE, text=True, check=True)
        demangled = subprocess.run(["c++filt"], input=file.read_text(), stdout=subprocess.PIPE, text=True, check=True)
    return demangled.stdout


def read_layouts(dump):
    layouts = {}
    for block in dump.strip().split("\n\n"):
        match = re.match(r"(Vtable for|Class) (.*)\n", block)
        if match is None:
            continue
        layout = layouts.setdefault(match[2], Layout())
        if match[1] == "Vtable for":
            layout.tables = read_tables(block)
        else:
            # Behind the class itself.
            layout.bases = re.findall(r"^(\S+) \(0x", block, re.MULTILINE)[1:]
            # Without the padding behind it, which a deriving class may use.
            layout.size = int(re.search(r"base size=(\d+)", block)[1])
    return layouts


def read_tables(block):
    """The functions of each table. One begins behind its type information, and in front of that stands an offset."""
    entries = re.findall(r"^\d+ +(?:\(int \(\*\)\(\.\.\.\)\))?(.*)", block, re.MULTILINE)
    starts = [i + 1 for i, entry in enumerate(entries) if entry.startswith("(& typeinfo for ")]
    ends = [start - 2 for start in starts[1:]] + [len(entries)]
    return [entries[start:end] for start, end in zip(starts, ends)]


def full_table(layouts, name):
    """A table with a name for every function. One without a body has its name in a class that gives it one."""
    own = layouts[name].tables[0]
    for heir in layouts.values():
        if name in heir.bases and "__cxa_pure_virtual" not in sum(heir.tables, []):
            # That of an interface is a further one, and shorter.
            return next(table for table in reversed(heir.tables) if len(table) >= len(own))
    return own


def short_name(function):
    """Without its class."""
    return re.sub(r"^(.*non-virtual thunk to )?(\w|<\w+>|::)*::", "", function)


def describe(layouts, name):
    layout = layouts[name]
    first_base = layouts[layout.bases[0]] if layout.bases else Layout()
    inherited = first_base.tables[0]
    replaced = []
    added = []
    for i, function in enumerate(layout.tables[0]):
        if "~" in function or function == "0":
            function = "destructor"
        if inherited[i:i + 1] == [function] or (function == "destructor" and i < len(inherited)):
            continue
        if function == "__cxa_pure_virtual":
            function = f"{full_table(layouts, name)[i]} = 0"
        target = replaced if i < len(inherited) else added
        target.append(f"{i} {short_name(function)}")

    lines = [f"class {name}: {', '.join(layout.bases)}" if layout.bases else f"class {name}"]
    if name not in FRAMEWORK:
        lines.append(f"own bytes: {layout.size - first_base.size}")
    if replaced:
        lines.append(f"in place of others: {', '.join(replaced)}")
    return "\n    ".join(lines + added)


def describe_all(compiler, *folders):
    layouts = read_layouts(dump_classes(compiler, folders))
    commands = [name for name in layouts if re.fullmatch(r"DCmd\w+", name)]
    if not commands:
        sys.exit("The compiler's dump says nothing about any command class.")
    return "".join(f"{describe(layouts, name)}\n" for name in FRAMEWORK + PLUGIN + commands)


baseline.check(describe_all)
