// `kelva predict`: batch inference.  Every case of a data file is entered
// as evidence, propagated, and the beliefs of the chosen nodes and log P(e)
// are written, one block of lines per case.  Worker threads each own a
// compiled copy of the network and take chunks of cases in turn; a writer
// thread writes the chunks in case order.

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "case_source.h"
#include "cli_error.h"
#include "commands.h"
#include "network_source.h"
#include "number_text.h"
#include "predict_cases.h"
#include "predict_output.h"
#include "report_writers.h"

namespace kelva::cli {
namespace {

/// Cases a worker takes at a time: few enough that the writer finds their
/// text still in the cache, enough that taking one costs nothing.
constexpr k_size_t kChunkCases = 64;
/// Chunks a worker reads from a cut data file at a time: each read of the
/// file's text costs as much again as a few dozen lines.
constexpr std::size_t kReadChunks = 8;
/// Chunks in flight per worker: a worker that runs this far ahead of the
/// writer waits, so memory does not grow with the file.
constexpr std::size_t kSlotsPerThread = 16;
/// A progress note every so many cases.
constexpr std::uint64_t kNoteCases = 4096;
static_assert(kNoteCases % kChunkCases == 0);
static_assert(kSlotsPerThread >= 2 * kReadChunks);

/// Text copied in blocks of kChunk characters, which the compiler makes a
/// few moves instead of a call per copy: the source holds its size rounded
/// up to a block, and a copy may write that far past its end (room the
/// text written after it then covers).
constexpr std::size_t kChunk = 16;
struct Chunked {
  explicit Chunked(std::string s) : size(s.size()), text(std::move(s)) {
    text.append(kChunk, '\0');
    if (text.size() < 2 * kChunk) text.resize(2 * kChunk, '\0');
  }
  std::size_t size;
  std::string text;
};

/// Copies the `n` characters at `from` (readable to `n` rounded up to a
/// block) to `p`; returns the end.
char* put(char* p, const char* from, std::size_t n) noexcept {
  for (std::size_t i = 0; i < n; i += kChunk) std::memcpy(p + i, from + i, kChunk);
  return p + n;
}

/// As put(), the first two blocks copied whatever `n` (case numbers and
/// most line prefixes fit them, so that their copy is a few moves without a
/// loop): `from` is readable, and `p` writable, to two blocks at least.
char* put_short(char* p, const char* from, std::size_t n) noexcept {
  std::memcpy(p, from, 2 * kChunk);
  for (std::size_t i = 2 * kChunk; i < n; i += kChunk) std::memcpy(p + i, from + i, kChunk);
  return p + n;
}

/// A node whose beliefs may be written, with its names escaped once.
struct Reported {
  std::size_t index = 0;
  bool continuous = false;
  /// "NODE<TAB>STATE<TAB>" per state (mean and variance of a continuous node).
  std::vector<Chunked> prefixes;
};

/// The nodes of a domain in its order.
std::vector<k_node_t> nodes_of(k_domain_t domain) {
  std::vector<k_node_t> nodes;
  for (k_node_t n = checked(k_domain_get_first_node(domain)); n != nullptr;
       n = checked(k_node_get_next(n)))
    nodes.push_back(n);
  return nodes;
}

/// Whether `node` has beliefs to report: a discrete chance, decision or
/// function node, or a continuous chance node (its mean and variance).
bool reportable(k_node_t node) {
  const k_category_t category = checked(k_node_get_category(node));
  if (checked(k_node_get_kind(node)) == K_KIND_CONTINUOUS) return category == K_CATEGORY_CHANCE;
  return category == K_CATEGORY_CHANCE || category == K_CATEGORY_DECISION ||
         category == K_CATEGORY_FUNCTION;
}

/// The nodes --nodes names (every reportable node without it).
std::vector<Reported> reported_nodes(const std::vector<k_node_t>& nodes, const Options& options) {
  std::vector<std::size_t> chosen;
  if (options.map_nodes.empty()) {
    for (std::size_t i = 0; i < nodes.size(); ++i)
      if (reportable(nodes[i])) chosen.push_back(i);
  }
  for (const std::string& name : options.map_nodes) {
    const auto at = std::find_if(nodes.begin(), nodes.end(),
                                 [&](k_node_t n) { return name == checked(k_node_get_name(n)); });
    if (at == nodes.end()) throw UsageError("--nodes: no node named '" + name + "'");
    if (!reportable(*at))
      throw UsageError("--nodes: node '" + name +
                       "' has no beliefs (not a chance, decision or "
                       "function node)");
    chosen.push_back(static_cast<std::size_t>(at - nodes.begin()));
  }
  std::vector<Reported> reported;
  for (std::size_t i : chosen) {
    Reported r;
    r.index = i;
    r.continuous = checked(k_node_get_kind(nodes[i])) == K_KIND_CONTINUOUS;
    const std::string name = tsv_field(checked(k_node_get_name(nodes[i]))) + '\t';
    if (r.continuous) {
      r.prefixes.emplace_back(name + "mean\t");
      r.prefixes.emplace_back(name + "variance\t");
    } else {
      const k_size_t count = checked(k_node_get_number_of_states(nodes[i]));
      for (k_size_t s = 0; s < count; ++s) {
        std::string label = checked(k_node_get_state_label(nodes[i], s));
        if (label.empty()) label.append(1, '#').append(std::to_string(s));
        r.prefixes.emplace_back(name + tsv_field(label) + '\t');
      }
    }
    reported.push_back(std::move(r));
  }
  return reported;
}

/// A growing buffer of output text.  Room is made without clearing it, and
/// a case's lines are written through a plain pointer.
class TextBuffer {
 public:
  const char* data() const noexcept { return data_.get(); }
  std::size_t size() const noexcept { return size_; }
  void clear() noexcept { size_ = 0; }
  /// Where the next `room` characters may be written.
  char* reserve(std::size_t room) {
    if (size_ + room > capacity_) {
      const std::size_t capacity = std::max(2 * capacity_, size_ + room);
      auto grown = std::make_unique_for_overwrite<char[]>(capacity);
      if (size_ > 0) std::memcpy(grown.get(), data_.get(), size_);
      data_ = std::move(grown);
      capacity_ = capacity;
    }
    return data_.get() + size_;
  }
  /// Marks the text up to `end` (from the last reserve()) as written.
  void commit(const char* end) noexcept { size_ = static_cast<std::size_t>(end - data_.get()); }

