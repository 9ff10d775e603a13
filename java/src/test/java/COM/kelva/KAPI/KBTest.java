package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.Path;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** A propagated domain through a protected KB file. */
class KBTest {
  @Test
  void protectedFileKeepsTextBeliefsAndCompilation(@TempDir Path dir) throws Exception {
    String file = dir.resolve("r\u00e9in.kb").toString();
    try (Domain d = rain()) {
      d.compile();
      d.getNodeByName("wet").selectState(0);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      d.saveAsKB(file, "p\u00e4ss");
      try (Domain back = Domain.fromKBFile(file, "p\u00e4ss")) {
        assertTrue(back.isCompiled());
        assertEquals(d.toNetString(), back.toNetString());
        assertEquals(d.getNodeByName("rain").getBelief(0), back.getNodeByName("rain").getBelief(0));
      }
      String copy = dir.resolve("copy.kb").toString();
      java.nio.file.Files.write(java.nio.file.Path.of(copy), d.saveToMemory(null));
      try (Domain back = Domain.fromKBFile(copy, null)) {
        assertEquals(d.toNetString(), back.toNetString());
      }
      assertFails(ErrorCode.BAD_KB_PASSWORD, () -> Domain.fromKBFile(file, "pass"));
      assertFails(ErrorCode.IO, () -> Domain.fromKBFile(dir.resolve("none.kb").toString(), null));
    }
  }
}
