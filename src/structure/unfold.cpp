// Unfolding a class into an ordinary domain.  Every class and instance is a
// frame: first every frame makes copies of its own nodes (names prefixed by
// the instance path), then links and tables are made by resolving each
// parent through bindings (up to the enclosing frame) and output clones
// (down into the instance's frame).

#include <algorithm>
#include <deque>
#include <functional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "network/dbn_layout.h"
#include "network/error.h"
#include "structure/classes.h"
#include "structure/structure.h"
#include "structure/temporal.h"
#include "table/table.h"

namespace kelva {

namespace {

struct Frame {
  Domain* body;
  std::string prefix;
  Frame* outer;
  const InstanceData* instance;  // null for the top frame
  Node* instance_node;           // null for the top frame
  std::unordered_map<const Node*, Node*> copies;
  std::unordered_map<const Node*, Frame*> inner;  // by instance node
  Frame* previous;                                // a time slice's top frame: the previous slice's
};

void copy_attributes(const AttributeList& from, AttributeList& to) {
  std::vector<const Attribute*> items;
  for (const Attribute* a = from.first(); a != nullptr; a = a->next.get()) items.push_back(a);
  for (auto it = items.rbegin(); it != items.rend(); ++it) to.set((*it)->key, (*it)->value.c_str());
}

// The nodes of a class body, oldest first.
std::vector<Node*> oldest_first(const Domain& body) {
  std::vector<Node*> nodes;
  for (Node* n = body.first_node(); n != nullptr; n = n->next) nodes.push_back(n);
  return {nodes.rbegin(), nodes.rend()};
}

void copy_states(const Node& from, Node& to) {
  if (!from.is_discrete()) return;
  to.resize_states(from.state_count());
  for (std::size_t i = 0; i < from.state_count(); ++i) {
    if (*from.state_label(i) != '\0') to.set_state_label(i, from.state_label(i));
    to.set_state_value(i, from.state_value(i));
  }
  to.set_state_value(from.state_count(), from.state_value(from.state_count()));
}

// A table of `owner` in `slot` over the nodes of `from` mapped through
// `map`, in the same order, so the contents copy as they are.
void copy_table(const Table* from, TableRole role, TablePtr& slot, Node& owner,
                const std::function<Node&(Node&)>& map) {
  if (from == nullptr) return;
  std::vector<Node*> order;
  order.reserve(from->nodes().size());
  for (Node* m : from->nodes()) order.push_back(&map(*m));
  slot.reset(new Table(owner.domain(), order, role, &owner));
  slot->assign_contents(*from);
}

// The tables and model of `from` given to `to`, whose links are made.
void copy_contents(const Node& from, Node& to, const std::function<Node&(Node&)>& map) {
  copy_table(from.table(), TableRole::conditional, to.table_slot(), to, map);
  copy_table(from.experience_table(), TableRole::experience, to.experience_slot(), to, map);
  copy_table(from.fading_table(), TableRole::fading, to.fading_slot(), to, map);
  if (from.model() != nullptr) copy_model_into(from, to, map);
  to.needs_generation = from.needs_generation;
}

class Unfolder {
 public:
  explicit Unfolder(Domain& out) : out_(out) {}

  void make_nodes(Frame& frame) {
    for (Node* n : oldest_first(*frame.body)) {
      if (n->instance_data != nullptr) {
        Frame& inner = frames.emplace_back(Frame{&n->instance_data->of->body(),
                                                 frame.prefix + n->name_or_generate() + ".",
                                                 &frame,
                                                 n->instance_data.get(),
                                                 n,
                                                 {},
                                                 {},
                                                 nullptr});
        frame.inner.emplace(n, &inner);
        make_nodes(inner);
      } else if (n->master == nullptr && !bound(frame, *n) && !linked_in_time(frame, *n)) {
        Node& copy = copy_node(*n, frame.prefix);
        frame.copies.emplace(n, &copy);
        if (with_sources) set_source(frame, *n, copy);
      }
    }
  }

  void make_links(Frame& frame) {
    for (Node* n : oldest_first(*frame.body)) {
      if (n->instance_data != nullptr) {
        make_links(*frame.inner.at(n));
      } else if (auto it = frame.copies.find(n); it != frame.copies.end()) {
        link(frame, *n, *it->second);
      }
    }
  }

