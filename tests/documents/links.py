"""Follows every link of the documents that is not to another place in the world: to a file, a heading, or both.

    links.py SOURCES
"""
import re
import sys
from pathlib import Path

sources = Path(sys.argv[1])


def prose(page):
    """The text without what is in code."""
    return re.sub(r"^```.*?^```$|^    .*?$|`[^`\n]*`", "", page.read_text(), flags=re.MULTILINE | re.DOTALL)


def anchors(page):
    """The names under which the headings can be linked to."""
    headings = re.findall(r"^#+ (.*)$", re.sub(r"^```.*?^```$", "", page.read_text(), flags=re.M | re.S), re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


pages = [page for page in sources.rglob("*.md") if not {"build", ".git"} & set(page.relative_to(sources).parts)]
links = [(page, link) for page in pages for link in re.findall(r"\]\(([^)\s]+)\)", prose(page))]
problems = []
for page, link in links:
    if re.match(r"[a-z]+:", link):
        continue
    path, _, anchor = link.partition("#")
    target = page.parent / path if path else page
    if not target.exists():
        problems.append(f"{page.relative_to(sources)}: {link}: there is no such file")
    elif anchor and anchor not in anchors(target):
        problems.append(f"{page.relative_to(sources)}: {link}: there is no such heading")

readme = {(sources / link).resolve() for page, link in links if page == sources / "README.md"}
for page in sorted((sources / "docs").glob("*.md")):
    if page.resolve() not in readme:
        problems.append(f"README.md has no link to {page.relative_to(sources)}")

print(f"{len(links)} links in {len(pages)} pages")
for problem in problems:
    print(problem)
sys.exit(1 if problems or not links else 0)
