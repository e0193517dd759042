"""A desktop without a screen: an X server in memory, a session bus, and a file manager that has
the plug-in from the build."""

import contextlib
import os
import pathlib
import shutil
import struct
import subprocess
import tempfile
import textwrap
import time

import pytest
from conftest import BUS_NAME, GROUP, Session, wait_for
from jeepney import DBusAddress, Properties, message_bus
from PIL import Image, ImageChops

# Of the images that tests put in place of ours: nothing else on the screen is so.
BADGE = (255, 0, 255)
ENTRY_ICON = (0, 255, 0)
BLUE = (31, 111, 235)  # of our images
MARKED_IMAGE = """<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 48 48">
<rect width="48" height="48" fill="rgb{}"/></svg>"""
# Animations keep a machine busy that has to draw them itself; GTK 3 shows no icons in menus unless
# it is told to.
GTK_SETTINGS = "[Settings]\ngtk-enable-animations=0\n{}"
SOURCES = pathlib.Path(__file__).parents[2]
LINK, BACKUP = "Copy link", "Back up now"
MENU_BACKOFF = 5  # seconds for which no menu asks an extension that let one time out

# On a busy machine a menu may open without our entries, and rightly so. These tests come first.
with contextlib.suppress(PermissionError):
    os.setpriority(os.PRIO_PROCESS, 0, -10)


class Desktop(Session):
    entry_icon = ENTRY_ICON

    screen = None

    def __init__(self, folder):
        self.entry_icons = {}  # of other products, by title
        self.services = {BUS_NAME, "org.a11y.Bus"}
        # Here and not below the folder: the path of a socket, as Dolphin has some, holds 107 bytes.
        self.runtime = tempfile.TemporaryDirectory(ignore_cleanup_errors=True)
        super().__init__(folder)

    def start_bus(self, *services):
        """File managers get by with assistive technologies; some need another service. With
        "org.gtk.vfs.Daemon", GTK shows more than local files: the trash, for one."""
        self.environment |= {
            "XDG_DATA_DIRS": f"{self.marked_data()}:/usr/share",
            "XDG_RUNTIME_DIR": self.runtime.name,
            "GDK_BACKEND": "x11",
            "QT_QPA_PLATFORM": "xcb",
            "GSETTINGS_BACKEND": "keyfile",
            "GIO_USE_VFS": "gvfs" if "org.gtk.vfs.Daemon" in services else "local",
        }
        self.start_screen()
        self.configure("gtk-3.0/settings.ini", GTK_SETTINGS.format("gtk-menu-images=1\n"))
        self.configure("gtk-4.0/settings.ini", GTK_SETTINGS.format(""))
        self.services |= {*services}
        super().start_bus(*self.services)

    def plugins(self):
        if self.programs == pathlib.Path("/usr/bin"):
            return ["--installed"]
        return ["--build", self.programs.parent]

    def marked_data(self):
        """Our share folder, but for the icons: each is all of one colour."""
        marked = self.folder / "share"
        if not marked.exists():
            marked.mkdir()
            for icon in (self.share / "icons").rglob(f"*{GROUP}.*.svg"):
                place = marked / icon.relative_to(self.share)
                place.parent.mkdir(parents=True, exist_ok=True)
                color = BADGE if place.parent.name == "emblems" else ENTRY_ICON
                place.write_text(MARKED_IMAGE.format(color))
        return marked

    def add_images(self, group, badge, title, entry):
        """Images of another product, each all of one colour: its badge, and the icon of the entry
        with this title."""
        self.entry_icons[title] = entry
        for name, color in [("emblem-{}.FolderIco.svg", badge), ("{}.icon_URLlink.svg", entry)]:
            ours = next(self.marked_data().rglob(name.format(GROUP)))
            (ours.parent / name.format(group)).write_text(MARKED_IMAGE.format(color))

    def configure(self, name, text):
        file = self.home / "config" / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(textwrap.dedent(text))

    def start_screen(self):
        if self.screen:
            return
        reader, writer = os.pipe()
        self.screen = subprocess.Popen(
            # It is not to start over when a client was the only one, and goes.
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", "1000x700x24", "-nolisten", "tcp",
             "-noreset", "-nocursor", "-fbdir", self.folder],
            pass_fds=[writer], stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as display:
            self.environment["DISPLAY"] = ":" + display.readline().strip()

    def end(self):
        super().end()
        self.screen.terminate()
        self.screen.wait()
        self.runtime.cleanup()

    def accessible(self, action, *thing, timeout=20):
        script = pathlib.Path(__file__).parent / "accessible.py"
        found = subprocess.run(["/usr/bin/python3", "-B", script, str(timeout), action, *thing],
                               env=self.environment, capture_output=True, text=True)
        assert found.returncode == 0, found.stderr + self.look("failed")
        return [int(number) for number in found.stdout.split()]

    def xdotool(self, *words):
        subprocess.run(["xdotool", *words], env=self.environment, check=True)

    def type(self, *keys):
        self.xdotool("key", *keys)

    def click(self, x, y, button=1):
        self.xdotool("mousemove", str(x), str(y), "click", str(button))

    def screenshot(self):
        """The X server keeps its pixels in a file, so that nobody has to wait for it."""
        dump = (self.folder / "Xvfb_screen0").read_bytes()
        # An X window dump: a header of 32-bit numbers, the colour map, the pixels.
        header = struct.unpack(">25I", dump[:100])
        pixels = dump[header[0] + header[19] * 12:]
        return Image.frombytes("RGB", (header[4], header[5]), pixels, "raw", "BGRX", header[12])

    def look(self, name):
        """Keeps a picture of the screen for people; says where."""
        self.screenshot().save(self.folder / f"{name}.png")
        return f" (see {self.folder / name}.png)"

    def shows(self, color, place, beside=0, above=0, tolerance=0):
        """Whether a colour is to be seen on something, or so many pixels around it. With a tolerance,
        each of red, green and blue may differ by so much."""
        x, y, width, height = place
        around = self.screenshot().crop(
            (x - beside, y - above, x + width + beside, y + height + above))
        return sum(count for count, one in around.getcolors(1 << 20)
                   if max(abs(a - b) for a, b in zip(one, color)) <= tolerance) > 20


