package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.ArrayList;
import java.util.List;

/**
 * A pair of nodes that NPC's tests unlinked by a statement failing the
 * necessary path condition; whether it is linked is for the user to decide.
 */
public final class UncertainEdge {
  private final Domain domain;
  private final long handle;

  private UncertainEdge(Domain domain, long handle) {
    this.domain = domain;
    this.handle = handle;
  }

  /** The edges of an engine list. */
  static List<UncertainEdge> list(Domain domain, long list) {
    List<UncertainEdge> out = new ArrayList<>();
    for (long h : Calls.handles(list)) {
      out.add(new UncertainEdge(domain, h));
    }
    return out;
  }

  /**
   * The older of the edge's two nodes.
   *
   * @return the first node
   */
  public Node getFirstNode() {
    return domain.nodeOf(check(kUncertainEdgeGetFirstNode(handle)));
  }

  /**
   * The newer of the edge's two nodes.
   *
   * @return the second node
   */
  public Node getSecondNode() {
    return domain.nodeOf(check(kUncertainEdgeGetSecondNode(handle)));
  }

  /**
   * Decides that the edge is present or absent: the region's solutions are
   * recomputed to those that agree and the first is installed.
   *
   * @param present whether the two nodes are linked
   * @throws KelvaException "usage" and no change when no solution agrees
   */
  public void manualDecision(boolean present) {
    check(kUncertainEdgeManualDecision(handle, present ? 1 : 0));
  }

  /** Edges are equal when they are the same engine edge. */
  @Override
  public boolean equals(Object other) {
    return other instanceof UncertainEdge e && e.handle == handle;
  }

  /** A hash of the engine edge. */
  @Override
  public int hashCode() {
    return Long.hashCode(handle);
  }
}
