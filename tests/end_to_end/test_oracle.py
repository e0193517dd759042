"""The real process against the model, in lives made at random: over TCP, where an idle process reads
what was written in one go, and over D-Bus. The soak does the same for long."""

import pytest
from soak.churn import ENDS, Churn
from soak.life import WatchedSession


@pytest.fixture
def watched(tmp_path):
    session = WatchedSession(tmp_path)
    yield session
    session.end()


@pytest.mark.parametrize("seed", range(4))
def test_lives_go_as_the_model_says(watched, seed):
    """Until one has ended in each way."""
    moments = Churn(watched, seed, lengths=[0, 100, 200]).lives()
    while not all(watched.tally[f"ends by {way}"] for way in ENDS):
        next(moments)
