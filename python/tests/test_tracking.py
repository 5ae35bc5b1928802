"""Tracker over Blobs, and blobs_in_video's tracking against nerva-blobs --track."""
import json
import subprocess

import numpy as np
import pytest

import nerva
from conftest import walkers, write_video


def moving_box(frames, step=6):
    """Masks of a 20x60 box walking right along row 200."""
    for f in range(frames):
        m = np.zeros((480, 640), np.uint8)
        m[200:260, 200 + step * f:220 + step * f] = 255
        yield m


def test_a_walker_keeps_one_identity_and_crosses_once():
    tracker = nerva.Tracker(640, 480, lines={"door": (300, 0, 300, 479)})
    segmenter = nerva.Segmenter(640, 480)
    starts, crossings = 0, []
    for f, mask in enumerate(moving_box(30)):
        blobs = segmenter.segment(mask)
        assert blobs.track is None
        tracker.update(blobs, f)
        starts += sum(e["type"] == "start" for e in tracker.events)
        crossings += [e for e in tracker.events if e["type"] == "line"]
    assert blobs.track.tolist() == [1]
    assert [t.id for t in tracker.tracks] == [1]
    assert tracker.tracks[0].state == "confirmed"
    assert starts == 1
    assert [(e["line"], e["direction"]) for e in crossings] == [("door", "out")]
    assert tracker.counts == {"door": {"in": 0, "out": 1}}


def test_unusable_lines_and_zones_are_refused():
    with pytest.raises(ValueError):
        nerva.Tracker(640, 480, lines={"dot": (5, 5, 5, 5)})
    with pytest.raises(ValueError):
        nerva.Tracker(640, 480, zones={"flat": [(0, 0), (1, 1)]})


def test_the_generator_tracks_as_the_program_does(nerva_blobs, tmp_path):
    video = tmp_path / "walkers.avi"
    write_video(video, walkers(30))
    out = subprocess.run([nerva_blobs, str(video), "-q", "--track", "--line", "mid:80,0,80,119"], check=True,
                         capture_output=True, text=True).stdout
    program = [json.loads(line) for line in out.splitlines()]
    got = list(nerva.blobs_in_video(str(video), lines={"mid": (80, 0, 80, 119)}))
    assert len(got) == len(program) == 30
    assert any(b["track"] for line in program for b in line["blobs"])
    for (_, _, blobs), line in zip(got, program):
        assert blobs.track.tolist() == [b["track"] or 0 for b in line["blobs"]]
    assert got[-1][2].counts == {"mid": line["counts"]["mid"]}
