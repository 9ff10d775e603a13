// Case files through the C API: single cases and data files written and read
// back, the exact text written, and the reader's messages with their lines.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "capi/case_domain.h"
#include "common/expect_code.h"
#include "kelva/kelva.h"
#include "text/text_files.h"

namespace {

using kelva::test::collect;

struct CaseFiles : kelva::test::CaseDomain {
  kelva::test::TempFile file;
  const std::string path = file.path;
  std::string messages;

  void write(const std::string& text) { std::ofstream(path, std::ios::binary) << text; }
  // Parses `text` as a single case / a data file; returns the status.
  k_status_t parse_case(const std::string& text) {
    write(text);
    messages.clear();
    return k_domain_parse_case(d, path.c_str(), collect, &messages);
  }
  k_status_t parse_cases(const std::string& text) {
    write(text);
    messages.clear();
    return k_domain_parse_cases(d, path.c_str(), collect, &messages);
  }
  std::string saved_case() {
    EXPECT_EQ(k_domain_save_case(d, path.c_str()), 0);
    return file.contents();
  }
  std::string saved_cases(std::vector<k_node_t> nodes, bool counts, const int64_t* cases = nullptr,
                          const char* separator = ",", const char* missing = "*") {
    nodes.push_back(nullptr);
    EXPECT_EQ(k_domain_save_cases(d, path.c_str(), nodes.data(), cases, counts, separator, missing),
              0);
    return file.contents();
  }

