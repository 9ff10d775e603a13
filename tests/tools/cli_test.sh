#!/usr/bin/env bash
# Runs the kelva tool and compares its output with the expected texts.
# usage: cli_test.sh KELVA_BINARY EXPECTED_DIR VERSION NETWORKS_DIR
set -euo pipefail

kelva=$1
expected=$2
version=$3
networks=$4
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
# expect_close NAME FILE: the stream holds FILE's lines, the last field of
# each equal within 1e-12 (relative to values above 1).
expect_close() {
  checks=$((checks + 1))
  awk -F'\t' 'NR == FNR { want[FNR] = $0; n = FNR; next }
    { split(want[FNR], w, "\t"); d = $NF - w[NF]; if (d < 0) d = -d; m = w[NF] < 0 ? -w[NF] : w[NF]
      if ($1 != w[1] || (NF > 2 && $2 != w[2]) || d > 1e-12 * (m > 1 ? m : 1)) bad = 1 }
    END { exit bad || FNR != n }' "$2" "$work/$1.out" ||
    { fail "$1: output differs from $2"; diff -u "$2" "$work/$1.out" >&2 || true; }
}

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
checks=$((checks + 1))
grep -qxF '       kelva beliefs (FILE.net | --example NAME) [--case FILE] [--set NODE=STATE]...' \
  "$work/help.out" || fail "help: the beliefs usage line lacks --case"
# Each command's own help: its usage first, its options, an example, and
# nothing of the other commands.
for command in nodes convert beliefs bench compile sample learn draw; do
  run "help_$command" "$command" --example asia --help
  expect_status "help_$command" 0
  checks=$((checks + 1))
  [[ $(head -n 1 "$work/help_$command.out") == "usage: kelva $command "* &&
     $(grep -c '^usage: \|^  kelva ' "$work/help_$command.out") == 2 &&
     $(grep -A1 '^Example:$' "$work/help_$command.out" | tail -n 1) == "  kelva $command "* ]] ||
    fail "help_$command: $(cat "$work/help_$command.out")"
done

# The text report's layout is checked on every sort of node by
# report_writers_test, and asia's contents by the TSV report below: here the
# text report's head, down to the first node's table.
run asia_text nodes --example asia
expect_status asia_text 0
head -n 17 "$work/asia_text.out" >"$work/asia_text.head"
expect_file asia_text head "$expected/nodes-asia.txt"
expect_empty asia_text err

# The TSV report's head, down to the second node's table.
run asia_tsv nodes --format=tsv --example=asia
expect_status asia_tsv 0
head -n 20 "$work/asia_tsv.out" >"$work/asia_tsv.head"
expect_file asia_tsv head "$expected/nodes-asia.tsv"

# NET files: convert is stable (write, read, write gives the same bytes), and
# nodes reads what convert wrote.
run convert_asia convert --example asia -o "$work/asia1.net"
expect_status convert_asia 0
expect_empty convert_asia out
run convert_again convert "$work/asia1.net" -o "$work/asia2.net"
expect_status convert_again 0
checks=$((checks + 1))
cmp -s "$work/asia1.net" "$work/asia2.net" || fail "convert: a second conversion changed the file"
# --digits 17 writes table numbers in full (0.7 is not 0.7 in binary).
run convert_digits convert --example asia -o "$work/asia17.net" --digits 17
expect_status convert_digits 0
grep -q '0\.69999999999999996' "$work/asia17.net" || fail "convert --digits 17: numbers cut short"
run nodes_file nodes "$work/asia1.net" --format tsv
expect_status nodes_file 0
checks=$((checks + 1))
diff <(tail -n +2 "$work/nodes_file.out") <(tail -n +2 "$work/asia_tsv.out") >/dev/null ||
  fail "nodes: the converted file reads back differently"

