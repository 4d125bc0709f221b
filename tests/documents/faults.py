"""Holds the tables of docs/faults.md against what the plugin does, or writes them anew.

    faults.py [--update] SOURCES FAULT_MATRIX PLUGIN_FILE

To accept a deliberate change run

    cmake --build <build directory> --target update_faults

look at what changed, and commit the page with it.
"""
import difflib
import subprocess
import sys
from pathlib import Path

BEGIN = "<!-- The tables begin; they are written by update_faults. -->\n"
END = "<!-- The tables end. -->\n"

arguments = sys.argv[1:]
update = arguments[0] == "--update"
sources, program, plugin = arguments[1:] if update else arguments
sources = Path(sources)
backup = sources / "applications/AppWorkplace/examples/backup.json"
made = subprocess.run([program, plugin, backup], check=True, stdout=subprocess.PIPE, encoding="utf-8").stdout

page = sources / "docs/faults.md"
before, rest = page.read_text(encoding="utf-8").split(BEGIN)
told, after = rest.split(END)
if update:
    page.write_text(before + BEGIN + "\n" + made + END + after, encoding="utf-8")
    sys.exit(0)

print(f"rows: {made.count(chr(10) + '| `')}")
difference = list(difflib.unified_diff(told.lstrip("\n").splitlines(), made.splitlines(), "the page", "what happens",
                                       n=0, lineterm=""))
print("\n".join(difference))
sys.exit(1 if difference else 0)
