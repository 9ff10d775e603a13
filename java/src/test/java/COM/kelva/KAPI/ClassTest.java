package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Classes built in Java, written, read back through a loader, unfolded and closed. */
class ClassTest {
  /**
   * Unit: input I (own prior 0.5) and output O with P(O=y | I) = 0.9, 0.2.
   * Top: A (P(y) = 0.3) bound to u1's input, u2 unbound, and C whose
   * parents are the clones u1.O and u2.O.
   */
  private static ClassCollection units() {
    ClassCollection cc = new ClassCollection();
    NetworkClass unit = cc.newClass("Unit");
    Node i = labelled(unit.getNetwork(), "I", "y", "n");
    Node o = labelled(unit.getNetwork(), "O", "y", "n");
    o.addParent(i);
    i.getTable().setData(new double[] {0.5, 0.5});
    o.getTable().setData(new double[] {0.9, 0.1, 0.2, 0.8});
    i.addToInputs();
    o.addToOutputs();
    NetworkClass top = cc.newClass("Top");
    Node a = labelled(top.getNetwork(), "A", "y", "n");
    a.getTable().setData(new double[] {0.3, 0.7});
    Node u1 = top.newInstance(unit);
    u1.setName("u1");
    u1.setInput(i, a);
    Node u2 = top.newInstance(unit);
    u2.setName("u2");
    Node c = labelled(top.getNetwork(), "C", "y", "n");
    c.addParent(u1.getOutput(o));
    c.addParent(u2.getOutputs().get(0));
    c.getTable().setData(new double[] {1, 0, 0.5, 0.5, 0.5, 0.5, 0, 1});
    return cc;
  }

  @Test
  void roundTripLoaderUnfoldingAndFailures(@TempDir Path dir) throws Exception {
    try (ClassCollection cc = units()) {
      NetworkClass unit = cc.getClassByName("Unit");
      NetworkClass top = cc.getMembers().get(1);
      Node u1 = top.getNetwork().getNodeByName("u1");
      assertSame(unit, u1.getInstanceClass());
      assertSame(top, u1.getHomeClass());
      assertEquals(List.of(u1, top.getNetwork().getNodeByName("u2")), unit.getInstances());
      Node clone = u1.getOutputs().get(0);
      assertSame(u1, clone.getInstance());
      assertSame(unit.getOutputs().get(0), clone.getMaster());
      assertSame(top.getNetwork().getNodeByName("A"), u1.getInput(unit.getInputs().get(0)));

      // Written, read and written again: the same bytes.
      String file = dir.resolve("units.net").toString();
      cc.saveAsNet(file);
      String text = cc.toNetString();
      assertEquals(text, Files.readString(Path.of(file)));
      try (ClassCollection back = new ClassCollection()) {
        back.parseClasses(file, null, null);
        assertEquals(text, back.toNetString());
      }
      // Through a KB file: the same text; it is no domain.
      String kb = dir.resolve("units.kb").toString();
      cc.saveAsKB(kb, "pw");
      try (ClassCollection back = ClassCollection.fromKBFile(kb, "pw")) {
        assertEquals(text, back.toNetString());
        assertEquals("Unit", back.getMembers().get(0).getName());
      }
      assertFails(ErrorCode.BAD_KB_TYPE, () -> Domain.fromKBFile(kb, "pw"));

      // Top alone: its instances ask the loader for Unit.
      int split = text.indexOf("class Top");
      String unitText = text.substring(0, split);
      String topText = text.substring(split);
      List<String> asked = new ArrayList<>();
      try (ClassCollection loaded = new ClassCollection()) {
        loaded.parseClassesString(topText, (name, into) -> {
          asked.add(name);
          into.parseClassesString(unitText, null, null);
        }, null);
        assertEquals(List.of("Unit"), asked);
        assertEquals(2, loaded.getMembers().size());
        try (Domain flat = Domain.fromClass(loaded.getClassByName("Top"))) {
          flat.compile();
          // P(u1.O=y) = 0.3*0.9 + 0.7*0.2 = 0.41, P(u2.O=y) = 0.55,
          // P(C=y) = 0.41*0.55 + 0.5*(0.41*0.45 + 0.59*0.55) = 0.48.
          assertEquals(0.48, flat.getNodeByName("C").getBelief(0), 1e-12);
          assertEquals(0.41, flat.getNodeByName("u1.O").getBelief(0), 1e-12);
          Node source = flat.getNodeByName("u2.O").getSource().get(1);
          assertEquals("O", source.getName());
          assertSame(loaded.getClassByName("Unit"), source.getHomeClass());
        }
      }

      // A loader that does not add the class, and one that throws: the
      // parse fails and the collection is as it was.
      try (ClassCollection failed = new ClassCollection()) {
        NetworkClass kept = failed.newClass("Kept");
        List<String> messages = new ArrayList<>();
        assertFails(ErrorCode.PARSE, () -> failed.parseClassesString(topText,
            (name, into) -> into.newClass("Other"), (line, message) -> messages.add(message)));
        assertEquals(List.of("loading class `Unit' failed"), messages);
        assertEquals(List.of(kept), failed.getMembers());
        IllegalStateException thrown = new IllegalStateException("no Unit");
        NetworkClass[] added = new NetworkClass[1];
        assertSame(thrown, assertThrows(IllegalStateException.class,
            () -> failed.parseClassesString(topText, (name, into) -> {
              into.parseClassesString(unitText, null, null);
              added[0] = into.getClassByName("Unit");
              throw thrown;
            }, null)));
        assertFalse(added[0].isAlive());
        assertFalse(added[0].getNetwork().isAlive());
        assertEquals(List.of(kept), failed.getMembers());
      }
    }
  }

