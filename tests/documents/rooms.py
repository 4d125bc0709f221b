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
    problems += [f"docs/architecture.md: {name}/ includes {one}, which is in no room above it"
                 for one in re.findall(r"`([^`]+)`", included) if one.split("/")[0] not in rooms]
    rooms[name] = re.findall(r"`([^`]+)`", included)
# A user who has installed a header has nothing else of ours.
alone = {one for included in rooms.values() for one in included if not one.endswith("/")}

files = [path for folder in ("libraries", "plugins", "applications") for path in sorted((sources / folder).rglob("*"))
         if re.fullmatch(r"\.(h|hh|hpp|hxx|c|cc|cpp|cxx|inc|ipp)", path.suffix)]
used = set()
for path in files:
    folder = path.parent.parent if path.parent.name == "source" else path.parent
    room = folder.name
    where = path.relative_to(sources)
    if room not in rooms:
        problems.append(f"{where}: docs/architecture.md has no room {room}/")
        continue
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if not re.match(r"\s*#\s*include", line):
            continue
        match = re.match(r'#include (?:"(\w+\.h|\w+\.moc)"|["<](\w+)/([\w./]+)[">]|<[\w.]+>)', line)
        own, other, header = match.groups() if match else (None, None, None)
        if not match or ".." in line or "/." in line:
            problems.append(f"{where}:{number}: write it as the others do: {line}")
        elif own and own.endswith(".h") and not (path.parent / own).exists():
            problems.append(f"{where}:{number}: there is no {own} in {room}/")
        elif other and other not in rooms and any(any(sources.glob(depth + other)) for depth in ("", "*/", "*/*/")):
            problems.append(f"{where}:{number}: {other}/ is no room")
        elif other in rooms and other != room:
            allowed = [one for one in rooms[room] if one in (f"{other}/{header}", other + "/")]
            used.update((room, one) for one in allowed)
            if not allowed:
                problems.append(f"{where}:{number}: {room}/ must not include {other}/{header}")
        if f"{room}/{path.name}" in alone and (own or other):
            problems.append(f"{where}:{number}: is installed alone, so it must not include {own or other}")

problems += [f"docs/architecture.md: {room}/ does not include {one}" for room, included in rooms.items()
             for one in included if (room, one) not in used]
if len(rooms) < 2 or not files:
    problems.append("there are no rooms to look at")
print("\n".join(problems) or f"{len(files)} files in {len(rooms)} rooms include what they may")
sys.exit(bool(problems))
