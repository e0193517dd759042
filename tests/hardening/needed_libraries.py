"""Which libraries programs of the preset static look for when they start."""

import re

import pytest
from test_programs import PROGRAMS, name_of, readelf


@pytest.mark.parametrize("program", PROGRAMS, ids=name_of)
def test_needs_only_what_every_system_has(program):
    needed = re.findall(r"NEEDED.*\[(.*?)\.so", readelf(program, "--dynamic"))
    assert "libc" in needed and set(needed) <= {"libsystemd", "libm", "libc", "ld-linux-x86-64"}


@pytest.mark.parametrize("program", PROGRAMS, ids=name_of)
def test_an_older_libsystemd_will_do(program):
    versions = re.findall(r"Name: LIBSYSTEMD_(\d+)", readelf(program, "--version-info"))
    assert max(map(int, versions)) <= 247  # as docs/installing.md says
