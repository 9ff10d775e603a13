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
       kelva bench FILE.net [--repeat N]
       kelva compile (FILE.net | --example NAME) [--method METHOD]
                     [--log LOG] [--format text|tsv]

Commands:
  nodes      print a network's nodes with their states and tables, then its
             links
  convert    read a network and write it as a NET file
  bench      time reading FILE's bytes, parsing it and writing it as text
             (best of N runs, default 3), one tab-separated line each
  compile    compile a network and print the size of its junction forest

Options:
  FILE.net            read the network from a NET file; the reader's
                      messages are printed as "FILE:LINE: MESSAGE"
  --example NAME      use a network bundled with kelva (see below)
  --format text|tsv   output format of nodes and compile (default text)
  -o OUT.net          where convert writes
  --repeat N          how often bench repeats each measurement
  --method METHOD     how compile triangulates: clique-size, clique-weight,
                      fill-in-size, fill-in-weight or best-greedy (default)
  --log LOG           the file to which compile writes its log (replaced)
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

Output of compile: the network's name and the time taken, then the number
of nodes, junction trees and cliques, the largest and the total discrete
clique table size, and the triangulation cost (the sum of the clique
weights).  With --format tsv, one "KEY<TAB>VALUE" line each for nodes,
cliques, junction_trees, max_clique_size, total_clique_size,
triangulation_cost and compile_seconds (numbers printed with "%.17g").

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
