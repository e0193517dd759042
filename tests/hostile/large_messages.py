"""How late a process goes on that only sleeps, ahead of all others, while two others exchange large
messages: none of them has to do with the extension or a plug-in. Where the kernel lets a system
call run on to its end, nobody else on that processor can be on time."""

import argparse
import multiprocessing
import os
import socket
import sys
import time

MESSAGE = 128 << 20  # what a bus carries at the most
PIECE = 64 << 10
SLEEP = 0.001


def sleep(processor, deadline, latest):
    os.sched_setaffinity(0, {processor})
    os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(2))
    while (before := time.monotonic()) < deadline:
        time.sleep(SLEEP)
        latest.value = max(latest.value, time.monotonic() - before - SLEEP)


def send(connection, processors, deadline, piece):
    os.sched_setaffinity(0, processors)
    message = memoryview(bytes(piece))
    while time.monotonic() < deadline:
        for _ in range(MESSAGE // piece):
            connection.sendall(message)
    connection.shutdown(socket.SHUT_WR)


def receive(connection, processors, piece):
    os.sched_setaffinity(0, processors)
    # Into memory that was never touched before, as whoever reads a message from the bus does.
    while connection.recv(piece, socket.MSG_WAITALL):
        pass


def lateness(seconds, piece, senders, sleepers):
    """Milliseconds, of the sleeper who was latest."""
    deadline = time.monotonic() + seconds
    latest = {each: multiprocessing.Value("d", 0) for each in sleepers}
    one, other = socket.socketpair()
    processes = [multiprocessing.Process(target=sleep, args=(each, deadline, latest[each]))
                 for each in sleepers]
    processes += [multiprocessing.Process(target=send, args=(one, senders, deadline, piece)),
                  multiprocessing.Process(target=receive, args=(other, senders, piece))]
    for process in processes:
        process.start()
    for process in processes:
        process.join()
    return max(each.value for each in latest.values()) * 1000


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=float, default=10, help="of each of three parts (10)")
    seconds = parser.parse_args().seconds
    if os.geteuid() != 0:
        sys.exit("large_messages.py: run it as root, who may let a process run ahead of all others")
    everywhere = os.sched_getaffinity(0)
    *others, last = sorted(everywhere)
    for what, piece, senders, sleepers in [
            ("in one call each", MESSAGE, everywhere, everywhere),
            ("64 KiB at a time", PIECE, everywhere, everywhere),
            ("in one call each, on other processors than the sleeper", MESSAGE, others, {last})]:
        if senders:
            late = lateness(seconds, piece, senders, sleepers)
            print(f"128 MiB {what}: up to {late:.1f} ms late", flush=True)


main()
