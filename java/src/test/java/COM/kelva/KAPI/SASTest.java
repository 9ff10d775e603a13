package COM.kelva.KAPI;

import static org.junit.jupiter.api.Assertions.*;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** SAS node, link and table files, and older node entries, read through the Java API. */
class SASTest {
  @TempDir Path dir;

  private String file(String name, String text) throws IOException {
    Path p = dir.resolve(name);
    Files.write(p, text.getBytes(StandardCharsets.UTF_8));
    return p.toString();
  }

  private static List<String> names(List<Node> nodes) {
    return nodes.stream().map(Node::getName).toList();
  }

  @Test
  void nodeAndLinkFilesBuildANetwork() throws IOException {
    try (Domain d = new Domain()) {
      Node old = d.newNode(Category.CHANCE, Kind.DISCRETE);
      old.setName("Old");
      d.parseSASNodes(file("n.txt", "Rain, L, no\nRain, L, yes\nLevel, N, 1\nLevel, N, 2.5\n"
          + "Wet, B\nTemp, I, -infinity\nTemp, I, 0\nTemp, I, infinity\n"), null);
      d.parseSASLinks(file("l.txt", "Wet, Rain, Level\nTemp Old\nRain\n"), null);

      Node rain = d.getNodeByName("Rain");
      assertEquals(2, rain.getNumberOfStates());
      assertEquals("yes", rain.getStateLabel(1));
      assertEquals(Subtype.NUMBER, d.getNodeByName("Level").getSubtype());
      assertEquals(2.5, d.getNodeByName("Level").getStateValue(1));
      assertEquals(Subtype.INTERVAL, d.getNodeByName("Temp").getSubtype());
      assertEquals(2, d.getNodeByName("Temp").getNumberOfStates());
      assertEquals(List.of("Rain", "Level"), names(d.getNodeByName("Wet").getParents()));
      assertEquals(List.of("Old"), names(d.getNodeByName("Temp").getParents()));
      assertEquals(5, d.getNodes().size());
    }
  }

  @Test
  void errorsReachTheListenerAndLeaveTheDomainAsItWas() throws IOException {
    try (Domain d = new Domain()) {
      d.parseSASNodes(file("n.txt", "A, L, a0\nA, L, a1\nB, C\n"), null);
      List<String> heard = new ArrayList<>();
      ParseListener listener = (line, message) -> heard.add(line + ":" + message);

      KelvaException e = assertThrows(KelvaException.class,
          () -> d.parseSASNodes(file("bad.txt", "X, L, x\nA, L, a2\n"), listener));
      assertEquals(ErrorCode.PARSE, e.getCode());
      assertEquals(List.of("2:attempt to change existing node A in the network"), heard);
      assertNull(d.getNodeByName("X"));

      heard.clear();
      e = assertThrows(KelvaException.class,
          () -> d.parseSASLinks(file("bad.txt", "B A\n\nA Q\n"), listener));
      assertEquals(ErrorCode.PARSE, e.getCode());
      assertEquals(List.of("3:node `Q' not found"), heard);
      assertTrue(d.getNodeByName("B").getParents().isEmpty());

      e = assertThrows(KelvaException.class,
          () -> d.parseSASLinks(file("l.txt", "A B\n"), null));
      assertEquals(ErrorCode.PARSE, e.getCode());
      assertThrows(KelvaException.class, () -> d.parseSASNodes(dir.resolve("none").toString(), null));
      assertEquals(2, d.getNodes().size());
    }
  }

  @Test
  void olderNodeEntriesAndTableFiles() throws IOException {
    try (Domain d = new Domain()) {
      d.parseNodes(file("o.txt", "B \"\" 2 A 2 (1 0 0 1)\nA \"\" 2 \"no\" \"yes\" (1 1)\n"), null);
      Node b = d.getNodeByName("B");
      assertEquals(List.of("A"), names(b.getParents()));
      d.parseSASTable(file("t.txt", "B A\nyes 0.3 0.7\nno 0.6 0.4\n"), null);
      assertArrayEquals(new double[] {0.6, 0.4, 0.3, 0.7}, b.getTable().getData());
      assertThrows(KelvaException.class, () -> d.parseNodes(file("x.txt", "C \"\" 1 Q 1 (1)"), null));
      assertEquals(2, d.getNodes().size());
    }
  }

  @Test
  void aListenerThatThrowsStopsTheParseAndNothingOfTheFileStays() throws IOException {
    try (Domain d = new Domain()) {
      ParseListener thrower = (line, message) -> {
        throw new IllegalStateException(line + ":" + message);
      };
      IllegalStateException e = assertThrows(IllegalStateException.class,
          () -> d.parseSASNodes(file("n.txt", "A, L, a\nA, Q\n"), thrower));
      assertEquals("2:invalid type specifier (must be L, B, N, I, C, or F)", e.getMessage());
      assertTrue(d.getNodes().isEmpty());

      // A warning does not stop the parse, but the exception discards it.
      e = assertThrows(IllegalStateException.class,
          () -> d.parseSASNodes(file("w.txt", "A, L, \"a\\0b\"\nB, C\n"), thrower));
      assertEquals("1:warning: null character in string", e.getMessage());
      assertTrue(d.getNodes().isEmpty());
      d.parseSASNodes(file("ok.txt", "A, L, a\n"), thrower);
      assertEquals(1, d.getNodes().size());
    }
  }
}
