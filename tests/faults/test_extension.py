"""The extension, whose calls fail: it goes on and tells the truth, or it ends and says why.

`every_failure.py` plays what takes too long here, such as every pair."""

import os
import random

import pytest
from conftest import BUS_NAME
from faults import played
from faults.verdict import complaints, failed_functions, last_words
from jeepney import message_bus

PROGRAM = played.BUILD / "bin" / "finder-sync-extension"

# What the program calls and the library lets be, by reason.
LET_BE = {
    "it cannot fail, or only for a mistake of the caller's": """
        abort alarm clock_gettime fcntl getenv getpid memchr memcmp memcpy memmove memset sigaction
        sigemptyset strcmp strerror strerror_r strlen strncpy tolower _exit __errno_location
        __libc_start_main __cxa_atexit __cxa_finalize __gmon_start__ __memcpy_chk __memmove_chk
        __stack_chk_fail __tls_get_addr _ITM_deregisterTMCloneTable _ITM_registerTMCloneTable
        sd_bus_creds_unref sd_bus_flush_close_unref sd_bus_get_event sd_bus_is_open
        sd_bus_message_get_bus sd_bus_message_get_member sd_bus_message_unref sd_bus_slot_unref sd_event_exit
        sd_event_get_exit_code sd_event_source_disable_unref sd_event_source_get_event
        sd_event_unref u_errorName_72""",
    "it fails only for want of memory, which fails underneath it": """
        __vsnprintf_chk malloc realloc free sd_bus_error_setf u_setMemoryFunctions_72""",
    "the working directory may be missing, which tests/end_to_end has for real": """
        _ZNSt10filesystem12current_pathB5cxx11ERSt10error_code""",
    "it only advises": "mallopt",
    "it is data": "program_invocation_short_name sd_bus_object_vtable_format stderr stdout environ",
}
# Of C++ libraries: what they have fails for want of memory only, by an exception.
LET_BE_PREFIXES = ("_ZN5boost", "_ZN6icu_72", "_ZNK6icu_72", "_ZNKSt", "_ZNSt", "_ZSt", "_ZT",
                   "_Zdl", "_Znw", "__cxa_", "__gxx_", "_Unwind_")


def test_every_function_that_is_called_can_fail_here_or_is_known_not_to():
    called = played.functions_called_by(PROGRAM)
    failing = called & played.functions_that_can_fail()
    let_be = set(" ".join(LET_BE.values()).split())
    unknown = {name for name in called - failing - let_be if not name.startswith(LET_BE_PREFIXES)}
    assert unknown == set()
    assert failing & let_be <= {"malloc"}
    assert "socket" in failing and len(failing) > 40


@pytest.fixture(scope="module")
def folder(tmp_path_factory):
    return tmp_path_factory.mktemp("faults")


@pytest.fixture(scope="module")
def clean(folder):
    [outcome] = played.in_parallel(folder, [""])
    assert (outcome.code, last_words(outcome)) == (0, [])
    return outcome


@pytest.fixture
def play(folder, clean):
    """Plays sessions with these orders, none of which may end as it must not."""
    def play_all(orders):
        outcomes = played.in_parallel(folder, orders)
        wrong = [(outcome.orders, outcome.failed, text) for outcome in outcomes
                 for text in complaints(clean, outcome)]
        assert wrong == []
        return outcomes
    return play_all


def sample(orders, count):
    """Some of the orders; the same again with FINDER_SYNC_SEED in the environment."""
    seed = int(os.environ.get("FINDER_SYNC_SEED", random.randrange(1 << 32)))
    print(f"FINDER_SYNC_SEED={seed}")
    return random.Random(seed).sample(orders, min(count, len(orders)))


def numbers_of(clean, function):
    numbers = [call.number for call in clean.calls if call.function == function]
    assert numbers, function
    return numbers


def play_failing(clean, play, function, way=":1"):
    """Has each call of a function fail; what came about of it."""
    outcomes = play([f"{function}:{number}{way}" for number in numbers_of(clean, function)])
    outcomes = [outcome for outcome in outcomes if failed_functions(outcome) == {function}]
    assert outcomes
    return outcomes


def test_a_session_in_which_nothing_fails(clean):
    assert len(clean.calls) > 300
    assert len(clean.allocations) > 900


