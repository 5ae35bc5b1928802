"""blobs_in_video without a clean-up segments the running average row by row; its blobs are those of the mask."""

import os

import pytest

import nerva
import nerva.video

VTEST = "/usr/share/doc/opencv-doc/examples/data/vtest.avi"


def lines(**options):
    """The program's JSON lines of the first frames (centroids of empty sampled runs are NaN, which no list
    comparison matches)."""
    return [nerva.json_line(i, blobs) for i, _, blobs in nerva.blobs_in_video(VTEST, stop=150, **options)]


@pytest.mark.skipif(not os.path.exists(VTEST), reason="no vtest.avi (opencv-doc)")
@pytest.mark.parametrize("options", [dict(preset="raw"), dict(preset="raw", roi=(13, 7, 600, 500), steps=(3, 2))])
def test_rows_give_the_blobs_of_the_whole_mask(monkeypatch, options):
    fused = lines(**options)

    class WholeMask(nerva.video._CleanUp):
        """A clean-up that says it works, so that the mask is made and segmented whole."""

        def __init__(self, opening, closing):
            super().__init__(opening, closing)
            self.active = True

    monkeypatch.setattr(nerva.video, "_CleanUp", WholeMask)
    whole = lines(**options)
    assert sum(line.count('"bbox"') for line in whole) > 0
    assert fused == whole
