"""The work of nerva-fleet's tasks, run on the workers: what an input is
(probe), and part of an input segmented into a JSON Lines file that appears
only once complete (segment_piece)."""

import datetime
import os
import tempfile
import time
from typing import List, Optional

_UMASK = os.umask(0)
os.umask(_UMASK)


def write_atomically(path: str, write, temporaries: str) -> None:
    """Calls write(file) on a temporary in the folder `temporaries` (on the
    same file system as `path`), then renames it into place."""
    fd, temporary = tempfile.mkstemp(prefix=os.path.basename(path) + ".", dir=temporaries)
    try:
        os.chmod(temporary, 0o666 & ~_UMASK)  # as open() would have made it
        with os.fdopen(fd, "w") as f:
            write(f)
            f.flush()
            os.fsync(f.fileno())
        os.replace(temporary, path)
    except BaseException:
        os.unlink(temporary)
        raise


def _keep_frame_buffers() -> None:
    """Undoes, for this worker process, the malloc tuning Dask's nanny sets.

    The nanny starts workers with MALLOC_TRIM_THRESHOLD_=65536, which also
    fixes glibc's mmap threshold: every decoded frame and mask (hundreds of
    kilobytes) is then mapped and unmapped, page faults included, which
    halves a worker's frame rate. Buffers of a video's frames are reused
    frame after frame, so keeping them is what one wants here.
    """
    import ctypes
    try:
        libc = ctypes.CDLL("libc.so.6")
    except OSError:
        return  # not glibc: nothing to undo
    M_TRIM_THRESHOLD, M_MMAP_THRESHOLD = -1, -3
    libc.mallopt(M_MMAP_THRESHOLD, 32 << 20)
    libc.mallopt(M_TRIM_THRESHOLD, 256 << 20)


def segment_piece(source: str, destination: str, temporaries: str, options: dict, start: int = 0,
                  stop: Optional[int] = None, warmup: int = 0) -> dict:
    """Frames start..stop of `source` (stop excluded, None: to the end) as JSON lines in `destination`.

    Reading begins `warmup` frames earlier so the background has learned the
    scene by frame `start`; those frames are not written. Returns the piece's
    statistics (with the stream times of its first and last frames, which
    tell whether pieces join exactly), or {"error": reason} for an input that
    cannot be processed.
    """
    import cv2

    from ._nerva import Tracker
    from .video import InputError, blobs_in_video, json_line, stream_fps

    # The cluster's parallelism is its worker processes: OpenCV's own threads
    # would only make the workers fight over the same cores.
    cv2.setNumThreads(1)
    _keep_frame_buffers()
    began = time.perf_counter()
    counts: List[int] = []
    times: dict = {}
    tracked: dict = {}
    # The tracker is kept here, not in blobs_in_video, so that each line can
    # carry its tracks as the program writes them.
    tracking = {key: options[key] for key in ("lines", "zones") if options.get(key)}
    tracking_on = bool(options.get("track") or tracking)
    options = {key: value for key, value in options.items() if key not in ("track", "lines", "zones")}

    def write(f):
        tracker = None
        # Zone exits give their dwell in seconds at the stream's rate, as the program does.
        fps = stream_fps(source, masks=bool(options.get("masks"))) if tracking.get("zones") else 0.0
        for index, frame, blobs, seconds in blobs_in_video(source, start=max(0, start - warmup), stop=stop,
                                                           with_time=True, **options):
            if tracking_on:
                if tracker is None:
                    tracker = Tracker(frame.shape[1], frame.shape[0], **tracking)
                tracker.update(blobs, index)
                tracked["counts"] = tracker.counts
            if index >= start:
                f.write(json_line(index, blobs, seconds, tracker=tracker, fps=fps))
                counts.append(len(blobs))
                times.setdefault("first_time", seconds)
                times["last_time"] = seconds

    try:
        write_atomically(destination, write, temporaries)
    except (InputError, ValueError, OSError, cv2.error) as e:
        return {"error": str(e).strip() or type(e).__name__}
    # Per-video counts of other kinds (tracks, crossings) join these fields.
    piece = {"frames": len(counts), "blobs": sum(counts), "max_blobs": max(counts, default=0),
             "seconds": time.perf_counter() - began, **times}
    if tracked.get("counts"):
        piece["counts"] = tracked["counts"]  # running totals at the piece's last frame
    return piece


def probe(source: str) -> dict:
    """What the input is, as far as it can be known before decoding it: size,
    codec, frame rate, announced frames, duration and start time. Missing
    fields are unknown; an input that cannot be opened gives {} (its task
    says why)."""
    import cv2

    from .fleet_inputs import sequence_files
    from .video import _cv2

    _cv2()  # FFmpeg's chatter off
    files = sequence_files(source)
    if files is not None:
        first = cv2.imread(files[0], cv2.IMREAD_UNCHANGED)
        info = {"codec": "image files", "announced_frames": len(files)}
        if first is not None:
            info.update(width=int(first.shape[1]), height=int(first.shape[0]))
        return dict(info, **_start_time(files[0], None))
    capture = cv2.VideoCapture(source, cv2.CAP_FFMPEG)
    if not capture.isOpened():
        return {}
    try:
        fps = capture.get(cv2.CAP_PROP_FPS)
        count = int(capture.get(cv2.CAP_PROP_FRAME_COUNT))
        fourcc = int(capture.get(cv2.CAP_PROP_FOURCC))
        info = {"width": int(capture.get(cv2.CAP_PROP_FRAME_WIDTH)),
                "height": int(capture.get(cv2.CAP_PROP_FRAME_HEIGHT)),
                "frame_rate": fps if fps > 0 else None, "announced_frames": count if count > 0 else None,
                "duration": count / fps if count > 0 and fps > 0 else None}
    finally:
        capture.release()
    container = _container_tags(source)
    info["codec"] = container.get("codec") or "".join(chr((fourcc >> 8 * k) & 0xFF) for k in range(4)).strip()
    return dict(info, **_start_time(source, container.get("creation_time")))


def _container_tags(source: str) -> dict:
    """The codec's name and the recording's creation time, as ffprobe gives them."""
    from ._nerva import _container_tags
    return _container_tags(source)


def _start_time(path: str, creation_time: Optional[str]) -> dict:
    if creation_time:
        return {"start_time": creation_time, "start_time_from": "container"}
    mtime = os.stat(path).st_mtime
    stamp = datetime.datetime.fromtimestamp(mtime, datetime.timezone.utc).isoformat().replace("+00:00", "Z")
    return {"start_time": stamp, "start_time_from": "file modification time"}
