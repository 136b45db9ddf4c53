#!/usr/bin/env bash
# Builds the Debian packages from a build folder, unpacks them into a scratch
# root and uses what they install from there. See CMakeLists.txt beside it.
set -euo pipefail

usage="usage: package_test.sh --build DIR --source DIR --cmake CMAKE --cpack CPACK --python PY --expect LIST --firmware-tool NAME"
while [ $# -gt 0 ]; do
    case "$1" in
        --build) BUILD=$2 ;;
        --source) SOURCE=$2 ;;
        --cmake) CMAKE=$2 ;;
        --cpack) CPACK=$2 ;;
        --python) PYTHON=$2 ;;
        --expect) EXPECT=$2 ;;
        --firmware-tool) FIRMWARE_TOOL=$2 ;;
        *) echo "$usage" >&2; exit 2 ;;
    esac
    shift 2
done
: "${BUILD:?$usage}" "${SOURCE:?$usage}" "${CMAKE:?$usage}" "${CPACK:?$usage}" "${FIRMWARE_TOOL:?$usage}"
PYTHON=${PYTHON:-} EXPECT=${EXPECT:-}
expects() { [[ ",$EXPECT," == *",$1,"* ]]; }

WORK=$(mktemp -d "${TMPDIR:-/tmp}/d3-package-test.XXXXXX")
SIM_PID=""
cleanup() {
    if [ -n "$SIM_PID" ]; then kill -INT "$SIM_PID" 2>/dev/null || true; wait "$SIM_PID" 2>/dev/null || true; fi
    rm -rf "$WORK"
}
trap cleanup EXIT
checks=0
fail() { echo "FAILED: $*" >&2; exit 1; }
# Matches on captured text: grep -q at the end of a pipe can stop its writer
# early, which pipefail would count as a failure.
has() { grep -q -- "$2" <<<"$1"; }
pass() { checks=$((checks + 1)); echo "ok: $*"; }

# --- build the packages from the build folder's objects -----------------------
"$CPACK" --config "$BUILD/CPackConfig.cmake" -G DEB -B "$WORK/packages" >"$WORK/cpack.log" 2>&1 ||
    { cat "$WORK/cpack.log" >&2; fail "cpack"; }
deb() { ls "$WORK/packages/$1"_*.deb 2>/dev/null | head -n1; }
field() { dpkg-deb -f "$(deb "$1")" "$2"; }
wanted=(libd3-sdk1 libd3-sdk-dev d3-tools)
expects python && wanted+=(python3-d3)
expects viewer && wanted+=(dexalon)
for p in "${wanted[@]}"; do
    [ -n "$(deb "$p")" ] || fail "no package $p in: $(ls "$WORK/packages")"
done
pass "packages ${wanted[*]}"

# Dependencies: our own packages by component, Debian's by dpkg-shlibdeps.
[[ "$(field libd3-sdk-dev Depends)" == *"libd3-sdk1 (= "* ]] || fail "libd3-sdk-dev Depends: $(field libd3-sdk-dev Depends)"
[[ "$(field d3-tools Depends)" == *libd3-sdk1* && "$(field d3-tools Depends)" == *libturbojpeg0* ]] ||
    fail "d3-tools Depends: $(field d3-tools Depends)"
if expects python; then
    [[ "$(field python3-d3 Depends)" == *python3-numpy* && "$(field python3-d3 Depends)" == *libd3-sdk1* ]] ||
        fail "python3-d3 Depends: $(field python3-d3 Depends)"
fi
if expects viewer; then
    depends=$(field dexalon Depends)
    for d in libd3-sdk1 libqt5widgets5 libvtk9; do
        [[ "$depends" == *"$d"* ]] || fail "dexalon does not depend on $d: $depends"
    done
fi
shlibs=$(dpkg-deb --ctrl-tarfile "$(deb libd3-sdk1)" | tar -xO ./shlibs)
has "$shlibs" '^libd3_sdk 1 libd3-sdk1' || fail "libd3-sdk1 shlibs: $shlibs"
pass "package dependencies"

# The runtime package holds the versioned library only, the development
# package the link-time name.
runtime=$(dpkg-deb -c "$(deb libd3-sdk1)")
dev=$(dpkg-deb -c "$(deb libd3-sdk-dev)")
has "$runtime" 'libd3_sdk\.so\.1\.0\.0$' || fail "libd3-sdk1 lacks libd3_sdk.so.1.0.0: $runtime"
! has "$runtime" 'libd3_sdk\.so -> ' || fail "libd3-sdk1 carries the development link"
has "$dev" 'libd3_sdk\.so -> libd3_sdk\.so\.1' || fail "libd3-sdk-dev lacks the link: $dev"
pass "library files split between runtime and development packages"

