package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static COM.kelva.KAPI.Expression.composite;
import static COM.kelva.KAPI.Expression.number;
import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import org.junit.jupiter.api.Test;

/** Models and table generation through the Java API. */
class ModelTest {
  @Test
  void aModelKeepsItsSlotsAndSettings() {
    try (Domain d = new Domain()) {
      Node a = labelled(d, "A", "x", "y");
      Node b = labelled(d, "B", "p", "q", "r");
      Node c = labelled(d, "C", "lo", "hi");
      c.addParent(a);
      c.addParent(b);
      assertNull(c.getModel());

      Model m = c.newModel(List.of(a, b));
      assertNotEquals(0L, m.modelPeer);
      assertSame(m, c.getModel());
      assertSame(c, m.getNode());
      assertEquals(List.of(a, b), m.getNodes());
      assertEquals(6, m.getSize());
      assertTrue(m.needsGeneration());
      assertEquals(25, m.getNumberOfSamplesPerInterval());
      m.setNumberOfSamplesPerInterval(3);
      assertEquals(3, m.getNumberOfSamplesPerInterval());
      assertFails(ErrorCode.USAGE, () -> m.setNumberOfSamplesPerInterval(0));

      assertNull(m.getExpression(5));
      assertFails(ErrorCode.USAGE, () -> m.getExpression(6));
      Expression hi = Expression.label("hi");
      m.setExpression(5, hi);
      m.setExpression(4, hi);
      assertSame(hi, m.getExpression(5));
      hi.close();  // held by the model: left alone
      assertTrue(hi.isAlive());
      m.setExpression(5, "if (A == \"x\", \"lo\", \"hi\")", null);
      Expression parsed = m.getExpression(5);
      assertSame(parsed, m.getExpression(5));
      assertEquals(Operator.IF, parsed.getOperator());
      m.setExpression(4, null);
      assertNull(m.getExpression(4));
      assertFalse(hi.isAlive());

      // Refused expressions stay with their owner.
      Expression stranger = Expression.node(c);
      assertFails(ErrorCode.INVALID_EXPRESSION, () -> m.setExpression(0, stranger));
      assertFails(ErrorCode.USAGE, () -> m.setExpression(6, stranger));
      assertTrue(stranger.isAlive());
      stranger.close();
      assertFails(ErrorCode.USAGE, () -> c.newModel(List.of(c)));
    }
  }

  @Test
  void aDeadModelHasNoPeerAndFreesWhatOnlyItHeld() {
    Domain d = new Domain();
    Node a = labelled(d, "A", "x", "y");
    Node b = labelled(d, "B", "p", "q");
    Node c = labelled(d, "C", "lo", "hi");
    c.addParent(a);
    c.addParent(b);

    // A new model replaces the old one.
    Model first = c.newModel(List.of(a));
    Expression only = Expression.label("lo");
    first.setExpression(0, only);
    Model second = c.newModel(List.of(b));
    assertEquals(0L, first.modelPeer);
    assertFalse(only.isAlive());
    assertFails(ErrorCode.USAGE, first::getSize);
    assertSame(second, c.getModel());

    // Removing a parent the model refers to deletes the model.
    c.removeParent(b);
    assertEquals(0L, second.modelPeer);
    assertNull(c.getModel());

    Model third = c.newModel(List.of());
    third.setExpression(0, "if (A == \"x\", \"lo\", \"hi\")", null);
    Expression viewed = third.getExpression(0);
    third.delete();
    assertEquals(0L, third.modelPeer);
    assertFalse(viewed.isAlive());

    // Deleting the node, or the domain, kills its model; an expression that
    // a composite holds as well survives.
    Model fourth = c.newModel(List.of(a));
    c.delete();
    assertEquals(0L, fourth.modelPeer);
    Node e = labelled(d, "E", "lo", "hi");
    Model fifth = e.newModel(List.of());
    Expression shared = number(2);
    Expression outer = composite(Operator.NEGATE, shared);
    fifth.setExpression(0, shared);
    d.close();
    assertEquals(0L, fifth.modelPeer);
    assertTrue(shared.isAlive());
    assertEquals("-2", outer.toString());
    outer.close();
    assertFalse(shared.isAlive());
  }

  @Test
  void generatedTablesFollowTheirModels() {
    try (Domain d = new Domain()) {
      // A Normal distribution over the two halves of the real line.
      Node level = d.newNode(Category.CHANCE, Kind.DISCRETE, Subtype.INTERVAL);
      level.setNumberOfStates(2);
      level.setStateValue(0, Double.NEGATIVE_INFINITY);
      level.setStateValue(1, 0);
      level.setStateValue(2, Double.POSITIVE_INFINITY);
      Model normal = level.newModel(List.of());
      normal.setExpression(0, composite(Operator.NORMAL, number(0), number(1)));
      level.generateTable();
      assertFalse(normal.needsGeneration());
      assertArrayEquals(new double[] {0.5, 0.5}, level.getTable().getData(), 1e-12);

      // A labelled node whose state is a value of its parent's.
      Node weather = labelled(d, "weather", "sun", "rain");
      Node mood = labelled(d, "mood", "happy", "sad");
      mood.addParent(weather);
      Model m = mood.newModel(List.of(weather));
      m.setExpression(0, "\"happy\"", null);
      m.setExpression(1, Expression.label("sad"));
      d.generateTables();
      assertFalse(m.needsGeneration());
      assertArrayEquals(new double[] {1, 0, 0, 1}, mood.getTable().getData());

      // A change marks the model again; a failed generation leaves the mark.
      level.setStateValue(0, 0);
      assertTrue(normal.needsGeneration());
      assertFails(ErrorCode.INSUFFICIENT_STATE_RANGE, level::generateTable);
      assertTrue(normal.needsGeneration());
    }
  }
}
