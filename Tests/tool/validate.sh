#!/usr/bin/env bash
# qmxkf validate passes the built module on every check, and fails a module
# with planted faults on exactly those faults, without itself crashing.
set -uo pipefail
qmxkf=$1
good=$2
broken=$3
status=0
fail() { echo "FAIL: $*"; status=1; }
checks=10

out=$("$qmxkf" validate "$good" 2>/dev/null)
rc=$?
[[ $rc -eq 0 ]] || fail "validate of the module exited $rc"$'\n'"$out"
[[ $(grep -c '^PASS [a-z ]*$' <<<"$out") -eq $checks && $(wc -l <<<"$out") -eq $((checks + 1)) ]] ||
    fail "validate of the module did not print $checks PASS lines"$'\n'"$out"
grep -qxE "module $good, version [0-9]+\.[0-9]+\.[0-9]+" <<<"$out" || fail "no module version line"$'\n'"$out"
# The default module is the one --module names, else the first one found:
# QMX_MODULE_PATH, then the runtime's plug-in folder and its own folder.
[[ $("$qmxkf" --module "$good" validate 2>/dev/null) == "$out" ]] || fail "validate without MODULE differs"
[[ $(QMX_MODULE_PATH=/nonexistent:$(dirname "$good") "$qmxkf" validate 2>/dev/null) == "$out" ]] ||
    fail "validate of the module found through QMX_MODULE_PATH differs"
# A runtime copied elsewhere (and loaded from there) finds the module in its
# plug-in folder, and lists where it looked when there is none.
runtime=$(realpath "$(mktemp -d)")
trap 'rm -rf "$runtime"' EXIT
cp "$(dirname "$good")"/libQMXHost.so.[0-9] "$runtime"/
out=$(LD_LIBRARY_PATH=$runtime QMX_MODULE_PATH=/nonexistent "$qmxkf" validate 2>/dev/null)
[[ $out == "FAIL load: no keyframe module (libQMXKeyFrame.so) found; looked in /nonexistent (QMX_MODULE_PATH), "\
"$runtime/qmx (plug-in folder), $runtime (beside the runtime)" ]] || fail "a failed search printed: $out"
mkdir "$runtime/qmx" && cp "$good" "$runtime/qmx/"
[[ $(LD_LIBRARY_PATH=$runtime "$qmxkf" validate 2>/dev/null | sed -n 2p) == "module $runtime/qmx/libQMXKeyFrame.so, "* ]] ||
    fail "the module in the plug-in folder is not found"

# A file that is not a module fails the load with the loader's reason.
out=$("$qmxkf" validate "$0" 2>/dev/null)
[[ $? -eq 1 && $out == "FAIL load: $0: invalid ELF header" ]] || fail "validate of a script printed: $out"

out=$("$qmxkf" validate "$broken" 2>/dev/null)
rc=$?
[[ $rc -eq 1 ]] || fail "validate of the broken module exited $rc, expected 1"
[[ $(grep -cE '^(PASS [a-z ]+|FAIL [a-z ]+: .+)$' <<<"$out") -eq $checks && $(wc -l <<<"$out") -eq $((checks + 1)) ]] ||
    fail "validate of the broken module did not print $checks check lines"$'\n'"$out"
while IFS= read -r line; do
    grep -qxF "$line" <<<"$out" || fail "missing line: $line"$'\n'"--- got"$'\n'"$out"
done <<EOF
PASS load
module $broken, version unknown (no version note)
FAIL exported symbols: does not export _Z22CreateKeyFrameInstanceP8IUnknownPi (and 11 more)
FAIL host symbols: defines the host's InterlockedIncrement itself
FAIL identifier values: IID_IQMXStorage is {B58DC8D7-B8EC-4254-814F-DF40F572B313}, expected {B58DC8D7-B8EC-4254-814F-DF40F572B312}
FAIL class table: g_cTemplates is 2, expected 3
FAIL class factory: factory AddRef returned 3, expected 2
FAIL interfaces: IID_IQMXKeyFrame and IID_IQMXStorage are one pointer
FAIL aggregation: CreateInstance(outer, IID_IQMXKeyFrame) returned 0x00000000, expected 0x80040110
FAIL entry points: crashed (signal 6)
FAIL track session: the track has no IID_IQMXStorage face of its own
EOF

# A file that is no module fails to load, and nothing else is tried.
out=$("$qmxkf" validate /nonexistent/libnone.so 2>/dev/null)
rc=$?
[[ $rc -eq 1 && $out == "FAIL load: "* && $(wc -l <<<"$out") -eq 1 ]] || fail "a missing module: exit $rc"$'\n'"$out"

[ $status -eq 0 ] && echo "qmxkf validate: all checks passed"
exit $status
