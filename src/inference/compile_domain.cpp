// The compile stage on top of triangulation: model tables, the check of
// probability tables, the first propagation and the belief report.
#include "inference/compile_domain.h"

#include "compile/compile.h"
#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "expr/evaluate.h"
#include "expr/generate.h"
#include "inference/belief_report.h"
#include "inference/propagate.h"
#include "network/domain.h"
#include "network/error.h"

namespace kelva {

void compile_domain(Domain& domain) {
  require(has_participants(domain) && !domain.is_compiled());
  const bool triangulated_here = !domain.is_triangulated();
  if (triangulated_here) triangulate_domain(domain, K_TM_BEST_GREEDY);

  CompileLog log(domain.log());
  try {
    domain.set_compiled(true);
    generate_tables(domain, PriorBeliefs());
    // Invalid tables are only reported: propagation has the last word.
    if (log.active()) verify_probability_potentials(domain);
    for (const auto& tree : domain.forest()->trees) tree->needs_initialisation = true;
    propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    if (log.active()) {
      report_domain_beliefs(domain);
      log.flush();
    }
  } catch (...) {
    domain.set_compiled(false);
    log.flush_quietly();
    if (triangulated_here) {
      domain.uncompile();
      log.flush_quietly();
    }
    throw;
  }
}

}  // namespace kelva
