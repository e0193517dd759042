"""What rpmbuild and makepkg make of the sources and the build under test."""

import os
import re
import subprocess

import pytest

from .installation import BUILD, SOURCES, run
from .test_packages import FILES, files_of

# Neither has a folder for modules that all versions of Python share: the library is the program's own.
RPMS = sorted((FILES.keys() | {"finder-sync-companion-devel"})
              - {"libfinder-sync-companion-dev", "python3-finder-sync-companion"})

FINISHED = os.environ | {"FINDER_SYNC_BUILD": str(BUILD)}


@pytest.fixture
def sources(tmp_path):
    run(SOURCES / "scripts/package", "--source", "--output", tmp_path / "sources")
    return tmp_path / "sources"


@pytest.fixture
def installed(tmp_path):
    (tmp_path / "root/var/lib/pacman").mkdir(parents=True)
    return tmp_path / "root"


def as_user(number, *command):
    """The words of a command that is to run as this user, or as one who takes himself for it."""
    command = [str(word) for word in command]
    if os.geteuid() == number or (number and os.geteuid()):
        return command
    unshare = ["unshare", "--user", f"--map-user={number}", f"--map-group={number}"]
    attempt = subprocess.run([*unshare, "true"], capture_output=True, text=True)
    if attempt.returncode != 0:
        pytest.skip(f"needs user namespaces: {attempt.stderr.strip()}")
    return [*unshare, *command]


def check_files(installed):
    """The same files as those of the Debian packages, but for the documents."""
    files = [file.removesuffix(".gz") for file in files_of(installed / "usr")
             if not file.startswith(("lib/.build-id/", "share/licenses/"))
             and not re.match("share/doc/[^/]*/[^/]*$", file)]
    assert files == sorted(file.removesuffix(".gz").removeprefix("usr/")
                           for files in FILES.values() for file in files)


def test_only_the_plugins_that_are_named_are_packaged(tmp_path):
    run(SOURCES / "scripts/package", "--source", "--output", tmp_path, "caja", "nemo")
    control = "".join(file.read_text() for file in tmp_path.glob("*/debian/control"))
    assert {*re.findall("Package: (.*)", control)} == FILES.keys() - {
        "dolphin-finder-sync", "nautilus-finder-sync", "thunar-finder-sync"}
    assert "libkf5kio-dev" not in control and "libnemo-extension-dev" in control


def test_the_spec_file_installs_what_it_builds(sources):
    spec = run("rpmspec", "--parse", sources / "finder-sync.spec")
    assert "-B build " in spec and "cmake --install build --prefix" in spec


def test_rpm(sources, installed, tmp_path):
    # Debian's rpm knows nothing of Debian's packages, so nothing that is needed is there for it.
    run("rpmbuild", "-ba", "--nodeps", "--define", f"_topdir {tmp_path}", "--define",
        f"_sourcedir {sources}", "--define", "debug_package %{nil}", sources / "finder-sync.spec",
        stderr=subprocess.DEVNULL, env=FINISHED)
    packages = list(tmp_path.glob("RPMS/*/*.rpm"))
    assert sorted(package.name.split("-0.")[0] for package in packages) == RPMS
    run("rpmlint", "--strict", "-c", SOURCES / "packaging/rpmlint.toml", sources / "finder-sync.spec",
        *packages, *tmp_path.glob("SRPMS/*"))

    for package in packages:
        asked = run("rpm", "--query", "--requires", "--package", package).splitlines()
        name = package.name.split("-0.")[0]
        if name.endswith("-finder-sync"):
            assert name.removesuffix("-finder-sync") in asked
            assert not [one for one in asked if one.startswith("finder-sync")]
        assert name != "finder-sync-tools" or \
            "finder-sync-extension(x86-64) = 0.1.0-1" in asked

    rpm = as_user(0, "rpm", "--root", installed, "--nodeps")
    run(*rpm, "--install", *map(str, packages))
    check_files(installed)
    run(*rpm, "--erase", *RPMS)
    assert not (installed / "usr").exists() or not files_of(installed / "usr")


def test_arch_linux(sources, installed):
    run(*as_user(1000, "makepkg", "--nodeps"), cwd=sources, stderr=subprocess.DEVNULL, env=FINISHED)
    packages = [package for package in sources.glob("*.pkg.tar*")]
    pacman = as_user(0, "pacman", "--root", installed, "--dbpath", installed / "var/lib/pacman",
                     "--noconfirm", "--noscriptlet", "-dd")
    run(*pacman, "-U", *map(str, packages))
    check_files(installed)
