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

/** Data sets read from and written as delimited text through the Java API. */
class DataSetFileTest {
  @TempDir Path dir;

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
