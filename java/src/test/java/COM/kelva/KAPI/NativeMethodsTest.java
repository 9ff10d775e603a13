package COM.kelva.KAPI;

import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;
import static org.junit.jupiter.api.Assertions.*;

import COM.kelva.KAPI.Native.AbstractNativeKAPI;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.HashSet;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;

/** The native methods themselves, called directly. */
class NativeMethodsTest {
  private static final Set<String> LIST_ACCESS =
      Set.of("kNewList", "kListGetItem", "kListSetItem", "kListDelete");
  private static final Set<String> SCORES =
      Set.of("kDomainGetLogLikelihood", "kDomainGetAIC", "kDomainGetBIC");

  /** The natives of an object's family, which take its handle first. */
  private static final Pattern HANDLE_FAMILY = Pattern.compile(
      "k(Domain|Node|DS|Table|JT|Class|CC|Model|Expression|Clique|List|Attribute|Solution"
          + "|AmbiguousRegion|UncertainEdge)[A-Z]");

  /** The zero of each primitive parameter type; other parameters get null. */
  private static final Map<Class<?>, Object> ZERO =
      Map.of(long.class, 0L, int.class, 0, double.class, 0.0);

  @Test
  void everyNativeIsStaticUniqueAndLinkedAndRefusesNullHandles() throws Exception {
    Set<String> names = new HashSet<>();
    for (Method m : AbstractNativeKAPI.class.getDeclaredMethods()) {
      int mod = m.getModifiers();
      if (!Modifier.isNative(mod)) {
        continue;
      }
      String name = m.getName();
      assertTrue(Modifier.isStatic(mod) && Modifier.isPublic(mod), name);
      assertTrue(names.add(name), "overloaded: " + name);
      Class<?>[] params = m.getParameterTypes();
      boolean ofObject = HANDLE_FAMILY.matcher(name).lookingAt();
      assertTrue(!ofObject || params[0] == long.class, name + " takes its handle first");
      if (!ofObject || LIST_ACCESS.contains(name) || name.equals("kExpressionToString")) {
        continue;
      }
      // Every other native with a null handle (and null or zero arguments):
      // linked, no crash, "usage" and a neutral result.
      Object[] args = new Object[params.length];
      for (int i = 0; i < args.length; i++) {
        args[i] = ZERO.get(params[i]);
      }
      Object result = m.invoke(null, args);
      assertEquals(ErrorCode.USAGE.code(), kErrorCode(), name);
      Class<?> r = m.getReturnType();
      if (r == String.class) {
        assertNull(result, name);
      } else if (r == double.class) {
        // The scores of EM fail with 1.0, an impossible log-likelihood.
        assertEquals(SCORES.contains(name) ? 1.0 : -1.0, (double) result, name);
      } else if (r == long.class) {
        long v = (long) result;
        assertTrue(v == 0 || v == -1, name + " returned " + v);
      } else if (r == int.class && !name.endsWith("Coordinate")) {
        assertNotEquals(0, (int) result, name);
      }
    }
    assertTrue(names.contains("kNodeGetTable"));

    // The documented neutral values, among them the three odd ones.
    assertEquals(-1, kNodeGetCategory(0));
    assertEquals(-2, kNodeGetKind(0));
    assertEquals(34, kNodeGetSubtype(0));
    assertEquals(-1L, kNodeGetNumberOfStates(0));
    assertEquals(-1L, kDomainGetGrainSize(0));
    assertEquals(-1, kDomainIsCompiled(0));
    assertEquals(0L, kNodeGetParents(0));
    assertEquals(-1L, kTableGetIndexFromConfiguration(0, new long[] {0}));
    assertEquals(ErrorCode.USAGE.code(), kErrorCode());
    assertEquals(117, kExpressionGetOperator(0));
    assertEquals(-1L, kModelGetNumberOfSamplesPerInterval(0));
    // A null expression prints as the empty text, without error.
    assertEquals("", kExpressionToString(0));
    assertEquals(0, kErrorCode());
  }

  @Test
  void errorDescriptionsMatchTheEnumAndUnknownCodesHaveNone() {
    for (int code = -1; code <= 49; code++) {
      ErrorCode e = ErrorCode.fromCode(code);
      String expected = e != null ? e.description() : "No such error.";
      assertEquals(expected, kErrorDescription(code), "code " + code);
      if (e != null) {
        assertEquals(code, e.code());
      }
    }
    assertNull(ErrorCode.fromCode(44));
    assertEquals(ErrorCode.ERROR, ErrorCode.fromCode(48));
    assertTrue(kErrorDescription(48).startsWith("This is an \"impossible\" error."));
    assertEquals(49 - 3, ErrorCode.values().length);
  }

