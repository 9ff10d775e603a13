#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kelva/kelva.h"
#include "network/attributes.h"
#include "network/case_store.h"
#include "network/evidence.h"
#include "network/node_list.h"
#include "network/object.h"
#include "network/owned.h"
#include "network/peer.h"

namespace kelva {

class Domain;
class Model;
struct InstanceData;
class Table;

/// A table, destroyed as the table layer registered.
using TablePtr = Owned<Table>;

/// A model, destroyed (its Java peer dropped) as the expression layer
/// registered.
using ModelPtr = Owned<Model>;

/// One variable of a network, or an instance of a class.
class Node : public Object {
 public:
  Node(Domain& domain, k_category_t category, k_kind_t kind, k_subtype_t subtype,
       std::uint64_t serial);
  ~Node();

  Domain& domain() const noexcept { return *domain_; }
  k_category_t category() const noexcept { return category_; }
  k_kind_t kind() const noexcept { return kind_; }
  bool is_discrete() const noexcept { return kind_ == K_KIND_DISCRETE; }
  bool is_continuous() const noexcept { return kind_ == K_KIND_CONTINUOUS; }
  k_subtype_t subtype() const noexcept { return subtype_; }
  void set_subtype(k_subtype_t subtype) noexcept { subtype_ = subtype; }
  /// The creation counter's value when the node was made.
  std::uint64_t serial() const noexcept { return serial_; }

  bool has_name() const noexcept { return name_.has_value(); }
  /// The name; the empty text when there is none.
  const std::string& name() const noexcept;
  /// The name, generating one first when there is none.
  const std::string& name_or_generate();

  std::optional<std::string> label;
  int x = 0;
  int y = 0;
  void* backpointer = nullptr;
  AttributeList& attributes() noexcept { return attributes_; }
  const AttributeList& attributes() const noexcept { return attributes_; }
  /// Global reference to the Java peer ("nodePeer"), or null.
  PeerRef peer = nullptr;

  // States of a discrete node.
  std::size_t state_count() const noexcept { return state_labels_.size(); }
  /// The label of state i as read by users: its own label, else "false" /
  /// "true" for a boolean node, else the empty text.
  const char* state_label(std::size_t i) const noexcept;
  void set_state_label(std::size_t i, std::string label) { state_labels_[i] = std::move(label); }
  /// State values: one per state, plus the upper bound of the last interval
  /// (index state_count()) used by interval nodes.
  double state_value(std::size_t i) const noexcept { return state_values_[i]; }
  void set_state_value(std::size_t i, double v) noexcept { state_values_[i] = v; }
  /// Resizes the label and value arrays (new entries empty and 0).
  void resize_states(std::size_t count);
  /// Reorders states so that new state i is old state new_to_old[i].
  void permute_states(const std::vector<std::size_t>& new_to_old);

  // Structure.
  const NodeList& parents() const noexcept { return parents_; }
  const NodeList& children() const noexcept { return children_; }
  NodeList& parents_mut() noexcept { return parents_; }
  NodeList& children_mut() noexcept { return children_; }

  // Tables owned by the node (null when it has none).
  Table* table() const noexcept { return table_.get(); }
  Table* experience_table() const noexcept { return experience_.get(); }
  Table* fading_table() const noexcept { return fading_.get(); }
  TablePtr& table_slot() noexcept { return table_; }
  TablePtr& experience_slot() noexcept { return experience_; }
  TablePtr& fading_slot() noexcept { return fading_; }
  /// Called when one of the node's tables is written through the API.
  void table_changed() noexcept;

  /// The node's model (null when none).
  Model* model() const noexcept { return model_.get(); }
  ModelPtr& model_slot() noexcept { return model_; }
  /// Set on every change of the node's states, state values, parents or
  /// model: a model's table must be generated again.  Cleared by a
  /// successful generation.
  bool needs_generation = false;

  /// Lists handed out by ancestor/descendant queries, kept until the next one.
  NodeList& scratch_list() noexcept { return scratch_; }

  /// Entered and propagated evidence (discrete and continuous nodes).
  Evidence evidence;
  /// The node's items of the domain's stored cases.
  CaseColumn cases;
  /// Position of the node's record in the domain's junction forest, or
  /// kNoSlot when the domain is untriangulated or the node takes no part.
  static constexpr std::size_t kNoSlot = static_cast<std::size_t>(-1);
  std::size_t forest_slot = kNoSlot;

  /// Object-oriented networks (network/class.h): an instance node's class,
  /// bindings and clones; an output clone's output node (`master`) and
  /// instance node.
  std::unique_ptr<InstanceData> instance_data;
  Node* master = nullptr;
  Node* clone_instance = nullptr;
  /// Dynamic networks: a temporal clone stands, in a class that is a time
  /// slice, for its master in the previous slice (structure/temporal.h).
  Node* temporal_master = nullptr;
  Node* temporal_clone = nullptr;
  /// For a node of an unfolded domain: the instance nodes of its path, then
  /// the class node it copies; emptied when any node of the collection's
  /// classes is deleted (ClassCollection::forget_sources).
  NodeList source;

  Node* next = nullptr;  // the domain's node chain
  Node* prev = nullptr;

 private:
  friend class Domain;
  Domain* domain_;
  k_category_t category_;
  k_kind_t kind_;
  k_subtype_t subtype_;
  std::uint64_t serial_;
  std::optional<std::string> name_;
  AttributeList attributes_;
  std::vector<std::optional<std::string>> state_labels_;
  std::vector<double> state_values_;
  NodeList parents_;
  NodeList children_;
  NodeList scratch_;
  TablePtr table_;
  TablePtr experience_;
  TablePtr fading_;
  ModelPtr model_;  // after the tables: destroyed first
};

/// Letter of generated names for a category: F, I, C, D, U, else X.
char category_letter(k_category_t category) noexcept;

}  // namespace kelva
