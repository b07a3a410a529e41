# Completion for ostrel-reg: commands, options, roots, keys, types and files.
_ostrel_reg() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1],,}
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        mapfile -t COMPREPLY < <(compgen -W \
            'query add delete copy export import watch check compact where --help' -- "$word")
        return
    fi
    case ${before,,} in
        [-/]t)
            mapfile -t COMPREPLY < <(compgen -W 'REG_SZ REG_EXPAND_SZ REG_MULTI_SZ REG_DWORD
                REG_QWORD REG_BINARY REG_NONE REG_DWORD_BIG_ENDIAN REG_LINK' -- "${word^^}")
            return
            ;;
        [-/]v | [-/]d | [-/]f | [-/]se) [ "$command" = query ] || return ;;
    esac
    case $command in
        import) mapfile -t COMPREPLY < <(compgen -f -- "$word") && return ;;
        export) [ "$COMP_CWORD" -eq 3 ] && mapfile -t COMPREPLY < <(compgen -f -- "$word") && return ;;
    esac
    if [[ $word == [-/]* ]]; then
        local options=
        case $command in
            query) options='/v /ve /s /f /k /d /c /e /t /z /se --json' ;;
            add) options='/v /ve /t /s /d /f' ;;
            delete) options='/v /ve /va /f' ;;
            copy) options='/s /f' ;;
            export) options='/y' ;;
            where) options='--json' ;;
            watch) options='/s --json' ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
        return
    fi
    # A key: the roots, then the keys below what is typed. The shell takes \ for itself, so keys are
    # completed between slashes, and only those whose names need no quotes.
    compopt -o nospace 2>/dev/null
    if [[ $word != */* ]]; then
        mapfile -t COMPREPLY < <(compgen -S / -W 'HKLM HKCU HKCR HKU HKCC' -- "${word^^}")
        return
    fi
    local parent=${word%/*} typed=${word##*/} name
    while IFS= read -r name; do
        name=${name##*\\}
        [[ ${name,,} == "${typed,,}"* && $name =~ ^[[:alnum:]_.{}-]+$ ]] && COMPREPLY+=("$parent/$name/")
    done < <("${COMP_WORDS[0]}" query "$parent" 2>/dev/null | grep '^HKEY_')
}
complete -F _ostrel_reg ostrel-reg
