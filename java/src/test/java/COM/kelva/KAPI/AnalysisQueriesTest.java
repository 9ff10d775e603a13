package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import org.junit.jupiter.api.Test;

/** Graph queries, sensitivity, explanations and information through Java. */
class AnalysisQueriesTest {
  private static final double EPS = 1e-12;

  @Test
  void queriesOfTheRainNetwork() {
    try (Domain d = rain()) {
      Node rain = d.getNodeByName("rain");
      Node wet = d.getNodeByName("wet");
      assertEquals(List.of(rain), wet.getAncestors());
      assertEquals(List.of(wet), rain.getDescendants());
      assertEquals(List.of(wet), rain.getMoralNeighbors());
      assertEquals(List.of(rain), d.getDConnectedNodes(List.of(rain), List.of(wet), List.of()));
      assertEquals(List.of(wet), d.getDSeparatedNodes(List.of(rain), List.of(wet), List.of()));
      assertFails(ErrorCode.NOT_COMPILED, () -> rain.computeSensitivityData(0));

      d.compile();
      assertEquals(-(0.2 * Math.log(0.2) + 0.8 * Math.log(0.8)), rain.getEntropy(), EPS);
      assertEquals(rain.getMutualInformation(wet), wet.getMutualInformation(rain), EPS);
      assertTrue(rain.getMutualInformation(wet) > 0);

      // P(rain | wet) as a function of t = P(rain): 0.9 t / (0.9 t + 0.25 (1 - t)).
      wet.selectState(0);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      rain.computeSensitivityData(0);
      assertEquals(List.of(wet, rain), d.getSensitivitySet(0));
      double[] k = rain.getSensitivityConstants(0, 0);
      double t = 0.5;
      assertEquals(0.45 / (0.45 + 0.125), (k[0] * t + k[1]) / (k[2] * t + k[3]), EPS);
      assertEquals(0.18 / 0.38, rain.getBelief(0), EPS);

      // wet = yes speaks for rain by 0.9 / 0.25.
      rain.computeExplanationData(0, 2);
      assertEquals(1, d.getNumberOfExplanations());
      assertEquals(List.of(wet), d.getExplanation(0));
      assertEquals(3.6, d.getExplanationScore(0), EPS);
      assertEquals(3.6, rain.getTotalImpact(0), EPS);
      assertFails(ErrorCode.USAGE, () -> d.getExplanation(1));
    }
  }
}
