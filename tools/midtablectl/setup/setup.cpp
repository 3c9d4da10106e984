// First all that is missing is put into a plan and shown, then the question is put, then it is done
// in that order. The password goes to the disk before it goes to the server.
#include "midtablectl/setup/setup.h"

#include <cstdlib>
#include <cstring>

#include "midtablectl/check.h"
#include "midtablectl/local_time.h"
#include "midtablectl/setup/admin.h"
#include "midtablectl/setup/make_plan.h"
#include "midtablectl/setup/password.h"
#include "midtablectl/text.h"
#include "support/trim.h"

namespace ctl {

namespace {

constexpr char kNext[] = "systemctl enable --now midtable";

Status Refuse(const std::string& error, Console& console) {
  console.err << error << "\nNothing was changed.\n";
  return Status::kCouldNotLook;
}

// The plan for what is missing; an error as make_plan.h has it.
std::string MakePlan(const SetupOptions& options, const Target& target, Server& server,
                     Plan& plan) {
  PlanMachine(target, plan);
  std::string error = PlanSharedTables(server, plan);
  if (error.empty()) error = PlanLogin(options, target, server, plan);
  const int year = std::atoi(Today().substr(0, 4).c_str());
  if (error.empty()) error = PlanYearTables(target.devices, {year, year + 1}, server, plan);
  if (error.empty()) error = PlanObstacle(plan);
  return error;
}

bool Confirmed(std::size_t steps, const SetupOptions& options, Console& console) {
  if (options.yes) return true;
  if (!console.interactive) {
    console.out << "Nothing done. With --yes it is done.\n";
    return false;
  }
  std::string answer;
  console.out << "Do " << (steps == 1 ? "this" : "these " + Count(steps, "thing")) << "? [y/N] "
              << std::flush;
  std::getline(console.in, answer);
  if (Lower(Trim(answer)).starts_with('y')) return true;
  console.out << "Nothing done.\n";
  return false;
}

Status TellOfFailure(const Applied& applied, std::size_t steps, Console& console) {
  console.err << applied.failure << '\n';
  if (applied.done == 0) {
    console.err << "Nothing was changed.\n";
    return Status::kCouldNotLook;
  }
  console.err << applied.done << " of " << Count(steps, "step")
              << " are done and stay. When it is mended, the same command does the rest.\n";
  return Status::kHalfDone;
}

Status EndWithCheck(Console& console) {
  console.out << "midtablectl check:\n" << std::flush;
  const Status status = Check(CheckOptions{}, console);
  if (status == Status::kFine) {
    console.out << "Next: " << kNext << '\n';
  } else {
    console.out << "Next: mend that, midtablectl check until it finds nothing, then " << kNext
                << '\n';
  }
  return status;
}

}  // namespace

Status Setup(const SetupOptions& options, Console& console) {
  Target target;
  std::string error = FindTarget(options, console, target);
  Administrator administrator;
  if (error.empty()) error = LogIn(options, target, console, administrator);
  if (!error.empty()) return Refuse(error, console);
  if (!target.has_settings) {
    const auto password = GeneratePassword();
    if (!password) return Refuse(std::string("no random bytes: ") + std::strerror(errno), console);
    target.login.password = *password;
  }
  Server server(*administrator.sql, Dialect::Of(target.login));
  Plan plan;
  error = MakePlan(options, target, server, plan);
  if (!error.empty()) return Refuse(error, console);
  Show(plan,
       "the server " + OneLine(target.login.host) + " port " + std::to_string(target.login.port) +
           ", as " + OneLine(administrator.user),
       console);
  if (plan.steps.empty()) console.out << "All is there; nothing to do.\n";
  if (options.dry_run) {
    console.out << "Nothing done: this is what --dry-run shows.\n";
    return Status::kFine;
  }
  if (!plan.steps.empty()) {
    if (!Confirmed(plan.steps.size(), options, console)) return Status::kFindings;
    const Applied applied = Apply(plan, server);
    if (!applied.failure.empty()) return TellOfFailure(applied, plan.steps.size(), console);
    console.out << Count(applied.done, "step") << " done.\n";
  }
  administrator.sql.reset();
  return EndWithCheck(console);
}

}  // namespace ctl
