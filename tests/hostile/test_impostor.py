"""Another program owns the extension's name. The file managers survive its answers, and neither
wait nor grow because of them."""

import pytest
from conftest import wait_for

from hostile.conftest import NAMES, ROOT, TITLE, own_memory
from hostile.impostor import BADGES, ERROR, MENU, Impostor, marshalled, menu, texts, value

MOST_ENTRIES = 16
MOST_MEMORY = 256 << 10  # kilobytes, of a file manager that gets megabytes to read
NOTHING = {name: [] for name in NAMES}

# Some file managers are still reading these when the time for a menu is over.
LATE_MENUS = {
    "no_answer": None,
    "thousands_of_entries": (MENU, menu(count=30000)),
    "a_hundred_thousand_entries": (MENU, menu(count=100000)),
    "a_title_of_megabytes": (MENU, menu(title="x" * (5 << 20))),
}
INVALID_MENUS = {
    "an_error": ERROR,
    "nothing": ("", b""),
    "another_type": ("s", marshalled("s", "Copy link")),
    "other_entries": ("ba(ss)", marshalled("ba(ss)", True, [("a", "b")])),
    "too_few_values": ("b", marshalled("b", True)),
    "too_many_values": (MENU + "s", marshalled(MENU + "s", True, [], "x")),
    "too_many_entries": (MENU, menu(count=MOST_ENTRIES + 1)),
    "a_selector_of_megabytes": (MENU, menu(selector="x" * (1 << 20))),
    "an_image_of_megabytes": (MENU, menu(image="x" * (1 << 20))),
    "megabytes_that_are_not_offered": (MENU, bytes(4) + menu(title="x" * (1 << 20))[4:]),
}


def begin(scene, answers, delay=0):
    impostor = Impostor(scene.session, answers, delay)
    scene.open_file_managers()
    scene.order("show " + ROOT)
    return impostor


def ask(scene, times=3):
    """Menus of one after the other: what one has to read is not to keep the others waiting."""
    labels = [scene.menus(by_turns=True) for _ in range(times)]
    assert max(own_memory(each.popen) for each in scene.file_managers) < MOST_MEMORY
    return labels[-1]


def each_alone(scene):
    """One file manager after the other: several that read megabytes keep each other from the
    processors."""
    for name in NAMES:
        scene.open_file_managers([name])
        scene.order("show " + ROOT)
        yield name
    scene.open_file_managers()


@pytest.mark.parametrize("answer", LATE_MENUS)
def test_menus_that_come_late(scene, answer):
    impostor = Impostor(scene.session, {"MenuForMenuKind": LATE_MENUS[answer]})
    for name in each_alone(scene):
        before = impostor.asked["MenuForMenuKind"]
        wait_for(lambda had=before: scene.menus() and impostor.asked["MenuForMenuKind"] > had)
        # A title is cut, not dropped, if it comes in time.
        assert {label[:9] for label in ask(scene)[name]} <= ({"x" * 9} if "title" in answer else set())
    scene.recovers_from(impostor)


def test_invalid_menus(scene):
    impostor = begin(scene, {})
    for answer, menu_of_impostor in INVALID_MENUS.items():
        impostor.end()  # who has answered nonsense is not asked for a while
        impostor = Impostor(scene.session, {"MenuForMenuKind": menu_of_impostor})
        wait_for(scene.are_badged)
        scene.attack = "invalid_menus, " + answer
        assert ask(scene) == NOTHING, answer
        assert impostor.asked["MenuForMenuKind"] >= len(NAMES)
    scene.recovers_from(impostor)


TITLES = {"\1\2\t\x1b[31m\x7f": "????[31m\x7f", "\u202egnol\U0001f517": "\u202egnol\U0001f517",
          "x" * 1024: "x" * 1024, "": ""}


def test_titles_are_shown_as_they_are(scene):
    impostor = begin(scene, {})
    wait_for(scene.are_badged)
    for title, expected in TITLES.items():
        impostor.answers["MenuForMenuKind"] = (MENU, menu(title=title, count=MOST_ENTRIES))
        assert ask(scene) == {name: [expected] * MOST_ENTRIES for name in NAMES}
    scene.order("pick")
    scene.recovers_from(impostor)


