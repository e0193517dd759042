"""The repositories that git-annex's assistant starts with the session, as folders."""

import json
import time

from ..settings import config_home

INTERVAL = 2.0  # seconds between looks at the file


def print_folders() -> None:
    """Prints all of them, and again and again; until somebody has used the assistant there are none."""
    file = config_home() / "git-annex/autostart"
    while True:
        lines = file.read_text(encoding="utf-8").splitlines() if file.exists() else []
        print(json.dumps([line for line in lines if line]), flush=True)
        time.sleep(INTERVAL)
