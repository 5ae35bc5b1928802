"""nerva-fleet: nerva-blobs over many videos on a Dask cluster.

Every video and image sequence of the inputs (folders walked, sub-folders
included) writes OUTPUT/<path>.jsonl, its path mirroring the input's under
the folder given, in nerva-blobs' JSON Lines format, atomically: nothing
appears at that name before the input is complete. OUTPUT/manifest.json
records per input its status, frames, blobs, metadata and options, keyed by
its resolved path; a re-run skips the inputs already done from the same
file with the same options (--force redoes them). OUTPUT/index.html shows
progress and results. One run at a time per output folder.

By default an embedded local cluster runs one single-threaded worker process
per core; --scheduler ADDRESS uses an existing cluster instead (the inputs and
OUTPUT must then be the same paths on every worker, e.g. a shared file
system; `nerva-fleet scheduler` and `nerva-fleet worker ADDRESS` start one).
A worker that dies mid-input loses nothing: the scheduler reruns the task
elsewhere.

Exit status: 0 when every input is done, 1 when any failed or is partial
(without --allow-partial) or the manifest could not be written, 2 when
nothing ran: a bad command line, a folder without inputs, an output folder
that cannot be used or is in use, an unreachable scheduler.
"""

import argparse
import os
import socket
import sys
from typing import List, Optional, Tuple

from .fleet_inputs import InputsError, expand_inputs
from .fleet_output import OutputError, OutputFolder
from .fleet_run import run_fleet

__all__ = ["main", "parse_arguments", "pipeline_options", "run_fleet"]

# ---- the command line ----

def _positive_pair(text: str) -> Tuple[int, int]:
    try:
        sx, sy = (int(v) for v in text.split(","))
    except ValueError:
        raise argparse.ArgumentTypeError(f"'{text}' is not two integers sx,sy") from None
    if sx < 1 or sy < 1:
        raise argparse.ArgumentTypeError(f"steps must be at least 1 (got {text})")
    return sx, sy


def _roi(text: str) -> Tuple[int, int, int, int]:
    try:
        x, y, w, h = (int(v) for v in text.split(","))
    except ValueError:
        raise argparse.ArgumentTypeError(f"'{text}' is not four integers x,y,w,h") from None
    if w < 1 or h < 1 or x < 0 or y < 0:
        raise argparse.ArgumentTypeError(f"'{text}': x and y must be at least 0, width and height at least 1")
    return x, y, w, h


def _count(low: int):
    def parse(text: str) -> int:
        try:
            value = int(text)
        except ValueError:
            raise argparse.ArgumentTypeError(f"'{text}' is not an integer") from None
        if value < low:
            raise argparse.ArgumentTypeError(f"must be at least {low} (got {value})")
        return value
    return parse


