#include "expr/distributions.h"

// Discretisation of the standard distributions over a node's states.
//
// Parameterisations (where the operator table leaves them open):
//   Normal(mu, s2)              mean, variance.
//   LogNormal(mu, s2 [, c])     log(X - c) is Normal(mu, s2); c (default 0) is
//                               the lower end of the support.
//   Beta(a, b [, lo, hi])       shapes a, b, scaled to [lo, hi] (default [0, 1]).
//   Gamma(k, t [, c])           shape k, scale t, location c (default 0):
//                               X - c has density x^(k-1) e^(-x/t).
//   Exponential(r [, c])        rate r, location c (default 0).
//   Weibull(a, b [, c])         shape a, scale b, location c (default 0):
//                               P(X <= x) = 1 - exp(-((x - c) / b)^a).
//   Uniform(a, b), Triangular(a, m, b)   the usual ones.
//   PERT(a, m, b [, l])         Beta(1 + l (m - a) / (b - a),
//                               1 + l (b - m) / (b - a)) on [a, b]; the shape
//                               l defaults to 4.
//   Binomial(n, p)              successes in n trials.
//   Poisson(m)                  mean m.
//   NegativeBinomial(r, p)      failures before the r-th success (r real > 0).
//   Geometric(p)                failures before the first success.
//   NoisyOR(c1, q1, c2, q2, ...)  P(false) is the product of the inhibitor
//                               probabilities qi of the true conditions ci;
//                               there is no implicit leak: write one as a
//                               pair (true, q).
//   aggregate(N, X)             the sum of N independent copies of X, each
//                               copy at the point that stands for its interval
//                               state (interval_point), convolved exactly and
//                               then placed in the owner's intervals.
//
// A discrete distribution on a numbered node gives state i the probability
// of i; the last state also takes the upper tail (everything above it).  On
// an interval node, state [lo, hi) gets the probability of the integers in
// it, and the states must cover the whole support.
//
// Special functions come from Boost.Math under a policy that reports domain
// errors, poles and overflow as NaN or infinity instead of throwing; a
// result that is not a finite probability is "computation_failed".

#include <algorithm>
#include <boost/math/distributions/binomial.hpp>
#include <boost/math/distributions/geometric.hpp>
#include <boost/math/distributions/negative_binomial.hpp>
#include <boost/math/distributions/poisson.hpp>
#include <boost/math/special_functions/beta.hpp>
#include <boost/math/special_functions/erf.hpp>
#include <boost/math/special_functions/gamma.hpp>
#include <cfloat>
#include <exception>
#include <limits>
#include <map>
#include <string>

#include "expr/expression.h"
#include "expr/generation_log.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

namespace bp = boost::math::policies;
using Policy =
    bp::policy<bp::domain_error<bp::errno_on_error>, bp::pole_error<bp::errno_on_error>,
               bp::overflow_error<bp::errno_on_error>, bp::evaluation_error<bp::errno_on_error>,
               bp::rounding_error<bp::errno_on_error>>;

constexpr double kInf = std::numeric_limits<double>::infinity();

const char* name_of(int op) noexcept {
  const char* name = operator_name(op);
  return name != nullptr ? name : "";
}

// A node's name for a message (generated first if it has none).
const char* node_name(const Node& n) { return const_cast<Node&>(n).name_or_generate().c_str(); }

// A state bound at or beyond the largest finite double is unbounded: NET
// text writes infinity as that double.
double unbounded(double v) noexcept {
  if (v >= std::numeric_limits<double>::max()) return kInf;
  if (v <= -std::numeric_limits<double>::max()) return -kInf;
  return v;
}

// State bounds of an interval node: state i is [value(i), value(i + 1)).
double lower_of(const Node& n, std::size_t i) noexcept { return unbounded(n.state_value(i)); }
double upper_of(const Node& n, std::size_t i) noexcept { return unbounded(n.state_value(i + 1)); }

void fail_computation() { throw Error(K_ERROR_COMPUTATION_FAILED); }

