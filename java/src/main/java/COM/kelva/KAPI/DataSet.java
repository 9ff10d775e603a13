package COM.kelva.KAPI;

import static COM.kelva.KAPI.Calls.check;
import static COM.kelva.KAPI.Native.AbstractNativeKAPI.*;

import java.util.List;

/**
 * A data set: a table of text cells with named columns, used to prepare data
 * for learning. A cell is missing or holds a text (which may be empty).
 * The caller owns a data set and frees it with {@link #close()}.  Rows and
 * columns are numbered from 0.
 */
public final class DataSet implements AutoCloseable {
  // ---- Object, columns, rows and cells ----

  /** The engine data set, 0 once closed. */
  private long handle;

  /**
   * Creates an empty data set: no columns, no rows.  Close it when done.
   *
   * @throws KelvaException "no_memory" when the engine runs out of memory
   */
  public DataSet() {
    handle = check(kNewDataSet());
  }

  /** A data set the engine has made (read from a file, for instance). */
  DataSet(long handle) {
    this.handle = handle;
  }

  /** The engine handle (0 once closed). */
  long handle() {
    return handle;
  }

  /**
   * Deletes the data set.  Does nothing when it is already closed.
   *
   * @throws KelvaException when the engine refuses
   */
  @Override
  public void close() {
    if (handle == 0) {
      return;
    }
    kDSDelete(handle);
    check();
    handle = 0;
  }

  /**
   * Whether the data set is still open.
   *
   * @return false once {@link #close()} has run
   */
  public boolean isAlive() {
    return handle != 0;
  }

  /**
   * Appends a column whose cells are all missing.
   *
   * @param name the column's name: any text; names need not be unique
   * @return the new column's index
   * @throws KelvaException "usage" for a null name or a closed data set
   */
  public long newColumn(String name) {
    return check(kDSNewColumn(handle, name));
  }

  /**
   * Appends a row whose cells are all missing.
   *
   * @return the new row's index
   * @throws KelvaException "usage" for a closed data set
   */
  public long newRow() {
    return check(kDSNewRow(handle));
  }

  /**
   * Deletes a column; later columns move down by one.
   *
   * @param column the column's index
   * @throws KelvaException "usage" for an index out of range
   */
  public void deleteColumn(long column) {
    check(kDSDeleteColumn(handle, column));
  }

  /**
   * Deletes a row; later rows move down by one.
   *
   * @param row the row's index
   * @throws KelvaException "usage" for an index out of range
   */
  public void deleteRow(long row) {
    check(kDSDeleteRow(handle, row));
  }

  /**
   * The number of columns.
   *
   * @return the count
   * @throws KelvaException "usage" for a closed data set
   */
  public long getNumberOfColumns() {
    return check(kDSGetNumberOfColumns(handle));
  }

  /**
   * The number of rows.
   *
   * @return the count
   * @throws KelvaException "usage" for a closed data set
   */
  public long getNumberOfRows() {
    return check(kDSGetNumberOfRows(handle));
  }

  /**
   * The name of a column.
   *
   * @param column the column's index
   * @return the name
   * @throws KelvaException "usage" for an index out of range
   */
  public String getColumnName(long column) {
    return check(kDSGetColumnName(handle, column));
  }

  /**
   * Renames a column.  {@link Domain#addCases} gives a column to the node
   * whose name equals the column's name.
   *
   * @param column the column's index
   * @param name any text
   * @throws KelvaException "usage" for an index out of range or a null name
   */
  public void setColumnName(long column, String name) {
    check(kDSSetColumnName(handle, column, name));
  }

  /**
   * The text of a cell.  A missing cell gives null; a present cell may hold
   * the empty text.
   *
   * @param row the row's index
   * @param column the column's index
   * @return the text, or null when the cell is missing
   * @throws KelvaException "usage" for an index out of range
   */
  public String getDataItem(long row, long column) {
    return check(kDSGetDataItem(handle, row, column));
  }

  /**
   * Sets the text of a cell.
   *
   * @param row the row's index
   * @param column the column's index
   * @param text the text, or null to make the cell missing
   * @throws KelvaException "usage" for an index out of range
   */
  public void setDataItem(long row, long column, String text) {
    check(kDSSetDataItem(handle, row, column, text));
  }

  /**
   * Moves a column to another position; the columns between shift by one.
   *
   * @param column the column's index
   * @param newIndex its new index, below the number of columns
   * @throws KelvaException "usage" for an index out of range
   */
  public void moveColumn(long column, long newIndex) {
    check(kDSMoveColumn(handle, column, newIndex));
  }

