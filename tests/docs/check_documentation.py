# SPDX-License-Identifier: MIT
"""Checks that the documents of a source tree hold what they promise: check_documentation.py ROOT CHECK."""

import pathlib
import re
import subprocess
import sys

FENCE = re.compile(r"^```.*?^```$", re.MULTILINE | re.DOTALL)
LINK = re.compile(r"!?\[[^][]*(?:\[[^][]*\])?[^][]*\]\(([^()\s]+)\)")
HEADING = re.compile(r"^#+ +(.*)$", re.MULTILINE)
LICENSE = "SPDX-License-Identifier: MIT"
# Texts that are no source.
UNMARKED = {".md", ".txt"}
UNMARKED_NAMES = {"LICENSE", ".gitignore", "record.json", "changes.json"}


def files(root):
    """The files of the tree: what git knows of, and without git whatever is not built."""
    # The tree may be another user's.
    listing = subprocess.run(["git", "-c", f"safe.directory={root.resolve()}", "-C", root, "ls-files", "-z", "--cached",
                              "--others", "--exclude-standard"], capture_output=True, text=True, check=False)
    if listing.returncode == 0:
        paths = [root / name for name in listing.stdout.split("\0") if name]
        return [path for path in paths if path.is_file()]
    return [path for path in root.rglob("*")
            if path.is_file() and not {"build", ".git", ".cache"} & set(path.relative_to(root).parts)]


def documents(root):
    return [path for path in files(root) if path.suffix == ".md"]


def anchors(text):
    """The names by which a document's headings can be linked to."""
    headings = (re.sub(r"[^\w\- ]", "", heading.lower()) for heading in HEADING.findall(FENCE.sub("", text)))
    return {heading.strip().replace(" ", "-") for heading in headings}


def broken_link(document, target):
    """What is wrong with the link, or nothing."""
    if re.match(r"[a-z]+:", target):
        return None
    name, _, anchor = target.partition("#")
    path = document.parent / name if name else document
    if not path.exists():
        return f"leads to {target}, which is not there"
    if anchor and anchor not in anchors(path.read_text(encoding="utf-8")):
        return f"leads to {target}, which has no such heading"
    return None


def relative_links_lead_somewhere(root):
    for document in documents(root):
        text = FENCE.sub("", document.read_text(encoding="utf-8"))
        for target in LINK.findall(text):
            fault = broken_link(document, target)
            if fault:
                yield f"{document.relative_to(root)} {fault}"


def readme_shows_the_compiled_example(root):
    example = (root / "examples/readme.cpp").read_text(encoding="utf-8")
    program = example.partition("\n")[2]  # without the license
    if f"```cpp\n{program}```\n" not in (root / "README.md").read_text(encoding="utf-8"):
        yield "README.md does not show examples/readme.cpp as it is compiled"


def every_failure_is_explained(root):
    header = (root / "include/kel-http/ClientFailure.h").read_text(encoding="utf-8")
    page = (root / "docs/errors.md").read_text(encoding="utf-8")
    for name, number in re.findall(r"^ +(\w+) = (\d+),?$", header, re.MULTILINE):
        if f"| {number} | `{name}` |" not in page:
            yield f"docs/errors.md has no line for {name}, {number}"


def is_source(path):
    if path.name == "CMakeLists.txt":
        return True
    return path.suffix not in UNMARKED and path.name not in UNMARKED_NAMES


def every_source_file_names_its_license(root):
    for path in files(root):
        if not is_source(path):
            continue
        lines = path.read_text(encoding="utf-8", errors="replace").splitlines()[:3]
        # JSON, which has no comments, says it in quotes.
        if not any(LICENSE in line.replace('"', "") for line in lines):
            yield f"{path.relative_to(root)} lacks the line '{LICENSE}'"


def main():
    root = pathlib.Path(sys.argv[1])
    name = re.sub(r"(?<!^)([A-Z])", r"_\1", sys.argv[2]).lower()
    faults = list(globals()[name](root))
    print(*faults, sep="\n")
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
