"""The segmenter over numpy masks: cv2's 4-connected components exactly,
masks read in place, bad input refused with a named exception."""

import sys
import threading
import time
import warnings
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


@pytest.mark.parametrize("shape,density", [((97, 203), 0.3), ((1, 50), 0.5)])
def test_matches_cv2_on_random_masks(rng, shape, density):
    seg = nerva.Segmenter(shape[1], shape[0])
    for _ in range(3):  # one segmenter over several frames, pools reused
        mask = blobby_mask(rng, *shape, density=density, blur=1.2)
        assert_like_cv2(seg, mask, seg.segment(mask))
        assert_like_cv2(seg, mask, seg.segment(mask.astype(bool)))


def test_reads_strided_views_in_place(rng):
    frame = blobby_mask(rng, 480, 640)
    view = frame[40:400:2, 100:600]
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
    seg.min_pixels = 0
    seg.min_side = 4
    assert len(seg.segment(mask)) == 2  # the 2x2 square is below the side now
    seg.segment(np.zeros_like(mask))  # the blobs of a frame are copies: unchanged
    assert blobs[1].bbox == (20, 12, 24, 21)
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
    dict(steps=(0, 1)), dict(roi=(5, 5, 8, 5)), dict(min_pixels=-1), dict(pool_full="loud"), dict(memory_ceiling=-1),
])
def test_bad_settings_are_refused(options):
    with pytest.raises(ValueError):
        nerva.Segmenter(12, 10, **options)
    seg = nerva.Segmenter(12, 10)
    with pytest.raises(ValueError):
        for name, value in options.items():
            setattr(seg, name, value)


def checkerboard(side):
    return (np.indices((side, side)).sum(axis=0) % 2).astype(np.uint8)


def test_a_frame_beyond_the_blob_pool_warns_once_by_default(capfd):
    seg = nerva.Segmenter(100, 100)
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        seg.segment(checkerboard(100))  # 5000 single-pixel regions, 3000 beyond the pool
    assert len(caught) == 1
    assert caught[0].category is RuntimeWarning
    assert "3000 regions lost" in str(caught[0].message)
    assert capfd.readouterr().err == ""


@pytest.mark.parametrize("wait", [
    lambda seg: setattr(seg, "min_pixels", 0),
    lambda seg: seg.labels(),
    lambda seg: seg.runs(),
], ids=["setter", "labels", "runs"])
def test_a_thread_waiting_for_a_busy_segmenter_lets_python_run(wait):
    """While one thread segments and another waits for the same segmenter, pure Python goes on.

    With a long switch interval the GIL changes hands only when a thread lets
    go of it: ticks counted during the wait prove that the waiting call did.
    """
    seg = nerva.Segmenter(700, 700, pool_full="silent")
    heavy = checkerboard(700)
    seg.segment(heavy)  # pools grown: later frames take the same time
    stop = threading.Event()
    ticks = [0]

    def ticking():
        while not stop.is_set():
            ticks[0] += 1
            time.sleep(0)  # lets go of the GIL, as any blocking call does

    def segmenting(started):
        started.set()
        seg.segment(heavy)

    interval = sys.getswitchinterval()
    sys.setswitchinterval(100)
    ticker = threading.Thread(target=ticking)
    try:
        ticker.start()
        ticked_during_a_wait = False
        for _ in range(10):
            started = threading.Event()
            frame = threading.Thread(target=segmenting, args=(started,))
            frame.start()
            started.wait()
            before = ticks[0]
            wait(seg)
            ticked_during_a_wait = ticks[0] != before
            frame.join()
            if ticked_during_a_wait:
                break
    finally:
        stop.set()
        ticker.join()
        sys.setswitchinterval(interval)
    assert ticked_during_a_wait


def test_blobs_from_many_threads_and_sizes_are_each_masks_own(rng):
    """nerva.blobs() lends its kept segmenters to one call at a time, whatever the thread."""
    masks = [blobby_mask(rng, h, w) for h, w in [(60, 80), (61, 80), (60, 81)] * 4]
    expected = [nerva.Segmenter(m.shape[1], m.shape[0]).segment(m).as_cv2_stats()[0] for m in masks]
    with ThreadPoolExecutor(4) as pool:
        for _ in range(5):
            got = list(pool.map(lambda m: nerva.blobs(m).as_cv2_stats()[0], masks))
            for g, e in zip(got, expected, strict=True):
                np.testing.assert_array_equal(g, e)
