#!/usr/bin/env bash
# The SDK as a host developer gets it, built and run as they would:
#   install BUILD SOURCE VERSION   cmake --install into a scratch prefix
#   package BUILD SOURCE VERSION   the .deb from cpack, checked and unpacked
#                                  into a scratch root with dpkg-deb -x
# Either way, the example host is built against the result with find_package
# and with a plain compiler line from pkg-config, and both must load the
# installed module from its plug-in folder and print the expected samples.
# With a fifth argument, a Python interpreter, the installed Python package
# qmx must import with it and load the installed module too.
set -euo pipefail
mode=$1 build=$2 source=$3 version=$4 python=${5:-}
unset QMX_MODULE_PATH
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

expected="runtime $version, module $version
t=0.00 angle=0 x=-400 scale=0.5 opacity=0
t=0.25 angle=22.5 x=-300 scale=0.625 opacity=0.25
t=0.50 angle=45 x=-200 scale=0.75 opacity=0.5
t=0.75 angle=67.5 x=-100 scale=0.875 opacity=0.75
t=1.00 angle=90 x=0 scale=1 opacity=1"

# Builds the example against the SDK in `prefix` both ways and runs it, with
# nothing of the build tree on any search path.
check_example() {
    local prefix=$1 pcdir
    cmake -S "$source/examples/minimal_host" -B "$scratch/example" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
        >"$scratch/log" 2>&1 && cmake --build "$scratch/example" >>"$scratch/log" 2>&1 ||
        fail "the example does not build with find_package: $(tail -5 "$scratch/log")"
    [[ $("$scratch/example/minimal_host") == "$expected" ]] ||
        fail "the example (find_package) printed: $("$scratch/example/minimal_host" 2>&1)"

    pcdir=$(dirname "$(find "$prefix" -name qmxkeyframe.pc)")
    export PKG_CONFIG_PATH=$pcdir
    local libdir moduledir
    libdir=$(pkg-config --variable=libdir qmxkeyframe)
    moduledir=$(pkg-config --variable=moduledir qmxkeyframe)
    [[ $(pkg-config --modversion qmxkeyframe) == "$version" && -f $moduledir/libQMXKeyFrame.so ]] ||
        fail "pkg-config: version $(pkg-config --modversion qmxkeyframe), moduledir $moduledir"
    # shellcheck disable=SC2046
    g++ -o "$scratch/minimal_host_pc" "$source/examples/minimal_host/minimal_host.cpp" \
        $(pkg-config --cflags --libs qmxkeyframe) -Wl,-rpath,"$libdir" ||
        fail "the example does not build with pkg-config"
    [[ $("$scratch/minimal_host_pc") == "$expected" ]] || fail "the example (pkg-config) printed wrongly"
    # The module given explicitly, from the package's own variable.
    [[ $("$scratch/minimal_host_pc" "$moduledir/libQMXKeyFrame.so") == "$expected" ]] ||
        fail "the example given the module's path printed wrongly"
}

# Imports the Python package installed under `prefix` (found through
# PYTHONPATH only) and samples a track with the module of that installation.
check_python() {
    local prefix=$1 printed
    [[ -n $python ]] || return 0
    printed=$(cd "$scratch" && PYTHONPATH="$prefix/lib/python3/dist-packages" "$python" -c '
import qmx
track = qmx.Track()
track.add(qmx.Params(time=0, x=-400))
track.add(qmx.Params(time=1, x=0))
print(qmx.__file__, qmx.load(), track.sample([0.25])[0, 1])' 2>&1) || fail "python3 -c 'import qmx': $printed"
    local package=$prefix/lib/python3/dist-packages/qmx/__init__.py module=$prefix/lib/*/qmx/libQMXKeyFrame.so
    # shellcheck disable=SC2053
    [[ $printed == $package\ $module\ -300.0 ]] || fail "the installed Python package printed: $printed"
}

case $mode in
install)
    cmake --install "$build" --prefix "$scratch/prefix" >"$scratch/log" 2>&1 || fail "install: $(tail -3 "$scratch/log")"
    check_example "$scratch/prefix"
    "$scratch/prefix/bin/qmxkf" validate >/dev/null || fail "the installed qmxkf does not validate the installed module"
    check_python "$scratch/prefix"
    ;;
package)
    (cd "$scratch" && cpack --config "$build/CPackConfig.cmake" -B "$scratch/package" >"$scratch/log" 2>&1) ||
        fail "cpack: $(tail -5 "$scratch/log")"
    deb=$(echo "$scratch"/package/qmxkeyframe_"$version"_*.deb)
    [[ -f $deb ]] || fail "no package qmxkeyframe_${version}_*.deb"
    depends=$(dpkg-deb -f "$deb" Depends)
    for needed in libc6 libstdc++6 libjsoncpp25 libcairo2; do
        [[ ,$depends, == *", $needed ("* || ,$depends, == *",$needed ("* ]] || fail "Depends lacks $needed: $depends"
    done
    files=$(dpkg-deb -c "$deb" | awk '{print $6}')
    multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH)
    for path in usr/bin/qmxkf usr/include/qmx/IQMXKeyFrame.h usr/include/qmx/qmx_version.h \
        "usr/lib/$multiarch/libQMXHost.so.${version%%.*}" "usr/lib/$multiarch/qmx/libQMXKeyFrame.so" \
        "usr/lib/$multiarch/cmake/QMXKeyFrame/QMXKeyFrameConfig.cmake" "usr/lib/$multiarch/pkgconfig/qmxkeyframe.pc" \
        usr/share/man/man1/qmxkf.1.gz usr/share/bash-completion/completions/qmxkf usr/share/doc/qmxkeyframe/LICENSE; do
        grep -qx "\./$path" <<<"$files" || fail "the package lacks /$path"
    done
    ! grep -E '^\./usr/include/.*(scombase|qmx_saturate|keyframe_process|SegmentMath)|\.a$' <<<"$files" ||
        fail "the package holds internals"
    grep -q '^\./usr/share/doc/qmxkeyframe/api/index\.html$' <<<"$files" || fail "the package lacks the API reference"
    if [[ -n $python ]]; then
        grep -q '^\./usr/lib/python3/dist-packages/qmx/__init__\.py$' <<<"$files" &&
            grep -q '^\./usr/lib/python3/dist-packages/qmx/_qmx\..*\.so$' <<<"$files" ||
            fail "the package lacks the Python package qmx"
    fi
    dpkg-deb -x "$deb" "$scratch/root"
    check_example "$scratch/root/usr"
    check_python "$scratch/root/usr"
    [[ $("$scratch/root/usr/bin/qmxkf" --version) == "qmxkf $version (host runtime $version)" ]] ||
        fail "the packaged qmxkf reports another version"
    zcat "$scratch/root/usr/share/man/man1/qmxkf.1.gz" | grep -q '^\.SS validate' || fail "the manual page lacks the commands"
    # The completion offers the tool's commands, read from its --help.
    words=$(bash -c 'source "$1"; COMP_WORDS=("$2" va); COMP_CWORD=1; _qmxkf; echo "${COMPREPLY[*]}"' _ \
        "$scratch/root/usr/share/bash-completion/completions/qmxkf" "$scratch/root/usr/bin/qmxkf")
    [[ $words == validate ]] || fail "completion of 'qmxkf va' offered: $words"
    ;;
*) fail "unknown mode $mode" ;;
esac
echo "SDK ($mode): the example host built both ways and ran against it"
