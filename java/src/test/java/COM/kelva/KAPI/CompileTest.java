package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.ArrayList;
import java.util.HashSet;
import java.util.List;
import java.util.Set;
import org.junit.jupiter.api.Test;

/** Triangulating and compiling through the Java API, and the junction forest's objects. */
class CompileTest {
  // A -> B, A -> C, B -> D, C -> D, and E alone: two trees.
  private static final String NET =
      "net { }\n"
          + "node A { states = (\"a0\" \"a1\"); }\n"
          + "node B { states = (\"b0\" \"b1\" \"b2\"); }\n"
          + "node C { states = (\"c0\" \"c1\"); }\n"
          + "node D { states = (\"d0\" \"d1\"); }\n"
          + "node E { states = (\"e0\" \"e1\"); }\n"
          + "potential (A) { data = (0.5 0.5); }\n"
          + "potential (B | A) { data = ((0.2 0.3 0.5) (0.1 0.1 0.8)); }\n"
          + "potential (C | A) { data = ((0.9 0.1) (0.4 0.6)); }\n"
          + "potential (D | B C) { data = (((1 0) (0 1)) ((0.5 0.5) (0.5 0.5)) ((0.3 0.7) (0.6 0.4))); }\n"
          + "potential (E) { data = (0.3 0.7); }\n";

  @Test
  void compilingGivesTreesAndCliquesThatStayTheSameObjects() {
    try (Domain d = Domain.fromNetString(NET, null)) {
      assertFalse(d.isTriangulated());
      assertNull(d.getFirstJunctionTree());
      assertTrue(d.getJunctionTrees().isEmpty());
      assertFails(ErrorCode.USAGE, d::getEliminationOrder);
      assertFails(ErrorCode.NOT_COMPILED, () -> d.getNodeByName("A").getJunctionTree());

      d.compile();
      assertTrue(d.isTriangulated());
      assertTrue(d.isCompiled());

      List<JunctionTree> trees = d.getJunctionTrees();
      assertEquals(2, trees.size());
      assertSame(trees.get(0), d.getFirstJunctionTree());
      assertNull(trees.get(1).getNext());

      // Every node belongs to exactly one tree, and its clique's tree is it.
      Set<Node> members = new HashSet<>();
      long cliques = 0;
      for (JunctionTree t : trees) {
        assertSame(d, t.getDomain());
        List<Clique> list = t.getCliques();
        assertSame(list.get(0), t.getRoot());
        assertEquals(list, t.getCliques());
        long size = 0;
        for (Clique c : list) {
          assertSame(t, c.getJunctionTree());
          size += discreteSize(c);
          members.addAll(c.getMembers());
          for (Clique n : c.getNeighbors()) {
            assertTrue(n.getNeighbors().contains(c));
            assertSame(t, n.getJunctionTree());
          }
        }
        assertEquals(size, t.getTotalSize());
        assertEquals(0, t.getTotalCGSize());
        cliques += list.size();
      }
      assertEquals(new HashSet<>(d.getNodes()), members);
      assertEquals(3, cliques);  // {A B C}, {B C D}, {E}
      assertSame(n(d, "A").getJunctionTree(), n(d, "D").getJunctionTree());
      assertNotSame(n(d, "A").getJunctionTree(), n(d, "E").getJunctionTree());

      List<Node> order = d.getEliminationOrder();
      assertEquals(new HashSet<>(d.getNodes()), new HashSet<>(order));
      assertEquals(5, order.size());
    }
  }

  @Test
  void discardedForestsKillTheirJavaObjects() {
    try (Domain d = Domain.fromNetString(NET, null)) {
      d.triangulate(TriangulationMethod.FILL_IN_WEIGHT);
      assertTrue(d.isTriangulated());
      assertFalse(d.isCompiled());
      JunctionTree tree = d.getFirstJunctionTree();
      Clique root = tree.getRoot();
      assertTrue(tree.isAlive() && root.isAlive());

      d.uncompile();
      assertFalse(d.isTriangulated());
      assertFalse(tree.isAlive());
      assertFalse(root.isAlive());
      assertFails(ErrorCode.USAGE, tree::getCliques);
      assertFails(ErrorCode.USAGE, root::getMembers);

      // A structural edit discards the forest too; the new forest has new objects.
      d.compile();
      JunctionTree again = d.getFirstJunctionTree();
      assertNotSame(tree, again);
      n(d, "E").addParent(n(d, "D"));
      assertFalse(d.isCompiled());
      assertFalse(again.isAlive());
      d.compile();
      assertEquals(1, d.getJunctionTrees().size());
    }
    // Closing the domain kills them as well.
    Domain d = Domain.fromNetString(NET, null);
    d.compile();
    Clique c = d.getFirstJunctionTree().getRoot();
    d.close();
    assertFalse(c.isAlive());
  }

  @Test
  void userOrdersAndRefusals() {
    try (Domain d = Domain.fromNetString(NET, null);
        Domain other = Domain.fromNetString(NET, null)) {
      List<Node> order = new ArrayList<>();
      for (String name : new String[] {"E", "D", "C", "B", "A"}) {
        order.add(n(d, name));
      }
      assertFails(ErrorCode.ENUMERATION, () -> d.triangulateWithOrder(order.subList(0, 4)));
      List<Node> foreign = new ArrayList<>(order);
      foreign.set(0, n(other, "E"));
      assertFails(ErrorCode.ENUMERATION, () -> d.triangulateWithOrder(foreign));
      assertFalse(d.isTriangulated());
      // A bounded total-weight search needs an initial triangulation.
      d.setMaxNumberOfSeparators(10);
      assertEquals(10, d.getMaxNumberOfSeparators());
      assertFails(ErrorCode.USAGE, () -> d.triangulate(TriangulationMethod.TOTAL_WEIGHT));
      assertFails(ErrorCode.ENUMERATION, () -> d.setTriangulationParameters(foreign, 5, 3));
      assertEquals(0, d.getMaxSeparatorSize());
      d.setTriangulationParameters(order, 10, 4);
      assertEquals(4, d.getMaxSeparatorSize());
      d.triangulate(TriangulationMethod.TOTAL_WEIGHT);
      assertTrue(d.isTriangulated());
      d.uncompile();

      // IJT nodes end in one clique; a refused set changes nothing.
      List<Node> ijt = List.of(n(d, "A"), n(d, "E"));
      assertFails(ErrorCode.ENUMERATION, () -> d.setIJTNodes(foreign.subList(0, 2)));
      d.setIJTNodes(ijt);
      d.compile();
      assertTrue(d.getFirstJunctionTree().getCliques().stream()
          .anyMatch(c -> c.getMembers().containsAll(ijt)));
      d.setIJTNodes(null);
      d.uncompile();

      d.triangulateWithOrder(order);
      assertEquals(order, d.getEliminationOrder());
      assertFails(ErrorCode.USAGE, () -> d.triangulate(TriangulationMethod.CLIQUE_SIZE));
      d.compile();
      assertTrue(d.isCompiled());
    }
  }

  private static Node n(Domain d, String name) {
    return d.getNodeByName(name);
  }

  private static long discreteSize(Clique c) {
    long size = 1;
    for (Node m : c.getMembers()) {
      size *= m.getNumberOfStates();
    }
    return size;
  }
}
