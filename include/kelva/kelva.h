/*
 * Kelva: exact inference in probabilistic graphical models.
 *
 * The C API.  Every engine operation is a function k_<object>_<verb>.
 * Objects are reached through opaque handles (the object's address).
 *
 * Error discipline: every function sets the calling thread's error code on
 * entry ("usage" for a null handle or an argument out of range, "none"
 * otherwise) and a later failure overwrites it.  Read the code with
 * k_error_code() after a call.  A failing function returns a neutral value:
 * 0 or non-zero status (0 = success), null handles, -1 or -1.0 for counts and
 * numbers, K_SIZE_ERROR (all ones) for sizes.  A failed operation leaves the
 * object as it was.
 *
 * Lists: a list is a contiguous array of handles ended by a null slot.  Lists
 * returned by an object (parents, children, table nodes) belong to it and stay
 * valid until that object changes or is deleted.
 *
 * Threads: the error code is per thread.  A domain is used by one thread at a
 * time; nothing locks it.
 */
#ifndef KELVA_KELVA_H
#define KELVA_KELVA_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define KELVA_API __attribute__((visibility("default")))
#else
#define KELVA_API
#endif

/** Version of the library as text, e.g. "0.1.0". */
#define KELVA_VERSION "0.1.0"

/* ------------------------------------------------------------------------ */
/* Handles                                                                   */
/* ------------------------------------------------------------------------ */

/** A domain: the container of one network. */
typedef struct k_domain_s *k_domain_t;
/** A node of a domain. */
typedef struct k_node_s *k_node_t;
/** A table: a function over the configurations of a list of nodes. */
typedef struct k_table_s *k_table_t;
/** One entry (key, value) of an attribute list. */
typedef struct k_attribute_s *k_attribute_t;
/** An expression: a tree describing a value or a distribution. */
typedef struct k_expression_s *k_expression_t;
/** A model: one expression per configuration of a node's model nodes. */
typedef struct k_model_s *k_model_t;
/** A junction tree of a triangulated domain's junction forest. */
typedef struct k_junction_tree_s *k_junction_tree_t;
/** A clique of a junction tree. */
typedef struct k_clique_s *k_clique_t;

/** Sizes and counts; K_SIZE_ERROR (all ones) means "too large" or an error. */
typedef uint64_t k_size_t;
/** The all-ones size. */
#define K_SIZE_ERROR ((k_size_t) ~(k_size_t)0)
/** Truth values: 1 true, 0 false, -1 error. */
typedef int k_bool_t;
/** Status: 0 success, non-zero failure. */
typedef int k_status_t;

/* ------------------------------------------------------------------------ */
/* Codes                                                                     */
/* ------------------------------------------------------------------------ */

/** Error codes.  The numbers cross every boundary and never change. */
typedef enum k_error_e {
  K_ERROR_NONE = 0,
  K_ERROR_USAGE = 1,
  K_ERROR_IO = 2,
  K_ERROR_NO_MEMORY = 3,
  K_ERROR_CG_LIMIDS_NOT_SUPPORTED = 4,
  K_ERROR_TWICE = 5,
  K_ERROR_INVALID_NAME = 6,
  K_ERROR_CYCLIC_NETWORK = 7,
  K_ERROR_CYCLIC_FUNCTIONAL_DEPENDENCY = 8,
  K_ERROR_FUNCTIONAL_DEPENDENCY = 9,
  K_ERROR_SIZE_TOO_LARGE = 10,
  K_ERROR_FAST_RETRACTION = 11,
  K_ERROR_ROUNDING = 12,
  K_ERROR_BAD_KB_PASSWORD = 13,
  K_ERROR_BAD_KB_VERSION = 14,
  K_ERROR_BAD_KB_TYPE = 15,
  K_ERROR_BAD_KB_FORMAT = 16,
  K_ERROR_NOT_COMPILED = 17,
  K_ERROR_INVALID_PROBABILITY_POTENTIAL = 18,
  K_ERROR_CHAIN_GRAPH = 19,
  K_ERROR_ENUMERATION = 20,
  K_ERROR_NO_EQUILIBRIUM = 21,
  K_ERROR_LOW_DENSITY = 22,
  K_ERROR_ZERO_VARIANCE = 23,
  K_ERROR_INCONSISTENCY_OR_UNDERFLOW = 24,
  K_ERROR_OVERFLOW = 25,
  K_ERROR_CG_EVIDENCE_INCORPORATED = 26,
  K_ERROR_NORMALIZATION = 27,
  K_ERROR_COMPRESSED = 28,
  K_ERROR_TABLE_TOO_LARGE = 29,
  K_ERROR_INVALID_EVIDENCE = 30,
  K_ERROR_CASE_STATE_TOO_LARGE = 31,
  K_ERROR_NO_VALUE = 32,
  K_ERROR_PARSE = 33,
  K_ERROR_INVALID_EXPRESSION = 34,
  K_ERROR_SYNTAX = 35,
  K_ERROR_DIVISION_BY_ZERO = 36,
  K_ERROR_INAPPROPRIATE_ARGUMENTS = 37,
  K_ERROR_COMPUTATION_FAILED = 38,
  K_ERROR_INSUFFICIENT_STATE_RANGE = 39,
  K_ERROR_INVALID_STATE_VALUES = 40,
  K_ERROR_CYCLIC_INSTANCE_HIERARCHY = 41,
  K_ERROR_ILLEGAL_BINDING = 42,
  K_ERROR_LOCALE = 43,
  K_ERROR_JNI = 47,
  K_ERROR_ERROR = 48
} k_error_t;

/** Node categories. */
typedef enum k_category_e {
  K_CATEGORY_ERROR = -1,
  K_CATEGORY_FUNCTION = 5,
  K_CATEGORY_INSTANCE = 6,
  K_CATEGORY_CHANCE = 7,
  K_CATEGORY_DECISION = 8,
  K_CATEGORY_UTILITY = 9
} k_category_t;

/** Node kinds. */
typedef enum k_kind_e {
  K_KIND_ERROR = -2,
  K_KIND_OTHER = -1,
  K_KIND_DISCRETE = 0,
  K_KIND_CONTINUOUS = 1
} k_kind_t;

/** Subtypes of discrete nodes. */
typedef enum k_subtype_e {
  K_SUBTYPE_LABEL = 30,
  K_SUBTYPE_BOOLEAN = 31,
  K_SUBTYPE_NUMBER = 32,
  K_SUBTYPE_INTERVAL = 33,
  K_SUBTYPE_ERROR = 34
} k_subtype_t;

/** Equilibria; also the marginalisation codes of k_table_get_marginal. */
typedef enum k_equilibrium_e {
  K_EQUILIBRIUM_NONE = 10,
  K_EQUILIBRIUM_SUM = 11,
  K_EQUILIBRIUM_MAX = 12
} k_equilibrium_t;

/** Evidence modes. */
typedef enum k_evidence_mode_e {
  K_MODE_NORMAL = 20,
  K_MODE_FAST_RETRACTION = 21
} k_evidence_mode_t;

/** Triangulation methods. */
typedef enum k_triangulation_method_e {
  K_TM_CLIQUE_SIZE = 15,
  K_TM_CLIQUE_WEIGHT = 16,
  K_TM_FILL_IN_SIZE = 17,
  K_TM_FILL_IN_WEIGHT = 18,
  K_TM_TOTAL_WEIGHT = 19,
  K_TM_BEST_GREEDY = 20
} k_triangulation_method_t;

/** Expression operators (kExpressionGetOperator). */
typedef enum k_operator_e {
  K_OP_NORMAL = 60,
  K_OP_LOGNORMAL = 61,
  K_OP_BETA = 62,
  K_OP_GAMMA = 63,
  K_OP_EXPONENTIAL = 64,
  K_OP_WEIBULL = 65,
  K_OP_UNIFORM = 66,
  K_OP_TRIANGULAR = 67,
  K_OP_PERT = 68,
  K_OP_BINOMIAL = 69,
  K_OP_POISSON = 70,
  K_OP_NEGATIVE_BINOMIAL = 71,
  K_OP_GEOMETRIC = 72,
  K_OP_DISTRIBUTION = 73,
  K_OP_NOISY_OR = 74,
  K_OP_TRUNCATE = 75,
  K_OP_AGGREGATE = 76,
  K_OP_PROBABILITY = 77,
  K_OP_VARIANCE = 78,
  K_OP_MIN = 79,
  K_OP_MAX = 80,
  K_OP_LOG = 81,
  K_OP_LOG2 = 82,
  K_OP_LOG10 = 83,
  K_OP_EXP = 84,
  K_OP_SIN = 85,
  K_OP_COS = 86,
  K_OP_TAN = 87,
  K_OP_SINH = 88,
  K_OP_COSH = 89,
  K_OP_TANH = 90,
  K_OP_SQRT = 91,
  K_OP_ABS = 92,
  K_OP_FLOOR = 93,
  K_OP_CEIL = 94,
  K_OP_MOD = 95,
  K_OP_IF = 96,
  K_OP_AND = 97,
  K_OP_OR = 98,
  K_OP_NOT = 99,
  K_OP_ADD = 100,
  K_OP_SUBTRACT = 101,
  K_OP_MULTIPLY = 102,
  K_OP_DIVIDE = 103,
  K_OP_POWER = 104,
  K_OP_NEGATE = 105,
  K_OP_STATE_INDEX = 106,
  K_OP_EQUALS = 107,
  K_OP_LESS_THAN = 108,
  K_OP_GREATER_THAN = 109,
  K_OP_NOT_EQUALS = 110,
  K_OP_LESS_THAN_OR_EQUALS = 111,
  K_OP_GREATER_THAN_OR_EQUALS = 112,
  K_OP_NUMBER = 113,
  K_OP_LABEL = 114,
  K_OP_NODE = 115,
  K_OP_BOOLEAN = 116,
  K_OP_ERROR = 117
} k_operator_t;

/** A parse error handler: called with the position (the line for a file,
 *  the count of characters consumed for a string), the message, and the
 *  data given with it. */
typedef void (*k_parse_error_handler_t)(uint64_t position, const char *message, void *data);

/* ------------------------------------------------------------------------ */
/* Errors                                                                    */
/* ------------------------------------------------------------------------ */

/** Makes `code` the calling thread's current error code and returns it.
 *  Checks nothing: pass only codes of k_error_t. */
KELVA_API k_error_t k_error_set(k_error_t code);

/** The calling thread's current error code (0 on a thread that has not
 *  called anything yet). */
KELVA_API k_error_t k_error_code(void);

/** The short name of `code` ("usage", "no_memory", ...), or "no_such_error"
 *  for a code outside 0..48 or one of the reserved codes 44..46. */
KELVA_API const char *k_error_name(k_error_t code);

/** The description of `code`, or "No such error." for a code outside 0..48
 *  or one of the reserved codes 44..46. */
KELVA_API const char *k_error_description(k_error_t code);

/* ------------------------------------------------------------------------ */
/* Domains                                                                   */
/* ------------------------------------------------------------------------ */

/** Creates an empty domain (node size 0x0, grain size 10000, concurrency
 *  level 1).  Null and "no_memory" when memory runs out. */
KELVA_API k_domain_t k_new_domain(void);

/** Deletes a domain with its nodes, tables and everything else it owns.
 *  Free-standing tables made from the domain's nodes are deleted too. */
KELVA_API k_status_t k_domain_delete(k_domain_t domain);

/** Creates a node of the given category (5..9), kind (discrete 0,
 *  continuous 1, other -1) and, for discrete nodes, subtype (30..33).
 *  A new discrete node has 1 state, a boolean node 2.  Fails with "usage"
 *  for an invalid combination, "cg_limids_not_supported" when chance,
 *  continuous and decision or utility nodes would meet, and
 *  "cyclic_functional_dependency" when a new decision or utility node would
 *  close a cycle of function-node dependencies. */
KELVA_API k_node_t k_domain_new_node(k_domain_t domain, k_category_t category, k_kind_t kind,
                                     k_subtype_t subtype);
/** Creates a discrete node of `category` (chance, decision or function)
 *  and `subtype` with `states` states, all unlabelled (a boolean node has
 *  2, so `states` must be 2 for it).  Null with "usage" for another
 *  category, an unknown subtype or a count of 0; otherwise the checks and
 *  codes of k_domain_new_node, and nothing is created on failure. */
KELVA_API k_node_t k_domain_create_discrete_node(k_domain_t domain, k_category_t category,
                                                 k_subtype_t subtype, size_t states);

/** The first node of the domain's node chain.  New nodes are put at the head,
 *  so the chain runs from the newest node to the oldest.  Null when empty. */
KELVA_API k_node_t k_domain_get_first_node(k_domain_t domain);

/** The node named `name`, or null (no error) when there is none. */
KELVA_API k_node_t k_domain_get_node_by_name(k_domain_t domain, const char *name);

/** Number of chance nodes, or K_SIZE_ERROR on a null domain. */
KELVA_API k_size_t k_domain_get_number_of_chance_nodes(k_domain_t domain);
/** Number of decision nodes, or K_SIZE_ERROR on a null domain. */
KELVA_API k_size_t k_domain_get_number_of_decision_nodes(k_domain_t domain);
/** Number of utility nodes, or K_SIZE_ERROR on a null domain. */
KELVA_API k_size_t k_domain_get_number_of_utility_nodes(k_domain_t domain);
/** Number of instance nodes, or K_SIZE_ERROR on a null domain. */
KELVA_API k_size_t k_domain_get_number_of_instance_nodes(k_domain_t domain);

/** Sets the size in which nodes are drawn. */
KELVA_API k_status_t k_domain_set_node_size(k_domain_t domain, k_size_t width, k_size_t height);
/** The width of drawn nodes, or K_SIZE_ERROR on a null domain. */
KELVA_API k_size_t k_domain_get_node_width(k_domain_t domain);
/** The height of drawn nodes, or K_SIZE_ERROR on a null domain. */
KELVA_API k_size_t k_domain_get_node_height(k_domain_t domain);

/** Sets the smallest piece of work given to a worker thread (not 0). */
KELVA_API k_status_t k_domain_set_grain_size(k_domain_t domain, k_size_t size);
/** The grain size, or K_SIZE_ERROR on a null domain. */
KELVA_API k_size_t k_domain_get_grain_size(k_domain_t domain);
/** Sets the number of threads (not 0) of large table operations, of a
 *  propagation (a large junction tree is shared by two threads, whole
 *  subtrees each) and of EM's passes over the cases (each thread in its own
 *  compiled copy of the domain).  Results are the same bits at every
 *  level. */
KELVA_API k_status_t k_domain_set_concurrency_level(k_domain_t domain, k_size_t level);
/** The concurrency level, or K_SIZE_ERROR on a null domain. */
KELVA_API k_size_t k_domain_get_concurrency_level(k_domain_t domain);
/** Turns scaled propagation on (1) or off (0, the default).  Scaled
 *  propagation divides each message of the collect pass by its largest
 *  entry and keeps the logarithms of those factors: beliefs are those of
 *  ordinary propagation (to rounding), and k_domain_get_log_normalization_constant
 *  is log P(e) even when P(e) is far below the smallest double, where
 *  ordinary propagation fails with "inconsistency_or_underflow"
 *  (k_domain_get_normalization_constant is then 0).  Impossible evidence
 *  still fails.  "usage" for a value other than 0 and 1. */
KELVA_API k_status_t k_domain_set_scaled_propagation(k_domain_t domain, k_bool_t scaled);
/** 1 when the domain propagates scaled, 0 when not, -1 on a null domain. */
KELVA_API k_bool_t k_domain_get_scaled_propagation(k_domain_t domain);

/** Sets attribute `key` (a C identifier) to a copy of `value`; a null value
 *  removes the attribute.  New keys go to the head of the list. */
KELVA_API k_status_t k_domain_set_attribute(k_domain_t domain, const char *key, const char *value);
/** The value of attribute `key`, or null. */
KELVA_API const char *k_domain_get_attribute(k_domain_t domain, const char *key);
/** The first (most recently added) attribute entry, or null. */
KELVA_API k_attribute_t k_domain_get_first_attribute(k_domain_t domain);

/** Opens `file_name` (UTF-8) as the domain's log, appending when `append` is
 *  non-zero, line-buffered with a 512-byte buffer; the previous log is
 *  closed.  A null name only closes the current log.  "io" on failure. */
KELVA_API k_status_t k_domain_set_log_file(k_domain_t domain, const char *file_name, int append);

/** Stores an opaque pointer with the domain for the caller. */
KELVA_API k_status_t k_domain_set_backpointer(k_domain_t domain, void *data);
/** The pointer stored by k_domain_set_backpointer (null if none). */
KELVA_API void *k_domain_get_backpointer(k_domain_t domain);

/** 1 when the domain is compiled, 0 when not, -1 on a null domain. */
KELVA_API k_bool_t k_domain_is_compiled(k_domain_t domain);
/** Discards the domain's junction forest, if any. */
KELVA_API k_status_t k_domain_uncompile(k_domain_t domain);