# convert through a protected KB file gives the same NET file; a wrong
# password is refused with its own error.
run kb_write convert "$work/asia1.net" -o "$work/asia1.kb" --password pw
run kb_read convert "$work/asia1.kb" -o "$work/asia_kb.net" --password pw
expect_status kb_read 0
checks=$((checks + 1))
cmp -s "$work/asia1.net" "$work/asia_kb.net" || fail "convert: NET through KB differs"
run kb_wrong nodes "$work/asia1.kb" --password no
expect_status kb_wrong 1
grep -q "^kelva: bad_kb_password" "$work/kb_wrong.err" || fail "kb: wrong password not reported"

# A class file through a KB file of classes gives the same NET bytes.
printf 'class Leaf { node u { states = ("a" "b"); } potential (u) { data = (0.1 0.9); } }\n' \
  >"$work/leaf.net"
run cc_net convert "$work/leaf.net" -o "$work/leaf1.net"
run cc_kb convert "$work/leaf1.net" -o "$work/leaf.kb"
run cc_back convert "$work/leaf.kb" -o "$work/leaf2.net"
expect_status cc_back 0
checks=$((checks + 1))
cmp -s "$work/leaf1.net" "$work/leaf2.net" || fail "convert: classes through KB differ"

# bench: one tab-separated line per measurement.
run bench_asia bench "$work/asia1.net" --repeat 1 --evidence 2 --seed 7
expect_status bench_asia 0
checks=$((checks + 1))
[[ $(cut -f1 "$work/bench_asia.out" | tr '\n' ',') == "file,read bytes,parse,write string,kb load,nodes,cliques,total_clique_size,compile_seconds,propagate_seconds,evidence_propagate_seconds,bytes_per_propagation,bytes_per_entry,effective_gbps,stream_gbps,one_thread_best_seconds,stream_bound_seconds,times_stream_bound,median_times_stream_bound," ]] ||
  fail "bench: unexpected lines: $(cat "$work/bench_asia.out")"
checks=$((checks + 1))
grep -qx $'nodes\t8' "$work/bench_asia.out" || fail "bench: asia has 8 nodes"

# beliefs of our example network against enumeration of its joint
# distribution (the expected files), as TSV and as text.
commute=$networks/commute.net
run beliefs_prior beliefs "$commute" --format tsv
expect_status beliefs_prior 0
expect_close beliefs_prior "$expected/beliefs-commute-prior.tsv"
run beliefs_snow beliefs "$commute" --set Weather=snow --set MissMeeting=#1 --format=tsv
expect_status beliefs_snow 0
expect_close beliefs_snow "$expected/beliefs-commute-snow.tsv"
expect_empty beliefs_snow err
(cd "$networks" && run beliefs_text beliefs commute.net --set Weather=snow --set MissMeeting=yes)
expect_status beliefs_text 0
# The numbers are checked in TSV above: here the layout, head and tail.
{ head -n 11 "$work/beliefs_text.out"; tail -n 1 "$work/beliefs_text.out"; } >"$work/beliefs_text.ends"
expect_file beliefs_text ends "$expected/beliefs-commute-snow.txt"
# Max equilibrium: every state of the most probable configuration has
# max-marginal 1, and the constant is that configuration's probability.
run beliefs_max beliefs "$commute" --set Weather=snow --set MissMeeting=yes --max --format tsv
expect_status beliefs_max 0
checks=$((checks + 1))
[[ $(awk -F'\t' '$3 > 1 - 1e-12 { printf "%s=%s ", $1, $2 }' "$work/beliefs_max.out") == \
   "MissMeeting=yes Late=yes Delay=short Mode=bus Traffic=heavy Oversleep=no Roadworks=no Weather=snow " ]] ||
  fail "beliefs --max: $(cat "$work/beliefs_max.out")"
printf 'normalization_constant\t0.01281987\n' >"$work/max_constant"
tail -n 1 "$work/beliefs_max.out" >"$work/beliefs_max_constant.out"
expect_close beliefs_max_constant "$work/max_constant"
# A single-case file gives evidence as --set does; --set items come after
# it and replace its finding of the same node.
printf 'Weather: "snow" %% a comment\nMissMeeting: #0\n' >"$work/snow.case"
run beliefs_case beliefs "$commute" --case "$work/snow.case" --set MissMeeting=yes --format tsv
expect_status beliefs_case 0
expect_close beliefs_case "$expected/beliefs-commute-snow.tsv"
expect_empty beliefs_case err
(cd "$work" && run beliefs_case_text beliefs "$commute" --case snow.case --set MissMeeting=yes)
checks=$((checks + 1))
grep -qx 'evidence: case snow.case MissMeeting=yes' "$work/beliefs_case_text.out" ||
  fail "beliefs --case: $(head -n 2 "$work/beliefs_case_text.out")"
