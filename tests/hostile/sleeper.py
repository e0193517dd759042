"""Sleeps a millisecond at a time and notes when it woke up late, which tells, when a menu has taken
too long, whether others were kept from going on about then.

usage: sleeper.py PROCESSOR. A line with a time gets a line: by how many seconds it was late at the
most since then."""

import os
import select
import sys
import time

SLEEP = 0.001
WORTH_NOTING = 0.005


def main():
    os.sched_setaffinity(0, {int(sys.argv[1])})
    try:
        # Ahead of the file managers, so that what they do to each other is no excuse.
        os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(2))
    except PermissionError:
        pass
    late = []  # when it woke up, and by how much too late
    while True:
        before = time.monotonic()
        asked = select.select([sys.stdin], [], [], SLEEP)[0]
        now = time.monotonic()
        if now - before - SLEEP > WORTH_NOTING:
            late.append((now, now - before - SLEEP))
        if asked:
            line = sys.stdin.readline()
            if not line:
                return
            print(max((by for woke, by in late if woke > float(line)), default=0.0), flush=True)


main()
