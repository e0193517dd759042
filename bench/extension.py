"""The extension beside bare programs that make the same system calls."""

import os
import time
import unicodedata
from statistics import correlation, linear_regression, median

from session import READ_SIZE, CannotMeasure, LogSink

CUSTOMERS = "/home/anna/Documents/Customers"
REPORTS = CUSTOMERS + "/Quarterly reports/2026"

# Three known folders, of which the second is spelled decomposed when it is repeated, one that is
# added and deleted, and one that is not known; the titles.
INBOUND = {
    "ascii": ("/home/anna/Documents/Projects/Quarterly reports/2026/First quarter",
              "/home/anna/Pictures/Holidays/2025/Summer at the lake/Selected",
              "/home/anna/Music/Recordings/Live sessions/Unreleased/2024",
              "/media/anna/BACKUP/Shared with the team/Customer documents",
              "/media/anna/BACKUP/Shared with the team/Archive of 2019",
              "Share with contacts", "Share by link", "Back up"),
    "non-ascii": ("/home/anna/Dokumente/Verträge/Straße der Blumen/Übergabe/März",
                  "/home/anna/Bilder/Städte/Köln und Düsseldorf/Brücken/Dächer",
                  "/home/anna/Музыка/Записи/Концерты/Новые",
                  "/media/anna/Sicherung/Für alle/Entwürfe/写真と書類",
                  "/media/anna/Sicherung/Für niemanden/Größere Pläne",
                  "Mit Kontakten teilen …", "Link für Gäste", "Поделиться")}

GERMAN = "/home/anna/Dokumente/Verträge/Geschäftsführung/ガイドブック"
# An item, and two root folders beside it that take turns; a number follows them.
BADGE = {"ascii": (f"{REPORTS}/Figures", f"{REPORTS}/Folder ", f"{REPORTS}/Figure "),
         "composed": (f"{GERMAN}/資料", f"{GERMAN}/写真 ", f"{GERMAN}/Ordner "),
         "decomposed": (f"{GERMAN}/資料", unicodedata.normalize("NFD", f"{GERMAN}/写真 "),
                        unicodedata.normalize("NFD", f"{GERMAN}/Ordner "))}
ROOT_COUNTS = (1, 3, 10, 30, 100, 300, 1000)
JUDGED_ROOT_COUNTS = (1, 10, 100, 1000)
MANY_ROOT_COUNTS = (100, 1000, 10_000, 100_000)


def burst_and_trace(first, second, third, guest, stranger, contact, link, backup):
    """Ten commands that fill one read, and what the extension prints of them. They leave the root
    folders as they were."""
    def folder(command, path):
        return f'{{"type":"{command}","path":"{path}"}}'

    def usage(display):
        return f'{{"type":"set_menu_usage","displayBackup":"{display}"}}'

    lines = [folder("add_folder", first), folder("add_folder", second),
             folder("add_folder", third), folder("add_folder", guest), usage(1),
             f'{{"type":"set_locale","shareContactTitle":"{contact}",'
             f'"shareViaUrlTitle":"{link}","backupTitle":"{backup}"}}',
             folder("add_folder", unicodedata.normalize("NFD", second)),
             folder("del_folder", guest), folder("del_folder", stranger), usage(0)]
    for _ in range(READ_SIZE - len("".join(lines).encode()) - len(lines)):
        shortest = lines.index(min(lines, key=len))
        lines[shortest] += " "  # which JSON allows
    burst = "".join(line + "\n" for line in lines)
    assert len(burst.encode()) == READ_SIZE
    known = ["type - add_folder\nnew path is at index %d\n" % index for index in range(3)]
    trace = "".join(known) + ("type - add_folder\ntype - set_menu_usage\ntype - set_locale\n" +
                              known[1] + "type - del_folder\n" * 2 + "type - set_menu_usage\n")
    return burst, f"receiving\nserver said: {burst}\n{trace}"


def inbound(session, report):
    bursts, repetitions = (400, 1) if session.is_quick else (20_000, 11)
    for name, texts in INBOUND.items():
        burst, trace = burst_and_trace(*texts)

        def measure(command):
            """Seconds, seconds of processor time, and reads of one event."""
            with session.link(command) as link:
                descriptors = [link.connection.fileno(), link.trace]
                (seconds, processor_time, events), = session.run(
                    "inbound-sender", *descriptors, link.program.pid, burst, len(trace.encode()),
                    bursts, per_write, descriptors=descriptors)
                link.program.end()
            return float(seconds), float(processor_time), bursts / int(events)

        for per_write in (1, 8):
            pairs = [(measure(session.bench("bare-loop", burst, trace)), measure(session.extension))
                     for _ in range(repetitions)]
            for bare, real in pairs:
                report.tell(f"inbound {name}, {per_write} bursts a write: {bare[0]:.3f} s, "
                            f"{bare[1]:.3f} s of processor time; extension {real[0]:.3f} s, "
                            f"{real[1]:.3f} s, {real[2]:.1f} reads an event")
            what = f"inbound, {name}" + (", 8 bursts a write" if per_write == 8 else "")
            report.figure(f"{what}, lines per second",
                          median(bare[0] / real[0] for bare, real in pairs),
                          at_least=0.65 if per_write == 1 else None)
            report.figure(f"{what}, processor time per line",
                          median(real[1] / bare[1] for bare, real in pairs))


