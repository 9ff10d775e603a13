// EM for the CG tables of continuous chance nodes: expected sufficient
// statistics from the conditioned Gaussians of propagation, and weighted
// least squares per configuration of the discrete parents.

#include "learning/em_cg.h"

#include <cmath>

#include "compile/junction_forest.h"
#include "inference/cg_propagate.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "table/index_plan.h"
#include "table/table.h"
#include "table/table_ops.h"

namespace kelva {

namespace {

// Where a continuous node sits in the continuous part of its tree.
struct Located {
  CgTree* tree = nullptr;
  CgComponent* component = nullptr;
  std::size_t member = 0;
};

Located locate(Forest& forest, const Node& node) {
  const NodeSlot* slot = forest.slot(node);
  if (slot != nullptr && slot->tree != nullptr && slot->tree->cg != nullptr)
    for (CgComponent& comp : slot->tree->cg->components)
      for (std::size_t i = 0; i < comp.members.size(); ++i)
        if (comp.members[i].node == &node) return {slot->tree->cg.get(), &comp, i};
  throw Error(K_ERROR_ERROR, "continuous node '" + node.name() + "' is in no junction tree");
}

// Solves a x = y in place for symmetric positive definite a (k x k) by
// Cholesky; false when a pivot is not above `relative` times its diagonal
// entry (the parents' scatter is singular: the regression is not unique).
bool solve_spd(std::vector<double>& a, std::vector<double>& y, std::size_t k, double relative) {
  for (std::size_t j = 0; j < k; ++j) {
    double d = a[j * k + j];
    const double scale = d;
    for (std::size_t p = 0; p < j; ++p) d -= a[j * k + p] * a[j * k + p];
    if (!(d > relative * scale)) return false;
    const double l = std::sqrt(d);
    a[j * k + j] = l;
    for (std::size_t i = j + 1; i < k; ++i) {
      double s = a[i * k + j];
      for (std::size_t p = 0; p < j; ++p) s -= a[i * k + p] * a[j * k + p];
      a[i * k + j] = s / l;
    }
  }
  for (std::size_t i = 0; i < k; ++i) {
    for (std::size_t p = 0; p < i; ++p) y[i] -= a[i * k + p] * y[p];
    y[i] /= a[i * k + i];
  }
  for (std::size_t i = k; i-- > 0;) {
    for (std::size_t p = i + 1; p < k; ++p) y[i] -= a[p * k + i] * y[p];
    y[i] /= a[i * k + i];
  }
  return true;
}

}  // namespace

void CgLearner::prepare() {
  for (Node* node = domain_.first_node(); node != nullptr; node = node->next) {
    if (node->category() != K_CATEGORY_CHANCE || !node->is_continuous()) continue;
    const Table* experience = node->experience_table();
    const Table* table = node->table();
    if (experience == nullptr || table == nullptr) continue;
    Family f;
    f.node = node;
    f.self = table->nodes().index_of(node) - table->discrete_count();
    // The parents in table order, as the node's component lists them.
    for (std::size_t j = 0; j < table->cg_dimension(); ++j)
      if (j != f.self) f.parent_pos.push_back(j);
    const std::uint64_t size = table->size();
    f.experience.assign(size, 0.0);
    gather(IndexPlan::between(*table, *experience), f.experience.data(), experience->data());
    const std::size_t k = f.parent_pos.size();
    for (std::uint64_t c = 0; c < size; ++c) {
      f.original.push_back(table->mean(c, f.self));
      f.original.push_back(table->covariance(c, f.self, f.self));
      for (std::size_t pos : f.parent_pos) f.original.push_back(table->coefficient(c, pos));
    }
    f.stats.resize(size);
    for (Stats& s : f.stats) {
      s.mean.assign(k + 1, 0.0);
      s.scatter.assign((k + 1) * (k + 1), 0.0);
    }
    families_.push_back(std::move(f));
  }
}

void CgLearner::clear() noexcept {
  for (Family& f : families_)
    for (Stats& s : f.stats) {
      s.weight = 0.0;
      std::fill(s.mean.begin(), s.mean.end(), 0.0);
      std::fill(s.scatter.begin(), s.scatter.end(), 0.0);
    }
}

void CgLearner::accumulate(Family& f, std::uint64_t c, double w, const std::vector<double>& mu,
                           const std::vector<double>& cov) {
  Stats& s = f.stats[c];
  const std::size_t m = s.mean.size();
  const double total = s.weight + w;
  const double r = w / total;
  for (std::size_t a = 0; a < m; ++a)
    for (std::size_t b = 0; b < m; ++b)
      s.scatter[a * m + b] +=
          w * cov[a * m + b] + s.weight * r * (mu[a] - s.mean[a]) * (mu[b] - s.mean[b]);
  for (std::size_t a = 0; a < m; ++a) s.mean[a] += r * (mu[a] - s.mean[a]);
  s.weight = total;
}

void CgLearner::add_case(double weight) {
  Forest& forest = *domain_.forest();
  std::vector<Located> where;
  where.reserve(families_.size());
  for (const Family& f : families_) where.push_back(locate(forest, *f.node));
  std::vector<char> done(families_.size(), 0);
  for (std::size_t first = 0; first < families_.size(); ++first) {
    if (done[first]) continue;
    CgComponent& comp = *where[first].component;
    // The Gaussian of the component is solved once per configuration for
    // all its learned members.
    for (std::uint64_t b = 0; b < comp.configurations; ++b) {
      const double w = weight * comp.weight[b];
      if (!(w > 0.0)) continue;
      cg_solve(*where[first].tree, comp, b);
      const CgTree& cg = *where[first].tree;
      for (std::size_t g = first; g < families_.size(); ++g) {
        if (where[g].component != &comp) continue;
        const std::size_t i = where[g].member;
        const auto& parents = comp.members[i].parents;
        const std::size_t m = parents.size() + 1;
        mu_.resize(m);
        cov_.resize(m * m);
        auto member = [&](std::size_t a) { return a + 1 < m ? parents[a].first : i; };
        for (std::size_t a = 0; a < m; ++a) {
          mu_[a] = cg.member_mean[member(a)];
          for (std::size_t e = 0; e < m; ++e)
            cov_[a * m + e] = cg.gaussian.covariance(member(a), member(e));
        }
        accumulate(families_[g], cg_member_configuration(comp, i, b), w, mu_, cov_);
      }
    }
    for (std::size_t g = first; g < families_.size(); ++g)
      if (where[g].component == &comp) done[g] = 1;
  }
}

void CgLearner::maximize() {
  std::vector<double> a;
  std::vector<double> beta;
  for (Family& f : families_) {
    Table& table = *f.node->table();
    const std::size_t k = f.parent_pos.size();
    for (std::uint64_t c = 0; c < f.stats.size(); ++c) {
      const Stats& s = f.stats[c];
      if (f.experience[c] < 0.0 || !(s.weight > 0.0)) continue;
      const std::size_t m = k + 1;
      a.resize(k * k);
      beta.resize(k);
      for (std::size_t i = 0; i < k; ++i) {
        for (std::size_t j = 0; j < k; ++j) a[i * k + j] = s.scatter[i * m + j];
        beta[i] = s.scatter[i * m + k];
      }
      if (!solve_spd(a, beta, k, 1e-12)) continue;
      double residual = s.scatter[k * m + k];
      double alpha = s.mean[k];
      for (std::size_t i = 0; i < k; ++i) {
        residual -= beta[i] * s.scatter[i * m + k];
        alpha -= beta[i] * s.mean[i];
      }
      // No noise left (the data lie on the regression): a variance of 0
      // would make every later value's density infinite.
      if (!(residual > 1e-12 * s.scatter[k * m + k])) continue;
      table.set_mean(c, f.self, alpha);
      table.set_covariance(c, f.self, f.self, residual / s.weight);
      for (std::size_t i = 0; i < k; ++i) table.set_coefficient(c, f.parent_pos[i], beta[i]);
    }
    f.node->table_changed();
  }
}

void CgLearner::restore() noexcept {
  for (Family& f : families_) {
    Table& table = *f.node->table();
    const std::size_t k = f.parent_pos.size();
    for (std::uint64_t c = 0; c < f.stats.size(); ++c) {
      const double* o = &f.original[c * (k + 2)];
      table.set_mean(c, f.self, o[0]);
      table.set_covariance(c, f.self, f.self, o[1]);
      for (std::size_t i = 0; i < k; ++i) table.set_coefficient(c, f.parent_pos[i], o[2 + i]);
    }
    f.node->table_changed();
  }
}

}  // namespace kelva
