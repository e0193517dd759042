"""Attacks on real file managers: a window goes on answering, and nothing that is wrong stays."""

import contextlib
import json
import os
import select
import shutil
import signal
import subprocess
import threading
import time

from conftest import wait_for
from desktops import (FILE_MANAGERS, LINK, Desktop, desktop, dolphin,  # noqa: F401
                      file_manager, gnome_files, only_in, thunar)
from hostile.conftest import READ_LENGTH, block, deliver, memory
from hostile.impostor import ERROR, Impostor, value

LONGEST_ANSWER = 0.2  # seconds, to a key
SOON = 1  # seconds from the last change to the right badges and titles
GROWTH = 1.1  # of memory that is in use
GROWTH_OF_BUS = 1 << 10  # kilobytes in a second, for a file manager that reads nothing
ROOTS, PATH_LENGTH = 2000, 900
PICKS = 2


def folder_in(desktop):
    folder = desktop.home / "folder"
    (folder / "Sync").mkdir(parents=True)
    for name in ("first.txt", "last.txt"):
        (folder / name).write_text("Dear you,\n")
    return folder


def opened(desktop, file_manager):
    """A window on a root folder with another in it, and the companion's end of the link."""
    folder = folder_in(desktop)
    peer = desktop.listen()
    desktop.store_settings({"ServerPort": peer.port, "ShareViaUrlTitle": LINK})
    desktop.start("finder-sync-extension", "--log-level", "warning", stdout=subprocess.DEVNULL)
    peer.accept()
    file_manager.open(folder)
    desktop.announce(peer, folder, folder / "Sync")
    return folder, peer


def titles(last, length):
    return block(length, type="set_locale", shareContactTitle="", backupTitle="",
                 shareViaUrlTitle=f"Copy link {last}")


