#include "inference/propagate.h"

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <cmath>
#include <exception>

#include "compile/junction_forest.h"
#include "inference/cg_propagate.h"
#include "inference/clique_ops.h"
#include "inference/clique_sweeps.h"
#include "inference/collect_memo.h"
#include "inference/evidence.h"
#include "inference/policy_update.h"
#include "inference/sweep_plan.h"
#include "inference/tree_values.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "platform/worker_pool.h"
#include "table/sweep.h"
#include "table/table.h"

namespace kelva {

namespace {

// Set while a tree is propagated for policy values only.
thread_local bool skip_state_utilities = false;

// Whether trees that fit take the sweeps of clique_sweeps.h.
std::atomic<bool> fused_sweeps{true};

// Whether one-thread sweeps go through the tree's SweepPlan.
std::atomic<bool> sweep_plans{true};

bool is_chance_only(const Domain& domain) noexcept {
  return domain.count(K_CATEGORY_DECISION) == 0 && domain.count(K_CATEGORY_UTILITY) == 0 &&
         domain.count(K_CATEGORY_FUNCTION) == 0;
}

// The checks made before any table is touched, in their documented order.
void verify_request(const Domain& domain, k_equilibrium_t equilibrium, k_evidence_mode_t mode) {
  require((equilibrium == K_EQUILIBRIUM_SUM || equilibrium == K_EQUILIBRIUM_MAX) &&
          (mode == K_MODE_NORMAL || mode == K_MODE_FAST_RETRACTION));
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  if (equilibrium != K_EQUILIBRIUM_SUM || mode != K_MODE_NORMAL) {
    // Max-marginals of densities mean nothing: a CG domain has sum alone.
    require(is_chance_only(domain) &&
            (equilibrium == K_EQUILIBRIUM_SUM || domain.continuous_count() == 0));
    require(!(mode == K_MODE_FAST_RETRACTION && domain.is_compressed()), K_ERROR_COMPRESSED);
  }
  if (domain.count(K_CATEGORY_DECISION) == 0) return;
  for (const Node* node = domain.first_node(); node != nullptr; node = node->next) {
    // Evidence on a decision node must be an instantiation.
    if (node->category() == K_CATEGORY_DECISION)
      require(node->evidence.entered_code != Evidence::kVector, K_ERROR_INVALID_EVIDENCE);
  }
}

std::size_t clique_count(const JunctionTree& tree) noexcept {
  std::size_t n = 0;
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) ++n;
  return n;
}

const IndexPlan* plan_of(const Clique* clique, const Separator& sep) noexcept {
  return sep.parent == clique ? &sep.parent_plan : &sep.child_plan;
}

// Orders the tree's links root-first from `root` (breadth first, using the
// schedule itself as the queue); allocates nothing once reserved.
void build_schedule(JunctionTree& tree, Clique* root) {
  auto& schedule = tree.schedule;
  schedule.clear();
  auto push_links = [&schedule](Clique* clique, const Clique* from, std::size_t parent) {
    const std::size_t start = schedule.size();
    for (const Clique::Link& link : clique->links) {
      if (link.neighbour == from) continue;
      const IndexPlan* inner_plan = plan_of(clique, *link.separator);
      std::size_t twin = schedule.size();
      for (std::size_t k = start; k < schedule.size(); ++k)
        if (schedule[k].inner_plan->same_walk(*inner_plan)) {
          twin = k;
          break;
        }
      schedule.push_back({clique, link.neighbour, link.separator, inner_plan,
                          plan_of(link.neighbour, *link.separator), parent, JunctionTree::kNoLink,
                          schedule.size() == start, twin});
    }
  };
  push_links(root, nullptr, JunctionTree::kNoLink);
  for (std::size_t i = 0; i < schedule.size(); ++i) {
    const std::size_t start = schedule.size();
    push_links(schedule[i].outer, schedule[i].inner, i);
    if (schedule.size() > start) schedule[i].first_child = start;
  }
  tree.schedule_root = root;
}

// A table operation may ask for up to the concurrency level of threads;
// the pool starts them now rather than in some later propagation.
void start_workers(const Domain& domain) {
  const std::uint64_t threads = std::min<std::uint64_t>(domain.concurrency_level, 64);
  platform::WorkerPool& pool = platform::WorkerPool::shared();
  if (threads >= 2 && pool.worker_count() < threads - 1) {
    auto nothing = [](std::size_t) noexcept {};
    pool.run(threads, threads, nothing);
  }
}

// What prepare() makes the tree's room for now.
JunctionTree::Prepared preparation_of(const JunctionTree& tree) noexcept {
  const Domain& domain = *tree.domain;
  return {true, domain.table_changes(), domain.forest()->compressed.get(),
          domain.count(K_CATEGORY_UTILITY), sweeps_fit(tree)};
}

// The clique and separator tables of `tree` not made yet, and the
// separators' scratch, made together: those of 64 KiB to 1 MiB then share
// huge pages (DoubleBuffer::zeros_together).  On 4 KiB pages each sweep of
// them walked a page table entry every 4 KiB.
void make_tables_together(JunctionTree& tree) {
  std::vector<Table*> tables;
  std::vector<Separator*> scratch;
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) {
    Clique& clique = **c;
    if (!clique.table->has_data()) tables.push_back(clique.table.get());
    for (const Clique::Link& link : clique.links) {
      Separator& sep = *link.separator;
      if (sep.child != &clique) continue;  // each separator once
      if (!sep.table->has_data()) tables.push_back(sep.table.get());
      if (sep.scratch.size() != sep.table->size()) scratch.push_back(&sep);
    }
  }
  std::vector<std::uint64_t> counts;
  counts.reserve(tables.size() + scratch.size());
  for (const Table* t : tables) counts.push_back(t->size());
  for (const Separator* sep : scratch) counts.push_back(sep->table->size());
  std::vector<DoubleBuffer> made = DoubleBuffer::zeros_together(counts);
  for (std::size_t k = 0; k < tables.size(); ++k) tables[k]->swap_data(made[k]);
  for (std::size_t k = 0; k < scratch.size(); ++k)
    scratch[k]->scratch = std::move(made[tables.size() + k]);
}

