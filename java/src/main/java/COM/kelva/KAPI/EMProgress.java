package COM.kelva.KAPI;

/**
 * Hears the progress of EM learning ({@link Domain#learnTables}): one call
 * after every iteration.  A listener that throws stops the learning; the
 * caller of {@link Domain#learnTables} then sees the exception.
 */
@FunctionalInterface
public interface EMProgress {
  /**
   * Reports one finished iteration.
   *
   * @param iteration the iteration's number, from 1
   * @param logLikelihood the log-likelihood of the cases under the tables
   *     the iteration started from
   * @return true to go on, false to stop after this iteration's update of
   *     the tables
   */
  boolean iteration(long iteration, double logLikelihood);
}