# --- unpack into a scratch root -----------------------------------------------
ROOT=$WORK/root
for p in "${wanted[@]}"; do dpkg-deb -x "$(deb "$p")" "$ROOT"; done
LIBDIR=$(dirname "$(find "$ROOT/usr/lib" -name 'libd3_sdk.so.1' | head -n1)")
[ -d "$LIBDIR" ] || fail "libd3_sdk.so.1 not unpacked"
export LD_LIBRARY_PATH=$LIBDIR

# The library's SONAME; programs load it by that name and never carry the
# SDK's code themselves, nor a path into the build folder.
has "$(readelf -d "$LIBDIR/libd3_sdk.so.1")" 'SONAME.*\[libd3_sdk\.so\.1\]' || fail "SONAME"
binaries=("$ROOT/usr/bin/d3ctl")
expects viewer && binaries+=("$ROOT/usr/libexec/dexalon/dexalon")
expects python && binaries+=("$(find "$ROOT" -name 'd3.cpython-*.so' | head -n1)")
for b in "${binaries[@]}"; do
    dynamic=$(readelf -d "$b")
    has "$dynamic" 'NEEDED.*\[libd3_sdk\.so\.1\]' || fail "$b does not load libd3_sdk.so.1"
    ! has "$dynamic" "PATH.*$BUILD" || fail "$b keeps a path into $BUILD"
    ! has "$(nm -D --defined-only "$b")" DeviceManager || fail "$b carries SDK code of its own"
    libs=$(ldd "$b")
    ! has "$libs" 'not found' || fail "$b: $libs"
    has "$libs" "libd3_sdk\.so\.1 => $LIBDIR/" || fail "$b loads another libd3_sdk: $libs"
done
pass "SONAME and dynamic linking of ${#binaries[@]} binaries"

has "$("$ROOT/usr/bin/d3ctl" --help)" 'list' || fail "d3ctl --help"
has "$("$ROOT/usr/bin/d3sim" --help)" '--base-address' || fail "d3sim --help"
pass "d3ctl --help, d3sim --help"

# --- a simulated camera from the unpacked root --------------------------------
export D3_DISCOVERY_PORT=48822 D3_DISCOVERY_ADDRESSES=127.255.255.255
# d3sim prints a line once its camera is up; reading it through a pipe waits
# for exactly that (or for d3sim's end).
mkfifo "$WORK/sim.out"
"$ROOT/usr/bin/d3sim" --cameras 1 --models 3 --base-address 127.0.122.2 --discovery-port 48822 \
    --ctl-port 0 --state "$WORK/state" >"$WORK/sim.out" 2>"$WORK/sim.log" &
SIM_PID=$!
exec 3<"$WORK/sim.out"
ready=""
read -r -t 60 ready <&3 || true
[[ "$ready" == camera* ]] || fail "d3sim did not start: $ready $(cat "$WORK/sim.log")"
# Whatever else it prints is drained, so it never waits on a full pipe.
cat <&3 >/dev/null &

# --- the C++ example against the unpacked SDK ---------------------------------
"$CMAKE" -S "$SOURCE/examples/cpp" -B "$WORK/example" -DCMAKE_PREFIX_PATH="$ROOT/usr" \
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_BUILD_TYPE=Release >"$WORK/example.log" 2>&1 ||
    { cat "$WORK/example.log" >&2; fail "configuring the example"; }
grep -q "^d3_sdk_DIR:PATH=$ROOT/" "$WORK/example/CMakeCache.txt" || fail "the example found another d3_sdk"
"$CMAKE" --build "$WORK/example" >>"$WORK/example.log" 2>&1 || { cat "$WORK/example.log" >&2; fail "building the example"; }
has "$("$WORK/example/stream_and_save" --help)" usage || fail "example --help"
out=$(cd "$WORK" && "$WORK/example/stream_and_save" --ply "$WORK/cloud.ply") || fail "example run: $out"
echo "$out"
[[ "$out" == *"found "*":127.0.122.2"* && "$out" == *"100 frames"* ]] || fail "example output"
saved=$(sed -n 's/^saved \([0-9]*\) points.*/\1/p' <<<"$out")
[ "${saved:-0}" -gt 100000 ] || fail "saved ${saved:-no} points"
has "$(head -n 12 "$WORK/cloud.ply" | tr -d '\0')" "element vertex $saved" || fail "PLY header"
pass "C++ example through find_package(d3_sdk): 100 frames, $saved points saved"

