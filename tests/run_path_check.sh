#!/usr/bin/env bash
# Usage: run_path_check.sh READELF FOLDER|LIST [ALLOWED...]
# Checks the run path (RPATH or RUNPATH) of each program and library in FOLDER or, line by line, in the file LIST. Every
# element must lie below $ORIGIN or below one of the ALLOWED folders; otherwise prints the file and fails. The loader
# takes an empty or relative element for the current folder, and could load a foreign library from there.
set -euo pipefail

readonly readelf=$1 where=$2
allowed=("${@:3}")

is_good_element()
{
    local start
    # shellcheck disable=SC2016 # The loader expands $ORIGIN.
    for start in '$ORIGIN' "${allowed[@]}"; do
        [[ $1 != "$start" && $1 != "$start"/* ]] || return 0
    done
    return 1
}

if [[ -d $where ]]; then
    readarray -t files < <(find "$where" -type f)
else
    readarray -t files <"$where"
fi
seen=0
is_good=true
for file in "${files[@]}"; do
    [[ ! -d $where || $(head -c 4 "$file" | tr -d '\0') == $'\x7fELF' ]] || continue
    dynamic=$("$readelf" --wide --dynamic "$file")
    path=$(sed -nE 's/^.*\((RPATH|RUNPATH)\).*\[(.*)\]$/\2/p' <<<"$dynamic")
    [[ $dynamic =~ \((RPATH|RUNPATH)\) ]] || continue
    seen=$((seen + 1))
    # Append an element, as read drops an empty last one.
    IFS=: read -r -a elements <<<"$path:."
    unset 'elements[-1]'
    for element in "${elements[@]}"; do
        is_good_element "$element" || {
            echo "run_path_check: $file has '$element' in its run path $path" >&2
            is_good=false
            break
        }
    done
done

((seen > 0)) || {
    echo "run_path_check: nothing in $where has a run path" >&2
    exit 1
}
echo "$seen files with a run path"
$is_good
