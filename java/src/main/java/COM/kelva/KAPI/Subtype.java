package COM.kelva.KAPI;

/** The subtype of a discrete node. */
public enum Subtype {
  /** States named by labels. */
  LABEL(30),
  /** Two states, false and true. */
  BOOLEAN(31),
  /** Each state has one numeric value. */
  NUMBER(32),
  /** States are intervals between consecutive values. */
  INTERVAL(33);

  private final int code;

  Subtype(int code) {
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
  public static Subtype fromCode(int code) {
    for (Subtype c : values()) {
      if (c.code == code) {
        return c;
      }
    }
    throw new IllegalArgumentException("no Subtype with code " + code);
  }
}