/* ------------------------------------------------------------------------ */
/* Nodes                                                                     */
/* ------------------------------------------------------------------------ */

/** Deletes a node with everything it owns.  Its links are removed first, as
 *  by k_node_remove_parent, so its children's tables lose it. */
KELVA_API k_status_t k_node_delete(k_node_t node);

/** The domain that owns the node, or null. */
KELVA_API k_domain_t k_node_get_home_domain(k_node_t node);
/** The next node in the domain's chain, or null at the end. */
KELVA_API k_node_t k_node_get_next(k_node_t node);

/** The node's category, or K_CATEGORY_ERROR (-1). */
KELVA_API k_category_t k_node_get_category(k_node_t node);
/** The node's kind, or K_KIND_ERROR (-2). */
KELVA_API k_kind_t k_node_get_kind(k_node_t node);
/** The subtype of a discrete node, or K_SUBTYPE_ERROR (34). */
KELVA_API k_subtype_t k_node_get_subtype(k_node_t node);
/** Changes the subtype of a discrete node.  Turning a node into a boolean
 *  node requires exactly 2 states. */
KELVA_API k_status_t k_node_set_discrete_type(k_node_t node, k_subtype_t subtype);

/** The node's name; a node without one is given a generated name now
 *  ("C12" for chance node number 12, the next free number when taken). */
KELVA_API const char *k_node_get_name(k_node_t node);
/** Renames the node: "twice" when another node has the name,
 *  "invalid_name" when it is not a valid node name. */
KELVA_API k_status_t k_node_set_name(k_node_t node, const char *name);
/** The node's label (the empty text when it has none), or null. */
KELVA_API const char *k_node_get_label(k_node_t node);
/** Sets the node's label to a copy of `label`. */
KELVA_API k_status_t k_node_set_label(k_node_t node, const char *label);
/** Sets the node's position for drawing. */
KELVA_API k_status_t k_node_set_position(k_node_t node, int x, int y);
/** The node's x coordinate (0 on error, with the code set). */
KELVA_API int k_node_get_x_coordinate(k_node_t node);
/** The node's y coordinate (0 on error, with the code set). */
KELVA_API int k_node_get_y_coordinate(k_node_t node);

/** Number of states of a discrete node, or K_SIZE_ERROR. */
KELVA_API k_size_t k_node_get_number_of_states(k_node_t node);
/** Sets the number of states (at least 1) of a non-boolean discrete node.
 *  The node's table, and its children's tables, change shape: kept states
 *  keep their entries, new entries are 0. */
KELVA_API k_status_t k_node_set_number_of_states(k_node_t node, k_size_t count);
/** The label of state `state` ("false"/"true" for unlabelled boolean
 *  states, the empty text for other unlabelled states), or null. */
KELVA_API const char *k_node_get_state_label(k_node_t node, k_size_t state);
/** Sets the label of state `state` to a copy of `label`. */
KELVA_API k_status_t k_node_set_state_label(k_node_t node, k_size_t state, const char *label);
/** The index of the only state with label `label`; -1 when none or several
 *  match (no error code for "not found"). */
KELVA_API int64_t k_node_get_state_index_from_label(k_node_t node, const char *label);
/** The value of state `state` of a numeric (number or interval) node, or -1. */
KELVA_API double k_node_get_state_value(k_node_t node, k_size_t state);
/** Sets the value of state `state` of a numeric node. */
KELVA_API k_status_t k_node_set_state_value(k_node_t node, k_size_t state, double value);
/** The state of a numeric node whose value is `value`; for an interval node,
 *  the state whose interval [v(i), v(i+1)) holds it.  -1 when none. */
KELVA_API int64_t k_node_get_state_index_from_value(k_node_t node, double value);
/** Splits every state of an interval node in two at the midpoint of its
 *  interval, doubling the number of states.  An interval with one infinite
 *  bound is split at its finite bound minus (or plus) the width of the
 *  neighbouring finite interval, or 1 when there is none; (-infinity,
 *  infinity) is split at 0.  The node's table gives each half half of the
 *  state's probability; children's tables repeat the state's rows for both
 *  halves, their experience tables give each half half of its counts, and
 *  their fading tables repeat its factors.  The state labels are removed.
 *  The node and its children are marked for table generation and the
 *  domain is uncompiled.  "usage" (not an interval node, a continuous
 *  child), "invalid_state_values" (values not increasing). */
KELVA_API k_status_t k_node_double_number_of_intervals(k_node_t node);
/** Merges the states of an interval node two by two (states 2i and 2i+1
 *  become state i, with the interval from the lower one's low bound to the
 *  higher one's high bound), halving an even number of states.  The node's
 *  table adds the two probabilities; children's tables average the two
 *  rows, their experience tables add the counts, their fading tables
 *  average the factors.  The state labels are removed.  The node and its
 *  children are marked for table generation and the domain is uncompiled.
 *  "usage" (not an interval node, an odd number of states, a continuous
 *  child). */
KELVA_API k_status_t k_node_halve_number_of_intervals(k_node_t node);
/** Reorders the states of a discrete node: `order` holds every current label
 *  once, in the new order, ended by null.  Tables follow the states. */
KELVA_API k_status_t k_node_reorder_states(k_node_t node, const char *const *order);

/** Sets attribute `key` of the node (see k_domain_set_attribute). */
KELVA_API k_status_t k_node_set_attribute(k_node_t node, const char *key, const char *value);
/** The value of attribute `key` of the node, or null. */
KELVA_API const char *k_node_get_attribute(k_node_t node, const char *key);
/** The node's first (most recently added) attribute entry, or null. */
KELVA_API k_attribute_t k_node_get_first_attribute(k_node_t node);

/** The key of an attribute entry, or null. */
KELVA_API const char *k_attribute_get_key(k_attribute_t attribute);
/** The value of an attribute entry, or null. */
KELVA_API const char *k_attribute_get_value(k_attribute_t attribute);
/** The next attribute entry, or null. */
KELVA_API k_attribute_t k_attribute_get_next(k_attribute_t attribute);

/** Stores an opaque pointer with the node for the caller. */
KELVA_API k_status_t k_node_set_backpointer(k_node_t node, void *data);
/** The pointer stored by k_node_set_backpointer (null if none). */
KELVA_API void *k_node_get_backpointer(k_node_t node);

/* Structure ---------------------------------------------------------------- */

/** Adds `parent` to `child`'s parents and extends `child`'s tables: a discrete
 *  parent goes to the front of the table (values repeated per parent state),
 *  a continuous one after the continuous members (zero coefficients).
 *  "usage", "cyclic_network" or "cyclic_functional_dependency" on refusal. */
KELVA_API k_status_t k_node_add_parent(k_node_t child, k_node_t parent);
/** Removes the link parent -> child.  A discrete parent leaves the child's
 *  tables by averaging over its states (each conditional distribution stays a
 *  distribution); a continuous parent's coefficients are dropped. */
KELVA_API k_status_t k_node_remove_parent(k_node_t child, k_node_t parent);
/** Replaces `old_parent` by `new_parent` (same kind and number of states) in
 *  `child`'s parents, keeping the table's data and position. */
KELVA_API k_status_t k_node_switch_parent(k_node_t child, k_node_t old_parent, k_node_t new_parent);
/** Reverses the link node1 -> node2 (both discrete chance nodes) so that the
 *  joint distribution is unchanged (arc reversal by Bayes' rule). */
KELVA_API k_status_t k_node_reverse_edge(k_node_t node1, k_node_t node2);
/** The node's parents in order of addition (list owned by the node). */
KELVA_API k_node_t *k_node_get_parents(k_node_t node);
/** The node's children in order of addition (list owned by the node). */
KELVA_API k_node_t *k_node_get_children(k_node_t node);

/* Tables of nodes ------------------------------------------------------- */

/** The node's table: conditional probabilities of a chance node, utilities
 *  of a utility node, the function table of a discrete function node.
 *  Null with "usage" for nodes that have none (see k_node_has_table). */
KELVA_API k_table_t k_node_get_table(k_node_t node);
/** 1 when the node has a table, 0 when not, -1 on error. */
KELVA_API k_bool_t k_node_has_table(k_node_t node);
/** The node's experience table, created (all zeros) on first request for a
 *  discrete or continuous chance node. */
KELVA_API k_table_t k_node_get_experience_table(k_node_t node);
/** 1 when the node has an experience table, 0 when not, -1 on error. */
KELVA_API k_bool_t k_node_has_experience_table(k_node_t node);
/** The node's fading table, created (all ones) on first request for a
 *  discrete chance node. */
KELVA_API k_table_t k_node_get_fading_table(k_node_t node);
/** 1 when the node has a fading table, 0 when not, -1 on error. */
KELVA_API k_bool_t k_node_has_fading_table(k_node_t node);

/* ------------------------------------------------------------------------ */
/* Tables                                                                    */
/* ------------------------------------------------------------------------ */

/** Creates a free-standing table over `nodes` (null-ended list of distinct
 *  nodes of `domain`), all entries 0.  The caller deletes it. */
KELVA_API k_table_t k_domain_new_table(k_domain_t domain, const k_node_t *nodes);

/** The table's node list (owned by the table). */
KELVA_API k_node_t *k_table_get_nodes(k_table_t table);
/** The number of discrete configurations; K_SIZE_ERROR with
 *  "size_too_large" when it cannot be represented. */
KELVA_API k_size_t k_table_get_size(k_table_t table);
/** Size times the number of continuous nodes; K_SIZE_ERROR with
 *  "size_too_large" when that overflows. */
KELVA_API k_size_t k_table_get_cg_size(k_table_t table);
/** The index of a configuration (one state index per table node, in list
 *  order, last node fastest); -1 when a state is out of range or the size
 *  is too large. */
KELVA_API int64_t k_table_get_index_from_configuration(k_table_t table, const k_size_t *config);
/** Fills `config` (one slot per discrete table node) with the configuration
 *  of `index`. */
KELVA_API k_status_t k_table_get_configuration_from_index(k_table_t table, k_size_t *config,
                                                          k_size_t index);
/** Copies entries start .. start+count-1 into array[0 .. count-1].
 *  "usage" when array is null, start is not below the size, count exceeds
 *  size - start, or count exceeds array_length. */
KELVA_API k_status_t k_table_get_data(k_table_t table, double *array, k_size_t array_length,
                                      k_size_t start, k_size_t count);
/** Copies array[0 .. count-1] into entries start .. start+count-1 (same
 *  rules as k_table_get_data) and marks the table changed. */
KELVA_API k_status_t k_table_set_data(k_table_t table, const double *array, k_size_t array_length,
                                      k_size_t start, k_size_t count);
/** The entry at `index` (-1.0 with "usage" when out of range). */
KELVA_API double k_table_get_data_item(k_table_t table, k_size_t index);
/** Stores `value` at `index` and marks the table changed. */
KELVA_API k_status_t k_table_set_data_item(k_table_t table, k_size_t index, double value);
/** Stores `value` in every entry and marks the table changed. */
KELVA_API k_status_t k_table_set_all_data_items(k_table_t table, double value);

/** The mean of continuous `node` in discrete configuration `index`. */
KELVA_API double k_table_get_mean(k_table_t table, k_size_t index, k_node_t node);
/** The variance of continuous `node` in discrete configuration `index`. */
KELVA_API double k_table_get_variance(k_table_t table, k_size_t index, k_node_t node);
/** The covariance of continuous nodes `node1`, `node2` in configuration
 *  `index`. */
KELVA_API double k_table_get_covariance(k_table_t table, k_size_t index, k_node_t node1,
                                        k_node_t node2);

/** Multiplies `table` by `other` in place; other's nodes must all be among
 *  table's nodes. */
KELVA_API k_status_t k_table_multiply(k_table_t table, k_table_t other);
/** Divides `table` by `other` in place (other's nodes among table's); an
 *  entry whose divisor is not positive is left unchanged. */
KELVA_API k_status_t k_table_divide(k_table_t table, k_table_t other);
/** A new free-standing table over `nodes` (a null-ended subset of the
 *  table's nodes) summing (K_EQUILIBRIUM_SUM) or maximising
 *  (K_EQUILIBRIUM_MAX) over the others.  The caller deletes it. */
KELVA_API k_table_t k_table_get_marginal(k_table_t table, const k_node_t *nodes,
                                         k_equilibrium_t code);
/** Reorders the table's nodes to `nodes` (the same nodes, null-ended),
 *  permuting the data to the new configuration order. */
KELVA_API k_status_t k_table_reorder_nodes(k_table_t table, const k_node_t *nodes);
/** Copies `other`'s contents (same size and CG dimension) into `table` and
 *  marks it changed. */
KELVA_API k_status_t k_table_update(k_table_t table, k_table_t other);
/** Deletes a free-standing table, or a node's experience or fading table.
 *  Other tables belong to their owners: the call succeeds and does nothing. */
KELVA_API k_status_t k_table_delete(k_table_t table);

/** Stores an opaque pointer with the table for the caller. */
KELVA_API k_status_t k_table_set_backpointer(k_table_t table, void *data);
/** The pointer stored by k_table_set_backpointer (null if none). */
KELVA_API void *k_table_get_backpointer(k_table_t table);

/* ------------------------------------------------------------------------ */
/* NET text                                                                  */
/* ------------------------------------------------------------------------ */

/** Reads a domain from the NET file `file_name` (UTF-8); the name is kept
 *  with the domain.  Messages go to `handler` (may be null) with line
 *  numbers.  Null with "parse" (or the error that stopped the parse). */
KELVA_API k_domain_t k_net_parse_domain(const char *file_name, k_parse_error_handler_t handler,
                                        void *data);
/** Reads a domain from NET text in memory; positions given to `handler` are
 *  counts of characters consumed. */
KELVA_API k_domain_t k_net_parse_domain_string(const char *text, k_parse_error_handler_t handler,
                                               void *data);
/** Writes the domain as NET text to `file_name` and keeps the name with the
 *  domain.  "io" when the file cannot be written. */
KELVA_API k_status_t k_domain_save_as_net(k_domain_t domain, const char *file_name);
/** The domain as NET text (malloc'ed; the caller frees it with free()). */
KELVA_API char *k_domain_to_net_string(k_domain_t domain);
/** Sets how k_domain_save_as_net and k_domain_to_net_string write the
 *  numbers of tables (data, experience, fading, CG items), of model
 *  expressions and state values: 0 (the default) keeps the usual formats,
 *  "%G" for table values and expressions and "%.8G" for CG items and state
 *  values, which lose precision; 1 to 17 writes every such number with that
 *  many significant digits ("%.*G"), and 17 reads back bit for bit.
 *  "usage" for a null domain or a count above 17.  The setting is not part
 *  of the NET text. */
KELVA_API k_status_t k_domain_set_net_digits(k_domain_t domain, int digits);
/** The digits set by k_domain_set_net_digits (0 for a new domain), or -1
 *  with "usage" for a null domain. */
KELVA_API int k_domain_get_net_digits(k_domain_t domain);
/** The file the domain was read from or last saved to, or null (no error)
 *  when there is none. */
KELVA_API const char *k_domain_get_file_name(k_domain_t domain);

/* ------------------------------------------------------------------------ */
/* Other tools' network files                                                */
/* ------------------------------------------------------------------------ */

/** Reads a domain of discrete chance nodes from the BIF file `file_name`
 *  (UTF-8), in declaration order, parents in the order written.  Tables are
 *  checked: each variable has one, with as many values as it needs, none
 *  negative, each row summing to 1 (within 1e-4; the values are kept as
 *  written); no cycle.  A fault gives one message with its line to
 *  `handler` (may be null) and null with "parse"; "io" when the file cannot
 *  be read. */
KELVA_API k_domain_t k_bif_parse_domain(const char *file_name, k_parse_error_handler_t handler,
                                        void *data);
/** Reads a domain from the XMLBIF file `file_name` as k_bif_parse_domain
 *  reads BIF.  In a table the FOR variable varies fastest and the GIVEN
 *  variables ever more slowly in the order written; the node's parents are
 *  the GIVEN variables last first.  Variables of TYPE other than "nature"
 *  are refused. */
KELVA_API k_domain_t k_xmlbif_parse_domain(const char *file_name, k_parse_error_handler_t handler,
                                           void *data);
/** Reads a domain from the UAI file `file_name`: nodes X0, X1, ... with
 *  states s0, s1, ...; the last variable of each scope is the child.  A
 *  MARKOV file is read only when its factors are the conditional tables of a
 *  Bayesian network (one per variable, each normalised over its last
 *  variable); otherwise "parse" with a message saying so. */
KELVA_API k_domain_t k_uai_parse_domain(const char *file_name, k_parse_error_handler_t handler,
                                        void *data);
