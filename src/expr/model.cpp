#include "expr/model.h"

#include "expr/expression.h"
#include "model/domain.h"
#include "model/error.h"
#include "model/node.h"
#include "platform/memory.h"
#include "table/size.h"

namespace kelva {

void ModelDeleter::operator()(Model* model) const noexcept {
  if (model == nullptr) return;
  drop_peer(model->owner().domain().jni(), PeerField::model, model->peer);
  delete model;
}

Model::Model(Node& owner, const std::vector<Node*>& model_nodes)
    : Object(ObjectTag::model), owner_(&owner) {
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
    require(platform::allocation_possible(sat_mul(size_, sizeof(Expression*))),
            K_ERROR_NO_MEMORY);
    slots_.assign(static_cast<std::size_t>(size_), nullptr);
  }
  ExpressionFactory::hold(e);
  Expression* old = slots_[index];
  slots_[index] = e;
  ExpressionFactory::let_go(old);
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

}  // namespace kelva
