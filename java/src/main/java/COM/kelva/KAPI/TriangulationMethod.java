package COM.kelva.KAPI;

/** The methods of triangulation. */
public enum TriangulationMethod {
  /** Greedy elimination by the size of the clique formed. */
  CLIQUE_SIZE(15),
  /** Greedy elimination by the weight of the clique formed. */
  CLIQUE_WEIGHT(16),
  /** Greedy elimination by the number of fill-in edges. */
  FILL_IN_SIZE(17),
  /** Greedy elimination by the weight of the fill-in edges. */
  FILL_IN_WEIGHT(18),
  /** Optimal triangulation by total clique weight. */
  TOTAL_WEIGHT(19),
  /** Runs the greedy heuristics and keeps the cheapest result. */
  BEST_GREEDY(20);

  private final int code;

  TriangulationMethod(int code) {
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
  public static TriangulationMethod fromCode(int code) {
    for (TriangulationMethod c : values()) {
      if (c.code == code) {
        return c;
      }
    }
    throw new IllegalArgumentException("no TriangulationMethod with code " + code);
  }
}
