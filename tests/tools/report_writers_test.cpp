// The report writers on a hand-made network holding every sort of node the
// bundled examples lack: numbered and interval states, unlabelled states,
// decision and utility nodes, a continuous node, a table without members,
// and texts that TSV must escape.

#include "report_writers.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace kelva::cli {
namespace {

/// The network: d (decision), n (numbered), i (interval, child of n),
/// u (utility over d and n), c (continuous, child of d), k (utility alone).
NetworkInfo sample_network() {
  NetworkInfo net;
  net.source = "test";
  auto node = [&](std::string name, std::string label, k_category_t category, k_kind_t kind) {
    NodeInfo info;
    info.name = std::move(name);
    info.label = std::move(label);
    info.category = category;
    info.kind = kind;
    net.nodes.push_back(info);
    return &net.nodes.back();
  };
  net.nodes.reserve(6);

  NodeInfo* d = node("d", "", K_CATEGORY_DECISION, K_KIND_DISCRETE);
  d->subtype = K_SUBTYPE_LABEL;
  d->states = {{"go", {}, {}}, {"stay", {}, {}}};

  NodeInfo* n = node("n", "Number", K_CATEGORY_CHANCE, K_KIND_DISCRETE);
  n->subtype = K_SUBTYPE_NUMBER;
  n->states = {{"", 0.0, {}}, {"", 2.5, {}}};
  n->table = TableInfo{{1}, {0.25, 0.75}, {}, {}};

  NodeInfo* i = node("i", "", K_CATEGORY_CHANCE, K_KIND_DISCRETE);
  i->subtype = K_SUBTYPE_INTERVAL;
  i->states = {{"low", 0.0, 1.0}, {"high", 1.0, 10.0}};
  i->parents = {1};
  i->table = TableInfo{{1, 2}, {0.5, 0.5, 0.1, 0.9}, {}, {}};

  NodeInfo* u = node("u", "", K_CATEGORY_UTILITY, K_KIND_OTHER);
  u->parents = {0, 1};
  u->table = TableInfo{{0, 1}, {10, -5, 0, 1e6}, {}, {}};

  NodeInfo* c = node("c", "tab\there\nnl\\", K_CATEGORY_CHANCE, K_KIND_CONTINUOUS);
  c->parents = {0};
  c->table = TableInfo{{0}, {}, {1.5, -2}, {0.25, 4}};

  NodeInfo* k = node("k", "", K_CATEGORY_UTILITY, K_KIND_OTHER);
  k->table = TableInfo{{}, {42}, {}, {}};

  net.link_count = 4;
  return net;
}

/// What `write` prints for `net`.
template <class W>
std::string capture(W write, const NetworkInfo& net) {
  char* buffer = nullptr;
  std::size_t size = 0;
  std::FILE* out = open_memstream(&buffer, &size);
  EXPECT_NE(out, nullptr);
  write(out, net);
  std::fclose(out);
  std::string text(buffer, size);
  std::free(buffer);
  return text;
}

TEST(TextReport, ShowsEverySortOfNode) {
  EXPECT_EQ(capture(write_text_report, sample_network()),
            "network test: 6 nodes, 4 links\n"
            "\n"
            "node d\n"
            "  label:\n"
            "  category: decision\n"
            "  kind: discrete\n"
            "  subtype: label\n"
            "  states: 2\n"
            "    0: go\n"
            "    1: stay\n"
            "  parents:\n"
            "\n"
            "node n\n"
            "  label: Number\n"
            "  category: chance\n"
            "  kind: discrete\n"
            "  subtype: number\n"
            "  states: 2\n"
            "    0: (no label), value 0\n"
            "    1: (no label), value 2.5\n"
            "  parents:\n"
            "  table: n\n"
            "    #0    #1\n"
            "    0.25  0.75\n"
            "\n"
            "node i\n"
            "  label:\n"
            "  category: chance\n"
            "  kind: discrete\n"
            "  subtype: interval\n"
            "  states: 2\n"
            "    0: low, interval [0, 1)\n"
            "    1: high, interval [1, 10)\n"
            "  parents: n\n"
            "  table: n i\n"
            "    n   | low  high\n"
            "    #0  | 0.5  0.5\n"
            "    #1  | 0.1  0.9\n"
            "\n"
            "node u\n"
            "  label:\n"
            "  category: utility\n"
            "  kind: other\n"
            "  parents: d n\n"
            "  table: d n\n"
            "    d     | #0  #1\n"
            "    go    | 10  -5\n"
            "    stay  | 0   1e+06\n"
            "\n"
            "node c\n"
            "  label: tab\there\nnl\\\n"
            "  category: chance\n"
            "  kind: continuous\n"
            "  parents: d\n"
            "  table: d\n"
            "    d     | mean  variance\n"
            "    go    | 1.5   0.25\n"
            "    stay  | -2    4\n"
            "\n"
            "node k\n"
            "  label:\n"
            "  category: utility\n"
            "  kind: other\n"
            "  parents:\n"
            "  table:\n"
            "    value\n"
            "    42\n"
            "\n"
            "links:\n"
            "  n -> i\n"
            "  d -> u\n"
            "  n -> u\n"
            "  d -> c\n");
}

TEST(TsvReport, ShowsEverySortOfNodeAtFullPrecision) {
  EXPECT_EQ(capture(write_tsv_report, sample_network()),
            "network\ttest\t6\t4\n"
            "node\td\t\tdecision\tdiscrete\tlabel\t2\n"
            "state\td\t0\tgo\t-\t-\n"
            "state\td\t1\tstay\t-\t-\n"
            "node\tn\tNumber\tchance\tdiscrete\tnumber\t2\n"
            "state\tn\t0\t\t0\t-\n"
            "state\tn\t1\t\t2.5\t-\n"
            "table\tn\tn\n"
            "entry\tn\t0\t0\t0.25\n"
            "entry\tn\t1\t1\t0.75\n"
            "node\ti\t\tchance\tdiscrete\tinterval\t2\n"
            "state\ti\t0\tlow\t0\t1\n"
            "state\ti\t1\thigh\t1\t10\n"
            "table\ti\tn\ti\n"
            "entry\ti\t0\t0\t0\t0.5\n"
            "entry\ti\t1\t0\t1\t0.5\n"
            "entry\ti\t2\t1\t0\t0.10000000000000001\n"
            "entry\ti\t3\t1\t1\t0.90000000000000002\n"
            "node\tu\t\tutility\tother\t-\t0\n"
            "table\tu\td\tn\n"
            "entry\tu\t0\t0\t0\t10\n"
            "entry\tu\t1\t0\t1\t-5\n"
            "entry\tu\t2\t1\t0\t0\n"
            "entry\tu\t3\t1\t1\t1000000\n"
            "node\tc\ttab\\there\\nnl\\\\\tchance\tcontinuous\t-\t0\n"
            "table\tc\td\n"
            "cg\tc\t0\t0\t1.5\t0.25\n"
            "cg\tc\t1\t1\t-2\t4\n"
            "node\tk\t\tutility\tother\t-\t0\n"
            "table\tk\n"
            "entry\tk\t0\t42\n"
            "link\tn\ti\n"
            "link\td\tu\n"
            "link\tn\tu\n"
            "link\td\tc\n");
}

}  // namespace
}  // namespace kelva::cli
