"""Real file managers with a real extension: what a person sees, and what a companion gets."""

import json
import os
import signal

from conftest import line, wait_for
from desktops import (BACKUP, ENTRY_ICON, LINK, caja, desktop, dolphin, file_manager,  # noqa: F401
                      gnome_files, nemo, only_in, thunar, with_named_entries)


def opened(desktop, file_manager, where="."):
    """A window on the demonstration, or on a folder in it, and the companion's end of the link of
    the extension, which the file manager has had the bus start."""
    folder = desktop.home / "demonstration"
    (folder / "Sync/Inside").mkdir(parents=True)
    (folder / "Sync/Inside/Note.txt").write_text("Remember\n")
    (folder / "Other").mkdir()
    (folder / "Sync/Letter.txt").write_text("Dear you,\n")
    peer = desktop.listen()
    desktop.store_settings(
        {"ServerPort": peer.port, "ShareViaUrlTitle": LINK, "BackupTitle": BACKUP})
    file_manager.open(folder / where)
    peer.accept()
    if file_manager.reports_items:
        # It asks about what is called like a root folder once it knows that the extension is there.
        # Menus have nothing of it before.
        namesake = f"/elsewhere/{min(os.listdir(folder / where))}"
        peer.send(line(type="add_folder", path=namesake))
        wait_for(lambda: "requestBadgeIdentifierForURL" in desktop.bus_log.read_text(),
                 "a question for a badge")
        peer.send(line(type="del_folder", path=namesake))
    return folder, peer


def test_a_root_folder_gets_its_badge_in_the_open_window(desktop, file_manager):
    folder, peer = opened(desktop, file_manager)
    assert not file_manager.has_badge("Sync")
    peer.send(line(type="add_folder", path=str(folder / "Sync")))
    wait_for(lambda: file_manager.has_badge("Sync"), "the badge")
    assert not file_manager.has_badge("Other")
    peer.send(line(type="del_folder", path=str(folder / "Sync")))
    wait_for(lambda: not file_manager.has_badge("Sync"), "no badge")


def test_an_entry_is_picked_and_reported(desktop, file_manager):
    folder, peer = opened(desktop, file_manager, "Sync")
    desktop.announce(peer, folder / "Sync")
    file_manager.open_menu("Letter.txt", LINK)
    entry = file_manager.entry(LINK)
    assert desktop.shows(ENTRY_ICON, entry) == file_manager.has_entry_icons
    file_manager.pick(LINK)
    report = json.loads(peer.connection.recv(4096))
    assert report == {"type": "clicked_create_url_link",
                      "items": [str(folder / "Sync/Letter.txt")]}


def opened_below_root_folder(desktop, file_manager):
    """A window on a folder that would get entries if it were selected."""
    folder, peer = opened(desktop, file_manager, "Sync/Inside")
    desktop.announce(peer, folder / "Sync")
    file_manager.open_menu("Note.txt", LINK)
    file_manager.close_menu()
    return folder, peer


def test_the_background_of_a_folder_gets_no_entries(desktop, file_manager):
    opened_below_root_folder(desktop, file_manager)
    file_manager.open_background_menu("Note.txt")
    file_manager.expect_menu_without(LINK)


@only_in(thunar)
def test_the_location_bar_gets_no_entries(desktop, file_manager):
    opened_below_root_folder(desktop, file_manager)
    for folder in ("Inside", "Sync"):
        desktop.accessible("menu", "thunar", "toggle button", folder)
        file_manager.expect_menu_without(LINK)
        file_manager.close_menu()


@only_in(caja, nemo, thunar)  # the others search with programs that the tests do not install
def test_what_a_search_finds_gets_badges_and_entries(desktop, file_manager):
    folder, peer = opened(desktop, file_manager)
    desktop.announce(peer, folder / "Sync", folder / "Sync/Inside")
    file_manager.icon("Sync")
    desktop.type("ctrl+f", *"Inside", "Return")
    file_manager.open_menu("Inside", LINK)
    file_manager.close_menu()
    wait_for(lambda: file_manager.has_badge("Inside"), "the badge")


@with_named_entries  # Dolphin offers no plug-in's entries there
def test_what_is_in_the_trash_is_not_asked_about(desktop, file_manager):
    desktop.start_bus("org.gtk.vfs.Daemon")
    trash = desktop.home / "share/Trash"
    for name, text in [("files/Letter.txt", "Dear you,\n"),
                       ("info/Letter.txt.trashinfo", "[Trash Info]\nPath=/Letter.txt\n")]:
        (trash / name).parent.mkdir(parents=True)
        (trash / name).write_text(text)
    extension = desktop.start("../tests/scripted-extension", "--title", LINK)
    desktop.wait_for_name()
    file_manager.open("trash:///")
    extension.wait_output("get directoryURLs\n")
    file_manager.open_menu("Letter.txt")
    file_manager.expect_menu_without(LINK)
    assert {call.split()[0] for call in extension.output().splitlines()} == {"get"}


