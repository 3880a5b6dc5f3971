# Completes the command lines of kestralum's programs in bash: options, and the words that a value may be, as the
# program's own help lists them.

# Prints the lines "OPTION SHAPE" of a program's help; the shape is empty for an option without a value.
_kestralum_options() {
    "$1" --help 2>/dev/null | awk '
        /^  -/ {
            term = length($0) > 24 && substr($0, 24, 1) == " " ? substr($0, 1, 24) : $0
            count = split(term, words, " ")
            split(words[1], names, ",")
            for (k in names) print names[k], (count > 1 ? words[2] : "")
        }'
}

# The words in front of the first line of usage that stand alone there: analyses and commands.
_kestralum_commands() {
    "$1" --help 2>/dev/null | awk '
        /^  ANALYSIS / { on = 1 }
        on && /^  [^ ]/ && !/^  ANALYSIS / { exit }
        on {
            sub(/^  ANALYSIS/, "")
            sub(/^ *or /, "")
            rest = rest $0 "\n"
        }
        END {
            split(rest, lines, "\n")
            list = lines[1]
            sub(/;.*/, "", list)
            gsub(/,/, " ", list)
            print list
            while (match(rest, /(^|[ \n])[a-z]+:/)) {
                print substr(rest, RSTART + 1, RLENGTH - 2)
                rest = substr(rest, RSTART + RLENGTH)
            }
        }'
}

_kestralum() {
    local program=$1 word=$2 before=$3 shape=""
    COMPREPLY=()
    if [[ $before == --* ]]; then
        shape=$(_kestralum_options "$program" | awk -v option="$before" '$1 == option { print $2 }')
        if [[ $before == --analysis ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$(_kestralum_commands "${program%kestralum}kestralum-batch" | head -n 1)" -- "$word")
            return
        elif [[ $shape == DIR ]]; then
            mapfile -t COMPREPLY < <(compgen -d -- "$word")
            return
        elif [[ $shape == *"|"* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$(tr '|' '\n' <<<"$shape" | grep -v '[A-Z]')" -- "$word")
            return
        elif [[ -n $shape && $shape != FILE ]]; then
            return
        fi
    fi
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_kestralum_options "$program" | awk '{ print $1 }')" -- "$word")
    elif [[ ${program##*/} == kestralum-batch && $COMP_CWORD == 1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$(_kestralum_commands "$program")" -- "$word")
    elif [[ ${program##*/} == kestralum-new ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$word")
    fi
}

complete -o filenames -F _kestralum kestralum kestralum-batch kestralum-large kestralum-new kestralum-open
