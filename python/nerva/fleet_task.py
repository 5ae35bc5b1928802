"""The work of one nerva-fleet task, run on a worker: part of an input
segmented into a JSON Lines file that appears only once complete."""

import os
import tempfile
import time
from typing import List, Optional

_UMASK = os.umask(0)
os.umask(_UMASK)


def write_atomically(path: str, write) -> None:
    """Calls write(file) on a hidden temporary beside `path`, then renames it into place."""
    folder, name = os.path.split(path)
    fd, temporary = tempfile.mkstemp(prefix=f".{name}.", suffix=".tmp", dir=folder or ".")
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


def segment_piece(source: str, destination: str, options: dict, start: int = 0, stop: Optional[int] = None,
                  warmup: int = 0) -> dict:
    """Frames start..stop of `source` (stop excluded, None: to the end) as JSON lines in `destination`.

    Reading begins `warmup` frames earlier so the background has learned the
    scene by frame `start`; those frames are not written. Returns the piece's
    statistics, or {"error": reason} for an input that cannot be processed.
    """
    import cv2

    from .video import InputError, blobs_in_video, json_line

    # The cluster's parallelism is its worker processes: OpenCV's own threads
    # would only make the workers fight over the same cores.
    cv2.setNumThreads(1)
    _keep_frame_buffers()
    began = time.perf_counter()
    counts: List[int] = []
    tracked: dict = {}

    def write(f):
        for index, _, blobs, seconds in blobs_in_video(source, start=max(0, start - warmup), stop=stop,
                                                       with_time=True, **options):
            if index >= start:
                f.write(json_line(index, blobs, seconds))
                counts.append(len(blobs))
                tracked["counts"] = getattr(blobs, "counts", None)

    try:
        write_atomically(destination, write)
    except (InputError, ValueError, OSError, cv2.error) as e:
        return {"error": str(e).strip() or type(e).__name__}
    piece = {"frames": len(counts), "blobs": sum(counts), "max_blobs": max(counts, default=0),
             "seconds": time.perf_counter() - began}
    if tracked.get("counts"):
        piece["counts"] = tracked["counts"]  # running totals at the piece's last frame
    return piece
