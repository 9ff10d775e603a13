package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.io.File;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.NavigableMap;
import java.util.TreeMap;

/**
 * A network: its nodes, attributes, layout defaults and the settings of
 * parallel table operations.  A domain is made empty or read from NET text
 * ({@link #fromNetFile}, {@link #fromNetString}) or from a file of another
 * format ({@link #fromFile}).  A domain owns its nodes
 * and their tables;
 * {@link #close()} frees them all, after which every {@link Node} and
 * {@link Table} of the domain is dead.  A domain is used by one thread at a
 * time.
 */
public final class Domain implements AutoCloseable {
  /** The engine domain, 0 once closed. */
  private long handle;

  /** The Java node of every live engine node of this domain, by handle. */
  private final Map<Long, Node> nodes = new HashMap<>();

  /** The Java objects of the junction forest's trees and cliques, by handle. */
  private final Map<Long, JunctionTree> trees = new HashMap<>();
  private final Map<Long, Clique> cliques = new HashMap<>();

  /**
   * Creates an empty domain.
   *
   * @throws KelvaException when the engine runs out of memory
   */
  public Domain() {
    handle = check(kNewDomain());
  }

  /**
   * A domain the engine has read, with a Java node for each of its nodes.
   * When a node cannot get its Java peer, the domain is deleted again.
   */
  private Domain(long handle) {
    this.handle = handle;
    try {
      for (long n = check(kDomainGetFirstNode(handle)); n != 0; n = check(kNodeGetNext(n))) {
        Node node = new Node(this);
        check(kNodeAttachPeer(n, node));
        nodes.put(n, node);
      }
    } catch (RuntimeException e) {
      try {
        close();
      } catch (RuntimeException suppressed) {
        e.addSuppressed(suppressed);
      }
      throw e;
    }
  }

  /**
   * Reads a domain from a NET file.  The domain keeps the file's name (see
   * {@link #getFileName()}).
   *
   * @param fileName the file
   * @param listener receives each error and warning with its line number;
   *     may be null
   * @return the domain
   * @throws KelvaException "io" when the file cannot be read, "parse" when
   *     the text has errors, "usage" for a null name
   * @throws RuntimeException what the listener threw; no domain is made and
   *     the listener hears nothing more
   */
  public static Domain fromNetFile(String fileName, ParseListener listener) {
    return new Domain(check(kNetParseDomain(fileName, listener)));
  }

  /**
   * Reads a domain from NET text.
   *
   * @param text the text
   * @param listener receives each error and warning with the number of
   *     characters read when it was found; may be null
   * @return the domain
   * @throws KelvaException "parse" when the text has errors, "usage" for
   *     null
   * @throws RuntimeException what the listener threw; no domain is made and
   *     the listener hears nothing more
   */
  public static Domain fromNetString(String text, ParseListener listener) {
    return new Domain(check(kNetParseDomainString(text, listener)));
  }

  /**
   * Reads a domain from a file, the reader chosen by the name's extension
   * (any case): {@code .bif} BIF, {@code .xmlbif} or {@code .xml} XMLBIF,
   * {@code .uai} UAI, {@code .kb} a KB file without a password, and NET for
   * any other name, as the {@code kelva} tool chooses.  BIF, XMLBIF and UAI
   * files give discrete chance nodes with their tables, in the file's order.
   *
   * @param fileName the file
   * @param listener receives each error of a text file with its line
   *     number; may be null
   * @return the domain (compiled when a KB file was saved compiled)
   * @throws KelvaException "io" when the file cannot be read, "parse" when
   *     its text has errors, the KB codes of {@link #fromKBFile}, "usage"
   *     for a null name
   * @throws RuntimeException what the listener threw; no domain is made
   */
  public static Domain fromFile(String fileName, ParseListener listener) {
    if (fileName == null) {
      return fromNetFile(null, listener);
    }
    int dot = fileName.lastIndexOf('.');
    int slash = Math.max(fileName.lastIndexOf('/'), fileName.lastIndexOf(File.separatorChar));
    String extension =
        dot > slash ? fileName.substring(dot + 1).toLowerCase(Locale.ROOT) : "";
    switch (extension) {
      case "bif":
        return new Domain(check(kBIFParseDomain(fileName, listener)));
      case "xmlbif":
      case "xml":
        return new Domain(check(kXMLBIFParseDomain(fileName, listener)));
      case "uai":
        return new Domain(check(kUAIParseDomain(fileName, listener)));
      case "kb":
        return fromKBFile(fileName, null);
      default:
        return fromNetFile(fileName, listener);
    }
  }

  /**
   * Reads a domain from a file as {@link #fromFile(String, ParseListener)}
   * does, without a listener.
   *
   * @param fileName the file; its extension chooses the reader
   * @return the domain
   * @throws KelvaException "io" when the file cannot be read, "parse" when
   *     its text has errors, "usage" for a null name
   */
  public static Domain fromFile(String fileName) {
    return fromFile(fileName, null);
  }

  /** The engine handle (0 once closed). */
  long handle() {
    return handle;
  }

  /**
   * The Java node of a node handle of this domain (null for 0): the one
   * made earlier while it is still the node's peer, else a new one attached
   * as its peer (the engine makes nodes of its own: output clones, instance
   * nodes, nodes read from files).
   */
  Node nodeOf(long node) {
    if (node == 0) {
      return null;
    }
    Node n = nodes.get(node);
    if (n == null || n.nodePeer != node) {
      n = new Node(this);
      check(kNodeAttachPeer(node, n));
      nodes.put(node, n);
    }
    return n;
  }

  /** Forgets a deleted node. */
  void forget(long node) {
    nodes.remove(node);
  }

  /**
   * Deletes the domain with its nodes and tables.  Does nothing when the
   * domain is already closed.
   *
   * @throws KelvaException when the engine refuses
   */
  @Override
  public void close() {
    if (handle == 0) {
      return;
    }
    kDomainDelete(handle);
    check();
    handle = 0;
    nodes.clear();
    trees.clear();
    cliques.clear();
  }

  /**
   * Whether the domain is still open.
   *
   * @return false once {@link #close()} has run
   */
  public boolean isAlive() {
    return handle != 0;
  }

  /**
   * Creates a node.  A new discrete node has one state, a boolean node two.
   *
   * @param category the node's category
   * @param kind the node's kind
   * @param subtype the subtype of a discrete node (ignored for other kinds)
   * @return the new node
   * @throws KelvaException "usage" for a combination that is no node,
   *     "cg_limids_not_supported" when continuous nodes and decision or
   *     utility nodes would meet
   */
  public Node newNode(Category category, Kind kind, Subtype subtype) {
    Node node = new Node(this);
    long h = kDomainNewNode(handle, category.code(), kind.code(), subtype.code(), node);
    check();
    node.nodePeer = h;
    nodes.put(h, node);
    return node;
  }

  /**
   * Creates a node; a discrete node gets the subtype {@link Subtype#LABEL}.
   *
   * @param category the node's category
   * @param kind the node's kind
   * @return the new node
   * @throws KelvaException as {@link #newNode(Category, Kind, Subtype)}
   */
  public Node newNode(Category category, Kind kind) {
    return newNode(category, kind, Subtype.LABEL);
  }

  /**
   * Creates a discrete node with its states, all unlabelled.
   *
   * @param category chance, decision or function
   * @param subtype the node's subtype
   * @param states the number of states (2 for a boolean node)
   * @return the new node
   * @throws KelvaException "usage" for another category or a count below 1
   *     (or other than 2 for a boolean node), else as
   *     {@link #newNode(Category, Kind, Subtype)}; nothing is created then
   */
  public Node createDiscreteNode(Category category, Subtype subtype, long states) {
    Node node = new Node(this);
    long h = kDomainCreateDiscreteNode(handle, category.code(), subtype.code(), states, node);
    check();
    node.nodePeer = h;
    nodes.put(h, node);
    return node;
  }

  /**
   * The nodes of the domain, newest first.
   *
   * @return the nodes
   * @throws KelvaException when the domain is closed
   */
  public List<Node> getNodes() {
    List<Node> result = new ArrayList<>();
    for (long n = check(kDomainGetFirstNode(handle)); n != 0; n = check(kNodeGetNext(n))) {
      result.add(nodeOf(n));
    }
    return result;
  }

  /**
   * The node named {@code name}.
   *
   * @param name a node name
   * @return the node, or null when there is none
   * @throws KelvaException "usage" for a null name
   */
  public Node getNodeByName(String name) {
    return nodeOf(check(kDomainGetNodeByName(handle, name)));
  }

  /**
   * The number of chance nodes.
   *
   * @return the count
   * @throws KelvaException when the domain is closed
   */
  public long getNumberOfChanceNodes() {
    return check(kDomainGetNumberOfChanceNodes(handle));
  }

  /**
   * The number of decision nodes.
   *
   * @return the count
   * @throws KelvaException when the domain is closed
   */
  public long getNumberOfDecisionNodes() {
    return check(kDomainGetNumberOfDecisionNodes(handle));
  }

