"""Calls of the plug-ins fail: the file manager survives, and the plug-in keeps none of its objects.

Allocations do not fail here, since GLib and Qt end the process when there is no memory."""

import os
import re
import shutil
import subprocess
from concurrent.futures import ThreadPoolExecutor

import pytest
from faults import played

PROGRAMS = ["caja-plugin-tests", "nemo-plugin-tests", "nautilus-plugin-tests",
            "thunar-plugin-tests", "dolphin-plugin-tests"]
# Of the functions that can fail, the ones that each has to have called.
LEAST = {"g_bus_get_finish", "g_dbus_connection_call_finish"}
LEAST_OF_QT = {"_ZNK16QDBusPendingCall7isErrorEv"}

# What plug-ins call and the library leaves alone: these functions fail for want of memory only, or
# have no result.
LET_BE = [re.compile(pattern) for pattern in (
    r"_ITM_\w+|_Unwind_Resume|__\w+|free|mem\w+|str\w+|qt_version_tag|_Z(da|dl|na|nw|St|T)\w+|_ZNK?St\w+",
    r"g_(cclosure|datalist|list|main_context|malloc0|mutex|object|once|param_spec)_?\w*",
    r"g_(quark|signal|source|str|strv|type|value)_?\w+",
    r"g_variant_(get|is_of|iter|new|type|unref)_?\w*|g_(idle|timeout)_\w+|g_get_monotonic_time",
    r"g_(free|log|unichar_ismark|ascii_table|get(env|_home_dir|_user_state_dir))",
    r"g_file_(has_prefix|new_for_\w+|get_\w+|info_\w+)|g_utf8_(find|get|prev)\w+",
    r"g_error_\w+|g_io_error_quark|g_cancellable_\w+",
    # They start a call, whose failure its "finish" function returns.
    r"g_bus_get|g_dbus_connection_call|g_file_\w+_async",
    r"g_dbus_connection_(get_type|signal_(un)?subscribe)",
    r"(caja|nemo|nautilus|thunarx)_\w+_(get_type|new|signal|emblem|extension_info|is_gone)",
    r"thunarx_provider_plugin_\w+|thunarx_file_info_changed",
    r"gtk_\w+",  # of windows that are there
    # Qt's own classes, but for those of the bus.
    r"_Z(?!\w*QDBus)\w+",
    r"_ZN?K?\w*QDBus(Argument|MetaType|Message|Error|ServiceWatcher|PendingCallWatcher)\w*",
    r"_ZNK?\d+QDBus(AbstractInterface|PendingReply(Base|Data))\w+|_Z14qDBusReplyFill\w+",
    r"_Z\d+qRegisterNormalizedMetaType_QDBus\w+",
    r"_ZN15QDBusConnection(D1|10sessionBus|10disconnect)\w+|_ZNK15QDBusConnection9asyncCall\w+",
    r"_ZN16QDBusPendingCall(C2|D1|15waitForFinished)\w+",
    r"_ZNK16QDBusPendingCall(5error|10isFinished)\w+",
)]


@pytest.mark.parametrize("plugin", sorted((played.BUILD / "lib").glob("**/*.so")),
                         ids=lambda plugin: plugin.name)
def test_every_function_that_is_called_can_fail_here_or_is_known_not_to(plugin):
    called = played.functions_called_by(plugin)
    failing = called & played.functions_that_can_fail()
    assert failing
    assert {name for name in called - failing
            if not any(pattern.fullmatch(name) for pattern in LET_BE)} == set()


def play(program, folder, orders=""):
    """The report, if the file manager has outlived what failed."""
    folder = folder / re.sub(r"\W", "-", f"{program}-{orders}")
    folder.mkdir()
    report_file = folder / "report"
    environment = played.preloaded(orders, report_file) | {
        "PATH": os.environ["PATH"], "HOME": str(folder), "QT_QPA_PLATFORM": "offscreen"}
    done = subprocess.run([played.BUILD / "tests" / program, "--gtest_filter=*Outlive*Session*"],
                          env=environment, timeout=60, text=True, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    report = played.Report(report_file)
    assert done.returncode == 0 and "[  PASSED  ] 1 test." in done.stdout, (orders, done.stdout)
    shutil.rmtree(folder)
    return report


@pytest.mark.parametrize("program", PROGRAMS)
def test_each_call_fails_in_turn_and_every_two(program, tmp_path):
    def play_all(orders):
        with ThreadPoolExecutor(6) as pool:  # they wait, mostly
            return list(pool.map(lambda each: play(program, tmp_path, each), orders))

    clean = play(program, tmp_path)
    called = {call.function for call in clean.calls}
    assert called >= (LEAST_OF_QT if program.startswith("dolphin") else LEAST)
    singles = played.each_call(clean)
    pairs = [pair for orders, report in zip(singles, play_all(singles))
             if orders.endswith(":1") and report.failed for pair in played.pairs(orders, report)]
    play_all(played.each_call(clean, "+"))
    assert any(len(report.failed) == 2 for report in play_all(pairs))