// Everything propagation writes into, made once: table data, scratch,
// plans, marginals and the room of the propagated evidence vectors.  A
// tree already prepared for the same tables, compression, utility nodes
// and sweeps is not walked again (a propagation per data row would spend
// a fifteenth of its time here).
void prepare(JunctionTree& tree) {
  const JunctionTree::Prepared wanted = preparation_of(tree);
  if (tree.prepared == wanted) {
    start_workers(*tree.domain);
    return;
  }
  tree.prepared.done = false;
  Forest& forest = *tree.domain->forest();
  const std::size_t links = clique_count(tree);
  if (tree.schedule.capacity() < links) {
    tree.schedule.reserve(links);
    tree.split_role.reserve(links);
    tree.split_links.reserve(links);
    tree.split_starts.reserve(links + 1);
    tree.split_scales.reserve(links);
    tree.split_weight.reserve(links);
    tree.split_group.reserve(links);
  }
  // Compressed tables keep their data and scratch in Forest::compressed.
  if (!forest.compressed) make_tables_together(tree);
  for (Clique* const* c = tree.cliques.data(); *c != nullptr && !forest.compressed; ++c) {
    Clique& clique = **c;
    if (clique.total_plan.large_size() != clique.table->size())
      clique.total_plan = IndexPlan(clique.table->state_counts(), {});
  }
  const bool utilities = tree.domain->count(K_CATEGORY_UTILITY) > 0;
  std::uint64_t largest = 0;
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c)
    largest = std::max(largest, (*c)->table->size());
  if (utilities && tree.utility_scratch.size() < largest) tree.utility_scratch.resize(largest);
  std::size_t most_states = 1;
  for (NodeSlot& slot : forest.nodes) {
    if (slot.tree != &tree || slot.node == nullptr) continue;
    Node& node = *slot.node;
    if (node.is_discrete()) {
      const std::size_t n = node.state_count();
      if (slot.marginal.size() != n) slot.marginal.assign(n, 0.0);
      if (utilities && slot.expected_utility.size() != n) slot.expected_utility.assign(n, 0.0);
      if (node.evidence.propagated_vector.capacity() < n)
        node.evidence.propagated_vector.reserve(n);
      if (n > most_states) most_states = n;
    } else if (node.category() == K_CATEGORY_UTILITY) {
      if (slot.expected_utility.size() != 1) slot.expected_utility.assign(1, 0.0);
    }
    if (node.table() != nullptr) node.table()->data();
  }
  if (tree.evidence_scratch.size() < most_states) tree.evidence_scratch.resize(most_states);
  if (wanted.sweeps) prepare_sweeps(tree);
  start_workers(*tree.domain);
  tree.prepared = wanted;
}

// Whether the change from the propagated to the entered evidence of a
// discrete node can be multiplied in: no state excluded before is allowed
// again, and the evidence is not retracted.
bool absorbable(const Node& node) noexcept {
  const Evidence& ev = node.evidence;
  if (ev.entered_code == Evidence::kNone) return ev.propagated_code == Evidence::kNone;
  for (std::size_t i = 0; i < node.state_count(); ++i)
    if (evidence_entry(ev.entered_code, ev.entered_vector, i) > 0.0 &&
        evidence_entry(ev.propagated_code, ev.propagated_vector, i) == 0.0)
      return false;
  return true;
}

// Multiplies the entered evidence of every discrete node of the tree into
// its home clique.
void multiply_entered_evidence(JunctionTree& tree, const Parallelism& par) {
  Forest& forest = *tree.domain->forest();
  double* v = tree.evidence_scratch.data();
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
    const Node& node = **p;
    if (!node.is_discrete() || node.evidence.entered_code == Evidence::kNone) continue;
    const NodeSlot* slot = forest.slot(node);
    if (slot == nullptr || slot->home == nullptr) continue;
    evidence_vector(node.evidence.entered_code, node.evidence.entered_vector, node.state_count(),
                    v);
    multiply_into_home(*slot, v, par);
  }
}

// Normal mode without re-initialisation: multiplies new / old evidence of
// every node whose evidence changed into its home clique (states excluded
// before stay excluded).
void absorb_new_evidence(JunctionTree& tree, const Parallelism& par) {
  Forest& forest = *tree.domain->forest();
  double* r = tree.evidence_scratch.data();
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
    const Node& node = **p;
    if (!node.is_discrete() || !evidence_to_propagate(node)) continue;
    const NodeSlot* slot = forest.slot(node);
    if (slot == nullptr || slot->home == nullptr) continue;
    const Evidence& ev = node.evidence;
    for (std::size_t i = 0; i < node.state_count(); ++i) {
      const double o = evidence_entry(ev.propagated_code, ev.propagated_vector, i);
      const double n = evidence_entry(ev.entered_code, ev.entered_vector, i);
      r[i] = o != 0.0 ? n / o : 0.0;
    }
    multiply_into_home(*slot, r, par);
  }
}

// Link roles of a split schedule.
constexpr std::uint8_t kFirstThread = 0;   // propagated by the calling thread
constexpr std::uint8_t kSecondThread = 1;  // inside a subtree of the second thread
constexpr std::uint8_t kJoin = 2;          // joins such a subtree to the rest

// A tree is shared between two threads when its cliques hold at least this
// many grains of entries.
constexpr std::uint64_t kSplitGrains = 16;

