"""Holds every #include of the sources against the table of rooms in docs/architecture.md.

    rooms.py SOURCES
"""
import re
import sys
from pathlib import Path

sources = Path(sys.argv[1])
page = (sources / "docs/architecture.md").read_text()
problems = []

# A room may include whole rooms, "files/", and single headers, "zrt_controller/zrt_simulated_controller.h".
rooms = {}
for name, included in re.findall(r"^\| `(\w+)/` \|[^|]*\|([^|]*)\|[^|]*\|$", page, re.MULTILINE):
    rooms[name] = re.findall(r"`([^`]+)`", included)
    problems += [f"docs/architecture.md: {name}/ includes {one}, which is no room above it" for one in rooms[name]
                 if one.split("/")[0] not in list(rooms)[:-1]]

files = [path for folder in ("libraries", "plugins", "applications") for path in sorted((sources / folder).rglob("*"))
         if path.suffix in (".h", ".cpp")]
seen = set()
for path in files:
    folder = path.parent.parent if path.parent.name == "source" else path.parent
    room = folder.name
    where = path.relative_to(sources)
    if room not in rooms:
        problems.append(f"{where}: docs/architecture.md has no room {room}/")
        continue
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = re.match(r'#include ([<"])([^>"]+)', line)
        if not match:
            continue
        bracket, header = match.groups()
        other = header.split("/")[0] if "/" in header else room
        if bracket == '"' and "/" not in header and not (path.parent / header).exists():
            problems.append(f"{where}:{number}: there is no {header} in {room}/")
        if other not in rooms or other == room:
            continue
        allowed = [one for one in rooms[room] if one in (header, other + "/")]
        seen.update((room, one) for one in allowed)
        if not allowed:
            problems.append(f"{where}:{number}: {room}/ must not include {header}")

problems += [f"docs/architecture.md: {room}/ does not include {one}" for room, included in rooms.items()
             for one in included if (room, one) not in seen]
if len(rooms) < 2 or not files:
    problems.append("there are no rooms to look at")
print("\n".join(problems) or f"{len(files)} files in {len(rooms)} rooms include what they may")
sys.exit(bool(problems))
