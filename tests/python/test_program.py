"""finder-sync-companion, the companion for everybody, with the real extension."""

import json
import pathlib
import re
import shutil
import socket
import subprocess

import pytest
from conftest import BUS_NAME, NOT_AS_ROOT, TIMEOUT, wait_for
from finder_sync_companion.program import configuration, sources

from .desktop import Display, Notifications, WaylandDisplay

SOURCES = pathlib.Path(__file__).parents[2] / "python"


class Companion:
    """The program, its settings and what it shows."""

    def __init__(self, session):
        session.start_bus(BUS_NAME)
        session.environment["PATH"] = f"{session.programs}:{session.environment['PATH']}"
        self.session = session
        self.notifications = Notifications(session)
        self.folder = session.home / "Sync"
        self.folder.mkdir()
        self.settings = session.home / "config/finder-sync-companion/settings.toml"
        self.settings.parent.mkdir(parents=True)
        self.process = None

    def start(self, text, **environment):
        self.settings.write_text(text, encoding="utf-8")
        self.process = self.session.start("finder-sync-companion", environment=environment)
        wait_for(lambda: "has connected" in self.process.error(), "a connection")

    def pick(self, selector, path):
        self.session.method("PerformAction", "sas", selector, [path.as_uri()])


@pytest.fixture
def companion(session):
    return Companion(session)


@pytest.fixture
def display(program, tmp_path):
    if program == "wl-copy" and not (shutil.which("sway") and shutil.which(program)):
        pytest.skip("sway or wl-clipboard is not installed")
    if program == "wl-copy" and subprocess.run([*NOT_AS_ROOT, "true"], check=False).returncode != 0:
        pytest.skip("sway refuses to run as root, and there are no user namespaces to hide that in")
    display = WaylandDisplay(tmp_path) if program == "wl-copy" else Display()
    yield display
    display.end()


def run(session, *arguments):
    process = session.start("finder-sync-companion", *arguments)
    return process.wait(), process.output(), process.error()


def test_the_first_steps(session):
    status, _, error = run(session, "check")
    assert status == 1
    subprocess.run(re.search('"(.*)"', error)[1], shell=True, check=True,
                   env=session.environment | {"PATH": f"{session.programs}:/usr/bin:/bin"})
    file = session.home / "config/finder-sync-companion/settings.toml"
    assert run(session, "check") == (
        1, f"{file}:3:12: there is no folder {session.home}/Sync\n", "")
    (session.home / "Sync").mkdir()
    assert run(session, "check") == (0, f"{file}: nothing is wrong\n", "")


@pytest.mark.parametrize("text, problem", [
    ('folders = [', "1:12: Invalid value"),
    ('folders = ["/a"\n\n  oops', "3:3: Unclosed array"),
    ('\nfolders = "/a"', '2:1: "folders" is not a list'),
    ('folders = [\n  "/a",\n  "b/c"]', "3:3: b/c is not an absolute path"),
    ('folders = ["/a", {path = "/b", nam = "c"}]', "1:26: a folder is a text, or a table"),
    ('folder = ["/a"]', '1:1: unknown key "folder"; there are "backup", "folders", "link", "source"'),
    ('[link]\ncommand = ["a"]\n[backup]\n command = "b"', "4:2: a command is a list of texts"),
    ('[link]\ntitle = "a"', "1:1: a command is a list of texts"),
    ('[link]\ncommand = ["a", "{paht}"]', '2:17: "{paht}" is no placeholder'),
    ('[link]\ncommand = ["a", "{"]', '2:17: "{" is no placeholder'),
    ('[link]\ncommand = ["a"]\nclipbord = true', '3:1: unknown key "clipbord"'),
    ('[link]\ncommand = ["a"]\nclipboard = 1', '3:1: "clipboard" is true or false'),
    ('[backup]\ncommand = ["a"]\ntitle = 1', "3:1: a title is a text"),
    ('link = 1', '1:1: "link" is not a table'),
    ('source = 1', '1:1: "source" is not a table'),
    ('[source]\ncommand = ["a"]\ntitle = "b"', '3:1: unknown key "title"; there are "command"'),
    ('folders = ["/a", ""]', "1:1:  is not an absolute path"),
    ("\n# \udcff", "2:3: a byte is no UTF-8"),
    ("a = " + 5000 * "9", "1:5005: Exceeds the limit"),
    ("a = " + 5000 * "[", "1:5005: maximum recursion depth exceeded"),
    ('folders = ["/nowhere"]\n[link]\ncommand = ["no-such-program"]', "1:12: there is no folder"),
    ('[link]\n command = ["no-such-program"]', "2:13: there is no program no-such-program"),
], ids=lambda text: text[:50])
def test_check_says_what_is_wrong_and_where(session, text, problem):
    file = session.home / "settings.toml"
    file.write_text(text, encoding="utf-8", errors="surrogateescape")
    status, output, _ = run(session, "--settings", str(file), "check")
    assert status == 1 and f"{file}:{problem}" in output


