#!/bin/bash
# What bash offers behind a line, against what the programs' help says.
# Usage: check_completion.bash SOURCE_DIR PROGRAM_DIR
source "$1/package/completion/kestralum.bash" || exit 2
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
cd "$folder" || exit 2
mkdir models
touch models/bar.txt
fail=0
offered() { # WORD...: the line, the last word as far as it is typed
    COMP_CWORD=$(($# - 1))
    _kestralum "$1" "${!#}" "${@:$COMP_CWORD:1}"
    echo "${COMPREPLY[*]}"
}
expect() { # WHAT IS_OFFERED LINE
    [ "$2" = "$1" ] || { echo "$3: '$2' is offered, not '$1'"; fail=1; }
}
batch=$2/kestralum-batch
expect "--section --set --setting" "$(offered "$batch" static m --se | tr ' ' '\n' | sort | xargs)" "--se"
expect "eigen-subspace eigen-lanczos" "$(offered "$batch" eig)" "eig"
expect "explicit export" "$(offered "$batch" exp)" "exp"
expect "check" "$(offered "$batch" ch)" "ch"
expect "models" "$(offered "$batch" static mo)" "a model"
expect "models" "$(offered "$batch" static m --log mo)" "--log"
expect "" "$(offered "$batch" static m --sweep mo)" "--sweep"
expect "models" "$(offered "$1/package/kestralum-new" mo)" "a folder"
expect "--bare" "$(offered "$1/package/kestralum-new" --b)" "--b"
# every option that the help has
expect "$("$batch" --help | sed -n 's/^  \(-h,\)\{0,1\}\(--[a-z-]*\).*/\2/p' | sort | xargs)" \
    "$(offered "$batch" static -- | tr ' ' '\n' | sort | xargs)" "--"
if [ -x "$2/kestralum" ]; then
    expect "perspective orthographic" "$(offered "$2/kestralum" m --projection "")" "--projection"
    expect "explicit" "$(offered "$2/kestralum" m --analysis ex)" "--analysis"
    expect "auto all symmetric" "$(offered "$2/kestralum" m --range "")" "--range"
fi
exit $fail
