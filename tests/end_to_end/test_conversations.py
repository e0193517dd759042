"""The conversations that the companion's libraries are tested with, held with the real process."""

import json
import urllib.parse

import pytest
from conftest import wait_for
from python.conversations import NAMES, Conversation, as_text

# The extension sends nothing but reports, and no such paths.
NOT_ITS_OWN = {"failures", "unusable-paths"}
SELECTORS = {
    "clicked_create_url_link": "createLinkClicked:",
    "clicked_backup": "backupClicked:",
    "clicked_share_contacts": "shareContactsClicked:",
    "clicked_in_progress": "inProgressClicked:",
    "clicked_not_synced": "notSyncedClicked:",
    "clicked_synced": "syncedClicked:",
}


class RealConversation(Conversation):
    """Its blocks go to the extension, whose state is compared; its reports come from clicks."""

    def __init__(self, name, session):
        super().__init__(name)
        self.session = session
        self.to_receive = ""
        self.peer, self.extension = session.start_connected()

    def tell(self, block):
        self.peer.send(block)

    def play_blocks(self, blocks):
        super().play_blocks(blocks)
        wait_for(lambda: self.state_differs() == {}, "the state that the extension was told")

    def state_differs(self):
        """What the extension has otherwise than the companion."""
        expected = {"pathsOfRootFolders": sorted(self.companion.folders)}
        if self.companion.backup is not None:
            expected["displayBackup"] = int(self.companion.backup)
        if titles := self.companion.titles:
            expected |= {"shareContactTitle": titles.share_contact, "backupTitle": titles.backup,
                         "shareViaUrlTitle": titles.share_via_url}
        state = self.session.get_all()
        state["pathsOfRootFolders"].sort()
        return {name: state[name] for name, value in expected.items() if state[name] != value}

    def play_receive(self, receive, times=1):
        """Has the extension send what is to be received, once that is whole."""
        text = self.to_receive + as_text(receive) * times
        self.to_receive = text.encode(errors="surrogateescape").decode(errors="surrogateescape")
        while self.to_receive.strip():
            try:
                report, end = json.JSONDecoder().raw_decode(self.to_receive.lstrip())
            except ValueError:
                break
            urls = ["file://" + urllib.parse.quote(path) for path in report["items"]]
            self.session.method("PerformAction", "sas", SELECTORS[report["type"]], urls)
            self.to_receive = self.to_receive.lstrip()[end:]

    def play_reports(self, reports, dropped):
        while len(self.received) < len(reports) or self.connection.dropped_paths < dropped:
            self.received += self.connection.receive(self.peer.connection.recv(1024))
        super().play_reports(reports, dropped)

    def play_newConnection(self, _=True):
        super().play_newConnection()
        assert self.extension.end() == 0
        self.peer, self.extension = self.session.start_connected()


@pytest.mark.parametrize("name", [name for name in NAMES if name not in NOT_ITS_OWN])
def test_conversation(session, name):
    conversation = RealConversation(name, session)
    conversation.play()
    assert conversation.extension.end() == 0
