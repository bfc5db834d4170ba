#!/usr/bin/env bash
# The bash completion of tonvy-cli against the program's own --help: every
# command, every word and option a command's synopsis names, the values given
# as a|b|c, the Comm Port numbers and the serial devices for --port.
#
#   completion.sh COMPLETION_FILE TONVY_CLI
set -u
completion="$1"
cli="$2"
# shellcheck source=/dev/null
source "$completion"

failures=0
checks=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# Completes the command line given as words; the last word is the one being
# typed. Prints the offers, one a line, sorted.
offers()
{
    COMP_WORDS=(tonvy-cli "$@")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _tonvy_cli
    printf '%s\n' "${COMPREPLY[@]}" | sed '/^$/d' | sort -u
}

# expect_all "what" "needed words" -- completion words...
expect_all()
{
    local what="$1" needed="$2"
    shift 3
    local got
    got=$(offers "$@")
    for w in $needed; do
        checks=$((checks + 1))
        grep -qxF -- "$w" <<<"$got" || fail "$what: '$w' not offered (offered: $(echo $got))"
    done
}

# expect_exactly "what" "words" -- completion words...
expect_exactly()
{
    local what="$1" want
    want=$(printf '%s\n' $2 | sed '/^$/d' | sort -u)
    shift 3
    local got
    got=$(offers "$@")
    checks=$((checks + 1))
    [ "$got" = "$want" ] || fail "$what: offered '$(echo $got)', expected '$(echo $want)'"
}

help=$("$cli" --help) || { echo "FAIL: $cli --help"; exit 1; }

# Global options: the "Global options:" section.
globals=$(sed -n '/^Global options:/,/^$/p' <<<"$help" | grep -o -- '--[a-z][a-z-]*' | sort -u)
expect_all "global options" "$globals" -- --

# Commands: lines of the "Commands:" section indented by two spaces exactly;
# deeper lines continue the one above.
commands_section=$(sed -n '/^Commands:/,/^$/p' <<<"$help" | tail -n +2)
commands=$(grep -E '^  [a-z]' <<<"$commands_section" | awk '{ print $1 }' | sort -u)
[ -n "$commands" ] || fail "no commands found in --help"
expect_all "commands" "$commands" -- ""

for command in $commands; do
    # The synopsis lines of this command: its own lines and their continuations.
    synopsis=$(awk -v c="$command" '
        /^  [a-z]/ { mine = ($1 == c) }
        mine { print }' <<<"$commands_section")
    options=$(grep -o -- '--[a-z][a-z-]*' <<<"$synopsis" | sort -u)
    expect_all "options of $command" "$options" -- "$command" --
    # The word after the command (settings show|set, report daily|agent).
    words=$(grep -E "^  $command [a-z]" <<<"$synopsis" | awk '{ print $2 }' | tr '|' '\n' | sort -u)
    [ -n "$words" ] && expect_exactly "words of $command" "$words" -- "$command" ""
    # Options whose values are listed as a|b|c.
    while read -r option values; do
        [ -n "$option" ] || continue
        expect_exactly "values of $command $option" "$(tr '|' ' ' <<<"$values")" -- "$command" "$option" ""
    done < <(grep -oE -- '--[a-z-]+ [a-z]+(\|[a-z]+)+' <<<"$synopsis" | sort -u)
done

expect_exactly "Comm Port numbers" "1 2 3 4 5 6 7 8 9 10" -- settings set --comm-port ""
grep -q -- '--comm-port 1..10' <<<"$help" || fail "--help no longer says --comm-port 1..10"

devices=$(ls -d /dev/ttyS* /dev/ttyUSB* /dev/ttyACM* 2>/dev/null)
expect_exactly "devices for --port" "$devices" -- --port ""
expect_exactly "devices for --port after the command" "$devices" -- receive --port ""
expect_exactly "no second word after settings show" "" -- settings show ""

echo "$((checks - failures)) passed, $failures failed"
[ "$failures" -eq 0 ]
