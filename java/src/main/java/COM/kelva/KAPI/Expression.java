package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/**
 * An expression: a tree that describes a value (a number, a state label, a
 * truth value) or a probability distribution.  {@link Model}s describe
 * tables with expressions.
 *
 * <p>Leaves are made by {@link #number}, {@link #label}, {@link #bool} and
 * {@link #node}, composites by {@link #composite} from their operands, whole
 * trees by {@link #parse}.  A tree is fixed in shape once built.  Operands
 * are shared, not copied: one expression may be an operand of several
 * composites and be stored in several model slots.
 *
 * <p>An expression that nothing holds belongs to its creator, who frees it
 * with {@link #close()}.  Giving it to a composite or a model hands it over:
 * from then on it lives as long as one of its holders does and is freed with
 * the last of them, and {@link #close()} does nothing.  Every other method of
 * a freed expression throws a {@link KelvaException} with the code
 * {@link ErrorCode#USAGE}.  An expression is used by one thread at a time.
 */
public final class Expression implements AutoCloseable {
  /** Something that keeps an expression alive: a composite or a model slot. */
  interface Holder {
    /**
     * Whether the holder still holds {@code e}.  Once false, it stays false.
     */
    boolean holds(Expression e);
  }

  /** The engine expression, 0 once freed. */
  private long handle;

  /** The domain whose nodes the tree's node leaves are, when known. */
  private final Domain domain;

  /** The Java node of a node leaf made by {@link #node}, else null. */
  private Node node;

  /** Who holds the expression; null while it has never been held. */
  private List<Holder> holders;

  /** The Java objects of a composite's operands, once known. */
  private List<Expression> operands;

  /** A composite holds its operands as long as it lives. */
  private final Holder asHolder = operand -> isAlive();

  private Expression(long handle, Domain domain) {
    this.handle = handle;
    this.domain = domain;
  }

  /** A Java object for an expression that {@code holder} holds. */
  static Expression held(long handle, Domain domain, Holder holder) {
    Expression e = new Expression(handle, domain);
    e.heldBy(holder);
    return e;
  }

  /** Records a new holder of the expression. */
  void heldBy(Holder holder) {
    if (holders == null) {
      holders = new ArrayList<>();
    }
    holders.add(holder);
  }

  /** The engine handle of a live expression. */
  long handle() {
    if (!isAlive()) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    return handle;
  }

  /** The engine handle, 0 once freed. */
  long rawHandle() {
    return isAlive() ? handle : 0;
  }

  /**
   * A number leaf.
   *
   * @param value the number
   * @return the new expression
   * @throws KelvaException "no_memory" when the engine runs out of memory
   */
  public static Expression number(double value) {
    return new Expression(check(kNumberMakeExpression(value)), null);
  }

  /**
   * A label leaf, standing for the state with that label.
   *
   * @param label the label
   * @return the new expression
   * @throws KelvaException "usage" for null
   */
  public static Expression label(String label) {
    return new Expression(check(kLabelMakeExpression(label)), null);
  }

  /**
   * A truth-value leaf.
   *
   * @param value the value
   * @return the new expression
   * @throws KelvaException "no_memory" when the engine runs out of memory
   */
  public static Expression bool(boolean value) {
    return new Expression(check(kBooleanMakeExpression(value ? 1 : 0)), null);
  }

  /**
   * A node leaf: the value of a continuous node, or the state of a discrete
   * one.
   *
   * @param node the node
   * @return the new expression
   * @throws KelvaException "usage" for an instance node or a dead node
   */
  public static Expression node(Node node) {
    Expression e = new Expression(check(kNodeMakeExpression(node.handle())), node.getDomain());
    e.node = node;
    return e;
  }

  /**
   * A composite.  The new expression holds its operands.
   *
   * @param operator an operator that takes operands
   * @param operands the operands, in order
   * @return the new expression
   * @throws KelvaException "invalid_expression" for a wrong number or type
   *     of operands (the operands are then untouched), "usage" for a leaf
   *     operator or a freed operand
   */
  public static Expression composite(Operator operator, List<Expression> operands) {
    List<Expression> given = List.copyOf(operands);
    long[] handles = new long[given.size()];
    Domain domain = null;
    for (int i = 0; i < handles.length; i++) {
      Expression o = given.get(i);
      handles[i] = o.handle();
      domain = domain != null ? domain : o.domain;
    }
    long h = Calls.withHandles(handles, list -> kMakeCompositeExpression(operator.code(), list));
    check();
    Expression e = new Expression(h, domain);
    e.operands = given;
    for (Expression o : given) {
      o.heldBy(e.asHolder);
    }
    return e;
  }

