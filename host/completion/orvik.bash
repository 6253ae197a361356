# Completion of orvik for bash.

_orvik() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command= key= word names
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
            info | convert | pixels | formats | pixelformats)
                command=$word
                break
                ;;
        esac
    done
    COMPREPLY=()

    # bash makes "=" a word of its own: "--set key=value" and "--set=key=value" are four and five words.
    local -i at=COMP_CWORD-1
    [[ $current == = ]] && current= at+=1
    if [[ ${COMP_WORDS[at]} == = ]]; then
        previous=${COMP_WORDS[at - 1]}
        if [[ $previous != -* && ${COMP_WORDS[at - 2]} == = ]]; then
            key=$previous previous=${COMP_WORDS[at - 3]}
        elif [[ $previous != -* ]]; then
            key=$previous previous=${COMP_WORDS[at - 2]}
        fi
    fi
    case $command:$previous in
        convert:--to | convert:-t)
            mapfile -t COMPREPLY < <(compgen -W "$(orvik formats 2>/dev/null | sed -n 's/^\([^ ]*\)  (.*/\1/p')" -- "$current")
            return
            ;;
        convert:--set | convert:-s)
            if [[ $key ]]; then
                names=$(orvik formats 2>/dev/null | sed -n "s/^  --set ${key##*.}=\([^ ]*|[^ ]*\) .*/\1/p" | tr '|' '\n' | sort -u)
            else
                compopt -o nospace
                names=$(orvik formats 2>/dev/null | sed -n 's/^  --set \([^=]*=\).*/\1/p' | sort -u)
            fi
            mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current")
            return
            ;;
        convert:--profile | convert:-p)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -W "srgb linear" -- "$current"; compgen -f -- "$current")
            return
            ;;
        pixels:--format | pixels:-f)
            names=$(orvik pixelformats 2>/dev/null | cut -d' ' -f1)
            [[ $current != net.* ]] && names=${names//net.orvik.image.pixelformat./}
            mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current")
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
