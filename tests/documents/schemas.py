"""Shows with a validator of its own that the schemas of docs/schemas take what the program takes.

    schemas.py SOURCES WORKPLACE

Every committed file fits its schema. For each format there is a sample, to which the keys are added that it lacks. It
is changed in one place at a time, and schema and program must both take it, or both refuse it.
"""
import copy
import json
import os
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import jsonschema

MISSING = object()  # the key is taken away

PRESETS = {"1": {"tcamActm": 0, "torque": 200, "maxTorque": 260, "snugTorque": 40, "targetAngle": 90, "minAngle": 1,
                 "maxAngle": 300, "speed": 400, "freeSpeed": 800, "maxTime": 5000}}
SAMPLES = {
    "sequence": {
        "tool": {"name": "left bench", "serialNumber": "1", "validityDate": "2027-03-31"},
        "controller": "controller.json",
        "steps": [
            {"order": "init", "parameters": {}, "expect": {"doneOk": True}, "fails": False},
            {"order": "startListening"},
            {"await": "eventData", "of": "startListening", "value": None, "within": 5},
            {"tighten": 1}, {"trigger": 1}, {"press": "reverse"}, {"wait": 1},
        ],
    },
    "backup": {"presets": PRESETS, "parameters": {"language": 2}},
    "controller": {
        "presets": PRESETS, "unwritablePresets": [7], "parameters": {"language": 2}, "screws": ["good"],
        "faults": [
            {"kind": "late", "instruction": "setLock", "nth": 2, "delay": 5000},
            {"kind": "delay", "instruction": "setLock", "percent": 0, "delay": 5},
            {"kind": "missingKey", "instruction": "setLock", "nth": 2, "key": "lockStatus"},
            {"kind": "refused", "instruction": "setLock", "nth": 2},
        ],
    },
    "maintenance": {"tools": {"left": {"serialNumber": "1", "validityDate": "2027-03-31", "alertBeforeExpiration": 7}}},
    "trace_line": [
        {"event": "begin", "format": 1, "start": "2000-01-01T00:00:00.000"},
        {"event": "order", "order": 1, "command": "init", "parameters": {"a": 1}},
        {"event": "instruction", "order": 1, "instruction": 1, "target": "device", "timeAllowance": 4000},
        {"event": "notDelivered", "order": 1, "instruction": 1}, {"event": "withdrawn", "order": 1, "instruction": 1},
        {"event": "reply", "order": 1, "instruction": 1, "reply": {"a": 1}},
        {"event": "dropped", "order": 1, "instruction": 1},
        {"event": "result", "order": 1, "key": "doneOk", "value": True},
        {"event": "finished", "order": 1, "command": "init", "success": False, "message": "why"},
        {"event": "unexpected", "order": 1, "key": "doneOk", "expected": True, "actual": False},
        {"event": "person", "effect": "but the tool is locked"}, {"event": "waitFailed"},
        {"event": "log", "level": "info"}, {"event": "stop", "command": "stopListening"}, {"event": "stopAll"},
        {"event": "end"},
    ],
}
# What changes of every kind leave out.
ALSO = {
    "sequence": [(("controller",), ""), (("steps", 0), {}), (("steps", 0), {"wait": 1, "tighten": 1}),
                 (("steps", 5, "press"), "trigger"), (("$schema",), "sequence.schema.json"), (("$schema",), 1)],
    "backup": [(("presets", "65536"), {}), (("presets", "01"), {}), (("presets", "65535"), {})],
    "controller": [(("faults", 0, "delay"), 3999), (("faults", 1, "key"), "a"), (("faults", 3, "delay"), 5000),
                   (("faults", 0, "percent"), 1), (("faults", 2, "key"), ""), (("faults", 3, "kind"), "wrongType"),
                   (("screws", 0), "bent"), (("faults", 0, "kind"), "boredom"), (("faults", 0, "instruction"), "sing")],
    "maintenance": [(("tools", "left", "validityDate"), text)
                    for text in ("", "soon", "2027-3-31", "2027-13-01", "2027-01-32", "20270331", "12027-03-31")],
    "trace_line": [((7, "value"), {"@type": "uint"}), ((7, "value"), [{"@type": 1, "@value": 7}]),
                   ((7, "value"), [{"@type": "uint", "@value": 7}]),
                   ((7, "value"), {"a": {"@type": "uint", "@value": 7, "a": 1}}), ((2, "timeAllowance"), -5),
                   ((5, "reply"), {"@type": "uint", "@value": 7}), ((5, "reply"), {"@type": "QVariantMap", "@value": {}}),
                   ((0, "start"), "2000-01-01T24:00:00.000"), ((0, "start"), "2000-01-01"), ((0, "format"), 2),
                   ((12, "level"), "loud"), ((1, "event"), "nothing"), ((0, "$schema"), "trace_line.schema.json")],
}
# Keys that are names of something.
NAMES = {"1", "language", "left", "a"}
# The values of these depend on the plugin, which no schema knows.
OF_THE_PLUGIN = {"expect", "parameters"}


