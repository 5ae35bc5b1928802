"""Builds the extension module nerva._nerva with the project's own CMake
build (python/CMakeLists.txt), for the interpreter running this script, and
the nerva-blobs program shipped beside it (the nerva-blobs command runs it)
with the module it loads for image and video I/O, so that the package installs
the whole toolset."""

import os
import re
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))


def version():
    with open(os.path.join(ROOT, "nerva", "version.h")) as f:
        return re.search(r'NERVA_VERSION_STRING "([0-9.]+)"', f.read()).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = os.path.abspath(os.path.join(self.build_temp, "cmake"))
        os.makedirs(build, exist_ok=True)
        subprocess.run(["cmake", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
                        "-DNERVA_BUILD_PYTHON=ON", "-DNERVA_BUILD_TESTS=OFF", "-DNERVA_BUILD_TOOLS=ON",
                        f"-DPython3_EXECUTABLE={sys.executable}"], check=True, stdout=subprocess.DEVNULL)
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", "2")
        subprocess.run(["cmake", "--build", build, "--target", "_nerva", "nerva-blobs", "nerva-blobs-io", "-j",
                        jobs], check=True)
        built = os.path.join(build, "python", "nerva", os.path.basename(self.get_ext_filename(ext.name)))
        target = self.get_ext_fullpath(ext.name)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        self.copy_file(built, target)
        # The library the module links, found beside it ($ORIGIN).
        for name in os.listdir(os.path.dirname(built)):
            if name.startswith("libnerva.so"):
                self.copy_file(os.path.join(os.path.dirname(built), name), os.path.dirname(target))
        # The program looks for its I/O module beside itself first.
        for name in ("nerva-blobs", "nerva-blobs-io.so"):
            self.copy_file(os.path.join(build, "tools", "nerva-blobs", name),
                           os.path.join(os.path.dirname(target), name))


setup(version=version(), ext_modules=[Extension("nerva._nerva", sources=[])], cmdclass={"build_ext": CMakeBuild})
