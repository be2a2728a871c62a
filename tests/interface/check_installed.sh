#!/bin/sh
# Installs a build into a folder of its own and builds a C program, the one that the README shows,
# and a C++ program against it, through pkg-config and through the CMake package; then runs them.
#
# usage: check_installed.sh SOURCE_DIR BUILD_DIR
set -eu

source=$1
build=$2
work=$(mktemp -d)
manifest=$build/install_manifest.txt
# What a developer installed from this build can be uninstalled afterwards, too.
[ ! -f "$manifest" ] || cp "$manifest" "$work/manifest"
trap 'rm -f "$manifest"; [ ! -f "$work/manifest" ] || cp "$work/manifest" "$manifest"; rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >"$work/install.log" || {
    cat "$work/install.log"
    exit 1
}
libdir=$(dirname "$(find "$prefix" -name libvesk.so.1 | head -n 1)")
pkgconfig=$libdir/pkgconfig

# The program in the README is its first block of C.
example=$work/example.c
awk '/^```c$/ { inside = 1; next } /^```$/ { if (inside) exit } inside' "$source/README.md" >"$example"
[ -s "$example" ] || {
    echo "README.md shows no C program"
    exit 1
}

run()
{
    (mkdir -p "$work/run" && cd "$work/run" && LD_LIBRARY_PATH=$libdir "$@")
}

flags=$(PKG_CONFIG_PATH=$pkgconfig pkg-config --cflags --libs vesk)
static_flags=$(PKG_CONFIG_PATH=$pkgconfig pkg-config --static --libs vesk)
case $static_flags in
*-lz*-lm* | *-lm*-lz*) ;;
*)
    echo "vesk.pc does not name what a static program needs: $static_flags"
    exit 1
    ;;
esac
cc -std=c11 -Wall -Wextra -Werror "$example" $flags -o "$work/c_program"
c++ -std=c++17 -Wall -Wextra -Werror "$source/tests/interface/consumer/consumer.cpp" $flags \
    -o "$work/cxx_program"
run "$work/c_program"
run "$work/cxx_program"

cmake -G Ninja -S "$source/tests/interface/consumer" -B "$work/cmake" "-DCMAKE_PREFIX_PATH=$prefix" \
    "-DEXAMPLE=$example" >"$work/cmake.log" 2>&1 || {
    cat "$work/cmake.log"
    exit 1
}
cmake --build "$work/cmake" >"$work/cmake.log" 2>&1 || {
    cat "$work/cmake.log"
    exit 1
}
for program in c_program cxx_program static_program; do
    run "$work/cmake/$program"
done

# The headers, the library, pkg-config and the command name the same version.
version=$(PKG_CONFIG_PATH=$pkgconfig pkg-config --modversion vesk)
printf '%s\n' '#include <stdio.h>' '#include <vesk/vesk_version.h>' \
    'int main(void) { return printf("%s %s", VESK_VERSION, vesk_version()) < 0; }' >"$work/version.c"
cc "$work/version.c" $flags -o "$work/version"
[ "$(run "$work/version")" = "$version $version" ] || {
    echo "pkg-config says $version, the headers and the library say: $(run "$work/version")"
    exit 1
}

# The command starts from wherever it is, without help from the environment.
if [ -e "$build/cli/vesk" ]; then
    cp -R "$prefix" "$work/another place"
    for place in "$prefix" "$work/another place"; do
        said=$(cd / && env -u LD_LIBRARY_PATH "$place/bin/vesk" --version)
        [ "$said" = "vesk $version" ] || {
            echo "the installed command said: $said"
            exit 1
        }
    done
fi

# Nothing that is installed names the place where it was built.
if grep -rlF "$source" "$prefix"; then
    echo "installed files name the source folder"
    exit 1
fi

# Uninstalling takes away everything that was laid down, and nothing else.
echo "mine" >"$prefix/bin/mine"
cmake --build "$build" --target uninstall >"$work/uninstall.log" || {
    cat "$work/uninstall.log"
    exit 1
}
left=$(find "$prefix" ! -type d; find "$prefix" -name vesk)
[ "$left" = "$prefix/bin/mine" ] || {
    echo "after uninstalling there is left: $left"
    exit 1
}

# Options of the service that an administrator changed stay; others would be missed by nobody.
if [ -e "$build/cli/vesk" ]; then
    cmake --install "$build" --prefix "$prefix" >"$work/install.log"
    options=$(find "$prefix" -name record.conf)
    echo "interval 5s" >>"$options"
    cmake --build "$build" --target uninstall >"$work/uninstall.log"
    left=$(find "$prefix" ! -type d | sort)
    [ "$left" = "$(printf '%s\n' "$prefix/bin/mine" "$options" | sort)" ] || {
        echo "after changing $options and uninstalling there is left: $left"
        exit 1
    }
fi
