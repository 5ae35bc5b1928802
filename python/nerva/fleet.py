"""nerva-fleet: nerva-blobs over many videos on a Dask cluster.

One task per input (a video, an image pattern or a folder of images or
masks), each writing OUTPUT/<name>.jsonl in nerva-blobs' JSON Lines format,
atomically: the lines go to a hidden temporary file renamed into place once
the input is complete, so an interrupted run never leaves a partial output
that looks finished. OUTPUT/manifest.json records per input its status,
frames, blobs per frame, time and options; a re-run skips the inputs already
done with the same options (--force redoes them).

By default an embedded local cluster runs one single-threaded worker process
per core; --scheduler ADDRESS uses an existing cluster instead (the inputs and
OUTPUT must then be the same paths on every worker, e.g. a shared file
system, and nerva installed on each). A worker that dies mid-input loses
nothing: the scheduler reruns the task elsewhere.

Exit status: 0 when every input is done, 1 when any failed, 2 for a bad
command line.
"""

import argparse
import json
import os
import sys
import time
import uuid
from typing import Dict, List, Optional, Tuple

from .fleet_task import segment_piece, write_atomically

MANIFEST = "manifest.json"
VIDEO_SUFFIXES = (".avi", ".mp4", ".mkv", ".mov", ".m4v", ".mpg", ".mpeg", ".webm", ".wmv", ".flv", ".ts")


# ---- inputs, options and the manifest (client side) ----

def _is_video_name(path: str) -> bool:
    return os.path.splitext(path)[1].lower() in VIDEO_SUFFIXES


def expand_inputs(paths: List[str]) -> List[Tuple[str, str]]:
    """(name, source) per task. A folder holding images is one image sequence;
    any other folder gives its videos and its sub-folders of images."""
    from .video import is_image_name

    def holds_images(folder):
        return any(is_image_name(e.name) for e in os.scandir(folder) if e.is_file())

    sources = []
    for path in paths:
        if os.path.isdir(path) and not holds_images(path):
            for entry in sorted(os.scandir(path), key=lambda e: e.name):
                if entry.is_file() and _is_video_name(entry.name):
                    sources.append(entry.path)
                elif entry.is_dir() and holds_images(entry.path):
                    sources.append(entry.path)
        else:
            sources.append(path)  # missing or unreadable inputs fail as tasks, with their reason
    named = []
    for source in sources:
        base = os.path.basename(os.path.normpath(source.split("%")[0] if "%" in source else source))
        name = os.path.splitext(base)[0] if not os.path.isdir(source) else base
        named.append((name or "input", source))
    return named


def load_manifest(path: str) -> Dict[str, dict]:
    try:
        with open(path) as f:
            return json.load(f).get("inputs", {})
    except FileNotFoundError:
        return {}
    except (OSError, ValueError) as e:
        raise SystemExit(f"nerva-fleet: cannot read the manifest '{path}': {e}")


def save_manifest(path: str, entries: Dict[str, dict]) -> None:
    write_atomically(path, lambda f: json.dump({"inputs": entries}, f, indent=1, sort_keys=True))


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
    p = argparse.ArgumentParser(prog="nerva-fleet", description=__doc__.split("\n\n")[0],
                                epilog="Foreground and segmentation options mean what they mean to nerva-blobs.")
    p.add_argument("inputs", nargs="+", metavar="INPUT",
                   help="videos, image patterns (frames/img_%%04d.png), folders of images, or folders of videos")
    p.add_argument("-o", "--output", required=True, metavar="DIR", help="folder for <name>.jsonl and manifest.json")
    p.add_argument("--scheduler", metavar="ADDRESS", help="an existing Dask scheduler, e.g. tcp://10.0.0.5:8786")
    p.add_argument("--workers", type=_count(1), help="local cluster: worker processes (default: one per core)")
    p.add_argument("--force", action="store_true", help="redo inputs the manifest lists as done")
    p.add_argument("--chunk", type=_count(1), metavar="N",
                   help="split videos into chunks of N frames (not exact with a background model: see README)")
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
    g = p.add_argument_group("tracking (as nerva-blobs; the manifest gives each input's counts)")
    g.add_argument("--track", action="store_true", help="track identities across frames")
    g.add_argument("--line", type=_named_points(2, 2), action="append", default=[], metavar="NAME:x1,y1,x2,y2")
    g.add_argument("--zone", type=_named_points(3, 16), action="append", default=[], metavar="NAME:x1,y1;x2,y2;...")
    args = p.parse_args(argv)
    if args.threshold > 255:
        p.error("--threshold: must lie between 0 and 255")
    if args.masks and args.background == "mog2":
        p.error("--masks and --background mog2 exclude each other: masks need no background")
    names = [name for name, _ in expand_inputs(args.inputs)]
    twice = sorted({n for n in names if names.count(n) > 1})
    if twice:
        p.error("several inputs would write " + ", ".join(f"{n}.jsonl" for n in twice))
    return args


