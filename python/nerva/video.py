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
import threading
import time
from typing import Dict, Iterator, List, Optional, Sequence, Tuple, Union

import numpy as np

from . import _nerva
from ._nerva import AverageBackground, Blobs, Segmenter, Tracker, _LumaVideo

IMAGE_SUFFIXES = (".png", ".pgm", ".ppm", ".pnm", ".pbm", ".jpg", ".jpeg")
# nerva-blobs' limits: a field wide enough for any frame number, and network
# timeouts long enough for a camera across a slow network to answer, short
# enough that a silent one is noticed.
_MAX_FIELD_WIDTH = 20
_OPEN_TIMEOUT_MS = 10000
_READ_TIMEOUT_MS = 5000


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


def input_kind(source: str) -> str:
    """How nerva-blobs reads `source`: "missing", "network", "device", "directory", "image", "pattern" or
    "video". A path that exists is read as that file or directory, whatever characters it holds."""
    return _nerva.input_kind(source)


def _files_of_pattern(pattern: str) -> List[str]:
    field = re.search(r"%(0?)([0-9]*)d", pattern)
    if not field or pattern.count("%") != 1:
        raise ValueError(f"pattern '{pattern}' must hold exactly one integer field such as %d or %04d")
    digits = field.group(2)
    if len(digits) > 2 or int(digits or 0) > _MAX_FIELD_WIDTH:
        raise ValueError(f"pattern '{pattern}': field width {digits} is too large (at most {_MAX_FIELD_WIDTH})")
    width = int(digits or 0)
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


def _image_frames(files: List[str], masks: bool, start: int) -> Iterator[Tuple[np.ndarray, None]]:
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
    return input_kind(source) in ("network", "device")


def _open_live(cv2, path: str, kind: str):
    """Opens a live source in a helper thread, so that Ctrl-C reaches the caller at once.

    An open blocks in the network until the source answers or the timeout
    passes, and Python only sees a signal once it is over. Interrupted, the
    caller leaves at once and the open finishes on its own, its capture
    released then.
    """
    if kind == "device":
        open_capture = lambda: cv2.VideoCapture(path, cv2.CAP_V4L2)
    else:
        params = [cv2.CAP_PROP_OPEN_TIMEOUT_MSEC, _OPEN_TIMEOUT_MS, cv2.CAP_PROP_READ_TIMEOUT_MSEC, _READ_TIMEOUT_MS]
        open_capture = lambda: cv2.VideoCapture(path, cv2.CAP_FFMPEG, params)
    outcome = {}
    done = threading.Event()
    abandoned = threading.Event()

    def opening():
        try:
            outcome["capture"] = open_capture()
        except BaseException as e:  # handed to the caller
            outcome["error"] = e
        done.set()
        if abandoned.is_set() and "capture" in outcome:
            outcome.pop("capture").release()

    threading.Thread(target=opening, name=f"nerva open {path}", daemon=True).start()
    try:
        done.wait()
    except BaseException:
        abandoned.set()
        if done.is_set() and "capture" in outcome:
            outcome.pop("capture").release()
        raise
    if "error" in outcome:
        raise outcome["error"]
    return outcome["capture"]


def _video_frames(path: str, start: int) -> Iterator[Tuple[np.ndarray, float]]:
    cv2 = _cv2()
    kind = input_kind(path)
    live = kind in ("network", "device")
    if live:
        capture = _open_live(cv2, path, kind)
    else:
        _check_readable(path)
        capture = cv2.VideoCapture(path, cv2.CAP_FFMPEG)
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


def _luma_frames(path: str, start: int) -> Iterator[Tuple[np.ndarray, Optional[float]]]:
    # The decoder's own grey, as nerva-blobs reads video files; frames
    # before `start` are decoded and dropped, so the count is exact.
    _check_readable(path)
    try:
        video = _LumaVideo(path)
    except RuntimeError as e:
        raise InputError(str(e)) from None
    index = 0
    while True:
        got = video.read()
        if got is None:
            return
        if index >= start:
            yield got
        index += 1


def read_frames(source: str, *, masks: bool = False, start: int = 0,
                grey: bool = False) -> Iterator[Tuple[np.ndarray, Optional[float]]]:
    """(frame, stream time in ms or None) of a video, live source, image pattern, image directory or image
    file, from frame `start`. With `grey`, video files give the decoder's grey
    (luma) frames, as nerva-blobs reads them for its running average.

    A path that exists is read as that file or directory, whatever characters
    it holds; a live source is read as it comes, without reconnection.
    """
    kind = input_kind(source)
    if kind == "missing":
        raise InputError(f"input '{source}' does not exist")
    if kind == "pattern":
        return _image_frames(_files_of_pattern(source), masks, start)
    if kind == "directory":
        return _image_frames(_files_of_directory(source), masks, start)
    if kind == "image":
        return _image_frames([source], masks, start)
    if grey and not masks and kind == "video":
        return _luma_frames(source, start)
    return _video_frames(source, start)


