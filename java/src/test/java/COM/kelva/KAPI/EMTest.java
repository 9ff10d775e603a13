package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;

/** EM learning through the Java API: settings, preconditions and scores. */
class EMTest {
  private static final String PAIR =
      "net {}\n"
          + "node A { states = (\"a0\" \"a1\"); }\n"
          + "node B { states = (\"b0\" \"b1\" \"b2\"); }\n"
          + "potential (A) { data = (0.4 0.6); }\n"
          + "potential (B | A) { data = ((0.5 0.25 0.25) (0.1 0.2 0.7)); }\n";

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

  /** PAIR with cases from a data set: A, B (null: a missing cell). */
  private static Domain withCases(String[][] rows) {
    Domain d = Domain.fromNetString(PAIR, null);
    try (DataSet data = dataSet(new String[] {"A", "B"}, rows)) {
      d.addCases(data);
    }
    return d;
  }

  private static final String[][] CASES = {
    {"a0", "b0"}, {null, "b2"}, {"a1", null}, {"a1", "b1"}, {"a0", "b2"}, {"a1", "b2"}
  };

  @Test
  void learningReportsEveryIterationToTheListener() {
    try (Domain d = withCases(CASES)) {
      d.getNodeByName("A").getExperienceTable();
      d.getNodeByName("B").getExperienceTable();
      assertFails(ErrorCode.NOT_COMPILED, d::learnTables);
      d.compile();
      double before = d.getLogLikelihood();
      List<Double> totals = new ArrayList<>();
      d.setLogLikelihoodTolerance(0.0);
      d.setEMProgress(
          (n, ll) -> {
            assertEquals(totals.size() + 1, n);
            totals.add(ll);
            return n < 3;
          });
      d.learnTables();
      assertEquals(3, totals.size());
      assertEquals(before, totals.get(0), 1e-12);
      assertNotEquals(0.4, d.getNodeByName("A").getTable().getData()[0], 1e-3);
      assertEquals(d.getLogLikelihood() - 5, d.getAIC(), 1e-12);
      assertEquals(d.getLogLikelihood() - 2.5 * Math.log(6), d.getBIC(), 1e-12);
    }
  }

  @Test
  void aThrowingListenerStopsLearningAndReachesTheCaller() {
    try (Domain d = withCases(CASES)) {
      d.getNodeByName("B").getExperienceTable();
      d.compile();
      int[] calls = {0};
      d.setEMProgress(
          (n, ll) -> {
            calls[0]++;
            throw new IllegalStateException("stop here");
          });
      IllegalStateException e = assertThrows(IllegalStateException.class, d::learnTables);
      assertEquals("stop here", e.getMessage());
      assertEquals(1, calls[0]);
      assertEquals(ErrorCode.JNI.code(), COM.kelva.KAPI.Native.AbstractNativeKAPI.kErrorCode());
      // Without the listener learning runs to the tolerance.
      d.setEMProgress(null);
      d.learnTables();
    }
  }
}