// Shares the schedule between two threads: whole subtrees, about half of
// the clique entries, go to the second thread; the calling thread keeps the
// rest and the links that join those subtrees to it.  Every clique is then
// touched by one thread only, in the order one thread would, so the split
// changes no bit.  Leaves no groups when the tree is too small or cannot
// be split well.
void build_split(JunctionTree& tree, std::uint64_t grain) {
  const auto& schedule = tree.schedule;
  const std::size_t n = schedule.size();
  constexpr std::size_t kNone = JunctionTree::kNoLink;
  tree.split_root = tree.schedule_root;
  tree.split_grain = grain;
  tree.split_links.clear();
  tree.split_starts.clear();
  tree.split_role.assign(n, kFirstThread);
  tree.split_scales.assign(n, 1.0);
  // Entries of each link's subtree (its outer clique and everything beyond).
  // Nothing is allocated: the tree's room was reserved with its schedule.
  auto& weight = tree.split_weight;
  weight.assign(n, 0);
  std::uint64_t total = tree.schedule_root->table->size();
  for (std::size_t i = n; i-- > 0;) {
    weight[i] += schedule[i].outer->table->size();
    if (schedule[i].parent != kNone) weight[schedule[i].parent] += weight[i];
    else total += weight[i];
  }
  if (n < 2 || total / kSplitGrains < grain) return;
  // Take the heaviest subtree that fits into half the entries; open one
  // that does not (its clique stays with the calling thread).
  const std::uint64_t half = total / 2;
  std::uint64_t taken = 0;
  auto& open = tree.split_links;  // the subtrees still to be considered
  for (std::size_t i = 0; i < n && schedule[i].parent == kNone; ++i) open.push_back(i);
  while (!open.empty() && taken < half) {
    const auto heaviest = std::max_element(open.begin(), open.end(),
                                           [&](auto a, auto b) { return weight[a] < weight[b]; });
    const std::size_t h = *heaviest;
    open.erase(heaviest);
    if (taken + weight[h] <= half + half / 8) {
      tree.split_role[h] = kJoin;
      taken += weight[h];
    } else {
      const auto [first, end] = tree.link_children(h);
      for (std::size_t j = first; j < end; ++j) open.push_back(j);
    }
  }
  if (taken < total / 8) {
    tree.split_role.assign(n, kFirstThread);
    return;
  }
  // Group the second thread's links by subtree, in schedule order.
  auto& group = tree.split_group;
  group.assign(n, kNone);
  std::size_t groups = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t p = schedule[i].parent;
    if (tree.split_role[i] == kJoin) {
      group[i] = groups++;
    } else if (p != kNone && group[p] != kNone) {
      tree.split_role[i] = kSecondThread;
      group[i] = group[p];
    }
  }
  tree.split_starts.assign(groups + 1, 0);
  for (std::size_t i = 0; i < n; ++i)
    if (tree.split_role[i] == kSecondThread) ++tree.split_starts[group[i] + 1];
  for (std::size_t g = 0; g < groups; ++g) tree.split_starts[g + 1] += tree.split_starts[g];
  tree.split_links.assign(tree.split_starts.back(), 0);
  auto& fill = weight;  // the next free place of each group
  fill.assign(tree.split_starts.begin(), tree.split_starts.end() - 1);
  for (std::size_t i = 0; i < n; ++i)
    if (tree.split_role[i] == kSecondThread) tree.split_links[fill[group[i]]++] = i;
}

// Sends the collect message of schedule link i (see calibrate).  With
// `fused`, the outer clique is made in one sweep (clique_sweeps.h) and its
// marginal passed on; the inner clique takes it in its own sweep.
void collect_link(JunctionTree& tree, std::size_t i, Reduce how, const Parallelism& par,
                  double* scale, bool fused) {
  const auto& schedule = tree.schedule;
  const JunctionTree::Message& link = schedule[i];
  if (fused) {
    const auto [first, end] = tree.link_children(i);
    Separator& sep = *link.separator;
    double* fresh = tree.sweep_rebuild ? sep.table->data() : sep.scratch.data();
    collect_sweep(tree, *link.outer, first, end, link.outer_plan, fresh, how, par);
    if (how == Reduce::max) verify_total(clique_total(*link.outer, how, par));
    take_collected(sep, fresh, link.outer_plan->small_size(), tree.sweep_rebuild, scale);
    return;
  }
  if (how == Reduce::max) verify_total(clique_total(*link.outer, how, par));
  const JunctionTree::Message* next =
      link.first_out && link.parent != JunctionTree::kNoLink ? &schedule[link.parent] : nullptr;
  send_message(link, false, how, par, link.first_child != JunctionTree::kNoLink,
               next != nullptr ? next->separator : nullptr,
               next != nullptr ? next->outer_plan : nullptr, scale);
}

// Sends the distribute message of schedule link i.  With `fused`, the
// sender's marginal was made by its own sweep, and the receiver's sweep
// makes those of all its children.
void distribute_link(JunctionTree& tree, std::size_t i, Reduce how, const Parallelism& par,
                     bool fused) {
  const auto& schedule = tree.schedule;
  const JunctionTree::Message& link = schedule[i];
  if (fused) {
    const auto [first, end] = tree.link_children(i);
    receive_sweep(tree, i, first, end, how, par);
    return;
  }
  const JunctionTree::Message* next =
      link.first_child != JunctionTree::kNoLink ? &schedule[link.first_child] : nullptr;
  send_message(link, true, how, par, link.first_out && link.parent != JunctionTree::kNoLink,
               next != nullptr ? next->separator : nullptr,
               next != nullptr ? next->inner_plan : nullptr);
}

// Runs first(), on some thread, beside second(), which may wait for what
// first() has done; rethrows first()'s error, else second()'s.  When no
// second thread can be had, first() runs before second() on this thread.
template <class First, class Second>
void run_pair(First first, Second second, std::atomic<std::size_t>& progress) {
  std::exception_ptr errors[2];
  auto task = [&](std::size_t piece) noexcept {
    try {
      if (piece == 0) first();
      else second();
    } catch (...) {
      errors[piece] = std::current_exception();
    }
    // A failed side lets the other stop waiting.
    if (errors[piece]) {
      progress.store(JunctionTree::kNoLink, std::memory_order_release);
      progress.notify_all();
    }
  };
  platform::WorkerPool::shared().run(2, 2, task);
  if (errors[0]) std::rethrow_exception(errors[0]);
  if (errors[1]) std::rethrow_exception(errors[1]);
}

