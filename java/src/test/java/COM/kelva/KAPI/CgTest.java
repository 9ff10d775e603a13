package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import org.junit.jupiter.api.Test;

/** The CG methods: parameters, moments, the mixture and their refusals. */
class CgTest {
  @Test
  void parametersMomentsAndRefusals() {
    try (Domain d = new Domain()) {
      Node s = labelled(d, "s", "a", "b");
      s.getTable().setData(new double[] {0.3, 0.7});
      Node x = d.newNode(Category.CHANCE, Kind.CONTINUOUS);
      Node y = d.newNode(Category.CHANCE, Kind.CONTINUOUS);
      x.addParent(s);
      y.addParent(x);
      x.setAlpha(10, 1);
      x.setGamma(1, 0);
      x.setGamma(1, 1);
      y.setBeta(2, x, 0);
      assertEquals(10, x.getAlpha(1));
      assertEquals(2, y.getBeta(x, 0));
      assertEquals(1, x.getGamma(1));
      assertFails(ErrorCode.USAGE, () -> s.getAlpha(0));
      assertFails(ErrorCode.USAGE, () -> x.getAlpha(2));
      assertFails(ErrorCode.USAGE, () -> x.setGamma(-1, 0));
      assertFails(ErrorCode.USAGE, () -> y.getBeta(s, 0));
      assertFails(ErrorCode.NOT_COMPILED, x::getMean);

      d.compile();
      assertEquals(7, x.getMean(), 1e-12);
      assertEquals(1 + 0.3 * 49 + 0.7 * 9, x.getVariance(), 1e-12);
      Table mixture = x.getDistribution();
      assertSame(s, mixture.getNodes().get(0));
      assertEquals(0.7, mixture.getDataItem(1), 1e-12);
      assertEquals(10, mixture.getMean(1, x));
      mixture.delete();
      y.enterValue(20);
      d.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      assertTrue(d.cgEvidenceIsPropagated());
      assertEquals(0, y.getVariance());
      assertFails(ErrorCode.CG_EVIDENCE_INCORPORATED, d::getConflict);
    }
  }
}
