"""nerva: blob segmentation of foreground masks, from Python.

A foreground mask (2-D numpy array of uint8 or bool, non-zero = foreground)
goes in; its 4-connected regions come out as column arrays (boxes, pixel
counts, centroids, shape measures on request), computed by the C++ library
without copying the mask.

Segmenter         one per stream of masks of one frame size
Blobs             the blobs of one frame (column arrays, as_cv2_stats())
blobs()           one mask, one call
blobs_in_video()  nerva-blobs' change-detection pipeline as a generator
Tracker           persistent identities over Blobs, with counting lines and zones

Examples
--------
>>> import numpy as np, nerva
>>> mask = np.zeros((480, 640), np.uint8)
>>> mask[100:160, 50:80] = 255
>>> seg = nerva.Segmenter(640, 480, min_pixels=20)
>>> seg.segment(mask).bbox
array([[ 50, 100,  79, 159]], dtype=int32)
"""

import collections
import threading
from typing import Optional, Tuple

from ._nerva import AverageBackground, Blob, Blobs, Segmenter, Track, Tracker, __version__
from .video import InputError, blobs_in_video, is_live_source, json_line

__all__ = ["AverageBackground", "Blob", "Blobs", "InputError", "Segmenter", "Track", "Tracker", "blobs", "blobs_in_video",
           "is_live_source", "json_line", "__version__"]

# Segmenters kept for blobs(), by frame size and options: building one costs
# far more than segmenting a frame (its pools hold some 13 MB). Each is lent
# to one call at a time, so threads never wait for each other; the least
# recently used are let go beyond the limit.
_IDLE_LIMIT = 4
_idle = collections.OrderedDict()
_idle_lock = threading.Lock()


def _borrow(key):
    with _idle_lock:
        free = _idle.get(key)
        if free:
            segmenter = free.pop()
            if free:
                _idle.move_to_end(key)
            else:
                del _idle[key]  # eviction pops from the oldest key, which must hold one
            return segmenter
    width, height, roi, steps, min_side, min_pixels, measures, pool_full, memory_ceiling = key
    return Segmenter(width, height, roi=roi, steps=steps, min_side=min_side, min_pixels=min_pixels,
                     measures=measures, pool_full=pool_full, memory_ceiling=memory_ceiling)


def _give_back(key, segmenter) -> None:
    with _idle_lock:
        _idle.setdefault(key, []).append(segmenter)
        _idle.move_to_end(key)
        while sum(len(free) for free in _idle.values()) > _IDLE_LIMIT:
            oldest = next(iter(_idle))
            _idle[oldest].pop(0)
            if not _idle[oldest]:
                del _idle[oldest]


def blobs(mask, *, roi: Optional[Tuple[int, int, int, int]] = None, steps: Tuple[int, int] = (1, 1),
          min_side: int = 0, min_pixels: int = 0, measures: bool = False, pool_full: str = "warn",
          memory_ceiling: int = 0) -> Blobs:
    """Segments one mask: the blobs of ``Segmenter(width, height, **options).segment(mask)``.

    The segmenter is kept for the next call with the same frame size and
    options (a few are kept, any thread may use them), so calling this once per
    frame costs about what a Segmenter of one's own does.

    Parameters
    ----------
    mask : numpy.ndarray
        2-D uint8 or bool, non-zero = foreground.
    roi, steps, min_side, min_pixels, measures, pool_full, memory_ceiling
        As for :class:`Segmenter`.

    Returns
    -------
    Blobs

    Examples
    --------
    >>> import numpy as np, nerva
    >>> mask = np.zeros((4, 6), bool)
    >>> mask[1:3, 2:5] = True
    >>> b = nerva.blobs(mask, measures=True)
    >>> b.bbox.tolist(), b.npix.tolist(), b.perimeter.tolist(), b.boundary_edges.tolist()
    ([[2, 1, 4, 2]], [6], [6.0], [10])
    >>> stats, centroids = b.as_cv2_stats()
    >>> stats.tolist()
    [[2, 1, 3, 2, 6]]
    """
    shape = getattr(mask, "shape", None)
    if shape is None or len(shape) != 2:
        # Let the segmenter name the problem.
        return Segmenter(1, 1).segment(mask)
    height, width = shape
    key = (width, height, None if roi is None else tuple(roi), tuple(steps), min_side, min_pixels, bool(measures),
           pool_full, memory_ceiling)
    segmenter = _borrow(key)
    try:
        return segmenter.segment(mask)
    finally:
        _give_back(key, segmenter)
