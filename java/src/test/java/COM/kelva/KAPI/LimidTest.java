package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import org.junit.jupiter.api.Test;

/** Policies, option values and decisions of an influence diagram through Java. */
class LimidTest {
  private static final double EPS = 1e-9;

  @Test
  void umbrellaDecision() {
    try (Domain d = rain()) {
      // act (take, leave) sees wet; U(act, rain) = 70, 20, -100, 100.
      Node rain = d.getNodeByName("rain");
      Node wet = d.getNodeByName("wet");
      Node act = d.newNode(Category.DECISION, Kind.DISCRETE);
      act.setNumberOfStates(2);
      act.addParent(wet);
      Node u = d.newNode(Category.UTILITY, Kind.OTHER);
      u.addParent(rain);
      u.addParent(act);
      u.getTable().setData(new double[] {70, 20, -100, 100});
      assertArrayEquals(new double[] {0.5, 0.5, 0.5, 0.5}, act.getPolicy().getData());
      assertFails(ErrorCode.USAGE, rain::getPolicy);
      assertFails(ErrorCode.NOT_COMPILED, d::updatePolicies);

      d.compile();
      d.updatePolicies();
      // Take the umbrella when the grass is wet.
      assertArrayEquals(new double[] {1, 0, 0, 1}, act.getPolicy().getData());
      assertEquals(0.18 * 70 + 0.2 * 20 - 0.02 * 100 + 0.6 * 100, d.getExpectedUtility(), EPS);
      assertEquals(0.2 * 70 + 0.8 * 20, act.getExpectedUtility(0), EPS);
      assertEquals(-0.2 * 100 + 0.8 * 100, act.getExpectedUtility(1), EPS);
      Table values = act.getDecisionUtilities();
      assertEquals(List.of(wet, act), values.getNodes());
      assertEquals((0.18 * 70 + 0.2 * 20) / 0.38, values.getDataItem(0), EPS);
      assertEquals((-0.02 * 100 + 0.6 * 100) / 0.62, values.getDataItem(3), EPS);
      assertEquals(List.of(wet), act.getRequisiteParents());
      assertEquals(List.of(wet, rain), act.getRequisiteAncestors());
      assertEquals(List.of(act), d.getDecisionOrder());

      // Deciding by hand is an intervention: the weather learns nothing.
      wet.selectState(0);
      d.decideAutomatically();
      assertEquals(0, act.getSelectedState());
      assertEquals(0.18 / 0.38, rain.getBelief(0), EPS);
      d.undoManualDecisions();
      assertFalse(act.evidenceIsEntered());
    }
  }
}
