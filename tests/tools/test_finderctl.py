"""The Finder for the terminal, against the real extension on a bus of its own."""

import json
import os
import select
import signal

import pytest
from conftest import BUS_NAME, EXTENSION, startable_services, wait_for
from hostile.impostor import Impostor, marshalled
from jeepney import DBusAddress, HeaderFields, new_method_call
from jeepney.io.blocking import open_dbus_connection

NAMES = ["myFolderURL", "serverAddress", "serverPort", "isSocketConnected",
         "displayUrlLink", "displayBackup", "shareContactTitle", "shareViaUrlTitle", "backupTitle",
         "directoryURLs", "badges", "linkState", "pathsOfRootFolders"]


@pytest.fixture
def linked(session, companion, request):
    """A companion and an extension that is connected to it."""
    companion.extension = session.start_real_extension(
        companion.port, RootFolder=getattr(request, "param", "/watched dir"), DisplayBackup=2**62,
        ShareContactTitle='Share "with"\nall', BackupTitle="Sichern ü")
    return companion


watching_all = pytest.mark.parametrize("linked", ["/"], indirect=True, ids=[""])


@pytest.fixture
def monitor(session):
    """Starts a monitor and waits until it has subscribed."""

    def starter(*arguments, **options):
        program = session.start("finderctl", "monitor", *arguments, **options)
        program.out.wait_for("running")
        return program

    return starter


# Without anybody to talk to


@pytest.mark.parametrize("arguments", [["state"], ["observe", "/x"], ["monitor"]])
def test_no_session_bus(session, tmp_path, arguments):
    session.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={tmp_path}/nothing"
    code, out, err = session.finderctl(*arguments)
    assert (code, out) == (1, "")
    assert "no session bus" in err


def test_session_bus_that_does_not_answer(session):
    session.daemon.send_signal(signal.SIGSTOP)
    code, out, err = session.finderctl("state")
    session.daemon.send_signal(signal.SIGCONT)
    assert (code, out) == (1, "")
    assert "the session bus does not answer" in err and "5 seconds" in err


@pytest.mark.parametrize("arguments, message", [
    ([], "a command is missing"), (["frob"], "unknown command 'frob'"),
    (["--frob"], "unrecognized option '--frob'\nfinderctl: wrong usage"),
    (["state", "surplus"], "too many arguments for 'state'"),
    (["monitor", "x"], "too many arguments for 'monitor'"),
    (["observe"], "too few arguments for 'observe'"),
    (["badge"], "too few arguments for 'badge'"), (["click"], "too few arguments for 'click'"),
    (["menu", "--kind", "frob", "/a"], "unknown kind 'frob'"),
    (["--group", "a/\n", "state"], "'a/\\x0A' is no application group"),
    (["state", "--kind", "items"], "--kind is for 'menu' only"),
])
def test_wrong_usage(session, arguments, message):
    assert session.finderctl(*arguments) == (
        2, "", f"finderctl: {message}; see finderctl --help\n")


@pytest.mark.parametrize("program", ["companion", "finderctl"])
def test_help_and_version(session, program):
    for option, expected in (("--help", f"usage: {program} "), ("--version", f"{program} ")):
        process = session.start(program, option)
        assert process.wait() == 0
        assert expected in process.out.text


def test_nothing_starts_the_extension(session, tmp_path):
    marker = tmp_path / "started"
    services = tmp_path / "later services"
    services.mkdir()
    session.start_bus(folders=[services])
    (services / f"{BUS_NAME}.service").write_text(
        f"[D-BUS Service]\nName={BUS_NAME}\nExec=/usr/bin/touch {marker}\n")
    wait_for(lambda: BUS_NAME in startable_services(session.address), "the service")

    watcher = session.start("finderctl", "monitor")
    watcher.out.wait_for("the extension is not running\n")
    for arguments in (["state"], ["observe", "/x"], ["unobserve", "/x"], ["badge", "/x"],
                      ["menu", "/x"], ["click", "syncedClicked:", "/x"]):
        code, out, err = session.finderctl(*arguments)
        assert (code, out) == (3, "")
        assert f"the extension is not running (nobody owns {BUS_NAME} on the session bus)" in err
        assert '"finderctl restart" starts it' in err
    assert not marker.exists()

    # The bus would have started it for anybody else.
    with open_dbus_connection(bus=session.address) as connection:
        connection.send(new_method_call(EXTENSION, "Any"))
        wait_for(marker.exists, "activation")


# state