def places(value, path=()):
    """The paths of everything within a value."""
    yield path
    if isinstance(value, dict):
        for key, inner in value.items():
            yield from places(inner, (*path, key))
    elif isinstance(value, list):
        for index, inner in enumerate(value):
            yield from places(inner, (*path, index))


def inside(content, path):
    for key in path:
        content = content[key]
    return content


def changed(content, path, value):
    if not path:
        return value
    content = copy.deepcopy(content)
    parent = inside(content, path[:-1])
    if value is MISSING:
        del parent[path[-1]]
    else:
        parent[path[-1]] = value
    return content


def bounds(key):
    """The least and the greatest number that any schema allows under a key, and those next to them."""
    numbers = set()
    for file in (sources / "docs/schemas").iterdir():
        schema = json.loads(file.read_text())
        for path in places(schema):
            part = inside(schema, path)
            if path[-2:] == ("properties", key) and isinstance(part, dict) and "maximum" in part:
                numbers |= {part["minimum"] - 1, part["minimum"], part["maximum"], part["maximum"] + 1}
    return sorted(numbers)


def read_schema(name):
    return json.loads((sources / "docs/schemas" / f"{name}.schema.json").read_text())


def complete(content, schema):
    """Adds what the schema of an object has and the object has not, so that each key is tried."""
    for key, part in schema["properties"].items():
        if "default" in part:
            content.setdefault(key, copy.deepcopy(part["default"]))
        elif key in schema.get("required", []):
            content.setdefault(key, {"integer": 0, "boolean": False, "string": ""}.get(part.get("type"), {}))
        if key in content and part.get("type") == "object" and "properties" in part:
            complete(content[key], part)


def complete_samples():
    for name in ("sequence", "backup", "controller", "maintenance"):
        complete(SAMPLES[name], read_schema(name))
    kinds = {kind["properties"]["event"]["const"]: kind for kind in read_schema("trace_line")["oneOf"]}
    for line in SAMPLES["trace_line"]:
        line["time"] = 0
        complete(line, kinds.pop(line["event"]))
    return [f"trace_line: the sample lacks the event {name}" for name in kinds]


def changes(name):
    """Where, and what stands there instead: other kinds of values, numbers out of bounds, a key less, a key more."""
    sample = SAMPLES[name]
    yield from ALSO[name]
    seen = set()  # of the keys of a trace's lines, which mean the same in each
    for path in places(sample):
        value = inside(sample, path)
        key = path[-1] if path else None
        if name == "trace_line" and not path:
            continue
        if isinstance(key, str) and key not in NAMES:
            yield path, MISSING
        if isinstance(value, dict) and not (name == "sequence" and OF_THE_PLUGIN & set(path)):
            yield (*path, "unknown"), 1
        if name == "trace_line" and key in seen:
            continue
        seen.add(key)
        yield from ((path, other) for other in (None, True, "a", {}) if not isinstance(value, type(other)))
        if isinstance(value, int) and not isinstance(value, bool):
            yield from ((path, number) for number in (1.5, *bounds(key)))


def cases(name):
    """The sample and what comes of its changes, each with what was changed."""
    sample = SAMPLES[name]
    yield "the file as it stands", sample
    for path, value in changes(name):
        change = "no such key" if value is MISSING else json.dumps(value)
        yield f"{path} = {change}", changed(sample, path, value)


def validator(name):
    file = sources / "docs/schemas" / f"{name}.schema.json"
    schema = read_schema(name)
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema, resolver=jsonschema.RefResolver(file.as_uri(), schema))


