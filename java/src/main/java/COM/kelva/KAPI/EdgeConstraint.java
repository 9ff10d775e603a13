package COM.kelva.KAPI;

/** What structure learning must respect between two nodes, seen from the first. */
public enum EdgeConstraint {
  /** No constraint. */
  NONE(0),
  /** The nodes are linked, either way. */
  REQUIRED(1),
  /** The nodes are not linked. */
  FORBIDDEN(2),
  /** The link from the first node to the second is required. */
  FORWARD(3),
  /** The link from the second node to the first is required. */
  BACKWARD(4);

  private final int code;

  EdgeConstraint(int code) {
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
  public static EdgeConstraint fromCode(int code) {
    for (EdgeConstraint c : values()) {
      if (c.code == code) {
        return c;
      }
    }
    throw new IllegalArgumentException("no EdgeConstraint with code " + code);
  }
}
