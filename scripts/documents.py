"""Holds two documents against the tree: documents.py FILE..., all files of the project.

docs/decisions.md: the tests that it names exist. ARCHITECTURE.md: the section "The map" names every source of the
product, and nothing else; sources that hold some of a class's members go with the file named after the class.
"""
import re
import sys
from pathlib import Path, PurePath

PRODUCT = ("Platform", "Bex", "Common", "SMTPc", "Tobix", "Responder", "Control", "Inject")


def names(text):
    return re.findall(r"`([^`]+)`", text)


def missing_tests(files):
    tests = set()
    for path in files:
        if path.startswith("tests/") and path.endswith((".cpp", ".py")):
            text = Path(path).read_text("utf-8")
            tests.update(".".join(pair) for pair in re.findall(r"\bTEST(?:_F|_P)?\((\w+),\s*(\w+)\)", text))
            tests.update(re.findall(r"\bdef (test_\w+)", text))
    keys = re.findall(r"^\| `([^`]+)`", Path("docs/configuration.md").read_text("utf-8"), re.M)  # some look like tests
    named = [name for name in names(Path("docs/decisions.md").read_text("utf-8"))
             if re.fullmatch(r"[A-Z]\w+\.[A-Z]\w+|test_\w+", name) and name not in keys]
    if not named:
        yield "docs/decisions.md: names no test"
    for name in named:
        if name not in tests:
            yield f"docs/decisions.md: there is no test {name}"


def map_errors(files):
    section = Path("ARCHITECTURE.md").read_text("utf-8").partition("\n## The map\n")[2]
    mapped = {name for line in section.splitlines() if line.startswith("|") for name in names(line) if name.isidentifier()}
    sources = [PurePath(path) for path in files if path.startswith(PRODUCT) and path.endswith((".h", ".cpp"))]
    for source in sources:
        if source.stem not in mapped and not (source.suffix == ".cpp" and source.stem.startswith(tuple(mapped))):
            yield f"ARCHITECTURE.md: the map lacks {source}"
    for name in sorted(mapped - {source.stem for source in sources}):
        yield f"ARCHITECTURE.md: the map names {name}, which is no source"


def main(*files):
    errors = [*missing_tests(files), *map_errors(files)]
    print("\n".join(errors), end="\n" if errors else "")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
