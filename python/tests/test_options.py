"""nerva-blobs, blobs_in_video and nerva-fleet accept and refuse the same
options, with messages naming the option as each spells it."""

import re
import subprocess

import pytest

import nerva
from nerva import fleet


# (program flags, Python keywords, message with the program's names, with Python's)
FRAME_REFUSALS = [
    (["--open", "3000"], dict(opening=3000), "--open 3000: the kernel is larger than the 160x120 frame",
     "opening 3000: the kernel is larger than the 160x120 frame"),
    (["--roi", "150,100,20,10"], dict(roi=(150, 100, 20, 10)), "--roi 150,100,20,10 lies outside the 160x120 frame",
     "roi 150,100,20,10 lies outside the 160x120 frame"),
]
REFUSALS = [
    (["--threshold", "300"], dict(threshold=300), "--threshold: must lie between 0 and 255",
     "threshold: must lie between 0 and 255"),
    (["--steps", "0,1"], dict(steps=(0, 1)), "--steps: steps must be at least 1 (got 0,1)",
     "steps: steps must be at least 1 (got 0,1)"),
    (["--masks", "--background", "mog2"], dict(masks=True, background="mog2"),
     "--masks and --background mog2 exclude each other", "masks and background mog2 exclude each other"),
    (["--preset", "trucks"], dict(preset="trucks"), "--preset", "preset must be people, vehicles or raw"),
]


@pytest.mark.parametrize("flags,keywords,program_message,python_message", FRAME_REFUSALS + REFUSALS)
def test_the_program_and_python_refuse_the_same_options(nerva_blobs, video, flags, keywords, program_message,
                                                        python_message):
    program = subprocess.run([nerva_blobs, str(video), *flags], capture_output=True, text=True, timeout=60)
    assert program.returncode == 2
    assert program_message in program.stderr
    with pytest.raises(ValueError, match=re.escape(python_message)):
        next(nerva.blobs_in_video(str(video), **keywords))


@pytest.mark.parametrize("flags,keywords,program_message,python_message", REFUSALS)
def test_the_fleet_refuses_on_its_command_line_what_needs_no_frame(capsys, flags, keywords, program_message,
                                                                   python_message):
    with pytest.raises(SystemExit) as stop:
        fleet.parse_arguments(["in.avi", "-o", "out", *flags])
    assert stop.value.code == 2
    assert program_message in capsys.readouterr().err


def test_misspelt_fleet_options_name_the_nearest(capsys):
    with pytest.raises(SystemExit):
        fleet.parse_arguments(["in.avi", "-o", "out", "--min-pixel", "5"])
    assert "unknown option --min-pixel; did you mean --min-pixels" in capsys.readouterr().err
