// The networks bundled with the tool.

#include <algorithm>

#include "example_network.h"

namespace kelva::cli {

namespace {

/// The chest-clinic network of Lauritzen and Spiegelhalter (1988), with the
/// textbook numbers.
ExampleNetwork make_asia() {
  return {"asia",
          "chest clinic: visit to Asia, smoking, tuberculosis, lung cancer, bronchitis",
          {
              {"asia", "Visit to Asia?", {"yes", "no"}, {}, {0.01, 0.99}},
              {"smoke", "Smoker?", {"yes", "no"}, {}, {0.5, 0.5}},
              {"tub", "Has tuberculosis?", {"yes", "no"}, {"asia"}, {0.05, 0.95, 0.01, 0.99}},
              {"lung", "Has lung cancer?", {"yes", "no"}, {"smoke"}, {0.1, 0.9, 0.01, 0.99}},
              {"bronc", "Has bronchitis?", {"yes", "no"}, {"smoke"}, {0.6, 0.4, 0.3, 0.7}},
              {"either",
               "Tuberculosis or cancer?",
               {"yes", "no"},
               {"lung", "tub"},
               {1, 0, 1, 0, 1, 0, 0, 1}},
              {"xray", "Positive X-ray?", {"yes", "no"}, {"either"}, {0.98, 0.02, 0.05, 0.95}},
              {"dysp",
               "Dyspnoea?",
               {"yes", "no"},
               {"bronc", "either"},
               {0.9, 0.1, 0.8, 0.2, 0.7, 0.3, 0.1, 0.9}},
          }};
}

}  // namespace

std::span<const ExampleNetwork> example_networks() {
  static const std::vector<ExampleNetwork> all = {make_asia()};
  return all;
}

const ExampleNetwork* find_example_network(std::string_view name) {
  auto all = example_networks();
  auto it = std::ranges::find_if(all, [&](const ExampleNetwork& e) { return e.name == name; });
  return it == all.end() ? nullptr : &*it;
}

}  // namespace kelva::cli