/** Writes the domain as BIF to `file_name`, numbers in their shortest exact
 *  form.  "usage" for a domain with nodes other than discrete chance nodes
 *  or with chain-graph components (no file is made); "io" when the file
 *  cannot be written. */
KELVA_API k_status_t k_domain_save_as_bif(k_domain_t domain, const char *file_name);
/** Writes the domain as XMLBIF to `file_name`, as k_domain_save_as_bif
 *  writes BIF (GIVEN elements last parent first, so that k_xmlbif_parse_domain
 *  reads the same parents back). */
KELVA_API k_status_t k_domain_save_as_xmlbif(k_domain_t domain, const char *file_name);

/* KB files                                                                  */
/* ------------------------------------------------------------------------ */

/** Saves the domain as a KB file: the network, its settings, exact tables,
 *  stored cases, evidence and junction forest, so that a loaded domain
 *  needs no triangulation.  A propagated forest of discrete chance nodes
 *  whose clique and separator tables hold at most 2^22 entries is saved
 *  with them and loads propagated as it was (the same beliefs, bit for
 *  bit); any other compiled domain loads compiled with its evidence
 *  entered, to be propagated.  A password (null or "" for none) encrypts
 *  the file.  Nodes without a name are given one.  The file name is kept
 *  with the domain once written; "io" when the file cannot be written. */
KELVA_API k_status_t k_domain_save_as_kb(k_domain_t domain, const char *file_name,
                                         const char *password);
/** The bytes of the KB file k_domain_save_as_kb would write (malloc'ed;
 *  the caller frees them with free()), their count in `*size`; null on
 *  failure ("usage" for a null domain or size). */
KELVA_API unsigned char *k_domain_save_to_memory(k_domain_t domain, const char *password,
                                                 size_t *size);
/** Loads a domain from a KB file (the file name is kept with it).  Null
 *  with "bad_kb_format" for a file that is not an intact KB file,
 *  "bad_kb_version" for a layout this library does not read,
 *  "bad_kb_type" for a file that holds no domain, "bad_kb_password" for a
 *  protected file and a missing or wrong password ("io" when the file
 *  cannot be read).  A password given for an unprotected file is ignored. */
KELVA_API k_domain_t k_kb_load_domain(const char *file_name, const char *password);
/** The same for the bytes of a KB file in memory (as made by
 *  k_domain_save_to_memory). */
KELVA_API k_domain_t k_kb_load_domain_from_memory(const unsigned char *data, size_t size,
                                                  const char *password);

/* ------------------------------------------------------------------------ */
/* Expressions                                                               */
/* ------------------------------------------------------------------------ */

/** A new number leaf. */
KELVA_API k_expression_t k_number_make_expression(double number);
/** A new label leaf holding a copy of `label`. */
KELVA_API k_expression_t k_label_make_expression(const char *label);
/** A new boolean leaf (any non-zero value is true). */
KELVA_API k_expression_t k_boolean_make_expression(int value);
/** A new node leaf ("usage" for an instance node). */
KELVA_API k_expression_t k_node_make_expression(k_node_t node);
/** A new composite of `op` (60..112) over the null-ended `operands`, which
 *  are shared, not copied.  "invalid_expression" for a wrong number or type
 *  of operands; the operands are then untouched. */
KELVA_API k_expression_t k_make_composite_expression(k_operator_t op,
                                                     const k_expression_t *operands);
/** 1 for a composite, 0 for a leaf, -1 with "usage" for null. */
KELVA_API k_bool_t k_expression_is_composite(k_expression_t expression);
/** The operator; K_OP_ERROR (117) for null. */
KELVA_API k_operator_t k_expression_get_operator(k_expression_t expression);
/** The operands of a composite (owned by it); null with "usage" for a leaf. */
KELVA_API k_expression_t *k_expression_get_operands(k_expression_t expression);
/** The value of a number leaf; -1.0 with "usage" otherwise. */
KELVA_API double k_expression_get_number(k_expression_t expression);
/** The text of a label leaf; null with "usage" otherwise. */
KELVA_API const char *k_expression_get_label(k_expression_t expression);
/** The node of a node leaf; null with "usage" otherwise. */
KELVA_API k_node_t k_expression_get_node(k_expression_t expression);
/** The value (0 or 1) of a boolean leaf; -1 with "usage" otherwise. */
KELVA_API int k_expression_get_boolean(k_expression_t expression);
/** The expression as text (malloc'ed; the caller frees it with free()).
 *  A null expression gives the empty text. */
KELVA_API char *k_expression_to_string(k_expression_t expression);
/** Parses `text` into a new expression; node names are resolved in the
 *  domain that owns `model`.  Errors go to `handler` (may be null) with the
 *  count of characters consumed; "syntax" or "parse" on failure. */
KELVA_API k_expression_t k_string_parse_expression(const char *text, k_model_t model,
                                                   k_parse_error_handler_t handler, void *data);
/** Deletes an expression that no composite holds (otherwise nothing is
 *  done); a composite releases its operands by the same rule. */
KELVA_API k_status_t k_expression_delete(k_expression_t expression);

/* ------------------------------------------------------------------------ */
/* Models and table generation                                               */
/* ------------------------------------------------------------------------ */

/** Gives `node` a new model over `model_nodes` (a null-ended subset of its
 *  discrete parents), deleting any previous model. */
KELVA_API k_model_t k_node_new_model(k_node_t node, const k_node_t *model_nodes);
/** The node's model, or null. */
KELVA_API k_model_t k_node_get_model(k_node_t node);
/** Deletes a model and releases its expressions. */
KELVA_API k_status_t k_model_delete(k_model_t model);
/** The model nodes (owned by the model). */
KELVA_API k_node_t *k_model_get_nodes(k_model_t model);
/** The number of configurations of the model nodes; K_SIZE_ERROR on error. */
KELVA_API k_size_t k_model_get_size(k_model_t model);
/** Stores `expression` (null clears) in slot `index` after checking it; the
 *  model then holds the expression. */
KELVA_API k_status_t k_model_set_expression(k_model_t model, k_size_t index,
                                            k_expression_t expression);
/** Parses `text` in the model's domain and stores it in slot `index`. */
KELVA_API k_status_t k_model_set_expression_from_string(k_model_t model, k_size_t index,
                                                        const char *text,
                                                        k_parse_error_handler_t handler,
                                                        void *data);
/** The expression in slot `index`, or null. */
KELVA_API k_expression_t k_model_get_expression(k_model_t model, k_size_t index);
/** Sets the number of samples taken in each interval state of a parent
 *  (at least 1). */
KELVA_API k_status_t k_model_set_number_of_samples_per_interval(k_model_t model, k_size_t count);
/** The number of samples per interval; K_SIZE_ERROR with "usage" for null. */
KELVA_API k_size_t k_model_get_number_of_samples_per_interval(k_model_t model);
/** The model's needs-generation flag as stored: 1 until the table has been
 *  generated after the last change, 0 after; -1 on error. */
KELVA_API k_bool_t k_model_table_is_generated(k_model_t model);
/** Stores an opaque pointer with the model for the caller. */
KELVA_API k_status_t k_model_set_backpointer(k_model_t model, void *data);
/** The pointer stored by k_model_set_backpointer (null if none). */
KELVA_API void *k_model_get_backpointer(k_model_t model);
/** Generates the node's table from its model if it needs generation. */
KELVA_API k_status_t k_node_generate_table(k_node_t node);
/** Generates the tables of every node with a model, in the domain's node
 *  order, stopping at the first failure. */
KELVA_API k_status_t k_domain_generate_tables(k_domain_t domain);

/* ------------------------------------------------------------------------ */
/* Compilation: triangulation and the junction forest                        */
/* ------------------------------------------------------------------------ */

/** Triangulates the domain by `method` (K_TM_CLIQUE_SIZE .. K_TM_FILL_IN_WEIGHT,
 *  or K_TM_BEST_GREEDY) and builds its junction forest; the domain becomes
 *  triangulated.  "usage" for a null domain, a domain without discrete or
 *  continuous nodes, one already triangulated, or another method code;
 *  K_TM_TOTAL_WEIGHT searches for the triangulation of least total clique
 *  weight (see k_domain_set_triangulation_parameters) and gives "usage"
 *  when a positive maximum number of separators is set without an initial
 *  triangulation.  With a log file set, the
 *  moral links, fill-ins, costs, elimination sequence, cliques, junction
 *  forest and assignment of potentials are written to it. */
KELVA_API k_status_t k_domain_triangulate(k_domain_t domain, k_triangulation_method_t method);
/** Triangulates by the elimination order `order` (a null-ended list of every
 *  discrete and continuous node, continuous ones first; first eliminated
 *  first) and builds the junction forest.  "enumeration" when the order
 *  holds a node of another domain, a node of kind "other", a node twice,
 *  a continuous node after a discrete one, or misses a node. */
KELVA_API k_status_t k_domain_triangulate_with_order(k_domain_t domain, k_node_t *order);
/** The elimination order of the current triangulation (first eliminated
 *  first), a null-ended list owned by the domain; null with "usage" when the
 *  domain is not triangulated. */
KELVA_API k_node_t *k_domain_get_elimination_order(k_domain_t domain);
/** 1 when the domain has a junction forest, 0 when not, -1 on error. */
KELVA_API k_bool_t k_domain_is_triangulated(k_domain_t domain);
/** Compiles the domain: triangulates it by K_TM_BEST_GREEDY unless it is
 *  triangulated, generates out-of-date model tables, checks the conditional
 *  probability tables (only when a log file is set), and propagates once
 *  (sum equilibrium, normal mode).  "usage" for a domain without discrete or
 *  continuous nodes or one already compiled; a failure leaves the domain as
 *  triangulated as it was before the call. */
KELVA_API k_status_t k_domain_compile(k_domain_t domain);

/* K_TM_TOTAL_WEIGHT searches, per prime component, the minimal
 * triangulations for one whose cliques have the least total weight (sum of
 * the products of the members' state counts).  It never returns more than
 * the initial triangulation (best greedy when none is set), which it keeps
 * when a bound below is passed, and for components with continuous nodes. */

/** Sets the elimination order that K_TM_TOTAL_WEIGHT starts from: a
 *  null-ended list as for k_domain_triangulate_with_order ("enumeration"
 *  when invalid, nothing changed), or null for none.  Creating or deleting
 *  a node forgets it. */
KELVA_API k_status_t k_domain_set_initial_triangulation(k_domain_t domain, k_node_t *order);
/** Sets the most minimal separators (and that times the number of vertices
 *  potential maximal cliques) the search may list in one component; 0 or
 *  less is no bound (the default). */
KELVA_API k_status_t k_domain_set_max_number_of_separators(k_domain_t domain, int64_t count);
/** The maximum number of separators; -1 with "usage" for a null domain. */
KELVA_API int64_t k_domain_get_max_number_of_separators(k_domain_t domain);
/** Sets the largest minimal separator the search considers; 0 or less is no
 *  bound (the default).  With a bound the result is the best among the
 *  triangulations whose separators fit, not always the optimum. */
KELVA_API k_status_t k_domain_set_max_separator_size(k_domain_t domain, int64_t size);
/** The maximum separator size; -1 with "usage" for a null domain. */
KELVA_API int64_t k_domain_get_max_separator_size(k_domain_t domain);
/** Sets the three settings of K_TM_TOTAL_WEIGHT at once: the initial
 *  triangulation (null for none), the maximum number of separators and the
 *  maximum separator size.  An invalid order gives "enumeration" and
 *  changes nothing. */
KELVA_API k_status_t k_domain_set_triangulation_parameters(k_domain_t domain, k_node_t *initial,
                                                           int64_t max_separators,
                                                           int64_t max_separator_size);
/** Sets the nodes (a null-ended list; null or an empty list for none) that
 *  every later triangulation of the domain, by any method or order, puts
 *  into one clique: their pairwise links are added to the moral graph before
 *  elimination, so one junction tree holds their joint distribution (to read
 *  or to replace it, as the interface of a dynamic network is).  A node
 *  listed twice, of another domain, or neither discrete nor continuous
 *  gives "enumeration" and changes nothing.  The forest in place is kept;
 *  a deleted node leaves the set; the set is not saved in NET or KB files. */
KELVA_API k_status_t k_domain_set_ijt_nodes(k_domain_t domain, k_node_t *nodes);
/** Triangulates by the method k_domain_compile uses (K_TM_BEST_GREEDY);
 *  failures as for k_domain_triangulate. */
KELVA_API k_status_t k_domain_triangulate_default(k_domain_t domain);

/* The junction forest holds one junction tree per connected part of the
 * network.  Its cliques are numbered from 0, tree after tree, every clique
 * after its parent; the queries below give "usage" for a null handle. */

/** The first junction tree of a triangulated domain, or null (no error) when
 *  the domain is not triangulated. */
KELVA_API k_junction_tree_t k_domain_get_first_junction_tree(k_domain_t domain);
/** The next junction tree of the forest, or null at the end. */
KELVA_API k_junction_tree_t k_jt_get_next(k_junction_tree_t jt);
/** The root clique of the tree. */
KELVA_API k_clique_t k_jt_get_root(k_junction_tree_t jt);
/** The cliques of the tree in the order of their numbers (parents before
 *  children), a null-ended list owned by the tree. */
KELVA_API k_clique_t *k_jt_get_cliques(k_junction_tree_t jt);
/** Sum over the tree's cliques of their discrete table sizes, saturating at
 *  K_SIZE_ERROR; K_SIZE_ERROR with "usage" for a null tree. */
KELVA_API k_size_t k_jt_get_total_size(k_junction_tree_t jt);
/** Sum over the tree's cliques of discrete size times CG entries,
 *  saturating; K_SIZE_ERROR with "usage" for a null tree. */
KELVA_API k_size_t k_jt_get_total_cg_size(k_junction_tree_t jt);
/** The clique's members in the order of its table (discrete members
 *  first), a null-ended list owned by the clique. */
KELVA_API k_node_t *k_clique_get_members(k_clique_t clique);
/** The cliques linked to this one in the junction tree (its parent first,
 *  then its children in number order), a null-ended list owned by the
 *  clique. */
KELVA_API k_clique_t *k_clique_get_neighbors(k_clique_t clique);
/** The junction tree that holds the clique. */
KELVA_API k_junction_tree_t k_clique_get_junction_tree(k_clique_t clique);
/** An opaque pointer kept with a junction tree or clique for the caller
 *  (null until set; gone with the forest when the domain is uncompiled). */
KELVA_API k_status_t k_jt_set_backpointer(k_junction_tree_t jt, void *data);
KELVA_API void *k_jt_get_backpointer(k_junction_tree_t jt);
KELVA_API k_status_t k_clique_set_backpointer(k_clique_t clique, void *data);
KELVA_API void *k_clique_get_backpointer(k_clique_t clique);
/** The junction tree holding the clique to which the node's table is
 *  assigned; null with "not_compiled" when the domain is not triangulated,
 *  "usage" for a node that takes no part in the forest. */
KELVA_API k_junction_tree_t k_node_get_junction_tree(k_node_t node);

/* ------------------------------------------------------------------------ */
/* Evidence                                                                  */
/* ------------------------------------------------------------------------ */

/** Enters the evidence that discrete `node` is in state `state`. */
KELVA_API k_status_t k_node_select_state(k_node_t node, k_size_t state);
/** Sets the finding of state `state` of a discrete node to `value`
 *  (0 <= value < largest double): 0 excludes the state, values other than
 *  0 and 1 make a likelihood. */
KELVA_API k_status_t k_node_enter_finding(k_node_t node, k_size_t state, double value);
/** Enters a value: the value of a continuous node, or the state of a
 *  numeric (number or interval) discrete node that matches `value`. */
KELVA_API k_status_t k_node_enter_value(k_node_t node, double value);
/** Removes the evidence entered on the node. */
KELVA_API k_status_t k_node_retract_findings(k_node_t node);
/** Removes the evidence of every discrete and continuous node. */
KELVA_API k_status_t k_domain_retract_findings(k_domain_t domain);
/** 1 when evidence is entered on the node, 0 when not, -1 on error. */
KELVA_API k_bool_t k_node_evidence_is_entered(k_node_t node);
/** 1 when the node's evidence as of the last propagation is not empty. */
KELVA_API k_bool_t k_node_evidence_is_propagated(k_node_t node);
/** 1 when the entered evidence is a likelihood (a value other than 0, 1). */
KELVA_API k_bool_t k_node_likelihood_is_entered(k_node_t node);
/** 1 when the propagated evidence is a likelihood. */
KELVA_API k_bool_t k_node_likelihood_is_propagated(k_node_t node);
/** 1 when the entered evidence differs from the propagated evidence. */
KELVA_API k_bool_t k_node_evidence_to_propagate(k_node_t node);
/** The entered finding of state `state` (1 for every state without
 *  evidence); -1 on error. */
