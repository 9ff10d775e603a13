package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import java.util.Set;
import org.junit.jupiter.api.Test;

/** Structure learning through the Java API on sampled and on contradictory cases. */
class StructureLearningTest {
  private static final String DIAMOND =
      "net {}\n"
          + "node A { states = (\"a0\" \"a1\"); }\n"
          + "node B { states = (\"b0\" \"b1\"); }\n"
          + "node C { states = (\"c0\" \"c1\"); }\n"
          + "node D { states = (\"d0\" \"d1\"); }\n"
          + "potential (A) { data = (0.4 0.6); }\n"
          + "potential (B | A) { data = ((0.9 0.1) (0.2 0.8)); }\n"
          + "potential (C | A) { data = ((0.15 0.85) (0.8 0.2)); }\n"
          + "potential (D | B C) { data = (((0.95 0.05) (0.3 0.7)) ((0.2 0.8) (0.9 0.1))); }\n";

  private static boolean linked(Node a, Node b) {
    return a.getParents().contains(b) || b.getParents().contains(a);
  }

  @Test
  void pcTreeGreedyAndNpcOnSampledCases() {
    try (Domain d = Domain.fromNetString(DIAMOND, null)) {
      List<Node> v = List.of(d.getNodeByName("A"), d.getNodeByName("B"), d.getNodeByName("C"),
          d.getNodeByName("D"));
      d.compile();
      d.seedRandom(7);
      d.setNumberOfCases(4000);
      for (long c = 0; c < 4000; c++) {
        d.simulate();
        for (Node n : v) {
          n.setCaseState(c, n.getSampledState());
        }
      }
      d.uncompile();
      d.learnStructure();
      List<List<Node>> pc = v.stream().map(Node::getParents).toList();
      assertEquals(4, pc.stream().mapToInt(List::size).sum());
      assertFalse(linked(v.get(0), v.get(3)) || linked(v.get(1), v.get(2)));
      d.learnStructureNPC();
      assertNull(d.getFirstAmbiguousRegion());
      assertEquals(pc, v.stream().map(Node::getParents).toList());
      d.learnTreeStructure(v.get(0), null);
      assertTrue(v.get(0).getParents().isEmpty());
      assertEquals(3, v.stream().mapToInt(n -> n.getParents().size()).sum());
      d.learnGreedyStructure(Score.BIC, 0, 0, false);
      assertTrue(linked(v.get(1), v.get(3)) && linked(v.get(2), v.get(3)));
      assertFails(ErrorCode.USAGE, () -> d.getFirstAmbiguousRegion());
    }
  }

  @Test
  void hnbAdoptsItsLatentNodeAndSumsCrossToJava() {
    try (Domain d = new Domain()) {
      List<Node> v = java.util.stream.Stream.generate(
          () -> d.newNode(Category.CHANCE, Kind.DISCRETE, Subtype.BOOLEAN)).limit(3).toList();
      d.setNumberOfCases(200);
      for (long c = 0; c < 200; c++) {
        v.get(0).setCaseState(c, c % 2);
        v.get(1).setCaseState(c, (c / 2) % 2);
        v.get(2).setCaseState(c, (c / 2) % 2);
      }
      List<Node> latent = d.learnHNBStructure(v.get(0));
      assertEquals(List.of(latent.get(0)), v.get(2).getParents());
      d.compile();
      assertEquals(0.5, d.getConvolution(List.of(v.get(1))).get(1.0), 1e-12);
      assertEquals(0.25, v.get(1).getConvolution(2).get(2.0), 1e-12);
      assertFails(ErrorCode.USAGE, () -> d.getConvolution(v.subList(1, 3)));
    }
  }

  @Test
  void contradictoryTestsGiveARegionAndFeaturesFollowJmi() {
    try (Domain d = new Domain()) {
      Node x = labelled(d, "X", "0", "1");
      Node y = labelled(d, "Y", "0", "1");
      Node z = labelled(d, "Z", "0", "1");
      Node w = labelled(d, "W", "0", "1");
      d.setNumberOfCases(100);
      for (long c = 0; c < 100; c++) {
        for (Node n : List.of(x, y, z)) {
          n.setCaseState(c, c % 2);
        }
        w.setCaseState(c, (c / 2) % 2);
      }
      assertEquals(Math.log(2), x.getJMIScore(y, List.of()), 1e-12);
      assertEquals(2 * Math.log(2), x.getJMIScore(y, List.of(z, w)), 1e-12);
      assertFails(ErrorCode.USAGE, () -> x.getJMIScore(x, List.of()));
      d.learnFeatures(w, 1);
      assertEquals(1, w.getChildren().size());

      d.learnStructureNPC();
      AmbiguousRegion r = d.getFirstAmbiguousRegion();
      assertNull(r.getNext());
      List<UncertainEdge> edges = r.getEdges();
      assertEquals(List.of(x, y), List.of(edges.get(0).getFirstNode(), edges.get(0).getSecondNode()));
      assertEquals(List.of(edges), r.getSolutions().stream().map(Solution::getEdges).toList());
      r.findMinimalSolutions();
      assertEquals(3, r.getSolutions().size());
      edges.get(0).manualDecision(false);
      assertEquals(List.of(List.of(edges.get(1), edges.get(2))),
          r.getSolutions().stream().map(Solution::getEdges).toList());
      assertFails(ErrorCode.USAGE, () -> edges.get(1).manualDecision(false));
      assertEquals(2, x.getChildren().size() + x.getParents().size() + y.getParents().size()
          + y.getChildren().size());
    }
  }
}