def lines(name, content):
    return content if name == "trace_line" else [content]


def workplace(*arguments):
    done = subprocess.run([program, *map(str, arguments)], capture_output=True, text=True, check=False)
    if done.returncode not in (0, 1, 2):
        sys.exit(f"workplace {arguments} ended with {done.returncode}: {done.stderr}")
    return done


def complaint(name, file):
    """What the program complains of in a file, or nothing."""
    if name == "sequence":
        return workplace("run", file).stderr
    if name == "controller":
        return workplace("run", scratch / "init.json", "--controller", file).stderr
    if name == "trace_line":  # a replay reads the whole trace before it begins; what comes of this one is no matter
        return workplace("replay", file).stderr
    if name == "maintenance":  # a record that is not usable is told and taken as absent; a day that is none alerts
        shown = workplace("inspect", "--json", "--records", file)
        return shown.stderr + "".join(re.findall('"state":"unreadable"', shown.stdout))
    # A controller finds out about a backup when it is restored.
    sequence = file.with_suffix(".sequence.json")
    sequence.write_text(json.dumps({"steps": [
        {"order": "restore", "parameters": {"filePath": str(file)}},
        {"await": "statusData", "of": "restore", "value": {"state": "done"}, "within": 9000}]}))
    restored = workplace("run", sequence)
    return "" if restored.returncode == 0 else restored.stdout + restored.stderr


def check(name):
    files = list(cases(name))

    def ask(number):
        file = scratch / f"{name}_{number}.json"
        file.write_text("\n".join(json.dumps(line) for line in lines(name, files[number][1])) + "\n")
        return complaint(name, file)

    # Only the program is asked by several threads: a validator serves one at a time.
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        complaints = list(pool.map(ask, range(len(files))))
    schema = validator(name)
    problems = []
    refused = 0
    for (where, content), said in zip(files, complaints):
        fits = all(schema.is_valid(line) for line in lines(name, content))
        refused += not fits
        # A number within its bounds may not go with the others, which no schema can say.
        is_within = where.rpartition(" ")[2].isdigit() and "whole number" not in said
        if fits == bool(said) and not (fits and is_within):
            problems.append(f"{name}: {where}: the schema {'takes' if fits else 'refuses'} it, the program says: {said}")
    print(f"{name}: {len(files)} files, {refused} of them wrong")
    if not 0 < refused < len(files) - 1:
        problems.append(f"{name}: the files are all right or all wrong")
    return problems


def committed():
    """Every committed file with the schema that it has to keep."""
    examples = sources / "applications/AppWorkplace/examples"
    for file in sorted(examples.rglob("*.json")):
        content = json.loads(file.read_text())
        kind = "sequence" if "steps" in content else "maintenance" if "tools" in content else "controller"
        yield file, "backup" if "backup" in file.name else kind, content
    for page, schema in [("sequences.md", "sequence"), ("maintenance.md", "maintenance")]:
        for block in re.findall(r"```json\n(.*?)```", (sources / "docs" / page).read_text(), re.DOTALL):
            yield sources / "docs" / page, schema, json.loads(block)
    for file in sorted((examples / "traces").rglob("*.jsonl")):
        yield file, "trace_line", [json.loads(line) for line in file.read_text().splitlines()]


def check_committed():
    validators = {name: validator(name) for name in SAMPLES}
    problems = []
    seen = set()
    for file, name, content in committed():
        seen.add(name)
        problems += [f"{file.relative_to(sources)}: {error.message}" for line in lines(name, content)
                     for error in validators[name].iter_errors(line)]
    return problems + [f"no committed file has the schema {name}" for name in SAMPLES.keys() - seen]


def main():
    (scratch / "controller.json").write_text("{}")
    (scratch / "init.json").write_text(json.dumps({"steps": [{"order": "init"}]}))
    problems = complete_samples() + check_committed()
    for name in SAMPLES:
        problems += check(name)
    print("\n".join(problems))
    return bool(problems)


if __name__ == "__main__":
    sources, program = Path(sys.argv[1]).resolve(), sys.argv[2]
    with tempfile.TemporaryDirectory() as folder:
        scratch = Path(folder)
        sys.exit(main())