KELVA_API double k_node_get_entered_finding(k_node_t node, k_size_t state);
/** The finding of state `state` as of the last propagation; -1 on error. */
KELVA_API double k_node_get_propagated_finding(k_node_t node, k_size_t state);
/** The selected state of a discrete node; -1 with "usage" when no single
 *  state is selected. */
KELVA_API int64_t k_node_get_selected_state(k_node_t node);
/** The state selected as of the last propagation; -1 with "usage" when
 *  none. */
KELVA_API int64_t k_node_get_propagated_state(k_node_t node);
/** The entered value of a continuous or numeric node; "usage" when none. */
KELVA_API double k_node_get_entered_value(k_node_t node);
/** The value as of the last propagation; "usage" when none. */
KELVA_API double k_node_get_propagated_value(k_node_t node);

/** Truth values about the evidence of a tree or a compiled domain. */
KELVA_API k_bool_t k_jt_evidence_to_propagate(k_junction_tree_t jt);
KELVA_API k_bool_t k_jt_evidence_is_propagated(k_junction_tree_t jt);
KELVA_API k_bool_t k_jt_likelihood_is_propagated(k_junction_tree_t jt);
KELVA_API k_bool_t k_jt_cg_evidence_is_propagated(k_junction_tree_t jt);
KELVA_API k_bool_t k_jt_tables_to_propagate(k_junction_tree_t jt);
KELVA_API k_bool_t k_jt_equilibrium_is(k_junction_tree_t jt, k_equilibrium_t equilibrium);
KELVA_API k_bool_t k_jt_evidence_mode_is(k_junction_tree_t jt, k_evidence_mode_t mode);
KELVA_API k_bool_t k_domain_evidence_is_propagated(k_domain_t domain);
KELVA_API k_bool_t k_domain_evidence_to_propagate(k_domain_t domain);
KELVA_API k_bool_t k_domain_likelihood_is_propagated(k_domain_t domain);
KELVA_API k_bool_t k_domain_cg_evidence_is_propagated(k_domain_t domain);
KELVA_API k_bool_t k_domain_tables_to_propagate(k_domain_t domain);
KELVA_API k_bool_t k_domain_equilibrium_is(k_domain_t domain, k_equilibrium_t equilibrium);
KELVA_API k_bool_t k_domain_evidence_mode_is(k_domain_t domain, k_evidence_mode_t mode);

/* ------------------------------------------------------------------------ */
/* Propagation and results                                                   */
/* ------------------------------------------------------------------------ */

/** Propagates the entered evidence through every junction tree: sum
 *  (K_EQUILIBRIUM_SUM) or max (K_EQUILIBRIUM_MAX) equilibrium, normal or
 *  fast-retraction mode.  "not_compiled", "usage", "compressed",
 *  "inconsistency_or_underflow", "overflow", "no_memory"; after a failure the
 *  next propagation starts from the node tables. */
KELVA_API k_status_t k_domain_propagate(k_domain_t domain, k_equilibrium_t equilibrium,
                                        k_evidence_mode_t mode);
/** Propagates one junction tree. */
KELVA_API k_status_t k_jt_propagate(k_junction_tree_t jt, k_equilibrium_t equilibrium,
                                    k_evidence_mode_t mode);
/** Propagates the clique's junction tree with the clique as root. */
KELVA_API k_status_t k_clique_propagate(k_clique_t clique, k_equilibrium_t equilibrium,
                                        k_evidence_mode_t mode);
/** Brings the forest back to the node tables; the evidence stays entered
 *  and is to be propagated again. */
KELVA_API k_status_t k_domain_initialize(k_domain_t domain);
/** Re-initialises the clique tables from the node tables and marks the
 *  forest as not propagated. */
KELVA_API k_status_t k_domain_reset_inference_engine(k_domain_t domain);
/** The probability of the propagated evidence (product over the trees);
 *  -1 on error. */
KELVA_API double k_domain_get_normalization_constant(k_domain_t domain);
/** The natural logarithm of the normalization constant, kept as a sum so
 *  that it stays finite when the constant underflows.  On error the result
 *  is -1, which is also a possible logarithm: read k_error_code(). */
KELVA_API double k_domain_get_log_normalization_constant(k_domain_t domain);
/** The belief of state `state` of a discrete node; -1 on error. */
KELVA_API double k_node_get_belief(k_node_t node, k_size_t state);
/** The joint marginal of `nodes` (null-ended, discrete nodes of one junction
 *  tree clique or of one tree) as a new free-standing table owned by the
 *  caller; null on error. */
KELVA_API k_table_t k_domain_get_marginal(k_domain_t domain, k_node_t *nodes);
/** The conflict value of the domain (product over its trees); -1 on error. */
KELVA_API double k_domain_get_conflict(k_domain_t domain);
/** The conflict value of the tree; -1 on error. */
KELVA_API double k_jt_get_conflict(k_junction_tree_t jt);
/** The conflict factor of the clique; -1 on error. */
KELVA_API double k_clique_get_conflict(k_clique_t clique);
/** The clique whose factor holds the node's conflict; null on error. */
KELVA_API k_clique_t k_node_get_conflict_clique(k_node_t node);
/** The expected utility of a utility node, or of state `state` of a discrete
 *  node (ignored for utility nodes); -1 with the code set on error. */
KELVA_API double k_node_get_expected_utility(k_node_t node, k_size_t state);

/* Influence diagrams.  A decision's table is its policy: one distribution
 * over its options per configuration of its parents (uniform when made).
 * Evidence on a decision is a manual decision, an intervention: its policy
 * is then set aside and its parents learn nothing from it.  After a
 * propagation, the expected utility of a decision's option is that of
 * taking it (the decision's policy and manual choice set aside) with the
 * other decisions following their policies, given the evidence. */

/** Finds the policies of all decisions by single policy updating given the
 *  entered evidence (every policy starts uniform; one policy at a time
 *  becomes the best deterministic answer to the others, latest decisions
 *  first, until no policy changes; ties keep the current option, else the
 *  lowest index), stores them as the decisions' tables and propagates.
 *  Optimal with perfect recall, a local optimum otherwise.  Errors:
 *  "not_compiled", "compressed", "functional_dependency" (function nodes),
 *  "invalid_evidence", propagation's codes; the policies are then kept. */
KELVA_API k_status_t k_domain_update_policies(k_domain_t domain);
/** The expected utility of the domain: the sum of its utility nodes'
 *  expected utilities after the last propagation; -1 on error ("usage"
 *  without utility nodes, "not_compiled", "no_equilibrium"). */
KELVA_API double k_domain_get_expected_utility(k_domain_t domain);
/** A new free-standing table (the caller's, over the decision's policy
 *  nodes) of the expected utility of each option given each configuration
 *  of the decision's parents (0 plus the other trees' share where the
 *  configuration is impossible); null on error. */
KELVA_API k_table_t k_node_get_decision_utilities(k_node_t node);
/** The parents of a decision that can change its best choice: those not
 *  d-separated from the utility nodes below it given its other parents,
 *  after the links of unrequisite parents of all decisions are dropped
 *  until none is left.  Null-ended, kept by the node until its next list
 *  query; null with "usage" for a node that is not a decision. */
KELVA_API k_node_t *k_node_get_requisite_parents(k_node_t node);
/** The chance and decision nodes from which the decision is reached in
 *  that reduced graph, in node order; kept as above. */
KELVA_API k_node_t *k_node_get_requisite_ancestors(k_node_t node);
/** The decisions in an order where each is an ancestor of the next
 *  (null-ended, kept by the domain until its next graph query or link
 *  edit); null with "usage" when they are not totally ordered so. */
KELVA_API k_node_t *k_domain_get_decision_order(k_domain_t domain);
/** Takes every decision without evidence, ancestors first, by selecting
 *  its option of largest expected utility (the lowest index on ties) after
 *  a propagation, then propagates.  "usage" without utility nodes; on
 *  failure the choices made are retracted. */
KELVA_API k_status_t k_domain_decide_automatically(k_domain_t domain);
/** Retracts the evidence of every decision node. */
KELVA_API k_status_t k_domain_undo_manual_decisions(k_domain_t domain);
/** The largest entry of a utility node's utility table: the best outcome
 *  it can score, whether or not the evidence allows it (no compilation
 *  needed); -1 with "usage" for a null node or one that is not a utility
 *  node (-1 is also a possible utility: check the code). */
KELVA_API double k_node_get_max_utility(k_node_t node);
/** The smallest entry of a utility node's utility table; as above. */
KELVA_API double k_node_get_min_utility(k_node_t node);
/** The variance of a utility as of the last propagation, given the
 *  evidence and under the policies: for a utility node, that of its own
 *  utility (`state` ignored); for a decision node, that of the total
 *  utility of the domain when option `state` is taken, read as its
 *  expected utility is (0 from its own tree for an option the evidence
 *  rules out).  -1 with the code set on error: "usage" for another node
 *  or a state out of range, "not_compiled", "no_equilibrium", and
 *  "functional_dependency" for a decision in a domain with function nodes
 *  (which has no option values). */
KELVA_API double k_node_get_variance_of_utility(k_node_t node, k_size_t state);

/** The value of a real-valued function node: its model's expression
 *  evaluated with the discrete nodes it refers to in the states the last
 *  propagation knows them to be in (instantiated, or all belief on one
 *  state), utility nodes at their expected utilities and other function
 *  nodes at their values; -1 on error: "usage" for another node,
 *  "no_value" without a model or when a state is not known, "not_compiled"
 *  when a belief it needs is not known, or the evaluation's failure. */
KELVA_API double k_node_get_value(k_node_t node);

/* Conditional-Gaussian nodes.  A continuous chance node X with continuous
 * parents Y1..Yk has, per configuration i of its discrete parents (its
 * table's configuration order), X = alpha + beta(Y1) Y1 + ... + beta(Yk) Yk
 * plus normal noise of variance gamma. */

/** The mean of continuous `node` as of the last propagation (its value when
 *  one is entered); -1 on error: "usage" for another node, "not_compiled",
 *  "no_equilibrium".  Read k_error_code(), -1 is also a mean. */
KELVA_API double k_node_get_mean(k_node_t node);
/** The variance of continuous `node` as of the last propagation (0 when a
 *  value is entered); -1 on error as k_node_get_mean. */
KELVA_API double k_node_get_variance(k_node_t node);
/** The distribution of continuous `node` as of the last propagation, a
 *  mixture of normals: a new free-standing table owned by the caller, over
 *  the discrete nodes the node's continuous component depends on (its head;
 *  possibly none) followed by the node itself.  Entry i of the data is the
 *  weight P(configuration i | evidence); k_table_get_mean and
 *  k_table_get_variance of configuration i give the node's mean and
 *  variance given it.  Null on error as k_node_get_mean. */
KELVA_API k_table_t k_node_get_distribution(k_node_t node);
/** The `probability`-quantile of continuous `node` as of the last
 *  propagation: the least x with P(node <= x | evidence) >= probability,
 *  for the mixture of k_node_get_distribution (a component of variance 0,
 *  as of an entered value, is a point mass).  -1 on error: "usage" unless
 *  0 < probability < 1, else as k_node_get_mean. */
KELVA_API double k_node_get_quantile(k_node_t node, double probability);
/** The distribution of the sum of the state values of `nodes` (null-ended,
 *  distinct discrete nodes of the number or boolean subtype, false 0 and
 *  true 1) given the propagated evidence: a new array of 2k doubles, to be
 *  freed with free(), holding the k distinct sums in ascending order and
 *  then their probabilities; *count receives k.  The nodes of one junction
 *  tree must share a clique (as for k_domain_get_marginal); the trees are
 *  independent.  Null on error: "usage" (no nodes or no count, a node of
 *  another domain or of another subtype, a node twice, nodes of one tree in
 *  no common clique, a tree in max equilibrium), "not_compiled",
 *  "no_equilibrium", "size_too_large" (more than 2^20 distinct sums). */
KELVA_API double *k_domain_get_convolution(k_domain_t domain, k_node_t *nodes, k_size_t *count);
/** The distribution of the sum of `copies` independent draws from the
 *  belief of discrete `node` (number or boolean subtype), as
 *  k_domain_get_convolution returns it; "usage" for 0 copies. */
KELVA_API double *k_node_get_convolution(k_node_t node, k_size_t copies, k_size_t *count);
/** alpha (the intercept) of configuration `i`; -1 on error: "usage" for a
 *  node that is not a continuous chance node or `i` not below its table's
 *  size. */
KELVA_API double k_node_get_alpha(k_node_t node, k_size_t i);
/** beta, the coefficient on continuous parent `parent`, of configuration
 *  `i`; -1 on error ("usage" also when `parent` is not a continuous parent). */
KELVA_API double k_node_get_beta(k_node_t node, k_node_t parent, k_size_t i);
/** gamma (the variance) of configuration `i`; -1 on error. */
KELVA_API double k_node_get_gamma(k_node_t node, k_size_t i);
/** Sets alpha of configuration `i` (finite); the node's table counts as
 *  changed.  "usage" as k_node_get_alpha or for a value that is not finite. */
KELVA_API k_status_t k_node_set_alpha(k_node_t node, double alpha, k_size_t i);
/** Sets beta on continuous parent `parent` of configuration `i` (finite). */
KELVA_API k_status_t k_node_set_beta(k_node_t node, double beta, k_node_t parent, k_size_t i);
/** Sets gamma of configuration `i` (finite, at least 0). */
KELVA_API k_status_t k_node_set_gamma(k_node_t node, double gamma, k_size_t i);

/** Replaces the clique and separator tables of a compiled, propagated domain
 *  by tables that keep only their non-zero entries (0.0 is the only zero;
 *  NaN is kept), reached through index maps; returns the total number of
 *  clique and separator entries after compression over the number before,
 *  or -1 on error.  "usage" for a domain with chain-graph components,
 *  utility nodes or continuous clique members, "not_compiled",
 *  "no_equilibrium" when a tree holds none, "table_too_large" when a separator or a node table
 *  would need more than 4294967295 entries (the domain stays uncompressed).
 *  Entries that are 0 now stay 0: evidence propagated before compression
 *  cannot be retracted afterwards.  On a compressed domain nothing changes
 *  and the result is 1.  A compressed domain refuses fast retraction
 *  ("compressed"); uncompiling discards the compression. */
KELVA_API double k_domain_compress(k_domain_t domain);
/** 1 when the domain's tables are compressed, 0 when not, -1 on error. */
KELVA_API k_bool_t k_domain_is_compressed(k_domain_t domain);

/** Writes the beliefs, expected utilities and values of the domain's nodes
 *  to its log file (nothing without one): decision, chance and discrete
 *  function nodes with their beliefs, utility nodes with their expected
 *  utilities, real-valued function nodes with their values ("N/A" when
 *  not known).  Returns 0, or the error code: "usage", "not_compiled" (also
 *  without a log), "no_equilibrium", "io" (the report ends at the failed
 *  write), "locale". */
KELVA_API k_status_t k_domain_report_beliefs(k_domain_t domain);
/** Writes the report of one discrete, continuous or function node to its
 *  domain's log file; returns 0 or the error code, as above.  Without a
 *  log, 0 after checking the node only. */
KELVA_API k_status_t k_node_report_beliefs(k_node_t node);

/* ------------------------------------------------------------------------ */
/* Graph queries, sensitivity, explanations and information                  */
/* ------------------------------------------------------------------------ */

/* Lists handed out here belong to the node or domain that holds them: a
 * node keeps the list of its last ancestor, descendant or moral-neighbour
 * query, the domain those of its last d-separation query (forgotten when a
 * link changes) and of its last sensitivity and explanation analyses.
 * Analyses that propagate (sensitivity, explanations, mutual information)
 * work on discrete chance and utility nodes only ("usage" otherwise), and
 * leave the entered evidence and the trees' propagation state as they were
 * ("compressed" on a compressed domain). */

/** The node's ancestors (not itself), breadth-first from its parents. */
KELVA_API k_node_t *k_node_get_ancestors(k_node_t node);
/** The node's descendants (not itself), breadth-first from its children. */
KELVA_API k_node_t *k_node_get_descendants(k_node_t node);
/** The node's neighbours in the moral graph: parents, children, and the
 *  children's other parents. */
KELVA_API k_node_t *k_node_get_moral_neighbors(k_node_t node);
/** The nodes d-connected to some node of `source` given hard evidence on
 *  the nodes of `hard` and likelihood evidence on those of `soft` (each list
 *  may be null for none; a likelihood acts as an observed child), found by
 *  the Bayes ball: the unobserved nodes the ball reaches, sources included,
 *  in the domain's node order. */
KELVA_API k_node_t *k_domain_get_d_connected_nodes(k_domain_t domain, k_node_t *source,
                                                   k_node_t *hard, k_node_t *soft);
/** The other nodes of the domain (observed nodes among them), in the
 *  domain's node order. */
KELVA_API k_node_t *k_domain_get_d_separated_nodes(k_domain_t domain, k_node_t *source,
                                                   k_node_t *hard, k_node_t *soft);

