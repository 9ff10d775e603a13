package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.LongStream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Data sets through the Java API: texts, arrays and numbers across the boundary, and
 * delimited text read and written. */
class DataSetTest {
  @TempDir Path dir;

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

  /** Every cell, column names first, missing cells as null. */
  private static List<List<String>> cells(DataSet ds) {
    List<List<String>> out = new ArrayList<>();
    out.add(LongStream.range(0, ds.getNumberOfColumns()).mapToObj(ds::getColumnName).toList());
    for (long r = 0; r < ds.getNumberOfRows(); r++) {
      long row = r;
      out.add(
          LongStream.range(0, ds.getNumberOfColumns()).mapToObj(c -> ds.getDataItem(row, c)).toList());
    }
    return out;
  }

  @Test
  void writtenTextReadsBackWithMissingAndEmptyApart() throws Exception {
    String odd = "caf\u00e9 \u20ac";
    try (DataSet ds = new DataSet()) {
      ds.newColumn("name");
      ds.newColumn("a,b");
      ds.newColumn(odd);
      long r = ds.newRow();
      ds.setDataItem(r, 0, " lead");
      ds.setDataItem(r, 1, "");
      r = ds.newRow();
      ds.setDataItem(r, 1, "say \"hi\"");
      ds.setDataItem(r, 2, odd);

      String text = ds.toCSVString(',');
      assertEquals(
          "name,\"a,b\"," + odd + "\n\" lead\",\"\",\n,\"say \"\"hi\"\"\"," + odd + "\n", text);
      try (DataSet back = DataSet.fromString(text, ',', null)) {
        assertEquals(cells(ds), cells(back));
        assertNull(back.getDataItem(0, 2));
        assertEquals("", back.getDataItem(0, 1));
      }

      Path file = dir.resolve("d\u00e9j\u00e0 \ud834\udd1e.csv");
      ds.save(file.toString(), '\t');
      assertEquals(
          ds.toCSVString('\t'), new String(Files.readAllBytes(file), StandardCharsets.UTF_8));
      try (DataSet back = DataSet.fromFile(file.toString(), '\t', null)) {
        assertEquals(cells(ds), cells(back));
      }

      // Text in memory carries any character there and back.
      ds.setColumnName(0, "\ud834\udd1e;x");
      try (DataSet back = DataSet.fromString(ds.toCSVString(';'), ';', null)) {
        assertEquals(cells(ds), cells(back));
      }
    }
  }

  @Test
  void errorsReachTheListenerWithTheirPositions() throws Exception {
    List<String> heard = new ArrayList<>();
    ParseListener listener = (where, message) -> heard.add(where + ":" + message);

    Path file = dir.resolve("bad.csv");
    Files.write(file, "a;b\n\n1;2;3\n".getBytes(StandardCharsets.US_ASCII));
    assertFails(ErrorCode.PARSE, () -> DataSet.fromFile(file.toString(), ';', listener));
    assertFails(ErrorCode.PARSE, () -> DataSet.fromString("a,b\n1,2", ',', listener));
    assertEquals(List.of("3:too many fields", "7:unexpected end-of-file"), heard);

    // A listener that throws: its exception reaches the caller, no data set.
    IllegalStateException thrown =
        assertThrows(
            IllegalStateException.class,
            () ->
                DataSet.fromString(
                    "a\n\"x", ',',
                    (where, message) -> {
                      throw new IllegalStateException(message);
                    }));
    assertEquals("unexpected end-of-file", thrown.getMessage());

    assertFails(ErrorCode.IO, () -> DataSet.fromFile(dir.resolve("none.csv").toString(), ',', null));
    assertFails(ErrorCode.USAGE, () -> DataSet.fromString(null, ',', null));
  }

  @Test
  void badSeparatorsAreRefusedBeforeAnythingHappens() throws Exception {
    Path file = dir.resolve("kept.csv");
    Files.write(file, "kept\n".getBytes(StandardCharsets.US_ASCII));
    DataSet ds = DataSet.fromFile(file.toString(), ',', null);
    for (char separator : new char[] {'\0', '\n', '"', '\r', '\u000b', '\f', '\u0100'}) {
      assertFails(ErrorCode.USAGE, () -> DataSet.fromString("x\n", separator, null));
      assertFails(ErrorCode.USAGE, () -> DataSet.fromFile(file.toString(), separator, null));
      assertFails(ErrorCode.USAGE, () -> ds.save(file.toString(), separator));
      assertFails(ErrorCode.USAGE, () -> ds.toCSVString(separator));
    }
    assertEquals("kept\n", new String(Files.readAllBytes(file), StandardCharsets.US_ASCII));
    assertEquals("kept\n", ds.toCSVString(' '));
    ds.close();
    assertFails(ErrorCode.USAGE, () -> ds.toCSVString(','));
  }
}
