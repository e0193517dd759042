"""What the program has to say, which a service manager puts into its journal."""

import re
import sys

_CONTROL = re.compile(r"[\0-\x1f\x7f]")


def log(*lines: str) -> None:
    """Control characters are escaped: names of files may hold line feeds."""
    for line in lines:
        shown = _CONTROL.sub(lambda found: repr(found[0])[1:-1], line)
        print(shown, file=sys.stderr, flush=True)
