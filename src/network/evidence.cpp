#include "network/evidence.h"

namespace kelva {

namespace {

std::int64_t permuted_code(std::int64_t code, const std::vector<std::size_t>& new_to_old) {
  if (code < 0) return code;
  for (std::size_t i = 0; i < new_to_old.size(); ++i)
    if (new_to_old[i] == static_cast<std::size_t>(code)) return static_cast<std::int64_t>(i);
  return code;
}

std::vector<double> permuted_vector(const std::vector<double>& v,
                                    const std::vector<std::size_t>& new_to_old) {
  if (v.size() != new_to_old.size()) return v;
  std::vector<double> out(v.size());
  for (std::size_t i = 0; i < v.size(); ++i) out[i] = v[new_to_old[i]];
  return out;
}

}  // namespace

Evidence Evidence::permuted(const std::vector<std::size_t>& new_to_old) const {
  Evidence e = *this;
  e.entered_code = permuted_code(entered_code, new_to_old);
  e.propagated_code = permuted_code(propagated_code, new_to_old);
  e.entered_vector = permuted_vector(entered_vector, new_to_old);
  e.propagated_vector = permuted_vector(propagated_vector, new_to_old);
  return e;
}

}  // namespace kelva
