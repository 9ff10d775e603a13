package COM.kelva.KAPI;

/**
 * The operator of an expression.  Operators up to {@link #GREATER_THAN_OR_EQUALS}
 * make composites; the last four are the sorts of leaves.
 */
public enum Operator {
  /** The normal distribution {@code Normal(mean, variance)}. */
  NORMAL(60),
  /** The log-normal distribution {@code LogNormal}. */
  LOG_NORMAL(61),
  /** The beta distribution {@code Beta}. */
  BETA(62),
  /** The gamma distribution {@code Gamma}. */
  GAMMA(63),
  /** The exponential distribution {@code Exponential}. */
  EXPONENTIAL(64),
  /** The Weibull distribution {@code Weibull}. */
  WEIBULL(65),
  /** The uniform distribution {@code Uniform}. */
  UNIFORM(66),
  /** The triangular distribution {@code Triangular}. */
  TRIANGULAR(67),
  /** The PERT distribution {@code PERT}. */
  PERT(68),
  /** The binomial distribution {@code Binomial}. */
  BINOMIAL(69),
  /** The Poisson distribution {@code Poisson}. */
  POISSON(70),
  /** The negative binomial distribution {@code NegativeBinomial}. */
  NEGATIVE_BINOMIAL(71),
  /** The geometric distribution {@code Geometric}. */
  GEOMETRIC(72),
  /** An explicit distribution {@code Distribution}, one weight per state. */
  DISTRIBUTION(73),
  /** {@code NoisyOR}: pairs of a condition and its probability. */
  NOISY_OR(74),
  /** {@code truncate}: a distribution cut to a range. */
  TRUNCATE(75),
  /** {@code aggregate}: the sum of a number of draws. */
  AGGREGATE(76),
  /** {@code probability} of a condition. */
  PROBABILITY(77),
  /** {@code variance} of a node. */
  VARIANCE(78),
  /** {@code min}. */
  MIN(79),
  /** {@code max}. */
  MAX(80),
  /** {@code log}, the natural logarithm. */
  LOG(81),
  /** {@code log2}. */
  LOG2(82),
  /** {@code log10}. */
  LOG10(83),
  /** {@code exp}. */
  EXP(84),
  /** {@code sin}. */
  SIN(85),
  /** {@code cos}. */
  COS(86),
  /** {@code tan}. */
  TAN(87),
  /** {@code sinh}. */
  SINH(88),
  /** {@code cosh}. */
  COSH(89),
  /** {@code tanh}. */
  TANH(90),
  /** {@code sqrt}. */
  SQRT(91),
  /** {@code abs}. */
  ABS(92),
  /** {@code floor}. */
  FLOOR(93),
  /** {@code ceil}. */
  CEIL(94),
  /** {@code mod}. */
  MOD(95),
  /** {@code if(condition, then, else)}. */
  IF(96),
  /** {@code and}, of any number of operands. */
  AND(97),
  /** {@code or}, of any number of operands. */
  OR(98),
  /** {@code not}. */
  NOT(99),
  /** {@code +}. */
  ADD(100),
  /** {@code -} with two operands. */
  SUBTRACT(101),
  /** {@code *}. */
  MULTIPLY(102),
  /** {@code /}. */
  DIVIDE(103),
  /** {@code ^}. */
  POWER(104),
  /** {@code -} with one operand. */
  NEGATE(105),
  /** {@code #}: the state index of a discrete node. */
  STATE_INDEX(106),
  /** {@code ==}. */
  EQUALS(107),
  /** {@code <}. */
  LESS_THAN(108),
  /** {@code >}. */
  GREATER_THAN(109),
  /** {@code !=}. */
  NOT_EQUALS(110),
  /** {@code <=}. */
  LESS_THAN_OR_EQUALS(111),
  /** {@code >=}. */
  GREATER_THAN_OR_EQUALS(112),
  /** A number leaf. */
  NUMBER(113),
  /** A label leaf. */
  LABEL(114),
  /** A node leaf. */
  NODE(115),
  /** A truth-value leaf. */
  BOOLEAN(116);

  private final int code;

  Operator(int code) {
    this.code = code;
  }

  /**
   * The number that crosses the native boundary.
   *
   * @return the code
   */
  public int code() {
    return code;
  }

  /**
   * Whether the operator makes composites (it is no leaf).
   *
   * @return true for the operators that take operands
   */
  public boolean isComposite() {
    return code < NUMBER.code;
  }

  /**
   * The constant with number {@code code}.
   *
   * @param code a code
   * @return the constant
   * @throws IllegalArgumentException when no constant has that code
   */
  public static Operator fromCode(int code) {
    for (Operator o : values()) {
      if (o.code == code) {
        return o;
      }
    }
    throw new IllegalArgumentException("no Operator with code " + code);
  }
}
