#!/usr/bin/python3
"""Compares the extension's object with an independent model of it, over sessions made at random.

Each session is run by the model (model.py) and by the program's own code on the recording platform
(Driver.cpp). Both must write the same trace and log, make the same calls in the same order, give
the same answers, come to the same state, and end the process at the same place for the same reason.
"""

import argparse
import collections
import json
import multiprocessing
import pathlib
import random
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from oracle import model  # noqa: E402
from oracle.sessions import encoded, make_session  # noqa: E402

BATCH = 1000
TIMEOUT = 120  # seconds, for a batch that takes less than one


class Different(Exception):
    pass


def session_of(seed, index):
    return make_session(random.Random(seed << 40 | index))


def run_driver(driver, sessions):
    """The program's records of each session."""
    try:
        finished = subprocess.run([driver], input=b"".join(map(encoded, sessions)),
                                  capture_output=True, check=False, timeout=TIMEOUT)
    except subprocess.TimeoutExpired as failure:
        raise Different(f"no answer within {TIMEOUT} s") from failure
    if finished.returncode != 0:
        raise Different(finished.stderr.decode(errors="replace"))
    return finished.stdout.split(b"\xfe")[:-1]


def expectation(session):
    """The model's records, in the form that the driver writes."""
    records, death = model.run(session)
    return b"".join((record if isinstance(record, bytes) else record.encode()) + b"\xff"
                    for record in [*records, str(death or "")])


def parse_reports(data):
    """Splits click reports that were sent back to back."""
    text, reports = data.decode(), []
    while text:
        report, end = json.JSONDecoder().raw_decode(text)
        reports.append(report)
        text = text[end:]
    return reports


def differs(driver, session):
    try:
        return run_driver(driver, [session]) != [expectation(session)]
    except Different:
        return True


def shrunk(driver, session):
    """The session without those events and inbound lines that the difference does not need."""
    for index in reversed(range(len(session))):
        if differs(driver, shorter := session[:index] + session[index + 1:]):
            session = shorter
        elif session[index][0] == "send":
            lines = session[index][1].split(b"\n")
            for at in reversed(range(len(lines))):
                event = ("send", b"\n".join(lines[:at] + lines[at + 1:]))
                if differs(driver, shorter := [*session[:index], event, *session[index + 1:]]):
                    session = shorter
                    lines.pop(at)
    return session


def report(driver, seed, index):
    """Describes a session that differs, and where."""
    session = shrunk(driver, session_of(seed, index))
    lines = [f"--seed {seed}, session {index} differs; reproduce with "
             f"compare.py --driver {driver} --seed {seed} --first {index} --sessions 1",
             "The session, shrunk:", *(f"    {event!r}" for event in session)]
    try:
        actual, = run_driver(driver, [session])
    except Different as failure:
        return "\n".join(lines + [f"The driver failed: {failure}"])
    expected, actual = expectation(session).split(b"\xff"), actual.split(b"\xff")
    same = 0
    while same < min(len(expected), len(actual)) and expected[same] == actual[same]:
        same += 1
    lines += [f"Alike up to record {same}: {[each.decode() for each in expected[:same][-4:]]}"]
    for who, records in (("model", expected), ("program", actual)):
        lines += [f"What the {who} does then:",
                  *(f"    {each!r}" for each in records[same:same + 8])]
    return "\n".join(lines)


def run_batch(job):
    """Runs a batch. Gives its number of events, the branches reached and the first difference."""
    driver, seed, first, count = job
    model.reached.clear()
    sessions = [session_of(seed, index) for index in range(first, first + count)]
    expected = [expectation(session) for session in sessions]
    reached = model.reached.copy()
    events = sum(map(len, sessions))
    try:
        actual = run_driver(driver, sessions)
    except Different:  # and which of them it is, is found when they run one by one
        actual = [b"" if differs(driver, one) else expectation(one) for one in sessions]
    for index, (one, other) in enumerate(zip(expected, actual, strict=True)):
        if one != other:
            return events, reached, report(driver, seed, first + index)
    return events, reached, None


def jobs(arguments):
    end = arguments.first + arguments.sessions
    for first in range(arguments.first, end, BATCH):
        yield arguments.driver, arguments.seed, first, min(BATCH, end - first)


def read_arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("--driver", required=True, help="the oracle-driver of a build")
    parser.add_argument("--seed", type=int, default=1, help="other seeds make other sessions (1)")
    parser.add_argument("--sessions", type=int, default=10_000, help="how many (10000)")
    parser.add_argument("--first", type=int, default=0, help="the number of the first one (0)")
    parser.add_argument("--all-branches", action="store_true",
                        help="fail when a branch of the model was not reached")
    return parser.parse_args()


def main():
    arguments = read_arguments()
    start = time.monotonic()
    reached = collections.Counter()
    events = 0
    with multiprocessing.Pool() as pool:
        for count, branches, failure in pool.imap_unordered(run_batch, jobs(arguments)):
            if failure:
                sys.exit(failure)
            events += count
            reached.update(branches)
    print(f"{arguments.sessions} sessions with {events} events agree, "
          f"{time.monotonic() - start:.1f} s")
    missing = model.BRANCHES - reached.keys()
    if arguments.all_branches and missing:
        sys.exit("no session reached: " + ", ".join(sorted(missing)))


if __name__ == "__main__":
    main()
