"""Finds things on the screen by their names, as assistive technologies do, and uses the mouse.

usage: accessible.py TIMEOUT find|click|menu|press|gone APPLICATION ROLE[|ROLE] NAME

Waits until the thing is shown, or for "gone" until it is not, for at most TIMEOUT seconds; writes
where it is: x, y, width, height. "click" and "menu" press the left or the right button on it, and
"press" has it pressed without a mouse."""

import sys
import time

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402


def children(node):
    for index in range(node.get_child_count()):
        child = node.get_child_at_index(index)
        if child:
            yield child


def place(node):
    # From 4.18 on, GTK does not know where on the screen a window is. Ours are in its corner. Within
    # the window it leaves out margins, which are these in all of one view.
    is_in_window = tuple(map(int, node.get_toolkit_version().split(".")[:2])) >= (4, 18)
    margin = 28 if is_in_window else 0
    extents = node.get_component_iface().get_extents(
        Atspi.CoordType.WINDOW if is_in_window else Atspi.CoordType.SCREEN)
    return extents.x + margin, extents.y + margin, extents.width, extents.height


def is_shown(node, visible):
    x, _, width, _ = place(node)
    return node.get_state_set().contains(visible) and x >= 0 and width > 1


def name_of(node):
    """GTK 4.18 has no names for menu entries, but labels with texts."""
    name = node.get_name()
    for relation in [] if name else node.get_relation_set():
        label = relation.get_target(0)
        if relation.get_relation_type() == Atspi.RelationType.LABELLED_BY and label.get_text_iface():
            return Atspi.Text.get_text(label, 0, -1)
    return name


def search(node, roles, name, visible):
    if node.get_role_name() in roles and name_of(node) == name and is_shown(node, visible):
        return node
    for child in children(node):
        found = search(child, roles, name, visible)
        if found:
            return found
    return None


def find(application, role, name):
    """The thing and its place on the screen, or none."""
    try:
        for program in children(Atspi.get_desktop(0)):
            if program.get_name() == application:
                # GTK 4 says of windows alone that they are showing.
                is_gtk4 = program.get_toolkit_version().startswith("4.")
                found = search(program, role.split("|"), name, Atspi.StateType.VISIBLE if is_gtk4
                               else Atspi.StateType.SHOWING)
                if found:
                    return found, place(found)
    except GLib.Error:
        pass  # it has changed while it was looked at: the next look tells
    return None, None


def main():
    timeout, action, application, role, name = sys.argv[1:]
    deadline = time.monotonic() + float(timeout)
    before = None
    while True:
        node, now = find(application, role, name)
        if action == "gone" and now is None:
            return 0
        # Twice at the same place: it has come to rest.
        if action != "gone" and now is not None and now == before:
            break
        if time.monotonic() > deadline:
            print(f"{role} {name!r} of {application}: not {action} in {timeout} s", file=sys.stderr)
            return 1
        before = now
        time.sleep(0.05)
    x, y, width, height = now
    print(x, y, width, height)
    if action in ("click", "menu"):
        # Near the beginning: at the end of a line in a list, there may be nothing to click on.
        Atspi.generate_mouse_event(x + min(width, height) // 2, y + height // 2,
                                   "b1c" if action == "click" else "b3c")
    if action == "press":
        node.get_action_iface().do_action(0)
    return 0


sys.exit(main())
