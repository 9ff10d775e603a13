#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "kelva/kelva.h"
#include "network/node_list.h"
#include "network/object.h"
#include "network/peer.h"
#include "table/buffer.h"

namespace kelva {

class Domain;
class Node;
struct SweepFactor;

/// What a table is for.  Experience (2) and fading (3) are fixed numbers.
enum class TableRole : int {
  conditional = 1,  // a node's conditional table (or utility / function table)
  experience = 2,
  fading = 3,
  potential = 4,  // clique or separator potential
  free = 5,       // free-standing, owned by the caller
};

/// A function over the joint configurations of a list of nodes: a dense
/// array of doubles in configuration order (first node slowest, last node
/// fastest) over the discrete nodes, and for tables with continuous nodes a
/// conditional-Gaussian part per discrete configuration.
///
/// Node order: the discrete nodes come first, then the continuous ones; the
/// configuration order is over the discrete nodes only.
///
/// Layout of the conditional-Gaussian part, with d = cg_dimension() and c a
/// discrete configuration: means[c*d + i], coefficients[c*d + i] and the
/// full symmetric covariance matrix covariances[(c*d + i)*d + j].  The three
/// arrays are allocated together on the first CG write; until then every CG
/// value reads as 0.
class Table : public Object {
 public:
  /// A table over `nodes` (distinct; discrete nodes before continuous ones),
  /// all entries 0.  Data are not allocated until first needed.
  Table(Domain& domain, const std::vector<Node*>& nodes, TableRole role, Node* owner);
  ~Table();

  Domain& domain() const noexcept { return *domain_; }
  TableRole role() const noexcept { return role_; }
  Node* owner() const noexcept { return owner_; }
  /// Registered with its domain (owned by a node or a junction tree), as
  /// opposed to free-standing.
  bool is_registered() const noexcept { return role_ != TableRole::free; }

  const NodeList& nodes() const noexcept { return nodes_; }
  std::size_t discrete_count() const noexcept { return discrete_count_; }
  /// Number of continuous nodes.
  std::size_t cg_dimension() const noexcept { return nodes_.size() - discrete_count_; }
  /// Number of discrete configurations, saturating at kSizeTooLarge.
  std::uint64_t size() const noexcept { return size_; }
  /// State counts of the discrete nodes as this table holds them (they
  /// follow the nodes through the shape changes below).
  const std::vector<std::size_t>& state_counts() const noexcept { return counts_; }
  /// True once the discrete data have been allocated.
  bool has_data() const noexcept { return !data_.empty(); }

  /// The discrete data, allocated (all 0) on first access, or made from a
  /// deferred product (defer_product); throws Error(no_memory) when the
  /// size cannot be allocated.
  double* data() {
    if (data_.empty() || deferred_) [[unlikely]]
      settle();
    return data_.data();
  }
  const double* data() const {
    if (data_.empty() || deferred_) [[unlikely]]
      settle();
    return data_.data();
  }
  /// Leaves the discrete data to be made when they are next read: each
  /// entry the product of the `count` factors' matching entries in the
  /// order given, the first copied (a rebuilding sweep without folds, so
  /// the bits such a sweep gives).  The factors' plans and small tables are
  /// copied now, so later changes to them do not reach the table.  A
  /// propagation that has just folded a clique's product without storing
  /// it leaves the table this way; a clique that nobody reads before it is
  /// rebuilt is never written.  Without room for the copies, the product
  /// is made at once.  Throws Error(no_memory) only where the data cannot
  /// be allocated.  With `last`, the last factor's small table is its
  /// array (factors[count - 1].data == last->data()), taken instead of
  /// copied: `last` receives another array of its size, whose entries are
  /// left unspecified.  For a propagation's quotients, which would be
  /// overwritten before they are read again.
  void defer_product(const SweepFactor* factors, std::size_t count, DoubleBuffer* last = nullptr);
  /// Copies the factors of a product that a later defer_product() with
  /// `last` is expected to defer, now, while they are in the caches: that
  /// call then takes these copies instead of copying factors
  /// [0, count - 1) itself, where they are the same arrays through the same
  /// plans (their contents must not change in between).  Does nothing
  /// while a product is deferred; without room, the copies wait for
  /// defer_product().
  void keep_factors(const SweepFactor* factors, std::size_t count) noexcept;
  /// Forgets a deferred product without making it: for a caller about to
  /// write every entry.  The data hold the values before the deferral.
  void drop_deferred() noexcept { deferred_ = false; }
  /// Whether the data wait for a deferred product.
  bool deferred() const noexcept { return deferred_; }
  /// The deferred product's factors (copies, which stay valid after
  /// drop_deferred until the next defer_product), or none.
  std::span<const SweepFactor> deferred_factors() const noexcept;
  /// Allocates the discrete data and, for a table with continuous nodes,
  /// the CG part now, so that later use allocates nothing; throws
  /// Error(no_memory) and leaves the table as it was.
  void allocate();