def test_each_call_fails_in_turn(clean, play):
    outcomes = play(played.each_call(clean))
    assert sum(bool(outcome.failed) for outcome in outcomes) > 0.95 * len(outcomes)


def test_a_second_instance_gives_way_whatever_fails(tmp_path):
    stage = played.Stage(tmp_path)
    try:
        stage.ask(message_bus.RequestName(BUS_NAME))
        clean = stage.play(scene=played.second_instance)
        assert clean.code == 1 and "is taken, process" in clean.error
        assert {"sd_bus_get_name_creds"} <= {call.function for call in clean.calls}
        for orders in played.each_call(clean) + sample(played.each_allocation(clean), 30):
            outcome = stage.play(orders, scene=played.second_instance)
            assert complaints(clean, outcome) == [], orders
    finally:
        stage.end()


def test_functions_fail_from_some_call_on(clean, play):
    play(sample(played.each_call(clean, "+"), 60))


def test_allocations_fail(clean, play):
    play(sample(played.each_allocation(clean), 100))


def test_calls_fail_in_pairs(clean, play):
    """The second one may not come about, once the first one has failed."""
    firsts = [text for text in played.each_call(clean) if text.endswith(":1")]
    singles = [outcome for outcome in play(sample(firsts, 20)) if outcome.code == 0]
    play(sample([orders for outcome in singles for orders in played.pairs(outcome)], 100))


@pytest.mark.parametrize("number", [1, 60, 130, 300, 500])
def test_a_fatal_error_says_so_when_there_is_no_memory_at_all(play, number):
    [outcome] = play([f"memory:{number}+:1"])
    assert len(last_words(outcome)) == 1


def test_a_fatal_error_is_not_joined_to_half_a_line(clean, play):
    """Some of these allocations are for the line about the launch."""
    [before] = [call.allocations for call in clean.calls if call.function == "localtime_r"]
    outcomes = play([f"memory:{number}:1" for number in range(before, before + 12)])
    assert {outcome.code for outcome in outcomes} >= {-6}


def test_texts_are_compared_truly_or_the_process_ends(clean, play):
    functions = ("unorm_compare_72", "_ZN6icu_7211Normalizer214getNFDInstanceER10UErrorCode",
                 "_ZN6icu_7213BreakIterator23createCharacterInstanceERKNS_6LocaleER10UErrorCode")
    for function in functions:
        outcomes = play_failing(clean, play, function)
        assert {outcome.code for outcome in outcomes} == {-6}


def test_ICU_without_memory_neither_crashes_nor_hangs_nor_errs(clean, play):
    """It asks for some by way of the program, whose own calls are redirected."""
    numbers = [number for number, maker in enumerate(clean.allocations, 1)
               if maker.startswith(("libicuuc", "finder-sync", "libfailing-calls"))]
    assert len(numbers) > 20
    play([f"memory:{number}:1" for number in numbers])


def test_a_link_that_cannot_be_watched_is_not_lost_without_a_word(clean, play):
    outcomes = play_failing(clean, play, "sd_event_source_set_io_events")
    assert {outcome.code for outcome in outcomes} == {-6}


def test_a_failed_connection_that_cannot_be_told_of_ends_the_process(clean, play):
    # These have the run loop tell of it, for one stream and for the other.
    outcomes = play(["socket:1:1 sd_event_add_defer:1:1",
                     "socket:1:1 sd_event_source_set_enabled:1:1"])
    assert [outcome.code for outcome in outcomes] == [-6, -6]


def test_nothing_is_available_after_a_failed_read(clean, play):
    outcomes = play_failing(clean, play, "recv", "+:3")
    assert all("Stream open error" in outcome.output for outcome in outcomes)


def test_the_resources_are_not_looked_for_in_a_wrong_place(clean, play):
    outcomes = play_failing(clean, play, "readlink")
    assert {outcome.code for outcome in outcomes} == {-6}


def test_it_does_not_spin_when_the_bus_library_has_no_memory(clean, play):
    numbers = [number for number, maker in enumerate(clean.allocations, 1)
               if maker.startswith("libsystemd") and number > len(clean.allocations) // 3]
    play([f"memory:{number}+:1" for number in numbers[::40]])
