// Out of memory while reading, copying and printing expressions: the Nth
// allocation fails, for N = 0, 1, ... until the call succeeds; each failure
// must give "no_memory" and leave nothing behind (the sanitizer build checks
// for leaks).

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#include "common/fail_new.h"
#include "expr/expression_fixture.h"
#include "expr/model.h"

namespace kelva::test {

namespace {

constexpr const char* kText =
    "if (and (a == \"s\\1\", B, b != \"t\"), "
    "truncate (-1, Normal (x * 2, y ^ 2 + #N * probability (b != \"t\"))), "
    "Beta (1, 2, min (x, 3), 4))";

// Runs `attempt` with allocation N failing for N = 0, 1, ... until it
// succeeds; every failure must be "no_memory".  Returns the number of
// failed attempts.
template <class F>
int until_success(F&& attempt) {
  for (long n = 0;; ++n) {
    fail_allocation_after(n);
    const bool ok = attempt();
    const bool armed = allocations_left() >= 0;
    fail_allocation_after(-1);
    if (ok) {
      EXPECT_TRUE(armed) << "succeeded although allocation " << n << " failed";
      return static_cast<int>(n);
    }
    EXPECT_EQ(k_error_code(), K_ERROR_NO_MEMORY) << "allocation " << n;
    if (n > 10000) {
      ADD_FAILURE() << "never succeeds";
      return -1;
    }
  }
}

TEST(ExpressionOutOfMemory, ParseCopyAndPrint) {
  ExprNet net;
  Node& owner = *reinterpret_cast<Node*>(net.a);
  owner.model_slot().reset(new Model(owner, {}));
  auto model = reinterpret_cast<k_model_t>(owner.model());

  std::vector<Message> messages;
  k_expression_t parsed = nullptr;
  EXPECT_GT(until_success([&] {
              messages.clear();
              parsed = k_string_parse_expression(kText, model, collect, &messages);
              return parsed != nullptr;
            }),
            20);
  ASSERT_NE(parsed, nullptr);
  EXPECT_TRUE(messages.empty());
  const std::string printed = expression_to_string(reinterpret_cast<Expression*>(parsed));

  Expression* copy = nullptr;
  EXPECT_GT(until_success([&] {
              k_error_set(K_ERROR_NONE);
              try {
                copy = copy_expression(*reinterpret_cast<Expression*>(parsed));
              } catch (const std::bad_alloc&) {
                k_error_set(K_ERROR_NO_MEMORY);
              } catch (const Error& e) {
                k_error_set(e.code());
              }
              return copy != nullptr;
            }),
            20);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(expression_to_string(copy), printed);
  ExpressionFactory::release(copy);

  char* text = nullptr;
  until_success([&] {
    text = k_expression_to_string(parsed);
    return text != nullptr;
  });
  EXPECT_EQ(text, printed);
  std::free(text);
  EXPECT_EQ(k_expression_delete(parsed), 0);
}

}  // namespace
}  // namespace kelva::test
