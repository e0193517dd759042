"""Texts as the extension must see them: canonical equivalence, the platform's search, strict JSON.

Written with Python's own Unicode tables (version 14). The program's are newer (15), so sessions use
only characters that both know.
"""

import functools
import json
import unicodedata

DEEPEST_NESTING = 512

ZERO_WIDTH_JOINER = "\u200d"


@functools.lru_cache(maxsize=1 << 14)
def decomposed(text):
    return text if text.isascii() else unicodedata.normalize("NFD", text)


def equal(one, other):
    return one == other or decomposed(one) == decomposed(other)


def contains(text, searched):
    """Literal search: a match ends at a grapheme boundary, and the empty text is never found."""
    if not searched:
        return False
    text, searched = decomposed(text), decomposed(searched)
    at = text.find(searched)
    while at >= 0:
        if is_boundary(text, at + len(searched)):
            return True
        at = text.find(searched, at + 1)
    return False


def cluster_class(character):
    """The grapheme-cluster class of a character; complete for those that sessions use."""
    code = ord(character)
    if 0x1100 <= code <= 0x115f or 0xa960 <= code <= 0xa97c:
        return "L"
    if 0x1160 <= code <= 0x11a7 or 0xd7b0 <= code <= 0xd7c6:
        return "V"
    if 0x11a8 <= code <= 0x11ff or 0xd7cb <= code <= 0xd7fb:
        return "T"
    if 0x1f1e6 <= code <= 0x1f1ff:
        return "flag"
    if character == ZERO_WIDTH_JOINER:
        return "joiner"
    if 0x1f466 <= code <= 0x1f469:
        return "picture"
    category = unicodedata.category(character)
    if category in ("Mn", "Me"):
        return "extend"
    if category == "Mc":
        return "spacing"
    return "control" if category in ("Cc", "Cf", "Zl", "Zp") else "other"


HANGUL = {("L", "L"), ("L", "V"), ("V", "V"), ("V", "T"), ("T", "T")}


def is_boundary(text, at):
    """Whether a position in a decomposed text is a grapheme boundary."""
    if at == len(text):
        return True
    before, after = cluster_class(text[at - 1]), cluster_class(text[at])
    if "control" in (before, after):  # a carriage return and a line feed are two characters
        return True
    if after in ("extend", "spacing", "joiner") or (before, after) in HANGUL:
        return False
    if before == "joiner" and after == "picture":
        start = at - 2
        while start >= 0 and cluster_class(text[start]) == "extend":
            start -= 1
        return not (start >= 0 and cluster_class(text[start]) == "picture")
    if before == after == "flag":
        flags = 0
        while flags < at and cluster_class(text[at - 1 - flags]) == "flag":
            flags += 1
        return flags % 2 == 0
    return True


class NoJSON(Exception):
    pass


def refuse(_):
    raise NoJSON


def finite(digits):
    value = float(digits)
    if value in (float("inf"), float("-inf")):
        raise NoJSON
    return value


def checked_pairs(pairs):
    """An object: the last of equal keys wins, but a lone surrogate in any of them is an error."""
    for key, value in pairs:
        check_surrogates(key)
        check_surrogates(value)
    return dict(pairs)


def check_surrogates(value):
    if isinstance(value, str):
        if any("\ud800" <= character <= "\udfff" for character in value):
            raise NoJSON
    elif isinstance(value, list):
        for element in value:
            check_surrogates(element)


def nesting(text):
    """How deep a valid JSON text is nested."""
    depth = deepest = 0
    in_string = escaped = False
    for character in text:
        if in_string:
            if escaped:
                escaped = False
            elif character == "\\":
                escaped = True
            elif character == '"':
                in_string = False
        elif character == '"':
            in_string = True
        elif character in "[{":
            depth += 1
            deepest = max(deepest, depth)
        elif character in "]}":
            depth -= 1
    return deepest


PLAIN = json.JSONDecoder(parse_float=finite, parse_constant=refuse)
WITH_ESCAPES = json.JSONDecoder(parse_float=finite, parse_constant=refuse,
                                object_pairs_hook=checked_pairs)


def parse_json(text):
    """What a JSON text holds; none when it is not strict JSON with a container at its top."""
    decoder = WITH_ESCAPES if "\\u" in text else PLAIN
    try:
        value = decoder.decode(text)
        if decoder is WITH_ESCAPES:
            check_surrogates(value)
    except (ValueError, NoJSON, RecursionError):
        return None
    if not isinstance(value, (dict, list)):
        return None
    if text.count("[") + text.count("{") > DEEPEST_NESTING and nesting(text) > DEEPEST_NESTING:
        return None
    return value
