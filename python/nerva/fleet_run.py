"""One nerva-fleet run on a Dask cluster: inputs probed, split into pieces,
segmented longest first, joined, recorded in the manifest and on the page."""

import argparse
import os
import sys
import time
import uuid
from typing import Dict, List, Optional

from .fleet_inputs import Input, expand_inputs, identity
from .fleet_output import OutputFolder
from .fleet_page import render
from .fleet_task import probe, segment_piece

# Masks are split into pieces of at least this many frames: below it, the
# seek that starts a piece costs more than the piece.
MIN_PIECE = 250
# Pieces per worker a split aims at: enough that the last ones to finish are
# short, few enough that scheduling stays cheap.
PIECES_PER_WORKER = 4
FINISHED = ("done", "partial", "skipped")


class Piece:
    def __init__(self, destination: str, start: int, stop: Optional[int], warmup: int):
        self.destination, self.start, self.stop, self.warmup = destination, start, stop, warmup
        self.result: Optional[dict] = None


class Job:
    """An input of this run: its manifest key, metadata and pieces."""

    def __init__(self, item: Input, output: str):
        from .video import is_live_source
        self.name, self.source = item
        # Workers may run in another folder, or on another machine where the
        # shared paths are the same but the client's folder is not.
        self.where = item.source if is_live_source(item.source) else os.path.abspath(item.source)
        self.final = os.path.join(output, item.name + ".jsonl")
        self.identity = identity(item.source)
        self.info: dict = {}
        self.pieces: List[Piece] = []
        self.serial = False  # pieces did not join exactly: redone whole

    @property
    def announced(self) -> Optional[int]:
        return self.info.get("announced_frames")


def is_partial(entry: dict) -> bool:
    """Fewer frames decoded than the container announced (done now, or by the run whose result was kept)."""
    return entry.get("status") in FINISHED and (entry.get("announced_frames") or 0) > entry.get("frames", 0)


class Report:
    """Progress line, failures and partial inputs on standard error as they happen; summary at the end."""

    def __init__(self, total: int, live: bool):
        self.total, self.live, self.done, self.frames = total, live, 0, 0
        self.began = time.perf_counter()

    def piece_done(self, frames: int) -> None:
        self.frames += frames
        self._show()

    def finished(self, name: str, entry: dict) -> None:
        self.done += 1
        if entry["status"] == "failed":
            self._say(f"nerva-fleet: {name}: failed: {entry['reason']}")
        elif entry["status"] == "partial":
            self._say(f"nerva-fleet: {name}: partial: announced {entry['announced_frames']} frames, "
                      f"only {entry['frames']} could be decoded")
        self._show()

    def _say(self, line: str) -> None:
        self._clear()
        print(line, file=sys.stderr, flush=True)

    def _show(self) -> None:
        if self.live:
            fps = self.frames / max(time.perf_counter() - self.began, 1e-9)
            print(f"\r{self.done}/{self.total} inputs, {fps:.0f} frames/s over the cluster ",
                  end="", file=sys.stderr, flush=True)

    def _clear(self) -> None:
        if self.live:
            print("\r\033[K", end="", file=sys.stderr)

    def summary(self, entries: List[dict], names: List[str]) -> None:
        self._clear()
        rows = [("input", "status", "frames", "blobs/frame", "max", "seconds", "fps")]
        for name, e in zip(names, entries):
            if e["status"] == "failed":
                rows.append((name, "failed", "", "", "", "", ""))
                continue
            frames = str(e["frames"]) + (f" of {e['announced_frames']}" if is_partial(e) else "")
            rows.append((name, e["status"], frames, f"{e['blobs_per_frame_mean']:.2f}",
                         str(e["blobs_per_frame_max"]), f"{e['seconds']:.1f}", f"{e['fps']:.0f}"))
        widths = [max(len(r[i]) for r in rows) for i in range(len(rows[0]))]
        for r in rows:
            print("  ".join(c.ljust(w) if i < 2 else c.rjust(w) for i, (c, w) in enumerate(zip(r, widths))),
                  file=sys.stderr)
        for name, e in zip(names, entries):
            if e["status"] == "failed":
                print(f"{name}: {e['reason']}", file=sys.stderr)
        partial = sum(is_partial(e) for e in entries)
        if partial:
            print(f"{partial} input(s) partial: their files hold fewer frames than they announce", file=sys.stderr)
        elapsed = time.perf_counter() - self.began
        print(f"{self.frames} frames in {elapsed:.1f} s: {self.frames / max(elapsed, 1e-9):.0f} frames/s",
              file=sys.stderr)


