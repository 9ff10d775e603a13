package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** Tables through the Java API. */
class TableTest {
  private Domain domain;
  private Node p; // 2 states
  private Node c; // 3 states, child of p: its table is over (p, c)

  @BeforeEach
  void network() {
    domain = new Domain();
    p = domain.newNode(Category.CHANCE, Kind.DISCRETE);
    c = domain.newNode(Category.CHANCE, Kind.DISCRETE);
    p.setNumberOfStates(2);
    c.setNumberOfStates(3);
    c.addParent(p);
  }

  @AfterEach
  void close() {
    domain.close();
  }

  @Test
  void dataRoundTripAndRangeChecks() {
    Table t = c.getTable();
    assertSame(t, c.getTable());
    assertEquals(List.of(p, c), t.getNodes());
    assertEquals(6, t.getSize());
    assertEquals(0, t.getCGSize());

    double[] data = {0.1, 0.2, 0.7, 0.5, 0.25, 0.25};
    t.setData(data);
    assertArrayEquals(data, t.getData());
    assertEquals(0.25, t.getDataItem(5));
    t.setDataItem(0, 0.3);
    double[] part = new double[4];
    t.getData(part, 0, 2);
    assertArrayEquals(new double[] {0.3, 0.2, 0, 0}, part);
    t.setData(new double[] {9, 8}, 4, 2);
    assertArrayEquals(new double[] {0.3, 0.2, 0.7, 0.5, 9, 8}, t.getData());

    // A refused range leaves both sides alone.
    assertFails(ErrorCode.USAGE, () -> t.getData(part, 1, 6));
    assertFails(ErrorCode.USAGE, () -> t.getData(new double[1], 0, 2));
    assertFails(ErrorCode.USAGE, () -> t.setData(new double[2], 5, 2));
    assertFails(ErrorCode.USAGE, () -> t.getData(null, 0, 1));
    assertFails(ErrorCode.USAGE, () -> t.getDataItem(6));
    assertArrayEquals(new double[] {0.3, 0.2, 0, 0}, part);
    assertArrayEquals(new double[] {0.3, 0.2, 0.7, 0.5, 9, 8}, t.getData());

    t.setAllDataItems(2);
    assertArrayEquals(new double[] {2, 2, 2, 2, 2, 2}, t.getData());
  }

  @Test
  void configurationsAreMixedRadixWithTheLastNodeFastest() {
    Table t = c.getTable();
    assertEquals(5, t.getIndexFromConfiguration(new long[] {1, 2}));
    assertArrayEquals(new long[] {1, 1}, t.getConfigurationFromIndex(4));
    assertFails(ErrorCode.USAGE, () -> t.getIndexFromConfiguration(new long[] {0, 3}));
    assertFails(ErrorCode.USAGE, () -> t.getIndexFromConfiguration(new long[] {1}));
    assertFails(ErrorCode.USAGE, () -> t.getConfigurationFromIndex(6));
  }

  @Test
  void arithmeticMarginalsAndReordering() {
    Table t = c.getTable();
    t.setData(new double[] {1, 2, 3, 4, 5, 6});

    Table sum = t.getMarginal(List.of(p), Equilibrium.SUM);
    assertEquals(List.of(p), sum.getNodes());
    assertArrayEquals(new double[] {6, 15}, sum.getData());
    Table max = t.getMarginal(List.of(c), Equilibrium.MAX);
    assertFails(ErrorCode.USAGE, () -> t.getMarginal(List.of(p), Equilibrium.NONE));

    Table pt = p.getTable();
    pt.setData(new double[] {4, 4});
    sum.setData(new double[] {2, 1});
    pt.divide(sum);
    t.multiply(pt);
    assertArrayEquals(new double[] {2, 4, 6, 16, 20, 24}, t.getData());
    assertFails(ErrorCode.USAGE, () -> pt.multiply(t));

    t.reorderNodes(List.of(c, p));
    assertEquals(List.of(c, p), t.getNodes());
    assertArrayEquals(new double[] {2, 16, 4, 20, 6, 24}, t.getData());
    assertFails(ErrorCode.USAGE, () -> t.reorderNodes(List.of(c)));

    max.setData(new double[] {7, 8, 9});
    Table copy = t.getMarginal(List.of(c, p), Equilibrium.SUM);
    copy.setAllDataItems(1);
    t.update(copy);
    assertArrayEquals(new double[] {1, 1, 1, 1, 1, 1}, t.getData());
    assertFails(ErrorCode.USAGE, () -> t.update(max));
  }

  @Test
  void onlyTablesOwnedByTheCallerAreDeleted() {
    Table t = c.getTable();
    t.delete();
    assertTrue(t.isAlive());
    assertEquals(6, t.getSize());

    Table marginal = t.getMarginal(List.of(p), Equilibrium.SUM);
    marginal.delete();
    assertFalse(marginal.isAlive());
    assertFails(ErrorCode.USAGE, marginal::getSize);

    assertFalse(c.hasExperienceTable());
    Table experience = c.getExperienceTable();
    assertTrue(c.hasExperienceTable());
    assertEquals(List.of(p), experience.getNodes());
    experience.delete();
    assertFalse(experience.isAlive());
    assertFalse(c.hasExperienceTable());
    Table again = c.getExperienceTable();
    assertNotSame(experience, again);
    assertTrue(again.isAlive());

    Table fading = c.getFadingTable();
    assertSame(fading, c.getFadingTable());
    assertArrayEquals(new double[] {1, 1}, fading.getData());
  }
}
