package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Domains and nodes through the Java API. */
class DomainTest {
  @Test
  void closingTheDomainZeroesEveryPeer() {
    Domain d = new Domain();
    Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
    Node b = d.newNode(Category.CHANCE, Kind.DISCRETE);
    Node u = d.newNode(Category.UTILITY, Kind.OTHER);
    b.addParent(a);
    Table table = b.getTable();
    Table experience = b.getExperienceTable();
    Table marginal = table.getMarginal(List.of(a), Equilibrium.SUM);
    assertTrue(a.nodePeer != 0 && table.tablePeer != 0 && marginal.tablePeer != 0);

    d.close();
    for (Node n : List.of(a, b, u)) {
      assertEquals(0L, n.nodePeer);
    }
    for (Table t : List.of(table, experience, marginal)) {
      assertEquals(0L, t.tablePeer);
    }
    assertFalse(d.isAlive());
    assertFails(ErrorCode.USAGE, a::getName);
    assertFails(ErrorCode.USAGE, table::getSize);
    d.close();
  }

  @Test
  void deletingANodeZeroesItsPeersAndUnlinksIt() {
    try (Domain d = new Domain()) {
      Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
      Node b = d.newNode(Category.CHANCE, Kind.DISCRETE);
      a.setNumberOfStates(2);
      b.addParent(a);
      Table aTable = a.getTable();
      Table bTable = b.getTable();
      assertEquals(2, bTable.getSize());

      a.delete();
      assertFalse(a.isAlive());
      assertEquals(0L, aTable.tablePeer);
      assertTrue(bTable.isAlive());
      assertEquals(List.of(b), bTable.getNodes());
      assertEquals(List.of(), b.getParents());
      assertEquals(List.of(b), d.getNodes());
      assertFails(ErrorCode.USAGE, a::delete);
    }
  }

  @Test
  void namesStructureStatesAndAttributesCrossWithTheirErrors() {
    try (Domain d = new Domain()) {
      Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
      Node b = d.newNode(Category.DECISION, Kind.DISCRETE);
      Node u = d.newNode(Category.UTILITY, Kind.OTHER);
      assertEquals("D2", b.getName());
      a.setName("rain");
      assertFails(ErrorCode.TWICE, () -> b.setName("rain"));
      assertFails(ErrorCode.INVALID_NAME, () -> b.setName("a..b"));
      assertSame(a, d.getNodeByName("rain"));
      assertNull(d.getNodeByName("absent"));

      Node c = d.newNode(Category.CHANCE, Kind.DISCRETE);
      c.addParent(b);
      c.addParent(a);
      assertEquals(List.of(b, a), c.getParents());
      assertEquals(List.of(c), a.getChildren());
      assertFails(ErrorCode.CYCLIC_NETWORK, () -> a.addParent(c));
      c.removeParent(a);
      assertFails(ErrorCode.USAGE, () -> c.removeParent(a));
      c.switchParent(b, a);
      a.reverseEdge(c);
      assertEquals(List.of(c), a.getParents());

      a.setNumberOfStates(3);
      a.setStateLabel(0, "low");
      a.setStateLabel(2, "high");
      assertEquals(1, a.getStateIndex(""));
      assertEquals(-1, a.getStateIndex("absent"));
      a.reorderStates(List.of("high", "low", ""));
      assertEquals("high", a.getStateLabel(0));
      assertFails(ErrorCode.USAGE, () -> a.getStateLabel(3));
      Node x = d.newNode(Category.CHANCE, Kind.DISCRETE, Subtype.NUMBER);
      x.setStateValue(0, 1.5);
      assertEquals(1.5, x.getStateValue(0));
      assertEquals(0, x.getStateIndex(1.5));
      assertEquals(Subtype.NUMBER, x.getSubtype());
      assertEquals(Kind.OTHER, u.getKind());
      assertEquals(Category.DECISION, b.getCategory());
      assertFails(ErrorCode.USAGE, u::getNumberOfStates);

      d.setAttribute("first", "1");
      d.setAttribute("second", "2");
      d.setAttribute("first", "one");
      assertEquals(List.of(new Attribute("second", "2"), new Attribute("first", "one")), d.getAttributes());
      d.removeAttribute("second");
      assertNull(d.getAttribute("second"));
      assertFails(ErrorCode.INVALID_NAME, () -> d.setAttribute("a.b", "x"));
      a.setAttribute("k", "v");
      assertEquals(List.of(new Attribute("k", "v")), a.getAttributes());
      a.setLabel("Rain today");
      assertEquals("Rain today", a.getLabel());
      a.setPosition(-3, 7);
      assertEquals(-3, a.getXCoordinate());
      assertEquals(7, a.getYCoordinate());

      d.setGrainSize(5);
      d.setConcurrencyLevel(4);
      assertEquals(5, d.getGrainSize());
      assertEquals(4, d.getConcurrencyLevel());
      assertFalse(d.isScaledPropagation());
      d.setScaledPropagation(true);
      assertTrue(d.isScaledPropagation());
      assertFails(ErrorCode.USAGE, () -> d.setGrainSize(0));
      d.setNodeSize(80, 40);
      assertEquals(40, d.getNodeHeight());
      assertEquals(3, d.getNumberOfChanceNodes());
      assertEquals(1, d.getNumberOfDecisionNodes());
      assertEquals(1, d.getNumberOfUtilityNodes());
      assertEquals(0, d.getNumberOfInstanceNodes());
      assertFalse(d.isCompiled());
    }
  }

  @Test
  void logFileNamesCrossAsUnicode(@TempDir Path dir) throws Exception {
    try (Domain d = new Domain()) {
      Path log = dir.resolve("journal \u00e9\ud83d\ude00.log");
      Files.writeString(log, "kept\n");
      d.setLogFile(log.toString(), true);
      assertTrue(Files.exists(log));
      d.setLogFile(null, false);
      assertEquals("kept\n", Files.readString(log));
      d.setLogFile(log.toString(), false);
      d.setLogFile(null, false);
      assertEquals("", Files.readString(log));
      assertFails(ErrorCode.IO, () -> d.setLogFile(dir.resolve("none/x.log").toString(), false));
    }
  }

  @Test
  void clonesCopyTheNetworkAndGiveJavaNodes() {
    try (Domain d = rain(); Domain copy = d.cloneDomain()) {
      Node twin = copy.getNodeByName("wet").cloneNode();
      assertEquals(copy.getNodeByName("wet").getParents(), twin.getParents());
      copy.compile();
      assertEquals(0.2 * 0.9 + 0.8 * 0.25, twin.getBelief(0), 1e-12);
    }
  }
}