  @Test
  void editsAndClosingKillTheJavaObjectsOfEveryClass() {
    ClassCollection cc = units();
    NetworkClass unit = cc.getClassByName("Unit");
    NetworkClass top = cc.getClassByName("Top");
    Node o = unit.getOutputs().get(0);
    Node u1 = top.getNetwork().getNodeByName("u1");
    Node u2 = top.getNetwork().getNodeByName("u2");
    Node clone1 = u1.getOutput(o);
    Node clone2 = u2.getOutput(o);
    Node c = top.getNetwork().getNodeByName("C");
    Domain flat = Domain.fromClass(top);
    assertEquals(2, flat.getNodeByName("u1.O").getSource().size());

    // Removing an output kills the clones in the other class.
    o.removeFromOutputs();
    assertFalse(clone1.isAlive());
    assertTrue(c.getParents().isEmpty());
    o.addToOutputs();
    assertEquals(1, u1.getOutputs().size());
    // Deleting a class kills its instances (and their clones) in others.
    Node clone = u2.getOutputs().get(0);
    assertFalse(clone2.isAlive());
    unit.delete();
    assertFalse(unit.isAlive() || u1.isAlive() || u2.isAlive() || clone.isAlive() || o.isAlive());
    assertFails(ErrorCode.USAGE, unit::getName);
    assertEquals(List.of(top), cc.getMembers());
    assertTrue(flat.getNodeByName("u1.O").getSource().isEmpty());

    // A domain made a class, then the collection closed: all dead.
    Domain d = rain();
    Node rain = d.getNodeByName("rain");
    NetworkClass weather = cc.addDomain(d, "Weather");
    assertSame(d, weather.getNetwork());
    assertSame(weather, rain.getHomeClass());
    assertFails(ErrorCode.USAGE, d::close);
    Node w = top.newInstance(weather);
    cc.close();
    cc.close();
    assertFalse(cc.isAlive() || top.isAlive() || weather.isAlive() || d.isAlive());
    assertFalse(rain.isAlive() || c.isAlive() || w.isAlive());
    assertFails(ErrorCode.USAGE, top::getInputs);
    assertFails(ErrorCode.USAGE, () -> cc.newClass("X"));
    // The unfolded domain is the caller's and lives on.
    assertEquals(0.3, flat.getNodeByName("A").getTable().getData()[0]);
    flat.close();
  }

