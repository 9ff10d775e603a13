#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "kelva/kelva.h"
#include "network/attributes.h"
#include "network/case_store.h"
#include "network/node.h"
#include "network/node_list.h"
#include "network/object.h"
#include "network/peer.h"

namespace kelva {

/// A chain-graph component read from a chain potential: discrete chance
/// nodes joined by undirected links, their parents, and the component's
/// table over the parents and the members.
class Class;
class ClassCollection;
class Forest;
/// A junction forest, destroyed as the compilation layer registered.
using ForestPtr = Owned<Forest>;
/// Results of sensitivity and explanation analyses, destroyed as the
/// analysis layer registered.
class QueryResults;
/// What the last structure learning run left for its getters (the PDAG,
/// the marginal tests), destroyed as the learning layer registered.
class StructureResults;
class Sampler;
struct DbnLayout;
/// The tables of exact posterior sampling, destroyed as the analysis layer
/// registered.
using SamplerPtr = Owned<Sampler>;

struct ChainComponent {
  NodeList members;
  NodeList parents;
  TablePtr table;
};

/// The container of one network: its nodes (a chain, newest first), name
/// table, attributes, layout defaults and the settings of parallel table
/// operations.  Owns its nodes and the free-standing tables made over them.
class Domain : public Object {
 public:
  Domain();
  ~Domain();

  /// The checks and bookkeeping of node creation, in their documented order;
  /// throws Error on refusal and leaves the domain unchanged.
  Node* new_node(k_category_t category, k_kind_t kind, k_subtype_t subtype);
  /// Unlinks `node` from the chain and name table, drops its Java peer and
  /// frees it.  Links and tables must already have been taken apart.
  void destroy_node(Node* node) noexcept;

  Node* first_node() const noexcept { return first_; }
  /// Number of nodes of `category` (5..9).
  std::uint64_t count(k_category_t category) const noexcept;
  std::uint64_t discrete_count() const noexcept { return discrete_; }
  std::uint64_t continuous_count() const noexcept { return continuous_; }

  /// The next value of the creation counter (also used by generated names).
  std::uint64_t bump_counter() noexcept { return ++counter_; }
  std::uint64_t counter() const noexcept { return counter_; }
  /// Puts the counter back after a creation that failed half-way.
  void rewind_counter(std::uint64_t value) noexcept { counter_ = value; }

  /// Name table.
  Node* find(const std::string& name) const noexcept;
  /// Gives `node` the name `name`: "twice" when another node has it,
  /// "invalid_name" when it breaks the name rule.
  void rename(Node& node, const char* name);
  /// True when node names here are single identifiers (a class).
  bool is_class() const noexcept { return owner_class != nullptr; }
  /// The class this domain is the body of (network/class.h), else null.
  Class* owner_class = nullptr;
  /// The collection of the class this domain was unfolded from, while the
  /// nodes' source lists name nodes of its classes (network/class.h).
  ClassCollection* unfolded_from = nullptr;

  AttributeList& attributes() noexcept { return attributes_; }
  const AttributeList& attributes() const noexcept { return attributes_; }

  std::uint64_t node_width = 0;
  std::uint64_t node_height = 0;
  std::uint64_t grain_size = 10000;
  std::uint64_t concurrency_level = 1;
  /// Scaled propagation: collected messages are rescaled and the logarithm
  /// of the normalization constant kept, so that evidence far below the
  /// smallest double propagates (off: such evidence is an underflow).
  bool scaled_propagation = false;
  /// Significant digits of the numbers of tables, models and state values in
  /// written NET text; 0 keeps the usual formats ("%G", "%.8G").
  int net_digits = 0;
  void* backpointer = nullptr;

  /// Java bookkeeping of the native layer.
  PeerContext& peers() noexcept { return peers_; }

  /// The log stream (null when none); owned.
  std::FILE* log() const noexcept { return log_; }
  /// Replaces the log: opens `file_name` with mode "a" or "w", 512-byte line
  /// buffer; null closes the current one.  Throws Error(io).
  void set_log_file(const char* file_name, bool append);

  /// Compilation state: the junction forest (null when untriangulated), the
  /// compiled flag (set only while a forest exists) and the compressed flag.
  Forest* forest() const noexcept { return forest_.get(); }
  bool is_triangulated() const noexcept { return forest_ != nullptr; }
  bool is_compiled() const noexcept { return compiled_; }
  bool is_compressed() const noexcept { return compressed_; }
  void set_compiled(bool value) noexcept { compiled_ = value && forest_; }
  void set_compressed(bool value) noexcept { compressed_ = value && forest_; }
  /// Identifies the forest in use: changes with every forest installed, 0
  /// before the first.
  std::uint64_t forest_serial() const noexcept { return forest_serial_; }
  /// Installs a freshly built forest on an untriangulated domain.
  void install_forest(ForestPtr forest) noexcept;
  /// Discards the junction forest and every result computed on it (the
  /// compiled and compressed flags with it).  Does nothing when there is
  /// no forest.
  void uncompile() noexcept;
  /// Discards cached results of graph queries (d-separation, requisite sets).
  void forget_graph_queries() noexcept {
    d_connected.clear();
    d_separated.clear();
    decision_order.clear();
  }
  /// The lists handed out by the d-separation queries, kept until the next
  /// query or link edit.
  NodeList d_connected;
  NodeList d_separated;
  /// The list handed out by k_domain_get_decision_order, kept the same way.
  NodeList decision_order;
  /// The last sensitivity and explanation results (null before the first).
  Owned<QueryResults> query_results;

