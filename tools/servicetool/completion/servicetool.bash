# bash completion for servicetool                                          -*- shell-script -*-
#
# It does not need the helpers of the bash-completion package.

@RECORDS@

# These functions add the record of a command to the variables of _servicetool: the options; the
# kinds of their values and of the arguments, each with its words; the kind of all further
# arguments; the option that takes several values.
_servicetool_command() {
    operands[0]=${operands[0]:-words}" $1"
}

_servicetool_option() {
    options+=" $1 $2"
    if [[ -n $6 ]]; then
        values[$1]="$7 $8"
    fi
    if [[ $4 == words ]]; then
        open=$1
    fi
}

_servicetool_operand() {
    if [[ $1 == '*' ]]; then
        many="$3 $4"
    else
        operands+=("$3 $4")
    fi
}

# The words of $2 that start with what is typed.
_servicetool_words() {
    mapfile -t COMPREPLY < <(compgen -W "$2" -- "$1")
}

# The same for the last item of a list with commas.
_servicetool_items() {
    local before=''
    if [[ $1 == *,* ]]; then
        before=${1%,*},
    fi
    mapfile -t COMPREPLY < <(compgen -P "$before" -W "$2" -- "${1##*,}")
}

# The files that start with what is typed; the shell adds the slash after folders.
_servicetool_files() {
    local file
    while IFS= read -r file; do
        COMPREPLY+=("$file")
    done < <(compgen -f -- "$1")
    compopt -o filenames 2> /dev/null
}

# The names that the command $1 lists.
_servicetool_names() {
    servicetool "$1" --no-legend 2> /dev/null | cut -d ' ' -f 1
}

# The files of both service folders whose names start with what is typed.
_servicetool_installed() {
    local folder file
    for folder in "${_servicetool_folders[@]}"; do
        for file in "$folder/$1"*; do
            if [[ -f $file ]]; then
                COMPREPLY+=("${file##*/}")
            fi
        done
    done
    compopt -o filenames 2> /dev/null
}

# The services that the installed file $1 declares.
_servicetool_sections() {
    servicetool list --no-legend 2> /dev/null |
        file=$1 awk '$2 == ENVIRON["file"] { print $1 }'
}

# Offers what a value can be. $1 is what is typed, $2 the kind of value, the rest its words.
_servicetool_offer() {
    local words=${*:3}
    case $2 in
        words) _servicetool_words "$1" "$words" ;;
        items) _servicetool_items "$1" "$words" ;;
        files) _servicetool_files "$1" ;;
        installed) _servicetool_installed "$1" ;;
        sections) _servicetool_words "$1" "$(_servicetool_sections "${arguments[0]}")" ;;
        targets)
            _servicetool_words "$1" "$(_servicetool_names list)"
            _servicetool_files "$1"
            ;;
        firewall_services) _servicetool_words "$1" "$(_servicetool_names services)" ;;
        skippable)
            words+=" $(_servicetool_names services)"
            _servicetool_items "$1" "$(printf '%s\n' $words | sort -u)"
            ;;
    esac
}

_servicetool() {
    local current=${COMP_WORDS[COMP_CWORD]#=} command='' option='' options_end='' word
    local options='' operands=() many='' open='' arguments=()
    local -A values=()
    COMPREPLY=()
    _servicetool_record ''
    # What was typed last: the shell takes --skip=x for three words.
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word == -- && -z $options_end ]]; then
            options_end=yes
        elif [[ $word == -?* && -z $options_end ]]; then
            option=${values[$word]:+$word}
        elif [[ $word == = ]]; then
            continue
        elif [[ -n $option ]]; then
            [[ $option == "$open" ]] || option=''
        elif [[ -z $command ]]; then
            command=$word
            options='' values=() operands=()
            _servicetool_record "$command"
        else
            arguments+=("$word")
        fi
    done
    # The kinds are several words on purpose.
    if [[ $current == -* && -z $options_end ]]; then
        _servicetool_words "$current" "$options"
    elif [[ -n $option ]]; then
        _servicetool_offer "$current" ${values[$option]}
    elif [[ -n $many ]] || ((${#arguments[@]} < ${#operands[@]})); then
        _servicetool_offer "$current" ${operands[${#arguments[@]}]:-$many}
    fi
}

complete -F _servicetool servicetool