// Waits until `progress` reaches `count`; false when a side failed.
bool wait_for(std::atomic<std::size_t>& progress, std::size_t count) noexcept {
  for (std::size_t seen = progress.load(std::memory_order_acquire); seen < count;
       seen = progress.load(std::memory_order_acquire))
    progress.wait(seen, std::memory_order_acquire);
  return progress.load(std::memory_order_acquire) != JunctionTree::kNoLink;
}

void advance(std::atomic<std::size_t>& progress) noexcept {
  progress.fetch_add(1, std::memory_order_release);
  progress.notify_all();
}

// Collect and distribute shared between two threads (see build_split):
// the second thread collects its subtrees while the calling thread collects
// the rest, joining each subtree once it is done; the calling thread then
// distributes and hands each subtree over as soon as its joining link has
// sent.  Table operations run on one thread each, one kernel per operation
// (trees that take the sweeps share each large clique instead).  Returns
// the log of the collect's scale factors, summed in schedule order.
double collect_split(JunctionTree& tree, Reduce how, const Parallelism& par, bool scaled) {
  const Parallelism one{1, par.grain};
  const auto& role = tree.split_role;
  const auto& links = tree.split_links;
  const auto& starts = tree.split_starts;
  const std::size_t groups = starts.size() - 1;
  double* scales = tree.split_scales.data();
  std::atomic<std::size_t> done{0};  // subtrees collected, last group first
  run_pair(
      [&] {
        for (std::size_t g = groups; g-- > 0;) {
          for (std::size_t k = starts[g + 1]; k-- > starts[g];)
            collect_link(tree, links[k], how, one, scaled ? &scales[links[k]] : nullptr, false);
          advance(done);
        }
      },
      [&] {
        std::size_t joined = 0;
        for (std::size_t i = role.size(); i-- > 0;) {
          if (role[i] == kSecondThread) continue;
          if (role[i] == kJoin && !wait_for(done, ++joined)) return;
          collect_link(tree, i, how, one, scaled ? &scales[i] : nullptr, false);
        }
      },
      done);
  double log_scale = 0.0;
  if (scaled)
    for (std::size_t i = role.size(); i-- > 0;) log_scale += std::log(scales[i]);
  return log_scale;
}

void distribute_split(JunctionTree& tree, Reduce how, const Parallelism& par) {
  const Parallelism one{1, par.grain};
  const auto& role = tree.split_role;
  const auto& links = tree.split_links;
  const auto& starts = tree.split_starts;
  std::atomic<std::size_t> sent{0};  // joining links sent, first group first
  run_pair(
      [&] {
        for (std::size_t i = 0; i < role.size(); ++i) {
          if (role[i] == kSecondThread) continue;
          distribute_link(tree, i, how, one, false);
          if (role[i] == kJoin) advance(sent);
        }
      },
      [&] {
        for (std::size_t g = 0; g + 1 < starts.size(); ++g) {
          if (!wait_for(sent, g + 1)) return;
          for (std::size_t k = starts[g]; k < starts[g + 1]; ++k)
            distribute_link(tree, links[k], how, one, false);
        }
      },
      sent);
}

// A tree that takes the sweeps is walked by two threads together
// (SharedPass) from this many grains of entries on; a smaller one with
// two links or more runs on one thread (pigs, 0.7 million entries, and
// andes, 0.4 million, took 1.5 times as long on two threads as on one).
constexpr std::uint64_t kSharedPassGrains = 100;

// Entries of the tree's cliques.
std::uint64_t tree_entries(const JunctionTree& tree) noexcept {
  std::uint64_t total = 0;
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) total += (*c)->table->size();
  return total;
}

// A sweep is shared between the threads (split_sweep) when the other
// thread waits for work, when the links not yet taken that wait for none
// of its own hold fewer entries than it (the other thread would run out of
// work before it ends: in barley's distribute one thread spun 1.3 ms while
// the other swept a 1.04 M-entry clique alone that the rest of the pass
// waited for), or always when the clique holds at least this part of the
// tree's entries: the other thread then joins it as soon as its own link
// is sent.  Sharing costs walk starts and a pass for each
// fold the cut misses; a clique that fills an eighth of the tree would
// keep the other thread waiting at the end of the pass (best of 8, 32,
// 128 and of 16, 64, 256 grains on link, barley, mildew, water, diabetes).
constexpr std::uint64_t kAlwaysShareFraction = 8;

// One pass of a tree that takes the sweeps, walked by two threads
// together: each takes a link whose input is ready (collect: the links of
// its outer clique's children have sent; distribute: its parent link
// has), sends it, and makes ready the link that waited for it.  A thread
// with nothing ready first joins the other's shared sweep, if any, else
// spins.  Every clique is swept once, by the kernels of one thread's
// pass, and every separator gets its message before it is read, so the
// bits are those of one thread in schedule order.  Uses the tree's split
// room (no allocation): split_links is the heap of ready links,
// split_group their ranks, split_weight each link's children still to
// send (collect) or the entries of its subtree (distribute), split_scales
// the collect's factors.
class SharedPass {
 public:
  SharedPass(JunctionTree& tree, std::uint64_t entries, bool collect, Reduce how,
             const Parallelism& par, bool scaled)
      : tree_(tree), entries_(entries), collect_(collect), how_(how), par_(par), scaled_(scaled) {
    const auto& schedule = tree.schedule;
    const std::size_t n = schedule.size();
    tree.split_root = nullptr;  // the subtree split must be made again
    tree.split_links.assign(n, 0);
    tree.split_weight.assign(n, 0);
    tree.split_scales.assign(n, 1.0);
    // Each link's rank: the entries of the longest chain of sweeps that
    // waits for it, its own included (collect: the path to the root;
    // distribute: the heaviest path down to a leaf).  Ready links are taken
    // highest rank first, so that the last sweeps of a pass are short ones
    // on different branches, not a long chain that one thread walks alone.
    auto& rank = tree.split_group;
    rank.assign(n, 0);
    auto size = [&](std::size_t i) { return schedule[i].outer->table->size(); };
    if (collect) {
      // Parents come before their children in the schedule.
      for (std::size_t i = 0; i < n; ++i) {
        const std::size_t parent = schedule[i].parent;
        rank[i] = size(i) + (parent != JunctionTree::kNoLink ? rank[parent] : 0);
        const auto [first, end] = tree.link_children(i);
        tree.split_weight[i] = end - first;
        if (first == end) tree.split_links[top_++] = i;
      }
    } else {
      // split_weight: the entries of the sweeps that wait for the link,
      // its own included (its subtree).
      for (std::size_t i = n; i-- > 0;) {
        rank[i] += size(i);
        tree.split_weight[i] += size(i);
        const std::size_t parent = schedule[i].parent;
        if (parent != JunctionTree::kNoLink) {
          rank[parent] = std::max(rank[parent], rank[i]);
          tree.split_weight[parent] += tree.split_weight[i];
        }
      }
      const auto [first, end] = tree.link_children(JunctionTree::kNoLink);
      for (std::size_t i = first; i < end; ++i) tree.split_links[top_++] = i;
    }
    std::make_heap(tree.split_links.begin(), tree.split_links.begin() + top_, Lower{rank});
    for (std::size_t i = 0; i < n; ++i) unsent_ += size(i);
  }