/** Computes the sensitivity of P(node = state | evidence) to every entry of
 *  every chance node's table: entry theta varies, the other entries of its
 *  column scaled to keep the sum 1 (shared equally when they are all 0), and
 *  the output is (alpha theta + beta) / (gamma theta + delta), scaled so
 *  that gamma theta + delta is 1 at the current value.  "not_compiled",
 *  "inconsistency_or_underflow" for impossible evidence. */
KELVA_API k_status_t k_node_compute_sensitivity_data(k_node_t node, k_size_t state);
/** The same for several outputs at once: nodes[i] = states[i] (`states`
 *  has one entry per node of the list). */
KELVA_API k_status_t k_domain_compute_sensitivity_data(k_domain_t domain, k_node_t *nodes,
                                                       const k_size_t *states);
/** Stores alpha, beta, gamma, delta of entry `input` of the node's table
 *  (first output) in constants[0..3]; "usage" when no sensitivity data were
 *  computed on the current junction forest. */
KELVA_API k_status_t k_node_get_sensitivity_constants(k_node_t node, k_size_t input,
                                                      double *constants);
/** As k_node_get_sensitivity_constants, for output `output`. */
KELVA_API k_status_t k_node_get_sensitivity_constants2(k_node_t node, k_size_t input,
                                                       k_size_t output, double *constants);
/** The chance nodes whose tables can change output `output` (the others
 *  have constants 0, p, 0, 1), in the domain's node order. */
KELVA_API k_node_t *k_domain_get_sensitivity_set(k_domain_t domain, k_size_t output);

/** Scores every subset of at most `max_subset_size` (1 or more) items of
 *  the evidence (selected states of other nodes) as an explanation of the
 *  hypothesis node = state by its Bayes factor P(s | h) / P(s | not h);
 *  likelihood evidence stays entered as background, the node's own
 *  evidence is left out.  Best first; "usage" when the hypothesis is
 *  certain or impossible without the items, or for more than 2^20
 *  subsets. */
KELVA_API k_status_t k_node_compute_explanation_data(k_node_t node, k_size_t state,
                                                     k_size_t max_subset_size);
/** The number of explanations of the last computation (K_SIZE_ERROR and
 *  "usage" when none was made on the current junction forest). */
KELVA_API k_size_t k_domain_get_number_of_explanations(k_domain_t domain);
/** The nodes of explanation `index` (their entered states), in the
 *  domain's node order. */
KELVA_API k_node_t *k_domain_get_explanation(k_domain_t domain, k_size_t index);
/** The Bayes factor of explanation `index` (may be infinity), -1 on error. */
KELVA_API double k_domain_get_explanation_score(k_domain_t domain, k_size_t index);
/** The Bayes factor of all items of the evidence for node = state (the
 *  conventions of k_node_compute_explanation_data); -1 on error. */
KELVA_API double k_node_get_total_impact(k_node_t node, k_size_t state);

/** The entropy (natural logarithm) of the node's propagated beliefs;
 *  -1 on error ("no_equilibrium", "usage" for a max equilibrium). */
KELVA_API double k_node_get_entropy(k_node_t node);
/** The mutual information (natural logarithm) of two discrete nodes under
 *  the entered evidence: the expected fall of the entropy of one when the
 *  other is observed; -1 on error. */
KELVA_API double k_node_get_mutual_information(k_node_t node, k_node_t other);

/* ------------------------------------------------------------------------ */
/* Stored cases                                                              */
/* ------------------------------------------------------------------------ */

/* A domain stores cases for learning: each case gives every node a state
 * (discrete nodes) or a value (continuous nodes), or nothing, and carries a
 * count (1 until set; counts weight cases in learning).  Cases are numbered
 * from 0 in the order they were made. */

/** Appends an empty case (nothing set, count 1); returns its index, or
 *  K_SIZE_ERROR on failure. */
KELVA_API k_size_t k_domain_new_case(k_domain_t domain);
/** The number of stored cases, or K_SIZE_ERROR with "usage" for null. */
KELVA_API k_size_t k_domain_get_number_of_cases(k_domain_t domain);
/** Keeps the first `count` cases, or appends empty ones up to `count`;
 *  "no_memory" for a count that could never be stored. */
KELVA_API k_status_t k_domain_set_number_of_cases(k_domain_t domain, k_size_t count);
/** Sets the count of case `index`: finite and nonnegative, else "usage". */
KELVA_API k_status_t k_domain_set_case_count(k_domain_t domain, k_size_t index, double count);
/** The count of case `index` (1 until set), or -1.0 on error. */
KELVA_API double k_domain_get_case_count(k_domain_t domain, k_size_t index);
/** The total case count: the sum of the counts once any count has been set,
 *  else the number of cases; -1.0 on error. */
KELVA_API double k_domain_count_cases(k_domain_t domain);
/** Retracts all evidence and enters case `index` as evidence: a state as a
 *  selected state, a value as a value.  On failure ("usage" for a bad
 *  index) the evidence is as before. */
KELVA_API k_status_t k_domain_enter_case(k_domain_t domain, k_size_t index);
/** Sets the state of a discrete chance, decision or discrete function node
 *  in case `index`: "case_state_too_large" above 32767, "usage" for a state
 *  the node does not have. */
KELVA_API k_status_t k_node_set_case_state(k_node_t node, k_size_t index, k_size_t state);
/** The node's state in case `index`; K_SIZE_ERROR with "no_value" when the
 *  case gives the node no state, with "usage" on bad arguments. */
KELVA_API k_size_t k_node_get_case_state(k_node_t node, k_size_t index);
/** Sets the value of a continuous chance node in case `index` (finite). */
KELVA_API k_status_t k_node_set_case_value(k_node_t node, k_size_t index, double value);
/** The node's value in case `index`; -1.0 with "no_value" when unset. */
KELVA_API double k_node_get_case_value(k_node_t node, k_size_t index);
/** Removes the node's item from case `index`. */
KELVA_API k_status_t k_node_unset_case(k_node_t node, k_size_t index);
/** 1 when case `index` gives the node a state or value, 0 when not, -1 on
 *  error. */
KELVA_API k_bool_t k_node_case_is_set(k_node_t node, k_size_t index);

/* ------------------------------------------------------------------------ */
/* Case files                                                                */
/* ------------------------------------------------------------------------ */

/** Reads a single-case file (items NODE `:` FINDING) and enters its
 *  findings: each node the file names gets the file's finding in place of
 *  its evidence, other nodes keep theirs.  Messages go to `handler` (may be
 *  null) with line numbers; "parse" when any error was reported, and then
 *  the evidence is as before (findings are entered only after the whole
 *  file has been read).  "io" when the file cannot be opened. */
KELVA_API k_status_t k_domain_parse_case(k_domain_t domain, const char *file_name,
                                         k_parse_error_handler_t handler, void *data);
/** Writes the entered evidence of the chance, decision and discrete
 *  function nodes, in the domain's node order, as a single-case file. */
KELVA_API k_status_t k_domain_save_case(k_domain_t domain, const char *file_name);
/** Reads a multi-case data file and appends its cases to the stored ones.
 *  A file without case lines succeeds with the warning "warning: file
 *  contains no cases".  On failure the stored cases are as before. */
KELVA_API k_status_t k_domain_parse_cases(k_domain_t domain, const char *file_name,
                                          k_parse_error_handler_t handler, void *data);
/** Reads a multi-case data file from `text` in memory (NUL-terminated)
 *  exactly as k_domain_parse_cases reads a file with those contents
 *  (numbers too, by the file's "%lg" rules); positions given to `handler`
 *  are line numbers.  "usage" for a null text. */
KELVA_API k_status_t k_domain_parse_cases_string(k_domain_t domain, const char *text,
                                                 k_parse_error_handler_t handler, void *data);
/** Writes stored cases as a multi-case data file: the columns `nodes` (a
 *  null-terminated list), the cases `cases` (indexes ended by a negative
 *  one; null for every case), counts written when `include_counts` is 1,
 *  items separated by `separator`, missing items written as `missing`.
 *  Without counts a case is written as many times as its count says.
 *  "usage", with no file made, for an empty node list, a node of another
 *  domain, one that holds no case items or one listed twice, a flag other
 *  than 0 or 1, a null text, a case index out of range, or (without counts)
 *  a selected case whose count is not a finite whole number. */
KELVA_API k_status_t k_domain_save_cases(k_domain_t domain, const char *file_name, k_node_t *nodes,
                                         const int64_t *cases, k_bool_t include_counts,
                                         const char *separator, const char *missing);

/* ------------------------------------------------------------------------ */
/* EM learning                                                               */
/* ------------------------------------------------------------------------ */

/** EM progress call-back: called after every iteration with the iteration
 *  number (from 1), that iteration's log-likelihood and the data given with
 *  it; returning 0 stops the learning. */
typedef int (*k_em_progress_t)(uint64_t iteration, double log_likelihood, void *data);

/** Learns, by EM, the tables of the chance nodes that have an experience
 *  table from the stored cases (discrete items and continuous values, either
 *  may be missing).  A continuous node's alpha, beta and gamma become, per
 *  configuration of its discrete parents, the least-squares regression on
 *  its continuous parents weighted by the configuration's posterior
 *  (expected over missing values); a configuration whose data leave the
 *  regression not unique or without residual variance keeps its parameters,
 *  and experience counts give a continuous node no prior.  A case of count
 *  w weighs as w copies of it.  Before
 *  each update a parent configuration with experience count n > 0 adds n
 *  prior cases distributed as its row was when learning started; a
 *  configuration with a negative count is not learned; one without data
 *  keeps its row.  Iterations stop by the tolerance, the iteration limit or
 *  the progress call-back.  With a log file set, the iterations and the
 *  final log-likelihood, AIC and BIC are written to it.  Entered evidence is
 *  retracted; on success the domain ends propagated without evidence.
 *  Errors: "usage" (null, no cases, total case count 0, no experience
 *  table), "not_compiled", "inconsistency_or_underflow" (a case impossible
 *  under the current tables, or too improbable to represent), "low_density"
 *  or "zero_variance" (a case's values, as in propagation), "io" (the
 *  log), "no_memory"; on failure every table is as before. */
KELVA_API k_status_t k_domain_learn_tables(k_domain_t domain);
/** Sets the relative log-likelihood tolerance of EM: learning stops when
 *  two successive totals differ by at most tolerance times the newer one's
 *  absolute value.  "usage" for a negative value or NaN. */
KELVA_API k_status_t k_domain_set_log_likelihood_tolerance(k_domain_t domain, double tolerance);
/** The tolerance (0.0001 for a new domain), or -1.0 with "usage" for null. */
KELVA_API double k_domain_get_log_likelihood_tolerance(k_domain_t domain);
/** Sets the maximum number of EM iterations (0: no limit). */
KELVA_API k_status_t k_domain_set_max_number_of_em_iterations(k_domain_t domain, k_size_t count);
/** The maximum number of EM iterations, or K_SIZE_ERROR for null. */
KELVA_API k_size_t k_domain_get_max_number_of_em_iterations(k_domain_t domain);
/** Sets (or with null clears) the EM progress call-back and its data. */
KELVA_API k_status_t k_domain_set_em_progress(k_domain_t domain, k_em_progress_t callback,
                                              void *data);
/** The log-likelihood of the stored cases under the current tables: the sum
 *  over the cases of count times the log of the case's probability (a
 *  density when it has continuous values); 0.0 without cases.  Cached until a table, the number of
 *  cases or their total count changes.  Entered evidence is retracted and
 *  the domain left propagated without evidence.  1.0 on failure: "usage",
 *  "not_compiled", "inconsistency_or_underflow". */
KELVA_API double k_domain_get_log_likelihood(k_domain_t domain);
/** Log-likelihood minus the number of free parameters ((states - 1) per
 *  parent configuration of a discrete chance node; c + 2 per discrete parent
 *  configuration of a continuous chance node with c continuous parents);
 *  1.0 on failure. */
KELVA_API double k_domain_get_aic(k_domain_t domain);
/** Log-likelihood minus half the number of free parameters times the log of
 *  the total case count; 1.0 on failure ("usage" also when the total case
 *  count is not above 0). */
KELVA_API double k_domain_get_bic(k_domain_t domain);

/* ------------------------------------------------------------------------ */
/* Adaptation                                                                */
/* ------------------------------------------------------------------------ */

/** Sequential updating of the conditional tables from the evidence now
 *  propagated: the evidence is one case.  Every discrete chance node with
 *  an experience table takes part; the others are left alone.  For each
 *  parent configuration j with experience count n >= 0 (a negative count
 *  marks a row that is not adapted), with w_k the posterior probability of
 *  state k together with j and w their sum: the fading factor L of j (1
 *  without a fading table) applies as far as the case speaks about j,
 *  f = 1 - w (1 - L); the row's counts n p_k become f n p_k + w_k, the
 *  experience becomes f n + w, and the row p becomes the counts over the
 *  new experience (unchanged when w is 0).  A complete case thus adds 1 to
 *  its configuration's count after fading it by L.  Missing items and
 *  likelihood evidence give fractional counts.
 *  The evidence stays entered and the equilibrium stays that of the old
 *  tables; the next propagation starts from the new tables (so retracting
 *  and propagating gives the adapted network's prior beliefs).  Errors:
 *  "usage" (null; evidence entered but not propagated, or not at sum
 *  equilibrium, or a table changed since), "not_compiled", "compressed";
 *  on failure nothing changes. */
KELVA_API k_status_t k_domain_adapt(k_domain_t domain);

/* ------------------------------------------------------------------------ */
/* Data sets                                                                 */
/* ------------------------------------------------------------------------ */

/** A data set: a table of text cells with named columns. */
typedef struct k_data_set_s *k_data_set_t;

/* A data set holds text cells in rows and named columns.  A cell is missing
 * or present; a present cell holds a text, which may be empty, and an empty
 * cell is not a missing one.  Rows and columns are numbered from 0.  Cells
 * are read as numbers or states only by the operations that need them.  A
 * number is a finite decimal number (optional sign, digits with an optional
 * point, optional exponent), white space around it allowed; words such as
 * "inf" or "nan" and hexadecimal forms are not numbers.  Every index out of
 * range and every null data set is "usage". */

/** Creates an empty data set (no columns, no rows); the caller deletes it
 *  with k_ds_delete.  Null on failure ("no_memory"). */
KELVA_API k_data_set_t k_new_data_set(void);
/** Deletes a data set; texts and lists obtained from it die with it. */
KELVA_API k_status_t k_ds_delete(k_data_set_t data_set);
/** Appends a column named `name` (any text, copied; "usage" for null) whose
 *  cells are all missing; returns its index, K_SIZE_ERROR on failure.
 *  Column names need not be unique. */
KELVA_API k_size_t k_ds_new_column(k_data_set_t data_set, const char *name);
/** Appends a row whose cells are all missing; returns its index, or
 *  K_SIZE_ERROR on failure. */
KELVA_API k_size_t k_ds_new_row(k_data_set_t data_set);
/** Deletes a column; later columns move down by one. */
KELVA_API k_status_t k_ds_delete_column(k_data_set_t data_set, k_size_t column);
/** Deletes a row; later rows move down by one. */
KELVA_API k_status_t k_ds_delete_row(k_data_set_t data_set, k_size_t row);
/** The number of columns, or K_SIZE_ERROR. */
KELVA_API k_size_t k_ds_get_number_of_columns(k_data_set_t data_set);
/** The number of rows, or K_SIZE_ERROR. */
KELVA_API k_size_t k_ds_get_number_of_rows(k_data_set_t data_set);
/** The name of a column, owned by the data set and valid until the column
 *  is renamed or deleted; null on failure. */
KELVA_API const char *k_ds_get_column_name(k_data_set_t data_set, k_size_t column);
/** Renames a column: any text ("usage" for null).  k_domain_add_cases
 *  matches column names to node names exactly, so a column meant for a
 *  node carries the node's name. */
KELVA_API k_status_t k_ds_set_column_name(k_data_set_t data_set, k_size_t column, const char *name);
/** The text of a cell, owned by the data set and valid until the cell
 *  changes; null with the code "none" when the cell is missing, null with
 *  "usage" for a bad index. */
KELVA_API const char *k_ds_get_data_item(k_data_set_t data_set, k_size_t row, k_size_t column);
/** Sets the text of a cell (copied); null makes the cell missing. */
KELVA_API k_status_t k_ds_set_data_item(k_data_set_t data_set, k_size_t row, k_size_t column,
                                        const char *text);
/** Moves column `column` to position `new_index` (below the number of
 *  columns); the columns between shift by one place. */
KELVA_API k_status_t k_ds_move_column(k_data_set_t data_set, k_size_t column, k_size_t new_index);
/** Moves row `row` to position `new_index` (below the number of rows); the
 *  rows between shift by one place. */
