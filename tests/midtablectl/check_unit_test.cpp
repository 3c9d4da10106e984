// What `midtablectl check` finds where the unit of systemd and the way of counting do not fit.

#include "midtablectl/check_fixture.h"

namespace {

const std::string kUnits = "/etc/systemd/system/";
const std::string kBeside = kUnits + "midtable.service.d/";
const std::string kTooLittle =
    "midtable.service: warning: is not of Type=notify: with delivery=once it starts only while the "
    "server answers, and has neither status nor watchdog";
const std::string kTooMuch =
    "midtable.service: warning: is of Type=notify without delivery=once: its watchdog knows no "
    "more than that the process is there -> remove " +
    kBeside + "once.conf; then systemctl daemon-reload and systemctl restart midtable";

void CountOnce() { Replace(kSettings, "dbtype=mysql", "dbtype=mysql\ndelivery=once"); }

// A file of this unit, with one setting.
Step Have(const std::string& file, const std::string& setting) {
  return [=] {
    fs::create_directories(kBeside);
    WriteFile(kUnits + file, "# Type=simple\n[Service]\n" + setting + "\n");
  };
}
Step Unit(const std::string& setting) { return Have("midtable.service", setting); }
Step Beside(const std::string& name, const std::string& setting) {
  return Have("midtable.service.d/" + name, setting);
}

class CheckUnit : public CheckTest {};

TEST_P(CheckUnit, Finds) {
  GetParam().SetUp();
  Finds(GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    That, CheckUnit,
    testing::Values(
        Case("AMachineWithoutTheUnitNeedsNothingBesideIt", {CountOnce}),
        Case("WhatIsLeftBesideARemovedUnitIsNobodys", {Beside("once.conf", "Type=notify")}),
        Case("TheUnitAloneIsForTheOtherWay", {Unit("Type=forking")}),
        Case("EveryRowOnceWantsMore", {Unit("Type=forking"), CountOnce}, kTooLittle),
        Case("EveryRowOnceHasIt",
             {Unit("Type=forking"), Beside("once.conf", "Type=notify"), CountOnce}),
        Case("TheOtherWayHasTooMuch", {Unit("Type=forking"), Beside("once.conf", "Type=notify")},
             kTooMuch),
        Case("TheOperatorsOwnUnitMayDoTheSame", {Unit("Type=notify-reload"), CountOnce}),
        Case("BlanksAroundTheEqualsSignDoNotMatter", {Unit(" Type = notify"), CountOnce}),
        Case("TheLastFileBesideTheUnitDecides",
             {Unit("Type=forking"), Beside("once.conf", "Type=notify"),
              Beside("zz.conf", "Type=forking"), CountOnce},
             kTooLittle),
        Case("OtherFilesBesideTheUnitDoNotCount",
             {Unit("Type=forking"), Beside("once.conf~", "Type=notify"), CountOnce}, kTooLittle)),
    kNameOfCase);

TEST_F(CheckTest, SettingsThatAreOnlyTriedAreNotHeldAgainstTheUnit) {
  Unit("Type=forking")();
  CountOnce();
  fs::copy_file(kSettings, "/tmp/tried.conf", fs::copy_options::overwrite_existing);
  ExpectFindings(Midtablectl({"check", "--offline", "--settings", "/tmp/tried.conf"}), {});
}

}  // namespace
