"""Programs and plug-ins as users get them: what the linker and the compiler have put into them."""

import os
import pathlib
import re
import subprocess

import pytest

BUILD = pathlib.Path(os.environ["FINDER_SYNC_BIN"]).parent
PROGRAMS = [BUILD / "bin" / name for name in ("companion", "finder-sync-extension", "finderctl")]
PLUGINS = sorted(BUILD.glob("lib/**/*.so"))
# Some of the functions of the C library that look at the size of a buffer. The plug-ins leave texts
# and buffers to GLib. In the extension, only level 3 knows the sizes for __memcpy_chk.
CHECKED = {
    "companion": {"__snprintf_chk"},
    "finder-sync-extension": {"__fprintf_chk", "__memcpy_chk", "__snprintf_chk"},
    "finderctl": {"__snprintf_chk"},
}


def output(*command):
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE).stdout


def readelf(file, *options):
    return output("readelf", "--wide", *options, str(file))


def imports(file):
    """Names of the functions that a file takes from libraries, without their versions."""
    return set(re.findall(r" UND (\w+)", readelf(file, "--dyn-syms")))


def is_x86(file):
    return re.search(r"Machine:.*(X86-64|80386)", readelf(file, "--file-header")) is not None


def name_of(file):
    return file.name


def test_every_plugin_is_there():
    gtk = {f"libfinder-sync-{manager}" for manager in ("caja", "nautilus", "nemo", "thunar")}
    dolphin = {"finder-sync-badges", "finder-sync-menu"}
    assert {plugin.stem for plugin in PLUGINS} == gtk | dolphin


@pytest.fixture(params=PROGRAMS + PLUGINS, ids=name_of)
def file(request):
    assert request.param.is_file()
    return request.param


@pytest.mark.parametrize("option, what", [
    pytest.param("--file-header", r"Type:\s+DYN ", id="lies anywhere in memory"),
    pytest.param("--dynamic", r"\(FLAGS\).*\bBIND_NOW\b|\(BIND_NOW\)", id="is bound at the start"),
    pytest.param("--dynamic", r"\(FLAGS_1\).*\bNOW\b", id="is bound by every loader"),
    pytest.param("--program-headers", "GNU_RELRO", id="is then read-only"),
    pytest.param("--dyn-syms", r" UND __stack_chk_fail\b", id="notices an overwritten stack"),
])
def test_every_file(file, option, what):
    assert re.search(what, readelf(file, option))


@pytest.mark.parametrize("program", PROGRAMS, ids=name_of)
def test_a_program_says_that_it_is_independent_of_its_place(program):
    assert re.search(r"\(FLAGS_1\).*\bPIE\b", readelf(program, "--dynamic"))


def test_no_memory_can_be_written_and_executed(file):
    segments = readelf(file, "--program-headers")
    stack = re.search(r"GNU_STACK(?:\s+0x\w+){5}\s+([RWE ]+?)\s+0x", segments)
    assert stack is not None and "E" not in stack[1]
    loaded = re.findall(r"LOAD(?:\s+0x\w+){5}\s+([RWE ]+?)\s+0x", segments)
    assert loaded and not any("W" in flags and "E" in flags for flags in loaded)


def test_libraries_are_those_of_the_system(file):
    assert not re.search(r"\((RPATH|RUNPATH|TEXTREL)\)", readelf(file, "--dynamic"))


@pytest.mark.parametrize("name", ["companion", "finder-sync-extension"])
def test_frames_larger_than_a_page_are_touched_page_by_page(name):
    """Both have such frames, for paths. A stack cannot jump over what guards it then."""
    program = BUILD / "bin" / name
    if not is_x86(program):
        pytest.skip("the instruction looked for is one of x86")
    assert re.search(r"\sor[lq]\s+\$0x0,\(%rsp\)",
                     output("objdump", "--disassemble", "--no-show-raw-insn", str(program)))


@pytest.mark.parametrize("name", CHECKED)
def test_sizes_of_buffers_are_checked(name):
    assert CHECKED[name] <= imports(BUILD / "bin" / name)


def test_no_pause_depends_on_a_clock_that_can_be_set(file):
    """The extension alone asks for the date, for its log, by a function that has other clocks too."""
    of_the_date = {"time", "ftime", "gettimeofday", "g_get_real_time", "g_get_current_time",
                   "_ZNSt6chrono3_V212system_clock3nowEv", "_ZN9QDateTime15currentDateTimeEv",
                   "_ZN9QDateTime22currentMSecsSinceEpochEv", "_ZN5QTime11currentTimeEv"}
    assert not imports(file) & of_the_date
    assert file.name == "finder-sync-extension" or "clock_gettime" not in imports(file)


def test_returns_can_be_kept_on_a_shadow_stack(file):
    if not is_x86(file):
        pytest.skip("only x86 has shadow stacks")
    assert re.search(r"x86 feature:.*\bSHSTK\b", readelf(file, "--notes"))


def test_functions_can_be_the_targets_of_checked_branches(file):
    """Whether a file is marked so is up to the C library's start files, too."""
    if not is_x86(file):
        pytest.skip("only x86 has such branches")
    entry_points = r"main|\w+_module_initialize|thunar_extension_initialize|qt_plugin_instance"
    disassembly = output("objdump", "--disassemble", "--no-show-raw-insn", str(file))
    functions = re.findall(rf"^\w+ <({entry_points})>:\n\s*\w+:\s*(\w+)", disassembly, re.M)
    assert functions and all(instruction == "endbr64" for _, instruction in functions)
