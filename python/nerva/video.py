"""nerva-blobs' camera pipeline as a generator: frames in, foreground masks,
blobs out.

Frames are read the way the program reads them (OpenCV's FFmpeg backend for
videos and network streams, V4L2 for cameras; a printf-style pattern such as
"frames/img_%04d.png", a directory of PNG/PGM/PPM/JPEG files in name order,
or one image), foreground comes from the
same detectors with the same options, and the blobs from one Segmenter, so a
run gives the program's JSON results frame for frame.
"""

import math
import os
import re
import time
from typing import Dict, Iterator, List, Optional, Sequence, Tuple

import numpy as np

from ._nerva import AverageBackground, Blobs, Segmenter, Tracker

IMAGE_SUFFIXES = (".png", ".pgm", ".ppm", ".pnm", ".pbm", ".jpg", ".jpeg")
# The addresses nerva-blobs takes as live sources.
_STREAM = re.compile(r"^(rtsps?|rtmps?|https?|udp|tcp|rtp|srt)://.+", re.IGNORECASE)
_DEVICE = re.compile(r"^/dev/video[0-9]+$")


class InputError(RuntimeError):
    """An input that cannot be read: missing, undecodable, frames of changing size."""


def _cv2():
    import cv2
    # Problems are reported as exceptions of our own; FFmpeg's and OpenCV's
    # chatter about damaged streams would bury them.
    os.environ.setdefault("OPENCV_FFMPEG_LOGLEVEL", "-8")
    cv2.setLogLevel(0)
    return cv2


def is_image_name(path: str) -> bool:
    return os.path.splitext(path)[1].lower() in IMAGE_SUFFIXES


def _files_of_pattern(pattern: str) -> List[str]:
    field = re.search(r"%(0?)([0-9]*)d", pattern)
    if not field or pattern.count("%") != 1:
        raise ValueError(f"pattern '{pattern}' must hold exactly one integer field such as %d or %04d")
    width = int(field.group(2) or 0)
    fill = "0" if field.group(1) else " "

    def name(i: int) -> str:
        return pattern[:field.start()] + str(i).rjust(width, fill) + pattern[field.end():]

    # Sequences are numbered from 0 or from 1; either start is accepted.
    i = 0 if os.path.exists(name(0)) else 1
    files = []
    while os.path.exists(name(i)):
        files.append(name(i))
        i += 1
    if not files:
        raise InputError(f"no file matches '{pattern}' (tried {name(0)} and {name(1)})")
    return files


def _files_of_directory(path: str) -> List[str]:
    try:
        files = sorted(e.path for e in os.scandir(path) if e.is_file() and is_image_name(e.name))
    except OSError as e:
        raise InputError(f"cannot list directory '{path}': {e.strerror}") from None
    if not files:
        raise InputError(f"directory '{path}' holds no PNG, PGM, PPM or JPEG file")
    return files


def _check_readable(path: str) -> None:
    try:
        with open(path, "rb"):
            pass
    except OSError as e:
        raise InputError(f"cannot read '{path}': {e.strerror}") from None


def _image_frames(files: List[str], masks: bool, start: int) -> Iterator[np.ndarray]:
    cv2 = _cv2()
    # Masks keep their channels and depth so that any non-zero value counts;
    # frames are always decoded to 8-bit colour.
    flags = cv2.IMREAD_ANYCOLOR | cv2.IMREAD_ANYDEPTH if masks else cv2.IMREAD_COLOR
    for path in files[start:]:
        _check_readable(path)
        frame = cv2.imread(path, flags)
        if frame is None:
            raise InputError(f"cannot decode image '{path}'")
        yield frame, None


def is_live_source(source: str) -> bool:
    """A network stream address or a V4L2 camera; a path that exists as a file is neither."""
    if _STREAM.match(source):
        return not os.path.isfile(source)
    return bool(_DEVICE.match(source)) and os.path.exists(source) and not os.path.isfile(source)


def _video_frames(path: str, start: int) -> Iterator[np.ndarray]:
    cv2 = _cv2()
    live = is_live_source(path)
    if not live:
        _check_readable(path)
    backend = cv2.CAP_V4L2 if live and _DEVICE.match(path) else cv2.CAP_FFMPEG
    capture = cv2.VideoCapture(path, backend)
    if not capture.isOpened():
        if live:
            raise InputError(f"cannot open the live source '{path}'")
        raise InputError(f"cannot decode '{path}': not a container or codec that FFmpeg can read")
    try:
        if start > 0:
            capture.set(cv2.CAP_PROP_POS_FRAMES, start)
        ok, frame = capture.read()
        if not ok or frame is None:
            if start > 0:
                return
            raise InputError(f"cannot decode '{path}': no frame could be decoded")
        while ok and frame is not None:
            yield frame, capture.get(cv2.CAP_PROP_POS_MSEC)
            ok, frame = capture.read()
    finally:
        capture.release()


