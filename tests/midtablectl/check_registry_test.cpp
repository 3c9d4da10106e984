// What `midtablectl check` finds in the number blocks and the device states.

#include "midtablectl/check_fixture.h"

namespace {

const std::string kRow = "1380013,Hangzhou\n";
const std::string kPassedOver = ": warning: this line is passed over";

class CheckRegistry : public CheckTest {};

TEST_P(CheckRegistry, Finds) {
  GetParam().SetUp();
  Finds(GetParam().lines);
}

Step Blocks(const std::string& rows) { return Write(kBlocks, rows); }

INSTANTIATE_TEST_SUITE_P(
    Blocks, CheckRegistry,
    testing::Values(
        Case(
            "HaveAHeadAndBothEncodings",
            {Blocks(
                "block,city\n\n1380013,\"Hang\nzhou\"\n1432391,\xBA\xBC\xD6\xDD\n1860571,杭州\n")}),
        Case("BeginWithAByteOrderMark", {Blocks("\xEF\xBB\xBF" + kRow + "1432391,Ningbo\n")},
             kBlocks + ":1: warning: a byte order mark stands before the block, which is lost"),
        Case("NoUserCodeStandsFor", {Blocks(kRow + "1780013,Ningbo\n")},
             kBlocks + ":2: warning: no user code stands for a number of block 1780013"),
        Case("StandBehindAQuote", {Blocks(kRow + "1432391,\"Ningbo\n1380014,x\n1380015,\"x\"\n")},
             kBlocks + ":2: error: a quote that opens here takes in 2 rows, whose blocks are lost"),
        Case("StandBehindALongLine", {Blocks(kRow + "1432391," + std::string(262'144, 'x') + "\n")},
             kBlocks + ": error: is read up to a line of more than 256 KiB only"),
        Case("AreNotThere", {Blocks("block,city\n")},
             kBlocks + ": error: has no usable number block: every user counts as a visitor")),
    kNameOfCase);

Step Device(const std::string& part, const std::string& by) { return Edit(kDevices, part, by); }

INSTANTIATE_TEST_SUITE_P(
    Devices, CheckRegistry,
    testing::Values(
        Case("HaveCommentsAndOtherKeys", {Device("]\n", "]\n; this\n\n# site\nmodel = AC-2400\n")}),
        Case("LackASectionOnOracle", {UseOracle, MakeFolder(kOtherFolder)},
             kDevices + ": error: has no section 5e6f7a8b: its rows get the city value 0"),
        Case("HaveLinesThatArePassedOver",
             {Device("[1a2b3c4d]", "city = x\n[1a2b3c4d]\nx\n[5e6f7a8b")},
             kDevices + ":1" + kPassedOver, kDevices + ":3" + kPassedOver,
             kDevices + ":4" + kPassedOver)),
    kNameOfCase);

}  // namespace
