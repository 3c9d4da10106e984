#include <cstdio>

#include "config/dbinfo.h"
#include "delivery/delivery.h"
#include "log/zux_center_log.h"
#include "main/service.h"
#include "midtable/Midtable.h"
#include "support/housekeeping.h"
#include "support/run_state.h"

int main(int argc, char* argv[]) {
  OpenStandardStreams();
  // Before the options: without settings the process ends here, even for the version option.
  ProcessPolicy();
  // A reader of a pipe sees each console line as it is written, as a terminal does.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);

  if (morvan_check_version(argc, argv, "midtable", "build date : Jan 28 2013") == 0) return 0;
  if (!CheckDelivery() || !CheckWorkers()) return 1;
  morvan_check_deamon(argc, argv);
  if (!BlockSignals()) return -1;
  IgnoreSignals();
  CCheckUnique unique;
  if (!unique.check_unique()) {
    std::puts("\nanother process maybe running exit!");
    return 1;
  }
  g_debug = morvan_check_debug(argc, argv);
  InstallSignalHandler();
  StartRunLog();
  const Housekeeping house([&unique] {
    unique.Renew();
    g_loger.Flush();
  });
  // Whichever works is gone before the lock is.
  if (ProcessPolicy().getDelivery() == kDeliveryOnce) {
    Delivery(*ProcessPolicy().getDBPolicy(), NumberOfWorkers(ProcessPolicy().getWorkers())).Run();
  } else {
    CMidTable().Run();
  }
  return 0;
}
