package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.HashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;

/**
 * The classes of object-oriented networks, with distinct names: made empty
 * and filled with {@link #newClass}, {@link #addDomain} or by reading NET
 * class files ({@link #parseClasses}).  The collection owns its classes;
 * {@link #close()} frees them all, after which every {@link NetworkClass},
 * its network and its nodes are dead.  A collection and its classes are used
 * by one thread at a time.
 */
public final class ClassCollection implements AutoCloseable {
  /**
   * Asked by {@link #parseClasses} for a class that an instance in the file
   * names but the collection does not have.
   */
  @FunctionalInterface
  public interface Loader {
    /**
     * Adds the class {@code name} to {@code collection}, for example by
     * reading its own file with {@link ClassCollection#parseClasses}.  When
     * the class is not there afterwards (or this method throws), the parse
     * fails with "loading class `NAME' failed".
     *
     * @param name the name of the missing class
     * @param collection the collection being read into
     */
    void insertClass(String name, ClassCollection collection);
  }

  /** The engine collection, 0 once closed. */
  private long handle;

  /** The Java class of every live engine class of the collection, by handle. */
  private final Map<Long, NetworkClass> classes = new HashMap<>();

  /**
   * Creates an empty collection.
   *
   * @throws KelvaException when the engine runs out of memory
   */
  public ClassCollection() {
    handle = check(kNewClassCollection());
  }

  /** A collection the engine has made; its classes get Java objects on first use. */
  private ClassCollection(long handle) {
    this.handle = handle;
  }

  /**
   * Loads a class collection from a KB file saved by {@link #saveAsKB}.
   *
   * @param fileName the file
   * @param password the password of a protected file; null or empty for an
   *     unprotected one (ignored then)
   * @return the collection, to close by the caller
   * @throws KelvaException "io" when the file cannot be read,
   *     "bad_kb_format" for a damaged file, "bad_kb_version",
   *     "bad_kb_type" for a file that holds a domain, "bad_kb_password"
   */
  public static ClassCollection fromKBFile(String fileName, String password) {
    return new ClassCollection(check(kKBLoadClassCollection(fileName, password)));
  }

  /**
   * Saves the collection as a KB file: its classes with every number
   * exact; read it back with {@link #fromKBFile}.
   *
   * @param fileName the file
   * @param password encrypts the file when neither null nor empty
   * @throws KelvaException "io" when the file cannot be written
   */
  public void saveAsKB(String fileName, String password) {
    check(kCCSaveAsKB(handle, fileName, password));
  }

  /** The engine handle (0 once closed). */
  long handle() {
    return handle;
  }

  /**
   * Deletes the collection with its classes.  Does nothing when it is
   * already closed.
   */
  @Override
  public void close() {
    if (handle == 0) {
      return;
    }
    kCCDelete(handle);
    check();
    handle = 0;
    for (NetworkClass c : classes.values()) {
      c.die();
    }
    classes.clear();
  }

  /**
   * Whether the collection is still open.
   *
   * @return false once {@link #close()} has run
   */
  public boolean isAlive() {
    return handle != 0;
  }

  /**
   * Creates an empty class.
   *
   * @param name the class name, one identifier
   * @return the class
   * @throws KelvaException "invalid_name" for a name that is not one
   *     identifier, "twice" when the collection has a class of that name,
   *     "usage" for null or a closed collection
   */
  public NetworkClass newClass(String name) {
    return classOf(check(kCCNewClass(handle, name)));
  }

  /**
   * The class named {@code name}.
   *
   * @param name a class name
   * @return the class, or null when there is none
   * @throws KelvaException "usage" for null or a closed collection
   */
  public NetworkClass getClassByName(String name) {
    return classOf(check(kCCGetClassByName(handle, name)));
  }

  /**
   * The classes, oldest first.
   *
   * @return the classes
   * @throws KelvaException when the collection is closed
   */
  public List<NetworkClass> getMembers() {
    List<NetworkClass> result = new ArrayList<>();
    for (long h : Calls.handles(check(kCCGetMembers(handle)))) {
      result.add(classOf(h));
    }
    return result;
  }

