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
  void namesAreCheckedAndGenerated() {
    try (Domain d = new Domain()) {
      Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
      Node b = d.newNode(Category.DECISION, Kind.DISCRETE);
      assertEquals("C1", a.getName());
      assertEquals("D2", b.getName());
      a.setName("rain");
      assertFails(ErrorCode.TWICE, () -> b.setName("rain"));
      assertFails(ErrorCode.INVALID_NAME, () -> b.setName("a..b"));
      assertFails(ErrorCode.USAGE, () -> b.setName(null));
      b.setName("inst.out");
      assertSame(a, d.getNodeByName("rain"));
      assertSame(b, d.getNodeByName("inst.out"));
      assertNull(d.getNodeByName("D2"));
    }
  }

  @Test
  void structureEditsReportTheirErrors() {
    try (Domain d = new Domain()) {
      Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
      Node b = d.newNode(Category.CHANCE, Kind.DISCRETE);
      Node c = d.newNode(Category.CHANCE, Kind.DISCRETE);
      Node u = d.newNode(Category.UTILITY, Kind.OTHER);
      b.addParent(a);
      c.addParent(b);
      c.addParent(a);
      assertEquals(List.of(b, a), c.getParents());
      assertEquals(List.of(b, c), a.getChildren());
      assertFails(ErrorCode.CYCLIC_NETWORK, () -> a.addParent(c));
      assertFails(ErrorCode.USAGE, () -> c.addParent(u));

      c.removeParent(a);
      assertEquals(List.of(b), c.getParents());
      assertFails(ErrorCode.USAGE, () -> c.removeParent(a));
      c.switchParent(b, a);
      assertEquals(List.of(a), c.getParents());
      a.reverseEdge(c);
      assertEquals(List.of(c), a.getParents());
      assertEquals(List.of(), c.getParents());
    }
  }

  @Test
  void statesLabelsAndValues() {
    try (Domain d = new Domain()) {
      Node n = d.newNode(Category.CHANCE, Kind.DISCRETE);
      assertEquals(1, n.getNumberOfStates());
      n.setNumberOfStates(3);
      n.setStateLabel(0, "low");
      n.setStateLabel(2, "high");
      assertEquals("", n.getStateLabel(1));
      assertEquals(1, n.getStateIndex(""));
      assertEquals(-1, n.getStateIndex("absent"));
      n.reorderStates(List.of("high", "low", ""));
      assertEquals("high", n.getStateLabel(0));
      assertFails(ErrorCode.USAGE, () -> n.getStateLabel(3));
      assertFails(ErrorCode.USAGE, () -> n.setNumberOfStates(0));
      assertFails(ErrorCode.USAGE, () -> n.reorderStates(List.of("low")));

      Node flag = d.newNode(Category.CHANCE, Kind.DISCRETE, Subtype.BOOLEAN);
      assertEquals(Subtype.BOOLEAN, flag.getSubtype());
      assertEquals(List.of("false", "true"), List.of(flag.getStateLabel(0), flag.getStateLabel(1)));

      Node x = d.newNode(Category.CHANCE, Kind.DISCRETE, Subtype.NUMBER);
      x.setNumberOfStates(2);
      x.setStateValue(0, 1.5);
      x.setStateValue(1, 4.0);
      assertEquals(4.0, x.getStateValue(1));
      assertEquals(0, x.getStateIndex(1.5));
      assertEquals(-1, x.getStateIndex(2.0));
      assertEquals(Category.CHANCE, x.getCategory());
      assertEquals(Kind.DISCRETE, x.getKind());

      Node u = d.newNode(Category.UTILITY, Kind.OTHER);
      assertEquals(Kind.OTHER, u.getKind());
      assertFails(ErrorCode.USAGE, u::getNumberOfStates);
      assertFails(ErrorCode.USAGE, u::getSubtype);
    }
  }

  @Test
  void attributesLabelsPositionsAndSettings() {
    try (Domain d = new Domain()) {
      d.setAttribute("first", "1");
      d.setAttribute("second", "2");
      d.setAttribute("first", "one");
      assertEquals(List.of(new Attribute("second", "2"), new Attribute("first", "one")), d.getAttributes());
      d.removeAttribute("second");
      assertNull(d.getAttribute("second"));
      assertFails(ErrorCode.INVALID_NAME, () -> d.setAttribute("a.b", "x"));

      Node n = d.newNode(Category.CHANCE, Kind.DISCRETE);
      n.setAttribute("k", "v");
      assertEquals("v", n.getAttribute("k"));
      assertEquals(List.of(new Attribute("k", "v")), n.getAttributes());
      assertEquals("", n.getLabel());
      n.setLabel("Rain today");
      assertEquals("Rain today", n.getLabel());
      n.setPosition(-3, 7);
      assertEquals(-3, n.getXCoordinate());
      assertEquals(7, n.getYCoordinate());

      assertEquals(10000, d.getGrainSize());
      assertEquals(1, d.getConcurrencyLevel());
      d.setGrainSize(5);
      d.setConcurrencyLevel(4);
      assertEquals(5, d.getGrainSize());
      assertEquals(4, d.getConcurrencyLevel());
      assertFails(ErrorCode.USAGE, () -> d.setGrainSize(0));
      assertFails(ErrorCode.USAGE, () -> d.setConcurrencyLevel(0));
      d.setNodeSize(80, 40);
      assertEquals(80, d.getNodeWidth());
      assertEquals(40, d.getNodeHeight());
      d.newNode(Category.DECISION, Kind.DISCRETE);
      assertEquals(1, d.getNumberOfChanceNodes());
      assertEquals(1, d.getNumberOfDecisionNodes());
      assertEquals(0, d.getNumberOfUtilityNodes());
      assertEquals(0, d.getNumberOfInstanceNodes());
      assertFalse(d.isCompiled());
      d.uncompile();
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
}