def twenty_thousand_titles(_):
    return [b"".join(titles(number + each, READ_LENGTH // 8) for each in range(8))
            for number in range(0, 20000, 8)]


def two_thousand_roots(_):
    return [block(type="add_folder", path=f"/{number}".ljust(PATH_LENGTH, "x"))
            for number in range(ROOTS)]


def one_root_toggled(root):
    kinds = "del_folder", "add_folder"
    return [block(type=kind, path=str(root)) for kind in kinds] * 1000


def send(peer, blocks, rate=1000):
    """So many blocks a second, each a read of its own."""
    begin = time.monotonic()
    for number, each in enumerate(blocks):
        time.sleep(max(0, begin + number / rate - time.monotonic()))
        deliver(peer.connection, each)


def wait_for_key(desktop, key, place):
    """Seconds until a key that moves the selection to that place, or away, is answered there."""
    x, y, width, height = place

    def look():
        return desktop.screenshot().crop((x, y, x + width, y + height)).tobytes()

    before, begin = look(), time.monotonic()
    desktop.type(key)
    wait_for(lambda: look() != before, "an answer to a key")
    return time.monotonic() - begin


def test_bursts_of_changes(desktop, file_manager):
    folder, peer = opened(desktop, file_manager)
    place = file_manager.icon("Sync")

    def is_badged():
        return file_manager.shows_badge(place)

    def expect_menu(title):
        file_manager.open_menu("last.txt", title)
        file_manager.close_menu()
        file_manager.icon("last.txt", "click")

    expect_menu(LINK)
    last = file_manager.icon("last.txt")
    processes = desktop.daemon, file_manager.process
    before = [memory(each, "VmRSS") for each in processes]
    for burst in (twenty_thousand_titles, two_thousand_roots, one_root_toggled):
        blocks = burst(folder / "Sync")
        sender = threading.Thread(target=send, args=(peer, blocks), daemon=True)
        sender.start()
        waits = []
        while sender.is_alive():
            waits += [wait_for_key(desktop, key, last) for key in ("Home", "End")]
        send(peer, [block(READ_LENGTH // 2, type="del_folder", path=str(folder / "Sync")) +
                    titles(burst.__name__, READ_LENGTH // 2)])
        end = time.monotonic()
        wait_for(lambda: not is_badged(), "no badge")
        took = time.monotonic() - end
        time.sleep(max(0, SOON - took))
        expect_menu(f"Copy link {burst.__name__}")
        after = [memory(each, "VmRSS") for each in processes]
        assert max(waits) < LONGEST_ANSWER, burst.__name__
        assert took < SOON, burst.__name__
        # The bus keeps a buffer for the largest message that a connection has sent; Thunar's plug-in
        # has to read the list of roots.
        list_of_roots = ROOTS * PATH_LENGTH >> 10 if file_manager.name == "thunar" else 0
        assert after[0] <= GROWTH * before[0] + list_of_roots, burst.__name__
        assert after[1] <= GROWTH * before[1], burst.__name__
        # Without a look at the list of roots, which the bus would keep a buffer for.
        send(peer, [block(type="add_folder", path=str(folder / "Sync"))])
        wait_for(is_badged, "the badge")

    file_manager.process.send_signal(signal.SIGSTOP)
    before = memory(desktop.daemon, "VmRSS")
    send(peer, one_root_toggled(folder / "Sync")[:1000])
    grown = memory(desktop.daemon, "VmRSS") - before
    file_manager.process.send_signal(signal.SIGCONT)
    assert grown <= GROWTH_OF_BUS
    wait_for(is_badged, "the badge")


def test_what_could_not_be_had_is_asked_for_again(desktop, file_manager):
    folder = folder_in(desktop)
    roots = {"pathsOfRootFolders": value("as", [str(folder / "Sync")])}
    impostor = Impostor(desktop, roots | {"directoryURLs": ERROR})
    file_manager.open(folder)
    wait_for(lambda: impostor.asked["directoryURLs"], "a question")
    impostor.answers = roots
    wait_for(lambda: file_manager.has_badge("Sync"), "the badge")


def test_a_thousand_long_paths(desktop, file_manager):
    """In one request they would be more than the extension takes."""
    folder = desktop.home.joinpath(*["ä" * 122] * 6)
    (folder / "Sync").mkdir(parents=True)
    names = [f"z{number}.txt" for number in range(1100)]
    for name in names:
        (folder / name).touch()
    desktop.start("finder-sync-extension")
    desktop.wait_for_name()
    # So that all are asked about. Thunar's plug-in asks about root folders, wherever they are.
    namesakes = [f"/elsewhere/{name}" for name in names if file_manager.reports_items]
    desktop.set("pathsOfRootFolders", "as", [str(folder / "Sync"), *namesakes])
    file_manager.open(folder)
    wait_for(lambda: file_manager.has_badge("Sync"), "the badge")
    desktop.set("pathsOfRootFolders", "as", [])
    wait_for(lambda: not file_manager.has_badge("Sync"), "no badge")


@only_in(gnome_files, dolphin, thunar)  # Caja and Nemo take the entries out of an open menu
def test_entries_picked_once_the_extension_has_ended(desktop, file_manager):
    folder, peer = opened(desktop, file_manager)
    for _ in range(PICKS):
        time.sleep(SOON)
        file_manager.open_menu("last.txt", LINK)
        os.kill(desktop.process_of_extension(), signal.SIGKILL)
        file_manager.pick(LINK)
        peer.accept()
        assert json.loads(peer.connection.recv(4096))["items"] == [str(folder / "last.txt")]
        desktop.announce(peer, folder)


def test_a_malformed_greeting(tmp_path):
    """Nobody touches the windows; all of them are open at the same time, each on a desktop of its
    own."""
    starts, connections = {}, []
    with contextlib.ExitStack() as stack:
        for kind in FILE_MANAGERS:
            (tmp_path / kind.__name__).mkdir()
            desktop = Desktop(tmp_path / kind.__name__)
            stack.callback(desktop.end)
            manager = kind(desktop)
            peer = desktop.listen()
            desktop.store_settings({"ServerPort": peer.port})
            if shutil.which(manager.program):
                starts[peer.listener] = 0
                manager.open(folder_in(desktop))
                stack.callback(manager.close)
                manager.icon("last.txt", "click")
        end = time.monotonic() + 20
        while (left := end - time.monotonic()) > 0:
            for listener in select.select(starts, [], [], left)[0]:
                connections.append(listener.accept()[0])
                time.sleep(0.2)  # the windows hear of it
                connections[-1].sendall(b"!\n")
                starts[listener] += 1
    assert max(starts.values()) <= 5, starts
