// Learning the tables of classes from a domain made from them.
#include "learning/class_tables.h"

#include "capi/boundary.h"

using kelva::capi::get;
using kelva::capi::guard_status;

extern "C" {

k_status_t k_domain_learn_class_tables(k_domain_t domain) {
  return guard_status([&] { kelva::learn_class_tables(get(domain)); });
}

k_status_t k_domain_learn_class_tables_using_fractional_update(k_domain_t domain) {
  return guard_status([&] { kelva::learn_class_tables_by_fractional_update(get(domain)); });
}

k_status_t k_domain_learn_class_tables_using_online_em(k_domain_t domain, double rate) {
  return guard_status([&] { kelva::learn_class_tables_by_online_em(get(domain), rate); });
}

k_status_t k_domain_adapt_class_tables_using_fractional_update(k_domain_t domain) {
  return guard_status([&] { kelva::adapt_class_tables_by_fractional_update(get(domain)); });
}

k_status_t k_domain_adapt_class_tables_using_online_em(k_domain_t domain, double rate) {
  return guard_status([&] { kelva::adapt_class_tables_by_online_em(get(domain), rate); });
}

}  // extern "C"
