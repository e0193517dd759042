"""What is in the packages, and what they ask for."""

import pathlib
import re
import subprocess

import pytest
from conftest import GROUP

from .installation import BUILD, SOURCES, run

PYTHON = SOURCES / "python"
MODULES = [file.relative_to(PYTHON) for file in (PYTHON / "finder_sync_companion").rglob("*")
           if file.is_file() and "__pycache__" not in file.parts]
HEADERS = SOURCES / "companion/include"
UNIT = f"{GROUP}.FinderSync.service"
LIBRARIES = "usr/lib/" + run("dpkg-architecture", "-qDEB_HOST_MULTIARCH").strip()
KDE_PLUGINS = "qt{0}/plugins/kf{0}".format(next((BUILD / "lib/plugins").iterdir()).name[-1])
PLUGINS = {
    "caja-finder-sync": ["caja/extensions-2.0/libfinder-sync-caja.so"],
    "dolphin-finder-sync": [f"{KDE_PLUGINS}/kfileitemaction/finder-sync-menu.so",
                            f"{KDE_PLUGINS}/overlayicon/finder-sync-badges.so"],
    "nautilus-finder-sync": ["nautilus/extensions-4/libfinder-sync-nautilus.so"],
    "nemo-finder-sync": ["nemo/extensions-3.0/libfinder-sync-nemo.so"],
    "thunar-finder-sync": ["thunarx-3/libfinder-sync-thunar.so"],
}


def completions(program):
    return [f"usr/share/bash-completion/completions/{program}",
            f"usr/share/fish/vendor_completions.d/{program}.fish",
            f"usr/share/zsh/vendor-completions/_{program}"]


FILES = {
    "finder-sync-extension": [
        "usr/bin/finder-sync-extension",
        "usr/bin/finderctl",
        *completions("finder-sync-extension"), *completions("finderctl"),
        f"usr/share/dbus-1/services/{UNIT}",
        "usr/share/finder-sync/icon_Folder.svg",
        "usr/share/finder-sync/less-sandbox.conf",
        *(f"usr/share/{place}icon_{entry}.svg" for entry in ("Backup", "URLlink", "share")
          for place in ("finder-sync/", f"icons/hicolor/scalable/actions/{GROUP}.")),
        f"usr/share/icons/hicolor/scalable/emblems/emblem-{GROUP}.FolderIco.svg",
        f"usr/share/metainfo/{GROUP}.FinderSync.metainfo.xml",
        "usr/share/man/man1/finder-sync-extension.1.gz",
        "usr/share/man/man1/finderctl.1.gz",
        f"usr/share/systemd/user/{UNIT}",
    ],
    "finder-sync-tools": [
        "usr/bin/companion",
        *completions("companion"),
        "usr/share/finder-sync/findersync.Extension1.xml",
        "usr/share/finder-sync/findersync.Process1.xml",
        "usr/share/man/man1/companion.1.gz",
        "usr/share/rlwrap/completions/companion",
    ],
    "finder-sync-companion": [
        *(f"usr/share/doc/finder-sync-companion/examples/{file.name}"
          for file in (PYTHON / "examples").iterdir()),
        "usr/bin/finder-sync-companion",
        *completions("finder-sync-companion"),
        "usr/share/man/man1/finder-sync-companion.1.gz",
        *(f"usr/share/locale/{file.stem}/LC_MESSAGES/finder-sync-companion.mo"
          for file in (PYTHON / "po").glob("*.po")),
        *(f"usr/share/systemd/user/finder-sync-companion.{unit}" for unit in ("service", "socket")),
        *(f"usr/lib/python3/dist-packages/{file}" for file in MODULES if "program" in file.parts),
    ],
    "python3-finder-sync-companion": [
        f"usr/lib/python3/dist-packages/{file}" for file in MODULES if "program" not in file.parts],
    # The build under test is configured for a prefix whose libraries have no folder for each processor.
    "libfinder-sync-companion-dev": [
        *(f"usr/include/{file.relative_to(HEADERS)}" for file in HEADERS.rglob("*.h")),
        *(f"usr/lib/cmake/FinderSyncCompanion/FinderSyncCompanion{name}.cmake"
          for name in ("Config", "ConfigVersion", "Targets", "Targets-release")),
        "usr/lib/libfinder-sync-companion.a",
        "usr/lib/pkgconfig/finder-sync-companion.pc",
    ],
} | {package: [*(f"{LIBRARIES}/{file}" for file in files),
               "usr/share/metainfo/com.example.finder_sync.{}.metainfo.xml".format(
                   package.removesuffix("-finder-sync"))] for package, files in PLUGINS.items()}