def _plan(job: Job, temporaries: str, piece: Optional[int], warmup: int) -> None:
    """One piece, or pieces of `piece` frames when the input is known to be longer."""
    count = job.announced or 0
    if not piece or job.serial or count <= piece * 3 // 2:
        job.pieces = [Piece(job.final, 0, None, 0)]
        return
    starts = list(range(0, count, piece))
    part = os.path.join(temporaries, uuid.uuid4().hex)
    job.pieces = [Piece(f"{part}.{k:05d}.jsonl", s, s + piece if k < len(starts) - 1 else None, warmup)
                  for k, s in enumerate(starts)]


def _joined_exactly(job: Job) -> bool:
    """Whether consecutive pieces of a video are consecutive frames of the
    stream: a seek that lands a frame off would show as a gap or an overlap
    in the stream times where two pieces meet."""
    if job.info.get("codec") == "image files":
        return True  # one file per frame: no seek involved
    rate = job.info.get("frame_rate")
    results = [p.result for p in job.pieces]
    for (a, b), r in zip(zip(job.pieces, job.pieces[1:]), zip(results, results[1:])):
        ra, rb = r
        if ra["frames"] < b.start - a.start:
            if rb["frames"]:
                return False  # a short piece must be the file's end
            continue
        if not rb["frames"]:
            continue
        if not rate or rb.get("first_time") is None or ra.get("last_time") is None:
            return False
        if not 0.5 / rate < rb["first_time"] - ra["last_time"] < 1.5 / rate:
            return False
    return True


def _join(job: Job, folder: OutputFolder) -> None:
    def write(f):
        for piece in job.pieces:
            with open(piece.destination) as p:
                f.write(p.read())
    folder.write(job.final, write)
    for piece in job.pieces:
        os.unlink(piece.destination)


def _entry(job: Job, recorded: dict, version: str) -> dict:
    """The manifest's record of a finished input."""
    from .fleet_inputs import resolved
    results = [p.result for p in job.pieces]
    base = dict(input=job.source, output=job.name + ".jsonl", options=recorded, nerva_version=version,
                size=job.identity["size"], mtime_ns=job.identity["mtime_ns"], path=resolved(job.source),
                pieces=len(job.pieces))
    base.update(job.info)
    errors = [r["error"] for r in results if "error" in r]
    if errors:
        return dict(base, status="failed", reason=errors[0])
    frames = sum(r["frames"] for r in results)
    seconds = sum(r["seconds"] for r in results)
    blobs = sum(r["blobs"] for r in results)
    status = "partial" if (job.announced or 0) > frames and job.info.get("codec") != "image files" else "done"
    entry = dict(base, status=status, frames=frames, blobs=blobs, blobs_per_frame_mean=blobs / max(frames, 1),
                 blobs_per_frame_max=max(r["max_blobs"] for r in results), seconds=seconds,
                 fps=frames / seconds if seconds > 0 else 0.0)
    if any("counts" in r for r in results):
        entry["counts"] = _summed_counts([r.get("counts") or {} for r in results])
    return entry


def _summed_counts(pieces: List[dict]) -> dict:
    """Line and zone counts of an input's pieces added up (each piece tracks on its own)."""
    total: dict = {}
    for counts in pieces:
        for name, values in counts.items():
            for key, value in values.items():
                total.setdefault(name, {}).setdefault(key, 0)
                total[name][key] += value
    return total


def _page_row(job_name: str, entry: Optional[dict]) -> dict:
    if entry is None:
        return {"name": job_name, "state": "waiting"}
    return dict(entry, name=job_name, state=entry["status"])


