package COM.kelva.KAPI;

/** The kind of a node. */
public enum Kind {
  /** A node with states. */
  DISCRETE(0),
  /** A conditional-Gaussian node. */
  CONTINUOUS(1),
  /** A node without states: utility nodes, real-valued function nodes and instance nodes. */
  OTHER(-1);

  private final int code;

  Kind(int code) {
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
  public static Kind fromCode(int code) {
    for (Kind c : values()) {
      if (c.code == code) {
        return c;
      }
    }
    throw new IllegalArgumentException("no Kind with code " + code);
  }
}
