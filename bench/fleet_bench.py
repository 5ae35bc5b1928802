#!/usr/bin/python3
"""nerva-fleet on this machine: frames per second over copies of vtest.avi
with 1 and 2 local workers, the scheduling overhead per task, and how close
chunked runs come to the whole-video run.

    PYTHONPATH=build/python /usr/bin/python3 bench/fleet_bench.py [--copies 8]
"""

import argparse
import json
import logging
import os
import shutil
import tempfile
import time

from distributed import Client, LocalCluster

from nerva import fleet

VTEST = "/usr/share/doc/opencv-doc/examples/data/vtest.avi"
OPTIONS = ["--open", "3", "--close", "7", "--min-pixels", "150"]  # the demo's


def cluster(workers):
    c = LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, dashboard_address=None,
                     silence_logs=logging.ERROR)
    return c, Client(c)


def fleet_seconds(client, inputs, out, *extra):
    start = time.perf_counter()
    status = fleet.run_fleet(client, fleet.parse_arguments([*inputs, "--output", out, "-q", "--force",
                                                            *OPTIONS, *extra]))
    assert status == 0
    return time.perf_counter() - start


def noop(i):
    return i


def lines(path):
    with open(path) as f:
        return [json.loads(line)["blobs"] for line in f]


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--copies", type=int, default=8)
    p.add_argument("--video", default=VTEST)
    args = p.parse_args()
    work = tempfile.mkdtemp(prefix="nerva-fleet-bench-")
    try:
        inputs = []
        for k in range(args.copies):
            inputs.append(os.path.join(work, f"vtest{k}.avi"))
            shutil.copy(args.video, inputs[-1])
        out = os.path.join(work, "out")
        frames = 795 * args.copies
        rates, loads = {}, {}
        for workers in (1, 2):
            c, client = cluster(workers)
            try:
                client.submit(noop, -1).result()  # workers up
                load = os.getloadavg()[0]
                rates[workers] = frames / fleet_seconds(client, inputs, out)
                loads[workers] = (load + os.getloadavg()[0]) / 2
                if workers == 2:
                    start = time.perf_counter()
                    client.gather([client.submit(noop, i, pure=False) for i in range(1000)])
                    overhead = (time.perf_counter() - start) / 1000
                    whole = lines(os.path.join(out, "vtest0.jsonl"))
                    fidelity = []
                    for chunk, warmup in ((200, 0), (200, 50), (200, 100), (200, 200)):
                        chunked = os.path.join(work, f"chunk{chunk}-{warmup}")
                        fleet_seconds(client, inputs[:1], chunked, "--chunk", str(chunk), "--warmup", str(warmup))
                        got = lines(os.path.join(chunked, "vtest0.jsonl"))
                        same = sum(a == b for a, b in zip(got, whole)) / len(whole)
                        fidelity.append((chunk, warmup, len(got), same))
            finally:
                client.close()
                c.close()
        print(f"{args.copies} copies of vtest.avi ({frames} frames), demo options {' '.join(OPTIONS)}\n")
        print(f"| workers | frames/s | vs 1 worker | load average around the run ({os.cpu_count()} cores) |")
        print("|---:|---:|---:|---:|")
        for w, r in rates.items():
            print(f"| {w} | {r:.0f} | {r / rates[1]:.2f}x | {loads[w]:.1f} |")
        print(f"\nscheduling overhead: {overhead * 1e3:.2f} ms per task (1000 no-op tasks, 2 workers)\n")
        print("| chunk | warm-up | frames | frames with identical blobs |")
        print("|---:|---:|---:|---:|")
        for chunk, warmup, n, same in fidelity:
            print(f"| {chunk} | {warmup} | {n} | {same:.1%} |")
    finally:
        shutil.rmtree(work)


if __name__ == "__main__":
    main()
