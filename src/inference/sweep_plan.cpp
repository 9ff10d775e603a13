#include "inference/sweep_plan.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "inference/clique_ops.h"
#include "inference/clique_sweeps.h"
#include "inference/collect_memo.h"
#include "inference/evidence.h"
#include "network/domain.h"
#include "network/node.h"
#include "platform/memory.h"
#include "table/factor_walk.h"
#include "table/fold_walk.h"
#include "table/table.h"

namespace kelva {

namespace {

// A sweep of fewer entries than this is one block: its factors are applied
// to the whole clique, then its folds made (larger ones go by blocks).
constexpr std::uint64_t kOneBlock = 1024;
// Cliques of at most this many entries take their quotients from a buffer
// on the stack when a message reaches them.
constexpr std::uint64_t kStackQuotients = 512;

// The records of the links a pass comes to next lie far apart, and the
// large sweeps between have pushed them out of the caches: each pass
// starts fetching them a few links ahead, a level at a time (the records
// three links ahead, the tables they point to two ahead, the data of the
// next link), so that the fetches overlap the work instead of following
// one another.  Hints only: they read nothing the pass does not read.
constexpr std::uint64_t kFetchedBytes = 4096;  // of a small clique's data

void fetch(const void* p) noexcept { __builtin_prefetch(p); }

void fetch_plan(const IndexPlan& plan) noexcept {
  fetch(plan.axes().data());
  if (plan.map() != nullptr) fetch(plan.map());
}

// The first kFetchedBytes of a table's data, if it has any, to be read
// (or written, with Write).
template <bool Write>
void fetch_data(const Table& table) noexcept {
  if (table.has_data())
    platform::prefetch_bytes<Write>(table.data(),
                                    std::min(table.size() * sizeof(double), kFetchedBytes));
}

}  // namespace

SweepPlan::SweepPlan() {
  Destroy<SweepPlan>::registered = [](SweepPlan* plan) noexcept { delete plan; };
}

SweepPlan::Update SweepPlan::update_of(const IndexPlan& plan) noexcept {
  return {copy_kernel(plan), multiply_kernel(plan), &plan};
}

SweepPlan::Fold SweepPlan::fold_of(const IndexPlan& plan) const noexcept {
  return {plan.small_size() > 1 ? fresh_fold_kernel(plan, how_) : nullptr, &plan};
}

SweepPlan::Steps SweepPlan::steps_of(const JunctionTree& tree, Clique& clique, std::size_t i) {
  const Forest& forest = *tree.domain->forest();
  Steps s;
  s.clique = &clique;
  s.tables = tables_.size();
  // The node tables as collect_sweep takes them: the members' records in
  // order, then the chain-graph components.  Their product is kept when
  // every one is a chance or function node's table, which changes only
  // with the domain's count of table changes.
  bool fixed = true;
  for (const NodeSlot* slot : clique.assigned_nodes) {
    const Node& node = *slot->node;
    if (!node.is_discrete() || node.table() == nullptr) continue;
    const k_category_t c = node.category();
    if (c != K_CATEGORY_CHANCE && c != K_CATEGORY_FUNCTION && c != K_CATEGORY_DECISION) continue;
    fixed = fixed && c != K_CATEGORY_DECISION;
    tables_.push_back(
        {update_of(slot->assigned_plan), node.table(), c == K_CATEGORY_DECISION ? &node : nullptr});
  }
  for (const ComponentSlot& slot : forest.components) {
    if (slot.assigned != &clique) continue;
    fixed = false;
    tables_.push_back({update_of(slot.assigned_plan), slot.component->table.get(), nullptr});
  }
  s.tables_end = tables_.size();
  s.homes = homes_.size();
  for (NodeSlot* slot : clique.homed)
    homes_.push_back({slot, update_of(slot->home_plan), fold_of(slot->home_plan)});
  s.homes_end = homes_.size();
  const auto [first, end] = tree.link_children(i);
  s.children = first;
  s.children_end = end;
  if (i != JunctionTree::kNoLink) {
    s.separator = tree.schedule[i].separator;
    s.out = fold_of(*tree.schedule[i].outer_plan);
    s.in = update_of(*tree.schedule[i].outer_plan);
    s.quotient_in = quotient_product_kernel(*tree.schedule[i].outer_plan);
  } else {
    s.in = update_of(clique.total_plan);
  }
  s.child_folds = child_folds_.size();
  for (std::size_t j = first; j < end; ++j) {
    const Fold& f = children_[j].fold;
    if (f.kernel == nullptr) s.totals = true;
    else child_folds_.push_back({f.kernel, f.plan, &children_[j].separator->scratch});
  }
  s.child_folds_end = child_folds_.size();
  s.home_folds = home_folds_.size();
  for (std::size_t k = s.homes; k < s.homes_end; ++k) {
    const Fold& f = homes_[k].fold;
    if (f.kernel == nullptr) s.totals = true;
    else home_folds_.push_back({f.kernel, f.plan, &homes_[k].slot->marginal});
  }
  s.home_folds_end = home_folds_.size();
  const std::uint64_t size = clique.table->size();
  s.collect = size < kOneBlock;
  s.receive = size <= kStackQuotients;
  if (s.collect && fixed && s.tables_end > s.tables) {
    s.base = bases_size_;
    bases_size_ += size;
  }
  return s;
}

void SweepPlan::ready(const JunctionTree& tree, Reduce how) {
  const std::uint64_t changes = tree.domain->table_changes();
  const bool wide = wide_rows();
  if (made_ && root_clique_ == tree.schedule_root && links_count_ == tree.schedule.size() &&
      table_changes_ == changes && how_ == how && wide_ == wide)
    return;
  made_ = false;
  how_ = how;
  quotient_ = quotient_kernel();
  links_.clear();
  tables_.clear();
  homes_.clear();
  children_.clear();
  child_folds_.clear();
  home_folds_.clear();
  bases_size_ = 0;
  const auto& schedule = tree.schedule;
  for (const JunctionTree::Message& link : schedule)
    children_.push_back({link.separator, update_of(*link.inner_plan), fold_of(*link.inner_plan)});
  for (std::size_t i = 0; i < schedule.size(); ++i)
    links_.push_back(steps_of(tree, *schedule[i].outer, i));
  root_ = steps_of(tree, *tree.schedule_root, JunctionTree::kNoLink);
  if (bases_size_ > bases_room_) {  // another root may need more room, never less
    bases_.reset(new double[bases_size_]);
    bases_room_ = bases_size_;
  }
  root_clique_ = tree.schedule_root;
  links_count_ = schedule.size();
  table_changes_ = changes;
  wide_ = wide;
  made_ = true;
}

// Inlined into the collect pass, which calls it once per link.
[[gnu::always_inline]] inline void SweepPlan::collect(JunctionTree& tree, std::size_t i,
                                                      double* out, const Parallelism& par) {
  Steps& s = i == JunctionTree::kNoLink ? root_ : links_[i];
  Clique& clique = *s.clique;
  if (!s.collect) {
    const auto [first, end] = tree.link_children(i);
    const IndexPlan* out_plan = i == JunctionTree::kNoLink ? nullptr : s.out.plan;
    return collect_sweep(tree, clique, first, end, out_plan, out, how_, par);
  }
  double* large = clique.table->data();
  const std::uint64_t n = clique.table->size();
  // After a rebuild the first factor is copied in (1 * x is x).
  bool copy = tree.sweep_rebuild;
  auto apply = [&](const Update& u, const double* data) {
    (copy ? u.copy : u.multiply)(*u.plan, large, data, 0, n);
    copy = false;
  };
  if (tree.sweep_rebuild) {
    double* base = s.base == kNoBase ? nullptr : bases_.get() + s.base;
    if (base != nullptr && s.base_made) {
      // The same products as the first rebuild made, in the same order.
      std::memcpy(large, base, n * sizeof(double));
      copy = false;
    } else {
      for (std::size_t k = s.tables; k < s.tables_end; ++k) {
        const TableFactor& t = tables_[k];
        if (t.decision != nullptr && !is_node_factor(*t.decision)) continue;
        apply(t.update, t.table->data());
      }
      if (base != nullptr) {
        std::memcpy(base, large, n * sizeof(double));
        s.base_made = true;
      }
    }
  }
  if (tree.sweep_entered) {
    for (std::size_t k = s.homes; k < s.homes_end; ++k) {
      NodeSlot& slot = *homes_[k].slot;
      const Evidence& ev = slot.node->evidence;
      if (ev.entered_code == Evidence::kNone) continue;
      double* f = slot.evidence_factor.data();
      evidence_vector(ev.entered_code, ev.entered_vector, slot.evidence_factor.size(), f);
      apply(homes_[k].update, f);
    }
  } else {
    for (std::size_t k = s.homes; k < s.homes_end; ++k) {
      NodeSlot& slot = *homes_[k].slot;
      if (!slot.factor_waiting) continue;
      apply(homes_[k].update, slot.evidence_factor.data());
      slot.factor_waiting = false;
    }
  }
  // After a rebuild, unscaled, a child's message is its new separator table.
  const bool direct = tree.sweep_rebuild && !tree.domain->scaled_propagation;
  for (std::size_t j = s.children_end; j-- > s.children;) {
    Separator& sep = *children_[j].separator;
    apply(children_[j].update, direct ? sep.table->data() : sep.scratch.data());
  }
  if (copy) std::fill(large, large + n, 1.0);
  if (out == nullptr) return;
  if (s.out.kernel == nullptr) return marginalize(*s.out.plan, large, out, how_, par);
  s.out.kernel(*s.out.plan, large, out, 0, n);
}

void SweepPlan::collect_root(JunctionTree& tree, const Parallelism& par) {
  collect(tree, JunctionTree::kNoLink, nullptr, par);
}

double SweepPlan::collect_links(JunctionTree& tree, CollectMemo* memo, const Parallelism& par) {
  const bool scaled = tree.domain->scaled_propagation;
  double log_scale = 0.0;
  double scale = 1.0;
  const auto& schedule = tree.schedule;
  for (std::size_t i = links_.size(); i-- > 0;) {
    // The collect goes from the last link to the first (see fetch()).
    if (i >= 3) {
      fetch(&schedule[i - 3].outer->table);
      fetch(&schedule[i - 3].separator->table);
      if (memo != nullptr) memo->prefetch_record(i - 3);
    }
    if (i >= 2) {
      schedule[i - 2].outer->table->prefetch();
      schedule[i - 2].separator->table->prefetch();
      if (memo != nullptr) memo->prefetch_copy(i - 2);
    }
    if (i >= 1) {
      if (links_[i - 1].collect) fetch_data<true>(*schedule[i - 1].outer->table);
      fetch_data<true>(*schedule[i - 1].separator->table);
      if (memo != nullptr) memo->prefetch_digits(i - 1);
    }
    if (memo != nullptr && memo->restore(tree, i)) continue;
    const JunctionTree::Message& link = schedule[i];
    Separator& sep = *link.separator;
    double* fresh = tree.sweep_rebuild ? sep.table->data() : sep.scratch.data();
    collect(tree, i, fresh, par);
    if (how_ == Reduce::max) verify_total(clique_total(*link.outer, how_, par));
    take_collected(sep, fresh, link.outer_plan->small_size(), tree.sweep_rebuild,
                   scaled ? &scale : nullptr);
    if (memo != nullptr) memo->keep(tree, i);
    if (scaled) log_scale += std::log(scale);
  }
  return log_scale;
}

// Inlined into the distribute pass, which calls it once per link, with the
// lists' starts held in registers across the kernels' calls.
[[gnu::always_inline]] inline void SweepPlan::fold(const Steps& s, const double* large,
                                                   std::uint64_t n, const Folds& folds,
                                                   const Parallelism& par) {
  // Each kernel clears its small table before folding into it.
  const auto* const child_end = folds.children + s.child_folds_end;
  for (const auto* f = folds.children + s.child_folds; f != child_end; ++f)
    f->kernel(*f->plan, large, f->to->data(), 0, n);
  const auto* const home_end = folds.homes + s.home_folds_end;
  for (const auto* f = folds.homes + s.home_folds; f != home_end; ++f)
    f->kernel(*f->plan, large, f->to->data(), 0, n);
  if (s.totals) fold_totals(s, large, par);
}

void SweepPlan::fold_totals(const Steps& s, const double* large, const Parallelism& par) {
  // Totals are folded after the other folds, as sweep() folds them.
  for (std::size_t j = s.children; j < s.children_end; ++j)
    if (children_[j].fold.kernel == nullptr)
      marginalize(*children_[j].fold.plan, large, children_[j].separator->scratch.data(), how_,
                  par);
  for (std::size_t k = s.homes; k < s.homes_end; ++k)
    if (homes_[k].fold.kernel == nullptr)
      marginalize(*homes_[k].fold.plan, large, homes_[k].slot->marginal.data(), how_, par);
}

void SweepPlan::distribute_root(JunctionTree& tree, const double* factor, const Parallelism& par) {
  Clique& root = *root_.clique;
  if (!root_.collect) {
    return distribute_sweep(tree, root, root.total_plan, factor, root_.children, root_.children_end,
                            how_, par);
  }
  double* large = root.table->data();
  const std::uint64_t n = root.table->size();
  root_.in.multiply(*root_.in.plan, large, factor, 0, n);
  fold(root_, large, n, {child_folds_.data(), home_folds_.data()}, par);
}

void SweepPlan::distribute(JunctionTree& tree, const Parallelism& par) {
  const Folds folds{child_folds_.data(), home_folds_.data()};
  const Steps* const end = links_.data() + links_.size();
  std::size_t i = 0;
  // Calls fetch_one on each fold of the distribute sweep of `n` but totals.
  auto each_fold = [folds](const Steps& n, auto fetch_one) {
    for (std::size_t k = n.child_folds; k < n.child_folds_end; ++k) fetch_one(folds.children[k]);
    for (std::size_t k = n.home_folds; k < n.home_folds_end; ++k) fetch_one(folds.homes[k]);
  };
  for (const Steps* s = links_.data(); s != end; ++s, ++i) {
    // See fetch(): the records, the tables, then the data.
    if (end - s > 3) {
      const Steps& n = s[3];
      fetch(&n.separator->table);
      fetch(&n.separator->scratch);
      fetch(&n.clique->table);
      fetch(n.in.plan);
      each_fold(n, [](const auto& f) {
        fetch(f.plan);
        fetch(f.to);
      });
    }
    if (end - s > 2) {
      const Steps& n = s[2];
      n.separator->table->prefetch();
      n.clique->table->prefetch();
      fetch(n.separator->scratch.data());
      fetch_plan(*n.in.plan);
      each_fold(n, [](const auto& f) {
        fetch_plan(*f.plan);
        fetch(f.to->data());
      });
    }
    if (end - s > 1 && s[1].receive) {
      fetch_data<false>(*s[1].separator->table);
      fetch_data<true>(*s[1].clique->table);
    }
    if (!s->receive) {
      receive_sweep(tree, i, s->children, s->children_end, how_, par);
      continue;
    }
    Separator& sep = *s->separator;
    // The new values become the table's; the old ones are left in the scratch.
    sep.table->swap_data(sep.scratch);
    Table& clique = *s->clique->table;
    double* large = clique.data();
    const std::uint64_t n = clique.size();
    if (s->quotient_in != nullptr) {
      s->quotient_in(*s->in.plan, large, sep.table->data(), sep.scratch.data(), n);
    } else {
      double quotients[kStackQuotients];
      quotient_(quotients, sep.table->data(), sep.scratch.data(), sep.table->size());
      s->in.multiply(*s->in.plan, large, quotients, 0, n);
    }
    fold(*s, large, n, folds, par);
  }
}

}  // namespace kelva
