"""Plays a session again and again with the extension, while each of its calls fails in turn, each
of its allocations, and every two calls.

Prints how the sessions ended, and whatever ended as it must not, with the orders that repeat it."""

import argparse
import collections
import os
import pathlib
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests"))


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", default=ROOT / "build" / "release" / "bin", type=pathlib.Path,
                        help="folder of the program (build/release/bin)")
    parser.add_argument("--calls", action="store_true", help="each call, in every way")
    parser.add_argument("--from-there-on", action="store_true",
                        help="each call, and all later ones of the same function")
    parser.add_argument("--allocations", action="store_true", help="each allocation")
    parser.add_argument("--no-memory", action="store_true",
                        help="each allocation, and all later ones")
    parser.add_argument("--pairs", action="store_true", help="every two calls, in their first way")
    parser.add_argument("--orders", action="append", default=[], help="these, such as recv:3:2")
    return parser.parse_args()


class Account:
    """Counts how sessions end."""

    def __init__(self, clean):
        self.clean = clean
        self.ends = collections.Counter()
        self.wrong = []
        self.played = 0

    def take(self, outcome):
        from faults.verdict import complaints, kind_of_end
        self.played += 1
        self.ends[kind_of_end(self.clean, outcome)] += 1
        for complaint in complaints(self.clean, outcome):
            self.wrong.append(f"{outcome.orders}: {complaint}; {'; '.join(outcome.failed)}")
            print("  WRONG", self.wrong[-1], flush=True)
        if self.played % 1000 == 0:
            print(f"  {self.played} sessions", flush=True)


def main():
    options = arguments()
    os.environ["FINDER_SYNC_BIN"] = str(options.bin.resolve())
    from faults import played

    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        [clean] = played.in_parallel(folder, [""])
        print(f"{len({call.function for call in clean.calls})} functions, "
              f"{len(clean.calls)} calls and {len(clean.allocations)} allocations in a session")
        account = Account(clean)

        def play(what, orders, take=account.take):
            begin, before = time.monotonic(), account.played
            print(f"{what}: {len(orders)} sessions", flush=True)
            taken = played.in_parallel(folder, orders, take)
            print(f"{what}: {account.played - before} sessions in "
                  f"{time.monotonic() - begin:.0f} s", flush=True)
            return taken

        def take_pairs(outcome):
            account.take(outcome)
            return played.pairs(outcome) if outcome.code == 0 and outcome.failed else []

        if options.orders:
            play("orders", options.orders)
        if options.calls:
            play("calls", played.each_call(clean))
        if options.from_there_on:
            play("from there on", played.each_call(clean, "+"))
        if options.allocations:
            play("allocations", played.each_allocation(clean))
        if options.no_memory:
            play("no memory", played.each_allocation(clean, "+"))
        if options.pairs:
            firsts = [text for text in played.each_call(clean) if text.endswith(":1")]
            play("pairs", [pair for pairs in play("firsts", firsts, take_pairs) for pair in pairs])
        for end, count in account.ends.most_common():
            print(f"{count:8} {end}")
        print(f"{account.played} sessions, {len(account.wrong)} complaints")
    return 1 if account.wrong else 0


if __name__ == "__main__":
    sys.exit(main())