  /**
   * The number of utility nodes.
   *
   * @return the count
   * @throws KelvaException when the domain is closed
   */
  public long getNumberOfUtilityNodes() {
    return check(kDomainGetNumberOfUtilityNodes(handle));
  }

  /**
   * The number of instance nodes.
   *
   * @return the count
   * @throws KelvaException when the domain is closed
   */
  public long getNumberOfInstanceNodes() {
    return check(kDomainGetNumberOfInstanceNodes(handle));
  }

  /**
   * Sets the size in which nodes are drawn.
   *
   * @param width the width
   * @param height the height
   * @throws KelvaException when the domain is closed
   */
  public void setNodeSize(long width, long height) {
    check(kDomainSetNodeSize(handle, width, height));
  }

  /**
   * The width of drawn nodes.
   *
   * @return the width
   * @throws KelvaException when the domain is closed
   */
  public long getNodeWidth() {
    return check(kDomainGetNodeWidth(handle));
  }

  /**
   * The height of drawn nodes.
   *
   * @return the height
   * @throws KelvaException when the domain is closed
   */
  public long getNodeHeight() {
    return check(kDomainGetNodeHeight(handle));
  }

  /**
   * Sets the smallest piece of work given to a worker thread by large table
   * operations.
   *
   * @param size the grain size, at least 1
   * @throws KelvaException "usage" for 0
   */
  public void setGrainSize(long size) {
    check(kDomainSetGrainSize(handle, size));
  }

  /**
   * The grain size (10000 for a new domain).
   *
   * @return the grain size
   * @throws KelvaException when the domain is closed
   */
  public long getGrainSize() {
    return check(kDomainGetGrainSize(handle));
  }

  /**
   * Sets the number of threads of large table operations, of a propagation
   * (a large junction tree is shared by two threads) and of EM's passes over
   * the cases (each thread in its own compiled copy of the domain). Results
   * are the same bits at every level.
   *
   * @param level the concurrency level, at least 1
   * @throws KelvaException "usage" for 0
   */
  public void setConcurrencyLevel(long level) {
    check(kDomainSetConcurrencyLevel(handle, level));
  }

  /**
   * The concurrency level (1 for a new domain).
   *
   * @return the level
   * @throws KelvaException when the domain is closed
   */
  public long getConcurrencyLevel() {
    return check(kDomainGetConcurrencyLevel(handle));
  }

  /**
   * Turns scaled propagation on or off (off for a new domain). Scaled, each
   * propagation rescales its messages and keeps the logarithm of the
   * normalization constant, so that evidence whose probability is below the
   * smallest double (many observed items on a large network) propagates:
   * {@link #getLogNormalizationConstant()} is then exact and
   * {@code getNormalizationConstant()} is 0. Beliefs are those of ordinary
   * propagation. Executors that score rows one at a time turn it on once.
   *
   * @param scaled whether to propagate scaled
   * @throws KelvaException when the domain is closed
   */
  public void setScaledPropagation(boolean scaled) {
    check(kDomainSetScaledPropagation(handle, scaled ? 1 : 0));
  }

  /**
   * Whether the domain propagates scaled.
   *
   * @return true when scaled propagation is on
   * @throws KelvaException when the domain is closed
   */
  public boolean isScaledPropagation() {
    return check(kDomainGetScaledPropagation(handle)) == 1;
  }

  /**
   * Sets an attribute; a new key goes to the head of the list.
   *
   * @param key a C identifier
   * @param value the value; null removes the attribute
   * @throws KelvaException "invalid_name" for a key that is no C identifier
   */
  public void setAttribute(String key, String value) {
    check(kDomainSetAttribute(handle, key, value));
  }

  /**
   * Removes an attribute; a key that is not set is no error.
   *
   * @param key the key
   * @throws KelvaException "invalid_name" for a key that is no C identifier
   */
  public void removeAttribute(String key) {
    setAttribute(key, null);
  }

  /**
   * The value of an attribute.
   *
   * @param key the key
   * @return the value, or null when the attribute is not set
   * @throws KelvaException "usage" for a null key
   */
  public String getAttribute(String key) {
    return check(kDomainGetAttribute(handle, key));
  }

  /**
   * The attributes, the most recently added first.
   *
   * @return the attributes
   * @throws KelvaException when the domain is closed
   */
  public List<Attribute> getAttributes() {
    return Calls.attributes(check(kDomainGetFirstAttribute(handle)));
  }

  /**
   * Sets the log file to which compilation, table generation and learning
   * write, closing the previous one.  The file is line-buffered.
   *
   * @param fileName the file, or null to close the current log only
   * @param append true to append to the file, false to overwrite it
   * @throws KelvaException "io" when the file cannot be opened or the old one
   *     cannot be closed
   */
  public void setLogFile(String fileName, boolean append) {
    check(kDomainSetLogFile(handle, fileName, append ? 1 : 0));
  }

  // Compilation and the junction forest.

  /**
   * Triangulates the domain and builds its junction forest; the domain
   * becomes triangulated (but not compiled).
   *
   * @param method the heuristic; {@link TriangulationMethod#TOTAL_WEIGHT}
   *     searches for the least total clique weight, never above the initial
   *     triangulation (see {@link #setTriangulationParameters})
   * @throws KelvaException "usage" when the domain is already triangulated,
   *     has no discrete or continuous node, or a total-weight search is
   *     bounded without an initial triangulation; "io" when the log cannot
   *     be written
   */
  public void triangulate(TriangulationMethod method) {
    check(kDomainTriangulate(handle, method.code()));
  }

  /**
   * Triangulates the domain by eliminating its nodes in the given order and
   * builds its junction forest.
   *
   * @param order every discrete and continuous node of the domain once,
   *     continuous nodes first, first eliminated first
   * @throws KelvaException "enumeration" when the order is not such a list
   *     (nothing changes); "usage" when the domain is already triangulated
   */
  public void triangulateWithOrder(List<Node> order) {
    Calls.withList(order, list -> check(kDomainTriangulateWithOrder(handle, list)));
  }

  /**
   * Triangulates the domain by the method compiling uses (best greedy).
   *
   * @throws KelvaException as {@link #triangulate}
   */
  public void triangulateDefault() {
    check(kDomainTriangulateDefault(handle));
  }

  /**
   * Sets the nodes that every later triangulation puts into one clique, so
   * that one junction tree holds their joint distribution.  The forest in
   * place is kept; a deleted node leaves the set.
   *
   * @param nodes discrete or continuous nodes of this domain, each once, or
   *     null (or empty) for none
   * @throws KelvaException "enumeration" when a node is listed twice, is of
   *     another domain or is neither discrete nor continuous (nothing
   *     changes)
   */
  public void setIJTNodes(List<Node> nodes) {
    if (nodes == null) {
      check(kDomainSetIJTNodes(handle, 0));
    } else {
      Calls.withList(nodes, list -> check(kDomainSetIJTNodes(handle, list)));
    }
  }

  /**
   * Sets the elimination order the total-weight method starts from and must
   * not exceed.  Creating or deleting a node forgets it.
   *
   * @param order every discrete and continuous node once, continuous nodes
   *     first, or null for none (best greedy is then the start)
   * @throws KelvaException "enumeration" when the order is not such a list
   *     (nothing changes)
   */
  public void setInitialTriangulation(List<Node> order) {
    if (order == null) {
      check(kDomainSetInitialTriangulation(handle, 0));
    } else {
      Calls.withList(order, list -> check(kDomainSetInitialTriangulation(handle, list)));
    }
  }

  /**
   * Sets how many minimal separators the total-weight search may list in
   * one prime component before it keeps the initial triangulation.
   *
   * @param count the bound, 0 or less for none
   * @throws KelvaException when the domain is closed
   */
  public void setMaxNumberOfSeparators(long count) {
    check(kDomainSetMaxNumberOfSeparators(handle, count));
  }

  /**
   * The bound on minimal separators of the total-weight search.
   *
   * @return the bound, 0 or less for none
   * @throws KelvaException when the domain is closed
   */
  public long getMaxNumberOfSeparators() {
    return check(kDomainGetMaxNumberOfSeparators(handle));
  }

  /**
   * Sets the largest minimal separator the total-weight search considers;
   * with a bound the result need not be optimal.
   *
   * @param size the bound, 0 or less for none
   * @throws KelvaException when the domain is closed
   */
  public void setMaxSeparatorSize(long size) {
    check(kDomainSetMaxSeparatorSize(handle, size));
  }

  /**
   * The largest minimal separator the total-weight search considers.
   *
   * @return the bound, 0 or less for none
   * @throws KelvaException when the domain is closed
   */
  public long getMaxSeparatorSize() {
    return check(kDomainGetMaxSeparatorSize(handle));
  }

