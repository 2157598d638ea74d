#!/bin/sh
# No cycle of includes among the daemon's headers: arrows between rooms run one way. tsort names the cycle if there is one.
set -eu
cd "$(dirname "$0")/../../src"
grep -H '^#include "' */*.h | sed -E 's/^([^:]*):#include "([^"]*)".*/\1 \2/' | tsort > /dev/null
# What nearly everything stands on stands on nothing of ours.
if grep -Hn '^#include "' core/log.h core/shell.h settings/shared_field.h; then
    echo "log, shell and shared_field must not use other rooms" >&2
    exit 1
fi
# Lower rooms never reach up into the rooms that use them.
bad=$(grep -Hn '^#include "\(commands\|net\|gstreamer\)/' settings/* board/* video/* 2>/dev/null || true)
[ -z "$bad" ] || { echo "$bad" >&2; exit 1; }
