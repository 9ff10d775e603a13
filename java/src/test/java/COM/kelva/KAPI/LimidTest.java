package COM.kelva.KAPI;

import static org.junit.jupiter.api.Assertions.*;

import java.io.File;
import org.junit.jupiter.api.Assumptions;
import org.junit.jupiter.api.Test;

/** The shared influence diagrams through Java: solved, and read back solved from NET text. */
class LimidTest {
  @Test
  void sharedDiagramsSolveAndReadBackSolved() {
    File nets = new File(System.getenv().getOrDefault("KELVA_SHARED_DIR", "../shared"), "nets");
    File[] files = nets.listFiles((dir, name) -> name.startsWith("id-"));
    Assumptions.assumeTrue(files != null && files.length > 0, "no shared diagrams");
    for (File file : files) {
      try (Domain d = Domain.fromNetFile(file.getPath(), null)) {
        d.compile();
        d.updatePolicies();
        d.setNetDigits(17);
        Domain back = Domain.fromNetString(d.toNetString(), null);
        back.compile();
        assertEquals(d.getExpectedUtility(), back.getExpectedUtility(), 1e-9);
        for (Node n : d.getNodes()) {
          Node twin = back.getNodeByName(n.getName());
          if (n.getCategory() == Category.DECISION) {
            assertArrayEquals(n.getPolicy().getData(), twin.getPolicy().getData(), file.getName());
            assertTrue(n.getParents().containsAll(n.getRequisiteParents()));
            assertEquals(n.getPolicy().getSize(), n.getDecisionUtilities().getSize());
            assertEquals(n.getVarianceOfUtility(1), twin.getVarianceOfUtility(1), 1e-6);
            Fixtures.assertFails(ErrorCode.USAGE, n::getMaxUtility);
          } else if (n.getCategory() == Category.UTILITY) {
            assertTrue(n.getMinUtility() <= n.getMaxUtility() && n.getVarianceOfUtility() >= 0);
          }
        }
        back.close();
        Node first = d.getDecisionOrder().get(0);
        d.decideAutomatically();
        assertTrue(first.evidenceIsEntered());
        d.undoManualDecisions();
        assertFalse(first.evidenceIsEntered());
      }
    }
  }
}