  /**
   * Sets the initial triangulation and both bounds of the total-weight
   * search at once.
   *
   * @param initial the initial elimination order, or null for none
   * @param maxSeparators the bound on minimal separators, 0 or less for none
   * @param maxSeparatorSize the bound on separator size, 0 or less for none
   * @throws KelvaException "enumeration" for an invalid order (nothing
   *     changes)
   */
  public void setTriangulationParameters(
      List<Node> initial, long maxSeparators, long maxSeparatorSize) {
    if (initial == null) {
      check(kDomainSetTriangulationParameters(handle, 0, maxSeparators, maxSeparatorSize));
    } else {
      Calls.withList(
          initial,
          list ->
              check(
                  kDomainSetTriangulationParameters(
                      handle, list, maxSeparators, maxSeparatorSize)));
    }
  }

  /**
   * The elimination order of the current triangulation.
   *
   * @return the discrete and continuous nodes, first eliminated first
   * @throws KelvaException "usage" when the domain is not triangulated
   */
  public List<Node> getEliminationOrder() {
    return Calls.nodes(this, check(kDomainGetEliminationOrder(handle)));
  }

  /**
   * Whether the domain has a junction forest.
   *
   * @return true when triangulated (compiled or not)
   * @throws KelvaException when the domain is closed
   */
  public boolean isTriangulated() {
    return check(kDomainIsTriangulated(handle)) == 1;
  }

  /**
   * Compiles the domain: triangulates it by the best greedy heuristic unless
   * it is triangulated, generates out-of-date model tables, checks the
   * probability tables when a log file is set, and propagates once.
   *
   * @throws KelvaException "usage" when the domain is already compiled or
   *     has no discrete or continuous node; the propagation's error when it
   *     fails (the domain is then as triangulated as before the call)
   */
  public void compile() {
    check(kDomainCompile(handle));
  }

  /**
   * Whether the domain is compiled.
   *
   * @return true after a successful {@link #compile()}, until the junction
   *     forest is discarded
   * @throws KelvaException when the domain is closed
   */
  public boolean isCompiled() {
    return check(kDomainIsCompiled(handle)) == 1;
  }

  /**
   * Discards the domain's junction forest, if any; its junction trees and
   * cliques die.
   *
   * @throws KelvaException when the domain is closed
   */
  public void uncompile() {
    check(kDomainUncompile(handle));
  }

  /**
   * The first junction tree of the forest.
   *
   * @return the tree, or null when the domain is not triangulated
   * @throws KelvaException when the domain is closed
   */
  public JunctionTree getFirstJunctionTree() {
    return treeOf(check(kDomainGetFirstJunctionTree(handle)));
  }

  /**
   * The junction trees of the forest, one per connected part of the
   * network.
   *
   * @return the trees in forest order; empty when not triangulated
   * @throws KelvaException when the domain is closed
   */
  public List<JunctionTree> getJunctionTrees() {
    List<JunctionTree> result = new ArrayList<>();
    for (JunctionTree t = getFirstJunctionTree(); t != null; t = t.getNext()) {
      result.add(t);
    }
    return result;
  }

  /**
   * The Java tree of a tree handle (null for 0): the one made earlier while
   * it is still the tree's peer, else a new one attached as its peer.  Trees
   * and cliques of a discarded forest have a handle of 0, so an engine
   * object at a reused address never meets a stale Java object.
   */
  JunctionTree treeOf(long tree) {
    if (tree == 0) {
      return null;
    }
    JunctionTree t = trees.get(tree);
    if (t == null || t.jtPeer != tree) {
      trees.values().removeIf(old -> old.jtPeer == 0);
      t = new JunctionTree(this);
      check(kJTAttachPeer(tree, t));
      trees.put(tree, t);
    }
    return t;
  }

  /** The Java clique of a clique handle (null for 0), made as trees are. */
  Clique cliqueOf(long clique) {
    if (clique == 0) {
      return null;
    }
    Clique c = cliques.get(clique);
    if (c == null || c.cliquePeer != clique) {
      cliques.values().removeIf(old -> old.cliquePeer == 0);
      c = new Clique(this);
      check(kCliqueAttachPeer(clique, c));
      cliques.put(clique, c);
    }
    return c;
  }

  /**
   * Generates the tables of the nodes with models whose tables need it, in
   * the domain's node order, stopping at the first failure.
   *
   * @throws KelvaException the error that stopped a node's generation
   */
  public void generateTables() {
    check(kDomainGenerateTables(handle));
  }

  // ---- Evidence and equilibrium ----

  /**
   * Retracts the evidence of every discrete and continuous node.
   *
   * @throws KelvaException when the domain is closed
   */
  public void retractFindings() {
    check(kDomainRetractFindings(handle));
  }

  /**
   * Whether evidence was propagated into any junction tree.
   *
   * @return true when some tree's last propagation included evidence
   * @throws KelvaException "not_compiled" when the domain is not compiled
   */
  public boolean evidenceIsPropagated() {
    return check(kDomainEvidenceIsPropagated(handle)) == 1;
  }

  /**
   * Whether a likelihood was propagated into any junction tree.
   *
   * @return true when some tree's last propagation included a likelihood
   * @throws KelvaException "not_compiled" when the domain is not compiled
   */
  public boolean likelihoodIsPropagated() {
    return check(kDomainLikelihoodIsPropagated(handle)) == 1;
  }

  /**
   * Whether evidence on continuous nodes was propagated into any junction
   * tree.
   *
   * @return true when some tree's last propagation included such evidence
   * @throws KelvaException "not_compiled" when the domain is not compiled
   */
  public boolean cgEvidenceIsPropagated() {
    return check(kDomainCGEvidenceIsPropagated(handle)) == 1;
  }

  /**
   * Whether a propagation would incorporate evidence: some node's evidence
   * changed since the last propagation, or a tree must be rebuilt from the
   * node tables.
   *
   * @return true when there is evidence to propagate
   * @throws KelvaException "not_compiled" when the domain is not compiled
   */
  public boolean evidenceToPropagate() {
    return check(kDomainEvidenceToPropagate(handle)) == 1;
  }

  /**
   * Whether node tables changed since the last propagation.
   *
   * @return true when a propagation would start from the node tables
   * @throws KelvaException "not_compiled" when the domain is not compiled
   */
  public boolean tablesToPropagate() {
    return check(kDomainTablesToPropagate(handle)) == 1;
  }

  /**
   * Whether every junction tree is in the given equilibrium.
   *
   * @param equilibrium {@link Equilibrium#SUM} or {@link Equilibrium#MAX}
   * @return true when all trees are in it
   * @throws KelvaException "not_compiled" when the domain is not compiled,
   *     "usage" for {@link Equilibrium#NONE}
   */
  public boolean equilibriumIs(Equilibrium equilibrium) {
    return check(kDomainEquilibriumIs(handle, equilibrium.code())) == 1;
  }

  /**
   * Whether the evidence of every junction tree was propagated in the given
   * mode (a tree without propagated evidence is in every mode).
   *
   * @param mode the mode
   * @return true when all trees are in it
   * @throws KelvaException "not_compiled" when the domain is not compiled,
   *     "no_equilibrium" when a tree holds no equilibrium
   */
  public boolean evidenceModeIs(EvidenceMode mode) {
    return check(kDomainEvidenceModeIs(handle, mode.code())) == 1;
  }

  /**
   * Writes the beliefs, expected utilities and function values of every
   * node to the log file; nothing is written when no log file is set.
   *
   * @throws KelvaException "not_compiled" when the domain is not compiled,
   *     "no_equilibrium" when a tree holds no equilibrium, "io" when the log
   *     cannot be written
   */
  public void reportBeliefs() {
    check(kDomainReportBeliefs(handle));
  }

  // ---- Propagation and its results ----

  /**
   * Propagates the entered evidence through every junction tree.
   *
   * @param equilibrium {@link Equilibrium#SUM} for beliefs, {@link
   *     Equilibrium#MAX} for max-marginals
   * @param mode the evidence mode
   * @throws KelvaException "not_compiled"; "usage" for {@link
   *     Equilibrium#NONE}, a pair other than sum and normal on a domain
   *     with decision, utility or function nodes, or max equilibrium on a
   *     domain with continuous nodes; "compressed" for fast retraction on a
   *     compressed domain; "inconsistency_or_underflow" when the evidence is
   *     impossible; "overflow"; "zero_variance" when a value is entered on a
   *     continuous node whose variance, given the values before it, is 0;
   *     "low_density" when the density of the entered values is too small to
   *     represent. After any failure the domain stays compiled with its
   *     evidence entered.
   */
  public void propagate(Equilibrium equilibrium, EvidenceMode mode) {
    check(kDomainPropagate(handle, equilibrium.code(), mode.code()));
  }

  /**
   * Brings the junction forest back to the node tables; the entered
   * evidence stays entered and is to be propagated again.
   *
   * @throws KelvaException "not_compiled" when the domain is not compiled
   */
  public void initialize() {
    check(kDomainInitialize(handle));
  }

  /**
   * Rebuilds the clique tables from the node tables and marks the forest as
   * not propagated.
   *
   * @throws KelvaException "not_compiled" when the domain is not compiled
   */
  public void resetInferenceEngine() {
    check(kDomainResetInferenceEngine(handle));
  }