KELVA_API k_status_t k_ds_move_row(k_data_set_t data_set, k_size_t row, k_size_t new_index);
/** Appends a copy of a column (its name and cells, missing ones missing);
 *  returns the new column's index, K_SIZE_ERROR on failure. */
KELVA_API k_size_t k_ds_copy_column(k_data_set_t data_set, k_size_t column);
/** 1 when every cell of the column is missing (also with no rows), 0 when
 *  a cell is present (even an empty one), -1 on error. */
KELVA_API k_bool_t k_ds_column_is_empty(k_data_set_t data_set, k_size_t column);
/** 1 when every present cell of the column is a number (also when none is
 *  present), 0 when one is not (an empty cell is not), -1 on error. */
KELVA_API k_bool_t k_ds_column_data_are_numbers(k_data_set_t data_set, k_size_t column);
/** The first row at or after `start` whose cell in `column` holds exactly
 *  `text` (a missing cell when `text` is null).  K_SIZE_ERROR with the code
 *  "none" when there is none (also when `start` is the number of rows),
 *  with "usage" for a bad column or a start beyond the number of rows. */
KELVA_API k_size_t k_ds_find_row(k_data_set_t data_set, k_size_t column, const char *text,
                                 k_size_t start);
/** The distinct texts of the present cells of a column, each once, in the
 *  order of their first appearance, as a null-terminated list.  The list and
 *  its texts belong to the data set and stay valid until the data set
 *  changes or this function is called again.  Null on failure. */
KELVA_API const char *const *k_ds_get_distinct_values(k_data_set_t data_set, k_size_t column);
/** Sets every cell of a column that holds exactly `old_text` (a missing cell
 *  when null) to `new_text` (missing when null); returns the number of cells
 *  that matched, K_SIZE_ERROR on failure. */
KELVA_API k_size_t k_ds_replace_values(k_data_set_t data_set, k_size_t column, const char *old_text,
                                       const char *new_text);
/** Orders the rows by their texts in a column, compared byte by byte,
 *  ascending or (with `descending` 1) descending.  The sort is stable, and
 *  rows whose cell is missing come last in their earlier order. */
KELVA_API k_status_t k_ds_sort_rows(k_data_set_t data_set, k_size_t column, k_bool_t descending);
/** As k_ds_sort_rows, comparing the cells as numbers; "invalid_expression"
 *  (and nothing moves) when a present cell is not a number. */
KELVA_API k_status_t k_ds_sort_rows_numerically(k_data_set_t data_set, k_size_t column,
                                                k_bool_t descending);
/** The number of present cells of a column, or K_SIZE_ERROR. */
KELVA_API k_size_t k_ds_count_data(k_data_set_t data_set, k_size_t column);
/** Reads rows start .. start+count-1 of a column as numbers into
 *  array[0 .. count-1], NaN for a missing cell.  "usage" when array is null,
 *  start+count exceeds the number of rows or count exceeds array_length;
 *  "invalid_expression" when a present cell is not a number.  On failure
 *  the array is not written. */
KELVA_API k_status_t k_ds_get_numbers(k_data_set_t data_set, k_size_t column, double *array,
                                      k_size_t array_length, k_size_t start, k_size_t count);

/** Appends rows start .. start+count-1 of a data set to the domain's stored
 *  cases, one case per row (count 1 unless given), matching columns to
 *  nodes by name.  A column that names no node, or a node that cannot hold
 *  case items (utility, real-valued function and instance nodes), is
 *  ignored; two columns naming one node are "usage".  A column named "#"
 *  gives the case counts (finite, nonnegative numbers; a missing cell keeps
 *  the count 1); two such columns are "usage".  A missing cell leaves the
 *  node's item unset; a present cell becomes:
 *  - for a continuous chance node, its value (a number);
 *  - for a numbered node, the state whose value equals the number; for an
 *    interval node, the state whose interval [low, high) holds it, or whose
 *    bounds an interval text "[low;high)" gives (see k_ds_discretize_column);
 *  - for a boolean node, "false" state 0 and "true" state 1;
 *  - for any discrete node, the state whose label is the text, when only
 *    one state has it; then "#" and a state index (e.g. "#2").
 *  A cell that names no state or value (e.g. "*" or "?": make such cells
 *  missing with k_ds_replace_values first) is "usage", a state above 32767
 *  "case_state_too_large"; then no case is added.  "usage" when
 *  start+count exceeds the number of rows. */
KELVA_API k_status_t k_domain_add_cases(k_domain_t domain, k_data_set_t data_set, k_size_t start,
                                        k_size_t count);

/* ------------------------------------------------------------------------ */
/* Data set files                                                            */
/* ------------------------------------------------------------------------ */

/* Delimited text: a header line of column names, then one row per line,
 * fields separated by `separator`.  The separator is a byte 1..255 other
 * than the double quote, newline, carriage return, vertical tab and form
 * feed (tab and space are allowed); any other gives "usage" before anything
 * is read or written.  A field is quoted ("...", a doubled quote standing
 * for one) or plain; white space around a field is dropped; an empty plain
 * field is a missing cell, "" is a present empty one.  Lines with fewer
 * fields than columns leave the other cells missing.  Every line, the last
 * included, must end with a newline (unless the line's last field is
 * quoted). */

/** Reads a data set from the file `file_name` (UTF-8).  Messages go to
 *  `handler` (may be null) with line numbers; the first error stops the
 *  read.  A new data set, which the caller deletes with k_ds_delete; null
 *  with "parse" after a message, "io" when the file cannot be read,
 *  "usage" for a null name or a bad separator. */
KELVA_API k_data_set_t k_parse_data_set(const char *file_name, char separator,
                                        k_parse_error_handler_t handler, void *data);
/** Reads a data set from `text` in memory; positions given to `handler` are
 *  counts of characters consumed. */
KELVA_API k_data_set_t k_parse_data_set_string(const char *text, char separator,
                                               k_parse_error_handler_t handler, void *data);
/** Writes the data set to `file_name` (UTF-8) as k_parse_data_set reads it:
 *  a cell that is empty, begins or ends with white space, or holds a double
 *  quote or the separator is quoted; a missing cell is written as nothing.
 *  A cell holding a newline is written but cannot be read back.  "io" when
 *  the file cannot be written (the file may then be incomplete). */
KELVA_API k_status_t k_ds_save(k_data_set_t data_set, const char *file_name, char separator);
/** The data set as text, written as k_ds_save writes a file (malloc'ed; the
 *  caller frees it with free()).  Null with "no_memory" when it does not
 *  fit in memory. */
KELVA_API char *k_ds_to_csv_string(k_data_set_t data_set, char separator);

/* ------------------------------------------------------------------------ */
/* Data set statistics                                                       */
/* ------------------------------------------------------------------------ */

/* Statistics of the numbers in data set columns.  Rows where the column's
 * cell is missing are skipped.  Each returns -1.0 on failure: "usage" for a
 * null data set, a data set without rows, a column out of range or a column
 * without present cells; "invalid_expression" for a present cell that is not
 * a number.  The measures of two columns (observed first, predicted second)
 * also need the two columns' missing cells in the same rows ("usage"). */

/** The mean of a column's numbers. */
KELVA_API double k_ds_compute_mean(k_data_set_t data_set, k_size_t column);
/** The variance of a column's numbers, dividing by n (not n - 1). */
KELVA_API double k_ds_compute_variance(k_data_set_t data_set, k_size_t column);
/** The skewness: (Σ(x - m)³ / n) / s2^(3/2) with s2 = Σ(x - m)² / (n - 1);
 *  0.0 for one number or when all numbers are equal. */
KELVA_API double k_ds_compute_skewness(k_data_set_t data_set, k_size_t column);
/** The kurtosis n·Σ(x - m)⁴ / (Σ(x - m)²)², not the excess (nothing is
 *  subtracted); not a number when all numbers are equal. */
KELVA_API double k_ds_compute_kurtosis(k_data_set_t data_set, k_size_t column);
/** The mean of |x - y| over the rows. */
KELVA_API double k_ds_compute_mean_absolute_error(k_data_set_t data_set, k_size_t observed,
                                                  k_size_t predicted);
/** The mean of |(x - y) / x| as a fraction (not times 100); an observed 0
 *  makes it infinite or not a number, without error. */
KELVA_API double k_ds_compute_mean_absolute_percentage_error(k_data_set_t data_set,
                                                             k_size_t observed, k_size_t predicted);
/** The mean absolute error divided by the mean of |x(i) - x(i-1)| over the
 *  observed column.  Needs two numbers or more: with one, -1.0 and the code
 *  "none". */
KELVA_API double k_ds_compute_mean_absolute_scaled_error(k_data_set_t data_set, k_size_t observed,
                                                         k_size_t predicted);

/* Discretisation of numeric columns.  Cut points are finite and strictly
 * increasing; cut points c1 < ... < ck make the k + 1 intervals
 * [-infinity;c1), [c1;c2), ..., [ck;infinity), so that every number falls
 * into one, a number equal to a cut point into the interval above it (as
 * with the states of an interval node).  A discretised cell holds the text
 * of its interval, "[lo;hi)", each bound the shortest decimal text that
 * reads back as it, or the words "-infinity" and "infinity".
 * k_domain_add_cases takes such a cell for the state of an interval node
 * with exactly those bounds.  The functions that return cut points return
 * their number and write the first min(number, cuts_length) of them into
 * cuts (which may be null when cuts_length is 0); K_SIZE_ERROR on failure. */

/** How k_ds_discretize_column places its cut points. */
typedef enum {
  /** Equal widths: the cut points divide [min, max] of the values into
   *  `intervals` equal parts. */
  K_DISCRETIZE_EQUAL_WIDTH = 0,
  /** Equal frequency: each cut point lies midway between two consecutive
   *  sorted values so that the intervals hold equal numbers of values,
   *  within one when the values are distinct; a run of equal values is
   *  never cut, so ties can give fewer, less even intervals. */
  K_DISCRETIZE_EQUAL_FREQUENCY = 1
} k_discretization_t;

/** Minimum-description-length entropy discretisation of a numeric column
 *  against the classes (the distinct texts) of `class_column`: the cut
 *  point that leaves the least class entropy is kept when its information
 *  gain passes the minimum-description-length test, and both sides are
 *  cut again the same way.  Rows with a missing cell in either column are
 *  left out.  Candidate cut points lie midway between consecutive distinct
 *  values; of equal entropies the lowest cut point wins.  The data set is
 *  not changed.  "usage" (null, column out of range), "invalid_expression"
 *  (a value cell that is not a number). */
KELVA_API k_size_t k_ds_compute_intervals_iem(k_data_set_t data_set, k_size_t column,
                                              k_size_t class_column, double *cuts,
                                              k_size_t cuts_length);
/** Cuts the numbers of a column into at most `intervals` (at least 1)
 *  intervals by `method` and rewrites every present cell as its interval's
 *  text.  Values that are all equal give no cut point.  "usage" (null,
 *  column out of range, no present cell, intervals 0, unknown method),
 *  "invalid_expression" (a present cell that is not a number); on failure
 *  the column is not changed. */
KELVA_API k_size_t k_ds_discretize_column(k_data_set_t data_set, k_size_t column,
                                          k_discretization_t method, k_size_t intervals,
                                          double *cuts, k_size_t cuts_length);
/** Rewrites every present cell of a column as the text of the interval of
 *  the given cut points that holds its number (no cut points: every cell
 *  becomes "[-infinity;infinity)").  "usage" when cuts is null with count
 *  above 0 or the cut points are not finite and strictly increasing;
 *  "invalid_expression" when a present cell is not a number; on failure
 *  the column is not changed. */
KELVA_API k_status_t k_ds_apply_discretization(k_data_set_t data_set, k_size_t column,
                                               const double *cuts, k_size_t count);
/** 1 when every present cell of the column is an interval text (also when
 *  it has none), 0 when not, -1 on error. */
KELVA_API k_bool_t k_ds_column_data_are_intervals(k_data_set_t data_set, k_size_t column);
/** Moves the cells of a column `shift` rows down (up when negative), as
 *  for a lagged copy of a time series: the cell of row r goes to row
 *  r + shift, cells moved past either end are dropped, and the cells left
 *  behind are missing. */
KELVA_API k_status_t k_ds_shift_column_data(k_data_set_t data_set, k_size_t column, int64_t shift);

/* ------------------------------------------------------------------------ */
/* SAS node and link files                                                   */
/* ------------------------------------------------------------------------ */

/** Reads a SAS node file (`file_name`, UTF-8) into `domain`.  Each line is
 *  a node name, an optional comma, a type letter (L labelled, B boolean,
 *  N numbered, I interval: discrete chance nodes; C continuous chance node;
 *  F real-valued function node) and, for L, N and I, a state: a label (name
 *  or string) for L, a value (a number or `infinity`, optionally signed) for
 *  N, an interval bound for I; a comma may stand before the state.  The
 *  first line of a node creates it and fills its first state; each later
 *  line adds one state (for I, each bound after the second adds one state,
 *  so n bounds give n-1 states).  A node with fewer than two bounds is
 *  incomplete.  Nodes that were in the domain before are never changed.
 *  Messages go to `handler` (may be null) with line numbers; the reader
 *  stops at the first.  Fails with "parse" (or the code of an engine
 *  operation that failed, "io" when the file cannot be read, "usage" for a
 *  null domain or name); on failure the nodes the file created are deleted
 *  again (a compiled domain may be left uncompiled). */
KELVA_API k_status_t k_domain_parse_sas_nodes(k_domain_t domain, const char *file_name,
                                              k_parse_error_handler_t handler, void *data);
/** Reads a SAS link file (`file_name`, UTF-8) into `domain`: each line is a
 *  child's name followed by the names of its parents (commas may separate
 *  them); a link from each parent to the child is added in the order
 *  written.  A line with a single name adds nothing; an empty file is
 *  valid.  Messages and codes as k_domain_parse_sas_nodes; on failure the
 *  links the file added are removed again and the children's tables get
 *  their old contents back (a compiled domain may be left uncompiled). */
KELVA_API k_status_t k_domain_parse_sas_links(k_domain_t domain, const char *file_name,
                                              k_parse_error_handler_t handler, void *data);
/** Reads node entries of the older network format (`file_name`, UTF-8) into
 *  `domain`.  Each entry makes a discrete chance node: its name, a label
 *  string, its number of states (1 to 65535), optionally one label string
 *  per state, optionally a position (two numbers), its parents each as a
 *  name followed by that parent's number of states, and its table in
 *  parentheses (parents in the order written, the first slowest, the node
 *  fastest).  A name may be used as a parent before its entry; nodes that
 *  were in the domain before may be parents (discrete, with the number of
 *  states given) but get no entry.  k_net_parse_domain reads whole files of
 *  this format (a header of domain name, label string, node width, node
 *  height and scale factor before the entries).  Messages go to `handler`
 *  (may be null) with line numbers; the reader stops at the first error,
 *  except that every name used without an entry is reported.  Fails with
 *  "parse" (or the code of an engine operation that failed, "io" when the
 *  file cannot be read, "usage" for a null domain or name); on failure the
 *  nodes the file created are deleted again (a compiled domain may be left
 *  uncompiled). */
KELVA_API k_status_t k_domain_parse_nodes(k_domain_t domain, const char *file_name,
                                          k_parse_error_handler_t handler, void *data);
/** Reads a SAS table file (`file_name`, UTF-8) into the table of a chance
 *  node of `domain`.  The first line names the node and all its discrete
 *  parents, in any order; for a continuous node it goes on with `alpha`,
 *  all its continuous parents in any order, and `variance`.  Each further
 *  line gives one configuration of the discrete parents: a state label per
 *  parent in the header's order, then for a discrete node one nonnegative
 *  number per state, for a continuous node the mean's constant (alpha), a
 *  regression coefficient per continuous parent of the header and the
 *  variance.  Every configuration is given exactly once, in any order;
 *  commas may separate the columns.  An empty file is valid.  Messages go
 *  to `handler` (may be null) with line numbers; the reader stops at the
 *  first.  Fails with "parse" (or "io" when the file cannot be read,
 *  "usage" for a null domain or name); the table is changed only when the
 *  whole file was read. */
KELVA_API k_status_t k_domain_parse_sas_table(k_domain_t domain, const char *file_name,
                                              k_parse_error_handler_t handler, void *data);

/* MAP configurations, simulation and approximation.  Each needs a compiled
 * domain ("not_compiled") in sum equilibrium ("no_equilibrium" when a tree
 * holds none, "usage" for max equilibrium) with nothing left to propagate
 * ("usage"). */

/** Finds every configuration of `nodes` (null-ended, distinct discrete
 *  chance nodes of `domain`) whose probability given the propagated
 *  evidence is at least `min_probability` (above 0, at most 1), exactly, by
 *  a depth-first search over the nodes with a propagation per partial
 *  configuration kept.  The domain ends with the same evidence and
 *  equilibrium.  The configurations are kept in the domain, most probable
 *  first (equal probabilities in configuration order, the last node
 *  fastest), until the next search or the domain is uncompiled.  "usage"
 *  also for an empty or bad list, a minimum out of range and fast-retraction
 *  mode; on failure the previous configurations are kept. */
