// `kelva --help` and `kelva --version`.

#include "commands.h"
#include "example_network.h"
#include "kelva/kelva.h"

namespace kelva::cli {

namespace {

constexpr const char* usage_text = R"HELP(usage: kelva --help
       kelva --version
       kelva nodes (FILE.net | --example NAME) [--format text|tsv]
       kelva convert (FILE.net | --example NAME) -o OUT.net
       kelva beliefs (FILE.net | --example NAME) [--set NODE=STATE]... [--max]
                     [--format text|tsv]
       kelva bench FILE.net [--repeat N] [--evidence K] [--threads T] [--seed S]
       kelva compile (FILE.net | --example NAME) [--method METHOD]
                     [--log LOG] [--format text|tsv]
       kelva sample (FILE.net | --example NAME) -n N -o DATA [--seed S]
                    [--hide P]
       kelva learn (FILE.net | --example NAME) DATA -o OUT.net
                   [--max-iterations N] [--tolerance T] [--log LOG]

Commands:
  nodes      print a network's nodes with their states and tables, then its
             links
  convert    read a network and write it as a NET file
  beliefs    compile a network, enter evidence, propagate it and print the
             beliefs of every discrete node
  bench      time reading, parsing, writing, compiling and propagating FILE
             and measure the memory bandwidth (see below)
  compile    compile a network and print the size of its junction forest
  sample     draw N cases from a network's tables and write them as a
             multi-case data file
  learn      learn the tables of a network's discrete chance nodes from the
             cases of a data file by EM and write the learned network

Options:
  FILE.net            read the network from a NET file; the reader's
                      messages are printed as "FILE:LINE: MESSAGE"
  --example NAME      use a network bundled with kelva (see below)
  --format text|tsv   output format of nodes, beliefs and compile (default
                      text)
  -o OUT.net          where convert and learn write the network, sample the
                      data file
  --set NODE=STATE    evidence for beliefs: NODE is in state STATE, given by
                      its label or as #INDEX (counting from 0); repeatable
  --max               propagate to max equilibrium: max-marginals instead of
                      beliefs, and the probability of the most probable
                      configuration as normalization constant
  --case FILE         evidence for beliefs from a single-case file (lines
                      NODE: STATE), entered before the --set items
  --repeat N          how often bench repeats each measurement (default 3)
  --evidence K        nodes per random evidence set of bench (default 5)
  --threads T         worker threads of table operations and of the bandwidth
                      measurement (default 1)
  --seed S            seed of bench's random evidence and of sample's
                      cases (default 1)
  -n N                how many cases sample draws
  --hide P            the probability with which sample leaves an item
                      missing ("*"; default 0)
  --max-iterations N  the most EM iterations learn makes (default 0: no
                      limit)
  --tolerance T       learn stops when the log-likelihood changes by at most
                      T times its value (default 0.0001)
  --method METHOD     how compile triangulates: clique-size, clique-weight,
                      fill-in-size, fill-in-weight or best-greedy (default)
  --log LOG           the file to which compile or learn writes its log
                      (replaced)
  -h, --help          print this help
  --version           print "kelva" and the library version

Text output of nodes: the line "network NAME: N nodes, M links", then for
each node, in the domain's order, an empty line and the block
  node NAME
    label: LABEL
    category: function|instance|chance|decision|utility
    kind: discrete|continuous|other
    subtype: label|boolean|number|interval     (discrete nodes)
    states: COUNT                              (discrete nodes)
      INDEX: LABEL                             (one line per state)
    parents: PARENT...
    table: MEMBER...                           (nodes with a table)
      rows aligned in columns: the states of the members but the last,
      "| ", one column per state of the last member ("mean" and
      "variance" for a continuous node); the first row names the columns
then an empty line, "links:" and one line "  PARENT -> CHILD" per link.
A state line of a number node ends in ", value V", of an interval node in
", interval [LOW, HIGH)". Numbers are printed with "%g"; an unlabelled state
is "(no label)", and "#INDEX" in tables.

TSV output of nodes: one record per line, fields separated by tabs, numbers
printed with "%.17g", and \ tab newline return in texts written as \\ \t \n \r:
  network  NAME  NODES  LINKS
  node     NAME  LABEL  CATEGORY  KIND  SUBTYPE|-  STATES
  state    NODE  INDEX  LABEL  VALUE|LOW|-  HIGH|-
  table    NODE  MEMBER...
  entry    NODE  INDEX  STATE-INDEX...  VALUE           (one per configuration)
  cg       NODE  INDEX  STATE-INDEX...  MEAN  VARIANCE  (continuous nodes)
  link     PARENT  CHILD
Nodes come in the domain's order, each followed by its states, table and
entries; the links come last.

Text output of beliefs: the line "beliefs of NAME (sum|max equilibrium), N
nodes", the line "evidence: NODE=STATE..." (or "evidence: none"), then for
each discrete node (chance, decision and discrete function nodes, in the
domain's order) an empty line, its name (followed by " (evidence)" when
evidence was entered on it) and one line "  STATE  BELIEF" per state; last,
an empty line and "normalization constant: VALUE" (the probability of the
evidence).  Numbers are printed with "%g"; an unlabelled state is "#INDEX".

TSV output of beliefs: one line NODE<TAB>STATE<TAB>BELIEF per state of every
discrete node, in the same order, STATE the label or "#INDEX", BELIEF with
"%.17g"; then the line normalization_constant<TAB>VALUE.

Output of bench: four lines "file", "read bytes", "parse" and "write string"
with the best of N runs, then KEY<TAB>VALUE lines: nodes, cliques,
total_clique_size, parse_seconds, compile_seconds, propagate_seconds (median
of N propagations from the node tables without evidence),
evidence_propagate_seconds (median over N random evidence sets of K nodes
whose states have non-zero belief, each propagated from the equilibrium
without evidence), bytes_per_propagation (8 bytes per table entry that a full
propagation's table operations read or write), effective_gbps (those bytes
over propagate_seconds) and stream_gbps (the best rate of the triad
a[i] = b[i] + s*c[i] over arrays far larger than the last-level cache,
counting 24 bytes per index).

Output of compile: the network's name and the time taken, then the number
of nodes, junction trees and cliques, the largest and the total discrete
clique table size, and the triangulation cost (the sum of the clique
weights).  With --format tsv, one "KEY<TAB>VALUE" line each for nodes,
cliques, junction_trees, max_clique_size, total_clique_size,
triangulation_cost and compile_seconds (numbers printed with "%.17g").

Output of sample: a data file whose first line names the network's discrete
chance nodes (parents before children), then a blank line, then one line
per case with one item per node: "#INDEX" (the state drawn, counting from
0) or "*" (hidden).  Nothing is printed.

Output of learn: every discrete chance node without an experience table
gets one of zeros (no prior; a node's own experience table is kept and
used), the network is compiled and learned, and written to OUT.net without
the experience tables learn added; then KEY<TAB>VALUE lines: cases (the
total case count), iterations, seconds (of learning), log_likelihood, aic
and bic (of the learned tables, "%.17g").  DATA is a multi-case data file,
or, when its name ends in .csv, a comma-separated data set file whose header
names the nodes ("*", "?" or an empty field for a missing item; a column
"#" gives case counts).

Exit status: 0 on success, 1 when the library reports an error (printed as
"kelva: ERROR-NAME: DESCRIPTION"), 2 for a command line kelva cannot use.

Bundled example networks:
)HELP";

}  // namespace

void run_help(std::FILE* out) {
  std::fputs(usage_text, out);
  for (const ExampleNetwork& example : example_networks())
    std::fprintf(out, "  %-10s %s\n", example.name, example.description);
}

void run_version(std::FILE* out) { std::fprintf(out, "kelva %s\n", KELVA_VERSION); }

}  // namespace kelva::cli
