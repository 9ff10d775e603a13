package COM.kelva.KAPI;

/**
 * A data set: a table of text cells with named columns, used to prepare data
 * for learning. A cell is missing or holds a text (which may be empty).
 */
public final class DataSet {
  // ---- Object, columns, rows and cells ----

  // ---- Files ----

  // ---- Statistics ----
}