// A continuous law: its support and its distribution function and
// complement inside the support.
class ContinuousLaw {
 public:
  ContinuousLaw(int op, const std::vector<double>& a) : op_(op) {
    auto arg = [&](std::size_t i, double fallback) { return i < a.size() ? a[i] : fallback; };
    switch (op) {
      case K_OP_NORMAL:
        p_[0] = a[0];
        p_[1] = std::sqrt(a[1]);
        lo_ = -kInf;
        hi_ = kInf;
        break;
      case K_OP_LOGNORMAL:
        p_[0] = a[0];
        p_[1] = std::sqrt(a[1]);
        p_[2] = arg(2, 0.0);
        lo_ = p_[2];
        hi_ = kInf;
        break;
      case K_OP_BETA:
        p_[0] = a[0];
        p_[1] = a[1];
        lo_ = arg(2, 0.0);
        hi_ = arg(3, 1.0);
        break;
      case K_OP_GAMMA:
      case K_OP_WEIBULL:
        p_[0] = a[0];
        p_[1] = a[1];
        lo_ = arg(2, 0.0);
        hi_ = kInf;
        break;
      case K_OP_EXPONENTIAL:
        p_[0] = a[0];
        lo_ = arg(1, 0.0);
        hi_ = kInf;
        break;
      case K_OP_UNIFORM:
        lo_ = a[0];
        hi_ = a[1];
        break;
      case K_OP_TRIANGULAR:
        lo_ = a[0];
        p_[0] = a[1];
        hi_ = a[2];
        break;
      case K_OP_PERT: {
        lo_ = a[0];
        hi_ = a[2];
        const double shape = arg(3, 4.0);
        p_[0] = 1.0 + shape * (a[1] - lo_) / (hi_ - lo_);
        p_[1] = 1.0 + shape * (hi_ - a[1]) / (hi_ - lo_);
        break;
      }
      default:
        throw Error(K_ERROR_INVALID_EXPRESSION);
    }
  }

  double lower() const noexcept { return lo_; }
  double upper() const noexcept { return hi_; }

  // P(a < X <= b) for lo <= a < b <= hi, from the side where it is accurate.
  double probability(double a, double b) const {
    const double fa = a <= lo_ ? 0.0 : cdf(a, false);
    if (fa > 0.5) {
      const double qa = ccdf_at(a);
      const double qb = b >= hi_ ? 0.0 : cdf(b, true);
      return qa - qb;
    }
    const double fb = b >= hi_ ? 1.0 : cdf(b, false);
    return fb - fa;
  }

 private:
  double ccdf_at(double x) const { return x <= lo_ ? 1.0 : cdf(x, true); }

  // F(x), or 1 - F(x) when `complement`, for x strictly inside the support.
  double cdf(double x, bool complement) const {
    switch (op_) {
      case K_OP_NORMAL:
        return normal(x - p_[0], p_[1], complement);
      case K_OP_LOGNORMAL:
        return normal(std::log(x - p_[2]) - p_[0], p_[1], complement);
      case K_OP_BETA:
      case K_OP_PERT: {
        const double t = (x - lo_) / (hi_ - lo_);
        return complement ? boost::math::ibetac(p_[0], p_[1], t, Policy())
                          : boost::math::ibeta(p_[0], p_[1], t, Policy());
      }
      case K_OP_GAMMA: {
        const double t = (x - lo_) / p_[1];
        return complement ? boost::math::gamma_q(p_[0], t, Policy())
                          : boost::math::gamma_p(p_[0], t, Policy());
      }
      case K_OP_EXPONENTIAL: {
        const double t = p_[0] * (x - lo_);
        return complement ? std::exp(-t) : -std::expm1(-t);
      }
      case K_OP_WEIBULL: {
        const double t = std::pow((x - lo_) / p_[1], p_[0]);
        return complement ? std::exp(-t) : -std::expm1(-t);
      }
      case K_OP_UNIFORM:
        return complement ? (hi_ - x) / (hi_ - lo_) : (x - lo_) / (hi_ - lo_);
      case K_OP_TRIANGULAR: {
        const double m = p_[0];
        const double width = hi_ - lo_;
        if (x <= m) {
          const double f = (x - lo_) * (x - lo_) / (width * (m - lo_));
          return complement ? 1.0 - f : f;
        }
        const double q = (hi_ - x) * (hi_ - x) / (width * (hi_ - m));
        return complement ? q : 1.0 - q;
      }
      default:
        return std::numeric_limits<double>::quiet_NaN();
    }
  }

