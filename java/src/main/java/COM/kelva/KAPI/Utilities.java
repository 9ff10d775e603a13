package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

/** Free-standing helpers of the engine: infinity, the processor clock and escape sequences. */
public final class Utilities {
  private Utilities() {}

  /**
   * Positive infinity as the engine writes it: the value of an unbounded end of an interval
   * node's state (the lower end is its negation).
   *
   * @return positive infinity
   */
  public static double infinity() {
    return kINFINITY();
  }

  /**
   * The processor time this process has used, in seconds; the difference of two readings times
   * a call.
   *
   * @return seconds of processor time
   * @throws KelvaException with {@link ErrorCode#USAGE} when the system cannot tell
   */
  public static double getClock() {
    return check(kGetClock());
  }

  /**
   * Decodes the escape sequences of NET strings ({@code \"}, {@code \\}, {@code \n}, {@code \t},
   * {@code \x} with hex digits, one to three octal digits, and the others C knows); a backslash
   * before a newline joins the lines, and any other backslash is kept. The result ends at a
   * decoded NUL character.
   *
   * @param text the text to decode
   * @return the decoded text
   * @throws KelvaException with {@link ErrorCode#USAGE} for a null text
   */
  public static String removeEscapeSequences(String text) {
    return check(kRemoveEscapeSequences(text));
  }
}
