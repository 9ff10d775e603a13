package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.ArrayList;
import java.util.List;

/**
 * One clique of a junction tree.  The same engine clique always gives the
 * same object.  A clique dies with its junction forest; every method of a
 * dead clique throws a {@link KelvaException} with the code
 * {@link ErrorCode#USAGE}.
 */
public final class Clique {
  /**
   * The engine clique, set by the library when it attaches this object and
   * set to 0 when the clique dies.  (The field's name and type are part of
   * the native interface.)
   */
  long cliquePeer;

  /** The domain of the forest. */
  private final Domain domain;

  Clique(Domain domain) {
    this.domain = domain;
  }

  /**
   * Whether the engine clique still exists.
   *
   * @return false once the forest has been discarded
   */
  public boolean isAlive() {
    return cliquePeer != 0;
  }

  /**
   * The clique's members, in the order of its table (discrete nodes first).
   *
   * @return the members
   * @throws KelvaException when the clique is dead
   */
  public List<Node> getMembers() {
    return Calls.nodes(domain, check(kCliqueGetMembers(alive())));
  }

  /**
   * The cliques linked to this one in its junction tree.
   *
   * @return the neighbours, in the order the links were made
   * @throws KelvaException when the clique is dead
   */
  public List<Clique> getNeighbors() {
    List<Clique> result = new ArrayList<>();
    for (long c : Calls.handles(check(kCliqueGetNeighbors(alive())))) {
      result.add(domain.cliqueOf(c));
    }
    return result;
  }

  /**
   * The junction tree that holds the clique.
   *
   * @return the tree
   * @throws KelvaException when the clique is dead
   */
  public JunctionTree getJunctionTree() {
    return domain.treeOf(check(kCliqueGetJunctionTree(alive())));
  }

  // ---- Propagation ----

  /**
   * Propagates the entered evidence through the clique's junction tree with
   * this clique as the root.
   *
   * @param equilibrium {@link Equilibrium#SUM} or {@link Equilibrium#MAX}
   * @param mode the evidence mode
   * @throws KelvaException as {@link Domain#propagate}
   */
  public void propagate(Equilibrium equilibrium, EvidenceMode mode) {
    check(kCliquePropagate(alive(), equilibrium.code(), mode.code()));
  }

  /**
   * The clique's conflict factor from the last propagation.
   *
   * @return the factor
   * @throws KelvaException "usage" for a domain with decision nodes or a tree
   *     not in sum equilibrium, "no_equilibrium", "cg_evidence_incorporated"
   */
  public double getConflict() {
    return check(kCliqueGetConflict(alive()));
  }

  /** The handle, or a "usage" exception when the clique is dead. */
  private long alive() {
    if (cliquePeer == 0) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    return cliquePeer;
  }
}
