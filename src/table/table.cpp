#include "table/table.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "table/index_plan.h"
#include "table/size.h"
#include "table/sweep.h"
#include "table/table_ops.h"

namespace kelva {

namespace {

// In a column map, a new column that takes no old one (its entries are 0).
constexpr std::size_t kNone = static_cast<std::size_t>(-1);

std::uint64_t product(const std::vector<std::size_t>& counts, std::size_t from, std::size_t to) {
  std::uint64_t p = 1;
  for (std::size_t i = from; i < to; ++i) p = sat_mul(p, counts[i]);
  return p;
}

// `a` is laid out [outer][old_count][unit]; the result is laid out
// [outer][count][unit], value t of the axis copying old value map[t] (values
// from map.size() on are 0).  Unallocated arrays stay unallocated.
DoubleBuffer remap_axis(const DoubleBuffer& a, std::uint64_t outer, std::size_t old_count,
                        std::size_t count, std::uint64_t unit,
                        const std::vector<std::size_t>& map) {
  if (a.empty()) return {};
  DoubleBuffer r = DoubleBuffer::zeros(sat_mul(sat_mul(outer, count), unit));
  for (std::uint64_t o = 0; o < outer; ++o)
    for (std::size_t t = 0; t < map.size(); ++t)
      std::memcpy(r.data() + (o * count + t) * unit, a.data() + (o * old_count + map[t]) * unit,
                  unit * sizeof(double));
  return r;
}

// `a` is laid out [outer][count][unit]; the result [outer][unit] is the
// average over the axis.
DoubleBuffer average_axis(const DoubleBuffer& a, std::uint64_t outer, std::size_t count,
                          std::uint64_t unit) {
  if (a.empty()) return {};
  DoubleBuffer r = DoubleBuffer::zeros(sat_mul(outer, unit));
  const double scale = 1.0 / static_cast<double>(count);
  for (std::uint64_t o = 0; o < outer; ++o) {
    double* dst = r.data() + o * unit;
    for (std::size_t s = 0; s < count; ++s) {
      const double* src = a.data() + (o * count + s) * unit;
      for (std::uint64_t k = 0; k < unit; ++k) dst[k] += src[k];
    }
    for (std::uint64_t k = 0; k < unit; ++k) dst[k] *= scale;
  }
  return r;
}

// Per configuration, a vector of old_dim entries (or an old_dim x old_dim
// matrix) becomes one of map.size() entries, entry j copying old entry
// map[j].
DoubleBuffer remap_columns(const DoubleBuffer& a, std::uint64_t configs, std::size_t old_dim,
                           const std::vector<std::size_t>& map, bool matrix) {
  const std::size_t dim = map.size();
  if (a.empty() || dim == 0) return {};
  const std::uint64_t width = matrix ? dim * dim : dim;
  const std::uint64_t old_width = matrix ? old_dim * old_dim : old_dim;
  DoubleBuffer r = DoubleBuffer::zeros(sat_mul(configs, width));
  for (std::uint64_t c = 0; c < configs; ++c) {
    const double* src = a.data() + c * old_width;
    double* dst = r.data() + c * width;
    for (std::size_t i = 0; i < dim; ++i) {
      if (map[i] == kNone) continue;
      if (!matrix) {
        dst[i] = src[map[i]];
        continue;
      }
      for (std::size_t j = 0; j < dim; ++j)
        if (map[j] != kNone) dst[i * dim + j] = src[map[i] * old_dim + map[j]];
    }
  }
  return r;
}

// Blocks of `width` entries per configuration, moved to the plan's large
// order (block l takes small block s).
DoubleBuffer gather_blocks(const IndexPlan& plan, const DoubleBuffer& a, std::uint64_t width) {
  if (a.empty()) return {};
  DoubleBuffer r = DoubleBuffer::zeros(a.size());
  const std::uint64_t ss = plan.inner_small_stride();
  plan.walk(0, plan.large_size(), [&](std::uint64_t l, std::uint64_t s, std::uint64_t n) {
    for (std::uint64_t k = 0; k < n; ++k)
      std::memcpy(r.data() + (l + k) * width, a.data() + (s + k * ss) * width,
                  width * sizeof(double));
  });
  return r;
}

}  // namespace

// A table's shape and arrays, built aside by a shape change and swapped in
// when nothing more can fail.
struct Table::Shape {
  NodeList nodes;
  std::vector<std::size_t> counts;
  std::size_t discrete_count;
  DoubleBuffer data;
  DoubleBuffer means;
  DoubleBuffer covariances;
  DoubleBuffer coefficients;
};

Table::Table(Domain& domain, const std::vector<Node*>& nodes, TableRole role, Node* owner)
    : Object(ObjectTag::table), domain_(&domain), role_(role), owner_(owner) {
  Destroy<Table>::registered = [](Table* table) noexcept { delete table; };
  nodes_.reserve_more(nodes.size());
  counts_.reserve(nodes.size());
  for (Node* n : nodes) {
    nodes_.push_back(n);
    if (!n->is_discrete()) continue;
    ++discrete_count_;
    counts_.push_back(n->state_count());
    size_ = sat_mul(size_, n->state_count());
  }
}

Table::~Table() { drop_peer(domain_->peers(), PeerField::table, peer); }

void Table::allocate_zeros() const { data_ = DoubleBuffer::zeros(size_); }

struct Table::Product {
  std::vector<IndexPlan> plans;
  std::vector<std::vector<double>> smalls;
  DoubleBuffer taken;                // a last factor taken, not copied
  std::vector<SweepFactor> factors;  // into plans, smalls and taken
  std::vector<SweepFactor> kept;     // the originals of copies made ahead (keep_factors)