  // Runs the pass on up to two threads; rethrows the error one thread
  // would meet first.
  void run() {
    auto task = [this](std::size_t) noexcept { work(); };
    platform::WorkerPool::shared().run(2, 2, task);
    if (error_) std::rethrow_exception(error_);
  }

  // The log of the collect's factors, summed as one thread sums them.
  double log_scale() const noexcept {
    double sum = 0.0;
    for (std::size_t i = tree_.schedule.size(); i-- > 0;) sum += std::log(tree_.split_scales[i]);
    return sum;
  }

 private:
  void lock() noexcept {
    while (busy_.test_and_set(std::memory_order_acquire)) platform::relax();
  }
  void unlock() noexcept { busy_.clear(std::memory_order_release); }

  // Orders the heap of ready links by rank.
  struct Lower {
    const std::vector<std::size_t>& rank;
    bool operator()(std::size_t a, std::size_t b) const noexcept { return rank[a] < rank[b]; }
  };

  bool pop(std::size_t& link) noexcept {
    lock();
    const bool any = top_ > 0;
    if (any) {
      auto ready = tree_.split_links.begin();
      std::pop_heap(ready, ready + top_, Lower{tree_.split_group});
      link = tree_.split_links[--top_];
    }
    unlock();
    return any;
  }

  void push(std::size_t first, std::size_t end) noexcept {
    lock();
    auto ready = tree_.split_links.begin();
    for (std::size_t i = first; i < end; ++i) {
      tree_.split_links[top_++] = i;
      std::push_heap(ready, ready + top_, Lower{tree_.split_group});
    }
    unlock();
  }

  void send(std::size_t i) {
    const std::uint64_t size = tree_.schedule[i].outer->table->size();
    // Entries of the links not yet taken whose sweeps wait for none of
    // link i's: what the other thread can sweep while this one sweeps i.
    const std::uint64_t unsent = unsent_.fetch_sub(size, std::memory_order_relaxed);
    const std::uint64_t waits = collect_ ? tree_.split_group[i] : tree_.split_weight[i];
    const std::uint64_t apart = unsent - std::min(unsent, waits);
    const bool share =
        split_sweep_fits(size, par_) && (waiting_.load(std::memory_order_relaxed) > 0 ||
                                         size * kAlwaysShareFraction >= entries_ || apart < size);
    const Parallelism par{share ? par_.threads : 1, par_.grain};
    if (collect_)
      collect_link(tree_, i, how_, par, scaled_ ? &tree_.split_scales[i] : nullptr, true);
    else distribute_link(tree_, i, how_, par, true);
  }

  // Makes ready the links that waited for link i.
  void release(std::size_t i) noexcept {
    if (collect_) {
      const std::size_t parent = tree_.schedule[i].parent;
      if (parent != JunctionTree::kNoLink &&
          std::atomic_ref(tree_.split_weight[parent]).fetch_sub(1, std::memory_order_acq_rel) == 1)
        push(parent, parent + 1);
    } else {
      const auto [first, end] = tree_.link_children(i);
      push(first, end);
    }
  }

  void work() noexcept {
    const std::size_t n = tree_.schedule.size();
    std::uint64_t seen = 0;
    bool waiting = false;
    while (sent_.load(std::memory_order_acquire) < n) {
      if (platform::WorkerPool::shared().help(seen)) continue;
      std::size_t i = 0;
      if (!pop(i)) {
        if (!waiting) waiting_.fetch_add(1, std::memory_order_relaxed);
        waiting = true;
        platform::relax();
        continue;
      }
      if (waiting) waiting_.fetch_sub(1, std::memory_order_relaxed);
      waiting = false;
      try {
        send(i);
      } catch (...) {
        // The pass goes on, so that the error kept is the one that one
        // thread meets first.  Only the collect's checks of max totals
        // fail, and one thread collects backwards: the last failing link
        // in schedule order (links after it lie beyond it, so they get
        // the inputs they get on one thread and succeed).
        lock();
        if (!error_ || i > error_link_) {
          error_ = std::current_exception();
          error_link_ = i;
        }
        unlock();
      }
      release(i);
      sent_.fetch_add(1, std::memory_order_acq_rel);
    }
    if (waiting) waiting_.fetch_sub(1, std::memory_order_relaxed);
  }

