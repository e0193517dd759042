"""The folders of the user's Syncthing, by its REST interface."""

import http.client
import json
import os
import pathlib
import ssl
import urllib.error
import urllib.parse
import urllib.request
import xml.etree.ElementTree
from typing import Any

from ..settings import config_home

WAIT = 60  # seconds after which Syncthing answers although nothing has happened


def print_folders() -> None:
    """Prints all folders whenever Syncthing's settings have changed, and now and then.

    They are called by their identifiers, which its interface knows them by.
    """
    rest = _Rest()
    last, wait = 0, 0
    while True:
        # Asked for before the folders, so that no change falls between.
        events = rest.ask(f"events?events=ConfigSaved&since={last}&timeout={wait}")
        if events:
            last = events[-1]["id"]
        folders = rest.ask("config/folders")
        print(json.dumps([{"path": one["path"], "name": one["id"]} for one in folders]), flush=True)
        wait = WAIT


def rescan(folder: str, path: str) -> None:
    """Has Syncthing look for changes in a folder, by its identifier, at a path inside it."""
    words = urllib.parse.urlencode({"folder": folder, "sub": path})
    _Rest().ask(f"db/scan?{words}", method="POST")


def _settings() -> pathlib.Path:
    moved = filter(None, map(os.environ.get, ("STCONFDIR", "STHOMEDIR")))
    state = pathlib.Path(os.environ.get("XDG_STATE_HOME") or "~/.local/state").expanduser()
    # Older versions keep everything among the settings, and newer ones go on with what is there.
    places = [*map(pathlib.Path, moved), config_home() / "syncthing", state / "syncthing"]
    files = [place / "config.xml" for place in places]
    for file in files:
        if file.exists():
            return file
    raise OSError(f"there is no {' and no '.join(map(str, files))}: has Syncthing been started?")


class _Rest:
    """The interface, where and with which key Syncthing's own settings say. Raises OSError."""

    def __init__(self) -> None:
        self._file = _settings()
        try:
            gui = xml.etree.ElementTree.parse(self._file).find("gui")
        except xml.etree.ElementTree.ParseError as error:
            raise OSError(f"{self._file}: {error}") from None
        if gui is None:
            raise OSError(f"{self._file} has no element gui")
        scheme = "https" if gui.get("tls") == "true" else "http"
        host, _, port = gui.findtext("address", "").rpartition(":")
        self._key = gui.findtext("apikey", "")
        self._url = f"{scheme}://{'127.0.0.1' if host in ('', '0.0.0.0', '[::]') else host}:{port}"
        certificate = self._file.with_name("https-cert.pem") if scheme == "https" else None
        trust = ssl.create_default_context(cafile=certificate)  # and no other
        trust.check_hostname = False  # its certificate, of its own making, is not made out to an address
        self._opener = urllib.request.build_opener(
            urllib.request.ProxyHandler({}), urllib.request.HTTPSHandler(context=trust))

    def ask(self, what: str, method: str = "GET") -> Any:
        request = urllib.request.Request(f"{self._url}/rest/{what}", method=method,
                                         headers={"X-API-Key": self._key})
        try:
            with self._opener.open(request, timeout=2 * WAIT) as answer:
                text = answer.read()
        except urllib.error.HTTPError as error:
            if error.code in (401, 403):
                raise OSError(f"Syncthing at {self._url} does not take the API key that is in "
                              f"{self._file}") from None
            raise OSError(f"Syncthing at {self._url}: {error.read().decode(errors='replace')}") from None
        except (OSError, ValueError, http.client.HTTPException) as error:
            reason = getattr(error, "reason", error)
            raise OSError(f"Syncthing does not answer at {self._url}: "
                          f"{getattr(reason, 'strerror', None) or reason}") from None
        return json.loads(text) if text else None
