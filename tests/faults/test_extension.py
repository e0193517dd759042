"""Calls of the extension fail: it goes on and tells the truth, or it ends and says why.

With FINDER_SYNC_FAULTS=all in the environment, every case is played instead of a sample, which
takes a quarter of an hour."""

import fnmatch
import os
import random

import pytest
from conftest import BUS_NAME
from faults import played
from faults.verdict import complaints, failed_functions, last_words
from jeepney import message_bus

PROGRAM = played.BUILD / "bin" / "finder-sync-extension"

# What the program calls and the library leaves alone, by reason. "?" is a digit of ICU's version.
LET_BE = {
    "it cannot fail, or only for a mistake of the caller's": """
        abort alarm clock_gettime fcntl getenv geteuid getpid memchr memcmp memcpy memmove memset
        raise sigaction sigemptyset sigprocmask strcmp strerror strerror_r strlen strncpy strtod
        tolower _exit __errno_location __libc_start_main __cxa_atexit __cxa_finalize __gmon_start__ __memcpy_chk __memmove_chk
        __stack_chk_fail __tls_get_addr _ITM_deregisterTMCloneTable _ITM_registerTMCloneTable
        sd_bus_creds_unref sd_bus_flush_close_unref sd_bus_get_event sd_bus_is_open
        sd_bus_message_get_bus sd_bus_message_get_expect_reply sd_bus_message_unref
        sd_bus_slot_unref
        sd_event_exit sd_event_get_exit_code sd_event_source_disable_unref
        sd_event_source_get_event sd_event_unref u_errorName_??""",
    "it fails only for want of memory, which fails underneath it": """
        __vsnprintf_chk malloc realloc free sd_bus_error_set sd_bus_error_setf u_setMemoryFunctions_??""",
    "the working directory may be missing, which tests/end_to_end has for real": """
        _ZNSt10filesystem12current_pathB5cxx11ERSt10error_code""",
    "it only advises": "mallopt",
    "it is data": "program_invocation_short_name sd_bus_object_vtable_format stderr stdout environ",
    "it is a C++ library's, and fails only for want of memory, by an exception": """
        _ZN5boost* _ZN6icu_* _ZNK6icu_* _ZNKSt* _ZNSt* _ZSt* _ZT* _Zda* _Zdl* _Zna* _Znw* __cxa_* __gxx_*
        _Unwind_*""",
}


def matching(names, patterns):
    return {name for name in names for pattern in patterns if fnmatch.fnmatchcase(name, pattern)}


def test_every_function_that_is_called_can_fail_here_or_is_known_not_to():
    called = played.functions_called_by(PROGRAM)
    failing = matching(called, played.functions_that_can_fail())
    let_be = " ".join(LET_BE.values()).split()
    assert called - failing - matching(called, let_be) == set()
    assert matching(failing, (name for name in let_be if "*" not in name)) <= {"malloc"}
    assert "socket" in failing and len(failing) > 40


@pytest.fixture(scope="module")
def stages(tmp_path_factory):
    stages = played.Stages(tmp_path_factory.mktemp("faults"))
    yield stages
    stages.end()


@pytest.fixture(scope="module")
def clean(stages):
    [outcome] = stages.play([""])
    assert (outcome.code, last_words(outcome)) == (0, [])
    return outcome


@pytest.fixture
def play(stages, clean):
    """Plays sessions with these orders, none of which may end as it must not. Gives what is taken
    of their outcomes: tens of thousands are too much to keep, since Python then looks for garbage
    among them for so long that answers count as late."""
    def play_all(orders, take=lambda outcome: outcome):
        outcomes = stages.play(orders, lambda outcome: (
            [(outcome.orders, outcome.report.failed, text) for text in complaints(clean, outcome)],
            take(outcome)))
        assert [each for wrong, _ in outcomes for each in wrong] == []
        return [taken for _, taken in outcomes]
    return play_all


def sample(orders, count):
    """Some of the orders; the same again with FINDER_SYNC_SEED in the environment."""
    if os.environ.get("FINDER_SYNC_FAULTS") == "all":
        return orders
    seed = int(os.environ.get("FINDER_SYNC_SEED", random.randrange(1 << 32)))
    print(f"FINDER_SYNC_SEED={seed}")
    return random.Random(seed).sample(orders, min(count, len(orders)))


