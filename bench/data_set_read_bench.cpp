// Throughput of the data set reader: writes a CSV file of realistic cells
// (short labels, whole and decimal numbers, some quoted, some missing),
// then times k_parse_data_set on it (wall, user and system time; first
// read and best of three more) against `wc -l` on
// the same file (both reading from the page cache), and reports the peak
// memory of the process after the read.
//
//   bench_data_set_read [MEGABYTES [FILE]]   (default 100, a file in /tmp)
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "dataset/data_set.h"
#include "kelva/kelva.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

long peak_kib() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// Writes about `bytes` of CSV: 30 columns of labels, whole numbers,
// decimals and quoted texts; about one cell in twenty missing.
std::size_t write_file(const std::string& path, std::size_t bytes, std::size_t columns) {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) {
    std::perror(path.c_str());
    std::exit(1);
  }
  static const char* const labels[] = {"low", "mid", "high", "yes",     "no",      "A",
                                       "B",   "C",   "none", "unknown", "state_1", "state_12"};
  static const char* const quoted[] = {"\"Oslo, NO\"", "\"a \"\"b\"\"\"", "\"x; y\"", "\" pad \""};
  std::mt19937_64 random(42);
  std::string line;
  for (std::size_t c = 0; c < columns; ++c) line += (c ? ",col" : "col") + std::to_string(c);
  line += '\n';
  std::size_t written = 0, rows = 0;
  char number[32];
  while (written < bytes) {
    written += line.size();
    std::fputs(line.c_str(), f);
    line.clear();
    for (std::size_t c = 0; c < columns; ++c) {
      if (c > 0) line += ',';
      if (random() % 20 == 0) continue;  // missing
      switch (c % 5) {
        case 0:
        case 1:
          line += labels[random() % 12];
          break;
        case 2:
          std::snprintf(number, sizeof number, "%d", static_cast<int>(random() % 100000));
          line += number;
          break;
        case 3:
          std::snprintf(number, sizeof number, "%.3f",
                        static_cast<double>(random() % 1000000) / 997);
          line += number;
          break;
        default:
          line += random() % 4 == 0 ? quoted[random() % 4] : labels[random() % 12];
          break;
      }
    }
    line += '\n';
    ++rows;
  }
  std::fclose(f);
  return rows;
}

double cpu_seconds(bool system) {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const timeval& tv = system ? usage.ru_stime : usage.ru_utime;
  return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) * 1e-6;
}

std::size_t file_size(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  std::fseek(f, 0, SEEK_END);
  const long size = std::ftell(f);
  std::fclose(f);
  return static_cast<std::size_t>(size);
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t megabytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100;
  const std::string path = argc > 2 ? argv[2] : "/tmp/kelva_bench_data_set.csv";
  const std::size_t columns = 30;
  const std::size_t rows = write_file(path, megabytes << 20, columns);
  const double mb = static_cast<double>(file_size(path)) / (1 << 20);
  std::printf("file: %s, %.1f MB, %zu columns, %zu rows\n", path.c_str(), mb, columns, rows);

  // wc -l, twice (the first warms the page cache), the second timed.
  const std::string wc = "wc -l < '" + path + "' > /dev/null";
  if (std::system(wc.c_str()) != 0) std::fprintf(stderr, "wc failed\n");
  Clock::time_point t = Clock::now();
  if (std::system(wc.c_str()) != 0) std::fprintf(stderr, "wc failed\n");
  const double wc_seconds = seconds_since(t);

  // The first read takes fresh memory from the system (its pages are
  // faulted in and zeroed by the kernel); later reads in the same process
  // reuse pages the allocator kept or the system hands back faster.  Both
  // are reported, with user and system time apart.
  const long before = peak_kib();
  k_data_set_t ds = nullptr;
  double read_seconds = 0, read_cpu = 0, read_user = 0, read_sys = 0;
  double again_cpu = 1e9, again_wall = 1e9, again_sys = 0;
  long after = 0;
  for (int round = 0; round < 4; ++round) {
    if (ds != nullptr) k_ds_delete(ds);
    const double user0 = cpu_seconds(false), sys0 = cpu_seconds(true);
    t = Clock::now();
    ds = k_parse_data_set(path.c_str(), ',', nullptr, nullptr);
    const double wall = seconds_since(t);
    const double user = cpu_seconds(false) - user0, sys = cpu_seconds(true) - sys0;
    if (ds == nullptr) {
      std::fprintf(stderr, "read failed: %s\n", k_error_name(k_error_code()));
      return 1;
    }
    if (round == 0) {
      after = peak_kib();
      read_seconds = wall;
      read_cpu = user + sys;
      read_user = user;
      read_sys = sys;
    } else if (user + sys < again_cpu) {
      again_cpu = user + sys;
      again_sys = sys;
      again_wall = wall;
    }
  }
  const auto* set = reinterpret_cast<const kelva::DataSet*>(ds);
  const double cells = static_cast<double>(set->row_count() * set->column_count());

  t = Clock::now();
  const std::string copy = path + ".out";
  if (k_ds_save(ds, copy.c_str(), ',') != 0) std::fprintf(stderr, "save failed\n");
  const double save_seconds = seconds_since(t);
  std::remove(copy.c_str());
  t = Clock::now();
  k_ds_delete(ds);
  const double delete_seconds = seconds_since(t);

  std::printf("wc -l:             %7.3f s  %8.1f MB/s\n", wc_seconds, mb / wc_seconds);
  std::printf("k_parse_data_set:  %7.3f s  %8.1f MB/s  (%.0f ns per cell)\n", read_seconds,
              mb / read_seconds, read_seconds * 1e9 / cells);
  std::printf("  CPU time:        %7.3f s  %8.1f MB/s  (user %.3f s, system %.3f s)\n", read_cpu,
              mb / read_cpu, read_user, read_sys);
  std::printf("read again (best of 3): CPU %.3f s  %.1f MB/s  (system %.3f s), wall %.3f s\n",
              again_cpu, mb / again_cpu, again_sys, again_wall);
  std::printf("k_ds_save:         %7.3f s  %8.1f MB/s\n", save_seconds, mb / save_seconds);
  std::printf("k_ds_delete:       %7.3f s\n", delete_seconds);
  std::printf(
      "peak memory: %.1f MB before the read, %.1f MB after (%.1f bytes per cell, "
      "file %.1f bytes per cell)\n",
      before / 1024.0, after / 1024.0, (after - before) * 1024.0 / cells, mb * (1 << 20) / cells);
  if (argc <= 2) std::remove(path.c_str());
  return 0;
}
