#!/usr/bin/env bash
# A user's keyframes are never lost: concurrent writers all land, damaged files
# are refused by every command and never rewritten, edits whose result would
# not read back are refused, destructive edits must be asked for, files are
# written where and as the user expects, and nothing stops the program.
#   safety.sh QMXKF   (QMX_FLIP_SEED repeats a run's bit flips; it is printed)
qmxkf=$1
source "$(dirname "$0")/harness.sh"
seed=${QMX_FLIP_SEED:-$$}
RANDOM=$seed

# refused NAME STATUS MESSAGE FILE COMMAND...: the command exits with STATUS,
# says MESSAGE and leaves FILE byte for byte as it was.
refused() {
    local name=$1 want_status=$2 want=$3 file=$4; shift 4
    cp "$file" "$dir/.before"
    local got; got=$("$@" 2>&1)
    local status=$?
    [[ $status -eq $want_status && "$got" == "$want" ]] ||
        fail "$name: exit $status"$'\n'"--- want"$'\n'"$want"$'\n'"--- got"$'\n'"$got"
    cmp -s "$file" "$dir/.before" || fail "$name: $file was changed"
}
keys() { "$qmxkf" list "$1" | tail -n +2 | wc -l; }
project() {  # project FILE TIME...: a project with keys at those times (x = time)
    local file=$1 t; shift
    "$qmxkf" new "$file" >/dev/null
    for t in "$@"; do "$qmxkf" add "$file" --at "$t" --x "$t" >/dev/null || fail "setting up $file"; done
}

# Writers at once: eight adds at distinct times, then eight sets of distinct keys; every edit lands.
project w.qmxbag
for i in 1 2 3 4 5 6 7 8; do "$qmxkf" add w.qmxbag --at "$i" >/dev/null & done
wait
[[ $(keys w.qmxbag) -eq 8 ]] || fail "concurrent adds kept $(keys w.qmxbag) of 8 keys"
for i in 0 1 2 3 4 5 6 7; do "$qmxkf" set w.qmxbag "$i" --y "$((i + 10))" >/dev/null & done
wait
[[ $("$qmxkf" sample w.qmxbag --rate 1 --format csv | cut -d, -f5 | tail -n +2 | tr '\n' ' ') == \
   "10 11 12 13 14 15 16 17 " ]] || fail "concurrent sets lost an edit"
# The edit lock is the file's flock(2): held by another process, an edit waits its bound, then says so.
flock w.qmxbag sleep 2 &
sleep 0.5
refused busy 1 "qmxkf: w.qmxbag is being edited by another process" w.qmxbag \
    "$qmxkf" --wait 0.2 add w.qmxbag --at 21
wait

# Edits whose result would not read back: tangents that overflow, samples that are not numbers.
project o.qmxbag
"$qmxkf" add o.qmxbag --at 0 --x 1e308 >/dev/null
overflow="qmxkf: position x: the tangent at key 0 overflows; keys this close cannot hold values this far apart \
(o.qmxbag is left as it was)"
refused overflow-neighbours 1 "$overflow" o.qmxbag "$qmxkf" add o.qmxbag --at 1 --x -1e308
"$qmxkf" set o.qmxbag 0 --x 1e305 >/dev/null
refused overflow-microsecond 1 "$overflow" o.qmxbag "$qmxkf" add o.qmxbag --at 1e-6 --x -1e305
refused overflow-subnormal 1 "$overflow" o.qmxbag "$qmxkf" add o.qmxbag --at 4e-324 --x 5
project far.qmxbag
refused far-time 1 "qmxkf: angle: the tangent at key 0 is not a number; the key's time is too large, or its \
neighbours too far or too close, for their values (far.qmxbag is left as it was)" far.qmxbag \
    "$qmxkf" add far.qmxbag --at 1e17

# Destructive edits must be asked for; ordinary typing that is not a number is a usage error.
project d.qmxbag 0 1 2
refused move-onto 1 "qmxkf: key 1 is already at 1 s: give --replace to replace it" d.qmxbag \
    "$qmxkf" move d.qmxbag 0 --to 1
refused set-onto 1 "qmxkf: key 2 is already at 2 s: give --replace to replace it" d.qmxbag \
    "$qmxkf" set d.qmxbag 0 --at 2
expect replace "moved key 0 to 1 s (now key 0, replacing the key that was there)" \
    "$qmxkf" move d.qmxbag 0 --to 1 --replace
