// Every native method of the Java class library is declared in the list
// files the JNI glue is generated from; the failure names those missing.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace {

TEST(NativeList, EveryNativeIsDeclared) {
  const std::filesystem::path data(KELVA_TEST_DATA_DIR);
  std::set<std::string> declared;
  for (const auto& entry :
       std::filesystem::directory_iterator(data / ".." / ".." / "src" / "jni" / "natives")) {
    if (entry.path().extension() != ".list") continue;
    std::ifstream in(entry.path());
    for (std::string line; std::getline(in, line);) {
      std::istringstream words(line);
      std::string name;
      if (words >> name && name[0] != '#') declared.insert(name);
    }
  }
  std::ifstream in(data / "native_names.txt");
  ASSERT_TRUE(in) << "native_names.txt not found";
  std::string missing;
  std::size_t count = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    for (std::string name; words >> name; ++count)
      if (declared.count(name) == 0) missing += ' ' + name;
  }
  EXPECT_EQ(count, 426u);
  EXPECT_EQ(missing, "") << "not declared:" << missing;
}

}  // namespace
