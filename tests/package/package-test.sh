#!/usr/bin/env bash
# The kit where its users meet it: installed into a prefix outside the source and build trees,
# then used by hosts built there. One step per call (CTest runs them as separate tests):
#   install | cmake-host | pkgconfig-host | cli | ui-host | subdirectory-host | deb | exports |
#   missing-bundle | cleanup
# Settings come from the environment: SAGELY_SOURCE_DIR, SAGELY_BUILD_DIR, SAGELY_WORK_DIR,
# SAGELY_LIBDIR, SAGELY_SHARED (ON/OFF), SAGELY_CXX, SAGELY_CXX_FLAGS, SAGELY_LINKER_FLAGS.
set -euo pipefail

step=$1
source_dir=$SAGELY_SOURCE_DIR
build_dir=$SAGELY_BUILD_DIR
work=$SAGELY_WORK_DIR
prefix=$work/prefix
question="How are API keys stored?"

if [ "$step" = cleanup ]; then
    rm -rf "$work"
    exit 0
fi

# A home of its own, so no run touches the user's settings, keys or history.
export HOME=$work/home-$step XDG_DATA_HOME=$work/home-$step/data
mkdir -p "$XDG_DATA_HOME"

configure_and_build() {  # source folder, build folder, extra cmake arguments…
    local source=$1 build=$2
    shift 2
    cmake -S "$source" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE= \
        -DCMAKE_CXX_COMPILER="$SAGELY_CXX" -DCMAKE_CXX_FLAGS="$SAGELY_CXX_FLAGS" \
        -DCMAKE_EXE_LINKER_FLAGS="$SAGELY_LINKER_FLAGS" \
        -DCMAKE_SHARED_LINKER_FLAGS="$SAGELY_LINKER_FLAGS" "$@" >"$build.configure.log" 2>&1 ||
        { cat "$build.configure.log"; return 1; }
    cmake --build "$build" >"$build.build.log" 2>&1 || { tail -50 "$build.build.log"; return 1; }
}

offline_answer() {  # the sagely executable
    "$1" ask --offline "$question"
}

case $step in
install)
    rm -rf "$work"
    mkdir -p "$work"
    cmake --install "$build_dir" --prefix "$prefix" >"$work/install.log"
    test -f "$prefix/share/SagelyKit/SagelyKit_SagelyCore.bundle/SagelyGuide.md"
    echo "installed into $prefix"
    ;;
cmake-host)
    configure_and_build "$source_dir/tests/package/core-host" "$work/core-host" \
        -DCMAKE_PREFIX_PATH="$prefix"
    "$work/core-host/core-host"
    ;;
pkgconfig-host)
    export PKG_CONFIG_PATH=$prefix/$SAGELY_LIBDIR/pkgconfig
    host=$work/pkgconfig-host
    mkdir -p "$host"
    if [ "$SAGELY_SHARED" = ON ]; then
        flags="$(pkg-config --cflags --libs sagely-core) -Wl,-rpath,$(pkg-config --variable=libdir sagely-core)"
    else
        flags=$(pkg-config --cflags --libs sagely-core)
        # A static kit is part of the program, which ships the resources beside itself.
        cp -R "$(pkg-config --variable=resourcedir sagely-core)" "$host/"
    fi
    # shellcheck disable=SC2086
    "$SAGELY_CXX" -std=c++20 $SAGELY_CXX_FLAGS "$source_dir/tests/package/core-host/main.cpp" \
        -o "$host/pkgconfig-host" $flags $SAGELY_LINKER_FLAGS
    "$host/pkgconfig-host"
    ;;
cli)
    offline_answer "$prefix/bin/sagely"
    # The installed tree can be moved as a whole.
    rm -rf "$work/moved"
    mkdir -p "$work/moved"
    cp -a "$prefix" "$work/moved/prefix"
    echo "-- moved to $work/moved/prefix"
    offline_answer "$work/moved/prefix/bin/sagely"
    ;;
ui-host)
    configure_and_build "$source_dir/tests/package/ui-host" "$work/ui-host" \
        -DCMAKE_PREFIX_PATH="$prefix"
    QT_QPA_PLATFORM=offscreen "$work/ui-host/ui-host"
    ;;
subdirectory-host)
    configure_and_build "$source_dir/tests/package/subdirectory-host" "$work/subdirectory-host" \
        -DSAGELY_SOURCE_DIR="$source_dir" -DBUILD_SHARED_LIBS="$SAGELY_SHARED"
    "$work/subdirectory-host/subdirectory-host"
    ;;
deb)
    packages=$work/deb
    rm -rf "$packages" "$work/root"
    # Packed quickly for the test; the packages are the same but for their compression.
    (cd "$build_dir" && cpack -G DEB -B "$packages" -D CPACK_DEBIAN_COMPRESSION_TYPE=gzip \
        >"$work/cpack.log" 2>&1) ||
        { cat "$work/cpack.log"; exit 1; }
    for deb in "$packages"/*.deb; do
        echo "$(dpkg-deb -f "$deb" Package) $(dpkg-deb -f "$deb" Version) $(stat -c %s "$deb") bytes: $(dpkg-deb -f "$deb" Depends)"
        dpkg -x "$deb" "$work/root"
    done
    test -f "$work/root/usr/share/SagelyKit/SagelyKit_SagelyCore.bundle/SagelyGuide.md"
    test -f "$work/root/usr/lib/cmake/SagelyKit/SagelyKitConfig.cmake"
    test -f "$work/root/usr/include/sagely/AICoach.h"
    offline_answer "$work/root/usr/bin/sagely"
    ;;
exports)
    # A shared kit carries its soname and offers its public API only.
    for library in sagelycore sagelyui; do
        file=$prefix/$SAGELY_LIBDIR/lib$library.so
        [ -e "$file" ] || continue
        readelf -d "$file" | grep -q "Library soname: \[lib$library.so.0\]"
        private=$(nm -D --defined-only -C "$file" | grep -E "sagely::(ui::)?detail::|::Impl::|\(anonymous namespace\)" || true)
        if [ -n "$private" ]; then
            echo "FAIL: lib$library.so exports private symbols:"
            echo "$private" | head -20
            exit 1
        fi
        echo "lib$library.so.0: $(nm -D --defined-only "$file" | grep -c ' [TWVDBu] ') symbols, none private"
    done
    ;;
missing-bundle)
    # A kit installed without its resources is a packaging error, and stops saying so.
    broken=$work/without-resources
    rm -rf "$broken"
    mkdir -p "$broken"
    cp -a "$prefix" "$broken/prefix"
    rm -rf "$broken/prefix/share/SagelyKit"
    status=0
    offline_answer "$broken/prefix/bin/sagely" >"$broken/out.log" 2>&1 || status=$?
    cat "$broken/out.log"
    if [ "$status" -eq 0 ]; then
        echo "FAIL: the kit ran without its resources (is one installed in the built-in prefix?)"
        exit 1
    fi
    grep -q "unable to find bundle named SagelyKit_SagelyCore" "$broken/out.log"
    echo "stopped as it must (exit $status)"
    ;;
*)
    echo "unknown step: $step" >&2
    exit 2
    ;;
esac
