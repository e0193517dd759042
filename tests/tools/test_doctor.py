"""finderctl doctor: what it says of a session that works, and of each thing that can be wrong."""

import contextlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import threading

import pytest
from conftest import BUS_NAME, startable_services, wait_for
from jeepney import message_bus, new_error, new_method_return
from jeepney.io.blocking import open_dbus_connection

from .pseudo_terminal import Terminal

OTHER = "org.example.other.FinderSync"
LISTEN = """import socket, sys, time
listener = socket.create_server(("127.0.0.1", int(sys.argv[1])))
print("listening", flush=True)
time.sleep(1000)"""


@pytest.fixture
def healthy(session):
    session.start_bus(BUS_NAME)
    session.companion = session.start_companion("--write-settings")
    start_file_manager(session, "caja", "libfinder-sync-caja.so")
    return session


def start_file_manager(session, name, plugin):
    """A process that passes for a file manager and has loaded a file of that name."""
    program = session.folder / name
    library = session.folder / plugin
    shutil.copy(shutil.which("sleep"), program)
    shutil.copy(next(line.split()[-1] for line in open("/proc/self/maps", encoding="utf-8")
                     if "/libm.so" in line or "/libm-" in line), library)
    process = session.start(program, "1000", environment={"LD_PRELOAD": str(library)})
    wait_for(lambda: plugin in pathlib.Path(f"/proc/{process.popen.pid}/maps").read_text(), name)


def examine(session, **environment):
    code, out, _ = session.finderctl("--json", "doctor", environment=environment)
    findings = json.loads(out)
    assert all(finding["isGood"] == (finding["remedy"] == "") for finding in findings)
    assert code == (0 if all(finding["isGood"] for finding in findings) else 1)
    return findings


def without_service(session):
    session.start_bus()
    session.start_real_extension(session.companion.port)


def with_failing_service(session):
    only_with_user_namespaces()
    services = session.folder / "failing"
    services.mkdir()
    session.start_bus(folders=[services])
    (services / f"{BUS_NAME}.service").write_text(
        f"[D-BUS Service]\nName={BUS_NAME}\nExec=/bin/false\n")
    wait_for(lambda: BUS_NAME in startable_services(session.address), "the service")


def without_user_namespaces(session):
    only_root()
    with_failing_service(session)
    session.wrapper = ["unshare", "--user", "--map-root-user", "sh", "-c",
                       'echo 0 >/proc/sys/user/max_user_namespaces && exec "$@"', "sh"]


def only_root():
    if os.geteuid() != 0:
        pytest.skip("only root can be another user, and deny user namespaces")


def only_with_user_namespaces():
    if subprocess.run(["unshare", "--user", "--mount", "true"], check=False).returncode != 0:
        pytest.skip("this system has no user namespaces; no chroot has")


def without_companion(session):
    session.companion.signal(15)
    session.companion.wait()


def with_companion_of_another_user(session):
    only_root()
    without_companion(session)
    listener = session.start(shutil.which("setpriv"), "--reuid=65534", sys.executable, "-c", LISTEN,
                             str(session.companion.port))
    listener.out.wait_for("listening")


def with_companion_that_starts_later(session):
    without_companion(session)
    session.start_real_extension(session.companion.port)
    session.start_companion(port=session.companion.port)


def with_another_on_the_same_port(session):
    own_other_name(session, lambda call: new_method_return(
        call, "v", (("u", session.companion.port),)))


def with_an_impostor(session):
    own_other_name(session, lambda call: new_error(call, "org.example.Nonsense", "s", ("nonsense",)))


def own_other_name(session, answer):
    """Another product on the bus, which answers every call like this."""
    connection = open_dbus_connection(session.address)
    connection.send_and_get_reply(message_bus.RequestName(OTHER))

    def serve():
        with contextlib.suppress(ConnectionError):  # until the bus ends
            while True:
                message = connection.receive()
                if message.header.message_type.name == "method_call":
                    connection.send(answer(message))

    threading.Thread(target=serve, daemon=True).start()


def with_file_manager_without_plugin(session):
    start_file_manager(session, "nautilus", "libother.so")


def with_plugin_switched_off(session):
    schema = pathlib.Path("/usr/share/glib-2.0/schemas/org.mate.caja.gschema.xml")
    if not schema.exists() or not shutil.which("gsettings"):
        pytest.skip("Caja's settings are not installed")
    keys = session.home / "config/glib-2.0/settings/keyfile"
    keys.parent.mkdir(parents=True)
    keys.write_text("[org/mate/caja/extensions]\n"
                    "disabled-extensions=['libfinder-sync-caja']\n")
    session.environment |= {"GSETTINGS_BACKEND": "keyfile",
                            "GSETTINGS_SCHEMA_DIR": str(schema.parent)}


def without_icons(session):
    session.environment["XDG_DATA_DIRS"] = "/nowhere"


def test_everything_is_well(healthy):
    """Also on a terminal, with colors."""
    assert [finding["subject"] for finding in examine(healthy)] == [
        "service", "start", "port", "link", "icon", "plug-in", "product"]
    terminal = Terminal(columns=200)
    program = healthy.start("finderctl", "doctor", **terminal.streams())
    terminal.wait_for("product: no other product is installed\r\n")
    assert program.wait() == 0
    assert terminal.output.count("\x1b[32mok  \x1b[0m") == 7
    terminal.close()
    code, out, _ = healthy.finderctl("doctor")
    assert code == 0 and [line[:4] for line in out.splitlines()] == ["ok  "] * 7


@pytest.mark.parametrize("damage, subject, text, remedy", [
    (without_service, "service", "does not know how to start", "install its package"),
    (with_failing_service, "start", "the bus cannot start the extension: ", "read its log"),
    (without_user_namespaces, "start", "cannot start", "/less-sandbox.conf ~/.config/"),
    (without_companion, "port", "nobody listens on port", "start the companion application"),
    (with_companion_of_another_user, "port", "a program of nobody listens", "another \"ServerPort\""),
    (with_companion_that_starts_later, "link", "is not open: refused", "finderctl restart"),
    (without_icons, "icon", "has no emblem-", "install its package"),
    (with_file_manager_without_plugin, "plug-in", "has not loaded it", "end and start it"),
    (with_plugin_switched_off, "plug-in", "is switched off in caja", "switch it on"),
    (with_another_on_the_same_port, "product", f"{OTHER} uses port", "another \"ServerPort\""),
    (with_an_impostor, "product", "nonsense", f"end or update {OTHER}"),
], ids=lambda value: getattr(value, "__name__", ""))
def test_what_is_wrong_is_named_with_its_remedy(healthy, damage, subject, text, remedy):
    damage(healthy)
    bad = [finding for finding in examine(healthy) if not finding["isGood"]]
    assert any(finding["subject"] == subject and text in finding["text"] and
               remedy in finding["remedy"] for finding in bad), bad