def pipeline_options(args: argparse.Namespace) -> dict:
    """Keyword arguments of blobs_in_video; JSON-safe, recorded in the manifest."""
    return dict(masks=args.masks, background=args.background, learning_rate=args.learning_rate,
                threshold=args.threshold, opening=args.open, closing=args.close,
                roi=list(args.roi) if args.roi else None, steps=list(args.steps),
                min_side=args.min_side, min_pixels=args.min_pixels, track=args.track,
                lines={name: [c for point in points for c in point] for name, points in args.line},
                zones={name: [list(point) for point in points] for name, points in args.zone})


# ---- the run ----

class Report:
    """Progress line and failures on standard error as they happen; summary at the end."""

    def __init__(self, total: int, live: bool):
        self.total, self.live, self.done, self.frames = total, live, 0, 0
        self.began = time.perf_counter()

    def piece_done(self, frames: int) -> None:
        """Frames of a finished task (a whole input or a chunk)."""
        self.frames += frames
        self._show()

    def finished(self, name: str, entry: dict) -> None:
        self.done += 1
        if entry["status"] == "failed":
            self._clear()
            print(f"nerva-fleet: {name}: failed: {entry['reason']}", file=sys.stderr, flush=True)
        self._show()

    def _show(self) -> None:
        if self.live:
            fps = self.frames / max(time.perf_counter() - self.began, 1e-9)
            print(f"\r{self.done}/{self.total} inputs, {fps:.0f} frames/s over the cluster ",
                  end="", file=sys.stderr, flush=True)

    def _clear(self) -> None:
        if self.live:
            print("\r\033[K", end="", file=sys.stderr)

    def summary(self, entries: Dict[str, dict], names: List[str]) -> None:
        self._clear()
        rows = [("input", "status", "frames", "blobs/frame", "max", "seconds", "fps")]
        for name in names:
            e = entries[name]
            if e["status"] == "failed":
                rows.append((name, "failed", "", "", "", "", ""))
            else:
                rows.append((name, e["status"], str(e["frames"]), f"{e['blobs_per_frame_mean']:.2f}",
                             str(e["blobs_per_frame_max"]), f"{e['seconds']:.1f}", f"{e['fps']:.0f}"))
        widths = [max(len(r[i]) for r in rows) for i in range(len(rows[0]))]
        for r in rows:
            print("  ".join(c.ljust(w) if i < 2 else c.rjust(w) for i, (c, w) in enumerate(zip(r, widths))),
                  file=sys.stderr)
        for name in names:
            if entries[name]["status"] == "failed":
                print(f"{name}: {entries[name]['reason']}", file=sys.stderr)
        elapsed = time.perf_counter() - self.began
        print(f"{self.frames} frames in {elapsed:.1f} s: {self.frames / max(elapsed, 1e-9):.0f} frames/s",
              file=sys.stderr)


def _pieces(source: str, output: str, name: str, chunk: Optional[int], warmup: int) -> List[Tuple[str, int, Optional[int], int]]:
    """(destination, start, stop, warmup) per task: one piece, or chunks of a video of known length."""
    from .video import InputError, frame_count
    final = os.path.join(output, f"{name}.jsonl")
    try:
        count = frame_count(source) if chunk else -1
    except (InputError, ValueError, OSError):
        count = -1  # the task reports why
    if not chunk or count <= chunk:
        return [(final, 0, None, 0)]
    starts = list(range(0, count, chunk))
    return [(os.path.join(output, f".{name}.part{k:05d}.jsonl"), s, s + chunk if k < len(starts) - 1 else None,
             warmup) for k, s in enumerate(starts)]


def _join_parts(parts: List[str], destination: str) -> None:
    def write(f):
        for part in parts:
            with open(part) as p:
                f.write(p.read())
    write_atomically(destination, write)
    for part in parts:
        os.unlink(part)


def _summed_counts(pieces: List[dict]) -> dict:
    """Line and zone counts of a video's pieces added up (each piece tracks on its own)."""
    total: dict = {}
    for counts in pieces:
        for name, values in counts.items():
            for key, value in values.items():
                total.setdefault(name, {}).setdefault(key, 0)
                total[name][key] += value
    return total


