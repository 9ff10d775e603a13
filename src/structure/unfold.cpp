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
        for (Node* p : n->parents()) add_parent(*it->second, resolve(frame, *p));
        copy_tables(frame, *n, *it->second);
      }
    }
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

  // A table of `copy` (made by `make`) shaped and filled as `from`.
  void copy_table(Frame& frame, const Table* from, Table& (*make)(Node&), Node& copy) {
    if (from == nullptr) return;
    Table& to = make(copy);
    std::vector<Node*> order;
    for (Node* m : from->nodes()) order.push_back(&resolve(frame, *m));
    to.reorder(order);
    to.assign_contents(*from);
  }

  void copy_tables(Frame& frame, Node& original, Node& copy) {
    copy_table(frame, original.table(), node_table, copy);
    copy_table(frame, original.experience_table(), experience_table, copy);
    copy_table(frame, original.fading_table(), fading_table, copy);
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
}

}  // namespace

std::unique_ptr<Domain> create_domain(Class& cls) {
  auto out = std::make_unique<Domain>();
  copy_network(cls.body(), *out);
  return out;
}

}  // namespace kelva
