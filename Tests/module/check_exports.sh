#!/usr/bin/env bash
# Checks a built library's dynamic symbol table against its export list:
# exactly the listed names are defined, nothing else (no stray template
# instances). For the module (--module) also its binary contract with the
# host runtime: the host's symbols left undefined, found through DT_NEEDED of
# the versioned runtime and RUNPATH $ORIGIN (beside it in the build tree, the
# library folder above the plug-in folder once installed), no RPATH.
set -euo pipefail
library=$1
expected=$2
kind=${3:-}
status=0

# AddressSanitizer adds one-definition-rule markers (__odr_asan.*) beside
# exported data; they are instrumentation, not part of the exports.
actual=$(nm -D --defined-only "$library" | awk '{print $3}' | grep -v '^__odr_asan\.' | sort)
if ! diff -u <(grep -v -e '^#' -e '^$' "$expected" | sort) <(printf '%s\n' "$actual"); then
    echo "FAIL: exported symbols of $library differ from $expected (- expected, + actual)"
    status=1
fi

if [[ $kind == --module ]]; then
    undefined=$(nm -D --undefined-only "$library" | awk '{print $2}')
    for sym in InterlockedIncrement InterlockedDecrement IID_IUnknown; do
        if ! grep -qx "$sym" <<<"$undefined"; then
            echo "FAIL: host symbol $sym is not taken from the host runtime"
            status=1
        fi
    done
    dynamic=$(readelf -d "$library")
    grep -q 'NEEDED.*\[libQMXHost\.so\.[0-9]*\]' <<<"$dynamic" ||
        { echo "FAIL: libQMXHost.so.<major> is not NEEDED"; status=1; }
    grep -q 'RUNPATH.*\[\$ORIGIN:\$ORIGIN/\.\.\]' <<<"$dynamic" ||
        { echo "FAIL: RUNPATH is not \$ORIGIN:\$ORIGIN/.."; status=1; }
    if grep -q '(RPATH)' <<<"$dynamic"; then echo "FAIL: module carries an RPATH"; status=1; fi
fi

[ $status -eq 0 ] && echo "exports of $library match $expected ($(wc -l <<<"$actual") symbols)"
exit $status
