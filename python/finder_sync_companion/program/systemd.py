"""Has systemd listen for the extension, so that the order in which programs start does not matter."""

import asyncio

from ..settings import config_home

SOCKET = "finder-sync-companion.socket"


async def enable_socket(port: int) -> None:
    """Enables the unit that is installed, with the port of this user. Raises OSError."""
    drop_in = config_home() / "systemd/user" / f"{SOCKET}.d/port.conf"
    drop_in.parent.mkdir(parents=True, exist_ok=True)
    drop_in.write_text(f"[Socket]\nListenStream=127.0.0.1:{port}\n", encoding="ascii")
    for words in (["daemon-reload"], ["enable", "--quiet", SOCKET], ["restart", SOCKET]):
        try:
            child = await asyncio.create_subprocess_exec("systemctl", "--user", *words)
            has_failed = await child.wait() != 0
        except OSError:
            has_failed = True
        if has_failed:
            raise OSError(f"systemctl --user {' '.join(words)} has failed: if systemd does not "
                          "run the session, start finder-sync-companion with the session instead")
