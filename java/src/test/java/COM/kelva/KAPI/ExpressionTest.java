package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static COM.kelva.KAPI.Expression.composite;
import static COM.kelva.KAPI.Expression.number;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.kErrorCode;
import static org.junit.jupiter.api.Assertions.*;

import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;

/** Expressions through the Java API: building, reading, printing, parsing, lifetime. */
class ExpressionTest {
  /** A domain with discrete nodes "A" (states "x", "y") and its child "B". */
  private static Domain twoNodes() {
    Domain d = new Domain();
    Node a = labelled(d, "A", "x", "y");
    Node b = d.newNode(Category.CHANCE, Kind.DISCRETE);
    b.setName("B");
    b.addParent(a);
    return d;
  }

  @Test
  void leavesAndCompositesAreBuiltReadAndPrinted() {
    try (Domain d = twoNodes()) {
      Node a = d.getNodeByName("A");
      Expression two = number(2.5);
      Expression x = Expression.label("x");
      Expression yes = Expression.bool(true);
      Expression leafA = Expression.node(a);
      assertEquals(2.5, two.getNumber());
      assertEquals("x", x.getLabel());
      assertTrue(yes.getBoolean());
      assertFalse(Expression.bool(false).getBoolean());
      assertSame(a, leafA.getNode());
      assertEquals(Operator.NODE, leafA.getOperator());
      assertFalse(leafA.isComposite());
      assertFails(ErrorCode.USAGE, two::getLabel);
      assertFails(ErrorCode.USAGE, two::getOperands);
      assertFails(ErrorCode.USAGE, () -> Expression.label(null));

      Expression sum = composite(Operator.ADD, two, number(-1));
      Expression test = composite(Operator.IF, composite(Operator.EQUALS, leafA, x), sum, number(0));
      assertTrue(test.isComposite());
      assertEquals(Operator.IF, test.getOperator());
      assertSame(sum, test.getOperands().get(1));
      assertEquals(3, test.getOperands().size());
      assertEquals("if (A == \"x\", 2.5 + (-1), 0)", test.toString());
      assertEquals("true", yes.toString());

      // Refused composites leave their operands to their owner.
      Expression lone = number(3);
      assertFails(ErrorCode.INVALID_EXPRESSION, () -> composite(Operator.NOT, lone));
      assertFails(ErrorCode.USAGE, () -> composite(Operator.NUMBER, lone));
      assertTrue(composite(Operator.AND).isComposite());
      lone.close();
      assertFalse(lone.isAlive());
      test.close();
    }
  }

  @Test
  void sharedOperandsLiveAsLongAsTheirLastHolder() {
    Expression a = number(1);
    Expression b = number(2);
    Expression sum = composite(Operator.ADD, a, b);
    Expression square = composite(Operator.MULTIPLY, a, a);
    a.close();  // held: left alone
    assertTrue(a.isAlive());

    sum.close();
    assertFalse(sum.isAlive());
    assertFalse(b.isAlive());
    assertTrue(a.isAlive());
    assertEquals("1 * 1", square.toString());

    square.close();
    assertFalse(a.isAlive());
    assertEquals("(freed expression)", a.toString());
    assertFails(ErrorCode.USAGE, a::getNumber);
    assertFails(ErrorCode.USAGE, () -> composite(Operator.NEGATE, a));
    square.close();

    // Operands of a parsed tree are held by it the same way.
    try (Domain d = twoNodes()) {
      Model m = d.getNodeByName("B").newModel(List.of());
      Expression parsed = Expression.parse("max (1, A, 3)", m, null);
      Expression first = parsed.getOperands().get(0);
      Expression node = parsed.getOperands().get(1);
      assertSame(first, parsed.getOperands().get(0));
      assertSame(d.getNodeByName("A"), node.getNode());
      Expression kept = composite(Operator.NEGATE, first);
      parsed.close();
      assertFalse(node.isAlive());
      assertTrue(first.isAlive());
      assertEquals("-1", kept.toString());
      kept.close();
      assertFalse(first.isAlive());
    }
  }

  @Test
  void parseErrorsReachTheListener() {
    try (Domain d = twoNodes()) {
      Model m = d.getNodeByName("B").newModel(List.of());
      List<String> reports = new ArrayList<>();
      ParseListener record = (position, message) -> reports.add(position + ": " + message);

      Expression e = Expression.parse("if (A == \"y\", 1, 2 * 3)", m, record);
      assertEquals(List.of(), reports);
      assertEquals("if (A == \"y\", 1, 2 * 3)", e.toString());
      e.close();

      assertFails(ErrorCode.SYNTAX, () -> Expression.parse("Normal (1, ", m, record));
      assertEquals(1, reports.size());
      assertTrue(reports.get(0).startsWith("11: "), reports.get(0));
      // Lexical errors (an unterminated text) are "parse".
      assertFails(ErrorCode.PARSE, () -> Expression.parse("1 + \"open", m, record));
      assertEquals(2, reports.size());

      // Without a listener the errors are only counted in the code.
      assertFails(ErrorCode.SYNTAX, () -> Expression.parse("1 +", m, null));
      assertFails(ErrorCode.USAGE, () -> Expression.parse(null, m, record));
    }
  }

  @Test
  void aListenerThatThrowsEndsTheParseWithItsException() {
    try (Domain d = twoNodes()) {
      Model m = d.getNodeByName("B").newModel(List.of());
      List<String> reports = new ArrayList<>();
      ParseListener fussy = (position, message) -> {
        reports.add(message);
        throw new IllegalStateException("stop at " + position);
      };
      IllegalStateException e =
          assertThrows(IllegalStateException.class, () -> Expression.parse("Normal (1, ", m, fussy));
      assertEquals("stop at 11", e.getMessage());
      assertEquals(1, reports.size());
      assertEquals(ErrorCode.JNI.code(), kErrorCode());

      // The same for a model slot, which keeps its expression.
      m.setExpression(0, "A == \"x\"", fussy);
      assertThrows(IllegalStateException.class, () -> m.setExpression(0, "1 +", fussy));
      assertEquals(ErrorCode.JNI.code(), kErrorCode());
      assertEquals(2, reports.size());
      assertEquals("A == \"x\"", m.getExpression(0).toString());
    }
  }
}
