#!/bin/zsh -f
# What zsh makes of a word and the tabulator, typed into a shell of its own on a pseudo terminal.
# Usage: zsh -f check_completion.zsh SOURCE_DIR PROGRAM_DIR
zmodload zsh/zpty || exit 2
source=${1:A} programs=${2:A}
folder=$(mktemp -d)
trap 'rm -rf $folder' EXIT
cd $folder && mkdir models && touch models/bar.txt
fail=0
# typed into the shell before the lines; ^T tells the line as it stands
cat >rc <<END
PS1= PS2= RPS1=
path=($programs $source/package \$path)
fpath=($source/package/completion \$fpath)
autoload -U compinit && compinit -D -u
zstyle ':completion:*' menu no
unsetopt beep list_beep
show() { print -r -- "<\$BUFFER>"; BUFFER= }
zle -N show && bindkey '^T' show
print ready
END
expect() { # LINE_THAT_COMES LINE_TYPED
    local told
    zpty -w -n shell $2$'\t'$'\x14'
    # a terminal tells colours and cursor moves too
    zpty -r -m shell told '*<*>*' || told="nothing"
    told=${${told##*<}%%>*}
    [[ $told == $1 ]] || { print -r -- "'$2': '$told' comes, not '$1'"; fail=1 }
}
TERM=dumb zpty shell zsh -f -i
zpty -w shell ". $folder/rc"
zpty -r -m shell ready '*ready*' || exit 2
zpty -w shell ""
expect "kestralum-batch static m --quantities " "kestralum-batch static m --quant"
expect "kestralum-batch static m --hexahedra " "kestralum-batch static m --hexa"
expect "kestralum-batch static models/" "kestralum-batch static mo"
expect "kestralum-batch static models/bar.txt " "kestralum-batch static models/b"
expect "kestralum-new --bare " "kestralum-new --b"
if [[ -x $programs/kestralum ]]; then
    expect "kestralum m --projection " "kestralum m --proj"
    expect "kestralum m --background " "kestralum m --backg"
fi
zpty -d shell
exit $fail
