"""Holds docs/log-lines.md against the plugin's sources: each has every log line of the other.

    log_lines.py SOURCES
"""
import re
import sys
from pathlib import Path

# A call of a helper: the line that it hands on, and what is streamed.
ERROR = r"errorLine\([^;()]*, *([^;(),]*)\)\s*<<\s*([^;]*);"
INFO = r"infoLine\(\)\s*<<\s*([^;]*);"

sources = Path(sys.argv[1])
folder = sources / "plugins/p_tool_vesk_zrt/source"
files = {file.name: file.read_text() for file in sorted(folder.glob("*.cpp")) + sorted(folder.glob("*.h"))}
# The helpers themselves; nobody else writes into the log.
del files["zrt_log.cpp"], files["zrt_log.h"]
texts = {name: text for code in files.values() for name, text in re.findall(r'char const\* (c_\w+) = "(.*)";', code)}


def message(stream):
    """What is streamed, as it reads in the log; what differs from line to line is an ellipsis."""
    pieces = [re.sub(r"^zrt::", "", piece.strip()) for piece in stream.split("<<")]
    pieces = [piece[1:-1] if piece.startswith('"') else texts.get(piece, "…") for piece in pieces]
    return " ".join(pieces)


def errors():
    """The error lines of the sources: file, line as the page writes it, message."""
    streams = {}  # by the name under which the line is handed on
    handed_on = []
    for name, code in files.items():
        constants = dict(re.findall(r"constexpr int (c_\w+Line) = (\d+);", code))
        for found in re.finditer(ERROR, code):
            line, text = found[1], message(found[2])
            if line == "__LINE__":
                number = code.count("\n", 0, found.start(1)) + 1
                yield name, str(number), text
            elif line in constants:
                yield name, f"{constants.pop(line)} fixed", text
            else:
                streams[line] = text
        handed_on += [(name, number, "line") for number in constants.values()]
        for pair in re.findall(r"constexpr zrt::EventLines \w+\{(\d+), (\d+)\};", code):
            handed_on += zip((name, name), pair, ("lines.invalidReply", "lines.unmanagedFormat"))
    for name, number, line in handed_on:
        yield name, f"{number} fixed", streams.get(line, "what was not understood")


def found_in_code(pattern):
    """File and groups of everything in the sources that is like this."""
    return [(name, *found.groups()) for name, code in files.items() for found in re.finditer(pattern, code)]


def rows(header, columns):
    """The first columns of the table with this header."""
    table = page.split(f"\n{header}\n")[1].split("\n\n")[0].splitlines()[1:]
    return [tuple(cell.strip("`") for cell in row.strip("| ").split(" | ")[:columns]) for row in table]


page = (sources / "docs/log-lines.md").read_text()
problems = []


def compare(what, code, told):
    print(f"{what}: {len(told)}")
    problems.extend(f"{what}: the page has nothing about {' '.join(one)}" for one in code if one not in told)
    problems.extend(f"{what}: the sources have nothing of {' '.join(one)}" for one in told if one not in code)
    if len(told) != len(set(told)):
        problems.append(f"{what}: one of them stands twice on the page")


compare("error lines", list(errors()), rows("| source | line | message | when | what to do |", 3))
info = [(name, message(stream)) for name, stream in found_in_code(INFO)]
compare("info lines", info, rows("| source | message | when |", 2))
codes = [found[1:] for found in found_in_code(r'\{(\d+), QStringLiteral\("(.*)"\)\}')]
compare("error codes", codes, rows("| code | text | look at |", 2))
compare("traces", found_in_code(r'trace(?:Reply|Life)\(\*this, "(\w+)"'), rows("| source | trace |", 2))

# What is written in a way that the expressions above do not know would be passed over.
for known, every in [(ERROR, "errorLine"), (INFO, "infoLine"), (r"trace\w+\(\*this, \"\w+\"", "traceReply|traceLife")]:
    if len(found_in_code(known)) != len(found_in_code(rf"\b(?:{every})\(")):
        problems.append(f"{every}: not all calls were understood")
for name, *_ in found_in_code(r"\bq(?:Debug|Info|Warning|Critical|Fatal|CDebug)\(|\bQMessageLogger\b"):
    problems.append(f"{name} writes into the log without the helpers")

for problem in problems:
    print(problem)
sys.exit(1 if problems else 0)
