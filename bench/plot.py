#!/usr/bin/env python3
"""Draws what bench/compare.py has measured: plot.py FIGURES.json PICTURE.svg (needs Debian's python3-matplotlib)

One bar a row: how near the agent comes to the server that it is measured against, in the processor time of a request
and in throughput. 1 is that server; the line is the spread of the rounds, the mark what is to be reached.
"""

import io
import json
import re
import sys
import textwrap

import matplotlib

matplotlib.use("svg")
matplotlib.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "compare", "font.size": 9,
                            "font.family": "sans-serif"})
import matplotlib.pyplot as plt  # noqa: E402  (the output is set above)

BARS = (("rate", "throughput", "#4878a8"), ("cpu_us", "processor time", "#9cb8d4"))
HEIGHT = 0.38


def draw(summaries, picture):
    rows = [summary for summary in summaries if "unpaced" not in summary["title"]]
    figure, axes = plt.subplots(figsize=(7.5, 0.55 * len(rows) + 1))
    for position, (name, label, colour) in enumerate(BARS):
        figures = [summary["figures"][name] for summary in rows]
        places = [row + (position - 0.5) * HEIGHT for row in range(len(rows))]
        ratios = [figure["ratio"] for figure in figures]
        spread = [[figure["ratio"] - figure["low"] for figure in figures],
                  [figure["high"] - figure["ratio"] for figure in figures]]
        axes.barh(places, ratios, HEIGHT, xerr=spread, color=colour, ecolor="#555555", label=label)
    limits = [(summary["figures"]["rate"]["limit"], row) for row, summary in enumerate(rows)]
    axes.plot([limit for limit, _ in limits if limit], [row for limit, row in limits if limit], "|",
              markersize=22, markeredgewidth=2, color="#c03030", label="to reach", linestyle="none")
    axes.axvline(1, color="black", linewidth=0.8)
    axes.set_yticks(range(len(rows)), [summary["title"] for summary in rows])
    axes.invert_yaxis()
    axes.set_xlim(0, 1.2)
    axes.set_xlabel("share of the other server's throughput; its processor time divided by ours")
    axes.legend(loc="lower center", bbox_to_anchor=(0.4, 1), ncol=3, markerscale=0.6)
    drawn = io.StringIO()
    no_metadata = {"Date": None, "Creator": None, "Format": None, "Type": None}
    figure.savefig(drawn, bbox_inches="tight", metadata=no_metadata)
    with open(picture, "w", encoding="utf-8") as file:
        for line in re.sub(r"<!DOCTYPE[^>]*>\n", "", drawn.getvalue()).splitlines():
            file.write(textwrap.fill(line, 110, break_long_words=False, break_on_hyphens=False).rstrip() + "\n")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as file:
        draw(json.load(file), sys.argv[2])


if __name__ == "__main__":
    main()