printf 'Weather: snow\nWeather: hail\n' >"$work/bad.case"
run bad_case beliefs "$commute" --case "$work/bad.case"
expect_status bad_case 1
expect_empty bad_case out
checks=$((checks + 1))
[[ $(head -n 1 "$work/bad_case.err") == "$work/bad.case:2: \"hail\" is not a (unique) state label of \`Weather'" ]] ||
  fail "bad_case: $(cat "$work/bad_case.err")"

# Evidence the network rules out: a library error, status 1.
run beliefs_impossible beliefs "$commute" --set Delay=none --set Late=yes
expect_status beliefs_impossible 1
expect_empty beliefs_impossible out
checks=$((checks + 1))
grep -q '^kelva: inconsistency_or_underflow: ' "$work/beliefs_impossible.err" ||
  fail "beliefs_impossible: $(cat "$work/beliefs_impossible.err")"

# Reader messages come as FILE:LINE: MESSAGE, then the library error.
printf 'net\n{\n}\nnode a\n{\n    states = ("x" "y")\n}\n' >"$work/bad.net"
run bad_file nodes "$work/bad.net"
expect_status bad_file 1
expect_empty bad_file out
expect_text bad_file err "$work/bad.net:7: \`;' expected"

# Command-line mistakes: status 2, one message and the hint, nothing on stdout.
hint="Try 'kelva --help' for more information."
printf 'net\n{\n}\nnode A\n{\n    states = ("a" "a");\n}\npotential (A) { data = (0.5 0.5); }\n' >"$work/twice.net"
while IFS='|' read -r name message args; do
  eval "run $name $args"
  expect_status "$name" 2
  expect_empty "$name" out
  printf 'kelva: %s\n%s\n' "$message" "$hint" >"$work/$name.err.want"
  expect_file "$name" err "$work/$name.err.want"
done <<EOF
no_command|no command given|
bad_command|unknown command 'node'|node --example asia
no_network|no network given (use FILE or --example NAME)|nodes
both_sources|give either a file or --example NAME, not both|nodes a.net --example asia
no_output|no output file given (use -o FILE)|convert --example asia
bench_example|bench needs a NET file|bench --example asia
bad_repeat|--repeat needs a count from 1 to 1000|bench a.net --repeat 0
output_for_nodes|unknown option '-o'|nodes --example asia -o x.net
bad_example|unknown example 'nowhere' (known: asia)|nodes --example nowhere
bad_format|unknown format 'xml' (use text or tsv)|nodes --example asia --format xml
missing_value|option --format needs a value|nodes --example asia --format
bad_option|unknown option '--verbose'|nodes --verbose --example asia
stray_argument|unexpected argument 'b.net'|nodes a.net b.net
case_for_nodes|unknown option '--case'|nodes --example asia --case a.case
set_without_state|--set needs NODE=STATE, not 'Weather'|beliefs a.net --set Weather
set_unknown_node|--set: no node named 'Nope'|beliefs "$commute" --set Nope=x
set_unknown_label|--set: node 'Weather' has no state 'hail' (states: clear, rain, snow)|beliefs "$commute" --set Weather=hail
set_bad_index|--set: node 'Weather' has no state '#3' (states: clear, rain, snow)|beliefs "$commute" --set Weather=#3
set_twice|--set: node 'Weather' is set twice (Weather=snow and Weather=clear)|beliefs "$commute" --set Weather=snow --set Late=yes --set Weather=clear
label_twice|--set: the label 'a' is not unique among the states of node 'A' (a, a); use #INDEX|beliefs "$work/twice.net" --set A=a
bad_tolerance|--tolerance needs a number from 0 to 1e300|learn --example asia d.dat -o x --tolerance nan
bad_hide|--hide needs a number from 0 to 1|sample --example asia -n 1 -o x --hide 2
max_for_nodes|unknown option '--max'|nodes --example asia --max
bad_evidence_count|--evidence needs a count from 0 to 1000000|bench a.net --evidence x
version_argument|--version takes no arguments|--version nodes
bad_method|unknown method 'optimal' (use clique-size, clique-weight, fill-in-size, fill-in-weight, best-greedy or total-weight)|compile --example asia --method optimal
bad_separators|--max-separators needs a count from 1 to 2147483647|compile --example asia --max-separators 0
method_for_nodes|unknown option '--method'|nodes --example asia --method clique-size
log_for_convert|unknown option '--log'|convert --example asia -o x.net --log x.log
EOF

