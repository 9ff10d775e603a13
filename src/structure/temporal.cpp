#include "structure/temporal.h"

#include "network/error.h"
#include "structure/classes.h"
#include "structure/structure.h"

namespace kelva {

Node& create_temporal_clone(Node& master) {
  Domain& body = master.domain();
  require(body.is_class() && master.category() == K_CATEGORY_CHANCE && master.is_discrete());
  require(master.master == nullptr && master.temporal_master == nullptr &&
          master.temporal_clone == nullptr);
  Node& clone = *body.new_node(K_CATEGORY_CHANCE, K_KIND_DISCRETE, master.subtype());
  clone.resize_states(master.state_count());
  for (std::size_t i = 0; i < master.state_count(); ++i) {
    if (*master.state_label(i) != '\0') clone.set_state_label(i, master.state_label(i));
    clone.set_state_value(i, master.state_value(i));
  }
  clone.set_state_value(master.state_count(), master.state_value(master.state_count()));
  clone.temporal_master = &master;
  master.temporal_clone = &clone;
  return clone;
}

}  // namespace kelva
