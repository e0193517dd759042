"""The app extension's bundle as far as it can be tested without a Mac: its install rules, property
lists and images, and the scripts that embed and register it."""

import os
import pathlib
import plistlib
import shutil
import subprocess
import sys

import pytest

SOURCES = pathlib.Path(__file__).resolve().parents[2]
HOST = SOURCES / "hosts/macos"
IMAGES = SOURCES / "resources/macos"
SIZES = {"icon_Folder": 320, "icon_share": 16, "icon_URLlink": 16, "icon_Backup": 16}
IMAGE_SIZES = {f"{name}{suffix}.png": points * scale for name, points in SIZES.items()
               for suffix, scale in (("", 1), ("@2x", 2))}
SUFFIX = ".FinderSync"
PROPERTY_LISTS = "Info.plist", "FinderSync.entitlements", "DevelopmentApp/Info.plist"


def run(*command, **options):
    return subprocess.run(list(map(str, command)), capture_output=True, text=True, **options)


def install(prefix, *options):
    build = os.environ["FINDER_SYNC_BUILD"]
    done = run("cmake", "--install", build, "--prefix", prefix, *options)
    assert done.returncode == 0, done.stderr
    return {str(file.relative_to(prefix)) for file in prefix.rglob("*") if not file.is_dir()}


def configuration(name):
    cache = pathlib.Path(os.environ["FINDER_SYNC_BUILD"], "CMakeCache.txt").read_text()
    return next(line.partition("=")[2] for line in cache.splitlines()
                if line.startswith(f"{name}:"))


@pytest.fixture(scope="module")
def installed(tmp_path_factory):
    prefix = tmp_path_factory.mktemp("component")
    return prefix, install(prefix, "--component", "app-extension")


@pytest.fixture(scope="module")
def contents(installed):
    return installed[0] / "FinderSync.appex/Contents"


@pytest.fixture
def substitute(tmp_path):
    """The property lists for other names (the extension's, its entitlements, the development app's),
    or the error message about the names."""

    def substitution(**names):
        done = run("cmake", *(f"-D{name}={value}" for name, value in names.items()),
                   f"-DOUTPUT={tmp_path}", "-P", pathlib.Path(__file__).parent / "substitute.cmake")
        if done.returncode != 0:
            return done.stderr
        return [plistlib.loads((tmp_path / file).read_bytes()) for file in PROPERTY_LISTS]

    return substitution


def test_the_component_holds_exactly_the_bundle(installed, contents):
    inside = {"MacOS/FinderSync", "Info.plist"} | {f"Resources/{image}" for image in IMAGE_SIZES}
    assert installed[1] == {f"FinderSync.appex/Contents/{file}" for file in inside}
    assert os.access(contents / "MacOS/FinderSync", os.X_OK)


def test_a_normal_installation_holds_nothing_of_the_bundle(installed, tmp_path):
    files = install(tmp_path)
    assert not [file for file in files if ".appex" in file or file.endswith((".png", ".plist"))]


def test_every_image_has_its_size_and_transparent_corners(contents):
    image_module = pytest.importorskip("PIL.Image", reason="python3-pil is not installed")
    for name, pixels in IMAGE_SIZES.items():
        with image_module.open(contents / "Resources" / name) as image:
            assert (image.format, image.mode, image.size) == ("PNG", "RGBA", (pixels, pixels)), name
            assert image.getpixel((0, 0))[3] == 0, name
            assert image.getchannel("A").getextrema()[1] == 255, name
            # A resolution would change the size of a point.
            assert "dpi" not in image.info, name


@pytest.mark.skipif(sys.platform == "darwin",
                    reason="the images are rendered, and compared, with Debian's renderer")
