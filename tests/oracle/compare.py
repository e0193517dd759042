#!/usr/bin/python3
"""Compares the extension's object with an independent model of it, over sessions made at random.

Each session is run by the model (model.py) and by the program's own code on the recording platform
(Driver.cpp). Both must write the same trace and log, make the same calls in the same order, give
the same answers, come to the same state, and end the process at the same place for the same reason.
"""

import argparse
import json
import multiprocessing
import os
import pathlib
import random
import re
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))

from oracle import model  # noqa: E402
from oracle.sessions import encoded, field, make_session  # noqa: E402

BATCH = 1000
PATIENCE = 120  # seconds; for a batch that takes less than one

# How the program words the reason of each death.
REASONS = {
    "init: no suite": "the shared settings cannot be opened",
    "init: RootFolder no string": 'the setting "{}" is not a string',
    "init: title no string": 'the setting "{}" is not a string',
    "init: ServerPort out of range": 'the setting "ServerPort" is out of range: {}',
    "init: no image": 'the image "icon_Folder" is missing from the resources',
    "connect: no read stream": "no read stream to the companion application can be created",
    "connect: no write stream": "no write stream to the companion application can be created",
    "event: 2 without input stream": "bytes are available, but there is no input stream",
    "read: not UTF-8": "inbound bytes are not valid UTF-8",
    "line: no dictionary": 'an inbound message has no "type"',
    "line: no type": 'an inbound message has no "type"',
    "line: type no string": '"type" of an inbound message is not a string',
    "add_folder: no path": 'an inbound message has no "{}"',
    "add_folder: path no string": '"{}" of an inbound message is not a string',
    "del_folder: no path": 'an inbound message has no "{}"',
    "del_folder: path no string": '"{}" of an inbound message is not a string',
    "set_locale: title missing": 'an inbound message has no "{}"',
    "set_locale: title no string": '"{}" of an inbound message is not a string',
    "set_menu_usage: missing": 'an inbound message has no "{}"',
    "set_menu_usage: no string": '"{}" of an inbound message is not a string',
    "badge: no file path": "a URL has no file path: {}",
    "badge: no path": "a URL has no path: {}",
    "observe: no file path": "a URL has no file path: {}",
    "menu: no selection": "there is no selection to show a menu for",
    "menu: no path": "the selected URL has no path",
    "report: no selection": "there is no selection to report",
    "report: no path": "a URL has no path: {}",
    "report: not encodable": "a click report cannot be encoded",
    "report: no output stream": "there is no output stream to report to",
}


class Different(Exception):
    pass


def session_of(seed, index):
    return make_session(random.Random(seed << 40 | index))


def split(data):
    """The contents of fields."""
    contents, at = [], 0
    while at < len(data):
        colon = data.index(b":", at)
        end = colon + 1 + int(data[at:colon])
        contents.append(data[colon + 1:end])
        at = end + 1
    return contents


def run_driver(driver, sessions):
    """What the program does in each session."""
    try:
        finished = subprocess.run([driver], input=b"".join(map(encoded, sessions)),
                                  capture_output=True, check=False, timeout=PATIENCE)
    except subprocess.TimeoutExpired as failure:
        raise Different(f"no answer within {PATIENCE} s") from failure
    if finished.returncode != 0:
        raise Different(finished.stderr.decode(errors="replace"))
    return split(finished.stdout)


def reason(death):
    branch, cause = death.args
    return "fatal error: " + REASONS[branch].format(cause)


def expectation(session):
    """What the model does, as the driver would write it."""
    records, death = model.run(session)
    return b"".join(map(field, [*records, reason(death) if death else ""]))


WRITE = re.compile(rb"(outputStream write:maxLength: )(.*)( -> (-?\d+))", re.DOTALL)
ANSWERED_JSON = re.compile(rb"(answer: JSON )(.+)", re.DOTALL)
ITEM_PATH = re.compile(rb'(print: path: Optional\(")(.*)("\))', re.DOTALL)
ESCAPE = re.compile(rb'\\(?:u\{([0-9A-Fa-f]{1,8})\}|(.))', re.DOTALL)


def unescaped(match):
    if match[1]:
        return chr(int(match[1], 16)).encode()
    return {b"0": b"\0", b"n": b"\n", b"r": b"\r", b"t": b"\t"}.get(match[2], match[2])


def canonical(data):
    """Records in which nothing counts that is left open: the order of a report's members, white
    space and escapes in JSON, and which characters of a traced path are escaped."""
    records = split(data)
    sent = b""
    for index, record in enumerate(records):
        if match := WRITE.fullmatch(record):
            taken = int(match[4])
            sent += match[2][:max(taken, 0)]
            is_whole = taken == len(match[2])
            records[index] = b"%b%b%b" % (match[1], canonical_json(match[2]),
                                          b" whole" if is_whole else match[3])
        elif match := ANSWERED_JSON.fullmatch(record):
            lines = b"lines" if b"\n" in match[2] else b"line"
            records[index] = match[1] + lines + canonical_json(match[2])
        elif match := ITEM_PATH.fullmatch(record):
            if re.search(rb'(?<!\\)(\\\\)*"', match[2]):
                continue  # not one literal
            records[index] = match[1] + ESCAPE.sub(unescaped, match[2]) + match[3]
    records[-3] = b"as written" if records[-3] == sent else b"something else arrived"
    return records


