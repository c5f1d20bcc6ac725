#!/usr/bin/env python3
"""How long qzls takes to answer, as an editor sees it: for every example
program, the time from sending a change (the whole text) to receiving its
diagnostics, and from sending a hover request on an instruction to receiving
the answer, measured at the client through the real pipes.

Usage: latency.py QZLS [EXAMPLES_DIR] [--rounds N] [--large] [--smoke]

Prints a table of medians and maxima in milliseconds. --smoke runs two
rounds and checks only that every answer came (for ctest); no time is ever
asserted. --large adds a generated program of 1 MB (fewer rounds).
"""
import argparse
import glob
import os
import statistics
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "tests"))
import lsp_client  # noqa: E402
from test_load import big_program  # noqa: E402


def first_instruction(text):
    """(line, character) of the first MOV of the body: a hover target."""
    in_body = False
    for number, line in enumerate(text.split("\n")):
        words = line.split()
        if words[:1] == ["MAIN"]:
            in_body = True
        elif in_body and words[:1] == ["MOV"]:
            return number, line.index("MOV") + 1
    raise ValueError("no MOV in the body")


def measure(client, uri, text, rounds):
    line, character = first_instruction(text)
    change, hover = [], []
    for version in range(2, 2 + rounds):
        start = time.perf_counter()
        params = client.change(uri, version, [{"text": text}])
        change.append((time.perf_counter() - start) * 1000)
        if params["version"] != version:
            raise AssertionError("diagnostics for the wrong version")
        start = time.perf_counter()
        answer = client.at("textDocument/hover", uri, line, character)
        hover.append((time.perf_counter() - start) * 1000)
        if not answer["result"]["contents"]["value"].startswith("`MOV "):
            raise AssertionError("hover did not show MOV: %r" % answer)
    return change, hover


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("qzls")
    parser.add_argument("examples", nargs="?", default="examples")
    parser.add_argument("--rounds", type=int, default=200)
    parser.add_argument("--smoke", action="store_true")
    parser.add_argument("--large", action="store_true")
    args = parser.parse_args()
    rounds = 2 if args.smoke else args.rounds
    lsp_client.QZLS = args.qzls
    client = lsp_client.Client()
    client.initialize()
    print("| Example | Bytes | Change to diagnostics, median / max ms | Hover, median / max ms |")
    print("|---|---|---|---|")
    worst = 0.0
    programs = []
    for path in sorted(glob.glob(os.path.join(args.examples, "*.qz"))):
        with open(path, encoding="utf-8") as f:
            programs.append((os.path.basename(path), "file://" + os.path.abspath(path), f.read(), rounds))
    for name, uri, text, count in programs:
        client.open(uri, text)
        change, hover = measure(client, uri, text, count)
        worst = max(worst, max(change), max(hover))
        print("| %s | %d | %.2f / %.2f | %.2f / %.2f |" % (
            name, len(text.encode("utf-8")), statistics.median(change), max(change),
            statistics.median(hover), max(hover)))
    if args.large:
        text = big_program(1 << 20)[0]
        client.open("file:///generated/big.qz", text)
        change, hover = measure(client, "file:///generated/big.qz", text, max(2, rounds // 10))
        print("| generated, not counted above | %d | %.2f / %.2f | %.2f / %.2f |" % (
            len(text), statistics.median(change), max(change), statistics.median(hover), max(hover)))
    print()
    print("Slowest single answer: %.2f ms over %d rounds per example." % (worst, rounds))
    if client.shutdown_and_exit() != 0:
        sys.exit("qzls did not exit cleanly")


if __name__ == "__main__":
    main()
