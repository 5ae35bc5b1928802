"""Shape measures of each blob against scikit-image's regionprops on the
masks of a real video, and the boundary's pixel edges against a count on
the blob's pixels."""

import math
import os

import cv2
import numpy as np
import pytest

import nerva

VTEST = "/usr/share/doc/opencv-doc/examples/data/vtest.avi"


def vtest_masks(every=30, count=10):
    """Raw running-average masks and cleaned MOG2 masks (larger shapes, holes) of every `every`th frame."""
    if not os.path.exists(VTEST):
        pytest.skip("vtest.avi (opencv-doc) is not installed")
    capture = cv2.VideoCapture(VTEST, cv2.CAP_FFMPEG)
    mog2 = cv2.createBackgroundSubtractorMOG2(500, 16.0, True)
    ellipse = cv2.getStructuringElement(cv2.MORPH_ELLIPSE, (7, 7))
    average = None
    masks = []
    for index in range(every * count):
        ok, frame = capture.read()
        if not ok:
            break
        grey = cv2.cvtColor(frame, cv2.COLOR_BGR2GRAY)
        if average is None:
            average = nerva.AverageBackground(grey.shape[1], grey.shape[0], roi=(0, 0, grey.shape[1], grey.shape[0]))
        raw = average.apply(grey)
        moving = cv2.threshold(mog2.apply(frame), 200, 255, cv2.THRESH_BINARY)[1]
        if index % every == every - 1:
            masks += [raw, cv2.morphologyEx(moving, cv2.MORPH_CLOSE, ellipse)]
    return masks


@pytest.fixture(scope="module")
def measured():
    """(blobs, regionprops in blob order) of every mask."""
    skimage_measure = pytest.importorskip("skimage.measure")  # the tests without it still run
    pairs = []
    for mask in vtest_masks():
        seg = nerva.Segmenter(mask.shape[1], mask.shape[0], measures=True)
        blobs = seg.segment(mask)
        regions = skimage_measure.regionprops(seg.labels())
        pairs.append((blobs, regions))
    return pairs


def each_blob(measured):
    for blobs, regions in measured:
        for i, region in enumerate(regions):
            yield blobs, i, region


def test_moments_axes_eccentricity_and_perimeter_match(measured):
    for blobs, i, r in each_blob(measured):
        mu = r.moments_central / r.area  # indexed [row order, column order]
        np.testing.assert_allclose(blobs.moments[i], [mu[0, 2], mu[1, 1], mu[2, 0]], rtol=0, atol=1e-9)
        assert blobs.major_axis[i] == pytest.approx(r.major_axis_length, abs=1e-9)
        assert blobs.minor_axis[i] == pytest.approx(r.minor_axis_length, abs=1e-9)
        assert blobs.eccentricity[i] == pytest.approx(r.eccentricity, abs=1e-9)
        assert blobs.perimeter[i] == pytest.approx(r.perimeter, abs=1e-9)


def test_orientation_is_scikit_images_seen_from_the_x_axis(measured):
    """scikit-image measures from the row axis, counter-clockwise; nerva from the x axis towards +y."""
    checked = 0
    for blobs, i, r in each_blob(measured):
        mu20, _, mu02 = blobs.moments[i]
        if mu20 == mu02:
            continue  # scikit-image's own case, below
        difference = blobs.orientation[i] - (math.pi / 2 - r.orientation)
        assert abs(math.remainder(difference, math.pi)) < 1e-9
        checked += 1
    assert checked > 100


@pytest.mark.parametrize("pixels,orientation", [
    ([(1, 1)], 0.0),                                     # a point has no direction
    ([(1, 1), (2, 1), (2, 2)], math.pi / 4),              # equal variances: the diagonal the pixels lean to
])
def test_orientation_with_equal_variances(pixels, orientation):
    """Where the variances are equal scikit-image answers +-pi/4 against its own limit; nerva keeps the limit."""
    mask = np.zeros((5, 5), np.uint8)
    for x, y in pixels:
        mask[y, x] = 1
    assert nerva.blobs(mask, measures=True).orientation[0] == pytest.approx(orientation, abs=1e-12)


def test_boundary_edges_count_the_pixel_edges_to_the_outside_and_to_holes(measured):
    for blobs, i, r in each_blob(measured):
        inside = np.pad(r.image, 1).astype(np.int8)
        edges = np.abs(np.diff(inside, axis=0)).sum() + np.abs(np.diff(inside, axis=1)).sum()
        assert blobs.boundary_edges[i] == edges


def test_measures_are_asked_for():
    blobs = nerva.blobs(np.ones((3, 3), np.uint8))
    with pytest.raises(AttributeError, match="measures=True"):
        blobs.orientation
