// Runs the tests of one executable with a temporary folder of its own, so that tests that run at once don't meet there.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  std::string folder = testing::TempDir() + "tarvo_test_XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) return 1;
  setenv("TEST_TMPDIR", (folder + "/").c_str(), 1);  // what testing::TempDir() gives from here on
  const int result = RUN_ALL_TESTS();
  std::error_code ignored;
  std::filesystem::remove_all(folder, ignored);
  return result;
}
