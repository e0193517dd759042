"""A user's real systemd, with a session bus that it has started: the bus has it start the
extension, and its sandbox is in force, the whole of it or what works without user namespaces."""

import os
import pathlib
import re
import subprocess

import pytest
from conftest import GROUP, wait_for

PAGE = pathlib.Path(__file__).parents[2] / "docs/installing.md"
UNIT = f"{GROUP}.FinderSync.service"
READ_ONLY = ("", "/home", "/tmp", "/var/tmp", "/run", "$XDG_RUNTIME_DIR", "$HOME", "$HOME/Sync",
             f"$HOME/.config/{GROUP}", "/dev")

# As root of the namespaces: what a machine that systemd has booted looks like to a user's manager.
PREPARE = r"""
set -e
mount -t proc proc /proc
mount -t cgroup2 cgroup2 /sys/fs/cgroup
mount -t tmpfs -o mode=755 tmpfs /run
mkdir -p /run/systemd/system /run/systemd/unit-root /run/systemd/mount-rootfs
mkdir -p /run/user/4242 /run/home /sys/fs/cgroup/user
echo $$ >/sys/fs/cgroup/user/cgroup.procs
chown -R 4242:4242 /sys/fs/cgroup/user /run/user/4242 /run/home
chmod 700 /run/user/4242
install -d -g 4242 -m 2750 /run/log/journal
/lib/systemd/systemd-journald &
(cat /etc/passwd && echo 'finder:x:4242:4242::/run/home:/bin/sh') >/run/passwd
mount --bind /run/passwd /etc/passwd
cd /
exec setpriv --reuid 4242 --regid 4242 --clear-groups env -i PATH=/usr/bin HOME=/run/home \
    XDG_RUNTIME_DIR=/run/user/4242 DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/4242/bus sh -c "$1"
"""

# As that user. Each answer begins with a line of its own, "= name".
ASK = r"""
exec 2>&1
wait_for() {
    attempts=200
    until "$@" >/dev/null 2>&1; do
        attempts=$((attempts - 1))
        [ $attempts -gt 0 ] || { echo "= failed"; echo "$*"; exit 1; }
        sleep 0.05
    done
}
wait_for test -S /run/systemd/journal/stdout
/lib/systemd/systemd --user --unit=basic.target >/dev/null &
manager=$!
wait_for systemctl --user is-active basic.target
mkdir -p "$HOME/Sync" && touch "$HOME/Sync/a.txt" && mkfifo "$HOME/commands"
companion --port 0 --write-settings --command "add_folder $HOME/Sync" \
    <"$HOME/commands" >"$HOME/reports" 2>"$HOME/companion.log" &
exec 3>"$HOME/commands"
wait_for grep -q listening "$HOME/companion.log"
FIRST_START
echo "= description"; systemctl --user show -P Description UNIT
wait_for sh -c 'finderctl badge "$HOME/Sync" | grep -q FolderIco'
finderctl click createLinkClicked: "$HOME/Sync/a.txt"
wait_for grep -q clicked "$HOME/reports"
echo "= report"; cat "$HOME/reports"
extension=$(systemctl --user show -P MainPID UNIT)
echo "= first"; echo "$extension"
echo "= program"; readlink "/proc/$extension/exe"
echo "= status"; cat "/proc/$extension/status"
echo "= core"; grep core "/proc/$extension/limits"
echo "= log level"
systemctl --user service-log-level UNIT
systemctl --user service-log-level UNIT debug
systemctl --user service-log-level UNIT
echo "= write"
for folder in READ_ONLY; do touch "/proc/$extension/root$folder/probe"; done
echo "= shared memory"; touch "/proc/$extension/root/dev/shm/probe"
finderctl restart
wait_for sh -c '[ $(grep -c "has connected" "$HOME/companion.log") = 2 ]'
echo "= restarted"; systemctl --user show -P MainPID UNIT
extension=$(systemctl --user show -P MainPID UNIT)
kill -ABRT "$extension"
wait_for sh -c '! systemctl --user is-active UNIT'
REQUEST
echo "= again"; systemctl --user is-active UNIT
settings=$HOME/.config/GROUP/settings.json
cp "$settings" "$HOME/kept"
echo nonsense >"$settings"
kill -ABRT "$(systemctl --user show -P MainPID UNIT)"
wait_for sh -c '! systemctl --user is-active UNIT'
echo "= broken"; for attempt in 1 2 3 4 5 6 7 8; do REQUEST; done
mv "$HOME/kept" "$settings"
REQUEST
echo "= mended"; systemctl --user is-active UNIT
systemctl --user service-log-level UNIT debug
busctl --user set-property OBJECT pathsOfRootFolders as 100 $(seq -f /folder%.0f 100)
busctl --user call OBJECT RequestBadgeIdentifiersForURLs \
    as 1000 $(seq -f file://$HOME/%.0f 1000) >/dev/null
echo nonsense >"$settings"
kill -ABRT "$(systemctl --user show -P MainPID UNIT)"
REQUEST
wait_for sh -c '[ $(journalctl --identifier finder-sync-extension --priority err | grep -c fatal) = 9 ]'
echo "= lines"; journalctl --identifier finder-sync-extension | wc -l
exec 3>&-
kill "$manager"
wait
"""

OBJECT = "GROUP.FinderSync /FinderSync findersync.Extension1"
REQUEST = """busctl --user --timeout=5 call OBJECT RequestBadgeIdentifierForURL \\
    s "file://$HOME" >/dev/null"""