def frame_count(source: str) -> int:
    """Frames the container announces (videos; it may be wrong), files of a sequence, or -1."""
    kind = input_kind(source)
    if kind in ("network", "device", "missing"):
        return -1
    if kind == "pattern":
        return len(_files_of_pattern(source))
    if kind == "directory":
        return len(_files_of_directory(source))
    if kind == "image":
        return 1
    cv2 = _cv2()
    capture = cv2.VideoCapture(source, cv2.CAP_FFMPEG)
    count = capture.get(cv2.CAP_PROP_FRAME_COUNT) if capture.isOpened() else -1
    capture.release()
    return int(count) if count > 0 else -1


class _CleanUp:
    """Optional opening, then closing, with elliptic kernels: nerva-blobs' own clean-up, on bits."""

    def __init__(self, opening: int, closing: int):
        self._clean = _nerva._CleanUp(opening, closing)
        self.active = self._clean.active

    def __call__(self, mask: np.ndarray) -> np.ndarray:
        return self._clean.apply(mask)


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
    model = _average_model(learning_rate, threshold, size, roi)
    return lambda frame: model.apply(_grey(frame))


def _average_model(learning_rate: Optional[float], threshold: int, size: Tuple[int, int],
                   roi: Tuple[int, int, int, int]) -> AverageBackground:
    return AverageBackground(size[0], size[1], roi=roi, learning_rate=0.01 if learning_rate is None else learning_rate,
                             threshold=threshold)


def _grey(frame: np.ndarray) -> np.ndarray:
    # Video files come as the decoder's grey; other colour frames get
    # OpenCV's weighted grey, as the program converts them.
    if frame.ndim == 2:
        return frame
    cv2 = _cv2()
    return cv2.cvtColor(frame, cv2.COLOR_BGR2GRAY)


def check_options(options: dict, frame_size: Optional[Tuple[int, int]] = None) -> None:
    """ValueError for options nerva-blobs refuses; with a frame size (width, height), what only the frame shows
    too (a region of interest outside it, a clean-up kernel larger than it). The program's own check."""
    width, height = frame_size if frame_size else (None, None)
    wrong = _nerva.check_options(options, "keywords", width, height)
    if wrong:
        raise ValueError(wrong)


def resolve_preset(preset: Optional[str], masks: bool, opening: Optional[int], closing: Optional[int],
                   min_pixels: Optional[int]) -> Tuple[int, int, int]:
    """(opening, closing, min_pixels) as nerva-blobs settles them: the values given, the preset's for the
    others; the people preset for frames and raw for masks when none is named."""
    return _nerva.preset_values(preset, masks, opening, closing, min_pixels)


