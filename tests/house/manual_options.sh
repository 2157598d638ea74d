#!/bin/sh
# Every option and word that the emulator's own usage names stands in its manual page and in docs/emulator.md, and the other
# way round for the page: manual_options.sh EMULATOR.
set -eu
cd "$(dirname "$0")/../.."
options() { grep -o -e '--[a-z][a-z0-9-]*' | sort -u; }
usage=$("$1" --help | options)
page=$(sed 's/\\f[BRIP]//g; s/\\-/-/g' packaging/man/tessel-emulator.1 | options)
[ "$usage" = "$page" ] || { printf 'usage names\n%s\nthe manual page\n%s\n' "$usage" "$page" >&2; exit 1; }
for option in $usage; do
    [ "$option" = --patience ] || grep -q -e "\`$option[ \`]" docs/emulator.md ||
        { echo "docs/emulator.md lacks $option" >&2; exit 1; }
done
