"""Holds sources against the table of folders in a document: include_directions.py DOCUMENT SOURCE...

The table's last column is headed "May include": the folders in backticks whose headers a folder may include beside its
own, "the system" for headers that are not the C++ library's, or "everything". The headers of a library such as
<json/json.hpp> are a folder, too.
"""
import re
import sys
from pathlib import Path

INCLUDE = re.compile(r'\s*#\s*include\s*([<"])([^>"]+)[>"]')
STANDARD_HEADER = re.compile(r"[a-z_]+")  # the C++ library's have neither folder nor suffix


def read_table(document):
    """Folder -> what its row allows."""
    folders, in_table = {}, False
    for line in Path(document).read_text("utf-8").splitlines():
        cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
        in_table = line.startswith("|") and (in_table or cells[-1] == "May include")
        if in_table:
            folders.update((folder, cells[-1]) for folder in re.findall(r"`([^`]+/)`", cells[0]))
    if not folders:
        sys.exit(f"{document}: no table with a column \"May include\"")
    return folders


def folder_of(path, folders):
    return max((folder for folder in folders if path.startswith(folder)), key=len, default=None)


def may_include(folder, bracket, header, folders):
    allowed = folders[folder]
    if allowed == "everything":
        return True
    if bracket == "<":
        return "the system" in allowed or STANDARD_HEADER.fullmatch(header) or f"`{header.split('/')[0]}/`" in allowed
    home = folder_of(header, folders)
    return home is not None and (home == folder or f"`{home}`" in allowed)


def violations(source, folders):
    folder = folder_of(source, folders)
    if folder is None:
        yield f"{source}: its folder is not in the table"
        return
    for number, line in enumerate(Path(source).read_text("utf-8").splitlines(), 1):
        match = INCLUDE.match(line)
        if match and not may_include(folder, match[1], match[2], folders):
            yield f"{source}:{number}: {folder} may not include {match[2]}"


def main(document, *sources):
    folders = read_table(document)
    found = [violation for source in sources for violation in violations(source, folders)]
    print("\n".join(found), end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