 private:
  std::unique_ptr<char[]> data_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

/// The text of one chunk, and which chunk it is at: `ready` is the last
/// chunk whose text is complete here, `free_for` the chunk that may be
/// written here next (the writer is done with the one before).
struct alignas(64) Slot {
  TextBuffer text;
  std::atomic<std::uint64_t> ready{kNoChunk};
  std::atomic<std::uint64_t> free_for{0};
  static constexpr std::uint64_t kNoChunk = std::numeric_limits<std::uint64_t>::max();
};

/// The slots of the chunks in flight: chunk c goes to slot c % size().  A
/// failure on any thread aborts every wait.
class ChunkRing {
 public:
  explicit ChunkRing(std::size_t size) : slots_(size) {
    for (std::size_t i = 0; i < size; ++i) slots_[i].free_for.store(i);
  }
  std::size_t size() const noexcept { return slots_.size(); }
  Slot& slot(std::uint64_t chunk) noexcept { return slots_[chunk % slots_.size()]; }
  /// Waits until `value` holds `wanted`; false once aborted.
  bool wait(const std::atomic<std::uint64_t>& value, std::uint64_t wanted) const noexcept {
    for (;;) {
      const std::uint64_t seen = value.load(std::memory_order_acquire);
      if (seen == wanted) return true;
      if (aborted_.load()) return false;
      value.wait(seen, std::memory_order_acquire);
    }
  }
  static void publish(std::atomic<std::uint64_t>& value, std::uint64_t chunk) noexcept {
    value.store(chunk, std::memory_order_release);
    value.notify_all();
  }
  /// Wakes every wait for good: each value changes after the flag is set.
  void abort() noexcept {
    aborted_.store(true);
    for (Slot& s : slots_) {
      publish(s.ready, Slot::kNoChunk - 1);
      publish(s.free_for, Slot::kNoChunk - 1);
    }
  }

