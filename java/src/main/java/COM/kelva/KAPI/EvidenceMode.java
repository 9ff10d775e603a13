package COM.kelva.KAPI;

/** How evidence is propagated. */
public enum EvidenceMode {
  /** Normal propagation. */
  NORMAL(20),
  /** Fast-retraction propagation. */
  FAST_RETRACTION(21);

  private final int code;

  EvidenceMode(int code) {
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
  public static EvidenceMode fromCode(int code) {
    for (EvidenceMode c : values()) {
      if (c.code == code) {
        return c;
      }
    }
    throw new IllegalArgumentException("no EvidenceMode with code " + code);
  }
}
