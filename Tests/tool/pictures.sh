#!/usr/bin/env bash
# The pictures: plot and kinds write a decodable PNG and a well-formed SVG of
# the asked size, demo writes its project and three pictures, and bad
# requests give one line and leave nothing behind.
qmxkf=$1 check=$2
source "$(dirname "$0")/harness.sh"
picture() { "$check" "$@" || fail "picture $1"; }

"$qmxkf" new p.qmxbag >/dev/null && "$qmxkf" new empty.qmxbag >/dev/null
"$qmxkf" add p.qmxbag --at 0 --x -400 --opacity 0 >/dev/null
"$qmxkf" add p.qmxbag --at 1.5 --x 0 --angle 90 --scale-x 2 >/dev/null
expect plot-svg "wrote p.svg (640x400)" "$qmxkf" plot p.qmxbag -o p.svg --size 640x400
expect plot-png "wrote p.png (640x400)" "$qmxkf" plot p.qmxbag -o p.png --size 640x400 --rate 60
expect kinds "wrote k.png (1200x900)" "$qmxkf" kinds -o k.png
"$qmxkf" kinds -o k.svg --size 800x600 >/dev/null || fail "kinds to SVG"
picture p.svg 640 400; picture p.png 640 400; picture k.png 1200 900; picture k.svg 800 600

cp p.png before.png
# A file of the user's beside the picture is never a plot's scratch file.
echo "the user's notes" > p.png.tmp
expect bad-type "qmxkf: p.jpg: the picture's name must end in .svg or .png" "$qmxkf" plot p.qmxbag -o p.jpg
expect bad-size "qmxkf: --size 10x10: expected WIDTHxHEIGHT, each from 200 to 8000 pixels" \
    "$qmxkf" plot p.qmxbag -o p.png --size 10x10
expect no-keys "qmxkf: empty.qmxbag has no keys to plot" "$qmxkf" plot empty.qmxbag -o p.png
expect bad-place "qmxkf: nowhere/p.png: cannot write the picture (No such file or directory)" \
    "$qmxkf" plot p.qmxbag -o nowhere/p.png
cmp -s p.png before.png || fail "a failed plot changed the picture"
[[ -z $(ls ./*.tmp-* 2>/dev/null) ]] || fail "a temporary picture was left behind"
"$qmxkf" plot p.qmxbag -o p.png --size 640x400 >/dev/null || fail "plot beside a user's .tmp file"
[[ $(cat p.png.tmp) == "the user's notes" ]] || fail "a plot wrote over the user's p.png.tmp"

for run in first again; do
    "$qmxkf" demo --out out >demo.txt 2>&1 || fail "demo ($run run)"
done
grep -q "^Pictures: out/demo.svg, out/demo.png and out/kinds.png$" demo.txt || fail "demo output: $(cat demo.txt)"
picture out/demo.svg 1200 760; picture out/demo.png 1200 760; picture out/kinds.png 1200 760
[[ $("$qmxkf" list out/demo.qmxbag | wc -l) -eq 6 ]] || fail "the demo project does not hold five keys"

[ $status -eq 0 ] && echo "qmxkf pictures: all checks passed"
exit $status