def require_same_objects(session):
    """Both programs must load the same shared objects, or the comparison means little."""
    objects = []
    for command in (session.bench("empty-program"), session.extension):
        with session.link(command) as link:
            paths = [line.split()[-1] for line in link.program.read("maps").splitlines()]
            objects.append({path for path in paths if ".so" in path})
            link.program.end()
    if not objects[0] or objects[0] != objects[1]:
        raise CannotMeasure("the programs have not loaded the same shared objects: "
                            f"{' '.join(objects[0] ^ objects[1])}")


def start_up(session, report):
    def measure(command):
        """Milliseconds until the program has connected."""
        with session.link(command) as link:
            link.program.end()
            return (link.connected - link.program.started) / 1e6

    require_same_objects(session)
    pairs = [(measure(session.bench("empty-program")), measure(session.extension))
             for _ in range(1 if session.is_quick else 100)]
    report.pairs("start-up, to the accepted connection", pairs, "ms", at_most=1.3)


def memory(session, report):
    def idle(command):
        link = session.link(command)
        time.sleep(0.2)  # what is left to do after connecting takes a few milliseconds
        return link

    def proportional_set_size(link):
        """KiB: the program's own pages, and its share of those that others have mapped too."""
        return int(link.program.read("smaps_rollup").split("Pss:")[1].split()[0])

    def alone(command):
        with idle(command) as link:
            return proportional_set_size(link)

    empty = session.bench("empty-program")
    apart, together = [], []
    # The C and C++ libraries are in use already, as on any desktop.
    with session.link(session.bench("bare-loop", "", "")):
        for _ in range(1 if session.is_quick else 5):
            apart.append((alone(empty), alone(session.extension)))
            with idle(empty) as bare, idle(session.extension) as real:
                together.append((proportional_set_size(bare), proportional_set_size(real)))
    report.pairs("memory when idle, each alone", apart, "KiB", at_most=1.3)
    report.pairs("memory when idle, both at once", together, "KiB")


def badge(session, report):
    cases = [(name, count) for name in BADGE for count in ROOT_COUNTS]
    text = "".join(f"{BADGE[name][0]}\n" +
                   "".join(f"{BADGE[name][1 + number % 2]}{number:04}\n" for number in range(count))
                   + "\n" for name, count in cases)
    sink = LogSink()
    *lines, (written,) = session.run("badge-bench", 1 if session.is_quick else 31, text=text,
                                     error=sink, environment=sink.environment)
    if sink.close() != int(written):
        raise CannotMeasure("the extension's log differs in length from the bare one")
    bare_times, times = {}, {}
    for number, case in enumerate(cases):
        pairs = [(float(bare), float(real))
                 for index, bare, real in lines if int(index) == number]
        bare_times[case], times[case] = (median(column) for column in zip(*pairs))
        if case[1] in JUDGED_ROOT_COUNTS:
            report.pairs(f"badge request, {case[0]}, {case[1]} roots", pairs, "ns", at_most=1.25)
    for name in BADGE:
        columns = [[table[name, count] for count in ROOT_COUNTS] for table in (bare_times, times)]
        bare, real = (linear_regression(ROOT_COUNTS, column) for column in columns)
        report.figure(f"badge request, {name}, per further root", real.slope / bare.slope)
        report.figure(f"badge request, {name}, per further root, r squared",
                      correlation(ROOT_COUNTS, columns[1]) ** 2, at_least=0.99, decimals=4)


def click(session, report):
    results = session.directory / "clicks"
    sink = LogSink()
    listener = session.listener.fileno()
    session.run("click-bench", session.port, listener, 50 if session.is_quick else 5000, results,
                descriptors=[listener], output=sink)
    sink.close()
    pairs = [tuple(map(float, line.split())) for line in results.read_text().splitlines()]
    report.medians("click, from the action to the last byte at the peer", pairs, "us", at_most=1.2)