  /** A hidden Markov model as a time slice, filtered in a one-slice window. */
  @Test
  void dynamicWindowFiltersAndPredictsAsTheForwardRecursion() {
    try (ClassCollection cc = new ClassCollection()) {
      NetworkClass slice = cc.newClass("Slice");
      Node h = labelled(slice.getNetwork(), "H", "a", "b");
      Node e = labelled(slice.getNetwork(), "E", "x", "y");
      Node prev = h.createTemporalClone();
      assertSame(prev, h.getTemporalClone());
      assertSame(h, prev.getTemporalMaster());
      assertNull(e.getTemporalMaster());
      h.addParent(prev);
      e.addParent(h);
      double[][] t = {{0.7, 0.3}, {0.2, 0.8}};
      double[][] o = {{0.9, 0.1}, {0.3, 0.7}};
      prev.getTable().setData(new double[] {0.5, 0.5});
      h.getTable().setData(new double[] {t[0][0], t[0][1], t[1][0], t[1][1]});
      e.getTable().setData(new double[] {o[0][0], o[0][1], o[1][0], o[1][1]});
      try (Domain w = slice.createDBNDomain(1)) {
        w.triangulateDBN(TriangulationMethod.FILL_IN_WEIGHT);
        w.compile();
        double[] p = {0.5, 0.5};
        int[] seen = {0, 1, 1, 0};
        for (int step = 0; step < seen.length; step++) {
          if (step > 0) w.moveDBNWindow(1);
          w.getNodeByName("T1.E").selectState(seen[step]);
          w.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
          double[] q = new double[2];
          for (int k = 0; k < 2; k++) {
            q[k] = (p[0] * t[0][k] + p[1] * t[1][k]) * o[k][seen[step]];
          }
          p = new double[] {q[0] / (q[0] + q[1]), q[1] / (q[0] + q[1])};
          assertEquals(p[0], w.getNodeByName("T1.H").getBelief(0), 1e-12);
        }
        assertEquals(3, w.getDBNWindowOffset());
        w.computeDBNPredictions(2);
        double ahead = p[0] * t[0][0] + p[1] * t[1][0];
        assertEquals(ahead, w.getNodeByName("T1.H").getPredictedBelief(0, 0), 1e-12);
        ahead = ahead * t[0][0] + (1 - ahead) * t[1][0];
        assertEquals(ahead, w.getNodeByName("T1.H").getPredictedBelief(0, 1), 1e-12);
      }
    }
  }

  /** A hidden Markov model's class tables learned from the cases of an eight-slice window. */
  @Test
  void classTablesAreLearnedFromTheWindowsCases() {
    try (ClassCollection cc = new ClassCollection()) {
      NetworkClass slice = cc.newClass("Slice");
      Node h = labelled(slice.getNetwork(), "H", "a", "b");
      Node e = labelled(slice.getNetwork(), "E", "x", "y");
      Node prev = h.createTemporalClone();
      h.addParent(prev);
      e.addParent(h);
      prev.getTable().setData(new double[] {0.5, 0.5});
      h.getTable().setData(new double[] {0.6, 0.4, 0.4, 0.6});
      e.getTable().setData(new double[] {0.6, 0.4, 0.3, 0.7});
      h.getExperienceTable();
      try (Domain w = slice.createDBNDomain(8)) {
        w.triangulateDBN(TriangulationMethod.FILL_IN_WEIGHT);
        w.compile();
        w.setNumberOfCases(40);
        java.util.Random random = new java.util.Random(5);
        for (int c = 0; c < 40; c++) {
          for (int t = 1, state = 0; t <= 8; t++) {
            state = random.nextDouble() < 0.9 ? state : 1 - state;
            w.getNodeByName("T" + t + ".E").setCaseState(c, state);
          }
        }
        double before = w.getLogLikelihood();
        w.learnClassTables();
        assertTrue(w.getLogLikelihood() > before);
        double[] learned = w.getNodeByName("T5.H").getTable().getData();
        assertArrayEquals(h.getTable().getData(), learned);
        assertTrue(learned[0] > 0.8 && learned[3] > 0.8);  // stays, under either labelling
      }
    }
  }
}