class FileManager:
    """What the tests do is the same in every file manager; how it is called is not."""

    def __init__(self, desktop, program, name, icon_role, badge_offset, press="click",
                 has_entry_icons=True, last_entry="Properties", tolerance=0,
                 reports_items=True):
        self.desktop = desktop
        self.program = program
        self.name = name  # as assistive technologies know it
        self.icon_role = icon_role
        self.badge_offset = badge_offset  # how far from the named thing a badge may be
        self.press = press  # how to pick a menu entry
        self.has_entry_icons = has_entry_icons
        self.last_entry = last_entry  # of every menu, and not ours; or none, where menus are not told of
        self.tolerance = tolerance  # how far the colour of a badge may be from its image's
        self.reports_items = reports_items  # that it shows, to its plug-in
        self.process = None

    def open(self, folder):
        self.start(SOURCES / "scripts/file-manager", *self.desktop.plugins(), "--with", self.program,
                   folder)

    def start(self, *command):
        with open(self.desktop.folder / "file-manager.log", "wb") as log:
            self.process = subprocess.Popen(command, env=self.desktop.environment, stdout=log,
                                            stderr=log)

    def close(self):
        if self.process:
            self.process.terminate()
            self.process.wait()

    def icon(self, name, action="find", **options):
        return self.desktop.accessible(action, self.name, self.icon_role, name, **options)

    def has_badge(self, name):
        return self.shows_badge(self.icon(name))

    def shows_badge(self, place):
        return self.desktop.shows(BADGE, place, *self.badge_offset, self.tolerance)

    def entry(self, title, action="find", **options):
        return self.desktop.accessible(action, self.name, "menu item", title, **options)

    def insist(self, act, *sign):
        """Acts once more when there is no sign of it: GNOME Files does not open a menu at each click,
        and one that opens may take no notice of a click or a key."""
        act()
        try:
            self.entry(*sign)
        except AssertionError:
            act()

    def open_menu(self, name, title=None):
        """Once more when none opens, or when it lacks an entry with this title: on a busy machine our
        answer may come too late, and rightly so."""
        sign = title or self.last_entry
        self.icon(name, "menu")
        try:
            if sign:
                self.entry(sign)
        except AssertionError:
            self.desktop.type("Escape")
            time.sleep(MENU_BACKOFF)
            self.icon(name, "menu")
            self.entry(sign)

    def pick(self, title):
        self.insist(lambda: self.entry(title, self.press), title, "gone")

    def open_background_menu(self, name):
        """That of the folder, below the icons, of which one is named."""
        x, y, *_ = self.icon(name)
        self.insist(lambda: self.desktop.click(x + 20, y + 250, 3), self.last_entry)

    def expect_menu_without(self, title):
        self.entry(self.last_entry)
        self.entry(title, "gone", timeout=0)

    def close_menu(self):
        self.entry(self.last_entry)  # it may still be about to open
        self.insist(lambda: self.desktop.type("Escape"), self.last_entry, "gone")

    def log(self):
        return (self.desktop.folder / "file-manager.log").read_text(errors="replace")


