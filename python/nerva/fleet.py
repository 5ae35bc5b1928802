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

from . import _nerva
from .fleet_inputs import InputsError, expand_inputs
from .fleet_output import OutputError, OutputFolder
from .fleet_run import run_fleet

__all__ = ["main", "parse_arguments", "pipeline_options", "run_fleet"]

# ---- the command line ----

_EXAMPLES = """examples:
  nerva-fleet videos/ -o results/
      every video of a folder, one worker process per core
  nerva-fleet cam1.avi cam2.avi --preset vehicles -o results/
      two videos, with the clean-up and size floor for cars
  nerva-fleet masks/ --masks -o results/
      a folder of mask images (or of folders of masks), segmented as given
  nerva-fleet long.mp4 --chunk 2000 -o results/
      one long video split over the workers
  nerva-fleet videos/ --scheduler tcp://10.0.0.5:8786 -o /shared/results/
      an existing Dask cluster (inputs and output on a shared file system)"""

def _integers(count: int):
    def parse(text: str) -> Tuple[int, ...]:
        try:
            values = tuple(int(v) for v in text.split(","))
        except ValueError:
            values = ()
        if len(values) != count:
            raise argparse.ArgumentTypeError(f"'{text}' is not {count} integers separated by commas")
        return values
    return parse


def _integer(text: str) -> int:
    try:
        return int(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"'{text}' is not an integer") from None


def _number(text: str) -> float:
    try:
        return float(text)
    except ValueError:
        raise argparse.ArgumentTypeError(f"'{text}' is not a number") from None


# How argparse reads each of the pipeline's options; their flags, meanings
# and defaults, and the check of their values, are nerva-blobs' own.
_PIPELINE_ARGUMENTS = {
    "preset": dict(choices=[p["name"] for p in _nerva.presets()]),
    "masks": dict(action="store_true"),
    "background": dict(choices=("average", "mog2"), default="average"),
    "learning_rate": dict(type=_number),
    "threshold": dict(type=_integer, default=25),
    "open": dict(type=_integer),
    "close": dict(type=_integer),
    "roi": dict(type=_integers(4)),
    "steps": dict(type=_integers(2), default=(1, 1)),
    "min_side": dict(type=_integer, default=0),
    "min_pixels": dict(type=_integer),
}


def _add_pipeline_arguments(p: argparse.ArgumentParser) -> None:
    groups = {}
    for option in _nerva.option_table():
        group = groups.get(option["group"])
        if group is None:
            group = groups[option["group"]] = p.add_argument_group(f"{option['group'].lower()} (as nerva-blobs)")
        how = dict(_PIPELINE_ARGUMENTS[option["name"]])
        if option["value"] and "choices" not in how:
            how["metavar"] = option["value"]
        meaning = f"{option['meaning']} [default: {option['default']}]".replace("%", "%%")
        group.add_argument(option["flag"], dest=option["name"], help=meaning, **how)


def _count(low: int):
    def parse(text: str) -> int:
        value = _integer(text)
        if value < low:
            raise argparse.ArgumentTypeError(f"must be at least {low} (got {value})")
        return value
    return parse


def _unknown_options(p: argparse.ArgumentParser, extras: List[str]) -> None:
    """Exits with the first unknown option and the nearest known ones."""
    import difflib
    flags = [flag for action in p._actions for flag in action.option_strings if flag.startswith("--")]
    for extra in extras:
        typed = extra.split("=")[0]
        near = difflib.get_close_matches(typed, flags, n=2, cutoff=0.6) if typed.startswith("-") else []
        hint = f"; did you mean {' or '.join(near)}?" if near else ""
        p.error(f"unknown option {typed}{hint}" if typed.startswith("-") else f"unexpected argument '{extra}'")


def _address(text: str) -> str:
    if not text.strip():
        raise argparse.ArgumentTypeError("an empty address (leave --scheduler out for a local cluster)")
    return text


def _named_points(least: int, most: int):
    """NAME:x1,y1;x2,y2... (commas or semicolons between numbers) -> (name, [(x, y), ...])."""
    def parse(text: str):
        name, _, rest = text.partition(":")
        try:
            values = [float(v) for v in rest.replace(";", ",").split(",")]
        except ValueError:
            values = []
        if not name or len(values) % 2 or not least <= len(values) // 2 <= most:
            raise argparse.ArgumentTypeError(f"'{text}': expected NAME and {least} to {most} points x,y")
        return name, list(zip(values[0::2], values[1::2]))
    return parse