def run_fleet(client, args: argparse.Namespace, folder: Optional[OutputFolder] = None) -> int:
    """Runs every input of `args` on the cluster behind `client`; returns the exit status.

    Without `folder`, opens (and locks) args.output for the run's duration."""
    if folder is None:
        folder = OutputFolder(args.output)
        try:
            return run_fleet(client, args, folder)
        finally:
            folder.close()
    from distributed import as_completed

    from . import __version__
    from .fleet import pipeline_options

    entries = folder.entries
    options = pipeline_options(args)
    recorded = dict(options, chunk=args.chunk, warmup=args.warmup if args.chunk else None)
    jobs = [Job(item, folder.path) for item in getattr(args, "expanded", None) or
            expand_inputs(args.inputs, args.recursive)]
    report = Report(len(jobs), args.progress or sys.stderr.isatty())
    page = Page(folder, jobs)
    finished: Dict[str, dict] = {}
    unsaved: Optional[OSError] = None

    def record(job: Job, entry: dict) -> None:
        nonlocal unsaved
        finished[job.name] = entries[job.identity["path"]] = entry
        try:
            folder.save_manifest(entries)
            unsaved = None
        except OSError as e:  # a full disk: told once, tried again at each input and at the end
            if unsaved is None:
                report._say(f"nerva-fleet: cannot write the manifest '{folder.manifest_path}': {e.strerror}")
            unsaved = e
        report.finished(job.name, entry)
        page.update(finished)

    todo = []
    for job in jobs:
        old = entries.get(job.identity["path"])
        if (not args.force and old and old.get("status") in FINISHED and old.get("options") == recorded
                and old.get("output") == job.name + ".jsonl" and old.get("size") == job.identity["size"]
                and old.get("mtime_ns") == job.identity["mtime_ns"] and os.path.exists(job.final)):
            record(job, dict(old, status="skipped" if not is_partial(old) else "partial", input=job.source))
        else:
            todo.append(job)
    page.update(finished, force=True)

    probes = client.map(probe, [job.where for job in todo], key=[f"nerva-probe-{uuid.uuid4().hex}" for _ in todo],
                        pure=False)
    for job, future in zip(todo, probes):
        try:
            job.info = future.result()
        except Exception:  # the cluster gave up on it: the segmentation task will say why
            job.info = {}
    workers = max(1, sum(client.nthreads().values()))
    if args.chunk:
        piece = args.chunk
    elif args.masks:  # no background state: pieces join exactly
        total = sum(job.announced or 0 for job in todo)
        piece = max(MIN_PIECE, -(-total // (workers * PIECES_PER_WORKER)))
    else:
        piece = None

    futures = {}

    def frames(job: Job, p: Piece) -> int:
        return (p.stop if p.stop is not None else job.announced or 0) - p.start

    def submit(job: Job, pieces: List[Piece]) -> None:
        os.makedirs(os.path.dirname(job.final), exist_ok=True)
        for p in pieces:
            # Longest first: the last tasks to finish are then short ones.
            future = client.submit(segment_piece, job.where, p.destination, folder.temporaries, options, p.start,
                                   p.stop, p.warmup, key=f"nerva-{job.name}-{p.start}-{uuid.uuid4().hex}",
                                   pure=False, priority=frames(job, p))
            futures[future] = (job, p)

    for job in todo:
        _plan(job, folder.temporaries, piece, args.warmup)
    # The scheduler hands the first tasks it hears of to the workers at
    # once, whatever their priority: they must be the longest.
    for job, p in sorted(((job, p) for job in todo for p in job.pieces), key=lambda jp: -frames(*jp)):
        submit(job, [p])
    running = as_completed(list(futures))
    for future in running:
        job, p = futures.pop(future)
        try:
            p.result = future.result()
        except Exception as e:  # the cluster gave up on the task (e.g. it killed too many workers)
            p.result = {"error": f"{type(e).__name__}: {e}"}
        report.piece_done(p.result.get("frames", 0))
        if any(q.result is None for q in job.pieces):
            continue
        if len(job.pieces) > 1 and not any("error" in q.result for q in job.pieces):
            if not _joined_exactly(job):
                for q in job.pieces:
                    os.unlink(q.destination)
                job.serial = True
                _plan(job, folder.temporaries, None, 0)
                submit(job, job.pieces)
                running.update([f for f, (j, _) in futures.items() if j is job])
                continue
            _join(job, folder)
        record(job, _entry(job, recorded, __version__))

    page.update(finished, done=True)
    status = 0
    if unsaved is not None:
        try:
            folder.save_manifest(entries)
        except OSError as e:
            print(f"nerva-fleet: cannot write the manifest '{folder.manifest_path}': {e.strerror}; "
                  "the outputs written are complete, a re-run redoes them", file=sys.stderr)
            status = 1
    results = [finished[job.name] for job in jobs]
    if not args.quiet:
        report.summary(results, [job.name for job in jobs])
    if any(e["status"] == "failed" for e in results):
        return 1
    if not args.allow_partial and any(is_partial(e) for e in results):
        return 1
    return status


class Page:
    """OUTPUT/index.html, rewritten at most once a second while the run goes on, and at its end."""

    def __init__(self, folder: OutputFolder, jobs: List[Job]):
        self.folder, self.names = folder, [job.name for job in jobs]
        self.began = self.last = time.perf_counter()
        self.failed = False

    def update(self, finished: Dict[str, dict], force: bool = False, done: bool = False) -> None:
        now = time.perf_counter()
        if not (force or done or now - self.last >= 1.0) or (self.failed and not done):
            return
        self.last = now
        text = render([_page_row(name, finished.get(name)) for name in self.names], done, self.began)
        try:
            self.folder.write(os.path.join(self.folder.path, "index.html"), lambda f: f.write(text))
        except OSError as e:  # the page is a view: the run goes on without it
            if not self.failed:
                print(f"nerva-fleet: cannot write the page '{self.folder.path}/index.html': {e.strerror}",
                      file=sys.stderr)
            self.failed = True
