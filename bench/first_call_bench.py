#!/usr/bin/python3
"""The very first call, each in a fresh process: nerva.blobs(mask).as_cv2_stats()
against cv2.connectedComponentsWithStats(mask, connectivity=4).

Each process imports numpy, cv2 and (for nerva) nerva, loads one vtest mask,
then times its library's first call and counts the page faults it took. The
two kinds of process alternate, and which goes first alternates from round to
round, so both see the same load; medians over the rounds are printed.

    PYTHONPATH=build/python /usr/bin/python3 bench/first_call_bench.py [--rounds N]
"""

import argparse
import json
import os
import statistics
import subprocess
import sys
import tempfile

import numpy as np

import nerva
from python_bench import VTEST, vtest_masks

CHILD = r"""
import json, resource, sys, time
import numpy as np
import cv2
mask = np.load(sys.argv[2])
if sys.argv[1].startswith("nerva"):
    import nerva
    call = lambda: nerva.blobs(mask).as_cv2_stats()
else:
    call = lambda: cv2.connectedComponentsWithStats(mask, connectivity=4)
faults = resource.getrusage(resource.RUSAGE_SELF).ru_minflt
start = time.perf_counter()
call()
first = time.perf_counter() - start
faults = resource.getrusage(resource.RUSAGE_SELF).ru_minflt - faults
start = time.perf_counter()
call()
second = time.perf_counter() - start
print(json.dumps({"first": first, "second": second, "faults": faults}))
"""


def run(kind, mask_file, package):
    env = dict(os.environ, PYTHONPATH=package) if package else os.environ
    out = subprocess.run([sys.executable, "-c", CHILD, kind, mask_file], check=True, capture_output=True, text=True,
                         env=env)
    return json.loads(out.stdout)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--rounds", type=int, default=15, help="fresh processes of each kind")
    parser.add_argument("--frame", type=int, default=100, help="vtest frame whose mask is segmented")
    parser.add_argument("--video", default=VTEST)
    parser.add_argument("--compare", metavar="PYTHONPATH",
                        help="another build of the package (the code before a change), timed alongside")
    args = parser.parse_args()
    packages = {"nerva": None, "cv2": None}
    if args.compare:
        packages["nerva (compared)"] = args.compare

    mask = vtest_masks(args.video, args.frame + 1)[-1]  # the running average's mask of that frame
    with tempfile.TemporaryDirectory() as tmp:
        mask_file = os.path.join(tmp, "mask.npy")
        np.save(mask_file, mask)
        results = {kind: [] for kind in packages}
        for round_ in range(args.rounds):
            order = list(packages) if round_ % 2 == 0 else list(reversed(packages))
            for kind in order:
                results[kind].append(run(kind, mask_file, packages[kind]))

    blobs = len(nerva.blobs(mask))
    h, w = mask.shape
    print(f"vtest mask of frame {args.frame}, {w}x{h}, {blobs} blobs; {args.rounds} fresh processes of each kind, "
          f"interleaved; medians\n")
    print("| first call | first (ms) | second (ms) | page faults of the first |")
    print("|---|---:|---:|---:|")
    names = {"nerva": "`nerva.blobs(mask).as_cv2_stats()`",
             "cv2": "`cv2.connectedComponentsWithStats(mask, connectivity=4)`",
             "nerva (compared)": f"`nerva.blobs(mask).as_cv2_stats()` from {args.compare}"}
    medians = {}
    for kind in packages:
        first = statistics.median(r["first"] for r in results[kind])
        second = statistics.median(r["second"] for r in results[kind])
        faults = statistics.median(r["faults"] for r in results[kind])
        medians[kind] = first
        print(f"| {names[kind]} | {first * 1e3:.1f} | {second * 1e3:.2f} | {faults:.0f} |")
    wins = sum(n["first"] < c["first"] for n, c in zip(results["nerva"], results["cv2"]))
    print(f"\nnerva's first call / cv2's: {medians['nerva'] / medians['cv2']:.2f} (median of each); "
          f"nerva faster in {wins} of {args.rounds} rounds")


if __name__ == "__main__":
    main()