  /**
   * The probability of the propagated evidence: the product of the junction
   * trees' normalization constants. With values entered on continuous nodes
   * it is a density: the probability of the discrete evidence times the
   * density of the values.
   *
   * @return the constant (0 when it underflows; see {@link
   *     #getLogNormalizationConstant})
   * @throws KelvaException "not_compiled", "no_equilibrium"
   */
  public double getNormalizationConstant() {
    return check(kDomainGetNormalizationConstant(handle));
  }

  /**
   * The natural logarithm of the normalization constant, finite even when
   * the constant itself underflows.
   *
   * @return the logarithm
   * @throws KelvaException "not_compiled", "no_equilibrium"
   */
  public double getLogNormalizationConstant() {
    return check(kDomainGetLogNormalizationConstant(handle));
  }

  /**
   * The joint marginal of discrete nodes of one junction tree, as a new
   * free-standing table that the caller owns (it is freed with the domain at
   * the latest).
   *
   * @param nodes distinct discrete nodes of one junction tree
   * @return the marginal
   * @throws KelvaException "usage" for nodes of several trees or no clique
   *     holding them all, "not_compiled", "no_equilibrium"
   */
  public Table getMarginal(List<Node> nodes) {
    Table marginal = new Table(this);
    Calls.withList(nodes, list -> kDomainGetMarginal(handle, list, marginal));
    check();
    return marginal;
  }

  /**
   * The conflict value of the propagated evidence: the product of the trees'
   * conflict values.
   *
   * @return the conflict value
   * @throws KelvaException "usage" for a domain with decision nodes or not in
   *     sum equilibrium, "not_compiled", "no_equilibrium",
   *     "cg_evidence_incorporated"
   */
  public double getConflict() {
    return check(kDomainGetConflict(handle));
  }

  /**
   * The nodes d-connected to some source node given hard evidence on
   * {@code hard} and likelihood evidence on {@code soft} (a likelihood acts
   * as an observed child): the unobserved nodes a path not blocked by the
   * evidence reaches, the sources included, in the domain's node order.
   *
   * @param source the source nodes
   * @param hard the nodes with a selected state
   * @param soft the nodes with likelihood evidence
   * @return the d-connected nodes
   * @throws KelvaException "usage" for nodes of another domain
   */
  public List<Node> getDConnectedNodes(List<Node> source, List<Node> hard, List<Node> soft) {
    return Calls.nodes(this, check(Calls.withList(source, s -> Calls.withList(hard,
        h -> Calls.withList(soft, l -> kDomainGetDConnectedNodes(handle, s, h, l))))));
  }

  /**
   * The nodes that {@link #getDConnectedNodes} leaves out (the observed
   * nodes among them), in the domain's node order.
   *
   * @param source the source nodes
   * @param hard the nodes with a selected state
   * @param soft the nodes with likelihood evidence
   * @return the d-separated nodes
   * @throws KelvaException "usage" for nodes of another domain
   */
  public List<Node> getDSeparatedNodes(List<Node> source, List<Node> hard, List<Node> soft) {
    return Calls.nodes(this, check(Calls.withList(source, s -> Calls.withList(hard,
        h -> Calls.withList(soft, l -> kDomainGetDSeparatedNodes(handle, s, h, l))))));
  }

  // ---- Influence diagrams ----

  /**
   * Finds the policies of all decisions by single policy updating given the
   * entered evidence, stores each as its decision's table and propagates.
   * Every policy starts uniform and becomes, one at a time (latest
   * decisions first), the best deterministic answer to the others until
   * none changes; a tie keeps the current option, else the lowest index.
   * The result is optimal with perfect recall and a local optimum otherwise.
   *
   * @throws KelvaException "not_compiled", "compressed",
   *     "functional_dependency" for a domain with function nodes,
   *     "invalid_evidence", or a propagation failure (the policies are then
   *     as they were)
   */
  public void updatePolicies() {
    check(kDomainUpdatePolicies(handle));
  }

  /**
   * The expected utility of the domain: the sum of the utility nodes'
   * expected utilities after the last propagation.
   *
   * @return the expected utility
   * @throws KelvaException "usage" without utility nodes, "not_compiled",
   *     "no_equilibrium"
   */
  public double getExpectedUtility() {
    return check(kDomainGetExpectedUtility(handle));
  }

  /**
   * The decisions in an order where each is an ancestor of the next.
   *
   * @return the decisions, empty for a domain without them
   * @throws KelvaException "usage" when the decisions are not totally
   *     ordered
   */
  public List<Node> getDecisionOrder() {
    return Calls.nodes(this, check(kDomainGetDecisionOrder(handle)));
  }

  /**
   * Takes every decision without evidence, ancestors first, by selecting
   * its option of largest expected utility (the lowest index on a tie),
   * and propagates.
   *
   * @throws KelvaException "usage" without utility nodes, "not_compiled",
   *     or a propagation failure (the choices made are then retracted)
   */
  public void decideAutomatically() {
    check(kDomainDecideAutomatically(handle));
  }

  /**
   * Retracts the evidence of every decision node (the manual decisions).
   *
   * @throws KelvaException when the domain is closed
   */
  public void undoManualDecisions() {
    check(kDomainUndoManualDecisions(handle));
  }

  /**
   * Computes the sensitivity of several output probabilities, P(nodes[i] =
   * states[i] | evidence), to every entry of every chance node's table; read
   * them with {@link Node#getSensitivityConstants(long, long)}.
   *
   * @param nodes the output nodes
   * @param states one state per output node
   * @throws KelvaException "usage", "not_compiled", "compressed",
   *     "inconsistency_or_underflow" for impossible evidence
   */
  public void computeSensitivityData(List<Node> nodes, long[] states) {
    Calls.withList(nodes, list -> kDomainComputeSensitivityData(handle, list, states));
    check();
  }

  /**
   * The chance nodes whose tables can change output {@code output} of the
   * last sensitivity computation, in the domain's node order.
   *
   * @param output the output's index
   * @return the nodes
   * @throws KelvaException "usage" when no sensitivity data were computed on
   *     the current junction forest
   */
  public List<Node> getSensitivitySet(long output) {
    return Calls.nodes(this, check(kDomainGetSensitivitySet(handle, output)));
  }

  /**
   * The number of explanations found by the last
   * {@link Node#computeExplanationData}.
   *
   * @return the count
   * @throws KelvaException "usage" when none were computed on the current
   *     junction forest
   */
  public long getNumberOfExplanations() {
    return check(kDomainGetNumberOfExplanations(handle));
  }

  /**
   * The nodes of explanation {@code index}, best first; their entered
   * states are the explanation.
   *
   * @param index the explanation's index
   * @return the nodes
   * @throws KelvaException "usage" for an index out of range
   */
  public List<Node> getExplanation(long index) {
    return Calls.nodes(this, check(kDomainGetExplanation(handle, index)));
  }

  /**
   * The Bayes factor of explanation {@code index}: P(s | h) / P(s | not h).
   *
   * @param index the explanation's index
   * @return the score (may be infinite)
   * @throws KelvaException "usage" for an index out of range
   */
  public double getExplanationScore(long index) {
    return check(kDomainGetExplanationScore(handle, index));
  }

  /**
   * Replaces the clique and separator tables by tables that keep only their
   * non-zero entries.
   *
   * @return the ratio of the total table size after compression to the size
   *     before
   * @throws KelvaException "not_compiled", "no_equilibrium", "usage" for a
   *     domain with continuous cliques or chain-graph components,
   *     "table_too_large"
   */
  public double compress() {
    return check(kDomainCompress(handle));
  }

  /**
   * Whether the domain's tables are compressed.
   *
   * @return true after {@link #compress} until the domain is uncompiled
   * @throws KelvaException when the domain is closed
   */
  public boolean isCompressed() {
    return check(kDomainIsCompressed(handle)) == 1;
  }

  /**
   * Writes the domain as NET text to a file, which the domain then keeps as
   * its file name.
   *
   * @param fileName the file, replaced if it exists
   * @throws KelvaException "io" when the file cannot be written, "usage" for
   *     a null name
   */
  public void saveAsNet(String fileName) {
    check(kDomainSaveAsNet(handle, fileName));
  }

  /**
   * Saves the domain as a KB file: network, tables, cases, evidence and the
   * compiled junction forest, so that {@link #fromKBFile} needs no
   * triangulation.  The domain then keeps the file as its file name.
   *
   * @param fileName the file, replaced if it exists
   * @param password encrypts the file; null or empty for none
   * @throws KelvaException "io" when the file cannot be written, "usage" for
   *     a null name
   */
  public void saveAsKB(String fileName, String password) {
    check(kDomainSaveAsKB(handle, fileName, password));
  }

  /**
   * Loads a domain from a KB file written by {@link #saveAsKB}.
   *
   * @param fileName the file
   * @param password the file's password; null or empty for none
   * @return the domain, compiled when it was saved compiled
   * @throws KelvaException "bad_kb_password", "bad_kb_version",
   *     "bad_kb_type" or "bad_kb_format" for a file that cannot be loaded,
   *     "io" when it cannot be read
   */
  public static Domain fromKBFile(String fileName, String password) {
    return new Domain(check(kKBLoadDomain(fileName, password)));
  }

