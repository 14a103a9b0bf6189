# SPDX-License-Identifier: Apache-2.0
# bash completion of qzrecon, qzrecon-sample and qzrecon-mpi: options out of their help, values of those that have a list there.
_qzrecon()
{
    local cur prev words cword split
    _init_completion -s || return
    local program=${words[0]} values
    values=$("$program" --help 2> /dev/null |
        sed -nE -e "s/^ *(-.,)?$prev ([a-z]+(\|[a-z]+)+)( .*)?\$/\2/p" \
                -e "s/^ *(-.,)?$prev [A-Z]+:\{([^}]*)\}.*\$/\2/p" | tr '|,' '  ')
    if [[ -n $values ]]; then
        COMPREPLY=($(compgen -W "$values" -- "$cur"))
    elif [[ $cur == -* ]]; then
        COMPREPLY=($(compgen -W "$("$program" --help 2> /dev/null | sed -nE 's/^ +(-[^ ]+).*/\1/p' | tr ',' '\n')" -- "$cur"))
    elif [[ ${program##*/} == qzrecon-sample && $cword -eq 1 ]]; then
        COMPREPLY=($(compgen -W "$("$program" --help 2> /dev/null | sed -nE 's/.*SHAPE:\{([^}]*)\}.*/\1/p' | tr ',' ' ')" -- "$cur"))
    else
        _filedir
    fi
} && complete -F _qzrecon qzrecon qzrecon-sample qzrecon-mpi
