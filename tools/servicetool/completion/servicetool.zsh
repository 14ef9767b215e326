#compdef servicetool
# zsh completion for servicetool

@RECORDS@

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
    files=({/usr/tavo,/usr/local}/etc/services.d/*(N-.:t))
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
    local -a arguments settings
    _servicetool_record ''
    _arguments -C -S $arguments \
        '1:command:_servicetool_commands' \
        '*::argument:->arguments' && return
    [[ $state == arguments ]] || return
    curcontext="${curcontext%:*:*}:servicetool-$words[1]:"
    _servicetool_record $words[1] && _arguments -S $arguments
}

_servicetool "$@"
