# Bash completion for qmxkf. Its commands and options are read from the
# tool's own --help, so they always match the tool that is installed.
_qmxkf()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command="" i
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
        --module | --wait) ((i++)) ;;
        -*) ;;
        *) command=${COMP_WORDS[i]} && break ;;
        esac
    done
    case $prev in
    --module | -o | --output | --out) COMPREPLY=($(compgen -f -- "$cur")) && return ;;
    esac
    local help
    help=$("${COMP_WORDS[0]}" $command --help 2>/dev/null) || return
    if [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$(sed -n 's/^  \(-[^ ]*\).*/\1/p' <<<"$help" | tr ',' ' ')" -- "$cur"))
    elif [[ -z $command ]]; then
        COMPREPLY=($(compgen -W "$(sed -n '/^Subcommands:/,$ s/^  \([a-z]*\) .*/\1/p' <<<"$help")" -- "$cur"))
    else
        COMPREPLY=($(compgen -f -- "$cur"))
    fi
}
complete -o filenames -F _qmxkf qmxkf
