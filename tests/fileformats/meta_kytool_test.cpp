// kytool info end to end: what it prints for the demonstration take and a damaged file.
#include <stdlib.h>

#include <string>

#include "meta_testutil.h"

namespace {

// Runs kytool with the arguments and returns its exit code and standard output.
DWORD RunKytool(const std::string &args, std::string &out) {
  return kytest::RunProgram(kytest::BinPath("kytool.exe"), args, &out);
}

TEST(MetaKytool, InfoDescribesTake) {
  const std::string sample = kytest::DataPath("../../samples/meta_take.wav");
  std::string out;
  ASSERT_EQ(0u, RunKytool("info \"" + sample + "\"", out)) << out;
  for (const char *line : {"Length:     4000 frames (0:00:00.500)", "marker \"Take 2 starts\"",
                           "0:00:00.300 - 0:00:00.450  (0:00:00.150)  region \"Good part\"",
                           "IART  The Orvanel Quartet", "16 x 8 bitmap", "(attached to this file)"})
    EXPECT_NE(std::string::npos, out.find(line)) << line << "\n" << out;
  // A damaged file: described as far as it goes, the damage reported in the exit code.
  out.clear();
  EXPECT_EQ(1u, RunKytool("info \"" + kytest::DataPath("meta/dmg_adtl_trunc.wav") + "\"", out));
  EXPECT_NE(std::string::npos, out.find("0x8004E008")) << out;
}

}  // namespace
