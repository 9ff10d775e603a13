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

  // ---- Evidence, equilibrium and propagation ----

  /**
   * Whether a propagation of the tree would incorporate evidence: some
   * node's evidence changed, or the tree must be rebuilt from the node
   * tables.
   *
   * @return true when there is evidence to propagate
   * @throws KelvaException when the tree is dead
   */
  public boolean evidenceToPropagate() {
    return check(kJTEvidenceToPropagate(alive())) == 1;
  }

  /**
   * Whether the tree's last propagation included evidence.
   *
   * @return true when it did
   * @throws KelvaException "no_equilibrium" when the tree holds no
   *     equilibrium
   */
  public boolean evidenceIsPropagated() {
    return check(kJTEvidenceIsPropagated(alive())) == 1;
  }

  /**
   * Whether the tree's last propagation included a likelihood.
   *
   * @return true when it did
   * @throws KelvaException "no_equilibrium" when the tree holds no
   *     equilibrium
   */
  public boolean likelihoodIsPropagated() {
    return check(kJTLikelihoodIsPropagated(alive())) == 1;
  }

  /**
   * Whether the tree's last propagation included evidence on continuous
   * nodes.
   *
   * @return true when it did
   * @throws KelvaException "no_equilibrium" when the tree holds no
   *     equilibrium
   */
  public boolean cgEvidenceIsPropagated() {
    return check(kJTCGEvidenceIsPropagated(alive())) == 1;
  }

  /**
   * Whether node tables of the tree changed since its last propagation.
   *
   * @return true when a propagation would start from the node tables
   * @throws KelvaException when the tree is dead
   */
  public boolean tablesToPropagate() {
    return check(kJTTablesToPropagate(alive())) == 1;
  }

  /**
   * Whether the tree is in the given equilibrium.
   *
   * @param equilibrium {@link Equilibrium#SUM} or {@link Equilibrium#MAX}
   * @return true when it is
   * @throws KelvaException "usage" for {@link Equilibrium#NONE}
   */
  public boolean equilibriumIs(Equilibrium equilibrium) {
    return check(kJTEquilibriumIs(alive(), equilibrium.code())) == 1;
  }

  /**
   * Whether the tree's evidence was propagated in the given mode (a tree
   * without propagated evidence is in every mode).
   *
   * @param mode the mode
   * @return true when it was
   * @throws KelvaException "no_equilibrium" when the tree holds no
   *     equilibrium
   */
  public boolean evidenceModeIs(EvidenceMode mode) {
    return check(kJTEvidenceModeIs(alive(), mode.code())) == 1;
  }

  /**
   * Propagates the entered evidence through this tree only.
   *
   * @param equilibrium {@link Equilibrium#SUM} or {@link Equilibrium#MAX}
   * @param mode the evidence mode
   * @throws KelvaException as {@link Domain#propagate}
   */
  public void propagate(Equilibrium equilibrium, EvidenceMode mode) {
    check(kJTPropagate(alive(), equilibrium.code(), mode.code()));
  }

  /**
   * The conflict value of the evidence propagated into the tree.
   *
   * @return the conflict value
   * @throws KelvaException "usage" for a domain with decision nodes or a tree
   *     not in sum equilibrium, "no_equilibrium", "cg_evidence_incorporated"
   */
  public double getConflict() {
    return check(kJTGetConflict(alive()));
  }

  /** The handle, or a "usage" exception when the tree is dead. */
  private long alive() {
    if (jtPeer == 0) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    return jtPeer;
  }
}