def test_placeholders_are_replaced_once_and_braces_stand_for_themselves():
    values = {"path": "{folder}", "relative": "r", "folder": "f"}
    assert configuration.filled_in(("{path}", "{{{relative}}}", "{folder}:{{}}"), values) == [
        "{folder}", "{r}", "f:{}"]


@pytest.mark.parametrize("program", ["xclip", "xsel", "wl-copy"])
def test_a_link_is_copied(companion, display, program):
    programs = companion.session.home / "bin"
    programs.mkdir()
    for name in (program, "cat", "python3", "notify-send", "printf"):  # wl-copy runs cat
        (programs / name).symlink_to(f"/usr/bin/{name}")
    companion.start(f'''
        folders = [{{path = "~/Sync/", name = "photos"}}]
        [link]
        command = ["printf", "https://example.com/%s/%s?a&b\\\\nmore", "{{folder}}", "{{relative}}"]
        ''', PATH=f"{programs}:{companion.session.programs}", **display.environment)
    companion.pick("createLinkClicked:", companion.folder / "Ü $(x)/a b")
    companion.notifications.wait_for("Copied", "https://example.com/photos/Ü $(x)/a b?a&amp;b")
    assert display.clipboard() == "https://example.com/photos/Ü $(x)/a b?a&b"


def test_titles_are_in_the_users_language_unless_the_file_has_them(companion):
    companion.start('''folders = ["~/Sync"]
        [backup]
        command = ["true"]
        [link]
        title = "Web page"
        command = ["echo", "link"]
        ''', LC_ALL="C.UTF-8", LANGUAGE="de")
    item = companion.folder / "a"
    companion.session.wait_for_value("pathsOfRootFolders", [str(companion.folder)])
    entries = companion.session.method("MenuForMenuKind", "uas", 0, [item.as_uri()])[1]
    assert [entry[0] for entry in entries] == ["Web page", "Jetzt sichern"]
    companion.pick("backupClicked:", item)
    companion.notifications.wait_for("Fertig", "a")
    companion.pick("createLinkClicked:", item)  # there is no display
    assert "xclip" in wait_for(lambda: [body for title, body in companion.notifications.shown
                                        if title == "Fehlgeschlagen: a"])[0]


def test_what_fails_is_told(companion):
    companion.start('''folders = ["~/Sync"]
        [backup]
        command = ["sh", "-c", "echo fine; echo first >&2; echo '<last> line' >&2; exit 3"]
        ''')
    companion.pick("backupClicked:", companion.folder / "a")
    companion.notifications.wait_for("Failed: a", "&lt;last&gt; line")
    companion.pick("createLinkClicked:", companion.folder / "a")
    companion.notifications.wait_for("Failed: a", "The settings have no command for this entry")
    companion.settings.write_text('folders = ["~/Sync"]\n[link]\ncommand = ["/nowhere"]\n')
    companion.notifications.shown.clear()
    wait_for(lambda: companion.process.error().count("has been read\n") == 2)
    companion.pick("createLinkClicked:", companion.folder / "a")
    companion.notifications.wait_for("Failed: a", "/nowhere: No such file or directory")