@pytest.mark.skipif(not shutil.which("rsvg-convert"), reason="librsvg2-bin is not installed")
def test_the_images_show_what_the_masters_show(tmp_path):
    image_module = pytest.importorskip("PIL.Image", reason="python3-pil is not installed")
    difference = pytest.importorskip("PIL.ImageChops").difference
    rendered_by = run("rsvg-convert", "--version").stdout
    assert run(SOURCES / "scripts/render-images", tmp_path).returncode == 0
    for folder in (tmp_path, IMAGES):
        assert {file.name for file in folder.iterdir()} == set(IMAGE_SIZES)
    for name in IMAGE_SIZES:
        with image_module.open(tmp_path / name) as fresh, image_module.open(IMAGES / name) as kept:
            assert fresh.size == kept.size
            if "version 2.54." in rendered_by:
                assert fresh.tobytes() == kept.tobytes(), f"{name}: run scripts/render-images"
            # Other versions differ in a few pixels of a curve, by less than an eye sees.
            steps = difference(fresh, kept).tobytes()
            assert max(steps) <= 8 and steps.count(0) >= 0.99 * len(steps), \
                f"{name}: run scripts/render-images"


def test_without_the_renderer_the_script_names_the_package(tmp_path):
    for program in ("bash", "dirname", "mkdir"):
        (tmp_path / program).symlink_to(shutil.which(program))
    done = run(SOURCES / "scripts/render-images", env={"PATH": str(tmp_path)})
    assert done.returncode == 1
    assert "librsvg2-bin" in done.stderr


def test_property_lists_of_this_build(contents):
    text = (contents / "Info.plist").read_text()
    assert "@" not in text
    properties = plistlib.loads(text.encode())
    group, companion = map(configuration, ("FINDER_SYNC_GROUP", "FINDER_SYNC_COMPANION_IDENTIFIER"))
    app, suffix, rest = properties.pop("CFBundleIdentifier").rpartition(SUFFIX)
    assert app and (suffix, rest) == (SUFFIX, "")
    assert app == companion if companion else group.endswith(app)
    generated = pathlib.Path(os.environ["FINDER_SYNC_BUILD"], "hosts/macos/FinderSync.entitlements")
    entitlements = plistlib.loads(generated.read_bytes())
    assert entitlements["com.apple.security.application-groups"] == [group]
    version = properties.pop("CFBundleVersion")
    assert f"project(finder-sync VERSION {version} " in (SOURCES / "CMakeLists.txt").read_text()
    assert properties.pop("NSHumanReadableCopyright") in (SOURCES / "LICENSE").read_text()
    assert properties == {
        "CFBundleDevelopmentRegion": "en",
        "CFBundleDisplayName": "Finder Sync",
        "CFBundleExecutable": "FinderSync",
        "CFBundleInfoDictionaryVersion": "6.0",
        "CFBundleName": "FinderSync",
        "CFBundlePackageType": "XPC!",
        "CFBundleShortVersionString": version,
        "CFBundleSupportedPlatforms": ["MacOSX"],
        "LSMinimumSystemVersion": configuration("CMAKE_OSX_DEPLOYMENT_TARGET"),
        "LSUIElement": True,
        "NSExtension": {
            "NSExtensionAttributes": {},
            "NSExtensionPointIdentifier": "com.apple.FinderSync",
            "NSExtensionPrincipalClass": "FinderSync",
        },
        "NSPrincipalClass": "NSApplication",
    }


@pytest.mark.parametrize("group, companion, systems", [
    ("com.example.companion", "com.example.companion", "any"),
    ("group.com.example.product", "com.example.product", "any"),
    ("ABCDE12345.com.example.product", "com.example.product", "any"),
    ("1234567890.com.example.product", "com.example.product", "mac"),
    # No team identifier: too short, or not in capital letters.
    ("ABCDE1234.com.example.product", "ABCDE1234.com.example.product", "mac"),
    ("abcde12345.com.example.product", "abcde12345.com.example.product", "mac"),
    # Without the prefix, only a name would be left.
    ("group.product", "group.product", "mac"),
    ("group.com.example.suite", "com.example.Product-2", "named"),
])
def test_identifiers_follow_from_the_group(substitute, group, companion, systems):
    variants = {"any": [{}, {"APPLE": 1}], "mac": [{"APPLE": 1}],
                "named": [{"FINDER_SYNC_COMPANION_IDENTIFIER": companion}]}
    for names in variants[systems]:
        extension, entitlements, app = substitute(FINDER_SYNC_GROUP=group, **names)
        assert extension["CFBundleIdentifier"] == companion + SUFFIX
        assert app["CFBundleIdentifier"] == companion
        assert entitlements == {
            "com.apple.security.app-sandbox": True,
            "com.apple.security.application-groups": [group],
            "com.apple.security.network.client": True,
        }