  @Test
  void errorCodesArePerThread() throws Exception {
    kNodeGetName(0);
    assertEquals(ErrorCode.USAGE.code(), kErrorCode());

    AtomicInteger fresh = new AtomicInteger(-1);
    AtomicInteger afterFailure = new AtomicInteger(-1);
    Thread other = new Thread(() -> {
      fresh.set(kErrorCode());
      kDomainSetGrainSize(0, 1);
      afterFailure.set(kErrorCode());
    });
    other.start();
    other.join();
    assertEquals(0, fresh.get());
    assertEquals(ErrorCode.USAGE.code(), afterFailure.get());

    // This thread keeps its own code until its next call, which resets it.
    assertEquals(ErrorCode.USAGE.code(), kErrorCode());
    long domain = kNewDomain();
    assertEquals(0, kErrorCode());
    assertEquals(0, kDomainDelete(domain));
  }

  @Test
  void listsHoldHandlesWithoutTouchingTheErrorCode() {
    kNodeGetName(0);
    long list = kNewList(3);
    assertNotEquals(0, list);
    assertEquals(42L, kListSetItem(list, 0, 42));
    assertEquals(-7L, kListSetItem(list, 1, -7));
    assertEquals(0L, kListSetItem(list, 2, 0));
    assertEquals(42L, kListGetItem(list, 0));
    assertEquals(-7L, kListGetItem(list, 1));
    assertEquals(0L, kListGetItem(list, 2));
    kListDelete(list);

    // A byte size that overflows saturates, and that allocation fails.
    assertEquals(0L, kNewList(1L << 61));
    assertEquals(0L, kNewList(-1));
    assertEquals(ErrorCode.USAGE.code(), kErrorCode());

    // Lists kept by the engine end with a 0 slot too.
    try (Domain d = new Domain()) {
      Node a = d.newNode(Category.CHANCE, Kind.DISCRETE);
      Node b = d.newNode(Category.CHANCE, Kind.DISCRETE);
      b.addParent(a);
      long parents = kNodeGetParents(b.handle());
      assertEquals(a.handle(), kListGetItem(parents, 0));
      assertEquals(0L, kListGetItem(parents, 1));
    }
  }

  @Test
  void textsCrossInBothDirections() {
    try (Domain d = new Domain()) {
      Node n = d.newNode(Category.CHANCE, Kind.DISCRETE);
      long h = n.handle();
      assertEquals(0, kNodeSetNumberOfStates(h, 2));
      assertEquals(0, kNodeSetStateLabel(h, 1, "h\u00e9\u20ac\ud83d\ude00"));
      assertEquals("", kNodeGetStateLabel(h, 0));
      assertEquals("h\u00e9\u20ac\ud83d\ude00", kNodeGetStateLabel(h, 1));
      assertEquals(1L, kNodeGetStateIndexFromLabel(h, "h\u00e9\u20ac\ud83d\ude00"));
      assertEquals(0, kErrorCode());

      // A null text where one is required is "usage"; an attribute value of
      // null removes the attribute; a missing attribute is a null string.
      assertNotEquals(0, kNodeSetName(h, null));
      assertEquals(ErrorCode.USAGE.code(), kErrorCode());
      assertEquals(0, kNodeSetAttribute(h, "k", "v"));
      assertEquals(0, kNodeSetAttribute(h, "k", null));
      assertNull(kNodeGetAttribute(h, "k"));
      assertEquals(0, kErrorCode());

      // A null element of a state order is refused before the engine runs.
      assertNotEquals(0, kNodeReorderStates(h, new String[] {"h\u00e9\u20ac\ud83d\ude00", null}));
      assertEquals(ErrorCode.USAGE.code(), kErrorCode());
      assertEquals(0, kNodeReorderStates(h, new String[] {"h\u00e9\u20ac\ud83d\ude00", ""}));
      assertEquals("", kNodeGetStateLabel(h, 1));
    }
  }

  @Test
  void nodeCreationFailureKeepsNoPeer() {
    try (Domain d = new Domain()) {
      Node decision = d.newNode(Category.DECISION, Kind.DISCRETE);
      KelvaException e = assertThrows(KelvaException.class,
          () -> d.newNode(Category.CHANCE, Kind.CONTINUOUS));
      assertEquals(ErrorCode.CG_LIMIDS_NOT_SUPPORTED, e.getCode());
      assertThrows(KelvaException.class, () -> d.newNode(Category.UTILITY, Kind.DISCRETE));
      assertEquals(0L, kDomainNewNode(d.handle(), 7, 0, 30, null));
      assertEquals(ErrorCode.USAGE.code(), kErrorCode());
      assertEquals(java.util.List.of(decision), d.getNodes());
    }
  }
}
