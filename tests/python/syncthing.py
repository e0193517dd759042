"""A real Syncthing, which knows no other device and talks to nobody else."""

import json
import re
import socket
import ssl
import subprocess
import urllib.error
import urllib.request

from conftest import wait_for

SWITCHED_OFF = ("globalAnnounceEnabled", "localAnnounceEnabled", "relaysEnabled", "natEnabled",
                "startBrowser", "crashReportingEnabled")


class Syncthing:
    def __init__(self, session, place="config/syncthing", uses_tls=False):
        self.session = session
        self.settings = session.home / place / "config.xml"
        self.home = f"--home={self.settings.parent}"
        subprocess.run(["syncthing", "generate", self.home, "--no-default-folder", "--skip-port-probing"],
                       env=session.environment, check=True, capture_output=True)
        with socket.create_server(("127.0.0.1", 0)) as free:
            address = f"127.0.0.1:{free.getsockname()[1]}"
        self.url = f"{'https' if uses_tls else 'http'}://{address}"
        self.edit(r"127\.0\.0\.1:8384", address)
        self.edit('tls="false"', f'tls="{str(uses_tls).lower()}"')
        self.edit("(<listenAddress>)default", r"\1tcp://127.0.0.1:0")
        self.edit(f"<({'|'.join(SWITCHED_OFF)})>true", r"<\1>false")
        self.key = re.search("<apikey>(.*)</apikey>", self.settings.read_text())[1]

    def edit(self, pattern, replacement):
        self.settings.write_text(re.sub(pattern, replacement, self.settings.read_text()))

    def start(self):
        self.session.start("/usr/bin/syncthing", "serve", self.home, "--no-browser", "--no-restart",
                           "--no-upgrade")
        wait_for(self.answers, "Syncthing")

    def answers(self):
        try:
            return self.ask("GET", "system/ping")
        except urllib.error.URLError:
            return None

    def ask(self, method, what, value=None):
        request = urllib.request.Request(
            f"{self.url}/rest/{what}", method=method, headers={"X-API-Key": self.key},
            data=None if value is None else json.dumps(value).encode())
        # pylint: disable=protected-access
        with urllib.request.urlopen(request, context=ssl._create_unverified_context()) as answer:
            text = answer.read()
        return json.loads(text) if text else None

    def add(self, name, path):
        """A folder that is looked at once, and then only when somebody asks for it."""
        path.mkdir(exist_ok=True)
        self.ask("PUT", f"config/folders/{name}", {
            "id": name, "path": str(path), "fsWatcherEnabled": False, "rescanIntervalS": 0})
        wait_for(lambda: self.status(name)["state"] == "idle", "the first look")

    def status(self, name):
        return self.ask("GET", f"db/status?folder={name}")
