"""Holds the schemas of docs/schemas against the files that are committed, and against what the program itself takes.

    schemas.py SOURCES WORKPLACE

For each format stands a file that uses all of it. A row of the tables below puts another value somewhere into that
file, and the schema and the program must both take it, or both refuse it. What a schema cannot tell is said in its
description and stands in no row.
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

MISSING = object()  # the key is not there
NO_TEXT = [1, None]
NO_TRUTH = [0, "true"]
NO_NUMBER = ["1", 1.5]
NO_OBJECT = ["", []]
NO_LIST = ["", {}]


def without(*bounds):
    """No whole number, and numbers out of bounds."""
    return [*NO_NUMBER, *bounds]


# The columns of each table: where, what both take there, what both refuse there.

SEQUENCE = {
    "tool": {"name": "left bench", "serialNumber": "1", "validityDate": "2027-03-31"},
    "controller": "controller.json",
    "steps": [
        {"order": "init", "parameters": {}, "expect": {"doneOk": True}, "fails": False},
        {"order": "startListening"},
        {"await": "eventData", "of": "startListening", "value": 1, "within": 5},
        {"tighten": 1},
        {"trigger": 1},
        {"press": "reverse"},
        {"wait": 1},
    ],
}
SEQUENCE_ROWS = [
    ("unknown", [], [1]),
    ("tool", [{}, MISSING], NO_OBJECT),
    ("tool.name", ["", MISSING], NO_TEXT),
    ("tool.serialNumber", ["", MISSING], NO_TEXT),
    ("tool.validityDate", ["", "some day", MISSING], NO_TEXT),
    ("tool.unknown", [], [1]),
    ("controller", [MISSING], [*NO_TEXT, ""]),
    ("steps", [[]], [*NO_LIST, MISSING]),
    ("steps.0", [{"order": "init"}], [*NO_OBJECT, {}, {"order": "init", "wait": 1}, {"wait": 1, "tighten": 1}]),
    ("steps.0.order", [], [*NO_TEXT, MISSING]),
    ("steps.0.parameters", [MISSING], NO_OBJECT),
    ("steps.0.expect", [{}, MISSING], NO_OBJECT),
    ("steps.0.fails", [True, MISSING], NO_TRUTH),
    ("steps.0.unknown", [], [1]),
    ("steps.2.await", [], [*NO_TEXT, MISSING]),
    ("steps.2.of", [], [*NO_TEXT, MISSING]),
    ("steps.2.value", [None, 1.5, {}], [MISSING]),
    ("steps.2.within", [0, 86400000, MISSING], without(-1, 86400001)),
    ("steps.2.unknown", [], [1]),
    ("steps.3.tighten", [10000], without(0, 10001)),
    ("steps.3.unknown", [], [1]),
    ("steps.4.trigger", [10000], without(0, 10001)),
    ("steps.4.unknown", [], [1]),
    ("steps.5.press", [], [*NO_TEXT, "trigger"]),
    ("steps.5.unknown", [], [1]),
    ("steps.6.wait", [0, 86400000], without(-1, 86400001)),
    ("steps.6.unknown", [], [1]),
]


def preset_rows(preset):
    """The rows that set-ups and backups have in common; a torque of 2 to 99999 and an angle of 1 to 99999 are set."""
    return [
        ("presets", [], NO_OBJECT),
        ("presets.0", [{}], NO_OBJECT),
        ("presets.65535", [{}], []),
        ("presets.65536", [], [{}]),
        ("presets.70000", [], [{}]),
        ("presets.01", [], [{}]),
        ("presets.-1", [], [{}]),
        ("presets.a", [], [{}]),
        (f"{preset}.unknown", [], [1]),
        (f"{preset}.tcamActm", [0, 1, MISSING], without(-1, 2)),
        (f"{preset}.torque", [2, 99999, MISSING], without(0, 100001)),
        (f"{preset}.maxTorque", [100000], without(0, 100001)),
        (f"{preset}.snugTorque", [1], without(0, 100001)),
        (f"{preset}.targetAngle", [1, 99999, MISSING], without(0, 100001)),
        (f"{preset}.minAngle", [0, 1, MISSING], without(-1, 100001)),
        (f"{preset}.maxAngle", [100000], without(0, 100001)),
        (f"{preset}.speed", [1, 10000, MISSING], without(0, 10001)),
        (f"{preset}.freeSpeed", [1, 10000, MISSING], without(0, 10001)),
        (f"{preset}.maxTime", [1, 60000, MISSING], without(0, 60001)),
        ("parameters", [{}, MISSING], NO_OBJECT),
        ("parameters.language", [-2147483648, 2147483647], without(-2147483649, 2147483648)),
    ]


PRESETS = {
    "1": {
        "tcamActm": 0, "torque": 200, "maxTorque": 100000, "snugTorque": 1, "targetAngle": 90, "minAngle": 1,
        "maxAngle": 100000, "speed": 400, "freeSpeed": 800, "maxTime": 5000,
    },
}
BACKUP = {"presets": PRESETS, "parameters": {"language": 2}}
BACKUP_ROWS = [
    ("unknown", [], [1]),
    ("presets", [], [MISSING]),
    *preset_rows("presets.1"),
]

SETUP = {
    "identity": {"model": "ZRT", "serialNumber": "1", "firmware": "1.0"},
    "lock": 0,
    "screenLocked": False,
    "triggerMode": False,
    "reverse": False,
    "presets": PRESETS,
    "program": 1,
    "unwritablePresets": [7],
    "parameters": {"language": 2},
    "eventCount": 0,
    "screws": ["good"],
    "seed": 1,
    "replyTime": 5,
    "presetTime": 50,
    "connected": True,
    "faults": [
        {"kind": "late", "instruction": "setLock", "nth": 2, "delay": 5000},
        {"kind": "delay", "instruction": "setLock", "percent": 0, "delay": 5},
        {"kind": "missingKey", "instruction": "setLock", "nth": 2, "key": "lockStatus"},
        {"kind": "refused", "instruction": "setLock", "nth": 2},
    ],
}
SETUP_ROWS = [
    ("unknown", [], [1]),
    ("identity", [{}, MISSING], NO_OBJECT),
    ("identity.model", ["", MISSING], NO_TEXT),
    ("identity.serialNumber", ["", MISSING], NO_TEXT),
    ("identity.firmware", ["", MISSING], NO_TEXT),
    ("identity.unknown", [], [1]),
    ("lock", [2, MISSING], without(-1, 3)),
    ("screenLocked", [True, MISSING], NO_TRUTH),
    ("triggerMode", [True, MISSING], NO_TRUTH),
    ("reverse", [True, MISSING], NO_TRUTH),
    ("presets", [MISSING], []),
    ("program", [MISSING], without(-1, 65536)),
    ("unwritablePresets", [[], MISSING], NO_LIST),
    ("unwritablePresets.0", [0, 65535], without(-1, 65536)),
    ("eventCount", [2147483647, MISSING], without(-1, 2147483648)),
    ("screws", [[], MISSING], NO_LIST),
    ("screws.0", [], [*NO_TEXT, "bent"]),
    ("seed", [0, 9223372036854775807, MISSING], without(-1, 9223372036854775808)),
    ("replyTime", [0, 600000, MISSING], without(-1, 600001)),
    ("presetTime", [0, 600000, MISSING], without(-1, 600001)),
    ("connected", [False, MISSING], NO_TRUTH),
    ("faults", [[], MISSING], NO_LIST),
    ("faults.0", [], NO_OBJECT),
    ("faults.0.kind", [], [*NO_TEXT, MISSING, "boredom"]),
    ("faults.0.instruction", [], [*NO_TEXT, MISSING, "sing"]),
    ("faults.0.nth", [1, 2147483647], [*without(0, 2147483648), MISSING]),
    ("faults.0.percent", [], [1]),
    ("faults.0.delay", [4000, 600000, MISSING], without(3999, 600001)),
    ("faults.0.key", [], ["lockStatus"]),
    ("faults.0.unknown", [], [1]),
    ("faults.1.percent", [100], [*without(-1, 101), MISSING]),
    ("faults.1.delay", [0, 600000, MISSING], without(-1, 600001)),
    ("faults.2.kind", ["wrongType"], []),
    ("faults.2.key", [""], [*NO_TEXT, MISSING]),
    ("faults.2.delay", [], [5000]),
    ("faults.3.kind", ["loss", "duplicate", "disconnected"], ["missingKey", "wrongType"]),
    ("faults.3.delay", [], [5000]),
    ("faults.3.key", [], ["lockStatus"]),
    *preset_rows("presets.1"),
]

RECORDS = {"tools": {"left bench": {"serialNumber": "1", "validityDate": "2027-03-31", "alertBeforeExpiration": 7}}}
RECORDS_ROWS = [
    ("unknown", [], [1]),
    ("tools", [{}], [*NO_OBJECT, MISSING]),
    ("tools.left bench", [{}], NO_OBJECT),
    ("tools.left bench.serialNumber", ["", MISSING], NO_TEXT),
    ("tools.left bench.validityDate", ["", None, MISSING],
     [1, True, [], {}, "soon", "2027-3-31", "2027-13-01", "2027-00-01", "2027-01-32", "2027-01-00", "20270331",
      "2027-03-31T12:00:00", "12027-03-31"]),
    ("tools.left bench.alertBeforeExpiration", [0, 2147483647, MISSING], without(-1, 2147483648)),
    ("tools.left bench.unknown", [], [1]),
]

# A replay reads the whole trace before it begins; what comes of this one is no matter.
TRACE = [
    {"time": 0, "event": "begin", "format": 1, "plugin": "Plugin Tool ZRT", "version": "1.0", "controller": "ZRT 1",
     "start": "2000-01-01T00:00:00.000"},
    {"time": 0, "event": "order", "order": 1, "command": "init", "parameters": {"a": 1}},
    {"time": 0, "event": "instruction", "order": 1, "instruction": 1, "target": "device", "name": "getInfo",
     "arguments": {"a": 1}, "timeAllowance": 4000},
    {"time": 0, "event": "notDelivered", "order": 1, "instruction": 1, "name": "getInfo", "reason": "gone",
     "goesOn": False},
    {"time": 0, "event": "withdrawn", "order": 1, "instruction": 1},
    {"time": 0, "event": "reply", "order": 1, "instruction": 1, "reply": {"a": 1}},
    {"time": 0, "event": "dropped", "order": 1, "instruction": 1},
    {"time": 0, "event": "result", "order": 1, "key": "doneOk", "value": True},
    {"time": 0, "event": "finished", "order": 1, "command": "init", "success": False, "message": "why"},
    {"time": 0, "event": "unexpected", "order": 1, "key": "doneOk", "expected": True, "actual": False},
    {"time": 0, "event": "person", "action": "pulls the trigger", "effect": "but the tool is locked"},
    {"time": 0, "event": "waitFailed", "message": "why"},
    {"time": 0, "event": "log", "level": "info", "text": "a"},
    {"time": 0, "event": "stop", "command": "stopListening", "running": 0},
    {"time": 0, "event": "stopAll", "running": 0},
    {"time": 0, "event": "end", "done": 1, "failed": 0, "notRun": 0, "droppedReplies": 0},
]
COUNT = ([9223372036854775807], without(-1, 9223372036854775808))
NUMBER = ([0, 2147483647], without(-1, 2147483648))
TEXT = ([""], NO_TEXT)
OBJECT = ([{}, {"@type": "QVariantMap", "@value": {"@type": 1}}], [*NO_OBJECT, {"@type": "uint", "@value": 7}])
VALUE = ([None, -1.5, "", [1, {}], {"a": []}, {"@type": "uint", "@value": 7}, [{"@type": "QStringList", "@value": []}]],
         [{"@type": "uint"}, {"@type": 1, "@value": 7}, {"@type": "uint", "@value": 7, "a": 1}, [{"@type": "uint"}],
          {"a": {"@type": "uint"}}])
TRACE_COLUMNS = {
    "time": ([], without(-1, 9007199254740993)),
    "event": ([], [*NO_TEXT, "nothing"]),
    "format": ([], without(0, 2)),
    "start": (["1999-12-31T23:59:59.999"],
              [*NO_TEXT, "", "2000-01-01", "2000-01-01T00:00:00", "2000-13-01T00:00:00.000", "2000-01-32T00:00:00.000",
               "2000-01-01T24:00:00.000", "2000-01-01T00:60:00.000", "2000-01-01T00:00:60.000",
               "2000-01-01T00:00:00.000Z"]),
    **dict.fromkeys(["plugin", "version", "controller", "target", "name", "reason", "key", "message", "action",
                     "effect", "text"], TEXT),
    "command": ([], NO_TEXT),
    "level": (["debug", "info", "warning", "critical", "fatal"], NO_TEXT),
    **dict.fromkeys(["order", "instruction", "droppedReplies"], COUNT),
    "timeAllowance": ([-2147483648, 2147483647], without(-2147483649, 2147483648)),
    **dict.fromkeys(["running", "done", "failed", "notRun"], NUMBER),
    "goesOn": ([False], NO_TRUTH),
    "success": ([], NO_TRUTH),
    **dict.fromkeys(["parameters", "arguments", "reply"], OBJECT),
    **dict.fromkeys(["value", "expected", "actual"], VALUE),
}


def trace_rows():
    """Every key of every line, with what the column of its name says; and what is no line at all."""
    for index, line in enumerate(TRACE):
        for key in line:
            right, wrong = TRACE_COLUMNS[key]
            if key in ("order", "instruction") and (line["event"] == "order" or "instruction" in line):
                right = []  # a replay counts along
            if key == "effect":
                right = [*right, MISSING]
            elif (line["event"], key) != ("finished", "message"):
                wrong = [*wrong, MISSING]
            yield f"{index}.{key}", right, wrong
        yield f"{index}.unknown", [], [1]
        yield f"{index}", [], NO_OBJECT


def changed(content, path, value):
    """The content with another value at the path."""
    content = copy.deepcopy(content)
    *parents, last = path.split(".")
    place = content
    for key in parents:
        place = place[int(key) if isinstance(place, list) else key]
    key = int(last) if isinstance(place, list) else last
    if value is MISSING:
        del place[key]
    else:
        place[key] = value
    return content


class Format:
    """A file format: its schema, the file that uses all of it, its rows, and how the program is asked about a file."""

    def __init__(self, schema, sample, rows, ask):
        self.name = schema
        self.validator = validator(schema)
        self.sample = sample
        self.rows = rows
        self.ask = ask

    def schema_refuses(self, content):
        if self.name == "trace_line":
            return any(not self.validator.is_valid(line) for line in content)
        return not self.validator.is_valid(content)

    def text(self, content):
        if self.name == "trace_line":
            return "".join(json.dumps(line) + "\n" for line in content)
        return json.dumps(content)


def schema_file(name):
    return sources / "docs/schemas" / f"{name}.schema.json"


def read_schema(name):
    return json.loads(schema_file(name).read_text())


def validator(name):
    schema = read_schema(name)
    jsonschema.Draft202012Validator.check_schema(schema)
    resolver = jsonschema.RefResolver(schema_file(name).as_uri(), schema)
    return jsonschema.Draft202012Validator(schema, resolver=resolver)


def workplace(*arguments):
    done = subprocess.run([program, *map(str, arguments)], capture_output=True, text=True, check=False)
    if done.returncode not in (0, 1, 2):
        sys.exit(f"workplace {arguments} ended with {done.returncode}: {done.stderr}")
    return done


# Each answers what the program complains of in a file, or nothing.


def run_complaint(*arguments):
    return workplace("run", *arguments).stderr


def backup_complaint(file):
    """A controller finds out about a backup when it is restored; what is wrong with it is the answer then."""
    order = {"order": "restore", "parameters": {"filePath": str(file)}}
    done = {"await": "statusData", "of": "restore", "value": {"state": "done"}, "within": 9000}
    sequence = file.with_suffix(".sequence.json")
    sequence.write_text(json.dumps({"steps": [order, done]}))
    restored = workplace("run", sequence)
    return "" if restored.returncode == 0 else restored.stdout + restored.stderr


def records_complaint(file):
    """A record that is not usable is told of and taken as absent; a day that is none alerts."""
    shown = workplace("inspect", "--json", "--records", file)
    return shown.stderr + "".join(re.findall('"state":"unreadable"', shown.stdout))


def show(value):
    return "no such key" if value is MISSING else json.dumps(value)


def check_rows(form):
    """The schema and the program agree about the file with every row's change."""
    cases = [(None, None, form.sample, False)]
    for path, right, wrong in form.rows:
        cases += [(path, value, changed(form.sample, path, value), False) for value in right]
        cases += [(path, value, changed(form.sample, path, value), True) for value in wrong]

    def ask(number_and_case):
        number, (_, _, content, _) = number_and_case
        file = scratch / f"{form.name}_{number}.json"
        file.write_text(form.text(content))
        return form.ask(file)

    # Only the program is asked by several threads: a validator serves one at a time.
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        complaints = list(pool.map(ask, enumerate(cases)))
    problems = []
    for (path, value, content, is_wrong), complaint in zip(cases, complaints):
        where = f"{form.name}: the file as it stands" if path is None else f"{form.name}: {path} = {show(value)}"
        if form.schema_refuses(content) != is_wrong:
            problems.append(f"{where}: the schema {'takes' if is_wrong else 'refuses'} it")
        if bool(complaint) != is_wrong:
            problems.append(f"{where}: the program {'takes' if is_wrong else 'refuses'} it\n    {complaint.strip()}")
    print(f"{form.name}: {len(cases)} files")
    return problems


