# Bash completion for kelvo-fs: command names, each command's options and file names.
# The words come from the tool itself (kelvo-fs help --commands, kelvo-fs help
# --options COMMAND), so every command it knows is completed.

_kelvo_fs()
{
    local tool=${COMP_WORDS[0]}
    local current=${COMP_WORDS[COMP_CWORD]}
    local IFS=$'\n'
    COMPREPLY=()

    if ((COMP_CWORD == 1)); then
        COMPREPLY=($(compgen -W "$("$tool" help --commands 2>/dev/null)"$'\n'"--help"$'\n'"--version" -- "$current"))
        return 0
    fi

    local command=${COMP_WORDS[1]} i
    if [[ $command == help ]]; then
        COMPREPLY=($(compgen -W "$("$tool" help --commands 2>/dev/null)" -- "$current"))
        return 0
    fi

    # After "--" lock runs a command: complete command names, then files.
    for ((i = 2; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} == -- ]]; then
            if ((i + 1 == COMP_CWORD)) && [[ $command == lock ]]; then
                COMPREPLY=($(compgen -c -- "$current" | sort -u))
            else
                COMPREPLY=($(compgen -f -- "$current"))
            fi
            return 0
        fi
    done

    # The values of cp's --reflink, given after "=" or as the next word.
    if [[ $command == cp ]]; then
        local previous=${COMP_WORDS[COMP_CWORD - 1]}
        if [[ $current == --reflink=* ]]; then
            COMPREPLY=($(compgen -W $'--reflink=auto\n--reflink=always\n--reflink=never' -- "$current"))
            return 0
        fi
        if [[ $previous == --reflink || ($previous == = && ${COMP_WORDS[COMP_CWORD - 2]} == --reflink) ]]; then
            COMPREPLY=($(compgen -W $'auto\nalways\nnever' -- "$current"))
            return 0
        fi
    fi

    # find takes a kind after -type.
    if [[ $command == find && ${COMP_WORDS[COMP_CWORD - 1]} == -type ]]; then
        COMPREPLY=($(compgen -W $'f\nd\nl' -- "$current"))
        return 0
    fi

    if [[ $current == -* ]]; then
        COMPREPLY=($(compgen -W "$("$tool" help --options "$command" 2>/dev/null)" -- "$current"))
        return 0
    fi
    COMPREPLY=($(compgen -f -- "$current"))
    return 0
}

complete -o filenames -o bashdefault -F _kelvo_fs kelvo-fs
