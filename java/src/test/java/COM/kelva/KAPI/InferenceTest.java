package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Propagation, beliefs and the belief report through the Java API. */
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

      // wet = yes: P(rain | wet) = 0.18 / 0.38.
      wet.selectState(0);
      assertTrue(d.evidenceToPropagate());
      assertTrue(wet.evidenceToPropagate());
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      assertFalse(d.evidenceToPropagate());
      assertTrue(d.evidenceIsPropagated());
      assertFalse(d.likelihoodIsPropagated());
      assertTrue(wet.evidenceIsPropagated());
      assertEquals(0, wet.getPropagatedState());
      assertEquals(0.18 / 0.38, rain.getBelief(0), EPS);
      assertEquals(1.0, wet.getBelief(0));
      assertEquals(0.38, d.getNormalizationConstant(), EPS);
      assertEquals(Math.log(0.38), d.getLogNormalizationConstant(), EPS);

      // A likelihood instead: lambda(wet) = (1, 0.5).
      wet.retractFindings();
      wet.enterFinding(1, 0.5);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      assertTrue(d.likelihoodIsPropagated());
      assertTrue(wet.likelihoodIsPropagated());
      assertEquals(0.5, wet.getPropagatedFinding(1));
      assertEquals(0.19 / 0.69, rain.getBelief(0), EPS);
      assertEquals(0.69, d.getNormalizationConstant(), EPS);

      // The joint marginal of both nodes sums to 1.
      Table joint = d.getMarginal(List.of(rain, wet));
      assertEquals(4, joint.getSize());
      double total = 0;
      for (int i = 0; i < 4; i++) {
        total += joint.getDataItem(i);
      }
      assertEquals(1.0, total, EPS);

      // Retracting everything brings the prior back.
      d.retractFindings();
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      assertFalse(d.evidenceIsPropagated());
      assertEquals(0.2, rain.getBelief(0), EPS);
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
      assertFails(ErrorCode.USAGE, d::getConflict);  // not a sum equilibrium

      // Impossible evidence: the tree is left without equilibrium.
      rain.enterFinding(1, 0.0);
      assertFails(ErrorCode.INCONSISTENCY_OR_UNDERFLOW,
          () -> d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL));
      assertFalse(tree.equilibriumIs(Equilibrium.SUM));
      assertFails(ErrorCode.NO_EQUILIBRIUM, () -> rain.getBelief(0));
      assertFails(ErrorCode.NO_EQUILIBRIUM, tree::evidenceIsPropagated);
      assertTrue(tree.evidenceToPropagate());
      rain.retractFindings();
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      assertEquals(0.2, rain.getBelief(0), EPS);

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
  void resultsNeedACompiledDomain() {
    try (Domain d = new Domain()) {
      Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
      assertFails(ErrorCode.NOT_COMPILED, () -> d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL));
      assertFails(ErrorCode.USAGE, () -> d.propagate(Equilibrium.NONE, EvidenceMode.NORMAL));
      assertFails(ErrorCode.NOT_COMPILED, d::initialize);
      assertFails(ErrorCode.NOT_COMPILED, d::getNormalizationConstant);
      assertFails(ErrorCode.NOT_COMPILED, () -> a.getBelief(0));
      assertFails(ErrorCode.USAGE, () -> a.getBelief(1));
      assertFails(ErrorCode.NOT_COMPILED, () -> d.getMarginal(List.of(a)));
    }
  }

  @Test
  void reportsNeedACompiledDomainAndANodeWithResults(@TempDir Path dir) throws Exception {
    try (Domain d = new Domain()) {
      Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
      Node u = d.newNode(Category.UTILITY, Kind.OTHER);
      assertFails(ErrorCode.NOT_COMPILED, d::reportBeliefs);
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
}
