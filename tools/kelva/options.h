#pragma once

#include <span>
#include <string>

namespace kelva::cli {

/// What the tool was asked to do.
enum class Command { help, version, nodes, convert, bench };

/// How reports are printed.
enum class Format { text, tsv };

/// Where the network comes from.
struct NetworkSource {
  /// Name of a bundled example network (empty when a file is named).
  std::string example;
  /// A NET file to read (empty when an example is named).
  std::string file;
};

/// The parsed command line.
struct Options {
  Command command = Command::help;
  NetworkSource source;
  Format format = Format::text;
  /// Where `convert` writes its NET file.
  std::string output;
  /// How often `bench` repeats each measurement (the best time counts).
  int repeat = 3;
};

/// Parses the arguments after the program name; throws UsageError.
Options parse_options(std::span<const char* const> args);

}  // namespace kelva::cli
