#!/usr/bin/env bash
# Usage: documents_check.sh FIRAIM MANPAGE BASH_COMPLETION
# Fails, naming what is missing, unless the man page and the completion know all that the program's help tells of: its
# commands, their options, and the values of those. Fails as well when the page names an option that no command has.
# The completion for zsh, beside the one for bash, is only parsed, and only where there is a zsh.
set -euo pipefail

readonly firaim=$1 page=$2 completion=$3
is_good=true

complain()
{
    echo "documents_check: $*" >&2
    is_good=false
}

# Complains of each line of $1 that is no line of $2; the rest says what that means.
require_all()
{
    local line
    while read -r line; do
        grep -qxF -e "$line" <<<"$2" || complain "${*:3} $line"
    done <<<"$1"
}

# The long options in the help on standard input, as they stand at the beginning of a line.
options_in_help()
{
    grep -oE '^ {2,6}(-[a-z], *)?--[a-z-]+' | grep -oE -e '--.*'
}

# The values of option $1 that the help on standard input states, such as "a (the usual one), b or c; more about it".
values_in_help()
{
    sed -E ':all; N; $!b all; s/\n {20,}/ /g' | sed -nE "s/^ {2,6}$1 [A-Z]+( REQUIRED)? +//p" |
        sed -E 's/\([^)]*\)//g; s/;.*//; s/^.*: //; s/ or /,/g; s/ //g; s/,/\n/g'
}

# What the man page names on standard input.
options_in_page()
{
    grep -oE -e '--[a-z][a-z-]*' | sort -u
}

# What completion offers at the end of the words after the program's name.
offered()
(
    set +euo pipefail
    COMP_WORDS=("$firaim" "$@")
    COMP_CWORD=$#
    _firaim
    printf '%s\n' "${COMPREPLY[@]}"
)

# The man page as text without fonts, and what stands in it on command $1.
page_text=$(sed -E '/^\.\\"/d; s/\\f.//g; s/\\-/-/g' "$page")
page_on()
{
    awk -v heading=".SS $1" '/^\.S[HS]/ { inside = $0 == heading } inside' <<<"$page_text"
}

# shellcheck source=/dev/null
source "$completion"
[[ $(complete -p firaim) == *' -F _firaim '* ]] || complain "$completion does not say how firaim is completed"

version=$("$firaim" --version | head -n 1)
[[ $(grep '^\.TH' <<<"$page_text") == *"\"$version\""* ]] || complain "$page is not of $version"

help=$("$firaim" --help)
commands=$(sed -nE 's/^  ([a-z][a-z-]*) .*/\1/p' <<<"$help")
[[ $commands ]] || complain 'the help tells of no command'
require_all "$commands" "$(offered '')" completion lacks
all_options=$(options_in_help <<<"$help")
require_all "$all_options" "$(offered --)" completion lacks
require_all "$all_options" "$(options_in_page <<<"$page_text")" "$page lacks"

codes=$("$firaim" codes | awk 'NR > 1 { print $3 }')
for command in $commands; do
    help=$("$firaim" "$command" --help)
    options=$(options_in_help <<<"$help")
    all_options+=$'\n'$options
    require_all "$options" "$(offered "$command" --)" "completion of $command lacks"

    text=$(page_on "$command")
    [[ $text ]] || complain "$page has no section on $command"
    # The page need not repeat for each command how it tells of itself.
    require_all "$options" "$(printf '%s\n--help\n' "$(options_in_page <<<"$text")")" "$page on $command lacks"

    for option in $options; do
        case $option in
        --code)
            values=$codes
            ;;
        --format | --sort | --table | --time-unit)
            values=$(values_in_help "$option" <<<"$help")
            require_all "$values" "$(grep -oE '[a-z]+' <<<"$page_text")" "$page on $option lacks"
            ;;
        *)
            continue
            ;;
        esac
        [[ $values ]] || complain "the help of $command states no values of $option"
        require_all "$values" "$(offered "$command" "$option" '')" "completion of $command $option lacks"
        require_all "$values" "$(offered "$command" "$option" =)" "completion of $command $option= lacks"
    done
done

require_all "$(options_in_page <<<"$page_text")" "$all_options" "$page names an option that no command has:"

zsh_completion=$(dirname "$completion")/_firaim
if [[ -e $zsh_completion ]] && command -v zsh >/dev/null; then
    zsh -n "$zsh_completion" || complain "$zsh_completion cannot be parsed"
fi

$is_good
