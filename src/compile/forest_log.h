#pragma once

#include <cstdint>
#include <string>

namespace kelva {

class Clique;
class CompileLog;
class Forest;
struct Separator;

/// A table size as the compilation log writes it: the discrete size in
/// decimal, then " + M" when the CG entry count M is not 0.
std::string size_text(std::uint64_t discrete_size, std::uint64_t cg_size);

/// Writes the "Cliques:" section: every clique of `forest` with its member
/// count, table size and members, then the total clique table size.
void write_cliques(const CompileLog& log, const Forest& forest);

/// Writes the head of the "The junction forest:" section.
void write_forest_head(const CompileLog& log);

/// Writes the line of a clique that becomes the root of a new tree.
void write_root(const CompileLog& log, const Clique& root);

/// Writes the line of a link between `separator`'s child and parent
/// cliques, with the separator's size and, when it has members, their names.
void write_link(const CompileLog& log, const Separator& separator);

}  // namespace kelva
