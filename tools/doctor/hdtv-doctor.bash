# Completion of hdtv-doctor for bash.

_hdtv_doctor() {
    mapfile -t COMPREPLY < <(
        compgen -W "--help --json --stop-service --version --watch" -- "${COMP_WORDS[COMP_CWORD]}"
    )
}

complete -F _hdtv_doctor hdtv-doctor
