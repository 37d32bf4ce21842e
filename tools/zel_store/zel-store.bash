# shellcheck shell=bash
# Bash completion of zel-store.
_zel_store() {
    local current=${COMP_WORDS[COMP_CWORD]} words=""
    COMPREPLY=()
    if [[ $COMP_CWORD -eq 1 ]]; then
        words="show watch check trace init copy --help --version"
    elif [[ $current == -* ]]; then
        case ${COMP_WORDS[1]} in
        show) words="--request --token --all --secrets --json --help" ;;
        watch) words="--request --token --all --secrets --json --interval --views --help" ;;
        check) words="--json --help" ;;
        trace) words="--tree --timeline --json --help" ;;
        init) words="--wal --help" ;;
        copy) words="--help" ;;
        esac
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -o filenames -F _zel_store zel-store
