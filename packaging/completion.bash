# Completion for ifsctl. Its commands and options are taken from its --help.

# _ifsctl_offer KIND...: what compgen offers for the caller's word.
_ifsctl_offer() {
    mapfile -t COMPREPLY < <(compgen "$@" -- "$word")
}

_ifsctl() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local help commands earlier command=
    if [[ $word == = ]]; then # of --option=value, which bash takes for three words
        word=
    elif [[ $before == = ]]; then
        before=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    help=$("$1" --help 2>/dev/null)
    commands=$(sed -n '/^Commands:/,/^$/s/^  \([a-z]\+\) .*/\1/p' <<<"$help")
    for earlier in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        grep -qxF -- "$earlier" <<<"$commands" && command=$earlier
    done
    [ -z "$command" ] || help+=$'\n'$("$1" "$command" --help 2>/dev/null)

    COMPREPLY=()
    case $before in
        --card) compopt -o filenames; _ifsctl_offer -d; return ;;
        --output | --sub-input) compopt -o filenames; _ifsctl_offer -f; return ;;
        --stream) _ifsctl_offer -W 'main sub'; return ;;
    esac
    if grep -qE -- "^  $before [A-Z]" <<<"$help"; then
        return # a time, a size or a number
    elif [[ $word == -* ]]; then
        _ifsctl_offer -W "$(sed -nE 's/^  (-.,)?(--[a-z-]+) .*/\2/p' <<<"$help")"
    elif [[ -z $command || $command == help ]]; then
        _ifsctl_offer -W "$commands"
    elif grep -qE '^  (INPUT|FILE) ' <<<"$help"; then
        compopt -o filenames
        _ifsctl_offer -f
    fi
}
complete -F _ifsctl ifsctl