  /**
   * The bytes of the KB file that {@link #saveAsKB} would write, made in
   * memory; written to a file, {@link #fromKBFile} loads them.  The domain's
   * file name does not change.
   *
   * @param password encrypts the bytes; null or empty for none
   * @return the KB file's bytes
   * @throws KelvaException "usage" for a closed domain, "no_memory" when the
   *     file is too large for a Java array
   */
  public byte[] saveToMemory(String password) {
    byte[] bytes = kDomainSaveToMemory(handle, password);
    check();
    return bytes;
  }

  /**
   * The domain as NET text, as {@link #saveAsNet} writes it.
   *
   * @return the text
   * @throws KelvaException when the domain is closed
   */
  public String toNetString() {
    return check(kDomainToNetString(handle));
  }

  /**
   * Sets how many significant digits {@link #saveAsNet} and {@link
   * #toNetString} give the numbers of tables, models and state values: 0 (the
   * default) keeps the usual short formats, 17 writes numbers that read back
   * exactly.
   *
   * @param digits 0 to 17
   * @throws KelvaException "usage" for a count outside 0 to 17
   */
  public void setNetDigits(int digits) {
    check(kDomainSetNetDigits(handle, digits));
  }

  /**
   * The digits set by {@link #setNetDigits} (0 for a new domain).
   *
   * @return the count of significant digits, 0 for the usual formats
   * @throws KelvaException when the domain is closed
   */
  public int getNetDigits() {
    return check(kDomainGetNetDigits(handle));
  }

  /**
   * The file the domain was read from or last saved to.
   *
   * @return the file name, or null when there is none
   * @throws KelvaException when the domain is closed
   */
  public String getFileName() {
    return check(kDomainGetFileName(handle));
  }

  // ---- Stored cases ----

  /**
   * Appends an empty case: no node has a state or value in it, and its
   * count is 1.
   *
   * @return the index of the new case
   * @throws KelvaException "no_memory"; when the domain is closed
   */
  public long newCase() {
    return check(kDomainNewCase(handle));
  }

  /**
   * The number of stored cases.
   *
   * @return the number of cases
   * @throws KelvaException when the domain is closed
   */
  public long getNumberOfCases() {
    return check(kDomainGetNumberOfCases(handle));
  }

  /**
   * Keeps the first {@code count} cases, or appends empty cases of count 1
   * up to {@code count}.
   *
   * @param count the new number of cases
   * @throws KelvaException "usage" for a negative count, "no_memory"
   */
  public void setNumberOfCases(long count) {
    if (count < 0) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    check(kDomainSetNumberOfCases(handle, count));
  }

  /**
   * Sets the count (weight) of a case.
   *
   * @param index the case index
   * @param count a finite, nonnegative count
   * @throws KelvaException "usage" for a bad index or count
   */
  public void setCaseCount(long index, double count) {
    check(kDomainSetCaseCount(handle, index, count));
  }

  /**
   * The count of a case (1 until set).
   *
   * @param index the case index
   * @return the count
   * @throws KelvaException "usage" for a bad index
   */
  public double getCaseCount(long index) {
    return check(kDomainGetCaseCount(handle, index));
  }

  /**
   * The total case count: the sum of the counts once any count has been set
   * (here or by a data file with counts), else the number of cases.
   *
   * @return the total count
   * @throws KelvaException when the domain is closed
   */
  public double countCases() {
    return check(kDomainCountCases(handle));
  }

  /**
   * Retracts all evidence and enters a stored case as evidence: each state
   * as a selected state, each value as an entered value.
   *
   * @param index the case index
   * @throws KelvaException "usage" for a bad index; the evidence is then as
   *     before
   */
  public void enterCase(long index) {
    check(kDomainEnterCase(handle, index));
  }

  // ---- Case files ----

  /**
   * Reads a single-case file (items {@code NODE: FINDING}) and enters its
   * findings: the nodes it names get its findings in place of their
   * evidence, the other nodes keep theirs.
   *
   * @param fileName the file
   * @param listener receives each error with its line number; may be null
   * @throws KelvaException "parse" when the file has errors (the evidence is
   *     then as before), "io" when it cannot be read, "usage" for a null name
   * @throws RuntimeException what the listener threw; the evidence is as
   *     before and the listener hears nothing more
   */
  public void parseCase(String fileName, ParseListener listener) {
    check(kDomainParseCase(handle, fileName, listener));
  }

  /**
   * Writes the entered evidence as a single-case file.
   *
   * @param fileName the file, replaced if it exists
   * @throws KelvaException "io" when the file cannot be written, "usage" for
   *     a null name
   */
  public void saveCase(String fileName) {
    check(kDomainSaveCase(handle, fileName));
  }

  /**
   * Reads a data file of cases (a header naming the nodes, then one case per
   * line) and appends its cases to the stored cases.  A file without case
   * lines is read with the warning "warning: file contains no cases".
   *
   * @param fileName the file
   * @param listener receives each error and warning with its line number;
   *     may be null
   * @throws KelvaException "parse" when the file has errors (the stored
   *     cases are then as before), "io" when it cannot be read, "usage" for
   *     a null name
   * @throws RuntimeException what the listener threw; the stored cases are
   *     as before
   */
  public void parseCases(String fileName, ParseListener listener) {
    check(kDomainParseCases(handle, fileName, listener));
  }

  /**
   * Writes stored cases as a data file.  Without counts a case is written as
   * many times as its count says (so counts must be whole numbers).  The
   * reader takes only white space and commas as separators and only
   * {@code *} and {@code ?} as missing items.
   *
   * @param fileName the file, replaced if it exists
   * @param nodes the columns, in order: distinct nodes of this domain that
   *     can hold case items
   * @param cases the indexes of the cases to write, in order, or null for
   *     every case
   * @param counts whether each line begins with the case's count
   * @param separator written between items
   * @param missing written for an item a case leaves unset
   * @throws KelvaException "usage" for an empty or bad node list, a bad case
   *     index, a null text, or (without counts) a count that is not a whole
   *     number; "io" when the file cannot be written
   */
  public void saveCases(String fileName, List<Node> nodes, long[] cases, boolean counts,
      String separator, String missing) {
    Calls.withList(nodes, list -> check(
        kDomainSaveCases(handle, fileName, list, cases, counts ? 1 : 0, separator, missing)));
  }

  // ---- Adaptation ----

  /**
   * Updates the conditional tables of the nodes with an experience table
   * from the evidence now propagated, taken as one more case: its expected
   * counts are added to the experience (after fading the experience of the
   * parent configurations the case speaks about by the fading table's
   * factors) and each row becomes its counts normalised.  A row whose
   * experience count is negative is not adapted.  The evidence stays
   * entered; the next propagation uses the new tables.
   *
   * @throws KelvaException "usage" when evidence is not propagated to sum
   *     equilibrium under the current tables; "not_compiled"; "compressed"
   */
  public void adapt() {
    check(kDomainAdapt(handle));
  }

  // ---- EM learning ----

  /** The listener of {@link #learnTables}, or null. */
  private EMProgress emProgress;

  /**
   * Learns the conditional probability tables of the nodes that have an
   * experience table from the stored cases, by EM.  A row whose experience
   * count is positive starts with that many prior cases distributed as the
   * row is now; a row whose count is negative is not learned; a row without
   * data keeps its distribution.  Entered evidence is retracted; afterwards
   * the domain is propagated without evidence.  On failure the tables are
   * as before.
   *
   * @throws KelvaException "usage" when there are no cases, their total
   *     count is 0 or no node has an experience table; "not_compiled";
   *     "inconsistency_or_underflow" for a case that is impossible under the
   *     current tables; "io" when the log cannot be written; "jni" when the
   *     progress listener threw (its exception is what the caller sees)
   */
  public void learnTables() {
    check(kDomainLearnTables(handle, emProgress));
  }

  /**
   * Sets the listener told of every iteration of {@link #learnTables}.
   *
   * @param progress the listener, or null for none
   */
  public void setEMProgress(EMProgress progress) {
    emProgress = progress;
  }

  /**
   * The listener of {@link #learnTables}.
   *
   * @return the listener, or null
   */
  public EMProgress getEMProgress() {
    return emProgress;
  }

  /**
   * Sets the relative tolerance of EM: learning stops when the
   * log-likelihood changes by at most this fraction of its value.
   *
   * @param tolerance the tolerance, at least 0 (0.0001 for a new domain)
   * @throws KelvaException "usage" for a negative tolerance or NaN
   */
  public void setLogLikelihoodTolerance(double tolerance) {
    check(kDomainSetLogLikelihoodTolerance(handle, tolerance));
  }

  /**
   * The relative tolerance of EM.
   *
   * @return the tolerance
   * @throws KelvaException when the domain is closed
   */
  public double getLogLikelihoodTolerance() {
    return check(kDomainGetLogLikelihoodTolerance(handle));
  }

  /**
   * Sets the largest number of EM iterations.
   *
   * @param count the limit, 0 for none
   * @throws KelvaException "usage" for a negative count
   */
  public void setMaxNumberOfEMIterations(long count) {
    if (count < 0) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    check(kDomainSetMaxNumberOfEMIterations(handle, count));
  }

