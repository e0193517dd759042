"""The app extension's program and bundle as the cross build makes them, read with LLVM's tools."""

import json
import os
import pathlib
import plistlib
import re
import shlex
import shutil

import pytest
from test_bundle import IMAGE_SIZES, Mac, SOURCES, run

BUILD = pathlib.Path(os.environ["FINDER_SYNC_BUILD"])
BUNDLE = BUILD / "FinderSync.appex"
PROGRAM = BUNDLE / "Contents/MacOS/FinderSync"
STAND_INS = SOURCES / "tests/macos/sdk/tools"
PROCESSORS = "x86_64", "arm64"


def output(*command):
    done = run(*command)
    assert done.returncode == 0, done.stderr
    return done.stdout


def dump(option, processor):
    return output("llvm-objdump-19", "--macho", f"--arch={processor}", option, PROGRAM)


def test_it_is_for_both_processors_and_macos_11():
    assert set(output("llvm-lipo-19", "-archs", PROGRAM).split()) == set(PROCESSORS)
    for processor in PROCESSORS:
        assert re.findall(r"(?:minos|platform) (\S+)", dump("--private-headers", processor)) == [
            "macos", "11.0"]


@pytest.mark.parametrize("processor", PROCESSORS)
def test_it_is_entered_where_the_system_expects_it(processor):
    start, = re.findall(r"entryoff (\d+)", dump("--private-headers", processor))
    address = f"{2**32 + int(start):#018x}"
    assert re.search(rf"^{address} +\d+ _NSExtensionMain$", dump("--indirect-symbols", processor),
                     re.MULTILINE)


@pytest.mark.parametrize("processor", PROCESSORS)
def test_it_loads_nothing_but_what_the_system_has(processor):
    commands = dump("--private-headers", processor)
    assert "LC_RPATH" not in commands
    assert set(re.findall(r" name (\S+) \(", commands)) == {
        "/usr/lib/dyld", "/usr/lib/libSystem.B.dylib", "/usr/lib/libc++.1.dylib",
        "/usr/lib/libobjc.A.dylib"} | {
            f"/System/Library/Frameworks/{name}.framework/Versions/{version}/{name}"
            for name, version in (("AppKit", "C"), ("CoreFoundation", "A"), ("FinderSync", "A"),
                                  ("Foundation", "C"))}


def published(boolean):
    """What the object's table publishes: selectors and their types, without the arguments that all
    methods have. `boolean` is the type of BOOL, which differs between processors."""
    values = {"URL": "@", "StringList": "@", "Port": "I", "Boolean": boolean, "Integer": "q",
              "String": "@"}
    methods = {"PlainOperation": "v", "StreamEventHandler": "v@Q", "Description": "@",
               "Initializer": "@", "URLCallback": "v@", "MenuProvider": "@Q",
               "JSONWriter": f"@@{boolean}", "DictionaryParser": "@@", "ReportSender": "v@",
               "Action": "v@"}
    table = (SOURCES / "extension/PublishedInterface.cpp").read_text()
    types = {}
    for name, kind, setter in re.findall(
            r'\{"(\w+)",\s*(\w+)Property\{&F::\w+,\s*(&F::\w+|nullptr)\}\}', table):
        if setter == "nullptr":
            types[name] = "^{__CFString=}"
        else:
            types[name] = values[kind]
            types[f"set{name[0].upper()}{name[1:]}:"] = f"v{values[kind]}"
    types |= {name: methods[kind] for name, kind in
              re.findall(r'\{"([\w:]+)",\s*(\w+)\{&F::\w+\}\}', table)}
    assert len(types) == table.count('{"') + table.count("&F::set")
    return types


