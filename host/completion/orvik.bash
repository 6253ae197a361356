# Completion of orvik for bash.

_orvik() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command= word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
            info | convert | pixels | formats | pixelformats)
                command=$word
                break
                ;;
        esac
    done
    COMPREPLY=()

    # bash splits at "=", so that "--set key" and "--set=key" both end in the key.
    [[ $previous == = ]] && previous=${COMP_WORDS[COMP_CWORD - 2]}
    case $command:$previous in
        convert:--to | convert:-t)
            mapfile -t COMPREPLY < <(compgen -W "$(orvik formats 2>/dev/null | sed -n 's/^\([^ ]*\)  (.*/\1/p')" -- "$current")
            return
            ;;
        convert:--set | convert:-s)
            compopt -o nospace
            mapfile -t COMPREPLY < <(compgen -W "$(orvik formats 2>/dev/null | sed -n 's/^  --set \([^=]*=\).*/\1/p' | sort -u)" -- "$current")
            return
            ;;
        convert:--profile | convert:-p)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -W "srgb linear" -- "$current"; compgen -f -- "$current")
            return
            ;;
        pixels:--format | pixels:-f)
            mapfile -t COMPREPLY < <(compgen -W "$(orvik pixelformats 2>/dev/null | cut -d' ' -f1)" -- "$current")
            return
            ;;
        *:--image | *:--path)
            return
            ;;
    esac

    local options="--help --verbose"
    case $command in
        "") mapfile -t COMPREPLY < <(compgen -W "info convert pixels formats pixelformats $options --version" -- "$current") && return ;;
        info) options+=" --json --headers --html" ;;
        convert) options+=" --to --profile --set --image --path --composite" ;;
        pixels) options+=" --format --image --path --composite --output" ;;
        formats | pixelformats) options+=" --json" ;;
    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    elif [[ $command != *formats ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}

complete -F _orvik orvik
