#!/usr/bin/env bash
# Runs the kelva tool and compares its output with the expected texts.
# usage: cli_test.sh KELVA_BINARY EXPECTED_DIR VERSION
set -euo pipefail

kelva=$1
expected=$2
version=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
checks=0

# Records a failed check with its message.
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

# run NAME ARGS...: runs kelva, leaving stdout, stderr and status in $work/NAME.*
run() {
  local name=$1
  shift
  local status=0
  "$kelva" "$@" >"$work/$name.out" 2>"$work/$name.err" || status=$?
  echo "$status" >"$work/$name.status"
}

# expect_status NAME CODE
expect_status() {
  checks=$((checks + 1))
  local got
  got=$(cat "$work/$1.status")
  [[ $got == "$2" ]] || fail "$1: exit status $got, expected $2 (stderr: $(cat "$work/$1.err"))"
}

# expect_file NAME STREAM FILE: the stream's bytes equal FILE's.
expect_file() {
  checks=$((checks + 1))
  cmp -s "$work/$1.$2" "$3" || { fail "$1: $2 differs from $3"; diff -u "$3" "$work/$1.$2" >&2 || true; }
}

# expect_empty NAME STREAM: nothing was written to the stream.
expect_empty() {
  checks=$((checks + 1))
  [[ ! -s $work/$1.$2 ]] || fail "$1: unexpected $2: $(cat "$work/$1.$2")"
}

# expect_text NAME STREAM TEXT: the stream is exactly TEXT plus a newline.
expect_text() {
  printf '%s\n' "$3" >"$work/$1.$2.want"
  expect_file "$1" "$2" "$work/$1.$2.want"
}

run version --version
expect_status version 0
expect_text version out "kelva $version"
expect_empty version err

run help --help
expect_status help 0
checks=$((checks + 1))
head -n 1 "$work/help.out" | grep -qx 'usage: kelva --help' || fail "help: first line"
checks=$((checks + 1))
grep -q '^  asia  ' "$work/help.out" || fail "help: asia is not listed"
run help_after_command nodes --example asia --help
expect_status help_after_command 0
expect_file help_after_command out "$work/help.out"

run asia_text nodes --example asia
expect_status asia_text 0
expect_file asia_text out "$expected/nodes-asia.txt"
expect_empty asia_text err

run asia_tsv nodes --format=tsv --example=asia
expect_status asia_tsv 0
expect_file asia_tsv out "$expected/nodes-asia.tsv"

# NET files: convert is stable (write, read, write gives the same bytes), and
# nodes reads what convert wrote.
run convert_asia convert --example asia -o "$work/asia1.net"
expect_status convert_asia 0
expect_empty convert_asia out
run convert_again convert "$work/asia1.net" -o "$work/asia2.net"
expect_status convert_again 0
checks=$((checks + 1))
cmp -s "$work/asia1.net" "$work/asia2.net" || fail "convert: a second conversion changed the file"
run nodes_file nodes "$work/asia1.net" --format tsv
expect_status nodes_file 0
checks=$((checks + 1))
diff <(tail -n +2 "$work/nodes_file.out") <(tail -n +2 "$expected/nodes-asia.tsv") >/dev/null ||
  fail "nodes: the converted file reads back differently"

# bench: one tab-separated line per measurement.
run bench_asia bench "$work/asia1.net" --repeat 1
expect_status bench_asia 0
checks=$((checks + 1))
[[ $(cut -f1 "$work/bench_asia.out" | tr '\n' ',') == "file,read bytes,parse,write string," ]] ||
  fail "bench: unexpected lines: $(cat "$work/bench_asia.out")"

# Reader messages come as FILE:LINE: MESSAGE, then the library error.
printf 'net\n{\n}\nnode a\n{\n    states = ("x" "y")\n}\n' >"$work/bad.net"
run bad_file nodes "$work/bad.net"
expect_status bad_file 1
expect_empty bad_file out
printf '%s\n%s\n' "$work/bad.net:7: \`;' expected" \
  "kelva: parse: $(printf '%s' 'An error occurred during parsing.  If a parse error handling function was specified, it will have been called with a description of the error and its location in the source.')" \
  >"$work/bad_file.err.want"
expect_file bad_file err "$work/bad_file.err.want"
run missing_file nodes "$work/none.net"
expect_status missing_file 1

# Command-line mistakes: status 2, one message and the hint, nothing on stdout.
hint="Try 'kelva --help' for more information."
usage_case() {
  local name=$1 message=$2
  shift 2
  run "$name" "$@"
  expect_status "$name" 2
  expect_empty "$name" out
  printf 'kelva: %s\n%s\n' "$message" "$hint" >"$work/$name.err.want"
  expect_file "$name" err "$work/$name.err.want"
}
usage_case no_command "no command given"
usage_case bad_command "unknown command 'node'" node --example asia
usage_case no_network "no network given (use FILE or --example NAME)" nodes
usage_case both_sources "give either a file or --example NAME, not both" nodes a.net --example asia
usage_case no_output "no output file given (use -o FILE)" convert --example asia
usage_case bench_example "bench needs a NET file" bench --example asia
usage_case bad_repeat "--repeat needs a count from 1 to 1000" bench a.net --repeat 0
usage_case output_for_nodes "unknown option '-o'" nodes --example asia -o x.net
usage_case bad_example "unknown example 'nowhere' (known: asia)" nodes --example nowhere
usage_case bad_format "unknown format 'xml' (use text or tsv)" nodes --example asia --format xml
usage_case missing_value "option --format needs a value" nodes --example asia --format
usage_case bad_option "unknown option '--verbose'" nodes --verbose --example asia
usage_case stray_argument "unexpected argument 'b.net'" nodes a.net b.net
usage_case version_argument "--version takes no arguments" --version nodes
usage_case bad_method "unknown method 'total-weight' (use clique-size, clique-weight, fill-in-size, fill-in-weight or best-greedy)" \
  compile --example asia --method total-weight
usage_case method_for_nodes "unknown option '--method'" nodes --example asia --method clique-size
usage_case log_for_convert "unknown option '--log'" convert --example asia -o x.net --log x.log

# compile: the forest's figures (the time masked), the same under every
# method for asia, a log that starts with the time stamp, and library
# errors with status 1.
for method in best-greedy clique-size clique-weight fill-in-size fill-in-weight; do
  run "compile_$method" compile --example asia --format tsv --method "$method"
  expect_status "compile_$method" 0
  sed 's/^compile_seconds\t.*/compile_seconds\tT/' "$work/compile_$method.out" >"$work/compile_$method.masked"
  expect_file "compile_$method" masked "$expected/compile-asia.tsv"
done
run compile_text compile "$work/asia1.net" --log "$work/compile.log"
expect_status compile_text 0
checks=$((checks + 1))
grep -q '^  cliques: 6$' "$work/compile_text.out" || fail "compile: text output: $(cat "$work/compile_text.out")"
checks=$((checks + 1))
grep -q '^Elimination sequence:$' "$work/compile.log" || fail "compile: no elimination sequence in the log"
run compile_no_log compile --example asia --log /nonexistent/dir/x.log
expect_status compile_no_log 1
checks=$((checks + 1))
grep -q '^kelva: io: ' "$work/compile_no_log.err" || fail "compile: unexpected error $(cat "$work/compile_no_log.err")"

echo "kelva_cli: $((checks - failures)) passed, $failures failed"
[[ $failures == 0 ]]