  JunctionTree& tree_;
  const std::uint64_t entries_;  // of the tree's cliques
  const bool collect_;
  const Reduce how_;
  const Parallelism par_;
  const bool scaled_;
  std::size_t top_ = 0;  // ready links on the stack; guarded by busy_
  std::atomic_flag busy_;
  std::atomic<std::size_t> sent_{0};
  std::atomic<std::uint64_t> unsent_{0};  // entries of the links not yet taken
  std::atomic<int> waiting_{0};           // threads with nothing to do
  std::exception_ptr error_;              // the error one thread would meet; guarded by busy_
  std::size_t error_link_ = 0;
};

// Collect towards the root, normalization of the root and distribute; the
// root total x is checked, folded into the normalization constant and
// returned.  A clique that receives a message and then sends one has both
// done in one sweep: its marginal onto the next separator is computed
// while it is multiplied (in collect after its last child's message, in
// distribute onto its first child's separator).  With `fused` every
// clique is swept once per pass instead (clique_sweeps.h): the root after
// the collect, and again with the normalization when distributing.  With
// two threads or more, both walk each pass of a large tree that takes the
// sweeps (SharedPass), sharing large sweeps (split_sweep in
// table/sweep.h); trees without the sweeps are shared by subtrees
// (build_split).
//
// With `remember` (a rebuild with the entered evidence, unscaled sums), the
// one-thread collect goes through the tree's CollectMemo.
double calibrate(JunctionTree& tree, Reduce how, const Parallelism& threads, bool fused,
                 bool remember = false) {
  const auto& schedule = tree.schedule;
  // Trees that take the sweeps and hold enough entries are walked by two
  // threads together, pass by pass, and the root is swept between the
  // passes; smaller ones with more than one clique by one thread.
  Parallelism par = threads;
  // Counted only where two threads may share the passes.
  std::uint64_t entries = 0;
  bool shared = false;
  if (fused && par.threads >= 2 && schedule.size() >= 2) {
    entries = tree_entries(tree);
    shared = entries / kSharedPassGrains >= std::max<std::uint64_t>(par.grain, 1);
    if (!shared) par.threads = 1;
  }
  // Scaled propagation divides each collected message by its largest
  // entry and keeps the logarithms of those factors.
  const bool scaled = tree.domain->scaled_propagation;
  bool split = false;
  if (par.threads >= 2 && !tree.domain->forest()->compressed && !fused) {
    if (tree.split_root != tree.schedule_root || tree.split_grain != par.grain ||
        tree.split_role.size() != schedule.size())
      build_split(tree, par.grain);
    split = tree.split_starts.size() > 1;
  }
  double log_scale = 0.0;
  SweepPlan* plan = nullptr;
  tree.sweep_shared = shared;
  if (shared) {
    SharedPass pass(tree, entries, true, how, par, scaled);
    pass.run();
    log_scale = pass.log_scale();
  } else if (split) {
    log_scale = collect_split(tree, how, par, scaled);
  } else {
    // One thread sweeps the tree: through its plan of kernels.
    if (fused && par.threads < 2 && sweep_plans.load(std::memory_order_relaxed)) {
      if (!tree.sweep_plan) tree.sweep_plan.reset(new SweepPlan);
      plan = tree.sweep_plan.get();
      plan->ready(tree, how);
    }
    CollectMemo* memo = nullptr;
    if (remember) {
      if (!tree.collect_memo) tree.collect_memo.reset(new CollectMemo);
      memo = tree.collect_memo.get();
      memo->start(tree);
    }
    double scale = 1.0;
    if (plan != nullptr) log_scale = plan->collect_links(tree, memo, par);
    for (std::size_t i = schedule.size(); plan == nullptr && i-- > 0;) {
      if (memo != nullptr && memo->restore(tree, i)) continue;
      collect_link(tree, i, how, par, scaled ? &scale : nullptr, fused);
      if (memo != nullptr) memo->keep(tree, i);
      if (scaled) log_scale += std::log(scale);
    }
  }
  Clique& root = *tree.schedule_root;
  const auto [first, end] = tree.link_children(JunctionTree::kNoLink);
  if (plan != nullptr) plan->collect_root(tree, par);
  else if (fused) collect_sweep(tree, root, first, end, nullptr, nullptr, how, par);
  double x = clique_total(root, how, par);
  verify_total(x);
  const double inverse = 1.0 / x;
  if (plan != nullptr) plan->distribute_root(tree, &inverse, par);
  else if (fused) distribute_sweep(tree, root, root.total_plan, &inverse, first, end, how, par);
  else scale_clique(root, inverse, par);
  tree.log_normalization_constant += std::log(x) + log_scale;
  if (scaled) {
    // The constant follows from its logarithm: below the smallest double it
    // is 0, and the logarithm alone is kept.
    tree.normalization_constant = std::exp(tree.log_normalization_constant);
    x *= std::exp(log_scale);
  } else {
    tree.normalization_constant *= x;
  }
  if (shared) {
    SharedPass(tree, entries, false, how, par, scaled).run();
  } else if (split) {
    distribute_split(tree, how, par);
  } else if (plan != nullptr) {
    plan->distribute(tree, par);
  } else {
    for (std::size_t i = 0; i < schedule.size(); ++i) distribute_link(tree, i, how, par, fused);
  }
  return x;
}

// The factor of a node's evidence against its marginal P: P[k] for a
// selected state, the sum (or maximum) of P[i] * finding[i] otherwise.
double evidence_factor(const Node& node, const std::vector<double>& p, Reduce how) noexcept {
  const Evidence& ev = node.evidence;
  double f = 0.0;
  for (std::size_t i = 0; i < p.size(); ++i) {
    const double term = p[i] * evidence_entry(ev.entered_code, ev.entered_vector, i);
    f = how == Reduce::sum ? f + term : std::fmax(f, term);
  }
  return f;
}

