"""The events of a session in the form in which the session bus brings them to the real process,
and what it must show for them."""

import re
import urllib.parse

WRITABLE = {"pathsOfRootFolders": "as", "displayBackup": "x", "displayUrlLink": "x",
            "shareContactTitle": "s", "shareViaUrlTitle": "s", "backupTitle": "s"}
# Those, too, that made sessions do not write to.
SIGNATURES = WRITABLE | {"myFolderURL": "s", "serverPort": "u", "isSocketConnected": "b"}
METHODS = {"begin": "BeginObservingDirectoryAtURL", "end": "EndObservingDirectoryAtURL"}


def without_parsers_words(error):
    """A fatal error's line as the model has it, which does not know the parser's words."""
    return re.sub(r"not JSON: [A-Za-z ]+ at byte \d+|the top level is neither .* array", "not JSON",
                  error)


def has_bus_form(path):
    """Whether an item with this path can be named on the bus."""
    return path is not None and path.startswith("/") and "\0" not in path


def sent_over_bus(url):
    """The file URL of the same path, without a "/" at its end."""
    path = url[1].rstrip("/") or "/"
    return "file://" + urllib.parse.quote(path), path, True


def playable(event):
    """The event as it can be given to the real process, or none when it cannot."""
    name, *arguments = event
    if name == "send" and arguments[0]:
        return event
    if name in ("menu", "click"):
        kind, selection = arguments
        if selection is None or not all(has_bus_form(url[1]) for url in selection):
            return None
        return name, kind & 0xffffffff if name == "menu" else kind, [
            sent_over_bus(url) for url in selection]
    if name in ("badge", "observe") and has_bus_form(arguments[-1][1]):
        return name, *arguments[:-1], sent_over_bus(arguments[-1])
    if name == "set" and arguments[0] in WRITABLE and "\0" not in "".join(
            arguments[1] if isinstance(arguments[1], list) else str(arguments[1])):
        return event
    return event if name == "close" else None


def ask(session, name, *arguments):
    """Brings an event to the real process. Gives the answer to a menu, in the form of
    `answer_to_menu`, and to a badge."""
    if name == "menu":
        kind, selection = arguments
        is_offered, entries = session.method("MenuForMenuKind", "uas", kind,
                                             [url for url, _, _ in selection])
        flat = [part for title, action, image in entries for part in (title, action, "", image)]
        return [f"menu {len(entries)}", *flat] if is_offered else ["no menu"]
    if name == "badge":
        return session.method("RequestBadgeIdentifierForURL", "s", arguments[0][0])
    if name == "observe":
        which, url = arguments
        session.method(METHODS[which], "s", url[0])
    elif name == "click":
        selector, selection = arguments
        session.method("PerformAction", "sas", selector, [url for url, _, _ in selection])
    elif name == "set":
        session.set(arguments[0], SIGNATURES[arguments[0]], arguments[1])
    return None


def visible(text):
    """A text as D-Bus carries it: up to the first NUL."""
    return text.split("\0")[0]


def answer_to_menu(records):
    """What the model answers to the one menu request among these records."""
    return [visible(record.removeprefix("answer: ")) for record in records
            if record.startswith("answer: ")]


def printed(records):
    return "".join(record.removeprefix("print: ") + "\n" for record in records
                   if isinstance(record, str) and record.startswith("print: "))