def test_state_as_json(session, linked):
    linked.write("add_folder /a b\nadd_folder /ü\n")
    linked.extension.out.wait_for("(?s)add_folder.*server said.*add_folder.*type - add_folder")
    code, out, err = session.finderctl("--json", "state")
    assert (code, err) == (0, "")
    assert out.count("\n") == 1
    state = json.loads(out)
    assert list(state) == NAMES
    icon = state["badges"]["FolderIco"]
    assert icon["label"] == "Folder Icon" and os.path.isabs(icon["image"])
    del state["badges"]
    assert state == {
        "myFolderURL": "file:///watched%20dir", "pathsOfRootFolders": ["/a b", "/ü"],
        "serverAddress": "127.0.0.1", "serverPort": linked.port, "isSocketConnected": True,
        "displayUrlLink": 1, "displayBackup": 2**62, "shareContactTitle": 'Share "with"\nall',
        "shareViaUrlTitle": "", "backupTitle": "Sichern ü",
        "directoryURLs": ["file:///watched%20dir"], "linkState": "open"}


def test_state_for_people(session, linked):
    assert "pathsOfRootFolders  (none)\n" in session.finderctl("state")[1]
    linked.write('raw {"type":"add_folder","path":"/a\\nb\\u009b"}\n')
    linked.extension.out.wait_for("type - add_folder")
    linked.write("add_folder /c\n")
    linked.extension.out.wait_for("(?s)type - add_folder.*type - add_folder")
    code, out, err = session.finderctl("state")
    assert (code, err) == (0, "")
    lines = out.splitlines()
    assert [line.split()[0] for line in lines if not line.startswith(" ")] == NAMES
    column = lines[0].index("file:")
    assert all(line[column - 1] == " " and line[column] != " "
               for line in lines if len(line) > column)
    assert [line[column:] for line in lines[-2:]] == ["/a\\x0Ab\\xC2\\x9B", "/c"]
    assert f"serverPort{' ' * (column - 10)}{linked.port}" in lines
    assert f"isSocketConnected{' ' * (column - 17)}true" in lines
    assert f"shareContactTitle{' ' * (column - 17)}Share \"with\"\\x0Aall" in lines
    assert "shareViaUrlTitle" in lines
    assert any(line.startswith("badges") and "FolderIco: " in line for line in lines)


def test_state_beside_a_list_that_is_too_long(session):
    Impostor(session, {"GetAll": ("a{sv}", marshalled("a{sv}", {"serverPort": ("u", 1)})),
                       "pathsOfRootFolders": "org.freedesktop.DBus.Error.LimitsExceeded"})
    code, out, err = session.finderctl("--json", "state")
    assert (code, json.loads(out)) == (1, {"serverPort": 1})
    assert err.startswith("finderctl: pathsOfRootFolders: the extension refused it")


def test_output_that_nobody_reads(session, linked):
    read_end, write_end = os.pipe()
    os.close(read_end)
    assert session.finderctl("state", stdout=write_end) == (0, "", "")
    os.close(write_end)


def test_output_that_cannot_be_written(session, linked):
    with open("/dev/full", "wb") as full:
        code, _, err = session.finderctl("state", stdout=full)
    assert code == 1 and "No space left" in err


def test_another_product_is_asked(session, linked):
    """Which does not run, and which is told by its name."""
    code, out, err = session.finderctl("--group", "org.example.other", "state")
    assert (code, out) == (3, "") and "nobody owns org.example.other.FinderSync " in err
    group = BUS_NAME.removesuffix(".FinderSync")
    assert session.finderctl("--group", group, "state") == session.finderctl("state")


# observe and unobserve


@watching_all
@pytest.mark.parametrize("command, callback", [
    ("observe", "beginObservingDirectoryAtURL"), ("unobserve", "endObservingDirectoryAtURL")])
def test_observe(session, linked, tmp_path, command, callback):
    (tmp_path / "link").symlink_to("/nowhere")
    assert session.finderctl(
        command, "/a b/ü?#%", "link", "./x/../y//z/.", ".", "/", "file:///as%20is", "file:/short",
        cwd=tmp_path) == (0, "", "")
    here = f"file://{tmp_path}"
    linked.extension.err.wait_for("short")
    observed = [line.split(f"{callback}: ")[1] for line in linked.extension.err.lines()
                if callback in line]
    assert [url.rstrip("/") for url in observed] == [
        "file:///a%20b/%C3%BC%3F%23%25", f"{here}/link", f"{here}/y/z", here, "file:",
        "file:///as%20is", "file:/short"]


@watching_all
def test_refused_urls(session, linked):
    code, out, err = session.finderctl("observe", "https://example.com/x", "/good", "file:///a?b",
                                       "file://elsewhere/x")
    assert (code, out, len(err.splitlines())) == (1, "", 3)
    assert '"https://example.com/x" is not the URL of a local file' in err
    linked.extension.err.wait_for("beginObservingDirectoryAtURL: file:///good")


@pytest.mark.parametrize("argument, message", [
    (b"/bad\xff", '"/bad\\xFF" is not valid UTF-8'), (b"file:///\xff", "is not valid UTF-8"),
    (b"", "empty")])
