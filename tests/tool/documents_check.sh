#!/usr/bin/env bash
# Usage: documents_check.sh FIRAIM MANPAGE BASH_COMPLETION
# Checks that the man page and the bash completion have all commands, options and option values of the program's help,
# and that the man page names no other option. Otherwise prints the differences and fails. The zsh completion in the
# same folder is only parsed, if zsh is installed.
set -euo pipefail

readonly firaim=$1 page=$2 completion=$3
is_good=true

complain()
{
    echo "documents_check: $*" >&2
    is_good=false
}

# require_all LINES LIST TEXT...: reports each line of LINES that is missing in LIST, after TEXT.
require_all()
{
    local line
    while read -r line; do
        grep -qxF -e "$line" <<<"$2" || complain "${*:3} $line"
    done <<<"$1"
}

# The long options at the start of a line in the help on standard input.
options_in_help()
{
    grep -oE '^ {2,6}(-[a-z], *)?--[a-z-]+' | grep -oE -e '--.*'
}

# The values of option $1 in the help on standard input, which lists them in the form "a (default), b or c; further
# text".
values_in_help()
{
    sed -E ':all; N; $!b all; s/\n {20,}/ /g' | sed -nE "s/^ {2,6}$1 [A-Z]+( REQUIRED)? +//p" |
        sed -E 's/\([^)]*\)//g; s/;.*//; s/^.*: //; s/ or /,/g; s/ //g; s/,/\n/g'
}

# The long options in the text on standard input.
options_in_page()
{
    grep -oE -e '--[a-z][a-z-]*' | sort -u
}

# The completions that bash offers after these arguments of the program.
offered()
(
    set +euo pipefail
    COMP_WORDS=("$firaim" "$@")
    COMP_CWORD=$#
    _firaim
    printf '%s\n' "${COMPREPLY[@]}"
)

# The man page without font requests, and its section on command $1.
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
    # The page need not repeat --help for each command.
    require_all "$options" "$(printf '%s\n--help\n' "$(options_in_page <<<"$text")")" "$page on $command lacks"

    for option in $options; do
        case $option in
        --code)
            values=$codes
            ;;
        --format | --journal | --page-size | --sort | --table | --time-unit)
            values=$(values_in_help "$option" <<<"$help")
            require_all "$values" "$(grep -oE '[a-z0-9]+' <<<"$page_text")" "$page on $option lacks"
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
