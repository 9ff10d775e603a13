package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.ArrayList;
import java.util.List;

/**
 * A node of a domain: one variable (chance, decision, utility, function) or
 * one instance of a class.  Made by {@link Domain#newNode} or by reading a
 * domain from NET text.  A node dies when
 * it is deleted or its domain is closed; every method of a dead node throws
 * a {@link KelvaException} with the code {@link ErrorCode#USAGE}.
 */
public final class Node {
  /**
   * The engine node; the library sets it to 0 when the engine node dies.
   * (The field's name and type are part of the native interface.)
   */
  long nodePeer;

  /** The node's domain. */
  private final Domain domain;

  /** The Java objects of the node's tables, made on first request. */
  private Table table;
  private Table experienceTable;
  private Table fadingTable;

  /** The Java object of the node's model, made on first request. */
  private Model model;

  Node(Domain domain) {
    this.domain = domain;
  }

  /** The engine handle (0 once the node is dead). */
  long handle() {
    return nodePeer;
  }

  /**
   * Whether the engine node still exists.
   *
   * @return false once the node is deleted or its domain closed
   */
  public boolean isAlive() {
    return nodePeer != 0;
  }

  /**
   * The domain of the node.
   *
   * @return the domain
   */
  public Domain getDomain() {
    return domain;
  }

  /**
   * Deletes the node with its tables; its links are removed first, so its
   * children's tables lose it.
   *
   * @throws KelvaException when the node is dead
   */
  public void delete() {
    long h = nodePeer;
    kNodeDelete(h);
    check();
    domain.forget(h);
  }

  /**
   * The node's category.
   *
   * @return the category
   * @throws KelvaException when the node is dead
   */
  public Category getCategory() {
    return Category.fromCode(check(kNodeGetCategory(nodePeer)));
  }

  /**
   * The node's kind.
   *
   * @return the kind
   * @throws KelvaException when the node is dead
   */
  public Kind getKind() {
    return Kind.fromCode(check(kNodeGetKind(nodePeer)));
  }

  /**
   * The subtype of a discrete node.
   *
   * @return the subtype
   * @throws KelvaException "usage" for a node that is not discrete
   */
  public Subtype getSubtype() {
    return Subtype.fromCode(check(kNodeGetSubtype(nodePeer)));
  }

  /**
   * Changes the subtype of a discrete node; a boolean node needs exactly two
   * states.
   *
   * @param subtype the new subtype
   * @throws KelvaException "usage" when the node is not discrete or the
   *     change is not allowed
   */
  public void setSubtype(Subtype subtype) {
    check(kNodeSetDiscreteType(nodePeer, subtype.code()));
  }

  /**
   * The node's name; a node without one is given a generated name now.
   *
   * @return the name
   * @throws KelvaException when the node is dead
   */
  public String getName() {
    return check(kNodeGetName(nodePeer));
  }

  /**
   * Renames the node.
   *
   * @param name the new name
   * @throws KelvaException "twice" when another node has the name,
   *     "invalid_name" when it is no valid node name, "usage" for null
   */
  public void setName(String name) {
    check(kNodeSetName(nodePeer, name));
  }

  /**
   * The node's label.
   *
   * @return the label, the empty string when it has none
   * @throws KelvaException when the node is dead
   */
  public String getLabel() {
    return check(kNodeGetLabel(nodePeer));
  }

  /**
   * Sets the node's label.
   *
   * @param label the label
   * @throws KelvaException "usage" for null
   */
  public void setLabel(String label) {
    check(kNodeSetLabel(nodePeer, label));
  }

  /**
   * Sets the node's position for drawing.
   *
   * @param x the x coordinate
   * @param y the y coordinate
   * @throws KelvaException when the node is dead
   */
  public void setPosition(int x, int y) {
    check(kNodeSetPosition(nodePeer, x, y));
  }

  /**
   * The node's x coordinate.
   *
   * @return the coordinate
   * @throws KelvaException when the node is dead
   */
  public int getXCoordinate() {
    return check(kNodeGetXCoordinate(nodePeer));
  }

  /**
   * The node's y coordinate.
   *
   * @return the coordinate
   * @throws KelvaException when the node is dead
   */
  public int getYCoordinate() {
    return check(kNodeGetYCoordinate(nodePeer));
  }

  /**
   * The number of states of a discrete node.
   *
   * @return the count
   * @throws KelvaException "usage" for a node that is not discrete
   */
  public long getNumberOfStates() {
    return check(kNodeGetNumberOfStates(nodePeer));
  }

  /**
   * Sets the number of states of a discrete node that is not boolean; the
   * tables of the node and its children change shape with it.
   *
   * @param count the new count, at least 1
   * @throws KelvaException "usage" for a boolean or non-discrete node or 0
   */
  public void setNumberOfStates(long count) {
    check(kNodeSetNumberOfStates(nodePeer, count));
  }

  /**
   * Splits every interval of an interval node in two at its midpoint (an
   * unbounded interval next to its finite bound, a neighbour's width away).
   * The node's table halves each state's probability between the halves;
   * children's tables repeat the rows, their experience halves the counts.
   * State labels are removed; the domain is uncompiled.
   *
   * @throws KelvaException "usage" for a node that is not an interval node
   *     or has a continuous child; "invalid_state_values"
   */
  public void doubleNumberOfIntervals() {
    check(kNodeDoubleNumberOfIntervals(nodePeer));
  }

  /**
   * Merges the intervals of an interval node two by two: the node's table
   * adds the two probabilities, children's tables average the two rows and
   * add their experience counts.  State labels are removed; the domain is
   * uncompiled.
   *
   * @throws KelvaException "usage" for a node that is not an interval node,
   *     has an odd number of states or a continuous child
   */
  public void halveNumberOfIntervals() {
    check(kNodeHalveNumberOfIntervals(nodePeer));
  }

  /**
   * The label of a state: its own label, else "false" or "true" for a
   * boolean node, else the empty string.
   *
   * @param state the state index
   * @return the label
   * @throws KelvaException "usage" for an index out of range
   */
  public String getStateLabel(long state) {
    return check(kNodeGetStateLabel(nodePeer, state));
  }