export PKG_CONFIG_PATH=$LIBDIR/pkgconfig
[ "$(pkg-config --modversion d3_sdk)" = 1.0.0 ] || fail "pkg-config version"
# shellcheck disable=SC2046
c++ -std=c++17 -o "$WORK/stream_pc" "$SOURCE/examples/cpp/stream_and_save.cpp" $(pkg-config --cflags --libs d3_sdk)
has "$(ldd "$WORK/stream_pc")" "libd3_sdk\.so\.1 => $LIBDIR/" || fail "pkg-config build does not link the SDK"
has "$("$WORK/stream_pc" 127.0.122.2 --frames 5 --ply "$WORK/pc.ply")" "5 frames" || fail "pkg-config example run"
pass "C++ example through pkg-config"

# --- the Python module --------------------------------------------------------
if expects python; then
    export PYTHONPATH=$ROOT/usr/lib/python3/dist-packages
    where=$("$PYTHON" -c 'import d3; print(d3.__file__)')
    [[ "$where" == "$ROOT"/* ]] || fail "d3 imported from $where"
    out=$("$PYTHON" "$SOURCE/examples/python/depth_mean.py" 127.0.122.2) || fail "Python example: $out"
    echo "$out"
    [[ "$out" == *"depth (480, 640) mean "* ]] || fail "Python example output"
    pass "Python module and example"
fi

# --- the viewer's launcher, menu entry and icon -------------------------------
if expects viewer; then
    desktop=$ROOT/usr/share/applications/dexalon.desktop
    desktop-file-validate "$desktop" || fail "desktop file"
    exec_name=$(sed -n 's/^Exec=\([^ ]*\).*/\1/p' "$desktop")
    [ -x "$ROOT/usr/bin/$exec_name" ] || fail "Exec=$exec_name is not an installed program"
    [ -f "$ROOT/usr/share/icons/hicolor/48x48/apps/$(sed -n 's/^Icon=//p' "$desktop").png" ] || fail "icon"
    if expects firmware; then
        [ -x "$ROOT/usr/libexec/dexalon/$FIRMWARE_TOOL" ] || fail "the firmware tool is not beside the viewer"
    fi
    # The launcher from the package, in front of a stand-in viewer that
    # reports where it runs and whether the tool is reachable from there.
    FAKE=$WORK/fake
    mkdir -p "$FAKE/usr/bin" "$FAKE/usr/libexec/dexalon"
    cp "$ROOT/usr/bin/dexalon" "$FAKE/usr/bin/dexalon"
    printf '#!/bin/sh\necho "cwd=$(pwd) args=$*"\nif [ -x "./%s" ]; then echo tool-ok; fi\n' "$FIRMWARE_TOOL" \
        >"$FAKE/usr/libexec/dexalon/dexalon"
    printf '#!/bin/sh\n' >"$FAKE/usr/libexec/dexalon/$FIRMWARE_TOOL"
    chmod +x "$FAKE/usr/libexec/dexalon/dexalon" "$FAKE/usr/libexec/dexalon/$FIRMWARE_TOOL"
    ln -s "$FAKE/usr/bin/dexalon" "$WORK/dexalon-link"  # started through a link, as from a menu
    out=$(cd / && HOME=$WORK/home XDG_DATA_HOME= DEXALON_HOME= "$WORK/dexalon-link" -x)
    [ "$out" = "cwd=$WORK/home/.local/share/dexalon args=-x
tool-ok" ] || fail "launcher: $out"
    # Without the tool the link goes, rather than dangle; DEXALON_HOME moves the folder.
    rm "$FAKE/usr/libexec/dexalon/$FIRMWARE_TOOL"
    out=$(DEXALON_HOME=$WORK/home/.local/share/dexalon "$FAKE/usr/bin/dexalon")
    [ "$out" = "cwd=$WORK/home/.local/share/dexalon args=" ] || fail "launcher without the tool: $out"
    [ ! -L "$WORK/home/.local/share/dexalon/$FIRMWARE_TOOL" ] || fail "a link to a removed tool is left"
    pass "viewer launcher, menu entry and icon"
fi

echo "$checks passed, 0 failed"