# What the page tells a user to do where there are no user namespaces.
RELAX = """systemctl --user start UNIT
echo "= refused"; systemctl --user is-failed UNIT; systemctl --user show -P ExecMainStatus UNIT
echo "= doctor"; finderctl doctor
""" + re.search(r"```sh\n(unit=.*?)```", PAGE.read_text(), re.DOTALL)[1]


@pytest.fixture
def control_group():
    """A control group of our own, in the one that we are in."""
    mount = re.search(r"^\S+ \S+ \S+ \S+ (\S+) .* - cgroup2 ",
                      pathlib.Path("/proc/self/mountinfo").read_text(), re.MULTILINE)
    own = re.search(r"^0::(.*)$", pathlib.Path("/proc/self/cgroup").read_text(), re.MULTILINE)
    if os.geteuid() != 0 or not mount or not own:
        pytest.skip("only root can prepare a user's systemd, and it needs version 2 of cgroups")
    attempt = subprocess.run(["unshare", "--user", "true"], capture_output=True, text=True)
    if attempt.returncode != 0:
        pytest.skip(f"the sandbox needs user namespaces: {attempt.stderr.strip()}")
    group = pathlib.Path(mount[1]) / own[1].lstrip("/") / f"finder-sync-test-{os.getpid()}"
    try:
        group.mkdir()
    except OSError as error:
        pytest.skip(f"a user's systemd needs a control group: {error}")
    yield group
    (group / "cgroup.kill").write_text("1")
    wait_for(lambda: "populated 0" in (group / "cgroup.events").read_text())
    for folder in sorted(group.rglob("*/"), reverse=True):
        if folder.is_dir():
            folder.rmdir()
    group.rmdir()


@pytest.fixture
def no_user_namespaces():
    """The words before a command that has it run where no user namespace can be made: as root of one
    that allows none below it."""
    with subprocess.Popen(["unshare", "--user", "sh", "-c", "echo; exec sleep infinity"],
                          stdout=subprocess.PIPE) as holder:
        holder.stdout.readline()
        for ids in ("uid_map", "gid_map"):
            pathlib.Path(f"/proc/{holder.pid}/{ids}").write_text("0 0 65536\n")
        yield ["nsenter", "--user", f"--target={holder.pid}", "--setuid=0", "--setgid=0", "sh", "-c",
               'echo 0 >/proc/sys/user/max_user_namespaces && exec "$@"', "sh"]
        holder.kill()


def answers(root, control_group, first_start, surroundings=()):
    """What the user's systemd and the extension that it has started answer, by question."""
    ask = ASK.replace("READ_ONLY", " ".join(f'"{folder}"' for folder in READ_ONLY))
    ask = ask.replace("FIRST_START", first_start).replace("REQUEST", REQUEST)
    ask = ask.replace("OBJECT", OBJECT).replace("GROUP", GROUP).replace("UNIT", UNIT)
    enter = f'echo $$ >"{control_group}/cgroup.procs" && exec "$@"'
    outcome = subprocess.run(
        ["sh", "-c", enter, "sh", *surroundings,
         "unshare", "--pid", "--fork", "--cgroup", "--kill-child",
         *root.command("sh", "-c", PREPARE, "sh", ask)],
        capture_output=True, text=True, timeout=60)
    answers = dict(part.split("\n", 1) for part in outcome.stdout.split("= ")[1:])
    assert "failed" not in answers and "again" in answers, outcome.stdout + outcome.stderr
    return answers


def check_whole_life(answers):
    """What holds with and without user namespaces. Gives the process's status."""
    assert answers["program"] == "/usr/bin/finder-sync-extension\n"
    assert '"items":["/run/home/Sync/a.txt"]' in answers["report"]
    status = dict(re.findall(r"^(\w+):\s*(\S*)", answers["status"], re.MULTILINE))
    assert {name: status[name] for name in ("NoNewPrivs", "Seccomp", "Umask")} == \
        {"NoNewPrivs": "1", "Seccomp": "2", "Umask": "0077"}
    assert answers["log level"] == "warning\ndebug\n"
    assert answers["core"].split()[4:6] == ["0", "0"]
    assert answers["restarted"] not in ("0\n", answers["first"])
    assert answers["again"] == "active\n"  # a fatal error is followed by a fresh start
    # However many there were: a limit of starts would leave all who ask without an answer.
    assert answers["broken"].count("disconnected from message bus without replying") == 8
    assert answers["mended"].startswith("active\n")
    # The journal drops what is too much for it, but no reason of an end.
    assert 1000 < int(answers["lines"]) < 200000
    return status


def test_the_extension_works_in_its_sandbox(root, control_group):
    found = answers(root, control_group, "REQUEST")
    assert check_whole_life(found)["CapBnd"] == "0" * 16
    assert found["write"].count("Read-only file system") == len(READ_ONLY), found["write"]
    assert "Permission denied" in found["shared memory"]
    assert found["description"].endswith("(full sandbox)\n")


def test_without_user_namespaces_it_fails_openly_and_a_command_helps(
        root, control_group, no_user_namespaces):
    found = answers(root, control_group, RELAX, no_user_namespaces)
    assert found["refused"] == "failed\n217\n"
    assert "bad start: " in found["doctor"] and "ln -sf /usr/share/finder-sync/" in found["doctor"]
    assert "0" * 16 != check_whole_life(found)["CapBnd"]
    assert found["description"].endswith("(sandbox without namespaces)\n")
