"""blobs_in_video gives nerva-blobs' results frame for frame."""

import json
import shutil
import subprocess
import time

import cv2
import numpy as np
import pytest

import nerva
from conftest import free_port, program_lines


def generator_lines(source, **options):
    return [json.loads(nerva.json_line(i, blobs)) for i, _, blobs in nerva.blobs_in_video(str(source), **options)]


@pytest.mark.parametrize("program_options,options", [
    ([], {}),
    (["--open", "3", "--close", "5", "--min-pixels", "10", "--roi", "10,20,130,90", "--steps", "1,2",
      "--threshold", "30", "--learning-rate", "0.05"],
     dict(opening=3, closing=5, min_pixels=10, roi=(10, 20, 130, 90), steps=(1, 2), threshold=30,
          learning_rate=0.05)),
    (["--background", "mog2", "--min-side", "3"], dict(background="mog2", min_side=3)),
    # Without a clean-up the running average is segmented row by row, never as a whole mask.
    (["--preset", "raw", "--roi", "13,7,130,90", "--steps", "3,2"], dict(preset="raw", roi=(13, 7, 130, 90),
                                                                         steps=(3, 2))),
])
def test_generator_matches_the_program(nerva_blobs, video, program_options, options):
    expected = program_lines(nerva_blobs, video, *program_options)
    got = generator_lines(video, **options)
    assert len(got) == 30
    assert sum(len(line["blobs"]) for line in got) > 0
    assert got == expected


def test_mask_sequences_match_the_program(nerva_blobs, tmp_path, rng):
    for i in range(5):
        mask = np.zeros((60, 80, 3), np.uint8)
        mask[rng.integers(0, 60, 40), rng.integers(0, 80, 40), rng.integers(0, 3, 40)] = 7
        cv2.imwrite(str(tmp_path / f"m_{i:03d}.png"), mask)
    pattern = tmp_path / "m_%03d.png"
    assert generator_lines(pattern, masks=True) == program_lines(nerva_blobs, pattern, "--masks")
    closed = program_lines(nerva_blobs, tmp_path, "--masks", "--close", "3")
    assert generator_lines(tmp_path, masks=True, closing=3) == closed


def _listening(port):
    """Read from /proc, so as not to use up the server's one connection."""
    with open("/proc/net/tcp") as table:
        return f":{port:04X} 00000000:0000 0A" in table.read()


@pytest.mark.skipif(shutil.which("ffmpeg") is None, reason="ffmpeg is not installed (scripts/setup.sh installs it)")
def test_live_stream_gives_the_blobs_of_the_file_it_serves(tmp_path):
    port = free_port()
    clip = tmp_path / "clip.ts"
    url = f"http://127.0.0.1:{port}/camera.ts"
    ffmpeg = ["ffmpeg", "-nostdin", "-loglevel", "quiet", "-y"]
    subprocess.run([*ffmpeg, "-f", "lavfi", "-i", "testsrc=size=160x120:rate=25", "-t", "1", "-c:v", "mpeg2video",
                    "-g", "5", "-f", "mpegts", str(clip)], check=True)
    with subprocess.Popen([*ffmpeg, "-re", "-i", str(clip), "-c", "copy", "-f", "mpegts", "-listen", "1", url]) as server:
        deadline = time.monotonic() + 60  # a generous bound: the wait ends when ffmpeg listens
        while not _listening(port):
            assert server.poll() is None, "ffmpeg ended before it listened"
            assert time.monotonic() < deadline, "ffmpeg does not listen"
            time.sleep(0.05)
        live = generator_lines(url, masks=True)
        server.kill()
    assert len(live) > 0
    assert live == generator_lines(clip, masks=True)[:len(live)]


def test_a_dead_address_fails_by_name():
    dead = f"http://127.0.0.1:{free_port()}/none.ts"
    assert nerva.is_live_source(dead)
    with pytest.raises(nerva.InputError, match="none.ts"):
        generator_lines(dead)


def test_average_background_refuses_other_dtypes():
    with pytest.raises(TypeError, match="uint8"):
        nerva.AverageBackground(64, 48).apply(np.zeros((48, 64), np.float32))


def test_pattern_fields_wider_than_20_are_refused_by_name(tmp_path):
    with pytest.raises(ValueError, match="field width 21 is too large"):
        next(nerva.blobs_in_video(str(tmp_path / "img_%21d.png"), masks=True))


def test_a_pattern_field_of_20_reads_its_files(tmp_path):
    cv2.imwrite(str(tmp_path / f"{1:020d}.png"), np.full((4, 4), 255, np.uint8))
    (line,) = generator_lines(tmp_path / "%020d.png", masks=True)
    assert line["blobs"][0]["npix"] == 16


def _checkerboard_masks(folder, count, side=256):
    board = (np.indices((side, side)).sum(axis=0) % 2 * 255).astype(np.uint8)  # 32768 regions
    folder.mkdir()
    for i in range(count):
        cv2.imwrite(str(folder / f"m{i}.png"), board)
    return folder


def test_frames_beyond_the_blob_pool_write_one_line_each_and_say_so(tmp_path, capfd):
    folder = _checkerboard_masks(tmp_path / "boards", 2)
    frames = list(nerva.blobs_in_video(str(folder), masks=True))
    assert [blobs.dropped for _, _, blobs in frames] == [32768 - 2000] * 2
    err = capfd.readouterr().err
    assert err.splitlines() == ["RLEsegm_get_new_blob(): too many blobs !Last blob reused. (30768 times in this frame)"] * 2


def test_the_memory_ceiling_reaches_blobs_in_video_as_a_quiet_memory_error(tmp_path, capfd):
    folder = _checkerboard_masks(tmp_path / "boards", 1)
    with pytest.raises(MemoryError, match="memory ceiling of 1000000"):
        next(nerva.blobs_in_video(str(folder), masks=True, memory_ceiling=1_000_000))
    assert capfd.readouterr().err == ""


INTERRUPTED_WHILE_OPENING = """
import sys, nerva
try:
    for _ in nerva.blobs_in_video(sys.argv[1]):
        pass
except KeyboardInterrupt:
    print("interrupted", flush=True)
    sys.stdin.read()  # stays until the test has looked at the connection
"""


def test_ctrl_c_while_a_silent_stream_opens_returns_before_the_open_gives_up():
    """The interrupt is seen while the silent connection is still open: the
    caller did not wait for the open's timeout (the source closes the
    connection when it gives up)."""
    import os
    import signal
    import socket
    import sys
    with socket.create_server(("127.0.0.1", 0)) as server:
        url = f"tcp://127.0.0.1:{server.getsockname()[1]}"
        child = subprocess.Popen([sys.executable, "-c", INTERRUPTED_WHILE_OPENING, url], stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, text=True)
        try:
            connection, _ = server.accept()
            with connection:
                os.kill(child.pid, signal.SIGINT)
                assert child.stdout.readline() == "interrupted\n"
                connection.setblocking(False)
                with pytest.raises(BlockingIOError):
                    connection.recv(1)  # b"" once the open gave up and closed it
        finally:
            child.kill()
            child.communicate()