  /**
   * Makes a domain a class of this collection: the domain becomes the
   * class's network ({@link NetworkClass#getNetwork()} returns it), is
   * uncompiled, and is closed with the class or the collection from now on.
   *
   * @param domain the domain
   * @param name the class name
   * @return the class
   * @throws KelvaException as {@link #newClass}; "usage" for a domain that
   *     is already a class, a node name with a dot or chain-graph
   *     components; the domain stays the caller's then
   */
  public NetworkClass addDomain(Domain domain, String name) {
    long h = check(kCCAddDomain(handle, domain.handle(), name));
    NetworkClass c = new NetworkClass(this, h, domain);
    classes.put(h, c);
    return c;
  }

  /**
   * Moves every class of {@code other} here; {@code other} is left empty
   * (and still to be closed by its owner).
   *
   * @param other the other collection
   * @throws KelvaException "twice", with nothing moved, when both have a
   *     class of one name; "usage" for this collection itself
   */
  public void addClasses(ClassCollection other) {
    check(kCCAddClasses(handle, other.handle));
    for (NetworkClass c : other.classes.values()) {
      c.moveTo(this);
      classes.put(c.handle(), c);
    }
    other.classes.clear();
  }

  /**
   * Reads the classes of a NET class file into the collection.
   *
   * @param fileName the file
   * @param loader asked for each class that an instance names but the
   *     collection lacks; may be null
   * @param listener receives each error with its line number; may be null
   * @throws KelvaException "io" when the file cannot be read, "parse" when
   *     the text has errors; the collection is then as it was
   * @throws RuntimeException what the loader or the listener threw; the
   *     classes read so far are deleted again
   */
  public void parseClasses(String fileName, Loader loader, ParseListener listener) {
    try {
      check(kNetParseClasses(fileName, handle, this, loader, listener));
    } finally {
      forgetDeadClasses();
    }
  }

  /**
   * Reads the classes of NET class text into the collection, as
   * {@link #parseClasses} does.
   *
   * @param text the text
   * @param loader asked for missing classes; may be null
   * @param listener receives each error with the number of characters read
   *     when it was found; may be null
   * @throws KelvaException "parse" when the text has errors, "usage" for
   *     null; the collection is then as it was
   * @throws RuntimeException what the loader or the listener threw
   */
  public void parseClassesString(String text, Loader loader, ParseListener listener) {
    try {
      check(kNetParseClassesString(text, handle, this, loader, listener));
    } finally {
      forgetDeadClasses();
    }
  }

  /**
   * Writes every class, oldest first, as a NET class file.
   *
   * @param fileName the file
   * @throws KelvaException "io" when the file cannot be written
   */
  public void saveAsNet(String fileName) {
    check(kCCSaveAsNet(handle, fileName));
  }

  /**
   * The classes as NET text, as {@link #saveAsNet} writes them.
   *
   * @return the text
   * @throws KelvaException when the collection is closed
   */
  public String toNetString() {
    return check(kCCToNetString(handle));
  }

  /** The Java class of a class handle of this collection (null for 0). */
  NetworkClass classOf(long h) {
    if (h == 0) {
      return null;
    }
    NetworkClass c = classes.get(h);
    if (c == null || c.handle() != h) {
      c = new NetworkClass(this, h, null);
      classes.put(h, c);
    }
    return c;
  }

  /** The Java node of a node handle of one of the classes (null for 0). */
  Node nodeOf(long node) {
    if (node == 0) {
      return null;
    }
    return classOf(check(kNodeGetHomeClass(node))).getNetwork().nodeOf(node);
  }

  /** Forgets a deleted class. */
  void forget(long h) {
    classes.remove(h);
  }

  /** Marks the Java classes whose engine classes are gone (a failed parse) dead. */
  private void forgetDeadClasses() {
    if (handle == 0) {
      return;
    }
    Set<Long> live = new HashSet<>(Calls.handles(kCCGetMembers(handle)));
    classes.values().removeIf(c -> {
      if (live.contains(c.handle())) {
        return false;
      }
      c.die();
      return true;
    });
  }
}