 private:
  std::vector<Slot> slots_;
  std::atomic<bool> aborted_{false};
};

/// Room for a case number and its tab, in whole blocks.
constexpr std::size_t kNumberText = 2 * kChunk;
static_assert(kNumberText >= std::numeric_limits<k_size_t>::digits10 + 2);

/// Writes "NUMBER<TAB>" (`number`, `number_size` characters) `middle` `x`
/// (as "%.17g" writes it) and a newline at `p`; returns the end.
char* write_line(char* p, const char* number, std::size_t number_size, const Chunked& middle,
                 double x) noexcept {
  p = put_short(p, number, number_size);
  p = put_short(p, middle.text.data(), middle.size);
  p = write_g17(p, x);
  *p++ = '\n';
  return p;
}

/// Room one line of `middle` needs, its case number included.
std::size_t line_room(const Chunked& middle) noexcept {
  return kNumberText + middle.size + kNumberRoom + 1;
}

/// One worker's compiled copy of the network, on cache lines of its own so
/// that what one worker writes per case never evicts another's.
struct alignas(64) Worker {
  DomainHandle domain;
  std::vector<k_node_t> nodes;
  /// An uncompiled copy holding the cases of the chunks this worker read,
  /// when they cannot be entered whole, and its nodes.
  DomainHandle store;
  std::vector<k_node_t> store_nodes;
  /// Per node, whether it is continuous; and whether the current case
  /// observes it (bytes, not bits: read and written per item).
  std::vector<char> continuous;
  std::vector<char> observed;
  /// Whether every node can hold evidence (is discrete or continuous), so
  /// that a stored case can be entered whole.
  bool cases_enterable = true;
  std::exception_ptr failure;
  /// The worker's processor time, for the closing note.
  double seconds = 0.0;
};

/// Where the cases of a chunk are: the first stored case (counted from the
/// first chunk of its read, when a worker reads it), how many, and the
/// number of cases before the chunk in the file.
struct ChunkPlace {
  k_size_t first = 0;
  k_size_t count = 0;
  k_size_t number = 0;
};

/// "S.SSS s".
std::string seconds_text(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f s", seconds);
  return text;
}

/// The processor time of the calling thread so far, in seconds.
double thread_seconds() noexcept {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

/// The item of `node` in case `row`: true with the state or value entered,
/// false when the case leaves it missing.  Results are checked by their
/// error values, so that a call costs no second one for the error code.
bool enter_item(k_node_t item, k_size_t row, k_node_t node, bool continuous) {
  const k_bool_t set = k_node_case_is_set(item, row);
  if (set != 1) {
    if (set == 0) return false;
    throw ApiError(k_error_code());
  }
  k_status_t status = 0;
  if (continuous) {
    status = k_node_enter_value(node, checked(k_node_get_case_value(item, row)));
  } else {
    const k_size_t state = k_node_get_case_state(item, row);
    if (state == K_SIZE_ERROR) throw ApiError(k_error_code());
    status = k_node_select_state(node, state);
  }
  if (status != 0) throw ApiError(k_error_code());
  return true;
}

/// Enters case `row` of `cases` (the nodes of the domain holding the stored
/// cases: the worker's own domain when `own`), the file's case `number`
/// (from 0), into the worker's domain, propagates and appends its lines to
/// `text`, which has `room` characters of room for them; `log_line` is the
/// last line's middle.
void predict_case(Worker& w, TextBuffer& text, std::size_t room, const Chunked& log_line,
                  const std::vector<k_node_t>& cases, bool own, k_size_t row, k_size_t number,
                  const std::vector<Reported>& reported, bool only_unobserved) {
  // Every case is propagated from the node tables with its evidence in the
  // first pass, as `kelva beliefs` propagates, whatever came before.
  if (k_domain_initialize(w.domain.get()) != 0) throw ApiError(k_error_code());
  // Plain pointers: the vectors are not reread after every call.
  const k_node_t* const nodes = w.nodes.data();
  char* const observed = w.observed.data();
  if (own) {
    // One call replaces the evidence of the case before; what the case
    // observes is asked of the reported nodes alone, below.
    if (k_domain_enter_case(w.domain.get(), row) != 0) throw ApiError(k_error_code());
  } else {
    // The evidence of the case before is replaced item by item: a node the
    // case leaves missing is retracted only if the case before observed it,
    // which costs less than retracting every node.
    const k_node_t* const items = cases.data();
    const char* const continuous = w.continuous.data();
    const std::size_t count = cases.size();
    for (std::size_t i = 0; i < count; ++i) {
      const bool now = enter_item(items[i], row, nodes[i], continuous[i] != 0);
      if (!now && observed[i] && k_node_retract_findings(nodes[i]) != 0)
        throw ApiError(k_error_code());
      observed[i] = now;
    }
  }
  char digits[kNumberText] = {};
  char* end = std::to_chars(digits, digits + sizeof digits - 1, number + 1).ptr;
  *end++ = '\t';
  const auto number_size = static_cast<std::size_t>(end - digits);
  char* p = text.reserve(room);
  if (k_domain_propagate(w.domain.get(), K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) {
    if (k_error_code() != K_ERROR_INCONSISTENCY_OR_UNDERFLOW) throw ApiError(k_error_code());
    // Impossible evidence (or P(e) below the smallest double): no beliefs.
    p = put(p, digits, number_size);
    p = put(p, log_line.text.data(), log_line.size);
    p = std::copy_n("-inf\n", 5, p);
    text.commit(p);
    return;
  }
  for (const Reported& r : reported) {
    const k_node_t node = nodes[r.index];
    if (only_unobserved) {
      k_bool_t seen = observed[r.index];
      if (own && (seen = k_node_evidence_is_entered(node)) < 0) throw ApiError(k_error_code());
      if (seen != 0) continue;
    }
    const Chunked* prefix = r.prefixes.data();
    if (r.continuous) {
      p = write_line(p, digits, number_size, prefix[0], checked(k_node_get_mean(node)));
      p = write_line(p, digits, number_size, prefix[1], checked(k_node_get_variance(node)));
      continue;
    }
    const std::size_t states = r.prefixes.size();
    for (std::size_t s = 0; s < states; ++s) {
      // Beliefs are never negative: -1 is an error.
      const double value = k_node_get_belief(node, s);
      if (value < 0.0) throw ApiError(k_error_code());
      p = write_line(p, digits, number_size, prefix[s], value);
    }
  }
  p = write_line(p, digits, number_size, log_line,
                 checked(k_domain_get_log_normalization_constant(w.domain.get())));
  text.commit(p);
}

}  // namespace

void run_predict(std::FILE* standard_output, const Options& options) {
  const Progress progress(options.quiet);
  const Progress quiet(true);
  // -o names the output file; it is opened before the long work starts.
  const std::unique_ptr<PredictOutput> out = options.output.empty()
                                                 ? std::make_unique<PredictOutput>(standard_output)
                                                 : std::make_unique<PredictOutput>(options.output);
  // The first worker's copy, read here, names the reported nodes.
  std::vector<Worker> workers(static_cast<std::size_t>(options.threads));
  workers[0].domain = open_network(options.source, progress);
  const std::vector<k_node_t> first_nodes = nodes_of(workers[0].domain.get());
  // A utility node holds no evidence and has no beliefs: influence
  // diagrams are refused here, by the node's name, not by the first call
  // that cannot take it.
  for (k_node_t n : first_nodes)
    if (checked(k_node_get_category(n)) == K_CATEGORY_UTILITY)
      throw UsageError("node '" + std::string(checked(k_node_get_name(n))) +
                       "' is a utility node: predict scores networks without utilities "
                       "(influence diagrams: 'kelva decide')");
  const std::vector<Reported> reported = reported_nodes(first_nodes, options);
  // With several workers, a data file is cut into chunks of lines: the
  // worker that takes a chunk reads it into its own compiled copy and
  // enters its cases whole.  One worker reads the file whole (which costs
  // less per case), and so is a data set file.
  const bool csv = options.data.ends_with(".csv");
  const std::unique_ptr<CutCases> cut =
      options.threads == 1 || csv ? nullptr : CutCases::cut(options.data, kChunkCases);

  // Each worker compiles its copy on its own thread.
  auto prepare = [&](std::size_t t) {
    Worker& w = workers[t];
    try {
      const Progress& notes = t == 0 ? progress : quiet;
      if (t != 0) w.domain = open_network(options.source, notes);
      if (options.scaled) checked(k_domain_set_scaled_propagation(w.domain.get(), 1));
      compile_network(w.domain.get(), source_name(options.source), notes);
      w.nodes = nodes_of(w.domain.get());
      for (k_node_t n : w.nodes) {
        const k_kind_t kind = checked(k_node_get_kind(n));
        w.continuous.push_back(kind == K_KIND_CONTINUOUS);
        w.cases_enterable =
            w.cases_enterable && (kind == K_KIND_DISCRETE || kind == K_KIND_CONTINUOUS);
      }
      w.observed.assign(w.nodes.size(), false);
      if (cut && !w.cases_enterable) {
        w.store = open_network(options.source, quiet);
        w.store_nodes = nodes_of(w.store.get());
      }
    } catch (...) {
      w.failure = std::current_exception();
    }
    if (t != 0) w.seconds = thread_seconds();
  };
  {
    std::vector<std::jthread> threads;
    for (std::size_t t = 1; t < workers.size(); ++t) threads.emplace_back(prepare, t);
    prepare(0);
  }
  for (Worker& w : workers)
    if (w.failure) std::rethrow_exception(w.failure);

  // The chunks: those of the cut, or chunks of the cases of the file read
  // whole, into the one worker's copy (a case entered by one call) or into
  // an uncompiled copy, whose cases are entered item by item.
  const bool own_whole = !cut && workers.size() == 1 && !csv && workers[0].cases_enterable;
  DomainHandle items;
  std::vector<k_node_t> items_nodes;
  k_domain_t whole = nullptr;
  const std::vector<k_node_t>* whole_nodes = nullptr;
  std::vector<ChunkPlace> places;
  k_size_t count = 0;
  auto read_whole = [&] {
    if (!own_whole) {
      items = open_network(options.source, quiet);
      items_nodes = nodes_of(items.get());
    }
    whole = own_whole ? workers[0].domain.get() : items.get();
    whole_nodes = own_whole ? &workers[0].nodes : &items_nodes;
    read_cases(whole, options);
    count = checked(k_domain_get_number_of_cases(whole));
  };
  auto whole_places = [&](k_size_t from) {
    places.clear();
    for (k_size_t at = from; at < count; at += kChunkCases)
      places.push_back({at, std::min<k_size_t>(kChunkCases, count - at), at});
  };
  if (cut) {
    // A chunk's first case among those of its read.
    k_size_t read_first = 0;
    for (std::size_t c = 0; c < cut->chunks(); ++c) {
      if (c % kReadChunks == 0) read_first = count;
      places.push_back({count - read_first, cut->cases(c), count});
      count += cut->cases(c);
    }
  } else {
    read_whole();
    whole_places(0);
  }
  const bool only_unobserved = options.map_nodes.empty();
  // The most text one case writes.
  const Chunked log_line("log_normalization_constant\t");
  std::size_t room = line_room(log_line);
  for (const Reported& r : reported)
    for (const Chunked& prefix : r.prefixes) room += line_room(prefix);

  // The workers take the chunks in turn; the writer thread writes them in
  // case order as each is done, so that writing overlaps the propagations
  // and reads text still in the cache.  A read of chunks that gives a
  // message, or other cases than their lines, stops every thread.  Returns
  // the chunks written.
  std::atomic<bool> chunk_failed{false};
  double write_seconds = 0.0;
  auto run = [&](bool chunked) {
    const std::uint64_t chunks = places.size();
    ChunkRing ring(kSlotsPerThread * workers.size());
    std::atomic<std::uint64_t> next_chunk{0};
    std::size_t written = 0;
    std::exception_ptr write_failure;
    auto write_chunks = [&] {
      try {
        for (std::uint64_t c = 0; c < chunks; ++c) {
          Slot& slot = ring.slot(c);
          if (!ring.wait(slot.ready, c)) break;
          out->write(slot.text.data(), slot.text.size());
          written = c + 1;
          ring.publish(slot.free_for, c + ring.size());
          const std::uint64_t done = places[c].number + places[c].count;
          if (done / kNoteCases != places[c].number / kNoteCases || done == count)
            progress.note("predicted %llu of %llu cases", static_cast<unsigned long long>(done),
                          static_cast<unsigned long long>(count));
        }
      } catch (...) {
        write_failure = std::current_exception();
        ring.abort();
      }
      write_seconds += thread_seconds();
    };
    auto work = [&](std::size_t t) {
      Worker& w = workers[t];
      // Where this worker finds the cases, and whether they are entered
      // whole.
      const bool enter_whole = chunked ? w.cases_enterable : own_whole;
      const k_domain_t store = !chunked ? whole : w.store ? w.store.get() : w.domain.get();
      const std::vector<k_node_t>& cases = !chunked  ? *whole_nodes
                                           : w.store ? w.store_nodes
                                                     : w.nodes;
      std::string text;
      // A worker takes kReadChunks chunks at a time from a cut file, one
      // from a file read whole.
      const std::uint64_t take = chunked ? kReadChunks : 1;
      // Predicts chunk c; false once the ring is aborted.
      auto predict_chunk = [&](std::uint64_t c) {
        Slot& slot = ring.slot(c);
        if (!ring.wait(slot.free_for, c)) return false;
        slot.text.clear();
        const ChunkPlace& place = places[c];
        slot.text.reserve(room * place.count);  // grown once, with nothing to copy
        for (k_size_t i = 0; i < place.count; ++i)
          predict_case(w, slot.text, room, log_line, cases, enter_whole, place.first + i,
                       place.number + i, reported, only_unobserved);
        ring.publish(slot.ready, c);
        return true;
      };
      try {
        for (std::uint64_t from = next_chunk.fetch_add(take); from < chunks;
             from = next_chunk.fetch_add(take)) {
          const std::uint64_t end = std::min(from + take, chunks);
          if (chunked) {
            // The chunks' cases replace those of the last take.
            const k_size_t wanted =
                places[end - 1].number + places[end - 1].count - places[from].number;
            if (k_domain_set_number_of_cases(store, 0) != 0) throw ApiError(k_error_code());
            if (wanted > 0 && (!cut->read(store, from, end, text) ||
                               checked(k_domain_get_number_of_cases(store)) != wanted)) {
              chunk_failed.store(true);
              ring.abort();
              break;
            }
          }
          std::uint64_t c = from;
          while (c < end && predict_chunk(c)) ++c;
          if (c < end) break;
        }
      } catch (...) {
        w.failure = std::current_exception();
        ring.abort();
      }
      // The main thread's time is counted from the start.
      w.seconds = t == 0 ? thread_seconds() : w.seconds + thread_seconds();
    };
    {
      std::vector<std::jthread> threads;
      try {
        threads.emplace_back(write_chunks);
        for (std::size_t t = 1; t < workers.size(); ++t) threads.emplace_back(work, t);
      } catch (...) {
        ring.abort();  // the threads started stop before they are joined
        throw;
      }
      work(0);
    }
    for (Worker& w : workers)
      if (w.failure) std::rethrow_exception(w.failure);
    if (write_failure) std::rethrow_exception(write_failure);
    return written;
  };
  const std::size_t written = run(cut != nullptr);
  if (chunk_failed.load()) {
    // The file read whole gives its messages with its lines: an error is
    // thrown here, after the chunks before it were written.  Otherwise the
    // cases after those written are predicted item by item.
    const k_size_t done = written == 0 ? 0 : places[written - 1].number + places[written - 1].count;
    read_whole();
    for (Worker& w : workers) {
      if (k_domain_retract_findings(w.domain.get()) != 0) throw ApiError(k_error_code());
      w.observed.assign(w.nodes.size(), false);
    }
    whole_places(done);
    run(false);
  }
  // Where the processor time went (each worker's includes its compilation
  // and the reading of its chunks).
  std::string times;
  for (std::size_t t = 0; t < workers.size(); ++t)
    times += "worker " + std::to_string(t + 1) + " " + seconds_text(workers[t].seconds) + ", ";
  progress.note("processor time: %swriter %s", times.c_str(), seconds_text(write_seconds).c_str());
  out->finish();
}

}  // namespace kelva::cli