def blobs_in_video(source: str, *, preset: Optional[str] = None, masks: bool = False, background: str = "average",
                   learning_rate: Optional[float] = None, threshold: int = 25, opening: Optional[int] = None,
                   closing: Optional[int] = None, roi: Optional[Tuple[int, int, int, int]] = None,
                   steps: Tuple[int, int] = (1, 1), min_side: int = 0, min_pixels: Optional[int] = None,
                   measures: bool = False, pool_full: str = "frame", memory_ceiling: int = 0,
                   start: int = 0, stop: Optional[int] = None,
                   with_time: bool = False, track: bool = False,
                   lines: Optional[Dict[str, Sequence[float]]] = None,
                   zones: Optional[Dict[str, Sequence[Tuple[float, float]]]] = None
                   ) -> Iterator[Union[Tuple[int, np.ndarray, Blobs], Tuple[int, np.ndarray, Blobs, float]]]:
    """Yields (frame_index, frame, blobs) for each frame of a video or image sequence.

    The nerva-blobs pipeline with the same options and results:

    source          video file, printf-style image pattern ("img_%04d.png"),
                    directory of images (name order), one image, or a live
                    source as nerva-blobs takes it (rtsp://, http(s)://,
                    udp://, tcp://, rtmp://... through FFmpeg, /dev/videoN
                    through V4L2); a live source is read until it ends,
                    without the program's reconnection or frame dropping
    preset          "people" (default for frames: opening 3, closing 7,
                    min_pixels 150), "vehicles" (5, 11, 400) or "raw"
                    (default for masks: 0, 0, 0); opening, closing and
                    min_pixels given beside it win
    masks           the source already holds foreground masks (any non-zero
                    value in any channel is foreground)
    background      "average": the library's running average on grey frames
                    (the first frame is the background); "mog2": OpenCV's
                    MOG2 subtractor, shadows not foreground
    learning_rate   weight of a new frame in the background, 0..1 (default
                    0.01; MOG2: automatic)
    threshold       grey difference that counts as foreground (average only)
    opening, closing  side of the elliptic opening / closing kernels (0: off),
                    nerva-blobs' --open and --close; with neither, the
                    running average's mask is never made: the segmenter
                    detects each row as it reads it (the same blobs)
    roi, steps, min_side, min_pixels, measures, memory_ceiling
                    as for Segmenter
    pool_full       as for Segmenter; by default a frame beyond the
                    2000-blob pool writes nerva-blobs' one line on standard
                    error, and its Blobs say truncated

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
    opening, closing, min_pixels = resolve_preset(preset, masks, opening, closing, min_pixels)
    options = dict(masks=masks, background=background, learning_rate=learning_rate, threshold=threshold,
                   opening=opening, closing=closing, roi=roi, steps=steps, min_side=min_side, min_pixels=min_pixels)
    check_options(options)
    if start < 0 or (stop is not None and stop < start):
        raise ValueError("start must be at least 0 and stop at least start")
    began = time.monotonic()
    frames = read_frames(source, masks=masks, start=start, grey=background == "average")
    index = start
    size = segmenter = detect = tracker = None
    track = track or bool(lines) or bool(zones)
    for frame, stream_ms in frames:
        if stop is not None and index >= stop:
            break
        if size is None:
            size = (frame.shape[1], frame.shape[0])
            check_options(options, size)
            segmenter = Segmenter(size[0], size[1], roi=roi, steps=steps, min_side=min_side,
                                  min_pixels=min_pixels, measures=measures, pool_full=pool_full,
                                  memory_ceiling=memory_ceiling)
            clean = _CleanUp(opening, closing)
            # Without a clean-up the running average's mask is only segmented:
            # the segmenter detects row by row and the mask is never made.
            if not masks and background == "average" and not clean.active:
                model = _average_model(learning_rate, threshold, size, segmenter.roi)
                detect = lambda frame: segmenter._segment_changes(model, _grey(frame))
            else:
                foreground = _foreground(masks, background, learning_rate, threshold, size, segmenter.roi)
                detect = lambda frame: segmenter.segment(clean(foreground(frame)))
            if track:
                tracker = Tracker(size[0], size[1], lines=lines or {}, zones=zones or {})
        elif (frame.shape[1], frame.shape[0]) != size:
            raise InputError(f"frame {index} is {frame.shape[1]}x{frame.shape[0]}, "
                             f"earlier frames are {size[0]}x{size[1]}")
        blobs = detect(frame)
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


def json_line(index: int, blobs: Blobs, time: Optional[float] = None, dropped: int = 0,
              components: Optional[int] = None, tracker: Optional[Tracker] = None, fps: float = 0.0) -> str:
    """One frame as nerva-blobs writes it to its JSON Lines output, newline included.

    With a `time` (seconds) the line ends with the program's "time" and
    "dropped" fields; without, it holds the frame and its blobs only.
    `components`, when the frame held more blobs than the segmenter's pool
    and `blobs` is cut short, adds "truncated": true and that count.
    `tracker`, the Tracker that has just updated `blobs`, adds each blob's
    "track" and the frame's "tracks", "events" and "counts", as --track does;
    with the stream's `fps` (see stream_fps) zone exits carry their dwell in
    seconds too.
    """
    return _nerva.json_line(index, blobs, time, dropped, components, tracker, fps)


def stream_fps(source: str, *, masks: bool = False) -> float:
    """The frame rate nerva-blobs takes for `source`: a video's container rate
    (25 when the container gives none), 25 for images."""
    kind = input_kind(source)
    if kind == "video" and not masks:
        return _LumaVideo(source).fps()
    if kind not in ("video", "network", "device"):
        return 25.0
    cv2 = _cv2()
    capture = cv2.VideoCapture(source, cv2.CAP_FFMPEG)
    rate = capture.get(cv2.CAP_PROP_FPS) if capture.isOpened() else 0.0
    capture.release()
    return rate if 0 < rate < 1000 else 25.0