  static double normal(double deviation, double sd, bool complement) {
    const double z = deviation / (sd * std::sqrt(2.0));
    return 0.5 * boost::math::erfc(complement ? z : -z, Policy());
  }

  int op_;
  double p_[3] = {0.0, 0.0, 0.0};
  double lo_ = -kInf;
  double hi_ = kInf;
};

// The parameter rules of the continuous distributions, with their messages.
void verify_continuous(const DistributionValue& d, const GenerationLog& log) {
  const std::vector<double>& a = d.args;
  auto refuse = [] { throw Error(K_ERROR_INAPPROPRIATE_ARGUMENTS); };
  switch (d.op) {
    case K_OP_NORMAL:
      if (!(a[1] > 0.0)) {
        log.write("Variance for a Normal distribution must be positive (observed: %g)\n", a[1]);
        refuse();
      }
      break;
    case K_OP_LOGNORMAL:
      if (!(a[1] > 0.0)) {
        log.write(
            "The variance parameter of a LogNormal distribution must be positive (observed: %g)\n",
            a[1]);
        refuse();
      }
      break;
    case K_OP_BETA:
      if (a.size() == 4 && !(a[2] < a[3])) {
        log.write("Beta distribution: Interval must have positive length (observed: [%g, %g])\n",
                  a[2], a[3]);
        refuse();
      }
      if (!(a[0] > 0.0 && a[1] > 0.0)) {
        log.write("Beta distribution (shape) parameters must be positive (observed: %g and %g)\n",
                  a[0], a[1]);
        refuse();
      }
      break;
    case K_OP_GAMMA:
      if (!(a[0] > 0.0 && a[1] > 0.0)) {
        log.write(
            "Gamma distribution parameters must be positive (observed: shape = %g, scale = %g)\n",
            a[0], a[1]);
        refuse();
      }
      break;
    case K_OP_EXPONENTIAL:
      if (!(a[0] > 0.0)) {
        log.write("Exponential distribution parameter must be positive (observed: %g)\n", a[0]);
        refuse();
      }
      break;
    case K_OP_WEIBULL:
      if (!(a[0] > 0.0 && a[1] > 0.0)) {
        log.write("Weibull distribution parameters must be positive (observed: a = %g, b = %g)\n",
                  a[0], a[1]);
        refuse();
      }
      break;
    case K_OP_UNIFORM:
      if (!(a[0] < a[1])) {
        log.write("Uniform distribution: Interval must have positive length (observed: [%g, %g])\n",
                  a[0], a[1]);
        refuse();
      }
      break;
    case K_OP_TRIANGULAR:
      if (!(a[0] <= a[1] && a[1] <= a[2] && a[0] < a[2])) {
        log.write(
            "Triangular distribution parameters must obey a <= m <= b and a < b "
            "(observed: a = %g, m = %g, b = %g)\n",
            a[0], a[1], a[2]);
        refuse();
      }
      break;
    case K_OP_PERT:
      if (!(a[0] < a[1] && a[1] < a[2])) {
        log.write("PERT parameters must obey a < m < b (observed: a = %g, m = %g, b = %g)\n", a[0],
                  a[1], a[2]);
        refuse();
      }
      if (a.size() == 4 && !(a[3] > 0.0)) {
        log.write("The fourth parameter of a PERT distribution must be positive (observed: %g)\n",
                  a[3]);
        refuse();
      }
      break;
    default:
      break;
  }
  // Infinite parameters pass the sign rules but describe no distribution.
  for (double v : a)
    if (!std::isfinite(v)) refuse();
}

