"""Tracker over Blobs, and blobs_in_video's tracking against nerva-blobs --track."""
import json
import subprocess

import pytest

import nerva


def test_unusable_lines_and_zones_are_refused():
    with pytest.raises(ValueError):
        nerva.Tracker(640, 480, lines={"dot": (5, 5, 5, 5)})
    with pytest.raises(ValueError):
        nerva.Tracker(640, 480, zones={"flat": [(0, 0), (1, 1)]})


def test_the_generator_tracks_as_the_program_does(nerva_blobs, video):
    out = subprocess.run([nerva_blobs, str(video), "-q", "--track", "--line", "mid:80,0,80,119"], check=True,
                         capture_output=True, text=True).stdout
    program = [json.loads(line) for line in out.splitlines()]
    got = list(nerva.blobs_in_video(str(video), lines={"mid": (80, 0, 80, 119)}))
    assert len(got) == len(program) == 30
    assert any(b["track"] for line in program for b in line["blobs"])
    for (_, _, blobs), line in zip(got, program):
        assert blobs.track.tolist() == [b["track"] or 0 for b in line["blobs"]]
    assert got[-1][2].counts == {"mid": line["counts"]["mid"]}