KELVA_API k_status_t k_domain_find_map_configurations(k_domain_t domain, k_node_t *nodes,
                                                      double min_probability);
/** The number of configurations the last search found; the all-ones value
 *  on error ("usage" when no search was made on this compilation). */
KELVA_API k_size_t k_domain_get_number_of_map_configurations(k_domain_t domain);
/** The states of configuration `index` (0 is the most probable), one per
 *  node in the order given to the search; the array belongs to the domain.
 *  Null on error ("usage" for an index out of range or no search). */
KELVA_API const k_size_t *k_domain_get_map_configuration(k_domain_t domain, k_size_t index);
/** The probability of configuration `index` given the evidence; -1 on
 *  error. */
KELVA_API double k_domain_get_probability_of_map_configuration(k_domain_t domain, k_size_t index);

/** Draws one configuration of all nodes from the distribution of the last
 *  propagation (the posterior given the evidence), exactly: per junction
 *  tree, the root clique from its table, then every other clique given its
 *  separator with its parent; continuous nodes from their conditional
 *  Gaussians given their drawn parents (the domain's evidence may hold no
 *  continuous values).  Draws from the domain's random stream. */
KELVA_API k_status_t k_domain_simulate(k_domain_t domain);
/** The state the last simulation drew for a discrete node; -1 on error
 *  ("usage" for another node, "no_value" when nothing was drawn on this
 *  compilation). */
KELVA_API int64_t k_node_get_sampled_state(k_node_t node);
/** The value the last simulation drew for a continuous node, or the state
 *  value of the drawn state of a number node (the middle of the interval
 *  of an interval node); -1 on error, also a possible value: read
 *  k_error_code(). */
KELVA_API double k_node_get_sampled_value(k_node_t node);
/** A utility node's utility for the states the last simulation drew for
 *  its parents; -1 on error, also a possible utility. */
KELVA_API double k_node_get_sampled_utility(k_node_t node);
/** Restarts the domain's random stream with `seed`: the stream is
 *  std::mt19937_64 seeded with `seed` (a new domain is seeded with 0), so a
 *  seed gives the same draws on every platform. */
KELVA_API k_status_t k_domain_seed_random(k_domain_t domain, k_size_t seed);
/** A uniform deviate in [0, 1) from the domain's stream (the top 53 bits
 *  of one 64-bit output); -1 on error. */
KELVA_API double k_domain_get_uniform_deviate(k_domain_t domain);
/** A normal deviate with `mean` and `variance` (finite, variance at least
 *  0, else "usage") from the domain's stream, by the Box-Muller transform of
 *  two uniform deviates; -1 on error, also a possible deviate. */
KELVA_API double k_domain_get_normal_deviate(k_domain_t domain, double mean, double variance);

/** Approximates a domain without evidence: in each normalized clique table
 *  the smallest entries are set to zero for as long as their total stays
 *  at most `epsilon` (0 <= epsilon < 1), the domain is compressed so that
 *  they stay zero (see k_domain_compress) and propagated again.  Returns
 *  the approximation constant, the probability mass the approximation
 *  keeps (at most 1); -1 on error: "usage" also for evidence entered or
 *  propagated and for domains k_domain_compress refuses, "compressed" for a
 *  compressed domain.  On failure the clique tables are as they were. */
KELVA_API double k_domain_approximate(k_domain_t domain, double epsilon);
/** The constant of the last approximation on this compilation, 1 when the
 *  domain was not approximated; -1 on error ("not_compiled"). */
KELVA_API double k_domain_get_approximation_constant(k_domain_t domain);

/* ---- Structure learning ------------------------------------------------
 * Learners read the domain's stored cases: every node must be a discrete
 * chance node whose observed cases show at least two states, and there must
 * be at least two cases; otherwise "usage" and nothing changes.  A case
 * counts with its case count; a test or score uses the cases that observe
 * every node it involves.  A learner replaces every link of the domain,
 * gives every node a uniform table (learn them with k_domain_learn_tables)
 * and positions for a layered picture, and respects the edge constraints. */

/** Edge constraints between two nodes a and b, stated from a's side. */
typedef enum k_edge_constraint_e {
  K_EDGE_CONSTRAINT_NONE = 0,
  K_EDGE_CONSTRAINT_REQUIRED = 1,  /**< a and b are linked, either way */
  K_EDGE_CONSTRAINT_FORBIDDEN = 2, /**< a and b are not linked */
  K_EDGE_CONSTRAINT_FORWARD = 3,   /**< the link a -> b is required */
  K_EDGE_CONSTRAINT_BACKWARD = 4,  /**< the link b -> a is required */
  K_EDGE_CONSTRAINT_ERROR = -1
} k_edge_constraint_t;

/** Scores of the greedy search: log-likelihood, AIC (minus the number of
 *  free parameters) and BIC (minus half of it times ln of the case count). */
typedef enum k_score_e { K_SCORE_LOG_LIKELIHOOD = 0, K_SCORE_AIC = 1, K_SCORE_BIC = 2 } k_score_t;

/** Sets the significance level of the independence tests (default 0.05);
 *  "usage" unless 0 < level < 1. */
KELVA_API k_status_t k_domain_set_significance_level(k_domain_t domain, double level);
/** The significance level; -1 on error. */
KELVA_API double k_domain_get_significance_level(k_domain_t domain);
/** The probability that a chi-square variable with `degrees` degrees of
 *  freedom reaches `statistic`: the p-value of a G² test (1 for 0 degrees or
 *  a statistic of at most 0); -1 with "usage" for a NaN or infinite
 *  statistic. */
KELVA_API double k_compute_probability_of_independence(double statistic, k_size_t degrees);
/** Runs the G² test of every pair of nodes given nothing; the p-values are
 *  read with k_node_get_data_independency. */
KELVA_API k_status_t k_domain_perform_marginal_independence_tests(k_domain_t domain);
/** The p-value of the last marginal test of a and b (a pair is judged
 *  independent when it exceeds the significance level); -1 with "usage"
 *  when no test covered both nodes. */
KELVA_API double k_node_get_data_independency(k_node_t a, k_node_t b);
/** The strength of the link parent -> child: the mutual information (nats)
 *  of the two given the child's other parents in the stored cases; -1 with
 *  "usage" when there is no such link. */
KELVA_API double k_node_get_link_strength(k_node_t child, k_node_t parent);

/** Sets the constraint between a and b (two different nodes of a domain). */
KELVA_API k_status_t k_node_set_edge_constraint(k_node_t a, k_node_t b,
                                                k_edge_constraint_t constraint);
/** The constraint between a and b from a's side; K_EDGE_CONSTRAINT_ERROR on
 *  error. */
KELVA_API k_edge_constraint_t k_node_get_edge_constraint(k_node_t a, k_node_t b);

/** Learns the structure by the PC algorithm (order-independent form) with
 *  G² tests at the significance level; keeps the PDAG it finds and installs
 *  one of its DAGs. */
KELVA_API k_status_t k_domain_learn_structure(k_domain_t domain);
/** The PDAG of the last k_domain_learn_structure: the nodes with a directed
 *  edge into `node`, and those joined to it by an undirected edge.  The list
 *  belongs to the node until its next list query; null with "usage" when
 *  the domain has no PDAG. */
KELVA_API k_node_t *k_node_get_pdag_parents(k_node_t node);
KELVA_API k_node_t *k_node_get_pdag_neighbors(k_node_t node);
/** Directs the undirected PDAG edge parent - node as parent -> node, draws
 *  the conclusions of that choice (Meek's rules) and installs a DAG of the
 *  new PDAG; "usage" when the edge is not undirected. */
KELVA_API k_status_t k_node_add_pdag_parent(k_node_t node, k_node_t parent);

/** Learns a tree: the maximum spanning tree of the nodes' mutual information
 *  (Chow-Liu) directed away from `root`.  With a `target` (not the root),
 *  the tree-augmented naive Bayes classifier: the tree of the other nodes'
 *  mutual information given the target, and the target a parent of all. */
KELVA_API k_status_t k_domain_learn_tree_structure(k_domain_t domain, k_node_t root,
                                                   k_node_t target);
/** Hill climbing over adding, deleting and reversing links with `score`,
 *  from no links or, with `from_current`, the domain's links.  With a
 *  `tabu_length` above 0 it goes on through worse networks (never back to
 *  the last `tabu_length` ones) until that many steps bring no improvement;
 *  `restarts` more climbs start from the best network with random changes.
 *  The best network found is installed.  A node gets at most as many parent
 *  configurations as there are cases. */
KELVA_API k_status_t k_domain_learn_greedy_structure(k_domain_t domain, k_score_t score,
                                                     k_size_t tabu_length, k_size_t restarts,
                                                     int from_current);
/** The score of the domain's current links over its stored cases. */
KELVA_API double k_domain_get_structure_score(k_domain_t domain, k_score_t score);

/* ---- NPC: structural uncertainty for the user to resolve ----------------
 * k_domain_learn_structure_npc runs PC-stable's skeleton search and then
 * checks every independence statement "x and y independent given S" that unlinked a pair with
 * the necessary path condition: each z in S must be joined to x by a path
 * of the skeleton avoiding y, and to y by one avoiding x.  A pair whose
 * statement fails is an uncertain edge.  Putting uncertain edges back only
 * adds paths; a solution is a set of uncertain edges of a region whose
 * return makes the statements of all the others hold.  A region holds the
 * uncertain edges of one connected component of the skeleton plus all
 * uncertain edges (regions cannot affect each other).  The domain's links
 * always orient (as PC does) the skeleton plus each region's first
 * solution.  Regions, solutions and edges belong to the domain until the
 * next NPC run or its deletion; a solution until its region's list is
 * recomputed.  Once the domain's links differ from what NPC last installed,
 * every function below fails with "usage". */

/** An ambiguous region, a solution and an uncertain edge. */
typedef struct k_ambiguous_region_s *k_ambiguous_region_t;
typedef struct k_solution_s *k_solution_t;
typedef struct k_uncertain_edge_s *k_uncertain_edge_t;

/** Learns the structure by NPC with G² tests at the significance level:
 *  every region starts with one solution, all its uncertain edges, which is
 *  installed.  Refuses what k_domain_learn_structure refuses. */
KELVA_API k_status_t k_domain_learn_structure_npc(k_domain_t domain);
/** The first ambiguous region of the last NPC run; null with "none" when it
 *  found no uncertain edge, null with "usage" without a run. */
KELVA_API k_ambiguous_region_t k_domain_get_first_ambiguous_region(k_domain_t domain);
/** The next region; null after the last. */
KELVA_API k_ambiguous_region_t k_ambiguous_region_get_next(k_ambiguous_region_t region);
/** The region's uncertain edges, a null-ended list owned by the region. */
KELVA_API k_uncertain_edge_t *k_ambiguous_region_get_edges(k_ambiguous_region_t region);
/** The first solution of the region's list. */
KELVA_API k_solution_t k_ambiguous_region_get_first_solution(k_ambiguous_region_t region);
/** Replaces the region's solutions by its minimal solutions under the
 *  manual decisions (those no proper subset of which is a solution),
 *  fewest edges first, and installs the first.  "usage" when more than 16
 *  of the region's edges are undecided (the search is exponential). */
KELVA_API k_status_t k_ambiguous_region_find_minimal_solutions(k_ambiguous_region_t region);
/** The next solution of the region's list; null after the last. */
KELVA_API k_solution_t k_solution_get_next(k_solution_t solution);
/** The uncertain edges the solution puts back: a null-ended list owned by
 *  the solution (empty when all of them can stay out). */
KELVA_API k_uncertain_edge_t *k_solution_get_edges(k_solution_t solution);
/** The two nodes of an uncertain edge, the older one first. */
KELVA_API k_node_t k_uncertain_edge_get_first_node(k_uncertain_edge_t edge);
KELVA_API k_node_t k_uncertain_edge_get_second_node(k_uncertain_edge_t edge);
/** Decides that the edge is present (non-zero) or absent (0): the region's
 *  list is recomputed to the solutions that hold every present and no
 *  absent edge (the minimal ones after k_ambiguous_region_find_minimal_
 *  solutions, else the one with every edge not decided absent) and the
 *  first is installed.  A later decision on the same edge replaces the
 *  earlier one.  "usage" and no change when no solution is left. */
KELVA_API k_status_t k_uncertain_edge_manual_decision(k_uncertain_edge_t edge, int present);

/* ---- Feature selection for a classifier --------------------------------*/

/** The joint mutual information score of `feature` for `target` given the
 *  features already chosen (`selected`, a null-ended list; null or empty
 *  for none): the sum over the chosen X_j of I(feature, X_j; target), in
 *  nats, each term over the stored cases that observe its three nodes;
 *  I(feature; target) when none are chosen.  -1 with "usage" when the
 *  feature is the target or listed, or the cases are refused as by the
 *  structure learners. */
KELVA_API double k_node_get_jmi_score(k_node_t feature, k_node_t target, const k_node_t *selected);
/** Chooses `count` features for `target` by greedy forward selection on the
 *  JMI score (first the highest I(X; target), then each time the highest
 *  score given those chosen; a required target link is chosen first, a
 *  forbidden one never) and installs the naive Bayes network: links
 *  target -> feature (the target's children, in node order), the other
 *  nodes unlinked, uniform tables.  "usage" when count is 0 or above the nodes that can be chosen,
 *  or a required link does not touch the target. */
KELVA_API k_status_t k_domain_learn_features(k_domain_t domain, k_node_t target, k_size_t count);
/** Learns a hierarchical naive Bayes classifier of `target` from the stored
 *  cases: naive Bayes, where the pair of attributes (or latent nodes) most
 *  dependent given the target, by the G2 test at the significance level,
 *  gets a new latent parent between it and the target when that raises BIC.
 *  A latent node's states are groups of the pair's joint states, merged
 *  while BIC rises, and it stands for the pair in later rounds.  The latent
 *  nodes are new discrete chance nodes named Latent1, Latent2, ... with
 *  unlabelled states; every node gets the table estimated from the cases
 *  with each latent node at its group (plus one pseudo-count per parent
 *  state), from which EM (k_domain_learn_tables) learns on.  A forbidden
 *  target -> attribute link leaves the attribute unlinked, a required one
 *  keeps it a child of the target.  "usage" when the cases are refused as by
 *  the structure learners, the target is not of the domain, or a required
 *  link enters the target or joins two other nodes; nothing changes then. */
KELVA_API k_status_t k_domain_learn_hnb_structure(k_domain_t domain, k_node_t target);

/* ------------------------------------------------------------------------ */
/* Object-oriented networks: classes, instances, class collections           */
/* ------------------------------------------------------------------------ */

/** A class: a network with input and output nodes, instantiated by instance
 *  nodes of other classes.  Its handle is also that of its network: cast to
 *  k_domain_t it takes the domain functions that build and edit nodes,
 *  links, tables and attributes (node names in a class are single
 *  identifiers; k_domain_delete refuses it). */
typedef struct k_class_s *k_class_t;
/** A class collection: classes with distinct names; owned by the caller. */
typedef struct k_class_collection_s *k_class_collection_t;
/** Called by k_net_parse_classes for an instance of a class that the
 *  collection does not have: it should add the class `name` (e.g. by
 *  parsing its file into `collection`); non-zero reports a failure. */
typedef int (*k_insert_class_t)(const char *name, k_class_collection_t collection, void *data);

/** A new empty class collection. */
KELVA_API k_class_collection_t k_new_class_collection(void);
/** Deletes a collection with its classes. */
KELVA_API k_status_t k_cc_delete(k_class_collection_t cc);
/** A new empty class named `name`: "invalid_name" unless one identifier,
 *  "twice" when the collection has a class of that name. */
KELVA_API k_class_t k_cc_new_class(k_class_collection_t cc, const char *name);
/** The class named `name`, or null (no error) when there is none. */
KELVA_API k_class_t k_cc_get_class_by_name(k_class_collection_t cc, const char *name);
/** The classes, oldest first, as a null-ended list owned by the collection. */
KELVA_API k_class_t *k_cc_get_members(k_class_collection_t cc);
/** Deletes a class and every instance of it in the other classes. */
KELVA_API k_status_t k_class_delete(k_class_t cls);
KELVA_API const char *k_class_get_name(k_class_t cls);
/** Renames a class ("invalid_name", "twice" as for k_cc_new_class). */
KELVA_API k_status_t k_class_set_name(k_class_t cls, const char *name);
KELVA_API k_class_collection_t k_class_get_class_collection(k_class_t cls);
/** Input and output nodes (in the order they were added) and instance
 *  nodes of the class; null-ended lists owned by the class. */