void write_range(const GenerationLog& log, const Node& owner, double lo, double hi,
                 const char* truncated, int op) {
  log.write("Node %s: State range must include ", node_name(owner));
  if (std::isinf(lo) && lo < 0) log.write("(-inf, ");
  else log.write("[%g, ", lo);
  if (std::isinf(hi) && hi > 0) log.write("inf)");
  else log.write("%g]", hi);
  log.write(" for %s%s distribution\n", truncated, name_of(op));
}

void continuous(const DistributionValue& d, Node& owner, const GenerationLog& log,
                std::vector<double>& out) {
  const std::size_t n = owner.state_count();
  verify_continuous(d, log);
  const ContinuousLaw law(d.op, d.args);
  const double lo = std::max(law.lower(), d.lower);
  const double hi = std::min(law.upper(), d.upper);
  if (lo < lower_of(owner, 0) || hi > upper_of(owner, n - 1)) {
    write_range(log, owner, lo, hi, d.truncated ? "truncated " : "", d.op);
    throw Error(K_ERROR_INSUFFICIENT_STATE_RANGE);
  }
  auto failed = [&] {
    if (d.op == K_OP_GAMMA)
      log.write(
          "Computation failed for gamma distribution with parameters: shape = %g, scale = %g\n",
          d.args[0], d.args[1]);
    fail_computation();
  };
  double mass = 0.0;
  try {
    mass = lo < hi ? law.probability(lo, hi) : 0.0;
    if (std::isnan(mass)) failed();
    if (mass < DBL_MIN) {
      log.write("Invalid truncation of the %s distribution (insufficient probability mass)\n",
                name_of(d.op));
      throw Error(K_ERROR_INVALID_EXPRESSION);
    }
    for (std::size_t i = 0; i < n; ++i) {
      const double a = std::max(lower_of(owner, i), lo);
      const double b = std::min(upper_of(owner, i), hi);
      const double p = a < b ? law.probability(a, b) : 0.0;
      if (!std::isfinite(p)) failed();
      out[i] = std::max(p, 0.0) / mass;
    }
  } catch (const Error&) {
    throw;
  } catch (const std::exception&) {
    failed();
  }
}

// ---------------------------------------------------------------------------
// Discrete distributions over the integers 0, 1, 2, ...

class CountLaw {
 public:
  CountLaw(int op, const std::vector<double>& a) : op_(op), a_(a) {}

  // Largest value with positive probability (infinity when unbounded).
  double upper() const noexcept { return op_ == K_OP_BINOMIAL ? a_[0] : kInf; }

  // P(X <= k), or P(X > k) when `complement`, for an integer k >= 0.
  double cdf(double k, bool complement) const {
    if (k >= upper()) return complement ? 0.0 : 1.0;
    switch (op_) {
      case K_OP_BINOMIAL: {
        const boost::math::binomial_distribution<double, Policy> law(a_[0], a_[1]);
        return complement ? boost::math::cdf(boost::math::complement(law, k))
                          : boost::math::cdf(law, k);
      }
      case K_OP_POISSON: {
        const boost::math::poisson_distribution<double, Policy> law(a_[0]);
        return complement ? boost::math::cdf(boost::math::complement(law, k))
                          : boost::math::cdf(law, k);
      }
      case K_OP_NEGATIVE_BINOMIAL: {
        const boost::math::negative_binomial_distribution<double, Policy> law(a_[0], a_[1]);
        return complement ? boost::math::cdf(boost::math::complement(law, k))
                          : boost::math::cdf(law, k);
      }
      default: {
        const boost::math::geometric_distribution<double, Policy> law(a_[0]);
        return complement ? boost::math::cdf(boost::math::complement(law, k))
                          : boost::math::cdf(law, k);
      }
    }
  }

  // P(first <= X <= last) for integers first <= last.
  double probability(double first, double last) const {
    first = std::max(first, 0.0);
    last = std::min(last, upper());
    if (first > last) return 0.0;
    const double below = first <= 0.0 ? 0.0 : cdf(first - 1.0, false);
    if (below > 0.5) return cdf(first - 1.0, true) - (std::isinf(last) ? 0.0 : cdf(last, true));
    return (std::isinf(last) ? 1.0 : cdf(last, false)) - below;
  }