def check_known(form, path, value, names):
    """The program, when it meets this value, names as known what the schema has."""
    file = scratch / f"{form.name}_known.json"
    file.write_text(form.text(changed(form.sample, path, value)))
    known = re.search(r"(?:known are|one of the keys) ([\w, ]+)", form.ask(file))
    told = re.findall(r"\w+", known[1]) if known else []
    if sorted(told) == sorted(names):
        return []
    return [f"{form.name}: {path}: the program knows {told}, the schema {names}"]


def committed():
    """Every committed file with the schema it has to keep, JSON lines one by one."""
    examples = sources / "applications/AppWorkplace/examples"
    for file in sorted(examples.rglob("*.json")):
        content = json.loads(file.read_text())
        if "steps" in content:
            yield file, "sequence", [content]
        elif "tools" in content:
            yield file, "maintenance", [content]
        else:
            yield file, "backup" if "backup" in file.name else "controller", [content]
    for page, schema in [("sequences.md", "sequence"), ("maintenance.md", "maintenance")]:
        for block in re.findall(r"```json\n(.*?)```", (sources / "docs" / page).read_text(), re.DOTALL):
            yield sources / "docs" / page, schema, [json.loads(block)]
    for folder in [examples / "traces", sources / "tests/data/workplace"]:
        for file in sorted(folder.rglob("*.jsonl")):
            if file.name != "inspect.jsonl":  # describes the library, not a run
                yield file, "trace_line", [json.loads(line) for line in file.read_text().splitlines()]