  /**
   * A composite.  The new expression holds its operands.
   *
   * @param operator an operator that takes operands
   * @param operands the operands, in order
   * @return the new expression
   * @throws KelvaException as {@link #composite(Operator, List)}
   */
  public static Expression composite(Operator operator, Expression... operands) {
    return composite(operator, Arrays.asList(operands));
  }

  /**
   * Parses the text of an expression.  Node names are looked up among the
   * nodes of the domain of the model's node.
   *
   * @param text the text
   * @param model the model whose node's domain resolves names
   * @param listener receives the errors; may be null
   * @return the new expression
   * @throws KelvaException "syntax" or "parse" when the text is no valid
   *     expression, "usage" for a null text or a dead model
   */
  public static Expression parse(String text, Model model, ParseListener listener) {
    long h = kStringParseExpression(text, model.handle(), listener);
    check();
    return new Expression(h, model.getNode().getDomain());
  }

  /**
   * Whether the expression is still alive.
   *
   * @return false once it has been freed
   */
  public boolean isAlive() {
    if (handle != 0 && holders != null) {
      holders.removeIf(h -> !h.holds(this));
      if (holders.isEmpty()) {
        handle = 0;
      }
    }
    return handle != 0;
  }

  /**
   * Frees an expression that nothing holds; a composite then lets go of its
   * operands, and those that nothing else holds are freed as well.  An
   * expression held by a composite or a model is left alone: it is freed
   * with its last holder.  Does nothing for a freed expression.
   *
   * @throws KelvaException when the engine refuses
   */
  @Override
  public void close() {
    if (!isAlive() || holders != null) {
      return;
    }
    kExpressionDelete(handle);
    check();
    handle = 0;
  }

  /**
   * Whether the expression is a composite.
   *
   * @return true for a composite, false for a leaf
   * @throws KelvaException when the expression is freed
   */
  public boolean isComposite() {
    return check(kExpressionIsComposite(handle())) == 1;
  }

  /**
   * The operator; leaves have the operators of their sort.
   *
   * @return the operator
   * @throws KelvaException when the expression is freed
   */
  public Operator getOperator() {
    return Operator.fromCode(check(kExpressionGetOperator(handle())));
  }

  /**
   * The operands of a composite, in order.  The same Java objects are
   * returned each time.
   *
   * @return the operands
   * @throws KelvaException "usage" for a leaf
   */
  public List<Expression> getOperands() {
    long h = handle();
    if (operands == null) {
      List<Expression> found = new ArrayList<>();
      for (long o : Calls.handles(check(kExpressionGetOperands(h)))) {
        found.add(held(o, domain, asHolder));
      }
      operands = found;
    }
    return List.copyOf(operands);
  }

  /**
   * The value of a number leaf.
   *
   * @return the number
   * @throws KelvaException "usage" for another sort of expression
   */
  public double getNumber() {
    return check(kExpressionGetNumber(handle()));
  }

  /**
   * The text of a label leaf.
   *
   * @return the label
   * @throws KelvaException "usage" for another sort of expression
   */
  public String getLabel() {
    return check(kExpressionGetLabel(handle()));
  }

  /**
   * The value of a truth-value leaf.
   *
   * @return the value
   * @throws KelvaException "usage" for another sort of expression
   */
  public boolean getBoolean() {
    return check(kExpressionGetBoolean(handle())) == 1;
  }

  /**
   * The node of a node leaf.
   *
   * @return the node (dead when it has been deleted since)
   * @throws KelvaException "usage" for another sort of expression
   */
  public Node getNode() {
    long n = check(kExpressionGetNode(handle()));
    if (node == null) {
      node = domain.nodeOf(n);
    }
    return node;
  }

  /**
   * The text form of the expression, which {@link #parse} reads back.
   *
   * @return the text, or {@code "(freed expression)"} once it is freed
   */
  @Override
  public String toString() {
    if (!isAlive()) {
      return "(freed expression)";
    }
    return check(kExpressionToString(handle));
  }
}
