// `kelva bench FILE.net`: how fast a network file is read, written,
// compiled and propagated, against reading the file's bytes and against the
// memory bandwidth of a STREAM-style triad.

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <utility>
#include <vector>

#include "cli_error.h"
#include "commands.h"
#include "domain_handle.h"
#include "network_source.h"
#include "propagation_traffic.h"
#include "stream_triad.h"

namespace kelva::cli {

namespace {

using Clock = std::chrono::steady_clock;

/// Seconds since `start`.
double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Keeps the calling thread on the processor it is running on while it
/// lives, so that a run on one thread is not moved to another processor
/// halfway (which leaves its tables in the caches it was moved from).
/// Where the system refuses, the thread runs where it is put.
class StayOnProcessor {
 public:
  StayOnProcessor() noexcept {
    const int cpu = sched_getcpu();
    if (cpu < 0 || sched_getaffinity(0, sizeof saved_, &saved_) != 0) return;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(cpu, &one);
    pinned_ = sched_setaffinity(0, sizeof one, &one) == 0;
  }
  ~StayOnProcessor() {
    if (pinned_) sched_setaffinity(0, sizeof saved_, &saved_);
  }
  StayOnProcessor(const StayOnProcessor&) = delete;
  StayOnProcessor& operator=(const StayOnProcessor&) = delete;

 private:
  cpu_set_t saved_{};
  bool pinned_ = false;
};

/// Throws ApiError unless the library call returned status 0.
void ok(k_status_t status) {
  if (status != 0) throw ApiError(k_error_code());
}

/// Reads the whole file into memory; returns its size (throws ApiError io).
std::size_t read_bytes(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) throw io_error(path, FileUse::read);
  std::vector<char> buffer(1 << 16);
  std::size_t total = 0;
  for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), f)) > 0;) total += n;
  std::fclose(f);
  return total;
}

/// The times of `repeat` runs of `f`.
template <class F>
std::vector<double> timings(int repeat, F f) {
  std::vector<double> times;
  for (int i = 0; i < repeat; ++i) {
    const Clock::time_point start = Clock::now();
    f();
    times.push_back(seconds_since(start));
  }
  return times;
}

double best(const std::vector<double>& times) {
  return *std::min_element(times.begin(), times.end());
}

double median(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  const std::size_t n = times.size();
  return n % 2 == 1 ? times[n / 2] : (times[n / 2 - 1] + times[n / 2]) / 2.0;
}

/// Random evidence that the network allows: `count` distinct discrete
/// chance nodes, each set to a state of non-zero belief given the ones
/// chosen before it (the domain is propagated after each choice, so the set
/// as a whole has non-zero probability).  Leaves the evidence entered.
std::vector<std::pair<k_node_t, k_size_t>> random_evidence(k_domain_t domain,
                                                           std::vector<k_node_t> candidates,
                                                           std::size_t count,
                                                           std::mt19937_64& random) {
  std::vector<std::pair<k_node_t, k_size_t>> evidence;
  ok(k_domain_retract_findings(domain));
  ok(k_domain_propagate(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL));
  for (std::size_t i = 0; i < count && i < candidates.size(); ++i) {
    std::swap(candidates[i], candidates[i + random() % (candidates.size() - i)]);
    k_node_t node = candidates[i];
    std::vector<k_size_t> possible;
    const k_size_t states = checked(k_node_get_number_of_states(node));
    for (k_size_t s = 0; s < states; ++s)
      if (checked(k_node_get_belief(node, s)) > 0.0) possible.push_back(s);
    if (possible.empty()) continue;
    const k_size_t state = possible[random() % possible.size()];
    ok(k_node_select_state(node, state));
    ok(k_domain_propagate(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL));
    evidence.emplace_back(node, state);
  }
  return evidence;
}

}  // namespace