  // Every node's entered evidence as text, for comparisons.
  std::string evidence() {
    std::string out;
    for (k_node_t n : all()) {
      out += std::string(k_node_get_name(n)) + "=";
      if (k_node_evidence_is_entered(n) != 1) {
        out += "-";
      } else if (n == x) {
        out += std::to_string(k_node_get_entered_value(n));
      } else {  // every state's finding
        for (k_size_t i = 0; i < k_node_get_number_of_states(n); ++i)
          out += std::to_string(k_node_get_entered_finding(n, i)) + " ";
      }
      out += ";";
    }
    return out;
  }
  // Every stored case as text.
  std::string stored() {
    std::string out;
    for (k_size_t c = 0; c < k_domain_get_number_of_cases(d); ++c) {
      out += std::to_string(k_domain_get_case_count(d, c)) + ":";
      for (k_node_t n : all()) {
        if (k_node_case_is_set(n, c) != 1) out += "* ";
        else if (n == x) out += std::to_string(k_node_get_case_value(n, c)) + " ";
        else out += std::to_string(k_node_get_case_state(n, c)) + " ";
      }
      out += "\n";
    }
    return out;
  }
};

TEST_F(CaseFiles, SingleCaseIsWrittenInTheDomainsNodeOrder) {
  ASSERT_EQ(k_node_select_state(level, 1), 0);
  ASSERT_EQ(k_node_select_state(flag, 1), 0);
  ASSERT_EQ(k_node_select_state(number, 1), 0);
  ASSERT_EQ(k_node_enter_value(interval, 3.0), 0);
  ASSERT_EQ(k_node_enter_value(x, -0.125), 0);
  ASSERT_EQ(k_node_enter_finding(function, 0, 0.5), 0);
  // Newest node first.
  EXPECT_EQ(saved_case(),
            "F: (0.5 1)\n"
            "X: -0.125\n"
            "I: #1\n"
            "N: 2.5\n"
            "B: true\n"
            "L: \"mid dle\"\t% \"The \\\"level\\\"\"\n");
}

TEST_F(CaseFiles, GeneratedSingleCasesReadBackAsWritten) {
  std::mt19937 rng(7);
  for (int round = 0; round < 200; ++round) {
    ASSERT_EQ(k_domain_retract_findings(d), 0);
    for (k_node_t n : all()) {
      const int what = static_cast<int>(rng() % 4);
      if (what == 0) continue;
      if (n == x) {
        ASSERT_EQ(k_node_enter_value(x, static_cast<double>(rng() % 2001) / 8.0 - 125.0), 0);
      } else if (what == 3) {
        for (k_size_t i = 0; i < k_node_get_number_of_states(n); ++i)
          ASSERT_EQ(k_node_enter_finding(n, i, static_cast<double>(rng() % 5) / 4.0), 0);
      } else {
        ASSERT_EQ(k_node_select_state(n, rng() % k_node_get_number_of_states(n)), 0);
      }
    }
    const std::string before = evidence();
    const std::string text = saved_case();
    ASSERT_EQ(k_domain_retract_findings(d), 0);
    ASSERT_EQ(parse_case(text), 0) << text << messages;
    EXPECT_EQ(evidence(), before) << text;
    EXPECT_EQ(saved_case(), text);
  }
}

TEST_F(CaseFiles, SingleCaseItems) {
  // Plain names and quoted strings for labels; `true`/`false` as names
  // only; numbers pick the state that holds them; `#` counts from 0.
  ASSERT_EQ(parse_case("L: high B: false N: 10 I: 0.5 X: 1e3 F: #1 % done"), 0) << messages;
  EXPECT_EQ(k_node_get_selected_state(level), 2);
  EXPECT_EQ(k_node_get_selected_state(flag), 0);
  EXPECT_EQ(k_node_get_selected_state(number), 2);
  EXPECT_EQ(k_node_get_selected_state(interval), 0);
  EXPECT_EQ(k_node_get_entered_value(x), 1000.0);
  EXPECT_EQ(k_node_get_selected_state(function), 1);

  // Nodes the file names get its findings; the others keep theirs.
  ASSERT_EQ(parse_case("L: \"mid dle\"\nF: (0 1)\n"), 0) << messages;
  EXPECT_EQ(k_node_get_selected_state(level), 1);
  EXPECT_EQ(k_node_get_selected_state(function), 1);
  EXPECT_EQ(k_node_get_selected_state(flag), 0);

  EXPECT_EQ(parse_case(""), 0);  // an empty case
  EXPECT_EQ(parse_case("% nothing but a comment"), 0);
}

TEST_F(CaseFiles, SingleCaseRefusalsLeaveTheEvidence) {
  ASSERT_EQ(k_node_select_state(level, 2), 0);
  ASSERT_EQ(k_node_enter_finding(function, 1, 0.25), 0);
  const std::string before = evidence();
  const std::pair<const char*, const char*> cases[] = {
      {"B: \"true\"", "1:state labels are only allowed for labeled nodes"},
      {"B: maybe", "1:state of boolean node should be `false' or `true'"},
      {"N: low", "1:state labels are only allowed for labeled nodes"},
      {"L: top", "1:\"top\" is not a (unique) state label of `L'"},
      {"L: 1", "1:node L: numeric findings are only allowed for CG, numbered, and interval nodes"},
      {"N: 3", "1:no state of `N' corresponds to the value 3"},
      {"I: 5", "1:no state of `I' corresponds to the value 5"},
      {"F: #2", "1:`#' must be followed by a valid state index"},
      {"F: #0.5", "1:`#' must be followed by a valid state index"},
      {"F: #-1", "1:`#' must be followed by a valid state index"},
      {"F: # low", "1:`#' must be followed by a valid state index"},
      {"X: #0", "1:state index can only be specified for discrete nodes"},
      {"X: (1)", "1:likelihood can only be specified for discrete nodes"},
      {"F: (1)", "1:likelihood vector too short"},
      {"F: (1 2 3)", "1:likelihood vector too long"},
      {"F: (1 -2)", "1:likelihood values must be nonnegative"},
      {"F: (1 low)", "1:number expected"},
      {"F: (1 2 *", "1:')' expected"},
      {"F: (1\n2", "2:unexpected end-of-file"},
      {"X: -inf", "1:the value of `X' must be finite"},
      {"L:", "1:unexpected end-of-file"},
      {"L", "1:unexpected end-of-file"},
      {"L low", "1:`:' expected"},
      {"\n\nL: *", "3:illegal token"},
      {": low", "1:illegal token"},
      {"Q: low", "1:the domain has no node named `Q'"},
      {"R: 1", "1:node `R' is not a chance, a decision, or a discrete function node"},
      {"L: low\nB: true\nL: high\nN: 1\nB: false",
       "3:findings specified twice for `L'|5:findings specified twice for `B'"},
      {"L: low\nL: high\nB: maybe",
       "2:findings specified twice for `L'|3:state of boolean node should be `false' or `true'"},
      {"L: \"low\\q\"", "1:illegal escape sequence: `\\q'|1:illegal token"},
  };
  for (const auto& [text, expected] : cases) {
    EXPECT_NE(parse_case(text), 0) << text;
    EXPECT_EQ(k_error_code(), K_ERROR_PARSE) << text;
    EXPECT_EQ(messages, expected) << text;
    EXPECT_EQ(evidence(), before) << text;
  }
  // State values that do not increase name no state.
  ASSERT_EQ(k_node_set_state_value(number, 2, 2.0), 0);
  EXPECT_NE(parse_case("N: 2"), 0);
  EXPECT_EQ(messages, "1:the state values of `N' do not form an increasing sequence");

  EXPECT_FAILS(k_domain_parse_case(d, (path + ".none").c_str(), collect, &messages), K_ERROR_IO);
  EXPECT_FAILS(k_domain_parse_case(d, nullptr, nullptr, nullptr), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_save_case(nullptr, path.c_str()), K_ERROR_USAGE);
}

TEST_F(CaseFiles, DataFileIsWrittenWithCountsOrRepeatedLines) {
  ASSERT_EQ(k_domain_set_number_of_cases(d, 3), 0);
  ASSERT_EQ(k_node_set_case_state(level, 0, 0), 0);
  ASSERT_EQ(k_node_set_case_state(flag, 0, 1), 0);
  ASSERT_EQ(k_node_set_case_value(x, 1, 0.75), 0);
  ASSERT_EQ(k_node_set_case_state(number, 2, 0), 0);
  ASSERT_EQ(k_node_set_case_state(interval, 2, 1), 0);
  ASSERT_EQ(k_domain_set_case_count(d, 1, 2), 0);
  ASSERT_EQ(k_domain_set_case_count(d, 2, 0), 0);

  EXPECT_EQ(saved_cases({level, flag, x}, true),
            "#,L,B,X\n\n"
            "1,\"low\",true,*\n"
            "2,*,*,0.75\n"
            "0,*,*,*\n");
  // Without counts a case is written as often as its count says.
  EXPECT_EQ(saved_cases({x, number, interval}, false, nullptr, " ", "?"),
            "X N I\n\n"
            "? ? ?\n"
            "0.75 ? ?\n"
            "0.75 ? ?\n");
  const int64_t picked[] = {2, 0, -1};
  EXPECT_EQ(saved_cases({number, interval}, true, picked, "\t"),
            "#\tN\tI\n\n"
            "0\t1\t#1\n"
            "1\t*\t*\n");

  // Refusals come before the file is made.
  std::remove(path.c_str());
  k_domain_t other = k_new_domain();
  k_node_t stranger = k_domain_new_node(other, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_t none[] = {nullptr};
  k_node_t two[] = {level, flag, nullptr};
  k_node_t foreign[] = {level, stranger, nullptr};
  k_node_t twice[] = {level, level, nullptr};
  k_node_t unreal[] = {real, nullptr};
  const int64_t out_of_range[] = {0, 3, -1};
  const char* p = path.c_str();
  ASSERT_EQ(k_domain_set_case_count(d, 2, 0.5), 0);
  const int64_t whole[] = {0, 1, -1};
  const k_status_t refused[] = {
      k_domain_save_cases(d, p, none, nullptr, 1, ",", "*"),
      k_domain_save_cases(d, p, nullptr, nullptr, 1, ",", "*"),
      k_domain_save_cases(d, p, foreign, nullptr, 1, ",", "*"),
      k_domain_save_cases(d, p, twice, nullptr, 1, ",", "*"),
      k_domain_save_cases(d, p, unreal, nullptr, 1, ",", "*"),
      k_domain_save_cases(d, p, two, nullptr, 2, ",", "*"),
      k_domain_save_cases(d, p, two, nullptr, -1, ",", "*"),
      k_domain_save_cases(d, p, two, nullptr, 1, nullptr, "*"),
      k_domain_save_cases(d, p, two, nullptr, 1, ",", nullptr),
      k_domain_save_cases(d, p, two, out_of_range, 1, ",", "*"),
      k_domain_save_cases(d, p, two, nullptr, 0, ",", "*"),  // count 0.5
      k_domain_save_cases(d, nullptr, two, nullptr, 1, ",", "*"),
      k_domain_save_cases(nullptr, p, two, nullptr, 1, ",", "*"),
  };
  for (k_status_t status : refused) EXPECT_NE(status, 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_FALSE(std::ifstream(path).good());
  EXPECT_EQ(k_domain_save_cases(d, p, two, whole, 0, ",", "*"), 0);  // case 2 not picked
  k_domain_delete(other);
}

TEST_F(CaseFiles, GeneratedDataFilesReadBackAsWritten) {
  std::mt19937 rng(11);
  for (int round = 0; round < 50; ++round) {
    ASSERT_EQ(k_domain_set_number_of_cases(d, 0), 0);
    const k_size_t n = rng() % 6;
    ASSERT_EQ(k_domain_set_number_of_cases(d, n), 0);
    const bool counts = round % 2 == 0;
    for (k_size_t c = 0; c < n; ++c) {
      if (counts) {
        ASSERT_EQ(k_domain_set_case_count(d, c, static_cast<double>(rng() % 9) / 4), 0);
      }
      for (k_node_t node : all()) {
        if (rng() % 3 == 0) continue;
        if (node == x)
          ASSERT_EQ(k_node_set_case_value(x, c, static_cast<double>(rng() % 801) / 16.0 - 25.0), 0);
        else
          ASSERT_EQ(k_node_set_case_state(node, c, rng() % k_node_get_number_of_states(node)), 0);
      }
    }
    const std::string before = stored();
    const std::string text = saved_cases(all(), counts, nullptr, round % 3 == 0 ? " " : ",");
    ASSERT_EQ(k_domain_set_number_of_cases(d, 0), 0);
    ASSERT_EQ(parse_cases(text), 0) << text << messages;
    EXPECT_EQ(stored(), before) << text;
    EXPECT_EQ(messages, n == 0 ? "3:warning: file contains no cases" : "") << text;
    // The same cases with every state as "#INDEX", missing items as "*" or
    // "?", blanks or tabs or commas between them, read back the same.
    std::string indexed = counts ? "#" : "";
    for (k_node_t node : all())
      indexed.append(indexed.empty() ? "" : " ").append(k_node_get_name(node));
    const char* gaps[] = {" ", "\t", ", ", " \t"};
    for (k_size_t c = 0; c < n; ++c) {
      indexed += '\n';
      if (counts)
        indexed.append(std::to_string(k_domain_get_case_count(d, c))).append(gaps[rng() % 4]);
      for (k_node_t node : all()) {
        if (k_node_case_is_set(node, c) != 1) indexed += rng() % 2 ? "*" : "?";
        else if (node == x) indexed += std::to_string(k_node_get_case_value(x, c));
        else indexed.append(1, '#').append(std::to_string(k_node_get_case_state(node, c)));
        indexed += node == all().back() ? (rng() % 2 ? "\r" : "") : gaps[rng() % 4];
      }
    }
    ASSERT_EQ(k_domain_set_number_of_cases(d, 0), 0);
    ASSERT_EQ(parse_cases(indexed), 0) << indexed << messages;
    EXPECT_EQ(stored(), before) << indexed;
    // Read from memory, the same.
    ASSERT_EQ(k_domain_set_number_of_cases(d, 0), 0);
    ASSERT_EQ(k_domain_parse_cases_string(d, indexed.c_str(), nullptr, nullptr), 0) << indexed;
    EXPECT_EQ(stored(), before) << indexed;
  }
}

TEST_F(CaseFiles, DataFileItems) {
  ASSERT_EQ(k_domain_new_case(d), 0u);  // cases are appended
  ASSERT_EQ(parse_cases("% columns\nL, B N\n"
                        "low true 10\n"
                        "\"mid dle\",,#2\n"
                        ",,, % nothing known\n"
                        "? * *\n"
                        "high false\t1\n"),
            0)
      << messages;
  EXPECT_EQ(k_domain_get_number_of_cases(d), 6u);
  EXPECT_EQ(k_domain_count_cases(d), 6.0);
  EXPECT_EQ(k_node_get_case_state(level, 2), 1u);
  EXPECT_EQ(k_node_case_is_set(flag, 2), 0);
  EXPECT_EQ(k_node_get_case_state(number, 2), 2u);
  for (k_node_t n : {level, flag, number}) {
    EXPECT_EQ(k_node_case_is_set(n, 3), 0);
    EXPECT_EQ(k_node_case_is_set(n, 4), 0);
  }
  EXPECT_EQ(k_node_get_case_state(number, 5), 0u);

  // Counts; a repeated line is as many cases.
  ASSERT_EQ(k_domain_set_number_of_cases(d, 0), 0);
  ASSERT_EQ(parse_cases("#, X\n2.5, 1\n0 *\n1, -3.25\n"), 0) << messages;
  EXPECT_EQ(k_domain_count_cases(d), 3.5);
  EXPECT_EQ(k_node_get_case_value(x, 2), -3.25);
  ASSERT_EQ(k_domain_set_number_of_cases(d, 0), 0);
  ASSERT_EQ(parse_cases("X\n1\n1\n"), 0);
  EXPECT_EQ(k_domain_count_cases(d), 2.0);
  // Numbers as "%lg" reads them (a dangling exponent is taken, hexadecimal
  // converts), from memory as from a file.
  for (int memory = 0; memory < 2; ++memory) {
    const char* text = "X\n8E\n25e+\n0x10\n";
    ASSERT_EQ(k_domain_set_number_of_cases(d, 0), 0);
    ASSERT_EQ(memory ? k_domain_parse_cases_string(d, text, nullptr, nullptr) : parse_cases(text),
              0);
    ASSERT_EQ(k_domain_get_number_of_cases(d), 3u);
    EXPECT_EQ(k_node_get_case_value(x, 0), 8.0);
    EXPECT_EQ(k_node_get_case_value(x, 1), 25.0);
    EXPECT_EQ(k_node_get_case_value(x, 2), 16.0);
  }

  // Many lines: those of indexes and missing items between blanks are taken
  // whole, in batches, and the others read by tokens between them; every
  // case lands in its place.
  ASSERT_EQ(k_domain_set_number_of_cases(d, 0), 0);
  std::string many = "L N\n";
  for (int c = 0; c < 1300; ++c) {
    if (c % 600 == 5) many += "high *\n";
    else
      many.append(1, '#')
          .append(1, static_cast<char>('0' + c % 3))
          .append(c % 2 ? " *\n" : "\t#1 \n");
  }
  ASSERT_EQ(parse_cases(many), 0) << messages;
  ASSERT_EQ(k_domain_get_number_of_cases(d), 1300u);
  for (k_size_t c = 0; c < 1300; ++c) {
    EXPECT_EQ(k_node_get_case_state(level, c), c % 600 == 5 ? 2u : c % 3) << c;
    EXPECT_EQ(k_node_case_is_set(number, c), c % 600 != 5 && c % 2 == 0) << c;
  }

  // No case lines: a warning, and success.
  ASSERT_EQ(k_domain_set_number_of_cases(d, 0), 0);
  EXPECT_EQ(parse_cases("L B\n\n% none\n"), 0);
  EXPECT_EQ(messages, "4:warning: file contains no cases");
  EXPECT_EQ(parse_cases(""), 0);
  EXPECT_EQ(messages, "1:warning: file contains no cases");
  EXPECT_EQ(k_domain_get_number_of_cases(d), 0u);
}

TEST_F(CaseFiles, DataFileRefusalsLeaveTheStoredCases) {
  ASSERT_EQ(k_domain_set_number_of_cases(d, 2), 0);
  ASSERT_EQ(k_node_set_case_state(level, 1, 2), 0);
  const std::string before = stored();
  const std::pair<const char*, const char*> cases[] = {
      // A short line is reported with its own line number.
      {"L B N\n\nlow true 1\nlow true\nlow true 1\n", "4:line is incomplete"},
      {"L B N\nlow true,\nlow true 1\n", "2:the case has too few data items"},
      {"L\nlow,\n,\n\n", ""},  // (accepted: one column)
      {"#, L\n3,\n", "2:line is incomplete"},
      {"L B\nlow true high\n", "2:the case has extra stuff at the end"},
      {"L B\nlow,true,,\n", "2:the case has extra stuff at the end"},
      {"L B\nlow", "2:unexpected end-of-file"},
      {"L B\nlow @\n", "2:unexpected character: `@'|2:syntax error"},
      {"L B\nlow (1 1)\n", "2:illegal token"},
      {"L B\nlow #\n1\n", "2:`#' must be followed by a valid state index"},
      {"L N\nlow #3\n", "2:`#' must be followed by a valid state index"},
      {"L N\nlow #1234567890\n", "2:`#' must be followed by a valid state index"},
      {"L X\nlow #0\n", "2:state index can only be specified for discrete nodes"},
      {"L N B\nlow *x\n", "2:state of boolean node should be `false' or `true'"},
      {"L N\nlow #1 #0\n", "2:the case has extra stuff at the end"},
      // The same after lines taken whole.
      {"L N\nlow #0\n#0 #1\n* #1\n#0 #3\n", "5:`#' must be followed by a valid state index"},
      {"L N\nlow #0\n#0 #1\n#0 #1 #0\n", "4:the case has extra stuff at the end"},
      {"L N\nlow #0\n#0 #1\n#0\n#1 #1\n", "4:line is incomplete"},
      {"L N\nlow #1", ""},  // (accepted: the item ends the file)
      {"# L\nlow\n", "2:case count expected"},
      {"# L\n-1 low\n", "2:case counts must be nonnegative"},
      {"L Q\n", "1:the domain has no node named `Q'"},
      {"L R\n", "1:node `R' is not a chance, a decision, or a discrete function node"},
      {"L B L\n", "1:node `L' listed twice"},
      {"L 3\n", "1:illegal token"},
      {"B\n\"false\"\n", "2:state labels are only allowed for labeled nodes"},
      {"N\n7\n", "2:no state of `N' corresponds to the value 7"},
      {"X\ninf\n", "2:state labels are only allowed for labeled nodes"},
      {"X\n-inf\n", "2:the value of `X' must be finite"},
      {"L\nlow\nhigh\nmiddle\n", "4:\"middle\" is not a (unique) state label of `L'"},
  };
  for (const auto& [text, expected] : cases) {
    const bool accepted = *expected == '\0';
    EXPECT_EQ(parse_cases(text) == 0, accepted) << text;
    EXPECT_EQ(messages, expected) << text;
    if (accepted) {
      EXPECT_EQ(k_domain_set_number_of_cases(d, 2), 0);
      continue;
    }
    EXPECT_EQ(k_error_code(), K_ERROR_PARSE) << text;
    EXPECT_EQ(stored(), before) << text;
    // From memory: refused as well, with the same messages and lines.
    messages.clear();
    EXPECT_FAILS(k_domain_parse_cases_string(d, text, collect, &messages), K_ERROR_PARSE);
    EXPECT_EQ(messages, expected) << text;
    EXPECT_EQ(stored(), before) << text;
  }
  EXPECT_FAILS(k_domain_parse_cases_string(d, nullptr, collect, &messages), K_ERROR_USAGE);
  // A file with counts fails: counts were not set before, and still are not.
  EXPECT_NE(parse_cases("#, L\n0.5 low\n2 lo\n"), 0);
  EXPECT_EQ(k_domain_count_cases(d), 2.0);
  EXPECT_FAILS(k_domain_parse_cases(d, (path + ".none").c_str(), collect, &messages), K_ERROR_IO);
}

TEST_F(CaseFiles, StatesAboveTheCaseLimitAreRefused) {
  k_node_t wide = discrete("W", K_CATEGORY_CHANCE, K_SUBTYPE_LABEL, 40000);
  EXPECT_FAILS(parse_cases("W\n#32768\n"), K_ERROR_CASE_STATE_TOO_LARGE);
  EXPECT_EQ(messages,
            std::string("2:API error: ") + k_error_description(K_ERROR_CASE_STATE_TOO_LARGE));
  EXPECT_EQ(parse_cases("W\n#32767\n"), 0);
  EXPECT_EQ(k_node_get_case_state(wide, 0), 32767u);
}

}  // namespace
