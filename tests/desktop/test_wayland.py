"""Badge, menu and report under Wayland, in a compositor that draws into memory."""

import io
import json
import pathlib
import shutil
import socket
import struct
import subprocess

import pytest
from conftest import NOT_AS_ROOT, line, wait_for
from desktops import BADGE, ENTRY_ICON, LINK, Desktop, file_manager  # noqa: F401
from PIL import Image
from test_file_managers import opened

# The file manager's window fills the screen, so that places in it are places on the screen.
SCREEN = 0, 0, 1000, 700
SWAY = """output HEADLESS-1 resolution {1}x{2}
default_border none
exec 'echo $WAYLAND_DISPLAY $DISPLAY >{0}.new && mv {0}.new {0}'
"""


class Mouse:
    """A client of the compositor that has a mouse for it, in a corner until it clicks."""

    def __init__(self, display):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(str(display))
        registry, manager, self.device = 2, 3, 4
        self.request(1, 1, "I", registry)
        interface, known = b"zwlr_virtual_pointer_manager_v1\0", b""
        while interface not in known:
            known += self.socket.recv(4096)
        number, = struct.unpack_from("=I", known, known.index(interface) - 8)
        self.request(registry, 0, "II32sII", number, len(interface), interface, 1, manager)
        self.request(manager, 0, "II", 0, self.device)
        self.move(*(length - 1 for length in SCREEN[2:]))

    def request(self, receiver, number, layout="", *values):
        data = struct.pack("=" + layout, *values)
        self.socket.sendall(struct.pack("=IHH", receiver, number, 8 + len(data)) + data)

    def move(self, x, y):
        self.request(self.device, 1, "IIIII", 0, x, y, *SCREEN[2:])
        self.request(self.device, 4)

    def click(self, button):
        """With the left button, 1, or the right one, 3."""
        for is_pressed in (1, 0):
            self.request(self.device, 2, "III", 0, 0x110 + button // 2, is_pressed)
            self.request(self.device, 4)


class WaylandDesktop(Desktop):
    def start_bus(self, *services):
        super().start_bus(*services)
        # Caja takes X11, which the compositor starts a server for.
        self.environment |= {"GDK_BACKEND": "wayland,x11", "QT_QPA_PLATFORM": "wayland"}

    def start_screen(self):
        if self.screen:
            return
        configuration, displays = self.folder / "sway", self.folder / "displays"
        configuration.write_text(SWAY.format(displays, *SCREEN[2:]))
        self.environment |= {"WLR_BACKENDS": "headless", "WLR_LIBINPUT_NO_DEVICES": "1",
                             "WLR_RENDERER": "pixman"}
        with open(self.folder / "sway.log", "wb") as log:
            self.screen = subprocess.Popen([*NOT_AS_ROOT, "sway", "--config", configuration],
                                           env=self.environment, stdout=log, stderr=log)
        names = wait_for(lambda: displays.exists() and displays.read_text().split(), "the compositor")
        self.environment |= zip(("WAYLAND_DISPLAY", "DISPLAY"), names)
        self.mouse = Mouse(pathlib.Path(self.environment["XDG_RUNTIME_DIR"]) / names[0])

    def accessible(self, action, *thing, **options):
        """The mouse of assistive technologies is X11's. The places that GTK 3 tells of entries are
        wrong here, so these are pressed without one."""
        if action != "menu":
            return super().accessible(action.replace("click", "press"), *thing, **options)
        x, y, width, height = super().accessible("find", *thing, **options)
        self.click(x + min(width, height) // 2, y + height // 2, 3)
        return x, y, width, height

    def click(self, x, y, button=1):
        self.mouse.move(x, y)
        wait_for(lambda: self.screenshot() == self.screenshot(), "a screen at rest")
        self.mouse.click(button)

    def screenshot(self):
        picture = subprocess.run(["grim", "-t", "ppm", "-"], env=self.environment, check=True,
                                 stdout=subprocess.PIPE).stdout
        return Image.open(io.BytesIO(picture)).convert("RGB")


@pytest.fixture
def desktop(tmp_path):
    for program in "sway", "grim":
        if not shutil.which(program):
            pytest.skip(f"{program} is not installed")
    if subprocess.run([*NOT_AS_ROOT, "true"], check=False).returncode != 0:
        pytest.skip("sway refuses to run as root, and there are no user namespaces to hide that in")
    desktop = WaylandDesktop(tmp_path)
    try:
        yield desktop
    finally:
        desktop.end()
    assert desktop.findings() == ""


def test_a_root_folder_gets_its_badge_in_the_open_window(desktop, file_manager):  # noqa: F811
    def has_badge():
        return desktop.shows(BADGE, SCREEN, tolerance=file_manager.tolerance)

    folder, peer = opened(desktop, file_manager)
    assert not has_badge()
    peer.send(line(type="add_folder", path=str(folder / "Sync")))
    wait_for(has_badge, "the badge")
    peer.send(line(type="del_folder", path=str(folder / "Sync")))
    wait_for(lambda: not has_badge(), "no badge")


def test_an_entry_is_picked_and_reported(desktop, file_manager):  # noqa: F811
    folder, peer = opened(desktop, file_manager, "Sync")
    desktop.announce(peer, folder / "Sync")
    file_manager.open_menu("Letter.txt", LINK)
    assert desktop.shows(ENTRY_ICON, SCREEN) == file_manager.has_entry_icons
    file_manager.pick(LINK)
    assert json.loads(peer.connection.recv(4096))["items"] == [str(folder / "Sync/Letter.txt")]