  // Copies factor k's plan (with its maps, only where it differs: plans
  // repeat from propagation to propagation) and, with `small`, its small
  // table.
  void copy(std::size_t k, const SweepFactor& f, bool small) {
    if (!plans[k].same_walk(*f.plan)) plans[k] = *f.plan;
    if (small) smalls[k].assign(f.data, f.data + f.plan->small_size());
  }
};

void Table::keep_factors(const SweepFactor* factors, std::size_t count) noexcept {
  if (deferred_) return;  // its copies are in use
  try {
    if (product_ == nullptr) product_ = std::make_unique<Product>();
    Product& p = *product_;
    p.kept.clear();
    if (p.plans.size() < count) p.plans.resize(count);
    if (p.smalls.size() < count) p.smalls.resize(count);
    for (std::size_t k = 0; k < count; ++k) p.copy(k, factors[k], true);
    p.kept.assign(factors, factors + count);
  } catch (const std::bad_alloc&) {
    // Copied when deferred instead.
    if (product_ != nullptr) product_->kept.clear();
  }
}

void Table::settle() const {
  if (data_.empty()) allocate_zeros();
  if (!deferred_) return;
  sweep(data_.data(), size_, true, product_->factors, {}, Reduce::sum);
  deferred_ = false;
}

std::span<const SweepFactor> Table::deferred_factors() const noexcept {
  if (!deferred_) return {};
  return product_->factors;
}

void Table::defer_product(const SweepFactor* factors, std::size_t count, DoubleBuffer* last) {
  require(last == nullptr || (count > 0 && factors[count - 1].data == last->data()));
  if (data_.empty()) allocate_zeros();
  for (std::size_t k = 0; k < count; ++k) require(factors[k].plan->large_size() == size_);
  deferred_ = false;  // until every copy is made
  bool made_now = false;
  try {
    if (product_ == nullptr) product_ = std::make_unique<Product>();
    Product& p = *product_;
    // The array handed back for the last factor, made before anything is
    // taken, so that a failure leaves `last` as it was.
    if (last != nullptr && p.taken.size() != last->size())
      p.taken = DoubleBuffer::zeros(last->size());
    const std::size_t copied = last != nullptr ? count - 1 : count;
    // Factors that keep_factors copied from the same arrays through the
    // same plans are not copied again.
    std::size_t ahead = p.kept.size() == copied ? copied : 0;
    for (std::size_t k = 0; k < ahead; ++k)
      if (p.kept[k].plan != factors[k].plan || p.kept[k].data != factors[k].data) ahead = 0;
    p.kept.clear();
    p.plans.resize(count);
    p.smalls.resize(count);
    p.factors.resize(count);
    for (std::size_t k = ahead; k < count; ++k) p.copy(k, factors[k], k < copied);
    if (last != nullptr) p.taken.swap(*last);
    for (std::size_t k = 0; k < count; ++k)
      p.factors[k] = {&p.plans[k], k < copied ? p.smalls[k].data() : p.taken.data()};
  } catch (const std::bad_alloc&) {
    made_now = true;
  } catch (const Error&) {  // no room for the array handed back
    made_now = true;
  }
  if (made_now) {
    // No room for the copies: the product is made now instead.
    sweep(data_.data(), size_, true, std::span<const SweepFactor>(factors, count), {}, Reduce::sum);
    return;
  }
  deferred_ = true;
}

void Table::allocate() {
  if (deferred_) settle();
  DoubleBuffer data = data_.empty() ? DoubleBuffer::zeros(size_) : DoubleBuffer();
  if (cg_dimension() > 0) ensure_cg();
  if (!data.empty()) data_.swap(data);
}

void Table::ensure_cg() {
  if (!means_.empty()) return;
  const std::uint64_t d = cg_dimension();
  DoubleBuffer means = DoubleBuffer::zeros(sat_mul(size_, d));
  DoubleBuffer covariances = DoubleBuffer::zeros(sat_mul(sat_mul(size_, d), d));
  DoubleBuffer coefficients = DoubleBuffer::zeros(sat_mul(size_, d));
  means_.swap(means);
  covariances_.swap(covariances);
  coefficients_.swap(coefficients);
}

double Table::mean(std::uint64_t config, std::size_t i) const {
  return means_.empty() ? 0.0 : means_[config * cg_dimension() + i];
}

double Table::covariance(std::uint64_t config, std::size_t i, std::size_t j) const {
  const std::uint64_t d = cg_dimension();
  return covariances_.empty() ? 0.0 : covariances_[(config * d + i) * d + j];
}

double Table::coefficient(std::uint64_t config, std::size_t i) const {
  return coefficients_.empty() ? 0.0 : coefficients_[config * cg_dimension() + i];
}

void Table::set_mean(std::uint64_t config, std::size_t i, double v) {
  ensure_cg();
  means_[config * cg_dimension() + i] = v;
}

void Table::set_covariance(std::uint64_t config, std::size_t i, std::size_t j, double v) {
  ensure_cg();
  const std::uint64_t d = cg_dimension();
  covariances_[(config * d + i) * d + j] = v;
  covariances_[(config * d + j) * d + i] = v;
}

void Table::set_coefficient(std::uint64_t config, std::size_t i, double v) {
  ensure_cg();
  coefficients_[config * cg_dimension() + i] = v;
}

void Table::commit(Shape& shape) noexcept {
  std::swap(nodes_, shape.nodes);
  counts_.swap(shape.counts);
  discrete_count_ = shape.discrete_count;
  size_ = product(counts_, 0, counts_.size());
  data_.swap(shape.data);
  means_.swap(shape.means);
  covariances_.swap(shape.covariances);
  coefficients_.swap(shape.coefficients);
}

void Table::remap_all(Shape& s, std::uint64_t outer, std::size_t old_count, std::size_t new_count,
                      std::uint64_t inner, const std::vector<std::size_t>& map) const {
  const std::uint64_t d = cg_dimension();
  s.data = remap_axis(data_, outer, old_count, new_count, inner, map);
  s.means = remap_axis(means_, outer, old_count, new_count, inner * d, map);
  s.covariances = remap_axis(covariances_, outer, old_count, new_count, inner * d * d, map);
  s.coefficients = remap_axis(coefficients_, outer, old_count, new_count, inner * d, map);
}

void Table::insert_discrete_front(Node* node) {
  if (deferred_) settle();
  if (nodes_.contains(node)) return;
  const std::size_t count = node->state_count();
  Shape s{nodes_, counts_, discrete_count_ + 1, {}, {}, {}, {}};
  s.nodes.insert(0, node);
  s.counts.insert(s.counts.begin(), count);
  // The old table is one value of a new outermost axis, repeated.
  const std::vector<std::size_t> map(count, 0);
  remap_all(s, 1, 1, count, size_, map);
  commit(s);
}

void Table::append_continuous(Node* node) {
  if (deferred_) settle();
  if (nodes_.contains(node)) return;
  Shape s{nodes_, counts_, discrete_count_, {}, {}, {}, {}};
  s.nodes.push_back(node);
  const std::size_t d = cg_dimension();
  std::vector<std::size_t> map(d + 1, kNone);
  for (std::size_t i = 0; i < d; ++i) map[i] = i;
  s.means = remap_columns(means_, size_, d, map, false);
  s.covariances = remap_columns(covariances_, size_, d, map, true);
  s.coefficients = remap_columns(coefficients_, size_, d, map, false);
  s.data = std::move(data_);
  commit(s);
}

void Table::remove_node(Node* node) {
  if (deferred_) settle();
  const std::size_t pos = nodes_.index_of(node);
  if (pos == NodeList::npos) return;
  Shape s{nodes_, counts_, discrete_count_, {}, {}, {}, {}};
  s.nodes.erase_at(pos);
  const std::uint64_t d = cg_dimension();
  if (pos < discrete_count_) {
    const std::size_t count = counts_[pos];
    const std::uint64_t outer = product(counts_, 0, pos);
    const std::uint64_t inner = product(counts_, pos + 1, discrete_count_);
    s.counts.erase(s.counts.begin() + static_cast<std::ptrdiff_t>(pos));
    --s.discrete_count;
    s.data = average_axis(data_, outer, count, inner);
    s.means = average_axis(means_, outer, count, inner * d);
    s.covariances = average_axis(covariances_, outer, count, inner * d * d);
    s.coefficients = average_axis(coefficients_, outer, count, inner * d);
  } else {
    const std::size_t gone = pos - discrete_count_;
    std::vector<std::size_t> map;
    for (std::size_t i = 0; i < d; ++i)
      if (i != gone) map.push_back(i);
    s.means = remap_columns(means_, size_, d, map, false);
    s.covariances = remap_columns(covariances_, size_, d, map, true);
    s.coefficients = remap_columns(coefficients_, size_, d, map, false);
    s.data = std::move(data_);
  }
  commit(s);
}

namespace {

// For a discrete axis at `pos`: the products of the counts before and after.
struct AxisSpan {
  std::uint64_t outer;
  std::uint64_t inner;
};

AxisSpan span_of(const std::vector<std::size_t>& counts, std::size_t pos) {
  return {product(counts, 0, pos), product(counts, pos + 1, counts.size())};
}

}  // namespace

void Table::change_state_count(Node* node, std::size_t /*old_count*/, std::size_t count) {
  if (deferred_) settle();
  // The table's own record of the count is the one its data are laid out by.
  const std::size_t pos = nodes_.index_of(node);
  if (pos == NodeList::npos || pos >= discrete_count_ || counts_[pos] == count) return;
  const std::size_t old = counts_[pos];
  std::vector<std::size_t> map(std::min(old, count));
  for (std::size_t t = 0; t < map.size(); ++t) map[t] = t;
  Shape s{nodes_, counts_, discrete_count_, {}, {}, {}, {}};
  s.counts[pos] = count;
  const auto [outer, inner] = span_of(counts_, pos);
  remap_all(s, outer, old, count, inner, map);
  commit(s);
}

void Table::permute_states(Node* node, const std::vector<std::size_t>& new_to_old) {
  if (deferred_) settle();
  const std::size_t pos = nodes_.index_of(node);
  if (pos == NodeList::npos || pos >= discrete_count_) return;
  const std::size_t count = counts_[pos];
  require(new_to_old.size() == count);
  for (std::size_t old : new_to_old) require(old < count);
  Shape s{nodes_, counts_, discrete_count_, {}, {}, {}, {}};
  const auto [outer, inner] = span_of(counts_, pos);
  remap_all(s, outer, count, count, inner, new_to_old);
  commit(s);
}

void Table::replace_node(Node* node, Node* replacement) noexcept {
  const std::size_t pos = nodes_.index_of(node);
  if (pos != NodeList::npos) nodes_.replace(pos, replacement);
}

void Table::reorder(const std::vector<Node*>& order) {
  if (deferred_) settle();
  const std::size_t n = nodes_.size();
  require(order.size() == n);
  // old_pos[i]: where the i-th node of the new order is now.
  std::vector<std::size_t> old_pos(n);
  std::vector<bool> seen(n, false);
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t p = nodes_.index_of(order[i]);
    require(p != NodeList::npos && !seen[p]);
    require((i < discrete_count_) == (p < discrete_count_));
    seen[p] = true;
    old_pos[i] = p;
  }
  Shape s{{}, {}, discrete_count_, {}, {}, {}, {}};
  s.nodes.reserve_more(n);
  for (Node* node : order) s.nodes.push_back(node);
  std::vector<std::size_t> new_pos(discrete_count_);
  for (std::size_t i = 0; i < discrete_count_; ++i) {
    s.counts.push_back(counts_[old_pos[i]]);
    new_pos[old_pos[i]] = i;
  }
  const std::uint64_t d = cg_dimension();
  std::vector<std::size_t> columns(d);
  for (std::size_t j = 0; j < d; ++j) columns[j] = old_pos[discrete_count_ + j] - discrete_count_;

