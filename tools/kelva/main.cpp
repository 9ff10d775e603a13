// kelva: the command-line tool over the C API.

#include <cstdio>
#include <exception>
#include <span>

#include "cli_error.h"
#include "commands.h"
#include "options.h"

namespace {

/// Runs the command of `options`, printing to standard output.
void run(const kelva::cli::Options& options) {
  using kelva::cli::Command;
  if (options.help) {
    kelva::cli::run_command_help(stdout, options.command);
    return;
  }
  switch (options.command) {
    case Command::help:
      kelva::cli::run_help(stdout);
      break;
    case Command::version:
      kelva::cli::run_version(stdout);
      break;
    case Command::nodes:
      kelva::cli::run_nodes(stdout, options);
      break;
    case Command::convert:
      kelva::cli::run_convert(options);
      break;
    case Command::beliefs:
      kelva::cli::run_beliefs(stdout, options);
      break;
    case Command::bench:
      kelva::cli::run_bench(stdout, options);
      break;
    case Command::compile:
      kelva::cli::run_compile(stdout, options);
      break;
    case Command::sample:
      kelva::cli::run_sample(options);
      break;
    case Command::learn:
      kelva::cli::run_learn(stdout, options);
      break;
    case Command::dsep:
      kelva::cli::run_dsep(stdout, options);
      break;
    case Command::sensitivity:
      kelva::cli::run_sensitivity(stdout, options);
      break;
    case Command::voi:
      kelva::cli::run_voi(stdout, options);
      break;
    case Command::map:
      kelva::cli::run_map(stdout, options);
      break;
    case Command::adapt:
      kelva::cli::run_adapt(stdout, options);
      break;
    case Command::learn_structure:
      kelva::cli::run_learn_structure(stdout, options);
      break;
    case Command::decide:
      kelva::cli::run_decide(stdout, options);
      break;
    case Command::draw:
      kelva::cli::run_draw(options);
      break;
    case Command::predict:
      kelva::cli::run_predict(stdout, options);
      break;
    case Command::filter:
      kelva::cli::run_filter(stdout, options);
      break;
  }
}

}  // namespace

int main(int argc, char** argv) {
  using namespace kelva::cli;
  try {
    std::span<const char* const> args(argv + 1, argc > 0 ? argc - 1 : 0);
    run(parse_options(args));
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
      std::fprintf(stderr, "kelva: cannot write the output\n");
      return kExitFailure;
    }
    return 0;
  } catch (const UsageError& e) {
    std::fprintf(stderr, "kelva: %s\nTry 'kelva --help' for more information.\n", e.what());
    return kExitUsage;
  } catch (const ApiError& e) {
    if (e.printed()) std::fprintf(stderr, "kelva: %s\n", e.what());
    return kExitFailure;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "kelva: internal error: %s\n", e.what());
    return kExitFailure;
  }
}
