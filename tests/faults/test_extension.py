"""The extension, whose calls fail: it goes on and tells the truth, or it ends and says why.

`every_failure.py` plays what takes too long here, such as every pair."""

import pytest
from faults import played
from faults.verdict import complaints, failed_functions, last_words


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


def numbers_of(clean, function):
    numbers = [call.number for call in clean.calls if call.function == function]
    assert numbers, function
    return numbers


def play_failing(clean, play, function, way=":1"):
    """Has each call of a function fail; what came about of it."""
    outcomes = play([f"call:{number}{way}" for number in numbers_of(clean, function)])
    outcomes = [outcome for outcome in outcomes if failed_functions(outcome) == {function}]
    assert outcomes
    return outcomes


@pytest.mark.parametrize("number", [1, 60, 130, 300, 500])
def test_a_fatal_error_says_so_when_there_is_no_memory_at_all(play, number):
    [outcome] = play([f"memory:{number}+:1"])
    assert len(last_words(outcome)) == 1


def test_a_fatal_error_is_not_joined_to_half_a_line(clean, play):
    """Some of these allocations are for the line about the launch."""
    launch = numbers_of(clean, "localtime_r")[0]
    [before] = [call.allocations for call in clean.calls if call.number == launch]
    outcomes = play([f"memory:{number}:1" for number in range(before, before + 12)])
    assert {outcome.code for outcome in outcomes} >= {-6}


def test_texts_are_compared_truly_or_the_process_ends(clean, play):
    functions = ("unorm_compare_72", "_ZN6icu_7211Normalizer214getNFDInstanceER10UErrorCode",
                 "_ZN6icu_7213BreakIterator23createCharacterInstanceERKNS_6LocaleER10UErrorCode")
    for function in functions:
        outcomes = play_failing(clean, play, function)
        assert {outcome.code for outcome in outcomes} == {-6}


def test_ICU_without_memory_neither_crashes_nor_hangs_nor_errs(clean, play):
    """It asks for some by way of the program."""
    numbers = [number for number, maker in enumerate(clean.allocations, 1)
               if maker.startswith(("libicuuc", "finder-sync"))]
    assert len(numbers) > 20
    play([f"memory:{number}:1" for number in numbers])


def test_a_link_that_cannot_be_watched_is_not_lost_without_a_word(clean, play):
    outcomes = play_failing(clean, play, "sd_event_source_set_io_events")
    assert {outcome.code for outcome in outcomes} == {-6}


def test_a_failed_connection_that_cannot_be_told_of_ends_the_process(clean, play):
    [number] = numbers_of(clean, "socket")
    # What comes next has the run loop tell of it, for one stream and for the other.
    outcomes = play([f"call:{number}:1 call:{number + 1}:1",
                     f"call:{number}:1 call:{number + 2}:1"])
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
