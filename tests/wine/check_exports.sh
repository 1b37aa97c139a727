#!/bin/bash
# Checks that a Windows image exports the given names from its own export table.
#   check_exports.sh OBJDUMP IMAGE NAME...
set -u
objdump=$1
image=$2
shift 2

# objdump -p lists the exports under "[Ordinal/Name Pointer] Table", one "[n] name" line each; imports
# appear elsewhere in the same listing and must not count.
exports=$("$objdump" -p "$image" | sed -n '/^\[Ordinal\/Name Pointer\] Table/,/^$/p') || exit 1
missing=0
for name in "$@"; do
    if grep -Eq "^[[:space:]]*\[[[:space:]]*[0-9]+\][[:space:]]+$name\$" <<< "$exports"; then
        echo "exported: $name"
    else
        echo "NOT exported: $name"
        missing=1
    fi
done
exit "$missing"
