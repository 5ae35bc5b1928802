"""nerva-fleet on a real Dask cluster: outputs byte-identical to nerva-blobs,
nothing lost when a worker dies, failures isolated, re-runs resumed."""

import json
import os
import subprocess
import sys
import threading
import time

import psutil
import pytest

distributed = pytest.importorskip("distributed")

from nerva import fleet  # noqa: E402
from conftest import manifest, program_output, walkers, write_video  # noqa: E402

OPTIONS = ["--open", "3", "--min-pixels", "5"]


@pytest.fixture(scope="module")
def videos(tmp_path_factory):
    folder = tmp_path_factory.mktemp("videos")
    for k in range(4):
        write_video(folder / f"cam{k}.avi", walkers(40 + 10 * k, seed=k))
    return folder


def run(client, *argv):
    return fleet.run_fleet(client, fleet.parse_arguments([*map(str, argv), "-q", *OPTIONS]))


def assert_identical(nerva_blobs, videos, out):
    for k in range(4):
        assert (out / f"cam{k}.jsonl").read_bytes() == program_output(nerva_blobs, videos / f"cam{k}.avi", *OPTIONS)
    assert not [n for _, _, files in os.walk(out / ".nerva-fleet") for n in files if n != "lock"]


def test_the_command_line_matches_the_program_and_force_reruns(nerva_blobs, client, videos, tmp_path):
    out = tmp_path / "out"
    result = subprocess.run([sys.executable, "-m", "nerva.fleet", str(videos), "--output", str(out),
                             "--scheduler", client.scheduler.address, *OPTIONS], capture_output=True, text=True,
                            timeout=240)
    assert result.returncode == 0, result.stderr
    assert "cam3" in result.stderr  # the summary table
    assert "frames/s" in result.stderr
    assert_identical(nerva_blobs, videos, out)
    entries = manifest(out)
    assert {e["status"] for e in entries.values()} == {"done"}
    assert entries["cam1"]["frames"] == 50
    assert entries["cam1"]["options"]["opening"] == 3
    assert entries["cam1"]["blobs_per_frame_mean"] > 0

    assert run(client, videos / "cam0.avi", "--output", out, "--force") == 0
    assert manifest(out)["cam0"]["status"] == "done"


def test_the_longest_input_starts_first_whatever_its_name(client, videos, tmp_path):
    # cam0..cam3 grow longer in name order: taken as named, the longest
    # would start last and alone set the run's length.
    with distributed.get_task_stream(client) as stream:
        assert run(client, videos, "--output", tmp_path / "out") == 0
    segmenting = [t for t in stream.data if not t["key"].startswith("nerva-probe-")]
    first_two = sorted(segmenting, key=lambda t: t["startstops"][0]["start"])[:2]
    assert "nerva-cam3-" in " ".join(t["key"] for t in first_two)


def test_a_bad_input_fails_alone(client, videos, tmp_path):
    (tmp_path / "broken.avi").write_bytes(b"\x00garbage" * 500)
    out = tmp_path / "out"
    assert run(client, videos / "cam0.avi", tmp_path / "broken.avi", tmp_path / "missing.avi", "--output", out) == 1
    entries = manifest(out)
    assert entries["cam0"]["status"] == "done"
    assert entries["broken"]["status"] == "failed"
    assert "cannot decode" in entries["broken"]["reason"]
    assert entries["missing"]["status"] == "failed"
    assert "does not exist" in entries["missing"]["reason"]
    assert not (out / "broken.jsonl").exists()


def test_masks_are_split_so_workers_stay_busy_and_the_pieces_join_exactly(nerva_blobs, client, tmp_path):
    # Masks carry no background state: a long masks video is split on its
    # own, and chunked runs agree with the program's whole run.
    import numpy as np
    frames = [np.where(f > 150, 255, 0).astype(np.uint8) for f in walkers(400, seed=7)]
    write_video(tmp_path / "masks.avi", frames)
    expected = program_output(nerva_blobs, tmp_path / "masks.avi", "--masks", *OPTIONS)
    auto = tmp_path / "auto"
    chunked = tmp_path / "chunked"
    assert run(client, tmp_path / "masks.avi", "--masks", "--output", auto) == 0
    assert manifest(auto)["masks"]["pieces"] == 2
    assert (auto / "masks.jsonl").read_bytes() == expected
    assert run(client, tmp_path / "masks.avi", "--masks", "--chunk", "90", "--warmup", "3", "--output", chunked) == 0
    assert manifest(chunked)["masks"]["pieces"] == 5
    assert (chunked / "masks.jsonl").read_bytes() == expected


@pytest.mark.timing  # the killer must catch a task before it ends
def test_a_worker_killed_mid_video_loses_nothing(nerva_blobs, client, videos, tmp_path):
    out = tmp_path / "out"
    pids = client.run(os.getpid)
    killed = []

    def kill_a_busy_worker():  # as soon as a task is writing, kill the worker process running one
        for _ in range(30000):
            busy = [w for w, keys in client.processing().items() if keys and w in pids]
            if busy and any(files for _, _, files in os.walk(out / ".nerva-fleet")):
                return killed.append(psutil.Process(pids[busy[0]]).kill())
            time.sleep(0.002)

    killer = threading.Thread(target=kill_a_busy_worker)
    killer.start()
    assert run(client, videos, "--output", out) == 0
    killer.join()
    assert killed, "no worker was caught mid-video"
    assert_identical(nerva_blobs, videos, out)


def test_options_the_frame_refuses_fail_the_input_at_once(client, videos, tmp_path):
    out = tmp_path / "out"
    assert run(client, videos / "cam0.avi", "-o", out, "--close", "3000") == 1
    entry = manifest(out)["cam0"]
    assert entry["status"] == "failed"
    assert "closing 3000: the kernel is larger than the 160x120 frame" in entry["reason"]


def test_tracks_and_the_manifests_line_counts_are_the_programs(nerva_blobs, client, videos, tmp_path):
    out = tmp_path / "out"
    tracking = ["--line", "mid:80,0,80,119", "--zone", "left:0,0;80,0;80,119;0,119"]
    assert run(client, videos / "cam1.avi", "--output", out, *tracking) == 0
    expected = program_output(nerva_blobs, videos / "cam1.avi", *tracking, *OPTIONS)
    assert (out / "cam1.jsonl").read_bytes() == expected
    assert any(json.loads(line)["tracks"] for line in expected.splitlines())
    exits = [e for line in expected.splitlines() for e in json.loads(line)["events"] if e["type"] == "exit"]
    assert any("dwell" in e for e in exits)  # in seconds, at the stream's frame rate
    last = json.loads(expected.splitlines()[-1])
    assert manifest(out)["cam1"]["counts"] == last["counts"]
