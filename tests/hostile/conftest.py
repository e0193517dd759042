"""A session with the extension, a companion, and one file manager of each kind."""

import json
import os
import select
import signal
import time

import pytest
from conftest import wait_for

from hostile import headless

GROWTH = 4096  # kilobytes; the allocator keeps what the largest request has taken


class Scene:
    def __init__(self, session, name):
        self.session = session
        self.name = name
        self.peer = self.extension = self.desktop = None
        self.processors_of_file_managers = os.sched_getaffinity(0)
        self.start_bus()

    def start_bus(self, **limits):
        """A bus that starts the extension that was built. Limits that are not given are those of
        every session."""
        configuration = self.session.folder / "bus.conf"
        configuration.write_text(
            "<busconfig><include>/usr/share/dbus-1/session.conf</include>"
            + "".join(f'<limit name="{name}">{value}</limit>' for name, value in limits.items())
            + "</busconfig>", encoding="ascii")
        self.session.start_bus(configuration,
                               XDG_DATA_DIRS=str(self.session.programs.parent / "share"))

    def begin(self, **options):
        """The extension with a companion that has announced a folder, and file managers that show
        its badge and offer its entry."""
        self.peer, self.extension = self.session.start_connected(**options)
        headless.announce(self.peer)
        self.open_file_managers()
        self.remember()
        return self.peer.connection

    def begin_without_link(self, peer, menus=True):
        """The extension with whatever a peer is to it. The bus announces a folder."""
        self.peer = peer
        self.extension = self.session.start_extension({
            "ServerPort": peer.port, "ShareViaUrlTitle": headless.TITLE})
        self.session.wait_for_name()
        self.session.set("pathsOfRootFolders", "as", ["/sync"])
        self.open_file_managers(menus)
        self.remember()

    def open_file_managers(self, menus=True, wait=True):
        if self.desktop:
            self.desktop.end()
        with headless.kept_on(self.processors_of_file_managers):
            self.desktop = headless.Desktop(self.session)
        if wait:
            self.desktop.wait_ready(menus)
        self.desktop.attack = self.name

    def remember(self):
        """What the extension has before the attack."""
        process = self.extension.popen.pid
        self.memory = headless.own_memory(process)
        self.descriptors = headless.descriptors(process)

    def keep_asking(self, seconds=0.3, by_turns=False):
        headless.for_a_while(seconds, lambda: (self.desktop.menus(by_turns=by_turns),
                                               time.sleep(0.02)))

    def stays_level(self, growth=0):
        """The extension has not grown by more than so many kilobytes, nor kept a descriptor."""
        process = self.extension.popen.pid
        grown = headless.own_memory(process) - self.memory
        headless.growths[self.name] = grown
        wait_for(lambda: headless.descriptors(process) <= self.descriptors, "closed descriptors")
        if not headless.is_instrumented(process):
            assert grown <= growth + GROWTH

    def is_as_before(self, growth=0):
        assert self.extension.popen.poll() is None
        self.stays_level(growth)
        self.works()

    def works(self):
        """Badges, menus and clicks, of each file manager."""
        if self.desktop.has_waited:
            self.open_file_managers()  # those that are open rest for five seconds
        self.desktop.wait_ready()
        self.desktop.order("pick")
        report = {"type": "clicked_create_url_link", "items": ["/sync/a"]}
        assert self.receive(len(headless.NAMES)) == [report] * len(headless.NAMES)

    def recovers_from(self, impostor):
        """Another program gives the name back. The bus starts the extension, since the file
        managers want it, and all is as it should be."""
        self.peer = self.session.listen()
        self.session.store_settings({"ServerPort": self.peer.port})
        impostor.end()
        self.comes_back()

    def comes_back(self):
        wait_for(lambda: self.desktop.menus() and
                 select.select([self.peer.listener], [], [], 0)[0], "the extension")
        self.peer.accept()
        headless.announce(self.peer)
        self.works()

    def receive(self, count):
        """So many reports of clicks."""
        text, reports = "", []
        while len(reports) < count:
            text += self.peer.connection.recv(65536).decode()
            while text:
                try:
                    report, end = json.JSONDecoder().raw_decode(text)
                except ValueError:
                    break
                reports.append(report)
                text = text[end:]
        return reports

    def has_closed_link(self):
        """The companion is gone as far as the extension knows: no menus, and badges as ever."""
        self.session.wait_for_value("isSocketConnected", False)
        self.stays_level()
        wait_for(lambda: self.desktop.offer([]))
        assert self.desktop.are_badged()

    def has_lost_link(self):
        """The link is broken, which the extension does not take for its end."""
        assert self.extension.popen.poll() is None
        self.stays_level()
        if self.desktop.has_waited:
            self.open_file_managers()
        self.desktop.wait_ready()
        self.desktop.order("pick")
        assert self.session.get("isSocketConnected") is True

    def has_ended(self):
        """The attack was fatal, as it is meant to be. The bus starts the extension anew, since the
        file managers want it."""
        assert self.extension.wait() == -signal.SIGABRT
        self.comes_back()

    def end(self):
        if self.desktop:
            self.desktop.end()


@pytest.fixture
def scene(session, request):
    scene = Scene(session, request.node.name.removeprefix("test_"))
    try:
        yield scene
    finally:
        scene.end()


@pytest.fixture
def processor_of_their_own(scene):
    """Gives the file managers one that the attack does not use, if there are two. A kernel may let a
    system call run on to its end, and one that sends or receives many megabytes keeps all others on
    that processor waiting, whoever makes it and however far ahead of it they are to run:
    large_messages.py shows that with programs that have nothing to do with ours."""
    everywhere = os.sched_getaffinity(0)
    *others, last = sorted(everywhere)
    scene.processors_of_file_managers = {last}
    with headless.kept_on(others or everywhere):
        scene.start_bus()
        yield


def pytest_terminal_summary(terminalreporter):
    """What the file managers have waited for their menus."""
    write = terminalreporter.write_line
    write(f"{sum(headless.requests.values())} menus; the longest, in milliseconds: "
          + ", ".join(headless.NAMES))
    for attack, waits in headless.longest.items():
        growth = headless.growths.get(attack)
        write(" ".join(f"{waits.get(name, 0):6.1f}" for name in headless.NAMES)
              + f"  {attack}" + ("" if growth is None else f", memory {growth:+} KiB"))
