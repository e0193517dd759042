"""The extension, whose calls fail: it goes on and tells the truth, or it ends and says why.

`every_failure.py` plays what takes too long here, such as every pair."""

import pytest
from faults import played
from faults.verdict import complaints, last_words


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


def test_a_session_in_which_nothing_fails(clean):
    assert len(clean.calls) > 300
    assert len(clean.allocations) > 900
