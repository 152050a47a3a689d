"""Holds three documents against the tree: documents.py FILE..., all files of the project.

docs/log.md: its tables have every line that the daemon logs, and no other.
docs/decisions.md: the tests that it names exist. ARCHITECTURE.md: the section "The map" names every source of the
product, and nothing else; sources that hold some of a class's members go with the file named after the class.
"""
import re
import sys
from pathlib import Path, PurePath

LITERAL = r'"(?:[^"\\]|\\.)*"'
LOGGED = re.compile(rf'\bLog(?:Error|Warning|Notice|Info)?\(\s*[\w:]+(?:\(\))?,\s*(?:\w+,\s*)?((?:{LITERAL}\s*)+)')
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


def as_told(literals):
    """Adjacent literals of a printf format as the guide writes the line."""
    text = "".join(literal[1:-1] for literal in re.findall(LITERAL, literals)).replace('\\"', '"').removesuffix("\\n")
    return re.sub(r"%[-0-9.]*l*[a-zA-Z]", "…", text).replace("%%", "%")


def log_errors(files):
    """A line whose format is "%s" alone is made elsewhere: of those only the parts are looked for."""
    texts = {path: Path(path).read_text("utf-8") for path in files if path.startswith(PRODUCT) and path.endswith((".h", ".cpp"))}
    guide = Path("docs/log.md").read_text("utf-8")
    told = {line for row in re.findall(r"^\| (`.*?`) \|", guide, re.M) for line in re.findall(r"`([^`]+)`", row)}
    logged = {as_told(literals): path for path, text in texts.items() for literals in LOGGED.findall(text)}
    for line in sorted(logged.keys() - told - {"…"}):
        yield f"docs/log.md: lacks the line `{line}` of {logged[line]}"
    literals = {as_told(literal) for text in texts.values() for literal in re.findall(LITERAL, text)}
    for line in sorted(told - logged.keys() - literals):
        yield f"docs/log.md: nothing logs `{line}`"


def main(*files):
    errors = [*missing_tests(files), *map_errors(files), *log_errors(files)]
    print("\n".join(errors), end="\n" if errors else "")
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
