# bash completion for quorvel, quorvelfs and quorvel-simdevice

# What the words so far may be completed to, one a line; blanks stay in a word.
_quorvel_offer() {
    local IFS=$'\n' word
    COMPREPLY=()
    while read -r word; do
        [[ $word == "$cur_plain"* ]] || continue
        # Within quotes a word stays as it is.
        [[ $cur == [\"\']* ]] || word=$(printf '%q' "$word")
        COMPREPLY+=("$word")
    done
}

_quorvel_devices() {
    timeout 3 quorvel list --names 2>/dev/null
}

_quorvel_mounts() {
    findmnt -rnt fuse.quorvelfs -o TARGET 2>/dev/null | while IFS= read -r point; do
        printf '%b\n' "$point"
    done
}

# The options that the program itself tells.
_quorvel_options() {
    "$@" --help 2>/dev/null | grep -oE '(^|[ ,])--?[a-z][a-z-]*' | tr -d ' ,' | sort -u
}

_quorvel() {
    local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} cur_plain command=""
    cur_plain=${cur#[\"\']}
    cur_plain=${cur_plain//\\/}
    local i
    for ((i = 1; i < COMP_CWORD; i++)); do
        [[ ${COMP_WORDS[i]} == -* ]] || { command=${COMP_WORDS[i]} && break; }
    done
    case $previous in
    --in)
        compopt -o nospace -o filenames
        mapfile -t COMPREPLY < <(compgen -d -- "$cur_plain")
        return
        ;;
    -o | --options)
        _quorvel_offer < <(printf '%s\n' ro allow_other default_permissions log_level= timeout_ms= afc_window= dialog=)
        return
        ;;
    --wait) return ;;
    esac
    if [[ -z $command ]]; then
        _quorvel_offer < <(printf '%s\n' list mount unmount status watch copy apps --help --version)
    elif [[ $cur == -* ]]; then
        _quorvel_offer < <(_quorvel_options quorvel "$command")
    else
        case $command in
        mount)
            if ((i == COMP_CWORD - 1)); then
                _quorvel_offer < <(_quorvel_devices)
            else
                compopt -o filenames
                mapfile -t COMPREPLY < <(compgen -d -- "$cur_plain")
            fi
            ;;
        apps) _quorvel_offer < <(_quorvel_devices) ;;
        unmount) _quorvel_offer < <(
            _quorvel_devices
            _quorvel_mounts
        ) ;;
        copy)
            _quorvel_offer < <(_quorvel_devices | sed 's/$/:/')
            if ((${#COMPREPLY[@]} == 0)); then
                compopt -o filenames
                mapfile -t COMPREPLY < <(compgen -f -- "$cur_plain")
            else
                compopt -o nospace
            fi
            ;;
        esac
    fi
}

_quorvelfs() {
    local cur=${COMP_WORDS[COMP_CWORD]} cur_plain=${COMP_WORDS[COMP_CWORD]}
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    -o) _quorvel_offer < <(printf '%s\n' ro allow_other default_permissions usbmux= dialog= log_level= timeout_ms= afc_window= location_id=) ;;
    -devopt) _quorvel_offer < <(timeout 3 quorvel list 2>/dev/null | grep -oE ' [0-9]{5,10} ' | tr -d ' ') ;;
    *)
        if [[ $cur == -* ]]; then
            _quorvel_offer < <(printf '%s\n' -f -o -devopt --help --version)
        else
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        fi
        ;;
    esac
}

_quorvel_simdevice() {
    local cur=${COMP_WORDS[COMP_CWORD]} cur_plain=${COMP_WORDS[COMP_CWORD]}
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --tls) _quorvel_offer < <(printf '%s\n' off session all) && return ;;
    --trust) _quorvel_offer < <(printf '%s\n' trusted pending:1 locked denied stale) && return ;;
    esac
    if ((COMP_CWORD == 1)); then
        _quorvel_offer < <(printf '%s\n' make run ctl --help --version)
    elif [[ $cur == -* ]]; then
        _quorvel_offer < <(_quorvel_options quorvel-simdevice "${COMP_WORDS[1]}")
    else
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
}

complete -F _quorvel quorvel
complete -F _quorvelfs quorvelfs
complete -F _quorvel_simdevice quorvel-simdevice
