#!/usr/bin/env bash
# Kills writers with SIGKILL at random moments while they save a large project file, and checks that
# the file on disk is always the previous complete version or the new one: never a mix, never empty,
# never missing. Temporary files that killed saves leave behind must not break later saves.
#   crash_save.sh QMXKF SAVE_LOOP
# QMX_CRASH_SEED repeats a run's random delays (the seed is printed).
qmxkf=$1
save_loop=$2
keys=2500              # about 470 KB per save, two segments per curve
loop_kills=120         # the writer that alternates two versions
tool_runs=40           # qmxkf adding a key to the project
budget=18              # seconds; each phase stops early when its share is used up
seed=${QMX_CRASH_SEED:-$$}
RANDOM=$seed
source "$(dirname "$0")/harness.sh"
temporaries() { compgen -G 'p.qmxbag.tmp-*' | wc -l; }
key_count() { local n; n=$("$qmxkf" list "$1" 2>/dev/null | wc -l) && [ "$n" -gt 0 ] && echo $((n - 1)); }
mkfifo started idle
exec 4<>idle  # never written: reading it with a timeout sleeps without starting a process
# Runs a writer in the background, kills it a random 0 to $1 ms after its first output line (or its
# start, with $2 = 0) and returns its exit status.
kill_after() {
    local most=$1 watch=$2 line; shift 2
    if [ "$watch" = 1 ]; then
        "$@" >started 2>/dev/null &
        read -r -t 10 line <started
    else
        "$@" >/dev/null 2>&1 &
    fi
    local pid=$! delay
    printf -v delay '0.%03d' $((RANDOM % most))
    read -r -t "$delay" -u 4 line
    kill -KILL "$pid" 2>/dev/null
    wait "$pid" 2>/dev/null
}

"$save_loop" ref1 $keys 1 && "$save_loop" ref2 $keys 2 && cp ref1 p.qmxbag ||
    { fail "no start files"; exit 1; }
[ "$(key_count ref1)" = $keys ] || fail "the first version does not list $keys keys"
cmp -s ref1 ref2 && fail "the two versions are identical"
echo "crash_save: seed $seed, $(stat -c %s ref1)-byte project of $keys keys"

# Phase 1: a writer that saves versions 1 and 2 in turn, killed once its saves have begun; after each
# kill the file is one of the two.
kills=0; mid=0; seen1=0; seen2=0; start=$SECONDS
while [ $kills -lt $loop_kills ] && [ $((SECONDS - start)) -lt $((budget * 2 / 3)) ]; do
    before=$(temporaries)
    kill_after 60 1 "$save_loop" p.qmxbag $keys loop
    [ $? -eq 137 ] || { fail "save_loop stopped before it was killed"; break; }
    kills=$((kills + 1))
    [ "$(temporaries)" -gt "$before" ] && mid=$((mid + 1))
    if cmp -s p.qmxbag ref1; then seen1=$((seen1 + 1))
    elif cmp -s p.qmxbag ref2; then seen2=$((seen2 + 1))
    else fail "after kill $kills the file is neither version ($(stat -c %s p.qmxbag 2>&1))"; break; fi
done
echo "crash_save: save_loop killed $kills times, $mid mid-save; file held version 1 $seen1 and 2 $seen2 times"
[ $status -eq 0 ] && [ $mid -eq 0 ] && [ $kills -ge 40 ] && fail "no kill landed during a save"
"$save_loop" p.qmxbag $keys 1 && cmp -s p.qmxbag ref1 ||
    fail "a save beside $(temporaries) leftover temporary files did not give the first version"
[ $status -eq 0 ] || exit 1

# Phase 2: qmxkf adds a key at a new time and is killed, unless it finishes first; the file is then
# the previous one (not after a finished run) or lists one more key, the new one last.
runs=0; kills=0; mid=0; count=$keys; start=$SECONDS
while [ $runs -lt $tool_runs ] && [ $((SECONDS - start)) -lt $((budget / 3)) ]; do
    cp p.qmxbag previous
    before=$(temporaries)
    at=$((1000 + runs))
    kill_after 250 0 "$qmxkf" add p.qmxbag --at $at --x $runs
    finished=$?
    runs=$((runs + 1))
    [ $finished -eq 137 ] && kills=$((kills + 1))
    [ "$(temporaries)" -gt "$before" ] && mid=$((mid + 1))
    if cmp -s p.qmxbag previous; then
        [ $finished -eq 137 ] || { fail "qmxkf run $runs ended ($finished), the file unchanged"; break; }
        continue
    fi
    now=$(key_count p.qmxbag)
    last=$("$qmxkf" list p.qmxbag 2>/dev/null | tail -n 1 | awk '{print $2}')
    if [ "$now" = $((count + 1)) ] && [ "$last" = $at ]; then count=$now
    else fail "after qmxkf run $runs the file is neither the previous nor the next one ($now keys)"; break; fi
done
echo "crash_save: qmxkf run $runs times, killed $kills times, $mid mid-save; $count keys at the end"
"$qmxkf" add p.qmxbag --at 5000 >/dev/null && [ "$(key_count p.qmxbag)" = $((count + 1)) ] ||
    fail "qmxkf could not save beside $(temporaries) leftover temporary files"
# A killed writer's temporary file under the name the next process with its id would pick.
bash -c 'touch p.qmxbag.tmp-$$-0; exec "$0" add p.qmxbag --at 6000' "$qmxkf" >/dev/null ||
    fail "a stale temporary file blocked a save"

[ $status -eq 0 ] && echo "crash_save: all checks passed"
exit $status