KELVA_API k_node_t *k_class_get_inputs(k_class_t cls);
KELVA_API k_node_t *k_class_get_outputs(k_class_t cls);
KELVA_API k_node_t *k_class_get_instances(k_class_t cls);
KELVA_API k_status_t k_class_set_backpointer(k_class_t cls, void *data);
KELVA_API void *k_class_get_backpointer(k_class_t cls);
/** A new instance node of `instance_of` in `cls`, with an output clone for
 *  each output of `instance_of`; "cyclic_instance_hierarchy" when
 *  `instance_of` is `cls` or holds an instance of it at any depth; "usage"
 *  for classes of different collections. */
KELVA_API k_node_t k_class_new_instance(k_class_t cls, k_class_t instance_of);
/** A new domain holding the class unfolded: the class's nodes keep their
 *  names, nodes of instances are named `instance.node` at every depth, a
 *  bound input is replaced by its actual node and an unbound one keeps its
 *  own table as a prior.  Tables, experience and fading tables, labels,
 *  states, positions, attributes and models are copied. */
KELVA_API k_domain_t k_class_create_domain(k_class_t cls);

/** Reads the classes of a NET class file into `cc`, calling `insert` (may
 *  be null) for classes that instances name but the collection lacks
 *  ("loading class `NAME' failed" when it does not add one).  Messages go to
 *  `handler` with line numbers; on failure ("parse", or the error that
 *  stopped the parse) the collection is as it was. */
KELVA_API k_status_t k_net_parse_classes(const char *file_name, k_class_collection_t cc,
                                         k_insert_class_t insert, void *insert_data,
                                         k_parse_error_handler_t handler, void *data);
/** The same from text in memory; positions are characters consumed. */
KELVA_API k_status_t k_net_parse_classes_string(const char *text, k_class_collection_t cc,
                                                k_insert_class_t insert, void *insert_data,
                                                k_parse_error_handler_t handler, void *data);
/** Writes every class of the collection, oldest first, as NET text; "io"
 *  when the file cannot be written. */
KELVA_API k_status_t k_cc_save_as_net(k_class_collection_t cc, const char *file_name);
/** The collection as NET text (malloc'ed; the caller frees it). */
KELVA_API char *k_cc_to_net_string(k_class_collection_t cc);

/** The class of a node's network, or null for a node of a domain. */
KELVA_API k_class_t k_node_get_home_class(k_node_t node);
/** The class an instance node instantiates. */
KELVA_API k_class_t k_node_get_instance_class(k_node_t instance);
/** For an output clone: its instance node and the output node it stands
 *  for (null with "usage" for other nodes). */
KELVA_API k_node_t k_node_get_instance(k_node_t clone);
KELVA_API k_node_t k_node_get_master(k_node_t clone);
/** The actual node bound to input `input` of the instance's class (null,
 *  no error, when unbound). */
KELVA_API k_node_t k_node_get_input(k_node_t instance, k_node_t input);
/** Binds `input` to `actual`, a node of the instance's class of the same
 *  kind and number of states (not an instance or utility node). */
KELVA_API k_status_t k_node_set_input(k_node_t instance, k_node_t input, k_node_t actual);
KELVA_API k_status_t k_node_unset_input(k_node_t instance, k_node_t input);
/** The output clone of `output` beside `instance`; the instance's clones,
 *  in the order of the class's outputs, as a null-ended list. */
KELVA_API k_node_t k_node_get_output(k_node_t instance, k_node_t output);
KELVA_API k_node_t *k_node_get_outputs(k_node_t instance);
/** Input list edits: a discrete or continuous chance or decision node
 *  without parents that is not an output.  Removing an input drops its
 *  bindings in every instance.  An input node takes no parents. */
KELVA_API k_status_t k_node_add_to_inputs(k_node_t node);
KELVA_API k_status_t k_node_remove_from_inputs(k_node_t node);
/** Output list edits: any node of a class but instance nodes, output
 *  clones and inputs.  Every instance gets (or loses, with its links) a
 *  clone. */
KELVA_API k_status_t k_node_add_to_outputs(k_node_t node);
KELVA_API k_status_t k_node_remove_from_outputs(k_node_t node);
/** Makes `instance` instantiate `cls`: bindings and clones whose input or
 *  output has a namesake of the same kind and states in `cls` are kept,
 *  the others dropped; new outputs get clones. */
KELVA_API k_status_t k_node_substitute_class(k_node_t instance, k_class_t cls);

/** Makes the domain (which the caller owned) a class of `cc` named `name`,
 *  uncompiled; its handle is then the class handle, and k_class_delete or
 *  k_cc_delete deletes it.  "invalid_name" or "twice" for the name as in
 *  k_cc_new_class; "usage" for a class, a domain with a node whose name
 *  holds a dot, or with chain-graph components. */
KELVA_API k_class_t k_cc_add_domain(k_class_collection_t cc, k_domain_t domain, const char *name);
/** Moves every class of `other` into `cc`, leaving `other` empty (the
 *  caller still deletes it); "twice", with nothing moved, when both have a
 *  class of one name; "usage" when the two are one collection. */
KELVA_API k_status_t k_cc_add_classes(k_class_collection_t cc, k_class_collection_t other);
/** For a node of a domain made by k_class_create_domain: the instance
 *  nodes of its path, outermost first, then the class node it copies, as a
 *  null-ended list owned by the node.  The list is empty for other nodes,
 *  and for every node of that domain once a node of the collection's
 *  classes has been deleted or the classes moved to another collection. */
KELVA_API k_node_t *k_node_get_source(k_node_t node);
/** Empties and frees the source lists of every node of `domain`
 *  (k_node_get_source then gives empty lists); the domain no longer
 *  depends on the classes it was made from.  Does nothing for a domain
 *  without source lists. */
KELVA_API k_status_t k_domain_delete_source_lists(k_domain_t domain);
/** The back pointer of the node's home: its class's (k_class_set_backpointer)
 *  for a node of a class, else its domain's. */
KELVA_API void *k_node_get_home_backpointer(k_node_t node);
/** A deep copy of an ordinary domain: nodes with their names, labels,
 *  positions, attributes and states, links, tables, experience and fading
 *  tables, models (expressions copied, naming the copied nodes), chain-graph
 *  components with their tables, the node size and the domain's
 *  attributes; not evidence, stored cases, the junction forest nor back
 *  pointers.  "usage" for a class. */
KELVA_API k_domain_t k_domain_clone(k_domain_t domain);
/** A new node of the node's domain or class holding a copy of what the node
 *  holds (category, kind, subtype, label, position, attributes, states,
 *  parents, tables and model), without a name, children or evidence.
 *  "usage" for an instance node, an output clone or a member of a
 *  chain-graph component; failures of the links as k_node_add_parent. */
KELVA_API k_node_t k_node_clone(k_node_t node);

/** Saves the collection as a KB file of the class-collection kind: its
 *  classes as exact NET text, with each class's settings and its exact
 *  node, experience and fading tables; encrypted as k_domain_save_as_kb
 *  when `password` is neither null nor empty.  "io" when the file cannot be
 *  written. */
KELVA_API k_status_t k_cc_save_as_kb(k_class_collection_t cc, const char *file_name,
                                     const char *password);
/** The bytes k_cc_save_as_kb would write (malloc'ed; the caller frees
 *  them), their count in `*size`. */
KELVA_API unsigned char *k_cc_save_to_memory(k_class_collection_t cc, const char *password,
                                             size_t *size);
/** Loads a class collection from a KB file, owned by the caller; the
 *  failures of k_kb_load_domain, "bad_kb_type" for a file that holds a
 *  domain (and k_kb_load_domain gives it for a collection's file). */
KELVA_API k_class_collection_t k_kb_load_class_collection(const char *file_name,
                                                          const char *password);
/** The same for the bytes of a KB file in memory. */
KELVA_API k_class_collection_t k_kb_load_class_collection_from_memory(const unsigned char *data,
                                                                      size_t size,
                                                                      const char *password);

/* ------------------------------------------------------------------------ */
/* Helpers                                                                   */
/* ------------------------------------------------------------------------ */

/** Positive infinity, the value of an unbounded interval end. */
KELVA_API double k_infinity(void);
/** The processor time the process has used, in seconds (for timing a
 *  call); -1 with "usage" when the system cannot tell. */
KELVA_API double k_get_clock(void);
/** `text` with the escape sequences of NET strings decoded (\" \' \? \\ \a
 *  \b \f \n \r \t \v, \x and hex digits, one to three octal digits; a
 *  backslash before a newline joins the lines; any other backslash is
 *  kept), malloc'ed for the caller to free() and ending at a decoded NUL;
 *  null with "usage" for a null text. */
KELVA_API char *k_remove_escape_sequences(const char *text);

/* ------------------------------------------------------------------------ */
/* Dynamic networks                                                          */
/* ------------------------------------------------------------------------ */

/* A class is a time slice.  A temporal clone in it stands for its master in
 * the previous slice; its table (it takes no parents) is the prior of the
 * master before the first slice.  A domain made by k_class_create_dbn_domain
 * holds a window of slices that moves along time: node X of slice t is
 * named `Tt.X` (a node of an instance I below it `Tt.I.X`), and in slices
 * after the first a temporal clone is its master's node of the slice
 * before.  The first slice keeps the clones (`T1.CLONE`), each a child of
 * the clones made before it, so that their tables hold the joint prior of
 * the interface. */

/** A new temporal clone of `node`, a discrete chance node of a class (with
 *  its subtype, states and state values); "usage" for any other node, an
 *  output clone, a temporal clone or a node that has one already.  Deleting
 *  the master leaves the clone as an ordinary node. */
KELVA_API k_node_t k_node_create_temporal_clone(k_node_t node);
/** The temporal clone of a node, or null (no error) when it has none. */
KELVA_API k_node_t k_node_get_temporal_clone(k_node_t node);
/** The master of a temporal clone, or null (no error) for another node. */
KELVA_API k_node_t k_node_get_temporal_master(k_node_t node);
/** A new domain holding a window of `slices` slices of `cls` (see above),
 *  initialised (offset 0); "usage" for 0 slices, errors of unfolding as
 *  k_class_create_domain.  Deleting a node of it ends its window. */
KELVA_API k_domain_t k_class_create_dbn_domain(k_class_t cls, k_size_t slices);
/** Triangulates a window so that the interface of every slice (the nodes
 *  whose temporal clones stand in the next slice) lies in one clique, which
 *  lets the window move exactly; the interface prior is initialised, the
 *  offset set to 0.  "usage" for a domain without a window, a triangulated
 *  one, or methods K_TM_TOTAL_WEIGHT and unknown codes. */
KELVA_API k_status_t k_domain_triangulate_dbn(k_domain_t domain, k_triangulation_method_t method);
/** The same for the Boyen–Koller approximation: the interface is split into
 *  clusters (interface nodes linked, or parents of one child, in a slice
 *  are in one cluster) whose joint distributions are carried across a move
 *  as independent factors.  With a single cluster it filters exactly. */
KELVA_API k_status_t k_domain_triangulate_dbn_for_bk(k_domain_t domain,
                                                     k_triangulation_method_t method);
/** 1 when the window was triangulated by k_domain_triangulate_dbn_for_bk,
 *  else 0; -1 on error ("usage" for a domain without a window). */
KELVA_API k_bool_t k_domain_is_triangulated_for_bk(k_domain_t domain);
/** Retracts the window's evidence, restores the first interface prior and
 *  the offset 0, and forgets predictions. */
KELVA_API k_status_t k_domain_initialize_dbn_window(k_domain_t domain);
/** Slides a compiled window by `slices` (1 to its number of slices): the
 *  first slice's temporal clones get the distribution of the interface
 *  after the last slice that leaves, given the evidence entered so far in
 *  the slices that leave (and carried by the interface from earlier
 *  moves); the evidence of the other slices moves with them.  Propagate
 *  afterwards.  "not_compiled" for an uncompiled window, "compressed" for
 *  a compressed one; "usage" for a count out of range or an interface in
 *  no clique (triangulate with k_domain_triangulate_dbn); the errors of
 *  propagation when the evidence of the leaving slices is impossible.  On failure the
 *  window is as it was. */
KELVA_API k_status_t k_domain_move_dbn_window(k_domain_t domain, k_size_t slices);
/** The number of slices the window moved since it was initialised;
 *  K_SIZE_ERROR on error. */
KELVA_API k_size_t k_domain_get_dbn_window_offset(k_domain_t domain);
/** Propagates the window and computes, for `steps` slices after it, the
 *  beliefs of the slice's discrete nodes and the means and variances of
 *  its continuous ones, given all evidence in the window.  Errors as
 *  k_domain_move_dbn_window. */
KELVA_API k_status_t k_domain_compute_dbn_predictions(k_domain_t domain, k_size_t steps);
/** Predicted belief of `state` of a discrete node of the window (any slice
 *  holding the node) `time` slices after the window (0 is the first slice
 *  after it); -1 with "usage" for a time or state out of range, a clone of
 *  the first slice or a node of no window. */
KELVA_API double k_node_get_predicted_belief(k_node_t node, k_size_t state, k_size_t time);
/** Predicted mean of a continuous node of the window; -1 on error. */
KELVA_API double k_node_get_predicted_mean(k_node_t node, k_size_t time);
/** Predicted value of a real-valued function node of the window `time`
 *  slices after it: its expression evaluated on the predicted beliefs as
 *  k_node_get_value evaluates it on propagated ones (a discrete node it
 *  depends on through its state must be certain).  -1 on error: "usage"
 *  (not such a node, no predictions, time beyond them), and the errors of
 *  k_node_get_value ("no_value", ...). */
KELVA_API double k_node_get_predicted_value(k_node_t node, k_size_t time);
/** Predicted variance of a continuous node of the window; -1 on error. */
KELVA_API double k_node_get_predicted_variance(k_node_t node, k_size_t time);

/* Learning class tables.  The domain is one made from classes
 * (k_class_create_domain or k_class_create_dbn_domain) and compiled; every
 * copy of a class node in it (each slice of a window, each instance) shares
 * the class node's table.  The class nodes learned are the discrete chance
 * nodes with an experience table; a negative experience count marks a row
 * that is kept.  The learned table is written into the class node, into
 * every copy in the domain and, for a window, into its predictor and the
 * clones' initial priors (a window's first-slice clones share the table of
 * their class clone while the window's offset is 0).  Learning from the
 * stored cases starts from the class tables, which are first written into
 * every copy; adaptation uses the evidence propagated under the domain's
 * tables as they are.  Predictions are forgotten.  Other domains made
 * from the classes keep their tables.
 * Errors of all five: "usage" (null; the domain's nodes name no class node,
 * because it was not made from classes or a node of its classes was deleted
 * since; no class node has an experience table; a copy's table no longer
 * has its class node's shape), "not_compiled"; on failure no table
 * changes. */

/** EM over the stored cases (as k_domain_learn_tables: its settings, log
 *  and errors) where the expected counts of all copies of a class node are
 *  added up before each M-step; the class node's experience counts times
 *  its rows at the start are prior counts.  Never lowers the
 *  log-likelihood when there are no prior counts. */
KELVA_API k_status_t k_domain_learn_class_tables(k_domain_t domain);
/** One pass over the stored cases in order, each propagated alone:
 *  fractional updating (the rule of k_domain_adapt, with the class nodes'
 *  experience and fading tables) applied copy by copy, the case count
 *  scaling the counts a case adds.  Also "usage" without cases,
 *  "compressed", and the error of a case impossible under the current
 *  tables.  The domain is left propagated without evidence. */
KELVA_API k_status_t k_domain_learn_class_tables_using_fractional_update(k_domain_t domain);
/** Online EM (stochastic approximation of the expected counts) in one
 *  pass over the stored cases: for the n-th case used, the statistics of a
 *  class node (experience count times table entry) become (1 - g)
 *  statistics + g times the case's expected counts summed over the copies
 *  (times the case count), with g = n to the power -rate, and each row is
 *  renormalised; the experience table keeps the new row counts.  rate lies
 *  in (0.5, 1] ("usage" otherwise); 1 weighs every case alike.  The
 *  domain's count of online steps becomes the number of cases used.  Errors
 *  as k_domain_learn_class_tables_using_fractional_update. */
KELVA_API k_status_t k_domain_learn_class_tables_using_online_em(k_domain_t domain, double rate);
/** Fractional updating of the class tables from the evidence now
 *  propagated (one case; errors as k_domain_adapt).  The evidence stays. */
KELVA_API k_status_t k_domain_adapt_class_tables_using_fractional_update(k_domain_t domain);
/** One online EM step from the evidence now propagated, n being one more
 *  than the domain's count of online steps (0 for a new domain, so the
 *  first step replaces the statistics), which it increments.  Errors as
 *  k_domain_adapt and "usage" for a rate outside (0.5, 1]. */
KELVA_API k_status_t k_domain_adapt_class_tables_using_online_em(k_domain_t domain, double rate);

#ifdef __cplusplus
}
#endif

#endif /* KELVA_KELVA_H */