@pytest.mark.parametrize("names, refused", [
    ({"FINDER_SYNC_GROUP": "1234567890.com.example.product"}, "FINDER_SYNC_GROUP"),
    ({"FINDER_SYNC_GROUP": "product", "APPLE": 1}, "FINDER_SYNC_GROUP"),
    ({"FINDER_SYNC_GROUP": "1234567890.product", "APPLE": 1}, "FINDER_SYNC_GROUP"),
    ({"FINDER_SYNC_GROUP": "12345.com.example", "APPLE": 1}, "FINDER_SYNC_GROUP"),
    ({"FINDER_SYNC_GROUP": "com.example.<b>", "APPLE": 1}, "FINDER_SYNC_GROUP"),
    ({"FINDER_SYNC_COMPANION_IDENTIFIER": "product"}, "FINDER_SYNC_COMPANION_IDENTIFIER"),
    ({"FINDER_SYNC_COMPANION_IDENTIFIER": "com.example.a b"}, "FINDER_SYNC_COMPANION_IDENTIFIER"),
])
def test_other_names_are_refused(substitute, names, refused):
    message = substitute(**names)
    assert isinstance(message, str)
    assert f"{refused} must be" in message


@pytest.mark.parametrize("script, arguments", [
    ("check", []), ("embed-extension", ["a.appex", "b.app"]), ("register-extension", ["a.appex"]),
    ("release", ["--sign", "A", "--keychain-profile", "B", "a.appex", "b.app"])])
def test_scripts_explain_themselves_and_need_a_mac(tmp_path, script, arguments):
    done = run(HOST / script, "--help")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith(f"usage: {script} ")
    if arguments:
        assert run(HOST / script).returncode == 2
    (tmp_path / "uname").write_text("#!/bin/sh\necho Linux\n")
    (tmp_path / "uname").chmod(0o755)
    done = run(HOST / script, *arguments,
               env=os.environ | {"PATH": f"{tmp_path}:{os.environ['PATH']}"})
    assert done.returncode == 1
    assert done.stderr.startswith(f"{script}: this works on a Mac only")


PLIST_BUDDY = """
import plistlib, sys
value = plistlib.load(open(sys.argv[3], "rb"))
for key in sys.argv[2].split(":")[1:]:
    value = value[int(key) if isinstance(value, list) else key]
print(value)"""