  // Refuses an unfolded network whose links (made unchecked by `link`)
  // close a directed cycle or a cyclic functional dependency: both are
  // possible only through bindings, since every class body is free of them.
  void check_acyclic() const {
    std::unordered_map<const Node*, std::size_t> waiting;
    std::vector<const Node*> ready;
    for (const Node* n = out_.first_node(); n != nullptr; n = n->next) {
      waiting.emplace(n, n->parents().size());
      if (n->parents().size() == 0) ready.push_back(n);
    }
    std::size_t done = 0;
    while (!ready.empty()) {
      const Node* n = ready.back();
      ready.pop_back();
      ++done;
      for (const Node* c : n->children())
        if (--waiting.at(c) == 0) ready.push_back(c);
    }
    if (done != waiting.size()) throw Error(K_ERROR_CYCLIC_NETWORK);
    for (const Node* n = out_.first_node(); n != nullptr; n = n->next)
      if (n->category() == K_CATEGORY_UTILITY)
        for (const Node* c : n->children())
          if (!functional_dependency_ok(*c, *n)) throw Error(K_ERROR_CYCLIC_FUNCTIONAL_DEPENDENCY);
  }

 private:
  static bool bound(const Frame& frame, const Node& n) {
    return frame.instance != nullptr && frame.instance->actual_of(&n) != nullptr;
  }

  // A temporal clone of a slice after the first is its master's copy in
  // the previous slice.
  static bool linked_in_time(const Frame& frame, const Node& n) {
    return frame.previous != nullptr && n.temporal_master != nullptr;
  }

  // The unfolded node that `n` of `frame`'s class stands for.
  Node& resolve(Frame& frame, const Node& n) {
    if (linked_in_time(frame, n)) return resolve(*frame.previous, *n.temporal_master);
    if (n.master != nullptr) return resolve(*frame.inner.at(n.clone_instance), *n.master);
    if (frame.instance != nullptr)
      if (Node* actual = frame.instance->actual_of(&n)) return resolve(*frame.outer, *actual);
    return *frame.copies.at(&n);
  }

  Node& copy_node(Node& n, const std::string& prefix) {
    Node* c = out_.new_node(n.category(), n.kind(), n.subtype());
    out_.rename(*c, (prefix + n.name_or_generate()).c_str());
    c->label = n.label;
    c->x = n.x;
    c->y = n.y;
    copy_attributes(n.attributes(), c->attributes());
    copy_states(n, *c);
    if (made != nullptr) made->push_back(c);
    return *c;
  }

  // The links of `copy` (the parents of `original`, resolved) and its tables,
  // each over the resolved nodes of the original's table in the same order,
  // so the contents copy as they are.  The links skip the per-link cycle
  // search of add_parent (a walk of the growing domain per link, quadratic
  // over a long chain of instances); check_acyclic runs once at the end.
  void link(Frame& frame, Node& original, Node& copy) {
    for (Node* p : original.parents()) {
      Node& parent = resolve(frame, *p);
      // Two inputs bound to one actual node would make it a parent twice.
      require(!copy.parents().contains(&parent));
      copy.parents_mut().push_back(&parent);
      parent.children_mut().push_back(&copy);
    }
    copy_contents(original, copy, [&](Node& n) -> Node& { return resolve(frame, n); });
  }

  // The instance nodes from the top frame down to `frame`, then `original`.
  static void set_source(const Frame& frame, Node& original, Node& copy) {
    std::size_t depth = 0;
    for (const Frame* f = &frame; f->instance_node != nullptr; f = f->outer) ++depth;
    copy.source.reserve_more(depth + 1);
    for (std::size_t i = 0; i < depth; ++i) copy.source.push_back(nullptr);
    const Frame* f = &frame;
    for (std::size_t i = depth; i-- > 0; f = f->outer) copy.source.replace(i, f->instance_node);
    copy.source.push_back(&original);
  }

  Domain& out_;

