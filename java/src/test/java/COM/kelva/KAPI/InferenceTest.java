package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.HashSet;
import java.util.List;
import java.util.Set;
import java.util.stream.LongStream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Evidence, propagation, beliefs and the belief report through the Java API. */
class InferenceTest {
  private static final double EPS = 1e-12;

  @Test
  void beliefsAndConstantsOfASmallNetwork() {
    try (Domain d = rain()) {
      Node rain = d.getNodeByName("rain");
      Node wet = d.getNodeByName("wet");
      d.compile();
      assertTrue(d.equilibriumIs(Equilibrium.SUM));
      assertEquals(0.38, wet.getBelief(0), EPS);
      assertEquals(1.0, d.getNormalizationConstant(), EPS);

      // A likelihood lambda(wet) = (1, 0.5): P(rain | lambda) = 0.19 / 0.69.
      wet.enterFinding(1, 0.5);
      assertTrue(d.evidenceToPropagate());
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      assertTrue(d.likelihoodIsPropagated());
      assertTrue(wet.likelihoodIsPropagated());
      assertEquals(0.5, wet.getPropagatedFinding(1));
      assertEquals(0.19 / 0.69, rain.getBelief(0), EPS);
      assertEquals(Math.log(0.69), d.getLogNormalizationConstant(), EPS);
      wet.selectState(0);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      assertEquals(0, wet.getPropagatedState());

      // The joint marginal of both nodes: P(rain, wet | wet = yes).
      Table joint = d.getMarginal(List.of(rain, wet));
      assertEquals(Set.of(rain, wet), new HashSet<>(joint.getNodes()));
      assertEquals(1.0, Arrays.stream(joint.getData()).sum(), EPS);
      assertEquals(0.2 / 0.38, Arrays.stream(joint.getData()).max().getAsDouble(), EPS);
    }
  }

  @Test
  void treesCliquesModesAndFailures() {
    try (Domain d = rain()) {
      Node rain = d.getNodeByName("rain");
      Node wet = d.getNodeByName("wet");
      assertFails(ErrorCode.NOT_COMPILED, () -> d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL));
      d.compile();
      JunctionTree tree = rain.getJunctionTree();
      Clique root = tree.getRoot();
      assertTrue(tree.equilibriumIs(Equilibrium.SUM));
      assertFalse(tree.evidenceToPropagate());
      assertFalse(tree.tablesToPropagate());

      rain.selectState(1);
      assertTrue(tree.evidenceToPropagate());
      root.propagate(Equilibrium.SUM, EvidenceMode.FAST_RETRACTION);
      assertTrue(tree.evidenceModeIs(EvidenceMode.FAST_RETRACTION));
      assertFalse(d.evidenceModeIs(EvidenceMode.NORMAL));
      assertEquals(0.25, wet.getBelief(0), EPS);
      assertEquals(root, rain.getConflictClique());
      assertTrue(tree.getConflict() > 0);
      assertEquals(tree.getConflict(), d.getConflict(), EPS);

      tree.propagate(Equilibrium.MAX, EvidenceMode.NORMAL);
      assertTrue(tree.equilibriumIs(Equilibrium.MAX));

      // Impossible evidence: the tree is left without equilibrium.
      rain.enterFinding(1, 0.0);
      assertFails(ErrorCode.INCONSISTENCY_OR_UNDERFLOW,
          () -> d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL));
      assertFails(ErrorCode.NO_EQUILIBRIUM, () -> rain.getBelief(0));
      rain.retractFindings();

      d.initialize();
      assertTrue(d.evidenceToPropagate());
      d.resetInferenceEngine();
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      assertEquals(0.38, wet.getBelief(0), EPS);
    }
  }

  @Test
  void compressionKeepsBeliefsAndRefusesFastRetraction() {
    try (Domain d = rain()) {
      assertFails(ErrorCode.NOT_COMPILED, d::compress);
      d.compile();
      assertFalse(d.isCompressed());
      d.getNodeByName("wet").selectState(0);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      double ratio = d.compress();
      assertTrue(ratio > 0 && ratio <= 1, "ratio " + ratio);
      assertTrue(d.isCompressed());
      assertEquals(0.18 / 0.38, d.getNodeByName("rain").getBelief(0), EPS);
      assertFails(ErrorCode.COMPRESSED,
          () -> d.propagate(Equilibrium.SUM, EvidenceMode.FAST_RETRACTION));
      d.uncompile();
      assertFalse(d.isCompressed());
    }
  }

  @Test
  void reportsNeedACompiledDomainAndANodeWithResults(@TempDir Path dir) throws Exception {
    try (Domain d = new Domain()) {
      Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
      Node u = d.newNode(Category.UTILITY, Kind.OTHER);
      assertFails(ErrorCode.NOT_COMPILED, d::reportBeliefs);
      assertFails(ErrorCode.NOT_COMPILED, () -> d.getMarginal(List.of(a)));
      assertFails(ErrorCode.USAGE, u::reportBeliefs);
      a.reportBeliefs();  // without a log there is nothing to write
      d.setLogFile(dir.resolve("log").toString(), false);
      assertFails(ErrorCode.NOT_COMPILED, a::reportBeliefs);
    }
    try (Domain d = rain()) {
      d.compile();
      d.getNodeByName("wet").selectState(1);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      Path log = dir.resolve("beliefs");
      d.setLogFile(log.toString(), false);
      d.getNodeByName("wet").reportBeliefs();
      d.setLogFile(null, false);
      assertEquals("\n    wet --> \"no\"\n", Files.readString(log));
    }
  }

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
