package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import org.junit.jupiter.api.Test;

/** Graph queries, sensitivity, explanations, information, MAP configurations, simulation and
 * approximation through the Java API. */
class AnalysisTest {
  private static Domain compiledRain() {
    Domain d = rain();
    d.compile();
    return d;
  }

  @Test
  void mapConfigurationsInOrderOfProbability() {
    try (Domain d = compiledRain()) {
      Node rain = d.getNodeByName("rain");
      Node wet = d.getNodeByName("wet");
      assertFails(ErrorCode.USAGE, () -> d.getNumberOfMAPConfigurations());
      d.findMAPConfigurations(List.of(wet, rain), 0.1);
      assertEquals(3, d.getNumberOfMAPConfigurations());
      assertArrayEquals(new long[] {1, 1}, d.getMAPConfiguration(0));
      assertArrayEquals(new long[] {0, 1}, d.getMAPConfiguration(1));
      assertArrayEquals(new long[] {0, 0}, d.getMAPConfiguration(2));
      assertEquals(0.6, d.getProbabilityOfMAPConfiguration(0), 1e-12);
      assertEquals(0.18, d.getProbabilityOfMAPConfiguration(2), 1e-12);
      assertFails(ErrorCode.USAGE, () -> d.getMAPConfiguration(3));
      assertFails(ErrorCode.USAGE, () -> d.findMAPConfigurations(List.of(rain), 0.0));
    }
  }

  @Test
  void simulationRepeatsForASeedAndKeepsTheEvidence() {
    try (Domain d = compiledRain()) {
      Node rain = d.getNodeByName("rain");
      Node wet = d.getNodeByName("wet");
      assertFails(ErrorCode.NO_VALUE, () -> rain.getSampledState());
      wet.selectState(1);
      assertFails(ErrorCode.USAGE, d::simulate);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      d.seedRandom(42);
      long[] first = new long[20];
      for (int i = 0; i < first.length; i++) {
        d.simulate();
        assertEquals(1, wet.getSampledState());
        first[i] = rain.getSampledState();
      }
      d.seedRandom(42);
      for (long expected : first) {
        d.simulate();
        assertEquals(expected, rain.getSampledState());
      }
      double u = d.getUniformDeviate();
      assertTrue(u >= 0 && u < 1);
      assertFails(ErrorCode.USAGE, () -> d.getNormalDeviate(0, -1));
      assertFails(ErrorCode.USAGE, () -> rain.getSampledValue());
    }
  }

  @Test
  void approximationKeepsMostOfTheMass() {
    try (Domain d = compiledRain()) {
      assertEquals(1.0, d.getApproximationConstant());
      // The clique (rain, wet) loses its smallest entry, 0.02.
      assertEquals(0.98, d.approximate(0.05), 1e-12);
      assertEquals(0.98, d.getApproximationConstant(), 1e-12);
      assertTrue(d.isCompressed());
      assertFails(ErrorCode.COMPRESSED, () -> d.approximate(0.05));
    }
  }

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
      assertEquals(-(0.2 * Math.log(0.2) + 0.8 * Math.log(0.8)), rain.getEntropy(), 1e-12);
      assertEquals(rain.getMutualInformation(wet), wet.getMutualInformation(rain), 1e-12);
      assertTrue(rain.getMutualInformation(wet) > 0);

      // P(rain | wet) as a function of t = P(rain): 0.9 t / (0.9 t + 0.25 (1 - t)).
      wet.selectState(0);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      rain.computeSensitivityData(0);
      assertEquals(List.of(wet, rain), d.getSensitivitySet(0));
      double[] k = rain.getSensitivityConstants(0, 0);
      double t = 0.5;
      assertEquals(0.45 / (0.45 + 0.125), (k[0] * t + k[1]) / (k[2] * t + k[3]), 1e-12);
      assertEquals(0.18 / 0.38, rain.getBelief(0), 1e-12);
      d.computeSensitivityData(List.of(rain), new long[] {0});
      assertEquals(List.of(wet, rain), d.getSensitivitySet(0));
      assertFails(ErrorCode.USAGE, () -> d.computeSensitivityData(List.of(rain), new long[] {}));
      assertFails(ErrorCode.USAGE, () -> d.computeSensitivityData(List.of(rain), new long[] {-1}));

      // wet = yes speaks for rain by 0.9 / 0.25.
      rain.computeExplanationData(0, 2);
      assertEquals(1, d.getNumberOfExplanations());
      assertEquals(List.of(wet), d.getExplanation(0));
      assertEquals(3.6, d.getExplanationScore(0), 1e-12);
      assertEquals(3.6, rain.getTotalImpact(0), 1e-12);
      assertFails(ErrorCode.USAGE, () -> d.getExplanation(1));
    }
  }
}