def announce_entries(extension):
    extension.send(type="set_locale", shareContactTitle="Share with contacts",
                   shareViaUrlTitle="Share by link", backupTitle="Back up")
    extension.send(type="set_menu_usage", displayBackup="1")


def bus(session, report):
    folders = {f"{CUSTOMERS}/Quarterly reports/202{digit} and before" for digit in range(10)}
    before = os.sched_getaffinity(0)
    core = {min(before)}
    # The callers and the called take turns anyway. On two cores, a round trip takes half as long or
    # twice as long, depending on where the system puts each of them.
    os.sched_setaffinity(session.bus.pid, core)
    os.sched_setaffinity(0, core)
    for what, roots, call, item, badge_identifier in (
            ("a badge, 1 root that matches", {CUSTOMERS}, "badge", CUSTOMERS, "FolderIco"),
            ("a badge, 10 roots that do not", folders, "badge", REPORTS, ""),
            ("a menu of two entries", {CUSTOMERS}, "menu", REPORTS, "FolderIco")):
        sink = LogSink()
        with (session.link(session.bench("empty-program", badge_identifier), error=sink.fileno()),
              session.link(session.extension, error=sink.fileno(),
                           environment=sink.environment) as extension):
            announce_entries(extension)
            trace = extension.drain()
            pairs, _ = session.round_trips(50 if session.is_quick else 5000, call,
                                           "\n".join([item, "", *roots, ""]))
        trace.wait()
        if sink.close() == 0:
            raise CannotMeasure("the extension does not log")
        report.medians(f"bus, {what}", pairs, "us", at_most=1.3)
    os.sched_setaffinity(session.bus.pid, before)
    os.sched_setaffinity(0, before)


def badges_of_a_folder(session, report):
    """One call for the badges of 1,000 items, with the log off."""
    text = "".join(f"{REPORTS}/Figure {number:04}\n" for number in range(1000)) + "\n" + "".join(
        f"{REPORTS}/Folder {number:05}\n" for number in range(300))
    with (session.link(session.bench("empty-program", "")),
          session.link([*session.extension, "--log-level", "warning"])):
        pairs, answer = session.round_trips(1 if session.is_quick else 30, "badges", text)
    if answer != ["1000", "0"]:
        raise CannotMeasure(f"1,000 items have got other badges than none: {answer}")
    report.medians("bus, 1,000 badges, 300 roots, log off", pairs, "us", at_most=2.0)


def many_roots(session, report):
    """Where the number of root folders makes everything slow. The last one contains the items. The
    paths are short, since one call gives them all."""
    items = "".join(f"/srv/Sync/Figure {number}\n" for number in range(1000))
    message = "x" * READ_SIZE
    trace = f"receiving\nserver said: {message}\ntype - add_folder\n"
    with session.link(session.bench("bare-loop", message, trace)) as link:
        bare = announcing(link)
    for count in MANY_ROOT_COUNTS[:2] if session.is_quick else MANY_ROOT_COUNTS:
        text = items + "\n" + "".join(f"/srv/Folder {number}\n" for number in range(1, count))
        text += "/srv/Sync\n"
        for level, calls in (("warning", ("badge", "badges", "menu", "roots", "all")),
                             ("debug", ("badge", "badges") if count <= 1000 else ("badge",))):
            sink = LogSink()
            with (session.link(session.bench("empty-program", ""), error=sink.fileno()),
                  session.link([*session.extension, "--log-level", level], error=sink.fileno(),
                               environment=sink.environment) as extension):
                announce_entries(extension)
                for call in calls:
                    times = 3 if session.is_quick or count > 1000 else 11
                    pairs, _ = session.round_trips(times, call, text)
                    report.medians(f"bus, {call}, {count} roots, log level {level}", pairs, "us")
                if level == "warning":
                    report.figure(f"announcing one more than {count} roots, processor time",
                                  announcing(extension) / bare)
            sink.close()


def announcing(link):
    """Seconds of processor time for some root folders more."""
    before = link.program.processor_time()
    for number in range(30):
        link.send(type="add_folder", path=f"/srv/More {number}")
    return link.program.processor_time() - before


def companion(session, report):
    """The companion's library beside a sender that waits until each block has been read."""
    runs = [tuple(map(float, run)) for run in session.run(
        "companion-bench", *session.extension, 3000, 1 if session.is_quick else 21,
        environment={"XDG_CONFIG_HOME": f"{session.directory}/companion"})]  # it listens itself
    report.pairs("3,000 folders told to a fresh extension", [run[:2] for run in runs], "ms",
                 at_most=2.0)
    report.figure("one more folder, until the bus knows its badge, ms",
                  median(run[2] for run in runs), at_most=5.0)
