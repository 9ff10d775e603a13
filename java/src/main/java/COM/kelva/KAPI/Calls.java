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
    if (list == 0) {
      return result;
    }
    for (long i = 0; ; i++) {
      long node = kListGetItem(list, i);
      if (node == 0) {
        return result;
      }
      result.add(domain.nodeOf(node));
    }
  }

  /**
   * Calls {@code call} with a temporary engine list of {@code nodes}, and
   * returns its result.  The list is freed afterwards.
   */
  static long withList(List<Node> nodes, LongUnaryOperator call) {
    long list = kNewList(nodes.size() + 1L);
    if (list == 0) {
      throw new KelvaException(ErrorCode.NO_MEMORY);
    }
    try {
      long i = 0;
      for (Node node : nodes) {
        // A deleted node (handle 0) would end the list early.
        if (node.handle() == 0) {
          throw new KelvaException(ErrorCode.USAGE);
        }
        kListSetItem(list, i++, node.handle());
      }
      kListSetItem(list, i, 0);
      return call.applyAsLong(list);
    } finally {
      kListDelete(list);
    }
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
