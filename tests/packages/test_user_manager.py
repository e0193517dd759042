"""A user's real systemd, with a session bus that it has started: the bus has it start the
extension, and its sandbox is in force."""

import os
import pathlib
import re
import subprocess

import pytest
from conftest import GROUP

UNIT = f"{GROUP}.FinderSync.service"
READ_ONLY = ("", "/home", "/tmp", "/var/tmp", "/run", "$XDG_RUNTIME_DIR", "$HOME", "$HOME/Sync",
             f"$HOME/.config/{GROUP}", "/dev")

# As root of the namespaces: what a machine that systemd has booted looks like to a user's manager.
PREPARE = r"""
set -e
mount -t proc proc /proc
umount -R /sys/fs/cgroup
mount -t cgroup2 cgroup2 /sys/fs/cgroup
mount -t tmpfs -o mode=755 tmpfs /run
mkdir -p /run/systemd/system /run/systemd/unit-root /run/user/4242 /run/home /sys/fs/cgroup/user
echo $$ >/sys/fs/cgroup/user/cgroup.procs
chown -R 4242:4242 /sys/fs/cgroup/user /run/user/4242 /run/home
chmod 700 /run/user/4242
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
/lib/systemd/systemd --user --unit=basic.target >/dev/null &
manager=$!
wait_for systemctl --user is-active basic.target
mkdir -p "$HOME/Sync" && touch "$HOME/Sync/a.txt" && mkfifo "$HOME/commands"
companion --port 0 --write-settings --command "add_folder $HOME/Sync" \
    <"$HOME/commands" >"$HOME/reports" 2>"$HOME/companion.log" &
exec 3>"$HOME/commands"
wait_for grep -q listening "$HOME/companion.log"
busctl --user call GROUP.FinderSync /FinderSync findersync.Extension1 \
    RequestBadgeIdentifierForURL s "file://$HOME" >/dev/null
wait_for sh -c 'finderctl badge "$HOME/Sync" | grep -q FolderIco'
finderctl click createLinkClicked: "$HOME/Sync/a.txt"
wait_for grep -q clicked "$HOME/reports"
echo "= report"; cat "$HOME/reports"
extension=$(systemctl --user show -P MainPID UNIT)
echo "= first"; echo "$extension"
echo "= program"; readlink "/proc/$extension/exe"
echo "= status"; cat "/proc/$extension/status"
echo "= core"; grep core "/proc/$extension/limits"
echo "= write"
for folder in READ_ONLY; do touch "/proc/$extension/root$folder/probe"; done
echo "= shared memory"; touch "/proc/$extension/root/dev/shm/probe"
finderctl restart
wait_for sh -c '[ $(grep -c "has connected" "$HOME/companion.log") = 2 ]'
echo "= restarted"; systemctl --user show -P MainPID UNIT
extension=$(systemctl --user show -P MainPID UNIT)
kill -ABRT "$extension"
wait_for sh -c '! systemctl --user is-active UNIT'
busctl --user call GROUP.FinderSync /FinderSync findersync.Extension1 \
    RequestBadgeIdentifierForURL s "file://$HOME" >/dev/null
echo "= again"; systemctl --user is-active UNIT
exec 3>&-
kill "$manager"
wait
"""


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
    for folder in sorted(group.rglob("*/"), reverse=True):
        if folder.is_dir():
            folder.rmdir()
    group.rmdir()


@pytest.fixture
def answers(root, control_group):
    ask = ASK.replace("READ_ONLY", " ".join(f'"{folder}"' for folder in READ_ONLY))
    ask = ask.replace("GROUP", GROUP).replace("UNIT", UNIT)
    enter = f'echo $$ >"{control_group}/cgroup.procs" && exec "$@"'
    outcome = subprocess.run(
        ["sh", "-c", enter, "sh", "unshare", "--pid", "--fork", "--cgroup", "--kill-child",
         *root.command("sh", "-c", PREPARE, "sh", ask)],
        capture_output=True, text=True, timeout=60)
    answers = dict(part.split("\n", 1) for part in outcome.stdout.split("= ")[1:])
    assert "failed" not in answers and "again" in answers, outcome.stdout + outcome.stderr
    return answers


def test_the_extension_works_in_its_sandbox(answers):
    assert answers["program"] == "/usr/bin/finder-sync-extension\n"
    assert '"items":["/run/home/Sync/a.txt"]' in answers["report"]
    status = dict(re.findall(r"^(\w+):\s*(\S*)", answers["status"], re.MULTILINE))
    assert {name: status[name] for name in ("NoNewPrivs", "Seccomp", "CapBnd", "Umask")} == \
        {"NoNewPrivs": "1", "Seccomp": "2", "CapBnd": "0" * 16, "Umask": "0077"}
    assert answers["core"].split()[4:6] == ["0", "0"]
    assert answers["write"].count("Read-only file system") == len(READ_ONLY), answers["write"]
    assert "Permission denied" in answers["shared memory"]
    assert answers["restarted"] not in ("0\n", answers["first"])
    assert answers["again"] == "active\n"  # a fatal error is followed by a fresh start
