package COM.kelva.KAPI;

/** The category of a node. */
public enum Category {
  /** A function node. */
  FUNCTION(5),
  /** A node that stands for an instance of a class. */
  INSTANCE(6),
  /** A chance node (a random variable). */
  CHANCE(7),
  /** A decision node. */
  DECISION(8),
  /** A utility node. */
  UTILITY(9);

  private final int code;

  Category(int code) {
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
  public static Category fromCode(int code) {
    for (Category c : values()) {
      if (c.code == code) {
        return c;
      }
    }
    throw new IllegalArgumentException("no Category with code " + code);
  }
}