@only_in(caja)  # and not Nemo, whose desktop is another program
def test_the_desktop_shows_badges_and_entries(desktop, file_manager):
    root = desktop.home / "Desktop/Sync"
    root.mkdir(parents=True)
    extension = desktop.start("../tests/scripted-extension", "--title", LINK, str(root))
    plugins = desktop.programs.parent / "lib/caja/extensions-2.0"
    desktop.environment["CAJA_EXTENSION_DIRS"] = str(plugins)
    file_manager.start("caja", "--force-desktop", "--no-default-window")
    wait_for(lambda: file_manager.has_badge("Sync"), "the badge")
    file_manager.open_menu("Sync", LINK)
    file_manager.close_menu()
    file_manager.open_menu("Trash")
    file_manager.expect_menu_without(LINK)
    assert "x-caja-desktop" not in extension.output()


@only_in(gnome_files)  # Caja and Nemo end the entries of a file that goes, and Thunar does not tell
def test_a_file_that_goes_while_its_menu_is_open_is_not_reported(desktop, file_manager):
    folder, peer = opened(desktop, file_manager, "Sync")
    desktop.announce(peer, folder / "Sync")
    file_manager.open_menu("Letter.txt", LINK)
    (folder / "Sync/Letter.txt").rename(folder / "Sync/Renamed.txt")
    file_manager.icon("Renamed.txt")
    file_manager.pick(LINK)
    assert json.loads(peer.connection.recv(4096))["items"] == []


@only_in(caja, dolphin)
def test_products_beside_one_that_hangs_and_one_that_answers_nonsense(desktop, file_manager):
    badge_of_second = (0, 255, 255)
    desktop.add_images("org.second", badge_of_second, title="Second", entry=(255, 255, 0))
    root = str(desktop.home / "demonstration/Sync/Inside")
    second, _ = (desktop.start("../tests/scripted-extension", "--name", name + ".FinderSync",
                               "--title", "Second", *options, root)
                 for name, *options in [("org.second",), ("a.nonsense", "--nonsense")])
    folder, peer = opened(desktop, file_manager, "Sync")
    desktop.announce(peer, folder / "Sync", folder / "Sync/Inside")
    wait_for(lambda: file_manager.has_badge("Inside"), "the badge")

    def has_badge_of_second():
        return desktop.shows(badge_of_second, file_manager.icon("Inside"), *file_manager.badge_offset)

    wait_for(has_badge_of_second, "the other badge")
    file_manager.open_menu("Inside", LINK)
    file_manager.entry("Second")
    file_manager.close_menu()

    second.popen.send_signal(signal.SIGSTOP)
    file_manager.open_menu("Letter.txt")
    file_manager.entry(LINK)
    file_manager.entry("Second", "gone", timeout=0)
    file_manager.pick(LINK)
    assert json.loads(peer.connection.recv(4096))["items"] == [str(folder / "Sync/Letter.txt")]

    second.popen.kill()
    wait_for(lambda: not has_badge_of_second(), "its end")
    assert file_manager.has_badge("Inside")


@with_named_entries
def test_the_menu_follows_the_companion(desktop, file_manager):
    folder, peer = opened(desktop, file_manager, "Sync")
    peer.send(line(type="add_folder", path=str(folder / "Sync")))
    peer.send(line(type="set_menu_usage", displayBackup="1"))
    peer.send(line(type="set_locale", shareContactTitle="", shareViaUrlTitle="Länk kopieren",
                   backupTitle="Sichern"))
    desktop.wait_for_value("backupTitle", "Sichern")
    file_manager.open_menu("Letter.txt", "Länk kopieren")
    file_manager.entry("Sichern")
    file_manager.close_menu()

    peer.close()
    desktop.wait_for_value("isSocketConnected", False)
    file_manager.open_menu("Letter.txt")
    file_manager.entry("Sichern", "gone")


def test_an_extension_that_dies_takes_its_badges_along(desktop, file_manager):
    folder, peer = opened(desktop, file_manager)
    peer.send(line(type="add_folder", path=str(folder / "Sync")))
    wait_for(lambda: file_manager.has_badge("Sync"), "the badge")
    os.kill(desktop.process_of_extension(), signal.SIGKILL)
    wait_for(lambda: not file_manager.has_badge("Sync"), "no badge")
    # The next time that something is asked for, it is started anew.
    file_manager.open_menu("Sync")
    peer.accept()
    peer.send(line(type="add_folder", path=str(folder / "Sync")))
    file_manager.close_menu()
    wait_for(lambda: file_manager.has_badge("Sync"), "the badge again")
