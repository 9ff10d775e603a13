#include "network/node.h"

#include <cstdio>

#include "network/class.h"
#include "network/domain.h"
#include "network/error.h"
#include "platform/memory.h"

namespace kelva {

char category_letter(k_category_t category) noexcept {
  switch (category) {
    case K_CATEGORY_FUNCTION:
      return 'F';
    case K_CATEGORY_INSTANCE:
      return 'I';
    case K_CATEGORY_CHANCE:
      return 'C';
    case K_CATEGORY_DECISION:
      return 'D';
    case K_CATEGORY_UTILITY:
      return 'U';
    default:
      return 'X';
  }
}

Node::Node(Domain& domain, k_category_t category, k_kind_t kind, k_subtype_t subtype,
           std::uint64_t serial)
    : Object(ObjectTag::node),
      domain_(&domain),
      category_(category),
      kind_(kind),
      subtype_(kind == K_KIND_DISCRETE ? subtype : K_SUBTYPE_LABEL),
      serial_(serial) {
  if (kind == K_KIND_DISCRETE) resize_states(subtype == K_SUBTYPE_BOOLEAN ? 2 : 1);
}

Node::~Node() = default;

const std::string& Node::name() const noexcept {
  static const std::string empty;
  return name_ ? *name_ : empty;
}

const std::string& Node::name_or_generate() {
  if (name_) return *name_;
  // An output clone is first offered "instance_output".
  if (master != nullptr && clone_instance != nullptr && master->has_name() &&
      clone_instance->has_name()) {
    std::string candidate = clone_instance->name() + "_" + master->name();
    if (domain_->find(candidate) == nullptr) {
      domain_->rename(*this, candidate.c_str());
      return *name_;
    }
  }
  // The letter of the category and the serial number; while that is taken,
  // the domain's creation counter moves on and supplies the next number.
  const char letter = category_letter(category_);
  std::uint64_t number = serial_;
  for (;;) {
    char candidate[32];
    std::snprintf(candidate, sizeof candidate, "%c%llu", letter,
                  static_cast<unsigned long long>(number));
    if (domain_->find(candidate) == nullptr) {
      domain_->rename(*this, candidate);
      return *name_;
    }
    number = domain_->bump_counter();
  }
}

const char* Node::state_label(std::size_t i) const noexcept {
  if (state_labels_[i]) return state_labels_[i]->c_str();
  if (subtype_ == K_SUBTYPE_BOOLEAN) return i == 0 ? "false" : "true";
  return "";
}

void Node::resize_states(std::size_t count) {
  // Labels and values of every state; a count that could never be stored is
  // refused before anything is allocated.
  constexpr std::uint64_t kPerState = sizeof(std::optional<std::string>) + sizeof(double);
  if (count >= (std::uint64_t{1} << 48) || !platform::allocation_possible(count * kPerState))
    throw Error(K_ERROR_NO_MEMORY);
  // Both lists are reserved first (which may throw and changes nothing);
  // resizing within the room reserved cannot fail.
  state_labels_.reserve(count);
  state_values_.reserve(count + 1);
  const bool changed = count != state_labels_.size();
  state_labels_.resize(count);
  state_values_.resize(count + 1, 0.0);
  // No code or finding vector fits a different number of states.
  if (changed) evidence.forget_all();
  cases.drop_states_from(count);
}

void Node::permute_states(const std::vector<std::size_t>& new_to_old) {
  std::vector<std::optional<std::string>> labels(new_to_old.size());
  std::vector<double> values(state_values_);
  for (std::size_t i = 0; i < new_to_old.size(); ++i) {
    labels[i] = state_labels_[new_to_old[i]];
    values[i] = state_values_[new_to_old[i]];
  }
  Evidence reordered = evidence.permuted(new_to_old);
  cases.permute_states(new_to_old);  // the last step that may fail
  state_labels_.swap(labels);
  state_values_.swap(values);
  evidence = std::move(reordered);
}

void Node::table_changed() noexcept { domain_->note_table_change(); }

}  // namespace kelva
