#pragma once

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "compile/junction_forest.h"
#include "dataset/data_set.h"
#include "expr/expression.h"
#include "expr/model.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "platform/thread_slot.h"
#include "table/table.h"

// The one shape of every k_... function: set "none", run the body, and turn
// whatever it throws into the thread's error code and the neutral result.
// Nothing thrown inside the engine crosses the C boundary.

// Handles are the engine objects' addresses; the C handle structs are never
// defined.

namespace kelva::capi {

/// Runs `body` and turns whatever it throws into the thread's error code
/// (the engine's code for Error, "no_memory" for std::bad_alloc, "error"
/// otherwise) and the result `neutral`.  Nothing thrown gets past it.  This
/// is the one place where exceptions become codes.
template <class R, class F>
R catch_to_code(R neutral, F&& body) noexcept {
  try {
    return body();
  } catch (const Error& e) {
    k_error_set(e.code());
  } catch (const std::bad_alloc&) {
    k_error_set(K_ERROR_NO_MEMORY);
  } catch (...) {
    k_error_set(K_ERROR_ERROR);
  }
  return neutral;
}

/// Runs `body` under the error discipline; returns `neutral` on failure.
template <class R, class F>
R guard(R neutral, F&& body) noexcept {
  platform::error_slot() = nullptr;  // "none", without the table lookup
  return catch_to_code(neutral, std::forward<F>(body));
}

/// Runs `body` (returning nothing) under the error discipline: 0 on success,
/// non-zero on failure.
template <class F>
k_status_t guard_status(F&& body) noexcept {
  return guard<k_status_t>(1, [&] {
    body();
    return k_status_t{0};
  });
}

/// `text` copied into memory from malloc, for the caller to free(); the
/// copy ends with a NUL.  No memory is "no_memory".
inline char* malloc_copy(const std::string& text) {
  auto* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) throw Error(K_ERROR_NO_MEMORY);
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

/// The live object behind a handle, or Error(usage) for null, dead or
/// wrongly sorted handles.
inline Domain& get(k_domain_t h) {
  auto* p = reinterpret_cast<Domain*>(h);
  require(p != nullptr && p->is(ObjectTag::domain));
  return *p;
}
inline Node& get(k_node_t h) {
  auto* p = reinterpret_cast<Node*>(h);
  require(p != nullptr && p->is(ObjectTag::node));
  return *p;
}
inline Table& get(k_table_t h) {
  auto* p = reinterpret_cast<Table*>(h);
  require(p != nullptr && p->is(ObjectTag::table));
  return *p;
}
inline Attribute& get(k_attribute_t h) {
  auto* p = reinterpret_cast<Attribute*>(h);
  require(p != nullptr && p->is(ObjectTag::attribute));
  return *p;
}
inline Expression& get(k_expression_t h) {
  auto* p = reinterpret_cast<Expression*>(h);
  require(p != nullptr && p->is(ObjectTag::expression));
  return *p;
}
inline Model& get(k_model_t h) {
  auto* p = reinterpret_cast<Model*>(h);
  require(p != nullptr && p->is(ObjectTag::model));
  return *p;
}
inline JunctionTree& get(k_junction_tree_t h) {
  auto* p = reinterpret_cast<JunctionTree*>(h);
  require(p != nullptr && p->is(ObjectTag::junction_tree));
  return *p;
}
inline Clique& get(k_clique_t h) {
  auto* p = reinterpret_cast<Clique*>(h);
  require(p != nullptr && p->is(ObjectTag::clique));
  return *p;
}
inline DataSet& get(k_data_set_t h) {
  auto* p = reinterpret_cast<DataSet*>(h);
  require(p != nullptr && p->is(ObjectTag::data_set));
  return *p;
}

/// Engine object to handle.
inline k_domain_t handle(Domain* p) noexcept { return reinterpret_cast<k_domain_t>(p); }
inline k_node_t handle(Node* p) noexcept { return reinterpret_cast<k_node_t>(p); }
inline k_table_t handle(Table* p) noexcept { return reinterpret_cast<k_table_t>(p); }
inline k_attribute_t handle(Attribute* p) noexcept { return reinterpret_cast<k_attribute_t>(p); }
inline k_expression_t handle(Expression* p) noexcept { return reinterpret_cast<k_expression_t>(p); }
inline k_model_t handle(Model* p) noexcept { return reinterpret_cast<k_model_t>(p); }
inline k_junction_tree_t handle(JunctionTree* p) noexcept {
  return reinterpret_cast<k_junction_tree_t>(p);
}
inline k_clique_t handle(Clique* p) noexcept { return reinterpret_cast<k_clique_t>(p); }
inline k_data_set_t handle(DataSet* p) noexcept { return reinterpret_cast<k_data_set_t>(p); }
/// A null-ended engine clique list as a C list.
inline k_clique_t* handle(Clique* const* list) noexcept {
  return reinterpret_cast<k_clique_t*>(const_cast<Clique**>(list));
}
/// A null-ended engine node list as a C list.
inline k_node_t* handle(Node* const* list) noexcept {
  return reinterpret_cast<k_node_t*>(const_cast<Node**>(list));
}

/// A C list (null-ended) of live nodes as engine pointers; Error(usage) for a
/// null list or a bad handle in it.
std::vector<Node*> node_list(const k_node_t* list);

/// A checked attribute key (a single C identifier): Error(usage) for null,
/// Error(invalid_name) otherwise.
std::string attribute_key(const char* key);

}  // namespace kelva::capi