// Expected utilities of the tree's discrete nodes, per state: the sum over
// the domain's utility nodes of E[U | state], where a utility node of
// another tree contributes its own expected utility.
void set_conditional_utilities(JunctionTree& tree, const Parallelism& par) {
  Forest& forest = *tree.domain->forest();
  double elsewhere = 0.0;
  for (const NodeSlot& slot : forest.nodes)
    if (slot.node != nullptr && slot.node->category() == K_CATEGORY_UTILITY && slot.tree != &tree &&
        slot.tree != nullptr && !slot.expected_utility.empty())
      elsewhere += slot.expected_utility[0];
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
    NodeSlot* slot = forest.slot(**p);
    if (slot != nullptr && (*p)->is_discrete())
      std::fill(slot->expected_utility.begin(), slot->expected_utility.end(), elsewhere);
  }
  Clique* root = tree.schedule_root;
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
    const NodeSlot* slot = forest.slot(**p);
    if (slot == nullptr || (*p)->category() != K_CATEGORY_UTILITY || slot->assigned == nullptr)
      continue;
    build_schedule(tree, slot->assigned);
    add_conditional_utilities(tree, *slot, par);
  }
  if (tree.schedule_root != root) build_schedule(tree, root);
}

// With `fused`, the sweeps have left the discrete nodes' marginals.
void set_results(JunctionTree& tree, Reduce how, const Parallelism& par, bool fused) {
  Forest& forest = *tree.domain->forest();
  const bool utilities = tree.domain->count(K_CATEGORY_UTILITY) > 0;
  // Swept discrete nodes have their marginals already: without utility
  // nodes the loop has nothing left to do (a pass per row of a batch).
  for (Node* const* p = tree.nodes.data(); (utilities || !fused) && *p != nullptr; ++p) {
    NodeSlot* slot = forest.slot(**p);
    if (slot == nullptr) continue;
    if ((*p)->is_discrete() && slot->home != nullptr) {
      if (!fused) node_marginal(*slot, how, par);
    } else if ((*p)->category() == K_CATEGORY_UTILITY && slot->assigned != nullptr &&
               !slot->expected_utility.empty())
      slot->expected_utility[0] = expected_utility(*slot);
  }
  cg_set_moments(tree, par);
  // Utility nodes come with sum equilibrium only.
  if (utilities && how == Reduce::sum && !skip_state_utilities)
    set_conditional_utilities(tree, par);
}

// Copies the entered evidence of the tree's nodes to their propagated
// evidence and recomputes the tree's evidence flags.
void record_propagated_evidence(JunctionTree& tree) {
  bool evidence = false;
  bool likelihood = false;
  bool cg = false;
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
    Node& node = **p;
    Evidence& ev = node.evidence;
    if (node.is_discrete()) {
      // note_propagated() of a discrete node, here without a call.  The
      // vector's room was reserved by prepare(): copying allocates nothing.
      if (ev.entered_code == Evidence::kVector) {
        ev.propagated_vector = ev.entered_vector;
        for (double v : ev.propagated_vector)
          if (v != 0.0 && v != 1.0) likelihood = true;
      }
      ev.propagated_code = ev.entered_code;
      if (ev.propagated_code != Evidence::kNone) evidence = true;
      continue;
    }
    note_propagated(node);
    if (node.is_continuous() && ev.propagated) evidence = cg = true;
  }
  tree.evidence_propagated = evidence;
  tree.likelihood_propagated = likelihood;
  tree.cg_evidence_propagated = cg;
  tree.evidence_to_propagate = 0;
}

// Folds the scale kept out of the continuous likelihoods into the
// normalization constant, which is then a density: one too small to
// represent is "low_density".
void scale_by_density(JunctionTree& tree) {
  const double scale = cg_log_scale(tree);
  if (scale == 0.0) return;
  tree.normalization_constant *= std::exp(scale);
  tree.log_normalization_constant += scale;
  if (!(tree.normalization_constant >= DBL_MIN)) throw Error(K_ERROR_LOW_DENSITY);
}

void reset_tree(JunctionTree& tree) noexcept {
  tree.needs_initialisation = true;
  tree.equilibrium = K_EQUILIBRIUM_NONE;
  // A pass that failed between the collect and the distribute leaves no
  // clique waiting to be made again.
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) (*c)->rebuild_pending = false;
}

