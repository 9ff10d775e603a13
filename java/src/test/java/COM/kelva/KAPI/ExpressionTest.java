package COM.kelva.KAPI;

import static COM.kelva.KAPI.Expression.composite;
import static COM.kelva.KAPI.Expression.number;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.kErrorCode;
import static org.junit.jupiter.api.Assertions.*;

import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** Expressions through the Java API: building, reading, printing, parsing, lifetime. */
class ExpressionTest {
  private static void assertFails(ErrorCode code, Executable call) {
    assertEquals(code, assertThrows(KelvaException.class, call).getCode());
  }

  /** A domain with discrete nodes "A" (states "x", "y") and its child "B". */
  private static Domain twoNodes() {
    Domain d = new Domain();
    Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
    a.setName("A");
    a.setNumberOfStates(2);
    a.setStateLabel(0, "x");
    a.setStateLabel(1, "y");
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
      assertFails(ErrorCode.USAGE, x::getNumber);
      assertFails(ErrorCode.USAGE, yes::getNode);
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
      assertFails(ErrorCode.INVALID_EXPRESSION, () -> composite(Operator.NORMAL, lone));
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
  }
}