  if (!data_.empty() || !means_.empty()) {
    // New order as the large table, the current one as the small table.
    const IndexPlan plan(s.counts, new_pos);
    if (!data_.empty()) {
      s.data = DoubleBuffer::zeros(size_);
      gather(plan, s.data.data(), data_.data(), Parallelism::of(*domain_));
    }
    s.means = remap_columns(gather_blocks(plan, means_, d), size_, d, columns, false);
    s.covariances =
        remap_columns(gather_blocks(plan, covariances_, d * d), size_, d, columns, true);
    s.coefficients = remap_columns(gather_blocks(plan, coefficients_, d), size_, d, columns, false);
  }
  commit(s);
}

void Table::assign_contents(const Table& other) {
  require(other.size_ == size_ && other.cg_dimension() == cg_dimension());
  if (&other == this) return;
  if (other.deferred_) other.settle();
  DoubleBuffer data = other.data_.copy();
  DoubleBuffer means = other.means_.copy();
  DoubleBuffer covariances = other.covariances_.copy();
  DoubleBuffer coefficients = other.coefficients_.copy();
  data_.swap(data);
  deferred_ = false;
  means_.swap(means);
  covariances_.swap(covariances);
  coefficients_.swap(coefficients);
}

std::unique_ptr<Table> Table::clone() const {
  if (deferred_) settle();
  auto copy = std::make_unique<Table>(*domain_, std::vector<Node*>{}, TableRole::free, nullptr);
  Shape s{nodes_,
          counts_,
          discrete_count_,
          data_.copy(),
          means_.copy(),
          covariances_.copy(),
          coefficients_.copy()};
  copy->commit(s);
  return copy;
}

void Table::swap_contents(Table& other) noexcept {
  std::swap(nodes_, other.nodes_);
  counts_.swap(other.counts_);
  std::swap(discrete_count_, other.discrete_count_);
  std::swap(size_, other.size_);
  data_.swap(other.data_);
  product_.swap(other.product_);
  std::swap(deferred_, other.deferred_);
  means_.swap(other.means_);
  covariances_.swap(other.covariances_);
  coefficients_.swap(other.coefficients_);
}

void Table::notify_changed() noexcept {
  // A node owner notes the change with its domain itself.
  if (owner_ != nullptr) owner_->table_changed();
  else domain_->note_table_change();
}

StateAxis state_axis(const Table& table, const Node& node) noexcept {
  StateAxis a;
  for (std::size_t i = table.discrete_count(); i-- > 0;) {
    if (table.nodes()[i] == &node) {
      a.states = table.state_counts()[i];
      return a;
    }
    a.stride *= table.state_counts()[i];
  }
  return StateAxis{};
}

}  // namespace kelva