void run_tree(JunctionTree& tree, Clique* root, k_equilibrium_t equilibrium,
              k_evidence_mode_t mode) {
  Domain& domain = *tree.domain;
  if (root == nullptr) root = tree.root;
  prepare(tree);
  if (tree.schedule_root != root) build_schedule(tree, root);

  const Reduce how = equilibrium == K_EQUILIBRIUM_MAX ? Reduce::max : Reduce::sum;
  const Parallelism par = Parallelism::of(domain);

  // A tree rebuilt anyway (as after initialising, case by case) needs no
  // test of whether the new evidence can be multiplied in.
  const bool rebuilt = tree.needs_initialisation || tree.tables_changed ||
                       tree.equilibrium == K_EQUILIBRIUM_NONE ||
                       tree.table_changes_seen != domain.table_changes();
  bool waiting = false;
  bool absorbs = true;
  bool involved = false;
  bool decision_changed = false;
  bool entered = false;
  // A rebuild reinitialises whatever waits; only fast retraction asks
  // whether any evidence is entered.  So a rebuild in another mode (every
  // case of a batch) needs no look at the nodes' evidence.
  const bool look = !rebuilt || mode == K_MODE_FAST_RETRACTION;
  for (Node* const* p = tree.nodes.data(); look && *p != nullptr; ++p) {
    const Node& node = **p;
    if (!node.is_discrete()) continue;
    const Evidence& ev = node.evidence;
    if (ev.entered_code != Evidence::kNone) entered = true;
    if (ev.entered_code != Evidence::kNone || ev.propagated_code != Evidence::kNone)
      involved = true;
    if (!evidence_to_propagate(node)) continue;
    waiting = true;
    if (!rebuilt && absorbs && !absorbable(node)) absorbs = false;
    if (node.category() == K_CATEGORY_DECISION) decision_changed = true;
  }
  if (look && domain.continuous_count() > 0) {
    // Continuous values are taken in by initialising the tree again.
    if (cg_evidence_waiting(tree)) {
      waiting = true;
      absorbs = false;
    }
    for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
      if (!(*p)->is_continuous()) continue;
      entered = entered || (*p)->evidence.entered;
      involved = involved || (*p)->evidence.entered || (*p)->evidence.propagated;
    }
  }
  const bool reinitialise = rebuilt || (mode != tree.mode && involved) || (waiting && !absorbs) ||
                            (decision_changed && domain.count(K_CATEGORY_DECISION) > 0) ||
                            (waiting && mode == K_MODE_FAST_RETRACTION);
  if (!reinitialise && !waiting && tree.equilibrium == equilibrium && tree.mode == mode) return;

  const bool was_valid = tree.equilibrium != K_EQUILIBRIUM_NONE;
  // The sweeps take in the node tables and the evidence during the collect.
  const bool fused = fused_sweeps.load(std::memory_order_relaxed) && sweeps_fit(tree);
  ++domain.analysis.calibrations;  // the clique tables change from here on
  try {
    for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c)
      (*c)->normalization_factor = (*c)->conflict_factor = 1.0;
    if (reinitialise) {
      if (fused)
        stage_sweeps(tree, true, mode == K_MODE_NORMAL ? Waiting::entered : Waiting::nothing);
      else initialise_cliques(tree, par);
      tree.normalization_constant = 1.0;
      tree.log_normalization_constant = 0.0;
      tree.table_changes_seen = domain.table_changes();
      tree.tables_changed = false;
      tree.needs_initialisation = false;
      cg_initialise(tree);
      if (mode == K_MODE_NORMAL && !fused) {
        multiply_entered_evidence(tree, par);
        cg_multiply_likelihoods(tree, par);
      }
    } else if (fused) {
      stage_sweeps(tree, false, waiting ? Waiting::change : Waiting::nothing);
    } else if (waiting) {
      absorb_new_evidence(tree, par);
    }

    // Fast retraction keeps the evidence apart from the node tables: the
    // tree is first brought to equilibrium without it, which gives each
    // node's evidence factor against its prior marginal, and the evidence
    // is then multiplied in.
    double evidence_factors = 1.0;
    if (mode == K_MODE_FAST_RETRACTION && reinitialise && entered) {
      calibrate(tree, how, par, fused);
      Forest& forest = *domain.forest();
      for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
        const Node& node = **p;
        if (!node.is_discrete() || node.evidence.entered_code == Evidence::kNone) continue;
        NodeSlot* slot = forest.slot(node);
        if (slot == nullptr || slot->home == nullptr) continue;
        node_marginal(*slot, how, par);
        evidence_factors *= evidence_factor(node, slot->marginal, how);
      }
      if (fused) {
        stage_sweeps(tree, false, Waiting::entered);
      } else {
        multiply_entered_evidence(tree, par);
        cg_multiply_likelihoods(tree, par);
      }
    }

    // After a rebuild with the entered evidence, what a collect makes
    // depends on the node tables and that evidence alone.
    const bool remember = fused && reinitialise && mode == K_MODE_NORMAL && how == Reduce::sum &&
                          !domain.scaled_propagation;
    const double x = calibrate(tree, how, par, fused, remember);
    if (reinitialise) scale_by_density(tree);
    Clique& top = *tree.schedule_root;
    if (was_valid) top.normalization_factor /= x;
    if (mode == K_MODE_FAST_RETRACTION) top.normalization_factor *= evidence_factors;
    top.conflict_factor = evidence_factors / x;
    tree.conflict = top.conflict_factor;
    tree.last_root = &top;

    set_results(tree, how, par, fused);
  } catch (...) {
    reset_tree(tree);
    throw;
  }
  tree.equilibrium = equilibrium;
  tree.mode = mode;
  record_propagated_evidence(tree);
}

Forest& compiled_forest(Domain& domain) {
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  return *domain.forest();
}

// Forgets the propagated evidence of the forest's nodes and recounts what
// is waiting; every tree ends in equilibrium none.
void unpropagate(Forest& forest) noexcept {
  forget_propagated_evidence(forest);
  for (auto& tree : forest.trees) {
    reset_tree(*tree);
    tree->evidence_propagated = tree->likelihood_propagated = tree->cg_evidence_propagated = false;
    tree->normalization_constant = 1.0;
    tree->log_normalization_constant = 0.0;
    tree->conflict = 1.0;
  }
}

}  // namespace

void propagate_tree(JunctionTree& tree, Clique* root, k_equilibrium_t equilibrium,
                    k_evidence_mode_t mode) {
  verify_request(*tree.domain, equilibrium, mode);
  run_tree(tree, root, equilibrium, mode);
}

void propagate_tree_values(JunctionTree& tree, Clique* root) {
  skip_state_utilities = true;
  try {
    propagate_tree(tree, root, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  } catch (...) {
    skip_state_utilities = false;
    throw;
  }
  skip_state_utilities = false;
}

void propagate_domain(Domain& domain, k_equilibrium_t equilibrium, k_evidence_mode_t mode) {
  verify_request(domain, equilibrium, mode);
  Forest& forest = *domain.forest();
  const std::uint64_t calibrations = domain.analysis.calibrations;
  try {
    for (auto& tree : forest.trees) run_tree(*tree, nullptr, equilibrium, mode);
    if (domain.analysis.calibrations != calibrations) set_decision_results(domain);
  } catch (...) {
    for (auto& tree : forest.trees) reset_tree(*tree);
    throw;
  }
}

void initialise_domain(Domain& domain) { unpropagate(compiled_forest(domain)); }

void set_fused_sweeps(bool on) noexcept { fused_sweeps.store(on, std::memory_order_relaxed); }

void set_sweep_plans(bool on) noexcept { sweep_plans.store(on, std::memory_order_relaxed); }

void reset_inference_engine(Domain& domain) {
  Forest& forest = compiled_forest(domain);
  unpropagate(forest);
  for (auto& tree : forest.trees) {
    prepare(*tree);
    initialise_cliques(*tree, Parallelism::of(domain));
  }
}

}  // namespace kelva
