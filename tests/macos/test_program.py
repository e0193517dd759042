"""The app extension's program as the cross build makes it, read with LLVM's tools. What the check for
a Mac looks at is tested with the check."""

import json
import os
import pathlib
import plistlib
import shlex

import pytest
from test_bundle import SOURCES, run

BUILD = pathlib.Path(os.environ["FINDER_SYNC_BUILD"])
CONTENTS = BUILD / "FinderSync.appex/Contents"


@pytest.mark.parametrize("processor", ["x86_64", "arm64"])
def test_it_has_the_class_that_the_property_list_names(processor):
    done = run("llvm-objdump-19", "--macho", f"--arch={processor}", "--objc-meta-data",
               CONTENTS / "MacOS/FinderSync")
    properties = plistlib.loads((CONTENTS / "Info.plist").read_bytes())
    principal = properties["NSExtension"]["NSExtensionPrincipalClass"]
    found = done.stdout.partition(f"_OBJC_CLASS_$_{principal}\n")[2].partition("Meta Class")[0]
    assert "superclass 0x0 _OBJC_CLASS_$_FIFinderSync" in found, done.stderr


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
    path = f"{SOURCES}/tests/macos/sdk/tools:{os.environ['PATH']}"
    done = run(*flags, "-fuse-ld=lld", "-shared", probe, "-o", tmp_path / "probe",
               "-framework", "Foundation", "-framework", "CoreFoundation",
               env=os.environ | {"PATH": path})
    assert (done.returncode == 0) == (refusal is None), done.stderr
    assert (refusal or "") in done.stderr, done.stderr
