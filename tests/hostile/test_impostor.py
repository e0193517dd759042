"""A program that owns the extension's name and is something else. File managers take its answers
for what they are, at no cost worth speaking of."""

import pytest
from conftest import wait_for

from hostile import headless
from hostile.impostor import BADGES, MENU, PROPERTIES, Impostor, marshalled, menu, texts

MOST_ENTRIES = 16
MOST_MEMORY = 256 << 10  # kilobytes, of a file manager that gets megabytes to read
ERROR = "org.freedesktop.DBus.Error.Failed"
OFFERED = marshalled("b", True)

MENUS = {
    "no_answer": None,
    "an_error": ERROR,
    "nothing": ("", b""),
    "another_type": ("s", marshalled("s", "Copy link")),
    "other_entries": ("ba(ss)", marshalled("ba(ss)", True, [("a", "b")])),
    "too_few_values": ("b", OFFERED),
    "too_many_values": (MENU + "s", marshalled(MENU + "s", True, [], "x")),
    "too_many_entries": (MENU, menu(count=MOST_ENTRIES + 1)),
    "thousands_of_entries": (MENU, menu(count=30000)),
    "a_hundred_thousand_entries": (MENU, menu(count=100000)),
    "a_title_that_is_too_long": (MENU, menu(title="x" * 1025)),
    "a_title_of_megabytes": (MENU, menu(title="x" * (5 << 20))),
    "a_selector_of_megabytes": (MENU, menu(selector="x" * (1 << 20))),
    "an_image_of_megabytes": (MENU, menu(image="x" * (1 << 20))),
    "megabytes_that_are_not_offered": (MENU, bytes(4) + menu(title="x" * (1 << 20))[4:]),
}


def begin(scene, answers, delay=0):
    impostor = Impostor(scene.session, answers, delay)
    scene.desktop = headless.Desktop(scene.session)
    scene.desktop.attack = scene.name
    scene.desktop.order("show " + headless.ROOT)
    return impostor


def ask(scene, times=3):
    """Menus of one after the other: what one has to read is not to keep the others waiting."""
    labels = [scene.desktop.menus(by_turns=True) for _ in range(times)]
    for each in scene.desktop.file_managers:
        assert headless.own_memory(each.popen.pid) < MOST_MEMORY or \
            headless.is_instrumented(each.popen.pid)
    return labels[-1]


LATE = ["no_answer", "thousands_of_entries", "a_hundred_thousand_entries",
        "a_title_of_megabytes"]  # or perhaps late
NOTHING = {name: [] for name in headless.NAMES}


def each_alone(scene):
    """One file manager after the other: several that read megabytes keep each other from the
    processors."""
    for name in headless.NAMES:
        scene.desktop = headless.Desktop(scene.session, [name])
        scene.desktop.attack = scene.name
        scene.desktop.order("show " + headless.ROOT)
        yield name
        scene.desktop.end()
    scene.desktop = None
    scene.open_file_managers(wait=False)


@pytest.mark.parametrize("answer", LATE)
def test_menus_that_come_late(scene, answer):
    impostor = Impostor(scene.session, {"MenuForMenuKind": MENUS[answer]})
    for name in each_alone(scene):
        before = impostor.asked_for_menus
        wait_for(lambda had=before: scene.desktop.menus() and impostor.asked_for_menus > had)
        assert ask(scene) == {name: []}
    scene.recovers_from(impostor)


def test_menus_that_are_none(scene):
    impostor = begin(scene, {})
    wait_for(scene.desktop.are_badged)
    for answer in set(MENUS) - set(LATE):
        impostor.answers["MenuForMenuKind"] = MENUS[answer]
        scene.desktop.attack = scene.name + ", " + answer
        assert ask(scene) == NOTHING, answer
    scene.recovers_from(impostor)


TITLES = {"\1\2\t\x1b[31m\x7f": "????[31m\x7f", "\u202egnol\U0001f517": "\u202egnol\U0001f517",
          "x" * 1024: "x" * 1024, "": ""}


def test_titles_are_shown_as_they_are(scene):
    impostor = begin(scene, {})
    wait_for(scene.desktop.are_badged)
    for title, expected in TITLES.items():
        impostor.answers["MenuForMenuKind"] = (MENU, menu(title=title, count=MOST_ENTRIES))
        assert ask(scene) == {name: [expected] * MOST_ENTRIES for name in headless.NAMES}
    scene.desktop.order("pick")
    scene.recovers_from(impostor)


def test_answers_at_the_last_moment(scene):
    impostor = begin(scene, {}, delay=0.099)
    wait_for(scene.desktop.are_badged)
    for labels in ask(scene, times=2).values():
        assert labels in ([], [headless.TITLE])
    scene.recovers_from(impostor)


def properties(**values):
    return {"GetAll": ("a{sv}", marshalled("a{sv}", PROPERTIES | values))}


OTHERS = {
    "no_properties": {"GetAll": None},
    "an_error_for_properties": {"GetAll": ERROR},
    "properties_of_other_types": properties(directoryURLs=("s", "file:///"),
                                            pathsOfRootFolders=("u", 1)),
    "properties_that_are_none": {"GetAll": ("s", marshalled("s", "x"))},
    "no_directory": properties(directoryURLs=("as", [])),
    "directories_that_are_none": properties(directoryURLs=("as", ["", "\1", "x" * 100000])),
    "thousands_of_directories": properties(directoryURLs=("as", ["file:///x"] * 100000)),
    "no_badges": {"RequestBadgeIdentifiersForURLs": None},
    "an_error_for_badges": {"RequestBadgeIdentifiersForURLs": ERROR},
    "badges_of_another_type": {"RequestBadgeIdentifiersForURLs": ("u", bytes(4))},
    "no_badge_at_all": {"RequestBadgeIdentifiersForURLs": (BADGES, texts("", 0))},
    "thousands_of_badges": {"RequestBadgeIdentifiersForURLs": (BADGES, texts("FolderIco", 500000))},
    "a_badge_of_megabytes": {"RequestBadgeIdentifiersForURLs": (BADGES, texts("x" * (9 << 20), 1))},
}


LARGE = ["thousands_of_badges", "a_badge_of_megabytes"]


@pytest.mark.parametrize("answers", LARGE)
def test_large_answers_about_badges(scene, answers):
    impostor = Impostor(scene.session, OTHERS[answers])
    for name in each_alone(scene):
        wait_for(lambda only=name: scene.desktop.menus()[only] or scene.desktop.has_waited)
        ask(scene, times=10)
        assert not scene.desktop.are_badged() or name == "thunar"
    scene.recovers_from(impostor)


def test_badges_and_properties(scene):
    impostor = begin(scene, {})
    for answers in set(OTHERS) - set(LARGE):
        impostor.end()
        impostor = Impostor(scene.session, OTHERS[answers])
        wait_for(lambda asked=impostor: asked.asked >= len(headless.NAMES))
        scene.desktop.attack = scene.name + ", " + answers
        ask(scene, times=10)
        assert not scene.desktop.are_badged(), answers
    scene.recovers_from(impostor)