def play_failing(clean, play, function, way=":1"):
    """Makes each call of a function fail; gives the outcomes where nothing else failed."""
    numbers = [call.number for call in clean.report.calls if call.function == function]
    outcomes = play([f"{function}:{number}{way}" for number in numbers])
    outcomes = [outcome for outcome in outcomes if failed_functions(outcome) == {function}]
    assert outcomes, function
    return outcomes


def test_a_session_in_which_nothing_fails(clean):
    assert len(clean.report.calls) > 300
    assert len(clean.report.allocations) > 900


def test_each_call_fails_in_turn(clean, play):
    have_failed = play(played.each_call(clean.report), lambda outcome: bool(outcome.report.failed))
    assert sum(have_failed) > 0.95 * len(have_failed)


def test_a_second_instance_gives_way_whatever_fails(stages):
    stage = stages.all[0]
    steps = [("wait_for_end",)]
    stage.ask(message_bus.RequestName(BUS_NAME))
    try:
        clean = stage.play(steps=steps)
        assert clean.code == 1 and "is taken, process" in clean.error
        assert "sd_bus_get_name_creds" in {call.function for call in clean.report.calls}
        for orders in (played.each_call(clean.report) +
                       sample(played.each_allocation(clean.report), 30)):
            assert complaints(clean, stage.play(orders, steps)) == [], orders
    finally:
        stage.ask(message_bus.ReleaseName(BUS_NAME))


def test_functions_fail_from_some_call_on(clean, play):
    play(sample(played.each_call(clean.report, "+"), 60), bool)


def test_allocations_fail(clean, play):
    """All of those by ICU, which asks for some by way of the program, and some of the others."""
    each = played.each_allocation(clean.report)
    of_icu = {orders for orders, maker in zip(each, clean.report.allocations)
              if maker.startswith(("libicuuc", "finder-sync", "libfailing-calls"))}
    assert len(of_icu) > 20
    play([*of_icu, *sample([orders for orders in each if orders not in of_icu], 100)], bool)


def test_calls_fail_in_pairs(clean, play):
    """The second one may not come about, once the first one has failed."""
    def pairs(outcome):
        is_survived = outcome.code == 0 and outcome.report.failed
        return played.pairs(outcome.orders, outcome.report) if is_survived else []

    firsts = sample(played.each_call(clean.report, ways=1), 20)
    play(sample([orders for each in play(firsts, pairs) for orders in each], 100), bool)


def test_a_fatal_error_says_so_when_there_is_no_memory_at_all(clean, play):
    every = played.each_allocation(clean.report, "+")
    for words in play([every[number] for number in (0, 59, 129, 299, 499)], last_words):
        assert len(words) == 1
    play(sample(every, 0), bool)


def test_a_fatal_error_is_not_joined_to_half_a_line(clean, play):
    """Some of these allocations are for the line about the launch."""
    before, *_ = (call.allocations for call in clean.report.calls if call.function == "localtime_r")
    outcomes = play([f"memory:{number}:1" for number in range(before, before + 12)])
    assert {outcome.code for outcome in outcomes} >= {-6}


@pytest.mark.parametrize("function", [
    "unorm_compare_??", "_ZN6icu_??11Normalizer214getNFDInstanceER10UErrorCode",
    "_ZN6icu_??13BreakIterator23createCharacterInstanceERKNS_6LocaleER10UErrorCode",
    "sd_event_source_set_io_events",  # or the link would be lost without a word
    "readlink",  # or the resources would be looked for in a wrong place
])
def test_without_this_the_process_cannot_go_on(clean, play, function):
    assert {outcome.code for outcome in play_failing(clean, play, function)} == {-6}


def test_a_failed_connection_that_cannot_be_told_of_ends_the_process(play):
    # These have the run loop tell of it, for one stream and for the other.
    outcomes = play(["socket:1:1 sd_event_add_defer:1:1",
                     "socket:1:1 sd_event_source_set_enabled:1:1"])
    assert [outcome.code for outcome in outcomes] == [-6, -6]


def test_nothing_is_available_after_a_failed_read(clean, play):
    outcomes = play_failing(clean, play, "recv", "+:3")
    assert all("Stream open error" in outcome.output for outcome in outcomes)


def test_it_does_not_spin_when_the_bus_library_has_no_memory(clean, play):
    numbers = [number for number, maker in enumerate(clean.report.allocations, 1)
               if maker.startswith("libsystemd") and number > len(clean.report.allocations) // 3]
    play([f"memory:{number}+:1" for number in numbers[::40]], bool)