  /**
   * Sets the label of a state.
   *
   * @param state the state index
   * @param label the label
   * @throws KelvaException "usage" for an index out of range or null
   */
  public void setStateLabel(long state, String label) {
    check(kNodeSetStateLabel(nodePeer, state, label));
  }

  /**
   * The index of the only state with a given label.
   *
   * @param label the label
   * @return the index, or -1 when no state or several states have it
   * @throws KelvaException "usage" for a node that is not discrete or null
   */
  public long getStateIndex(String label) {
    return check(kNodeGetStateIndexFromLabel(nodePeer, label));
  }

  /**
   * The value of a state of a numeric (number or interval) node.
   *
   * @param state the state index
   * @return the value
   * @throws KelvaException "usage" for a node that is not numeric or an index
   *     out of range
   */
  public double getStateValue(long state) {
    return check(kNodeGetStateValue(nodePeer, state));
  }

  /**
   * Sets the value of a state of a numeric node.
   *
   * @param state the state index
   * @param value the value
   * @throws KelvaException "usage" for a node that is not numeric or an index
   *     out of range
   */
  public void setStateValue(long state, double value) {
    check(kNodeSetStateValue(nodePeer, state, value));
  }

  /**
   * The state of a numeric node with a given value; for an interval node,
   * the state whose interval holds it.
   *
   * @param value the value
   * @return the index, or -1 when there is none
   * @throws KelvaException "usage" for a node that is not numeric
   */
  public long getStateIndex(double value) {
    return check(kNodeGetStateIndexFromValue(nodePeer, value));
  }

  /**
   * Reorders the states; the tables follow them.
   *
   * @param labels every current state label once, in the new order
   * @throws KelvaException "usage" when the labels are not a permutation of
   *     the states' labels
   */
  public void reorderStates(List<String> labels) {
    check(kNodeReorderStates(nodePeer, labels.toArray(new String[0])));
  }

  /**
   * Sets an attribute; a new key goes to the head of the list.
   *
   * @param key a C identifier
   * @param value the value; null removes the attribute
   * @throws KelvaException "invalid_name" for a key that is no C identifier
   */
  public void setAttribute(String key, String value) {
    check(kNodeSetAttribute(nodePeer, key, value));
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
    return check(kNodeGetAttribute(nodePeer, key));
  }

  /**
   * The attributes, the most recently added first.
   *
   * @return the attributes
   * @throws KelvaException when the node is dead
   */
  public List<Attribute> getAttributes() {
    return Calls.attributes(check(kNodeGetFirstAttribute(nodePeer)));
  }

  /**
   * Adds a parent.  A discrete parent becomes the first (slowest) node of
   * this node's table.
   *
   * @param parent the new parent
   * @throws KelvaException "cyclic_network" when the link would close a
   *     cycle, "usage" for a link that is not allowed
   */
  public void addParent(Node parent) {
    check(kNodeAddParent(nodePeer, parent.nodePeer));
  }

  /**
   * Removes a parent; the table keeps a distribution for each configuration
   * of the remaining parents.
   *
   * @param parent a parent of this node
   * @throws KelvaException "usage" when it is no parent
   */
  public void removeParent(Node parent) {
    check(kNodeRemoveParent(nodePeer, parent.nodePeer));
  }

  /**
   * Replaces a parent by another node of the same kind and number of states,
   * keeping the table's data.
   *
   * @param oldParent a parent of this node
   * @param newParent its replacement
   * @throws KelvaException "usage" when the replacement is not allowed,
   *     "cyclic_network" when it would close a cycle
   */
  public void switchParent(Node oldParent, Node newParent) {
    check(kNodeSwitchParent(nodePeer, oldParent.nodePeer, newParent.nodePeer));
  }

  /**
   * Reverses the link from this node to {@code child}, keeping the joint
   * distribution.
   *
   * @param child a child of this node
   * @throws KelvaException "usage" when there is no such link or it cannot
   *     be reversed, "cyclic_network" when reversing would close a cycle
   */
  public void reverseEdge(Node child) {
    check(kNodeReverseEdge(nodePeer, child.nodePeer));
  }

  /**
   * The parents, in the order they were added.
   *
   * @return the parents
   * @throws KelvaException when the node is dead
   */
  public List<Node> getParents() {
    return Calls.nodes(domain, check(kNodeGetParents(nodePeer)));
  }

  /**
   * The children, in the order they were added.
   *
   * @return the children
   * @throws KelvaException when the node is dead
   */
  public List<Node> getChildren() {
    return Calls.nodes(domain, check(kNodeGetChildren(nodePeer)));
  }

  /**
   * Whether the node has a table.
   *
   * @return true for chance, utility and discrete function nodes
   * @throws KelvaException when the node is dead
   */
  public boolean hasTable() {
    return check(kNodeHasTable(nodePeer)) == 1;
  }

  /**
   * The node's table: conditional probabilities, utilities or function
   * values.  The same Java object is returned as long as the engine table
   * lives.
   *
   * @return the table
   * @throws KelvaException "usage" for a node without a table
   */
  public Table getTable() {
    return table = peeredTable(table, TableGetter.CONDITIONAL);
  }

  /**
   * Whether the node has an experience table.
   *
   * @return true when it has one
   * @throws KelvaException when the node is dead
   */
  public boolean hasExperienceTable() {
    return check(kNodeHasExperienceTable(nodePeer)) == 1;
  }

  /**
   * The node's experience table, created (all zeros) on first request.
   *
   * @return the table
   * @throws KelvaException "usage" for a node that cannot have one
   */
  public Table getExperienceTable() {
    return experienceTable = peeredTable(experienceTable, TableGetter.EXPERIENCE);
  }

  /**
   * Whether the node has a fading table.
   *
   * @return true when it has one
   * @throws KelvaException when the node is dead
   */
  public boolean hasFadingTable() {
    return check(kNodeHasFadingTable(nodePeer)) == 1;
  }

