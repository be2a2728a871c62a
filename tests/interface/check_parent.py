#!/usr/bin/env python3
"""Configures Vesk the ways in which strangers meet it, without building: inside another project, by
add_subdirectory and by FetchContent; with no build type; and the library alone on a machine that has
none of the packages that tests, benchmarks and the command want.

usage: check_parent.py SOURCE_DIR C_COMPILER CXX_COMPILER
"""
import pathlib
import re
import subprocess
import sys
import tempfile

# What tests, benchmarks and the command look for.
PACKAGES_OF_OTHERS = ("GTest", "benchmark", "CLI11", "fmt", "nlohmann_json", "PkgConfig", "Python3")

# The parent has a standard and a version of its own, which must stay.
PARENT = """
cmake_minimum_required(VERSION 3.25)
project(parent VERSION 7.8.9 LANGUAGES C CXX)
set(CMAKE_CXX_STANDARD 17)
{inclusion}
if(NOT TARGET vesk::vesk OR NOT TARGET vesk::vesk_static)
  message(FATAL_ERROR "no target vesk::vesk, or no vesk::vesk_static")
endif()
if(NOT CMAKE_CXX_STANDARD EQUAL 17 OR NOT PROJECT_VERSION STREQUAL "7.8.9" OR CMAKE_BUILD_TYPE)
  message(FATAL_ERROR "the settings of the parent changed")
endif()
add_executable(program program.c)
target_link_libraries(program PRIVATE vesk::vesk)
install(TARGETS program)
"""
BY_FOLDER = 'add_subdirectory("{source}" vesk)'
BY_FETCHING = """include(FetchContent)
FetchContent_Declare(vesk SOURCE_DIR "{source}")
FetchContent_MakeAvailable(vesk)"""


class Checker:
    def __init__(self, source, compilers, work):
        self.source = source
        self.compilers = compilers
        self.work = pathlib.Path(work)
        self.failed = False

    def expect(self, holds, message):
        if not holds:
            self.failed = True
            print(message)

    def configure(self, source, name, *options):
        """Returns the folder of the build, or None where configuring failed."""
        build = self.work / name
        command = ["cmake", "-G", "Ninja", "-S", str(source), "-B", str(build)]
        command += [f"-DCMAKE_DISABLE_FIND_PACKAGE_{package}=ON" for package in PACKAGES_OF_OTHERS]
        result = subprocess.run(
            command + self.compilers + list(options), capture_output=True, text=True, check=False
        )
        self.expect(result.returncode == 0, f"{name}: {result.stdout}{result.stderr}")
        return build if result.returncode == 0 else None

    def expect_library_only(self, name, build):
        rules = (build / "build.ninja").read_text()
        outputs = set(re.findall(r"^build (?:\S*/)?([\w.]+)(?: \S+)*:", rules, flags=re.M))
        self.expect(any(name.startswith("libvesk.so") for name in outputs), f"{name}: no library")
        for other in ("vesk", "test_support", "bench_recorder", "replay_reader"):
            self.expect(other not in outputs, f"{name}: builds {other}")
        tests = [path for path in build.rglob("CTestTestfile.cmake") if "add_test" in path.read_text()]
        self.expect(not tests, f"{name}: has tests")

    def check_parent(self, name, inclusion):
        parent = self.work / f"{name}-parent"
        parent.mkdir()
        parent.joinpath("program.c").write_text("int main(void) { return 0; }\n")
        text = PARENT.format(inclusion=inclusion.format(source=self.source))
        parent.joinpath("CMakeLists.txt").write_text(text)
        build = self.configure(parent, name)
        if build is None:
            return
        self.expect_library_only(name, build)
        installed = "".join(path.read_text() for path in build.rglob("cmake_install.cmake"))
        self.expect("libvesk" not in installed, f"{name}: installs the library with the parent")

    def check_library_alone(self):
        options = ["-DVESK_BUILD_CLI=OFF", "-DVESK_BUILD_BENCH=OFF", "-DBUILD_TESTING=OFF"]
        build = self.configure(self.source, "library", *options)
        if build is None:
            return
        self.expect_library_only("library", build)
        cache = (build / "CMakeCache.txt").read_text()
        self.expect(
            re.search(r"^CMAKE_BUILD_TYPE:\w+=Release$", cache, flags=re.M) is not None,
            "library: not Release where no type is given",
        )


def main():
    source, c_compiler, cxx_compiler = sys.argv[1:]
    compilers = [f"-DCMAKE_C_COMPILER={c_compiler}", f"-DCMAKE_CXX_COMPILER={cxx_compiler}"]
    with tempfile.TemporaryDirectory() as work:
        checker = Checker(source, compilers, work)
        checker.check_parent("folder", BY_FOLDER)
        checker.check_parent("fetched", BY_FETCHING)
        checker.check_library_alone()
    return 1 if checker.failed else 0


if __name__ == "__main__":
    sys.exit(main())
