package COM.kelva.KAPI;

/** The equilibrium of a junction tree, also the marginalisation of {@link Table#getMarginal}. */
public enum Equilibrium {
  /** No equilibrium. */
  NONE(10),
  /** Sum equilibrium; sum marginalisation. */
  SUM(11),
  /** Max equilibrium; max marginalisation. */
  MAX(12);

  private final int code;

  Equilibrium(int code) {
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
  public static Equilibrium fromCode(int code) {
    for (Equilibrium c : values()) {
      if (c.code == code) {
        return c;
      }
    }
    throw new IllegalArgumentException("no Equilibrium with code " + code);
  }
}
