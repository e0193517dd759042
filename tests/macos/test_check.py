"""The self-check for a Mac on the bundle of the cross build, with stand-ins for the tools of a Mac and
for the Finder."""

import os
import pathlib
import pty
import re
import shutil
import signal
import subprocess

import pytest
from test_bundle import HOST, Mac, SOURCES

BUILD = pathlib.Path(os.environ["FINDER_SYNC_BUILD"])
CODESIGN = f"{SOURCES}/tests/macos/sdk/tools/codesign"
PLUTIL = """
import plistlib, sys
*rest, file = sys.argv[1:]
content = plistlib.load(open(file, "rb"))
if rest[0] == "-convert":
    plistlib.dump(content, open(rest[3], "wb"))"""
START = '''/bin/sleep 20 >/dev/null 2>&1 & echo $! >"$STATE/process"'''
TOOLS = {
    "brew": "exit 1",
    "cmake": f"""case "$*" in
        *companion-app) embedded=build/macos/Companion.app/Contents/PlugIns
            mkdir -p $embedded && cp -R build/macos/FinderSync.appex $embedded &&
            {CODESIGN} --sign - --options runtime build/macos/Companion.app ;;
        *--build*) cp -R "{BUILD}/FinderSync.appex" build/macos ;;
        *) echo "$*" >>"$STATE/configured"; mkdir -p build/macos/hosts
            cp -R "{BUILD}/hosts/macos" build/macos/hosts ;;
        esac""",
    "codesign": f'exec {CODESIGN} "$@"',
    "ctest": 'echo "100% tests passed, 0 tests failed out of 4"',
    "git": "exit 128",
    "lipo": 'exec llvm-lipo-19 "$@"',
    "log": "echo 'FinderSync[4242] <private>'",
    "lsof": "echo 'FinderSync 4242 TCP 127.0.0.1:61842'",
    # The user has picked the entry, twice, as soon as the messages have come.
    "nc": """head -n 2 >"$STATE/sent"
        printf '{"items":["/a"],"type":"clicked_create_url_link"}'; exec /bin/sleep 20""",
    "ninja": "exit 1",
    "open": 'echo "$@" >"$STATE/opened"',
    "otool": 'exec llvm-otool-19 "$@"',
    "pgrep": 'cat "$STATE/process"',
    "pluginkit": f"""case "$1" in
        -a) touch "$STATE/registered" ;;
        -e) {START} ;;
        -m) [ ! -e "$STATE/registered" ] || echo '+    com.example.companion.FinderSync(1.0)' ;;
        -r) rm "$STATE/registered" ;;
        esac""",
    "plutil": f"exec python3 -c '{PLUTIL}' \"$@\"",
    "sleep": "exec /bin/sleep 0.01",
    "sw_vers": "echo 26.0",
    "xcrun": "echo Apple clang version 17.0.0",
}


class Check:
    def __init__(self, folder):
        self.mac = Mac(folder, BUILD / "FinderSync.appex/Contents")
        for tool, script in TOOLS.items():
            self.mac.provide(tool, script)
        self.script = folder / "hosts/macos/check"
        shutil.copytree(HOST, self.script.parent)
        self.state = folder / "state"
        self.state.mkdir()
        self.home = folder / "home"
        self.home.mkdir()

    def run(self, stdin=subprocess.DEVNULL):
        done = subprocess.run([self.script, "-DX=y z"], stdin=stdin, capture_output=True, text=True,
                              env=os.environ | {"PATH": self.mac.path, "STATE": str(self.state),
                                                "HOME": str(self.home)})
        assert not list(self.home.glob("FinderSync*"))
        self.table = done.stdout.partition("|---|---|---|\n")[2]
        self.rows = {what: held for held, what in re.findall(r"^\| ([\w ]+) \| (.*?) \|", self.table,
                                                             re.MULTILINE)}
        return done


@pytest.fixture
def check(tmp_path):
    return Check(tmp_path)


