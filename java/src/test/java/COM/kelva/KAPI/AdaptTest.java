package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import org.junit.jupiter.api.Test;

/** Adaptation, discretisation and interval nodes through the Java API. */
class AdaptTest {
  private static final String PAIR =
      "net {}\n"
          + "node A { states = (\"a0\" \"a1\"); }\n"
          + "node B { states = (\"b0\" \"b1\"); }\n"
          + "potential (A) { data = (0.5 0.5); experience = 2; fading = 0.5; }\n"
          + "potential (B | A) { data = ((0.5 0.5) (0.5 0.5)); }\n";

  @Test
  void adaptCountsTheCaseAfterFading() {
    try (Domain d = Domain.fromNetString(PAIR, null)) {
      d.compile();
      Node a = d.getNodeByName("A");
      Node b = d.getNodeByName("B");
      a.selectState(1);
      assertFails(ErrorCode.USAGE, d::adapt);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      d.adapt();
      // Counts (1, 1) faded to (0.5, 0.5), plus the case: (0.5, 1.5) of 2.
      assertArrayEquals(new double[] {0.25, 0.75}, a.getTable().getData(), 1e-15);
      assertArrayEquals(new double[] {2.0}, a.getExperienceTable().getData(), 1e-15);
      assertArrayEquals(new double[] {0.5, 0.5, 0.5, 0.5}, b.getTable().getData());
      d.retractFindings();
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      assertEquals(0.75, a.getBelief(1), 1e-15);
    }
  }

  @Test
  void discretiseColumnsAndIntervals() {
    try (DataSet data = new DataSet()) {
      long v = data.newColumn("v");
      long c = data.newColumn("c");
      for (int i = 1; i <= 8; i++) {
        long r = data.newRow();
        data.setDataItem(r, v, Integer.toString(i));
        data.setDataItem(r, c, i <= 4 ? "low" : "high");
      }
      assertArrayEquals(new double[] {4.5}, data.computeIntervalsIEM(v, c));
      long copy = data.copyColumn(v);
      data.shiftColumnData(copy, 1);
      assertNull(data.getDataItem(0, copy));
      assertEquals("1", data.getDataItem(1, copy));
      assertArrayEquals(new double[] {2.5, 4.5, 6.5},
          data.discretizeColumn(v, DataSet.EQUAL_FREQUENCY, 4));
      assertEquals("[-infinity;2.5)", data.getDataItem(0, v));
      assertTrue(data.columnDataAreIntervals(v));
      assertFalse(data.columnDataAreIntervals(c));
      assertFails(ErrorCode.USAGE, () -> data.applyDiscretization(copy, new double[] {2, 1}));
    }
    try (Domain d = Domain.fromNetString(
        "net {}\nnode X { states = (\"lo\" \"hi\"); subtype = interval; "
            + "state_values = (0 1 3); }\npotential (X) { data = (0.2 0.8); }\n", null)) {
      Node x = d.getNodeByName("X");
      x.doubleNumberOfIntervals();
      assertEquals(4, x.getNumberOfStates());
      assertEquals(2.0, x.getStateValue(3));
      assertArrayEquals(new double[] {0.1, 0.1, 0.4, 0.4}, x.getTable().getData(), 1e-15);
      x.halveNumberOfIntervals();
      assertArrayEquals(new double[] {0.2, 0.8}, x.getTable().getData(), 1e-15);
      x.setNumberOfStates(3);
      assertFails(ErrorCode.USAGE, x::halveNumberOfIntervals);
    }
  }
}