  /**
   * Moves a row to another position; the rows between shift by one.
   *
   * @param row the row's index
   * @param newIndex its new index, below the number of rows
   * @throws KelvaException "usage" for an index out of range
   */
  public void moveRow(long row, long newIndex) {
    check(kDSMoveRow(handle, row, newIndex));
  }

  /**
   * Appends a copy of a column: the same name and cells.
   *
   * @param column the column's index
   * @return the copy's index
   * @throws KelvaException "usage" for an index out of range
   */
  public long copyColumn(long column) {
    return check(kDSCopyColumn(handle, column));
  }

  /**
   * Whether every cell of a column is missing.
   *
   * @param column the column's index
   * @return true when no cell is present (an empty text is present)
   * @throws KelvaException "usage" for an index out of range
   */
  public boolean columnIsEmpty(long column) {
    return check(kDSColumnIsEmpty(handle, column)) == 1;
  }

  /**
   * Whether every present cell of a column holds a number: a finite decimal
   * number, white space around it allowed.
   *
   * @param column the column's index
   * @return true when no present cell is something else (also when no cell
   *     is present)
   * @throws KelvaException "usage" for an index out of range
   */
  public boolean columnDataAreNumbers(long column) {
    return check(kDSColumnDataAreNumbers(handle, column)) == 1;
  }

  /**
   * The first row at or after {@code start} whose cell in a column holds
   * exactly a text.
   *
   * @param column the column's index
   * @param text the text, or null to find a missing cell
   * @param start the first row to look at (up to the number of rows)
   * @return the row's index, or -1 when there is none
   * @throws KelvaException "usage" for a column out of range or a start
   *     beyond the number of rows
   */
  public long findRow(long column, String text, long start) {
    return check(kDSFindRow(handle, column, text, start));
  }

  /**
   * The distinct texts of the present cells of a column, each once, in the
   * order of their first appearance.
   *
   * @param column the column's index
   * @return the texts
   * @throws KelvaException "usage" for an index out of range
   */
  public List<String> getDistinctValues(long column) {
    String[] values = check(kDSGetDistinctValues(handle, column));
    return values == null ? List.of() : List.of(values);
  }

  /**
   * Replaces a value in a column: every cell holding exactly
   * {@code oldText} gets {@code newText}.
   *
   * @param column the column's index
   * @param oldText the text to replace, or null for the missing cells
   * @param newText the new text, or null to make the cells missing
   * @return the number of cells that matched
   * @throws KelvaException "usage" for an index out of range
   */
  public long replaceValues(long column, String oldText, String newText) {
    return check(kDSReplaceValues(handle, column, oldText, newText));
  }

  /**
   * Orders the rows by their texts in a column, compared byte by byte (as
   * modified UTF-8).  The sort is stable; rows whose cell is missing come
   * last.
   *
   * @param column the column's index
   * @param descending true for descending order
   * @throws KelvaException "usage" for an index out of range
   */
  public void sortRows(long column, boolean descending) {
    check(kDSSortRows(handle, column, descending ? 1 : 0));
  }

  /**
   * Orders the rows by the numbers in a column; stable, rows whose cell is
   * missing last.
   *
   * @param column the column's index
   * @param descending true for descending order
   * @throws KelvaException "invalid_expression" (and nothing moves) when a
   *     present cell is not a number, "usage" for an index out of range
   */
  public void sortRowsNumerically(long column, boolean descending) {
    check(kDSSortRowsNumerically(handle, column, descending ? 1 : 0));
  }

  /**
   * The number of present cells of a column.
   *
   * @param column the column's index
   * @return the count
   * @throws KelvaException "usage" for an index out of range
   */
  public long countData(long column) {
    return check(kDSCountData(handle, column));
  }

  /**
   * The cells of a column as numbers, one per row, NaN for a missing cell.
   *
   * @param column the column's index
   * @return the numbers
   * @throws KelvaException "invalid_expression" when a present cell is not
   *     a number, "usage" for an index out of range
   */
  public double[] getNumbers(long column) {
    long rows = getNumberOfRows();
    if (rows > Integer.MAX_VALUE - 8) {
      throw new KelvaException(ErrorCode.NO_MEMORY);
    }
    double[] numbers = new double[(int) rows];
    check(kDSGetNumbers(handle, column, numbers, 0, rows));
    return numbers;
  }

  // ---- Discretisation ----