def read_frames(source: str, *, masks: bool = False, start: int = 0) -> Iterator[Tuple[np.ndarray, Optional[float]]]:
    """(frame, stream time in ms or None) of a video, live source, image pattern, image directory or image
    file, from frame `start`.

    A path that exists is read as that file or directory, whatever characters
    it holds; a live source is read as it comes, without reconnection.
    """
    if is_live_source(source):
        return _video_frames(source, start)
    if "%" in source and not os.path.exists(source):
        return _image_frames(_files_of_pattern(source), masks, start)
    if not os.path.exists(source):
        raise InputError(f"input '{source}' does not exist")
    if os.path.isdir(source):
        return _image_frames(_files_of_directory(source), masks, start)
    if is_image_name(source):
        return _image_frames([source], masks, start)
    return _video_frames(source, start)


def frame_count(source: str) -> int:
    """Frames the container announces (videos; it may be wrong), files of a sequence, or -1."""
    if is_live_source(source):
        return -1
    if "%" in source and not os.path.exists(source):
        return len(_files_of_pattern(source))
    if os.path.isdir(source):
        return len(_files_of_directory(source))
    if is_image_name(source):
        return 1
    cv2 = _cv2()
    capture = cv2.VideoCapture(source, cv2.CAP_FFMPEG)
    count = capture.get(cv2.CAP_PROP_FRAME_COUNT) if capture.isOpened() else -1
    capture.release()
    return int(count) if count > 0 else -1


class _CleanUp:
    """Optional opening, then closing, with elliptic kernels."""

    def __init__(self, opening: int, closing: int):
        cv2 = _cv2()
        self.cv2 = cv2
        ellipse = lambda n: cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (n, n))
        self.open = ellipse(opening) if opening > 0 else None
        self.close = ellipse(closing) if closing > 0 else None

    def __call__(self, mask: np.ndarray) -> np.ndarray:
        if self.open is not None:
            mask = self.cv2.morphologyEx(mask, self.cv2.MORPH_OPEN, self.open)
        if self.close is not None:
            mask = self.cv2.morphologyEx(mask, self.cv2.MORPH_CLOSE, self.close)
        return mask


def _foreground(masks: bool, background: str, learning_rate: Optional[float], threshold: int,
                size: Tuple[int, int], roi: Tuple[int, int, int, int]):
    """The detector for frames of `size` (width, height): frame -> 8-bit mask."""
    cv2 = _cv2()
    if masks:
        def given(frame):
            if frame.ndim == 2:
                return cv2.compare(frame, 0, cv2.CMP_NE)
            return (np.any(frame != 0, axis=2)).astype(np.uint8) * 255
        return given
    if background == "mog2":
        subtractor = cv2.createBackgroundSubtractorMOG2(500, 25.0, True)  # nerva-blobs' variance threshold
        rate = -1.0 if learning_rate is None else learning_rate

        def mog2(frame):
            # Shadows come out as 127: they are not things.
            return cv2.threshold(subtractor.apply(frame, learningRate=rate), 200, 255, cv2.THRESH_BINARY)[1]
        return mog2
    model = AverageBackground(size[0], size[1], roi=roi,
                              learning_rate=0.01 if learning_rate is None else learning_rate,
                              threshold=threshold)

    def average(frame):
        # OpenCV's weighted grey, as the program converts.
        grey = frame if frame.ndim == 2 else cv2.cvtColor(frame, cv2.COLOR_BGR2GRAY)
        return model.apply(grey)
    return average


def check_options(*, masks: bool = False, background: str = "average", learning_rate: Optional[float] = None,
                  threshold: int = 25, opening: int = 0, closing: int = 0, **_ignored) -> None:
    """ValueError for options nerva-blobs refuses on its command line (those that need no frame)."""
    if background not in ("average", "mog2"):
        raise ValueError(f"background must be 'average' or 'mog2', not {background!r}")
    if learning_rate is not None and not 0 <= learning_rate <= 1:
        raise ValueError("learning_rate must lie between 0 and 1")
    if not 0 <= threshold <= 255:
        raise ValueError("threshold must lie between 0 and 255")
    if opening < 0 or closing < 0:
        raise ValueError("opening and closing kernel sizes cannot be negative")
    if masks and background == "mog2":
        raise ValueError("masks and background 'mog2' exclude each other: masks need no background")


