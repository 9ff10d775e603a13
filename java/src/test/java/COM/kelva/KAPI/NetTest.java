package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** Domains read from and written as NET text through the Java API. */
class NetTest {
  private static final String NETWORK = String.join("\n",
      "net { node_size = (80 40); author = \"K\u00e9\"; }",
      "node Rain { label = \"Rain today\"; position = (10 -20); states = (\"no\" \"yes\"); }",
      "discrete node Level",
      "{ states = (\"low\" \"mid\" \"high\"); subtype = number; state_values = (1 2.5 4); }",
      "node Grass { states = (\"dry\" \"wet\"); }",
      "utility U { }",
      "potential (Rain) { data = (0.8 0.2); }",
      "potential (Level) { data = (0.2 0.3 0.5); }",
      "potential (Grass | Rain Level)",
      "{ data = (((0.9 0.1) (0.8 0.2) (0.7 0.3)) ((0.4 0.6) (0.3 0.7) (0.2 0.8))); }",
      "potential (U | Grass) { data = (10 -5); }",
      "");

  /** Three counted errors and a fourth in a table, on lines 1, 3, 4 and 5. */
  private static final String FAULTY = String.join("\n",
      "net { node_size = (-80 40); }",
      "node A { states = (\"a1\" \"a2\"); subtype = number;",
      "  state_values = (1 2 3); }",
      "node B { states = (\"yes\" \"no\" \"maybe\"); subtype = boolean; }",
      "potential (A) { data = (0.5 -0.5); }",
      "");

  private static final List<String> FAULTS = List.of(
      "<number> must be nonnegative",
      "incorrect number of state values",
      "a boolean node must have exactly two states",
      "<number> must be nonnegative");

  /** A network whose only message is a warning. */
  private static final String WARNED = "node A { }\npotential (A) { }\n";

  /** Collects the reports of a parse. */
  private static final class Reports implements ParseListener {
    final List<Integer> positions = new ArrayList<>();
    final List<String> messages = new ArrayList<>();

    @Override
    public void parseError(int line, String message) {
      positions.add(line);
      messages.add(message);
    }
  }

  /** The value of a table at the configuration given by state per node. */
  private static double valueAt(Table table, Map<Node, Integer> states) {
    List<Node> nodes = table.getNodes();
    long[] configuration = new long[nodes.size()];
    for (int i = 0; i < configuration.length; i++) {
      configuration[i] = states.get(nodes.get(i));
    }
    return table.getDataItem(table.getIndexFromConfiguration(configuration));
  }

  @Test
  void aNetworkReadFromTextHasItsNodesLinksAndTables() {
    try (Domain d = Domain.fromNetString(NETWORK, null)) {
      Node rain = d.getNodeByName("Rain");
      Node level = d.getNodeByName("Level");
      Node grass = d.getNodeByName("Grass");
      Node u = d.getNodeByName("U");
      assertEquals(Set.of(rain, level, grass, u), new HashSet<>(d.getNodes()));
      assertEquals(4, d.getNodes().size());
      assertNull(d.getFileName());
      assertEquals("K\u00e9", d.getAttribute("author"));
      assertEquals(80, d.getNodeWidth());

      assertEquals("Rain today", rain.getLabel());
      assertEquals(-20, rain.getYCoordinate());
      assertEquals(2.5, level.getStateValue(1));
      assertEquals(List.of(rain, level), grass.getParents());
      assertEquals(List.of(grass), u.getParents());

      // Parents as written vary slowest, whatever order the table keeps.
      Table t = grass.getTable();
      assertEquals(0.8, valueAt(t, Map.of(rain, 0, level, 1, grass, 0)), 1e-12);
      assertEquals(0.6, valueAt(t, Map.of(rain, 1, level, 0, grass, 1)), 1e-12);
      assertEquals(0.2, valueAt(t, Map.of(rain, 1, level, 2, grass, 0)), 1e-12);
      assertArrayEquals(new double[] {10, -5}, u.getTable().getData());

      // New nodes join those read; writing and reading again changes nothing.
      Node extra = d.newNode(Category.CHANCE, Kind.DISCRETE);
      extra.setName("Extra");
      extra.addParent(rain);
      String text = d.toNetString();
      try (Domain again = Domain.fromNetString(text, null)) {
        assertEquals(text, again.toNetString());
        assertEquals(List.of(again.getNodeByName("Rain")), again.getNodeByName("Extra").getParents());
      }
    }
  }

  @Test
  void utilitiesDecodeNetEscapesAndGiveInfinityAndTheClock() {
    assertEquals("a\"b\nA", Utilities.removeEscapeSequences("a\\\"b\\n\\x41"));
    assertFails(ErrorCode.USAGE, () -> Utilities.removeEscapeSequences(null));
    assertEquals(Double.POSITIVE_INFINITY, Utilities.infinity());
    assertTrue(Utilities.getClock() >= 0);
  }

  @Test
  void seventeenDigitsReadBackExactly() throws Exception {
    try (Domain d = Domain.fromNetString(NETWORK, null)) {
      Table table = d.getNodeByName("Rain").getTable();
      table.setDataItem(0, 1.0 / 3.0);
      table.setDataItem(1, 2.0 / 3.0);
      assertEquals(0, d.getNetDigits());
      try (Domain usual = Domain.fromNetString(d.toNetString(), null)) {
        assertNotEquals(1.0 / 3.0, usual.getNodeByName("Rain").getTable().getDataItem(0));
      }
      d.setNetDigits(17);
      assertEquals(17, d.getNetDigits());
      try (Domain exact = Domain.fromNetString(d.toNetString(), null)) {
        assertEquals(1.0 / 3.0, exact.getNodeByName("Rain").getTable().getDataItem(0));
        assertEquals(2.0 / 3.0, exact.getNodeByName("Rain").getTable().getDataItem(1));
      }
      assertFails(ErrorCode.USAGE, () -> d.setNetDigits(18));
      assertFails(ErrorCode.USAGE, () -> d.setNetDigits(-1));
      assertEquals(17, d.getNetDigits());
    }
  }