 public:
  std::deque<Frame> frames;
  bool with_sources = false;
  std::vector<Node*>* made = nullptr;  // collects the copies when set
};

// Copies the network of `from` (instances unfolded) into the empty `into`.
void copy_network(Domain& from, Domain& into, bool with_sources) {
  into.node_width = from.node_width;
  into.node_height = from.node_height;
  copy_attributes(from.attributes(), into.attributes());
  Unfolder unfolder(into);
  unfolder.with_sources = with_sources;
  Frame& top =
      unfolder.frames.emplace_back(Frame{&from, "", nullptr, nullptr, nullptr, {}, {}, nullptr});
  unfolder.make_nodes(top);
  unfolder.make_links(top);
  unfolder.check_acyclic();
  into.forget_graph_queries();
}

// The window of `slices` slices of `cls` (see create_dbn_domain), with a
// predictor when `with_predictor`.
std::unique_ptr<Domain> unfold_slices(Class& cls, std::size_t slices, bool with_predictor) {
  require(slices >= 1);
  auto out = std::make_unique<Domain>();
  out->node_width = cls.body().node_width;
  out->node_height = cls.body().node_height;
  copy_attributes(cls.body().attributes(), out->attributes());
  auto layout = std::make_unique<DbnLayout>();
  Unfolder unfolder(*out);
  // The window's nodes name their class nodes (class-table learning); the
  // predictor's are found by slice position.
  unfolder.with_sources = with_predictor;
  std::vector<Frame*> tops;
  for (std::size_t t = 1; t <= slices; ++t) {
    std::vector<Node*> made;
    unfolder.made = &made;
    Frame* previous = tops.empty() ? nullptr : tops.back();
    std::string prefix = std::to_string(t);
    prefix.insert(prefix.begin(), 'T');
    prefix.push_back('.');
    tops.push_back(&unfolder.frames.emplace_back(
        Frame{&cls.body(), prefix, nullptr, nullptr, nullptr, {}, {}, previous}));
    unfolder.make_nodes(*tops.back());
    // The first slice's temporal clones are the interface prior, not slice nodes.
    std::unordered_set<const Node*> clones;
    for (const auto& [original, copy] : tops.back()->copies)
      if (original->temporal_master != nullptr) clones.insert(copy);
    std::erase_if(made, [&](const Node* n) { return clones.contains(n); });
    layout->slices.push_back(std::move(made));
  }
  for (Frame* top : tops) unfolder.make_links(*top);
  unfolder.check_acyclic();
  out->forget_graph_queries();
  // The first slice's clones, oldest first, each a child of those before.
  const std::vector<Node*>& first = layout->slices.front();
  for (Node* n : oldest_first(cls.body())) {
    if (n->temporal_master == nullptr) continue;
    Node& clone = *tops.front()->copies.at(n);
    const Node* master = tops.front()->copies.at(n->temporal_master);
    Table& prior = node_table(clone);
    layout->initial_priors.emplace_back(prior.data(), prior.data() + prior.size());
    for (Node* earlier : layout->clones) add_parent(clone, *earlier);
    layout->clones.push_back(&clone);
    layout->masters.push_back(
        static_cast<std::size_t>(std::find(first.begin(), first.end(), master) - first.begin()));
  }
  std::vector<std::size_t> all(layout->clones.size());
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
  layout->clusters.push_back(std::move(all));
  if (with_predictor) layout->predictor = unfold_slices(cls, 1, false);
  out->dbn = std::move(layout);
  if (with_predictor) cls.collection().add_unfolded(*out);
  return out;
}

}  // namespace

std::unique_ptr<Domain> create_dbn_domain(Class& cls, std::size_t slices) {
  return unfold_slices(cls, slices, true);
}

std::unique_ptr<Domain> create_domain(Class& cls) {
  auto out = std::make_unique<Domain>();
  copy_network(cls.body(), *out, true);
  cls.collection().add_unfolded(*out);
  return out;
}

std::unique_ptr<Domain> clone_domain(Domain& domain) {
  require(!domain.is_class());
  auto out = std::make_unique<Domain>();
  copy_network(domain, *out, false);
  // Chain-graph components over the copies, found by name (a clone keeps
  // every name); each table made over the mapped nodes in the original's
  // order, so its numbers copy as they are.
  const auto copy_of = [&](const Node* n) { return out->find(n->name()); };
  for (const auto& c : domain.chain_components) {
    auto component = std::make_unique<ChainComponent>();
    for (const Node* m : c->members) component->members.push_back(copy_of(m));
    for (const Node* p : c->parents) component->parents.push_back(copy_of(p));
    std::vector<Node*> order;
    for (const Node* n : c->table->nodes()) order.push_back(copy_of(n));
    component->table.reset(new Table(*out, order, TableRole::conditional, nullptr));
    component->table->assign_contents(*c->table);
    out->chain_components.push_back(std::move(component));
  }
  return out;
}

Node& clone_node(Node& node) {
  require(node.instance_data == nullptr && node.master == nullptr);
  Domain& domain = node.domain();
  for (const auto& c : domain.chain_components) require(!c->members.contains(&node));
  Node& copy = *domain.new_node(node.category(), node.kind(), node.subtype());
  try {
    copy.label = node.label;
    copy.x = node.x;
    copy.y = node.y;
    copy_attributes(node.attributes(), copy.attributes());
    copy_states(node, copy);
    for (Node* p : node.parents()) add_parent(copy, *p);
    copy_contents(node, copy, [&](Node& n) -> Node& { return &n == &node ? copy : n; });
  } catch (...) {
    delete_node(copy);
    throw;
  }
  return copy;
}

}  // namespace kelva
