#!/bin/sh
# The unit's doors fit the daemon's: every device node and every place under /sys that its sources name is open in the unit.
set -eu
cd "$(dirname "$0")/../.."
unit=packaging/systemd/tesselvisor.service.in
fail() { echo "$*" >&2; exit 1; }

# Some the unit opens by the kernel's name of their kind.
covered() {
    case $1 in
        /dev/video*) grep -q 'DeviceAllow=char-video4linux rw' "$unit" ;;
        /dev/fb*) grep -q 'DeviceAllow=char-fb rw' "$unit" ;;
        /dev/null) true ;;  # every policy has it
        *) grep -q "DeviceAllow=$1 rw" "$unit" ;;
    esac
}
devices=$(grep -rhoE '/dev/[a-z0-9-]+' src --include='*.cpp' --include='*.h' | sort -u)
[ -n "$devices" ] || fail "no device in src?"
for device in $devices; do covered "$device" || fail "$unit does not open $device"; done

for path in $(grep -rhoE '> /sys/[a-z0-9_/]+|"/sys/class/gpio' src --include='*.cpp' | grep -o '/sys.*' | sort -u); do
    case $path in
        /sys/class/graphics/*) open=/sys/devices ;;  # where the link leads
        /sys/class/gpio*) open=/sys/class/gpio ;;
        /sys/devices/*) open=/sys/devices ;;
        *) open=$path ;;
    esac
    grep '^ReadWritePaths=' "$unit" | grep -q -e "${open%/}" || fail "$unit does not open $path"
done
