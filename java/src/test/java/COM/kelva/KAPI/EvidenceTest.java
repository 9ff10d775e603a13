package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.stream.LongStream;
import org.junit.jupiter.api.Test;

/** Entering, reading and retracting evidence through the Java API. */
class EvidenceTest {
  private static double[] findings(Node n) {
    return LongStream.range(0, n.getNumberOfStates()).mapToDouble(n::getEnteredFinding).toArray();
  }

  @Test
  void findingsSelectionsAndRetractionRoundTrip() {
    try (Domain d = new Domain()) {
      Node n = d.newNode(Category.CHANCE, Kind.DISCRETE);
      n.setNumberOfStates(3);
      assertFalse(n.evidenceIsEntered());
      assertArrayEquals(new double[] {1, 1, 1}, findings(n));

      n.enterFinding(1, 0.0);
      assertTrue(n.evidenceIsEntered());
      assertFalse(n.likelihoodIsEntered());
      n.enterFinding(2, 0.5);
      assertTrue(n.likelihoodIsEntered());
      assertArrayEquals(new double[] {1, 0, 0.5}, findings(n));
      assertFails(ErrorCode.USAGE, n::getSelectedState);

      n.selectState(2);
      assertEquals(2, n.getSelectedState());
      assertArrayEquals(new double[] {0, 0, 1}, findings(n));
      assertTrue(n.evidenceToPropagate());
      assertFalse(n.evidenceIsPropagated());
      assertFails(ErrorCode.USAGE, n::getPropagatedState);

      n.retractFindings();
      assertFalse(n.evidenceIsEntered());
      assertFails(ErrorCode.USAGE, () -> n.selectState(3));
      assertFails(ErrorCode.USAGE, () -> n.enterFinding(0, -1));
    }
  }

  @Test
  void valuesOfContinuousAndIntervalNodes() {
    try (Domain d = new Domain()) {
      Node c = d.newNode(Category.CHANCE, Kind.CONTINUOUS);
      c.enterValue(-2.5);
      assertTrue(c.evidenceIsEntered());
      assertEquals(-2.5, c.getEnteredValue());
      assertFails(ErrorCode.USAGE, c::getPropagatedValue);
      assertFails(ErrorCode.USAGE, () -> c.selectState(0));

      Node in = d.newNode(Category.CHANCE, Kind.DISCRETE, Subtype.INTERVAL);
      in.setNumberOfStates(2);
      in.setStateValue(0, 0);
      in.setStateValue(1, 1);
      in.setStateValue(2, 2);
      in.enterValue(1.5);
      assertEquals(1, in.getSelectedState());
      assertEquals(1.5, in.getEnteredValue());
      assertFails(ErrorCode.USAGE, () -> in.enterValue(2.0));

      d.retractFindings();
      assertFalse(c.evidenceIsEntered());
      assertFalse(in.evidenceIsEntered());
    }
  }

  @Test
  void domainQueriesNeedACompiledDomain() {
    try (Domain d = new Domain()) {
      d.newNode(Category.CHANCE, Kind.DISCRETE);
      assertFails(ErrorCode.NOT_COMPILED, d::cgEvidenceIsPropagated);
      assertFails(ErrorCode.NOT_COMPILED, () -> d.evidenceModeIs(EvidenceMode.NORMAL));
    }
  }
}
