# Completion of zpd for bash: zpd itself tells what can stand there.

_zpd()
{
    local cur words cword line
    if ! _get_comp_words_by_ref -n =: cur words cword 2>/dev/null; then
        words=("${COMP_WORDS[@]}") cword=$COMP_CWORD cur=${COMP_WORDS[COMP_CWORD]}
    fi
    # What stands before the last = or : is not replaced.
    local kept=${cur%"${cur##*[=:]}"}
    local begun=${cur#"$kept"}
    COMPREPLY=()
    while IFS= read -r line; do
        case $line in
            $'\tfiles') _zpd_files -f ;;
            $'\tfolders') _zpd_files -d ;;
            $'\tcards') _zpd_files -f -X '!*.[vV][cC][fF]' && _zpd_files -d ;;
            *)
                line=${line%%$'\t'*}
                [[ $line != *= ]] || compopt -o nospace
                COMPREPLY+=("${line#"$kept"}")
                ;;
        esac
    done < <("${words[0]/#\~/$HOME}" complete -- "${words[@]:1:cword}" 2>/dev/null)
}

_zpd_files()
{
    compopt -o filenames
    mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen "$@" -- "$begun")
}

complete -F _zpd zpd