  /**
   * The node's fading table, created (all ones) on first request.
   *
   * @return the table
   * @throws KelvaException "usage" for a node that cannot have one
   */
  public Table getFadingTable() {
    return fadingTable = peeredTable(fadingTable, TableGetter.FADING);
  }

  /**
   * Gives the node a new model, deleting its previous one.  The node's table
   * must then be generated.
   *
   * @param modelNodes the model nodes: discrete parents of the node; one
   *     slot of the model belongs to each of their configurations
   * @return the model, all slots empty
   * @throws KelvaException "usage" for an instance or continuous node, or
   *     model nodes that are not discrete parents of it
   */
  public Model newModel(List<Node> modelNodes) {
    Model fresh = new Model(this);
    Calls.withList(modelNodes, list -> kNodeNewModel(nodePeer, list, fresh));
    check();
    return model = fresh;
  }

  /**
   * The node's model.  The same Java object is returned as long as the engine
   * model lives.
   *
   * @return the model, or null when the node has none
   * @throws KelvaException when the node is dead
   */
  public Model getModel() {
    long h = check(kNodeGetModel(nodePeer, null));
    if (h == 0) {
      return null;
    }
    if (model != null && model.modelPeer == h) {
      return model;
    }
    Model fresh = new Model(this);
    check(kNodeGetModel(nodePeer, fresh));
    return model = fresh;
  }

  /**
   * Generates the node's table from its model, if the table needs it.
   *
   * @throws KelvaException "usage" for a node without a model; for a model
   *     that cannot describe the table, the error that stopped the
   *     generation
   */
  public void generateTable() {
    check(kNodeGenerateTable(nodePeer));
  }

  // Compilation.

  /**
   * The junction tree holding the clique to which the node's table is
   * assigned.
   *
   * @return the tree
   * @throws KelvaException "not_compiled" when the domain is not
   *     triangulated; "usage" for a node that takes no part in the junction
   *     forest
   */
  public JunctionTree getJunctionTree() {
    return domain.treeOf(check(kNodeGetJunctionTree(nodePeer)));
  }

  // ---- Evidence ----

  /**
   * Enters the evidence that the discrete node is in state {@code state}.
   *
   * @param state the state index
   * @throws KelvaException "usage" when the node is not discrete or the
   *     index is not below its number of states
   */
  public void selectState(long state) {
    check(kNodeSelectState(nodePeer, state));
  }

  /**
   * Sets the finding of one state of a discrete node: 0 rules the state
   * out, 1 leaves it possible, other values weigh it (a likelihood).
   *
   * @param state the state index
   * @param value the finding, at least 0 and below the largest double
   * @throws KelvaException "usage" for a node that is not discrete, a state
   *     out of range, or a negative, infinite or NaN value
   */
  public void enterFinding(long state, double value) {
    check(kNodeEnterFinding(nodePeer, state, value));
  }

  /**
   * Enters a value: the value of a continuous node, or, on a number or
   * interval node, the selection of the state that holds the value.
   *
   * @param value the value
   * @throws KelvaException "usage" for a node of another sort, a value that
   *     no state holds, or a value that is not finite on a continuous node;
   *     "invalid_state_values" when the node's state values do not increase
   */
  public void enterValue(double value) {
    check(kNodeEnterValue(nodePeer, value));
  }

  /**
   * Removes the evidence entered on the node; nothing happens when there is
   * none.
   *
   * @throws KelvaException "usage" for a node that is neither discrete nor
   *     continuous
   */
  public void retractFindings() {
    check(kNodeRetractFindings(nodePeer));
  }

  /**
   * Whether evidence is entered on the node.
   *
   * @return true when a state is selected, a finding other than all ones is
   *     entered, or a continuous node has a value
   * @throws KelvaException "usage" for a node that is neither discrete nor
   *     continuous
   */
  public boolean evidenceIsEntered() {
    return check(kNodeEvidenceIsEntered(nodePeer)) == 1;
  }

  /**
   * Whether the node had evidence when its junction tree was last
   * propagated.
   *
   * @return true when the propagated evidence is not empty
   * @throws KelvaException "usage" for a node that is neither discrete nor
   *     continuous
   */
  public boolean evidenceIsPropagated() {
    return check(kNodeEvidenceIsPropagated(nodePeer)) == 1;
  }

  /**
   * Whether the entered evidence is a likelihood: a finding with some value
   * other than 0 and 1.
   *
   * @return true for a likelihood
   * @throws KelvaException "usage" for a node that is neither discrete nor
   *     continuous
   */
  public boolean likelihoodIsEntered() {
    return check(kNodeLikelihoodIsEntered(nodePeer)) == 1;
  }

  /**
   * Whether the propagated evidence is a likelihood.
   *
   * @return true for a likelihood
   * @throws KelvaException "usage" for a node that is neither discrete nor
   *     continuous
   */
  public boolean likelihoodIsPropagated() {
    return check(kNodeLikelihoodIsPropagated(nodePeer)) == 1;
  }

  /**
   * Whether the entered evidence differs from the propagated evidence.
   *
   * @return true when a propagation would change what the node contributes
   * @throws KelvaException "usage" for a node that is neither discrete nor
   *     continuous
   */
  public boolean evidenceToPropagate() {
    return check(kNodeEvidenceToPropagate(nodePeer)) == 1;
  }

  /**
   * The entered finding of a state of a discrete node.
   *
   * @param state the state index
   * @return the finding: 1 for every state when there is no evidence, 1 for
   *     the selected state and 0 for the others
   * @throws KelvaException "usage" for a node that is not discrete or a
   *     state out of range
   */
  public double getEnteredFinding(long state) {
    return check(kNodeGetEnteredFinding(nodePeer, state));
  }

  /**
   * The finding of a state as of the last propagation.
   *
   * @param state the state index
   * @return the finding
   * @throws KelvaException "usage" for a node that is not discrete or a
   *     state out of range
   */
  public double getPropagatedFinding(long state) {
    return check(kNodeGetPropagatedFinding(nodePeer, state));
  }

