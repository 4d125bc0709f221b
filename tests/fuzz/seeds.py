"""Writes what the fuzzer of files begins with: the samples of all formats, changed in one place at a time.

    seeds.py SOURCES FOLDER

The inputs stand in FOLDER/files, and FOLDER/all.txt has their names.
"""
import json
import shutil
import sys
from pathlib import Path

sources, folder = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).resolve()
sys.path.append(str(sources / "tests/documents"))
import schemas  # noqa: E402  (found by the line before)

# The first byte of an input says as what the rest is read.
FORMATS = ["sequence", "controller", "backup", "maintenance", "trace_line"]

shutil.rmtree(folder, ignore_errors=True)
(folder / "files").mkdir(parents=True)
schemas.sources = sources
schemas.complete_samples()
names = []
for kind, name in enumerate(FORMATS):
    for number, (_, content) in enumerate(schemas.cases(name)):
        file = folder / "files" / f"{name}_{number}"
        text = "\n".join(json.dumps(line) for line in schemas.lines(name, content))
        file.write_bytes(bytes([kind]) + text.encode())
        names.append(str(file))
(folder / "all.txt").write_text(",".join(names))
