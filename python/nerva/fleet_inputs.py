"""nerva-fleet's inputs: folders walked into videos and image sequences, each
with the output name that mirrors its place under the folder given, and the
identity (resolved path, size, modification time) that tells a re-run
whether an earlier result still stands."""

import os
from typing import Dict, List, NamedTuple, Optional

from .video import IMAGE_SUFFIXES, is_image_name

VIDEO_SUFFIXES = (".avi", ".mp4", ".mkv", ".mov", ".m4v", ".mpg", ".mpeg", ".webm", ".wmv", ".flv", ".ts")
# Downloads and copies still under way: never inputs, even with a video's
# name somewhere in theirs.
UNFINISHED_SUFFIXES = (".part", ".partial", ".crdownload", ".download", ".tmp", "~")


class Input(NamedTuple):
    name: str  # output name without .jsonl, "/"-separated: "cam1/2024-05-01"
    source: str  # as nerva-blobs takes it: a path as typed (joined), or an image pattern


class InputsError(ValueError):
    """Inputs that cannot make a run: a folder with nothing to do, two inputs for one output."""


def is_video_name(path: str) -> bool:
    return os.path.splitext(path)[1].lower() in VIDEO_SUFFIXES


def _wanted(name: str) -> bool:
    return not name.startswith(".") and not name.lower().endswith(UNFINISHED_SUFFIXES)


def _holds_images(folder: str) -> bool:
    try:
        return any(is_image_name(e.name) and _wanted(e.name) and e.is_file() for e in os.scandir(folder))
    except OSError:
        return False


def _walk(root: str, recursive: bool) -> List[Input]:
    """Videos and folders of images under `root`, named by their path relative to it."""
    found = []
    for folder, subfolders, files in os.walk(root):
        subfolders.sort()
        keep = []
        for sub in subfolders:
            path = os.path.join(folder, sub)
            if not _wanted(sub):
                continue
            if _holds_images(path):
                found.append(path)  # an image sequence: its own sub-folders are not inputs
            elif recursive:
                keep.append(sub)
        subfolders[:] = keep
        found += [os.path.join(folder, f) for f in sorted(files) if _wanted(f) and is_video_name(f)]
    inputs = []
    for path in sorted(found):
        relative = os.path.relpath(path, root)
        stem = relative if os.path.isdir(path) else os.path.splitext(relative)[0]
        inputs.append(Input(stem.replace(os.sep, "/"), path))
    return inputs


def _name_of(source: str) -> str:
    """The output name of an input given by itself."""
    if "%" in source and not os.path.exists(source):
        source = source.split("%")[0]  # an image pattern: what precedes its number
        return os.path.basename(os.path.normpath(source)) or "input"
    base = os.path.basename(os.path.normpath(source))
    return (base if os.path.isdir(source) else os.path.splitext(base)[0]) or "input"


def expand_inputs(paths: List[str], recursive: bool = True) -> List[Input]:
    """The inputs of a command line, in order. A folder holding images is one
    sequence; any other folder gives its videos and its folders of images,
    in sub-folders too when `recursive`; hidden files and folders and
    unfinished downloads are left out. Raises InputsError for a folder that
    gives nothing and for two inputs that would write one output."""
    inputs: List[Input] = []
    for path in paths:
        if os.path.isdir(path) and not _holds_images(path):
            found = _walk(path, recursive)
            if not found:
                where = " or its sub-folders" if recursive else ""
                raise InputsError(f"'{path}' holds no input: looked in it{where} for videos "
                                  f"({', '.join(VIDEO_SUFFIXES)}) and folders of images "
                                  f"({', '.join(IMAGE_SUFFIXES)}), hidden files and unfinished downloads left out")
            inputs += found
        else:
            inputs.append(Input(_name_of(path), path))  # missing or unreadable inputs fail as tasks, with their reason
    first: Dict[str, str] = {}
    for name, source in inputs:
        if name in first:
            raise InputsError(f"'{first[name]}' and '{source}' would both write {name}.jsonl")
        first[name] = source
    where: Dict[str, str] = {}
    for _, source in inputs:
        path = resolved(source)
        if path in where:
            raise InputsError(f"'{where[path]}' and '{source}' are the same input ({path})")
        where[path] = source
    return inputs


def sequence_files(source: str) -> Optional[List[str]]:
    """The files of an image sequence (a folder or a pattern), or None for a video or a missing input."""
    from .video import InputError, _files_of_directory, _files_of_pattern
    try:
        if "%" in source and not os.path.exists(source):
            return _files_of_pattern(source)
        if os.path.isdir(source):
            return _files_of_directory(source)
    except (InputError, ValueError):
        return None
    return [source] if is_image_name(source) and os.path.isfile(source) else None


def identity(source: str) -> dict:
    """Where an input really is, and what tells a replaced or grown one from the file an earlier run read.

    Size and modification time, not a fingerprint of the contents: reading
    the head and tail of every file of a large archive on each resume costs
    more than it saves. A file replaced by one of the same size and the same
    modification time is not noticed (--force redoes it)."""
    files = sequence_files(source) or [source]
    return dict(path=resolved(source), **_size_and_time(files))


def resolved(source: str) -> str:
    """The input's resolved path: the same however it was typed (videos/, ./videos, /abs/videos)."""
    if os.path.exists(source):
        return os.path.realpath(source)
    return os.path.join(os.path.realpath(os.path.dirname(source) or "."), os.path.basename(source))


def _size_and_time(files: List[str]) -> dict:
    size, mtime = 0, 0
    for f in files:
        try:
            st = os.stat(f)
        except OSError:
            return {"size": -1, "mtime_ns": -1}
        size, mtime = size + st.st_size, max(mtime, st.st_mtime_ns)
    return {"size": size, "mtime_ns": mtime}
