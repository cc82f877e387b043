#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer and UBSan) in
# build-fuzz/ and runs each target that still finds new code for SECONDS
# (default 30) on a scratch copy of its seed corpus and committed regression
# inputs (libFuzzer runs all of them first). Exits non-zero when any input
# crashes; prints each run's executions and coverage. Every target's corpus and
# regressions, those of curve_text and bag included, are replayed by ctest in
# the plain and sanitized builds (fuzz_replay_*).
#
# For long campaigns: FUZZ_TARGETS picks targets (any of curve_text, bag,
# operations, project_file), FUZZ_RUNS stops each target after that many
# executions (SECONDS still bounds it), FUZZ_SANITIZERS changes the checks
# (e.g. "undefined", about twice as fast, in build-fuzz-undefined/),
# FUZZ_OPTIONS adds libFuzzer flags (e.g. -max_len=512) and FUZZ_WORK_DIR
# keeps the grown corpora there.
set -euo pipefail

seconds=${1:-30}
root=$(cd "$(dirname "$0")/.." && pwd)
sanitizers=${FUZZ_SANITIZERS:-address,undefined}
if [[ $sanitizers == address,undefined ]]; then
    build=${FUZZ_BUILD_DIR:-$root/build-fuzz}
else
    build=${FUZZ_BUILD_DIR:-$root/build-fuzz-${sanitizers//,/-}}
fi
fuzz=$root/Tests/fuzz
read -r -a targets <<<"${FUZZ_TARGETS:-operations project_file}"
limits=(-max_total_time="$seconds")
[[ -n ${FUZZ_RUNS:-} ]] && limits+=(-runs="$FUZZ_RUNS")
read -r -a limits_extra <<<"${FUZZ_OPTIONS:-}"
limits+=("${limits_extra[@]}")

# clang and its fuzzer runtime come from scripts/install-deps.sh.
if ! [[ -f $(clang++ -print-file-name=libclang_rt.fuzzer-x86_64.a 2>/dev/null) ]]; then
    echo "fuzz.sh: needs clang++ and its fuzzer runtime: run 'make deps' as root" >&2
    exit 1
fi

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ -DQMX_FUZZ=ON \
    -DQMX_FUZZ_SANITIZERS="$sanitizers" >/dev/null
cmake --build "$build" -j 2 --target "${targets[@]/#/qmx_fuzz_}"

if [[ -n ${FUZZ_WORK_DIR:-} ]]; then
    scratch=$FUZZ_WORK_DIR
    mkdir -p "$scratch"
else
    scratch=$(mktemp -d)
    trap 'rm -rf "$scratch"' EXIT
fi
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
status=0
for target in "${targets[@]}"; do
    binary=$build/bin/qmx_fuzz_$target
    mkdir -p "$scratch/$target/corpus" "$scratch/$target/artifacts"
    cp "$fuzz/corpus/$target"/* "$scratch/$target/corpus/"
    if compgen -G "$fuzz/regressions/$target/*" >/dev/null; then
        cp "$fuzz/regressions/$target"/* "$scratch/$target/corpus/"
    fi
    log=$scratch/$target/fuzz.log
    if "$binary" "$scratch/$target/corpus" -dict="$fuzz/qmx.dict" "${limits[@]}" -timeout=10 \
        -rss_limit_mb=2048 -print_final_stats=1 -artifact_prefix="$scratch/$target/artifacts/" >"$log" 2>&1; then
        runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
        echo "$target: $runs executions; $(grep -E '^#[0-9]+[[:space:]]+DONE' "$log" | tail -n 1)"
    else
        tail -n 40 "$log" >&2
        for artifact in "$scratch/$target/artifacts"/*; do
            [[ -f $artifact ]] && echo "crashing input (base64): $(base64 -w0 "$artifact")" >&2
        done
        echo "FAIL $target: an input crashed (above)" >&2
        status=1
    fi
done
[[ $status -eq 0 ]] && echo "fuzz: ${#targets[@]} targets, ${seconds} s each: no crash"
exit $status
