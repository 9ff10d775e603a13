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
    try (Domain d = new Domain()) {
      // rain -> wet: P(rain) = 0.2, P(wet | rain) = 0.9, P(wet | no rain) = 0.25.
      Node rain = labelled(d, "rain", "yes", "no");
      Node wet = labelled(d, "wet", "yes", "no");
      wet.addParent(rain);
      rain.getTable().setData(new double[] {0.2, 0.8});
      wet.getTable().setData(new double[] {0.9, 0.1, 0.25, 0.75});
      assertEquals(List.of(rain), wet.getAncestors());
      assertEquals(List.of(wet), rain.getDescendants());
      assertEquals(List.of(wet), rain.getMoralNeighbors());
      assertEquals(List.of(rain), d.getDConnectedNodes(List.of(rain), List.of(wet), List.of()));
      assertEquals(List.of(wet), d.getDSeparatedNodes(List.of(rain), List.of(wet), List.of()));
      assertFails(ErrorCode.NOT_COMPILED, () -> rain.computeSensitivityData(0));

      d.compile();
      assertEquals(-(0.2 * Math.log(0.2) + 0.8 * Math.log(0.8)), rain.getEntropy(), EPS);
      double mi = 0;
      double[][] joint = {{0.18, 0.02}, {0.2, 0.6}};
      double[] pw = {0.38, 0.62};
      double[] pr = {0.2, 0.8};
      for (int r = 0; r < 2; r++) {
        for (int w = 0; w < 2; w++) {
          mi += joint[r][w] * Math.log(joint[r][w] / (pr[r] * pw[w]));
        }
      }
      assertEquals(mi, rain.getMutualInformation(wet), EPS);

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