def canonical_json(text):
    try:
        return json.dumps(json.loads(text), sort_keys=True).encode()
    except ValueError:
        return text


def parse_reports(data):
    """The reports that were sent, one directly after the other."""
    text, reports = data.decode(), []
    while text:
        report, end = json.JSONDecoder().raw_decode(text)
        reports.append(report)
        text = text[end:]
    return reports


def is_same(expected, actual):
    return expected == actual or canonical(expected) == canonical(actual)


def differs(driver, session):
    try:
        return not is_same(expectation(session), run_driver(driver, [session])[0])
    except (Different, IndexError):
        return True


def shrunk(driver, session):
    """The session without the events that do not matter, and with texts cut short."""
    is_shorter = True
    while is_shorter:
        is_shorter = False
        for index in reversed(range(len(session))):
            for candidate in smaller(session, index):
                if differs(driver, candidate):
                    session = candidate
                    is_shorter = True
                    break
    return session


def smaller(session, index):
    """Sessions with one event less, or with less in it."""
    yield session[:index] + session[index + 1:]
    event = session[index]
    if event[0] == "send":
        lines = event[1].split(b"\n")
        for at in range(len(lines) if len(lines) > 1 else 0):
            rest = b"\n".join(lines[:at] + lines[at + 1:])
            yield session[:index] + [("send", rest)] + session[index + 1:]
    elif event[0] == "set" and isinstance(event[2], list):
        for at in range(len(event[2])):
            rest = event[2][:at] + event[2][at + 1:]
            yield session[:index] + [(*event[:2], rest)] + session[index + 1:]


def report(driver, seed, index):
    """A session that differs, in words."""
    session = shrunk(driver, session_of(seed, index))
    lines = [f"--seed {seed}, session {index} differs; reproduce with "
             f"compare.py --driver {driver} --seed {seed} --first {index} --sessions 1",
             "The session, shrunk:", *(f"    {event!r}" for event in session)]
    try:
        actual = canonical(run_driver(driver, [session])[0])
    except (Different, IndexError) as failure:
        return "\n".join(lines + [f"The driver failed: {failure}"])
    expected = canonical(expectation(session))
    same = 0
    while same < min(len(expected), len(actual)) and expected[same] == actual[same]:
        same += 1
    lines += [f"Alike up to record {same}: {[each.decode() for each in expected[:same][-4:]]}"]
    for who, records in (("model", expected), ("program", actual)):
        lines += [f"What the {who} does then:", *(f"    {each!r}" for each in records[same:same + 8])]
    return "\n".join(lines)


def run_batch(job):
    """A number of sessions: how many events they had, the branches reached, the first report."""
    driver, seed, first, count = job
    model.reached.update(dict.fromkeys(model.BRANCHES, 0))
    sessions = [session_of(seed, index) for index in range(first, first + count)]
    expected = [expectation(session) for session in sessions]
    reached = dict(model.reached)
    events = sum(map(len, sessions))
    try:
        actual = run_driver(driver, sessions)
    except Different:
        actual = []
        for session in sessions:  # which of them it is
            try:
                actual += run_driver(driver, [session])
            except Different:
                actual.append(b"")
    for index, (one, other) in enumerate(zip(expected, actual, strict=True)):
        if one != other and (not other or not is_same(one, other)):
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
    parser.add_argument("--sessions", type=int, default=100_000, help="how many (100000)")
    parser.add_argument("--first", type=int, default=0, help="the number of the first one (0)")
    parser.add_argument("--processes", type=int, default=os.cpu_count(), help="how many at once")
    parser.add_argument("--statistics", action="store_true",
                        help="print how often each branch of the model was reached")
    parser.add_argument("--all-branches", action="store_true",
                        help="fail when a branch of the model was not reached")
    parser.add_argument("--progress", action="store_true", help="tell every 100000 sessions")
    return parser.parse_args()


def compare(arguments):
    """The number of sessions and events, how often each branch was reached, and the failure."""
    reached = dict.fromkeys(model.BRANCHES, 0)
    sessions = events = 0
    start = time.monotonic()
    with multiprocessing.Pool(arguments.processes) as pool:
        for done, branches, failure in pool.imap_unordered(run_batch, jobs(arguments)):
            sessions += BATCH
            events += done
            for branch, count in branches.items():
                reached[branch] += count
            if failure:
                return min(sessions, arguments.sessions), events, reached, failure
            if arguments.progress and sessions % 100_000 == 0:
                print(f"{sessions} sessions, {time.monotonic() - start:.0f} s", flush=True)
    return min(sessions, arguments.sessions), events, reached, None


def main():
    arguments = read_arguments()
    start = time.monotonic()
    sessions, events, reached, failure = compare(arguments)
    print(f"{sessions} sessions with {events} events, {time.monotonic() - start:.1f} s")
    if arguments.statistics:
        for branch, count in reached.items():
            print(f"{count:9} {branch}")
    if failure:
        sys.exit(failure)
    missing = [branch for branch, count in reached.items() if count == 0]
    if arguments.all_branches and missing:
        sys.exit("no session reached: " + ", ".join(missing))


if __name__ == "__main__":
    main()