  /**
   * The selected state of a discrete node.
   *
   * @return the state index
   * @throws KelvaException "usage" when no single state is selected
   */
  public long getSelectedState() {
    return check(kNodeGetSelectedState(nodePeer));
  }

  /**
   * The state selected as of the last propagation.
   *
   * @return the state index
   * @throws KelvaException "usage" when no single state was selected
   */
  public long getPropagatedState() {
    return check(kNodeGetPropagatedState(nodePeer));
  }

  /**
   * The entered value of a continuous node, or the value entered on a
   * number or interval node.
   *
   * @return the value
   * @throws KelvaException "usage" when no value is entered
   */
  public double getEnteredValue() {
    return check(kNodeGetEnteredValue(nodePeer));
  }

  /**
   * The value of a continuous node as of the last propagation.
   *
   * @return the value
   * @throws KelvaException "usage" when no value was propagated
   */
  public double getPropagatedValue() {
    return check(kNodeGetPropagatedValue(nodePeer));
  }

  /**
   * Writes the node's beliefs (or mean and variance, or value) to its
   * domain's log file; nothing is written when no log file is set.
   *
   * @throws KelvaException "usage" for a node that is neither discrete,
   *     continuous nor a function node, "not_compiled" when the domain is
   *     not compiled, "no_equilibrium" when the node's tree holds no
   *     equilibrium, "io" when the log cannot be written
   */
  public void reportBeliefs() {
    check(kNodeReportBeliefs(nodePeer));
  }

  /**
   * The belief of a state of a discrete node: its probability given the
   * propagated evidence (or max-marginal after max propagation).
   *
   * @param state the state index
   * @return the belief
   * @throws KelvaException "usage" for a node that is not discrete or a state
   *     out of range, "not_compiled" when the node belongs to no junction
   *     tree, "no_equilibrium"
   */
  public double getBelief(long state) {
    return check(kNodeGetBelief(nodePeer, state));
  }

  /**
   * The ancestors (not the node itself), breadth-first from the parents.
   *
   * @return the ancestors
   * @throws KelvaException when the node is dead
   */
  public List<Node> getAncestors() {
    return Calls.nodes(domain, check(kNodeGetAncestors(nodePeer)));
  }

  /**
   * The descendants (not the node itself), breadth-first from the children.
   *
   * @return the descendants
   * @throws KelvaException when the node is dead
   */
  public List<Node> getDescendants() {
    return Calls.nodes(domain, check(kNodeGetDescendants(nodePeer)));
  }

  /**
   * The neighbours in the moral graph: parents, children and the children's
   * other parents.
   *
   * @return the moral neighbours
   * @throws KelvaException when the node is dead
   */
  public List<Node> getMoralNeighbors() {
    return Calls.nodes(domain, check(kNodeGetMoralNeighbors(nodePeer)));
  }

  /**
   * The entropy (natural logarithm) of the propagated beliefs.
   *
   * @return the entropy
   * @throws KelvaException "usage", "not_compiled", "no_equilibrium"
   */
  public double getEntropy() {
    return check(kNodeGetEntropy(nodePeer));
  }

  /**
   * The mutual information (natural logarithm) of this node and
   * {@code other} under the entered evidence: the expected fall of this
   * node's entropy when {@code other} is observed.
   *
   * @param other a discrete node of the same domain
   * @return the mutual information
   * @throws KelvaException "usage", "not_compiled", "compressed"
   */
  public double getMutualInformation(Node other) {
    return check(kNodeGetMutualInformation(nodePeer, other.handle()));
  }

  /**
   * Computes the sensitivity of P(this = state | evidence) to every entry of
   * every chance node's table.
   *
   * @param state the output state
   * @throws KelvaException "usage", "not_compiled", "compressed",
   *     "inconsistency_or_underflow" for impossible evidence
   */
  public void computeSensitivityData(long state) {
    check(kNodeComputeSensitivityData(nodePeer, state));
  }

  /**
   * The constants alpha, beta, gamma, delta of entry {@code input} of this
   * node's table for output {@code output} of the last sensitivity
   * computation: with the entry at t (its column mates scaled to keep the
   * sum 1), the output is (alpha t + beta) / (gamma t + delta).
   *
   * @param input the entry's index in the node's table
   * @param output the output's index (0 for the single output)
   * @return the four constants
   * @throws KelvaException "usage" when no data were computed on the current
   *     junction forest, or an index is out of range
   */
  public double[] getSensitivityConstants(long input, long output) {
    double[] constants = new double[4];
    check(kNodeGetSensitivityConstants2(nodePeer, input, output, constants));
    return constants;
  }

  /**
   * Scores every subset of at most {@code maxSubsetSize} items of the
   * evidence (the selected states of other nodes) as an explanation of this
   * node being in {@code state}, by its Bayes factor; read them from the
   * domain, best first.
   *
   * @param state the hypothesis state
   * @param maxSubsetSize the largest subset (1 or more)
   * @throws KelvaException "usage" when the hypothesis is certain or
   *     impossible without the evidence, "not_compiled"
   */
  public void computeExplanationData(long state, long maxSubsetSize) {
    check(kNodeComputeExplanationData(nodePeer, state, maxSubsetSize));
  }

  /**
   * The Bayes factor of all the evidence's items for this node being in
   * {@code state}.
   *
   * @param state the hypothesis state
   * @return the factor (may be infinite)
   * @throws KelvaException as {@link #computeExplanationData}
   */
  public double getTotalImpact(long state) {
    return check(kNodeGetTotalImpact(nodePeer, state));
  }

  /**
   * The expected utility of a utility node.
   *
   * @return the expected utility
   * @throws KelvaException "usage" for a node that is not a utility node,
   *     "not_compiled", "no_equilibrium"
   */
  public double getExpectedUtility() {
    return check(kNodeGetExpectedUtility(nodePeer, 0));
  }

  /**
   * The expected utility of a state of a node.
   *
   * @param state the state index (ignored for utility nodes)
   * @return the expected utility
   * @throws KelvaException "usage" for a node that keeps no expected
   *     utilities, "not_compiled", "no_equilibrium"
   */
  public double getExpectedUtility(long state) {
    return check(kNodeGetExpectedUtility(nodePeer, state));
  }

