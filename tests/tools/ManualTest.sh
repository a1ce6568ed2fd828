#!/bin/bash
# ManualTest.sh VORN - the man pages and completions that the program writes: complete, as its own --help has it; free of
# faults, as man, bash and zsh see them; and completion offers what fits.
set -euo pipefail
vorn=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir man completions

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

"$vorn" manual --man man --completions completions
commands=$("$vorn" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
[ "$(echo $commands | wc -w)" -ge 9 ] || fail "commands: $commands"
[ "$(ls man | wc -l)" -eq $(($(echo $commands | wc -w) + 1)) ] || fail "pages: $(ls man)"

long_options() { "$vorn" "$1" --help | sed -n 's/^  \(-.,\)\?\(--[a-z-]*\).*/\2/p' | sort; }

if command -v man >/dev/null; then
    for page in man/*; do
        LC_ALL=C.UTF-8 man --warnings -E UTF-8 -l "$page" >/dev/null 2>faults
        [ ! -s faults ] || fail "$page: $(cat faults)"
    done
    for command in $commands; do
        LC_ALL=C.UTF-8 MANWIDTH=120 man -E ascii -l "man/vorn-$command.1" >text 2>/dev/null
        for option in $(long_options "$command"); do
            grep -Eq -- "^ {7}(-., )?$option( |\$)" text || fail "vorn-$command.1 lacks $option"
        done
    done
else
    echo "without man (Debian package man-db): pages not looked at"
fi

bash -n completions/vorn.bash
if command -v zsh >/dev/null; then zsh -n completions/_vorn; else echo "without zsh: its completion not looked at"; fi

# offered WORDS...: what bash would offer for the last one
offered() {
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMPREPLY=()
    _vorn || true
    printf '%s\n' "${COMPREPLY[@]}" | sort | xargs
}
. completions/vorn.bash
mkdir -p files/folder
cd files
touch clip.vrn clip.y4m "two words.wav" clip.png
expect() {
    local expected=$1
    shift
    [ "$(offered vorn "$@")" = "$expected" ] || fail "vorn $*: $(offered vorn "$@")"
}
expect "make" ma
for command in $commands; do expect "$(long_options "$command" | xargs)" "$command" --; done
expect "--frame-bytes --frames" make clip.y4m --fr
expect "clip.vrn folder" info ""
expect "clip.png folder" compare clip.vrn -o ""
expect "clip.png clip.vrn clip.y4m" compare clip.vrn cl
expect "two words.wav" make clip.y4m --audio t
expect "two words.wav" mix clip.vrn --track 0 = t
expect "clip.png clip.vrn clip.y4m folder two words.wav" mix clip.vrn --track 0 =
expect "" make --rate ""
expect "" make --rate = ""
expect "balls" scene b
echo "man pages and completions are right"
