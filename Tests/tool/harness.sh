# Sourced by the tool tests: a scratch directory to work in (removed at exit),
# `fail` to record a failed check and `expect` to compare a command's output.
set -uo pipefail
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir" || exit 1
status=0
fail() { echo "FAIL: $*"; status=1; }
expect() {  # expect NAME EXPECTED-OUTPUT COMMAND...
    local name=$1 want=$2; shift 2
    local got; got=$("$@" 2>&1)
    [[ "$got" == "$want" ]] || fail "$name"$'\n'"--- want"$'\n'"$want"$'\n'"--- got"$'\n'"$got"
}
