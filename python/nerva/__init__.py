"""nerva: blob segmentation of foreground masks, from Python.

A foreground mask (2-D numpy array of uint8 or bool, non-zero = foreground)
goes in; its 4-connected regions come out as column arrays (boxes, pixel
counts, centroids), computed by the C++ library without copying the mask.

    >>> import numpy as np, nerva
    >>> mask = np.zeros((480, 640), np.uint8); mask[100:160, 50:80] = 255
    >>> seg = nerva.Segmenter(640, 480, min_pixels=20)
    >>> blobs = seg.segment(mask)
    >>> blobs.bbox
    array([[ 50, 100,  79, 159]], dtype=int32)

Segmenter    one per stream of masks of one frame size
Blobs        the blobs of one frame (column arrays, as_cv2_stats())
blobs()      one mask, one call
blobs_in_video()  nerva-blobs' change-detection pipeline as a generator
Tracker      persistent identities over Blobs, with counting lines and zones
"""

from typing import Optional, Tuple

from ._nerva import AverageBackground, Blob, Blobs, Segmenter, Track, Tracker, __version__
from .video import InputError, blobs_in_video, is_live_source, json_line

__all__ = ["AverageBackground", "Blob", "Blobs", "InputError", "Segmenter", "Track", "Tracker", "blobs", "blobs_in_video",
           "is_live_source", "json_line", "__version__"]


def blobs(mask, *, roi: Optional[Tuple[int, int, int, int]] = None, steps: Tuple[int, int] = (1, 1),
          min_side: int = 0, min_pixels: int = 0) -> Blobs:
    """Segments one mask: Segmenter(width, height, **options).segment(mask).

    For a stream of masks keep one Segmenter instead: it reuses its pools.
    """
    shape = getattr(mask, "shape", None)
    if shape is None or len(shape) != 2:
        # Let the segmenter name the problem.
        return Segmenter(1, 1).segment(mask)
    height, width = shape
    return Segmenter(width, height, roi=roi, steps=steps, min_side=min_side,
                     min_pixels=min_pixels).segment(mask)
