#!/usr/bin/env bash
# Drives qmxkf as a user would: its version, then, on a temporary project,
# edits, listing, sampling and reopening give exact output; bad input gives
# one line on standard error, a non-zero exit and an untouched file.
qmxkf=$1
version=$2  # the project's version, as the build sets it
source "$(dirname "$0")/harness.sh"

expect version "qmxkf $version (host runtime $version)" "$qmxkf" --version

expect new "created p.qmxbag (no keys)" "$qmxkf" new p.qmxbag
expect add0 "added key 0 at 0 s" "$qmxkf" add p.qmxbag --at 0 --x -400 --opacity 0
expect add1 "added key 1 at 1 s" "$qmxkf" add p.qmxbag --at 1 --x 0 --opacity 1 --angle 90
expect sampled-add "added key 1 at 0.5 s" "$qmxkf" add p.qmxbag --at 0.5
expect list "index  time  frame  angle     x  y  opacity  scale-x  scale-y    kind
    0     0      0      0  -400  0        0        1        1  linear
    1   0.5     15     45  -200  0      0.5        1        1  linear
    2     1     30     90     0  0        1        1        1  linear" "$qmxkf" list p.qmxbag --rate 30
expect csv "frame,time,angle,x,y,opacity,scale-x,scale-y
0,0,0,-400,0,0,1,1
1,0.25,22.5,-300,0,0.25,1,1
2,0.5,45,-200,0,0.5,1,1" "$qmxkf" sample p.qmxbag --rate 4 --to 0.5 --format csv
expect set "set key 1 (now key 2 at 2 s)" "$qmxkf" set p.qmxbag 1 --at 2 --y 7
expect move "moved key 0 to 0.25 s (now key 0)" "$qmxkf" move p.qmxbag 0 --to 0.25
expect delete "deleted key 1 (2 left)" "$qmxkf" delete p.qmxbag 1
expect reopened "index  time  frame  angle     x  y  opacity  scale-x  scale-y    kind
    0  0.25      8      0  -400  0        0        1        1  linear
    1     2     60     45  -200  7      0.5        1        1  linear" "$qmxkf" list p.qmxbag

# Kinds per key, on all six properties or on one; keys out as data and back
# in, byte for byte; a constant key holds its value to the next key.
expect kind "set key 0 (now key 0 at 0.25 s), kinds x=constant y=constant" \
    "$qmxkf" set p.qmxbag 0 --kind y=constant --kind x=constant
expect kinds "added key 2 at 3 s, kinds angle=spline x=spline y=spline opacity=spline scale-x=spline \
scale-y=spline" "$qmxkf" add p.qmxbag --at 3 --kind spline
expect list-kinds "index,time,frame,angle,x,y,opacity,scale-x,scale-y,angle-kind,x-kind,y-kind,opacity-kind,\
scale-x-kind,scale-y-kind
0,0.25,8,0,-400,0,0,1,1,linear,constant,constant,linear,linear,linear
1,2,60,45,-200,7,0.5,1,1,linear,linear,linear,linear,linear,linear
2,3,90,45,-200,7,0.5,1,1,spline,spline,spline,spline,spline,spline" "$qmxkf" list p.qmxbag --format csv
expect constant "frame,time,angle,x,y,opacity,scale-x,scale-y
1,1,19.285714285714285,-400,0,0.21428571428571427,1,1" "$qmxkf" sample p.qmxbag --rate 1 --from 1 --to 1 --format csv
for format in csv json; do
    "$qmxkf" export p.qmxbag --format $format > keys.$format
    cp p.qmxbag copy.qmxbag && "$qmxkf" clear copy.qmxbag >/dev/null
    expect import-$format "imported 3 keys into copy.qmxbag from keys.$format" "$qmxkf" import copy.qmxbag keys.$format
    cmp -s p.qmxbag copy.qmxbag || fail "export and import as $format changed the project"
done

cp p.qmxbag before
echo '{"format": "other"}' > foreign.qmxbag
expect bad-index "qmxkf: key index 3 is out of range: p.qmxbag has keys 0 to 2" "$qmxkf" delete p.qmxbag 3
expect bad-number "qmxkf: --at: 'abc' is not a plain decimal number (see qmxkf --help)" "$qmxkf" add p.qmxbag --at abc
expect bad-rate "qmxkf: --rate: Value -2 not in range 1 to 1000000 (see qmxkf --help)" \
    "$qmxkf" sample p.qmxbag --rate -2
expect missing "qmxkf: nope.qmxbag: No such file or directory" "$qmxkf" list nope.qmxbag
"$qmxkf" list foreign.qmxbag >/dev/null 2>&1 && fail "a foreign file was accepted"
"$qmxkf" add p.qmxbag --at nan >/dev/null 2>&1 && fail "a NaN time was accepted"
expect free-kind "qmxkf: --kind: kind free keeps tangents as a file gives them; the tool sets only the kinds whose \
tangents the module computes (see qmxkf --help)" "$qmxkf" set p.qmxbag 0 --kind x=free
sed 's/^x,1,2,/x,1,0.1,/' keys.csv > unordered.csv
expect bad-import "qmxkf: unordered.csv: key 1 of position x is at 0.1 s and key 1 of angle at 2 s; the curves of a \
track share their keys" "$qmxkf" import p.qmxbag unordered.csv
# A count naming more segments than the file can hold is refused at once.
sed 's/"KeyFrameAngle", "int": 1/"KeyFrameAngle", "int": 2147483647/' p.qmxbag > huge.qmxbag
cp huge.qmxbag huge-before
expect huge-count "qmxkf: huge.qmxbag: angle: it names 2147483647 segments; a file of \
$(stat -c %s huge.qmxbag) bytes holds at most 1" "$qmxkf" add huge.qmxbag --at 3
cmp -s huge.qmxbag huge-before || fail "a refused project file was changed"
cmp -s p.qmxbag before || fail "a failed command changed the project file"
[[ $(cat foreign.qmxbag) == '{"format": "other"}' ]] || fail "the foreign file was changed"
expect exists "qmxkf: p.qmxbag: already exists" "$qmxkf" new p.qmxbag

[ $status -eq 0 ] && echo "qmxkf session: all checks passed"
exit $status