class Mac:
    """Stands in for the tools of a Mac and records how they are called."""

    def __init__(self, folder, contents):
        self.folder = folder
        self.calls = folder / "calls"
        self.entitlements = "com.apple.security.app-sandbox"
        self.refused = "nothing"
        tools = folder / "tools"
        tools.mkdir()
        for tool, script in {
            "uname": "echo Darwin",
            "PlistBuddy": f"exec '{sys.executable}' -c '{PLIST_BUDDY}' \"$@\" 2>&-",
            "codesign": f'echo "codesign $*" >>"{self.calls}"; [ "$1" != --display ] || '
                        'echo "$ENTITLEMENTS"; case "$*" in *"$REFUSED") exit 1 ;; esac',
            "pluginkit": f'echo "pluginkit $*" >>"{self.calls}"',
        }.items():
            self.provide(tool, script)
        self.environment = {}
        self.path = f"{tools}:{os.environ['PATH']}"
        self.extension = folder / "FinderSync.appex"
        shutil.copytree(contents, self.extension / "Contents")
        self.identifier = plistlib.loads(
            (self.extension / "Contents/Info.plist").read_bytes())["CFBundleIdentifier"]
        self.app = folder / "My App.app"
        (self.app / "Contents").mkdir(parents=True)
        self.name(self.app, self.identifier[:-len(SUFFIX)])
        self.embedded = self.app / "Contents/PlugIns/FinderSync.appex"

    def provide(self, tool, script):
        (self.folder / "tools" / tool).write_text(f"#!/bin/sh\n{script}\n")
        (self.folder / "tools" / tool).chmod(0o755)

    @staticmethod
    def name(bundle, identifier):
        properties = {} if identifier is None else {"CFBundleIdentifier": identifier}
        (bundle / "Contents/Info.plist").write_bytes(plistlib.dumps(properties))

    def refuses(self, *arguments):
        """Expects embedding to fail before it changes anything; returns the message."""
        done = self.run("embed-extension", *(arguments or (self.extension, self.app)))
        assert done.returncode == 1
        assert not self.embedded.exists()
        assert self.signed() == []
        return done.stderr

    def run(self, script, *arguments):
        self.calls.write_text("")
        return run(HOST / script, *arguments, env=os.environ | {
            "PATH": self.path, "ENTITLEMENTS": self.entitlements, "REFUSED": str(self.refused)}
            | self.environment)

    def signed(self):
        return [line for line in self.calls.read_text().splitlines() if "--force" in line]


@pytest.fixture
def mac(tmp_path, contents):
    return Mac(tmp_path, contents)


def test_embedding_signs_the_extension_and_then_the_app(mac):
    left_over = mac.embedded / "Contents/left over"
    left_over.mkdir(parents=True)
    (mac.extension / "Contents/link").symlink_to("Info.plist")
    done = mac.run("embed-extension", "--sign", "Developer ID Application: A B",
                   f"{mac.extension}/", f"{mac.app}/")
    assert (done.returncode, done.stderr) == (0, "")
    assert (mac.embedded / "Contents/MacOS/FinderSync").exists()
    assert (mac.embedded / "Contents/link").is_symlink()
    assert not left_over.exists()
    extension, app = mac.signed()
    assert extension.endswith(str(mac.embedded))
    assert app.endswith(str(mac.app))
    for call in (extension, app):
        assert "--sign Developer ID Application: A B --timestamp " in call
        assert "--preserve-metadata=entitlements,flags" in call
        assert "--deep" not in call
    assert "--verify --deep --strict" in mac.calls.read_text().splitlines()[-1]


def test_embedding_signs_ad_hoc_by_default(mac):
    assert mac.run("embed-extension", mac.extension, mac.app).returncode == 0
    assert ["--sign - --timestamp=none " in call for call in mac.signed()] == [True, True]


@pytest.mark.parametrize("extension, app", [
    ("com.example.app.x", "com.example.ap"), ("com.example.app.x", "com.example.app.x.y"),
    ("com.example.app.x", "COM.EXAMPLE.APP"), ("com.example.app.x", ""),
    ("com.example.app.", "com.example.app")])
def test_embedding_refuses_an_app_whose_identifier_the_extension_does_not_continue(
        mac, extension, app):
    mac.name(mac.extension, extension)
    mac.name(mac.app, app)
    assert f"must begin with the app's, {app}, and a dot" in mac.refuses()


def test_embedding_refuses_what_is_no_bundle(mac, tmp_path):
    mac.name(mac.app, None)
    assert mac.refuses() == f"embed-extension: {mac.app} has no CFBundleIdentifier\n"
    for arguments in ((tmp_path, mac.app), (mac.extension, tmp_path)):
        assert f"{tmp_path} is no bundle" in mac.refuses(*arguments)


