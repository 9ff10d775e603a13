package COM.kelva.KAPI;

import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.Path;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** Propagation, beliefs and the belief report through the Java API. */
class InferenceTest {
  private static void assertFails(ErrorCode code, Executable call) {
    assertEquals(code, assertThrows(KelvaException.class, call).getCode());
  }

  @Test
  void reportsNeedACompiledDomainAndANodeWithResults(@TempDir Path dir) {
    try (Domain d = new Domain()) {
      Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
      Node u = d.newNode(Category.UTILITY, Kind.OTHER);
      assertFails(ErrorCode.NOT_COMPILED, d::reportBeliefs);
      assertFails(ErrorCode.USAGE, u::reportBeliefs);
      a.reportBeliefs();  // without a log there is nothing to write
      d.setLogFile(dir.resolve("log").toString(), false);
      assertFails(ErrorCode.NOT_COMPILED, a::reportBeliefs);
    }
  }
}
