// `kelva --help`, `kelva COMMAND --help` and `kelva --version`.

#include <string>

#include "commands.h"
#include "example_network.h"
#include "kelva/kelva.h"

namespace kelva::cli {

namespace {

/// The bit of `command` in OptionHelp::commands.
constexpr unsigned bit(Command command) { return 1u << static_cast<unsigned>(command); }

constexpr unsigned kAllCommands =
    bit(Command::nodes) | bit(Command::convert) | bit(Command::beliefs) | bit(Command::bench) |
    bit(Command::compile) | bit(Command::sample) | bit(Command::learn) | bit(Command::dsep) |
    bit(Command::sensitivity) | bit(Command::voi) | bit(Command::map) | bit(Command::adapt) |
    bit(Command::learn_structure) | bit(Command::decide) | bit(Command::draw) |
    bit(Command::predict) | bit(Command::filter);
constexpr unsigned kFromNetwork =
    kAllCommands & ~bit(Command::bench) & ~bit(Command::learn_structure);
constexpr unsigned kWithProgress = kAllCommands;

/// One option: its forms, its description (continuation lines indented to
/// the description column) and the commands that take it.
struct OptionHelp {
  const char* forms;
  const char* text;
  unsigned commands;
};

constexpr OptionHelp kOptionHelp[] = {
    {"FILE.net",
     "read the network from a NET file; the reader's\n"
     "messages are printed as \"FILE:LINE: MESSAGE\"; a name\n"
     "ending in .kb is loaded as a KB file",
     kFromNetwork | bit(Command::bench)},
    {"--example NAME", "use a network bundled with kelva (see kelva --help)", kFromNetwork},
    {"--class NAME",
     "for a NET file of classes: unfold class NAME into the\n"
     "network to use (default: the file's last class); convert\n"
     "without it writes the classes back",
     bit(Command::nodes) | bit(Command::beliefs) | bit(Command::compile) | bit(Command::bench) |
         bit(Command::convert) | bit(Command::filter)},
    {"--format text|tsv",
     "output format of nodes, beliefs, compile, decide and\nfilter (default text)",
     bit(Command::nodes) | bit(Command::beliefs) | bit(Command::compile) | bit(Command::decide) |
         bit(Command::filter)},
    {"--window W", "slices in filter's moving window (default 1)", bit(Command::filter)},
    {"--bk",
     "filter with the Boyen-Koller approximation: the\n"
     "interface's clusters carried as independent factors",
     bit(Command::filter)},
    {"--predict K", "steps filter predicts after the data (default 0)", bit(Command::filter)},
    {"-o OUT.net",
     "where convert, learn and adapt write the network,\nsample the data file, "
     "predict its lines (default:\nstandard output); convert writes a KB file\nwhen OUT ends in "
     ".kb",
     bit(Command::convert) | bit(Command::sample) | bit(Command::learn) | bit(Command::adapt) |
         bit(Command::learn_structure) | bit(Command::draw) | bit(Command::predict)},
    {"--password P",
     "the password of a KB file read (FILE.kb) or written by\n"
     "convert (-o OUT.kb)",
     kFromNetwork | bit(Command::bench)},
    {"--digits N",
     "significant digits of convert's table and model numbers:\n"
     "0 (default) keeps the NET format's own (\"%G\" for tables),\n"
     "17 writes numbers that read back bit for bit",
     bit(Command::convert)},
    {"--case FILE",
     "evidence from a single-case file (lines NODE: STATE),\n"
     "entered before the --set items",
     bit(Command::beliefs) | bit(Command::map) | bit(Command::sample) | bit(Command::decide) |
         bit(Command::draw)},
    {"--set NODE=STATE",
     "evidence: NODE is in state STATE, given by its label or\n"
     "as #INDEX (counting from 0), or a continuous NODE has the\n"
     "value STATE (a number); repeatable, once per node\n"
     "(dsep takes the nodes as observed; sample then draws\n"
     "from the posterior)",
     bit(Command::beliefs) | bit(Command::dsep) | bit(Command::sensitivity) | bit(Command::voi) |
         bit(Command::map) | bit(Command::sample) | bit(Command::decide) | bit(Command::draw)},
    {"--junction-tree", "draw the junction forest instead of the network", bit(Command::draw)},
    {"--from NODE,...", "the source nodes of dsep", bit(Command::dsep)},
    {"--target T",
     "what sensitivity and voi ask about: NODE=STATE, the\n"
     "probability of a state (sensitivity), or NODE (voi)",
     bit(Command::sensitivity) | bit(Command::voi)},
    {"--target NODE",
     "learn-structure --method tree: learn a tree-augmented\n"
     "naive Bayes classifier of NODE; --method hnb: the class\n"
     "node of the hierarchical naive Bayes model (required)",
     bit(Command::learn_structure) | bit(Command::learn)},
    {"--method M",
     "how learn-structure learns: pc (PC with G2 tests,\n"
     "default), npc (PC checked by the necessary path\n"
     "condition, each ambiguous region resolved by its first\n"
     "minimal solution), tree (a Chow-Liu tree from the first\n"
     "column), greedy (hill climbing) or hnb (hierarchical\n"
     "naive Bayes classifier of --target, with latent nodes)",
     bit(Command::learn_structure)},
    {"--structure M",
     "learn: learn the links from DATA alone by M (pc, npc,\n"
     "tree, greedy or hnb), then the tables, as learn-structure does",
     bit(Command::learn)},
    {"--significance A", "the significance level of PC's tests (default 0.05)",
     bit(Command::learn_structure)},
    {"--score bic|aic", "the score of the greedy search (default bic)",
     bit(Command::learn_structure)},
    {"--nodes A,B,...",
     "the nodes whose configurations map lists, or whose\n"
     "beliefs predict writes (default: every node the case\n"
     "does not observe)",
     bit(Command::map) | bit(Command::predict)},
    {"--min-probability",
     "P: the smallest probability of a configuration map\n"
     "lists (above 0; default 0.01)",
     bit(Command::map)},
    {"--max",
     "propagate to max equilibrium: max-marginals instead of\n"
     "beliefs, and the probability of the most probable\n"
     "configuration as normalization constant",
     bit(Command::beliefs)},
    {"--repeat N", "how often bench repeats each measurement (default 3)", bit(Command::bench)},
    {"--evidence K", "nodes per random evidence set of bench (default 5)", bit(Command::bench)},
    {"--threads T",
     "worker threads of table operations and of the bandwidth\n"
     "measurement, or of predict and of learn's EM passes, each\n"
     "with its own compiled copy of the network (default 1;\n"
     "learn's results are the same bits for every T)",
     bit(Command::bench) | bit(Command::predict) | bit(Command::learn)},
    {"--seed S", "seed of bench's random evidence and of sample's\ncases (default 1)",
     bit(Command::bench) | bit(Command::sample)},
    {"-n N", "how many cases sample draws", bit(Command::sample)},
    {"--hide P", "the probability with which sample leaves an item\nmissing (\"*\"; default 0)",
     bit(Command::sample)},
    {"--max-iterations N", "the most EM iterations learn makes (default 0: no\nlimit)",
     bit(Command::learn)},
    {"--scaled",
     "propagate scaled: evidence whose probability is below\n"
     "the smallest double (many items observed on a large\n"
     "network) still propagates, with its exact log P(e)",
     bit(Command::learn) | bit(Command::predict)},
    {"--tolerance T",
     "learn stops when the log-likelihood changes by at most\n"
     "T times its value (default 0.0001)",
     bit(Command::learn)},
    {"--strict-columns",
     "refuse a data set column that names no node (by\n"
     "default learn warns and ignores the column)",
     bit(Command::learn) | bit(Command::adapt)},
    {"--discretize HOW",
     "new bounds for each interval node from its .csv column:\n"
     "width (equal widths) or frequency (equal counts), as\n"
     "many intervals as the node has states, the outer ones\n"
     "unbounded",
     bit(Command::learn) | bit(Command::adapt)},
    {"--fading F",
     "the fading factor (0 < F <= 1) of every adapted node:\n"
     "before each case its experience is multiplied by F\n"
     "(default 1: nothing is forgotten)",
     bit(Command::adapt)},
    {"--experience N",
     "the experience count (weight of the current table) of\n"
     "nodes without an experience table (default 1)",
     bit(Command::adapt)},
    {"--method METHOD",
     "how compile triangulates: clique-size, clique-weight,\n"
     "fill-in-size, fill-in-weight, best-greedy (default) or\n"
     "total-weight (least total clique weight; slow on large\n"
     "networks)",
     bit(Command::compile)},
    {"--max-separators N",
     "bound of the total-weight search: past N minimal\n"
     "separators it keeps the best greedy triangulation",
     bit(Command::compile)},
    {"--log LOG", "the file to which compile or learn writes its log\n(replaced)",
     bit(Command::compile) | bit(Command::learn)},
    {"-q, --quiet",
     "no progress notes (they are written to standard error\n"
     "only when it is a terminal)",
     kWithProgress},
    {"-h, --help", "print this help", kAllCommands},
};

/// One command: its usage (continuation lines are indented under the first
/// argument), what it does, its output and an example.
struct CommandHelp {
  Command command;
  const char* name;
  const char* usage;
  const char* summary;
  const char* output;
  const char* example;
};

constexpr CommandHelp kCommandHelp[] = {
    {Command::nodes, "nodes", "(FILE.net | --example NAME) [--format text|tsv] [--quiet]",
     "print a network's nodes with their states and tables, then its\nlinks",
     R"TXT(Text output of nodes: the line "network NAME: N nodes, M links", then for
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
)TXT",
     "kelva nodes --example asia --format tsv"},
    {Command::convert, "convert",
     "(FILE.net | FILE.kb | --example NAME) -o OUT\n[--class NAME] [--digits N] [--password P] "
     "[--quiet]",
     "read a network or class collection and write it in the format of OUT's extension",
     "Output of convert: the file OUT in the format its extension names: .bif (BIF),\n"
     ".xmlbif or .xml (XMLBIF), .kb (a KB file, with the compiled junction forest\n"
     "when the network is compiled), NET otherwise; nothing is printed.  Any\n"
     "command reads FILE.bif, FILE.xmlbif, FILE.xml, FILE.uai and FILE.kb as well\n"
     "as NET files, and NET files in the older network format (told by their\n"
     "header of a name, a label string and three numbers).  A class collection\n"
     "(a NET file of classes or a KB file of one, without --class) is written as\n"
     "one: to a KB file for OUT.kb, else to a NET file of classes.\n",
     "kelva convert --example asia -o asia.net --digits 17"},
    {Command::beliefs, "beliefs",
     "(FILE.net | --example NAME) [--case FILE] [--set NODE=STATE]...\n[--max] [--format text|tsv] "
     "[--quiet]",
     "compile a network, enter evidence, propagate it and print the\nbeliefs of every discrete "
     "node",
     R"TXT(Text output of beliefs: the line "beliefs of NAME (sum|max equilibrium), N
nodes", the line "evidence: NODE=STATE..." (or "evidence: none"), then for
each discrete node (chance, decision and discrete function nodes, in the
domain's order) an empty line, its name (followed by " (evidence)" when
evidence was entered on it) and one line "  STATE  BELIEF  BAR" per state,
BAR a bar of block characters 20 wide at 1 (none at 0), the bars of a node
starting in one column; last, an empty line and "normalization constant: VALUE" (the probability of the
evidence; its density when values of continuous nodes are entered).  A
continuous chance node takes its place in the order with the lines
"  mean  VALUE" and "  variance  VALUE".  Numbers are printed with "%g"; an
unlabelled state is "#INDEX".

TSV output of beliefs: one line NODE<TAB>STATE<TAB>BELIEF per state of every
discrete node, in the same order, STATE the label or "#INDEX", BELIEF with
"%.17g"; a continuous chance node has the lines NODE<TAB>mean<TAB>VALUE and
NODE<TAB>variance<TAB>VALUE instead; then the line
normalization_constant<TAB>VALUE.
)TXT",
     "kelva beliefs examples/networks/commute.net --set Weather=snow --set MissMeeting=yes"},
    {Command::bench, "bench",
     "FILE.net [--repeat N] [--evidence K] [--threads T] [--seed S]\n[--quiet]",
     "time reading, parsing, writing, compiling and propagating FILE\nand measure the memory "
     "bandwidth",
     R"TXT(Output of bench: four lines "file", "read bytes", "parse" and "write string"
with the best of N runs, then KEY<TAB>VALUE lines: nodes, cliques,
total_clique_size, compile_seconds, propagate_seconds (median of N
propagations from the node tables without evidence),
evidence_propagate_seconds (median over N random evidence sets of K nodes
whose states have non-zero belief, each propagated from the equilibrium
without evidence), bytes_per_propagation (8 bytes per table entry that a full
propagation reads or writes, on one thread from each tree's own root: each
clique table is written once by the collect and read and written once by the
distribute, each root read once more for its total, each separator entry
counted 5 times (written by the child and read by the parent in the collect;
written by the parent, then its new and old values read as the child's sweep
makes their quotients in the distribute), each node table read and each
marginal written once),
bytes_per_entry (those bytes over total_clique_size), effective_gbps (those
bytes over propagate_seconds), with --threads T above 1 one_thread_propagate_seconds
and threads_speedup (the same propagations on one thread, each run in turn
with one on T threads, and the median's ratio to T threads'; each timed run
follows an untimed one on the same threads), and stream_gbps (the best rate of the triad a[i] = b[i] +
s*c[i] over arrays far larger than the last-level cache, counting 24 bytes
per index, on T threads), with T above 1 one_thread_stream_gbps (the same on
one thread), then one_thread_best_seconds (the best of one thread's N
propagations), stream_bound_seconds (the time to move 32 bytes per clique
entry at one thread's triad rate), times_stream_bound (one thread's best
propagate time over stream_bound_seconds, as the triad's rate is its best)
and median_times_stream_bound (the same for the median time).
)TXT",
     "kelva bench examples/networks/commute.net --repeat 5"},
    {Command::compile, "compile",
     "(FILE.net | --example NAME) [--method METHOD] [--max-separators N]\n"
     "[--log LOG] [--format text|tsv] [--quiet]",
     "compile a network and print the size of its junction forest",
     R"TXT(Output of compile: the network's name and the time taken, then the number
of nodes, junction trees and cliques, the largest and the total discrete
clique table size, and the triangulation cost (the sum of the clique
weights).  With --format tsv, one "KEY<TAB>VALUE" line each for nodes,
cliques, junction_trees, max_clique_size, total_clique_size,
triangulation_cost and compile_seconds (numbers printed with "%.17g").
)TXT",
     "kelva compile --example asia --method fill-in-weight --format tsv"},
    {Command::sample, "sample",
     "(FILE.net | --example NAME) -n N -o DATA [--seed S] [--hide P]\n"
     "[--case FILE] [--set NODE=STATE]... [--quiet]",
     "draw N cases from a network's tables, or from its posterior\n"
     "given evidence, and write them as a multi-case data file",
     R"TXT(Output of sample: a data file whose first line names the network's chance
nodes (parents before children), then a blank line, then one line per case
with one item per node: "#INDEX" (the state drawn, counting from 0), the
value drawn for a continuous node ("%.17g"), or "*" (hidden).  Nothing is printed.  With --set or --case the network
is compiled, the evidence propagated and each case drawn exactly from the
posterior through the junction tree (the library's stream, seeded with S).
)TXT",
     "kelva sample --example asia -n 1000 -o asia.dat --hide 0.1"},
    {Command::learn, "learn",
     "(FILE.net | --example NAME) DATA -o OUT.net [--max-iterations N]\n"
     "[--tolerance T] [--strict-columns] [--scaled] [--threads T]\n"
     "[--log LOG] [--quiet]\n"
     "| DATA --structure pc|npc|tree|greedy|hnb [--target NODE] -o OUT.net",
     "learn the tables of a network's chance nodes from the cases of\n"
     "a data file by EM and write the learned network",
     R"TXT(Output of learn: every chance node without an experience table gets one
of zeros (no prior; a node's own experience table is kept and used; a
continuous node learns its CG table: intercept, coefficients and variance), the network is compiled and learned, and written to OUT.net without
the experience tables learn added; then KEY<TAB>VALUE lines: cases (the
total case count), iterations, seconds (of learning), log_likelihood, aic
and bic (of the learned tables, "%.17g").  DATA is a multi-case data file,
or, when its name ends in .csv, a comma-separated data set file whose header
names the nodes ("*", "?" or an empty field for a missing item; a column
"#" gives case counts).  A cell that names no state of its node is reported
with its row and column.  With progress notes, each EM iteration is noted
with its log-likelihood.  With --structure M and no network, learn runs
learn-structure --method M: the nodes come from the columns, the links from
the learner, and its output is learn-structure's
(e.g. kelva learn asia.dat --structure npc -o learned.net).
)TXT",
     "kelva learn --example asia asia.dat -o learned.net --max-iterations 20"},
    {Command::dsep, "dsep", "(FILE.net | --example NAME) --from NODE,... [--set NODE=STATE]...",
     "list the nodes d-connected to the --from nodes given the\n--set nodes",
     R"TXT(Output of dsep: the name of every node that a path not blocked by the
observed (--set) nodes joins to a --from node, one per line, in the domain's
order; the --from nodes themselves are listed unless observed.  The states
given with --set play no part, and the network is not compiled.
)TXT",
     "kelva dsep --example asia --from smoke --set dysp=yes"},
    {Command::sensitivity, "sensitivity",
     "(FILE.net | --example NAME) --target NODE=STATE\n[--set NODE=STATE]... [--quiet]",
     "print how the probability of a state under the evidence depends\non each table entry",
     R"TXT(Output of sensitivity: one line per entry of the table of every chance node
that can change P(target | evidence), the steepest first:
  DERIVATIVE  NODE=STATE|PARENT=STATE,...  VALUE  ALPHA  BETA  GAMMA  DELTA
separated by tabs ("-" for a node without parents).  When the entry (VALUE)
becomes t and the other entries of its column are scaled to keep their sum
1, P(target | evidence) = (ALPHA t + BETA) / (GAMMA t + DELTA); at the
current value GAMMA t + DELTA = 1, and DERIVATIVE is the slope there.
)TXT",
     "kelva sensitivity --example asia --target lung=yes --set dysp=yes"},
    {Command::voi, "voi",
     "(FILE.net | --example NAME) --target NODE [--set NODE=STATE]...\n"
     "[--quiet]",
     "rank the unobserved chance nodes by how much observing them\nwould tell about NODE",
     R"TXT(Output of voi: one line MUTUAL-INFORMATION<TAB>NODE per unobserved discrete
chance node other than the target, the largest first: the mutual
information (natural logarithm) of the node and the target under the
evidence, the expected fall of the target's entropy when the node is
observed.
)TXT",
     "kelva voi --example asia --target lung --set dysp=yes"},
    {Command::map, "map",
     "(FILE.net | --example NAME) --nodes A,B,... [--min-probability P]\n"
     "[--case FILE] [--set NODE=STATE]... [--quiet]",
     "list the configurations of some nodes whose probability given\n"
     "the evidence is at least P, most probable first",
     R"TXT(Output of map: one line per configuration, most probable first (equal
probabilities in configuration order), PROBABILITY<TAB>A=STATE<TAB>B=STATE...
with the nodes in the order of --nodes, STATE the label or "#INDEX", the
probability given the evidence printed with "%.17g".  Every configuration
at or above P is listed, found exactly; no line when there is none.
)TXT",
     "kelva map --example asia --nodes tub,lung,bronc --set xray=yes --set dysp=yes"},
    {Command::draw, "draw",
     "(FILE.net | --example NAME) -o OUT.dot|OUT.svg|OUT.png\n[--junction-tree] [--case FILE] "
     "[--set NODE=STATE]... [--quiet]",
     "draw a network or its junction forest with Graphviz",
     R"TXT(Output of draw: the picture OUT as Graphviz DOT; for .svg and .png, Graphviz's
dot (package graphviz) renders that DOT.  The network: chance nodes are
ellipses (continuous ones double octagons), decisions boxes, utilities
diamonds, functions octagons; nodes with evidence are shaded, and with
evidence given every discrete chance node shows its beliefs as bars.  With
--junction-tree: one box per clique with its number, table size and members
(the root of each tree has a thick border), one edge per separator with its
members and table size.
)TXT",
     "kelva draw --example asia --set xray=yes -o asia.png"},
    {Command::decide, "decide",
     "(FILE.net | --example NAME) [--case FILE] [--set NODE=STATE]...\n"
     "[--format text|tsv] [--quiet]",
     "find the best policies of an influence diagram given the evidence",
     R"TXT(Output of decide: the policies are found by single policy updating (the
best strategy when the diagram has perfect recall).  Per decision, one line
per configuration of its requisite parents, CONFIGURATION -> OPTION, then
"eu OPTION VALUE (sd SD)" for every option: the expected utility of taking
it, the other decisions following their policies, and the standard
deviation of the total utility then; last the maximum expected utility.  With --format tsv: lines eu<TAB>DECISION<TAB>OPTION<TAB>VALUE, and
last expected_utility<TAB>VALUE, numbers with "%.17g".
)TXT",
     "kelva decide examples/networks/umbrella.net --set Wet=yes --format tsv"},
    {Command::adapt, "adapt",
     "(FILE.net | --example NAME) DATA -o OUT.net [--fading F]\n"
     "[--experience N] [--discretize HOW] [--strict-columns] [--quiet]",
     "adapt the tables of a network's discrete chance nodes to the\n"
     "cases of a data file, one case after another",
     R"TXT(Output of adapt: every discrete chance node without an experience table
gets one of N counts; the network is compiled, and each case in turn is
entered, propagated and adapted to: its expected counts are added to the
experience (after fading it by F) and each table row becomes its counts
normalised.  A case that is impossible under the tables so far is skipped;
case counts are not used.  OUT.net holds the adapted tables with their
experience (and fading) tables, ready for further adaptation.  Then
KEY<TAB>VALUE lines: cases (adapted to), skipped, seconds.  DATA is read as
learn reads it.
)TXT",
     "kelva adapt --example asia asia.dat -o adapted.net --fading 0.99"},
    {Command::learn_structure, "learn-structure",
     "DATA -o OUT.net [--method pc|npc|tree|greedy|hnb] [--target NODE]\n"
     "[--significance A] [--score bic|aic] [--quiet]",
     "learn a network's links and tables from the cases of a data\n"
     "file and write the network",
     R"TXT(Output of learn-structure: every column of DATA (read as learn reads it;
"#" columns give case counts) becomes a discrete chance node: with values
"#0".."#K" as written by sample, K+1 states; else one state per distinct
value, sorted.  A column with fewer than two values, fewer than two cases
or a column that is no valid node name is refused.  The links are learned
(missing items leave a case out of the tests and scores that need them),
the tables by EM, and OUT.net holds the network with positions for a
layered picture.  Then KEY<TAB>VALUE lines: method, cases, links, seconds
(of structure learning) and bic (of the structure, before EM); npc adds
regions (its ambiguous regions, each resolved by its first minimal
solution; with more than 16 uncertain edges, by deciding each edge in turn
absent when a solution allows it, which also ends in a minimal solution);
hnb adds latent (the latent nodes made) and its bic is that of the tables
EM learned, since latent nodes have no items to score a structure by.
)TXT",
     "kelva learn-structure alarm.dat -o learned.net --method greedy\n"
     "kelva learn-structure cars.csv -o cars.net --method hnb --target Class"},
    {Command::predict, "predict",
     "(FILE.net | --example NAME) DATA [-o OUT] [--threads T]\n"
     "[--nodes A,B,...] [--strict-columns] [--scaled] [--quiet]",
     "enter each case of a data file as evidence and write the beliefs\n"
     "of the unobserved nodes and log P(e), case by case",
     R"TXT(Output of predict: for case K of DATA (counting from 1; read as learn reads
it, case counts not used), lines K<TAB>NODE<TAB>STATE<TAB>BELIEF for every
state of every node the case does not observe (or of the --nodes), a
continuous node as its mean and variance, then
K<TAB>log_normalization_constant<TAB>LOG-P(E); numbers with "%.17g", so each
line is the line of kelva beliefs --format tsv for that evidence, with K in
front.  A case that is impossible (or whose P(e) is below the smallest
double) gets only its log P(e), -inf.  With --threads T, T copies of the
compiled network share the cases; the output is the same.  A bad line
in DATA stops predict with the reader's message; with T above 1 the lines
of the cases before it may already be in OUT.  A network with utility
nodes is refused (influence diagrams: kelva decide).
)TXT",
     "kelva predict --example asia asia.dat --nodes lung,bronc --threads 2"},
    {Command::filter, "filter",
     "CLASSES.net [--class NAME] DATA [--window W] [--bk] [--predict K]\n"
     "[--format text|tsv] [--quiet]",
     "filter a time series through a dynamic network (a time-slice\n"
     "class with temporal clones), one data row per time step",
     R"TXT(Output of filter: row T of DATA (counting from 0; read as learn reads it,
columns named after the slice's nodes) is the evidence of time T.  A window
of W slices of the class (default: the file's last class) moves one slice
whenever it is full, carrying what the leaving slice said in the interface.
For every T, the filtered beliefs of the slice's chance nodes: in tsv
T<TAB>NODE<TAB>STATE<TAB>BELIEF ("%.17g"; a continuous node as its mean and
variance), in text the same columns aligned; then K more steps of
predictions the same way.
)TXT",
     "kelva filter weather.net --class Day readings.csv --window 2 --predict 3"},
};