def check_committed():
    problems = []
    counts = {}
    for file, schema, contents in committed():
        check = validator(schema)
        counts[schema] = counts.get(schema, 0) + len(contents)
        for number, content in enumerate(contents, 1):
            where = f"{file.relative_to(sources)}: {number}"
            problems += [f"{where}: {error.message}" for error in check.iter_errors(content)]
    print("committed:", ", ".join(f"{count} {schema}" for schema, count in counts.items()))
    wanted = {"sequence", "controller", "backup", "maintenance", "trace_line"}
    return problems + [f"no committed file has the schema {name}" for name in wanted - counts.keys()]


def check_programs_lists(sequence, setup, backup, records):
    """The names that the program knows, all of them."""
    step = read_schema("sequence")["$defs"]
    fault = read_schema("controller")["$defs"]["fault"]["properties"]
    root = read_schema("controller")["properties"]
    preset = read_schema("presets")["additionalProperties"]["properties"]
    record = read_schema("maintenance")["properties"]["tools"]["additionalProperties"]["properties"]
    steps = [one["$ref"].split("/")[-1] for one in step["step"]["oneOf"]]
    lists = [
        (sequence, "unknown", 1, read_schema("sequence")["properties"]),
        (sequence, "tool.unknown", 1, step["tool"]["properties"]),
        (sequence, "steps.0", {}, steps),
        (sequence, "steps.0.unknown", 1, step["order"]["properties"]),
        (sequence, "steps.2.unknown", 1, step["await"]["properties"]),
        (setup, "unknown", 1, root),
        (setup, "identity.unknown", 1, root["identity"]["properties"]),
        (setup, "screws.0", "bent", root["screws"]["items"]["enum"]),
        (setup, "faults.0.unknown", 1, fault),
        (setup, "faults.0.kind", "boredom", fault["kind"]["enum"]),
        (setup, "faults.0.instruction", "sing", fault["instruction"]["enum"]),
        (setup, "presets.1.unknown", 1, preset),
        (backup, "unknown", 1, read_schema("backup")["properties"]),
        (records, "unknown", 1, read_schema("maintenance")["properties"]),
        (records, "tools.left bench.unknown", 1, record),
    ]
    problems = [problem for form, *row in lists for problem in check_known(form, row[0], row[1], list(row[2]))]

    # The program does not list its events; what writes them does, and the page about them.
    events = read_schema("trace_line")["properties"]["event"]["enum"]
    written = (sources / "applications/AppWorkplace/source/trace/event_json.cpp").read_text()
    told = (sources / "docs/traces.md").read_text().split("|---|---|", 1)[1]
    for where, found in [
        ("the program writes", re.findall(r'\{"event", "(\w+)"\}', written)),
        ("docs/traces.md tells of", re.findall(r"^\| `(\w+)`", told, re.MULTILINE)),
        ("this test has", [line["event"] for line in TRACE]),
    ]:
        if sorted(found) != sorted(events):
            problems.append(f"trace_line: {where} {sorted(found)}, the schema has {sorted(events)}")
    return problems


def main():
    (scratch / "controller.json").write_text("{}")
    init = scratch / "init.json"
    init.write_text(json.dumps({"steps": [{"order": "init"}]}))
    sequence = Format("sequence", SEQUENCE, SEQUENCE_ROWS, run_complaint)
    setup = Format("controller", SETUP, SETUP_ROWS, lambda file: run_complaint(init, "--controller", file))
    backup = Format("backup", BACKUP, BACKUP_ROWS, backup_complaint)
    records = Format("maintenance", RECORDS, RECORDS_ROWS, records_complaint)
    trace = Format("trace_line", TRACE, list(trace_rows()), lambda file: workplace("replay", file).stderr)
    problems = check_committed()
    for form in (sequence, setup, backup, records, trace):
        problems += check_rows(form)
    problems += check_programs_lists(sequence, setup, backup, records)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sources, program = Path(sys.argv[1]).resolve(), sys.argv[2]
    with tempfile.TemporaryDirectory() as folder:
        scratch = Path(folder)
        sys.exit(main())
