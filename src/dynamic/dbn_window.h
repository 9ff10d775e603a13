#pragma once

#include <cstddef>

#include "kelva/kelva.h"

namespace kelva {

class Domain;
class Node;

// The moving window of a dynamic network (a domain made by
// create_dbn_domain, structure/temporal.h).  Every operation throws
// Error(usage) for a domain without a window.

/// Triangulates the window so that the interface of every slice (the
/// masters of the temporal clones) lies in one clique: the window can then
/// move exactly.  Error(usage) for a triangulated domain or method 19.
void triangulate_dbn(Domain& domain, k_triangulation_method_t method);

/// Triangulates the window for the Boyen–Koller approximation: the first
/// slice's clones are linked only within their interface clusters (the
/// connected parts of the interface in the slice's moral graph), whose
/// joint distributions are then carried as independent factors.
void triangulate_dbn_for_bk(Domain& domain, k_triangulation_method_t method);
/// Whether the window is triangulated for the Boyen–Koller approximation.
bool is_triangulated_for_bk(const Domain& domain);

/// Retracts the window's evidence, restores the first interface prior and
/// the offset 0, and forgets predictions.
void initialize_dbn_window(Domain& domain);

/// Slides the compiled window by `slices` (1 to the window's length): the
/// first slice's clones get the distribution of the interface after the
/// last slice that leaves, given the evidence of the slices that leave and
/// of earlier ones; the evidence of the remaining slices moves with them.
/// Error(not_compiled) for an uncompiled window, Error(usage) when an
/// interface lies in no clique.  The window needs a propagation afterwards.
/// On failure the window is as it was.
void move_dbn_window(Domain& domain, std::size_t slices);

/// The number of slices the window moved since it was initialised.
std::size_t dbn_window_offset(const Domain& domain);

/// Computes the beliefs (discrete nodes) and means and variances
/// (continuous nodes) of the slice's nodes for `steps` slices after the
/// window, given all evidence entered in the window (propagated first).
void compute_dbn_predictions(Domain& domain, std::size_t steps);

/// Predicted belief of `state` of a discrete window node `time` slices
/// after the window (0: the first slice after it).
double predicted_belief(const Node& node, std::size_t state, std::size_t time);
/// Predicted value of a real-valued function node of the window: its
/// expression evaluated on the predicted beliefs (as function_node_value
/// on a propagated domain), with that function's errors.
double predicted_value(const Node& node, std::size_t time);
/// Predicted mean and variance of a continuous window node.
double predicted_mean(const Node& node, std::size_t time);
double predicted_variance(const Node& node, std::size_t time);

}  // namespace kelva