  /**
   * The policy of a decision node: its table, one distribution over the
   * options per configuration of its parents.
   *
   * @return the policy
   * @throws KelvaException "usage" for a node that is not a decision
   */
  public Table getPolicy() {
    if (getCategory() != Category.DECISION) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    return getTable();
  }

  /**
   * The expected utility of each option of a decision given each
   * configuration of its parents, as a new free-standing table over the
   * policy's nodes that the caller owns.
   *
   * @return the decision utilities
   * @throws KelvaException "usage" for a node that is not a decision or a
   *     domain without utility nodes, "not_compiled", "no_equilibrium"
   */
  public Table getDecisionUtilities() {
    Table utilities = new Table(domain);
    kNodeGetDecisionUtilities(nodePeer, utilities);
    check();
    return utilities;
  }

  /**
   * The parents of a decision that can change its best choice (the others
   * are d-separated from the utilities below it by its other parents, once
   * the links of such parents of all decisions are dropped).
   *
   * @return the requisite parents, in parent order
   * @throws KelvaException "usage" for a node that is not a decision
   */
  public List<Node> getRequisiteParents() {
    return Calls.nodes(domain, check(kNodeGetRequisiteParents(nodePeer)));
  }

  /**
   * The chance and decision nodes from which a decision is reached once
   * the links of unrequisite parents are dropped.
   *
   * @return the requisite ancestors, in the domain's node order
   * @throws KelvaException "usage" for a node that is not a decision
   */
  public List<Node> getRequisiteAncestors() {
    return Calls.nodes(domain, check(kNodeGetRequisiteAncestors(nodePeer)));
  }

  /**
   * The largest entry of a utility node's utility table.
   *
   * @return the best utility the node can score
   * @throws KelvaException "usage" for a node that is not a utility node
   */
  public double getMaxUtility() {
    return check(kNodeGetMaxUtility(nodePeer));
  }

  /**
   * The smallest entry of a utility node's utility table.
   *
   * @return the worst utility the node can score
   * @throws KelvaException "usage" for a node that is not a utility node
   */
  public double getMinUtility() {
    return check(kNodeGetMinUtility(nodePeer));
  }

  /**
   * The variance of a utility node's utility given the evidence, under the
   * policies, as of the last propagation.
   *
   * @return the variance
   * @throws KelvaException "usage" for a node that is not a utility node,
   *     "not_compiled", "no_equilibrium"
   */
  public double getVarianceOfUtility() {
    if (getCategory() != Category.UTILITY) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    return check(kNodeGetVarianceOfUtility(nodePeer, 0));
  }

  /**
   * The variance of the domain's total utility when a decision takes an
   * option (the decision's policy and manual choice set aside, the other
   * decisions following their policies), given the evidence, as of the
   * last propagation; for a utility node, the variance of its own utility.
   *
   * @param state the option (ignored for utility nodes)
   * @return the variance
   * @throws KelvaException "usage" for another node or a state out of
   *     range, "not_compiled", "no_equilibrium", "functional_dependency"
   */
  public double getVarianceOfUtility(long state) {
    return check(kNodeGetVarianceOfUtility(nodePeer, state));
  }

  /**
   * The clique whose conflict factor holds the conflict of the node's
   * evidence (the root clique of its tree's last propagation).
   *
   * @return the clique
   * @throws KelvaException "usage" for a node of kind other, a domain with
   *     decision nodes or a tree not in sum equilibrium, "not_compiled",
   *     "no_equilibrium", "cg_evidence_incorporated"
   */
  public Clique getConflictClique() {
    return domain.cliqueOf(check(kNodeGetConflictClique(nodePeer)));
  }

  /** The three table natives, which take the Java table to attach last. */
  private enum TableGetter {
    CONDITIONAL,
    EXPERIENCE,
    FADING;

    long get(long node, Table table) {
      switch (this) {
        case CONDITIONAL:
          return kNodeGetTable(node, table);
        case EXPERIENCE:
          return kNodeGetExperienceTable(node, table);
        default:
          return kNodeGetFadingTable(node, table);
      }
    }
  }

  /**
   * The Java table of one of the node's tables: {@code cached} when it is
   * still the engine table's peer, else a new one attached as its peer.
   */
  private Table peeredTable(Table cached, TableGetter getter) {
    long h = check(getter.get(nodePeer, null));
    if (cached != null && cached.tablePeer == h) {
      return cached;
    }
    Table fresh = new Table(domain);
    check(getter.get(nodePeer, fresh));
    return fresh;
  }

  // ---- Stored cases ----

  /**
   * Sets the state of a discrete node in a stored case.
   *
   * @param index the case index
   * @param state the state index
   * @throws KelvaException "case_state_too_large" above 32767; "usage" for a
   *     node that is not discrete, a bad case index or a state the node does
   *     not have
   */
  public void setCaseState(long index, long state) {
    if (state < 0) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    check(kNodeSetCaseState(nodePeer, index, state));
  }

  /**
   * The state of a discrete node in a stored case.
   *
   * @param index the case index
   * @return the state index
   * @throws KelvaException "no_value" when the case gives the node no state;
   *     "usage" for a node that is not discrete or a bad case index
   */
  public long getCaseState(long index) {
    return check(kNodeGetCaseState(nodePeer, index));
  }

  /**
   * Sets the value of a continuous node in a stored case.
   *
   * @param index the case index
   * @param value a finite value
   * @throws KelvaException "usage" for a node that is not continuous, a bad
   *     case index or a value that is not finite
   */
  public void setCaseValue(long index, double value) {
    check(kNodeSetCaseValue(nodePeer, index, value));
  }

  /**
   * The value of a continuous node in a stored case.
   *
   * @param index the case index
   * @return the value
   * @throws KelvaException "no_value" when the case gives the node no value;
   *     "usage" for a node that is not continuous or a bad case index
   */
  public double getCaseValue(long index) {
    return check(kNodeGetCaseValue(nodePeer, index));
  }

