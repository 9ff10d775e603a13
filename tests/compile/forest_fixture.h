#pragma once

// Junction forests built from the engine's triangulations, in a given or
// the best greedy order, with the log captured.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "capi/boundary.h"
#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "compile/moral_graph.h"
#include "compile/triangulate.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"

namespace kelva::test {

/// The triangulation of `domain` by eliminating its participating nodes in
/// `order` (continuous ones first), without a log.
inline Triangulation eliminate(Domain& domain, const std::vector<Node*>& order) {
  CompileLog silent(nullptr);
  return triangulate_by_order(build_moral_graph(domain, silent), order, silent);
}

/// The best-greedy triangulation of `domain`, without a log.
inline Triangulation eliminate_greedily(Domain& domain) {
  CompileLog silent(nullptr);
  return triangulate(build_moral_graph(domain, silent), K_TM_BEST_GREEDY, silent);
}

/// Text written to a stream, read back when the stream is closed.
class LogCapture {
 public:
  LogCapture() : file_(open_memstream(&buffer_, &size_)) {}
  ~LogCapture() {
    if (file_ != nullptr) std::fclose(file_);
    std::free(buffer_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::FILE* file() const noexcept { return file_; }
  /// Everything written so far.
  std::string text() {
    std::fflush(file_);
    return std::string(buffer_, size_);
  }

 private:
  char* buffer_ = nullptr;
  std::size_t size_ = 0;
  std::FILE* file_;
};

/// Builds the junction forest of `domain` from `triangulation` and installs
/// it, as triangulation does; the C API's status and error discipline.
inline k_status_t build_forest(Domain& domain, const Triangulation& triangulation,
                               std::FILE* log = nullptr) {
  return capi::guard_status([&] {
    CompileLog compile_log(log);
    domain.install_forest(build_junction_forest(domain, triangulation, compile_log));
  });
}

/// The node named `name` of `domain`.
inline Node* named(const Domain& domain, const char* name) {
  Node* n = domain.find(name);
  EXPECT_NE(n, nullptr) << name;
  return n;
}

/// The nodes named in `names`, in that order.
inline std::vector<Node*> named(const Domain& domain, std::initializer_list<const char*> names) {
  std::vector<Node*> result;
  for (const char* name : names) result.push_back(named(domain, name));
  return result;
}

}  // namespace kelva::test
