#!/usr/bin/env python3
"""Makes the manual pages: make.py MANUAL DIRECTORY writes one for each *.scd beside this program.

A line "@SECTION NAME" in a page becomes that section of the manual, a Markdown file, so that nothing is written twice.
"""
import re
import subprocess
import sys
from pathlib import Path


def escaped(text):
    return re.sub(r"([\\_*])", r"\\\1", text)


def inline(text):
    """Code becomes bold, a link its text."""
    text = re.sub(r"\[([^]]+)\]\([^)]*\)", r"\1", text)
    return "".join(f"*{escaped(part)}*" if i % 2 else escaped(part) for i, part in enumerate(text.split("`")))


def row(line):
    """A table's row: the first cell is a term, the one between it and the last its default."""
    term, *middle, meaning = (inline(cell.strip()) for cell in line.strip().strip("|").split(" | "))
    default = f" ({', '.join(middle)})" if any(middle) else ""
    return f"{term}{default}\n\t{meaning}\n"


def body(lines):
    text, literal = [], False
    for line in lines:
        if line.startswith("    ") != literal and line:
            text.append("```")
            literal = not literal
        if literal:
            text.append(line[4:])
        elif line.startswith("|"):
            if line.startswith("| `"):
                text.append(row(line))
        else:
            text.append(inline(line))
    return "\n".join(text + ["```"] * literal).strip()


def sections(manual):
    parts = re.split(r"^## (.*)\n", manual, flags=re.M)
    return {name: body(text.strip("\n").split("\n")) for name, text in zip(parts[1::2], parts[2::2])}


def main(manual, directory):
    parts = sections(Path(manual).read_text("utf-8"))
    Path(directory).mkdir(exist_ok=True)
    for page in sorted(Path(__file__).parent.glob("*.scd")):
        text = re.sub(r"^@(.+)$", lambda match: parts[match[1]], page.read_text("utf-8"), flags=re.M)
        made = subprocess.run(["scdoc"], input=text.encode(), stdout=subprocess.PIPE, check=True).stdout
        (Path(directory) / page.stem).write_bytes(made)


if __name__ == "__main__":
    main(*sys.argv[1:])