def _rate(text: str) -> float:
    try:
        value = float(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number") from None
    if not 0 <= value <= 1:
        raise argparse.ArgumentTypeError("must lie between 0 and 1")
    return value


def _address(text: str) -> str:
    if not text.strip():
        raise argparse.ArgumentTypeError("an empty address (leave --scheduler out for a local cluster)")
    return text


def parse_arguments(argv: Optional[List[str]]) -> argparse.Namespace:
    p = argparse.ArgumentParser(prog="nerva-fleet", description=__doc__.split("\n\n")[0],
                                epilog="Foreground and segmentation options mean what they mean to nerva-blobs.")
    p.add_argument("inputs", nargs="+", metavar="INPUT",
                   help="videos, image patterns (frames/img_%%04d.png), folders of images, or folders of videos")
    p.add_argument("-o", "--output", required=True, metavar="DIR", help="folder for <name>.jsonl and manifest.json")
    p.add_argument("--scheduler", type=_address, metavar="ADDRESS",
                   help="an existing Dask scheduler, e.g. tcp://10.0.0.5:8786")
    p.add_argument("--workers", type=_count(1), help="local cluster: worker processes (default: one per core)")
    p.add_argument("--force", action="store_true", help="redo inputs the manifest lists as done")
    p.add_argument("--recursive", action=argparse.BooleanOptionalAction, default=True,
                   help="walk the sub-folders of folders given (default: yes)")
    p.add_argument("--allow-partial", action="store_true",
                   help="exit 0 when files hold fewer frames than they announce (cut downloads)")
    p.add_argument("--chunk", type=_count(1), metavar="N",
                   help="split videos into chunks of N frames (not exact with a background model: see docs/fleet.md)")
    p.add_argument("--warmup", type=_count(0), default=200, metavar="W",
                   help="with --chunk: frames read before each chunk to warm its background up (default 200)")
    p.add_argument("--progress", action="store_true", help="progress even when standard error is not a terminal")
    p.add_argument("-q", "--quiet", action="store_true", help="no summary table")
    g = p.add_argument_group("foreground (as nerva-blobs)")
    g.add_argument("--masks", action="store_true", help="inputs hold foreground masks (non-zero = foreground)")
    g.add_argument("--background", choices=("average", "mog2"), default="average")
    g.add_argument("--learning-rate", type=_rate, metavar="R")
    g.add_argument("--threshold", type=_count(0), default=25, metavar="T")
    g.add_argument("--open", type=_count(0), default=0, metavar="N")
    g.add_argument("--close", type=_count(0), default=0, metavar="N")
    g = p.add_argument_group("segmentation (as nerva-blobs)")
    g.add_argument("--roi", type=_roi, metavar="x,y,w,h")
    g.add_argument("--steps", type=_positive_pair, default=(1, 1), metavar="sx,sy")
    g.add_argument("--min-side", type=_count(0), default=0, metavar="N")
    g.add_argument("--min-pixels", type=_count(0), default=0, metavar="N")
    args = p.parse_args(argv)
    if args.threshold > 255:
        p.error("--threshold: must lie between 0 and 255")
    if args.masks and args.background == "mog2":
        p.error("--masks and --background mog2 exclude each other: masks need no background")
    try:
        args.expanded = expand_inputs(args.inputs, args.recursive)
    except InputsError as e:
        p.error(str(e))
    return args


def pipeline_options(args: argparse.Namespace) -> dict:
    """Keyword arguments of blobs_in_video; JSON-safe, recorded in the manifest."""
    return dict(masks=args.masks, background=args.background, learning_rate=args.learning_rate,
                threshold=args.threshold, opening=args.open, closing=args.close,
                roi=list(args.roi) if args.roi else None, steps=list(args.steps),
                min_side=args.min_side, min_pixels=args.min_pixels)


def _check_reachable(address: str) -> None:
    """Refused connections fail at once, where Dask would retry them for its whole connect timeout."""
    from distributed.comm import parse_address, parse_host_port
    scheme, location = parse_address(address)  # ValueError for what is no address
    if scheme in ("tcp", "tls"):
        with socket.create_connection(parse_host_port(location), timeout=10):
            pass


def connect(args: argparse.Namespace):
    import logging

    from distributed import Client, LocalCluster
    if args.scheduler is not None:
        _check_reachable(args.scheduler)
        return Client(args.scheduler), None
    cluster = LocalCluster(n_workers=args.workers or os.cpu_count() or 1, threads_per_worker=1, processes=True,
                           dashboard_address=None, silence_logs=logging.ERROR)
    return Client(cluster), cluster


def _dask(command: str, argv: List[str]) -> int:
    """`nerva-fleet scheduler|worker ...`: Dask's own scheduler or worker
    command run by this interpreter, so that workers import this nerva (a
    virtual environment's included), where a `dask` found on PATH may run
    another interpreter that has none."""
    module = {"scheduler": "distributed.cli.dask_scheduler", "worker": "distributed.cli.dask_worker"}[command]
    if command == "worker" and not any(a.startswith("--nthreads") for a in argv):
        # The segmenter releases the GIL but the pipeline's Python glue does
        # not: processes, not threads, make a worker machine's cores work.
        argv = [*argv, "--nthreads", "1"]
    os.execv(sys.executable, [sys.executable, "-m", module, *argv])
    return 2  # not reached


def main(argv: Optional[List[str]] = None) -> int:
    argv = sys.argv[1:] if argv is None else argv
    if argv and argv[0] in ("scheduler", "worker"):
        return _dask(argv[0], argv[1:])
    args = parse_arguments(argv)
    try:
        folder = OutputFolder(args.output)
    except OutputError as e:
        print(f"nerva-fleet: {e}", file=sys.stderr)
        return 2
    try:
        try:
            client, cluster = connect(args)
        except (OSError, ValueError) as e:
            print(f"nerva-fleet: cannot reach the scheduler '{args.scheduler}': {e}", file=sys.stderr)
            return 2
        try:
            return run_fleet(client, args, folder)
        except OutputError as e:
            print(f"nerva-fleet: {e}", file=sys.stderr)
            return 2
        except KeyboardInterrupt:
            print("\nnerva-fleet: interrupted; finished inputs are kept, a re-run resumes", file=sys.stderr)
            return 1
        finally:
            client.close()
            if cluster is not None:
                cluster.close()
    finally:
        folder.close()


if __name__ == "__main__":
    sys.exit(main())
