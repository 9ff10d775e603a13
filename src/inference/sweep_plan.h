#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "compile/junction_forest.h"
#include "table/table_ops.h"

namespace kelva {

class CollectMemo;

/// The sweeps of clique_sweeps.h for small cliques with the kernel of every
/// product, copy and fold chosen once per plan.  A sweep of a clique of a
/// few dozen entries spends most of its time choosing how to walk each
/// table and gathering the lists of factors and folds; here both are made
/// once for the tree's schedule, and a sweep calls its kernels one after
/// the other.  The operations, their order and so the bits are those of
/// collect_sweep, distribute_sweep and receive_sweep on one thread; larger
/// cliques are left to those.  Made again when the schedule's root, the
/// tables, the reduction or the row loops' vector width change.
class SweepPlan {
 public:
  SweepPlan();

  /// Makes the plan for `tree` as it is now unless it is made already.
  void ready(const JunctionTree& tree, Reduce how);

  /// collect_sweep of the root, after collect_links.
  void collect_root(JunctionTree& tree, const Parallelism& par);

  /// The collect over every schedule link, leaves first: each outer
  /// clique swept and its message sent on, or both restored from `memo`
  /// (when not null), which then keeps what was swept.  Returns the sum of
  /// the logarithms of the messages' scales (0 unless the tree's
  /// propagation is scaled).
  double collect_links(JunctionTree& tree, CollectMemo* memo, const Parallelism& par);

  /// distribute_sweep of the root by `factor` through its total plan.
  void distribute_root(JunctionTree& tree, const double* factor, const Parallelism& par);

  /// receive_sweep of every schedule link in order: the distribute pass
  /// after distribute_root.
  void distribute(JunctionTree& tree, const Parallelism& par);

 private:
  static constexpr std::size_t kNoBase = ~std::size_t{0};
  struct Update {
    UpdateKernel copy = nullptr;
    UpdateKernel multiply = nullptr;
    const IndexPlan* plan = nullptr;
  };
  /// A fold into a small table, its kernel clearing the table first;
  /// `kernel` is null for a total (one entry), which is folded after the
  /// others, as sweep() does.
  struct Fold {
    FoldKernel kernel = nullptr;
    const IndexPlan* plan = nullptr;
  };
  /// A node or component table multiplied into a rebuilt clique; a
  /// decision node's table only while it is a factor (is_node_factor).
  struct TableFactor {
    Update update;
    const Table* table;
    const Node* decision;
  };
  struct Home {
    NodeSlot* slot;
    Update update;
    Fold fold;
  };
  /// A fold of the distribute pass that is not a total, with where it
  /// goes: a separator's scratch (the buffer changes at every message) or a
  /// home node's marginal.
  template <class To>
  struct FoldTo {
    FoldKernel kernel;
    const IndexPlan* plan;
    To* to;
  };
  /// The separator of a schedule link seen from its inner clique.
  struct Child {
    Separator* separator;
    Update update;
    Fold fold;
  };
  struct Steps {
    Clique* clique = nullptr;
    Separator* separator = nullptr;  // towards the root (none at the root)
    std::size_t tables = 0, tables_end = 0;
    std::size_t homes = 0, homes_end = 0;
    std::size_t children = 0, children_end = 0;        // schedule links leaving the clique
    std::size_t child_folds = 0, child_folds_end = 0;  // in child_folds_
    std::size_t home_folds = 0, home_folds_end = 0;    // in home_folds_
    Fold out;                                          // onto the separator towards the root
    Update in;                                         // by the message from the root's side
    QuotientProductKernel quotient_in = nullptr;       // the message's quotients and `in` at once
    bool collect = false;                              // small enough for the planned collect
    bool receive = false;                              // small enough for the planned distribute
    bool totals = false;                               // a child or home fold is a total
    /// Where the product of the node tables lies in bases_ (kNoBase: the
    /// tables are multiplied in at every rebuild), and whether it is made.
    std::size_t base = kNoBase;
    bool base_made = false;
  };

  static Update update_of(const IndexPlan& plan) noexcept;
  Fold fold_of(const IndexPlan& plan) const noexcept;
  Steps steps_of(const JunctionTree& tree, Clique& clique, std::size_t i);
  void collect(JunctionTree& tree, std::size_t i, double* out, const Parallelism& par);
  /// Where the distribute pass's folds start.
  struct Folds {
    const FoldTo<DoubleBuffer>* children;
    const FoldTo<std::vector<double>>* homes;
  };
  void fold(const Steps& s, const double* large, std::uint64_t n, const Folds& folds,
            const Parallelism& par);
  void fold_totals(const Steps& s, const double* large, const Parallelism& par);

  std::vector<Steps> links_;  // per schedule link, its outer clique
  Steps root_;
  std::vector<TableFactor> tables_;
  std::vector<Home> homes_;
  std::vector<Child> children_;  // per schedule link
  /// The distribute pass's folds other than totals, clique by clique.
  std::vector<FoldTo<DoubleBuffer>> child_folds_;
  std::vector<FoldTo<std::vector<double>>> home_folds_;
  /// Per clique whose tables are all chance or function node tables, their
  /// product as a rebuild makes it: the same until a table changes, when
  /// the plan is made again.
  std::unique_ptr<double[]> bases_;
  std::size_t bases_size_ = 0;
  std::size_t bases_room_ = 0;
  const Clique* root_clique_ = nullptr;
  std::size_t links_count_ = 0;
  std::uint64_t table_changes_ = 0;
  QuotientKernel quotient_ = nullptr;
  Reduce how_ = Reduce::sum;
  bool wide_ = false;
  bool made_ = false;
};

}  // namespace kelva
