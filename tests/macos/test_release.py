"""The script that makes a release, with stand-ins for Apple's tools that keep, and lose, what the real
ones would."""

import plistlib

import pytest
from test_bundle import SOURCES, contents, installed, mac, run  # noqa: F401 (fixtures)

IDENTITY = "Developer ID Application: A B (ABCDE12345)"
GROUP = "com.apple.security.application-groups"
TOOLS = {
    # Without the one argument, of each command that signs, that a test leaves out.
    "codesign": 'for each; do shift; [ "$each" = "$LEFT_OUT" ] || set -- "$@" "$each"; done\n'
                f'exec {SOURCES}/tests/macos/sdk/tools/codesign "$@"',
    "security": f"""echo '  1) 0123ABCD "{IDENTITY}"'; echo '  2) 4567EF01 "Apple Development: A"'""",
    "ditto": """case "$1" in
        -c) tar -C "$(dirname "$4")" $PACK_WITHOUT -cf "$5" "$(basename "$4")" ;;
        -x) mkdir "$4" && tar -C "$4" -xf "$3" ;;
        esac""",
    # A ticket is for the app that was sent, and lies where the real one does.
    "xcrun": """case "$1 $2" in
        "notarytool history") [ "$4" = stored ] ;;
        "notarytool submit")
            mkdir "$SENT" && tar -C "$SENT" -xf "$3"
            echo "<plist><dict><key>id</key><string>7</string>
                <key>status</key><string>$VERDICT</string></dict></plist>" ;;
        "notarytool log") echo "submission $3: the reason" ;;
        "stapler staple")
            cmp "$SENT"/*/Contents/_CodeSignature/CodeResources "$3/Contents/_CodeSignature/CodeResources" &&
                touch "$3/Contents/CodeResources" ;;
        "stapler validate") [ -f "$3/Contents/CodeResources" ] ;;
        *) exit 64 ;;
        esac""",
    "spctl": 'for app; do :; done; echo "$app: accepted" >&2; echo "source=$SOURCE" >&2',
}
BEHAVIOUR = {"LEFT_OUT": "nothing", "PACK_WITHOUT": "", "VERDICT": "Accepted",
               "SOURCE": "Notarized Developer ID"}
EXTENSION = {"com.apple.security.app-sandbox": True, "com.apple.security.network.client": True,
             GROUP: ["ABCDE12345.com.example.companion"]}
APP = {GROUP: EXTENSION[GROUP]}


class Release:
    def __init__(self, mac):
        self.mac = mac
        mac.environment = BEHAVIOUR | {"SENT": str(mac.folder / "sent")}
        for tool, script in TOOLS.items():
            mac.provide(tool, script)
        self.archive = mac.app.with_suffix(".zip")
        self.sign(mac.extension, EXTENSION)
        self.sign(mac.app, APP)

    def codesign(self, *arguments):
        done = run(SOURCES / "tests/macos/sdk/tools/codesign", *arguments)
        assert done.returncode == 0, done.stderr
        return done.stdout

    def sign(self, bundle, entitlements, *flags):
        file = self.mac.folder / "entitlements"
        file.write_bytes(plistlib.dumps(entitlements))
        self.codesign("--force", "--sign", "-", "--entitlements", file,
                      *flags or ("--options", "runtime"), bundle)

    def run(self, *options, identity=IDENTITY, profile="stored"):
        return self.mac.run("release", *options, "--sign", identity, "--keychain-profile", profile,
                            self.mac.extension, f"{self.mac.app}/")


@pytest.fixture
def release(mac):
    return Release(mac)


def test_what_users_download_is_signed_notarised_and_stapled(release, tmp_path):
    done = release.run()
    assert done.returncode == 0, done.stdout + done.stderr
    assert f"{release.archive} is ready" in done.stdout
    assert run("tar", "-C", tmp_path / "sent", "-xf", release.archive).returncode == 0
    app = tmp_path / "sent" / release.mac.app.name
    assert (app / "Contents/CodeResources").exists()
    for bundle, wanted in ((app / "Contents/PlugIns/FinderSync.appex", EXTENSION), (app, APP)):
        shown = release.codesign("--display", "--entitlements", "-", "--xml", bundle)
        assert plistlib.loads(shown.encode()) == wanted


@pytest.mark.parametrize("behaviour, message", [
    ({"LEFT_OUT": "--preserve-metadata=entitlements,flags"}, "has not kept its entitlements"),
    ({"LEFT_OUT": "--timestamp"}, "has no secure timestamp"),
    ({"VERDICT": "Invalid"}, "submission 7: the reason\nrelease: the notary service says 'Invalid'"),
    ({"VERDICT": "Accepted", "PACK_WITHOUT": "--exclude=*.app/Contents/CodeResources"},
     "the app in the archive has no ticket"),
    ({"PACK_WITHOUT": "--exclude=icon_Folder.png"}, "a sealed resource is missing or invalid"),
    ({"SOURCE": "Unnotarized Developer ID"}, "does not take the app as notarised"),
])
def test_what_goes_wrong_on_the_way_is_named(release, behaviour, message):
    release.mac.environment |= behaviour
    done = release.run()
    assert done.returncode == 1, done.stdout
    assert message in done.stderr
    assert not release.archive.exists()


@pytest.mark.parametrize("bundle, entitlements, flags, message", [
    ("app", {}, (), "the app may not use the application group ABCDE12345.com.example.companion"),
    ("app", APP, ("--options", "library"), "is without the hardened runtime"),
    ("app", APP | {"com.apple.security.get-task-allow": True}, (), "for debuggers"),
    # As after codesign --deep of the app.
    ("extension", APP, (), "com.apple.security.app-sandbox is missing"),
])
def test_what_is_wrong_in_the_beginning_is_named(release, bundle, entitlements, flags, message):
    release.sign(getattr(release.mac, bundle), entitlements, *flags)
    done = release.run()
    assert done.returncode == 1, done.stdout
    assert message in done.stderr
    assert not (release.mac.folder / "sent").exists()


def test_a_group_of_another_team_needs_a_profile(release):
    group = {GROUP: ["group.com.example.companion"]}
    release.sign(release.mac.extension, EXTENSION | group)
    release.sign(release.mac.app, group)
    assert "could not open the settings of the group group.com.example" in release.run().stderr
    (release.mac.extension / "Contents/embedded.provisionprofile").touch()
    release.sign(release.mac.extension, EXTENSION | group)
    assert release.run().returncode == 0


@pytest.mark.parametrize("options, message", [
    ({"identity": "Apple Development: A"}, "is no certificate of the kind"),
    ({"identity": "4567EF02"}, "is no certificate of the kind"),
    ({"profile": "forgotten"}, "xcrun notarytool store-credentials forgotten"),
])
def test_credentials_are_looked_at_first(release, options, message):
    done = release.run(**options)
    assert done.returncode == 1
    assert message in done.stderr
    assert not release.mac.embedded.exists()


def test_a_dry_run_prints_the_commands_and_runs_none(release):
    for tool in (*TOOLS, "uname"):
        release.mac.provide(tool, "echo run >&2; exit 1")
    done = release.run("--dry-run")
    assert (done.returncode, done.stderr) == (0, "")
    commands = done.stdout.splitlines()
    assert all(line.startswith("+ ") for line in commands)
    order = ["embed-extension", "notarytool submit", "stapler staple", "--verify", "spctl", "+ mv"]
    places = [max(i for i, line in enumerate(commands) if what in line) for what in order]
    assert places == sorted(places)
    assert not release.mac.embedded.exists()