def blobs_in_video(source: str, *, masks: bool = False, background: str = "average",
                   learning_rate: Optional[float] = None, threshold: int = 25, opening: int = 0, closing: int = 0,
                   roi: Optional[Tuple[int, int, int, int]] = None, steps: Tuple[int, int] = (1, 1),
                   min_side: int = 0, min_pixels: int = 0,
                   start: int = 0, stop: Optional[int] = None,
                   with_time: bool = False, track: bool = False,
                   lines: Optional[Dict[str, Sequence[float]]] = None,
                   zones: Optional[Dict[str, Sequence[Tuple[float, float]]]] = None
                   ) -> Iterator[Tuple[int, np.ndarray, Blobs]]:
    """Yields (frame_index, frame, blobs) for each frame of a video or image sequence.

    The nerva-blobs pipeline with the same options and results:

    source          video file, printf-style image pattern ("img_%04d.png"),
                    directory of images (name order), one image, or a live
                    source as nerva-blobs takes it (rtsp://, http(s)://,
                    udp://, tcp://, rtmp://... through FFmpeg, /dev/videoN
                    through V4L2); a live source is read until it ends,
                    without the program's reconnection or frame dropping
    masks           the source already holds foreground masks (any non-zero
                    value in any channel is foreground)
    background      "average": the library's running average on grey frames
                    (the first frame is the background); "mog2": OpenCV's
                    MOG2 subtractor, shadows not foreground
    learning_rate   weight of a new frame in the background, 0..1 (default
                    0.01; MOG2: automatic)
    threshold       grey difference that counts as foreground (average only)
    opening, closing  side of the elliptic opening / closing kernels (0: off),
                    nerva-blobs' --open and --close
    roi, steps, min_side, min_pixels  as for Segmenter

    `start` and `stop` bound the frames read (stop excluded); indices stay
    those of the whole source and the background starts at `start`.
    `with_time` adds a fourth item, the frame's time in seconds as the
    program writes it: the stream's timestamp where it has one, else the wall
    clock since the generator began.
    `track` (implied by `lines` or `zones`) runs a Tracker over the blobs, as
    nerva-blobs --track does: each Blobs then has its `track` column and the
    tracker's `tracks`, `events` and `counts` for that frame as attributes.
    lines: {name: (x1, y1, x2, y2)}; zones: {name: [(x, y), ...]}.
    Raises InputError for a source that cannot be read and ValueError for bad
    options, a region of interest outside the frame included.
    """
    check_options(masks=masks, background=background, learning_rate=learning_rate, threshold=threshold,
                  opening=opening, closing=closing)
    if start < 0 or (stop is not None and stop < start):
        raise ValueError("start must be at least 0 and stop at least start")
    began = time.monotonic()
    frames = read_frames(source, masks=masks, start=start)
    index = start
    size = segmenter = foreground = clean = tracker = None
    track = track or bool(lines) or bool(zones)
    for frame, stream_ms in frames:
        if stop is not None and index >= stop:
            break
        if size is None:
            size = (frame.shape[1], frame.shape[0])
            segmenter = Segmenter(size[0], size[1], roi=roi, steps=steps, min_side=min_side,
                                  min_pixels=min_pixels)
            foreground = _foreground(masks, background, learning_rate, threshold, size, segmenter.roi)
            clean = _CleanUp(opening, closing)
            if track:
                tracker = Tracker(size[0], size[1], lines=lines or {}, zones=zones or {})
        elif (frame.shape[1], frame.shape[0]) != size:
            raise InputError(f"frame {index} is {frame.shape[1]}x{frame.shape[0]}, "
                             f"earlier frames are {size[0]}x{size[1]}")
        blobs = segmenter.segment(clean(foreground(frame)))
        if tracker is not None:
            tracker.update(blobs, index)
            blobs.tracks, blobs.events, blobs.counts = tracker.tracks, tracker.events, tracker.counts
        if with_time:
            stamped = stream_ms is not None and math.isfinite(stream_ms) and stream_ms >= 0
            yield index, frame, blobs, stream_ms / 1000.0 if stamped else time.monotonic() - began
        else:
            yield index, frame, blobs
        index += 1
    if size is None and start == 0:
        raise InputError(f"'{source}' holds no frame")


def json_line(index: int, blobs: Blobs, time: Optional[float] = None, dropped: int = 0) -> str:
    """One frame as nerva-blobs writes it to its JSON Lines output, newline included.

    With a `time` (seconds) the line ends with the program's "time" and
    "dropped" fields; without, it holds the frame and its blobs only.
    """
    items = ",".join(
        f'{{"id":{b.ident},"bbox":[{b.xmin},{b.ymin},{b.xmax},{b.ymax}],"width":{b.width},'
        f'"height":{b.height},"npix":{b.npix},"xc":{b.xc},"yc":{b.yc}}}' for b in blobs)
    extras = "" if time is None else f',"time":{_json_number(round(time * 1e6) / 1e6)},"dropped":{dropped}'
    return f'{{"frame":{index},"blobs":[{items}]{extras}}}\n'


def _json_number(x: float) -> str:
    # The shortest text that reads back as x, with ".0" on whole numbers:
    # what the program's JSON writer prints for the times it writes.
    return repr(float(x))
