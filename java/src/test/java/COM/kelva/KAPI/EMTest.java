package COM.kelva.KAPI;

import static org.junit.jupiter.api.Assertions.*;

import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** EM learning through the Java API: settings, preconditions and scores. */
class EMTest {
  private static final String PAIR =
      "net {}\n"
          + "node A { states = (\"a0\" \"a1\"); }\n"
          + "node B { states = (\"b0\" \"b1\" \"b2\"); }\n"
          + "potential (A) { data = (0.4 0.6); }\n"
          + "potential (B | A) { data = ((0.5 0.25 0.25) (0.1 0.2 0.7)); }\n";

  private static void assertFails(ErrorCode code, Executable call) {
    assertEquals(code, assertThrows(KelvaException.class, call).getCode());
  }

  @Test
  void settings() {
    try (Domain d = new Domain()) {
      assertEquals(1e-4, d.getLogLikelihoodTolerance());
      d.setLogLikelihoodTolerance(0.0);
      assertEquals(0.0, d.getLogLikelihoodTolerance());
      assertFails(ErrorCode.USAGE, () -> d.setLogLikelihoodTolerance(-1.0));
      assertFails(ErrorCode.USAGE, () -> d.setLogLikelihoodTolerance(Double.NaN));
      assertEquals(0, d.getMaxNumberOfEMIterations());
      d.setMaxNumberOfEMIterations(7);
      assertEquals(7, d.getMaxNumberOfEMIterations());
      assertFails(ErrorCode.USAGE, () -> d.setMaxNumberOfEMIterations(-1));
      assertNull(d.getEMProgress());
      EMProgress p = (n, ll) -> true;
      d.setEMProgress(p);
      assertSame(p, d.getEMProgress());
    }
  }

  @Test
  void preconditionsAndScoresWithoutCases() {
    try (Domain d = Domain.fromNetString(PAIR, null)) {
      // No cases: nothing to learn from, but the log-likelihood is 0.
      assertFails(ErrorCode.USAGE, d::learnTables);
      assertEquals(0.0, d.getLogLikelihood());
      assertEquals(-5.0, d.getAIC());  // 1 + 2 * 2 free parameters
      assertFails(ErrorCode.USAGE, d::getBIC);
    }
  }
}