# compile: the forest's figures (the time masked), the same under every
# method for asia, a log that starts with the time stamp, and library
# errors with status 1.
for method in best-greedy clique-size clique-weight fill-in-size fill-in-weight total-weight; do
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

# Failures with a library code, one line each: a file names itself and the
# system's reason; a network that cannot be compiled says why; a reader's
# message escapes unprintable bytes and comes alone.
mkdir "$work/adir.net"
printf 'net\n{\n}\n' >"$work/empty.net"
printf 'net\n{\n}\nnode A\n{\n    states = ("a" "b");\n}\n' >"$work/no_table.net"
printf 'net\n{\n}\nnode A\n{\n    states = ("a" "b")\x7f;\n}\n' >"$work/binary.net"
nofile="No such file or directory"
while IFS='|' read -r name message args; do
  eval "run $name $args"
  expect_status "$name" 1
  expect_empty "$name" out
  expect_text "$name" err "$message"
done <<EOF
io_net|kelva: io: $work/none.net: $nofile|nodes "$work/none.net"
io_bench|kelva: io: $work/none.net: $nofile|bench "$work/none.net" --repeat 1
io_case|kelva: io: $work/none.case: $nofile|beliefs --example asia --case "$work/none.case"
io_data|kelva: io: $work/none.dat: $nofile|learn --example asia "$work/none.dat" -o "$work/x.net"
io_sample|kelva: io: /nonexistent/dir/x.dat: $nofile|sample --example asia -n 1 -o /nonexistent/dir/x.dat
io_log|kelva: io: /nonexistent/dir/x.log: $nofile|compile --example asia --log /nonexistent/dir/x.log
io_dir|kelva: io: $work/adir.net: Is a directory|convert --example asia -o "$work/adir.net"
no_nodes|kelva: usage: the network $work/empty.net has no nodes|beliefs "$work/empty.net"
no_table|kelva: inconsistency_or_underflow: node \`A' has no table (every entry is 0, so nothing is possible)|compile "$work/no_table.net"
EOF
run binary_byte nodes "$work/binary.net"
expect_status binary_byte 1
checks=$((checks + 1))
[[ $(cat "$work/binary_byte.err") == "$work/binary.net:6: unexpected character: \`\\x7f'"$'\n'* ]] ||
  fail "binary_byte: $(cat "$work/binary_byte.err")"

# decide on the umbrella diagram: the option values are those of the prior
# (0.2*70 + 0.8*20, 0.2*-100 + 0.8*100); taking it only when the grass is
# wet gives (0.18*70 + 0.2*20) + (0.02*-100 + 0.6*100), joint weights.
run decide decide "$networks/umbrella.net" --format tsv
expect_status decide 0
printf 'eu\tAct\ttake\t30\neu\tAct\tleave\t60\nexpected_utility\t74.6\n' >"$work/decide.want"
expect_close decide "$work/decide.want"
run decide_text decide "$networks/umbrella.net"
checks=$((checks + 1))
grep -q '^  Wet=yes -> take$' "$work/decide_text.out" && grep -q '^  Wet=no -> leave$' "$work/decide_text.out" ||
  fail "decide: policy lines: $(cat "$work/decide_text.out")"

echo "kelva_cli: $((checks - failures)) passed, $failures failed"
[[ $failures == 0 ]]
