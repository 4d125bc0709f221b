"""Follows docs/your-first-change.md in a copy of the sources, and builds and uses what comes of it.

    first_change.py SOURCES WORKPLACE LIBRARIES CMAKE GENERATOR COMPILER MAKER_DOMAIN FOLDER

The page changes neither the program nor the libraries below the plugin: they are those of the build that the test
belongs to.
"""
import re
import subprocess
import sys
from pathlib import Path

sources, workplace, libraries, cmake, generator, compiler, maker, folder = sys.argv[1:]
sources, folder = Path(sources), Path(folder)
copy, build = folder / "sources", folder / "build"


def run(*command):
    done = subprocess.run([str(part) for part in command], cwd=copy, text=True, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def patched(text, diff, file):
    """The text with the diff's changes; those that it has already are left out. Hunks are parted by @@, and know their
    place by what stands there.
    """
    for hunk in re.split(r"^@@\n", diff, flags=re.MULTILINE):
        lines = hunk.splitlines(keepends=True)
        old = "".join(line[1:] if line.strip() else line for line in lines if line[0] != "+")
        new = "".join(line[1:] if line.strip() else line for line in lines if line[0] != "-")
        if new not in text:
            if text.count(old) != 1:
                sys.exit(f"{file}: this is there {text.count(old)} times, not once:\n{old}")
            text = text.replace(old, new)
    return text


def changes():
    """The files that the page makes and changes, with what they are to hold."""
    made = {}
    for file, kind, block in blocks:
        there = sources / file
        if kind == "diff":
            made[file] = patched(made.get(file) or there.read_text(), block, file)
        elif kind != "markdown":
            # Who has followed the page has the file; what lies in the build folder is for playing.
            if there.exists() and there.read_text() != block and not file.startswith("build/"):
                sys.exit(f"{file} is not as docs/your-first-change.md has it")
            made[file] = block
    return made


page = (sources / "docs/your-first-change.md").read_text()
blocks = re.findall(r"`([^`\n]+)`:\n\n```(\w+)\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)
if not blocks or len(blocks) != len(re.findall(r"^```\w", page, re.MULTILINE)):
    sys.exit("before each block of the page stands a paragraph that ends with the name of its file")


def built_already(package, **needs):
    """What CMake is told of libraries that need not be built again: each name, with what it links."""
    return "find_package(Qt5 5.15 REQUIRED COMPONENTS Core)\n" + "".join(f"""
add_library({name} SHARED IMPORTED GLOBAL)
add_library({package}::{name} ALIAS {name})
set_target_properties({name} PROPERTIES IMPORTED_LOCATION "{libraries}/lib{name}.so"
    INTERFACE_INCLUDE_DIRECTORIES "{copy}/libraries" INTERFACE_LINK_LIBRARIES {linked})
""" for name, linked in needs.items())


# What has not changed since the last time keeps its date, and is not built again.
wanted = {file: text.encode() for file, text in {
    **changes(),
    "libraries/CMakeLists.txt": built_already("WorkstationSdk", utilities="Qt5::Core", plugin_management="utilities"),
    "libraries/zrt_controller/CMakeLists.txt": built_already("ZrtSimulatedController", zrt_controller="Qt5::Core"),
}.items()}
for room in sources.iterdir():
    if room.name == "build" or room.name.startswith("."):
        continue
    for file in [room, *room.rglob("*")]:
        if file.is_file():
            wanted.setdefault(str(file.relative_to(sources)), file.read_bytes())
for file in copy.rglob("*"):
    if file.is_file() and str(file.relative_to(copy)) not in wanted:
        file.unlink()
for name, content in wanted.items():
    file = copy / name
    file.parent.mkdir(parents=True, exist_ok=True)
    if not file.exists() or file.read_bytes() != content:
        file.write_bytes(content)

# Without the optimiser: it is built to be tried once.
run(cmake, "-S", copy, "-B", build, "-G", generator, f"-DCMAKE_CXX_COMPILER={compiler}", "-DCMAKE_BUILD_TYPE=Release",
    f"-DZRT_MAKER_DOMAIN={maker}", "-DCMAKE_CXX_FLAGS_RELEASE=-O0", "-DZRT_WARNINGS_AS_ERRORS=ON")
tests = [f"tst_{name}" for name in re.search(r"ctest .* -R '\^\((.*)\)\$'", page)[1].split("|")]
run(cmake, "--build", build, "--target", *tests)
for test in tests:
    print(run(build / "bin" / test).splitlines()[-2])

# The program is the one from outside; what it knows of the command, the plugin tells it.
library = next(build.rglob("libp_tool_vesk_zrt.so"))
print(run(workplace, "run", "build/lock.json", "--plugin", library))

# The catalogue is that of the sources, and the command as the page shows it.
[shown] = [block for _, kind, block in blocks if kind == "markdown"]
before, now = run(workplace, "inspect", "--markdown"), run(workplace, "inspect", "--markdown", "--plugin", library)
if "\n" + shown not in now:
    sys.exit(f"the page says\n\n{shown}\nof what is in\n\n{now}")
if now.replace("\n" + shown, "") != before.replace("\n" + shown, ""):
    sys.exit(f"other commands have changed: there were\n\n{before}\nand are\n\n{now}")
