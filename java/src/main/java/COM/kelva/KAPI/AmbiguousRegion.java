package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.ArrayList;
import java.util.List;

/**
 * A group of uncertain edges of the last {@link Domain#learnStructureNPC}
 * whose choices depend on each other, with its list of solutions.  The
 * domain's links always hold each region's first solution.  Every method
 * fails with "usage" once the domain's links differ from what NPC last
 * installed.
 */
public final class AmbiguousRegion {
  private final Domain domain;
  private final long handle;

  AmbiguousRegion(Domain domain, long handle) {
    this.domain = domain;
    this.handle = handle;
  }

  /** The region for a handle, or null for 0. */
  static AmbiguousRegion of(Domain domain, long handle) {
    return handle == 0 ? null : new AmbiguousRegion(domain, handle);
  }

  /**
   * The next region of the run.
   *
   * @return the next region, or null after the last
   */
  public AmbiguousRegion getNext() {
    return of(domain, check(kAmbiguousRegionGetNext(handle)));
  }

  /**
   * The region's uncertain edges.
   *
   * @return the edges, in the order of their nodes
   */
  public List<UncertainEdge> getEdges() {
    return UncertainEdge.list(domain, check(kAmbiguousRegionGetEdges(handle)));
  }

  /**
   * The first solution of the region's list (the installed one).
   *
   * @return the first solution
   */
  public Solution getFirstSolution() {
    return Solution.of(domain, check(kAmbiguousRegionGetFirstSolution(handle)));
  }

  /**
   * All solutions of the region's list, first to last.
   *
   * @return the solutions
   */
  public List<Solution> getSolutions() {
    List<Solution> out = new ArrayList<>();
    for (Solution s = getFirstSolution(); s != null; s = s.getNext()) {
      out.add(s);
    }
    return out;
  }

  /**
   * Replaces the region's solutions by its minimal solutions under the
   * manual decisions, fewest edges first, and installs the first.
   *
   * @throws KelvaException "usage" when more than 16 edges are undecided
   */
  public void findMinimalSolutions() {
    check(kAmbiguousRegionFindMinimalSolutions(handle));
  }
}