constexpr const char* kExitText = R"TXT(
Exit status: 0 on success, 1 when the library reports an error (printed as
"kelva: ERROR-NAME: MESSAGE"; a file's error names the file and the
system's reason, a reader's error is its "FILE:LINE: MESSAGE" lines), 2 for
a command line kelva cannot use.
)TXT";

/// Prints the usage lines of `c` after `lead` ("usage: " or its width).
void print_usage(std::FILE* out, const char* lead, const CommandHelp& c) {
  const std::string head = std::string(lead) + "kelva " + c.name + " ";
  const std::string indent(head.size(), ' ');
  std::fputs(head.c_str(), out);
  for (const char* p = c.usage; *p != '\0'; ++p) {
    std::fputc(*p, out);
    if (*p == '\n') std::fputs(indent.c_str(), out);
  }
  std::fputc('\n', out);
}

/// Prints `text` starting in column `column`, its continuation lines too.
void print_indented(std::FILE* out, const char* text, std::size_t column) {
  for (const char* p = text; *p != '\0'; ++p) {
    std::fputc(*p, out);
    if (*p == '\n') std::fprintf(out, "%*s", static_cast<int>(column), "");
  }
  std::fputc('\n', out);
}

/// Prints the options that `commands` take.
void print_options(std::FILE* out, unsigned commands) {
  std::fputs("\nOptions:\n", out);
  for (const OptionHelp& o : kOptionHelp) {
    if ((o.commands & commands) == 0) continue;
    std::fprintf(out, "  %-18s  ", o.forms);
    print_indented(out, o.text, 22);
  }
}

}  // namespace