 private:
  int op_;
  const std::vector<double>& a_;
};

bool is_count(double v) noexcept { return v >= 0.0 && std::floor(v) == v && std::isfinite(v); }

void verify_counting(const DistributionValue& d, const GenerationLog& log) {
  const std::vector<double>& a = d.args;
  bool ok = true;
  switch (d.op) {
    case K_OP_BINOMIAL:
      ok = is_count(a[0]) && a[1] >= 0.0 && a[1] <= 1.0;
      if (!ok)
        log.write(
            "Binomial distribution parameters must obey n = 0, 1, 2, ... and 0 <= p <= 1 "
            "(observed: n = %g, p = %g)\n",
            a[0], a[1]);
      break;
    case K_OP_POISSON:
      ok = a[0] > 0.0 && std::isfinite(a[0]);
      if (!ok) log.write("Poisson distribution parameter must be positive (observed: %g)\n", a[0]);
      break;
    case K_OP_NEGATIVE_BINOMIAL:
      ok = a[0] > 0.0 && std::isfinite(a[0]) && a[1] > 0.0 && a[1] <= 1.0;
      if (!ok)
        log.write(
            "NegativeBinomial distribution parameters must obey r > 0 and 0 < p <= 1 "
            "(observed: r = %g, p = %g)\n",
            a[0], a[1]);
      break;
    default:
      ok = a[0] > 0.0 && a[0] <= 1.0;
      if (!ok)
        log.write("Geometric distribution parameter must obey 0 < p <= 1 (observed: %g)\n", a[0]);
      break;
  }
  if (!ok) throw Error(K_ERROR_INAPPROPRIATE_ARGUMENTS);
}

void counting(const DistributionValue& d, Node& owner, const GenerationLog& log,
              std::vector<double>& out) {
  const std::size_t n = owner.state_count();
  const k_subtype_t subtype = owner.subtype();
  if (subtype != K_SUBTYPE_NUMBER && subtype != K_SUBTYPE_INTERVAL) {
    log.write("The %s distribution can only be applied to numbered or interval nodes\n",
              name_of(d.op));
    throw Error(K_ERROR_INVALID_EXPRESSION);
  }
  if (d.truncated) {
    log.write("Truncation is not supported for the %s distribution\n", name_of(d.op));
    throw Error(K_ERROR_INVALID_EXPRESSION);
  }
  if (subtype == K_SUBTYPE_NUMBER)
    for (std::size_t i = 0; i < n; ++i)
      if (owner.state_value(i) != static_cast<double>(i))
        throw Error(K_ERROR_INSUFFICIENT_STATE_RANGE);
  verify_counting(d, log);
  const CountLaw law(d.op, d.args);
  try {
    if (subtype == K_SUBTYPE_NUMBER) {
      // State i is the value i; the last state also holds everything above.
      for (std::size_t i = 0; i < n; ++i) {
        const double k = static_cast<double>(i);
        out[i] = i + 1 < n ? law.probability(k, k) : law.probability(k, kInf);
      }
    } else {
      // The last interval [lo, hi) must hold the largest value, or be
      // unbounded for an unbounded law.
      const double top = upper_of(owner, n - 1);
      if (lower_of(owner, 0) > 0.0 || !(top > law.upper() || top == kInf)) {
        write_range(log, owner, 0.0, law.upper(), "", d.op);
        throw Error(K_ERROR_INSUFFICIENT_STATE_RANGE);
      }
      // [lo, hi) holds the integers ceil(lo) .. ceil(hi) - 1.
      for (std::size_t i = 0; i < n; ++i)
        out[i] =
            law.probability(std::ceil(lower_of(owner, i)), std::ceil(upper_of(owner, i)) - 1.0);
    }
  } catch (const Error&) {
    throw;
  } catch (const std::exception&) {
    fail_computation();
  }
  for (double& p : out) {
    if (!std::isfinite(p)) fail_computation();
    p = std::max(p, 0.0);
  }
}

