#!/usr/bin/env bash
# Checks zeltool's command-line contract: version, exit statuses (0 done, 1 input refused,
# 2 usage) with their messages, and images through standard input and output.
# Usage: zeltool_cli_test.sh ZELTOOL VERSION PNG
set -uo pipefail
if [ $# -ne 3 ]; then echo "usage: $0 ZELTOOL VERSION PNG" >&2; exit 2; fi
tool=$1 version=$2 png=$3
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

# Runs zeltool with the remaining arguments; leaves the status in $rc, the streams in out/err.
run() { "$tool" "$@" >"$work/out" 2>"$work/err"; rc=$?; }
expect_rc() {  # expect_rc WANT WHAT
  [ "$rc" -eq "$1" ] || fail "$2: exit $rc, want $1 (stderr: $(head -c 300 "$work/err"))"
}

for flag in --version -V; do
  run "$flag"
  expect_rc 0 "$flag"
  [ "$(cat "$work/out")" = "zeltool $version" ] || fail "$flag printed '$(cat "$work/out")'"
done

run frobnicate --flag
expect_rc 2 "unknown command"
grep -q "^zeltool: unknown command 'frobnicate'; commands: .*json.*convert" "$work/err" ||
  fail "unknown command message: $(cat "$work/err")"
[ ! -s "$work/out" ] || fail "unknown command wrote to standard output"

# Usage errors: no command, a missing argument, an unknown option, a malformed option value,
# an unknown sub-subcommand. Each must be 2, whatever the parser's own codes are.
run; expect_rc 2 "no command"
run convert "$png"; expect_rc 2 "convert without OUT"
run convert --no-such-option "$png" "$work/x.png"; expect_rc 2 "unknown option"
run erase "$png" "$work/x.png"; expect_rc 2 "erase without --rect or --path"
run erase "$png" "$work/x.png" --rect 1,2,3; expect_rc 2 "erase with a short --rect"
[ ! -e "$work/x.png" ] || fail "a usage error still wrote an image"
run json --decimals many; expect_rc 2 "json --decimals not a number"
run b64 sideways; expect_rc 2 "b64 with an unknown direction"
run --help; expect_rc 0 "--help"
grep -q "Exit status: 0 done; 1 input refused" "$work/out" || fail "--help does not explain the exit status"

# Refused input is 1: colour texts, unreadable files, a file that is no image.
run color "#FF8000" "10 20 30"; expect_rc 0 "accepted colours"
run color "#FF8000" "#12345"; expect_rc 1 "a refused colour among good ones"
grep -q '"#12345" is not a colour' "$work/err" || fail "refused colour message: $(cat "$work/err")"
run json "$work/missing.json"; expect_rc 1 "json of a missing file"
run b64 encode "$work/missing.bin"; expect_rc 1 "b64 of a missing file"
printf 'not an image' >"$work/fake.png"
run convert "$work/fake.png" "$work/y.png"; expect_rc 1 "convert of a non-image"
run convert - "$work/y.png" <"$work/fake.png"; expect_rc 1 "convert of a non-image on standard input"
run convert "$png" - --format nosuch; expect_rc 1 "convert to an unknown format"

# Standard input to standard output: the bytes must be exactly what a file conversion writes
# (so no summary line leaked into them), and decode back to the same pixels as the original.
"$tool" convert "$png" "$work/file.png" >/dev/null || fail "file to file convert"
"$tool" convert - - <"$png" >"$work/piped.png" 2>"$work/err"; rc=$?
expect_rc 0 "convert - -"
grep -q -- "-> -" "$work/err" || fail "convert - - gave no summary on standard error"
cmp -s "$work/file.png" "$work/piped.png" || fail "convert - - differs from a file conversion"
[ "$(head -c 8 "$work/piped.png" | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ] ||
  fail "convert - - did not write PNG"
"$tool" convert "$png" "$work/original.bmp" >/dev/null || fail "original to BMP"
"$tool" convert - "$work/piped.bmp" <"$work/piped.png" >/dev/null || fail "piped PNG does not decode"
cmp -s "$work/original.bmp" "$work/piped.bmp" || fail "pixels changed through standard input and output"

# --format picks the output format on standard output.
"$tool" convert "$png" - --format jpg 2>/dev/null >"$work/piped.jpg" || fail "convert to JPEG on stdout"
[ "$(head -c 2 "$work/piped.jpg" | od -An -tx1 | tr -d ' \n')" = ffd8 ] || fail "--format jpg did not write JPEG"

# The other image commands share the reader and writer.
"$tool" erase - - --rect 0,0,10,10 --desc '{"ColorValue":0}' <"$png" >"$work/erased.png" 2>/dev/null || fail "erase - -"
"$tool" convert "$work/erased.png" "$work/erased.bmp" >/dev/null || fail "erase - - output does not decode"
cmp -s "$work/original.bmp" "$work/erased.bmp" && fail "erase - - left the image unchanged"
run composite - - "$work/z.png"; expect_rc 2 "composite with both inputs on standard input"

if [ "$failures" -ne 0 ]; then echo "$failures check(s) failed" >&2; exit 1; fi
echo "zeltool command line: all checks passed"
