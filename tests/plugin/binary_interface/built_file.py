"""Checks one aspect of built files, as they look from outside.

    built_file.py needed | run_path | hardening FILE...
    built_file.py fortification PROGRAM COMPILE_COMMANDS
"""
import json
import re
import subprocess
import sys
from pathlib import Path

# What has to be there when a file is loaded, in the order in which it is looked up.
RUNTIME = ["libstdc++.so.6", "libgcc_s.so.1", "libc.so.6"]
NEEDED = {
    "libp_tool_vesk_zrt.so": ["libplugin_management.so", "libutilities.so", "libQt5Qml.so.5", "libQt5Core.so.5"],
    "workplace": ["libplugin_management.so", "libutilities.so", "libzrt_controller.so", "libQt5QuickControls2.so.5",
                  "libQt5Quick.so.5", "libQt5Qml.so.5", "libQt5Gui.so.5", "libQt5Core.so.5"],
    "libzrt_controller.so": ["libQt5Core.so.5"],
}
# Where that is looked for besides the system's folders. A folder of the machine that built the file is none of them,
# nor an empty one, which stands for where a program happens to be started.
RUN_PATH = {
    "libp_tool_vesk_zrt.so": [],
    "workplace": ["$ORIGIN/../lib"],
    "libplugin_management.so": ["$ORIGIN"],
    "libutilities.so": ["$ORIGIN"],
    "libzrt_controller.so": ["$ORIGIN"],
}


def run(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, text=True, check=True).stdout


def dynamic(file, tag):
    """The values under a tag of the table for the dynamic linker."""
    table = run("readelf", "--dynamic", "--wide", file)
    return re.findall(rf"\({tag}\) +(?:[A-Za-z ]*: )?\[?([^\]\n]*)", table)


def needed(file):
    # A sanitizer brings its own libraries, and whether cutting a number is a call into libm is the compiler's choice.
    found = [name for name in dynamic(file, "NEEDED") if not re.match(r"lib(asan|ubsan|m)\.", name)]
    expected = NEEDED[Path(file).name] + RUNTIME
    return [] if found == expected else [f"needs {found}, not {expected}"]


def run_path(file):
    found = dynamic(file, "RUNPATH") + [f"old kind: {path}" for path in dynamic(file, "RPATH")]
    expected = RUN_PATH[Path(file).name]
    return [] if found == expected else [f"looks in {found}, not in {expected}"]


def hardening(file):
    """What keeps a mistake in the code from being of use to somebody."""
    table = run("readelf", "--dynamic", "--wide", file)
    segments = run("readelf", "--program-headers", "--wide", file)
    header = run("readelf", "--file-header", file)
    calls = run("nm", "--dynamic", "--undefined-only", "--format=posix", file)
    faults = {
        "does not bind all symbols when it is loaded": not re.search(r"\(FLAGS(_1)?\).*\bNOW\b", table),
        "leaves tables of addresses writable": "GNU_RELRO" not in segments,
        "is loaded at one address alone": not re.search(r"Type: +DYN\b", header),
        "changes its code when it is loaded": "TEXTREL" in table,
        "makes the stack executable": not re.search(r"GNU_STACK .* RW +0x", segments),
        "has memory both writable and executable": bool(re.search(r" RWE +0x", segments)),
        "does not guard the stack against overruns": not re.search(r"^__stack_chk_fail", calls, re.MULTILINE),
    }
    return [fault for fault, is_there in faults.items() if is_there]


def fortification(program, compile_commands):
    """Whether calls into the C library check how much room there is, and all sources are compiled for that."""
    faults = []
    calls = run("nm", "--dynamic", "--undefined-only", "--format=posix", program)
    if not re.search(r"^__(v?snprintf|v?fprintf|memcpy|strcpy)_chk\b", calls, re.MULTILINE):
        faults.append(f"{program}: no call into the C library is checked")
    units = [entry["command"] for entry in json.loads(Path(compile_commands).read_text())]
    units = [unit for unit in units if re.search(r" -c \S*/(libraries|plugins|applications)/\S*\.cpp", unit)]
    if not units:
        faults.append(f"{compile_commands}: no source of ours")
    for unit in units:
        source = unit.split(" -c ")[1]
        if not re.search(r" -fstack-protector-strong .* -c ", unit) or " -fno-stack-protector" in unit:
            faults.append(f"{source}: does not guard its stack")
        if not re.search(r" -D_FORTIFY_SOURCE=2 .* -c ", unit) \
                or re.search(r" -D_FORTIFY_SOURCE=2 .*(-U_FORTIFY|-O0)", unit):
            faults.append(f"{source}: does not check calls into the C library")
    return faults


def main():
    aspect, *files = sys.argv[1:]
    if aspect == "fortification":
        faults = fortification(*files)
    else:
        check = {"needed": needed, "run_path": run_path, "hardening": hardening}[aspect]
        faults = [f"{file}: {fault}" for file in files for fault in check(file)]
    if faults:
        sys.exit("\n".join(faults))


main()
