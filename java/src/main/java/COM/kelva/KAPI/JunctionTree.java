package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.ArrayList;
import java.util.List;

/**
 * One junction tree of a triangulated domain's junction forest.  Trees come
 * from {@link Domain#getJunctionTrees()}, {@link Node#getJunctionTree()} and
 * {@link Clique#getJunctionTree()}; the same engine tree always gives the
 * same object.  A tree dies when its forest is discarded (uncompiling, a
 * structural change, closing the domain); every method of a dead tree throws
 * a {@link KelvaException} with the code {@link ErrorCode#USAGE}.
 */
public final class JunctionTree {
  /**
   * The engine tree, set by the library when it attaches this object and set
   * to 0 when the tree dies.  (The field's name and type are part of the
   * native interface.)
   */
  long jtPeer;

  /** The domain of the forest. */
  private final Domain domain;

  JunctionTree(Domain domain) {
    this.domain = domain;
  }

  /**
   * Whether the engine tree still exists.
   *
   * @return false once the forest has been discarded
   */
  public boolean isAlive() {
    return jtPeer != 0;
  }

  /**
   * The domain whose forest holds the tree.
   *
   * @return the domain
   */
  public Domain getDomain() {
    return domain;
  }

  /**
   * The next tree of the forest.
   *
   * @return the tree, or null for the last one
   * @throws KelvaException when the tree is dead
   */
  public JunctionTree getNext() {
    return domain.treeOf(check(kJTGetNext(alive())));
  }

  /**
   * The root clique.
   *
   * @return the root
   * @throws KelvaException when the tree is dead
   */
  public Clique getRoot() {
    return domain.cliqueOf(check(kJTGetRoot(alive())));
  }

  /**
   * The tree's cliques, parents before children.
   *
   * @return the cliques in the order of their numbers
   * @throws KelvaException when the tree is dead
   */
  public List<Clique> getCliques() {
    List<Clique> result = new ArrayList<>();
    for (long c : Calls.handles(check(kJTGetCliques(alive())))) {
      result.add(domain.cliqueOf(c));
    }
    return result;
  }

  /**
   * The sum of the discrete table sizes of the tree's cliques.
   *
   * @return the size, or -1 when it does not fit in 64 bits
   * @throws KelvaException when the tree is dead
   */
  public long getTotalSize() {
    return check(kJTGetTotalSize(alive()));
  }

  /**
   * The sum over the tree's cliques of their discrete sizes times their
   * conditional-Gaussian entries per configuration.
   *
   * @return the size (0 without continuous nodes), or -1 when it does not
   *     fit in 64 bits
   * @throws KelvaException when the tree is dead
   */
  public long getTotalCGSize() {
    return check(kJTGetTotalCGSize(alive()));
  }

  /** The handle, or a "usage" exception when the tree is dead. */
  private long alive() {
    if (jtPeer == 0) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    return jtPeer;
  }
}
