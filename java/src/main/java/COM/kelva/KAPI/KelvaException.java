package COM.kelva.KAPI;

/**
 * A failed operation of the Kelva library: thrown by every method of this
 * package when the native call it makes leaves a non-zero error code.
 */
public class KelvaException extends RuntimeException {
  private static final long serialVersionUID = 1L;

  /** The code of the failure. */
  private final ErrorCode code;

  /**
   * An exception for a failure with error code {@code code}.
   *
   * @param code the code of the failure, not {@link ErrorCode#NONE}
   */
  public KelvaException(ErrorCode code) {
    super(code.shortName() + ": " + code.description());
    this.code = code;
  }

  /**
   * The code of the failure.
   *
   * @return the code
   */
  public ErrorCode getCode() {
    return code;
  }
}
