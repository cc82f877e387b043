#!/usr/bin/env bash
# Checks the built module's binary contract: exactly the expected exports,
# the host runtime's symbols left undefined (found through DT_NEEDED and
# RUNPATH $ORIGIN), and no RPATH pointing into the build tree.
set -euo pipefail
module=$1
expected=$2
status=0

# AddressSanitizer adds one-definition-rule markers (__odr_asan.*) beside
# exported data; they are instrumentation, not part of the module's exports.
actual=$(nm -D --defined-only "$module" | awk '{print $3}' | grep -v '^__odr_asan\.' | sort)
if ! diff -u <(grep -v -e '^#' -e '^$' "$expected" | sort) <(printf '%s\n' "$actual"); then
    echo "FAIL: exported symbols differ from $expected (- expected, + actual)"
    status=1
fi

undefined=$(nm -D --undefined-only "$module" | awk '{print $2}')
for sym in InterlockedIncrement InterlockedDecrement IID_IUnknown; do
    if ! grep -qx "$sym" <<<"$undefined"; then
        echo "FAIL: host symbol $sym is not taken from the host runtime"
        status=1
    fi
done

dynamic=$(readelf -d "$module")
grep -q 'NEEDED.*\[libQMXHost.so\]' <<<"$dynamic" || { echo "FAIL: libQMXHost.so is not NEEDED"; status=1; }
grep -q 'RUNPATH.*\[\$ORIGIN\]' <<<"$dynamic" || { echo "FAIL: RUNPATH is not \$ORIGIN"; status=1; }
if grep -q '(RPATH)' <<<"$dynamic"; then echo "FAIL: module carries an RPATH"; status=1; fi

[ $status -eq 0 ] && echo "module exports match the host contract ($(wc -l <<<"$actual") symbols)"
exit $status
