"""The segmenter over numpy masks: cv2's 4-connected components exactly,
masks read in place, bad input refused with a named exception."""

from concurrent.futures import ThreadPoolExecutor

import cv2
import numpy as np
import pytest

import nerva
from conftest import blobby_mask


def assert_like_cv2(seg, mask, blobs):
    """cv2's components, labels and centroids; the runs paint the mask back."""
    _, labels, stats, centroids = cv2.connectedComponentsWithStats((mask != 0).astype(np.uint8), connectivity=4)
    got_stats, got_centroids = blobs.as_cv2_stats()
    np.testing.assert_array_equal(got_stats, stats[1:])
    np.testing.assert_allclose(got_centroids, centroids[1:], rtol=1e-12)
    np.testing.assert_array_equal(seg.labels(), labels)
    painted = np.zeros(mask.shape, bool)
    for y, x0, x1 in seg.runs():
        painted[y, x0:x1 + 1] = True
    np.testing.assert_array_equal(painted, mask != 0)


@pytest.mark.parametrize("shape,density", [((120, 160), 0.5), ((97, 203), 0.3), ((1, 50), 0.5), ((60, 1), 0.5)])
def test_matches_cv2_on_random_masks(rng, shape, density):
    seg = nerva.Segmenter(shape[1], shape[0])
    for _ in range(3):  # one segmenter over several frames, pools reused
        mask = blobby_mask(rng, *shape, density=density, blur=1.2)
        assert_like_cv2(seg, mask, seg.segment(mask))
        assert_like_cv2(seg, mask, seg.segment(mask.astype(bool)))


def test_reads_strided_views_in_place(rng):
    frame = blobby_mask(rng, 480, 640)
    for view in (frame[40:400, 100:600], frame[::2]):
        seg = nerva.Segmenter(view.shape[1], view.shape[0])
        assert_like_cv2(seg, view, seg.segment(view))


def test_size_filter_label_numbering_and_owned_read_only_blobs():
    mask = np.zeros((30, 30), np.uint8)
    mask[2:4, 2:4] = 1      # 4 pixels: dropped
    mask[10:20, 5:9] = 1    # kept: blob 0
    mask[12:22, 20:25] = 1  # kept: blob 1
    seg = nerva.Segmenter(30, 30, min_pixels=5)
    blobs = seg.segment(mask)
    labels = seg.labels()
    assert labels[3, 3] == 0
    assert labels[15, 6] == 1
    assert labels[15, 22] == 2
    seg.min_pixels, seg.min_side = 0, 4
    assert len(seg.segment(mask)) == 2  # the 2x2 square is below the side now
    seg.segment(np.zeros_like(mask))  # the blobs of a frame are copies: unchanged
    assert [b.bbox for b in blobs] == [(5, 10, 8, 19), (20, 12, 24, 21)]
    assert blobs.npix.tolist() == [40, 50]
    assert blobs.ident.tolist() == [0, 1]
    assert blobs.center.tolist() == [[6, 14], [22, 16]]
    with pytest.raises(ValueError):
        blobs.bbox[0, 0] = 7
    with pytest.raises(IndexError):
        blobs[2]
    assert blobs[-1].centroid == (22.0, 16.5)


@pytest.mark.parametrize("bad,error", [
    (np.zeros((10, 12), np.int16), TypeError),
    ([[0] * 12] * 10, TypeError),
    (np.zeros((1, 10, 12), np.uint8), ValueError),
    (np.zeros((11, 12), np.uint8), ValueError),
    (np.zeros((10, 24), np.uint8)[:, ::2], ValueError),
    (np.zeros((10, 12), np.uint8)[::-1], ValueError),
    (np.zeros((12, 10), np.uint8).T, ValueError),
])
def test_bad_masks_are_refused_quietly(capfd, bad, error):
    seg = nerva.Segmenter(12, 10)
    with pytest.raises(error, match="mask"):
        seg.segment(bad)
    good = np.zeros((10, 12), np.uint8)
    good[3, 4] = 1
    assert len(seg.segment(good)) == 1  # still usable
    assert capfd.readouterr() == ("", "")


@pytest.mark.parametrize("options", [
    dict(steps=(0, 1)), dict(steps=(1, -2)), dict(roi=(-1, 0, 5, 5)), dict(roi=(5, 5, 8, 5)),
    dict(roi=(0, 0, 0, 4)), dict(min_pixels=-1), dict(min_side=-3),
])
def test_bad_settings_are_refused(options):
    with pytest.raises(ValueError):
        nerva.Segmenter(12, 10, **options)
    seg = nerva.Segmenter(12, 10)
    with pytest.raises(ValueError):
        for name, value in options.items():
            setattr(seg, name, value)


def test_four_threads_give_the_single_thread_results(rng):
    masks = [blobby_mask(rng, 240, 320) for _ in range(6)]
    expected = [nerva.blobs(m).as_cv2_stats()[0] for m in masks] * 5

    def work(_):
        seg = nerva.Segmenter(320, 240)
        return [seg.segment(m).as_cv2_stats()[0] for _ in range(5) for m in masks]

    with ThreadPoolExecutor(4) as pool:
        for results in pool.map(work, range(4)):
            for got, want in zip(results, expected, strict=True):
                np.testing.assert_array_equal(got, want)