def caja(desktop):
    return FileManager(desktop, "caja", "caja", "icon", (20, 20))


def nemo(desktop):
    # Icons have no names there, the lines of a list have.
    desktop.configure("glib-2.0/settings/keyfile", """
        [org/nemo/preferences]
        default-folder-viewer='list-view'
        [org/nemo/list-view]
        default-zoom-level='standard'
        """)
    return FileManager(desktop, "nemo", "nemo", "table cell", (40, 0))


def gnome_files(desktop):
    desktop.environment["GSK_RENDERER"] = "cairo"
    # Its menus do not say where on the screen they are. From 48 on, emblems let through what is behind
    # them, which is light.
    return FileManager(desktop, "nautilus", "org.gnome.Nautilus", "table cell", (20, 20),
                       press="press", has_entry_icons=False, tolerance=120)


def thunar(desktop):
    if shutil.which("thunar"):
        # Its plug-in has GVfs store badges.
        desktop.start_bus("org.xfce.Xfconf", "org.gtk.vfs.Daemon", "org.gtk.vfs.Metadata")
    # Icons have no names there, the lines of a list have.
    desktop.configure("xfce4/xfconf/xfce-perchannel-xml/thunar.xml", """\
        <?xml version="1.0"?>
        <channel name="thunar" version="1.0">
          <property name="default-view" type="string" value="ThunarDetailsView"/>
          <property name="last-location-bar" type="string" value="ThunarLocationButtons"/>
          <property name="last-window-width" type="int" value="800"/>
          <property name="last-window-height" type="int" value="550"/>
        </channel>
        """)
    return FileManager(desktop, "thunar", "thunar", "table cell", (40, 0),
                       last_entry="Properties...", reports_items=False)


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
        """Qt keeps popup menus out of the accessible tree: the entries' icons tell where they are."""
        if action == "gone":
            wait_for(lambda: len(self.windows()) > 1, "the menu")
            wait_for(lambda: self.desktop.screenshot() == self.desktop.screenshot(), "a menu at rest")
            assert self.place_of(title) is None, self.desktop.look("failed")
            return None
        left, top, right, bottom = wait_for(lambda: self.place_of(title), "the entry")
        if action == "click":
            self.desktop.click(left, top)
        return left, top, right - left, bottom - top

    def insist(self, act, *sign):
        act()

    def expect_menu_without(self, title):
        self.entry(title, "gone")

    def place_of(self, title):
        """Where the icon of an entry is, or that of our last one; or none."""
        screen = self.desktop.screenshot()
        icon = self.desktop.entry_icons.get(title, self.desktop.entry_icon)
        color = Image.new("RGB", screen.size, icon)
        mask = ImageChops.difference(screen, color).convert("L").point(lambda value: 255 * (not value))
        return mask.getbbox()

    def close_menu(self):
        """And ends the selection and the hovering, which tint an icon and its badge."""
        wait_for(lambda: len(self.windows()) > 1, "the menu")
        self.desktop.type("Escape")
        wait_for(lambda: len(self.windows()) == 1, "no menu")
        self.desktop.xdotool("mousemove", "990", "690", "key", "Escape")

    def windows(self):
        search = ["xdotool", "search", "--onlyvisible", "--class", self.name]
        return subprocess.run(search, env=self.desktop.environment, capture_output=True,
                              text=True).stdout.split()


def dolphin(desktop):
    return Dolphin(desktop, "dolphin", "dolphin", "table cell|list item", (20, 20), last_entry=None)


FILE_MANAGERS = [caja, nemo, gnome_files, dolphin, thunar]


def name_of(file_manager):
    return file_manager.__name__


def only_in(*file_managers):
    return pytest.mark.parametrize("file_manager", file_managers, ids=name_of, indirect=True)


with_named_entries = only_in(caja, nemo, gnome_files, thunar)


@pytest.fixture
def desktop(tmp_path):
    desktop = Desktop(tmp_path)
    try:
        yield desktop
    finally:
        desktop.end()
    assert desktop.findings() == ""


@pytest.fixture(params=FILE_MANAGERS, ids=name_of)
def file_manager(request, desktop):
    manager = request.param(desktop)
    if not shutil.which(manager.program):
        pytest.skip(f"{manager.program} is not installed")
    yield manager
    manager.close()
    assert "CRITICAL" not in "".join(
        one for one in manager.log().splitlines() if "inder" in one), manager.log()
