# Completion of mcastctl for bash: the command itself says what may follow.
_mcastctl() {
    mapfile -t COMPREPLY < <("${COMP_WORDS[0]}" complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
}
complete -F _mcastctl mcastctl