def test_arguments_that_cannot_be_urls(session, linked, argument, message):
    code, out, err = session.finderctl("observe", b"/watched dir/good", argument)
    assert (code, out) == (1, "")
    assert message in err
    assert "good" not in linked.extension.err.text


def test_working_directory_that_is_gone(session, tmp_path):
    gone = tmp_path / "gone"
    gone.mkdir()
    program = session.start("/bin/sh", "-c", 'rmdir "$1" && exec "$2" observe x', "sh", gone,
                            session.programs / "finderctl", cwd=gone)
    assert program.wait() == 1
    assert '"x" cannot be made an absolute path' in program.err.text


# An extension in trouble


@pytest.mark.parametrize("arguments", [["state"], ["observe", "/x"]])
def test_extension_that_does_not_answer(session, linked, arguments):
    linked.extension.signal(signal.SIGSTOP)
    code, out, err = session.finderctl(*arguments)
    assert (code, out) == (1, "")
    assert "does not answer" in err and "5 seconds" in err


def test_extension_that_ends_before_it_answers(session, linked):
    linked.extension.signal(signal.SIGSTOP)
    with open_dbus_connection(bus=session.address) as connection:
        connection.send_and_get_reply(new_method_call(
            DBusAddress("/org/freedesktop/DBus", "org.freedesktop.DBus",
                        "org.freedesktop.DBus.Monitoring"),
            "BecomeMonitor", "asu", (["member='GetAll'"], 0)))
        program = session.start("finderctl", "state")
        while connection.receive(timeout=20).header.fields.get(HeaderFields.member) != "GetAll":
            pass
    linked.extension.popen.kill()
    assert program.wait(4) == 1
    assert "ended before it answered" in program.err.text


# monitor


def test_monitor(linked, monitor):
    watcher = monitor()
    assert watcher.out.text == "the extension is running\n"
    linked.write("add_folder /a b\n")
    watcher.out.wait_for('pathsOfRootFolders: \\["/a b"\\]\n')
    linked.write("set_menu_usage 1\n")
    watcher.out.wait_for("displayBackup: 1\n")
    linked.write('raw {"type":"set_locale","shareContactTitle":"one\\ntwo","shareViaUrlTitle":"b",'
                 '"backupTitle":"c"}\n')
    watcher.out.wait_for("backupTitle: c\n")
    assert "shareContactTitle: one\\x0Atwo\n" in watcher.out.text
    assert "shareViaUrlTitle: b\n" in watcher.out.text
    linked.end_input()
    watcher.out.wait_for("isSocketConnected: false\n")
    assert "linkState: ended\n" in watcher.out.text
    assert len(watcher.out.lines()) == 8
    watcher.signal(signal.SIGINT)
    assert watcher.wait(5) == 0
    assert watcher.err.text == ""


def test_monitor_json(linked, monitor):
    watcher = monitor("--json")
    linked.write('set_locale "a\\"" ü "c"\n')
    watcher.out.wait_for("c\"}\n")
    assert [json.loads(line) for line in watcher.out.lines()] == [
        {"running": True},
        {"shareContactTitle": 'a"', "shareViaUrlTitle": "ü", "backupTitle": "c"}]
    linked.extension.signal(signal.SIGTERM)
    watcher.out.wait_for('{"running":false}\n')
    watcher.signal(signal.SIGTERM)
    assert watcher.wait(5) == 0


def test_monitor_before_and_after_the_extension(session, monitor):
    watcher = monitor()
    assert watcher.out.text == "the extension is not running\n"
    companion = session.start_companion()
    for number in (1, 2):
        extension = session.start_real_extension(companion.port)
        companion.write("add_folder /a\n")
        wait_for(lambda: watcher.out.text.count("pathsOfRootFolders") == number, "the change")
        extension.signal(signal.SIGTERM)
        assert extension.wait() == 0
    wait_for(lambda: watcher.out.text.count("disappeared") == 2, "the end of the second")
    lines = [line for line in watcher.out.lines() if "Connected" not in line and "link" not in line]
    assert lines == ["the extension is not running"] + [
        "the extension has appeared", 'pathsOfRootFolders: ["/a"]',
        "the extension has disappeared"] * 2


def test_monitor_ends_with_its_reader(session):
    read_end, write_end = os.pipe()
    watcher = session.start("finderctl", "monitor", stdout=write_end)
    os.close(write_end)
    assert os.read(read_end, 100) == b"the extension is not running\n"
    os.close(read_end)
    assert watcher.wait(5) == 0
    assert watcher.err.text == ""