  // Cut points c1 < ... < ck make the intervals [-infinity;c1), [c1;c2),
  // ..., [ck;infinity); a number equal to a cut point falls into the
  // interval above it.  A discretised cell holds its interval's text, such
  // as "[2.5;4)".

  /** Equal widths between the smallest and largest value. */
  public static final int EQUAL_WIDTH = 0;
  /** Equal numbers of values (within one when the values are distinct). */
  public static final int EQUAL_FREQUENCY = 1;

  /**
   * The cut points of a numeric column by minimum-description-length
   * entropy discretisation against the classes (distinct texts) of another
   * column; the data set is not changed.
   *
   * @param column the numeric column
   * @param classColumn the class column
   * @return the cut points, increasing (none when no cut pays off)
   * @throws KelvaException "invalid_expression" for a value that is not a
   *     number, "usage" for an index out of range
   */
  public double[] computeIntervalsIEM(long column, long classColumn) {
    int count = (int) check(kDSComputeIntervalsIEM(handle, column, classColumn, null));
    double[] cuts = new double[count];
    check(kDSComputeIntervalsIEM(handle, column, classColumn, cuts));
    return cuts;
  }

  /**
   * Cuts the numbers of a column into at most the given number of
   * intervals and replaces each present cell by its interval's text.
   *
   * @param column the numeric column
   * @param method {@link #EQUAL_WIDTH} or {@link #EQUAL_FREQUENCY}
   * @param intervals the number of intervals wanted, at least 1
   * @return the cut points used (fewer when values are equal)
   * @throws KelvaException "invalid_expression" for a present cell that is
   *     not a number, "usage" for a bad argument or a column without values
   */
  public double[] discretizeColumn(long column, int method, long intervals) {
    double[] room = new double[(int) Math.max(0, Math.min(intervals - 1, 1 << 20))];
    int count = (int) check(kDSDiscretizeColumn(handle, column, method, intervals, room));
    return java.util.Arrays.copyOf(room, count);
  }

  /**
   * Replaces each present cell of a column by the text of the interval of
   * the given cut points that holds its number.
   *
   * @param column the numeric column
   * @param cuts finite, strictly increasing cut points
   * @throws KelvaException "usage" for bad cut points,
   *     "invalid_expression" for a present cell that is not a number
   */
  public void applyDiscretization(long column, double[] cuts) {
    check(kDSApplyDiscretization(handle, column, cuts));
  }

  /**
   * Whether every present cell of a column is an interval text.
   *
   * @param column the column's index
   * @return true also for a column without present cells
   */
  public boolean columnDataAreIntervals(long column) {
    return check(kDSColumnDataAreIntervals(handle, column)) == 1;
  }

  /**
   * Moves the cells of a column down by {@code shift} rows (up when
   * negative); cells moved past either end are dropped and those left
   * behind are missing.  A shifted copy of a column is a lagged series.
   *
   * @param column the column's index
   * @param shift the number of rows
   */
  public void shiftColumnData(long column, long shift) {
    check(kDSShiftColumnData(handle, column, shift));
  }

  // ---- Files ----

  // Data set files are delimited text: a header line of column names, then
  // one row per line.  The separator is a byte value (1 to 255) other than
  // the double quote, newline, carriage return, vertical tab and form feed;
  // tab and space are allowed.  Text in memory crosses as UTF-8, so use an
  // ASCII separator with fromString.

  /**
   * Reads a data set from a delimited text file.  A field is quoted
   * ({@code "..."}, a doubled quote standing for one) or plain; white space
   * around a field is dropped; an empty plain field is a missing cell,
   * {@code ""} a present empty one; lines with fewer fields than columns
   * leave the other cells missing.  Every line must end with a newline
   * (unless its last field is quoted).  Close the result when done.
   *
   * @param fileName the file
   * @param separator the field separator
   * @param listener receives the error that stops the read, with its line
   *     number, and warnings; may be null
   * @return the new data set
   * @throws KelvaException "parse" when the text has an error, "io" when the
   *     file cannot be read, "usage" for a null name or a bad separator
   * @throws RuntimeException what the listener threw; no data set is made
   */
  public static DataSet fromFile(String fileName, char separator, ParseListener listener) {
    return new DataSet(check(kParseDataSet(fileName, separator, listener)));
  }

