// Unfolding a class into an ordinary domain.  Every class and instance is a
// frame: first every frame makes copies of its own nodes (names prefixed by
// the instance path), then links and tables are made by resolving each
// parent through bindings (up to the enclosing frame) and output clones
// (down into the instance's frame).

#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "network/error.h"
#include "structure/classes.h"
#include "structure/structure.h"
#include "table/table.h"

namespace kelva {

namespace {

struct Frame {
  Domain* body;
  std::string prefix;
  Frame* outer;
  const InstanceData* instance;  // null for the top frame
  std::unordered_map<const Node*, Node*> copies;
  std::unordered_map<const Node*, Frame*> inner;  // by instance node
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
                                                 {},
                                                 {}});
        frame.inner.emplace(n, &inner);
        make_nodes(inner);
      } else if (n->master == nullptr && !bound(frame, *n)) {
        frame.copies.emplace(n, &copy_node(*n, frame.prefix));
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

  // The unfolded node that `n` of `frame`'s class stands for.
  Node& resolve(Frame& frame, const Node& n) {
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
    if (n.is_discrete()) {
      c->resize_states(n.state_count());
      for (std::size_t i = 0; i < n.state_count(); ++i) {
        if (*n.state_label(i) != '\0') c->set_state_label(i, n.state_label(i));
        c->set_state_value(i, n.state_value(i));
      }
      c->set_state_value(n.state_count(), n.state_value(n.state_count()));
    }
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
    copy_table(frame, original.table(), TableRole::conditional, copy, copy.table_slot());
    copy_table(frame, original.experience_table(), TableRole::experience, copy,
               copy.experience_slot());
    copy_table(frame, original.fading_table(), TableRole::fading, copy, copy.fading_slot());
    if (original.model() != nullptr)
      copy_model_into(original, copy, [&](Node& n) -> Node& { return resolve(frame, n); });
    copy.needs_generation = original.needs_generation;
  }

  void copy_table(Frame& frame, const Table* from, TableRole role, Node& copy, TablePtr& slot) {
    if (from == nullptr) return;
    std::vector<Node*> order;
    order.reserve(from->nodes().size());
    for (Node* m : from->nodes()) order.push_back(&resolve(frame, *m));
    slot.reset(new Table(out_, order, role, &copy));
    slot->assign_contents(*from);
  }

  Domain& out_;

 public:
  std::deque<Frame> frames;
};

// Copies the network of `from` (instances unfolded) into the empty `into`.
void copy_network(Domain& from, Domain& into) {
  into.node_width = from.node_width;
  into.node_height = from.node_height;
  copy_attributes(from.attributes(), into.attributes());
  Unfolder unfolder(into);
  Frame& top = unfolder.frames.emplace_back(Frame{&from, "", nullptr, nullptr, {}, {}});
  unfolder.make_nodes(top);
  unfolder.make_links(top);
  unfolder.check_acyclic();
  into.forget_graph_queries();
}

}  // namespace

std::unique_ptr<Domain> create_domain(Class& cls) {
  auto out = std::make_unique<Domain>();
  copy_network(cls.body(), *out);
  return out;
}

}  // namespace kelva