expect add-occupied "replaced key 1 at 2 s" "$qmxkf" add d.qmxbag --at 2 --y 5
refused usage-empty-index 2 "qmxkf: INDEX: an empty argument is not a whole decimal number (see qmxkf --help)" \
    d.qmxbag "$qmxkf" delete d.qmxbag ""
refused usage-empty-number 2 "qmxkf: --at: an empty argument is not a plain decimal number (see qmxkf --help)" \
    d.qmxbag "$qmxkf" add d.qmxbag --at ""
refused usage-hex 2 "qmxkf: --at: '0x10' is not a plain decimal number (see qmxkf --help)" d.qmxbag \
    "$qmxkf" add d.qmxbag --at 0x10
refused usage-blank 2 "qmxkf: --x: ' 1' is not a plain decimal number (see qmxkf --help)" d.qmxbag \
    "$qmxkf" set d.qmxbag 0 --x " 1"
refused usage-exponent-index 2 "qmxkf: INDEX: '1e3' is not a whole decimal number (see qmxkf --help)" d.qmxbag \
    "$qmxkf" delete d.qmxbag 1e3

# Output that cannot be written fails the command; a closed pipe ends it quietly.
refused full-list 1 "qmxkf: cannot write the output: No space left on device" d.qmxbag \
    sh -c "'$qmxkf' list d.qmxbag >/dev/full"
refused full-sample 1 "qmxkf: cannot write the output: No space left on device" d.qmxbag \
    sh -c "'$qmxkf' sample d.qmxbag --rate 1000 --format csv >/dev/full"
[[ $("$qmxkf" sample d.qmxbag --rate 1000000 --from 0 --to 1000 | head -2 | wc -l) -eq 2 ]] ||
    fail "a sample too large to hold was not streamed"

# Files: a symlink's target is written and the link kept; read-only files are refused.
mkdir real && mv d.qmxbag real/ && ln -s real/d.qmxbag link.qmxbag && chmod 640 real/d.qmxbag
expect through-link "added key 2 at 7 s" "$qmxkf" add link.qmxbag --at 7
[[ -L link.qmxbag && $(keys real/d.qmxbag) -eq 3 && $(stat -c %a real/d.qmxbag) == 640 ]] ||
    fail "the edit through a link did not write its target, keep the link or keep the mode"
chmod 444 real/d.qmxbag
refused read-only 1 "qmxkf: link.qmxbag is read-only" real/d.qmxbag "$qmxkf" delete link.qmxbag 0
if [[ $(id -u) -eq 0 ]] && id nobody >/dev/null 2>&1 && command -v runuser >/dev/null; then
    chmod 755 "$dir" && chmod 644 real/d.qmxbag
    refused not-writable 1 "qmxkf: real/d.qmxbag is read-only" real/d.qmxbag \
        runuser -u nobody -- "$qmxkf" delete real/d.qmxbag 0
else
    echo "safety: skipped the edit of another user's file (needs root, runuser and the user nobody)"
fi

# Keys of kinds free and none (from another host) are kept as they are: edits that would make the
# module recompute them are refused with a message, the others work.
project k.qmxbag 0 1 2 3 4
sed -i -e 's/\[2\.0,2\.0,1,/[2.0,2.0,6,/' k.qmxbag
expect kinds-check "k.qmxbag: no problems found" "$qmxkf" check k.qmxbag
free="qmxkf: key 2 is of kind free on position x: its tangents are kept as the file gives them, and this edit \
would make the module recompute them"
refused free-value 1 "$free" k.qmxbag "$qmxkf" set k.qmxbag 2 --x 9
refused free-neighbour 1 "$free" k.qmxbag "$qmxkf" add k.qmxbag --at 2.5
refused free-removed-neighbour 1 "$free" k.qmxbag "$qmxkf" delete k.qmxbag 3
refused free-moved 1 "$free" k.qmxbag "$qmxkf" move k.qmxbag 2 --to 9
expect free-other-value "set key 2 (now key 2 at 2 s)" "$qmxkf" set k.qmxbag 2 --y 9
expect free-far "deleted key 4 (4 left)" "$qmxkf" delete k.qmxbag 4
sed -i -e '/KeyFrameOpacitySegment/s/\[1\.0,1\.0,1,/[1.0,1.0,7,/' k.qmxbag
refused none-removed-neighbour 1 "qmxkf: key 1 is of kind none on opacity: its tangents are kept as the file \
gives them, and this edit would make the module recompute them" k.qmxbag "$qmxkf" delete k.qmxbag 0
expect none-neighbour "added key 1 at 0.5 s" "$qmxkf" add k.qmxbag --at 0.5

