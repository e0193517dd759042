"""What the program has to say, which a service manager puts into its journal."""

import re
import sys


def log(*lines: str) -> None:
    """Control characters are escaped: names of files may hold line feeds."""
    for line in lines:
        print(re.sub(r"[\0-\x1f\x7f]", lambda found: repr(found[0])[1:-1], line), file=sys.stderr, flush=True)
