"""The file manager Caja with our plug-in, beside itself with an empty one."""

import contextlib
import mmap
import os
import struct
import time
from statistics import median

from session import CannotMeasure

FILES, ROOT_FOLDERS = 10_000, 5
# In the place of the badge's image: a square of a colour that nothing else has, 24 pixels wide.
EMBLEM = """<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 48 48">
<rect width="48" height="48" fill="#ff00ff"/></svg>
"""
EMBLEM_COLOR, EMBLEM_EDGE = 0xff00ff, 24
# Caja's processor time differs by a tenth from run to run, and by more on a busy machine. A few
# pairs can tell no more than that the plug-in keeps it busy.
LIMIT, WIDE_LIMIT = 1.1, 1.5


class Screen(contextlib.ExitStack):
    """An X server without a screen. It keeps its pixels in a file, so that looking at one is a read
    from memory, which neither the server nor its clients notice."""

    def __init__(self, session):
        super().__init__()
        directory = session.directory / "desktop"
        directory.mkdir(exist_ok=True)
        read_end, write_end = os.pipe()
        server = session.program(
            ["setpriv", "--pdeathsig", "KILL", "Xvfb", "-displayfd", "1", "-screen", "0",
             "1000x700x24", "-nolisten", "tcp", "-noreset", "-fbdir", directory], output=write_end)
        self.enter_context(server)
        self.callback(server.end)  # the server then removes its lock
        os.close(write_end)
        number = self.enter_context(open(read_end)).readline().strip()
        if not number:
            raise CannotMeasure("the X server has not started")
        self.display = f":{number}"
        with open(directory / "Xvfb_screen0", "rb") as file:
            image = mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ)
        # An X window dump: a header of 32-bit numbers, the colour map, the pixels.
        header = struct.unpack(">25I", image[:100])
        if header[11] != 32:
            raise CannotMeasure("the X server's pixels do not have 32 bits")
        self.width, self.height = header[12] // 4, header[5]
        self.pixels = memoryview(image)[header[0] + header[19] * 12:].cast("I")

    def color(self, x, y):
        return self.pixels[y * self.width + x] & 0xffffff

    def find_emblem(self):
        """The middle of the first emblem by rows, or none."""
        for y in range(self.height):
            for x in range(self.width - EMBLEM_EDGE):
                if self.color(x, y) == EMBLEM_COLOR == self.color(x + EMBLEM_EDGE - 1, y):
                    return x + EMBLEM_EDGE // 2, y + EMBLEM_EDGE // 2
        return None


class FolderBench:
    def __init__(self, session, report):
        self.session, self.report = session, report
        self.folder = session.directory / "Large folder"
        self.roots = [self.folder / f"Sync {number}" for number in range(ROOT_FOLDERS)]
        for root in self.roots:
            root.mkdir(parents=True)
        for number in range(FILES):
            (self.folder / f"Letter {number}.txt").touch()
        self.ours = session.programs.parent / "lib/caja/extensions-2.0"
        self.empty = session.benches / "empty-plugin"
        self.none = session.directory / "no-plugins"
        self.none.mkdir()
        home = session.directory / "home"
        emblems = home / "share/icons/hicolor/scalable/emblems"
        emblems.mkdir(parents=True)
        (home / "run").mkdir(mode=0o700)
        (emblems / f"emblem-{session.group}.FolderIco.svg").write_text(EMBLEM)
        self.environment = {
            "HOME": str(home), "XDG_CONFIG_HOME": f"{home}/config",
            "XDG_DATA_HOME": f"{home}/share", "XDG_CACHE_HOME": f"{home}/cache",
            "XDG_RUNTIME_DIR": f"{home}/run", "XDG_DATA_DIRS": "/usr/local/share:/usr/share",
            "GDK_BACKEND": "x11", "GSETTINGS_BACKEND": "memory", "GIO_USE_VFS": "local",
            "NO_AT_BRIDGE": "1"}
        self.emblem = None  # its middle

    def with_ours(self):
        log = self.session.directory / "badge-log"
        with open(log, "wb") as file, self.session.link(
                self.session.extension, error=file.fileno()) as extension:
            for root in self.roots:
                extension.send(type="add_folder", path=str(root))
            milliseconds = self.show(self.ours, has_badges=True)
        requests = log.read_bytes().count(b"requestBadgeIdentifierForURL: ")
        if requests < FILES + ROOT_FOLDERS:
            raise CannotMeasure(f"only {requests} badges have been asked for")
        return milliseconds

    def with_empty(self):
        return self.show(self.empty)

    def show(self, plugins, has_badges=False):
        """Milliseconds of processor time that Caja uses until it rests with the folder shown."""
        with Screen(self.session) as screen, self.session.program(
                ["caja", "--no-desktop", "--browser", self.folder],
                environment=self.environment | {"DISPLAY": screen.display,
                                                "CAJA_EXTENSION_DIRS": str(plugins)}) as caja:
            used = processor_time_at_rest(caja)
            self.require_shown(screen, has_badges)
        return used * 1000

    def require_shown(self, screen, has_badges):
        """The first root folder's icon must be shown, with or without the emblem."""
        self.emblem = self.emblem or screen.find_emblem()
        if not self.emblem:
            raise CannotMeasure("Caja does not show the badge")
        if (screen.color(*self.emblem) == EMBLEM_COLOR) != has_badges:
            raise CannotMeasure("Caja shows a badge where there is none, or none where one is")
        # An emblem moves its icon, but not by the height of the icon.
        x, y = self.emblem[0] - EMBLEM_EDGE, self.emblem[1] + EMBLEM_EDGE
        if screen.color(x, y) == screen.color(x - 2 * EMBLEM_EDGE, y):
            raise CannotMeasure("Caja does not show the folder")


def processor_time_at_rest(program, rest=0.6, idling=0.0005, timeout=60):
    """Waits until a program has used no processor time for a while, but for timers that find
    nothing to do; gives the seconds that it has used since its start."""
    begin = since = time.monotonic()
    used = program.processor_time()
    while time.monotonic() - since <= rest:
        if time.monotonic() - begin > timeout:
            raise CannotMeasure("Caja does not come to rest")
        time.sleep(0.05)
        before, used = used, program.processor_time()
        if used - before > idling:
            since = time.monotonic()
    return used


def large_folder(session, report):
    bench = FolderBench(session, report)
    bench.with_ours()  # fills the caches, and finds the badge
    pairs = []
    for number in range(3 if session.is_quick else 40):
        if number % 2 == 0:
            empty = bench.with_empty()
            pairs.append((empty, bench.with_ours()))
        else:
            ours = bench.with_ours()
            pairs.append((bench.with_empty(), ours))
    report.pairs("Caja, 10,000 files: processor time", pairs, "ms",
                 at_most=WIDE_LIMIT if session.is_quick else LIMIT, is_judged=True)
    if not session.is_quick:
        rows = [(bench.show(bench.none), bench.with_empty(), bench.show(bench.ours))
                for _ in range(6)]
        report.pairs("Caja, 10,000 files: no extension installed",
                     [(empty, ours) for _, empty, ours in rows], "ms")
        report.pairs("Caja, 10,000 files: no plug-in at all",
                     [(empty, none) for none, empty, _ in rows], "ms")
