# Completion of gatewayctl for bash.

# The inventory's file: of the command line, the environment, or the file with defaults.
_gatewayctl_inventory() {
    local i file=""
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [ "${COMP_WORDS[i]}" = --units ]; then
            file=${COMP_WORDS[i + 1]}
            [ "$file" != = ] || file=${COMP_WORDS[i + 2]}
        fi
    done
    file=${file:-$GATEWAYCTL_UNITS}
    if [ -z "$file" ] && [ -r ~/.config/gatewayctl.conf ]; then
        file=$(sed -n 's/^units *= *//p' ~/.config/gatewayctl.conf | tr -d "\"'")
    fi
    printf '%s\n' "${file/#\~/$HOME}"
}

# _gatewayctl_units name|group  Those of the inventory.
_gatewayctl_units() {
    local file
    file=$(_gatewayctl_inventory)
    [ ! -r "$file" ] || awk -v what="$1" '
        $1 ~ /^#/ || NF < 2 { next }
        what == "name" { print $1; next }
        { for (i = 3; i <= NF && $i !~ /^#/; i++) if ($i !~ /^hw=/) { if ($i != "-") print $i; next } }
    ' "$file"
}

# _gatewayctl_offer CURRENT  The lines of standard input that begin so. They are data: nothing in them is
# expanded here, and they are quoted for the command line.
_gatewayctl_offer() {
    local name
    COMPREPLY=()
    while IFS= read -r name; do
        if [[ $name == "$1"* ]]; then
            printf -v name %q "$name"
            COMPREPLY+=("$name")
        fi
    done
}

_gatewayctl() {
    local commands="display-alert detail-alert map stop-turnout end-alert turnout-timer set-date page
        rotation reboot play-audio set-gateway raw roll-call serve watch decode"
    local common="--help --to --units --group --bind --udp --dry-run --force --timeout --parallel --retries
        --json --failed-to --config --version"
    local colors="red blue green yellow orange purple cyan white pink lime brown teal navy maroon
        silver gray"
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
    roll-call) words="--broadcast --expect --each --wait --save" ;;
    serve) words="--rotation --roll-call --every" ;;
    watch) words="--broadcast --every --prometheus --listen" ;;
    decode) words="--file --record" ;;
    esac
    if [ "$COMP_CWORD" -gt 3 ] && [ "${COMP_WORDS[COMP_CWORD - 3]}$previous" = --unit: ]; then
        mapfile -t COMPREPLY < <(compgen -W "$colors" -- "$current")
        return
    fi
    if [ "$current" = = ]; then # --to=
        current=""
    elif [ "$previous" = = ]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $previous in
    --to) _gatewayctl_offer "$current" < <(_gatewayctl_units name) ;;
    --group) _gatewayctl_offer "$current" < <(_gatewayctl_units group | sort -u) ;;
    --file | --units | --failed-to | --config | --prometheus | --expect | --save)
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        ;;
    *)
        if [ -n "$command" ] && [[ $current == -* ]]; then
            words+=" $common"
        fi
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
        ;;
    esac
}

complete -F _gatewayctl gatewayctl
