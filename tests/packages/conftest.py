"""Packages made of the build under test, and a place where they are installed."""

import os
import subprocess

import pytest

from .installation import BUILD, SOURCES, Root, run


@pytest.fixture(scope="session")
def packages(tmp_path_factory):
    """The packages' files, by name."""
    folder = tmp_path_factory.mktemp("packages")
    run(SOURCES / "scripts/package", "--output", folder, stderr=subprocess.DEVNULL, env=os.environ
        | {"FINDER_SYNC_BUILD": str(BUILD), "DEB_BUILD_OPTIONS": "noautodbgsym"})
    return {file.name.split("_")[0]: file for file in folder.glob("*.deb")}


@pytest.fixture(scope="session")
def unpacked(packages, tmp_path_factory):
    folder = tmp_path_factory.mktemp("root")
    folder.chmod(0o755)
    for package in packages.values():
        run("dpkg-deb", "-x", str(package), str(folder))
    return folder


@pytest.fixture(scope="session")
def root(unpacked):
    root = Root(unpacked)
    attempt = subprocess.run(root.command("true"), capture_output=True, text=True)
    if attempt.returncode != 0:
        pytest.skip(f"/usr cannot be overlaid here: {attempt.stderr.strip()}")
    return root