def documents(package):
    return [f"usr/share/doc/{package}/{name}"
            for name in ("changelog.Debian.gz", "changelog.gz", "copyright")]


def files_of(folder):
    return sorted(str(file.relative_to(folder)) for file in folder.rglob("*") if not file.is_dir())


def depends(package):
    """Names of the packages that a package asks for, with their versions."""
    field = run("dpkg-deb", "-f", str(package), "Depends")
    return dict(re.match(r"(\S+)(?: \((.*)\))?$", one.strip()).groups()
                for one in re.split(r"[,|]", field))


def test_there_is_a_package_for_each_part(packages):
    assert sorted(packages) == sorted(FILES)


@pytest.mark.parametrize("package", FILES)
def test_a_package_has_these_files_and_no_others(packages, tmp_path, package):
    run("dpkg-deb", "-x", str(packages[package]), str(tmp_path))
    assert files_of(tmp_path) == sorted(FILES[package] + documents(package))


def test_every_installed_file_is_in_a_package(unpacked, tmp_path):
    for component in ([], ["--component", "companion-library"]):
        run("cmake", "--install", str(BUILD), "--prefix", str(tmp_path / "usr"), *component)
    packaged = [file.removesuffix(".gz") for file in files_of(unpacked)
                if "/doc/" not in file or "/examples/" in file]
    assert files_of(tmp_path) == packaged


def test_the_services_name_the_program_under_the_prefix(unpacked, tmp_path):
    prefix = tmp_path / "100% of us"
    run("cmake", "--install", str(BUILD), "--prefix", str(prefix), "--component", "extension")
    services = {"usr": unpacked / "usr/share", str(prefix): prefix / "share"}
    for where, share in services.items():
        program = f"{prefix}/bin/finder-sync-extension" if where != "usr" else \
            "/usr/bin/finder-sync-extension"
        service = (share / "dbus-1/services" / UNIT).read_text()
        assert f'\nExec="{program}"\nSystemdService={UNIT}\n' in service
        unit = (share / "systemd/user" / UNIT).read_text()
        assert '\nExecStart="{}" --log-level warning\n'.format(program.replace("%", "%%")) in unit
        assert f"\nBusName={GROUP}.FinderSync\n" in unit
        assert not re.search("@[A-Z]", service + unit)


def test_a_prefix_that_the_bus_cannot_read_is_refused(tmp_path):
    attempt = subprocess.run(["cmake", "--install", str(BUILD), "--prefix", str(tmp_path / 'a"b'),
                              "--component", "extension"], capture_output=True, text=True)
    assert attempt.returncode != 0
    assert "install to an absolute prefix without quotation marks" in attempt.stderr


@pytest.mark.parametrize("package", ["finder-sync-extension", "finder-sync-tools", *PLUGINS])
def test_needed_libraries_come_with_the_packages_asked_for(packages, unpacked, package):
    asked = depends(packages[package])
    programs = [unpacked / file for file in FILES[package] if "/bin/" in file or "/lib/" in file]
    for program in programs:
        for library in re.findall(r"NEEDED.*\[(.*)\]", run("readelf", "-d", str(program))):
            owners = {line.split(":")[0] for line in run("dpkg", "-S", f"*/{library}").splitlines()}
            assert owners & set(asked), f"{library} of {program.name} is in {owners}"


