"""Compares the table in platform/README.md with the contract headers and the back ends' files."""

import pathlib
import re
import sys

PLATFORM = pathlib.Path(__file__).parents[2] / "platform"
BACK_ENDS = ("linux", "macos", "recording")


def definition(operation: str) -> re.Pattern:
    return re.compile(rf"^\S[^;{{}}]*\b{operation}\([^;{{}}]*\) \{{", re.MULTILINE)


def failures() -> list[str]:
    table = re.findall(r"^\| (`.+`) \| `(\w+\.h)` \| `(\w+)` \|$",
                       (PLATFORM / "README.md").read_text(), re.MULTILINE)
    homes = {(operation, header): stem for operations, header, stem in table
             for operation in re.findall(r"`(\S+)`", operations)}
    found = []
    for header in PLATFORM.glob("*.h"):
        declared = re.findall(r"^(?:[^\s/#}].* )?(\w+)\([^;]*\);", header.read_text(), re.MULTILINE)
        found += [f"{header.name}: {operation} is not in the table" for operation in declared
                  if (operation, header.name) not in homes]
    for (operation, header), stem in homes.items():
        if operation.split("::")[-1] + "(" not in (PLATFORM / header).read_text():
            found.append(f"{header} does not declare {operation}")
        for folder in BACK_ENDS:
            files = [file for file in (PLATFORM / folder).iterdir() if file.suffix in (".cpp", ".mm")]
            actual = [file.stem for file in files if definition(operation).search(file.read_text())]
            if actual != [stem]:
                found.append(f"{folder}: {operation} is defined in {actual}, not in {stem}")
    for folder in BACK_ENDS:
        others = "|".join(other for other in BACK_ENDS if other != folder)
        found += [f"{file} includes a header of another back end"
                  for file in (PLATFORM / folder).iterdir()
                  if re.search(rf'"platform/({others})/', file.read_text())]
    return found


sys.exit("\n".join(failures()) or None)
