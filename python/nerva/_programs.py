"""Commands that run the programs a pip install ships inside the package."""

import os
import sys


def nerva_blobs() -> None:
    """The nerva-blobs command: the program built beside this module, given the command line as typed."""
    program = os.path.join(os.path.dirname(os.path.abspath(__file__)), "nerva-blobs")
    if not os.access(program, os.X_OK):
        sys.exit(f"nerva-blobs: the program is not installed beside the nerva package ({program}); "
                 "reinstall nerva with pip, or build it with make")
    os.execv(program, [program, *sys.argv[1:]])
