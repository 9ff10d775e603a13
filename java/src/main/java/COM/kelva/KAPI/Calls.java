package COM.kelva.KAPI;

import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.ArrayList;
import java.util.List;
import java.util.function.LongUnaryOperator;

/** What every class of the package does around its native calls. */
final class Calls {
  private Calls() {}

  /** Throws the error left by the last native call on this thread, if any. */
  static void check() {
    int code = kErrorCode();
    if (code != 0) {
      ErrorCode error = ErrorCode.fromCode(code);
      throw new KelvaException(error != null ? error : ErrorCode.ERROR);
    }
  }

  /** Checks the last call and returns its (long) result. */
  static long check(long result) {
    check();
    return result;
  }

  /** Checks the last call and returns its (int) result. */
  static int check(int result) {
    check();
    return result;
  }

  /** Checks the last call and returns its (double) result. */
  static double check(double result) {
    check();
    return result;
  }

  /** Checks the last call and returns its result. */
  static <T> T check(T result) {
    check();
    return result;
  }

  /** The nodes of an engine node list, in list order. */
  static List<Node> nodes(Domain domain, long list) {
    List<Node> result = new ArrayList<>();
    for (long h : handles(list)) {
      result.add(domain.nodeOf(h));
    }
    return result;
  }

  /**
   * Calls {@code call} with a temporary engine list of {@code nodes}, and
   * returns its result.  The list is freed afterwards.
   */
  static long withList(List<Node> nodes, LongUnaryOperator call) {
    long[] handles = new long[nodes.size()];
    int i = 0;
    for (Node node : nodes) {
      handles[i++] = node.handle();
    }
    return withHandles(handles, call);
  }

  /**
   * Calls {@code call} with a temporary engine list of {@code handles}, and
   * returns its result.  The list is freed afterwards.
   */
  static long withHandles(long[] handles, LongUnaryOperator call) {
    // A handle of 0 (a dead object) would end the list early.
    for (long h : handles) {
      if (h == 0) {
        throw new KelvaException(ErrorCode.USAGE);
      }
    }
    long list = kNewList(handles.length + 1L);
    if (list == 0) {
      throw new KelvaException(ErrorCode.NO_MEMORY);
    }
    try {
      for (int i = 0; i < handles.length; i++) {
        kListSetItem(list, i, handles[i]);
      }
      kListSetItem(list, handles.length, 0);
      return call.applyAsLong(list);
    } finally {
      kListDelete(list);
    }
  }

  /** The handles of an engine list, in list order (none for 0). */
  static List<Long> handles(long list) {
    List<Long> result = new ArrayList<>();
    for (long i = 0; list != 0; i++) {
      long h = kListGetItem(list, i);
      if (h == 0) {
        break;
      }
      result.add(h);
    }
    return result;
  }

  /** The entries of an attribute list starting at {@code first}. */
  static List<Attribute> attributes(long first) {
    List<Attribute> result = new ArrayList<>();
    for (long a = first; a != 0; a = check(kAttributeGetNext(a))) {
      String key = check(kAttributeGetKey(a));
      String value = check(kAttributeGetValue(a));
      result.add(new Attribute(key, value));
    }
    return result;
  }
}
