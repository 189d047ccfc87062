# Completion of firaim for bash. Commands, options and values are read from the help and messages of the program, called
# as it was typed, so they are always up to date. Where there are none, bash completes file names.

_firaim_ask()
{
    local program=${COMP_WORDS[0]}
    [[ $program == \~/* ]] && program=$HOME${program:1}
    "$program" "$@" 2>&1 </dev/null
}

_firaim()
{
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local word command='' help value='' words='' IFS=$' \t\n'

    # "--last=5" comes as three words.
    if [[ $current == '=' ]]; then
        current=''
    elif [[ $previous == '=' ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word != -* ]]; then
            command=$word
            break
        fi
    done

    help=$(_firaim_ask ${command:+"$command"} --help)
    # The name that the help gives to the value of the option before the cursor.
    if [[ $previous =~ ^--[a-z-]+$ ]]; then
        value=$(sed -nE "s/^ {2,6}$previous ([A-Z]+)( .*)?\$/\1/p" <<<"$help")
    fi
    if [[ $value == CODE ]]; then
        words=$(_firaim_ask codes | awk 'NR > 1 { print $3 }')
    elif [[ $value ]]; then
        # The message about an invalid value lists the valid ones. Without a file the program does nothing else.
        words=$(_firaim_ask "$command" "$previous" '?' | sed -n 's/^[^{]*{\([^}]*\)}.*/\1/p' |
            sed 's/->[^,]*//g; s/,/ /g')
    elif [[ $current == -* ]]; then
        words=$(sed -nE 's/^ {2,6}(-[a-z], *)?(--[a-z-]+).*/\2/p' <<<"$help")
    elif [[ ! $command ]]; then
        words=$(sed -nE 's/^  ([a-z][a-z-]*) .*/\1/p' <<<"$help")
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -o bashdefault -o default -F _firaim firaim