  // Conditional-Gaussian part, per discrete configuration `config`, for the
  // continuous member with position `i` among the continuous nodes.
  double mean(std::uint64_t config, std::size_t i) const;
  double covariance(std::uint64_t config, std::size_t i, std::size_t j) const;
  void set_mean(std::uint64_t config, std::size_t i, double v);
  void set_covariance(std::uint64_t config, std::size_t i, std::size_t j, double v);
  /// For a continuous node's own table: the regression coefficient of the
  /// node on continuous member `i` (0 for the node itself).
  double coefficient(std::uint64_t config, std::size_t i) const;
  void set_coefficient(std::uint64_t config, std::size_t i, double v);

  // Shape changes used by structure edits.  Each either succeeds or throws
  // (no_memory) and leaves the table unchanged.

  /// Inserts discrete `node` at the front (slowest), repeating the existing
  /// values once for each of its states.  A node already held: no change.
  void insert_discrete_front(Node* node);
  /// Appends continuous `node` after the continuous members, with zero
  /// coefficients, means and covariances.  A node already held: no change.
  void append_continuous(Node* node);
  /// Removes `node`: a discrete node by averaging over its states, a
  /// continuous one by dropping its entries.  A node not held: no change.
  void remove_node(Node* node);
  /// Changes the state count of discrete member `node` from its current
  /// count in the table to `count`: kept states keep their entries, new ones 0.
  void change_state_count(Node* node, std::size_t old_count, std::size_t count);
  /// Permutes the states of discrete member `node`: new state i takes the
  /// entries of old state new_to_old[i].
  void permute_states(Node* node, const std::vector<std::size_t>& new_to_old);
  /// Puts `replacement` (same kind and state count) in place of `node`.
  void replace_node(Node* node, Node* replacement) noexcept;

  /// Reorders the nodes to `order` (the same nodes, discrete ones first),
  /// permuting the data and the CG part to match.  Error(usage) when
  /// `order` is not such a list; throws (no_memory) leaving the table as it
  /// was.
  void reorder(const std::vector<Node*>& order);
  /// Copies the data and CG part of `other`, which must have the same size
  /// and CG dimension (Error(usage)).  Nodes are kept.
  void assign_contents(const Table& other);

  /// A free-standing, unregistered copy of this table (same nodes, contents
  /// and CG part; no owner, no peer).  Structure edits reshape copies and
  /// swap them in only when every table of the edit has been reshaped.
  std::unique_ptr<Table> clone() const;
  /// Exchanges everything but identity (domain, role, owner, peer,
  /// backpointer) with `other`: nodes, size, data, CG part, cached plans.
  void swap_contents(Table& other) noexcept;
  /// Starts fetching the table's size and the record of where its data lie
  /// into the caches, for a pass that reads them shortly (a hint only).
  void prefetch() const noexcept {
    __builtin_prefetch(&size_);
    __builtin_prefetch(&data_);
  }
  /// Exchanges the discrete data with `other`, which holds size() entries:
  /// propagation keeps a separator's new values this way instead of copying
  /// them.  Nothing else of the table changes.
  void swap_data(DoubleBuffer& other) noexcept { data_.swap(other); }

  /// Tells the owner that the contents changed through the API.
  void notify_changed() noexcept;

  PeerRef peer = nullptr;  // "tablePeer"
  void* backpointer = nullptr;

 private:
  // The discrete data, all 0, on first access (Error(no_memory)).
  void allocate_zeros() const;
  // Allocates the discrete data, or makes a deferred product in them.
  void settle() const;
  // A deferred product's copied factors (kept between deferrals, so that
  // their room is reused).
  struct Product;
  Domain* domain_;
  TableRole role_;
  Node* owner_;
  NodeList nodes_;
  std::size_t discrete_count_ = 0;
  std::uint64_t size_ = 1;
  // Remaining representation is the table layer's own.
  struct Shape;
  void commit(Shape& shape) noexcept;
  /// Fills the arrays of `shape` from this table's with one axis remapped:
  /// new state t of the axis (between `outer` and `inner` entries) takes old
  /// state map[t].
  void remap_all(Shape& shape, std::uint64_t outer, std::size_t old_count, std::size_t new_count,
                 std::uint64_t inner, const std::vector<std::size_t>& map) const;
  void ensure_cg();

  std::vector<std::size_t> counts_;  // per discrete node
  mutable DoubleBuffer data_;        // empty until first access
  mutable std::unique_ptr<Product> product_;
  mutable bool deferred_ = false;  // data_ waits for *product_
  DoubleBuffer means_;             // CG part, see the class comment
  DoubleBuffer covariances_;
  DoubleBuffer coefficients_;
};

/// Where a node's states lie among a table's entries: entry i holds state
/// (i / stride) % states of the node.  `states` is 0 when the node is not
/// one of the table's discrete nodes.
struct StateAxis {
  std::uint64_t stride = 1;
  std::size_t states = 0;
};
StateAxis state_axis(const Table& table, const Node& node) noexcept;

}  // namespace kelva
