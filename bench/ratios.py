#!/usr/bin/env python3
"""Prints what benchmarks say, as ratios inside their groups, and whether the goals are met.

Usage: ratios.py [--only EXPRESSION] [--peers] [--markdown] [--goals FILE] RESULT.json...

Times are medians of processor time over all repetitions in all files. The first table has a row for each
entry of this library: its time divided by that of the group's limit, that of the best peer likewise, and
its time divided by the best peer's. --peers lists all entries of each group instead.

The exit status is 1 when a benchmark failed its check; goals that are missed do not change it, because
they are judged by ratios of one run on one machine.
"""
import argparse
import csv
import json
import os
import re
import statistics
import sys

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def is_ours(name):
    return name == "tovutil" or name.startswith("tovutil:")


def is_peer(name):
    """
    >>> [is_peer(n) for n in ("icu-kept", "limit:memcpy", "model:table", "part:x", "tovutil", "tovutil:a")]
    [True, False, False, False, False, False]
    """
    return not is_ours(name) and not name.startswith(("limit:", "model:", "part:"))


class Group:
    """The entries of one group: {name: [nanoseconds, ...]}."""

    def __init__(self):
        self.times = {}

    def median(self, name):
        return statistics.median(self.times[name])

    def spread(self, name):
        times = self.times[name]
        return (max(times) - min(times)) / self.median(name)

    def limit(self):
        return next((n for n in self.times if n.startswith("limit:")), None)

    def best(self):
        return min(filter(is_peer, self.times), key=self.median, default=None)

    def named(self, name):
        """
        >>> g = Group(); g.times = {"limit:memcpy": [1], "icu": [4, 6, 5], "qt": [7], "tovutil": [3]}
        >>> [g.named(n) for n in ("limit", "best", "qt", "glib")]
        ['limit:memcpy', 'icu', 'qt', None]
        """
        if name == "limit":
            return self.limit()
        if name == "best":
            return self.best()
        return name if name in self.times else None

    def ratio(self, name, other):
        """The times of two entries divided; None when one of the two is not there.

        >>> g = Group(); g.times = {"icu": [4, 6, 5], "tovutil": [3, 2, 2]}
        >>> g.ratio("tovutil", "icu"), g.ratio("tovutil", None), g.ratio("qt", "icu")
        (0.4, None, None)
        """
        if not {name, other} <= self.times.keys():
            return None
        return self.median(name) / self.median(other)


def load(paths):
    """({group: Group} as registered, the context of the last file, names of benchmarks that failed)"""
    groups, context, failed = {}, {}, []
    for path in paths:
        with open(path) as file:
            data = json.load(file)
        context = data["context"]
        for entry in sorted(data["benchmarks"], key=lambda b: b["family_index"]):
            if entry.get("run_type") != "iteration":
                continue
            if entry.get("error_occurred"):
                failed.append(f"{entry['name']}: {entry.get('error_message')}")
                continue
            group, _, name = entry["run_name"].rpartition("/")
            time = entry["cpu_time"] * NANOSECONDS[entry["time_unit"]]
            groups.setdefault(group, Group()).times.setdefault(name, []).append(time)
    return groups, context, failed


def number(value):
    """
    >>> [number(v) for v in (None, 0.123, 12.34, 123.4)]
    ['-', '0.12', '12.3', '123']
    """
    if value is None:
        return "-"
    return f"{value:.2f}" if value < 10 else f"{value:.1f}" if value < 100 else f"{value:.0f}"


def table(rows, markdown):
    """Prints rows of texts, the first being the head; texts to the left, numbers to the right."""
    if markdown:
        lines = ["| " + " | ".join(row) + " |" for row in rows]
        lines.insert(1, "|" + "---|" * len(rows[0]))
    else:
        widths = [max(map(len, column)) for column in zip(*rows)]
        right = [all(re.match(r"-$|[\d.]+$", cell) for cell in column[1:]) for column in zip(*rows)]
        lines = ["  ".join(cell.rjust(width) if to_right else cell.ljust(width)
                           for cell, width, to_right in zip(row, widths, right)).rstrip() for row in rows]
    print("\n".join(lines), end="\n\n")