def test_odd_commands(companion):
    companion.start("""folders = ["~/Sync"]
        [backup]
        command = ["sh", "-c", '''
        case $1 in
        leaves*) sleep 60 & ;;
        closes) exec >&- 2>&-; exit 3 ;;
        prints) head -c 100000000 /dev/zero ;;
        esac''', "sh", "{relative}"]
        """)
    for name, *shown in [("leaves\n<0>another", "Done", "leaves\n&lt;0&gt;another"),
                         ("closes", "Failed: closes", "exit status 3"), ("prints", "Done", "prints")]:
        companion.pick("backupClicked:", companion.folder / name)
        companion.notifications.wait_for(*shown)
    assert f"{companion.folder}/leaves\\n<0>another: Done\n" in companion.process.error()
    companion.folder.rmdir()
    companion.pick("backupClicked:", companion.folder / "a")
    companion.notifications.wait_for("Failed: a", f"{companion.folder}: No such file or directory")


def test_a_long_command_shows_progress_and_can_be_cancelled(companion):
    companion.start('''folders = ["~/Sync"]
        [backup]
        command = ["sh", "-c", "trap 'echo ended >end' TERM; echo half; sleep 60 & wait"]
        ''')
    companion.pick("backupClicked:", companion.folder / "a")
    companion.notifications.wait_for("Working on a", "half")
    companion.notifications.press_button()
    companion.notifications.wait_for("Cancelled", "a")
    assert companion.notifications.last[0] == 1  # in place of the progress
    assert (companion.folder / "end").read_text() == "ended\n"


def test_an_edited_file_is_taken_over_and_a_wrong_one_is_not(companion):
    companion.start('folders = [')
    companion.notifications.wait_for("The settings are wrong",
                                     f"{companion.settings}:1:12: Invalid value")
    companion.settings.write_text('folders = ["~/Sync"]')
    session = companion.session
    session.wait_for_value("pathsOfRootFolders", [str(companion.folder)])
    assert session.get("displayBackup") == 0
    status, _, error = run(session)
    assert status == 1 and "Does the program run already?" in error
    companion.settings.write_text('folders = [1]\n"\\u0000" = 1')
    companion.notifications.wait_for(
        "The settings are wrong",
        f'{companion.settings}:1:1: unknown key ""; there are "backup", "folders", "link", "source"\n'
        f"{companion.settings}:1:12: a folder is a text, or a table with the texts path and name")
    assert session.get("pathsOfRootFolders") == [str(companion.folder)]
    companion.settings.write_text('folders = ["/a", "/b"]\n[backup]\ncommand = ["true"]')
    session.wait_for_value("pathsOfRootFolders", ["/a", "/b"])
    session.wait_for_value("displayBackup", 1)
    assert companion.process.end() == 0


def write_program(companion, text):
    program = companion.session.home / "folders"
    program.write_text(text, encoding="utf-8")
    program.chmod(0o755)
    companion.start(f'folders = ["~/Sync"]\n[source]\ncommand = ["{program}"]')


def test_a_program_finds_folders(companion):
    page = (SOURCES.parent / "docs/companion-sources.md").read_text(encoding="utf-8")
    write_program(companion, re.search(r"(?s)```python\n(.*?)```", page)[1])
    bookmarks = companion.session.home / ".config/gtk-3.0/bookmarks"
    bookmarks.parent.mkdir(parents=True)
    for text, found in [("file:///a%20b Name\nsftp://host/c\nfile:///d\n", ["/a b", "/d"]), ("", [])]:
        bookmarks.write_text(text)
        companion.session.wait_for_value("pathsOfRootFolders", [str(companion.folder), *found])


def test_a_program_that_fails_is_run_again_and_its_folders_stay(companion):
    write_program(companion, """#!/bin/sh
        trap 'echo >>ends; exit' TERM
        echo >>runs
        case $(wc -l <runs) in
        1) echo '["/a"]'; echo oops >&2; exit 1 ;;
        2) echo '{"path": "/b"}' ;;
        *) [ -e go ] || exit 1; echo '["d/e", {"path": "/c", "name": "f"}]' ;;
        esac
        sleep 60 & wait
        """)
    session, sync = companion.session, str(companion.folder)
    session.wait_for_value("pathsOfRootFolders", [sync, "/a"])
    for reason in ("folders: oops\n", 'this one is not: {"path": "/b"}\n', "folders: exit status 1\n"):
        wait_for(lambda: reason in companion.process.error(), reason)
    assert session.get("pathsOfRootFolders") == [sync, "/a"]
    (session.home / "go").touch()
    session.wait_for_value("pathsOfRootFolders", [sync, "/c"])
    assert companion.process.error().count("d/e is not an absolute path\n") == 1
    companion.settings.write_text('folders = ["~/Sync"]')
    session.wait_for_value("pathsOfRootFolders", [sync])
    wait_for(lambda: (session.home / "ends").read_text() == "\n\n", "the end of the program")


