"""Follows docs/your-own-host.md: builds and installs the plugin alone with the page's own commands, against the installed
stand-in, and looks at what comes of it.

    sdk_consumer.py SOURCES CMAKE BUILD COMPILER FOLDER
"""
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

sources, cmake, build, compiler, folder = sys.argv[1:]
folder = Path(folder)
page = Path(sources, "docs/your-own-host.md").read_text()


def run(*words, fails=False):
    done = subprocess.run(words, cwd=folder, text=True, check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if (done.returncode != 0) != fails:
        sys.exit(f"{shlex.join(words)} ended with {done.returncode}:\n{done.stdout}")
    return done.stdout


def libraries(place):
    return [file for file in (folder / place).rglob("*") if file.suffix in (".so", ".a") or file.name == "workplace"]


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
for place in ("framework", "installed", "without", "installed_controller"):
    shutil.rmtree(folder / place, ignore_errors=True)
for command in [framework, configure + f" -DCMAKE_CXX_COMPILER={compiler}", *rest]:
    run(*[given.get(word, word) for word in shlex.split(command.replace("\\\n", ""))])

# The plugin alone is built and installed, and what is installed is what was built.
files = [file for file in (folder / "installed").rglob("*") if file.is_file()]
built = libraries("build")
print("installed:", *files)
if [file.name for file in files] != ["libp_tool_vesk_zrt.so"] or len(built) != 1:
    sys.exit(f"that is not the plugin alone; built were {built}")
if files[0].read_bytes() != built[0].read_bytes():
    sys.exit("the installed plugin is not the one that was built")

# It loads where the framework is, with the interface identifier that the page promises.
inspected = run(f"{folder}/framework/bin/workplace", "inspect", "--plugin", str(files[0]))
if "\nInterface   com.acme.rd.box.PToolVeskZrt\n" not in inspected:
    sys.exit(f"that is not what the page promises:\n{inspected}")

# Who forgets the framework is told.
alone = [cmake, "-S", sources, f"-DCMAKE_CXX_COMPILER={compiler}", "-DZRT_BUNDLED_SDK=OFF"]
if "WorkstationSdkConfig.cmake" not in run(*alone, "-B", "without", fails=True):
    sys.exit("without the framework, CMake does not say what is missing")

# The simulated controller comes along if it is asked for, as docs/controller.md has it. It is not run.
run(*alone, "-B", "controller", f"-DCMAKE_PREFIX_PATH={folder}/framework", "-DZRT_SIMULATED_CONTROLLER=ON",
    "-DCMAKE_BUILD_TYPE=Debug", "-DZRT_WARNINGS_AS_ERRORS=ON")
run(cmake, "--build", "controller", "--target", "zrt_controller")
run(cmake, "--install", "controller", "--component", "controller", "--prefix", "installed_controller")
if "libzrt_controller.so" not in [file.name for file in libraries("installed_controller")]:
    sys.exit("the simulated controller is not installed")
