package COM.kelva.KAPI;

import static COM.kelva.KAPI.Fixtures.*;
import static org.junit.jupiter.api.Assertions.*;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Domain.fromFile chooses the reader by the file name's extension. */
class FromFileTest {
  @Test
  void bifAndNetVersionsOfOneNetworkHaveTheSameBeliefs(@TempDir Path dir) throws Exception {
    String shared = System.getenv().getOrDefault("KELVA_SHARED_DIR", "");
    Path nets = Path.of(shared.isEmpty() ? System.getProperty("kelva.shared.dir") : shared, "nets");
    // An upper-case extension chooses the same reader.
    Path bif = Files.copy(nets.resolve("other-formats/alarm.bif"), dir.resolve("alarm.BIF"));
    try (Domain fromBif = Domain.fromFile(bif.toString());
        Domain fromNet = Domain.fromFile(nets.resolve("alarm.net").toString())) {
      assertEquals(fromNet.getNodes().size(), fromBif.getNodes().size());
      fromBif.compile();
      fromNet.compile();
      for (Node node : fromBif.getNodes()) {
        Node twin = fromNet.getNodeByName(node.getName());
        for (long s = 0; s < node.getNumberOfStates(); s++) {
          assertEquals(twin.getBelief(s), node.getBelief(s), 1e-12, node.getName());
        }
      }
    }
    // BIF text under a NET name goes to the NET reader, which refuses it
    // with a line; a missing file is "io".
    Path misnamed = Files.copy(bif, dir.resolve("alarm.net"));
    List<Integer> lines = new ArrayList<>();
    assertFails(ErrorCode.PARSE, () -> Domain.fromFile(misnamed.toString(), (l, m) -> lines.add(l)));
    assertFalse(lines.isEmpty());
    assertFails(ErrorCode.IO, () -> Domain.fromFile(dir.resolve("none.xml").toString()));
  }
}
