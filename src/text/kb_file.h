#pragma once

#include <cstddef>
#include <vector>

namespace kelva {

class ClassCollection;
class Domain;

/// The KB file of `domain`: its network, settings, exact tables, cases,
/// evidence and junction forest (with the clique tables of a propagated
/// forest that is small enough), packed and, when `password` is neither
/// null nor empty, encrypted.  Names are generated for nodes without one.
/// Throws Error (no_memory; usage for a password longer than the key
/// derivation takes).
std::vector<unsigned char> write_kb_domain(Domain& domain, const char* password);

/// Reads a domain from the bytes of a KB file.  Throws Error: bad_kb_format
/// for bytes that are not an intact KB file, bad_kb_version for a layout
/// this build does not read, bad_kb_type for a file that holds no domain,
/// bad_kb_password for a protected file read without its password (or with
/// a wrong one); no_memory.  Nothing is left allocated on failure.
Domain* read_kb_domain(const unsigned char* data, std::size_t size, const char* password);

/// The KB file of a class collection (kind 2): its NET class text with
/// every number at 17 digits, then per class its settings and its exact
/// node, experience and fading tables.  Throws as write_kb_domain.
std::vector<unsigned char> write_kb_classes(ClassCollection& collection, const char* password);

/// Reads a class collection from the bytes of a KB file; throws as
/// read_kb_domain (bad_kb_type for a file that holds a domain).
ClassCollection* read_kb_classes(const unsigned char* data, std::size_t size, const char* password);

}  // namespace kelva