def test_monitor_ends_while_its_reader_sleeps(session, linked):
    """A signal ends it, even when a full pipe holds it up."""
    read_end, write_end = os.pipe()
    watcher = session.start("finderctl", "monitor", stdout=write_end)
    assert os.read(read_end, 100) == b"the extension is running\n"
    linked.write("".join(f"add_folder /{'x' * 900}{number}\n" for number in range(100)))
    wait_for(lambda: not select.select([], [write_end], [], 0)[1], "a full pipe")
    watcher.signal(signal.SIGTERM)
    assert watcher.wait(5) == 0
    os.close(read_end)
    os.close(write_end)


def test_monitor_when_the_bus_goes(session, monitor):
    watcher = monitor()
    session.daemon.terminate()
    assert watcher.wait(5) == 1
    assert "the session bus has gone" in watcher.err.text


def test_monitor_misses_nothing_after_its_first_line(session, linked, monitor):
    """Whoever reads the state after the first line gets every later change from the monitor."""
    watcher = monitor("--json")
    linked.write("".join(f"add_folder /{number}\n" for number in range(50)))
    wait_for(lambda: linked.extension.out.text.count("type - add_folder") == 50, "50 folders")
    state = json.loads(session.finderctl("--json", "state")[1])
    assert len(state["pathsOfRootFolders"]) == 50
    wait_for(lambda: json.loads(watcher.out.lines()[-1]) ==
               {"pathsOfRootFolders": state["pathsOfRootFolders"]}, "the last change")


# Badges, menus and clicks


@pytest.fixture
def with_root(linked):
    """The same, with a root folder and titles."""
    linked.type_line = lambda text: linked.write(text + "\n")
    linked.type_line("add_folder /watched dir/root é")
    linked.type_line('set_locale Contacts "Copy link" "Back up"')
    linked.type_line("set_menu_usage 0")
    linked.extension.out.wait_for("type - set_menu_usage")
    return linked


ROOT = "/watched dir/root é"
ROOT_URL = "file:///watched%20dir/root%20%C3%A9"


def test_badge_prints_a_line_for_each_item(session, with_root):
    code, out, err = session.finderctl("badge", ROOT, ROOT + "/", ROOT_URL, ROOT + "/file", "/elsewhere")
    assert (code, err) == (0, "")
    assert out == (f"FolderIco  {ROOT}\nFolderIco  {ROOT}/\nFolderIco  {ROOT_URL}\n"
                   f"(none)     {ROOT}/file\n(none)     /elsewhere\n")


def test_badge_as_json_is_keyed_by_path(session, with_root):
    code, out, _ = session.finderctl("--json", "badge", ROOT + "/.", ROOT_URL, "elsewhere", cwd="/usr")
    assert code == 0 and out.count("FolderIco") == 1
    assert json.loads(out) == {ROOT: "FolderIco", "/usr/elsewhere": ""}


def test_menu_prints_its_entries(session, with_root):
    code, out, err = session.finderctl("menu", ROOT + "/file")
    assert (code, out, err) == (0, '"Copy link"  createLinkClicked:  icon_URLlink\n', "")
    with_root.type_line("set_menu_usage 1")
    wait_for(lambda: "backupClicked:" in session.finderctl("menu", ROOT + "/file")[1], "backup entry")
    code, out, _ = session.finderctl("menu", "--json", ROOT + "/file")
    assert json.loads(out) == {"isOffered": True, "items": [
        {"title": "Copy link", "action": "createLinkClicked:", "image": "icon_URLlink"},
        {"title": "Back up", "action": "backupClicked:", "image": "icon_Backup"}]}


@pytest.mark.parametrize("arguments", [
    [ROOT], [], [ROOT + "/a", ROOT + "/b"], ["/elsewhere"], ["--kind", "container", ROOT + "/a"],
    ["--kind", "sidebar"], ["--kind", "toolbar", ROOT + "/a"],
])
def test_no_menu(session, with_root, arguments):
    assert session.finderctl("menu", *arguments) == (0, "(no menu)\n", "")
    code, out, _ = session.finderctl("menu", "--json", *arguments)
    assert (code, json.loads(out)) == (0, {"isOffered": False, "items": []})


@pytest.mark.parametrize("arguments, items", [([ROOT + "/a", ROOT_URL], [ROOT + "/a", ROOT]),
                                              ([], [])])
def test_click_reports_to_the_companion(session, with_root, arguments, items):
    assert session.finderctl("click", "backupClicked:", *arguments) == (0, "", "")
    report = json.loads(with_root.out.wait_for(r"(\{.*\})\n").group(1))
    assert report == {"type": "clicked_backup", "items": items}


@pytest.mark.parametrize("arguments, named", [
    (["click", "nonsense", ROOT], "nonsense"), (["click", "connect", ROOT], "connect"),
    (["badge", "http://example.com/"], "http://example.com/"),
    (["menu", "file:///%FF"], "file:///%FF"),
])
def test_refusals_are_told(session, with_root, arguments, named):
    code, out, err = session.finderctl(*arguments)
    assert (code, out) == (1, "")
    assert named in err