@pytest.mark.parametrize("line", [b"{}", b"[1]", b"\xff", 100000 * b"["], ids=lambda line: str(line[:9]))
def test_a_line_that_is_no_list_of_folders(line):
    with pytest.raises(ValueError):
        sources._folders_of(line)  # pylint: disable=protected-access


def test_systemd_starts_it_when_the_extension_connects(companion):
    session = companion.session
    peer = session.listen()
    session.store_settings({"ServerPort": peer.port})
    session.start_extension()
    assert not peer.nobody_connects(within=TIMEOUT)
    companion.settings.write_text('folders = ["~/Sync"]')
    session.wrapper = ["sh", "-c", 'LISTEN_PID=$$ LISTEN_FDS=1 exec "$0" 3<&0']  # as systemd starts it
    program = session.start("finder-sync-companion", stdin=peer.listener)
    session.wait_for_value("pathsOfRootFolders", [str(companion.folder)])
    assert f"listening on 127.0.0.1:{peer.port}\n" in program.error()


@pytest.mark.parametrize("family, kind", [
    (socket.AF_INET, socket.SOCK_DGRAM), (socket.AF_INET6, socket.SOCK_STREAM),
    (socket.AF_UNIX, socket.SOCK_STREAM)])
def test_systemd_has_to_pass_a_socket_that_extensions_can_reach(session, family, kind):
    session.wrapper = ["sh", "-c", 'LISTEN_PID=$$ LISTEN_FDS=1 exec "$0" 3<&0']
    with socket.socket(family, kind) as passed:
        program = session.start("finder-sync-companion", stdin=passed)
        assert program.wait() == 1
    assert re.fullmatch("port 0 of 127.0.0.1 cannot be had: .* not supported.*\n", program.error())


def test_enable_gives_systemd_a_port_of_the_users_own_and_keeps_it(companion):
    session = companion.session
    programs = session.home / "bin"
    programs.mkdir()
    (programs / "systemctl").write_text('#!/bin/sh\necho "$@" >>$HOME/calls\n')
    path = session.environment["PATH"]
    session.environment["PATH"] = f"{programs}:{session.programs}"
    (programs / "python3").symlink_to("/usr/bin/python3")
    companion.settings.write_text('folders = ["~/Sync"]\n[link]\ntitle = "Web page"\ncommand = ["true"]')
    assert "start finder-sync-companion with the session" in run(session, "enable")[2]
    (programs / "systemctl").chmod(0o755)
    session.environment["PATH"] = f"{programs}:{path}"
    ports = set()
    for _ in range(2):
        status, _, error = run(session, "enable")
        assert status == 1 and "link" in error  # nobody listens on it here, as systemd would
        settings = json.loads(session.settings_file.read_text())
        assert settings["ShareViaUrlTitle"] == "Web page" and settings["BackupTitle"] == "Back up now"
        drop_in = session.home / "config/systemd/user/finder-sync-companion.socket.d/port.conf"
        assert drop_in.read_text() == f"[Socket]\nListenStream=127.0.0.1:{settings['ServerPort']}\n"
        ports.add(settings["ServerPort"])
    assert len(ports) == 1
    assert (session.home / "calls").read_text() == 2 * (
        "--user daemon-reload\n--user enable --quiet finder-sync-companion.socket\n"
        "--user restart finder-sync-companion.socket\n")


def test_every_text_is_translated():
    program = "".join(file.read_text(encoding="utf-8")
                      for file in (SOURCES / "finder_sync_companion/program").glob("*.py"))
    texts = {*re.findall(r'_translate\(\s*"([^"]*)"', program)}
    assert len(texts) > 9
    for catalogue in (SOURCES / "po").glob("*.po"):
        translated = re.findall(r'(?m)^msgid "(.+)"\nmsgstr ".+"$', catalogue.read_text(encoding="utf-8"))
        assert {*translated} == texts, catalogue
