#!/usr/bin/env bash
# Writes the COMMANDS section of qmxkf's manual page (a help2man include
# file): each command's own --help, as the tool prints it.
set -euo pipefail
qmxkf=$1
echo "[COMMANDS]"
for command in $("$qmxkf" --help | sed -n '/^Subcommands:/,$ s/^  \([a-z]*\) .*/\1/p'); do
    echo ".SS $command"
    echo ".nf"
    "$qmxkf" "$command" --help | sed -e 's/\\/\\e/g' -e 's/^\([.'"'"']\)/\\\&\1/'
    echo ".fi"
done
