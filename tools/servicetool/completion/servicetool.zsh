#compdef servicetool
# zsh completion for servicetool

@RECORDS@

# These functions add the record of a command to the variables of _servicetool, in the form of
# _arguments.
_servicetool_command() {
    known+=("$1:$2")
}

_servicetool_option() {
    local before=${3:+"($3)"} after="[${5//(#m)[\\\[\]:]/\\$MATCH}]" name REPLY
    if [[ $4 != last ]]; then
        before+='*'
    fi
    if [[ $4 == words ]]; then
        after+=':*-*'  # values end at the next option
    fi
    if [[ -n $6 ]]; then
        _servicetool_value "${@[6,8]}"
        after="=$after$REPLY"
    fi
    for name in $2 $1; do
        arguments+=("$before$name$after")
    done
}

_servicetool_operand() {
    local REPLY
    _servicetool_value "${@[2,4]}"
    arguments+=("$1$REPLY")
}

# Sets REPLY to ":message:action".
_servicetool_value() {
    REPLY=":${1//(#m)[\\\[\]:]/\\$MATCH}:"
    case $2 in
        nothing) REPLY+=' ' ;;
        words) REPLY+="($3)" ;;
        items) REPLY+="_values -s , $1 $3" ;;
        files) REPLY+=_files ;;
        skippable)
            settings=(${=3})
            REPLY+='_sequence _servicetool_skippable'
            ;;
        *) REPLY+=_servicetool_$2 ;;
    esac
}

_servicetool_commands() {
    _describe -t commands 'command' known
}

_servicetool_services() {
    local -a services
    services=(${(f)"$(_call_program services servicetool list --no-legend 2> /dev/null)"})
    services=(${services%% *})
    _wanted services expl 'service' compadd -a services
}

_servicetool_firewall_services() {
    local -a services
    services=(${(f)"$(_call_program services servicetool services --no-legend 2> /dev/null)"})
    services=(${services%% *})
    _wanted services expl 'firewall service' compadd "$@" -a services
}

# The firewall services and $settings, the names that skip settings.
_servicetool_skippable() {
    local -a services
    services=(${(f)"$(_call_program services servicetool services --no-legend 2> /dev/null)"})
    services=(${services%% *} $settings)
    _wanted services expl 'service' compadd "$@" -a services
}

_servicetool_targets() {
    _alternative 'services:service:_servicetool_services' 'files:service file:_files'
}

# The names of the files in both service folders.
_servicetool_installed() {
    local -aU files
    files=($^_servicetool_folders/*(N-.:t))
    _wanted files expl 'installed file' compadd -a files
}

# The services that the file of the first argument declares.
_servicetool_sections() {
    local -a services
    services=(${(f)"$(_call_program services servicetool list --no-legend 2> /dev/null |
        file=${(Q)line[1]} awk '$2 == ENVIRON["file"] { print $1 }')"})
    _wanted services expl 'service' compadd -a services
}

_servicetool() {
    local curcontext=$curcontext state line
    local -A opt_args
    local -a arguments known settings
    _servicetool_record ''
    _arguments -C -S $arguments \
        '1:command:_servicetool_commands' \
        '*::argument:->arguments' && return
    [[ $state == arguments ]] || return
    curcontext="${curcontext%:*:*}:servicetool-$words[1]:"
    arguments=()
    _servicetool_record $words[1] && _arguments -S $arguments
}

_servicetool "$@"
