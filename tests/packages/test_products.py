"""Two products, configured under names of their own, beside each other in one prefix."""

import os
import re
import shutil
import subprocess

import pytest
from conftest import GROUP
from jeepney import message_bus

from .installation import BUILD, SOURCES, run
from .test_packages import files_of

NAMES = {"FINDER_SYNC_GROUP": "org.acme.sync", "FINDER_SYNC_NAME": "acme-sync"}
PLUGINS = {f"FINDER_SYNC_{name}": "OFF" for name in ("CAJA", "DOLPHIN", "NAUTILUS", "NEMO", "THUNAR")}
# The other product's names, and those that tools have in it; a companion application is no program.
FOREIGN = re.compile(rb"finder-sync|com\.example|(?<!acme-sync-)\bfinderctl"
                     rb"|(?<!acme-sync-)\bcompanion(?=\\f|[\"(:]| [-\[>]| [\d.]+\n)")


def configure(folder, **options):
    defined = [f"-D{name}={value}" for name, value in
               (PLUGINS | options).items()]
    return subprocess.run(["cmake", "-S", SOURCES, "-B", folder, "-G", "Ninja", *defined],
                          capture_output=True, text=True)


def install(build, prefix):
    for component in ("extension", "tools"):
        run("cmake", "--install", str(build), "--prefix", str(prefix), "--component", component)
    return {file: (prefix / file).read_bytes() for file in files_of(prefix)}


@pytest.fixture(scope="module")
def images(tmp_path_factory):
    folder = tmp_path_factory.mktemp("images")
    for image in (SOURCES / "resources").glob("*.svg"):
        (folder / image.name).write_text(f"<!-- Acme's -->{image.read_text()}")
    return folder


@pytest.fixture(scope="module")
def acme(images, tmp_path_factory):
    """The build of another product, from its source package: not optimized, which halves the time."""
    folder = tmp_path_factory.mktemp("acme")
    options = [f"-D{name}={value}" for name, value in
               (NAMES | {"FINDER_SYNC_IMAGES": images}).items()]
    run(SOURCES / "scripts/package", "--source", "--output", folder, *options)
    source, = folder.glob("acme-sync-*/")
    built = subprocess.run(["dpkg-buildpackage", "--no-sign"], cwd=source, capture_output=True,
                           text=True, env=os.environ | {"DEB_BUILD_OPTIONS": "noopt noautodbgsym"})
    assert built.returncode == 0, built.stdout + built.stderr
    assert {file.name.split("_")[0] for file in folder.glob("*.deb")} == \
        {"acme-sync-extension", "acme-sync-tools"}
    return next(source.glob("obj-*"))


def test_two_products_share_no_file_and_each_service_starts_its_own(acme, session, tmp_path):
    prefix = tmp_path / "prefix"
    session.start_bus(folders=[prefix / "share/dbus-1/services"])
    first, second = install(BUILD, prefix), install(acme, tmp_path / "alone")
    assert not set(first) & set(second)
    assert len(second) == len(first)
    assert install(acme, prefix).items() >= first.items()

    for group, name in ((GROUP, "finder-sync"), (NAMES["FINDER_SYNC_GROUP"], "acme-sync")):
        session.call(message_bus.StartServiceByName(f"{group}.FinderSync"))
        process, = session.call(message_bus.GetConnectionUnixProcessID(f"{group}.FinderSync"))
        assert os.readlink(f"/proc/{process}/exe") == str(prefix / "bin" / f"{name}-extension")
    unit = (prefix / "share/systemd/user/org.acme.sync.FinderSync.service").read_text()
    assert f'\nExecStart="{prefix}/bin/acme-sync-extension" --log-level warning\n' in unit
    assert run(str(prefix / "bin/acme-sync-finderctl"), "state", env=session.environment)
    assert "Acme's" in (prefix / "share/acme-sync/icon_Folder.svg").read_text()


def test_nothing_of_a_product_goes_by_another_name(acme, tmp_path):
    for file, content in install(acme, tmp_path).items():
        if file.startswith("bin/"):
            program = str(tmp_path / file)
            content = (run(program, "--help") + run(program, "--version")).encode()
            assert file.removeprefix("bin/").encode() in content
        elif file.endswith(".xml"):
            continue  # of the interface, which has names of its own
        assert not FOREIGN.search(content.replace(b"\\-", b"-")), file


@pytest.mark.parametrize("option, value, complaint", [
    ("FINDER_SYNC_NAME", "Acme Sync", 'such as example-sync .*not\\s+"Acme\\s+Sync"'),
    ("FINDER_SYNC_NAME", "a", "two at least"),
    ("FINDER_SYNC_IMAGES", "{images}", "no\\s+icon_URLlink.svg: .*{images}/icon_URLlink.svg"),
])
def test_what_cannot_be_used_is_refused(images, tmp_path, option, value, complaint):
    incomplete = shutil.copytree(images, tmp_path / "images")
    (incomplete / "icon_URLlink.svg").unlink()
    outcome = configure(tmp_path / "build", **{option: value.format(images=incomplete)})
    assert outcome.returncode != 0
    assert re.search(complaint.format(images=incomplete), outcome.stderr, re.DOTALL), outcome.stderr
