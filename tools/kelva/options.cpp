#include "options.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

#include "cli_error.h"

namespace kelva::cli {

namespace {

/// Matches `--name VALUE` and `--name=VALUE` at args[i]; advances i past the
/// value.  Empty when args[i] is another argument.
std::optional<std::string> option_value(std::span<const char* const> args, std::size_t& i,
                                        std::string_view name) {
  std::string_view arg = args[i];
  if (arg == name) {
    if (i + 1 == args.size()) throw UsageError("option " + std::string(name) + " needs a value");
    return std::string(args[++i]);
  }
  if (arg.starts_with(name) && arg.size() > name.size() && arg[name.size()] == '=')
    return std::string(arg.substr(name.size() + 1));
  return std::nullopt;
}

/// Reads the value of --format.
Format parse_format(std::string_view value) {
  if (value == "text") return Format::text;
  if (value == "tsv") return Format::tsv;
  throw UsageError("unknown format '" + std::string(value) + "' (use text or tsv)");
}

/// Reads a whole number from `low` to `high` for option `name`.
long parse_count(const std::string& value, std::string_view name, long low, long high) {
  char* end = nullptr;
  errno = 0;
  const long n = std::strtol(value.c_str(), &end, 10);
  if (value.empty() || *end != '\0' || errno != 0 || n < low || n > high)
    throw UsageError(std::string(name) + " needs a count from " + std::to_string(low) + " to " +
                     std::to_string(high));
  return n;
}

/// Refuses `name` unless the command is `wanted`.
void only_for(const Options& options, Command wanted, std::string_view name) {
  if (options.command != wanted) throw UsageError("unknown option '" + std::string(name) + "'");
}

/// Reads the value of --method.
k_triangulation_method_t parse_method(std::string_view value) {
  if (value == "clique-size") return K_TM_CLIQUE_SIZE;
  if (value == "clique-weight") return K_TM_CLIQUE_WEIGHT;
  if (value == "fill-in-size") return K_TM_FILL_IN_SIZE;
  if (value == "fill-in-weight") return K_TM_FILL_IN_WEIGHT;
  if (value == "best-greedy") return K_TM_BEST_GREEDY;
  if (value == "total-weight") return K_TM_TOTAL_WEIGHT;
  throw UsageError("unknown method '" + std::string(value) +
                   "' (use clique-size, clique-weight, fill-in-size, fill-in-weight, "
                   "best-greedy or total-weight)");
}

/// Reads a number from `low` to `high` for option `name`.
double parse_number(const std::string& value, std::string_view name, double low, double high) {
  char* end = nullptr;
  errno = 0;
  const double x = std::strtod(value.c_str(), &end);
  if (value.empty() || *end != '\0' || errno != 0 || !(x >= low && x <= high))
    throw UsageError(std::string(name) + " needs a number from " + format_number(low) + " to " +
                     format_number(high));
  return x;
}

/// The names of a comma-separated list; refuses empty names and repeats.
std::vector<std::string> split_names(const std::string& value) {
  std::vector<std::string> names;
  std::size_t from = 0;
  for (;;) {
    const std::size_t comma = std::min(value.find(',', from), value.size());
    std::string name = value.substr(from, comma - from);
    if (name.empty()) throw UsageError("--nodes needs names separated by commas");
    if (std::find(names.begin(), names.end(), name) != names.end())
      throw UsageError("--nodes: node '" + name + "' is named twice");
    names.push_back(std::move(name));
    if (comma == value.size()) return names;
    from = comma + 1;
  }
}

/// Refuses `name` unless the command is one of `wanted`.
void only_for(const Options& options, std::initializer_list<Command> wanted,
              std::string_view name) {
  for (Command c : wanted)
    if (options.command == c) return;
  throw UsageError("unknown option '" + std::string(name) + "'");
}

}  // namespace

Options parse_options(std::span<const char* const> args) {
  Options options;
  std::vector<std::string> learn_files;
  if (args.empty()) throw UsageError("no command given");
  std::string_view command = args[0];
  if (command == "--help" || command == "-h" || command == "help") return options;
  if (command == "--version") {
    if (args.size() > 1) throw UsageError("--version takes no arguments");
    options.command = Command::version;
    return options;
  }
  if (command == "nodes") {
    options.command = Command::nodes;
  } else if (command == "convert") {
    options.command = Command::convert;
  } else if (command == "beliefs") {
    options.command = Command::beliefs;
  } else if (command == "bench") {
    options.command = Command::bench;
  } else if (command == "compile") {
    options.command = Command::compile;
  } else if (command == "sample") {
    options.command = Command::sample;
  } else if (command == "learn") {
    options.command = Command::learn;
  } else if (command == "dsep") {
    options.command = Command::dsep;
  } else if (command == "sensitivity") {
    options.command = Command::sensitivity;
  } else if (command == "voi") {
    options.command = Command::voi;
  } else if (command == "map") {
    options.command = Command::map;
  } else if (command == "adapt") {
    options.command = Command::adapt;
  } else if (command == "learn-structure") {
    options.command = Command::learn_structure;
  } else if (command == "decide") {
    options.command = Command::decide;
  } else if (command == "draw") {
    options.command = Command::draw;
  } else if (command == "predict") {
    options.command = Command::predict;
  } else if (command == "filter") {
    options.command = Command::filter;
  } else {
    throw UsageError("unknown command '" + std::string(command) + "'");
  }

  for (std::size_t i = 1; i < args.size(); ++i) {
    std::string_view arg = args[i];
    if (arg == "--help" || arg == "-h") {
      options.help = true;
      return options;
    }
    if (arg == "--quiet" || arg == "-q") {
      options.quiet = true;
      continue;
    }
    if (auto value = option_value(args, i, "--example")) {
      options.source.example = *value;
    } else if (auto value = option_value(args, i, "--class")) {
      only_for(options,
               {Command::nodes, Command::beliefs, Command::compile, Command::bench,
                Command::convert, Command::filter},
               "--class");
      options.source.class_name = *value;
    } else if (auto value = option_value(args, i, "--format")) {
      if (options.command != Command::nodes && options.command != Command::compile)
        only_for(options, {Command::beliefs, Command::decide, Command::filter}, "--format");
      options.format = parse_format(*value);
    } else if (auto value = option_value(args, i, "--set")) {
      only_for(options,
               {Command::beliefs, Command::dsep, Command::sensitivity, Command::voi, Command::map,
                Command::sample, Command::decide, Command::draw},
               "--set");
      const std::size_t eq = value->find('=');
      if (eq == std::string::npos) throw UsageError("--set needs NODE=STATE, not '" + *value + "'");
      for (const std::string& earlier : options.findings)
        if (earlier.compare(0, earlier.find('='), *value, 0, eq) == 0 && earlier != *value)
          throw UsageError("--set: node '" + value->substr(0, eq) + "' is set twice (" + earlier +
                           " and " + *value + ")");
      options.findings.push_back(*value);
    } else if (auto value = option_value(args, i, "--from")) {
      only_for(options, Command::dsep, "--from");
      for (std::size_t start = 0; start <= value->size();) {
        std::size_t comma = value->find(',', start);
        if (comma == std::string::npos) comma = value->size();
        if (comma == start) throw UsageError("--from needs NODE,NODE,..., not '" + *value + "'");
        options.from_nodes.push_back(value->substr(start, comma - start));
        start = comma + 1;
      }
    } else if (auto value = option_value(args, i, "--target")) {
      only_for(options,
               {Command::sensitivity, Command::voi, Command::learn_structure, Command::learn},
               "--target");
      if (value->empty() ||
          (options.command == Command::sensitivity) != (value->find('=') != std::string::npos))
        throw UsageError(options.command == Command::sensitivity ? "--target needs NODE=STATE"
                                                                 : "--target needs NODE");
      options.target = *value;
    } else if (auto value = option_value(args, i, "--case")) {
      only_for(options,
               {Command::beliefs, Command::map, Command::sample, Command::decide, Command::draw},
               "--case");
      options.case_file = *value;
    } else if (arg == "--max") {
      only_for(options, Command::beliefs, "--max");
      options.max_equilibrium = true;
    } else if (auto value = option_value(args, i, "--repeat")) {
      only_for(options, Command::bench, "--repeat");
      options.repeat = static_cast<int>(parse_count(*value, "--repeat", 1, 1000));
    } else if (auto value = option_value(args, i, "--evidence")) {
      only_for(options, Command::bench, "--evidence");
      options.evidence = static_cast<int>(parse_count(*value, "--evidence", 0, 1000000));
    } else if (auto value = option_value(args, i, "--threads")) {
      only_for(options, {Command::bench, Command::predict, Command::learn}, "--threads");
      options.threads = static_cast<int>(parse_count(*value, "--threads", 1, 256));
    } else if (auto value = option_value(args, i, "--seed")) {
      only_for(options, {Command::bench, Command::sample}, "--seed");
      options.seed = static_cast<unsigned long>(parse_count(*value, "--seed", 0, 2147483647));
    } else if (auto value = option_value(args, i, "-n")) {
      only_for(options, Command::sample, "-n");
      options.cases = parse_count(*value, "-n", 0, 2147483647);
    } else if (auto value = option_value(args, i, "--hide")) {
      only_for(options, Command::sample, "--hide");
      options.hide = parse_number(*value, "--hide", 0.0, 1.0);
    } else if (auto value = option_value(args, i, "--max-iterations")) {
      only_for(options, Command::learn, "--max-iterations");
      options.max_iterations =
          static_cast<unsigned long long>(parse_count(*value, "--max-iterations", 0, 2147483647));
    } else if (auto value = option_value(args, i, "--tolerance")) {
      only_for(options, Command::learn, "--tolerance");
      options.tolerance = parse_number(*value, "--tolerance", 0.0, 1e300);
    } else if (auto value = option_value(args, i, "--discretize")) {
      only_for(options, {Command::learn, Command::adapt}, "--discretize");
      if (*value == "width") options.discretize = K_DISCRETIZE_EQUAL_WIDTH;
      else if (*value == "frequency") options.discretize = K_DISCRETIZE_EQUAL_FREQUENCY;
      else throw UsageError("--discretize takes width or frequency, not '" + *value + "'");
    } else if (auto value = option_value(args, i, "--fading")) {
      only_for(options, Command::adapt, "--fading");
      options.fading = parse_number(*value, "--fading", 0.0, 1.0);
      if (!(options.fading > 0.0)) throw UsageError("--fading must be above 0");
    } else if (auto value = option_value(args, i, "--experience")) {
      only_for(options, Command::adapt, "--experience");
      options.experience = parse_number(*value, "--experience", 0.0, 1e300);
    } else if (arg == "--junction-tree") {
      only_for(options, Command::draw, "--junction-tree");
      options.junction_tree = true;
    } else if (arg == "--scaled") {
      only_for(options, {Command::learn, Command::predict}, "--scaled");
      options.scaled = true;
    } else if (arg == "--strict-columns") {
      only_for(options, {Command::learn, Command::adapt, Command::predict}, "--strict-columns");
      options.strict_columns = true;
    } else if (auto value = option_value(args, i, "--method")) {
      if (options.command == Command::learn_structure) {
        if (*value != "pc" && *value != "tree" && *value != "greedy" && *value != "npc" &&
            *value != "hnb")
          throw UsageError("--method of learn-structure takes pc, npc, tree, greedy or hnb, not '" +
                           *value + "'");
        options.structure_method = *value;
        continue;
      }
      only_for(options, Command::compile, "--method");
      options.method = parse_method(*value);
    } else if (auto value = option_value(args, i, "--structure")) {
      only_for(options, Command::learn, "--structure");
      if (*value != "pc" && *value != "tree" && *value != "greedy" && *value != "npc" &&
          *value != "hnb")
        throw UsageError("--structure takes pc, npc, tree, greedy or hnb, not '" + *value + "'");
      options.structure_method = *value;
      options.structure_from_data = true;
    } else if (auto value = option_value(args, i, "--significance")) {
      only_for(options, Command::learn_structure, "--significance");
      options.significance = parse_number(*value, "--significance", 0.0, 1.0);
      if (options.significance <= 0.0 || options.significance >= 1.0)
        throw UsageError("--significance needs a number between 0 and 1");
    } else if (auto value = option_value(args, i, "--score")) {
      only_for(options, Command::learn_structure, "--score");
      if (*value == "bic") options.score = K_SCORE_BIC;
      else if (*value == "aic") options.score = K_SCORE_AIC;
      else throw UsageError("--score takes bic or aic, not '" + *value + "'");
    } else if (auto value = option_value(args, i, "--max-separators")) {
      only_for(options, Command::compile, "--max-separators");
      options.max_separators = parse_count(*value, "--max-separators", 1, 2147483647);
    } else if (auto value = option_value(args, i, "--log")) {
      only_for(options, {Command::compile, Command::learn}, "--log");
      if (value->empty()) throw UsageError("--log needs a file name");
      options.log = *value;
    } else if (auto value = option_value(args, i, "--digits")) {
      only_for(options, Command::convert, "--digits");
      options.digits = static_cast<int>(parse_count(*value, "--digits", 0, 17));
    } else if (auto value = option_value(args, i, "--nodes")) {
      only_for(options, {Command::map, Command::predict}, "--nodes");
      options.map_nodes = split_names(*value);
    } else if (auto value = option_value(args, i, "--min-probability")) {
      only_for(options, Command::map, "--min-probability");
      options.min_probability = parse_number(*value, "--min-probability", 0.0, 1.0);
      if (options.min_probability == 0.0)
        throw UsageError("--min-probability needs a number above 0");
    } else if (auto value = option_value(args, i, "--window")) {
      only_for(options, Command::filter, "--window");
      options.window = static_cast<std::size_t>(parse_count(*value, "--window", 1, 1000));
    } else if (auto value = option_value(args, i, "--predict")) {
      only_for(options, Command::filter, "--predict");
      options.predict_steps =
          static_cast<std::size_t>(parse_count(*value, "--predict", 0, 1000000));
    } else if (arg == "--bk") {
      only_for(options, Command::filter, "--bk");
      options.bk = true;
    } else if (auto value = option_value(args, i, "--password")) {
      options.source.password = *value;
    } else if (auto value = option_value(args, i, "-o")) {
      only_for(options,
               {Command::convert, Command::sample, Command::learn, Command::adapt,
                Command::learn_structure, Command::draw, Command::predict},
               "-o");
      options.output = *value;
    } else if (arg.starts_with("-")) {
      throw UsageError("unknown option '" + std::string(arg) + "'");
    } else if (options.command == Command::learn || options.command == Command::adapt ||
               options.command == Command::predict || options.command == Command::filter) {
      learn_files.emplace_back(arg);
    } else if (options.command == Command::learn_structure) {
      if (!options.data.empty()) throw UsageError("unexpected argument '" + std::string(arg) + "'");
      options.data = arg;
    } else if (options.source.file.empty()) {
      options.source.file = arg;
    } else {
      throw UsageError("unexpected argument '" + std::string(arg) + "'");
    }
  }
  // learn --structure: the links come from the data, as learn-structure
  // learns them; there is no network to read and EM runs as there.
  if (options.structure_from_data) {
    if (learn_files.size() != 1 || !options.source.example.empty())
      throw UsageError("learn --structure takes a data file only, no network");
    if (options.max_iterations != 0 || options.tolerance >= 0.0 || options.discretize ||
        options.strict_columns || !options.log.empty() || options.scaled)
      throw UsageError("learn --structure takes no EM or column options");
    options.command = Command::learn_structure;
    options.data = learn_files[0];
  }
  if (options.command == Command::learn && !options.target.empty())
    throw UsageError("--target needs --structure tree or hnb");
  // learn, adapt and predict take the network file (unless --example names
  // one), then the data file.
  if (options.command == Command::learn || options.command == Command::adapt ||
      options.command == Command::predict || options.command == Command::filter) {
    const std::size_t wanted = options.source.example.empty() ? 2 : 1;
    if (learn_files.size() > wanted)
      throw UsageError("unexpected argument '" + learn_files[wanted] + "'");
    if (learn_files.size() < wanted)
      throw UsageError(std::string(command) + " needs a network and a data file");
    if (wanted == 2) options.source.file = learn_files[0];
    options.data = learn_files[wanted - 1];
  }
  // learn-structure reads a data file, not a network.
  if (options.command == Command::learn_structure) {
    if (options.data.empty()) throw UsageError("learn-structure needs a data file");
    if (options.output.empty()) throw UsageError("no output file given (use -o FILE)");
    if (!options.target.empty() && options.structure_method != "tree" &&
        options.structure_method != "hnb")
      throw UsageError("--target needs --method tree or hnb");
    if (options.target.empty() && options.structure_method == "hnb")
      throw UsageError("--method hnb needs the class node (use --target NODE)");
    if (!options.source.example.empty()) throw UsageError("learn-structure takes no --example");
    return options;
  }
  if (!options.source.example.empty() && !options.source.file.empty())
    throw UsageError("give either a file or --example NAME, not both");
  if (options.source.example.empty() && options.source.file.empty())
    throw UsageError("no network given (use FILE or --example NAME)");
  if (options.command == Command::bench && options.source.file.empty())
    throw UsageError("bench needs a NET file");
  if ((options.command == Command::convert || options.command == Command::sample ||
       options.command == Command::learn || options.command == Command::adapt ||
       options.command == Command::draw) &&
      options.output.empty())
    throw UsageError("no output file given (use -o FILE)");
  if (options.command == Command::dsep && options.from_nodes.empty())
    throw UsageError("dsep needs the source nodes (use --from NODE,...)");
  if ((options.command == Command::sensitivity || options.command == Command::voi) &&
      options.target.empty())
    throw UsageError("no target given (use --target)");
  if (options.command == Command::map && options.map_nodes.empty())
    throw UsageError("map needs the nodes (use --nodes A,B,...)");
  if (options.command == Command::sample && options.cases < 0)
    throw UsageError("sample needs the number of cases (use -n N)");
  return options;
}

std::string format_number(double x) {
  char text[32];
  const auto [end, error] = std::to_chars(text, text + sizeof text, x);
  std::string result(text, error == std::errc() ? end : text);
  if (const std::size_t plus = result.find("e+"); plus != std::string::npos)
    result.erase(plus + 1, 1);
  return result;
}

}  // namespace kelva::cli
