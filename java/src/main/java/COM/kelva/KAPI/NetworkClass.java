package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.ArrayList;
import java.util.List;

/**
 * A class of an object-oriented network: a network ({@link #getNetwork()},
 * a {@link Domain} whose node names are single identifiers, built and
 * edited with the domain's and nodes' methods) with input and output nodes.
 * Instances of it are nodes of other classes ({@link #newInstance}).  A
 * class belongs to its {@link ClassCollection}; it dies when it is deleted
 * or the collection is closed, and then every method throws a
 * {@link KelvaException} with the code {@link ErrorCode#USAGE}.
 */
public final class NetworkClass {
  /** The engine class (also its network's handle), 0 once dead. */
  private long handle;

  /** The collection (changes when another collection takes the classes). */
  private ClassCollection collection;

  /** The class's network. */
  private final Domain network;

  /** A class of `collection` with handle `h`; `network` is its domain, or null to make one. */
  NetworkClass(ClassCollection collection, long h, Domain network) {
    this.collection = collection;
    this.handle = h;
    this.network = network != null ? network : Domain.ofClassBody(h);
    this.network.becomeClass(this);
  }

  /** The engine handle (0 once dead). */
  long handle() {
    return handle;
  }

  /** Marks the class dead (the engine class is gone). */
  void die() {
    handle = 0;
    network.bodyGone();
  }

  /** Records that `other` has taken the class. */
  void moveTo(ClassCollection other) {
    collection = other;
  }

  /**
   * Whether the class still exists.
   *
   * @return false once deleted or its collection closed
   */
  public boolean isAlive() {
    return handle != 0;
  }

  /**
   * The class's network, where its nodes are made, found and linked.
   * Closing it is refused; delete the class instead.
   *
   * @return the network
   */
  public Domain getNetwork() {
    return network;
  }

  /**
   * The collection the class belongs to.
   *
   * @return the collection
   * @throws KelvaException when the class is dead
   */
  public ClassCollection getClassCollection() {
    check(kClassGetClassCollection(handle));
    return collection;
  }

  /**
   * Deletes the class and every instance of it in the other classes (with
   * their output clones and links).
   *
   * @throws KelvaException when the class is dead
   */
  public void delete() {
    long h = handle;
    check(kClassDelete(h));
    collection.forget(h);
    die();
  }

  /**
   * The class name.
   *
   * @return the name
   * @throws KelvaException when the class is dead
   */
  public String getName() {
    return check(kClassGetName(handle));
  }

  /**
   * Renames the class.
   *
   * @param name the new name, one identifier
   * @throws KelvaException "invalid_name", "twice" as
   *     {@link ClassCollection#newClass}
   */
  public void setName(String name) {
    check(kClassSetName(handle, name));
  }

  /**
   * The input nodes, in the order they were added.
   *
   * @return the inputs
   * @throws KelvaException when the class is dead
   */
  public List<Node> getInputs() {
    return Calls.nodes(network, check(kClassGetInputs(handle)));
  }

  /**
   * The output nodes, in the order they were added.
   *
   * @return the outputs
   * @throws KelvaException when the class is dead
   */
  public List<Node> getOutputs() {
    return Calls.nodes(network, check(kClassGetOutputs(handle)));
  }

  /**
   * The instance nodes of this class, nodes of other classes, oldest first.
   *
   * @return the instances
   * @throws KelvaException when the class is dead
   */
  public List<Node> getInstances() {
    List<Node> result = new ArrayList<>();
    for (long h : Calls.handles(check(kClassGetInstances(handle)))) {
      result.add(collection.nodeOf(h));
    }
    return result;
  }

  /**
   * Makes an instance node of {@code of} in this class, with an output
   * clone for each output of {@code of}.
   *
   * @param of the class to instantiate, of the same collection
   * @return the instance node
   * @throws KelvaException "cyclic_instance_hierarchy" when {@code of} is
   *     this class or holds an instance of it at any depth; "usage" for a
   *     class of another collection
   */
  public Node newInstance(NetworkClass of) {
    return network.nodeOf(check(kClassNewInstance(handle, of.handle)));
  }

  /**
   * A new domain holding this class unfolded, as {@link Domain#fromClass}.
   *
   * @return the domain, to close by the caller
   * @throws KelvaException as {@link Domain#fromClass}
   */
  public Domain createDomain() {
    return Domain.fromClass(this);
  }

  /**
   * A window of slices of this class, a time slice (see
   * {@link Domain#fromClass(NetworkClass, long)}).
   *
   * @param slices the number of slices, at least 1
   * @return the domain, to close by the caller
   * @throws KelvaException "usage" for 0 slices
   */
  public Domain createDBNDomain(long slices) {
    return Domain.fromClass(this, slices);
  }
}
