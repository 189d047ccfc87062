#!/usr/bin/env bash
# Usage: code_tables_check.sh SOURCE_TREE
# Checks that the tables of result codes in the documents agree with the headers in numbers and names, and that every
# fault code named in a document, an example or the man page is in the table of fault codes. Otherwise prints the
# difference and fails.
set -euo pipefail

cd "$1"
is_good=true

# compare DOCUMENT HEADER: compares the table of result codes in DOCUMENT with the enumeration in HEADER.
compare()
{
    # shellcheck disable=SC2016 # The backquotes are Markdown.
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
    # Accept a prefix of a name, as filters in examples use prefixes.
    grep -qE "^$name(_|$)" <<<"$codes" || {
        echo "code_tables_check: $file:$line: $name is not in db/FaultCodes.def" >&2
        is_good=false
    }
done < <(grep -rnoE '\bFC_[A-Z][A-Z_]*\b' README.md docs examples tool/firaim.1)

$is_good
