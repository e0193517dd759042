"""The real process against the model, in sessions made at random: over TCP, where an idle process
reads what was written in one go, and over D-Bus."""

import random
import signal
import socket

import pytest
from conftest import wait_for
from oracle import compare, model
from oracle.over_bus import answers_of, ask, playable, printed, visible, without_parsers_words
from oracle.sessions import Maker

SESSIONS = 50
SEED = 3


def make_events(seed):
    """What happens after the start: a dozen events or more."""
    generator = random.Random(seed)
    events = []
    is_closed = False
    while len(events) < 12:
        for event in filter(None, map(playable, Maker(generator).session())):
            if not is_closed or event[0] not in ("send", "close"):
                events.append(event)
            is_closed = is_closed or event[0] == "close"
    return events


class Play:
    """One session of the real process."""

    def __init__(self, session, settings):
        self.session = session
        self.peer, self.extension = session.start_connected(settings)
        session.wait_for_name()
        self.answers = []

    def perform(self, name, *arguments):
        if name == "send":
            self.peer.send(*arguments)
        elif name == "close":
            self.peer.connection.shutdown(socket.SHUT_WR)
        else:
            answer = ask(self.session, name, *arguments)
            if answer is not None:
                self.answers.append(answer)


@pytest.mark.parametrize("number", range(SESSIONS))
def test_a_session_goes_as_the_model_says(session, number):
    events = make_events(SEED << 20 | number)
    settings = {"DisplayBackup": number % 3, "BackupTitle": "Back up", "ShareViaUrlTitle": "Link"}
    play = Play(session, settings)
    run = model.Run()
    start = [("port", play.peer.port), ("setting", "ServerPort", "integer", play.peer.port),
             *(("setting", key, "string" if isinstance(value, str) else "integer", value)
               for key, value in settings.items()), ("start",), ("turns",)]
    world, extension, death = run.world, run.extension, None
    try:
        for event in start:
            run.play(event)
        for event in events:
            play.perform(*event)
            run.play(event)
            run.play(("turns",))
            wait_for(lambda: len(play.extension.output()) >= len(printed(world.records)), event)
    except model.Death as end:
        death = end
        assert play.extension.wait() == -signal.SIGABRT
        assert without_parsers_words(play.extension.error()).endswith(f"{death}\n")

    received = play.peer.receive(len(world.received))
    assert play.extension.output() == printed(world.records)
    assert play.answers == answers_of(world.records)
    assert compare.parse_reports(received) == compare.parse_reports(world.received)
    if death:
        return
    state = session.get_all()
    assert [state["myFolderURL"], *state["directoryURLs"]] == ["file:///", "file:///"]
    assert state["pathsOfRootFolders"] == [visible(path) for path in extension.paths]
    for title in model.TITLES:
        assert state[title] == visible(extension.properties[title])
    for name in ("isSocketConnected", "displayBackup", "displayUrlLink"):
        assert state[name] == extension.properties[name]