  /**
   * The largest number of EM iterations.
   *
   * @return the limit, 0 for none
   * @throws KelvaException when the domain is closed
   */
  public long getMaxNumberOfEMIterations() {
    return check(kDomainGetMaxNumberOfEMIterations(handle));
  }

  /**
   * The log-likelihood of the stored cases under the current tables: the
   * sum over the cases of count times the log of the case's probability (0
   * without cases).  Entered evidence is retracted.
   *
   * @return the log-likelihood
   * @throws KelvaException "not_compiled"; "inconsistency_or_underflow" for
   *     an impossible case
   */
  public double getLogLikelihood() {
    return check(kDomainGetLogLikelihood(handle));
  }

  /**
   * The log-likelihood minus the number of free parameters.
   *
   * @return the AIC score
   * @throws KelvaException as {@link #getLogLikelihood}
   */
  public double getAIC() {
    return check(kDomainGetAIC(handle));
  }

  /**
   * The log-likelihood minus half the number of free parameters times the
   * log of the total case count.
   *
   * @return the BIC score
   * @throws KelvaException as {@link #getLogLikelihood}; "usage" when the
   *     total case count is 0
   */
  public double getBIC() {
    return check(kDomainGetBIC(handle));
  }

  // ---- Data sets (kDomainAddCases) ----

  /**
   * Appends every row of a data set to the stored cases; see
   * {@link #addCases(DataSet, long, long)}.
   *
   * @param data the data set
   * @throws KelvaException as {@link #addCases(DataSet, long, long)}
   */
  public void addCases(DataSet data) {
    addCases(data, 0, data.getNumberOfRows());
  }

  /**
   * Appends rows {@code start .. start+count-1} of a data set to the stored
   * cases, one case per row, giving each column to the node of the same
   * name.  Columns without such a node, or whose node cannot hold case
   * items (utility and real-valued function nodes), are ignored; a column
   * named "#" gives the cases' counts.  A missing cell leaves the node's
   * item unset; a present one is a value for a continuous node, for a
   * numbered (interval) node a number equal to (inside) a state's value
   * (interval), "false" or "true" for a boolean node, a state label held
   * by one state, or "#" and a state index.
   *
   * @param data the data set
   * @param start the first row
   * @param count the number of rows
   * @throws KelvaException "usage" (and no case is added) for a cell that
   *     names no state or value, a bad count, two columns for one node,
   *     rows out of range; "case_state_too_large" for a state above 32767
   */
  public void addCases(DataSet data, long start, long count) {
    check(kDomainAddCases(handle, data.handle(), start, count));
  }

  // ---- SAS node and link files ----

  /**
   * Reads a SAS node file into the domain.  Each line is a node name, an
   * optional comma, a type letter and, for the letters L, N and I, a state:
   * L (labelled), B (boolean), N (numbered) and I (interval) make discrete
   * chance nodes, C a continuous chance node and F a real-valued function
   * node.  The state is a label (a name or a quoted string) for L, a value
   * (a number or {@code infinity}, optionally signed) for N and an interval
   * bound for I.  The first line of a node creates it with its first state;
   * each later line adds one state.  The bounds of an interval node are its
   * state values: n bounds give n-1 states, and a node with fewer than two
   * bounds is refused as incomplete.  Nodes that were in the domain before
   * are never changed.  The reader stops at the first error; the domain then
   * holds none of the file's nodes.
   *
   * @param fileName the file
   * @param listener receives each error and warning with its line number;
   *     may be null
   * @throws KelvaException "parse" when the file has errors (or the code of
   *     an engine operation that refused, such as "cg_limids_not_supported"),
   *     "io" when it cannot be read, "usage" for a null name or a closed
   *     domain
   * @throws RuntimeException what the listener threw; the domain holds none
   *     of the file's nodes and the listener hears nothing more
   */
  public void parseSASNodes(String fileName, ParseListener listener) {
    check(kDomainParseSASNodes(handle, fileName, listener));
    adoptNewNodes();
  }

  /**
   * Reads a SAS link file into the domain.  Each line names a child followed
   * by its parents (commas may separate the names); a link from each parent
   * to the child is added in the order written.  A line with a single name
   * adds nothing, and an empty file is valid.  The reader stops at the first
   * error; the links the file added are then removed again and the
   * children's tables hold what they held before.
   *
   * @param fileName the file
   * @param listener receives each error with its line number; may be null
   * @throws KelvaException "parse" when the file has errors (a name that is
   *     not a node, a link the domain refuses), "io" when it cannot be read,
   *     "usage" for a null name or a closed domain
   * @throws RuntimeException what the listener threw; no link of the file
   *     stays
   */
  public void parseSASLinks(String fileName, ParseListener listener) {
    check(kDomainParseSASLinks(handle, fileName, listener));
  }

  /**
   * Reads a SAS table file into the table of a chance node.  The first line
   * names the node and all its discrete parents, in any order; for a
   * continuous node it goes on with {@code alpha}, all its continuous
   * parents and {@code variance}.  Each further line gives one configuration
   * of the discrete parents: a state label per parent in the header's
   * order, then for a discrete node one nonnegative number per state, for a
   * continuous node the mean's constant, a regression coefficient per
   * continuous parent of the header and the variance.  Every configuration
   * is given exactly once, in any order.  The table changes only when the
   * whole file was read.
   *
   * @param fileName the file
   * @param listener receives each error with its line number; may be null
   * @throws KelvaException "parse" when the file has errors, "io" when it
   *     cannot be read, "usage" for a null name or a closed domain
   * @throws RuntimeException what the listener threw (on an error the
   *     table is as it was; on a warning of a file that then parsed it holds
   *     the file's values)
   */
  public void parseSASTable(String fileName, ParseListener listener) {
    check(kDomainParseSASTable(handle, fileName, listener));
  }

  /**
   * Reads node entries of the older network format into the domain.  Each
   * entry makes a discrete chance node: its name, a label string, its number
   * of states (1 to 65535), optionally one label string per state,
   * optionally a position (two numbers), its parents each as a name
   * followed by that parent's number of states, and its table in
   * parentheses (the parents in the order written, the first slowest, the
   * node fastest).  A name may be used as a parent before its entry; nodes
   * that were in the domain before may be parents but get no entry.  The
   * reader stops at the first error (every name used without an entry is
   * reported); the domain then holds none of the file's nodes.
   *
   * @param fileName the file
   * @param listener receives each error and warning with its line number;
   *     may be null
   * @throws KelvaException "parse" when the file has errors (or the code of
   *     an engine operation that refused, such as "invalid_name"), "io" when
   *     it cannot be read, "usage" for a null name or a closed domain
   * @throws RuntimeException what the listener threw; the domain holds none
   *     of the file's nodes
   */
  public void parseNodes(String fileName, ParseListener listener) {
    check(kDomainParseNodes(handle, fileName, listener));
    adoptNewNodes();
  }

  // MAP configurations, simulation and approximation.

  /** The nodes of the last MAP search, in the order given to it. */
  private List<Node> mapNodes = List.of();

  /**
   * Finds every configuration of {@code nodes} whose probability given the
   * propagated evidence is at least {@code minProbability}, exactly; they are
   * read with {@link #getMAPConfiguration} in order of decreasing
   * probability.  The domain keeps its evidence and equilibrium.
   *
   * @param nodes distinct discrete chance nodes of this domain
   * @param minProbability the smallest probability kept, above 0 and at most 1
   * @throws KelvaException "not_compiled", "no_equilibrium", "usage" for bad
   *     nodes or minimum, max equilibrium or evidence not yet propagated
   */
  public void findMAPConfigurations(List<Node> nodes, double minProbability) {
    Calls.withList(nodes, list -> check(kDomainFindMAPConfigurations(handle, list, minProbability)));
    mapNodes = List.copyOf(nodes);
  }

  /**
   * The number of configurations the last MAP search found.
   *
   * @return the count
   * @throws KelvaException "usage" when there was no search on this
   *     compilation
   */
  public long getNumberOfMAPConfigurations() {
    return check(kDomainGetNumberOfMAPConfigurations(handle));
  }

  /**
   * The states of a configuration found by the last MAP search.
   *
   * @param index 0 for the most probable
   * @return one state index per node, in the order given to the search
   * @throws KelvaException "usage" for an index out of range or no search
   */
  public long[] getMAPConfiguration(long index) {
    long states = check(kDomainGetMAPConfiguration(handle, index));
    long[] result = new long[mapNodes.size()];
    for (int i = 0; i < result.length; i++) {
      result[i] = kListGetItem(states, i);
    }
    return result;
  }

  /**
   * The probability given the evidence of a configuration of the last MAP
   * search.
   *
   * @param index 0 for the most probable
   * @return the probability
   * @throws KelvaException "usage" for an index out of range or no search
   */
  public double getProbabilityOfMAPConfiguration(long index) {
    return check(kDomainGetProbabilityOfMAPConfiguration(handle, index));
  }

