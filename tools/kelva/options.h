#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace kelva::cli {

/// What the tool was asked to do.
enum class Command {
  help,
  version,
  nodes,
  convert,
  beliefs,
  bench,
  compile,
  sample,
  learn,
  adapt,
  // Questions asked of a network under evidence.
  dsep,
  sensitivity,
  voi,
  map,
  learn_structure,
  decide,
  draw,
  predict,
  filter,
};

/// How reports are printed.
enum class Format { text, tsv };

/// Where the network comes from.
struct NetworkSource {
  /// Name of a bundled example network (empty when a file is named).
  std::string example;
  /// A NET file to read (empty when an example is named); a name ending
  /// in ".kb" is read as a KB file.
  std::string file;
  /// --class NAME: the class of a class file to unfold (empty: the last).
  std::string class_name;
  /// --password: the password of a protected KB file read or written.
  std::string password;
};

/// The parsed command line.
struct Options {
  Command command = Command::help;
  /// `COMMAND --help`: print that command's help instead of running it.
  bool help = false;
  /// --quiet: no progress notes on standard error.
  bool quiet = false;
  /// `learn --strict-columns`: refuse data set columns that match no node.
  bool strict_columns = false;
  /// `learn`, `predict --scaled`: scaled propagation, for evidence whose
  /// probability is below the smallest double.
  bool scaled = false;
  NetworkSource source;
  Format format = Format::text;
  /// Where `convert` and `learn` write their NET file, `sample` its data
  /// file, `draw` its picture.
  std::string output;
  /// `learn`, `adapt`, `predict`: the data file of the cases (the second
  /// file argument).
  std::string data;
  /// `learn`, `adapt --discretize`: new interval bounds for interval nodes
  /// from their numeric columns (none: the nodes' own bounds).
  std::optional<k_discretization_t> discretize;
  /// `adapt --fading`: the fading factor of every adapted node (1: none),
  /// and `--experience`: the experience count given to nodes without one.
  double fading = 1.0;
  double experience = 1.0;
  /// `learn`: the largest number of EM iterations (0: no limit) and the
  /// relative log-likelihood tolerance (negative: the library's default).
  unsigned long long max_iterations = 0;
  double tolerance = -1.0;
  /// `sample`: how many cases, and the probability of hiding each item.
  long cases = -1;
  double hide = 0.0;
  /// How often `bench` repeats each measurement.
  int repeat = 3;
  /// `--case` of beliefs, map and sample: a single-case file whose findings
  /// are entered before the --set items (none when empty).
  std::string case_file;
  /// Evidence of `beliefs`, `map` and `sample`: NODE=STATE texts in the
  /// order given.
  std::vector<std::string> findings;
  /// `beliefs --max`: propagate to max equilibrium.
  bool max_equilibrium = false;
  /// `bench`: nodes per random evidence set; `bench`, `predict`: worker
  /// threads; `bench`, `sample`: random seed.
  int evidence = 5;
  int threads = 1;
  unsigned long seed = 1;
  /// How `compile` triangulates.
  k_triangulation_method_t method = K_TM_BEST_GREEDY;
  /// `compile --max-separators`: the bound of the total-weight search (0:
  /// none).
  long max_separators = 0;
  /// The log file `compile` and `learn` write (none when empty).
  std::string log;
  /// `dsep --from`: the source nodes.  `sensitivity --target NODE=STATE`,
  /// `voi --target NODE`: the output probability or node.
  std::vector<std::string> from_nodes;
  std::string target;
  /// `convert --digits`: significant digits of the numbers written (0: the
  /// usual NET formats; 17 reads back exactly).
  int digits = 0;
  /// `map`: the nodes whose configurations are listed (`predict`: the
  /// nodes whose beliefs are written), and the smallest probability listed.
  std::vector<std::string> map_nodes;
  double min_probability = 0.01;
  /// `learn-structure`: the learner (pc, npc, tree or greedy), the significance
  /// level of PC's tests and the greedy search's score.
  std::string structure_method = "pc";
  double significance = 0.05;
  k_score_t score = K_SCORE_BIC;
  /// `learn --structure M`: learn the links by M first (as learn-structure).
  bool structure_from_data = false;
  /// `draw --junction-tree`: draw the junction forest, not the network.
  bool junction_tree = false;
  /// `filter`: slices in the window (--window), the Boyen–Koller
  /// approximation (--bk) and the steps predicted after the data (--predict).
  std::size_t window = 1;
  bool bk = false;
  std::size_t predict_steps = 0;
};

/// Parses the arguments after the program name; throws UsageError.
Options parse_options(std::span<const char* const> args);

/// `x` as people write it: the shortest text that reads back as `x`, with
/// an exponent as in 1e300.
std::string format_number(double x);

}  // namespace kelva::cli