def run_fleet(client, args: argparse.Namespace) -> int:
    """Runs every input of `args` on the cluster behind `client`; returns the exit status."""
    from distributed import as_completed

    os.makedirs(args.output, exist_ok=True)
    manifest_path = os.path.join(args.output, MANIFEST)
    entries = load_manifest(manifest_path)
    options = pipeline_options(args)
    recorded = dict(options, chunk=args.chunk, warmup=args.warmup if args.chunk else None)
    inputs = expand_inputs(args.inputs)
    report = Report(len(inputs), args.progress or sys.stderr.isatty())

    futures, pieces_of, results = {}, {}, {}
    for name, source in inputs:
        old = entries.get(name)
        if (not args.force and old and old["status"] in ("done", "skipped") and old.get("options") == recorded
                and old.get("input") == source and os.path.exists(os.path.join(args.output, f"{name}.jsonl"))):
            entries[name] = dict(old, status="skipped")
            report.finished(name, entries[name])
            continue
        pieces = _pieces(source, args.output, name, args.chunk, args.warmup)
        pieces_of[name] = (source, pieces)
        results[name] = []
        for destination, start, stop, warmup in pieces:
            future = client.submit(segment_piece, source, destination, options, start, stop, warmup,
                                   key=f"nerva-{name}-{start}-{uuid.uuid4().hex}", pure=False)
            futures[future] = name

    for future in as_completed(list(futures)):
        name = futures[future]
        try:
            result = future.result()
        except Exception as e:  # the cluster gave up on the task (e.g. it killed too many workers)
            result = {"error": f"{type(e).__name__}: {e}"}
        results[name].append(result)
        report.piece_done(result.get("frames", 0))
        source, pieces = pieces_of[name]
        if len(results[name]) < len(pieces):
            continue
        errors = [r["error"] for r in results[name] if "error" in r]
        if errors:
            entry = {"status": "failed", "reason": errors[0]}
        else:
            if len(pieces) > 1:
                _join_parts([p[0] for p in pieces], os.path.join(args.output, f"{name}.jsonl"))
            frames = sum(r["frames"] for r in results[name])
            seconds = sum(r["seconds"] for r in results[name])
            entry = {"status": "done", "frames": frames,
                     "blobs_per_frame_mean": sum(r["blobs"] for r in results[name]) / max(frames, 1),
                     "blobs_per_frame_max": max(r["max_blobs"] for r in results[name]),
                     "seconds": seconds, "fps": frames / seconds if seconds > 0 else 0.0}
            if any("counts" in r for r in results[name]):
                entry["counts"] = _summed_counts([r.get("counts") or {} for r in results[name]])
        entries[name] = dict(entry, input=source, output=f"{name}.jsonl", options=recorded)
        save_manifest(manifest_path, entries)
        report.finished(name, entries[name])

    save_manifest(manifest_path, entries)
    _remove_leftovers(args.output, [name for name, _ in inputs])
    if not args.quiet:
        report.summary(entries, [name for name, _ in inputs])
    return 1 if any(entries[name]["status"] == "failed" for name, _ in inputs) else 0


def _remove_leftovers(output: str, names: List[str]) -> None:
    """Temporaries of attempts that died with their worker, and parts of failed chunked inputs."""
    prefixes = tuple(f".{name}." for name in names)
    for entry in os.scandir(output):
        if entry.name.startswith(prefixes) and entry.name.endswith((".tmp", ".jsonl")):
            try:
                os.unlink(entry.path)
            except FileNotFoundError:
                pass


def connect(args: argparse.Namespace):
    import logging

    from distributed import Client, LocalCluster
    if args.scheduler:
        return Client(args.scheduler), None
    cluster = LocalCluster(n_workers=args.workers or os.cpu_count() or 1, threads_per_worker=1, processes=True,
                           dashboard_address=None, silence_logs=logging.ERROR)
    return Client(cluster), cluster


def main(argv: Optional[List[str]] = None) -> int:
    args = parse_arguments(argv)
    try:
        client, cluster = connect(args)
    except OSError as e:
        print(f"nerva-fleet: cannot reach the scheduler {args.scheduler}: {e}", file=sys.stderr)
        return 1
    try:
        return run_fleet(client, args)
    except KeyboardInterrupt:
        print("\nnerva-fleet: interrupted; finished inputs are kept, a re-run resumes", file=sys.stderr)
        return 1
    finally:
        client.close()
        if cluster is not None:
            cluster.close()


if __name__ == "__main__":
    sys.exit(main())
