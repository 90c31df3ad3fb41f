# Completion of gatewayctl for bash.

_gatewayctl() {
    local commands="display-alert detail-alert map stop-turnout end-alert turnout-timer set-date page
        rotation reboot play-audio set-gateway raw roll-call serve watch decode"
    local common="--help --to --udp --dry-run --timeout --version"
    local word command="" current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case " ${commands//$'\n'/ } " in
        *" $word "*) command=$word && break ;;
        esac
    done
    local words=""
    case $command in
    "") words="$commands $common" ;;
    display-alert) words="--text --flag --turnout" ;;
    detail-alert) words="--text --unit --flag --turnout --zero --reverse" ;;
    page) words="--blank --card --framed --status" ;;
    rotation) words="0 90 180 270" ;;
    reboot) words="--yes" ;;
    play-audio) words="--device --volume --channels --rate --sample-format" ;;
    raw) words="--file" ;;
    roll-call) words="--broadcast --wait --json" ;;
    serve) words="--rotation --roll-call --every" ;;
    watch) words="--units --group --broadcast --every --json --prometheus --listen" ;;
    decode) words="--file --record" ;;
    esac
    if [[ $previous = --file || $previous = --units || $previous = --prometheus ]]; then
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    elif [ -n "$command" ] && [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$words $common" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    fi
}

complete -F _gatewayctl gatewayctl
