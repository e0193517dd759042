"""A desktop without a screen: an X server in memory, a session bus, and a file manager that has
the plug-in from the build."""

import os
import pathlib
import subprocess

import pytest
from conftest import GROUP, Session, wait_for
from jeepney import DBusAddress, Properties, message_bus
from PIL import Image

BADGE = (255, 0, 255)  # of the emblem that tests put in place of ours: nothing else is so
MARKED_EMBLEM = """<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 48 48">
<rect width="48" height="48" fill="#ff00ff"/></svg>"""
LINK, BACKUP = "Copy link", "Back up now"


class Desktop(Session):
    def __init__(self, folder):
        self.screen = None
        super().__init__(folder)

    def start_bus(self, **environment):
        self.start_screen()
        share = self.programs.parent / "share"
        self.environment |= {
            "XDG_DATA_HOME": str(self.home / "share"),
            "XDG_DATA_DIRS": f"{share}:/usr/local/share:/usr/share",
            "XDG_CACHE_HOME": str(self.home / "cache"),
            "XDG_RUNTIME_DIR": str(self.home / "run"),
            "GDK_BACKEND": "x11",
            "GSETTINGS_BACKEND": "memory",
            "GIO_USE_VFS": "local",
        }
        (self.home / "run").mkdir(mode=0o700, exist_ok=True)
        super().start_bus(**environment)

    def start_screen(self):
        if self.screen:
            return
        reader, writer = os.pipe()
        self.screen = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", "1000x700x24", "-nolisten", "tcp"],
            pass_fds=[writer], stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as display:
            self.environment["DISPLAY"] = ":" + display.readline().strip()

    def end(self):
        super().end()
        self.screen.terminate()
        self.screen.wait()

    def accessible(self, action, *thing, patience=20):
        script = pathlib.Path(__file__).parent / "accessible.py"
        found = subprocess.run(["/usr/bin/python3", "-B", script, str(patience), action, *thing],
                               env=self.environment, capture_output=True, text=True)
        assert found.returncode == 0, found.stderr + self.look("failed")
        return [int(number) for number in found.stdout.split()]

    def screenshot(self):
        file = self.folder / "screen.png"
        subprocess.run(["import", "-window", "root", str(file)], env=self.environment, check=True)
        with Image.open(file) as image:
            return image.convert("RGB")

    def look(self, name):
        """Keeps a picture of the screen for people; says where."""
        self.screenshot().save(self.folder / f"{name}.png")
        return f" (see {self.folder / name}.png)"

    def has_badge(self, place):
        """Whether an icon shows the marked emblem."""
        x, y, width, height = place
        around = self.screenshot().crop((x - 20, y - 20, x + width + 20, y + height + 20))
        return around.getcolors(1 << 20) is not None and \
            sum(count for count, color in around.getcolors(1 << 20) if color == BADGE) > 20


class FileManager:
    """What the tests do is the same in every file manager; how it is called is not."""

    def __init__(self, desktop, name, command, icon_role):
        self.desktop = desktop
        self.name = name
        self.command = command
        self.icon_role = icon_role

    def open(self, folder):
        environment = self.desktop.environment
        self.process = subprocess.Popen(
            [*self.command, str(folder)], env=environment, stdout=subprocess.DEVNULL,
            stderr=open(self.desktop.folder / "file-manager.log", "wb"))

    def close(self):
        self.process.terminate()
        self.process.wait()

    def icon(self, name, action="find", **options):
        return self.desktop.accessible(action, self.name, self.icon_role, name, **options)

    def entry(self, title, action="find", **options):
        return self.desktop.accessible(action, self.name, "menu item", title, **options)

    def close_menu(self):
        subprocess.run(["xdotool", "key", "Escape"], env=self.desktop.environment, check=True)

    def log(self):
        return (self.desktop.folder / "file-manager.log").read_text(errors="replace")


def caja(desktop):
    desktop.environment["CAJA_EXTENSION_DIRS"] = str(
        desktop.programs.parent / "lib/caja/extensions-2.0")
    return FileManager(desktop, "caja", ["caja", "--no-desktop", "--browser"], "icon")


class Dolphin(FileManager):
    def open(self, folder):
        super().open(folder)
        # Qt shows what is in its windows when a screen reader has come. It often misses one that
        # was there before.
        name = f"org.kde.dolphin-{self.process.pid}"
        wait_for(lambda: self.desktop.call(message_bus.NameHasOwner(name))[0], name)
        status = DBusAddress("/org/a11y/bus", "org.a11y.Bus", "org.a11y.Status")
        self.desktop.call(Properties(status).set("IsEnabled", "b", True))

    def entry(self, title, action="find", **options):
        """Qt keeps popup menus out of the accessible tree. Ours is the entry before the last."""
        if action != "click":
            pytest.skip("the entries of Qt's popup menus have no accessible names")
        self.keys("Up", "Up", "Return")

    def close_menu(self):
        """And ends the selection and the hovering, which tint an icon and its badge."""
        self.keys("Escape")
        wait_for(lambda: len(self.windows()) == 1, "no menu")
        subprocess.run(["xdotool", "mousemove", "990", "690", "key", "Escape"],
                       env=self.desktop.environment, check=True)

    def keys(self, *keys):
        wait_for(lambda: len(self.windows()) > 1, "the menu")
        subprocess.run(["xdotool", "key", *keys], env=self.desktop.environment, check=True)

    def windows(self):
        search = ["xdotool", "search", "--onlyvisible", "--class", self.name]
        return subprocess.run(search, env=self.desktop.environment, capture_output=True,
                              text=True).stdout.split()


def dolphin(desktop):
    desktop.environment |= {
        "QT_PLUGIN_PATH": str(desktop.programs.parent / "lib/plugins"),
        "QT_QPA_PLATFORM": "xcb",
    }
    return Dolphin(desktop, "dolphin", ["dolphin"], "table cell")


@pytest.fixture
def desktop(tmp_path):
    desktop = Desktop(tmp_path)
    emblems = desktop.home / "share/icons/hicolor/scalable/emblems"
    emblems.mkdir(parents=True)
    (emblems / f"emblem-{GROUP}.FolderIco.svg").write_text(MARKED_EMBLEM)
    try:
        yield desktop
    finally:
        desktop.end()
    assert desktop.findings() == ""


@pytest.fixture(params=[caja, dolphin], ids=["caja", "dolphin"])
def file_manager(request, desktop):
    manager = request.param(desktop)
    yield manager
    manager.close()
    assert "CRITICAL" not in "".join(
        one for one in manager.log().splitlines() if "inder" in one), manager.log()
