package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.List;

/**
 * A table: a function over the configurations of a list of nodes, stored in
 * configuration order (the first node varies slowest, the last fastest).
 * Tables come from {@link Node#getTable()} (and the experience and fading
 * tables) or from {@link #getMarginal}.  A table dies with its owner, or when
 * a free-standing one is deleted; every method of a dead table throws a
 * {@link KelvaException} with the code {@link ErrorCode#USAGE}.
 */
public final class Table {
  /**
   * The engine table, set by the library when it attaches this object and
   * set to 0 when the engine table dies.  (The field's name and type are part
   * of the native interface.)
   */
  long tablePeer;

  /** The domain of the table's nodes. */
  private final Domain domain;

  Table(Domain domain) {
    this.domain = domain;
  }

  /**
   * Whether the engine table still exists.
   *
   * @return false once the table has died
   */
  public boolean isAlive() {
    return tablePeer != 0;
  }

  /**
   * The table's nodes, in configuration order.
   *
   * @return the nodes
   * @throws KelvaException when the table is dead
   */
  public List<Node> getNodes() {
    return Calls.nodes(domain, check(kTableGetNodes(tablePeer)));
  }

  /**
   * The number of discrete configurations (entries).
   *
   * @return the size
   * @throws KelvaException "size_too_large" when it cannot be represented
   */
  public long getSize() {
    return check(kTableGetSize(tablePeer));
  }

  /**
   * The size times the number of continuous nodes.
   *
   * @return the conditional-Gaussian size
   * @throws KelvaException "size_too_large" when it cannot be represented
   */
  public long getCGSize() {
    return check(kTableGetCGSize(tablePeer));
  }

  /**
   * The index of a configuration.
   *
   * @param configuration one state index per discrete node, in node order
   * @return the index
   * @throws KelvaException "usage" when the array is too short or a state
   *     index is out of range
   */
  public long getIndexFromConfiguration(long[] configuration) {
    return check(kTableGetIndexFromConfiguration(tablePeer, configuration));
  }

  /**
   * The configuration of an index.
   *
   * @param index an index below the size
   * @return one state index per discrete node, in node order
   * @throws KelvaException "usage" for an index out of range
   */
  public long[] getConfigurationFromIndex(long index) {
    long discrete = getNodes().stream().filter(n -> n.getKind() == Kind.DISCRETE).count();
    long[] configuration = new long[(int) discrete];
    check(kTableGetConfigurationFromIndex(tablePeer, configuration, index));
    return configuration;
  }

  /**
   * All entries.
   *
   * @return a copy of the data
   * @throws KelvaException when the table is dead or has more entries than
   *     a Java array can hold ("usage")
   */
  public double[] getData() {
    long size = getSize();
    if (size > Integer.MAX_VALUE - 8) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    double[] data = new double[(int) size];
    if (size > 0) {
      check(kTableGetData(tablePeer, data, 0, size));
    }
    return data;
  }

  /**
   * Copies entries {@code start .. start+count-1} into {@code data[0 .. count-1]}.
   *
   * @param data the destination
   * @param start the first entry, below the size
   * @param count the number of entries, at most the size minus start and the
   *     array's length
   * @throws KelvaException "usage" for a range out of bounds
   */
  public void getData(double[] data, long start, long count) {
    check(kTableGetData(tablePeer, data, start, count));
  }

  /**
   * Replaces all entries.
   *
   * @param data one value per entry
   * @throws KelvaException "usage" when the array's length is not the size
   */
  public void setData(double[] data) {
    if (data.length != getSize()) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    setData(data, 0, data.length);
  }

  /**
   * Copies {@code data[0 .. count-1]} into entries {@code start .. start+count-1}.
   *
   * @param data the values
   * @param start the first entry, below the size
   * @param count the number of entries, at most the size minus start and the
   *     array's length
   * @throws KelvaException "usage" for a range out of bounds
   */
  public void setData(double[] data, long start, long count) {
    check(kTableSetData(tablePeer, data, start, count));
  }