def parse_arguments(argv: Optional[List[str]]) -> argparse.Namespace:
    presets = "\n".join(f"  {p['name']}: {p['meaning']}" for p in _nerva.presets())
    p = argparse.ArgumentParser(prog="nerva-fleet", description=__doc__.split("\n\n")[0],
                                formatter_class=argparse.RawDescriptionHelpFormatter,
                                allow_abbrev=False,  # as nerva-blobs: a misspelt option is named, not guessed
                                epilog=f"presets (--preset):\n{presets}\n\n{_EXAMPLES}")
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
    _add_pipeline_arguments(p)
    g = p.add_argument_group("tracking (as nerva-blobs; the manifest gives each input's counts)")
    g.add_argument("--track", action="store_true", help="track identities across frames")
    g.add_argument("--line", type=_named_points(2, 2), action="append", default=[], metavar="NAME:x1,y1,x2,y2")
    g.add_argument("--zone", type=_named_points(3, 16), action="append", default=[], metavar="NAME:x1,y1;x2,y2;...")
    args, extras = p.parse_known_args(argv)
    if extras:
        _unknown_options(p, extras)
    wrong = _nerva.check_options(pipeline_options(args), "flags")
    if wrong:
        p.error(wrong)
    try:
        args.expanded = expand_inputs(args.inputs, args.recursive)
    except InputsError as e:
        p.error(str(e))
    return args


def pipeline_options(args: argparse.Namespace) -> dict:
    """Keyword arguments of blobs_in_video; JSON-safe, recorded in the manifest."""
    from .video import resolve_preset
    opening, closing, min_pixels = resolve_preset(args.preset, args.masks, args.open, args.close, args.min_pixels)
    return dict(masks=args.masks, background=args.background, learning_rate=args.learning_rate,
                threshold=args.threshold, opening=opening, closing=closing,
                roi=list(args.roi) if args.roi else None, steps=list(args.steps),
                min_side=args.min_side, min_pixels=min_pixels, track=args.track,
                lines={name: [c for point in points for c in point] for name, points in args.line},
                zones={name: [list(point) for point in points] for name, points in args.zone})


def _check_reachable(address: str) -> None:
    """Refused connections fail at once, where Dask would retry them for its whole connect timeout."""
    from distributed.comm import parse_address, parse_host_port
    scheme, location = parse_address(address)  # ValueError for what is no address
    if scheme in ("tcp", "tls"):
        with socket.create_connection(parse_host_port(location), timeout=10):
            pass


# Dask's own bookkeeping, at its defaults, wakes every worker and the
# scheduler many times a second: a profiler sampling the running task's
# stack every 10 ms, an event-loop monitor every 20 ms, memory polled every
# 100 ms. With two workers idle that is 8% of a core; with every core
# segmenting it is taken from the segmentation (a 2-core run got 1.71x one
# worker with it, 1.81x without). The profiler feeds only Dask's dashboard,
# which is off; the monitors keep working, less often.
QUIET_DASK = {
    "distributed.worker.profile.enabled": False,
    "distributed.admin.tick.interval": "500ms",
    "distributed.admin.system-monitor.interval": "2s",
    "distributed.worker.memory.monitor-interval": "1s",
}


def local_cluster(workers: int):
    """The embedded cluster: `workers` single-threaded worker processes."""
    import logging

    import dask
    from distributed import LocalCluster
    # The scheduler serves a few HTTP routes even without its dashboard: on a
    # free port of the loopback, so that two runs at once do not both ask for
    # 8787 and the second warn about it.
    with dask.config.set(QUIET_DASK):  # the workers get the settings at their start
        return LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                            dashboard_address="127.0.0.1:0", silence_logs=logging.ERROR)


def connect(args: argparse.Namespace):
    from distributed import Client
    if args.scheduler is not None:
        _check_reachable(args.scheduler)
        return Client(args.scheduler), None
    cluster = local_cluster(args.workers or os.cpu_count() or 1)
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
    for key, value in QUIET_DASK.items():  # as Dask reads its settings from the environment
        os.environ.setdefault("DASK_" + key.upper().replace(".", "__").replace("-", "_"), str(value))
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