@pytest.mark.parametrize("package, needed", [
    ("finder-sync-tools", "finder-sync-extension"),
    ("finder-sync-companion", "python3-finder-sync-companion")])
def test_a_package_asks_for_what_it_needs_of_its_own_version(packages, package, needed):
    version = run("dpkg-deb", "-f", str(packages[package]), "Version").strip()
    assert depends(packages[package])[needed] == f"= {version}"


@pytest.mark.parametrize("package", PLUGINS)
def test_a_plugin_asks_for_its_file_manager_and_for_no_product(packages, package):
    asked = depends(packages[package])
    assert package.removesuffix("-finder-sync") in asked
    assert not [name for name in asked if name.startswith("finder-sync")]


def test_dolphins_plugin_asks_for_what_draws_its_badge(packages):
    plugin = f"{KDE_PLUGINS.split('/')[0]}/plugins/iconengines/libqsvgicon.so"
    owner = run("dpkg", "-S", f"*/{plugin}").split(":")[0]
    assert owner in depends(packages["dolphin-finder-sync"])


def test_no_file_knows_where_it_was_built(unpacked):
    source = str(BUILD.parent.parent).encode()
    for file in files_of(unpacked):
        content = (unpacked / file).read_bytes()
        if file.endswith(".gz"):
            content = subprocess.run(["gzip", "-dc", unpacked / file], check=True,
                                     capture_output=True).stdout
        assert source not in content and str(BUILD).encode() not in content, file


def test_manual_pages_are_well_formed(unpacked):
    pages = [str(page) for page in (unpacked / "usr/share/man").rglob("*.gz")]
    assert len(pages) == 4
    for page in pages:
        run("mandoc", "-T", "lint", "-W", "error", page.removesuffix(".gz"))


def test_lintian_has_nothing_to_say(packages):
    changes, = packages["finder-sync-extension"].parent.glob("*.changes")
    # A build for packages has a folder of its own for the libraries of each processor.
    run("lintian", "--no-cfg", "--allow-root", "--pedantic", "--fail-on", "error,warning,pedantic",
        "--suppress-tags", "pkg-config-unavailable-for-cross-compilation", str(changes))


def test_software_centres_understand_the_metadata(unpacked):
    files = list((unpacked / "usr/share/metainfo").iterdir())
    assert len(files) == len(PLUGINS) + 1
    run("appstreamcli", "validate", "--no-net", *map(str, files))


def test_the_packages_of_the_next_release_replace_them(packages):
    here = run("dpkg-deb", "-f", str(packages["finder-sync-extension"]), "Version").strip()
    release = int(re.search(r"^[\d.]+-1~deb(\d+)u1$", here)[1])
    assert f'VERSION_ID="{release}"' in pathlib.Path("/etc/os-release").read_text()
    for later in (f"~deb{release + 1}u1", ""):
        run("dpkg", "--compare-versions", here, "lt", re.sub("~.*", later, here))


def test_installed_upgraded_and_purged_nothing_is_left(packages, tmp_path):
    state = tmp_path / "var/lib/dpkg"
    (state / "updates").mkdir(parents=True)
    (state / "info").mkdir()
    (state / "status").touch()

    def dpkg(*arguments):
        # The scratch root has none of the packages that ours depend on.
        run("fakeroot", "dpkg", f"--root={tmp_path}", "--force-depends", f"--log={tmp_path}/var/log",
            *arguments, stderr=subprocess.DEVNULL)

    dpkg("--install", *map(str, packages.values()))
    assert (tmp_path / "usr/bin/finder-sync-extension").exists()
    dpkg("--install", *map(str, packages.values()))  # over those that are there
    dpkg("--purge", *packages)
    assert [file.name for file in tmp_path.iterdir()] == ["var"]
    assert run("dpkg-query", f"--admindir={state}", "--show", "--showformat=${Status}") == ""
