package COM.kelva.KAPI;

import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** Propagation, beliefs and the belief report through the Java API. */
class InferenceTest {
  private static void assertFails(ErrorCode code, Executable call) {
    assertEquals(code, assertThrows(KelvaException.class, call).getCode());
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
