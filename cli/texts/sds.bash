# bash completion of sds. Commands, options and the words that an option takes are asked from the program's own help.
_sds() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} help entry names
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        help=$(sds --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]\+\) .*/\1/p')
        COMPREPLY=($(compgen -W "$help --help --version" -- "$word"))
        return
    fi
    help=$(sds "${COMP_WORDS[1]}" --help 2>/dev/null)
    if [[ $word == -* ]]; then
        names=$(sed -n 's/^  \(-[^ ]*\).*/\1/p' <<<"$help" | tr , ' ')
        COMPREPLY=($(compgen -W "$names" -- "$word"))
        return
    fi
    # The line of the option before the word; the description begins in column 31 or on the next line.
    if [[ $before == -* ]]; then
        entry=$(grep -E -m 1 "^  (-[^ ]*,)?$before(,| |\$)" <<<"$help")
        [[ ${entry:29:1} == ' ' ]] && entry=${entry:0:30}
        read -r names entry <<<"$entry"
    fi
    if [[ $entry =~ \{([^}]*)\} ]]; then
        COMPREPLY=($(compgen -W "${BASH_REMATCH[1]//,/ }" -- "$word"))
    elif [[ -z $entry || $entry == *FILE* || $entry == *MESH* ]]; then
        COMPREPLY=($(compgen -f -- "$word"))
    fi
}
complete -o filenames -F _sds sds