  @Test
  void filesKeepTheirUnicodeNames(@TempDir Path dir) throws Exception {
    Path file = dir.resolve("r\u00e9seau \u20ac\ud83d\ude00.net");
    String text;
    try (Domain d = Domain.fromNetString(NETWORK, null)) {
      text = d.toNetString();
      d.saveAsNet(file.toString());
      assertEquals(file.toString(), d.getFileName());
      assertEquals(text, Files.readString(file, StandardCharsets.UTF_8));
      // A failed save keeps the name.  A name cut at a NUL would be another
      // file's: it is refused.
      assertFails(ErrorCode.IO, () -> d.saveAsNet(dir.resolve("none/x.net").toString()));
      d.getNodeByName("Rain").setLabel("changed");
      assertFails(ErrorCode.IO, () -> d.saveAsNet(file + "\u0000.bak"));
      assertEquals(text, Files.readString(file, StandardCharsets.UTF_8));
      assertEquals(file.toString(), d.getFileName());
      assertFails(ErrorCode.USAGE, () -> d.saveAsNet(null));
    }
    try (Domain d = Domain.fromNetFile(file.toString(), null)) {
      assertEquals(file.toString(), d.getFileName());
      assertEquals(text, d.toNetString());
      assertEquals(0.2, d.getNodeByName("Rain").getTable().getDataItem(1), 1e-12);
    }
    try (Domain d = new Domain()) {
      assertNull(d.getFileName());
    }
    assertFails(ErrorCode.IO, () -> Domain.fromNetFile(dir.resolve("absent.net").toString(), null));
    assertFails(ErrorCode.USAGE, () -> Domain.fromNetFile(null, null));
    assertFails(ErrorCode.USAGE, () -> Domain.fromNetString(null, null));
  }

  @Test
  void everyErrorOfAParseReachesTheListener(@TempDir Path dir) throws Exception {
    Reports fromText = new Reports();
    assertFails(ErrorCode.PARSE, () -> Domain.fromNetString(FAULTY, fromText));
    assertEquals(FAULTS, fromText.messages);
    // In text the positions count the characters read, so they grow.
    for (int i = 1; i < fromText.positions.size(); i++) {
      assertTrue(fromText.positions.get(i - 1) < fromText.positions.get(i), fromText.positions.toString());
    }
    assertTrue(fromText.positions.get(3) <= FAULTY.length());

    Path file = dir.resolve("faulty.net");
    Files.writeString(file, FAULTY);
    Reports fromFile = new Reports();
    assertFails(ErrorCode.PARSE, () -> Domain.fromNetFile(file.toString(), fromFile));
    assertEquals(FAULTS, fromFile.messages);
    assertEquals(List.of(1, 3, 4, 5), fromFile.positions);

    // Warnings are heard too, and do not fail the parse.
    Reports warned = new Reports();
    Domain.fromNetString(WARNED, warned).close();
    assertEquals(List.of("warning: no potential data specified"), warned.messages);
  }

  @Test
  void aListenerThatThrowsStopsTheParse(@TempDir Path dir) throws Exception {
    Path file = dir.resolve("faulty.net");
    Files.writeString(file, FAULTY);
    List<String> heard = new ArrayList<>();
    IllegalStateException thrown = new IllegalStateException("stop");
    ParseListener listener = (line, message) -> {
      heard.add(message);
      throw thrown;
    };
    List<Executable> parses = List.of(
        () -> Domain.fromNetString(FAULTY, listener),
        () -> Domain.fromNetFile(file.toString(), listener),
        // Only a warning: the parse succeeds, and its domain is discarded.
        () -> Domain.fromNetString(WARNED, listener));
    for (Executable parse : parses) {
      heard.clear();
      assertSame(thrown, assertThrows(IllegalStateException.class, parse));
      assertEquals(1, heard.size());
      assertEquals(ErrorCode.JNI.code(), kErrorCode());
    }
  }

  @Test
  void closingAReadDomainZeroesEveryPeer() {
    Domain d = Domain.fromNetString(NETWORK, null);
    List<Node> nodes = d.getNodes();
    List<Table> tables = new ArrayList<>();
    for (Node n : nodes) {
      assertNotEquals(0L, n.nodePeer);
      tables.add(n.getTable());
    }

    // A second Java node attached to an engine node takes over as its peer.
    Node rain = d.getNodeByName("Rain");
    long h = rain.nodePeer;
    Node other = new Node(d);
    assertEquals(0, kNodeAttachPeer(h, other));
    assertEquals(0L, rain.nodePeer);
    assertEquals(h, other.nodePeer);
    assertEquals(0, kNodeAttachPeer(h, other));
    assertNotEquals(0, kNodeAttachPeer(h, null));
    assertEquals(ErrorCode.USAGE.code(), kErrorCode());

    d.close();
    for (Node n : nodes) {
      assertEquals(0L, n.nodePeer);
    }
    assertEquals(0L, other.nodePeer);
    for (Table t : tables) {
      assertEquals(0L, t.tablePeer);
    }
  }
}