  /**
   * Removes the node's state or value from a stored case.
   *
   * @param index the case index
   * @throws KelvaException "usage" for a node that holds no case items or a
   *     bad case index
   */
  public void unsetCase(long index) {
    check(kNodeUnsetCase(nodePeer, index));
  }

  /**
   * Whether a stored case gives the node a state or value.
   *
   * @param index the case index
   * @return true when it does
   * @throws KelvaException "usage" for a node that holds no case items or a
   *     bad case index
   */
  public boolean caseIsSet(long index) {
    return check(kNodeCaseIsSet(nodePeer, index)) == 1;
  }

  // Simulation.

  /**
   * The state the last {@link Domain#simulate} drew for this discrete node.
   *
   * @return the state index
   * @throws KelvaException "usage" for a node that is not discrete,
   *     "no_value" when nothing was drawn on this compilation
   */
  public long getSampledState() {
    return check(kNodeGetSampledState(nodePeer));
  }

  /**
   * The value the last simulation drew: a continuous node's value, or the
   * value of the drawn state of a numbered or interval node.
   *
   * @return the value
   * @throws KelvaException "usage" for another node, "no_value"
   */
  public double getSampledValue() {
    return check(kNodeGetSampledValue(nodePeer));
  }

  /**
   * The utility of this utility node for the states the last simulation
   * drew for its parents.
   *
   * @return the utility
   * @throws KelvaException "usage" for another node, "no_value"
   */
  public double getSampledUtility() {
    return check(kNodeGetSampledUtility(nodePeer));
  }

  // ---- Structure learning ----

  /**
   * The p-value of the last marginal independence test of this node and
   * {@code other} ({@link Domain#performMarginalIndependenceTests}).
   *
   * @param other another node of the domain
   * @return the p-value
   * @throws KelvaException "usage" when no test covered both nodes
   */
  public double getDataIndependency(Node other) {
    return check(kNodeGetDataIndependency(nodePeer, other.nodePeer));
  }

  /**
   * The strength of the link from {@code parent}: the mutual information of
   * the two given this node's other parents in the stored cases.
   *
   * @param parent a parent of this node
   * @return the strength in nats
   * @throws KelvaException "usage" when there is no such link or the cases
   *     cannot be used
   */
  public double getLinkStrength(Node parent) {
    return check(kNodeGetLinkStrength(nodePeer, parent.nodePeer));
  }

  /**
   * Sets what structure learning must respect between this node and
   * {@code other}.
   *
   * @param other another node of the domain
   * @param constraint the constraint, seen from this node
   * @throws KelvaException "usage" for the node itself or another domain's
   */
  public void setEdgeConstraint(Node other, EdgeConstraint constraint) {
    check(kNodeSetEdgeConstraint(nodePeer, other.nodePeer, constraint.code()));
  }

  /**
   * The constraint between this node and {@code other}, seen from this node.
   *
   * @param other another node of the domain
   * @return the constraint
   * @throws KelvaException "usage" for the node itself or another domain's
   */
  public EdgeConstraint getEdgeConstraint(Node other) {
    return EdgeConstraint.fromCode(check(kNodeGetEdgeConstraint(nodePeer, other.nodePeer)));
  }

  /**
   * The nodes with a directed edge into this node in the PDAG of the last
   * {@link Domain#learnStructure}.
   *
   * @return the PDAG parents
   * @throws KelvaException "usage" when the domain has no PDAG
   */
  public List<Node> getPdagParents() {
    return Calls.nodes(domain, check(kNodeGetPdagParents(nodePeer)));
  }

  /**
   * The nodes joined to this node by an undirected edge of the PDAG.
   *
   * @return the PDAG neighbours
   * @throws KelvaException "usage" when the domain has no PDAG
   */
  public List<Node> getPdagNeighbors() {
    return Calls.nodes(domain, check(kNodeGetPdagNeighbors(nodePeer)));
  }

  /**
   * Directs the undirected PDAG edge between {@code parent} and this node
   * towards this node, draws the conclusions and installs a DAG of the new
   * PDAG as the domain's links.
   *
   * @param parent a PDAG neighbour
   * @throws KelvaException "usage" when the edge is not undirected
   */
  public void addPdagParent(Node parent) {
    check(kNodeAddPdagParent(nodePeer, parent.nodePeer));
  }

  /**
   * The value of a real-valued function node: its model's expression on what
   * the last propagation knows.
   *
   * @return the value
   * @throws KelvaException "usage" for another node, "no_value" when a state
   *     it needs is not known, or the evaluation's failure
   */
  public double getValue() {
    return check(kNodeGetValue(nodePeer));
  }

  /**
   * The mean of a continuous node as of the last propagation (its value when
   * one is entered).
   *
   * @return the mean
   * @throws KelvaException "usage" for a node that is not continuous,
   *     "not_compiled", "no_equilibrium"
   */
  public double getMean() {
    return check(kNodeGetMean(nodePeer));
  }

  /**
   * A quantile of a continuous node's distribution as of the last
   * propagation (a mixture of normals; an entered value is a point mass).
   *
   * @param probability strictly between 0 and 1
   * @return the least x with P(node &lt;= x | evidence) &gt;= probability
   * @throws KelvaException "usage" for another node or probability,
   *     "not_compiled", "no_equilibrium"
   */
  public double getQuantile(double probability) {
    return check(kNodeGetQuantile(nodePeer, probability));
  }

  /**
   * The distribution of the sum of {@code copies} independent draws from the
   * belief of this numbered or boolean node (false 0, true 1).
   *
   * @param copies how many draws, at least 1
   * @return each distinct sum, ascending, with its probability
   * @throws KelvaException "usage" for another node or 0 copies,
   *     "not_compiled", "no_equilibrium", "size_too_large" for more than
   *     2^20 distinct sums
   */
  public java.util.NavigableMap<Double, Double> getConvolution(long copies) {
    return Domain.sums(check(kNodeGetConvolution(nodePeer, copies)));
  }

