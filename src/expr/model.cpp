#include "expr/model.h"

#include <algorithm>

#include "expr/expression.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "platform/memory.h"
#include "structure/classes.h"
#include "table/size.h"

namespace kelva {

namespace {

bool is_real_function(const Node& n) noexcept {
  return n.category() == K_CATEGORY_FUNCTION && n.kind() == K_KIND_OTHER;
}

// The checks an expression must pass before a model of `owner` may hold it.
void verify_for_owner(Expression& e, const Node& owner) {
  auto invalid = [](bool failed) { require(!failed, K_ERROR_INVALID_EXPRESSION); };
  bool stranger = false;
  for_each_node_leaf(e,
                     [&](const Node& n) { stranger = stranger || !owner.parents().contains(&n); });
  invalid(stranger);
  const ExprType type = verify_types(e, false);
  invalid(is_real_function(owner) && type != ExprType::numeric && type != ExprType::node);
  const bool function = owner.category() == K_CATEGORY_FUNCTION;
  invalid(!function &&
          (contains_operator(e, K_OP_PROBABILITY) || contains_operator(e, K_OP_VARIANCE)));
  invalid(!(function && owner.is_discrete()) && contains_operator(e, K_OP_AGGREGATE));
}

void copy_model(const Node& from, Node& to, const NodeMap& map) {
  const Model* model = from.model();
  if (model == nullptr) return;
  std::vector<Node*> nodes;
  for (Node* n : model->nodes()) nodes.push_back(&map(*n));
  ModelPtr fresh(new Model(to, nodes));
  fresh->samples_per_interval = model->samples_per_interval;
  for (std::uint64_t i = 0; model->has_slots() && i < model->size(); ++i) {
    if (model->expression(i) == nullptr) continue;
    Expression* copy = copy_expression(*model->expression(i), map);
    try {
      fresh->set_expression(i, copy);
    } catch (...) {
      ExpressionFactory::release(copy);
      throw;
    }
  }
  to.model_slot() = std::move(fresh);
}

}  // namespace

Model::Model(Node& owner, const std::vector<Node*>& model_nodes)
    : Object(ObjectTag::model), owner_(&owner) {
  // A dying model drops its Java peer first.
  Destroy<Model>::registered = [](Model* model) noexcept {
    drop_peer(model->owner().domain().peers(), PeerField::model, model->peer);
    delete model;
  };
  // Class edits that delete output clones drop the models naming them.
  drop_model_referring = [](Node& child, const Node& gone) noexcept {
    if (child.model() != nullptr && model_refers_to(*child.model(), gone))
      child.model_slot().reset();
  };
  copy_model_into = copy_model;
  nodes_.reserve_more(model_nodes.size());
  for (Node* n : model_nodes) {
    nodes_.push_back(n);
    size_ = sat_mul(size_, n->state_count());
  }
}

Model::~Model() {
  for (Expression* e : slots_) ExpressionFactory::let_go(e);
}

Expression* Model::expression(std::uint64_t index) const noexcept {
  return index < slots_.size() ? slots_[index] : nullptr;
}

void Model::set_expression(std::uint64_t index, Expression* e) {
  require(index < size_);
  if (slots_.empty()) {
    require(platform::allocation_possible(sat_mul(size_, sizeof(Expression*))), K_ERROR_NO_MEMORY);
    slots_.assign(static_cast<std::size_t>(size_), nullptr);
  }
  ExpressionFactory::hold(e);
  Expression* old = slots_[index];
  slots_[index] = e;
  ExpressionFactory::let_go(old);
}

std::vector<Expression*> Model::reshaped_slots(const Node& node, std::size_t old_count,
                                               const std::vector<std::size_t>& new_to_old) const {
  if (slots_.empty()) return {};
  const std::size_t pos = nodes_.index_of(&node);
  if (pos == NodeList::npos) return slots_;
  // Slots are in configuration order: outer nodes, the node, inner nodes.
  std::uint64_t inner = 1;
  for (std::size_t k = pos + 1; k < nodes_.size(); ++k) inner *= nodes_[k]->state_count();
  const std::uint64_t outer = slots_.size() / (old_count * inner);
  const std::size_t count = new_to_old.size();
  require(
      platform::allocation_possible(sat_mul(sat_mul(outer * inner, count), sizeof(Expression*))),
      K_ERROR_NO_MEMORY);
  std::vector<Expression*> result(static_cast<std::size_t>(outer * count * inner), nullptr);
  for (std::uint64_t o = 0; o < outer; ++o)
    for (std::size_t t = 0; t < count; ++t) {
      if (new_to_old[t] >= old_count) continue;
      for (std::uint64_t i = 0; i < inner; ++i)
        result[(o * count + t) * inner + i] = slots_[(o * old_count + new_to_old[t]) * inner + i];
    }
  return result;
}

void Model::commit_slots(std::vector<Expression*> slots) noexcept {
  // Each expression kept by a new slot is held once more before the old
  // slots let go, so that shared ones survive.
  for (Expression* e : slots) ExpressionFactory::hold(e);
  for (Expression* e : slots_) ExpressionFactory::let_go(e);
  slots_.swap(slots);
  size_ = 1;
  for (const Node* n : nodes_) size_ = sat_mul(size_, n->state_count());
}

bool model_refers_to(const Model& model, const Node& node) noexcept {
  if (model.nodes().contains(&node)) return true;
  for (std::uint64_t i = 0; i < model.size() && model.has_slots(); ++i) {
    const Expression* e = model.expression(i);
    if (e == nullptr) continue;
    bool found = false;
    for_each_node_leaf(*e, [&](const Node& n) { found = found || &n == &node; });
    if (found) return true;
  }
  return false;
}

void verify_model_owner(const Node& owner) {
  require(owner.category() != K_CATEGORY_INSTANCE && !owner.is_continuous());
}

Model& new_model(Node& owner, const std::vector<Node*>& model_nodes) {
  verify_model_owner(owner);
  for (std::size_t i = 0; i < model_nodes.size(); ++i) {
    const Node& n = *model_nodes[i];
    require(&n.domain() == &owner.domain());
    require(n.is_discrete());
    require(owner.parents().contains(&n));
    require(std::find(model_nodes.begin(), model_nodes.begin() + i, &n) == model_nodes.begin() + i);
  }
  ModelPtr fresh(new Model(owner, model_nodes));
  Model& result = *fresh;
  owner.model_slot() = std::move(fresh);
  owner.needs_generation = true;
  return result;
}

void set_model_expression(Model& model, std::uint64_t index, Expression* e) {
  require(index < model.size());
  if (e != nullptr) verify_for_owner(*e, model.owner());
  model.set_expression(index, e);
  model.owner().needs_generation = true;
}

void set_samples_per_interval(Model& model, std::uint64_t count) {
  require(count > 0);
  model.samples_per_interval = count;
  if (!is_real_function(model.owner())) model.owner().needs_generation = true;
}

}  // namespace kelva
