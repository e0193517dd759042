"""Texts as the extension must see them: canonical equivalence, the platform's search, strict JSON.

Written with Python's own Unicode tables (version 14). The program's are newer (15), so sessions use
only characters that both know.
"""

import functools
import itertools
import json
import re
from unicodedata import category, normalize

DEEPEST_NESTING = 512


@functools.lru_cache(maxsize=1 << 14)
def decomposed(text):
    return text if text.isascii() else normalize("NFD", text)


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


def is_boundary(text, at):
    """Whether a grapheme ends here in a decomposed text. Knows marks and Hangul: sessions have
    neither joined pictures nor flags."""
    if at == len(text) or category(text[at - 1]) in ("Cc", "Cf", "Zl", "Zp"):
        return True
    if category(text[at]) in ("Mn", "Me", "Mc"):
        return False
    return jamo(text[at - 1]) + jamo(text[at]) not in ("LL", "LV", "VV", "VT", "TT")


def jamo(character):
    """Whether a character begins (L), continues (V) or ends (T) a Hangul syllable."""
    if not "\u1100" <= character <= "\u11ff":
        return ""
    return "L" if character < "\u1160" else "V" if character < "\u11a8" else "T"


def refuse(_):
    raise ValueError


def finite(digits):
    value = float(digits)
    return refuse(digits) if value in (float("inf"), float("-inf")) else value


STRICT = json.JSONDecoder(parse_float=finite, parse_constant=refuse)
SURROGATE_PAIR = re.compile(r"\\u[dD][89abAB]..\\u[dD][c-fC-F]..")
SURROGATE = re.compile(r"\\u[dD][89a-fA-F]")
STRING = re.compile(r'"(?:[^"\\]|\\.)*"')


def has_lone_surrogate(text):
    return SURROGATE.search(SURROGATE_PAIR.sub("", text.replace(r"\\", "")))


def nesting(text):
    """How deep a valid JSON text is nested."""
    steps = ((part in "[{") - (part in "]}") for part in STRING.sub("", text))
    return max(itertools.accumulate(steps))


def parse_json(text):
    """What a JSON text holds; none when it is not strict JSON with a container at its top."""
    try:
        value = STRICT.decode(text)
    except (ValueError, RecursionError):
        return None
    if not isinstance(value, (dict, list)) or ("\\u" in text and has_lone_surrogate(text)):
        return None
    if text.count("[") + text.count("{") > DEEPEST_NESTING and nesting(text) > DEEPEST_NESTING:
        return None
    return value
