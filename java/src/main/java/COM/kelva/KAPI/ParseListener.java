package COM.kelva.KAPI;

/**
 * Receives the errors of a parse (and the warnings of a NET text), one call
 * per message, in the order they are found.  A listener that throws stops
 * the parse's reports: the parse's result is discarded and the caller of the
 * parsing method sees the exception.
 */
@FunctionalInterface
public interface ParseListener {
  /**
   * Reports one error or warning.
   *
   * @param line where the error is: the line number in a file; for text in
   *     memory (an expression, NET text), the number of characters read when
   *     the error was found
   * @param message the message
   */
  void parseError(int line, String message);
}
