#!/bin/sh
# Buildroot runs it with the target's root directory: init keeps the service alive, and looks after
# what it leaves behind.
set -eu

inittab=$1/etc/inittab
line='::respawn:/etc/init.d/S90hdtv respawn'
# systemd has its own units.
[ -e "$inittab" ] || exit 0
grep -qxF "$line" "$inittab" || printf '\n# The station display service\n%s\n' "$line" >>"$inittab"
