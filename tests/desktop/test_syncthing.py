"""A folder of a real Syncthing in an open window, with finder-sync-companion between the two."""

import shutil

import pytest
from conftest import wait_for
from desktops import SOURCES, caja, desktop, file_manager, only_in  # noqa: F401
from python.syncthing import Syncthing


@only_in(caja)
@pytest.mark.skipif(not shutil.which("syncthing"), reason="syncthing is not installed")
def test_a_folder_has_its_badge_while_syncthing_has_it(desktop, file_manager):
    folder = desktop.home / "demonstration/Sync"
    folder.mkdir(parents=True)
    desktop.configure("finder-sync-companion/settings.toml",
                      (SOURCES / "python/examples/syncthing.toml").read_text())
    desktop.environment["PATH"] = f"{desktop.programs}:{desktop.environment['PATH']}"
    syncthing = Syncthing(desktop)
    syncthing.start()
    desktop.start("finder-sync-companion")
    file_manager.open(folder.parent)
    assert not file_manager.has_badge("Sync")
    syncthing.add("demonstration", folder)
    wait_for(lambda: file_manager.has_badge("Sync"), "the badge")
    syncthing.ask("DELETE", "config/folders/demonstration")
    wait_for(lambda: not file_manager.has_badge("Sync"), "no badge")
