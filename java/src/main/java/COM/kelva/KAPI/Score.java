package COM.kelva.KAPI;

/** The scores of the greedy structure search. */
public enum Score {
  /** The log-likelihood of the cases. */
  LOG_LIKELIHOOD(0),
  /** The log-likelihood minus the number of free parameters. */
  AIC(1),
  /** The log-likelihood minus half the free parameters times the log of the case count. */
  BIC(2);

  private final int code;

  Score(int code) {
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
   * The constant with number {@code code}.
   *
   * @param code a code
   * @return the constant
   * @throws IllegalArgumentException when no constant has that code
   */
  public static Score fromCode(int code) {
    for (Score c : values()) {
      if (c.code == code) {
        return c;
      }
    }
    throw new IllegalArgumentException("no Score with code " + code);
  }
}