@pytest.mark.parametrize("entitlements", ["", "com.apple.security.network.client"])
def test_embedding_refuses_an_extension_without_entitlements(mac, entitlements):
    mac.entitlements = entitlements
    assert "is not signed with its entitlements" in mac.refuses()
    assert mac.calls.read_text() == f"codesign --display --entitlements - {mac.extension}\n"


def test_embedding_ends_with_the_first_failure(mac):
    for mac.refused, signed in ((mac.embedded, 1), (mac.app, 0)):
        assert mac.run("embed-extension", mac.extension, mac.app).returncode == 1
        assert len(mac.signed()) == signed
        assert "--verify" not in mac.calls.read_text()


@pytest.mark.parametrize("identity", [[], [""]])
def test_an_identity_must_follow_its_option(mac, identity):
    done = mac.run("embed-extension", "--sign", *identity)
    assert done.returncode == 2
    assert done.stderr.startswith("usage: ")


SIGNED_PROJECT = """
cmake_minimum_required(VERSION 3.25)
project(signed LANGUAGES NONE)
include({sources}/cmake/AppExtension.cmake)
file(WRITE ${{PROJECT_BINARY_DIR}}/program "")
add_executable(FinderSync IMPORTED)
set_target_properties(FinderSync PROPERTIES IMPORTED_LOCATION ${{PROJECT_BINARY_DIR}}/program)
install_app_extension(FinderSync COMPONENT app-extension
  INFO_PLIST {sources}/LICENSE RESOURCES {sources}/README.md)
sign_app_extension(FinderSync COMPONENT app-extension ENTITLEMENTS {sources}/CHANGELOG.md)
"""


@pytest.mark.parametrize("identity, timestamp", [("-", "--timestamp=none"), ("A B", "--timestamp")])
def test_the_build_signs_what_it_lays_out(mac, tmp_path, identity, timestamp):
    project = tmp_path / "project"
    left_over = project / "build/FinderSync.appex/Contents/left over"
    left_over.parent.mkdir(parents=True)
    left_over.touch()
    (project / "CMakeLists.txt").write_text(SIGNED_PROJECT.format(sources=SOURCES))
    mac.calls.write_text("")
    environment = os.environ | {"PATH": mac.path, "ENTITLEMENTS": "", "REFUSED": "nothing"}
    for command in (["-G", "Ninja", "-S", project, "-B", project / "build",
                     f"-DFINDER_SYNC_SIGNING_IDENTITY={identity}",
                     "-DFINDER_SYNC_GROUP=group.com.example"], ["--build", project / "build"]):
        done = run("cmake", *command, env=environment)
        assert done.returncode == 0, done.stdout + done.stderr
        assert ("macOS 15" in done.stderr) == (identity == "-" and "-S" in command)
    contents = project / "build/FinderSync.appex/Contents"
    assert {str(file.relative_to(contents)) for file in contents.rglob("*") if file.is_file()} == {
        "MacOS/FinderSync", "Info.plist", "Resources/README.md"}
    assert mac.calls.read_text().splitlines() == [
        f"codesign --force --sign {identity} --options runtime {timestamp} "
        f"--entitlements {SOURCES}/CHANGELOG.md {project}/build/FinderSync.appex"]


@pytest.mark.parametrize("options, calls", [
    ([], ["-a {bundle}", "-e use -i {identifier}"]),
    (["--remove"], ["-r {bundle}"]),
    (["--status"], ["-m -A -v -i {identifier}"]),
])
def test_registering(mac, options, calls):
    bundle = os.path.relpath(mac.extension)
    done = mac.run("register-extension", *options, bundle + "/")
    assert (done.returncode, done.stderr) == (0, "")
    assert mac.calls.read_text().splitlines() == [
        "pluginkit " + call.format(bundle=mac.extension, identifier=mac.identifier)
        for call in calls]


def test_registering_refuses_what_is_no_bundle(mac, tmp_path):
    done = mac.run("register-extension", tmp_path)
    assert done.returncode == 1
    assert f"{tmp_path} is no bundle" in done.stderr
    assert mac.calls.read_text() == ""