def test_answers_at_the_last_moment(scene):
    impostor = begin(scene, {}, delay=0.099)
    wait_for(scene.are_badged)
    for labels in ask(scene, times=2).values():
        assert labels in ([], [TITLE])
    scene.recovers_from(impostor)


def badges(answer):
    return {"RequestBadgeIdentifiersForURLs": answer}


def directories(urls):
    return {"directoryURLs": value("as", urls)}


LARGE = {
    "thousands_of_badges": badges((BADGES, texts("FolderIco", 500000))),
    "a_badge_of_megabytes": badges((BADGES, texts("x" * (9 << 20), 1))),
}
OTHERS = {
    "no_directories": {"directoryURLs": None},
    "an_error_for_directories": {"directoryURLs": ERROR},
    "a_directory_of_another_type": {"directoryURLs": value("s", "file:///")},
    "directories_in_no_variant": {"directoryURLs": ("s", marshalled("s", "x"))},
    "not_one_directory": directories([]),
    "directories_without_urls": directories(["", "\1", "x" * 100000]),
    "thousands_of_directories": directories(["file:///x"] * 100000),
    "badges_of_another_type": badges(("u", bytes(4))),
    "no_badges": badges(None),
    "an_error_for_badges": badges(ERROR),
    "no_badge_at_all": badges((BADGES, texts("", 0))),
}

CHANGES = {
    "none": ("as", texts("", 0)),
    "one_text": ("s", marshalled("s", "sync")),
    "no_names": ("", b""),
    "numbers": ("au", marshalled("au", [1])),
    "names_and_more": ("asu", marshalled("asu", ["sync"], 1)),
    "thousands_of_names": ("as", texts("/", 20000)),
    "a_long_name": ("as", texts("\u0301" * (1 << 18), 1)),
}


@pytest.mark.parametrize("answers", LARGE)
def test_large_answers_about_badges(scene, answers):
    impostor = Impostor(scene.session, LARGE[answers])
    for name in each_alone(scene):
        before = impostor.asked.total()
        wait_for(lambda had=before: scene.menus() and impostor.asked.total() >= had + 2)
        ask(scene, times=10)
        assert not scene.are_badged() or name == "thunar"
    scene.recovers_from(impostor)


def test_badges_and_properties(scene):
    impostor = begin(scene, {})
    for name, answers in OTHERS.items():
        impostor.end()
        impostor = Impostor(scene.session, answers)
        wait_for(lambda asked=impostor: asked.asked.total() >= len(NAMES))
        scene.attack = "badges_and_properties, " + name
        ask(scene, times=10)
        assert not scene.are_badged(), name
    scene.recovers_from(impostor)


ROOT_FOLDERS = {
    "of_another_type": value("au", [1]),
    "in_no_variant": ("as", texts("/sync", 1)),
    "thousands": value("as", ["/sync"] * 100000),
    "relative": value("as", ["", "sync", "\u0301" * 100000]),
}


def test_root_folders(scene):
    """Each answer about badges comes with a signal that has them read again."""
    impostor = begin(scene, {})
    for name, answer in ROOT_FOLDERS.items():
        impostor.end()
        impostor = Impostor(scene.session, {"pathsOfRootFolders": answer}, changes=CHANGES["none"])
        wait_for(lambda asked=impostor.asked: asked["pathsOfRootFolders"] >= len(NAMES))
        scene.attack = "root_folders, " + name
        ask(scene, times=10)
        wait_for(scene.are_badged, f"badges with {name}")
    scene.recovers_from(impostor)


def test_signals_about_root_folders(scene):
    """Each answer about badges comes with a signal that has them requested again."""
    impostor = begin(scene, {})
    for name, changes in CHANGES.items():
        impostor.end()
        impostor = Impostor(scene.session, {}, changes=changes)
        wait_for(lambda asked=impostor.asked: asked["RequestBadgeIdentifiersForURLs"] >= len(NAMES) - 1)
        scene.attack = "signals_about_root_folders, " + name
        ask(scene, times=10)
        wait_for(scene.are_badged, f"badges with {name}")
    scene.recovers_from(impostor)
