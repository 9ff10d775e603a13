package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import org.junit.jupiter.api.Test;

/** The CG methods: parameters, moments, the mixture and their refusals. */
class CgTest {
  @Test
  void parametersMomentsAndRefusals() {
    try (Domain d = Fixtures.rain()) {
      Node s = d.getNodeByName("rain");
      Node x = d.newNode(Category.CHANCE, Kind.CONTINUOUS);
      x.addParent(s);
      x.setAlpha(10, 0);
      x.setAlpha(1, 1);
      x.setGamma(1, 0);
      x.setGamma(1, 1);
      assertEquals(10, x.getAlpha(0));
      assertEquals(1, x.getGamma(0));
      assertFails(ErrorCode.USAGE, () -> s.getAlpha(0));
      assertFails(ErrorCode.USAGE, () -> x.setGamma(-1, 1));
      assertFails(ErrorCode.USAGE, () -> x.getBeta(s, 0));
      assertFails(ErrorCode.NOT_COMPILED, x::getMean);
      d.compile();
      assertEquals(0.2 * 10 + 0.8 * 1, x.getMean(), 1e-12);
      Table mixture = x.getDistribution();
      assertSame(s, mixture.getNodes().get(0));
      assertEquals(10, mixture.getMean(0, x));
      x.enterValue(20);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      assertEquals(0, x.getVariance());
      assertFails(ErrorCode.CG_EVIDENCE_INCORPORATED, d::getConflict);
    }
  }
}
