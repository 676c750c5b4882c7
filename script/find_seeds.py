#!/usr/bin/env python3
"""Looks for pieces of the key seeds in built files: find_seeds.py CMAKE-CACHE FILE...

Whoever holds a device must not be able to read a seed off its firmware image with a tool like strings. A piece is any
six neighbouring characters of a seed.
"""
import re
import sys

PIECE_LENGTH = 6


def pieces(seed):
    return {seed[start:start + PIECE_LENGTH] for start in range(len(seed) - PIECE_LENGTH + 1)}


def main(cache_path, paths):
    with open(cache_path, "rb") as cache:
        seeds = re.findall(rb"^ENGR_KEY\d_SEED:\w+=(.{16})$", cache.read(), re.MULTILINE)
    if len(seeds) != 3:
        sys.exit(f"find_seeds.py: {cache_path} holds {len(seeds)} seeds of 16 characters instead of 3")
    if not paths:
        sys.exit("find_seeds.py: no built file was named")
    found = 0
    for path in paths:
        with open(path, "rb") as file:
            content = file.read()
        for number, seed in enumerate(seeds, start=1):
            offsets = sorted(content.index(piece) for piece in pieces(seed) if piece in content)
            if offsets:
                found += 1
                print(f"{path}: pieces of seed {number} can be read, the first at offset {offsets[0]}")
    if not found:
        print(f"{len(paths)} files, no piece of a seed")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2:]))