// ---------------------------------------------------------------------------

void weights(const DistributionValue& d, const Node& owner, const GenerationLog& log,
             std::vector<double>& out) {
  const std::size_t n = owner.state_count();
  if (d.args.size() != n) {
    log.write(
        "The number of arguments of a Distribution expression must match the number of states\n");
    throw Error(K_ERROR_INAPPROPRIATE_ARGUMENTS);
  }
  double total = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    if (d.args[i] < 0.0) {
      log.write("Negative value in Distribution expression (state %s)\n",
                std::to_string(i).c_str());
      throw Error(K_ERROR_INAPPROPRIATE_ARGUMENTS);
    }
    if (!std::isfinite(d.args[i])) throw Error(K_ERROR_INAPPROPRIATE_ARGUMENTS);
    total += d.args[i];
  }
  if (!(total > 0.0)) {
    log.write("At least one argument of a Distribution expression must be positive\n");
    throw Error(K_ERROR_INAPPROPRIATE_ARGUMENTS);
  }
  if (!std::isfinite(total)) fail_computation();
  for (std::size_t i = 0; i < n; ++i) out[i] = d.args[i] / total;
}

void noisy_or(const DistributionValue& d, const Node& owner, const GenerationLog& log,
              std::vector<double>& out) {
  if (owner.subtype() != K_SUBTYPE_BOOLEAN) {
    log.write("A NoisyOR distribution can only be applied to boolean nodes\n");
    throw Error(K_ERROR_INVALID_EXPRESSION);
  }
  double all_inhibited = 1.0;
  for (std::size_t i = 0; i + 1 < d.args.size(); i += 2) {
    const double q = d.args[i + 1];
    if (!(q >= 0.0 && q <= 1.0)) {
      log.write("NoisyOR inhibitor probabilities must lie in [0, 1] (observed: %g)\n", q);
      throw Error(K_ERROR_INAPPROPRIATE_ARGUMENTS);
    }
    if (d.args[i] != 0.0) all_inhibited *= q;
  }
  out[0] = all_inhibited;        // false
  out[1] = 1.0 - all_inhibited;  // true
}

void aggregate(const DistributionValue& d, const Node& owner, const GenerationLog& log,
               const AggregateBeliefs* beliefs, std::vector<double>& out) {
  if (owner.category() != K_CATEGORY_FUNCTION || owner.subtype() != K_SUBTYPE_INTERVAL) {
    log.write("Aggregate distributions are only valid for interval discrete function nodes\n");
    throw Error(K_ERROR_INVALID_EXPRESSION);
  }
  const Node& count = *d.count_node;
  const Node& term = *d.term_node;
  if (count.subtype() != K_SUBTYPE_NUMBER) {
    log.write("Aggregate distribution: `%s' must be a numbered node.\n", node_name(count));
    throw Error(K_ERROR_INVALID_EXPRESSION);
  }
  if (term.subtype() != K_SUBTYPE_INTERVAL) {
    log.write("Aggregate distribution: `%s' must be an interval node.\n", node_name(term));
    throw Error(K_ERROR_INVALID_EXPRESSION);
  }
  require(beliefs != nullptr && beliefs->count.size() == count.state_count() &&
              beliefs->term.size() == term.state_count(),
          K_ERROR_NOT_COMPILED);
  for (std::size_t i = 0; i < count.state_count(); ++i)
    if (beliefs->count[i] > 0.0 && !is_count(count.state_value(i)))
      throw Error(K_ERROR_INAPPROPRIATE_ARGUMENTS);

  // One copy of X: a point per interval state.
  std::map<double, double> one;
  for (std::size_t j = 0; j < term.state_count(); ++j)
    if (beliefs->term[j] > 0.0)
      one[interval_point(term.state_value(j), term.state_value(j + 1))] += beliefs->term[j];

  // The sums of 0, 1, 2, ... copies, mixed by the distribution of N.
  constexpr std::size_t kMaxPoints = 1000000;
  double most = 0.0;
  for (std::size_t i = 0; i < count.state_count(); ++i)
    if (beliefs->count[i] > 0.0) most = std::max(most, count.state_value(i));
  std::map<double, double> sum{{0.0, 1.0}};
  std::map<double, double> mixed;
  for (double copies = 0.0;; copies += 1.0) {
    for (std::size_t i = 0; i < count.state_count(); ++i)
      if (beliefs->count[i] > 0.0 && count.state_value(i) == copies)
        for (const auto& [x, p] : sum) mixed[x] += beliefs->count[i] * p;
    if (copies >= most) break;
    std::map<double, double> next;
    for (const auto& [x, p] : sum)
      for (const auto& [y, q] : one) next[x + y] += p * q;
    if (next.size() > kMaxPoints) fail_computation();
    sum.swap(next);
  }

  const std::size_t n = owner.state_count();
  std::fill(out.begin(), out.end(), 0.0);
  double total = 0.0;
  for (const auto& [x, p] : mixed) {
    total += p;
    for (std::size_t i = 0; i < n; ++i)
      if (lower_of(owner, i) <= x && x < upper_of(owner, i)) {
        out[i] += p;
        break;
      }
  }
  double inside = 0.0;
  for (double p : out) inside += p;
  if (total - inside > 1e-12 * total) {
    log.write("Node %s: State range must include [%g, %g] for aggregate distribution\n",
              node_name(owner), mixed.begin()->first, mixed.rbegin()->first);
    throw Error(K_ERROR_INSUFFICIENT_STATE_RANGE);
  }
  if (!(total > 0.0) || !std::isfinite(total)) fail_computation();
  for (double& p : out) p /= total;
}

}  // namespace