  /**
   * Reads a data set from delimited text in memory, as {@link #fromFile}
   * reads a file.  Positions given to the listener are the numbers of
   * characters (bytes of the UTF-8 text) read when the error was found.
   *
   * @param text the text
   * @param separator the field separator (ASCII)
   * @param listener receives the error that stops the read; may be null
   * @return the new data set
   * @throws KelvaException "parse" when the text has an error, "usage" for
   *     null text or a bad separator
   * @throws RuntimeException what the listener threw; no data set is made
   */
  public static DataSet fromString(String text, char separator, ParseListener listener) {
    return new DataSet(check(kParseDataSetString(text, separator, listener)));
  }

  /**
   * Writes the data set to a delimited text file that {@link #fromFile}
   * reads back: a cell that is empty, begins or ends with white space, or
   * holds a double quote or the separator is quoted; a missing cell is
   * written as nothing.  A cell holding a newline is written but cannot be
   * read back, and in a data set of one column a missing cell makes a blank
   * line, which the reader skips.
   *
   * @param fileName the file, replaced if it exists
   * @param separator the field separator
   * @throws KelvaException "io" when the file cannot be written, "usage" for
   *     a null name, a bad separator (the file is then untouched) or a
   *     closed data set
   */
  public void save(String fileName, char separator) {
    check(kDSSave(handle, fileName, separator));
  }

  /**
   * The data set as delimited text, as {@link #save} writes it.
   *
   * @param separator the field separator
   * @return the text
   * @throws KelvaException "usage" for a bad separator or a closed data
   *     set, "no_memory" when the text does not fit in memory
   */
  public String toCSVString(char separator) {
    return check(kDSToCSVString(handle, separator));
  }

  // ---- Statistics ----

  /**
   * The mean of the numbers of a column (missing cells skipped).
   *
   * @param column the column's index
   * @return the mean
   * @throws KelvaException "usage" without rows, for an index out of range
   *     or a column without numbers; "invalid_expression" when a present
   *     cell is not a number
   */
  public double computeMean(long column) {
    return check(kDSComputeMean(handle, column));
  }

  /**
   * The variance of the numbers of a column, dividing by their count n.
   *
   * @param column the column's index
   * @return the variance
   * @throws KelvaException as {@link #computeMean}
   */
  public double computeVariance(long column) {
    return check(kDSComputeVariance(handle, column));
  }

  /**
   * The skewness of the numbers of a column: the third central moment over
   * n divided by the 3/2 power of the second central moment over n - 1;
   * 0 for one number or when all are equal.
   *
   * @param column the column's index
   * @return the skewness
   * @throws KelvaException as {@link #computeMean}
   */
  public double computeSkewness(long column) {
    return check(kDSComputeSkewness(handle, column));
  }

  /**
   * The kurtosis (not the excess) of the numbers of a column:
   * n·Σ(x - m)⁴ / (Σ(x - m)²)²; NaN when all numbers are equal.
   *
   * @param column the column's index
   * @return the kurtosis
   * @throws KelvaException as {@link #computeMean}
   */
  public double computeKurtosis(long column) {
    return check(kDSComputeKurtosis(handle, column));
  }

  /**
   * The mean absolute error of predicted values against observed ones.
   *
   * @param observed the index of the column of observed values
   * @param predicted the index of the column of predicted values
   * @return the mean of |observed - predicted|
   * @throws KelvaException as {@link #computeMean}, and "usage" when the
   *     two columns have missing cells in different rows
   */
  public double computeMeanAbsoluteError(long observed, long predicted) {
    return check(kDSComputeMeanAbsoluteError(handle, observed, predicted));
  }

  /**
   * The mean absolute percentage error, as a fraction (not times 100).
   *
   * @param observed the index of the column of observed values
   * @param predicted the index of the column of predicted values
   * @return the mean of |(observed - predicted) / observed|; infinite or
   *     NaN when an observed value is 0
   * @throws KelvaException as {@link #computeMeanAbsoluteError}
   */
  public double computeMeanAbsolutePercentageError(long observed, long predicted) {
    return check(kDSComputeMeanAbsolutePercentageError(handle, observed, predicted));
  }

  /**
   * The mean absolute scaled error: the mean absolute error divided by the
   * mean absolute difference of consecutive observed values.
   *
   * @param observed the index of the column of observed values
   * @param predicted the index of the column of predicted values
   * @return the scaled error, or -1 when there are fewer than two values
   * @throws KelvaException as {@link #computeMeanAbsoluteError}
   */
  public double computeMeanAbsoluteScaledError(long observed, long predicted) {
    return check(kDSComputeMeanAbsoluteScaledError(handle, observed, predicted));
  }
}
