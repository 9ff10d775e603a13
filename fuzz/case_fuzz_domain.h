// What the case-file fuzzers share: a small domain with a node of every
// sort that case files know, and reading from memory through a stream.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_check.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/error.h"

namespace case_fuzz {

inline k_node_t discrete(k_domain_t d, const char* name, k_category_t category, k_subtype_t subtype,
                         k_size_t states) {
  k_node_t n = k_domain_new_node(d, category, K_KIND_DISCRETE, subtype);
  CHECK(n != nullptr && k_node_set_name(n, name) == 0);
  if (states > 0) CHECK(k_node_set_number_of_states(n, states) == 0);
  return n;
}

/// L (labels), D (two equal labels), B (boolean), N (numbers 1 2.5 10),
/// I (intervals [0,1) [1,5)), X (continuous), F (discrete function) and R
/// (a real-valued function node, which takes no findings).
inline k_domain_t make_domain() {
  k_domain_t d = k_new_domain();
  k_node_t l = discrete(d, "L", K_CATEGORY_CHANCE, K_SUBTYPE_LABEL, 3);
  const char* labels[] = {"low", "mid dle", "high"};
  for (k_size_t i = 0; i < 3; ++i) CHECK(k_node_set_state_label(l, i, labels[i]) == 0);
  CHECK(k_node_set_label(l, "level") == 0);
  k_node_t dup = discrete(d, "D", K_CATEGORY_CHANCE, K_SUBTYPE_LABEL, 2);
  for (k_size_t i = 0; i < 2; ++i) CHECK(k_node_set_state_label(dup, i, "a") == 0);
  discrete(d, "B", K_CATEGORY_CHANCE, K_SUBTYPE_BOOLEAN, 0);
  k_node_t n = discrete(d, "N", K_CATEGORY_CHANCE, K_SUBTYPE_NUMBER, 3);
  const double values[] = {1, 2.5, 10};
  for (k_size_t i = 0; i < 3; ++i) CHECK(k_node_set_state_value(n, i, values[i]) == 0);
  k_node_t in = discrete(d, "I", K_CATEGORY_CHANCE, K_SUBTYPE_INTERVAL, 2);
  const double bounds[] = {0, 1, 5};
  for (k_size_t i = 0; i < 3; ++i) CHECK(k_node_set_state_value(in, i, bounds[i]) == 0);
  k_node_t x = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
  CHECK(x != nullptr && k_node_set_name(x, "X") == 0);
  discrete(d, "F", K_CATEGORY_FUNCTION, K_SUBTYPE_LABEL, 2);
  k_node_t r = k_domain_new_node(d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  CHECK(r != nullptr && k_node_set_name(r, "R") == 0);
  return d;
}

inline kelva::Domain& engine(k_domain_t d) { return *reinterpret_cast<kelva::Domain*>(d); }

/// Runs `read(domain, stream)` on `text` as a file's contents; true when it
/// succeeded, false when it threw Error (any other failure is a bug).
template <class Read>
bool read_text(const std::string& text, Read read) {
  std::FILE* stream =
      text.empty() ? std::tmpfile() : fmemopen(const_cast<char*>(text.data()), text.size(), "r");
  CHECK(stream != nullptr);
  bool ok = true;
  try {
    read(stream);
  } catch (const kelva::Error& e) {
    CHECK(e.code() != K_ERROR_NONE);
    ok = false;
  }
  std::fclose(stream);
  return ok;
}

}  // namespace case_fuzz