  /**
   * The variance of a continuous node as of the last propagation (0 when a
   * value is entered).
   *
   * @return the variance
   * @throws KelvaException as {@link #getMean()}
   */
  public double getVariance() {
    return check(kNodeGetVariance(nodePeer));
  }

  /**
   * The distribution of a continuous node as of the last propagation, a
   * mixture of normals: a new table over the discrete nodes its continuous
   * component depends on, then the node. Entry i of the data is the weight of
   * configuration i; the table's mean and variance of the node in
   * configuration i are the node's given it. The caller owns the table.
   *
   * @return the mixture
   * @throws KelvaException as {@link #getMean()}
   */
  public Table getDistribution() {
    Table mixture = new Table(domain);
    kNodeGetDistribution(nodePeer, mixture);
    check();
    return mixture;
  }

  /**
   * The intercept of a continuous chance node in configuration i of its
   * discrete parents.
   *
   * @param i the configuration index in the node's table
   * @return alpha
   * @throws KelvaException "usage" for a node that is not a continuous chance
   *     node, or i not below its table's size
   */
  public double getAlpha(long i) {
    return check(kNodeGetAlpha(nodePeer, i));
  }

  /**
   * The regression coefficient on a continuous parent in configuration i.
   *
   * @param parent a continuous parent of the node
   * @param i the configuration index
   * @return beta
   * @throws KelvaException as {@link #getAlpha(long)}, and "usage" when parent
   *     is not a continuous parent
   */
  public double getBeta(Node parent, long i) {
    return check(kNodeGetBeta(nodePeer, parent.nodePeer, i));
  }

  /**
   * The variance given the parents in configuration i.
   *
   * @param i the configuration index
   * @return gamma
   * @throws KelvaException as {@link #getAlpha(long)}
   */
  public double getGamma(long i) {
    return check(kNodeGetGamma(nodePeer, i));
  }

  /**
   * Sets the intercept of configuration i.
   *
   * @param alpha a finite value
   * @param i the configuration index
   * @throws KelvaException as {@link #getAlpha(long)}, and "usage" for a value
   *     that is not finite
   */
  public void setAlpha(double alpha, long i) {
    check(kNodeSetAlpha(nodePeer, alpha, i));
  }

  /**
   * Sets the coefficient on a continuous parent in configuration i.
   *
   * @param beta a finite value
   * @param parent a continuous parent of the node
   * @param i the configuration index
   * @throws KelvaException as {@link #getBeta(Node, long)}, and "usage" for a
   *     value that is not finite
   */
  public void setBeta(double beta, Node parent, long i) {
    check(kNodeSetBeta(nodePeer, beta, parent.nodePeer, i));
  }

  /**
   * Sets the variance of configuration i.
   *
   * @param gamma a finite value, at least 0
   * @param i the configuration index
   * @throws KelvaException as {@link #getAlpha(long)}, and "usage" for a
   *     negative or non-finite value
   */
  public void setGamma(double gamma, long i) {
    check(kNodeSetGamma(nodePeer, gamma, i));
  }

  /**
   * A new node of the same domain holding a copy of what this node holds:
   * category, kind, subtype, label, position, attributes, states, parents,
   * tables and model; it has no name of its own (one is generated when
   * asked), no children and no evidence.
   *
   * @return the new node
   * @throws KelvaException "usage" for a dead node, an instance node, an
   *     output clone or a member of a chain-graph component
   */
  public Node cloneNode() {
    return domain.adopt(check(kNodeClone(nodePeer)));
  }

  /**
   * The joint mutual information score of this node as a feature for
   * {@code target}: the sum over the {@code selected} features X of
   * I(this, X; target) in nats, or I(this; target) when none are selected.
   *
   * @param target the class node
   * @param selected the features already chosen
   * @return the score
   * @throws KelvaException "usage" when this node is the target or selected
   */
  public double getJMIScore(Node target, List<Node> selected) {
    double[] score = new double[1];
    Calls.withList(selected, list -> {
      score[0] = check(kNodeGetJMIScore(nodePeer, target.nodePeer, list));
      return 0;
    });
    return score[0];
  }

  // ---- Classes ----

  /** The collection of the node's class (this node must be in one). */
  private ClassCollection collection() {
    NetworkClass home = domain.getNetworkClass();
    if (home == null) {
      throw new KelvaException(ErrorCode.USAGE);
    }
    return home.getClassCollection();
  }

  /**
   * The class whose network holds this node.
   *
   * @return the class, or null for a node of an ordinary domain
   * @throws KelvaException when the node is dead
   */
  public NetworkClass getHomeClass() {
    check(kNodeGetHomeClass(nodePeer));
    return domain.getNetworkClass();
  }

  /**
   * The class an instance node instantiates.
   *
   * @return the class
   * @throws KelvaException "usage" for a node that is no instance node
   */
  public NetworkClass getInstanceClass() {
    long h = check(kNodeGetInstanceClass(nodePeer));
    return collection().classOf(h);
  }

  /**
   * The instance node of an output clone.
   *
   * @return the instance node, of the same class
   * @throws KelvaException "usage" for a node that is no output clone
   */
  public Node getInstance() {
    return domain.nodeOf(check(kNodeGetInstance(nodePeer)));
  }

  /**
   * Makes a temporal clone of this node, a discrete chance node of a time
   * slice class: the clone stands for this node in the previous slice, takes
   * no parents, and its table is the node's prior before the first slice.
   *
   * @return the clone, a node of the same class
   * @throws KelvaException "usage" for another node, an output or temporal
   *     clone, or a node that has a temporal clone already
   */
  public Node createTemporalClone() {
    return domain.nodeOf(check(kNodeCreateTemporalClone(nodePeer)));
  }

  /**
   * The temporal clone of this node.
   *
   * @return the clone, or null when the node has none
   */
  public Node getTemporalClone() {
    return domain.nodeOf(check(kNodeGetTemporalClone(nodePeer)));
  }

  /**
   * The node a temporal clone stands for.
   *
   * @return the master, or null for a node that is no temporal clone
   */
  public Node getTemporalMaster() {
    return domain.nodeOf(check(kNodeGetTemporalMaster(nodePeer)));
  }

