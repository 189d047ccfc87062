#!/usr/bin/env bash
# Usage: code_tables_check.sh SOURCE_TREE
# Fails, showing the difference, unless the tables of result codes in the documents have the numbers and names of the
# headers, and every fault code that a document, an example or the man page names is in the table of fault codes.
set -euo pipefail

cd "$1"
is_good=true

# Compares the table of result codes in document $1 with the enumeration in header $2.
compare()
{
    # shellcheck disable=SC2016 # In Markdown, backquotes are code.
    diff -u --label "$2" --label "$1" \
        <(sed -nE 's/^ *([A-Z_]+) = (-?[0-9]+),?$/\2 \1/p' "$2") \
        <(sed -nE 's/^\| (-?[0-9]+) \| `([A-Z_]+)` \|.*/\1 \2/p' "$1") || is_good=false
}

compare README.md db/ResultCode.h
compare docs/recording.md history/HistoryResult.h

codes=$(sed -nE 's/^FIRAIM_FAULT_CODE\((\w+),.*/\1/p' db/FaultCodes.def)
[[ $codes ]] || {
    echo "code_tables_check: db/FaultCodes.def has no codes" >&2
    exit 1
}
while IFS=: read -r file line name; do
    # What a filter is given in an example may be the beginning of several names.
    grep -qE "^$name(_|$)" <<<"$codes" || {
        echo "code_tables_check: $file:$line: $name is not in db/FaultCodes.def" >&2
        is_good=false
    }
done < <(grep -rnoE '\bFC_[A-Z][A-Z_]*\b' README.md docs examples tool/firaim.1)

$is_good
