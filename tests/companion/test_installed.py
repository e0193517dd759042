"""The C++ library as others find it: installed, by CMake's find_package and by pkg-config."""

import os
import pathlib
import subprocess

import pytest

SOURCES = pathlib.Path(__file__).parents[2]
BUILD = pathlib.Path(os.environ["FINDER_SYNC_BIN"]).parent
EXAMPLE = SOURCES / "companion/examples/Poll.cpp"
PROJECT = f"""cmake_minimum_required(VERSION 3.25)
project(example LANGUAGES CXX)
find_package(FinderSyncCompanion 0.1 REQUIRED)
add_executable(example {EXAMPLE})
target_link_libraries(example PRIVATE FinderSyncCompanion::FinderSyncCompanion)
"""


@pytest.fixture
def prefix(tmp_path):
    subprocess.run(["cmake", "--install", BUILD, "--component", "companion-library",
                    "--prefix", tmp_path / "prefix"], check=True)
    return tmp_path / "prefix"


def test_cmake(prefix, tmp_path):
    (tmp_path / "CMakeLists.txt").write_text(PROJECT)
    subprocess.run(["cmake", "-G", "Ninja", "-S", tmp_path, "-B", tmp_path / "build",
                    f"-DCMAKE_PREFIX_PATH={prefix}"], check=True)
    subprocess.run(["cmake", "--build", tmp_path / "build"], check=True)
    finds_no_place_for_settings(tmp_path / "build/example")


def test_pkg_config(prefix, tmp_path):
    folder, = prefix.glob("**/pkgconfig")
    flags = subprocess.check_output(
        ["pkg-config", "--cflags", "--libs", "finder-sync-companion"], text=True,
        env=os.environ | {"PKG_CONFIG_PATH": str(folder)}).split()
    subprocess.run(["c++", "-std=c++20", EXAMPLE, *flags, "-o", tmp_path / "example"], check=True)
    finds_no_place_for_settings(tmp_path / "example")


def finds_no_place_for_settings(example):
    ran = subprocess.run([example, "group", "/sync"], capture_output=True, text=True,
                         env={"PATH": os.environ["PATH"]})
    assert (ran.returncode, ran.stderr) == (1, "there is no place for the settings: neither "
                                               "XDG_CONFIG_HOME nor HOME names a directory\n")
