package COM.kelva.KAPI;

/**
 * Receives the errors of a parse, one call per error, in the order they are
 * found.  A listener that throws stops the parse's reports: the parse's
 * result is discarded and the caller of the parsing method sees the
 * exception.
 */
@FunctionalInterface
public interface ParseListener {
  /**
   * Reports one error.
   *
   * @param line where the error is: the line number in a file; for the text
   *     of one expression, the number of characters read when the error was
   *     found
   * @param message the error message
   */
  void parseError(int line, String message);
}
