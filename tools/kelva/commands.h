#pragma once

#include <cstdio>

#include "options.h"

namespace kelva::cli {

/// Prints the help text of every command.
void run_help(std::FILE* out);

/// Prints the usage, options, output and an example of one command.
void run_command_help(std::FILE* out, Command command);

/// Prints "kelva VERSION".
void run_version(std::FILE* out);

/// Prints the nodes, states, tables and links of the chosen network.
void run_nodes(std::FILE* out, const Options& options);

/// Writes a picture of the chosen network, or of its junction forest, as
/// Graphviz DOT, or as SVG or PNG through Graphviz's dot.
void run_draw(const Options& options);

/// Reads the chosen network and writes it as a NET file.
void run_convert(const Options& options);

/// Compiles the chosen network, enters the --set evidence, propagates and
/// prints the beliefs of every discrete node.
void run_beliefs(std::FILE* out, const Options& options);

/// Times reading a NET file's bytes, parsing it and writing it as text.
void run_bench(std::FILE* out, const Options& options);

/// Compiles the chosen network and prints the size of its junction forest.
void run_compile(std::FILE* out, const Options& options);

/// Draws cases from the chosen network and writes them as a data file.
void run_sample(const Options& options);

/// Compiles the chosen network, enters the evidence and prints the
/// configurations of the --nodes whose probability is at least
/// --min-probability, most probable first, one per line in TSV.
void run_map(std::FILE* out, const Options& options);

/// Learns a network's structure and tables from a data file, writes it and
/// prints a summary.
void run_learn_structure(std::FILE* out, const Options& options);

/// Learns the tables of the chosen network from a data file by EM, writes
/// the learned network and prints the scores.
void run_learn(std::FILE* out, const Options& options);

/// Lists the nodes d-connected to the --from nodes given the --set nodes.
void run_dsep(std::FILE* out, const Options& options);

/// Prints the sensitivity of the --target probability to every table entry
/// that can change it, most influential first.
void run_sensitivity(std::FILE* out, const Options& options);

/// Prints the mutual information of the --target node with every other
/// unobserved chance node, most informative first.
void run_voi(std::FILE* out, const Options& options);

/// Adapts the tables of the chosen network to the cases of a data file, one
/// case at a time, writes the adapted network and prints a summary.
void run_adapt(std::FILE* out, const Options& options);

/// Compiles the chosen influence diagram, enters the evidence, updates the
/// policies and prints each decision's best options and their expected
/// utilities, then the maximum expected utility.
void run_decide(std::FILE* out, const Options& options);

/// Enters each case of a data file as evidence into a compiled copy of the
/// chosen network and writes the beliefs of the chosen nodes and log P(e)
/// per case, with --threads workers.
void run_predict(std::FILE* out, const Options& options);

/// Filters the rows of a data file, one time step each, through a moving
/// window of a time-slice class and writes the beliefs of every step, then
/// the predictions.
void run_filter(std::FILE* out, const Options& options);

}  // namespace kelva::cli
