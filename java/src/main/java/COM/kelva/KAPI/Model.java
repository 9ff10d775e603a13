package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * A model: describes a node's table by expressions instead of numbers, one
 * expression (slot) for each configuration of the model nodes, a subset of
 * the node's discrete parents, in configuration order (the last model node
 * varies fastest).  Table generation ({@link Node#generateTable()},
 * {@link Domain#generateTables()}) evaluates them for every configuration of
 * the node's parents.
 *
 * <p>Made by {@link Node#newModel}.  A model dies when it is deleted, when
 * its node gets a new model or dies, and when a node it refers to stops
 * being a parent of its node; every method of a dead model throws a
 * {@link KelvaException} with the code {@link ErrorCode#USAGE}, and the
 * expressions that only it held are freed.
 */
public final class Model {
  /**
   * The engine model, set by the library when it attaches this object and
   * set to 0 when the engine model dies.  (The field's name and type are part
   * of the native interface.)
   */
  long modelPeer;

  /** The node whose table the model describes. */
  private final Node node;

  /** The Java expressions known to be in slots, by index. */
  private final Map<Long, Expression> slots = new HashMap<>();

  Model(Node node) {
    this.node = node;
  }

  /** The engine handle (0 once the model is dead). */
  long handle() {
    return modelPeer;
  }

  /** A model slot as the holder of the expression in it. */
  private Expression.Holder slot(long index) {
    return e -> isAlive() && slots.get(index) == e;
  }

  /**
   * Whether the engine model still exists.
   *
   * @return false once the model has died
   */
  public boolean isAlive() {
    return modelPeer != 0;
  }

  /**
   * The node whose table the model describes.
   *
   * @return the node
   */
  public Node getNode() {
    return node;
  }

  /**
   * Deletes the model; the node's table stays as last generated.
   *
   * @throws KelvaException when the model is dead
   */
  public void delete() {
    check(kModelDelete(modelPeer));
  }

  /**
   * The model nodes, in the order given to {@link Node#newModel}.
   *
   * @return the nodes
   * @throws KelvaException when the model is dead
   */
  public List<Node> getNodes() {
    return Calls.nodes(node.getDomain(), check(kModelGetNodes(modelPeer)));
  }

  /**
   * The number of slots: the number of configurations of the model nodes
   * (1 without model nodes).
   *
   * @return the size
   * @throws KelvaException when the model is dead
   */
  public long getSize() {
    return check(kModelGetSize(modelPeer));
  }

  /**
   * Stores an expression in a slot, after checking that it can describe the
   * node's table; the model then holds it, and lets go of the slot's previous
   * expression.
   *
   * @param index the slot, below {@link #getSize()}
   * @param expression the expression, or null to empty the slot
   * @throws KelvaException "usage" for an index out of range or a freed
   *     expression, "invalid_expression" when the expression does not fit
   *     the node (a node leaf that is no parent of it, a wrong type, an
   *     operator the node cannot use)
   */
  public void setExpression(long index, Expression expression) {
    long h = expression != null ? expression.handle() : 0;
    check(kModelSetExpression(modelPeer, index, h));
    if (expression == null) {
      slots.remove(index);
      return;
    }
    slots.put(index, expression);
    expression.heldBy(slot(index));
  }

  /**
   * Parses the text of an expression, names resolved among the nodes of the
   * node's domain, and stores it in a slot as {@link #setExpression(long,
   * Expression)} does.
   *
   * @param index the slot, below {@link #getSize()}
   * @param text the text
   * @param listener receives the parse errors; may be null
   * @throws KelvaException "syntax" or "parse" when the text is no valid
   *     expression, otherwise as {@link #setExpression(long, Expression)};
   *     the slot is then unchanged
   */
  public void setExpression(long index, String text, ParseListener listener) {
    check(kModelSetExpressionFromString(modelPeer, index, text, listener));
    slots.remove(index);
  }

  /**
   * The expression in a slot.  The same Java object is returned as long as
   * the slot keeps the expression.
   *
   * @param index the slot
   * @return the expression, or null for an empty slot
   * @throws KelvaException "usage" for an index out of range
   */
  public Expression getExpression(long index) {
    long h = check(kModelGetExpression(modelPeer, index));
    if (h == 0) {
      return null;
    }
    Expression known = slots.get(index);
    if (known != null && known.rawHandle() == h) {
      return known;
    }
    Expression e = Expression.held(h, node.getDomain(), slot(index));
    slots.put(index, e);
    return e;
  }

  /**
   * Sets the number of values taken from each interval state of a parent
   * when the table is generated.
   *
   * @param count the number, at least 1
   * @throws KelvaException "usage" for 0
   */
  public void setNumberOfSamplesPerInterval(long count) {
    check(kModelSetNumberOfSamplesPerInterval(modelPeer, count));
  }

  /**
   * The number of values taken from each interval state of a parent (25 for
   * a new model).
   *
   * @return the number
   * @throws KelvaException when the model is dead
   */
  public long getNumberOfSamplesPerInterval() {
    return check(kModelGetNumberOfSamplesPerInterval(modelPeer));
  }

  /**
   * Whether the node's table must be generated again: true from the model's
   * creation and from every change that affects the table until the next
   * successful generation.  (This is the flag that the native method
   * {@code kModelTableIsGenerated} returns as stored: 1 means the table is
   * not generated yet.)
   *
   * @return true when the table needs generation
   * @throws KelvaException when the model is dead
   */
  public boolean needsGeneration() {
    return check(kModelTableIsGenerated(modelPeer)) == 1;
  }
}
