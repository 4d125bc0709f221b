"""What is already built, in a committed file."""
import difflib
import sys
from pathlib import Path


def check(make_text):
    """Makes the text of the program's arguments, [--update] FILE ARGUMENT..., and compares it with the file."""
    is_update = sys.argv[1] == "--update"
    file, *arguments = sys.argv[2 if is_update else 1:]
    text = make_text(*arguments)
    if is_update:
        Path(file).write_text(text)
        return
    committed = Path(file).read_text()
    if text != committed:
        sys.stdout.writelines(difflib.unified_diff(committed.splitlines(True), text.splitlines(True),
                                                   "as it is already built", "as it is now"))
        sys.exit("If this change is meant: cmake --build --preset release --target update_all")