def test_all_holds_of_what_the_cross_build_made(check):
    done = check.run()
    assert done.returncode == 0, done.stdout + done.stderr
    assert len(check.rows) == 27
    untried = {what for what, held in check.rows.items() if held != "yes"}
    assert untried == {"badge, menu, report of a pick"}
    assert "| yes | contract suite and unit tests | 100% tests passed, 0 tests failed" in check.table
    assert "| yes | both processors | arm64 x86_64 |" in check.table
    assert "| yes | oldest macOS | 11.0, 11.0 in Info.plist |" in check.table
    assert "-DX=y z" in (check.state / "configured").read_text()
    folder, = (check.state / "opened").read_text().splitlines()
    assert f'"path":"{folder}/Synced"' in (check.state / "sent").read_text()
    assert str(check.home) not in check.table
    log = (check.script.parents[2] / "build/macos/check.log").read_text()
    assert "== the Finder starts it\n" in log
    assert set(re.findall(r"(?m)^\t(/\S+) \(", log)) == {
        *(f"/usr/lib/lib{name}.dylib" for name in ("System.B", "c++.1", "objc.A")),
        *(f"/System/Library/Frameworks/{name}.framework/Versions/{version}/{name}"
          for name, version in (("AppKit", "C"), ("CoreFoundation", "A"), ("FinderSync", "A"),
                                ("Foundation", "C")))}


def test_somebody_is_asked_what_the_finder_shows(check):
    terminal, stdin = pty.openpty()
    os.write(terminal, b"n\n\n")
    done = check.run(stdin)
    assert done.returncode == 1
    assert check.rows["badge"] == "NO"
    assert check.rows["menu, and the report of the pick"] == "yes"


def test_it_takes_everything_back_when_it_is_ended(check):
    check.mac.provide("open", "kill -TERM $PPID")
    assert check.run().returncode == -signal.SIGTERM
    assert {file.name for file in check.state.iterdir()} == {"configured", "sent", "process"}


def otool(script):
    return {"otool": f'llvm-otool-19 "$@" | sed "{script}"'}


REPORTS = '"$HOME/Library/Logs/DiagnosticReports"'


@pytest.mark.parametrize("tools, failed", [
    ({"cmake": "exit 1"}, {"configures, with tests", "configures, without tests", "builds and signs"}),
    ({"ctest": "echo '50% tests passed'; echo '[  FAILED  ] Links.End (3 ms)'; exit 8",
      "lipo": "echo arm64"}
     | otool("s/minos 11.0/minos 12.0/; s/_NSExtensionMain/_main/; s/cmd LC_UUID/cmd LC_RPATH/"),
     {"contract suite and unit tests", "both processors", "oldest macOS", "entered at NSExtensionMain",
      "libraries of the system alone, no RPATH"}),
    (otool("s#/usr/lib/libc++#@rpath/libc++#"), {"libraries of the system alone, no RPATH"}),
    ({"codesign": f'{CODESIGN} "$@" 2>"$STATE/e"; r=$?; sed s/runtime/none/ "$STATE/e" >&2; exit $r'},
     {"signature", "signature of the app"}),
    ({"codesign": f'{CODESIGN} "$@" | sed s/app-sandbox/sandbox/'},
     {"entitlements", "entitlements, embedded"}),
    ({"plutil": "exit 1", "pluginkit": "exit 1"},
     {"property lists", "entitlements", "entitlements, embedded", "registers"}),
    ({"pluginkit": f"case $1 in -e) {START} ;; esac"}, {"is registered and enabled"}),
    ({"nc": "echo 'Address already in use' >&2; exit 1", "pgrep": "exit 1"},
     {"nc listens on port 61842", "the Finder starts it"}),
    ({"lsof": "exit 1", "log": "exit 1"}, {"connects to the port", "the log can be read"}),
    ({"lsof": START, "pluginkit": TOOLS["pluginkit"].replace("rm", "true"),
      "open": f"mkdir -p {REPORTS}; touch {REPORTS}/FinderSync-1.ips",
      "log": "echo 'fatal error: a'; echo 'pkd: rejecting'; echo 'FinderSync(42) deny(1)'; echo \"team ID\""},
     {"runs on after the folder was announced", "is unregistered", "no crash report",
      "no fatal error in the log", "macOS does not reject the extension (pkd)",
      "the sandbox refuses nothing",
      "the application group is accepted; from macOS 15 on never with an ad hoc signature"}),
])
def test_what_does_not_hold_is_in_the_table(check, tools, failed):
    for tool, script in tools.items():
        check.mac.provide(tool, script)
    done = check.run()
    assert done.returncode == 1, done.stdout + done.stderr
    assert {what for what, held in check.rows.items() if held == "NO"} == failed
    if "ctest" in tools:
        assert "| 50% tests passed Links.End |" in check.table
