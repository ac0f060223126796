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
# What programs include of the engine: its lines without the blank ones, together.
ENGINE_HEADERS = ("kel-http/curl/Engine.h", "kel-http/curl/Request.h")
ENGINE_HEADER_LINES = 220
SOURCE_LINES = 250
FUNCTION_LINES = 30
# Which rooms of kel-http/ each one may include. Of the engine, the client may include no more than requests and downloads need.
ROOMS = {"model": {"model"}, "curl": {"model", "curl"}, "client": {"model", "client"}, "legacy": {"model", "curl", "legacy"}}
CLIENT_MAY_INCLUDE = {"kel-http/curl/Request.h", "kel-http/curl/PartialFile.h", "kel-http/curl/AnnouncedSize.h"}
# What programs may include of kel-http/, and so may whatever stands for a program here.
INSTALLED = re.compile(r"kel-http/(curl/(Engine|Hooks|ProxyBlackList|Request|Tls)|legacy/HTTPEngine)\.h")
PROGRAMS = {"bench", "examples", "tools"}
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


def engine_headers_stay_short(root):
    lines = [line for name in ENGINE_HEADERS for line in (root / name).read_text(encoding="utf-8").splitlines()]
    filled = sum(1 for line in lines if line.strip())
    if filled > ENGINE_HEADER_LINES:
        yield f"{' and '.join(ENGINE_HEADERS)} have {filled} lines, {ENGINE_HEADER_LINES} at most"


def sources(root, folders):
    return [path for path in files(root) if path.suffix in {".cpp", ".h"} and path.relative_to(root).parts[0] in folders]


def library_sources(root):
    return sources(root, {"kel-http", "include"})


def function_lengths(lines):
    """The first line of each function, counted from 1, and how many lines it takes. As clang-format puts it, its closing
    brace stands alone under its beginning, and all in between is farther to the right: at the margin, or inside a class."""
    begins = {}
    for number, line in enumerate(lines, 1):
        text = line.lstrip()
        indent = len(line) - len(text)
        if text == "}" and indent in begins:
            yield begins[indent], number - begins[indent] + 1
        elif text and not text.startswith(("#", "//", "}")):
            begins[indent] = number


def library_sources_stay_short(root):
    for path in library_sources(root):
        lines = path.read_text(encoding="utf-8").splitlines()
        if len(lines) > SOURCE_LINES:
            yield f"{path.relative_to(root)} has {len(lines)} lines, {SOURCE_LINES} at most"
        for begin, length in function_lengths(lines):
            if length > FUNCTION_LINES:
                yield f"{path.relative_to(root)}:{begin}: a function of {length} lines, {FUNCTION_LINES} at most"


def may_include(root, path, name):
    """Whether a source may include that header of kel-http/ or include/kel-http/."""
    if (root / "include" / name).exists():
        return True
    folder, place = path.relative_to(root).parts[:2]
    room = name.split("/")[1]
    if folder == "kel-http":
        return room in ROOMS.get(place, ()) or (place == "client" and name in CLIENT_MAY_INCLUDE)
    if INSTALLED.fullmatch(name):
        return folder != "include"
    # A test looks behind the doors of its own room only.
    return folder == "tests" and place == room


def no_include_runs_upward(root):
    for path in sources(root, {"kel-http", "include", "tests", *PROGRAMS}):
        for name in re.findall(r'^#include "(kel-http/(?:\w+/)+\w+\.h)"', path.read_text(encoding="utf-8"), re.MULTILINE):
            if not may_include(root, path, name):
                yield f"{path.relative_to(root)} includes {name}, which is not for its room"


def main():
    root = pathlib.Path(sys.argv[1])
    name = re.sub(r"(?<!^)([A-Z])", r"_\1", sys.argv[2]).lower()
    faults = list(globals()[name](root))
    print(*faults, sep="\n")
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
