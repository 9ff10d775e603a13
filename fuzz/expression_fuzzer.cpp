// Parses the input (up to its first NUL) as an expression over a small
// domain.  Whatever parses must print; the printed text must parse again and
// print the same, and a deep copy must print the same too.  Numbers that
// are not finite print as words ("INF") and cannot be read back, so texts
// holding them are only printed.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "expr/expression.h"
#include "fuzz_check.h"
#include "kelva/kelva.h"
#include "network/error.h"

namespace {

k_node_t make(k_domain_t d, const char* name, k_kind_t kind, k_subtype_t subtype, k_size_t states) {
  k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, kind, subtype);
  CHECK(n != nullptr);
  CHECK(k_node_set_name(n, name) == 0);
  if (kind == K_KIND_DISCRETE && subtype != K_SUBTYPE_BOOLEAN)
    CHECK(k_node_set_number_of_states(n, states) == 0);
  return n;
}

// A model whose domain holds labelled nodes a, b, c, boolean A and B,
// numbered N and M, interval I and J, continuous x and y.  Built once.
k_model_t model() {
  static const k_model_t m = [] {
    k_domain_t d = k_new_domain();
    CHECK(d != nullptr);
    for (const char* name : {"a", "b", "c"}) make(d, name, K_KIND_DISCRETE, K_SUBTYPE_LABEL, 3);
    for (const char* name : {"A", "B"}) make(d, name, K_KIND_DISCRETE, K_SUBTYPE_BOOLEAN, 2);
    for (const char* name : {"N", "M"}) make(d, name, K_KIND_DISCRETE, K_SUBTYPE_NUMBER, 4);
    for (const char* name : {"I", "J"}) make(d, name, K_KIND_DISCRETE, K_SUBTYPE_INTERVAL, 2);
    for (const char* name : {"x", "y"}) make(d, name, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL, 0);
    k_node_t owner = make(d, "Y", K_KIND_DISCRETE, K_SUBTYPE_NUMBER, 2);
    const k_node_t none[] = {nullptr};
    k_model_t model = k_node_new_model(owner, none);
    CHECK(model != nullptr);
    return model;
  }();
  return m;
}

// A stack of its own: a flat sum may be thousands of links long.
bool all_finite(k_expression_t e) {
  std::vector<k_expression_t> pending{e};
  while (!pending.empty()) {
    e = pending.back();
    pending.pop_back();
    if (k_expression_get_operator(e) == K_OP_NUMBER && !std::isfinite(k_expression_get_number(e)))
      return false;
    if (k_expression_is_composite(e) != 1) continue;
    for (k_expression_t* p = k_expression_get_operands(e); *p != nullptr; ++p)
      pending.push_back(*p);
  }
  return true;
}

// Counts messages; a failed parse must have reported at least one.
void count(std::uint64_t, const char* message, void* data) {
  CHECK(message != nullptr && message[0] != '\0');
  ++*static_cast<int*>(data);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);  // ends at a NUL
  int messages = 0;
  k_expression_t parsed = k_string_parse_expression(input.c_str(), model(), count, &messages);
  if (parsed == nullptr) {
    CHECK(k_error_code() != K_ERROR_NONE);
    CHECK(messages > 0);
    return 0;
  }
  char* printed = k_expression_to_string(parsed);
  CHECK(printed != nullptr);

  auto* tree = reinterpret_cast<kelva::Expression*>(parsed);
  kelva::Expression* copy = kelva::copy_expression(*tree);
  CHECK(kelva::expression_to_string(copy) == printed);
  try {
    kelva::verify_types(*copy, true);
  } catch (const kelva::Error& e) {
    CHECK(e.code() == K_ERROR_INVALID_EXPRESSION);
  }
  kelva::ExpressionFactory::release(copy);

  if (all_finite(parsed)) {
    k_expression_t again = k_string_parse_expression(printed, model(), count, &messages);
    if (again == nullptr) std::fprintf(stderr, "printed text does not parse: %s\n", printed);
    CHECK(again != nullptr);
    char* reprinted = k_expression_to_string(again);
    CHECK(reprinted != nullptr);
    if (std::strcmp(printed, reprinted) != 0)
      std::fprintf(stderr, "printed:   %s\nreprinted: %s\n", printed, reprinted);
    CHECK(std::strcmp(printed, reprinted) == 0);
    std::free(reprinted);
    CHECK(k_expression_delete(again) == 0);
  }
  std::free(printed);
  CHECK(k_expression_delete(parsed) == 0);
  return 0;
}