  /**
   * Draws one configuration of all nodes from the posterior given the
   * propagated evidence; read it with {@link Node#getSampledState} and the
   * like.
   *
   * @throws KelvaException "not_compiled", "no_equilibrium", "usage" for max
   *     equilibrium or evidence not yet propagated
   */
  public void simulate() {
    check(kDomainSimulate(handle));
  }

  /**
   * Restarts the domain's random stream (a 64-bit Mersenne Twister seeded
   * with {@code seed}; a new domain has seed 0).
   *
   * @param seed the seed
   */
  public void seedRandom(long seed) {
    check(kDomainSeedRandom(handle, seed));
  }

  /**
   * A uniform deviate from the domain's random stream.
   *
   * @return a number in [0, 1)
   */
  public double getUniformDeviate() {
    return check(kDomainGetUniformDeviate(handle));
  }

  /**
   * A normal deviate from the domain's random stream.
   *
   * @param mean the mean
   * @param variance the variance, at least 0
   * @return the deviate
   * @throws KelvaException "usage" for a negative or non-finite variance
   */
  public double getNormalDeviate(double mean, double variance) {
    return check(kDomainGetNormalDeviate(handle, mean, variance));
  }

  /**
   * Sets to zero the smallest entries of each clique table whose total
   * probability is at most {@code epsilon}, compresses the domain and
   * propagates it again.
   *
   * @param epsilon at least 0, below 1
   * @return the probability mass kept
   * @throws KelvaException "usage" with evidence or for domains that cannot
   *     be compressed, "compressed", "not_compiled", "no_equilibrium"
   */
  public double approximate(double epsilon) {
    return check(kDomainApproximate(handle, epsilon));
  }

  /**
   * The probability mass the last approximation kept.
   *
   * @return the constant, 1 when the domain was not approximated
   * @throws KelvaException "not_compiled"
   */
  public double getApproximationConstant() {
    return check(kDomainGetApproximationConstant(handle));
  }

  /**
   * Gives every engine node that has no Java node yet (nodes a file or a
   * learner made) one, and returns those, oldest first.
   */
  private List<Node> adoptNewNodes() {
    List<Node> adopted = new ArrayList<>();
    for (long n = check(kDomainGetFirstNode(handle)); n != 0; n = check(kNodeGetNext(n))) {
      if (!nodes.containsKey(n)) {
        Node node = new Node(this);
        check(kNodeAttachPeer(n, node));
        nodes.put(n, node);
        adopted.add(0, node);
      }
    }
    return adopted;
  }

  // ---- Structure learning ----

  /**
   * Sets the significance level of the independence tests.
   *
   * @param level a level strictly between 0 and 1 (default 0.05)
   * @throws KelvaException "usage" for a level outside (0, 1)
   */
  public void setSignificanceLevel(double level) {
    check(kDomainSetSignificanceLevel(handle, level));
  }

  /**
   * The significance level of the independence tests.
   *
   * @return the level
   */
  public double getSignificanceLevel() {
    return check(kDomainGetSignificanceLevel(handle));
  }

  /**
   * The p-value of a G² statistic: the probability that a chi-square
   * variable with {@code degrees} degrees of freedom reaches it.
   *
   * @param statistic the statistic
   * @param degrees the degrees of freedom
   * @return the p-value
   * @throws KelvaException "usage" for a NaN or infinite statistic
   */
  public static double computeProbabilityOfIndependence(double statistic, long degrees) {
    return check(kComputeProbabilityOfIndependence(statistic, degrees));
  }

  /**
   * Tests every pair of nodes for independence in the stored cases; read the
   * p-values with {@link Node#getDataIndependency}.
   *
   * @throws KelvaException "usage" when the cases cannot be used
   */
  public void performMarginalIndependenceTests() {
    check(kDomainPerformMarginalIndependenceTests(handle));
  }

  /**
   * Learns the links by the PC algorithm with G² tests at the significance
   * level, keeps the PDAG and installs one of its DAGs with uniform tables.
   *
   * @throws KelvaException "usage" when the cases cannot be used (a node
   *     that is no discrete chance node, a constant node, fewer than two
   *     cases); nothing changes then
   */
  public void learnStructure() {
    check(kDomainLearnStructure(handle));
  }

  /**
   * Learns a Chow-Liu tree directed from {@code root}, or with a target the
   * tree-augmented naive Bayes classifier of the target.
   *
   * @param root the root of the tree
   * @param target the class node, or null
   * @throws KelvaException as {@link #learnStructure}; "usage" when the
   *     constraints cannot be met by a tree
   */
  public void learnTreeStructure(Node root, Node target) {
    check(kDomainLearnTreeStructure(handle, root.handle(), target == null ? 0 : target.handle()));
  }

  /**
   * Learns the links by hill climbing over single link changes.
   *
   * @param score the score to maximise
   * @param tabuLength steps through worse networks allowed (0: none)
   * @param restarts further climbs from randomly changed best networks
   * @param fromCurrent start from the current links instead of none
   * @throws KelvaException as {@link #learnStructure}
   */
  public void learnGreedyStructure(Score score, long tabuLength, long restarts, boolean fromCurrent) {
    check(kDomainLearnGreedyStructure(handle, score.code(), tabuLength, restarts, fromCurrent ? 1 : 0));
  }

  // ---- Classes ----

  /** The class whose network this domain is, or null. */
  private NetworkClass ownerClass;

  /** The collection this domain was unfolded from (its nodes' sources), or null. */
  private ClassCollection unfoldedFrom;

  /** The network of the class with handle `h`; its nodes get Java nodes on first use. */
  private Domain(long h, NetworkClass owner) {
    handle = h;
    ownerClass = owner;
  }

  /** The network of a class the engine made (its handle is the class's). */
  static Domain ofClassBody(long h) {
    return new Domain(h, null);
  }

  /** Records that this domain is the network of `owner` (uncompiled now). */
  void becomeClass(NetworkClass owner) {
    ownerClass = owner;
    trees.clear();
    cliques.clear();
  }

  /** Marks the network of a deleted class closed. */
  void bodyGone() {
    handle = 0;
    nodes.clear();
    trees.clear();
    cliques.clear();
  }

  /**
   * The class whose network this domain is.
   *
   * @return the class, or null for an ordinary domain
   */
  public NetworkClass getNetworkClass() {
    return ownerClass;
  }

  /** The collection whose class this domain was unfolded from, or null. */
  ClassCollection unfoldedFrom() {
    return unfoldedFrom;
  }

  /**
   * A new domain holding a class unfolded: the class's nodes keep their
   * names, the nodes of instances are named {@code instance.node} at every
   * depth, a bound input is replaced by its actual node and an unbound one
   * keeps its own table as a prior.  Each node's source
   * ({@link Node#getSource()}) names the class nodes it copies.
   *
   * @param cls the class
   * @return the domain, to close by the caller
   * @throws KelvaException "cyclic_network" when bindings close a directed
   *     cycle; "usage" when the class is dead
   */
  public static Domain fromClass(NetworkClass cls) {
    Domain d = new Domain(check(kClassCreateDomain(cls.handle())));
    d.unfoldedFrom = cls.getClassCollection();
    return d;
  }

  /**
   * A new domain holding a window of slices of a time-slice class: node X of
   * slice t is named {@code Tt.X}, the first slice keeps the temporal clones
   * (their tables the interface prior) and in later slices a temporal clone
   * is its master's node of the slice before.  Compile it (after
   * {@link #triangulateDBN} or {@link #triangulateDBNForBK}) and move it
   * with {@link #moveDBNWindow}.
   *
   * @param cls the class
   * @param slices the number of slices, at least 1
   * @return the domain, to close by the caller
   * @throws KelvaException "usage" for 0 slices or a dead class; errors of
   *     unfolding as {@link #fromClass}
   */
  public static Domain fromClass(NetworkClass cls, long slices) {
    Domain d = new Domain(check(kClassCreateDBNDomain(cls.handle(), slices)));
    d.unfoldedFrom = cls.getClassCollection();
    return d;
  }

  // ---- Deep copies ----

  /**
   * A deep copy of the domain: nodes with their names, labels, positions,
   * attributes and states, links, tables, experience and fading tables,
   * models, chain-graph components, the node size and the domain's
   * attributes; not evidence, stored cases nor the junction forest (the
   * copy is not compiled).
   *
   * @return the copy, a domain of its own to close
   * @throws KelvaException "usage" when the domain is closed or the network
   *     of a class
   */
  public Domain cloneDomain() {
    return new Domain(check(kDomainClone(handle)));
  }

  /**
   * Gives the engine node {@code h}, new in this domain, a Java node; an
   * engine node that cannot get one is deleted again.
   */
  Node adopt(long h) {
    Node node = new Node(this);
    try {
      check(kNodeAttachPeer(h, node));
    } catch (RuntimeException e) {
      kNodeDelete(h);
      throw e;
    }
    nodes.put(h, node);
    return node;
  }