@pytest.mark.parametrize("processor, boolean", [("x86_64", "c"), ("arm64", "B")])
def test_its_class_has_the_published_selectors_and_no_others(processor, boolean):
    metadata = dump("--objc-meta-data", processor)
    found = metadata[metadata.index("_OBJC_CLASS_$_FinderSync"):].partition("Meta Class")[0]
    assert "superclass 0x0 _OBJC_CLASS_$_FIFinderSync" in found
    properties = plistlib.loads((BUNDLE / "Contents/Info.plist").read_bytes())
    name, = re.findall(r"^ +name 0x\w+ (\w+)\n +baseMethods", found, re.MULTILINE)
    assert name == properties["NSExtension"]["NSExtensionPrincipalClass"]
    methods = re.findall(r"^\t+ +name 0x\w+ (\S+)\n\t+ +types 0x\w+ (\S+)\n\t+ +imp -\[", found,
                         re.MULTILINE)
    types = {selector: re.sub(r"\d", "", code).replace("@:", "", 1) for selector, code in methods}
    assert types == published(boolean) | {"dealloc": "v", "valueForKey:": "@@"}


PROBES = {
    "nothing new": ('NSLog(@"%d", 1);', None),
    "of libc++": ("char text[9]; std::to_chars(text, text + 9, 0.5);", "introduced in macOS 13"),
    "of a framework": ("[[NSNull null] fresh];", "is only available on macOS 12.0 or newer"),
    "of libSystem": ('strchrnul("", 0);', "undefined symbol for arch x86_64: strchrnul"),
}


@pytest.mark.parametrize("code, refusal", PROBES.values(), ids=PROBES)
def test_what_is_newer_than_the_oldest_system_is_refused(tmp_path, code, refusal):
    """By the compiler, as called for the principal class, or by the linker."""
    commands = json.loads((BUILD / "compile_commands.json").read_text())
    command = next(one["command"] for one in commands
                   if one["file"].endswith("hosts/macos/FinderSync.mm"))
    flags = shlex.split(command.partition(" -o ")[0])
    probe = tmp_path / "probe.mm"
    probe.write_text(f"""
        #import <Foundation/Foundation.h>
        #include <charconv>
        extern "C" char* strchrnul(const char*, int);
        @interface NSObject (Fresh)
        - (void)fresh __attribute__((availability(macos, introduced = 12.0)));
        @end
        void probe();
        void probe() {{ {code} }}""")
    done = run(*flags, "-fuse-ld=lld", "-shared", probe, "-o", tmp_path / "probe",
               "-framework", "Foundation", "-framework", "CoreFoundation",
               env=os.environ | {"PATH": f"{STAND_INS}:{os.environ['PATH']}"})
    assert (done.returncode == 0) == (refusal is None), done.stderr
    assert (refusal or "") in done.stderr, done.stderr


def test_the_bundle_is_sealed_with_its_entitlements():
    files = {str(file.relative_to(BUNDLE / "Contents")) for file in BUNDLE.rglob("*")
             if file.is_file()}
    assert files == {"MacOS/FinderSync", "Info.plist", "_CodeSignature/CodeResources"} | {
        f"Resources/{image}" for image in IMAGE_SIZES}
    generated = (BUILD / "hosts/macos/FinderSync.entitlements").read_bytes()
    assert entitlements(BUNDLE) == plistlib.loads(generated)


def codesign(*arguments):
    return run(STAND_INS / "codesign", *arguments)


def entitlements(bundle):
    return plistlib.loads(codesign("--display", "--entitlements", "-", bundle).stdout.encode())


def test_both_keep_their_entitlements_when_one_is_embedded_in_the_other(tmp_path):
    mac = Mac(tmp_path, BUNDLE / "Contents")
    shutil.copy(STAND_INS / "codesign", mac.folder / "tools/codesign")
    own = tmp_path / "own.entitlements"
    own.write_bytes(plistlib.dumps({"com.apple.security.network.server": True}))
    assert codesign("--sign", "-", "--options", "runtime", "--entitlements", own,
                    mac.app).returncode == 0
    done = mac.run("embed-extension", mac.extension, mac.app)
    assert (done.returncode, done.stderr) == (0, "")
    assert entitlements(mac.app) == plistlib.loads(own.read_bytes())
    assert entitlements(mac.embedded) == entitlements(BUNDLE)
    assert codesign("--verify", "--deep", "--strict", mac.app).returncode == 0
    (mac.embedded / "Contents/Info.plist").write_text("changed")
    assert codesign("--verify", "--deep", "--strict", mac.app).returncode == 1
