#!/usr/bin/env bash
# The four programs' argument handling: -h and --help print the usage and exit 0, an unknown
# option is refused with the usage status, "--" lets a file name start with "-", and none of
# this touches a file.
# Usage: tools_test.sh BIN_DIR
set -u
bin=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# program, its usage status, arguments that complete a valid call after the option under test
for entry in "kyninfo 1 x.kyn" "kyn2txt 1 x.kyn" "kyntest 1 x.kyn" "kyndiff 2 x.kyn y.kyn"; do
    set -- $entry
    program=$1 status=$2
    shift 2
    for help in -h --help; do
        out=$("$bin/$program" "$help" "$@" 2>&1)
        [ $? -eq 0 ] || fail "$program $help does not exit 0"
        [[ $out == "usage: $program "* ]] || fail "$program $help prints: $out"
    done
    "$bin/$program" --frobnicate "$@" >/dev/null 2>err.txt
    code=$?
    [ $code -eq "$status" ] || fail "$program with an unknown option exits $code, not $status"
    grep -q "unknown option --frobnicate" err.txt || fail "$program: $(cat err.txt)"
    rm -f err.txt
    [ -z "$(ls -A)" ] || fail "$program's refusals left files: $(ls -A)"
done

"$bin/kyntest" -- -h >/dev/null || fail "kyntest -- -h fails"
[ -f ./-h ] || fail "kyntest -- -h writes no file named -h"
"$bin/kyninfo" -- -h >/dev/null || fail "kyninfo -- -h does not read the file -h"

[ $failures -eq 0 ] && echo "all argument checks passed"
exit $((failures > 0))
