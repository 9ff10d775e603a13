#pragma once
// Helpers of the reader and writer tests: scratch files, a collector of the
// readers' messages and a one-line description of each node.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"

namespace kelva::test {

/// A scratch file holding `text`, removed at the end of the test.
struct TempFile {
  std::string path = ::testing::TempDir() + "kelva_text_XXXXXX";
  explicit TempFile(const std::string& text = "") {
    const int fd = mkstemp(path.data());
    EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);
  }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  ~TempFile() { std::remove(path.c_str()); }
  std::string contents() const {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }
};

/// A reader's message handler: appends "position:message" to the string
/// `data` points to, reports joined by "|".
inline void collect(std::uint64_t position, const char* message, void* data) {
  std::string& all = *static_cast<std::string*>(data);
  if (!all.empty()) all += '|';
  ((all += std::to_string(position)) += ':') += message;
}

/// The domain's nodes, newest first, one line each: name, category, kind,
/// then for a discrete node its subtype and states (labels, with "=value"
/// for numeric ones in full, joined by ","; an interval node's upper
/// bound after "<").
inline std::string describe_nodes(const Domain& domain) {
  std::ostringstream out;
  out.precision(17);
  for (const Node* n = domain.first_node(); n != nullptr; n = n->next) {
    out << n->name() << ' ' << n->category() << ' ' << n->kind();
    if (n->is_discrete()) out << ' ' << n->subtype() << ' ';
    for (std::size_t i = 0; n->is_discrete() && i < n->state_count(); ++i) {
      out << (i > 0 ? "," : "") << n->state_label(i);
      if (n->subtype() >= K_SUBTYPE_NUMBER) out << '=' << n->state_value(i);
    }
    if (n->subtype() == K_SUBTYPE_INTERVAL) out << '<' << n->state_value(n->state_count());
    out << '\n';
  }
  return out.str();
}

}  // namespace kelva::test