  /**
   * The output node an output clone stands for, a node of the instance's
   * class.
   *
   * @return the output node
   * @throws KelvaException "usage" for a node that is no output clone
   */
  public Node getMaster() {
    long h = check(kNodeGetMaster(nodePeer));
    return collection().nodeOf(h);
  }

  /**
   * For a node of a domain unfolded from a class: the instance nodes of its
   * path, outermost first, then the class node it copies.
   *
   * @return the source, empty for other nodes and once a node of the
   *     collection's classes has been deleted or the classes moved
   * @throws KelvaException when the node is dead
   */
  public List<Node> getSource() {
    List<Node> result = new ArrayList<>();
    for (long h : Calls.handles(check(kNodeGetSource(nodePeer)))) {
      result.add(domain.unfoldedFrom().nodeOf(h));
    }
    return result;
  }

  /**
   * The node an instance binds to one input of its class.
   *
   * @param input an input node of the instance's class
   * @return the actual node, of this node's class, or null when unbound
   * @throws KelvaException "usage" when this is no instance node or
   *     {@code input} no input of its class
   */
  public Node getInput(Node input) {
    return domain.nodeOf(check(kNodeGetInput(nodePeer, input.handle())));
  }

  /**
   * Binds an input of the instance's class to a node of this node's class.
   *
   * @param input an input node of the instance's class
   * @param actual a node of the same kind and number of states, not an
   *     instance or utility node
   * @throws KelvaException "usage" when the nodes do not fit
   */
  public void setInput(Node input, Node actual) {
    check(kNodeSetInput(nodePeer, input.handle(), actual.handle()));
  }

  /**
   * Removes the binding of an input; the input then acts with its own table.
   *
   * @param input an input node of the instance's class
   * @throws KelvaException "usage" when this is no instance node or
   *     {@code input} no input of its class
   */
  public void unsetInput(Node input) {
    check(kNodeUnsetInput(nodePeer, input.handle()));
  }

  /**
   * The output clone of one output of the instance's class.
   *
   * @param output an output node of the instance's class
   * @return the clone, a node of this node's class
   * @throws KelvaException "usage" when this is no instance node or
   *     {@code output} no output of its class
   */
  public Node getOutput(Node output) {
    return domain.nodeOf(check(kNodeGetOutput(nodePeer, output.handle())));
  }

  /**
   * The output clones of an instance node, in the order of its class's
   * outputs.
   *
   * @return the clones
   * @throws KelvaException "usage" for a node that is no instance node
   */
  public List<Node> getOutputs() {
    return Calls.nodes(domain, check(kNodeGetOutputs(nodePeer)));
  }

  /**
   * Makes this node an input of its class: a chance or decision node
   * without parents that is not an output.
   *
   * @throws KelvaException "usage" for another node
   */
  public void addToInputs() {
    check(kNodeAddToInputs(nodePeer));
  }

  /**
   * Removes this node from the inputs of its class, dropping its bindings
   * in every instance.
   *
   * @throws KelvaException "usage" for a node that is no input
   */
  public void removeFromInputs() {
    check(kNodeRemoveFromInputs(nodePeer));
  }

  /**
   * Makes this node an output of its class; every instance gets a clone.
   *
   * @throws KelvaException "usage" for an instance node, an output clone
   *     or an input
   */
  public void addToOutputs() {
    check(kNodeAddToOutputs(nodePeer));
  }

  /**
   * Removes this node from the outputs of its class; every instance loses
   * its clone with the clone's links (the clones' Java nodes die).
   *
   * @throws KelvaException "usage" for a node that is no output
   */
  public void removeFromOutputs() {
    check(kNodeRemoveFromOutputs(nodePeer));
  }

  /**
   * Makes this instance node instantiate another class: bindings and clones
   * whose input or output has a namesake of the same kind and states there
   * are kept, the others dropped; new outputs get clones.
   *
   * @param cls the new class, of the same collection
   * @throws KelvaException "cyclic_instance_hierarchy" as
   *     {@link NetworkClass#newInstance}; "usage" for a node that is no
   *     instance node
   */
  public void substituteClass(NetworkClass cls) {
    check(kNodeSubstituteClass(nodePeer, cls.handle()));
  }

  /**
   * The predicted belief of a state of this discrete node of a dynamic
   * network's window, a number of slices after the window.
   *
   * @param state the state
   * @param time 0 for the first slice after the window
   * @return the belief computed by {@link Domain#computeDBNPredictions}
   * @throws KelvaException "usage" for a state or time out of range, or a
   *     node that is not a slice node of a window
   */
  public double getPredictedBelief(long state, long time) {
    return check(kNodeGetPredictedBelief(nodePeer, state, time));
  }

  /**
   * The predicted mean of this continuous node of a window.
   *
   * @param time 0 for the first slice after the window
   * @return the mean computed by {@link Domain#computeDBNPredictions}
   * @throws KelvaException as {@link #getPredictedBelief}
   */
  public double getPredictedMean(long time) {
    return check(kNodeGetPredictedMean(nodePeer, time));
  }

  /**
   * The predicted value of this real-valued function node of a window: its
   * expression evaluated on the predicted beliefs, as {@link #getValue}
   * evaluates it on propagated ones.
   *
   * @param time 0 for the first slice after the window
   * @return the value computed by {@link Domain#computeDBNPredictions}
   * @throws KelvaException as {@link #getPredictedBelief}, and as
   *     {@link #getValue} when the expression has no value
   */
  public double getPredictedValue(long time) {
    return check(kNodeGetPredictedValue(nodePeer, time));
  }

  /**
   * The predicted variance of this continuous node of a window.
   *
   * @param time 0 for the first slice after the window
   * @return the variance computed by {@link Domain#computeDBNPredictions}
   * @throws KelvaException as {@link #getPredictedBelief}
   */
  public double getPredictedVariance(long time) {
    return check(kNodeGetPredictedVariance(nodePeer, time));
  }
}
