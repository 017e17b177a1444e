#!/usr/bin/env python3
"""The scan beside mail tools that an administrator may have: From, Subject and date of the messages of a window.

  compare_scan.py BENCH_SCAN [MESSAGES...]      default 10000 100000

Tools that are not installed are left out: mblaze, notmuch, mu (maildir-utils). All list the same Maildir in turn, each as
a process of its own with its output thrown away; printed are medians of the time on the clock and of the processor time,
both in milliseconds. notmuch and mu answer from an index: what building it takes stands beside, and so does bringing it
up to date when nothing is new, which each report would have to do first.
"""
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from email.utils import formatdate

NOW = 1700000000  # as the benchmarks have it
MAILBOX = "home/example.org/bench~example.org/quarantine"
RUNS = 5


def make_maildir(quarantine, count):
    for folder in ("cur", "new", "tmp"):
        os.makedirs(os.path.join(quarantine, folder))
    filler = "x" * 800
    for i in range(count):
        with open(f"{quarantine}/cur/{NOW - 1 - i}.M{i}P1.bench:2,S", "w", encoding="ascii") as out:
            out.write(f"Received: from a.example by b.example; {filler}\nFrom: Sender {i} <s{i}@example.com>\n"
                      f"To: bench@example.org\nSubject: =?UTF-8?Q?Offer_number_{i}?=\nMessage-ID: <m{i}@example.com>\n"
                      f"Date: {formatdate(NOW - 1 - i)}\n\n{filler}\n{filler}\n")


def run(command):
    """Milliseconds on the clock and of the processor, and what was printed."""
    before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.monotonic()
    done = subprocess.run(command, shell=True, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    clock, after = time.monotonic() - start, resource.getrusage(resource.RUSAGE_CHILDREN)
    return clock * 1e3, (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime) * 1e3, done.stdout


class Tool:
    """How a tool lists the window [since, NOW), and what must have happened before."""
    def __init__(self, name, needs, listing, index=None):
        self.name, self.needs, self.listing, self.index = name, needs, listing, index


def tools(bench_scan, quarantine, root):
    stamp = "$(date -u -d @{since} +%Y%m%d%H%M%S)"
    return [
        Tool("this library", bench_scan, f"'{bench_scan}' list {{window}}"),
        Tool("mblaze, by Date", "mscan", f"mlist {quarantine} | mpick -t 'date >= {{since}}' | mscan -f '%D %f %s'"),
        Tool("mblaze, by name", "mscan", f"mlist {quarantine} | awk -F/ '$NF+0 >= {{since}}' | mscan -f '%D %f %s'"),
        Tool("notmuch", "notmuch", "notmuch search --sort=oldest-first date:@{since}..", "notmuch new"),
        Tool("mu", "mu", f"mu find --muhome={root}/mu --fields 'd f s' date:{stamp}..",
             f"[ -d {root}/mu ] || mu init --muhome={root}/mu --maildir={quarantine}; mu index --muhome={root}/mu"),
    ]


def compare(bench_scan, count):
    with tempfile.TemporaryDirectory(prefix="velmar-bench-") as root:
        quarantine = os.path.join(root, MAILBOX)
        make_maildir(quarantine, count)
        os.environ.update(VELMAR_ROOT=root, NOTMUCH_CONFIG=f"{root}/notmuch", TZ="UTC")
        with open(f"{root}/notmuch", "w", encoding="ascii") as config:
            config.write(f"[database]\npath={quarantine}\n[user]\nname=b\nprimary_email=b@example.org\n")
        present = [tool for tool in tools(bench_scan, quarantine, root) if shutil.which(tool.needs)]
        for tool in present:
            if tool.index:
                print("%9d  %-16s index %8.0f %8.0f, nothing new %6.0f %6.0f" %
                      (count, tool.name, *run(tool.index)[:2], *run(tool.index)[:2]), flush=True)
        for window in (count, count // 10, count // 100, count // 1000):
            times = {tool.name: [] for tool in present}
            for _ in range(RUNS):
                for tool in present:
                    *spent, listed = run(tool.listing.format(window=window, since=NOW - window))
                    times[tool.name].append(spent)
                    if len(listed.splitlines()) != window:
                        sys.exit(f"{tool.name} listed {len(listed.splitlines())} messages instead of {window}")
            for name, spent in times.items():
                print("%9d  %-16s %8d %10.1f %10.1f" %
                      (count, name, window, *(statistics.median(column) for column in zip(*spent))), flush=True)


if __name__ == "__main__":
    print("%9s  %-16s %8s %10s %10s" % ("messages", "tool", "window", "clock ms", "cpu ms"))
    for messages in [int(argument) for argument in sys.argv[2:]] or [10000, 100000]:
        compare(os.path.abspath(sys.argv[1]), messages)
