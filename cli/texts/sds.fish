# fish completion of sds. Commands, options and the words that an option takes are asked from the program's own help.
function __sds_command
    set -l words (commandline -opc)
    test (count $words) -ge 2; and echo $words[2]
end

function __sds_commands
    sds --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]\+\) *\(.*\)/\1\t\2/p'
end

function __sds_options
    sds (__sds_command) --help 2>/dev/null | sed -n 's/^  \(-[^ ]*\).*/\1/p' | tr , '\n'
end

# The words of the option before the one that is being typed.
function __sds_words
    set -l before (commandline -opc)[-1]
    string match -q -- '-*' $before; or return
    sds (__sds_command) --help 2>/dev/null \
        | sed -n "s/^  \(-[^ ]*,\)\{0,1\}$before [^ ]*{\([^}]*\)}.*/\2/p" | tr , '\n'
end

complete -c sds -n 'test -z (__sds_command)' -f -a '(__sds_commands)'
complete -c sds -n 'test -z (__sds_command)' -f -a '--help --version'
complete -c sds -n 'test -n (__sds_command); and string match -q -- "-*" (commandline -ct)' -f -a '(__sds_options)'
complete -c sds -n 'test -n "(__sds_words)"' -f -a '(__sds_words)'
