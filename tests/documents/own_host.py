"""Follows docs/your-own-host.md: builds and installs the plugin alone with the page's own commands, against the installed
stand-in.

    own_host.py SOURCES CMAKE BUILD COMPILER FOLDER
"""
import re
import shlex
import subprocess
import sys
from pathlib import Path

sources, cmake, build, compiler, folder = sys.argv[1:]
folder = Path(folder)
page = Path(sources, "docs/your-own-host.md").read_text()

# What the page leaves to its reader, and what it takes for granted.
given = {
    "cmake": cmake, ".": sources, "PREFIX": f"{folder}/framework", "build/release": build, "build/host": f"{folder}/build",
    "-DCMAKE_PREFIX_PATH=/path/to/the/host/framework": f"-DCMAKE_PREFIX_PATH={folder}/framework",
    "/where/to": f"{folder}/installed",
}
commands = re.findall(r"^    (cmake .*(?:(?<=\\)\n.*)*)", page, re.MULTILINE)
commands += re.findall(r"`(cmake --install [^`]*)`", page)
if len(commands) != 4:
    sys.exit(f"the page has {len(commands)} commands, not one each to install, configure, build and install again")
configure, *rest, framework = commands
for command in [framework, configure + f" -DCMAKE_CXX_COMPILER={compiler}", *rest]:
    words = [given.get(word, word) for word in shlex.split(command.replace("\\\n", ""))]
    done = subprocess.run(words, cwd=folder, text=True, check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        sys.exit(f"{shlex.join(words)} ended with {done.returncode}:\n{done.stdout}")

installed = [str(file.relative_to(folder / "installed")) for file in (folder / "installed").rglob("*") if file.is_file()]
print("installed:", *installed)
if [Path(file).name for file in installed] != ["libp_tool_vesk_zrt.so"]:
    sys.exit("that is not the plugin alone")
if b"com.acme.rd.box.PToolVeskZrt" not in (folder / "installed" / installed[0]).read_bytes():
    sys.exit("it has not the interface identifier that the page promises")