# Many edits, one save: a bad line names its number and nothing is saved.
project a.qmxbag 0
printf 'add --at 1 --x 5\n# a comment\n\nmove 1 --to 3\nset 1 --y 2\n' >good.txt
expect apply "applied 3 edits to a.qmxbag (2 keys)" "$qmxkf" apply a.qmxbag good.txt
printf 'add --at 5\ndelete 7\n' >bad.txt
refused apply-bad-line 1 "qmxkf: bad.txt, line 2: key index 7 is out of range: a.qmxbag has keys 0 to 2 \
(no edit was saved)" a.qmxbag "$qmxkf" apply a.qmxbag bad.txt
refused apply-bad-words 1 "qmxkf: standard input, line 1: --at: 'x' is not a plain decimal number" a.qmxbag \
    sh -c "echo 'add --at x' | '$qmxkf' apply a.qmxbag -"

# Damage: targeted faults, then random bit flips. Whatever list refuses, every edit refuses and leaves
# byte-identical; whatever list accepts, an accepted edit leaves readable.
project base.qmxbag 0 0.5 1 2
damaged() {  # damaged NAME SED-EXPRESSION EXPECTED-CHECK-LINE
    sed -e "/KeyFramePositionX\(Segment_0\|\"\)/$2" base.qmxbag >"$1.qmxbag"
    expect "damage-$1" "$3" "$qmxkf" check "$1.qmxbag"
    refused "damage-$1-edit" 1 "qmxkf: $3" "$1.qmxbag" "$qmxkf" add "$1.qmxbag" --at 3
}
damaged count0 's/"int": 1/"int": 0/' "count0.qmxbag: position x: its segment count is 0"
damaged count-text 's/"int": 1/"string": "1"/' "count-text.qmxbag: position x: its segment count is not a whole number"
damaged infinity 's/\[0\.5,0\.5,1,1\.0,1\.0\]/[0.5,0.5,1,1e+9999,1.0]/' \
    "infinity.qmxbag: position x: the tangent at key 1 overflows; keys this close cannot hold values this far apart"
damaged null-value 's/\[0\.5,0\.5,1,/[0.5,null,1,/' "null-value.qmxbag: position x: the value of key 1 is not a number"
damaged lockstep 's/\[2\.0,2\.0,1,1\.0,0\.0\]/[2.5,2.0,1,1.0,0.0]/' \
    "lockstep.qmxbag: position x: key 3 is not at the time of angle's key 3"
damaged digit 's/\[1\.0,1\.0,1,/[1.0,1.0,1,,/' \
    "digit.qmxbag: position x: its text is damaged at character 111 (the left tangent of key 2): \
Syntax error: value, object or array expected."
size=$(stat -c %s base.qmxbag) flips=0 accepted=0
for _ in $(seq 60); do
    byte=$((RANDOM * 32768 + RANDOM)); byte=$((byte % size)); bit=$((RANDOM % 8))
    value=$(od -An -tu1 -j "$byte" -N1 base.qmxbag)
    { head -c "$byte" base.qmxbag; printf "\\$(printf %03o $((value ^ (1 << bit))))"
      tail -c +$((byte + 2)) base.qmxbag; } >flip.qmxbag
    cp flip.qmxbag flip.before
    "$qmxkf" list flip.qmxbag >/dev/null 2>&1; listed=$?
    "$qmxkf" add flip.qmxbag --at 3 >/dev/null 2>&1; added=$?
    flips=$((flips + 1))
    if [[ $listed -ne 0 ]]; then
        [[ $listed -eq 1 && $added -eq 1 ]] && cmp -s flip.qmxbag flip.before ||
            fail "bit $bit of byte $byte: list refused (exit $listed) but the edit exited $added or changed the file"
    else
        accepted=$((accepted + 1))
        [[ $added -le 1 ]] && "$qmxkf" list flip.qmxbag >/dev/null 2>&1 ||
            fail "bit $bit of byte $byte: an accepted file was left unreadable (edit exit $added)"
    fi
done
echo "safety: $flips random bit flips (seed $seed), $accepted of them still a readable project"

[ $status -eq 0 ] && echo "qmxkf safety: all checks passed"
exit $status