  /// Structure learning: the significance level of its independence tests,
  /// the user's edge constraints (by the two nodes' serials, smaller first;
  /// see k_edge_constraint_t, stated from the smaller serial's side) and the
  /// results of the last run.
  double significance_level = 0.05;
  std::map<std::pair<std::uint64_t, std::uint64_t>, int> edge_constraints;
  Owned<StructureResults> structure_results;

  /// Counts writes of table data; results computed before a change are stale.
  std::uint64_t table_changes() const noexcept { return table_changes_; }
  void note_table_change() noexcept {
    ++table_changes_;
    cached_log_likelihood.reset();
  }

  /// The file the domain was read from or last saved to (none when it was
  /// built in memory).
  std::optional<std::string> file_name;

  /// The stored cases (their items live in the nodes' columns).
  CaseStore cases;
  /// Sets the number of stored cases: new cases are empty with count 1,
  /// cases from `n` on are forgotten by every node.
  void set_number_of_cases(std::size_t n);
  /// Removes stored case `c`; later cases move down by one.
  void erase_case(std::size_t c) noexcept;

  /// EM learning settings and the cached log-likelihood (cleared whenever a
  /// table changes).
  double log_likelihood_tolerance = 1e-4;
  std::uint64_t max_em_iterations = 0;
  int (*em_progress)(std::uint64_t iteration, double log_likelihood, void* data) = nullptr;
  void* em_progress_data = nullptr;
  /// Steps of online EM taken on class tables through this domain
  /// (learning/class_tables.h): the next step's index less one.
  std::uint64_t online_em_steps = 0;
  std::optional<double> cached_log_likelihood;
  /// The number of cases, their total count and the forest the cached
  /// value was computed with: it is stale when any of them differs.
  struct LogLikelihoodSource {
    std::size_t cases = 0;
    double total = 0.0;
    std::uint64_t forest = 0;
    bool operator==(const LogLikelihoodSource&) const = default;
  } cached_log_likelihood_source;

  /// Settings of triangulation method 19 ("total weight"): the elimination
  /// order it starts from (empty: none; forgotten when a node is created or
  /// deleted), the most minimal separators it may list and the largest
  /// separator it considers (0 or less: no bound).
  std::vector<Node*> initial_triangulation;
  /// Nodes every later triangulation puts into one clique (empty: none); a
  /// deleted node leaves the set.
  std::vector<Node*> ijt_nodes;
  std::int64_t max_separators = 0;
  std::int64_t max_separator_size = 0;

  /// Chain-graph components, in the order they were made.
  std::vector<std::unique_ptr<ChainComponent>> chain_components;

  /// What MAP search, simulation and approximation keep for their getters
  /// (written by the analysis layer).  Results belong to the forest whose
  /// serial they carry and read as absent once it is replaced.
  struct Analysis {
    /// The stream of simulation and of the deviates: seeded with 0 at
    /// creation, restarted by k_domain_seed_random.
    std::mt19937_64 random{0};
    /// The last MAP search: its nodes, the states of each configuration
    /// (one row of map_nodes.size() entries each, most probable first) and
    /// their probabilities.
    std::vector<Node*> map_nodes;
    std::vector<k_size_t> map_states;
    std::vector<double> map_probabilities;
    std::uint64_t map_forest = 0;
    /// The last simulated configuration, per forest node record: the state
    /// (-1 for nodes without one), and the value of continuous and numeric
    /// nodes or the utility of utility nodes.
    std::vector<std::int64_t> sampled_states;
    std::vector<double> sampled_values;
    std::uint64_t sample_forest = 0;
    /// The conditional tables that simulation draws from, kept between
    /// draws while the clique tables they were made from are unchanged.
    SamplerPtr sampler;
    /// The mass the last approximation kept (k_domain_approximate).
    double approximation_constant = 1.0;
    std::uint64_t approximation_forest = 0;
    /// Counts propagations that wrote clique tables (stale samplers).
    std::uint64_t calibrations = 0;
  } analysis;

  /// The slices of a dynamic network's window (network/dbn_layout.h); null
  /// for other domains, and dropped when a node is deleted.
  std::unique_ptr<DbnLayout> dbn;

  /// Free-standing tables over this domain's nodes; the domain frees those the
  /// caller leaves behind.
  void adopt_free_table(Table* table);
  void release_free_table(Table* table) noexcept;
  const std::unordered_set<Table*>& free_tables() const noexcept { return free_tables_; }

 private:
  void insert_at_head(Node* node) noexcept;

  Node* first_ = nullptr;
  std::uint64_t counter_ = 0;
  std::uint64_t by_category_[5] = {};  // function, instance, chance, decision, utility
  std::uint64_t discrete_ = 0;
  std::uint64_t continuous_ = 0;
  std::unordered_map<std::string, Node*> names_;
  AttributeList attributes_;
  PeerContext peers_;
  std::FILE* log_ = nullptr;
  ForestPtr forest_;
  std::uint64_t forest_serial_ = 0;
  bool compiled_ = false;
  bool compressed_ = false;
  std::uint64_t table_changes_ = 0;
  std::unordered_set<Table*> free_tables_;
};

}  // namespace kelva
