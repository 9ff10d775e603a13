package COM.kelva.KAPI;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import org.junit.jupiter.api.function.Executable;

/** Helpers shared by the test classes. */
final class Fixtures {
  private Fixtures() {}

  /** Runs `call` and checks that it throws a KelvaException with `code`. */
  static void assertFails(ErrorCode code, Executable call) {
    assertEquals(code, assertThrows(KelvaException.class, call).getCode());
  }

  /** A discrete chance node named `name` with the given state labels. */
  static Node labelled(Domain d, String name, String... labels) {
    Node n = d.newNode(Category.CHANCE, Kind.DISCRETE);
    n.setName(name);
    n.setNumberOfStates(labels.length);
    for (int i = 0; i < labels.length; i++) {
      n.setStateLabel(i, labels[i]);
    }
    return n;
  }

  /** A data set with the given column names and rows (null: a missing cell). */
  static DataSet dataSet(String[] names, String[]... rows) {
    DataSet ds = new DataSet();
    for (String name : names) {
      ds.newColumn(name);
    }
    for (String[] row : rows) {
      long r = ds.newRow();
      for (int c = 0; c < row.length; c++) {
        ds.setDataItem(r, c, row[c]);
      }
    }
    return ds;
  }

  /** rain -> wet: P(rain) = 0.2, P(wet | rain) = 0.9, P(wet | no rain) = 0.25. */
  static Domain rain() {
    Domain d = new Domain();
    Node rain = labelled(d, "rain", "yes", "no");
    Node wet = labelled(d, "wet", "yes", "no");
    wet.addParent(rain);
    rain.getTable().setData(new double[] {0.2, 0.8});
    wet.getTable().setData(new double[] {0.9, 0.1, 0.25, 0.75});
    return d;
  }
}