double interval_point(double lo, double hi) noexcept {
  lo = unbounded(lo);
  hi = unbounded(hi);
  if (std::isinf(lo) && std::isinf(hi)) return 0.0;
  if (std::isinf(lo)) return hi > 0.0 ? hi * 0.999 : hi < 0.0 ? hi * 1.001 : -1.0;
  if (std::isinf(hi)) return lo > 0.0 ? lo * 1.001 : lo < 0.0 ? lo * 0.999 : 1.0;
  return lo + 0.5 * (hi - lo);
}

std::vector<double> interval_samples(double lo, double hi, std::uint64_t samples) {
  lo = unbounded(lo);
  hi = unbounded(hi);
  if (std::isinf(lo) || std::isinf(hi)) return {interval_point(lo, hi)};
  if (hi == lo) return {lo};
  std::vector<double> points;
  points.reserve(static_cast<std::size_t>(samples));
  const double count = static_cast<double>(samples);
  for (std::uint64_t k = 0; k < samples; ++k)
    points.push_back(lo + (static_cast<double>(k) + 0.5) * (hi - lo) / count);
  return points;
}

void discretise(const DistributionValue& dist, Node& owner, const GenerationLog& log,
                const AggregateBeliefs* beliefs, std::vector<double>& out) {
  out.assign(owner.state_count(), 0.0);
  if (is_continuous_distribution(dist.op)) {
    if (owner.subtype() != K_SUBTYPE_INTERVAL) {
      log.write("The %s distribution can only be applied to interval nodes\n", name_of(dist.op));
      throw Error(K_ERROR_INVALID_EXPRESSION);
    }
    continuous(dist, owner, log, out);
    return;
  }
  if (dist.op >= K_OP_BINOMIAL && dist.op <= K_OP_GEOMETRIC) {
    counting(dist, owner, log, out);
    return;
  }
  if (dist.truncated) {
    log.write("Truncation is not supported for the %s distribution\n", name_of(dist.op));
    throw Error(K_ERROR_INVALID_EXPRESSION);
  }
  switch (dist.op) {
    case K_OP_DISTRIBUTION:
      weights(dist, owner, log, out);
      return;
    case K_OP_NOISY_OR:
      noisy_or(dist, owner, log, out);
      return;
    case K_OP_AGGREGATE:
      aggregate(dist, owner, log, beliefs, out);
      return;
    default:
      throw Error(K_ERROR_INVALID_EXPRESSION);
  }
}

}  // namespace kelva