def our_rows(groups):
    yield ("group", "entry", "limit ns", "x limit", "best peer", "x limit", "x best peer")
    for name, group in groups.items():
        best, limit = group.best(), group.limit()
        for ours in filter(is_ours, group.times):
            yield (name, ours, number(limit and group.median(limit)), number(group.ratio(ours, limit)),
                   best or "-", number(group.ratio(best, limit)), number(group.ratio(ours, best)))


def peer_rows(groups):
    yield ("group", "entry", "ns", "spread", "x limit", "x best peer")
    for name, group in groups.items():
        for entry in sorted(group.times, key=group.median):
            yield (name, entry, number(group.median(entry)), number(group.spread(entry)),
                   number(group.ratio(entry, group.limit())), number(group.ratio(entry, group.best())))


def judged(goal, groups):
    """(verdict, number of groups that meet it, number of groups, [(ratio, group), ...] largest first)

    >>> fast, slow = Group(), Group()
    >>> fast.times, slow.times = {"icu": [4], "tovutil": [1]}, {"icu": [4], "tovutil": [5]}
    >>> goal = {"groups": "utf/.*", "ours": "tovutil", "peer": "icu", "factor": "0.5"}
    >>> judged(goal, {"utf/a": fast, "utf/b": slow, "once/c": slow})
    ('missed', 1, 2, [(1.25, 'utf/b'), (0.25, 'utf/a')])
    >>> judged(goal, {"utf/a": fast, "once/c": slow})[0], judged(goal, {})[0]
    ('met', 'no data')
    """
    ratios = []
    for name, group in groups.items():
        if re.fullmatch(goal["groups"], name):
            ratio = group.ratio(goal["ours"], group.named(goal["peer"]))
            if ratio is not None:
                ratios.append((ratio, name))
    ratios.sort(reverse=True)
    met = sum(ratio <= float(goal["factor"]) for ratio, _ in ratios)
    verdict = "no data" if not ratios else "met" if met == len(ratios) else "missed"
    return verdict, met, len(ratios), ratios


def goal_rows(goals, groups):
    yield ("goal", "aim", "at most", "verdict", "groups", "worst", "in group")
    for goal in goals:
        verdict, met, total, ratios = judged(goal, groups)
        worst, where = ratios[0] if ratios else (None, "-")
        yield (goal["stage"], goal["aim"], f"{float(goal['factor']):g} x {goal['peer']}", verdict,
               f"{met} of {total}", number(worst), where)


def read_goals(path, topics):
    with open(path, newline="") as file:
        rows = csv.DictReader((line for line in file if not line.startswith("#")), delimiter="\t")
        return [row for row in rows if row["topic"] in topics]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("files", nargs="+")
    parser.add_argument("--only", default="", help="groups whose names begin with a match of this expression")
    parser.add_argument("--peers", action="store_true", help="all entries of each group")
    parser.add_argument("--markdown", action="store_true")
    parser.add_argument("--goals", default=os.path.join(os.path.dirname(os.path.abspath(__file__)), "goals.tsv"))
    options = parser.parse_args()

    groups, context, failed = load(options.files)
    groups = {name: group for name, group in groups.items() if re.match(options.only, name)}
    shown = ("date", "num_cpus", "compiler", "glibc", "peers", "simdutf kernel", "threads")
    print("; ".join(f"{key}: {context[key]}" for key in shown if key in context), end="\n\n")
    rows = list(peer_rows(groups) if options.peers else our_rows(groups))
    table(rows, options.markdown)
    goals = read_goals(options.goals, {name.split("/")[0] for name in groups})
    if goals:
        table(list(goal_rows(goals, groups)), options.markdown)
    for text in failed:
        print("failed:", text)
    return 1 if failed or not groups else 0


if __name__ == "__main__":
    sys.exit(main())