void run_bench(std::FILE* out, const Options& options) {
  const std::string& path = options.source.file;
  const int repeat = options.repeat;
  const Progress progress(options.quiet);

  // The triad runs first and frees its arrays before the network is loaded,
  // so that the peak memory of a run is the network's.
  progress.note("measuring the memory bandwidth");
  const TriadResult triad = run_stream_triad(5, options.threads);  // best of five
  // The bound of one thread's propagation is set by one thread's bandwidth.
  const TriadResult one_thread_triad = options.threads > 1 ? run_stream_triad(5, 1) : triad;

  // The NET text: reading, parsing and writing it.  A first parse reports
  // the reader's messages; the timed ones print nothing.
  progress.note("reading, parsing and writing %s (%d runs each)", path.c_str(), repeat);
  std::size_t bytes = 0;
  const std::vector<double> read_times = timings(repeat, [&] { bytes = read_bytes(path); });
  DomainHandle owner = open_network(options.source, Progress(true));
  k_domain_t domain = owner.get();
  const std::vector<double> parse_times = timings(repeat, [&] {
    // A class file is read and its class unfolded, as the network it names.
    DomainHandle domain = open_network(options.source, Progress(true));
  });
  const std::vector<double> write_times = timings(repeat, [&] {
    char* text = k_domain_to_net_string(domain);
    if (text == nullptr) throw ApiError(k_error_code());
    std::free(text);
  });
  const double mb = static_cast<double>(bytes) / 1e6;
  const double read_time = best(read_times);
  const double parse_time = best(parse_times);
  const double write_time = best(write_times);
  std::fprintf(out, "file\t%s\t%zu bytes\n", path.c_str(), bytes);
  std::fprintf(out, "read bytes\t%.6f s\t%.1f MB/s\n", read_time, mb / read_time);
  std::fprintf(out, "parse\t%.6f s\t%.1f MB/s\t%.1fx reading the bytes\n", parse_time,
               mb / parse_time, parse_time / read_time);
  std::fprintf(out, "write string\t%.6f s\t%.1f MB/s\n", write_time, mb / write_time);

  // Compilation (which ends with a first propagation).
  ok(k_domain_set_concurrency_level(domain, static_cast<k_size_t>(options.threads)));
  progress.note("compiling (%d runs)", repeat);
  check_compilable(domain, path);
  const std::vector<double> compile_times = timings(repeat, [&] {
    if (checked(k_domain_is_compiled(domain)) == 1) ok(k_domain_uncompile(domain));
    ok(k_domain_compile(domain));
  });
  const ForestShape shape = read_forest_shape(domain);

  // The compiled domain as a KB file in memory, loaded again: no
  // triangulation, so against parsing and compiling the NET text.
  progress.note("loading the KB file of the compiled network (%d runs)", repeat);
  std::size_t kb_size = 0;
  unsigned char* kb = k_domain_save_to_memory(domain, nullptr, &kb_size);
  if (kb == nullptr) throw ApiError(k_error_code());
  const std::vector<double> kb_times = timings(repeat, [&] {
    DomainHandle loaded(k_kb_load_domain_from_memory(kb, kb_size, nullptr));
    if (!loaded) throw ApiError(k_error_code());
  });
  std::free(kb);
  const double kb_time = best(kb_times);
  std::fprintf(out, "kb load\t%.6f s\t%zu bytes\t%.1fx faster than parse and compile\n", kb_time,
               kb_size, (parse_time + median(compile_times)) / kb_time);

  // Full propagations from the node tables, without evidence; with threads,
  // each run alternates with one on one thread, so that both see the same
  // machine (a loaded machine slows runs in bursts, not evenly).  Each
  // timed run follows an untimed one on the same threads: a run after a
  // change of threads would otherwise also pay for fetching the tables from
  // the caches of the processors the other mode left them in, which no
  // steady use of either mode pays.
  progress.note("propagating (%d runs without evidence, %d with)", repeat, repeat);
  const auto propagate_once = [&] {
    ok(k_domain_initialize(domain));  // the propagation rebuilds the cliques once
    ok(k_domain_propagate(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL));
  };
  // Runs on one thread stay on one processor.
  const auto settled_run = [&](k_size_t threads) {
    ok(k_domain_set_concurrency_level(domain, threads));
    std::optional<StayOnProcessor> stay;
    if (threads == 1) stay.emplace();
    propagate_once();
    return timings(1, propagate_once).front();
  };
  const auto threads = static_cast<k_size_t>(options.threads);
  std::vector<double> propagate_times;
  std::vector<double> one_thread_times;
  for (int i = 0; i < repeat; ++i) {
    propagate_times.push_back(settled_run(threads));
    if (threads > 1) one_thread_times.push_back(settled_run(1));
  }
  ok(k_domain_set_concurrency_level(domain, threads));

  // Propagations of random evidence from the equilibrium without evidence.
  std::vector<k_node_t> chance;
  std::size_t nodes = 0;
  for (k_node_t n = checked(k_domain_get_first_node(domain)); n != nullptr;
       n = checked(k_node_get_next(n))) {
    ++nodes;
    if (checked(k_node_get_category(n)) == K_CATEGORY_CHANCE &&
        checked(k_node_get_kind(n)) == K_KIND_DISCRETE)
      chance.push_back(n);
  }
  std::mt19937_64 random(options.seed);
  std::vector<double> evidence_times;
  for (int i = 0; i < repeat; ++i) {
    const auto evidence =
        random_evidence(domain, chance, static_cast<std::size_t>(options.evidence), random);
    ok(k_domain_retract_findings(domain));
    ok(k_domain_propagate(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL));
    for (const auto& [node, state] : evidence) ok(k_node_select_state(node, state));
    const Clock::time_point start = Clock::now();
    ok(k_domain_propagate(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL));
    evidence_times.push_back(seconds_since(start));
  }

  const double propagate_seconds = median(propagate_times);
  std::fprintf(out, "nodes\t%zu\n", nodes);
  std::fprintf(out, "cliques\t%llu\n", static_cast<unsigned long long>(shape.cliques));
  std::fprintf(out, "total_clique_size\t%.17g\n", shape.total_clique_size);
  std::fprintf(out, "compile_seconds\t%.6g\n", median(compile_times));
  std::fprintf(out, "propagate_seconds\t%.6g\n", propagate_seconds);
  std::fprintf(out, "evidence_propagate_seconds\t%.6g\n", median(evidence_times));
  std::fprintf(out, "bytes_per_propagation\t%.17g\n", shape.bytes_per_propagation);
  std::fprintf(out, "bytes_per_entry\t%.4g\n",
               shape.bytes_per_propagation / shape.total_clique_size);
  std::fprintf(out, "effective_gbps\t%.6g\n",
               shape.bytes_per_propagation / propagate_seconds / 1e9);
  if (!one_thread_times.empty()) {
    std::fprintf(out, "one_thread_propagate_seconds\t%.6g\n", median(one_thread_times));
    std::fprintf(out, "threads_speedup\t%.3g\n", median(one_thread_times) / propagate_seconds);
  }
  std::fprintf(out, "stream_gbps\t%.6g\n", triad.gbps);
  if (options.threads > 1)
    std::fprintf(out, "one_thread_stream_gbps\t%.6g\n", one_thread_triad.gbps);
  // A fused propagation moves at least 24 to 32 bytes per clique entry: the
  // time to stream 32 at one thread's triad rate is what one thread's
  // propagation is measured against.  The triad's rate is its best of five,
  // so the propagation is taken at its best too; the median is given beside.
  const double bound = 32.0 * shape.total_clique_size / (one_thread_triad.gbps * 1e9);
  const std::vector<double>& one_thread =
      one_thread_times.empty() ? propagate_times : one_thread_times;
  std::fprintf(out, "one_thread_best_seconds\t%.6g\n", best(one_thread));
  std::fprintf(out, "stream_bound_seconds\t%.6g\n", bound);
  std::fprintf(out, "times_stream_bound\t%.3g\n", best(one_thread) / bound);
  std::fprintf(out, "median_times_stream_bound\t%.3g\n", median(one_thread) / bound);
}

}  // namespace kelva::cli
