package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import java.util.stream.LongStream;
import org.junit.jupiter.api.Test;

/** Data sets through the Java API: texts, arrays and numbers across the boundary. */
class DataSetTest {
  @Test
  void cellsKeepMissingApartFromEmptyAndCarryAnyText() {
    try (DataSet ds = dataSet(new String[] {"a", "b"}, new String[] {"", null})) {
      assertEquals(2, ds.getNumberOfColumns());
      assertEquals(1, ds.getNumberOfRows());
      assertEquals("", ds.getDataItem(0, 0));
      assertNull(ds.getDataItem(0, 1));
      assertFalse(ds.columnIsEmpty(0));
      assertTrue(ds.columnIsEmpty(1));
      String text = "caf\u00e9 \u20ac \ud834\udd1e, \"quoted\"";
      ds.setDataItem(0, 1, text);
      assertEquals(text, ds.getDataItem(0, 1));
      ds.setColumnName(1, text);
      assertEquals(text, ds.getColumnName(1));
      assertEquals(2, ds.copyColumn(1));
      assertEquals(text, ds.getColumnName(2));
      ds.moveColumn(2, 0);
      assertEquals(List.of("", text), List.of(ds.getDataItem(0, 1), ds.getDataItem(0, 0)));
      ds.deleteColumn(0);
      ds.deleteRow(0);
      assertEquals(0, ds.getNumberOfRows());

      assertFails(ErrorCode.USAGE, () -> ds.getDataItem(0, 0));
      assertFails(ErrorCode.USAGE, () -> ds.newColumn(null));
      assertFails(ErrorCode.USAGE, () -> ds.setColumnName(5, "x"));
    }
  }

  @Test
  void valuesAreFoundListedReplacedAndSorted() {
    try (DataSet ds =
        dataSet(
            new String[] {"v", "tag"},
            new String[] {"10", "a"},
            new String[] {"?", "b"},
            new String[] {"9", "c"},
            new String[] {"10", "d"})) {
      assertEquals(List.of("10", "?", "9"), ds.getDistinctValues(0));
      assertEquals(3, ds.findRow(0, "10", 1));
      assertEquals(-1, ds.findRow(0, null, 0));
      assertEquals(1, ds.replaceValues(0, "?", null));
      assertEquals(1, ds.findRow(0, null, 0));
      assertEquals(3, ds.countData(0));
      assertTrue(ds.columnDataAreNumbers(0));

      ds.sortRows(0, false); // by text: "10" < "9"
      assertEquals(List.of("a", "d", "c", "b"), tags(ds));
      ds.sortRowsNumerically(0, false);
      assertEquals(List.of("c", "a", "d", "b"), tags(ds));
      ds.moveRow(3, 0);
      assertEquals(List.of("b", "c", "a", "d"), tags(ds));

      double[] numbers = ds.getNumbers(0);
      assertEquals(4, numbers.length);
      assertTrue(Double.isNaN(numbers[0]));
      assertArrayEquals(new double[] {9, 10, 10}, java.util.Arrays.copyOfRange(numbers, 1, 4));
      assertFails(ErrorCode.INVALID_EXPRESSION, () -> ds.getNumbers(1));
      assertFails(ErrorCode.INVALID_EXPRESSION, () -> ds.sortRowsNumerically(1, false));
      assertEquals("b", ds.getDataItem(0, 1)); // nothing moved
    }
  }

  private static List<String> tags(DataSet ds) {
    return LongStream.range(0, ds.getNumberOfRows()).mapToObj(r -> ds.getDataItem(r, 1)).toList();
  }

  @Test
  void statisticsOfColumns() {
    try (DataSet ds =
        dataSet(
            new String[] {"x", "obs", "pred", "word"},
            new String[] {"1", "2", "1", "one"},
            new String[] {"2", "4", "5", null},
            new String[] {"3", null, null, null},
            new String[] {"4", null, "7", null})) {
      assertEquals(2.5, ds.computeMean(0));
      assertEquals(1.25, ds.computeVariance(0));
      assertEquals(1.64, ds.computeKurtosis(0), 1e-15);
      ds.setDataItem(3, 2, null);
      assertEquals(1.0, ds.computeMeanAbsoluteError(1, 2));
      assertEquals(0.375, ds.computeMeanAbsolutePercentageError(1, 2));
      assertFails(ErrorCode.INVALID_EXPRESSION, () -> ds.computeMean(3));
      assertFails(ErrorCode.USAGE, () -> ds.computeMean(4));
    }
  }

  @Test
  void casesComeFromColumnsNamedLikeNodes() {
    try (Domain domain = new Domain();
        DataSet ds =
            dataSet(
                new String[] {"A", "other", "#"},
                new String[] {"yes", "x", "2"},
                new String[] {null, "y", null})) {
      labelled(domain, "A", "no", "yes");
      domain.addCases(ds);
      domain.addCases(ds, 1, 1);
      ds.setDataItem(1, 0, "maybe");
      assertFails(ErrorCode.USAGE, () -> domain.addCases(ds));
      assertFails(ErrorCode.USAGE, () -> domain.addCases(ds, 1, 2));
    }
  }

  @Test
  void aClosedDataSetIsRefused() {
    DataSet ds = new DataSet();
    ds.newColumn("x");
    ds.close();
    assertFalse(ds.isAlive());
    ds.close(); // twice is harmless
    assertFails(ErrorCode.USAGE, ds::getNumberOfColumns);
    assertFails(ErrorCode.USAGE, () -> ds.getDistinctValues(0));
    assertFails(ErrorCode.USAGE, () -> ds.getNumbers(0));
  }
}