void run_help(std::FILE* out) {
  std::fputs("usage: kelva --help\n       kelva --version\n", out);
  for (const CommandHelp& c : kCommandHelp) print_usage(out, "       ", c);
  std::fputs("\nCommands:\n", out);
  for (const CommandHelp& c : kCommandHelp) {
    std::fprintf(out, "  %-9s  ", c.name);
    print_indented(out, c.summary, 13);
  }
  print_options(out, kAllCommands);
  std::fputs("  --version           print \"kelva\" and the library version\n", out);
  for (const CommandHelp& c : kCommandHelp) {
    std::fputc('\n', out);
    std::fputs(c.output, out);
  }
  std::fputs(kExitText, out);
  std::fputs("\nRun 'kelva COMMAND --help' for one command's usage, options and an example.\n",
             out);
  std::fputs("\nBundled example networks:\n", out);
  for (const ExampleNetwork& example : example_networks())
    std::fprintf(out, "  %-10s %s\n", example.name, example.description);
}

void run_command_help(std::FILE* out, Command command) {
  for (const CommandHelp& c : kCommandHelp) {
    if (c.command != command) continue;
    print_usage(out, "usage: ", c);
    std::fputc('\n', out);
    std::string summary = c.summary;
    summary[0] = static_cast<char>(summary[0] - 'a' + 'A');
    std::fprintf(out, "%s.\n", summary.c_str());
    print_options(out, bit(command));
    std::fputc('\n', out);
    std::fputs(c.output, out);
    std::fprintf(out, "\nExample:\n  %s\n", c.example);
    std::fputs(kExitText, out);
    return;
  }
  run_help(out);
}

void run_version(std::FILE* out) { std::fprintf(out, "kelva %s\n", KELVA_VERSION); }

}  // namespace kelva::cli
