"""What the program has to say, which a service manager puts into its journal."""

import sys


def log(text: str) -> None:
    print(text, file=sys.stderr, flush=True)
