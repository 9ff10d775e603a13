import COM.kelva.KAPI.Category;
import COM.kelva.KAPI.Domain;
import COM.kelva.KAPI.Equilibrium;
import COM.kelva.KAPI.EvidenceMode;
import COM.kelva.KAPI.KelvaException;
import COM.kelva.KAPI.Kind;
import COM.kelva.KAPI.Node;
import COM.kelva.KAPI.Table;
import java.util.List;

/**
 * Builds a two-node network (rain -> wet grass) through the Java API, fills
 * the conditional tables, prints the table of the child, then compiles the
 * network, enters the evidence that the grass is wet and prints the belief
 * in rain and the probability of the evidence.
 *
 * <pre>
 * java -Djava.library.path=build/release -cp build/release/java/kelva.jar:. Rain
 * </pre>
 */
public final class Rain {
  private Rain() {}

  /** Makes a labelled chance node with the states "yes" and "no". */
  private static Node newYesNoNode(Domain domain, String name) {
    Node node = domain.newNode(Category.CHANCE, Kind.DISCRETE);
    node.setName(name);
    node.setNumberOfStates(2);
    node.setStateLabel(0, "yes");
    node.setStateLabel(1, "no");
    return node;
  }

  /** Rounds to six decimals for printing. */
  private static double round6(double x) {
    return Math.round(x * 1e6) / 1e6;
  }

  /**
   * Runs the example.
   *
   * @param args not used
   */
  public static void main(String[] args) {
    try (Domain domain = new Domain()) {
      Node rain = newYesNoNode(domain, "rain");
      Node wet = newYesNoNode(domain, "wet");
      wet.addParent(rain);

      // The table of wet holds rain, then wet; the last node varies fastest.
      rain.getTable().setData(new double[] {0.2, 0.8});
      Table table = wet.getTable();
      table.setData(new double[] {0.9, 0.1, 0.25, 0.75});

      List<Node> nodes = table.getNodes();
      for (long i = 0; i < table.getSize(); i++) {
        long[] config = table.getConfigurationFromIndex(i);
        StringBuilder line = new StringBuilder();
        for (int n = 0; n < nodes.size(); n++) {
          Node node = nodes.get(n);
          line.append(node.getName()).append('=').append(node.getStateLabel(config[n])).append(' ');
        }
        System.out.println(line.append(table.getDataItem(i)));
      }

      // Compile, observe wet = yes, propagate and read the results.
      domain.compile();
      wet.selectState(0);
      domain.propagate(Equilibrium.SUM, EvidenceMode.NORMAL);
      System.out.println("P(rain=yes | wet=yes) = " + round6(rain.getBelief(0)));
      System.out.println("P(wet=yes) = " + round6(domain.getNormalizationConstant()));
    } catch (KelvaException e) {
      System.err.println("kelva: " + e.getMessage());
      System.exit(1);
    }
  }
}