  /**
   * One entry.
   *
   * @param index the entry's index
   * @return the entry
   * @throws KelvaException "usage" for an index out of range
   */
  public double getDataItem(long index) {
    return check(kTableGetDataItem(tablePeer, index));
  }

  /**
   * Sets one entry.
   *
   * @param index the entry's index
   * @param value the value
   * @throws KelvaException "usage" for an index out of range
   */
  public void setDataItem(long index, double value) {
    check(kTableSetDataItem(tablePeer, index, value));
  }

  /**
   * Sets every entry.
   *
   * @param value the value
   * @throws KelvaException when the table is dead
   */
  public void setAllDataItems(double value) {
    check(kTableSetAllDataItems(tablePeer, value));
  }

  /**
   * The mean of a continuous node in a discrete configuration.
   *
   * @param index the configuration's index
   * @param node a continuous node of the table
   * @return the mean
   * @throws KelvaException "usage" for an index or node not in the table
   */
  public double getMean(long index, Node node) {
    return check(kTableGetMean(tablePeer, index, node.handle()));
  }

  /**
   * The variance of a continuous node in a discrete configuration.
   *
   * @param index the configuration's index
   * @param node a continuous node of the table
   * @return the variance
   * @throws KelvaException "usage" for an index or node not in the table
   */
  public double getVariance(long index, Node node) {
    return check(kTableGetVariance(tablePeer, index, node.handle()));
  }

  /**
   * The covariance of two continuous nodes in a discrete configuration.
   *
   * @param index the configuration's index
   * @param node1 a continuous node of the table
   * @param node2 a continuous node of the table
   * @return the covariance
   * @throws KelvaException "usage" for an index or node not in the table
   */
  public double getCovariance(long index, Node node1, Node node2) {
    return check(kTableGetCovariance(tablePeer, index, node1.handle(), node2.handle()));
  }

  /**
   * Multiplies this table by another in place.
   *
   * @param other a table whose nodes are all among this table's
   * @throws KelvaException "usage" when they are not
   */
  public void multiply(Table other) {
    check(kTableMultiply(tablePeer, other.tablePeer));
  }

  /**
   * Divides this table by another in place; an entry whose divisor is not
   * positive is left as it is.
   *
   * @param other a table whose nodes are all among this table's
   * @throws KelvaException "usage" when they are not
   */
  public void divide(Table other) {
    check(kTableDivide(tablePeer, other.tablePeer));
  }

  /**
   * A new free-standing table over some of this table's nodes, summing or
   * maximising over the others.  Delete it with {@link #delete()} when done
   * (it is freed with its domain otherwise).
   *
   * @param nodes some of this table's nodes
   * @param method {@link Equilibrium#SUM} or {@link Equilibrium#MAX}
   * @return the marginal
   * @throws KelvaException "usage" for a node not in the table or
   *     {@link Equilibrium#NONE}
   */
  public Table getMarginal(List<Node> nodes, Equilibrium method) {
    Table marginal = new Table(domain);
    Calls.withList(nodes, list -> kTableGetMarginal(tablePeer, list, method.code(), marginal));
    check();
    return marginal;
  }

  /**
   * Reorders the table's nodes, permuting the data to the new configuration
   * order.
   *
   * @param nodes the same nodes in the new order
   * @throws KelvaException "usage" when they are not the table's nodes
   */
  public void reorderNodes(List<Node> nodes) {
    Calls.withList(nodes, list -> kTableReorderNodes(tablePeer, list));
    check();
  }

  /**
   * Copies another table's contents into this one.
   *
   * @param other a table of the same size and conditional-Gaussian dimension
   * @throws KelvaException "usage" when the shapes differ
   */
  public void update(Table other) {
    check(kTableUpdate(tablePeer, other.tablePeer));
  }

  /**
   * Deletes a free-standing table, or a node's experience or fading table.
   * A node's own table belongs to the node: the request is ignored and the
   * table stays alive.
   *
   * @throws KelvaException when the table is dead
   */
  public void delete() {
    check(kTableDelete(tablePeer));
  }
}
