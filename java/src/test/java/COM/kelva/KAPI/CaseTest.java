package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Stored cases and case files through the Java API. */
class CaseTest {
  @Test
  void storedCasesAreKeptPerNode() {
    try (Domain d = new Domain()) {
      Node a = labelled(d, "A", "no", "yes");
      Node x = d.newNode(Category.CHANCE, Kind.CONTINUOUS);
      assertEquals(0, d.newCase());
      assertEquals(1, d.newCase());
      a.setCaseState(1, 1);
      x.setCaseValue(0, 2.5);
      assertTrue(a.caseIsSet(1));
      assertFalse(a.caseIsSet(0));
      assertEquals(1, a.getCaseState(1));
      assertEquals(2.5, x.getCaseValue(0));
      assertFails(ErrorCode.NO_VALUE, () -> a.getCaseState(0));
      assertFails(ErrorCode.NO_VALUE, () -> x.getCaseValue(1));
      assertFails(ErrorCode.CASE_STATE_TOO_LARGE, () -> a.setCaseState(0, 40000));
      a.unsetCase(1);
      assertFalse(a.caseIsSet(1));

      assertEquals(2.0, d.countCases());
      d.setCaseCount(0, 0.25);
      assertEquals(0.25, d.getCaseCount(0));
      assertEquals(1.25, d.countCases());
      d.setNumberOfCases(1);
      assertEquals(1, d.getNumberOfCases());
    }
  }

  @Test
  void enteringACaseReplacesTheEvidence() {
    try (Domain d = new Domain()) {
      Node a = labelled(d, "A", "no", "yes");
      Node b = labelled(d, "B", "lo", "hi");
      d.setNumberOfCases(1);
      a.setCaseState(0, 1);
      b.selectState(0);
      d.enterCase(0);
      assertEquals(1, a.getSelectedState());
      assertFalse(b.evidenceIsEntered());
      assertFails(ErrorCode.USAGE, () -> d.enterCase(1));
      assertEquals(1, a.getSelectedState());
    }
  }

  @Test
  void caseFilesRoundTrip(@TempDir Path dir) throws Exception {
    try (Domain d = new Domain()) {
      Node a = labelled(d, "A", "no", "yes");
      Node b = labelled(d, "B", "lo", "hi");
      a.selectState(1);
      b.enterFinding(0, 0.5);
      String single = dir.resolve("one case").toString();
      d.saveCase(single);
      assertEquals("B: (0.5 1)\nA: \"yes\"\n", Files.readString(Path.of(single)));
      d.retractFindings();
      d.parseCase(single, null);
      assertEquals(1, a.getSelectedState());
      assertEquals(0.5, b.getEnteredFinding(0));

      d.setNumberOfCases(3);
      a.setCaseState(0, 0);
      b.setCaseState(2, 1);
      d.setCaseCount(1, 2);
      String data = dir.resolve("cases.dat").toString();
      d.saveCases(data, List.of(a, b), null, true, ",", "*");
      assertEquals("#,A,B\n\n1,\"no\",*\n2,*,*\n1,*,\"hi\"\n", Files.readString(Path.of(data)));
      d.saveCases(data, List.of(b), new long[] {2, 1}, false, " ", "?");
      assertEquals("B\n\n\"hi\"\n?\n?\n", Files.readString(Path.of(data)));
      assertFails(ErrorCode.USAGE, () -> d.saveCases(data, List.of(a), new long[] {-1}, true, ",", "*"));
      assertFails(ErrorCode.USAGE, () -> d.saveCases(data, List.of(a), null, true, null, "*"));

      d.parseCases(data, null);
      assertEquals(6, d.getNumberOfCases());
      assertEquals(1, b.getCaseState(3));
      assertFalse(b.caseIsSet(5));
    }
  }

  @Test
  void errorsReachTheListenerAndLeaveTheDomain(@TempDir Path dir) throws Exception {
    try (Domain d = new Domain()) {
      labelled(d, "A", "no", "yes");
      labelled(d, "B", "lo", "hi");
      d.newCase();
      Path data = dir.resolve("short.dat");
      Files.writeString(data, "A B\nno lo\nyes\nno hi\n");
      List<String> heard = new ArrayList<>();
      ParseListener listener = (line, message) -> heard.add(line + ":" + message);
      assertFails(ErrorCode.PARSE, () -> d.parseCases(data.toString(), listener));
      assertEquals(List.of("3:line is incomplete"), heard);
      assertEquals(1, d.getNumberOfCases());

      Files.writeString(data, "A B\n");
      heard.clear();
      d.parseCases(data.toString(), listener);
      assertEquals(List.of("2:warning: file contains no cases"), heard);

      Path single = dir.resolve("bad.case");
      Files.writeString(single, "A: yes\nB: maybe\n");
      heard.clear();
      assertFails(ErrorCode.PARSE, () -> d.parseCase(single.toString(), listener));
      assertEquals(List.of("2:\"maybe\" is not a (unique) state label of `B'"), heard);
      assertFalse(d.getNodeByName("A").evidenceIsEntered());

      ParseListener thrower = (line, message) -> {
        throw new IllegalStateException(message);
      };
      assertThrows(IllegalStateException.class, () -> d.parseCase(single.toString(), thrower));
      assertThrows(IllegalStateException.class, () -> d.parseCases(data.toString(), thrower));
      assertEquals(1, d.getNumberOfCases());
      assertFails(ErrorCode.IO, () -> d.parseCases(dir.resolve("absent").toString(), null));
      assertFails(ErrorCode.USAGE, () -> d.parseCase(null, null));
    }
  }
}
