#!/usr/bin/env python3
"""Compiles every public header alone, as C11 and as C++17, with warnings as errors.

usage: check_headers.py C_COMPILER CXX_COMPILER INCLUDE_DIR
"""
import pathlib
import subprocess
import sys


def main():
    c_compiler, cxx_compiler, include = sys.argv[1:]
    headers = sorted(pathlib.Path(include).glob("*.h"))
    if not headers:
        sys.exit(f"no headers in {include}")
    failed = 0
    for header in headers:
        for compiler, standard, language in (
            (c_compiler, "c11", "c"),
            (cxx_compiler, "c++17", "c++"),
        ):
            command = [compiler, f"-std={standard}", "-Wall", "-Wextra", "-Werror"]
            command += ["-fsyntax-only", "-x", language, str(header)]
            result = subprocess.run(command, capture_output=True, text=True, check=False)
            if result.returncode != 0:
                failed += 1
                print(f"{header.name} as {standard}:\n{result.stderr}")
    print(f"{len(headers)} headers, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