  /**
   * Learns the links by NPC: PC's tests checked by the necessary path
   * condition; the statements that fail it make uncertain edges, gathered
   * into ambiguous regions.  Each region's first solution (at first all its
   * edges) is installed with uniform tables.
   *
   * @throws KelvaException as {@link #learnStructure}
   */
  public void learnStructureNPC() {
    check(kDomainLearnStructureNPC(handle));
  }

  /**
   * The first ambiguous region of the last NPC run.
   *
   * @return the region, or null when NPC found no uncertain edge
   * @throws KelvaException "usage" without an NPC run, or when the links
   *     changed since
   */
  public AmbiguousRegion getFirstAmbiguousRegion() {
    return AmbiguousRegion.of(this, check(kDomainGetFirstAmbiguousRegion(handle)));
  }

  /**
   * Chooses {@code count} features for {@code target} by greedy forward
   * selection on the joint mutual information score and installs their
   * naive Bayes network (target to feature links, the other nodes
   * unlinked).
   *
   * @param target the class node
   * @param count how many features
   * @throws KelvaException "usage" for a count of 0 or above the nodes that
   *     can be chosen, or when the cases cannot be used
   */
  public void learnFeatures(Node target, long count) {
    check(kDomainLearnFeatures(handle, target.handle(), count));
  }

  /**
   * The distribution of the sum of the state values of numbered or boolean
   * nodes (false 0, true 1) given the propagated evidence.  The nodes of one
   * junction tree must share a clique; the trees are independent.
   *
   * @param nodes distinct numbered or boolean nodes of this domain
   * @return each distinct sum, ascending, with its probability
   * @throws KelvaException "usage" for another node, a node twice or nodes
   *     of one tree in no common clique, "not_compiled", "no_equilibrium",
   *     "size_too_large" for more than 2^20 distinct sums
   */
  public NavigableMap<Double, Double> getConvolution(List<Node> nodes) {
    double[][] out = new double[1][];
    Calls.withList(nodes, list -> {
      out[0] = kDomainGetConvolution(handle, list);
      return 0;
    });
    return sums(check(out[0]));
  }

  /** The sums and then their probabilities, as a map. */
  static NavigableMap<Double, Double> sums(double[] array) {
    NavigableMap<Double, Double> map = new TreeMap<>();
    int k = array.length / 2;
    for (int i = 0; i < k; i++) {
      map.put(array[i], array[k + i]);
    }
    return map;
  }

  /**
   * Empties the source lists of the nodes of a domain made from a class, so
   * that it no longer depends on the classes.
   *
   * @throws KelvaException "usage" for a deleted domain
   */
  public void deleteSourceLists() {
    check(kDomainDeleteSourceLists(handle));
  }

  /**
   * Learns a hierarchical naive Bayes classifier of {@code target}: naive
   * Bayes where strongly dependent attributes get latent parents (new nodes
   * named Latent1, Latent2, ...) that raise the BIC score.  Every node gets
   * tables estimated from the cases; EM ({@link #learnTables}) refines them.
   *
   * @param target the class node
   * @return the latent nodes made, oldest first
   * @throws KelvaException "usage" when the cases cannot be used or a
   *     required link cannot be kept
   */
  public List<Node> learnHNBStructure(Node target) {
    check(kDomainLearnHNBStructure(handle, target.handle()));
    return adoptNewNodes();
  }

  /**
   * Triangulates a dynamic network's window (a domain made from a time-slice
   * class) so that the interface of every slice lies in one clique, which
   * lets the window move exactly; the interface prior is initialised and
   * the offset set to 0.
   *
   * @param method the heuristic (not {@link TriangulationMethod#TOTAL_WEIGHT})
   * @throws KelvaException "usage" for a domain without a window or one
   *     already triangulated
   */
  public void triangulateDBN(TriangulationMethod method) {
    check(kDomainTriangulateDBN(handle, method.code()));
  }

  /**
   * Triangulates a window for the Boyen–Koller approximation: the interface
   * is split into clusters (interface nodes linked, or parents of one child,
   * within a slice) carried across a move as independent factors.
   *
   * @param method the heuristic (not {@link TriangulationMethod#TOTAL_WEIGHT})
   * @throws KelvaException as {@link #triangulateDBN}
   */
  public void triangulateDBNForBK(TriangulationMethod method) {
    check(kDomainTriangulateDBNForBK(handle, method.code()));
  }

  /**
   * Whether the window was triangulated for the Boyen–Koller approximation.
   *
   * @return true after {@link #triangulateDBNForBK}
   * @throws KelvaException "usage" for a domain without a window
   */
  public boolean isTriangulatedForBK() {
    return check(kDomainIsTriangulatedForBK(handle)) == 1;
  }

  /**
   * Retracts the window's evidence, restores the first interface prior and
   * the offset 0, and forgets predictions.
   *
   * @throws KelvaException "usage" for a domain without a window
   */
  public void initializeDBNWindow() {
    check(kDomainInitializeDBNWindow(handle));
  }

  /**
   * Slides the compiled window by a number of slices: the first slice's
   * temporal clones get the distribution of the interface given the
   * evidence of the slices that leave, and the other slices' evidence moves
   * with them.  Propagate afterwards.
   *
   * @param slices 1 to the window's number of slices
   * @throws KelvaException "not_compiled", "compressed", "usage" for a count
   *     out of range or an interface in no clique; errors of propagation for
   *     impossible evidence (the window is then as it was)
   */
  public void moveDBNWindow(long slices) {
    check(kDomainMoveDBNWindow(handle, slices));
  }

  /**
   * The number of slices the window moved since it was initialised.
   *
   * @return the offset
   * @throws KelvaException "usage" for a domain without a window
   */
  public long getDBNWindowOffset() {
    return check(kDomainGetDBNWindowOffset(handle));
  }

  /**
   * Propagates the window and computes the beliefs, means and variances of
   * the slice's nodes for a number of slices after it (read them with
   * {@link Node#getPredictedBelief} and its kin).
   *
   * @param steps the number of future slices
   * @throws KelvaException as {@link #moveDBNWindow}
   */
  public void computeDBNPredictions(long steps) {
    check(kDomainComputeDBNPredictions(handle, steps));
  }

  // ---- Learning class tables ----

  /**
   * Learns, by EM over the stored cases, the tables of the classes this
   * domain was made from ({@link #fromClass}): every copy of a class node
   * (each slice of a window, each instance) shares the class node's table,
   * so the expected counts of all copies are added before each M-step.  The
   * class nodes learned are the discrete chance nodes with an experience
   * table; its counts times the rows at the start are prior counts, and a
   * negative count keeps its row.  The learned tables go to the class nodes
   * and every copy in this domain (a window's first clones too while its
   * offset is 0).  The settings and log are those of {@link #learnTables};
   * its progress listener is not told.
   *
   * @throws KelvaException "usage" when the domain was not made from
   *     classes (or a node of its classes was deleted since), no class node
   *     has an experience table, a copy's table lost its class node's shape,
   *     or there are no cases; "not_compiled"; the error of a case that is
   *     impossible under the current tables (the tables are then as before)
   */
  public void learnClassTables() {
    check(kDomainLearnClassTables(handle));
  }

  /**
   * Learns the class tables by fractional updating in one pass over the
   * stored cases: each case is propagated alone and, copy by copy, the
   * class node's counts are updated as {@link #adapt} updates a node's.
   *
   * @throws KelvaException as {@link #learnClassTables}; "compressed"
   */
  public void learnClassTablesUsingFractionalUpdate() {
    check(kDomainLearnClassTablesUsingFractionalUpdate(handle));
  }

  /**
   * Learns the class tables by online EM in one pass over the stored cases:
   * for the n-th case, the statistics of each class node (experience count
   * times table entry) move towards the case's expected counts summed over
   * the copies by the step n<sup>-rate</sup>, and each row is renormalised.
   *
   * @param rate the exponent of the step size, in (0.5, 1]
   * @throws KelvaException as {@link #learnClassTablesUsingFractionalUpdate};
   *     "usage" for a rate outside (0.5, 1]
   */
  public void learnClassTablesUsingOnlineEM(double rate) {
    check(kDomainLearnClassTablesUsingOnlineEM(handle, rate));
  }

  /**
   * Updates the class tables by fractional updating from the evidence now
   * propagated, taken as one case.  The evidence stays entered.
   *
   * @throws KelvaException as {@link #adapt}, and "usage" as
   *     {@link #learnClassTables} for the domain and its classes
   */
  public void adaptClassTablesUsingFractionalUpdate() {
    check(kDomainAdaptClassTablesUsingFractionalUpdate(handle));
  }

  /**
   * Takes one step of online EM on the class tables from the evidence now
   * propagated; the step size is n<sup>-rate</sup>, n counting the online
   * steps taken through this domain (a learning pass sets the count to its
   * cases).
   *
   * @param rate the exponent of the step size, in (0.5, 1]
   * @throws KelvaException as {@link #adaptClassTablesUsingFractionalUpdate};
   *     "usage" for a rate outside (0.5, 1]
   */
  public void adaptClassTablesUsingOnlineEM(double rate) {
    check(kDomainAdaptClassTablesUsingOnlineEM(handle, rate));
  }
}
