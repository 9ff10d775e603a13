package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.List;

/**
 * One way to resolve an {@link AmbiguousRegion}: the uncertain edges it puts
 * back.  Valid until its region's list is recomputed.
 */
public final class Solution {
  private final Domain domain;
  private final long handle;

  private Solution(Domain domain, long handle) {
    this.domain = domain;
    this.handle = handle;
  }

  /** The solution for a handle, or null for 0. */
  static Solution of(Domain domain, long handle) {
    return handle == 0 ? null : new Solution(domain, handle);
  }

  /**
   * The next solution of the region's list.
   *
   * @return the next solution, or null after the last
   */
  public Solution getNext() {
    return of(domain, check(kSolutionGetNext(handle)));
  }

  /**
   * The uncertain edges this solution puts back.
   *
   * @return the edges (empty when all of them can stay out)
   */
  public List<UncertainEdge> getEdges() {
    return UncertainEdge.list(domain, check(kSolutionGetEdges(handle)));
  }
}
